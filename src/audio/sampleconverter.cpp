#include "sampleconverter.h"

#include "audio/audiotypes.h"
#include "core/log.h"

#include <algorithm>
#include <cmath>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

namespace sorv {

void SampleConverter::SwrDeleter::operator()(SwrContext* s) const
{
    swr_free(&s);
}

SampleConverter::SampleConverter(double sourceRate, std::uint32_t sourceChannels)
    : m_rate(sourceRate > 0 ? sourceRate : kCommonSampleRate),
      m_channels(std::max<std::uint32_t>(sourceChannels, 1))
{
    // Within a hertz of 48 kHz is the same clock reported with rounding.
    if (std::fabs(m_rate - kCommonSampleRate) <= 1.0)
        return;
    SwrContext* swr = nullptr;
    AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
    if (swr_alloc_set_opts2(&swr, &mono, AV_SAMPLE_FMT_FLT, static_cast<int>(kCommonSampleRate),
                            &mono, AV_SAMPLE_FMT_FLT, static_cast<int>(std::lround(m_rate)), 0,
                            nullptr) < 0 ||
        swr_init(swr) < 0) {
        swr_free(&swr);
        consoleLog(QStringLiteral("❌ Could not create a resampler from %1 Hz").arg(m_rate));
        return;
    }
    m_resampler.reset(swr);
}

SampleConverter::~SampleConverter() = default;
SampleConverter::SampleConverter(SampleConverter&&) noexcept = default;
SampleConverter& SampleConverter::operator=(SampleConverter&&) noexcept = default;

std::int64_t SampleConverter::outputCapacity(std::int64_t inputFrames) const
{
    if (!m_resampler)
        return std::max<std::int64_t>(inputFrames, 1);
    const auto n =
        static_cast<std::int64_t>(static_cast<double>(inputFrames) * kCommonSampleRate / m_rate);
    return std::max<std::int64_t>(n, 1);
}

void SampleConverter::convert(std::span<const float> interleaved, std::vector<float>& out)
{
    const size_t frames = interleaved.size() / m_channels;
    std::span<const float> mono = interleaved.first(frames * m_channels);
    if (m_channels > 1) {
        m_mono.resize(frames);
        const float scale = 1.0f / static_cast<float>(m_channels);
        for (size_t f = 0; f < frames; ++f) {
            float sum = 0.0f;
            for (std::uint32_t c = 0; c < m_channels; ++c)
                sum += interleaved[f * m_channels + c];
            m_mono[f] = sum * scale;
        }
        mono = m_mono;
    }
    if (!m_resampler) {
        out.insert(out.end(), mono.begin(), mono.end());
        return;
    }
    const int in = static_cast<int>(frames);
    const int room = swr_get_out_samples(m_resampler.get(), in);
    if (room <= 0)
        return;
    const size_t at = out.size();
    out.resize(at + static_cast<size_t>(room));
    auto* dst = reinterpret_cast<std::uint8_t*>(out.data() + at);
    const auto* src = reinterpret_cast<const std::uint8_t*>(mono.data());
    const int got = swr_convert(m_resampler.get(), &dst, room, &src, in);
    out.resize(at + static_cast<size_t>(std::max(got, 0)));
}

std::vector<float> SampleConverter::convert(std::span<const float> interleaved)
{
    std::vector<float> out;
    convert(interleaved, out);
    return out;
}

std::vector<float> SampleConverter::flush()
{
    std::vector<float> out;
    if (!m_resampler)
        return out;
    const int room = swr_get_out_samples(m_resampler.get(), 0);
    if (room <= 0)
        return out;
    out.resize(static_cast<size_t>(room));
    auto* dst = reinterpret_cast<std::uint8_t*>(out.data());
    const int got = swr_convert(m_resampler.get(), &dst, room, nullptr, 0);
    out.resize(static_cast<size_t>(std::max(got, 0)));
    return out;
}

} // namespace sorv
