// Cost of the on-device preview's decoding: the 48 → 16 kHz conversion and
// pocketsphinx on espeak-ng speech with pauses, fed in the recorder's buffer
// size with a partial hypothesis after every buffer, as the preview runs it.
// "rtf" is CPU seconds per second of audio on one core (target ≤ 0.3);
// "audio_s/s" its inverse.

#include "core/log.h"
#include "speechsamples.h"
#include "transcript/pocketsphinxdecoder.h"
#include "transcript/speechdownsampler.h"
#include "transcript/speechmodel.h"

#include <benchmark/benchmark.h>

#include <QTemporaryDir>

#include <cstdio>

namespace {

using sorv::PocketsphinxDecoder;

const QStringList kSentences = {
    QStringLiteral("hello there"),
    QStringLiteral("how are you today"),
    QStringLiteral("the weather is nice"),
    QStringLiteral("we should go for a walk in the park"),
    QStringLiteral("please send me the report by friday"),
    QStringLiteral("the meeting starts at ten o'clock"),
    QStringLiteral("i think we need more time"),
    QStringLiteral("can you hear me now"),
    QStringLiteral("let us move on to the next topic"),
    QStringLiteral("thank you all for joining"),
};

struct Corpus {
    std::vector<float> samples; // 48 kHz
    QString grammar;
    bool ok = false;
};

const Corpus& corpus()
{
    static QTemporaryDir dir;
    static const Corpus c = [] {
        Corpus out;
        const QString wav = dir.filePath(QStringLiteral("speech.wav"));
        out.grammar = dir.filePath(QStringLiteral("phrases.jsgf"));
        QString error;
        if (!sorv::test::makeSpeech(wav, kSentences, 1.0, 0.5, &error) ||
            !sorv::test::writeGrammar(out.grammar, kSentences)) {
            std::fprintf(stderr, "bench_speech: %s\n", qPrintable(error));
            return out;
        }
        out.samples = sorv::test::readMonoSamples(wav);
        out.ok = !out.samples.empty();
        return out;
    }();
    return c;
}

void BM_downsample(benchmark::State& state)
{
    const std::vector<float> buffer(4096, 0.25f);
    std::vector<std::int16_t> out;
    sorv::SpeechDownsampler downsampler;
    for (auto _ : state) {
        out.clear();
        downsampler.process(buffer, out);
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["audio_s/s"] = benchmark::Counter(
        4096.0 / 48000.0 * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_downsample);

// grammar 0: the general English language model (what users get), 1: the
// test grammar; partials 1: a partial hypothesis after every buffer.
void BM_decode(benchmark::State& state)
{
    const Corpus& c = corpus();
    const auto model = sorv::SpeechModelLocator::find(QStringLiteral("en-US"));
    if (!c.ok || !model) {
        state.SkipWithError("needs espeak-ng, sox and pocketsphinx-en-us");
        return;
    }
    const PocketsphinxDecoder::Config config{*model, state.range(0) == 1 ? c.grammar : QString()};
    std::int64_t finals = 0;
    for (auto _ : state) {
        state.PauseTiming();
        QString error;
        auto decoder = PocketsphinxDecoder::load(config, &error);
        sorv::SpeechDownsampler downsampler;
        std::vector<std::int16_t> pcm;
        std::vector<PocketsphinxDecoder::Event> events;
        state.ResumeTiming();
        for (std::size_t at = 0; at < c.samples.size(); at += 4096) {
            const auto n = std::min<std::size_t>(4096, c.samples.size() - at);
            pcm.clear();
            downsampler.process(std::span<const float>(c.samples).subspan(at, n), pcm);
            decoder->process(pcm, state.range(1) == 1, events);
        }
        state.PauseTiming();
        for (const auto& e : events)
            finals += e.kind == PocketsphinxDecoder::Event::Kind::Final ? 1 : 0;
        decoder.reset();
        state.ResumeTiming();
    }
    const double audioSeconds = static_cast<double>(c.samples.size()) / 48000.0;
    state.counters["audio_s/s"] = benchmark::Counter(
        audioSeconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["rtf"] =
        benchmark::Counter(audioSeconds * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["finals"] =
        static_cast<double>(finals) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_decode)
    ->Args({0, 1})
    ->Args({0, 0})
    ->Args({1, 1})
    ->ArgNames({"grammar", "partials"})
    ->Unit(benchmark::kMillisecond);

// Loading the model: once per start or language change, on the speech queue.
void BM_loadModel(benchmark::State& state)
{
    const Corpus& c = corpus();
    const auto model = sorv::SpeechModelLocator::find(QStringLiteral("en-US"));
    if (!model) {
        state.SkipWithError("needs pocketsphinx-en-us");
        return;
    }
    for (auto _ : state) {
        QString error;
        auto decoder = PocketsphinxDecoder::load(
            {*model, state.range(0) == 1 ? c.grammar : QString()}, &error);
        benchmark::DoNotOptimize(decoder.get());
    }
}
BENCHMARK(BM_loadModel)->Arg(0)->Arg(1)->ArgName("grammar")->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
