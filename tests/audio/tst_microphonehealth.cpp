// The microphone's health checks on a clock of the test's own: the watchdog
// with its reasons, its patience with a microphone that has not delivered
// yet, its limit of five stall restarts and the repeated fatal report, which
// configuration-change restarts do not use up; the silence
// windows after the grace period, two hard resets, the report and the
// recovery. The application's timing, without waiting for it.

#include "audio/microphonehealth.h"
#include "core/log.h"

#include <QTest>

using namespace sorv;
using Kind = AudioEngineUpdate::Kind;

namespace {

// A microphone whose behaviour the test sets: delivering buffers or not,
// how loud, whether a restart works. A restart takes 20 ms of the clock, as
// a real one takes some time.
class ScriptedMicrophone : public MicrophoneHealth::Microphone {
public:
    explicit ScriptedMicrophone(double& clock) : now(clock) {}
    double& now;
    std::int64_t buffers = 0;
    bool engine = true;
    bool running = true;
    float peak = 0.0f;
    std::optional<QString> restartError;
    int restarts = 0;

    std::int64_t bufferCount() const override { return buffers; }
    bool hasEngine() const override { return engine; }
    bool engineRunning() const override { return running; }
    float windowPeak() const override { return peak; }
    void resetWindowPeak() override { peak = 0.0f; }
    std::optional<QString> restart() override
    {
        ++restarts;
        now += 0.02;
        if (restartError)
            return restartError;
        engine = running = true;
        peak = 0.0f;
        return std::nullopt;
    }
};

struct Rig {
    double now = 0.0;
    ScriptedMicrophone mic{now};
    MicrophoneHealth health;
    std::vector<std::pair<double, AudioEngineUpdate>> reports;
    QStringList log;
    // The level the microphone hears during the next ticks.
    float level = 0.0f;
    bool delivering = true;

    explicit Rig(MicrophoneHealth::Timing timing = {})
        : health(
              mic, [this] { return now; }, timing)
    {
        setLogSink([this](const QString& l) { log << l; });
        health.setReporter([this](const AudioEngineUpdate& u) { reports.emplace_back(now, u); });
        health.start();
    }
    ~Rig() { setLogSink({}); }

    // One second of audio (about twelve buffers), then the watchdog's tick.
    // The watchdog's ticks come every second, whatever restarts took.
    double tickAt = 0.0;
    void second()
    {
        tickAt += 1.0;
        now = tickAt;
        if (delivering) {
            mic.buffers += 12;
            mic.peak = std::max(mic.peak, level);
        }
        health.tick();
    }
    void seconds(int n)
    {
        for (int i = 0; i < n; ++i)
            second();
    }
    QList<double> reportTimes(Kind kind) const
    {
        QList<double> out;
        for (const auto& [t, u] : reports)
            if (u.kind == kind)
                out << t;
        return out;
    }
    int logged(const QString& prefix) const
    {
        int n = 0;
        for (const QString& l : log)
            n += l.startsWith(prefix) ? 1 : 0;
        return n;
    }
};

} // namespace

class TestMicrophoneHealth : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void silentFromTheStart();
    void lateTicksDoNotShiftTheWindows();
    void soundInARecoveringWindowKeepsTheCount();
    void graceAfterDeviceSwitch();
    void watchdogReasons_data();
    void watchdogReasons();
    void slowFirstBufferIsNoStall_data();
    void slowFirstBufferIsNoStall();
    void stallsEndInRepeatedFatalReport_data();
    void stallsEndInRepeatedFatalReport();
    void failedRestartIsTriedAgain();
};

void TestMicrophoneHealth::silentFromTheStart()
{
    Rig rig;
    // Every second a hard reset might happen; the resets are the restarts.
    QList<double> resets;
    for (int s = 1; s <= 16; ++s) {
        const int before = rig.mic.restarts;
        rig.second();
        if (rig.mic.restarts != before)
            resets << rig.tickAt;
    }
    QCOMPARE(resets, (QList<double>{5.0, 10.0}));
    QCOMPARE(rig.reportTimes(Kind::MicSilent), QList<double>{15.0});
    const AudioEngineUpdate& report = rig.reports.back().second;
    QCOMPARE(report.flag, true);
    QCOMPARE(*report.text, MicrophoneHealth::silenceMessage());
    // Silence restarts are not the watchdog's: no restart report, no count.
    QVERIFY(rig.reportTimes(Kind::MicEngineRestarted).isEmpty());
    QCOMPARE(rig.health.restartCount(), 0);

    // Reported once; the recording goes on.
    rig.seconds(9);
    QCOMPARE(rig.reportTimes(Kind::MicSilent).size(), 1);

    // Sound comes back: one loud window recovers.
    rig.level = 0.01f;
    rig.seconds(5);
    QCOMPARE(rig.reportTimes(Kind::MicSilent).size(), 2);
    QCOMPARE(rig.reports.back().second, AudioEngineUpdate::micSilent(false, std::nullopt));
    QVERIFY(!rig.health.isMicSilent());

    // A later silence starts again with two resets before the report.
    rig.level = 0.001f; // below 0.002
    const int restartsBefore = rig.mic.restarts;
    rig.seconds(10);
    QCOMPARE(rig.mic.restarts - restartsBefore, 2);
    QCOMPARE(rig.reportTimes(Kind::MicSilent).size(), 2);
    rig.seconds(5);
    QCOMPARE(rig.reportTimes(Kind::MicSilent).size(), 3);
}

