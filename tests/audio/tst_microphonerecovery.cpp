// The microphone kept alive in a real (private) PulseAudio daemon: the
// device list known before any recording and kept current; a microphone
// that is muted, unloaded, switched or stalled; the sound server killed and
// started again. Timing is scaled down through the engine's options where
// the application's would take too long.

#include "audio/audioengine.h"
#include "core/log.h"
#include "recording/audiorecorder.h"
#include "support/isolatedenvironment.h"
#include "support/pulsesandbox.h"
#include "support/toneprobe.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>

#include <atomic>
#include <mutex>

using namespace sorv;
using namespace sorv::test;
using Kind = AudioEngineUpdate::Kind;

namespace {

// What the engine reports and logs, stamped with the seconds since the
// test's clock started.
struct Observer {
    std::mutex lock;
    QElapsedTimer clock;
    std::vector<std::pair<double, AudioEngineUpdate>> updates;
    std::vector<std::pair<double, QString>> lines;
    std::optional<std::optional<RecorderError>> startResult;

    Observer()
    {
        clock.start();
        setLogSink([this](const QString& l) {
            std::lock_guard g(lock);
            lines.emplace_back(seconds(), l);
        });
    }
    ~Observer() { setLogSink({}); }
    double seconds() const { return static_cast<double>(clock.nsecsElapsed()) / 1e9; }

    RecordingEngine::UpdateHandler handler()
    {
        return [this](const AudioEngineUpdate& u) {
            if (u.kind == Kind::Meters)
                return;
            std::lock_guard g(lock);
            updates.emplace_back(seconds(), u);
        };
    }
    auto startDone()
    {
        return [this](std::optional<RecorderError> e) {
            std::lock_guard g(lock);
            startResult = std::move(e);
        };
    }
    bool startedWell()
    {
        std::lock_guard g(lock);
        return startResult.has_value() && !startResult->has_value();
    }
    QList<double> times(Kind kind, std::optional<bool> flag = std::nullopt)
    {
        std::lock_guard g(lock);
        QList<double> out;
        for (const auto& [t, u] : updates)
            if (u.kind == kind && (!flag || u.flag == *flag))
                out << t;
        return out;
    }
    QList<AudioEngineUpdate> all(Kind kind)
    {
        std::lock_guard g(lock);
        QList<AudioEngineUpdate> out;
        for (const auto& [t, u] : updates)
            if (u.kind == kind)
                out << u;
        return out;
    }
    QList<double> logged(const QString& prefix)
    {
        std::lock_guard g(lock);
        QList<double> out;
        for (const auto& [t, l] : lines)
            if (l.startsWith(prefix))
                out << t;
        return out;
    }
};

// Runs on the audio queue and returns what fn read there.
template <typename T> T read(AudioEngine& engine, const std::function<T(const AudioEngine&)>& fn)
{
    T value{};
    engine.inspect([&](const AudioEngine& e) { value = fn(e); });
    return value;
}

QString micSource(AudioEngine& engine)
{
    return read<QString>(engine, [](const AudioEngine& e) { return e.micSourceName(); });
}

std::int64_t frames(AudioEngine& engine)
{
    return read<std::int64_t>(engine,
                              [](const AudioEngine& e) { return e.pipeline().outputFrames(); });
}

void stopEngine(AudioEngine& engine)
{
    std::atomic<bool> stopped = false;
    engine.stop([&] { stopped = true; });
    QTRY_VERIFY_WITH_TIMEOUT(stopped, 10000);
}

// Timing for tests: the same checks, faster.
AudioEngine::Options quickOptions()
{
    AudioEngine::Options o;
    o.health.watchdogPeriod = std::chrono::milliseconds(500);
    o.health.graceSeconds = 0.5;
    o.health.silenceWindowSeconds = 1.5;
    o.devices.reconnectInterval = std::chrono::milliseconds(250);
    return o;
}

std::uint32_t idOf(const char* source)
{
    return inputDeviceIdForSourceName(QString::fromLatin1(source));
}

} // namespace

// One daemon serves every case (starting one and pacing its sinks takes
// seconds): "virtmic" (the default) hears a 1 kHz tone, "usbmic" (shown as
// "Headset") 700 Hz, the speakers play 440 Hz. Each case leaves it so. The
// server is killed last.
class TestMicrophoneRecovery : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void deviceListIsKnownBeforeRecordingAndKeptCurrent();
    void switchingPutsTheNewMicrophoneInTheFile();
    void followsTheDefaultSource();
    void mutedMicrophoneIsReportedAndRecovers();
    void stallsEndInTheFatalReport_data();
    void stallsEndInTheFatalReport();
    void unloadedMicrophoneFallsBackToTheDefault();
    void recordingSurvivesTheSoundServer();

