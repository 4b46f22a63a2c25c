// The engine's policies against a sound server in the test's hands (the
// fake backend) on a clock of the test's own: what it records when pieces
// are missing, the system-audio retries, the microphone's device changes and
// health, the server going away, and when buffers were captured. The real
// daemon acts the same parts out in tst_audiocapture; a recording's length is
// tst_mixer's and tst_record_cli's.

#include "audio/enginedriver.h"
#include "audio/fakecapturebackend.h"
#include "support/isolatedenvironment.h"
#include "support/toneprobe.h"

#include <QTest>

#include <cmath>

using namespace sorv;
using namespace sorv::test;
using Kind = AudioEngineUpdate::Kind;
using namespace std::chrono_literals;

namespace {

std::uint32_t idOf(const char* source)
{
    return inputDeviceIdForSourceName(QString::fromLatin1(source));
}

// A fake server with the usual machine — "virtmic" (VirtualMic, 1 kHz, the
// default), "usbmic" (Headset, 700 Hz), the output "speakers" (440 Hz) — in
// an environment of its own.
struct Machine {
    IsolatedEnvironment env;
    std::shared_ptr<FakeCaptureBackend> fake = FakeCaptureBackend::create();

    explicit Machine(bool devices)
    {
        if (!devices)
            return;
        fake->addMicrophone(QStringLiteral("virtmic"), QStringLiteral("VirtualMic"), 1000);
        fake->addMicrophone(QStringLiteral("usbmic"), QStringLiteral("Headset"), 700);
        fake->addOutput(QStringLiteral("speakers"), QStringLiteral("Speakers"), 440);
    }
};

// An engine on it, its reports stamped with seconds since the fake clock's
// start. Audio moves one chunk at a time, each handled before the next.
struct Rig : Machine, EngineDriver {
    std::atomic<int> listed = 0;

    explicit Rig(bool devices = true) : Machine(devices), EngineDriver(fake->engineOptions())
    {
        clock = [f = fake] { return f->clock().seconds() - 100.0; }; // it starts at 100 s
        engine->setInputDevicesChangedHandler([this] { ++listed; });
    }
    QString wav() const { return env.path(QStringLiteral("rec.wav")); }
    // `meanwhile` runs once the start is asked for, before it is done.
    bool start(std::uint32_t device = 0, std::int64_t frameLimit = 0,
               const std::function<void()>& meanwhile = {})
    {
        // As in the application, the devices are known before a recording.
        (void)QTest::qWaitFor(
            [this] { return listed > 0 || !engine->listInputDevices().isEmpty(); });
        begin(wav(), device, frameLimit);
        if (meanwhile)
            meanwhile();
        settle();
        return startedWithoutError();
    }
    // What the engine was asked to do has been done.
    void settle()
    {
        engine->inspect([](const AudioEngine&) {});
    }
    void run(std::chrono::milliseconds audio)
    {
        const int chunks = static_cast<int>(std::ceil(audio.count() * 48.0 / 4096));
        for (int i = 0; i < chunks; ++i) {
            fake->pump();
            settle();
        }
    }
    QList<bool> systemAudio() // the systemAudioActive reports in order
    {
        QList<bool> out;
        for (const auto& u : all(Kind::SystemAudioActive))
            out << u.flag;
        return out;
    }
    QStringList outputs() // the systemAudioDevice reports in order
    {
        QStringList out;
        for (const auto& u : all(Kind::SystemAudioDevice))
            out << u.text.value_or(QString());
        return out;
    }
};

} // namespace

class TestAudioEngine : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void missingPieces_data();
    void missingPieces();
    void systemAudioAttempts_data();
    void systemAudioAttempts();
    void systemAudioRetriedAfterGivingUp();
    void deviceListIsKnownBeforeRecordingAndKeptCurrent();
    void switchingPutsTheNewMicrophoneInTheFile();
    void followsTheDefaultSource();
    void unpluggedMicrophoneFallsBackToTheDefault();
    void silentMicrophoneIsReportedAndRecovers();
    void stallsEndInTheFatalReport();
    void slowMicrophonesAndDeviceChangesAreNoStalls();
    void recordingWaitsForTheSoundServer();
    void systemAudioFollowsTheOutput();
    void systemAudioComesBack();
    void buffersAreStampedWhenCaptured_data();
    void buffersAreStampedWhenCaptured();
};

