// Live capture against a real (private) PulseAudio daemon: the microphone and
// the default sink's monitor end up mixed in one WAV file; missing pieces
// degrade the way a user expects (microphone-only, or a clear refusal); the
// system-audio retry loop waits and gives up as it should.

#include "audio/audioengine.h"
#include "core/log.h"
#include "support/isolatedenvironment.h"
#include "support/pulsesandbox.h"
#include "support/toneprobe.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QTest>

#include <atomic>
#include <mutex>

using namespace sorv;
using namespace sorv::test;

namespace {

// Collects what the engine reports, from the audio queue.
struct Reports {
    std::mutex lock;
    std::vector<AudioEngineUpdate> updates;
    std::optional<std::optional<RecorderError>> startResult;

    RecordingEngine::UpdateHandler handler()
    {
        return [this](const AudioEngineUpdate& u) {
            std::lock_guard g(lock);
            updates.push_back(u);
        };
    }
    auto startDone()
    {
        return [this](std::optional<RecorderError> e) {
            std::lock_guard g(lock);
            startResult = std::move(e);
        };
    }
    bool started()
    {
        std::lock_guard g(lock);
        return startResult.has_value();
    }
    QString startErrorText()
    {
        const auto e = startError();
        return e ? e->description() : QString();
    }
    std::optional<RecorderError> startError()
    {
        std::lock_guard g(lock);
        return startResult ? *startResult : std::nullopt;
    }
    // The first systemAudioActive report and the error that follows it.
    std::optional<std::pair<bool, std::optional<QString>>> systemAudio()
    {
        std::lock_guard g(lock);
        for (size_t i = 0; i + 1 < updates.size(); ++i)
            if (updates[i].kind == AudioEngineUpdate::Kind::SystemAudioActive &&
                updates[i + 1].kind == AudioEngineUpdate::Kind::SystemAudioError)
                return std::make_pair(updates[i].flag, updates[i + 1].text);
        return std::nullopt;
    }
    AudioMeters loudestMeters()
    {
        std::lock_guard g(lock);
        AudioMeters m;
        for (const auto& u : updates)
            if (u.kind == AudioEngineUpdate::Kind::Meters) {
                m.mic = std::max(m.mic, u.meters.mic);
                m.system = std::max(m.system, u.meters.system);
            }
        return m;
    }
};

struct LogCapture {
    std::mutex lock;
    QStringList lines;
    LogCapture()
    {
        setLogSink([this](const QString& l) {
            std::lock_guard g(lock);
            lines << l;
        });
    }
    ~LogCapture() { setLogSink({}); }
    int count(const QString& prefix)
    {
        std::lock_guard g(lock);
        int n = 0;
        for (const QString& l : lines)
            n += l.startsWith(prefix) ? 1 : 0;
        return n;
    }
};

void stopEngine(AudioEngine& engine)
{
    std::atomic<bool> stopped = false;
    engine.stop([&] { stopped = true; });
    QTRY_VERIFY_WITH_TIMEOUT(stopped, 10000);
}

} // namespace

class TestAudioCapture : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void mixesMicrophoneAndSystemAudio();
    void withoutSinkRecordsMicrophoneOnly();
    void withoutMicrophoneStartFails_data();
    void withoutMicrophoneStartFails();
    void systemAudioAttempts_data();
    void systemAudioAttempts();
    void systemAudioRetriedAfterGivingUp();
    void listsMicrophonesAndSwitchesMidRecording();
    void durationIsMeasuredOnTheAudio();

private:
    QString m_micTone;
    QString m_sysTone;
    QTemporaryDir m_tones;
};

void TestAudioCapture::initTestCase()
{
    if (!PulseSandbox::toolsAvailable())
        QSKIP("PulseAudio sandbox tools are not installed");
    m_micTone = m_tones.filePath(QStringLiteral("mic1k.wav"));
    m_sysTone = m_tones.filePath(QStringLiteral("sys440.wav"));
    QVERIFY(PulseSandbox::makeTone(m_micTone, 1000, 30, 0.3));
    QVERIFY(PulseSandbox::makeTone(m_sysTone, 440, 30, 0.3));
}

