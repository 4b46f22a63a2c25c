// The live stream's conversion and framing: 48 kHz float buffers of the
// recorder's size brought to 16 kHz 16-bit frames of 3 840 bytes, reported
// as seconds of audio per second of one core ("audio_s/s"). The second
// benchmark adds what the streamer does around it on the audio side: the
// copy of the buffer and the hand-over to its queue.

#include "transcript/liveaudiostreamer.h"
#include "transcript/livepcmframer.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>

#include <atomic>
#include <cmath>
#include <vector>

namespace {

constexpr std::size_t kFrames = 4096;
constexpr double kBufferSeconds = static_cast<double>(kFrames) / 48000.0;

std::vector<float> speechLike()
{
    std::vector<float> out(kFrames);
    for (std::size_t i = 0; i < kFrames; ++i)
        out[i] = 0.4f * std::sin(float(i) * 0.0577f) * std::sin(float(i) * 0.0031f);
    return out;
}

void setAudioRate(benchmark::State& state, double buffers)
{
    state.counters["audio_s/s"] =
        benchmark::Counter(kBufferSeconds * buffers, benchmark::Counter::kIsRate);
}

void BM_convertAndFrame(benchmark::State& state)
{
    const auto buffer = speechLike();
    sorv::LivePcmFramer framer;
    std::size_t frames = 0;
    for (auto _ : state) {
        framer.push(buffer, [&frames](const QByteArray& f) {
            benchmark::DoNotOptimize(f.constData());
            ++frames;
        });
    }
    benchmark::DoNotOptimize(frames);
    setAudioRate(state, double(state.iterations()));
}
BENCHMARK(BM_convertAndFrame);

// Buffers handed to a streamer with no connection: copied on the caller's
// thread, converted and framed on the streamer's queue (the frames are then
// dropped). Timed until the queue has done them all.
void BM_streamerIntake(benchmark::State& state)
{
    const auto buffer = speechLike();
    sorv::LiveAudioStreamer streamer;
    const sorv::LiveAudioStreamer::AudioInput input = streamer.audioInput();
    const sorv::AudioBuffer audio{buffer, 0};
    constexpr int kBatch = 256;
    for (auto _ : state) {
        for (int i = 0; i < kBatch; ++i)
            input(audio);
        benchmark::DoNotOptimize(streamer.isActive()); // waits for the queue
    }
    setAudioRate(state, double(state.iterations()) * kBatch);
}
BENCHMARK(BM_streamerIntake)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
