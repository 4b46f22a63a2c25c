#pragma once

#include "audio/audiotypes.h"

#include <span>

namespace sorv {

// Automatic gain control, bleed suppression, double-talk attenuation and a
// soft limiter over one microphone buffer and the matching system samples.
// Writes mic.size() mixed samples to `out` (which must hold that many) and
// returns the new state. All arithmetic is single precision, except tanh.
//
// mic and sys must have the same length; that is a programming error, caught
// by an assertion in debug builds. Release builds mix the common prefix (the
// rest of `out` is left untouched) so a mismatch never reads out of bounds.
AGCState mixWithGainControl(std::span<const float> mic, std::span<const float> sys,
                            bool systemPresent, const AGCState& previous, std::span<float> out);

// Convenience form returning the samples (allocates; for tests and tools).
struct MixResult {
    AGCState state;
    std::vector<float> samples;
};
MixResult mixWithGainControl(std::span<const float> mic, std::span<const float> sys,
                             bool systemPresent, const AGCState& previous);

// The soft limiter: every sample beyond ±0.92 becomes tanh(x).
void softLimit(std::span<float> samples);

// Largest magnitude in the buffer (0 for an empty one).
float peakLevel(std::span<const float> samples);

// Root mean square in single precision (0 for an empty buffer).
float rmsLevel(std::span<const float> samples);

// Which microphone feeds the mix: the engine's own, or the screen-capture
// stream's when that one clearly hears more. Writes n samples to `out`; the
// result says which one was used and the peaks the choice was made on.
struct MicChoiceInput {
    std::span<const float> engineMic; // the microphone buffer (may be empty: no float data)
    std::span<const float> scMic;     // the stream microphone's samples (may be empty)
    bool scMicCaptureEnabled = false;
    float latestMicLevel = 0.0f;
    float latestSCMicLevel = 0.0f;
};
struct MicChoice {
    bool usedSCMic = false;
    float enginePeak = 0.0f;
    float scPeak = 0.0f;
};
MicChoice micSamplesForMix(std::int64_t n, const MicChoiceInput& input, std::span<float> out);

} // namespace sorv