private:
    PulseSandbox& sandbox() { return *m_sandbox; }
    bool play();

    QString m_tone1k;
    QString m_tone700;
    QString m_tone440;
    QTemporaryDir m_tones;
    std::unique_ptr<IsolatedEnvironment> m_env;
    std::unique_ptr<PulseSandbox> m_sandbox;
    int m_usbModule = -1;
};

void TestMicrophoneRecovery::initTestCase()
{
    if (!PulseSandbox::toolsAvailable())
        QSKIP("PulseAudio sandbox tools are not installed");
    m_tone1k = m_tones.filePath(QStringLiteral("1k.wav"));
    m_tone700 = m_tones.filePath(QStringLiteral("700.wav"));
    m_tone440 = m_tones.filePath(QStringLiteral("440.wav"));
    QVERIFY(PulseSandbox::makeTone(m_tone1k, 1000, 30, 0.3));
    QVERIFY(PulseSandbox::makeTone(m_tone700, 700, 30, 0.3));
    QVERIFY(PulseSandbox::makeTone(m_tone440, 440, 30, 0.3));
    m_env = std::make_unique<IsolatedEnvironment>();
    m_sandbox = std::make_unique<PulseSandbox>();
    QVERIFY2(m_sandbox->isRunning(), qPrintable(m_sandbox->errorString()));
}

bool TestMicrophoneRecovery::play()
{
    return sandbox().playIntoMicrophone(m_tone1k) && sandbox().playToSpeakers(m_tone440) &&
           (m_usbModule < 0 || sandbox().playIntoSource(QStringLiteral("usbmic"), m_tone700));
}

void TestMicrophoneRecovery::init()
{
    QVERIFY(sandbox().isRunning());
    // Unplugged by one case, plugged in again for the next (the last case
    // restarts the server, which forgets it).
    if (m_usbModule < 0 &&
        QTest::currentTestFunction() != QByteArray("recordingSurvivesTheSoundServer"))
        m_usbModule = sandbox().addMicrophone(QStringLiteral("usbmic"), QStringLiteral("Headset"));
    QVERIFY(play());
}

void TestMicrophoneRecovery::cleanup()
{
    if (!sandbox().isRunning())
        return;
    sandbox().stopPlayback();
    sandbox().setDefaultSource(QStringLiteral("virtmic"));
    sandbox().setMicrophoneMuted(false);
    sandbox().suspendSource(QStringLiteral("virtmic"), false);
}

void TestMicrophoneRecovery::deviceListIsKnownBeforeRecordingAndKeptCurrent()
{

    // Nothing recorded yet: the picker already has the microphones, default
    // first, and none of the feeds' monitors.
    AudioRecorder recorder;
    const auto names = [&recorder] {
        QStringList out;
        for (const InputDevice& d : recorder.availableInputDevices())
            out << d.name + (d.isDefault ? QStringLiteral("*") : QString());
        return out;
    };
    QTRY_COMPARE_WITH_TIMEOUT(
        names(), (QStringList{QStringLiteral("VirtualMic*"), QStringLiteral("Headset")}), 5000);
    QCOMPARE(recorder.availableInputDevices().first().id, idOf("virtmic"));
    QCOMPARE(recorder.inputDevices()->rowCount(), 2);

    // Plugged in while the application runs: listed at once, sorted, equal
    // names in the server's order.
    QSignalSpy changed(&recorder, &AudioRecorder::availableInputDevicesChanged);
    const int lower =
        sandbox().addMicrophone(QStringLiteral("lower"), QStringLiteral("mic"), false);
    const int upper =
        sandbox().addMicrophone(QStringLiteral("upper"), QStringLiteral("Mic"), false);
    const int aux = sandbox().addMicrophone(QStringLiteral("aux"), QStringLiteral("Aux"), false);
    QVERIFY(lower >= 0 && upper >= 0 && aux >= 0);
    QTRY_COMPARE_WITH_TIMEOUT(
        names(),
        (QStringList{QStringLiteral("VirtualMic*"), QStringLiteral("Aux"),
                     QStringLiteral("Headset"), QStringLiteral("mic"), QStringLiteral("Mic")}),
        5000);
    QVERIFY(!changed.isEmpty());

    // A new default moves to the top; an unplugged one leaves.
    QVERIFY(sandbox().setDefaultSource(QStringLiteral("aux")));
    QTRY_COMPARE_WITH_TIMEOUT(names().value(0), QStringLiteral("Aux*"), 5000);
    QVERIFY(sandbox().unloadModuleIndex(upper));
    QTRY_COMPARE_WITH_TIMEOUT(names(),
                              (QStringList{QStringLiteral("Aux*"), QStringLiteral("Headset"),
                                           QStringLiteral("mic"), QStringLiteral("VirtualMic")}),
                              5000);
    QVERIFY(sandbox().unloadModuleIndex(lower));
    QVERIFY(sandbox().unloadModuleIndex(aux));
}

