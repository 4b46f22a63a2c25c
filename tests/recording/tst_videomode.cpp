// The recording controller in video mode with real parts: the audio engine
// in a private PulseAudio daemon, the video recorder on a private X server,
// the upload against the local service. What a video session names and
// keeps, that its mixed audio reaches both the transcript's consumer and the
// file to the end, what the user sees when the video cannot start, and that
// the MP4 goes up as video with its companion WAV deleted only after success.

#include "audio/audioengine.h"
#include "core/log.h"
#include "core/paths.h"
#include "core/recordingfilelock.h"
#include "core/secretstore.h"
#include "recording/audiorecorder.h"
#include "service/authmanager.h"
#include "signedin.h"
#include "support/isolatedenvironment.h"
#include "support/pulsesandbox.h"
#include "support/toneprobe.h"
#include "support/xvfbsession.h"
#include "video/screencaptureaccess.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <atomic>
#include <memory>

using namespace sorv;
using namespace sorv::test;
using local::LocalService;
using local::ScriptedAnswer;
using Kind = RecordingState::Kind;

namespace {

const QString kUpload = QStringLiteral("/api/upload");

QByteArray readAll(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

QStringList recordingFiles()
{
    return QDir(recordingsDirectory()).entryList(QDir::Files);
}

// Sets or removes an environment variable for the life of the object.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const std::optional<QByteArray>& value)
        : m_name(name), m_had(qEnvironmentVariableIsSet(name)), m_old(qgetenv(name))
    {
        if (value)
            qputenv(name, *value);
        else
            qunsetenv(name);
    }
    ~ScopedEnv()
    {
        if (m_had)
            qputenv(m_name, m_old);
        else
            qunsetenv(m_name);
    }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    const char* m_name;
    bool m_had;
    QByteArray m_old;
};

// Seconds of the file's longest stream, as ffprobe reads it (0 when it cannot).
double playableSeconds(const QString& path)
{
    QProcess probe;
    probe.start(QStringLiteral("ffprobe"),
                {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-show_entries"),
                 QStringLiteral("format=duration"), QStringLiteral("-of"),
                 QStringLiteral("csv=p=0"), path});
    if (!probe.waitForFinished(10000) || probe.exitCode() != 0)
        return 0.0;
    return QString::fromUtf8(probe.readAllStandardOutput()).trimmed().toDouble();
}

// The application's engine, with a watchdog that gives up on a stalled
// microphone within a few seconds instead of half a minute.
std::unique_ptr<RecordingEngine> engineWithQuickWatchdog()
{
    AudioEngine::Options options;
    options.health.watchdogPeriod = std::chrono::milliseconds(250);
    options.health.firstBufferSeconds = 0.5;
    return std::make_unique<AudioEngine>(options);
}

struct World {
    explicit World(bool signIn = false, std::unique_ptr<RecordingEngine> engine = {})
        : recorder(engine ? std::move(engine) : std::make_unique<AudioEngine>())
    {
        if (signIn) {
            service.emplace();
            auth = std::make_unique<AuthManager>(secrets);
            test::signIn(*auth);
            recorder.setAuthManager(auth.get());
            (*service)->clearRequestLog();
        }
        // The live transcript's tap: counts what it is handed.
        recorder.setOnMixedAudioBuffer(
            [this](const AudioBuffer& b) { consumerFrames += b.frameLength(); });
    }

    bool startVideo(const ScreenCaptureTargetOption& target, Kind until = Kind::Recording)
    {
        recorder.requestStartRecording(true, target);
        return QTest::qWaitFor([&] { return recorder.state().kind() == until; }, 20000);
    }
    bool stop()
    {
        recorder.stopRecording();
        return QTest::qWaitFor([&] { return recorder.state().kind() == Kind::PendingSave; }, 20000);
    }

    IsolatedEnvironment env;
    PulseSandbox sandbox;
    std::optional<LocalServiceFixture> service;
    SecretStore secrets{SecretStore::Options::fileOnly()};
    std::unique_ptr<AuthManager> auth;
    AudioRecorder recorder;
    std::atomic<std::int64_t> consumerFrames{0};
};

// Our own capture streams are gone from the sound server.
bool captureStopped(const PulseSandbox& sandbox)
{
    return QTest::qWaitFor(
        [&] {
            QString out;
            sandbox.pactl({QStringLiteral("list"), QStringLiteral("source-outputs")}, &out);
            return !out.contains(QStringLiteral("Sorvelandrix"), Qt::CaseInsensitive);
        },
        5000);
}

} // namespace

