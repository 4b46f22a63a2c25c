// The command line and the microphones, in-process against a private
// PulseAudio daemon: `devices` lists what the recorder's picker lists, and
// `record --device` shows what happens to the microphone as it happens (a
// silent microphone with its name, the recovery, a restart after it was
// unplugged), as text and as JSON events. The engine is the real one with
// its timing scaled down.

#include "audio/audioengine.h"
#include "cli/command.h"
#include "support/isolatedenvironment.h"
#include "support/pulsesandbox.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace sorv;
using namespace sorv::test;

namespace {

struct Run {
    int status = -1;
    QString out;
    QString err;
    QList<QJsonObject> events(const QString& name = {}) const
    {
        QList<QJsonObject> list;
        for (const QString& line : out.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
            const QJsonObject e = QJsonDocument::fromJson(line.toUtf8()).object();
            if (name.isEmpty() || e.value(QStringLiteral("event")).toString() == name)
                list << e;
        }
        return list;
    }
};

// Runs a command in-process; `onOutput` sees standard output as it grows
// (on the main thread), to act on the sandbox mid-recording.
Run runCli(const QStringList& args, const std::function<void(const QString&)>& onOutput = {})
{
    Run r;
    cli::CommandContext ctx;
    ctx.terminal = false;
    ctx.out = [&](const QByteArray& b) {
        r.out += QString::fromUtf8(b);
        if (onOutput)
            onOutput(r.out);
    };
    ctx.err = [&r](const QByteArray& b) { r.err += QString::fromUtf8(b); };
    ctx.makeRecordingEngine = [] {
        AudioEngine::Options o;
        o.health.watchdogPeriod = std::chrono::milliseconds(500);
        o.health.graceSeconds = 0.5;
        o.health.silenceWindowSeconds = 1.0;
        o.devices.reconnectInterval = std::chrono::milliseconds(250);
        return std::make_unique<AudioEngine>(o);
    };
    r.status = cli::run(args, ctx);
    return r;
}

QString headsetId()
{
    return QString::number(inputDeviceIdForSourceName(QStringLiteral("headset")));
}

} // namespace

// One daemon for every case: "virtmic" (the default) and "headset" (shown as
// "USB Headset"), both hearing a tone. The last case unplugs the headset.
class TestCliMicrophone : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void devicesListsTheMicrophones();
    void devicesWithoutSoundServer();
    void recordShowsTheSilentMicrophoneByName();
    void recordReportsTheMicrophoneAsItHappens();

private:
    QTemporaryDir m_tones;
    QString m_tone;
    std::unique_ptr<IsolatedEnvironment> m_env;
    std::unique_ptr<PulseSandbox> m_sandbox;
    int m_headset = -1;
};

void TestCliMicrophone::initTestCase()
{
    if (!PulseSandbox::toolsAvailable())
        QSKIP("PulseAudio sandbox tools are not installed");
    m_tone = m_tones.filePath(QStringLiteral("tone.wav"));
    QVERIFY(PulseSandbox::makeTone(m_tone, 700, 30, 0.3));
    m_env = std::make_unique<IsolatedEnvironment>();
    m_sandbox = std::make_unique<PulseSandbox>();
    QVERIFY2(m_sandbox->isRunning(), qPrintable(m_sandbox->errorString()));
    m_headset = m_sandbox->addMicrophone(QStringLiteral("headset"), QStringLiteral("USB Headset"));
    QVERIFY(m_headset >= 0);
    QVERIFY(m_sandbox->playIntoSource(QStringLiteral("headset"), m_tone));
    QVERIFY(m_sandbox->playIntoMicrophone(m_tone));
}

void TestCliMicrophone::cleanupTestCase()
{
    m_sandbox.reset();
    m_env.reset();
}

