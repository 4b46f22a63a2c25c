// The recording controller's state machine against a substitute engine: what
// each operation does in each state, what the user sees when something
// fails, and how files are named and cleaned up.

#include "core/paths.h"
#include "core/recordingfilelock.h"
#include "core/secretstore.h"
#include "localservicefixture.h"
#include "recording/audiorecorder.h"
#include "service/authmanager.h"
#include "signedin.h"
#include "support/isolatedenvironment.h"
#include "support/scriptedengine.h"

#include <QAbstractItemModelTester>
#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTest>

#include <QTimer>

#include <algorithm>
#include <atomic>

using namespace sorv;
using Kind = RecordingState::Kind;

namespace {

// Stands in for the screen recorder, holding the MP4's lock while it writes.
// Its stop can be held back; how many capture at once is counted.
struct FakeVideos {
    bool holdStop = false;
    std::function<void()> pendingStop;
    int made = 0;
    int capturing = 0;
    int mostCapturing = 0;
    std::optional<VideoRecorderError> startError; // the next start fails so
    VideoCapture* last = nullptr;
};

class FakeVideo : public VideoCapture {
public:
    FakeVideo(QObject* parent, FakeVideos& videos) : VideoCapture(parent), m_videos(videos)
    {
        ++m_videos.made;
        m_videos.last = this;
    }
    const VideoRecorderState& state() const override { return m_state; }
    void start(const QString& path, const ScreenCaptureTargetOption&, StartCompletion done,
               const std::shared_ptr<RecordingFileLock>& lock) override
    {
        if (const auto error = std::exchange(m_videos.startError, std::nullopt)) {
            QTimer::singleShot(0, this, [done, error] { done(error); });
            return;
        }
        m_state = VideoRecorderState::recording();
        m_path = path;
        m_lock = lock;
        m_videos.mostCapturing = std::max(m_videos.mostCapturing, ++m_videos.capturing);
        QTimer::singleShot(0, this, [done] { done(std::nullopt); });
    }
    AudioSink audioSink() const override
    {
        return [](const AudioBuffer&) {};
    }
    void stop(StopCompletion done) override
    {
        m_state = VideoRecorderState::finalising();
        auto finish = [this, done] {
            QFile file(m_path);
            if (file.open(QIODevice::WriteOnly))
                file.write("\0\0\0\x18"
                           "ftypisom",
                           12);
            ended();
            Q_EMIT audioEnded();
            done({m_path, std::nullopt});
        };
        if (m_videos.holdStop)
            m_videos.pendingStop = finish;
        else
            QTimer::singleShot(0, this, finish);
    }
    void tearDown() override { ended(); }

private:
    void ended()
    {
        if (m_state.kind() != VideoRecorderState::Kind::Idle)
            --m_videos.capturing;
        m_state = VideoRecorderState::idle();
        m_lock.reset();
    }
    FakeVideos& m_videos;
    VideoRecorderState m_state = VideoRecorderState::idle();
    QString m_path;
    std::shared_ptr<RecordingFileLock> m_lock;
};

struct Fixture {
    test::IsolatedEnvironment env;
    test::ScriptedEngine* engine = new test::ScriptedEngine;
    AudioRecorder recorder{std::unique_ptr<RecordingEngine>(engine)};
    FakeVideos videos;

    // Video mode on the stand-in, screen capture allowed.
    void useFakeVideo()
    {
        recorder.setVideoCaptureFactory(
            [this](QObject* parent) { return new FakeVideo(parent, videos); });
        recorder.setScreenCaptureProbe(
            [](const std::function<void(AudioRecorder::ProbeResult)>& done) {
                done(AudioRecorder::ProbeResult::Allowed);
            });
    }

    // Screen capture probes, counted and answered with `probeAnswer`.
    int probes = 0;
    AudioRecorder::ProbeResult probeAnswer = AudioRecorder::ProbeResult::Failed;
    void countProbes()
    {
        recorder.setScreenCaptureProbe(
            [this](const std::function<void(AudioRecorder::ProbeResult)>& done) {
                ++probes;
                done(probeAnswer);
            });
    }

    bool startAndWaitFor(Kind kind)
    {
        recorder.requestStartRecording();
        return QTest::qWaitFor([&] { return recorder.state().kind() == kind; }, 5000);
    }
};

} // namespace

