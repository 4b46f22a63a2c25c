#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

struct SwrContext;

namespace sorv {

// Brings captured float samples to the common format (48 kHz mono) when the
// sound server delivers something else. The server normally converts for us,
// so this only runs for a stream whose actual sample spec differs.
//
// One converter per stream: channels are averaged, then libswresample changes
// the rate with its filter state carried from one buffer to the next, so a
// continuous stream comes out continuous (no seam at buffer edges).
class SampleConverter {
public:
    SampleConverter(double sourceRate, std::uint32_t sourceChannels);
    ~SampleConverter();
    SampleConverter(SampleConverter&&) noexcept;
    SampleConverter& operator=(SampleConverter&&) noexcept;
    SampleConverter(const SampleConverter&) = delete;
    SampleConverter& operator=(const SampleConverter&) = delete;

    // True when the source is already 48 kHz mono and samples pass unchanged.
    bool isPassThrough() const { return m_channels == 1 && !m_resampler; }

    // Frames a converted buffer of `inputFrames` needs at most, in the steady
    // state: inputFrames × 48000 / source rate, truncated, at least 1.
    std::int64_t outputCapacity(std::int64_t inputFrames) const;

    // Interleaved input → mono at 48 kHz, appended to `out`.
    void convert(std::span<const float> interleaved, std::vector<float>& out);
    std::vector<float> convert(std::span<const float> interleaved);

    // The samples the resampler still holds back at the end of a stream.
    std::vector<float> flush();

private:
    struct SwrDeleter {
        void operator()(SwrContext* s) const;
    };

    double m_rate;
    std::uint32_t m_channels;
    std::unique_ptr<SwrContext, SwrDeleter> m_resampler;
    std::vector<float> m_mono;
};

} // namespace sorv