void TestAudioEngine::missingPieces_data()
{
    QTest::addColumn<QString>("machine");
    QTest::addColumn<bool>("starts");
    QTest::newRow("no output: microphone only") << "no output" << true;
    QTest::newRow("no microphone, only a monitor") << "no microphone" << false;
    QTest::newRow("no sound server") << "no server" << false;
}

void TestAudioEngine::missingPieces()
{
    QFETCH(QString, machine);
    QFETCH(bool, starts);
    Rig rig(false);
    if (machine != QLatin1String("no microphone"))
        rig.fake->addMicrophone(QStringLiteral("virtmic"), QStringLiteral("VirtualMic"));
    if (machine != QLatin1String("no output"))
        rig.fake->addOutput(QStringLiteral("speakers"), QStringLiteral("Speakers"));
    rig.fake->setRunning(machine != QLatin1String("no server"));

    // Nothing refused us: there is just nothing to record.
    std::atomic<int> access = -1;
    rig.engine->requestMicrophoneAccess([&](bool granted) { access = granted ? 1 : 0; });
    QTRY_COMPARE(access.load(), 1);

    QCOMPARE(rig.start(), starts);
    if (!starts) {
        QCOMPARE(rig.startResult->value().description(), QStringLiteral("No microphone available"));
        QVERIFY(!QFileInfo::exists(rig.wav()));
        return;
    }
    rig.run(1500ms);
    QCOMPARE(rig.systemAudio(), QList<bool>{false});
    QCOMPARE(rig.all(Kind::SystemAudioError).value(0).text,
             QStringLiteral("No sound output device to capture system audio from"));
    rig.stop();
    const WavContents w = readWavFile(rig.wav());
    QVERIFY(w.seconds() > 1.0);
    QVERIFY(medianToneAmplitude(tail(w, 1.0), 1000) > 0.05);
}

void TestAudioEngine::systemAudioAttempts_data()
{
    QTest::addColumn<int>("refusals");
    QTest::addColumn<bool>("accessDenied");
    QTest::addColumn<bool>("active");
    QTest::addColumn<int>("attempts");
    // Refusals wait 1.5 s, then 3.0 s; the third refusal is final.
    QTest::newRow("refused twice, then works") << 2 << true << true << 3;
    QTest::newRow("refused every time") << 3 << true << false << 3;
    QTest::newRow("other error is not retried") << 1 << false << false << 1;
}

void TestAudioEngine::systemAudioAttempts()
{
    QFETCH(int, refusals);
    QFETCH(bool, accessDenied);
    QFETCH(bool, active);
    QFETCH(int, attempts);
    Rig rig;
    rig.fake->refuseStreams(QStringLiteral("speakers.monitor"), refusals, accessDenied,
                            accessDenied ? QStringLiteral("Access denied")
                                         : QStringLiteral("boom"));
    QVERIFY(rig.start());
    rig.run(1400ms);
    QCOMPARE(rig.logged(QStringLiteral("🔍 System audio attempt")), 1);
    rig.run(6000ms);
    QCOMPARE(rig.logged(QStringLiteral("🔍 System audio attempt")), attempts);
    QCOMPARE(rig.systemAudio(), QList<bool>{active});
    if (accessDenied) {
        QCOMPARE(rig.logged(QStringLiteral("🔄 Access error detected, retrying in 1.5s...")), 1);
        QCOMPARE(rig.logged(QStringLiteral("🔄 Access error detected, retrying in 3.0s...")), 1);
    }
    if (active)
        return;
    const QString error = *rig.all(Kind::SystemAudioError).value(0).text;
    if (accessDenied) // the advice is about the sound server, not about screen sharing
        QVERIFY(error.startsWith(
            QStringLiteral("The sound server refused to let Sorvelandrix Recorder record")));
    else
        QCOMPARE(error, QStringLiteral("boom"));
}

