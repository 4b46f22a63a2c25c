#include "speechdownsampler.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sorv {

namespace {

// 95 taps, Blackman window, −6 dB at 7 kHz: flat to about 5.5 kHz, more than
// 70 dB down from 8.4 kHz, so what folds back lands above 7 kHz, beyond the
// band speech models look at.
constexpr int kTaps = 95;
constexpr double kCutoffHz = 7000.0;
constexpr double kInputRate = 48000.0;

std::vector<float> lowPassTaps()
{
    std::vector<float> taps(kTaps);
    const double fc = kCutoffHz / kInputRate;
    const double mid = (kTaps - 1) / 2.0;
    double sum = 0.0;
    std::vector<double> h(kTaps);
    for (int i = 0; i < kTaps; ++i) {
        const double x = i - mid;
        const double sinc =
            x == 0.0 ? 2.0 * fc
                     : std::sin(2.0 * std::numbers::pi * fc * x) / (std::numbers::pi * x);
        const double w = 0.42 - 0.5 * std::cos(2.0 * std::numbers::pi * i / (kTaps - 1)) +
                         0.08 * std::cos(4.0 * std::numbers::pi * i / (kTaps - 1));
        h[i] = sinc * w;
        sum += h[i];
    }
    // Unity gain at 0 Hz.
    for (int i = 0; i < kTaps; ++i)
        taps[i] = static_cast<float>(h[i] / sum);
    return taps;
}

} // namespace

SpeechDownsampler::SpeechDownsampler() : m_taps(lowPassTaps())
{
    reset();
}

void SpeechDownsampler::reset()
{
    m_window.assign(m_taps.size() - 1, 0.0f);
    m_next = m_taps.size() - 1;
}

void SpeechDownsampler::process(std::span<const float> input, std::vector<std::int16_t>& output)
{
    const std::size_t history = m_taps.size() - 1;
    m_window.insert(m_window.end(), input.begin(), input.end());
    output.reserve(output.size() + input.size() / kFactor + 1);

    std::size_t p = m_next;
    for (; p < m_window.size(); p += kFactor) {
        // The filter is symmetric, so the order of taps against samples does not matter.
        const float* x = m_window.data() + (p - history);
        float acc = 0.0f;
        for (std::size_t k = 0; k < m_taps.size(); ++k)
            acc += m_taps[k] * x[k];
        const float scaled = std::clamp(acc * 32767.0f, -32768.0f, 32767.0f);
        output.push_back(static_cast<std::int16_t>(std::lrint(scaled)));
    }
    const std::size_t drop = m_window.size() - history;
    m_window.erase(m_window.begin(), m_window.begin() + static_cast<std::ptrdiff_t>(drop));
    m_next = p - drop;
}

} // namespace sorv