class TestAudioRecorder : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void recordsThenKeepsOrDiscards();
    void secondStartChangesNothing_data();
    void secondStartChangesNothing();
    void operationsOutsideTheirStateDoNothing();
    void microphoneRefusedStartsNoEngine();
    void startDoesNotWaitForTheSession();
    void fileThatStopsTakingAudioEndsTheSession();
    void fatalErrorDuringRecording();
    void oneCaptureAtATime();
    void desktopSharingCancelledOrEnded();
    void silentMicrophoneMessage_data();
    void silentMicrophoneMessage();
    void freshNamesAndNoOverwrite();
    void startsInTheSameMomentGetTheirOwnFiles();
    void retryUploadRefusals();
    void videoGoesUpAsTheMp4WithItsCompanion();
    void screenCaptureProbe();
    void deviceSelection();
    void deviceListFollowsTheEngine();
    void microphoneReportsDuringRecording();
};

void TestAudioRecorder::recordsThenKeepsOrDiscards()
{
    for (const bool discard : {false, true}) {
        Fixture f;
        QSignalSpy states(&f.recorder, &AudioRecorder::stateChanged);
        QVERIFY(f.startAndWaitFor(Kind::Recording));
        QVERIFY(f.recorder.isRecording());
        QVERIFY(!f.recorder.isProcessing());
        const QString wav = f.recorder.outputPath();
        QVERIFY(isInRecordingsDirectory(wav));
        QCOMPARE(f.recorder.lastWavPath(), wav);

        f.engine->send(AudioEngineUpdate::makeMeters({0.5f, 0.0f, 0.25f, 0.5f}));
        f.engine->send(AudioEngineUpdate::systemAudioActive(true));
        QTRY_COMPARE(f.recorder.micLevel(), 0.5f);
        QCOMPARE(f.recorder.systemLevel(), 0.25f);
        QTRY_VERIFY(f.recorder.systemAudioActive());
        QTRY_VERIFY(f.recorder.elapsed() > 0.15); // the 100 ms clock runs

        f.recorder.stopRecording();
        QCOMPARE(f.recorder.state().kind(), Kind::Stopping);
        QVERIFY(f.recorder.isProcessing());
        QTRY_COMPARE(f.recorder.state().kind(), Kind::PendingSave);
        const double stoppedAt = f.recorder.elapsed();
        QTest::qWait(250);
        QCOMPARE(f.recorder.elapsed(), stoppedAt); // the clock stopped with the recording

        if (discard) {
            f.recorder.discardRecording();
            QVERIFY(!QFile::exists(wav));
            QVERIFY(f.recorder.outputPath().isEmpty());
            QCOMPARE(f.recorder.elapsed(), 0.0);
            QCOMPARE(f.recorder.state(), RecordingState::idle());
        } else {
            // Without a session the upload is refused and the file stays.
            f.recorder.saveRecording();
            QTRY_COMPARE(f.recorder.state(),
                         RecordingState::error(QStringLiteral("Not logged in")));
            QVERIFY(QFile::exists(wav));
        }
        QCOMPARE(states.count(), 5); // preparing, recording, stopping, pendingSave, idle/error
    }
}

void TestAudioRecorder::secondStartChangesNothing_data()
{
    QTest::addColumn<int>("stage");
    QTest::newRow("preparing") << int(Kind::Preparing);
    QTest::newRow("recording") << int(Kind::Recording);
    QTest::newRow("stopping") << int(Kind::Stopping);
    QTest::newRow("pendingSave") << int(Kind::PendingSave);
}

void TestAudioRecorder::secondStartChangesNothing()
{
    QFETCH(int, stage);
    Fixture f;
    f.engine->holdStart = stage == int(Kind::Preparing);
    f.engine->holdStop = stage == int(Kind::Stopping);
    if (stage == int(Kind::Preparing)) {
        f.recorder.requestStartRecording();
        QTRY_COMPARE(f.engine->startCalls, 1);
    } else {
        QVERIFY(f.startAndWaitFor(Kind::Recording));
        if (stage != int(Kind::Recording))
            f.recorder.stopRecording();
        if (stage == int(Kind::PendingSave))
            QTRY_COMPARE(f.recorder.state().kind(), Kind::PendingSave);
    }
    QCOMPARE(int(f.recorder.state().kind()), stage);
    const QString path = f.recorder.outputPath();

    QSignalSpy states(&f.recorder, &AudioRecorder::stateChanged);
    f.recorder.requestStartRecording();
    QTest::qWait(100);
    QCOMPARE(int(f.recorder.state().kind()), stage);
    QCOMPARE(f.engine->startCalls, 1);
    QCOMPARE(f.recorder.outputPath(), path);
    QCOMPARE(states.count(), 0);
}