class TestVideoMode : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void init()
    {
        setLogSink([](const QString&) {});
    }
    void cleanup() { setLogSink({}); }

    void recordsTheScreenBesideTheWav();
    void savedVideoIsUploadedAndItsCompanionDeleted();
    void refusedUploadKeepsBothDiscardRemovesBoth();
    void videoStartFailures_data();
    void videoStartFailures();
    void microphoneGivenUpEndsBothFiles();

private:
    std::unique_ptr<XvfbSession> m_x;
    QTemporaryDir m_tones;
};

void TestVideoMode::initTestCase()
{
    if (!XvfbSession::toolsAvailable() || !PulseSandbox::toolsAvailable())
        QSKIP("Xvfb and the PulseAudio tools are needed");
    m_x = std::make_unique<XvfbSession>(XvfbSession::Options{QSize(320, 240), false});
    QVERIFY2(m_x->isRunning(), qPrintable(m_x->errorString()));
    QVERIFY(PulseSandbox::makeTone(m_tones.filePath(QStringLiteral("mic.wav")), 1000, 30));
}

void TestVideoMode::cleanupTestCase()
{
    m_x.reset();
}

void TestVideoMode::recordsTheScreenBesideTheWav()
{
    World w;
    QVERIFY2(w.sandbox.isRunning(), qPrintable(w.sandbox.errorString()));
    QVERIFY(w.sandbox.playIntoMicrophone(m_tones.filePath(QStringLiteral("mic.wav"))));
    QVERIFY(w.startVideo(ScreenCaptureTargetOption::mainDisplay()));
    // X11 lets every client capture: no advice beside the recording.
    QVERIFY(w.recorder.screenAccessWarning().isNull());
    QVERIFY(w.recorder.isVideoMode());
    QVERIFY(w.recorder.videoRecorder());
    QCOMPARE(w.recorder.videoRecorder()->state(), VideoRecorderState::recording());

    // The MP4 is the recording; the WAV of the same stem is its companion.
    const QString mp4 = w.recorder.outputPath();
    const QString wav = w.recorder.lastWavPath();
    QCOMPARE(w.recorder.lastVideoPath(), mp4);
    QVERIFY(isInRecordingsDirectory(mp4));
    QVERIFY(QRegularExpression(QStringLiteral("/sorvelandrix_\\d+\\.mp4$")).match(mp4).hasMatch());
    QCOMPARE(wav, mp4.chopped(4) + QStringLiteral(".wav"));
    // Both are locked by their writers while they are written.
    for (const QString& file : {mp4, wav})
        QCOMPARE(RecordingFileLock::tryLock(file).status(), RecordingFileLock::Status::Busy);

    QTest::qWait(2000);
    w.recorder.stopRecording();
    QCOMPARE(w.recorder.state().kind(), Kind::Stopping);
    QVERIFY(!w.recorder.isVideoMode());
    QVERIFY(!w.recorder.videoRecorder());
    QTRY_COMPARE_WITH_TIMEOUT(w.recorder.state().kind(), Kind::PendingSave, 20000);
    QVERIFY(captureStopped(w.sandbox));
    QCOMPARE(w.recorder.outputPath(), mp4);
    QCOMPARE(w.recorder.lastWavPath(), wav);
    for (const QString& file : {mp4, wav})
        QVERIFY(RecordingFileLock::tryLock(file).isHeld());

    // The transcript's consumer had every buffer the WAV has...
    const WavContents audio = readWavFile(wav);
    QVERIFY(audio.ok);
    QCOMPARE(w.consumerFrames.load(), std::int64_t(audio.samples.size()));
    // ...and so had the video file, to its last frame: the audio captured
    // just before the stop is not cut off.
    QProcess probe;
    probe.start(QStringLiteral("ffprobe"),
                {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-show_entries"),
                 QStringLiteral("stream=codec_type,duration"), QStringLiteral("-of"),
                 QStringLiteral("csv=p=0"), mp4});
    QVERIFY(probe.waitForFinished(10000));
    double videoEnd = 0.0;
    double audioEnd = 0.0;
    for (const QString& line : QString::fromUtf8(probe.readAllStandardOutput()).split('\n')) {
        const QStringList f = line.trimmed().split(QLatin1Char(','));
        if (f.size() == 2)
            (f[0] == QLatin1String("video") ? videoEnd : audioEnd) = f[1].toDouble();
    }
    qInfo("WAV %.3f s, MP4 video %.3f s, audio %.3f s", audio.seconds(), videoEnd, audioEnd);
    QVERIFY(videoEnd > 1.5);
    QVERIFY2(std::fabs(audioEnd - videoEnd) < 0.05,
             qPrintable(QStringLiteral("%1 vs %2").arg(audioEnd).arg(videoEnd)));
    // The WAV runs from the engine's start to its stop, which follows the
    // video's at once: not the time the MP4 took to be finished.
    QVERIFY2(audio.seconds() - videoEnd < 0.6, qPrintable(QString::number(audio.seconds())));
}

