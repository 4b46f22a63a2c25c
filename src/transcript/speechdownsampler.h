#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace sorv {

// Turns the common format (32-bit float, 48 kHz, mono) into what speech
// decoders and the live stream take: signed 16-bit at 16 kHz. A low-pass FIR
// filter before keeping every third sample, so that nothing above 8 kHz folds
// back into the speech band. Keeps its state across buffers, whatever their
// length.
class SpeechDownsampler {
public:
    static constexpr int kFactor = 3;
    static constexpr int kOutputRate = 16000;

    SpeechDownsampler();

    // Appends the 16 kHz samples of `input` to `output`.
    void process(std::span<const float> input, std::vector<std::int16_t>& output);
    // Forgets the history (a new, unrelated stream follows).
    void reset();

private:
    std::vector<float> m_taps;
    // The last taps−1 input samples, then the buffer being processed.
    std::vector<float> m_window;
    // Index in m_window of the newest sample of the next output's window.
    std::size_t m_next = 0;
};

} // namespace sorv