void TestAudioRecorder::operationsOutsideTheirStateDoNothing()
{
    Fixture f;
    QSignalSpy states(&f.recorder, &AudioRecorder::stateChanged);
    f.recorder.stopRecording();
    f.recorder.saveRecording();
    f.recorder.discardRecording();
    QCOMPARE(states.count(), 0);
    QCOMPARE(f.engine->stopCalls, 0);

    QVERIFY(f.startAndWaitFor(Kind::Recording));
    const QString wav = f.recorder.outputPath();
    states.clear();
    f.recorder.saveRecording();
    f.recorder.discardRecording();
    QCOMPARE(states.count(), 0);
    QVERIFY(QFile::exists(wav));
    QCOMPARE(f.recorder.state().kind(), Kind::Recording);
}

void TestAudioRecorder::microphoneRefusedStartsNoEngine()
{
    Fixture f;
    f.engine->grantAccess = false;
    QVERIFY(f.startAndWaitFor(Kind::Error));
    QCOMPARE(f.recorder.state().message(),
             QStringLiteral("Microphone access denied. Allow Sorvelandrix Recorder to use the "
                            "microphone in your desktop's privacy settings, then try again."));
    QCOMPARE(f.engine->startCalls, 0);
    QVERIFY(!f.recorder.isProcessing());
}

void TestAudioRecorder::startDoesNotWaitForTheSession()
{
    // A service that takes its time over the token refresh must not cost the
    // meeting's first seconds: capture starts at once, the refresh runs beside.
    Fixture f;
    test::LocalServiceFixture service;
    SecretStore secrets(SecretStore::Options::fileOnly());
    secrets.write(AuthManager::originKey, service.origin());
    secrets.write(AuthManager::tokenKey, QStringLiteral("t"));
    secrets.write(AuthManager::refreshKey, QStringLiteral("r"));
    AuthManager auth(secrets);
    f.recorder.setAuthManager(&auth);
    service->script("POST", QStringLiteral("/api/auth/refresh"),
                    local::ScriptedAnswer::delayed(std::chrono::seconds(20)));
    QVERIFY(f.startAndWaitFor(Kind::Recording));
    QTRY_COMPARE(service->requestCount("POST", QStringLiteral("/api/auth/refresh")), 1);
    QVERIFY(auth.isRefreshing());
    service.stop();
}

void TestAudioRecorder::fileThatStopsTakingAudioEndsTheSession()
{
    for (const bool somethingSaved : {true, false}) {
        Fixture f;
        QVERIFY(f.startAndWaitFor(Kind::Recording));
        const QString wav = f.recorder.outputPath();
        const QString message = QStringLiteral("Recording stopped: the disk is full.");
        f.engine->send(AudioEngineUpdate::recordingFailed(message, somethingSaved));
        QTRY_COMPARE(f.recorder.state(), RecordingState::error(message));
        // The engine is stopped (the file is closed), the clock too.
        QTRY_COMPARE(f.engine->stopCalls, 1);
        QVERIFY(!f.recorder.isRecording());
        const double at = f.recorder.elapsed();
        QTest::qWait(250);
        QCOMPARE(f.recorder.elapsed(), at);
        // What was saved stays, and can still be sent; an empty file goes.
        QTRY_COMPARE(QFile::exists(wav), somethingSaved);
        QCOMPARE(f.recorder.canRetryUpload(), somethingSaved);
        QCOMPARE(f.recorder.outputPath().isEmpty(), !somethingSaved);
    }
}