void TestVideoMode::savedVideoIsUploadedAndItsCompanionDeleted()
{
    World w(true);
    QVERIFY2(w.sandbox.isRunning(), qPrintable(w.sandbox.errorString()));
    QVERIFY(w.startVideo(ScreenCaptureTargetOption::mainDisplay()));
    QTest::qWait(1000);
    QVERIFY(w.stop());
    const QString mp4 = w.recorder.outputPath();
    const QString wav = w.recorder.lastWavPath();
    const QByteArray video = readAll(mp4);
    QVERIFY(!video.isEmpty());

    w.recorder.saveRecording();
    QTRY_COMPARE_WITH_TIMEOUT(w.recorder.state().kind(), Kind::Uploaded, 30000);
    QCOMPARE(w.recorder.state().name(), QFileInfo(mp4).fileName());
    QVERIFY(!QFile::exists(mp4));
    QVERIFY(!QFile::exists(wav));

    // One request whose single part is the MP4, sent as video.
    QList<local::LoggedRequest> uploads;
    for (const auto& r : (*w.service)->requestLog())
        if (r.method == "POST" && r.path == kUpload)
            uploads << r;
    QCOMPARE(uploads.size(), 1);
    const QByteArray contentType = uploads.first().header("Content-Type");
    const QByteArray boundary = contentType.mid(contentType.indexOf("boundary=") + 9);
    const QByteArray body =
        "--" + boundary + "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"" +
        QFileInfo(mp4).fileName().toUtf8() + "\"\r\nContent-Type: video/mp4\r\n\r\n" + video +
        "\r\n--" + boundary + "--\r\n";
    QCOMPARE(uploads.first().streamedBodySha256,
             QCryptographicHash::hash(body, QCryptographicHash::Sha256).toHex());
}

void TestVideoMode::refusedUploadKeepsBothDiscardRemovesBoth()
{
    World w(true);
    QVERIFY2(w.sandbox.isRunning(), qPrintable(w.sandbox.errorString()));
    for (const bool discard : {false, true}) {
        QVERIFY(w.startVideo(ScreenCaptureTargetOption::mainDisplay()));
        QTest::qWait(500);
        QVERIFY(w.stop());
        const QString mp4 = w.recorder.outputPath();
        const QString wav = w.recorder.lastWavPath();
        QVERIFY(QFile::exists(mp4) && QFile::exists(wav));
        if (discard) {
            w.recorder.discardRecording();
            QVERIFY(!QFile::exists(mp4));
            QVERIFY(!QFile::exists(wav));
            QCOMPARE(w.recorder.state(), RecordingState::idle());
            continue;
        }
        // Refused: the MP4 waits for Retry, and its companion with it.
        (*w.service)->script("POST", kUpload, ScriptedAnswer::reply(503));
        w.recorder.saveRecording();
        QTRY_COMPARE_WITH_TIMEOUT(w.recorder.state(),
                                  RecordingState::error(QStringLiteral("Upload failed (HTTP 503)")),
                                  30000);
        QCOMPARE(w.recorder.failedUploadPath(), mp4);
        QVERIFY(w.recorder.canRetryUpload());
        QVERIFY(QFile::exists(mp4) && QFile::exists(wav));
    }
}

void TestVideoMode::videoStartFailures_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<bool>("display");
    QTest::addColumn<bool>("wayland");
    QTest::addColumn<QString>("message");
    QTest::addColumn<bool>("advice");
    const QString noDisplay =
        QStringLiteral("Video recording failed to start: No display found for screen capture.");
    QTest::newRow("window closed since it was listed")
        << "window:4194303" << true << false << noDisplay << false;
    QTest::newRow("no display at all") << "display:main" << false << false << noDisplay << false;
    // Until the desktop portal is supported, a Wayland session without an X
    // server beside it cannot be recorded.
    QTest::newRow("Wayland without X")
        << "display:main" << false << true
        << QStringLiteral("Video recording failed to start: Permission denied — allow screen "
                          "sharing for Sorvelandrix Recorder when your desktop asks, or in its "
                          "privacy settings.")
        << true;
}

