#pragma once

#include <cstdint>
#include <ctime>

namespace sorv {

inline constexpr std::int64_t kNsPerSecond = 1'000'000'000;

// CLOCK_MONOTONIC in nanoseconds: the clock every audio buffer and video
// frame is stamped with, so that the two can be lined up in one file.
inline std::int64_t monotonicNowNs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<std::int64_t>(ts.tv_sec) * kNsPerSecond + ts.tv_nsec;
}

} // namespace sorv