void TestAudioRecorder::fatalErrorDuringRecording()
{
    // A video recording, so that the stop's order is seen: the video file
    // first, then the engine; each held back to look at the states between.
    Fixture f;
    f.useFakeVideo();
    f.recorder.requestStartRecording(true);
    QTRY_COMPARE(f.recorder.state().kind(), Kind::Recording);
    const QString mp4 = f.recorder.outputPath();
    const QString wav = f.recorder.lastWavPath();
    f.videos.holdStop = true;
    f.engine->holdStop = true;
    const QString text =
        QStringLiteral("Microphone engine could not be restarted after 5 attempts");
    f.engine->send(AudioEngineUpdate::fatalError(text));
    f.engine->send(AudioEngineUpdate::fatalError(text));
    QTRY_COMPARE(f.recorder.state().kind(), Kind::Stopping);
    QVERIFY(!f.recorder.isVideoMode());
    QTRY_VERIFY(f.videos.pendingStop);
    const double at = f.recorder.elapsed();
    QTest::qWait(250);
    QCOMPARE(f.recorder.elapsed(), at); // the clock stopped with the recording

    // The video is finished; the engine, asked to stop, still writes the WAV:
    // nothing is offered to send yet, and the MP4 stays locked.
    f.videos.pendingStop();
    QTRY_COMPARE(f.engine->stopCalls, 1);
    QCOMPARE(f.videos.capturing, 0);
    QCOMPARE(f.recorder.state().kind(), Kind::Stopping);
    QVERIFY(!f.recorder.canRetryUpload());
    QCOMPARE(RecordingFileLock::tryLock(mp4).status(), RecordingFileLock::Status::Busy);
    f.engine->pendingStop();

    // Both finished: the error, with what was saved, which Retry may send.
    QTRY_COMPARE(f.recorder.state(), RecordingState::error(text));
    QCOMPARE(f.recorder.outputPath(), mp4);
    QCOMPARE(f.recorder.lastWavPath(), wav);
    QVERIFY(f.recorder.canRetryUpload());
    QVERIFY(RecordingFileLock::tryLock(mp4).isHeld());

    // The report again, and after Start over: nothing changes.
    f.engine->send(AudioEngineUpdate::fatalError(text));
    QTest::qWait(50);
    QCOMPARE(f.recorder.state(), RecordingState::error(text));
    f.recorder.resetToIdle();
    f.engine->send(AudioEngineUpdate::fatalError(text));
    QTest::qWait(50);
    QCOMPARE(f.recorder.state(), RecordingState::idle());
    QCOMPARE(f.engine->stopCalls, 1);
}

void TestAudioRecorder::desktopSharingCancelledOrEnded()
{
    Fixture f;
    f.useFakeVideo();
    // The desktop's sharing dialog cancelled: in the user's own words, and
    // neither file is left.
    f.videos.startError = VideoRecorderError::sharingCancelled();
    f.recorder.requestStartRecording(true);
    QTRY_COMPARE(f.recorder.state(),
                 RecordingState::error(QStringLiteral("Screen sharing was cancelled.")));
    QVERIFY(f.recorder.outputPath().isEmpty());
    QTRY_COMPARE(QDir(recordingsDirectory()).entryList(QDir::Files), QStringList());

    // The desktop's "Stop sharing" during a recording: as if Stop were
    // pressed, both files kept.
    f.recorder.resetToIdle();
    f.recorder.requestStartRecording(true);
    QTRY_COMPARE(f.recorder.state().kind(), Kind::Recording);
    const QString mp4 = f.recorder.outputPath();
    Q_EMIT f.videos.last->captureEnded();
    QTRY_COMPARE(f.recorder.state().kind(), Kind::PendingSave);
    QCOMPARE(f.recorder.outputPath(), mp4);
    QVERIFY(!f.recorder.lastWavPath().isEmpty());
}

void TestAudioRecorder::oneCaptureAtATime()
{
    Fixture f;
    f.useFakeVideo();
    // Start over in the middle of a recording stops both captures.
    f.recorder.requestStartRecording(true);
    QTRY_COMPARE(f.recorder.state().kind(), Kind::Recording);
    f.recorder.resetToIdle();
    QTRY_COMPARE(f.engine->stopCalls, 1);
    QCOMPARE(f.videos.capturing, 0);

    // A recording ended by an error, still being finished, then Start over
    // and a new start: it waits for the last capture to end.
    f.recorder.requestStartRecording(true);
    QTRY_COMPARE(f.recorder.state().kind(), Kind::Recording);
    f.videos.holdStop = true;
    f.engine->send(AudioEngineUpdate::fatalError(QStringLiteral("gone")));
    QTRY_VERIFY(f.videos.pendingStop);
    f.recorder.resetToIdle();
    QVERIFY(!f.recorder.canRetryUpload());
    f.recorder.requestStartRecording(true);
    QTest::qWait(100);
    QCOMPARE(f.recorder.state().kind(), Kind::Preparing);
    QCOMPARE(f.engine->startCalls, 2);
    f.videos.pendingStop();
    QTRY_COMPARE(f.recorder.state().kind(), Kind::Recording);
    QCOMPARE(f.engine->startCalls, 3);
    QCOMPARE(f.engine->stopCalls, 2);
    QCOMPARE(f.videos.made, 3);
    QCOMPARE(f.videos.mostCapturing, 1);
}

