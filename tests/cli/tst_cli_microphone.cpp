// The command line and the microphones, in-process against a fake sound
// server moved by the test: `devices` lists what the recorder's picker
// lists, and `record --device` shows what happens to the microphone as it
// happens (a silent microphone with its name, the recovery, a restart after
// it was unplugged, system audio following the output), as JSON events (the
// text lines come from the same handlers). The engine is the real one with
// the application's timing, on the fake server's clock.

#include "audio/audioengine.h"
#include "audio/fakecapturebackend.h"
#include "cli/clirun.h"
#include "core/paths.h"
#include "support/isolatedenvironment.h"

#include <QDir>
#include <QJsonObject>
#include <QTest>
#include <QTimer>

using namespace sorv;
using namespace sorv::test;

namespace {

using Run = CliRun;

// Runs a command in-process on the fake server, whose sound cards play
// while the command runs; `onOutput` sees standard output as it grows (on
// the main thread), to act on the server mid-recording.
Run runCli(const std::shared_ptr<FakeCaptureBackend>& fake, const QStringList& args,
           const std::function<void(const QString&)>& onOutput = {})
{
    QTimer soundCards;
    QObject::connect(&soundCards, &QTimer::timeout, [&fake] { fake->pump(); });
    soundCards.start(1);
    return test::runCli(
        args,
        [&fake](cli::CommandContext& ctx) {
            ctx.captureBackend = fake;
            ctx.makeRecordingEngine = [fake] {
                return std::make_unique<AudioEngine>(fake->engineOptions());
            };
        },
        onOutput);
}

QStringList recordings()
{
    return QDir(recordingsDirectory()).entryList(QDir::Files);
}

QString headsetId()
{
    return QString::number(inputDeviceIdForSourceName(QStringLiteral("headset")));
}

} // namespace

// "virtmic" (the default) and "headset" (shown as "USB Headset") hear a
// tone; "speakers" plays one.
class TestCliMicrophone : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init();
    void devicesListsTheMicrophones();
    void withoutSoundServer_data();
    void withoutSoundServer();
    void recordReportsTheMicrophoneAsItHappens();
    void recordFollowsTheOutput();

private:
    IsolatedEnvironment m_env;
    std::shared_ptr<FakeCaptureBackend> m_fake;
};

void TestCliMicrophone::init()
{
    m_fake = FakeCaptureBackend::create();
    m_fake->addMicrophone(QStringLiteral("virtmic"), QStringLiteral("VirtualMic"));
    m_fake->addMicrophone(QStringLiteral("headset"), QStringLiteral("USB Headset"), 700);
    m_fake->addOutput(QStringLiteral("speakers"), QStringLiteral("Speakers"));
}

void TestCliMicrophone::devicesListsTheMicrophones()
{
    const Run text = runCli(m_fake, {QStringLiteral("devices")});
    QCOMPARE(text.status, 0);
    const QStringList lines = text.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines.at(0).split(QLatin1Char(' '), Qt::SkipEmptyParts),
             (QStringList{QString::number(inputDeviceIdForSourceName(QStringLiteral("virtmic"))),
                          QStringLiteral("VirtualMic"), QStringLiteral("(default)")}));
    QCOMPARE(lines.at(1).split(QLatin1Char(' '), Qt::SkipEmptyParts),
             (QStringList{headsetId(), QStringLiteral("USB"), QStringLiteral("Headset")}));

    const Run json = runCli(m_fake, {QStringLiteral("--json"), QStringLiteral("devices")});
    QCOMPARE(json.status, 0);
    const auto devices = json.events(QStringLiteral("device"));
    QCOMPARE(devices.size(), 2);
    QCOMPARE(devices.at(1).value(QStringLiteral("id")).toInteger(), headsetId().toLongLong());
    QCOMPARE(devices.at(1).value(QStringLiteral("name")).toString(), QStringLiteral("USB Headset"));
    QCOMPARE(devices.at(1).value(QStringLiteral("isDefault")).toBool(), false);
    QCOMPARE(devices.at(0).value(QStringLiteral("isDefault")).toBool(), true);
}

void TestCliMicrophone::withoutSoundServer_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("error");
    QTest::newRow("devices") << "devices"
                             << "Could not connect to the sound server";
    QTest::newRow("record") << "record"
                            << "No microphone available";
}

