// WAV writer throughput with the header kept current, and the 4 GiB boundary:
// a recording longer than a RIFF file can hold (≈ 6.2 hours of 48 kHz float)
// must keep going as RF64 and read back whole.

#include "audio/wavwriter.h"

#include <benchmark/benchmark.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <sndfile.h>

#include <vector>

namespace {

constexpr std::int64_t kBuffer = 4096;

void BM_WavWriterPast4GiB(benchmark::State& state)
{
    // 4 GiB of samples plus a minute, written in recording-sized buffers.
    const std::int64_t totalFrames = (std::int64_t(1) << 30) + 48000 * 60;
    QTemporaryDir dir(QDir::tempPath() + QStringLiteral("/sorv-bench-XXXXXX"));
    const QString path = dir.filePath(QStringLiteral("long.wav"));
    std::vector<float> buffer(kBuffer);
    for (std::int64_t i = 0; i < kBuffer; ++i)
        buffer[size_t(i)] = float(i) / float(kBuffer) - 0.5f;
    for (auto _ : state) {
        sorv::WavWriter writer;
        if (!writer.open(path)) {
            state.SkipWithError("cannot create the file");
            return;
        }
        for (std::int64_t done = 0; done < totalFrames; done += kBuffer) {
            if (!writer.write(buffer)) {
                state.SkipWithError(qPrintable(writer.errorString()));
                return;
            }
        }
        writer.close();
    }
    SF_INFO info{};
    SNDFILE* f = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
    const std::int64_t expected = (totalFrames + kBuffer - 1) / kBuffer * kBuffer;
    if (!f || info.frames != expected || (info.format & SF_FORMAT_TYPEMASK) != SF_FORMAT_RF64)
        state.SkipWithError("the file past 4 GiB does not read back as a whole RF64 file");
    if (f)
        sf_close(f);
    state.counters["MB/s"] =
        benchmark::Counter(double(expected) * 4.0 / 1e6, benchmark::Counter::kIsRate);
    state.counters["audio_s/s"] =
        benchmark::Counter(double(expected) / 48000.0, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_WavWriterPast4GiB)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