void TestAudioRecorder::silentMicrophoneMessage_data()
{
    QTest::addColumn<quint32>("selected");
    QTest::addColumn<bool>("silent");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("shown");
    const QString engineText = QStringLiteral(
        "The selected microphone is returning silence. Another app (e.g. WhatsApp, Zoom, Teams) "
        "may have exclusive voice processing on this mic. Try switching input devices, or quit "
        "the other app.");
    QString named = engineText;
    named.replace(QStringLiteral("The selected microphone"), QStringLiteral("USB Headset"));
    QTest::newRow("known device is named") << 7u << true << engineText << named;
    QTest::newRow("system default stays generic") << 0u << true << engineText << engineText;
    QTest::newRow("unlisted device stays generic") << 99u << true << engineText << engineText;
    QTest::newRow("recovery clears") << 7u << false << QString() << QString();
}

void TestAudioRecorder::silentMicrophoneMessage()
{
    QFETCH(quint32, selected);
    QFETCH(bool, silent);
    QFETCH(QString, message);
    QFETCH(QString, shown);
    Fixture f;
    f.engine->devices = {{3, QStringLiteral("Built-in"), true},
                         {7, QStringLiteral("USB Headset"), false}};
    f.recorder.refreshInputDevices();
    f.recorder.selectInputDevice(selected);
    QVERIFY(f.startAndWaitFor(Kind::Recording));
    f.engine->send(AudioEngineUpdate::micSilent(true, QStringLiteral("first")));
    f.engine->send(AudioEngineUpdate::micSilent(silent, message.isNull() ? std::nullopt
                                                                         : std::optional(message)));
    QTRY_COMPARE(f.recorder.micSilent(), silent);
    QTRY_COMPARE(f.recorder.micSilentMessage(), shown);
    QCOMPARE(f.recorder.micSilentMessage().isNull(), shown.isNull());
}

void TestAudioRecorder::freshNamesAndNoOverwrite()
{
    Fixture f;
    // Files of the coming seconds already exist (an earlier session in the
    // same second): none of them may be touched.
    const QDir dir(recordingsDirectory());
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    QStringList existing;
    for (qint64 s = now; s < now + 3; ++s) {
        existing << dir.filePath(QStringLiteral("sorvelandrix_%1.wav").arg(s));
        QFile file(existing.last());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("earlier");
    }
    QVERIFY(f.startAndWaitFor(Kind::Recording));
    const QString first = f.recorder.outputPath();
    QVERIFY(!existing.contains(first));
    QVERIFY(QFileInfo(first).fileName().startsWith(QStringLiteral("sorvelandrix_")));

    // From error (a fatal report) a new start is a new session with a new file.
    f.engine->send(AudioEngineUpdate::fatalError(QStringLiteral("broken")));
    QTRY_COMPARE(f.recorder.state().kind(), Kind::Error);
    QVERIFY(f.startAndWaitFor(Kind::Recording));
    const QString second = f.recorder.outputPath();
    QVERIFY(second != first);
    QVERIFY(!existing.contains(second));
    for (const QString& path : existing) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), QByteArray("earlier"));
    }
}

void TestAudioRecorder::startsInTheSameMomentGetTheirOwnFiles()
{
    // Two controllers (two programs, as far as the folder can tell) start
    // before either engine has made its file.
    Fixture a;
    auto* engine = new test::ScriptedEngine;
    AudioRecorder b{std::unique_ptr<RecordingEngine>(engine)};
    a.engine->holdStart = true;
    engine->holdStart = true;
    a.recorder.requestStartRecording();
    b.requestStartRecording();
    QTRY_VERIFY(a.engine->pendingStart && engine->pendingStart);
    QVERIFY(a.recorder.outputPath() != b.outputPath());
    // Each name is taken the moment it is chosen.
    QVERIFY(QFile::exists(a.recorder.outputPath()) && QFile::exists(b.outputPath()));
    a.engine->pendingStart();
    engine->pendingStart();
    QTRY_VERIFY(a.recorder.isRecording() && b.isRecording());
}