void TestAudioEngine::systemAudioRetriedAfterGivingUp()
{
    Rig rig;
    rig.fake->refuseStreams(QStringLiteral("speakers.monitor"), 1, false,
                            QStringLiteral("not now"));
    rig.engine->retrySystemAudio(); // not recording: nothing to retry
    QVERIFY(rig.start());
    rig.run(500ms);
    QCOMPARE(rig.systemAudio(), QList<bool>{false});

    // The user presses Retry.
    rig.engine->retrySystemAudio();
    rig.settle();
    QCOMPARE(rig.systemAudio(), (QList<bool>{false, true}));
    // Running now: another Retry starts nothing.
    rig.engine->retrySystemAudio();
    rig.settle();
    QCOMPARE(rig.logged(QStringLiteral("🔍 System audio attempt")), 2);
    rig.stop();

    // Pressed as the next recording starts, before its system audio is
    // under way (as the device monitor's news of an output can come): one
    // stream, started once.
    QVERIFY(rig.start(0, 0, [&rig] { rig.engine->retrySystemAudio(); }));
    rig.run(500ms);
    QCOMPARE(rig.fake->streamsOpened(QStringLiteral("speakers.monitor")), 2);
    QCOMPARE(rig.systemAudio(), (QList<bool>{false, true, true}));
}

void TestAudioEngine::deviceListIsKnownBeforeRecordingAndKeptCurrent()
{
    Rig rig;
    std::atomic<int> changes = 0;
    rig.engine->setInputDevicesChangedHandler([&] { ++changes; });
    const auto names = [&rig] {
        QStringList out;
        for (const InputDevice& d : rig.engine->listInputDevices())
            out << d.name + (d.isDefault ? QStringLiteral("*") : QString());
        return out;
    };
    // Nothing recorded yet: microphones only, never monitors; the default first.
    QTRY_COMPARE(names(), (QStringList{QStringLiteral("VirtualMic*"), QStringLiteral("Headset")}));
    QCOMPARE(rig.engine->listInputDevices().first().id, idOf("virtmic"));
    const int changesBefore = changes;

    // Plugged in, made the default, unplugged: the list follows each time.
    rig.fake->addMicrophone(QStringLiteral("aux"), QStringLiteral("Aux"));
    rig.fake->setDefaultSource(QStringLiteral("aux"));
    QTRY_COMPARE(names(), (QStringList{QStringLiteral("Aux*"), QStringLiteral("Headset"),
                                       QStringLiteral("VirtualMic")}));
    rig.fake->remove(QStringLiteral("usbmic"));
    QTRY_COMPARE(names(), (QStringList{QStringLiteral("Aux*"), QStringLiteral("VirtualMic")}));
    QVERIFY(changes >= changesBefore + 2);
}

void TestAudioEngine::switchingPutsTheNewMicrophoneInTheFile()
{
    Rig rig;
    QVERIFY(rig.start());
    rig.run(1500ms);
    // The default microphone's id is remembered once it runs.
    QCOMPARE(
        rig.read<std::uint32_t>([](const AudioEngine& e) { return e.selectedInputDeviceID(); }),
        idOf("virtmic"));
    const std::int64_t before = rig.frames();

    rig.engine->selectInputDevice(idOf("usbmic"), {});
    rig.settle();
    QCOMPARE(rig.micSource(), QStringLiteral("usbmic"));
    rig.run(1500ms);
    // An id the server does not know falls back to the default.
    rig.engine->selectInputDevice(0xdeadbeef, {});
    rig.settle();
    QCOMPARE(rig.micSource(), QStringLiteral("virtmic"));
    rig.stop();

    // Only the microphone started again: system audio was never restarted,
    // and a switch is no restart of a failing microphone.
    QCOMPARE(rig.logged(QStringLiteral("🔍 System audio attempt")), 1);
    QVERIFY(rig.all(Kind::MicEngineRestarted).isEmpty());
    QCOMPARE(rig.logged(QStringLiteral("🎤 Switched input device to ID ")), 2);
    QCOMPARE(
        rig.logged(QStringLiteral("⚠️ Could not set input device (status: No such entity)")),
        1);
    const WavContents w = readWavFile(rig.wav());
    const auto first = std::span<const float>(w.samples).subspan(0, size_t(before));
    QVERIFY(medianToneAmplitude(first, 1000) > 0.05);
    QVERIFY(medianToneAmplitude(first, 700) < 0.01);
    const auto second = std::span<const float>(w.samples).subspan(size_t(before) + 4096, 48000);
    QVERIFY(medianToneAmplitude(second, 700) > 0.05);
    QVERIFY(medianToneAmplitude(second, 1000) < 0.01);
}

