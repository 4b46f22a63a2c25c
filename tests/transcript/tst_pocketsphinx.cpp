// The on-device recogniser with the real pocketsphinx decoder: espeak-ng
// speech, decoded against a small grammar of the test phrases so that the
// words are exact, split into utterances by the decoder's own voice-activity
// detection; the 48 → 16 kHz conversion in front of it; and where models
// are looked for.

#include "core/log.h"
#include "core/serialqueue.h"
#include "core/settings.h"
#include "speechsamples.h"
#include "support/isolatedenvironment.h"
#include "transcript/localtranscriptmanager.h"
#include "transcript/pocketsphinxrecognizer.h"
#include "transcript/speechdownsampler.h"
#include "transcript/speechmodel.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <latch>
#include <mutex>
#include <numbers>
#include <random>

using namespace sorv;
using namespace sorv::test;

namespace {

const QString kHello = QStringLiteral("hello there");
const QString kHowAreYou = QStringLiteral("how are you today");
const QString kWeather = QStringLiteral("the weather is nice");

double rms(std::span<const std::int16_t> s)
{
    double sum = 0.0;
    for (const auto v : s)
        sum += double(v) * v;
    return std::sqrt(sum / double(s.size())) / 32768.0;
}

std::vector<float> sine(double frequency, double seconds, float amplitude)
{
    std::vector<float> out(static_cast<std::size_t>(seconds * 48000));
    for (std::size_t i = 0; i < out.size(); ++i)
        out[i] = amplitude * float(std::sin(2 * std::numbers::pi * frequency * double(i) / 48000));
    return out;
}

void touch(const QString& path)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
}

// Feeds samples in the recorder's buffer size, as the mixed audio comes.
template <typename Feed> void inBuffers(const std::vector<float>& samples, Feed feed)
{
    for (std::size_t at = 0; at < samples.size(); at += 4096) {
        const auto end = std::min(samples.size(), at + 4096);
        feed(AudioBuffer{
            std::vector<float>(samples.begin() + long(at), samples.begin() + long(end)), 0});
    }
}

QStringList segmentTexts(const LocalTranscriptManager& m)
{
    QStringList out;
    for (const auto& s : m.segments())
        out << s.text;
    return out;
}

} // namespace