void TestMicrophoneRecovery::switchingPutsTheNewMicrophoneInTheFile()
{

    Observer observer;
    AudioEngine engine(quickOptions());
    const QString wav = m_env->path(QStringLiteral("switch.wav"));
    engine.start({wav}, observer.handler(), observer.startDone());
    QTRY_VERIFY_WITH_TIMEOUT(observer.startedWell(), 10000);
    QTRY_VERIFY_WITH_TIMEOUT(!observer.times(Kind::SystemAudioActive, true).isEmpty(), 5000);
    QTest::qWait(1500);
    const std::int64_t before = frames(engine);

    std::atomic<bool> switched = false;
    engine.selectInputDevice(idOf("usbmic"), [&] { switched = true; });
    QTRY_VERIFY_WITH_TIMEOUT(switched, 5000);
    QCOMPARE(micSource(engine), QStringLiteral("usbmic"));
    QTest::qWait(2000);
    stopEngine(engine);

    // Only the microphone started again: the file kept growing, system audio
    // was never restarted, and a switch is no restart of a failing microphone.
    QCOMPARE(observer.logged(QStringLiteral("🔍 System audio attempt")).size(), 1);
    QVERIFY(observer.all(Kind::MicEngineRestarted).isEmpty());
    QCOMPARE(observer.logged(QStringLiteral("🎤 Switched input device to ID ")).size(), 1);
    const WavContents w = readWavFile(wav);
    QVERIFY(w.ok);
    QVERIFY(w.samples.size() > size_t(before) + 48000);
    const auto first = std::span<const float>(w.samples).subspan(24000, size_t(before) - 24000);
    QVERIFY(medianToneAmplitude(first, 1000) > 0.05);
    QVERIFY(medianToneAmplitude(first, 700) < 0.01);
    const auto end = tail(w, 1.0);
    QVERIFY(medianToneAmplitude(end, 700) > 0.05);
    QVERIFY(medianToneAmplitude(end, 1000) < 0.01);
}

void TestMicrophoneRecovery::unloadedMicrophoneFallsBackToTheDefault()
{
    QVERIFY(m_usbModule >= 0);

    Observer observer;
    AudioEngine engine(quickOptions());
    const QString wav = m_env->path(QStringLiteral("unplug.wav"));
    engine.start({wav, idOf("usbmic")}, observer.handler(), observer.startDone());
    QTRY_VERIFY_WITH_TIMEOUT(observer.startedWell(), 10000);
    QCOMPARE(micSource(engine), QStringLiteral("usbmic"));
    QTest::qWait(1000);

    const double unplugged = observer.seconds();
    QVERIFY(sandbox().unloadModuleIndex(m_usbModule));
    m_usbModule = -1;
    QTRY_COMPARE_WITH_TIMEOUT(observer.times(Kind::MicEngineRestarted).size(), 1, 2000);
    QVERIFY(observer.times(Kind::MicEngineRestarted).first() - unplugged < 2.0);
    QCOMPARE(micSource(engine), QStringLiteral("virtmic"));
    QVERIFY(
        !observer.logged(QStringLiteral("⚠️ Could not set input device (status: ")).isEmpty());
    QVERIFY(!observer.logged(QStringLiteral("✅ Mic engine restarted after config change (#1)"))
                 .isEmpty());

    // The recording goes on, from the default microphone.
    const std::int64_t atFallback = frames(engine);
    QTest::qWait(1500);
    QVERIFY(frames(engine) > atFallback + 48000);
    stopEngine(engine);
    const WavContents w = readWavFile(wav);
    QVERIFY(medianToneAmplitude(tail(w, 1.0), 1000) > 0.05);
    // One device went away: one restart, not one per way of hearing about it.
    QCOMPARE(observer.times(Kind::MicEngineRestarted).size(), 1);
}