void TestAudioEngine::followsTheDefaultSource()
{
    Rig rig;
    QVERIFY(rig.start());
    // Recording "the default" means whichever source is the default now.
    rig.fake->setDefaultSource(QStringLiteral("usbmic"));
    QTRY_COMPARE(rig.micSource(), QStringLiteral("usbmic"));
    QCOMPARE(
        rig.read<std::uint32_t>([](const AudioEngine& e) { return e.selectedInputDeviceID(); }),
        idOf("usbmic"));
    QCOMPARE(rig.all(Kind::MicEngineRestarted).size(), 1);

    // A microphone chosen by id stays, whatever the default does.
    rig.engine->selectInputDevice(idOf("virtmic"), {});
    rig.fake->setDefaultSource(QStringLiteral("virtmic"));
    rig.fake->setDefaultSource(QStringLiteral("usbmic"));
    rig.fake->addMicrophone(QStringLiteral("aux"), QStringLiteral("Aux"));
    QTRY_VERIFY(rig.engine->listInputDevices().size() == 3);
    rig.settle();
    QCOMPARE(rig.micSource(), QStringLiteral("virtmic"));
    QCOMPARE(rig.all(Kind::MicEngineRestarted).size(), 1);
}

void TestAudioEngine::unpluggedMicrophoneFallsBackToTheDefault()
{
    Rig rig;
    QVERIFY(rig.start(idOf("usbmic")));
    QCOMPARE(rig.micSource(), QStringLiteral("usbmic"));
    rig.run(1000ms);

    rig.fake->remove(QStringLiteral("usbmic"));
    rig.settle();
    QCOMPARE(rig.micSource(), QStringLiteral("virtmic"));
    QCOMPARE(rig.logged(QStringLiteral("✅ Mic engine restarted after config change (#1)")), 1);
    QTRY_COMPARE(rig.engine->listInputDevices().size(), 1);
    rig.run(1000ms);

    // Plugged in again: the chosen microphone is taken back.
    rig.fake->addMicrophone(QStringLiteral("usbmic"), QStringLiteral("Headset"), 700);
    QTRY_COMPARE(rig.micSource(), QStringLiteral("usbmic"));
    rig.run(1000ms);
    // One restart for each change, not one per way of hearing about it.
    QCOMPARE(rig.all(Kind::MicEngineRestarted).size(), 2);
    QVERIFY(rig.all(Kind::FatalError).isEmpty());
}

void TestAudioEngine::silentMicrophoneIsReportedAndRecovers()
{
    Rig rig;
    rig.fake->setLevel(QStringLiteral("virtmic"), 0.0f);
    QVERIFY(rig.start());
    rig.run(16000ms);
    // Two resets at 5 s and 10 s, the report at 15 s (tst_microphonehealth
    // has the details), with the engine's window peak.
    QCOMPARE(rig.logged(QStringLiteral("🔄 Mic silence recovery attempt #")), 2);
    QCOMPARE(rig.all(Kind::MicSilent), QList<AudioEngineUpdate>{AudioEngineUpdate::micSilent(
                                           true, MicrophoneHealth::silenceMessage())});
    QVERIFY(qAbs(rig.times(Kind::MicSilent).value(0) - 15.0) < 1.0);
    // The microphone itself never stopped delivering: no watchdog restarts.
    QVERIFY(rig.all(Kind::MicEngineRestarted).isEmpty());

    rig.fake->setLevel(QStringLiteral("virtmic"), 0.3f);
    rig.run(6000ms);
    QCOMPARE(rig.all(Kind::MicSilent).value(1), AudioEngineUpdate::micSilent(false, std::nullopt));
}

