// The on-device transcript's rules against a scripted recogniser: how
// recognition results become segments, when a new utterance starts, which
// errors reach the status, and how the speech language is chosen and stored.

#include "core/settings.h"
#include "support/isolatedenvironment.h"
#include "transcript/localtranscriptmanager.h"

#include <QSignalSpy>
#include <QTest>

#include <thread>

using namespace sorv;
using namespace sorv::test;
using Code = SpeechRecognitionError::Code;

namespace {

// What the scripted recognisers were asked to do, and a way to answer as the
// platform recogniser would: updates go to the newest task unless it was
// cancelled.
struct Script {
    QStringList availableLocales{QStringLiteral("en-US"), QStringLiteral("en-GB")};
    QStringList recognizersMade;
    struct Task {
        SpeechRecognizer::UpdateHandler handler;
        bool cancelled = false;
        bool audioEnded = false;
        int buffers = 0;
    };
    std::vector<std::shared_ptr<Task>> tasks;

    void send(const SpeechRecognitionUpdate& update)
    {
        QVERIFY(!tasks.empty());
        const auto task = tasks.back();
        if (task->cancelled)
            return;
        // A copy: the handler may end its own task.
        const auto handler = task->handler;
        handler(update);
    }
    void partial(const QString& text) { send(SpeechRecognitionResult{text, false}); }
    void final(const QString& text) { send(SpeechRecognitionResult{text, true}); }
    void error(Code code)
    {
        send(SpeechRecognitionError(code, QStringLiteral("failure %1").arg(int(code))));
    }
};

class ScriptedTask : public SpeechRecognitionTask {
public:
    explicit ScriptedTask(std::shared_ptr<Script::Task> task) : m_task(std::move(task)) {}
    void cancel() override { m_task->cancelled = true; }

private:
    std::shared_ptr<Script::Task> m_task;
};

class ScriptedRecognizer : public SpeechRecognizer {
public:
    ScriptedRecognizer(QString locale, Script& script)
        : m_locale(std::move(locale)), m_script(script)
    {}
    QString localeIdentifier() const override { return m_locale; }
    bool isAvailable() const override { return m_script.availableLocales.contains(m_locale); }
    std::unique_ptr<SpeechRecognitionTask> recognitionTask(SpeechAudioBufferRequest& request,
                                                           UpdateHandler handler) override
    {
        auto task = std::make_shared<Script::Task>();
        task->handler = std::move(handler);
        request.attach(
            {[task](AudioBuffer&&) { ++task->buffers; }, [task] { task->audioEnded = true; }});
        m_script.tasks.push_back(task);
        return std::make_unique<ScriptedTask>(task);
    }

private:
    QString m_locale;
    Script& m_script;
};

LocalTranscriptManager::RecognizerFactory factoryFor(Script& script)
{
    return [&script](const QString& locale) {
        script.recognizersMade << locale;
        return std::make_unique<ScriptedRecognizer>(locale, script);
    };
}

QStringList texts(const LocalTranscriptManager& m)
{
    QStringList out;
    for (const TranscriptSegment& s : m.segments())
        out << s.text;
    return out;
}

AudioBuffer someAudio()
{
    return AudioBuffer{std::vector<float>(4096, 0.1f), 0};
}

} // namespace

