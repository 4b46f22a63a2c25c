#pragma once

#include <algorithm>
#include <chrono>
#include <optional>

namespace sorv {

// How long a retry loop waits after a failure, and whether it tries again:
// a fixed pause, waits that grow by a step (1×, 2×, 3× …), or waits that
// double up to a ceiling; with or without a limit on attempts.
struct Backoff {
    enum class Growth { Fixed, Linear, Doubling };

    std::chrono::milliseconds step;
    Growth growth = Growth::Fixed;
    std::chrono::milliseconds ceiling = std::chrono::milliseconds::max();
    int maxAttempts = 0; // 0: no limit

    static constexpr Backoff linear(std::chrono::milliseconds step, int maxAttempts)
    {
        return {step, Growth::Linear, std::chrono::milliseconds::max(), maxAttempts};
    }
    static constexpr Backoff doubling(std::chrono::milliseconds first,
                                      std::chrono::milliseconds ceiling)
    {
        return {first, Growth::Doubling, ceiling};
    }

    // The wait after the `failures`-th failure in a row (from 1); none when
    // that was the last attempt allowed.
    constexpr std::optional<std::chrono::milliseconds> after(int failures) const
    {
        if (maxAttempts > 0 && failures >= maxAttempts)
            return std::nullopt;
        const int n = std::max(failures, 1);
        std::chrono::milliseconds wait = growth == Growth::Linear ? step * n : step;
        for (int i = 1; growth == Growth::Doubling && i < n && wait < ceiling; ++i)
            wait = wait > ceiling / 2 ? ceiling : wait * 2;
        return std::min(wait, ceiling);
    }
};

} // namespace sorv