void TestAudioCapture::mixesMicrophoneAndSystemAudio()
{
    IsolatedEnvironment env;
    PulseSandbox sandbox;
    QVERIFY2(sandbox.isRunning(), qPrintable(sandbox.errorString()));
    QVERIFY(sandbox.playIntoMicrophone(m_micTone));
    QVERIFY(sandbox.playToSpeakers(m_sysTone));

    AudioEngine engine;
    Reports reports;
    std::atomic<int> mixedBuffers = 0;
    std::atomic<std::int64_t> mixedFrames = 0;
    engine.setMixedBufferCallback([&](const AudioBuffer& b) {
        if (b.frameLength() > 0)
            ++mixedBuffers;
        mixedFrames += b.frameLength();
    });
    const QString wav = env.path(QStringLiteral("rec.wav"));
    engine.start({wav}, reports.handler(), reports.startDone());
    QTRY_VERIFY_WITH_TIMEOUT(reports.started(), 10000);
    QVERIFY2(!reports.startError(), qPrintable(reports.startErrorText()));
    QTRY_VERIFY_WITH_TIMEOUT(reports.systemAudio().has_value(), 10000);
    QCOMPARE(reports.systemAudio()->first, true);
    QVERIFY(!reports.systemAudio()->second.has_value());
    QTest::qWait(3000);
    stopEngine(engine);

    QVERIFY(mixedBuffers > 10);
    const AudioMeters meters = reports.loudestMeters();
    QVERIFY(meters.mic > 0.1f);
    QVERIFY(meters.system > 0.1f);

    const WavContents w = readWavFile(wav);
    QVERIFY(w.ok);
    QCOMPARE(w.sampleRate, 48000);
    QCOMPARE(w.channels, 1);
    QCOMPARE(w.format & SF_FORMAT_SUBMASK, SF_FORMAT_FLOAT);
    // RF64 downgrades to a (possibly extensible) RIFF WAV at close.
    QVERIFY((w.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV ||
            (w.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAVEX);
    // Every frame that went to the consumer is in the file, and nothing else
    // (measured on the audio, not on a wall clock a loaded machine skews).
    QCOMPARE(qint64(w.samples.size()), qint64(mixedFrames));
    QVERIFY(w.seconds() > 2.5);
    // Once system audio is active, both tones are in the mix.
    const auto end = tail(w, 1.5);
    QVERIFY(medianToneAmplitude(end, 1000) > 0.05);
    QVERIFY(medianToneAmplitude(end, 440) > 0.03);
    QVERIFY(medianToneAmplitude(end, 700) < 0.01);
}

void TestAudioCapture::withoutSinkRecordsMicrophoneOnly()
{
    IsolatedEnvironment env;
    PulseSandbox sandbox(PulseSandbox::Options{false});
    QVERIFY2(sandbox.isRunning(), qPrintable(sandbox.errorString()));

    AudioEngine engine;
    Reports reports;
    const QString wav = env.path(QStringLiteral("mic-only.wav"));
    engine.start({wav}, reports.handler(), reports.startDone());
    QTRY_VERIFY_WITH_TIMEOUT(reports.started(), 10000);
    QVERIFY2(!reports.startError(), qPrintable(reports.startErrorText()));

    QTRY_VERIFY_WITH_TIMEOUT(reports.systemAudio().has_value(), 10000);
    QCOMPARE(reports.systemAudio()->first, false);
    QVERIFY(reports.systemAudio()->second.has_value());
    QVERIFY(!reports.systemAudio()->second->isEmpty());

    QTest::qWait(1500);
    stopEngine(engine);
    const WavContents w = readWavFile(wav);
    QVERIFY(w.ok);
    QVERIFY(w.seconds() > 1.0);
    QVERIFY(medianToneAmplitude(tail(w, 1.0), 1000) > 0.05);
}

void TestAudioCapture::withoutMicrophoneStartFails_data()
{
    QTest::addColumn<bool>("serverRuns");
    QTest::newRow("no source but monitors") << true;
    QTest::newRow("no sound server") << false;
}

void TestAudioCapture::withoutMicrophoneStartFails()
{
    QFETCH(bool, serverRuns);
    IsolatedEnvironment env;
    std::optional<PulseSandbox> sandbox;
    if (serverRuns) {
        sandbox.emplace();
        QVERIFY2(sandbox->isRunning(), qPrintable(sandbox->errorString()));
        // The default source falls back to a sink monitor, which is no microphone.
        QVERIFY(sandbox->unloadModule(QStringLiteral("module-remap-source")));
    } else {
        qputenv("PULSE_SERVER", QFile::encodeName(env.path(QStringLiteral("no-such-socket"))));
    }

    AudioEngine engine;
    std::atomic<int> access = -1;
    engine.requestMicrophoneAccess([&](bool granted) { access = granted ? 1 : 0; });
    QTRY_VERIFY_WITH_TIMEOUT(access != -1, 10000);
    QCOMPARE(access.load(), 1); // nothing refused us: there is just nothing to record

    Reports reports;
    const QString wav = env.path(QStringLiteral("none.wav"));
    engine.start({wav}, reports.handler(), reports.startDone());
    QTRY_VERIFY_WITH_TIMEOUT(reports.started(), 10000);
    QVERIFY(reports.startError().has_value());
    QCOMPARE(reports.startError()->description(), QStringLiteral("No microphone available"));
    QVERIFY(!QFileInfo::exists(wav));
    if (!serverRuns)
        qunsetenv("PULSE_SERVER");
}

void TestAudioCapture::systemAudioAttempts_data()
{
    QTest::addColumn<int>("deniedAttempts");
    QTest::addColumn<bool>("otherError");
    QTest::addColumn<bool>("active");
    QTest::addColumn<int>("attempts");
    QTest::addColumn<double>("minSeconds");
    // Refusals wait one unit, then two (1.5 s and 3.0 s in the application;
    // a unit of 50 ms here); the third refusal is final.
    QTest::newRow("refused twice, then works") << 2 << false << true << 3 << 0.15;
    QTest::newRow("refused every time") << 3 << false << false << 3 << 0.15;
    QTest::newRow("other error is not retried") << 0 << true << false << 1 << 0.0;
}

void TestAudioCapture::systemAudioAttempts()
{
    QFETCH(int, deniedAttempts);
    QFETCH(bool, otherError);
    QFETCH(bool, active);
    QFETCH(int, attempts);
    QFETCH(double, minSeconds);

    IsolatedEnvironment env;
    PulseSandbox sandbox;
    QVERIFY2(sandbox.isRunning(), qPrintable(sandbox.errorString()));
    LogCapture log;

    AudioEngine::Options options;
    options.systemRetryUnit = std::chrono::milliseconds(50);
    AudioEngine engine(options);
    engine.setSystemCaptureFaultInjector(
        [=](int attempt) -> std::optional<AudioEngine::SystemCaptureFailure> {
            if (otherError)
                return AudioEngine::SystemCaptureFailure{false, QStringLiteral("boom")};
            if (attempt <= deniedAttempts)
                return AudioEngine::SystemCaptureFailure{true, QStringLiteral("Access denied")};
            return std::nullopt;
        });
    Reports reports;
    QElapsedTimer clock;
    clock.start();
    engine.start({env.path(QStringLiteral("r.wav"))}, reports.handler(), reports.startDone());
    QTRY_VERIFY_WITH_TIMEOUT(reports.systemAudio().has_value(), 15000);
    const double seconds = clock.elapsed() / 1000.0;
    stopEngine(engine);

    QCOMPARE(reports.systemAudio()->first, active);
    QCOMPARE(log.count(QStringLiteral("🔍 System audio attempt")), attempts);
    QVERIFY2(seconds >= minSeconds, qPrintable(QString::number(seconds)));
    if (!active) {
        QVERIFY(reports.systemAudio()->second.has_value());
        if (otherError)
            QCOMPARE(*reports.systemAudio()->second, QStringLiteral("boom"));
        else // the advice is about the sound server, not about screen sharing
            QVERIFY(reports.systemAudio()->second->startsWith(
                QStringLiteral("The sound server refused to let Sorvelandrix Recorder record")));
    }
}

void TestAudioCapture::systemAudioRetriedAfterGivingUp()
{
    IsolatedEnvironment env;
    PulseSandbox sandbox;
    QVERIFY2(sandbox.isRunning(), qPrintable(sandbox.errorString()));
    LogCapture log;

    AudioEngine engine;
    std::atomic<bool> refuse = true;
    engine.setSystemCaptureFaultInjector(
        [&refuse](int) -> std::optional<AudioEngine::SystemCaptureFailure> {
            if (refuse)
                return AudioEngine::SystemCaptureFailure{false, QStringLiteral("not now")};
            return std::nullopt;
        });
    Reports reports;
    const auto activeReports = [&reports] {
        std::lock_guard g(reports.lock);
        QList<bool> out;
        for (const auto& u : reports.updates)
            if (u.kind == AudioEngineUpdate::Kind::SystemAudioActive)
                out << u.flag;
        return out;
    };
    engine.retrySystemAudio(); // not recording: nothing to retry
    engine.start({env.path(QStringLiteral("r.wav"))}, reports.handler(), reports.startDone());
    QTRY_COMPARE_WITH_TIMEOUT(activeReports(), QList<bool>{false}, 10000);

    // The refusal is lifted; the user presses Retry.
    refuse = false;
    engine.retrySystemAudio();
    QTRY_COMPARE_WITH_TIMEOUT(activeReports(), (QList<bool>{false, true}), 10000);
    // Running now: another Retry starts nothing.
    engine.retrySystemAudio();
    engine.inspect([](const AudioEngine&) {});
    QCOMPARE(log.count(QStringLiteral("🔍 System audio attempt")), 2);
    stopEngine(engine);
}

void TestAudioCapture::listsMicrophonesAndSwitchesMidRecording()
{
    IsolatedEnvironment env;
    PulseSandbox sandbox;
    QVERIFY2(sandbox.isRunning(), qPrintable(sandbox.errorString()));
    QVERIFY(sandbox.playIntoMicrophone(m_micTone));

    AudioEngine engine;
    Reports reports;
    engine.start({env.path(QStringLiteral("s.wav"))}, reports.handler(), reports.startDone());
    QTRY_VERIFY_WITH_TIMEOUT(reports.started(), 10000);
    QVERIFY(!reports.startError());

    // Microphones only, never sink monitors; the default one first.
    const QList<InputDevice> devices = engine.listInputDevices();
    QCOMPARE(devices.size(), 1);
    QCOMPARE(devices.first().name, QStringLiteral("VirtualMic"));
    QVERIFY(devices.first().isDefault);
    QCOMPARE(devices.first().id, inputDeviceIdForSourceName(QStringLiteral("virtmic")));

    // The default microphone's id is remembered once it runs.
    std::uint32_t selected = 0;
    engine.inspect([&](const AudioEngine& e) { selected = e.selectedInputDeviceID(); });
    QCOMPARE(selected, devices.first().id);

    // An id the server does not know falls back to the default; recording goes on.
    std::atomic<bool> switched = false;
    engine.selectInputDevice(0xdeadbeef, [&] { switched = true; });
    QTRY_VERIFY_WITH_TIMEOUT(switched, 10000);
    std::int64_t before = 0;
    engine.inspect([&](const AudioEngine& e) { before = e.pipeline().micBufferCount(); });
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            std::int64_t now = 0;
            QString source;
            engine.inspect([&](const AudioEngine& e) {
                now = e.pipeline().micBufferCount();
                source = e.micSourceName();
            });
            return now > before + 3 && source == QStringLiteral("virtmic");
        }(),
        5000);
    stopEngine(engine);
}