void TestVideoMode::videoStartFailures()
{
    QFETCH(QString, target);
    QFETCH(bool, display);
    QFETCH(bool, wayland);
    QFETCH(QString, message);
    QFETCH(bool, advice);
    const ScopedEnv displayVar("DISPLAY", display ? std::optional<QByteArray>(qgetenv("DISPLAY"))
                                                  : std::nullopt);
    const ScopedEnv waylandVar("WAYLAND_DISPLAY",
                               wayland ? std::optional<QByteArray>("wayland-0") : std::nullopt);
    World w;
    QVERIFY2(w.sandbox.isRunning(), qPrintable(w.sandbox.errorString()));
    QVERIFY(w.startVideo(*ScreenCaptureTargetOption::fromID(target), Kind::Error));
    QCOMPARE(w.recorder.state(), RecordingState::error(message));
    QCOMPARE(w.recorder.screenAccessWarning(), advice ? screenCaptureNotAllowedText() : QString());
    QVERIFY(!w.recorder.isVideoMode());
    QVERIFY(!w.recorder.videoRecorder());
    QVERIFY(w.recorder.outputPath().isEmpty());
    QVERIFY(w.recorder.lastWavPath().isEmpty());
    QVERIFY(w.recorder.lastVideoPath().isEmpty());
    QVERIFY(!w.recorder.canRetryUpload());
    // Neither capture goes on, and nothing is left behind.
    QVERIFY(captureStopped(w.sandbox));
    QTRY_VERIFY(recordingFiles().isEmpty());

    // The next start is a fresh one: audio alone works.
    w.recorder.requestStartRecording(false);
    QTRY_COMPARE_WITH_TIMEOUT(w.recorder.state().kind(), Kind::Recording, 20000);
    QVERIFY(w.recorder.lastVideoPath().isEmpty());
    QVERIFY(w.stop());
}

void TestVideoMode::microphoneGivenUpEndsBothFiles()
{
    World w(false, engineWithQuickWatchdog());
    QVERIFY2(w.sandbox.isRunning(), qPrintable(w.sandbox.errorString()));
    // A headset that will stop delivering, the default microphone.
    QVERIFY(w.sandbox.addSlowMicrophone(QStringLiteral("btmic"), QStringLiteral("BT Headset")));
    w.sandbox.releaseSlowMicrophone();
    QVERIFY(w.sandbox.pactl({QStringLiteral("set-default-source"), QStringLiteral("btmic")}));
    QVERIFY(w.sandbox.playIntoSource(QStringLiteral("btmic"),
                                     m_tones.filePath(QStringLiteral("mic.wav"))));
    QVERIFY(w.startVideo(ScreenCaptureTargetOption::mainDisplay()));
    const QString mp4 = w.recorder.outputPath();
    const QString wav = w.recorder.lastWavPath();
    // Whenever Retry is offered, the files it would send are no longer written.
    QStringList offeredWhileWritten;
    QObject::connect(&w.recorder, &AudioRecorder::canRetryUploadChanged, &w.recorder, [&] {
        for (const QString& file : {mp4, wav})
            if (w.recorder.canRetryUpload() && !RecordingFileLock::tryLock(file).isHeld())
                offeredWhileWritten << file;
    });
    QTest::qWait(1500);

    // The microphone stops delivering, and every restart finds it so.
    w.sandbox.stallSlowMicrophone();
    QTRY_COMPARE_WITH_TIMEOUT(w.recorder.state().kind(), Kind::Error, 30000);
    QCOMPARE(w.recorder.state().message(),
             QStringLiteral("Microphone engine could not be restarted after 5 attempts"));
    QVERIFY(!w.recorder.isVideoMode());
    QVERIFY(!w.recorder.videoRecorder());
    QVERIFY(captureStopped(w.sandbox));

    // What was recorded is kept, finished and playable, and Retry may send it.
    QCOMPARE(w.recorder.outputPath(), mp4);
    QCOMPARE(w.recorder.lastWavPath(), wav);
    QVERIFY(w.recorder.canRetryUpload());
    QVERIFY2(offeredWhileWritten.isEmpty(), qPrintable(offeredWhileWritten.join(' ')));
    for (const QString& file : {mp4, wav}) {
        QVERIFY2(RecordingFileLock::tryLock(file).isHeld(), qPrintable(file));
        const double seconds = playableSeconds(file);
        QVERIFY2(seconds > 1.0, qPrintable(QStringLiteral("%1: %2 s").arg(file).arg(seconds)));
    }
    // Nothing grabs the screen into the MP4 any more.
    const qint64 size = QFileInfo(mp4).size();

    // Start over: it stays over, whatever the watchdog had still to say.
    QSignalSpy states(&w.recorder, &AudioRecorder::stateChanged);
    w.recorder.resetToIdle();
    QTest::qWait(1000);
    QCOMPARE(w.recorder.state(), RecordingState::idle());
    QCOMPARE(states.count(), 1);
    QCOMPARE(QFileInfo(mp4).size(), size);
    w.sandbox.removeSlowMicrophone();
}

QTEST_GUILESS_MAIN(TestVideoMode)
#include "tst_videomode.moc"
