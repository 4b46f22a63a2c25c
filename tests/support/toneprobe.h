#pragma once

// Small signal checks for recorded files: read a WAV and estimate how strong
// a given frequency is in part of it.

#include <QFile>
#include <QString>

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <span>
#include <vector>

namespace sorv::test {

struct WavContents {
    bool ok = false;
    int sampleRate = 0;
    int channels = 0;
    int format = 0;
    std::vector<float> samples; // interleaved
    double seconds() const
    {
        return sampleRate > 0 && channels > 0
                   ? static_cast<double>(samples.size()) / channels / sampleRate
                   : 0.0;
    }
};

inline WavContents readWavFile(const QString& path)
{
    WavContents w;
    SF_INFO info{};
    SNDFILE* f = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
    if (!f)
        return w;
    w.sampleRate = info.samplerate;
    w.channels = info.channels;
    w.format = info.format;
    w.samples.resize(static_cast<size_t>(info.frames * info.channels));
    const sf_count_t got = sf_readf_float(f, w.samples.data(), info.frames);
    sf_close(f);
    w.ok = got == info.frames;
    return w;
}

// Amplitude of the sinusoid at `frequency` in the samples (Goertzel): about A
// for A·sin(2πft), about 0 when the tone is absent.
inline double toneAmplitude(std::span<const float> samples, double frequency,
                            double sampleRate = 48000.0)
{
    if (samples.empty())
        return 0.0;
    const double w = 2.0 * M_PI * frequency / sampleRate;
    const double coeff = 2.0 * std::cos(w);
    double s1 = 0.0, s2 = 0.0;
    for (float x : samples) {
        const double s0 = x + coeff * s1 - s2;
        s2 = s1;
        s1 = s0;
    }
    const double power = s1 * s1 + s2 * s2 - coeff * s1 * s2;
    return 2.0 * std::sqrt(std::max(power, 0.0)) / static_cast<double>(samples.size());
}

// The tone's amplitude in consecutive 100 ms windows, sorted: robust against
// the phase jumps a capture glitch causes, which cancel a long Goertzel sum.
inline std::vector<double> windowedToneAmplitudes(std::span<const float> samples, double frequency,
                                                  double sampleRate = 48000.0)
{
    const auto window = static_cast<size_t>(sampleRate / 10);
    std::vector<double> out;
    for (size_t at = 0; at + window <= samples.size(); at += window)
        out.push_back(toneAmplitude(samples.subspan(at, window), frequency, sampleRate));
    std::sort(out.begin(), out.end());
    return out;
}

inline double medianToneAmplitude(std::span<const float> samples, double frequency,
                                  double sampleRate = 48000.0)
{
    const auto a = windowedToneAmplitudes(samples, frequency, sampleRate);
    return a.empty() ? 0.0 : a[a.size() / 2];
}

// The last `seconds` of a mono file (or all of it when shorter).
inline std::span<const float> tail(const WavContents& w, double seconds)
{
    const auto n = std::min(w.samples.size(), static_cast<size_t>(seconds * w.sampleRate));
    return std::span<const float>(w.samples).last(n);
}

} // namespace sorv::test