void TestAudioRecorder::retryUploadRefusals()
{
    // Nothing recorded to send (signed out, tst_upload's).
    Fixture f;
    f.recorder.retryUpload();
    QCOMPARE(f.recorder.state(),
             RecordingState::error(
                 QStringLiteral("Recording file is no longer available — please record again")));
}

void TestAudioRecorder::videoGoesUpAsTheMp4WithItsCompanion()
{
    // The MP4 is the recording and goes up as video; the WAV of the same
    // stem stays beside it while it waits, and goes with it.
    test::SignedIn s;
    Fixture f;
    f.recorder.setAuthManager(&s.auth);
    f.useFakeVideo();
    const auto record = [&f] {
        f.recorder.requestStartRecording(true, ScreenCaptureTargetOption::mainDisplay());
        if (!QTest::qWaitFor([&] { return f.recorder.state().kind() == Kind::Recording; }, 5000))
            return false;
        f.recorder.stopRecording();
        return QTest::qWaitFor([&] { return f.recorder.state().kind() == Kind::PendingSave; },
                               5000) &&
               QFile::exists(f.recorder.outputPath()) && QFile::exists(f.recorder.lastWavPath());
    };

    // Refused: both wait for Retry.
    QVERIFY(record());
    const QString refused = f.recorder.outputPath();
    QVERIFY(refused.endsWith(QStringLiteral(".mp4")));
    s.service->script("POST", QStringLiteral("/api/upload"), local::ScriptedAnswer::reply(503));
    f.recorder.saveRecording();
    QTRY_COMPARE(f.recorder.state(),
                 RecordingState::error(QStringLiteral("Upload failed (HTTP 503)")));
    QCOMPARE(f.recorder.failedUploadPath(), refused);
    QVERIFY(f.recorder.canRetryUpload());
    QVERIFY(QFile::exists(refused) && QFile::exists(f.recorder.lastWavPath()));

    // Discarded: both go.
    QVERIFY(record());
    const QString discarded = f.recorder.outputPath();
    const QString discardedWav = f.recorder.lastWavPath();
    f.recorder.discardRecording();
    QVERIFY(!QFile::exists(discarded) && !QFile::exists(discardedWav));
    QCOMPARE(f.recorder.state(), RecordingState::idle());

    // Sent: one request whose single part is the MP4, as video; then both go.
    QVERIFY(record());
    const QString mp4 = f.recorder.outputPath();
    const QString wav = f.recorder.lastWavPath();
    QFile file(mp4);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray video = file.readAll();
    s.service->clearRequestLog();
    f.recorder.saveRecording();
    QTRY_COMPARE(f.recorder.state().kind(), Kind::Uploaded);
    QVERIFY(!QFile::exists(mp4) && !QFile::exists(wav));
    const QList<local::LoggedRequest> log = s.service->requestLog();
    const auto upload = std::find_if(log.begin(), log.end(), [](const local::LoggedRequest& r) {
        return r.path == QStringLiteral("/api/upload");
    });
    QVERIFY(upload != log.end());
    const QByteArray contentType = upload->header("Content-Type");
    const QByteArray boundary = contentType.mid(contentType.indexOf("boundary=") + 9);
    const QByteArray body =
        "--" + boundary + "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"" +
        QFileInfo(mp4).fileName().toUtf8() + "\"\r\nContent-Type: video/mp4\r\n\r\n" + video +
        "\r\n--" + boundary + "--\r\n";
    QCOMPARE(upload->streamedBodySha256,
             QCryptographicHash::hash(body, QCryptographicHash::Sha256).toHex());
}