void TestAudioEngine::stallsEndInTheFatalReport()
{
    Rig rig;
    QVERIFY(rig.start());
    rig.run(2000ms);
    // A held source keeps its stream and delivers nothing: each restart
    // lands on the same stalled source.
    rig.fake->setHeld(QStringLiteral("virtmic"), true);
    rig.run(17000ms);
    QCOMPARE(rig.all(Kind::MicEngineRestarted).size(), 5);
    QCOMPARE(rig.all(Kind::MicEngineRestarted).last(), AudioEngineUpdate::micEngineRestarted(5));
    QCOMPARE(rig.all(Kind::FatalError),
             QList<AudioEngineUpdate>{AudioEngineUpdate::fatalError(
                 QStringLiteral("Microphone engine could not be restarted after 5 attempts"))});

    // Given up, the recording is over: no stream records, the file is closed
    // with the two seconds it had and takes nothing more once the source
    // wakes, and the report is not said again.
    QVERIFY(!rig.read<bool>([](const AudioEngine& e) { return e.isRunning(); }));
    QVERIFY(rig.fake->recordedSources().isEmpty());
    const qint64 size = QFileInfo(rig.wav()).size();
    rig.fake->setHeld(QStringLiteral("virtmic"), false);
    rig.run(3000ms);
    QCOMPARE(rig.all(Kind::FatalError).size(), 1);
    QCOMPARE(QFileInfo(rig.wav()).size(), size);
    const WavContents w = readWavFile(rig.wav());
    QVERIFY(w.ok);
    QVERIFY2(w.seconds() > 1.9 && w.seconds() < 2.5, qPrintable(QString::number(w.seconds())));
    // The owner's stop that follows finds nothing left to do.
    rig.stop();
}

void TestAudioEngine::slowMicrophonesAndDeviceChangesAreNoStalls()
{
    Rig rig;
    // A Bluetooth headset: its stream records at once, its first buffer
    // comes 2.5 s later.
    rig.fake->setHeld(QStringLiteral("virtmic"), true);
    QVERIFY(rig.start());
    rig.run(2500ms);
    rig.fake->setHeld(QStringLiteral("virtmic"), false);
    rig.run(1500ms);
    QVERIFY(rig.all(Kind::MicEngineRestarted).isEmpty());

    // Six profile switches (the source re-created each time), one restart
    // each; a stall after them is restarted, not the end of the recording.
    for (int i = 0; i < 6; ++i) {
        rig.fake->recreate(QStringLiteral("virtmic"));
        rig.run(1000ms);
    }
    QCOMPARE(rig.all(Kind::MicEngineRestarted).size(), 6);
    rig.fake->setHeld(QStringLiteral("virtmic"), true);
    rig.run(2000ms);
    QCOMPARE(rig.all(Kind::MicEngineRestarted).size(), 7);
    QVERIFY(rig.all(Kind::FatalError).isEmpty());
}

void TestAudioEngine::recordingWaitsForTheSoundServer()
{
    Rig rig;
    QVERIFY(rig.start());
    rig.run(1000ms);
    QCOMPARE(rig.systemAudio(), QList<bool>{true});

    rig.fake->setRunning(false);
    rig.settle();
    QCOMPARE(rig.all(Kind::SoundServer).value(0), AudioEngineUpdate::soundServer(false));
    // Away: the recording is still on, nothing is written, nothing is fatal.
    const std::int64_t atLoss = rig.frames();
    rig.run(3000ms);
    QCOMPARE(rig.frames(), atLoss);
    QVERIFY(
        rig.read<bool>([](const AudioEngine& e) { return e.isRunning() && e.soundServerAway(); }));

    rig.fake->setRunning(true);
    QTRY_COMPARE(rig.all(Kind::SoundServer).size(), 2);
    rig.run(1000ms);
    QCOMPARE(rig.systemAudio(), (QList<bool>{true, true}));
    QVERIFY(rig.frames() > atLoss + 40000);
    QVERIFY(rig.all(Kind::FatalError).isEmpty());
    QVERIFY(rig.all(Kind::MicEngineRestarted).isEmpty());
}