class TestLocalTranscriptManager : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_env = std::make_unique<IsolatedEnvironment>();
        Settings::setValue(Settings::kSpeechLocaleKey, QStringLiteral("en-US"));
    }
    void cleanup() { m_env.reset(); }

    void utteranceGrowsOneSegmentThenTheNextStartsAnother()
    {
        Script script;
        LocalTranscriptManager manager(factoryFor(script));
        QSignalSpy appended(&manager, &LocalTranscriptManager::segmentAppended);
        QSignalSpy changed(&manager, &LocalTranscriptManager::segmentTextChanged);

        manager.start();
        QCOMPARE(manager.status(), TranscriptStatus::connecting());
        QVERIFY(manager.usesMixedAudio());
        QTRY_COMPARE(manager.status(), TranscriptStatus::active());
        QCOMPARE(script.tasks.size(), std::size_t(1));

        script.partial(QStringLiteral("hello"));
        script.partial(QStringLiteral("hello there"));
        script.final(QStringLiteral("Hello there."));
        QCOMPARE(manager.segments().size(), 1);
        const TranscriptSegment first = manager.segments().first();
        QCOMPARE(first.id, 0);
        QCOMPARE(first.speaker, QStringLiteral("you"));
        QCOMPARE(first.displayName, QStringLiteral("You"));
        QCOMPARE(first.text, QStringLiteral("Hello there."));
        QVERIFY(!first.timestamp.has_value());
        QCOMPARE(appended.size(), 1);
        QCOMPARE(changed.size(), 2);

        // The final result started the next task on a new request.
        QCOMPARE(script.tasks.size(), std::size_t(2));
        QVERIFY(script.tasks[0]->cancelled);
        QVERIFY(script.tasks[0]->audioEnded);
        QVERIFY(!script.tasks[1]->cancelled);

        // Empty results make no segment.
        script.partial(QString());
        QCOMPARE(manager.segments().size(), 1);
        script.partial(QStringLiteral("how"));
        script.partial(QStringLiteral("how are you"));
        QCOMPARE(texts(manager),
                 (QStringList{QStringLiteral("Hello there."), QStringLiteral("how are you")}));
        QCOMPARE(manager.segments().at(1).id, 1);
        QCOMPARE(appended.size(), 2);
        QCOMPARE(appended.last().first().toInt(), 1);
        QCOMPARE(changed.last().first().toInt(), 1);

        script.final(QStringLiteral("How are you?"));
        QCOMPARE(texts(manager),
                 (QStringList{QStringLiteral("Hello there."), QStringLiteral("How are you?")}));
        QCOMPARE(script.tasks.size(), std::size_t(3));
        // A follow-up task whose final has no words still moves on.
        script.final(QString());
        QCOMPARE(script.tasks.size(), std::size_t(4));
        QCOMPARE(manager.segments().size(), 2);
        QCOMPARE(manager.status(), TranscriptStatus::active());
    }

    void stoppingKeepsSegmentsAndStartingClearsThem()
    {
        Script script;
        LocalTranscriptManager manager(factoryFor(script));
        manager.start();
        QTRY_COMPARE(manager.status(), TranscriptStatus::active());
        script.final(QStringLiteral("One."));
        script.partial(QStringLiteral("two"));

        manager.stop();
        QCOMPARE(manager.status(), TranscriptStatus::idle());
        QVERIFY(!manager.usesMixedAudio());
        QVERIFY(script.tasks.back()->cancelled);
        QVERIFY(script.tasks.back()->audioEnded);
        QCOMPARE(texts(manager), (QStringList{QStringLiteral("One."), QStringLiteral("two")}));

        // A cancelled task's late results change nothing.
        script.tasks.back()->cancelled = false;
        script.partial(QStringLiteral("two three"));
        QCOMPARE(manager.segments().last().text, QStringLiteral("two"));

        QSignalSpy cleared(&manager, &LocalTranscriptManager::segmentsCleared);
        manager.start();
        QVERIFY(manager.segments().isEmpty());
        QCOMPARE(cleared.size(), 1);
        QTRY_COMPARE(manager.status(), TranscriptStatus::active());
        script.partial(QStringLiteral("again"));
        QCOMPARE(texts(manager), QStringList{QStringLiteral("again")});
        // Ids are never reused while the manager lives.
        QCOMPARE(manager.segments().first().id, 2);
    }

    void taskErrors_data()
    {
        QTest::addColumn<bool>("later"); // in the task after a first utterance
        QTest::addColumn<int>("code");
        QTest::addColumn<bool>("restarts");
        QTest::addColumn<bool>("shows");
        for (const bool later : {false, true}) {
            const char* when = later ? "later task" : "first task";
            QTest::addRow("%s: audio ended (1) is ignored", when)
                << later << int(Code::AudioEnded) << false << false;
            QTest::addRow("%s: ended by itself (216) restarts", when)
                << later << int(Code::EndedByItself) << true << false;
            // Once something was recognised, a failing decoder is not shown.
            QTest::addRow("%s: decoder failure", when)
                << later << int(Code::DecoderFailed) << false << !later;
        }
        QTest::newRow("first task: model unavailable shows")
            << false << int(Code::ModelUnavailable) << false << true;
    }

    void taskErrors()
    {
        QFETCH(bool, later);
        QFETCH(int, code);
        QFETCH(bool, restarts);
        QFETCH(bool, shows);
        Script script;
        LocalTranscriptManager manager(factoryFor(script));
        manager.start();
        QTRY_COMPARE(manager.status(), TranscriptStatus::active());
        if (later) {
            script.final(QStringLiteral("First."));
            script.partial(QStringLiteral("second"));
        }
        const std::size_t tasks = script.tasks.size();

        script.error(Code(code));
        QCOMPARE(script.tasks.size(), tasks + (restarts ? 1 : 0));
        QCOMPARE(manager.status(),
                 shows ? TranscriptStatus::error(QStringLiteral("failure %1").arg(code))
                       : TranscriptStatus::active());
        if (later) {
            QCOMPARE(texts(manager),
                     (QStringList{QStringLiteral("First."), QStringLiteral("second")}));
        } else if (restarts) {
            // The follow-up task appends its own segment.
            script.partial(QStringLiteral("after"));
            QCOMPARE(texts(manager), QStringList{QStringLiteral("after")});
        }
    }

    void audioReachesOnlyTheRunningRequest()
    {
        Script script;
        LocalTranscriptManager manager(factoryFor(script));
        manager.appendMixedBuffer(someAudio()); // nothing runs: dropped
        manager.start();
        QTRY_COMPARE(manager.status(), TranscriptStatus::active());

        // From the audio queue's side: copied, then appended on the main thread.
        std::thread audioThread([&manager] {
            for (int i = 0; i < 3; ++i)
                manager.appendMixedBuffer(someAudio());
        });
        audioThread.join();
        QCOMPARE(script.tasks[0]->buffers, 0);
        QTRY_COMPARE(script.tasks[0]->buffers, 3);

        script.final(QStringLiteral("Done."));
        manager.appendMixedBuffer(someAudio());
        QCOMPARE(script.tasks[0]->buffers, 3);
        QCOMPARE(script.tasks[1]->buffers, 1);

        manager.stop();
        manager.appendMixedBuffer(someAudio());
        QCOMPARE(script.tasks[1]->buffers, 1);
    }

    void stopBeforeTheAuthorisationAnswerStartsNothing()
    {
        Script script;
        LocalTranscriptManager manager(factoryFor(script));
        manager.start();
        manager.stop();
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
        QCOMPARE(manager.status(), TranscriptStatus::idle());
        QVERIFY(script.recognizersMade.isEmpty());
    }

    void changingTheLocaleWhileActiveRestartsInIt()
    {
        Script script;
        LocalTranscriptManager manager(factoryFor(script));
        QSignalSpy localeChanged(&manager, &LocalTranscriptManager::currentLocaleChanged);

        // While idle only the stored choice changes.
        manager.changeLocale(QStringLiteral("en-GB"));
        QCOMPARE(manager.currentLocale(), QStringLiteral("en-GB"));
        QCOMPARE(Settings::value(Settings::kSpeechLocaleKey).toString(), QStringLiteral("en-GB"));
        QCOMPARE(manager.status(), TranscriptStatus::idle());
        QCOMPARE(localeChanged.size(), 1);

        manager.start();
        QTRY_COMPARE(manager.status(), TranscriptStatus::active());
        script.partial(QStringLiteral("kept"));

        manager.changeLocale(QStringLiteral("en-US"));
        QCOMPARE(manager.status(), TranscriptStatus::connecting());
        QVERIFY(script.tasks[0]->cancelled);
        QTRY_COMPARE(manager.status(), TranscriptStatus::active());
        QCOMPARE(script.recognizersMade,
                 (QStringList{QStringLiteral("en-GB"), QStringLiteral("en-US")}));
        QCOMPARE(texts(manager), QStringList{QStringLiteral("kept")});
        QCOMPARE(Settings::value(Settings::kSpeechLocaleKey).toString(), QStringLiteral("en-US"));

        // A language without a model ends in the error that names it.
        manager.changeLocale(QStringLiteral("de-DE"));
        QTRY_COMPARE(manager.status().kind(), TranscriptStatus::Kind::Error);
        QVERIFY(manager.status().message().contains(QStringLiteral("\u201cGerman\u201d")));
        // An error is not active: changing again only stores it.
        manager.changeLocale(QStringLiteral("en-US"));
        QCOMPARE(manager.status().kind(), TranscriptStatus::Kind::Error);

        // The command line's language applies to its run and is not stored.
        manager.overrideLocale(QStringLiteral("en-GB"));
        QCOMPARE(manager.currentLocale(), QStringLiteral("en-GB"));
        QCOMPARE(Settings::value(Settings::kSpeechLocaleKey).toString(), QStringLiteral("en-US"));
    }

    void locales_data()
    {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<QString>("locale");
        QTest::addColumn<QString>("expectedError");
        const QString zulu = QStringLiteral(
            "Live preview only: on-device recognition does not have \u201cisiZulu\u201d on this "
            "computer. Install its speech model, or pick another language above. Your recording "
            "still uploads for full server transcription and speaker diarization when you stop.");
        QTest::newRow("nothing stored: Afrikaans")
            << QVariant() << QStringLiteral("af-ZA")
            << QString(zulu).replace(QStringLiteral("isiZulu"), QStringLiteral("Afrikaans"));
        QTest::newRow("not in the list: the identifier")
            << QVariant(QStringLiteral("xx-YY")) << QStringLiteral("xx-YY")
            << QString(zulu).replace(QStringLiteral("isiZulu"), QStringLiteral("xx-YY"));
        QTest::newRow("English (UK)")
            << QVariant(QStringLiteral("en-GB")) << QStringLiteral("en-GB") << QString();
    }

    void locales()
    {
        QFETCH(QVariant, stored);
        QFETCH(QString, locale);
        QFETCH(QString, expectedError);
        if (stored.isValid())
            Settings::setValue(Settings::kSpeechLocaleKey, stored);
        else
            Settings::remove(Settings::kSpeechLocaleKey);

        Script script;
        LocalTranscriptManager manager(factoryFor(script));
        QCOMPARE(manager.currentLocale(), locale);
        manager.start();
        if (expectedError.isEmpty()) {
            QTRY_COMPARE(manager.status(), TranscriptStatus::active());
        } else {
            QTRY_COMPARE(manager.status(), TranscriptStatus::error(expectedError));
            QVERIFY(script.tasks.empty());
            QCOMPARE(LocalTranscriptManager::unavailableText(locale), expectedError);
        }
    }

private:
    std::unique_ptr<IsolatedEnvironment> m_env;
};

QTEST_GUILESS_MAIN(TestLocalTranscriptManager)
#include "tst_localtranscriptmanager.moc"
