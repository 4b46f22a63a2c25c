// Mixer throughput, reported as seconds of audio processed per second
// ("audio_s/s", i.e. the real-time factor) on one core.

#include "audio/mixer.h"
#include "audio/mixpipeline.h"
#include "core/log.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>

#include <cmath>
#include <random>
#include <vector>

namespace {

constexpr size_t kFrames = 4096;
constexpr double kBufferSeconds = static_cast<double>(kFrames) / 48000.0;

std::vector<float> signal(float amplitude, unsigned seed)
{
    std::mt19937 rng(seed);
    std::normal_distribution<float> noise(0.0f, amplitude);
    std::vector<float> out(kFrames);
    for (size_t i = 0; i < kFrames; ++i)
        out[i] = amplitude * std::sin(static_cast<float>(i) * 0.0577f) + noise(rng) * 0.1f;
    return out;
}

void setAudioRate(benchmark::State& state)
{
    state.counters["audio_s/s"] = benchmark::Counter(
        kBufferSeconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_mixWithGainControl(benchmark::State& state)
{
    // A loud range (amplitude 0.6) exercises the limiter too.
    const auto mic = signal(state.range(0) == 0 ? 0.05f : 0.6f, 1);
    const auto sys = signal(state.range(0) == 0 ? 0.08f : 0.6f, 2);
    std::vector<float> out(kFrames);
    sorv::AGCState agc;
    for (auto _ : state) {
        agc = sorv::mixWithGainControl(mic, sys, true, agc, out);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    setAudioRate(state);
}
BENCHMARK(BM_mixWithGainControl)->Arg(0)->Arg(1)->ArgName("loud");

// The pipeline's system-active path: ring-buffer read and padding, source
// choice, mix, WAV write (with the header kept current), delivery and meters.
void BM_pipeline_systemActive(benchmark::State& state)
{
    sorv::setLogSink([](const QString&) {});
    QTemporaryDir dir;
    sorv::MixPipeline pipeline;
    const auto mic = signal(0.05f, 3);
    const auto sys = signal(0.08f, 4);
    size_t delivered = 0;
    pipeline.setMixedSink([&](const sorv::AudioBuffer& b) { delivered += b.samples.size(); });
    pipeline.setMetersSink([](const sorv::AudioMeters&) {});
    pipeline.reset();
    pipeline.openOutput(dir.filePath(QStringLiteral("bench.wav")));
    pipeline.setSystemAudioActive(true);
    sorv::AudioBuffer buffer;
    for (auto _ : state) {
        pipeline.receiveSystemAudio(sys, 0.1f);
        buffer.samples = mic;
        pipeline.processMicBuffer(buffer, 0.05f);
    }
    pipeline.closeOutput();
    benchmark::DoNotOptimize(delivered);
    setAudioRate(state);
    sorv::setLogSink({});
}
BENCHMARK(BM_pipeline_systemActive)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
