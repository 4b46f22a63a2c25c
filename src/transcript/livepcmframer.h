#pragma once

#include <QByteArray>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace sorv {

// The live stream's wire format: mixed audio (48 kHz float) brought to
// 16 kHz signed 16-bit little-endian PCM and cut into 120 ms frames.
//
// Each buffer is decimated on its own: a centred three-tap box filter, then
// every third point, so output sample j is the mean of the inputs 3j−1,
// 3j and 3j+1 that lie inside the buffer. Samples beyond a multiple of three
// are dropped. Bytes short of a whole frame wait for the next buffer; they
// are never padded or flushed.
class LivePcmFramer {
public:
    static constexpr int kSampleRate = 16000;
    static constexpr int kFrameSamples = 1920;
    static constexpr int kFrameBytes = kFrameSamples * 2;

    // Full scale is 32767 both ways: −1.0 becomes −32767, and anything from
    // 1.0 up (NaN included) becomes 32767.
    static std::int16_t toPcm16(float s)
    {
        if (!(s < 1.0f))
            return 32767;
        return static_cast<std::int16_t>((s < -1.0f ? -1.0f : s) * 32767.0f);
    }

    // Converts one buffer and calls onFrame(const QByteArray&) for every
    // frame it completes.
    template <typename OnFrame> void push(std::span<const float> x, OnFrame&& onFrame)
    {
        const std::size_t n = x.size();
        if (n < 3)
            return;
        const std::size_t m = n / 3;
        put(toPcm16((x[0] + x[1]) / 2.0f), onFrame);
        for (std::size_t j = 1; j < m; ++j)
            put(toPcm16((x[3 * j - 1] + x[3 * j] + x[3 * j + 1]) / 3.0f), onFrame);
    }

    // Bytes waiting for a whole frame.
    std::size_t pendingBytes() const { return m_fill; }
    void clear() { m_fill = 0; }

private:
    template <typename OnFrame> void put(std::int16_t v, OnFrame& onFrame)
    {
        const auto u = static_cast<std::uint16_t>(v);
        m_frame[m_fill] = static_cast<char>(u & 0xff);
        m_frame[m_fill + 1] = static_cast<char>(u >> 8);
        m_fill += 2;
        if (m_fill == kFrameBytes) {
            m_fill = 0;
            onFrame(QByteArray(m_frame.data(), kFrameBytes));
        }
    }

    std::array<char, kFrameBytes> m_frame{};
    std::size_t m_fill = 0;
};

} // namespace sorv
