#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace sorv {

// Brings captured float samples to the common format (48 kHz mono) when the
// sound server delivers something else. The server normally converts for us,
// so this only runs for a stream whose actual sample spec differs.
class SampleConverter {
public:
    SampleConverter(double sourceRate, std::uint32_t sourceChannels);

    // True when the source is already 48 kHz mono and samples pass unchanged.
    bool isPassThrough() const { return m_passThrough; }

    // Frames a converted buffer of `inputFrames` needs: inputFrames × 48000 /
    // source rate, truncated, at least 1.
    std::int64_t outputCapacity(std::int64_t inputFrames) const;

    // Interleaved input → mono at 48 kHz. Channels are averaged; the rate is
    // changed by linear interpolation between neighbouring samples.
    std::vector<float> convert(std::span<const float> interleaved) const;

private:
    double m_rate;
    std::uint32_t m_channels;
    bool m_passThrough;
};

} // namespace sorv
