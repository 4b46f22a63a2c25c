#include "mixer.h"

#include <QtGlobal>

#include <algorithm>
#include <cassert>
#include <cmath>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace sorv {

namespace {

constexpr float kTargetLevel = 0.06f;
constexpr float kGainHoldBelow = 0.0005f;
constexpr float kLimiterKnee = 0.92f;
// The release coefficient pair is 0.95 and the single-precision 1 − 0.95
// (0.050000012), not the literal 0.05.
constexpr float kRelease = 0.95f;
constexpr float kReleaseComplement = 1.0f - 0.95f;

float sumOfSquares(const float* x, size_t n)
{
    size_t i = 0;
#if defined(__SSE2__)
    __m128 acc0 = _mm_setzero_ps();
    __m128 acc1 = _mm_setzero_ps();
    for (; i + 8 <= n; i += 8) {
        const __m128 a = _mm_loadu_ps(x + i);
        const __m128 b = _mm_loadu_ps(x + i + 4);
        acc0 = _mm_add_ps(acc0, _mm_mul_ps(a, a));
        acc1 = _mm_add_ps(acc1, _mm_mul_ps(b, b));
    }
    alignas(16) float lanes[4];
    _mm_store_ps(lanes, _mm_add_ps(acc0, acc1));
    float sum = (lanes[0] + lanes[1]) + (lanes[2] + lanes[3]);
#else
    float sum = 0.0f;
#endif
    for (; i < n; ++i)
        sum += x[i] * x[i];
    return sum;
}

float maxMagnitude(const float* x, size_t n)
{
    size_t i = 0;
#if defined(__SSE2__)
    const __m128 signMask = _mm_castsi128_ps(_mm_set1_epi32(0x7fffffff));
    __m128 acc0 = _mm_setzero_ps();
    __m128 acc1 = _mm_setzero_ps();
    for (; i + 8 <= n; i += 8) {
        acc0 = _mm_max_ps(acc0, _mm_and_ps(_mm_loadu_ps(x + i), signMask));
        acc1 = _mm_max_ps(acc1, _mm_and_ps(_mm_loadu_ps(x + i + 4), signMask));
    }
    alignas(16) float lanes[4];
    _mm_store_ps(lanes, _mm_max_ps(acc0, acc1));
    float peak = std::max(std::max(lanes[0], lanes[1]), std::max(lanes[2], lanes[3]));
#else
    float peak = 0.0f;
#endif
    for (; i < n; ++i)
        peak = std::max(peak, std::fabs(x[i]));
    return peak;
}

float smoothLevel(float previous, float instant)
{
    // Fast attack, slow release.
    return previous < instant ? 0.7f * previous + 0.3f * instant
                              : kRelease * previous + kReleaseComplement * instant;
}

} // namespace

float peakLevel(std::span<const float> samples)
{
    return maxMagnitude(samples.data(), samples.size());
}

float rmsLevel(std::span<const float> samples)
{
    if (samples.empty())
        return 0.0f;
    return std::sqrt(sumOfSquares(samples.data(), samples.size()) /
                     static_cast<float>(samples.size()));
}

void softLimit(std::span<float> samples)
{
    if (maxMagnitude(samples.data(), samples.size()) <= kLimiterKnee)
        return;
    for (float& x : samples) {
        if (std::fabs(x) > kLimiterKnee)
            x = static_cast<float>(std::tanh(static_cast<double>(x)));
    }
}

AGCState mixWithGainControl(std::span<const float> mic, std::span<const float> sys,
                            bool systemPresent, const AGCState& previous, std::span<float> out)
{
    Q_ASSERT_X(mic.size() == sys.size(), "mixWithGainControl",
               "microphone and system buffers must have the same length");
    const size_t n = std::min({mic.size(), sys.size(), out.size()});
    assert(out.size() >= n);

    const float m = rmsLevel(mic.first(n));
    const float s = rmsLevel(sys.first(n));

    AGCState next;
    next.micRMS = smoothLevel(previous.micRMS, m);
    next.sysRMS = smoothLevel(previous.sysRMS, s);

    float micTarget = previous.micGainSmoothed;
    if (next.micRMS > kGainHoldBelow)
        micTarget = std::clamp(kTargetLevel / next.micRMS, 0.5f, 6.0f);
    float sysTarget = previous.sysGainSmoothed;
    if (next.sysRMS > kGainHoldBelow)
        sysTarget = std::clamp(kTargetLevel / next.sysRMS, 0.1f, 2.5f);

    next.micGainSmoothed = 0.7f * previous.micGainSmoothed + 0.3f * micTarget;
    next.sysGainSmoothed = 0.7f * previous.sysGainSmoothed + 0.3f * sysTarget;

    // Bleed suppression: when the system is loud and the microphone is not
    // clearly talking over it, the microphone mostly hears the speakers.
    float bleed = 1.0f;
    if (systemPresent && s > 0.012f && !(m > 0.008f && 0.45f * s <= m))
        bleed = s > 0.06f ? 0.45f : (s > 0.03f ? 0.6f : 0.75f);

    // Both sides talking at once: leave headroom.
    const float duck = (systemPresent && next.micRMS > 0.01f && next.sysRMS > 0.01f) ? 0.72f : 1.0f;

    const float gm = next.micGainSmoothed;
    const float gs = next.sysGainSmoothed;
    const float* micData = mic.data();
    const float* sysData = sys.data();
    float* o = out.data();
    for (size_t i = 0; i < n; ++i)
        o[i] = (bleed * (gm * micData[i]) + gs * sysData[i]) * duck;
    softLimit(out.first(n));
    return next;
}

MixResult mixWithGainControl(std::span<const float> mic, std::span<const float> sys,
                             bool systemPresent, const AGCState& previous)
{
    MixResult result;
    result.samples.resize(std::min(mic.size(), sys.size()));
    result.state = mixWithGainControl(mic, sys, systemPresent, previous, result.samples);
    return result;
}

MicChoice micSamplesForMix(std::int64_t n, const MicChoiceInput& input, std::span<float> out)
{
    MicChoice choice;
    const auto count = static_cast<size_t>(std::max<std::int64_t>(n, 0));
    std::fill_n(out.begin(), std::min(count, out.size()), 0.0f);
    if (input.engineMic.empty())
        return choice;

    const size_t micCount = std::min(count, input.engineMic.size());
    choice.enginePeak = maxMagnitude(input.engineMic.data(), micCount);
    if (input.scMicCaptureEnabled && input.scMic.size() >= count)
        choice.scPeak = maxMagnitude(input.scMic.data(), count);

    choice.usedSCMic =
        input.scMicCaptureEnabled &&
        (choice.enginePeak * 1.15f < choice.scPeak ||
         (input.latestMicLevel < 0.003f && 2.0f * input.latestMicLevel < input.latestSCMicLevel));

    const size_t limit = std::min(count, out.size());
    if (choice.usedSCMic) {
        const size_t sc = std::min(limit, input.scMic.size());
        std::copy_n(input.scMic.begin(), sc, out.begin());
        if (sc < limit && micCount > sc)
            std::copy(input.engineMic.begin() + static_cast<std::ptrdiff_t>(sc),
                      input.engineMic.begin() +
                          static_cast<std::ptrdiff_t>(std::min(micCount, limit)),
                      out.begin() + static_cast<std::ptrdiff_t>(sc));
    } else {
        std::copy_n(input.engineMic.begin(), std::min(micCount, limit), out.begin());
    }
    return choice;
}

} // namespace sorv
