// `sorvelandrix record` as a user runs it, inside a private PulseAudio
// daemon: a timed recording of a microphone tone and a system tone, Ctrl-C
// and SIGTERM mid-recording, --discard, and no sound server at all.

#include "support/isolatedenvironment.h"
#include "support/pulsesandbox.h"
#include "support/toneprobe.h"

#include "core/paths.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

#include <csignal>

using namespace sorv;
using namespace sorv::test;

namespace {

QString cli()
{
    return buildDirectory() + QStringLiteral("/src/cli/sorvelandrix");
}

QList<QJsonObject> events(const QByteArray& out)
{
    QList<QJsonObject> list;
    for (const QByteArray& line : out.split('\n'))
        if (!line.trimmed().isEmpty())
            list << QJsonDocument::fromJson(line).object();
    return list;
}

QJsonObject firstEvent(const QList<QJsonObject>& list, const QString& name)
{
    for (const QJsonObject& e : list)
        if (e.value(QStringLiteral("event")).toString() == name)
            return e;
    return {};
}

QStringList recordings()
{
    return QDir(recordingsDirectory()).entryList({QStringLiteral("*.wav")}, QDir::Files);
}

} // namespace

class TestRecordCli : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void timedRecordingMixesBothSources();
    void stopSignalLeavesCompleteFile_data();
    void stopSignalLeavesCompleteFile();
    void discardLeavesNothing();
    void noSoundServerFails();

private:
    QTemporaryDir m_tones;
};

void TestRecordCli::initTestCase()
{
    if (!PulseSandbox::toolsAvailable())
        QSKIP("PulseAudio sandbox tools are not installed");
    QVERIFY(PulseSandbox::makeTone(m_tones.filePath(QStringLiteral("mic.wav")), 1000, 30));
    QVERIFY(PulseSandbox::makeTone(m_tones.filePath(QStringLiteral("sys.wav")), 440, 30));
}

void TestRecordCli::timedRecordingMixesBothSources()
{
    IsolatedEnvironment env;
    PulseSandbox sandbox;
    QVERIFY2(sandbox.isRunning(), qPrintable(sandbox.errorString()));
    QVERIFY(sandbox.playIntoMicrophone(m_tones.filePath(QStringLiteral("mic.wav"))));
    QVERIFY(sandbox.playToSpeakers(m_tones.filePath(QStringLiteral("sys.wav"))));

    QProcess p;
    p.start(cli(), {QStringLiteral("record"), QStringLiteral("--duration"), QStringLiteral("5"),
                    QStringLiteral("--json")});
    QVERIFY(p.waitForFinished(30000));
    QCOMPARE(p.exitCode(), 0);
    const auto list = events(p.readAllStandardOutput());
    QCOMPARE(
        firstEvent(list, QStringLiteral("systemAudio")).value(QStringLiteral("active")).toBool(),
        true);
    QVERIFY(!firstEvent(list, QStringLiteral("meters")).isEmpty());
    const QString wav =
        firstEvent(list, QStringLiteral("saved")).value(QStringLiteral("wav")).toString();
    QVERIFY(isInRecordingsDirectory(wav));
    QVERIFY(QFileInfo(wav).fileName().startsWith(QStringLiteral("sorvelandrix_")));

    const WavContents w = readWavFile(wav);
    QVERIFY(w.ok);
    QCOMPARE(w.sampleRate, 48000);
    QCOMPARE(w.channels, 1);
    QCOMPARE(w.format & SF_FORMAT_SUBMASK, SF_FORMAT_FLOAT);
    QVERIFY2(w.seconds() > 4.4 && w.seconds() < 5.6, qPrintable(QString::number(w.seconds())));
    const auto end = tail(w, 2.0);
    // Gain control brings both to about 0.06 RMS; the median over 100 ms
    // windows ignores a glitch at a chunk border.
    QVERIFY(medianToneAmplitude(end, 1000) > 0.05);
    QVERIFY(medianToneAmplitude(end, 440) > 0.03);
}

void TestRecordCli::stopSignalLeavesCompleteFile_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("Ctrl-C") << int(SIGINT);
    QTest::newRow("SIGTERM") << int(SIGTERM);
}

void TestRecordCli::stopSignalLeavesCompleteFile()
{
    QFETCH(int, signal);
    IsolatedEnvironment env;
    PulseSandbox sandbox;
    QVERIFY2(sandbox.isRunning(), qPrintable(sandbox.errorString()));
    QVERIFY(sandbox.playIntoMicrophone(m_tones.filePath(QStringLiteral("mic.wav"))));

    QProcess p;
    QByteArray out;
    p.start(cli(), {QStringLiteral("record"), QStringLiteral("--json")});
    QVERIFY(p.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT((out += p.readAllStandardOutput()).contains("\"recording\""), 15000);
    QTest::qWait(1500);
    ::kill(static_cast<pid_t>(p.processId()), signal);
    QVERIFY(p.waitForFinished(15000));
    QCOMPARE(p.exitStatus(), QProcess::NormalExit);
    QCOMPARE(p.exitCode(), 0);
    out += p.readAllStandardOutput();
    const QString wav =
        firstEvent(events(out), QStringLiteral("saved")).value(QStringLiteral("wav")).toString();
    const WavContents w = readWavFile(wav);
    QVERIFY2(w.ok, qPrintable(wav));
    QVERIFY(w.seconds() > 1.0);
    QVERIFY(medianToneAmplitude(tail(w, 0.5), 1000) > 0.05);
}

void TestRecordCli::discardLeavesNothing()
{
    IsolatedEnvironment env;
    PulseSandbox sandbox;
    QVERIFY2(sandbox.isRunning(), qPrintable(sandbox.errorString()));
    QProcess p;
    p.start(cli(), {QStringLiteral("record"), QStringLiteral("--duration"), QStringLiteral("1"),
                    QStringLiteral("--discard"), QStringLiteral("--json")});
    QVERIFY(p.waitForFinished(30000));
    QCOMPARE(p.exitCode(), 0);
    QVERIFY(!firstEvent(events(p.readAllStandardOutput()), QStringLiteral("discarded")).isEmpty());
    QVERIFY(recordings().isEmpty());
}

void TestRecordCli::noSoundServerFails()
{
    IsolatedEnvironment env;
    QProcessEnvironment penv = QProcessEnvironment::systemEnvironment();
    penv.insert(QStringLiteral("PULSE_SERVER"),
                QStringLiteral("unix:") + env.path(QStringLiteral("none")));
    QProcess p;
    p.setProcessEnvironment(penv);
    p.start(cli(), {QStringLiteral("record"), QStringLiteral("--duration"), QStringLiteral("1")});
    QVERIFY(p.waitForFinished(30000));
    QCOMPARE(p.exitCode(), 1);
    QVERIFY(p.readAllStandardError().contains("No microphone available"));
    QVERIFY(recordings().isEmpty());
}

QTEST_GUILESS_MAIN(TestRecordCli)
#include "tst_record_cli.moc"