void TestMicrophoneHealth::lateTicksDoNotShiftTheWindows()
{
    // A timer never fires early, but late by varying amounts.
    Rig rig;
    QList<double> resets;
    for (int s = 1; s <= 15; ++s) {
        rig.now = s + (s % 5 == 0 ? 0.004 : 0.0) - (s == 10 ? 0.003 : 0.0);
        rig.mic.buffers += 12;
        const int before = rig.mic.restarts;
        rig.health.tick();
        if (rig.mic.restarts != before)
            resets << double(s);
    }
    QCOMPARE(resets, (QList<double>{5.0, 10.0}));
    QCOMPARE(rig.reportTimes(Kind::MicSilent).size(), 1);
}

void TestMicrophoneHealth::soundInARecoveringWindowKeepsTheCount()
{
    Rig rig;
    rig.seconds(5); // silent window: reset #1
    QCOMPARE(rig.health.silenceRecoveryAttempts(), 1);
    rig.level = 0.5f;
    rig.seconds(5); // sound: nothing to recover from, the count stays
    QCOMPARE(rig.health.silenceRecoveryAttempts(), 1);
    QVERIFY(rig.reports.empty());
    rig.level = 0.0f;
    rig.seconds(5); // reset #2
    QCOMPARE(rig.health.silenceRecoveryAttempts(), 2);
    QVERIFY(rig.reports.empty());
    rig.seconds(5); // reported
    QCOMPARE(rig.reportTimes(Kind::MicSilent), QList<double>{20.0});
}

void TestMicrophoneHealth::graceAfterDeviceSwitch()
{
    Rig rig;
    rig.seconds(5); // reset #1 at 5 s
    rig.tickAt += 0.5;
    rig.now = rig.tickAt;
    rig.health.deviceSwitched(); // at 5.5 s: new grace, new window, count cleared
    QCOMPARE(rig.health.silenceRecoveryAttempts(), 0);
    const int restarts = rig.mic.restarts;
    rig.seconds(4); // up to 9.5 s: the window opened at 5.5 s is still open
    QCOMPARE(rig.mic.restarts, restarts);
    rig.second(); // 10.5 s: five seconds of silence on the new device
    QCOMPARE(rig.mic.restarts, restarts + 1);
}

void TestMicrophoneHealth::watchdogReasons_data()
{
    QTest::addColumn<bool>("engine");
    QTest::addColumn<bool>("running");
    QTest::addColumn<bool>("delivering");
    QTest::addColumn<QString>("reason"); // empty: healthy
    QTest::newRow("healthy") << true << true << true << QString();
    QTest::newRow("stalled") << true << true << false << QStringLiteral("no new buffers in 1s");
    QTest::newRow("stopped, last buffers still counted")
        << true << false << true << QStringLiteral("engine not running");
    QTest::newRow("no engine") << false << false << false << QStringLiteral("engine not running");
}

void TestMicrophoneHealth::watchdogReasons()
{
    QFETCH(bool, engine);
    QFETCH(bool, running);
    QFETCH(bool, delivering);
    QFETCH(QString, reason);
    Rig rig;
    rig.level = 0.5f;
    rig.second(); // it has delivered: no longer a microphone just set up
    rig.mic.engine = engine;
    rig.mic.running = running;
    rig.delivering = delivering;
    rig.second();
    if (reason.isEmpty()) {
        QCOMPARE(rig.mic.restarts, 0);
        QVERIFY(rig.log.isEmpty());
        return;
    }
    QCOMPARE(rig.log.value(0),
             QStringLiteral("🚨 Mic watchdog: %1, restarting mic engine").arg(reason));
    QCOMPARE(rig.log.value(1), QStringLiteral("✅ Mic watchdog: engine restarted (#1)"));
    QCOMPARE(rig.reports.size(), size_t(1));
    QCOMPARE(rig.reports.front().second, AudioEngineUpdate::micEngineRestarted(1));
}