void TestCliMicrophone::devicesListsTheMicrophones()
{
    const Run text = runCli({QStringLiteral("devices")});
    QCOMPARE(text.status, 0);
    const QStringList lines = text.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines.at(0).split(QLatin1Char(' '), Qt::SkipEmptyParts),
             (QStringList{QString::number(inputDeviceIdForSourceName(QStringLiteral("virtmic"))),
                          QStringLiteral("VirtualMic"), QStringLiteral("(default)")}));
    QCOMPARE(lines.at(1).split(QLatin1Char(' '), Qt::SkipEmptyParts),
             (QStringList{headsetId(), QStringLiteral("USB"), QStringLiteral("Headset")}));

    const Run json = runCli({QStringLiteral("--json"), QStringLiteral("devices")});
    QCOMPARE(json.status, 0);
    const auto devices = json.events(QStringLiteral("device"));
    QCOMPARE(devices.size(), 2);
    QCOMPARE(devices.at(1).value(QStringLiteral("id")).toInteger(), headsetId().toLongLong());
    QCOMPARE(devices.at(1).value(QStringLiteral("name")).toString(), QStringLiteral("USB Headset"));
    QCOMPARE(devices.at(1).value(QStringLiteral("isDefault")).toBool(), false);
    QCOMPARE(devices.at(0).value(QStringLiteral("isDefault")).toBool(), true);
}

void TestCliMicrophone::devicesWithoutSoundServer()
{
    qputenv("PULSE_SERVER", QFile::encodeName(m_env->path(QStringLiteral("no-such-socket"))));
    const Run r = runCli({QStringLiteral("--json"), QStringLiteral("devices")});
    qputenv("PULSE_SERVER", m_sandbox->serverAddress().toUtf8());
    QCOMPARE(r.status, 1);
    QCOMPARE(r.err.trimmed(), QStringLiteral("Could not connect to the sound server"));
    QCOMPARE(r.events(QStringLiteral("error")).size(), 1);
}

void TestCliMicrophone::recordReportsTheMicrophoneAsItHappens()
{
    PulseSandbox& sandbox = *m_sandbox;
    QVERIFY(sandbox.pactl(
        {QStringLiteral("set-source-mute"), QStringLiteral("headset"), QStringLiteral("1")}));

    // Silent, reported; unmuted, recovered; unplugged, restarted on the default.
    bool unmuted = false;
    bool unplugged = false;
    const Run r = runCli({QStringLiteral("--json"), QStringLiteral("record"),
                          QStringLiteral("--duration"), QStringLiteral("6"),
                          QStringLiteral("--device"), headsetId(), QStringLiteral("--discard")},
                         [&](const QString& out) {
                             if (!unmuted && out.contains(QStringLiteral("\"silent\":true"))) {
                                 unmuted = true;
                                 sandbox.pactl({QStringLiteral("set-source-mute"),
                                                QStringLiteral("headset"), QStringLiteral("0")});
                             }
                             if (!unplugged && out.contains(QStringLiteral("\"silent\":false"))) {
                                 unplugged = true;
                                 sandbox.unloadModuleIndex(m_headset);
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
}

void TestCliMicrophone::recordShowsTheSilentMicrophoneByName()
{
    QVERIFY(m_sandbox->pactl(
        {QStringLiteral("set-source-mute"), QStringLiteral("headset"), QStringLiteral("1")}));
    const Run r =
        runCli({QStringLiteral("record"), QStringLiteral("--duration"), QStringLiteral("4"),
                QStringLiteral("--device"), headsetId(), QStringLiteral("--discard")});
    m_sandbox->pactl(
        {QStringLiteral("set-source-mute"), QStringLiteral("headset"), QStringLiteral("0")});
    QCOMPARE(r.status, 0);
    QVERIFY2(r.out.contains(QStringLiteral(
                 "⚠️ Microphone is silent: USB Headset is returning silence. Another app")),
             qPrintable(r.out));
}

QTEST_GUILESS_MAIN(TestCliMicrophone)
#include "tst_cli_microphone.moc"
