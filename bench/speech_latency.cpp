// How long after someone stops talking the preview shows the utterance's
// final text: espeak-ng sentences with pauses are fed to
// LocalTranscriptManager in the recorder's 4 096-frame buffers at the pace of
// real time, and for each sentence the time from feeding its last sound to
// the first final segment after it is taken. Prints the median and the
// worst (target: median ≤ 1 s). The decoder's own end-of-speech rule waits
// for 0.5 s of silence, so that much is the floor.
//
// speech_latency [--grammar]   (the general English model by default)

#include "core/log.h"
#include "core/settings.h"
#include "speechsamples.h"
#include "transcript/localtranscriptmanager.h"
#include "transcript/pocketsphinxrecognizer.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>

using namespace sorv;

namespace {

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

constexpr std::size_t kBuffer = 4096;

// The sample index after the last sound of each sentence: sound is above
// −34 dBFS, and a sentence ends with a silence of at least 0.6 s.
std::vector<std::size_t> speechEnds(const std::vector<float>& s)
{
    std::vector<std::size_t> ends;
    std::size_t lastSound = 0;
    bool inSpeech = false;
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (std::abs(s[i]) > 0.02f) {
            lastSound = i;
            inSpeech = true;
        } else if (inSpeech && i - lastSound > 48000 * 6 / 10) {
            ends.push_back(lastSound + 1);
            inSpeech = false;
        }
    }
    if (inSpeech)
        ends.push_back(lastSound + 1);
    return ends;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const bool grammar = app.arguments().contains(QStringLiteral("--grammar"));
    setLogSink([](const QString&) {});

    QTemporaryDir dir;
    qputenv("XDG_CONFIG_HOME", dir.filePath(QStringLiteral("config")).toUtf8());
    Settings::setValue(Settings::kSpeechLocaleKey, QStringLiteral("en-US"));
    const QString wav = dir.filePath(QStringLiteral("speech.wav"));
    const QString jsgf = dir.filePath(QStringLiteral("phrases.jsgf"));
    QString error;
    if (!test::makeSpeech(wav, kSentences, 1.5, 1.0, &error) ||
        !test::writeGrammar(jsgf, kSentences)) {
        std::fprintf(stderr, "speech_latency: %s\n", qPrintable(error));
        return 1;
    }
    const std::vector<float> samples = test::readMonoSamples(wav);
    const std::vector<std::size_t> ends = speechEnds(samples);

    PocketsphinxRecognizer::Options options;
    if (grammar)
        options.grammarFile = jsgf;
    LocalTranscriptManager manager(PocketsphinxRecognizer::factory(options));

    QElapsedTimer clock;
    std::vector<qint64> finalsAtMs;
    auto noteFinal = [&](int row) {
        if (manager.segments().at(row).text.endsWith(QLatin1Char('.')))
            finalsAtMs.push_back(clock.elapsed());
    };
    QObject::connect(&manager, &LocalTranscriptManager::segmentAppended, noteFinal);
    QObject::connect(&manager, &LocalTranscriptManager::segmentTextChanged, noteFinal);

    std::size_t fed = 0;
    manager.start();
    // The model loads before the clock starts: what is measured is speech to text.
    QTimer::singleShot(1500, &app, [&] {
        clock.start();
        auto* feeder = new QTimer(&app);
        feeder->setTimerType(Qt::PreciseTimer);
        feeder->setInterval(5);
        QObject::connect(feeder, &QTimer::timeout, &app, [&, feeder] {
            // Everything whose time has come, one buffer at a time.
            const auto due = static_cast<std::size_t>(clock.nsecsElapsed() * 48 / 1000000);
            while (fed + kBuffer <= due && fed < samples.size()) {
                const auto n = std::min(kBuffer, samples.size() - fed);
                manager.appendMixedBuffer(
                    AudioBuffer{std::vector<float>(samples.begin() + long(fed),
                                                   samples.begin() + long(fed + n)),
                                0});
                fed += n;
            }
            if (fed >= samples.size()) {
                feeder->stop();
                QTimer::singleShot(3000, &app, &QCoreApplication::quit);
            }
        });
        feeder->start();
    });
    app.exec();

    // A sentence's end is fed with the buffer that holds it.
    std::vector<double> delays;
    for (std::size_t k = 0; k < ends.size(); ++k) {
        const double fedAtMs = double((ends[k] + kBuffer - 1) / kBuffer * kBuffer) / 48.0;
        const double nextEndMs = k + 1 < ends.size() ? double(ends[k + 1]) / 48.0 : 1e12;
        for (const qint64 t : finalsAtMs) {
            if (double(t) >= fedAtMs && double(t) < nextEndMs) {
                delays.push_back((double(t) - fedAtMs) / 1000.0);
                break;
            }
        }
    }
    std::printf("%s: %zu sentences, %zu final segments, %zu delays measured\n",
                grammar ? "grammar" : "general model", ends.size(), finalsAtMs.size(),
                delays.size());
    if (delays.empty())
        return 1;
    std::sort(delays.begin(), delays.end());
    std::printf("end of speech to final segment: median %.2f s, min %.2f s, max %.2f s\n",
                delays[delays.size() / 2], delays.front(), delays.back());
    for (const auto& s : manager.segments())
        std::printf("  %s\n", qPrintable(s.text));
    return 0;
}