void TestAudioRecorder::screenCaptureProbe()
{
    Fixture f;
    f.countProbes();
    // The probe is what is looked at here: the start is over once the video
    // recorder has answered, which without an X server is a failure.
    const auto startVideo = [&] {
        f.recorder.requestStartRecording(true);
        return QTest::qWaitFor([&] { return f.recorder.state().kind() != Kind::Preparing; }, 5000);
    };
    const auto end = [&] {
        if (f.recorder.state().kind() != Kind::Recording)
            return true; // the video did not start: nothing runs to end
        f.engine->send(AudioEngineUpdate::fatalError(QStringLiteral("x")));
        return QTest::qWaitFor([&] { return f.recorder.state().kind() == Kind::Error; }, 5000);
    };
    // Audio alone shows no screen: no probe, no warning, nothing to check again.
    QVERIFY(f.startAndWaitFor(Kind::Recording));
    f.recorder.checkScreenCaptureAgain();
    QCOMPARE(f.probes, 0);
    QVERIFY(f.recorder.screenAccessWarning().isNull());
    QVERIFY(end());

    // A refused probe does not stop the recording; it only warns, and still
    // does when checked again.
    QVERIFY(startVideo());
    QCOMPARE(f.probes, 1);
    QVERIFY(!f.recorder.screenAccessWarning().isEmpty());
    f.recorder.checkScreenCaptureAgain();
    QCOMPARE(f.probes, 2);
    QTest::qWait(50);
    QVERIFY(!f.recorder.screenAccessWarning().isEmpty());

    // Allowed when checked again: the warning goes, and later starts trust
    // it until resetToIdle forgets it.
    f.probeAnswer = AudioRecorder::ProbeResult::Allowed;
    f.recorder.checkScreenCaptureAgain();
    QTRY_VERIFY(f.recorder.screenAccessWarning().isNull());
    QCOMPARE(f.probes, 3);
    QVERIFY(end());
    QVERIFY(startVideo());
    QCOMPARE(f.probes, 3);
    QVERIFY(end());
    f.recorder.resetToIdle();
    QVERIFY(startVideo());
    QCOMPARE(f.probes, 4);
}

void TestAudioRecorder::deviceSelection()
{
    // Another microphone chosen while recording: the engine switches, and the
    // old one's silence warning goes.
    Fixture f;
    QVERIFY(f.startAndWaitFor(Kind::Recording));
    f.engine->send(AudioEngineUpdate::micSilent(true, QStringLiteral("silent")));
    QTRY_VERIFY(f.recorder.micSilent());
    f.recorder.selectInputDevice(6);
    QCOMPARE(f.engine->selectedIds, QList<std::uint32_t>{6});
    QVERIFY(!f.recorder.micSilent());
    QVERIFY(f.recorder.micSilentMessage().isNull());
}

void TestAudioRecorder::deviceListFollowsTheEngine()
{
    Fixture f;
    QVERIFY(f.recorder.availableInputDevices().isEmpty());
    // The engine says its list changed, from its own thread; the published
    // list and the picker's model follow on this one.
    QSignalSpy changed(&f.recorder, &AudioRecorder::availableInputDevicesChanged);
    f.engine->queue.post([e = f.engine] {
        e->devices = {{3, QStringLiteral("Built-in"), true}};
        e->devicesChanged();
    });
    QTRY_COMPARE(changed.count(), 1);
    QCOMPARE(f.recorder.availableInputDevices().value(0).name, QStringLiteral("Built-in"));
    QCOMPARE(f.recorder.inputDevices()->rowCount(), 1);

    // The same list again leaves the picker alone (an open menu stays open);
    // a new one replaces it.
    QAbstractItemModelTester tester(f.recorder.inputDevices(),
                                    QAbstractItemModelTester::FailureReportingMode::QtTest);
    QSignalSpy resets(f.recorder.inputDevices(), &QAbstractItemModel::modelReset);
    f.engine->queue.post([e = f.engine] {
        e->devicesChanged();
        e->devices = {{3, QStringLiteral("Built-in"), true}, {4, QStringLiteral("Headset"), false}};
        e->devicesChanged();
    });
    QTRY_COMPARE(f.recorder.inputDevices()->rowCount(), 2);
    QCOMPARE(resets.count(), 1);
    QCOMPARE(changed.count(), 2);
}

void TestAudioRecorder::microphoneReportsDuringRecording()
{
    Fixture f;
    QVERIFY(f.startAndWaitFor(Kind::Recording));
    // The sound server away and back: the recording goes on throughout.
    f.engine->send(AudioEngineUpdate::soundServer(false));
    QTRY_VERIFY(f.recorder.soundServerLost());
    QCOMPARE(f.recorder.state().kind(), Kind::Recording);
    f.engine->send(AudioEngineUpdate::soundServer(true));
    QTRY_VERIFY(!f.recorder.soundServerLost());

    // Stopped while it is away: no stale warning on the next screen.
    f.engine->send(AudioEngineUpdate::soundServer(false));
    QTRY_VERIFY(f.recorder.soundServerLost());
    f.recorder.stopRecording();
    QVERIFY(!f.recorder.soundServerLost());
}

QTEST_GUILESS_MAIN(TestAudioRecorder)
#include "tst_audiorecorder.moc"