void TestMicrophoneHealth::slowFirstBufferIsNoStall_data()
{
    QTest::addColumn<double>("firstBufferAt"); // 0: never
    QTest::addColumn<double>("restartAt");     // 0: none
    QTest::newRow("Bluetooth headset, 2.5 s") << 2.5 << 0.0;
    QTest::newRow("nothing at all") << 0.0 << 3.0;
}

void TestMicrophoneHealth::slowFirstBufferIsNoStall()
{
    QFETCH(double, firstBufferAt);
    QFETCH(double, restartAt);
    // After a start, and after a restart (a switch of device) the same way.
    for (const bool afterSwitch : {false, true}) {
        Rig rig;
        rig.level = 0.5f;
        if (afterSwitch) {
            rig.seconds(4);
            rig.health.deviceSwitched();
        }
        const double from = rig.tickAt;
        double restartedAt = 0.0;
        for (int s = 1; s <= 5; ++s) {
            rig.delivering = firstBufferAt > 0 && s >= firstBufferAt;
            rig.second();
            if (restartedAt == 0.0 && rig.mic.restarts > 0)
                restartedAt = rig.tickAt - from;
        }
        QCOMPARE(restartedAt, restartAt);
    }
}

void TestMicrophoneHealth::stallsEndInRepeatedFatalReport_data()
{
    QTest::addColumn<int>("configChanges");
    QTest::newRow("six stalls") << 0;
    QTest::newRow("six configuration changes, then still six stalls") << 6;
}

void TestMicrophoneHealth::stallsEndInRepeatedFatalReport()
{
    QFETCH(int, configChanges);
    Rig rig;
    rig.level = 0.5f;
    rig.seconds(2);
    for (int i = 0; i < configChanges; ++i) {
        rig.health.configurationChanged();
        rig.second();
    }
    QCOMPARE(rig.logged(QStringLiteral("✅ Mic engine restarted after config change (#")),
             configChanges);

    // The first stall is seen at once; each restarted microphone then has
    // its time to deliver.
    rig.delivering = false;
    rig.second();
    for (int i = 1; i < 5; ++i)
        rig.seconds(3);
    QCOMPARE(rig.reportTimes(Kind::MicEngineRestarted).size(), configChanges + 5);
    QCOMPARE(rig.health.stallRestartCount(), 5);
    QVERIFY(rig.reportTimes(Kind::FatalError).isEmpty());

    rig.seconds(3); // the sixth restart is one too many
    QCOMPARE(rig.reportTimes(Kind::FatalError).size(), 1);
    QCOMPARE(rig.reports.back().second,
             AudioEngineUpdate::fatalError(
                 QStringLiteral("Microphone engine could not be restarted after 5 attempts")));
    QVERIFY(rig.log.contains(QStringLiteral("❌ Mic watchdog: too many restarts (6), giving up")));
    const int restarts = rig.mic.restarts;

    // Still stalled: the report comes again, and nothing more is restarted.
    rig.seconds(2);
    QCOMPARE(rig.reportTimes(Kind::FatalError).size(), 3);
    QVERIFY(rig.log.contains(QStringLiteral("❌ Mic watchdog: too many restarts (8), giving up")));
    QCOMPARE(rig.mic.restarts, restarts);

    // Buffers again: the fatal report stops.
    rig.delivering = true;
    rig.seconds(2);
    QCOMPARE(rig.reportTimes(Kind::FatalError).size(), 3);
}

void TestMicrophoneHealth::failedRestartIsTriedAgain()
{
    Rig rig;
    rig.second();
    rig.delivering = false;
    rig.mic.restartError = QStringLiteral("No microphone available");
    rig.second();
    QVERIFY(rig.log.contains(
        QStringLiteral("❌ Mic watchdog: restart failed: No microphone available")));
    QVERIFY(rig.reports.empty());
    rig.mic.restartError.reset();
    rig.second();
    QCOMPARE(rig.reports.size(), size_t(1));
    // The failed attempt counted toward the limit.
    QCOMPARE(rig.reports.front().second, AudioEngineUpdate::micEngineRestarted(2));

    // A configuration change that cannot restart only says so.
    Rig other;
    other.mic.restartError = QStringLiteral("No microphone available");
    other.health.configurationChanged();
    QVERIFY(other.log.contains(
        QStringLiteral("❌ Failed to restart mic engine: No microphone available")));
    QCOMPARE(other.health.restartCount(), 0);
}

QTEST_GUILESS_MAIN(TestMicrophoneHealth)
#include "tst_microphonehealth.moc"