void TestCliMicrophone::withoutSoundServer()
{
    QFETCH(QString, command);
    QFETCH(QString, error);
    m_fake->setRunning(false);
    const Run r = runCli(m_fake, {QStringLiteral("--json"), command});
    QCOMPARE(r.status, 1);
    QVERIFY2(r.err.trimmed().startsWith(error), qPrintable(r.err));
    QCOMPARE(r.events(QStringLiteral("error")).size(), 1);
    QVERIFY(recordings().isEmpty());
}

void TestCliMicrophone::recordReportsTheMicrophoneAsItHappens()
{
    m_fake->setLevel(QStringLiteral("headset"), 0.0f);
    // Silent, reported (after two resets, at 15 s); sound again, recovered;
    // unplugged, restarted on the default.
    bool unmuted = false;
    bool unplugged = false;
    const Run r = runCli(m_fake,
                         {QStringLiteral("--json"), QStringLiteral("record"),
                          QStringLiteral("--duration"), QStringLiteral("30"),
                          QStringLiteral("--device"), headsetId(), QStringLiteral("--discard")},
                         [&](const QString& out) {
                             if (!unmuted && out.contains(QStringLiteral("\"silent\":true"))) {
                                 unmuted = true;
                                 m_fake->setLevel(QStringLiteral("headset"), 0.3f);
                             }
                             if (!unplugged && out.contains(QStringLiteral("\"silent\":false"))) {
                                 unplugged = true;
                                 m_fake->remove(QStringLiteral("headset"));
                             }
                         });
    QCOMPARE(r.status, 0);
    const auto silent = r.events(QStringLiteral("micSilent"));
    QCOMPARE(silent.size(), 2);
    QCOMPARE(silent.at(0).value(QStringLiteral("silent")).toBool(), true);
    QVERIFY(silent.at(0)
                .value(QStringLiteral("message"))
                .toString()
                .startsWith(QStringLiteral("USB Headset is returning silence.")));
    QCOMPARE(silent.at(1).value(QStringLiteral("silent")).toBool(), false);
    QVERIFY(!silent.at(1).contains(QStringLiteral("message")));
    const auto restarts = r.events(QStringLiteral("micEngineRestarted"));
    QCOMPARE(restarts.size(), 1);
    QCOMPARE(restarts.at(0).value(QStringLiteral("count")).toInt(), 1);
    QVERIFY(r.events(QStringLiteral("error")).isEmpty());
    QCOMPARE(r.events(QStringLiteral("discarded")).size(), 1);
    QVERIFY(recordings().isEmpty());
}

void TestCliMicrophone::recordFollowsTheOutput()
{
    // Headphones become the default output, then are unplugged.
    m_fake->addOutput(QStringLiteral("headphones"), QStringLiteral("Headphones"), 550);
    bool switched = false;
    bool unplugged = false;
    const Run r =
        runCli(m_fake,
               {QStringLiteral("--json"), QStringLiteral("record"), QStringLiteral("--duration"),
                QStringLiteral("60"), QStringLiteral("--discard")},
               [&](const QString& out) {
                   if (!switched && out.contains(QStringLiteral("\"Speakers\""))) {
                       switched = true;
                       m_fake->setDefaultSink(QStringLiteral("headphones"));
                   }
                   if (!unplugged && out.contains(QStringLiteral("\"Headphones\""))) {
                       unplugged = true;
                       m_fake->remove(QStringLiteral("headphones"));
                   }
               });
    QCOMPARE(r.status, 0);
    QStringList outputs;
    for (const QJsonObject& e : r.events(QStringLiteral("systemAudioDevice")))
        outputs << e.value(QStringLiteral("name")).toString();
    QCOMPARE(outputs, (QStringList{QStringLiteral("Speakers"), QStringLiteral("Headphones"),
                                   QStringLiteral("Speakers")}));
    // System audio was never lost on the way.
    const auto systemAudio = r.events(QStringLiteral("systemAudio"));
    QCOMPARE(systemAudio.size(), 1);
    QCOMPARE(systemAudio.at(0).value(QStringLiteral("active")).toBool(), true);
}

QTEST_GUILESS_MAIN(TestCliMicrophone)
#include "tst_cli_microphone.moc"