void TestMicrophoneRecovery::followsTheDefaultSource()
{

    Observer observer;
    AudioEngine engine(quickOptions());
    engine.start({m_env->path(QStringLiteral("follow.wav"))}, observer.handler(),
                 observer.startDone());
    QTRY_VERIFY_WITH_TIMEOUT(observer.startedWell(), 10000);
    QCOMPARE(micSource(engine), QStringLiteral("virtmic"));

    // Recording "the default" means whichever source is the default now.
    QVERIFY(sandbox().setDefaultSource(QStringLiteral("usbmic")));
    QTRY_COMPARE_WITH_TIMEOUT(micSource(engine), QStringLiteral("usbmic"), 2000);
    QCOMPARE(observer.all(Kind::MicEngineRestarted).value(0),
             AudioEngineUpdate::micEngineRestarted(1));
    QCOMPARE(
        read<std::uint32_t>(engine, [](const AudioEngine& e) { return e.selectedInputDeviceID(); }),
        idOf("usbmic"));

    // A microphone chosen by id stays, whatever the default does.
    std::atomic<bool> switched = false;
    engine.selectInputDevice(idOf("virtmic"), [&] { switched = true; });
    QTRY_VERIFY_WITH_TIMEOUT(switched, 5000);
    QCOMPARE(micSource(engine), QStringLiteral("virtmic"));
    QVERIFY(sandbox().setDefaultSource(QStringLiteral("virtmic")));
    QVERIFY(sandbox().setDefaultSource(QStringLiteral("usbmic")));
    QTest::qWait(700);
    QCOMPARE(micSource(engine), QStringLiteral("virtmic"));
    QCOMPARE(observer.all(Kind::MicEngineRestarted).size(), 1);
    stopEngine(engine);
}

void TestMicrophoneRecovery::mutedMicrophoneIsReportedAndRecovers()
{
    QVERIFY(sandbox().setMicrophoneMuted(true));

    // Windows of 1.5 s after a grace of 0.5 s: the application's 5 s and 2 s,
    // scaled; resets at about 1.5 and 3 s, the report at about 4.5 s.
    Observer observer;
    const AudioEngine::Options options = quickOptions();
    const double window = options.health.silenceWindowSeconds;
    const double tick = static_cast<double>(options.health.watchdogPeriod.count()) / 1000.0;
    AudioEngine engine(options);
    const double started = observer.seconds();
    engine.start({m_env->path(QStringLiteral("muted.wav"))}, observer.handler(),
                 observer.startDone());
    QTRY_VERIFY_WITH_TIMEOUT(observer.startedWell(), 10000);
    QTRY_COMPARE_WITH_TIMEOUT(observer.times(Kind::MicSilent, true).size(), 1, 10000);

    const auto resets = observer.logged(QStringLiteral("🔄 Mic silence recovery attempt #"));
    QCOMPARE(resets.size(), 2);
    const double reported = observer.times(Kind::MicSilent, true).first();
    const auto near = [tick](double at, double expected) {
        return at >= expected - 0.1 && at <= expected + tick + 0.3;
    };
    QVERIFY2(near(resets[0] - started, window), qPrintable(QString::number(resets[0] - started)));
    QVERIFY2(near(resets[1] - started, 2 * window),
             qPrintable(QString::number(resets[1] - started)));
    QVERIFY2(near(reported - started, 3 * window), qPrintable(QString::number(reported - started)));
    QCOMPARE(*observer.all(Kind::MicSilent).first().text, MicrophoneHealth::silenceMessage());
    // The microphone itself never stopped delivering: no watchdog restarts.
    QVERIFY(observer.all(Kind::MicEngineRestarted).isEmpty());

    QVERIFY(sandbox().setMicrophoneMuted(false));
    QTRY_COMPARE_WITH_TIMEOUT(observer.times(Kind::MicSilent, false).size(), 1,
                              int((2 * window + tick) * 1000) + 500);
    QVERIFY(!observer.logged(QStringLiteral("✅ Mic recovered: peak ")).isEmpty());
    stopEngine(engine);
}

void TestMicrophoneRecovery::stallsEndInTheFatalReport_data()
{
    QTest::addColumn<int>("configChanges");
    QTest::newRow("six stalls") << 0;
    QTest::newRow("two default changes, then four stalls") << 2;
}

