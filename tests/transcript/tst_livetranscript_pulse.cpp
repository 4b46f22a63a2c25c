// End to end: a real recording in the private PulseAudio daemon while
// espeak-ng speaks into the virtual microphone; its mixed audio streams to
// the local service, which recognises it, and the segments come back into
// the ServerTranscriptManager. The service is restarted half-way: the
// stream comes back by itself and the recording never notices.

#include "core/secretstore.h"
#include "recording/audiorecorder.h"
#include "service/authmanager.h"
#include "signedin.h"
#include "speechsamples.h"
#include "support/isolatedenvironment.h"
#include "support/pulsesandbox.h"
#include "support/toneprobe.h"
#include "transcript/servertranscriptmanager.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace sorv;
using namespace sorv::test;

class TestLiveTranscriptPulse : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void recordingStreamsAndSurvivesARestart();
};

void TestLiveTranscriptPulse::recordingStreamsAndSurvivesARestart()
{
    if (!PulseSandbox::toolsAvailable() || !speechToolsAvailable())
        QSKIP("PulseAudio, espeak-ng or sox is not installed");

    IsolatedEnvironment env;
    QTemporaryDir dir;
    const QString grammar = dir.filePath(QStringLiteral("phrases.jsgf"));
    const QString first = dir.filePath(QStringLiteral("first.wav"));
    const QString second = dir.filePath(QStringLiteral("second.wav"));
    QVERIFY(writeGrammar(grammar,
                         {QStringLiteral("hello there"), QStringLiteral("how are you today")}));
    QString error;
    QVERIFY2(makeSpeech(first, {QStringLiteral("hello there")}, 1.0, 0.5, &error),
             qPrintable(error));
    QVERIFY2(makeSpeech(second, {QStringLiteral("how are you today")}, 1.0, 0.5, &error),
             qPrintable(error));

    local::LocalService::Options options;
    options.speechGrammarFile = grammar;
    LocalServiceFixture service(options);
    SecretStore secrets(SecretStore::Options::fileOnly());
    AuthManager auth(secrets);
    signIn(auth);

    PulseSandbox sandbox;
    QVERIFY2(sandbox.isRunning(), qPrintable(sandbox.errorString()));

    AudioRecorder recorder;
    ServerTranscriptManager transcript;
    QList<RecordingState::Kind> states;
    connect(&recorder, &AudioRecorder::stateChanged, this,
            [&] { states << recorder.state().kind(); });
    transcript.start(recorder, auth, QStringLiteral("en-US"));
    recorder.requestStartRecording();
    QTRY_COMPARE_WITH_TIMEOUT(recorder.state(), RecordingState::recording(), 15000);
    QTRY_COMPARE(transcript.status(), TranscriptStatus::active());
    if (service->liveSessions().value(0).source != QLatin1String("recognition"))
        QSKIP("pocketsphinx-en-us is not installed");
    QElapsedTimer streaming;
    streaming.start();

    auto texts = [&transcript] {
        QStringList out;
        for (const auto& s : transcript.segments())
            out << s.displayName + QStringLiteral(": ") + s.text;
        return out;
    };
    QVERIFY(sandbox.playIntoMicrophone(first));
    QTRY_COMPARE_WITH_TIMEOUT(texts(), QStringList{QStringLiteral("Speaker 1: Hello there.")},
                              20000);

    // The audio arrives as it is recorded, in whole frames.
    const double seconds = double(streaming.elapsed()) / 1000.0;
    const local::LiveSession before = service->liveSessions().value(0);
    QCOMPARE(before.oddFrames, 0);
    QVERIFY2(before.frames >= int(seconds * 8.33 * 0.8) - 3,
             qPrintable(QStringLiteral("%1 frames in %2 s").arg(before.frames).arg(seconds)));

    // A new service on the same port: after the first back-off second the
    // stream is back, on the same session's token.
    service.restart();
    QTRY_VERIFY_WITH_TIMEOUT(service->liveFramesReceived() > 8, 10000);
    QCOMPARE(service->liveSessions().size(), 1);
    QCOMPARE(transcript.status(), TranscriptStatus::active());

    QVERIFY(sandbox.playIntoMicrophone(second));
    QTRY_COMPARE_WITH_TIMEOUT(texts(),
                              (QStringList{QStringLiteral("Speaker 1: Hello there."),
                                           QStringLiteral("Speaker 1: How are you today.")}),
                              20000);

    QSignalSpy ended(&transcript, &ServerTranscriptManager::streamEnded);
    recorder.stopRecording();
    QTRY_COMPARE_WITH_TIMEOUT(recorder.state(), RecordingState::pendingSave(), 10000);
    transcript.stop();
    QTRY_COMPARE(ended.count(), 1);
    QTRY_VERIFY(service->liveSessions().value(0).sentinel);
    QCOMPARE(transcript.segments().size(), 2);

    // The recording went on through it all, and its file is whole.
    QCOMPARE(states, (QList<RecordingState::Kind>{
                         RecordingState::Kind::Preparing, RecordingState::Kind::Recording,
                         RecordingState::Kind::Stopping, RecordingState::Kind::PendingSave}));
    const WavContents wav = readWavFile(recorder.outputPath());
    QVERIFY(wav.ok);
    QVERIFY2(std::abs(wav.seconds() - recorder.elapsed()) < 1.0,
             qPrintable(QStringLiteral("%1 s in the file, %2 s recorded")
                            .arg(wav.seconds())
                            .arg(recorder.elapsed())));
    recorder.discardRecording();
}

QTEST_GUILESS_MAIN(TestLiveTranscriptPulse)
#include "tst_livetranscript_pulse.moc"