void TestAudioCapture::durationIsMeasuredOnTheAudio()
{
    // 1.3 s is not a whole number of capture buffers: the file holds exactly
    // that much all the same, and says so once.
    IsolatedEnvironment env;
    PulseSandbox sandbox;
    QVERIFY2(sandbox.isRunning(), qPrintable(sandbox.errorString()));
    QVERIFY(sandbox.playIntoMicrophone(m_micTone));

    AudioEngine engine;
    Reports reports;
    const QString wav = env.path(QStringLiteral("timed.wav"));
    engine.start({wav, 0, 62'400}, reports.handler(), reports.startDone());
    const auto reached = [&] {
        std::lock_guard g(reports.lock);
        return std::count_if(reports.updates.begin(), reports.updates.end(), [](const auto& u) {
            return u.kind == AudioEngineUpdate::Kind::DurationReached;
        });
    };
    QTRY_COMPARE_WITH_TIMEOUT(reached(), 1l, 10000);
    QTest::qWait(300); // more audio arrives; none of it is written
    stopEngine(engine);
    QCOMPARE(reached(), 1l);
    const WavContents w = readWavFile(wav);
    QVERIFY(w.ok);
    QCOMPARE(w.samples.size(), size_t(62'400));
}

QTEST_GUILESS_MAIN(TestAudioCapture)
#include "tst_audiocapture.moc"