void TestAudioEngine::systemAudioFollowsTheOutput()
{
    Rig rig;
    rig.fake->addOutput(QStringLiteral("headphones"), QStringLiteral("Headphones"), 550);
    QVERIFY(rig.start());
    rig.run(1000ms);

    // Another default output: the same file, that output's sound.
    rig.fake->setDefaultSink(QStringLiteral("headphones"));
    QTRY_COMPARE(rig.fake->recordedSources().last(), QStringLiteral("headphones.monitor"));
    const auto moved = static_cast<size_t>(rig.frames());
    rig.run(1500ms);
    // The output recorded goes away: on to the one the server plays on now.
    rig.fake->remove(QStringLiteral("headphones"));
    rig.settle();
    const auto back = static_cast<size_t>(rig.frames());
    rig.run(1500ms);
    rig.stop();

    QCOMPARE(rig.outputs(), (QStringList{QStringLiteral("Speakers"), QStringLiteral("Headphones"),
                                         QStringLiteral("Speakers")}));
    QCOMPARE(rig.systemAudio(), QList<bool>{true}); // never lost on the way
    QCOMPARE(rig.logged(QStringLiteral("🔊 System audio follows the output: Speakers → Headphones")),
             1);
    const WavContents w = readWavFile(rig.wav());
    const auto onHeadphones = std::span<const float>(w.samples).subspan(moved + 4096, 48000);
    QVERIFY(medianToneAmplitude(onHeadphones, 550) > 0.03);
    QVERIFY(medianToneAmplitude(onHeadphones, 440) < 0.01);
    const auto onSpeakers = std::span<const float>(w.samples).subspan(back + 4096, 48000);
    QVERIFY(medianToneAmplitude(onSpeakers, 440) > 0.03);
    QVERIFY(medianToneAmplitude(onSpeakers, 550) < 0.01);
}

void TestAudioEngine::systemAudioComesBack()
{
    Rig rig;
    QVERIFY(rig.start());
    rig.run(500ms);
    // The only output goes, and comes back (plugged in again).
    rig.fake->remove(QStringLiteral("speakers"));
    rig.settle();
    QCOMPARE(rig.all(Kind::SystemAudioError).last().text,
             QStringLiteral("System audio capture stopped"));
    rig.fake->addOutput(QStringLiteral("speakers"), QStringLiteral("Speakers"));
    QTRY_COMPARE(rig.systemAudio(), (QList<bool>{true, false, true}));

    // The server restarts and makes its devices a moment after it answers,
    // the microphone first: the recording waits for it, then for an output.
    rig.fake->setRunning(false);
    rig.settle();
    for (const char* device : {"virtmic", "usbmic", "speakers"})
        rig.fake->remove(QString::fromLatin1(device));
    rig.fake->setRunning(true);
    QTRY_COMPARE(
        rig.logged(QStringLiteral("⚠️ The sound server answers but has no microphone")), 1);
    rig.run(3000ms);
    QVERIFY(rig.read<bool>([](const AudioEngine& e) { return e.soundServerAway(); }));
    rig.fake->addMicrophone(QStringLiteral("virtmic"), QStringLiteral("VirtualMic"));
    QTRY_COMPARE(rig.all(Kind::SoundServer).size(), 2);
    QTRY_COMPARE(rig.systemAudio().size(), 4); // no output yet
    rig.fake->addOutput(QStringLiteral("speakers"), QStringLiteral("Speakers"));
    QTRY_COMPARE(rig.systemAudio(), (QList<bool>{true, false, true, false, true}));
    rig.run(1000ms);
    QVERIFY(rig.all(Kind::MicEngineRestarted).isEmpty());
    QVERIFY(rig.all(Kind::FatalError).isEmpty());
}

void TestAudioEngine::buffersAreStampedWhenCaptured_data()
{
    QTest::addColumn<int>("latencyMs");
    QTest::newRow("null sink") << 0;
    QTest::newRow("USB headset") << 50;
    QTest::newRow("Bluetooth headset") << 200;
}

void TestAudioEngine::buffersAreStampedWhenCaptured()
{
    // The video recorder lines the picture up against these stamps: they
    // must say when the sound was captured, whatever the device's latency.
    QFETCH(int, latencyMs);
    Rig rig;
    rig.fake->setLatency(QStringLiteral("virtmic"), std::chrono::milliseconds(latencyMs));
    std::mutex lock;
    std::vector<std::int64_t> stamps;
    rig.engine->setMixedBufferCallback([&](const AudioBuffer& b) {
        std::lock_guard g(lock);
        stamps.push_back(b.hostTimeNs);
    });
    QVERIFY(rig.start());
    const std::int64_t read = rig.fake->clock().nanoseconds(); // the fake's chunks: as read
    rig.run(1000ms);
    std::lock_guard g(lock);
    QVERIFY(stamps.size() >= 10);
    QCOMPARE(stamps.front(), read - std::int64_t(latencyMs) * 1'000'000);
    QCOMPARE(stamps[1] - stamps[0], std::int64_t(4096 * 1'000'000'000LL / 48000));
}

QTEST_GUILESS_MAIN(TestAudioEngine)
#include "tst_audioengine.moc"
