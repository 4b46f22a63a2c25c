#pragma once

#include "audio/audiotypes.h"

#include <cmath>
#include <cstdint>
#include <ctime>
#include <vector>

namespace sorv::test {

// Mixed audio as the engine delivers it: 4 096-frame buffers of 48 kHz mono
// float, each stamped with the CLOCK_MONOTONIC time of its first sample and
// handed over once its last sample is in the past. Silence, a quiet tone, or
// 10 ms clicks (3 kHz bursts) at given moments.
class SyntheticAudio {
public:
    static constexpr int kFrames = 4096;
    static constexpr double kRate = 48000.0;

    static std::int64_t nowNs()
    {
        timespec ts{};
        clock_gettime(CLOCK_MONOTONIC, &ts);
        return static_cast<std::int64_t>(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
    }

    explicit SyntheticAudio(std::int64_t startNs = nowNs(), float toneLevel = 0.0f)
        : m_startNs(startNs), m_toneLevel(toneLevel)
    {}

    void addClick(std::int64_t atNs) { m_clicks.push_back(atNs); }

    // The buffers that are complete by now (in order).
    std::vector<AudioBuffer> due(std::int64_t now = nowNs())
    {
        std::vector<AudioBuffer> out;
        while (timeOf(m_position + kFrames) <= now) {
            AudioBuffer b;
            b.hostTimeNs = timeOf(m_position);
            b.samples.resize(kFrames);
            for (int i = 0; i < kFrames; ++i) {
                const std::int64_t n = m_position + i;
                const std::int64_t t = timeOf(n);
                float v = m_toneLevel * float(std::sin(2.0 * M_PI * 440.0 * double(n) / kRate));
                for (std::int64_t click : m_clicks) {
                    const std::int64_t since = t - click;
                    if (since >= 0 && since < 10'000'000)
                        v = 0.8f * float(std::sin(2.0 * M_PI * 3000.0 * double(since) / 1e9));
                }
                b.samples[static_cast<size_t>(i)] = v;
            }
            m_position += kFrames;
            out.push_back(std::move(b));
        }
        return out;
    }

private:
    std::int64_t timeOf(std::int64_t sample) const
    {
        return m_startNs + static_cast<std::int64_t>(double(sample) * 1e9 / kRate);
    }

    std::int64_t m_startNs;
    float m_toneLevel;
    std::int64_t m_position = 0;
    std::vector<std::int64_t> m_clicks;
};

} // namespace sorv::test
