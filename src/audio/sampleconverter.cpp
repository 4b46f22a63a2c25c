#include "sampleconverter.h"

#include "audio/audiotypes.h"

#include <algorithm>
#include <cmath>

namespace sorv {

SampleConverter::SampleConverter(double sourceRate, std::uint32_t sourceChannels)
    : m_rate(sourceRate > 0 ? sourceRate : kCommonSampleRate),
      m_channels(std::max<std::uint32_t>(sourceChannels, 1)),
      m_passThrough(std::fabs(m_rate - kCommonSampleRate) <= 1.0 && m_channels == kCommonChannels)
{}

std::int64_t SampleConverter::outputCapacity(std::int64_t inputFrames) const
{
    if (std::fabs(m_rate - kCommonSampleRate) <= 1.0)
        return std::max<std::int64_t>(inputFrames, 1);
    const auto n =
        static_cast<std::int64_t>(static_cast<double>(inputFrames) * kCommonSampleRate / m_rate);
    return std::max<std::int64_t>(n, 1);
}

std::vector<float> SampleConverter::convert(std::span<const float> interleaved) const
{
    if (m_passThrough)
        return {interleaved.begin(), interleaved.end()};
    const size_t frames = interleaved.size() / m_channels;
    std::vector<float> mono(frames);
    for (size_t f = 0; f < frames; ++f) {
        float sum = 0.0f;
        for (std::uint32_t c = 0; c < m_channels; ++c)
            sum += interleaved[f * m_channels + c];
        mono[f] = sum / static_cast<float>(m_channels);
    }
    if (frames == 0 || std::fabs(m_rate - kCommonSampleRate) <= 1.0)
        return mono;

    const double ratio = kCommonSampleRate / m_rate;
    const auto outCount = static_cast<size_t>(
        std::min(outputCapacity(static_cast<std::int64_t>(frames)),
                 std::max<std::int64_t>(std::llround(static_cast<double>(frames) * ratio), 1)));
    std::vector<float> out(outCount);
    const size_t last = frames - 1;
    for (size_t i = 0; i < outCount; ++i) {
        const double pos = static_cast<double>(i) / ratio;
        const size_t j = std::min(static_cast<size_t>(pos), last);
        const size_t k = std::min(j + 1, last);
        const auto frac = static_cast<float>(pos - static_cast<double>(j));
        out[i] = mono[j] + (mono[k] - mono[j]) * frac;
    }
    return out;
}

} // namespace sorv