void TestMicrophoneRecovery::stallsEndInTheFatalReport()
{
    QFETCH(int, configChanges);

    Observer observer;
    AudioEngine engine(quickOptions());
    const QString wav = m_env->path(QStringLiteral("stall.wav"));
    engine.start({wav}, observer.handler(), observer.startDone());
    QTRY_VERIFY_WITH_TIMEOUT(observer.startedWell(), 10000);
    for (int i = 0; i < configChanges; ++i) {
        QVERIFY(sandbox().setDefaultSource(i % 2 == 0 ? QStringLiteral("usbmic")
                                                      : QStringLiteral("virtmic")));
        QTRY_COMPARE_WITH_TIMEOUT(observer.times(Kind::MicEngineRestarted).size(), i + 1, 2000);
    }
    QCOMPARE(micSource(engine), QStringLiteral("virtmic"));

    // A suspended source keeps its stream and delivers nothing: each restart
    // lands on the same stalled source.
    QVERIFY(sandbox().suspendSource(QStringLiteral("virtmic"), true));
    QTRY_COMPARE_WITH_TIMEOUT(observer.times(Kind::FatalError).size(), 1, 8000);
    QCOMPARE(observer.all(Kind::MicEngineRestarted).size(), 5);
    QCOMPARE(observer.all(Kind::MicEngineRestarted).last(),
             AudioEngineUpdate::micEngineRestarted(5));
    QCOMPARE(observer.logged(QStringLiteral("🚨 Mic watchdog: no new buffers in 0.5s")).size(),
             6 - configChanges);
    QCOMPARE(observer.all(Kind::FatalError).first(),
             AudioEngineUpdate::fatalError(
                 QStringLiteral("Microphone engine could not be restarted after 5 attempts")));
    // While it stays stalled, the report is repeated.
    QTRY_VERIFY_WITH_TIMEOUT(observer.times(Kind::FatalError).size() >= 2, 2000);
    QCOMPARE(observer.all(Kind::MicEngineRestarted).size(), 5);

    // The engine still runs: once the source delivers again, so does the file.
    QVERIFY(sandbox().suspendSource(QStringLiteral("virtmic"), false));
    const std::int64_t before = frames(engine);
    QTRY_VERIFY_WITH_TIMEOUT(frames(engine) > before + 24000, 5000);
    stopEngine(engine);
}

void TestMicrophoneRecovery::recordingSurvivesTheSoundServer()
{

    Observer observer;
    AudioEngine engine(quickOptions());
    const QString wav = m_env->path(QStringLiteral("server.wav"));
    engine.start({wav}, observer.handler(), observer.startDone());
    QTRY_VERIFY_WITH_TIMEOUT(observer.startedWell(), 10000);
    QTRY_COMPARE_WITH_TIMEOUT(observer.times(Kind::SystemAudioActive, true).size(), 1, 5000);
    QTest::qWait(1000);

    sandbox().killDaemon();
    QTRY_COMPARE_WITH_TIMEOUT(observer.times(Kind::SoundServer, false).size(), 1, 2000);
    // Away: the recording is still on, and nothing is written.
    const std::int64_t atLoss = frames(engine);
    QTest::qWait(1500);
    QCOMPARE(frames(engine), atLoss);
    QVERIFY(read<bool>(engine, [](const AudioEngine& e) { return e.isRunning(); }));
    QVERIFY(read<bool>(engine, [](const AudioEngine& e) { return e.soundServerAway(); }));
    QVERIFY(observer.all(Kind::FatalError).isEmpty());

    QVERIFY2(sandbox().restartDaemon(), qPrintable(sandbox().errorString()));
    const double answered = observer.seconds();
    m_usbModule = -1; // the new server has only its first microphone
    QVERIFY(play());
    QTRY_COMPARE_WITH_TIMEOUT(observer.times(Kind::SoundServer, true).size(), 1, 3000);
    QVERIFY2(
        observer.times(Kind::SoundServer, true).first() - answered < 2.0,
        qPrintable(QString::number(observer.times(Kind::SoundServer, true).first() - answered)));
    // Both streams are back: the file grows, system audio reports active again.
    QTRY_COMPARE_WITH_TIMEOUT(observer.times(Kind::SystemAudioActive, true).size(), 2, 5000);
    QTRY_VERIFY_WITH_TIMEOUT(frames(engine) > atLoss + 48000, 5000);
    QTest::qWait(1500);
    stopEngine(engine);

    // The same file holds both parts; after the gap, both tones are in the mix.
    const WavContents w = readWavFile(wav);
    QVERIFY(w.ok);
    QVERIFY(w.samples.size() > size_t(atLoss) + 48000);
    const auto end = tail(w, 1.0);
    QVERIFY(medianToneAmplitude(end, 1000) > 0.05);
    QVERIFY(medianToneAmplitude(end, 440) > 0.03);
    QVERIFY(observer.all(Kind::FatalError).isEmpty());
}

QTEST_GUILESS_MAIN(TestMicrophoneRecovery)
#include "tst_microphonerecovery.moc"
