// End to end: a real recording in the private PulseAudio daemon while
// espeak-ng speaks into the virtual microphone; the on-device transcript,
// fed from the recorder's mixed audio, shows what was said, one segment per
// sentence.

#include "core/settings.h"
#include "recording/audiorecorder.h"
#include "speechsamples.h"
#include "support/isolatedenvironment.h"
#include "support/pulsesandbox.h"
#include "transcript/localtranscriptmanager.h"
#include "transcript/pocketsphinxrecognizer.h"

#include <QTemporaryDir>
#include <QTest>

using namespace sorv;
using namespace sorv::test;

class TestLocalTranscriptPulse : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void recordingWhileSpeakingMakesSegments();
};

void TestLocalTranscriptPulse::recordingWhileSpeakingMakesSegments()
{
    if (!PulseSandbox::toolsAvailable() || !speechToolsAvailable())
        QSKIP("PulseAudio, espeak-ng or sox is not installed");
    if (!SpeechModelLocator::find(QStringLiteral("en-US")))
        QSKIP("pocketsphinx-en-us is not installed");

    IsolatedEnvironment env;
    QTemporaryDir dir;
    const QString grammar = dir.filePath(QStringLiteral("phrases.jsgf"));
    const QString speech = dir.filePath(QStringLiteral("speech.wav"));
    QVERIFY(writeGrammar(grammar,
                         {QStringLiteral("hello there"), QStringLiteral("how are you today")}));
    QString error;
    QVERIFY2(makeSpeech(speech,
                        {QStringLiteral("hello there"), QStringLiteral("how are you today")}, 1.5,
                        1.0, &error),
             qPrintable(error));

    PulseSandbox sandbox;
    QVERIFY2(sandbox.isRunning(), qPrintable(sandbox.errorString()));

    Settings::setValue(Settings::kSpeechLocaleKey, QStringLiteral("en-US"));
    PocketsphinxRecognizer::Options options;
    options.grammarFile = grammar;
    LocalTranscriptManager transcript(PocketsphinxRecognizer::factory(options));
    bool serverStopped = false;
    transcript.setStopServerTranscript([&serverStopped] { serverStopped = true; });

    AudioRecorder recorder;
    transcript.start(recorder);
    QVERIFY(serverStopped);
    recorder.requestStartRecording();
    QTRY_COMPARE_WITH_TIMEOUT(recorder.state(), RecordingState::recording(), 15000);
    QTRY_COMPARE(transcript.status(), TranscriptStatus::active());

    QVERIFY(sandbox.playIntoMicrophone(speech));
    auto texts = [&transcript] {
        QStringList out;
        for (const auto& s : transcript.segments())
            out << s.text;
        return out;
    };
    QTRY_COMPARE_WITH_TIMEOUT(
        texts(),
        (QStringList{QStringLiteral("Hello there."), QStringLiteral("How are you today.")}), 20000);
    QCOMPARE(transcript.status(), TranscriptStatus::active());
    for (const auto& s : transcript.segments())
        QCOMPARE(s.displayName, QStringLiteral("You"));

    recorder.stopRecording();
    QTRY_COMPARE_WITH_TIMEOUT(recorder.state(), RecordingState::pendingSave(), 10000);
    transcript.stop();
    QCOMPARE(transcript.segments().size(), 2);
    recorder.discardRecording();
}

QTEST_GUILESS_MAIN(TestLocalTranscriptPulse)
#include "tst_localtranscript_pulse.moc"