class TestPocketsphinx : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        m_english = SpeechModelLocator::find(QStringLiteral("en-US"),
                                             {SpeechModelLocator::defaultModelDirectory()});
        if (!m_english)
            QSKIP("pocketsphinx-en-us is not installed");
        if (!speechToolsAvailable())
            QSKIP("espeak-ng and sox are needed for speech samples");
        m_grammar = m_dir.filePath(QStringLiteral("phrases.jsgf"));
        QVERIFY(writeGrammar(m_grammar, {kHello, kHowAreYou, kWeather}));
        m_twoSentences = m_dir.filePath(QStringLiteral("two.wav"));
        QString error;
        QVERIFY2(makeSpeech(m_twoSentences, {kHello, kHowAreYou}, 1.5, 0.5, &error),
                 qPrintable(error));
    }

    void downsamplerKeepsSpeechAndRejectsWhatWouldFoldBack()
    {
        SpeechDownsampler speech;
        std::vector<std::int16_t> out;
        speech.process(sine(1000, 1.0, 0.5f), out);
        QCOMPARE(out.size(), std::size_t(16000));
        // Skip the filter's start-up.
        const auto settled = std::span<const std::int16_t>(out).subspan(200);
        QVERIFY(std::abs(rms(settled) - 0.5 / std::sqrt(2.0)) < 0.01);

        // 10 kHz would fold back to 6 kHz: it has to be gone instead.
        SpeechDownsampler above;
        out.clear();
        above.process(sine(10000, 1.0, 0.5f), out);
        QVERIFY2(rms(std::span<const std::int16_t>(out).subspan(200)) < 0.5 * 0.001,
                 qPrintable(QString::number(rms(out))));
    }

    void downsamplerDoesNotDependOnBufferSizes()
    {
        std::mt19937 random(7);
        std::uniform_real_distribution<float> noise(-0.9f, 0.9f);
        std::vector<float> input(48000);
        for (float& v : input)
            v = noise(random);

        SpeechDownsampler whole;
        std::vector<std::int16_t> expected;
        whole.process(input, expected);

        for (const std::size_t chunk : {std::size_t(1), std::size_t(5), std::size_t(4096)}) {
            SpeechDownsampler pieces;
            std::vector<std::int16_t> got;
            for (std::size_t at = 0; at < input.size(); at += chunk)
                pieces.process(
                    std::span<const float>(input).subspan(at, std::min(chunk, input.size() - at)),
                    got);
            QCOMPARE(got, expected);
        }
    }

    void modelsAreFoundByLanguage()
    {
        IsolatedEnvironment env;
        // Debian's English model serves both English locales, and nothing else.
        const QStringList debian{SpeechModelLocator::defaultModelDirectory()};
        QCOMPARE(SpeechModelLocator::find(QStringLiteral("en-GB"), debian), m_english);
        QVERIFY(m_english->languageModel.endsWith(QStringLiteral("en-us.lm.bin")));
        QVERIFY(!SpeechModelLocator::find(QStringLiteral("zu-ZA"), debian));

        // A model installed later under speech_model_dir is found before the default.
        const QString root = env.path(QStringLiteral("models"));
        touch(root + QStringLiteral("/de/acoustic/mdef"));
        touch(root + QStringLiteral("/de/de.dict"));
        touch(root + QStringLiteral("/de/de-phone.lm.bin"));
        QVERIFY(!SpeechModelLocator::inspect(root + QStringLiteral("/de"))); // phonetic only
        touch(root + QStringLiteral("/de/de.lm.bin"));
        Settings::setValue(SpeechModelLocator::kModelDirKey, root);
        QCOMPARE(SpeechModelLocator::searchRoots().first(), root);
        const auto german = SpeechModelLocator::find(QStringLiteral("de-DE"));
        QVERIFY(german);
        QCOMPARE(german->acousticModel, root + QStringLiteral("/de/acoustic"));
        QCOMPARE(german->languageModel, root + QStringLiteral("/de/de.lm.bin"));
        QCOMPARE(german->dictionary, root + QStringLiteral("/de/de.dict"));
        QVERIFY(SpeechModelLocator::find(QStringLiteral("en-US")));
    }

    void formatText_data()
    {
        QTest::addColumn<QString>("words");
        QTest::addColumn<bool>("isFinal");
        QTest::addColumn<QString>("text");
        QTest::newRow("partial") << "hello there" << false << "Hello there";
        QTest::newRow("I") << "i think i'm done" << true << "I think I'm done.";
        QTest::newRow("nothing") << "" << true << "";
    }

    void formatText()
    {
        QFETCH(QString, words);
        QFETCH(bool, isFinal);
        QFETCH(QString, text);
        QCOMPARE(PocketsphinxRecognizer::formatText(words, isFinal), text);
    }

    void managerMakesOneSegmentPerUtterance()
    {
        IsolatedEnvironment env;
        Settings::setValue(Settings::kSpeechLocaleKey, QStringLiteral("en-US"));
        PocketsphinxRecognizer::Options options;
        options.grammarFile = m_grammar;
        LocalTranscriptManager manager(PocketsphinxRecognizer::factory(options));
        manager.start();
        QTRY_COMPARE(manager.status(), TranscriptStatus::active());

        // Faster than real time, as a burst from the main thread.
        inBuffers(readMonoSamples(m_twoSentences),
                  [&](AudioBuffer&& b) { manager.appendMixedBuffer(b); });
        QTRY_COMPARE_WITH_TIMEOUT(
            segmentTexts(manager),
            (QStringList{QStringLiteral("Hello there."), QStringLiteral("How are you today.")}),
            20000);
        QCOMPARE(manager.status(), TranscriptStatus::active());
        QCOMPARE(manager.segments().at(1).id, 1);
        manager.stop();
    }

    void endingTheAudioClosesTheUtterance()
    {
        auto queue = std::make_shared<SerialQueue>(PocketsphinxRecognizer::kQueueLabel);
        PocketsphinxRecognizer::Options options;
        options.grammarFile = m_grammar;
        PocketsphinxRecognizer recognizer(QStringLiteral("en-GB"), queue, options);
        QVERIFY(recognizer.isAvailable());

        QList<SpeechRecognitionUpdate> updates;
        auto collect = [&updates](const SpeechRecognitionUpdate& u) { updates << u; };
        const QString file = m_dir.filePath(QStringLiteral("unfinished.wav"));
        QVERIFY(makeSpeech(file, {kWeather}, 0.0));

        SpeechAudioBufferRequest request;
        auto task = recognizer.recognitionTask(request, collect);
        inBuffers(readMonoSamples(file), [&](AudioBuffer&& b) { request.append(std::move(b)); });
        // Everything is decoded, but the speech has not ended: no final yet.
        queue->postAndWait([] {});
        QCoreApplication::processEvents();
        for (const auto& u : std::as_const(updates))
            QVERIFY(!std::get<SpeechRecognitionResult>(u).isFinal);
        request.endAudio();
        QTRY_VERIFY_WITH_TIMEOUT(!updates.isEmpty() &&
                                     std::get_if<SpeechRecognitionResult>(&updates.last()) &&
                                     std::get<SpeechRecognitionResult>(updates.last()).isFinal,
                                 10000);
        QCOMPARE(std::get<SpeechRecognitionResult>(updates.last()).text,
                 QStringLiteral("The weather is nice."));
        for (qsizetype i = 0; i + 1 < updates.size(); ++i)
            QVERIFY(!std::get<SpeechRecognitionResult>(updates.at(i)).isFinal);

        // Audio that ends with nothing said ends the next task with code 1.
        updates.clear();
        SpeechAudioBufferRequest quiet;
        task = recognizer.recognitionTask(quiet, collect);
        quiet.append(AudioBuffer{std::vector<float>(48000, 0.0f), 0});
        quiet.endAudio();
        QTRY_COMPARE_WITH_TIMEOUT(updates.size(), 1, 10000);
        QCOMPARE(updates.first(), SpeechRecognitionUpdate(SpeechRecognitionError::audioEnded()));
    }

    void fallingBehindDropsTheOldestAudioAndSaysSoOnce()
    {
        std::mutex lock;
        QStringList lines;
        setLogSink([&](const QString& line) {
            std::lock_guard g(lock);
            lines << line;
        });
        auto queue = std::make_shared<SerialQueue>(PocketsphinxRecognizer::kQueueLabel);
        // Held up behind other work, the decoder cannot keep up with what comes.
        std::latch release(1);
        queue->post([&release] { release.wait(); });
        PocketsphinxRecognizer::Options options;
        options.grammarFile = m_grammar;
        options.maxBacklogSeconds = 1.0;
        PocketsphinxRecognizer recognizer(QStringLiteral("en-US"), queue, options);
        QList<SpeechRecognitionUpdate> updates;
        SpeechAudioBufferRequest request;
        auto task = recognizer.recognitionTask(
            request, [&](const SpeechRecognitionUpdate& u) { updates << u; });

        // Three sentences; only the last second (silence and the end of the last
        // one) is still waiting when the decoder gets to it.
        const QString file = m_dir.filePath(QStringLiteral("backlog.wav"));
        QVERIFY(makeSpeech(file, {kWeather, kHello, kHowAreYou}, 1.0));
        inBuffers(readMonoSamples(file), [&](AudioBuffer&& b) { request.append(std::move(b)); });
        inBuffers(readMonoSamples(file), [&](AudioBuffer&& b) { request.append(std::move(b)); });
        release.count_down();
        queue->postAndWait([] {});
        QTest::qWait(200);

        std::lock_guard g(lock);
        setLogSink({});
        const auto warnings = lines.filter(QStringLiteral("falling behind"));
        QCOMPARE(warnings.size(), 1);
        QVERIFY(warnings.first().startsWith(QStringLiteral("⚠️")));
        // Nothing of the first sentences survived to be recognised.
        for (const auto& u : std::as_const(updates)) {
            if (const auto* r = std::get_if<SpeechRecognitionResult>(&u))
                QVERIFY2(!r->text.contains(QStringLiteral("weather")), qPrintable(r->text));
        }
    }

private:
    QTemporaryDir m_dir;
    QString m_grammar;
    QString m_twoSentences;
    std::optional<SpeechModel> m_english;
};

QTEST_GUILESS_MAIN(TestPocketsphinx)
#include "tst_pocketsphinx.moc"
