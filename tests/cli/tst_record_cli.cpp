// `sorvelandrix record` as a user runs it, inside a private PulseAudio
// daemon: a timed recording of a microphone tone and a system tone, the
// signals that stop it (and a reader that goes away), --save interrupted, a
// disk that fills up, and the live transcripts (the service's and the
// on-device preview) of speech played into the microphone. What the command does with the
// microphone and without a sound server runs in-process on a fake server in tst_cli_microphone;
// what it prints of a live transcript, however the service behaves, in tst_cli_commands.

#include "core/paths.h"
#include "core/secretstore.h"
#include "service/authmanager.h"
#include "signedin.h"
#include "speechsamples.h"
#include "support/isolatedenvironment.h"
#include "support/jsonlines.h"
#include "support/pulsesandbox.h"
#include "support/toneprobe.h"
#include "transcript/speechmodel.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

#include <algorithm>
#include <csignal>
#include <memory>

using namespace sorv;
using namespace sorv::test;

namespace {

QString cli()
{
    return buildDirectory() + QStringLiteral("/src/cli/sorvelandrix");
}

QStringList recordings()
{
    return QDir(recordingsDirectory()).entryList({QStringLiteral("*.wav")}, QDir::Files);
}

// What a failure message shows of a run: its output, then the lines of its
// log that are not the per-buffer ones (QtTest cuts long messages short).
QString diagnostic(const QByteArray& out, const QByteArray& err)
{
    QStringList kept;
    for (const QString& line : QString::fromUtf8(err).split(QLatin1Char('\n'))) {
        if (!line.contains(QStringLiteral(" buffer #")) &&
            !line.contains(QStringLiteral("Mix #")) && !line.contains(QStringLiteral("Write #")))
            kept << line;
    }
    return QString::fromUtf8(out) + QStringLiteral("\n--- log ---\n") +
           kept.mid(kept.size() - 12).join('\n');
}

QString waitForLine(QProcess& p, QByteArray& out, const QByteArray& needle, int timeoutMs)
{
    const bool seen = QTest::qWaitFor(
        [&] {
            out += p.readAllStandardOutput();
            return out.contains(needle);
        },
        timeoutMs);
    return seen ? QString() : diagnostic(out, p.readAllStandardError());
}

// A user signed in to `service` (in the private secrets file): the
// environment the command line then runs in.
QProcessEnvironment signedInTo(const test::LocalServiceFixture& service)
{
    qputenv("SORVELANDRIX_SECRETS", "file");
    {
        SecretStore secrets;
        AuthManager auth(secrets);
        signIn(auth);
    }
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("SORVELANDRIX_SERVER"), service.origin());
    qunsetenv("SORVELANDRIX_SECRETS");
    return env;
}

} // namespace

class TestRecordCli : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanup()
    {
        if (m_sandbox)
            m_sandbox->stopPlayback();
    }
    void timedRecordingMixesBothSources();
    void stopSignalLeavesCompleteFile_data();
    void stopSignalLeavesCompleteFile();
    void closedOutputStopsCleanly();
    void terminatedDuringSaveKeepsTheRecording();
    void fullDiskEndsTheRecordingAndKeepsWhatWasSaved();
    void liveServerPrintsTheTranscriptWhileRecording();
    void liveOnDeviceReportsSegmentsAsJson();

private:
    QTemporaryDir m_tones;
    // One server for every case; each has its own recordings folder.
    std::unique_ptr<PulseSandbox> m_sandbox;
};

void TestRecordCli::initTestCase()
{
    if (!PulseSandbox::toolsAvailable())
        QSKIP("PulseAudio sandbox tools are not installed");
    QVERIFY(PulseSandbox::makeTone(m_tones.filePath(QStringLiteral("mic.wav")), 1000, 30));
    QVERIFY(PulseSandbox::makeTone(m_tones.filePath(QStringLiteral("sys.wav")), 440, 30));
    m_sandbox = std::make_unique<PulseSandbox>();
    QVERIFY2(m_sandbox->isRunning(), qPrintable(m_sandbox->errorString()));
}

void TestRecordCli::timedRecordingMixesBothSources()
{
    IsolatedEnvironment env;
    QVERIFY(m_sandbox->playIntoMicrophone(m_tones.filePath(QStringLiteral("mic.wav"))));
    QVERIFY(m_sandbox->playToSpeakers(m_tones.filePath(QStringLiteral("sys.wav"))));

    QProcess p;
    p.start(cli(), {QStringLiteral("record"), QStringLiteral("--duration"), QStringLiteral("2.5"),
                    QStringLiteral("--json")});
    QVERIFY(p.waitForFinished(30000));
    QCOMPARE(p.exitCode(), 0);
    const QByteArray printed = p.readAllStandardOutput();
    QCOMPARE(jsonLines(printed, QStringLiteral("systemAudio"))
                 .value(0)
                 .value(QStringLiteral("active"))
                 .toBool(),
             true);
    QVERIFY(!jsonLines(printed, QStringLiteral("meters")).isEmpty());
    const QString wav = jsonLines(printed, QStringLiteral("saved"))
                            .value(0)
                            .value(QStringLiteral("wav"))
                            .toString();
    QVERIFY(isInRecordingsDirectory(wav));
    QVERIFY(QFileInfo(wav).fileName().startsWith(QStringLiteral("sorvelandrix_")));

    const WavContents w = readWavFile(wav);
    QVERIFY(w.ok);
    // Measured on the audio: exactly the duration, not a timer's idea of it.
    QCOMPARE(w.samples.size(), size_t(120'000));
    const auto end = tail(w, 1.0);
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
    QTest::newRow("SIGHUP (terminal closed)") << int(SIGHUP);
}

void TestRecordCli::stopSignalLeavesCompleteFile()
{
    QFETCH(int, signal);
    IsolatedEnvironment env;
    QVERIFY(m_sandbox->playIntoMicrophone(m_tones.filePath(QStringLiteral("mic.wav"))));

    QProcess p;
    QByteArray out;
    p.start(cli(), {QStringLiteral("record"), QStringLiteral("--json")});
    QVERIFY(p.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT((out += p.readAllStandardOutput()).contains("\"recording\""), 15000);
    QTest::qWait(1000);
    ::kill(static_cast<pid_t>(p.processId()), signal);
    QVERIFY(p.waitForFinished(15000));
    QCOMPARE(p.exitStatus(), QProcess::NormalExit);
    QCOMPARE(p.exitCode(), 0);
    out += p.readAllStandardOutput();
    const QString wav =
        jsonLines(out, QStringLiteral("saved")).value(0).value(QStringLiteral("wav")).toString();
    const WavContents w = readWavFile(wav);
    QVERIFY2(w.ok, qPrintable(wav));
    QVERIFY(w.seconds() > 0.8);
    QVERIFY(medianToneAmplitude(tail(w, 0.5), 1000) > 0.05);
}

void TestRecordCli::closedOutputStopsCleanly()
{
    // `record --json | head -n 6`: once the reader is gone the recording
    // stops as for Ctrl-C, instead of the process dying with the file half done.
    IsolatedEnvironment env;
    QVERIFY(m_sandbox->playIntoMicrophone(m_tones.filePath(QStringLiteral("mic.wav"))));
    QProcess p;
    // The recorder's own exit status: 141 would be death by SIGPIPE.
    p.start(QStringLiteral("bash"),
            {QStringLiteral("-c"),
             QStringLiteral("\"$1\" record --json | head -n 6; exit ${PIPESTATUS[0]}"),
             QStringLiteral("bash"), cli()});
    QVERIFY(p.waitForFinished(30000));
    QCOMPARE(p.exitCode(), 0);
    const QStringList files = recordings();
    QCOMPARE(files.size(), 1);
    const WavContents w = readWavFile(recordingsDirectory() + QLatin1Char('/') + files.first());
    QVERIFY(w.ok);
}

void TestRecordCli::terminatedDuringSaveKeepsTheRecording()
{
    // SIGTERM while `record --save` uploads (a slow service): the upload stops
    // at once, the recording stays and the command to send it is printed.
    IsolatedEnvironment env;
    test::LocalServiceFixture service;
    service->script("POST", QStringLiteral("/api/upload"),
                    local::ScriptedAnswer::delayed(std::chrono::seconds(60)));
    QProcess p;
    p.setProcessEnvironment(signedInTo(service));
    QByteArray out;
    p.start(cli(), {QStringLiteral("record"), QStringLiteral("--duration"), QStringLiteral("1"),
                    QStringLiteral("--save"), QStringLiteral("--json")});
    const QString missing = waitForLine(p, out, "\"uploading\"", 20000);
    QVERIFY2(missing.isEmpty(), qPrintable(missing));
    QElapsedTimer clock;
    clock.start();
    ::kill(static_cast<pid_t>(p.processId()), SIGTERM);
    QVERIFY(p.waitForFinished(10000));
    QVERIFY(clock.elapsed() < 20000); // not the scripted 60 s
    QCOMPARE(p.exitCode(), 1);
    const QString err = QString::fromUtf8(p.readAllStandardError());
    QVERIFY2(err.contains(QStringLiteral("Upload cancelled")), qPrintable(err));
    const QString wav = jsonLines(out + p.readAllStandardOutput(), QStringLiteral("saved"))
                            .value(0)
                            .value(QStringLiteral("wav"))
                            .toString();
    QVERIFY(QFile::exists(wav));
    QVERIFY(err.contains(QStringLiteral("Retry with: sorvelandrix upload ") + wav));
}

void TestRecordCli::fullDiskEndsTheRecordingAndKeepsWhatWasSaved()
{
    // The recordings folder sits on a 400 KiB file system (a private mount,
    // gone with the process: the script copies what is left out of it). It
    // fills after about two seconds of audio.
    if (QStandardPaths::findExecutable(QStringLiteral("unshare")).isEmpty() ||
        QProcess::execute(QStringLiteral("unshare"),
                          {QStringLiteral("-rm"), QStringLiteral("true")}) != 0)
        QSKIP("private mounts (unshare -rm) are not available here");
    IsolatedEnvironment env;
    QVERIFY(m_sandbox->playIntoMicrophone(m_tones.filePath(QStringLiteral("mic.wav"))));
    const QString dir = recordingsDirectory();
    const QString kept = env.path(QStringLiteral("kept"));
    QDir().mkpath(kept);
    const QString script = QStringLiteral("mount -t tmpfs -o size=400k tmpfs \"$1\" || exit 99\n"
                                          "\"$3\" record --json --duration 20; rc=$?\n"
                                          "cp \"$1\"/*.wav \"$2\"/ 2>/dev/null\n"
                                          "exit $rc\n");
    QProcess p;
    p.start(QStringLiteral("unshare"),
            {QStringLiteral("-rm"), QStringLiteral("sh"), QStringLiteral("-c"), script,
             QStringLiteral("sh"), dir, kept, cli()});
    QVERIFY(p.waitForFinished(30000));
    QVERIFY2(p.exitCode() != 99, "could not mount the small file system");
    QCOMPARE(p.exitCode(), 1);
    const QByteArray printed = p.readAllStandardOutput();
    const QString message = jsonLines(printed, QStringLiteral("error"))
                                .value(0)
                                .value(QStringLiteral("message"))
                                .toString();
    QVERIFY2(message.startsWith(QStringLiteral("Recording stopped: the disk is full. The first ")),
             qPrintable(message));
    QVERIFY(jsonLines(printed, QStringLiteral("saved")).isEmpty());
    // What was saved plays, and is as long as the message says.
    const QStringList files = QDir(kept).entryList({QStringLiteral("*.wav")}, QDir::Files);
    QCOMPARE(files.size(), 1);
    const WavContents w = readWavFile(kept + QLatin1Char('/') + files.first());
    QVERIFY(w.ok);
    QVERIFY(w.seconds() > 1.0);
    QVERIFY(message.contains(
        QStringLiteral("The first %1 s are saved").arg(QString::number(w.seconds(), 'f', 1))));
    QVERIFY(medianToneAmplitude(tail(w, 0.5), 1000) > 0.05);
}

namespace {

const QStringList kPhrases{QStringLiteral("hello there"), QStringLiteral("how are you today")};

// The phrases spoken with a pause between them, and a grammar of them.
bool makePhrases(const QTemporaryDir& dir, QString* speech, QString* grammar)
{
    *speech = dir.filePath(QStringLiteral("speech.wav"));
    *grammar = dir.filePath(QStringLiteral("phrases.jsgf"));
    return writeGrammar(*grammar, kPhrases) && makeSpeech(*speech, kPhrases, 1.5, 0.3);
}

} // namespace

void TestRecordCli::liveServerPrintsTheTranscriptWhileRecording()
{
    if (!speechToolsAvailable() || !SpeechModelLocator::find(QStringLiteral("en-US")))
        QSKIP("espeak-ng, sox or pocketsphinx-en-us is not installed");
    IsolatedEnvironment env;
    QTemporaryDir dir;
    QString speech, grammar;
    QVERIFY(makePhrases(dir, &speech, &grammar));
    local::LocalService::Options options;
    options.speechGrammarFile = grammar;
    test::LocalServiceFixture service(options);

    QProcess p;
    p.setProcessEnvironment(signedInTo(service));
    QByteArray out;
    p.start(cli(), {QStringLiteral("record"), QStringLiteral("--duration"), QStringLiteral("9"),
                    QStringLiteral("--live"), QStringLiteral("server"),
                    QStringLiteral("--language"), QStringLiteral("en-US")});
    const QString missing = waitForLine(p, out, "Recording for", 20000);
    QVERIFY2(missing.isEmpty(), qPrintable(missing));
    QVERIFY(m_sandbox->playIntoMicrophone(speech));
    QVERIFY(p.waitForFinished(60000));
    out += p.readAllStandardOutput();
    QVERIFY2(p.exitCode() == 0, qPrintable(diagnostic(out, p.readAllStandardError())));
    const QStringList lines = QString::fromUtf8(out).split(QLatin1Char('\n'));
    // A loaded machine may lose a word of the played speech on its way in:
    // each phrase is asked for by its first word, in its own line.
    const auto lineStarting = [&lines](const QString& prefix) {
        const auto at = std::find_if(lines.begin(), lines.end(),
                                     [&](const QString& l) { return l.startsWith(prefix); });
        return at == lines.end() ? qsizetype(-1) : qsizetype(at - lines.begin());
    };
    const qsizetype hello = lineStarting(QStringLiteral("Speaker 1: Hello"));
    const qsizetype how = lineStarting(QStringLiteral("Speaker 1: How"));
    QVERIFY2(hello > 0 && how > hello, qPrintable(lines.join('\n')));
    // The first line came while recording, before the stop.
    QVERIFY(hello < lines.indexOf(QStringLiteral("Stopping…")));
    QVERIFY(lines.last(2).first().startsWith(QStringLiteral("Saved recording: ")));
    const local::LiveSession session = service->liveSessions().value(0);
    QCOMPARE(session.languageHints, QStringList{QStringLiteral("en")});
    QVERIFY(session.sentinel);
    QVERIFY(session.frames > 60); // 9 s at 8⅓ frames a second, less the connecting
    QCOMPARE(session.oddFrames, 0);
}

void TestRecordCli::liveOnDeviceReportsSegmentsAsJson()
{
    if (!speechToolsAvailable() || !SpeechModelLocator::find(QStringLiteral("en-US")))
        QSKIP("espeak-ng, sox or pocketsphinx-en-us is not installed");
    IsolatedEnvironment env;
    QTemporaryDir dir;
    QString speech, grammar;
    QVERIFY(makePhrases(dir, &speech, &grammar));

    QProcess p;
    QByteArray out;
    p.start(cli(),
            {QStringLiteral("--json"), QStringLiteral("record"), QStringLiteral("--duration"),
             QStringLiteral("8"), QStringLiteral("--live"), QStringLiteral("on-device"),
             QStringLiteral("--language"), QStringLiteral("en-US"),
             QStringLiteral("--speech-grammar"), grammar, QStringLiteral("--discard")});
    const QString missing = waitForLine(p, out, "\"recording\"", 20000);
    QVERIFY2(missing.isEmpty(), qPrintable(missing));
    QVERIFY(m_sandbox->playIntoMicrophone(speech));
    QVERIFY(p.waitForFinished(60000));
    QCOMPARE(p.exitCode(), 0);
    const QByteArray printed = out + p.readAllStandardOutput();

    // Each segment grows in place, then holds its final text.
    const auto segments = jsonLines(printed, QStringLiteral("segment"));
    QMap<qint64, QJsonObject> last;
    for (const QJsonObject& e : segments)
        last[e.value(QStringLiteral("id")).toInteger()] = e;
    QStringList statuses;
    for (const QJsonObject& e : jsonLines(printed, QStringLiteral("transcriptStatus")))
        statuses << e.value(QStringLiteral("status")).toString();
    QCOMPARE(last.keys(), (QList<qint64>{0, 1}));
    // Asked for by their first words, as above.
    QVERIFY(last[0].value(QStringLiteral("text")).toString().startsWith(QStringLiteral("Hello")));
    QVERIFY(last[1].value(QStringLiteral("text")).toString().startsWith(QStringLiteral("How")));
    QCOMPARE(last[1].value(QStringLiteral("speaker")).toString(), QStringLiteral("you"));
    QCOMPARE(last[1].value(QStringLiteral("displayName")).toString(), QStringLiteral("You"));
    QVERIFY(segments.size() > 2); // partial results came first
    QCOMPARE(statuses, (QStringList{QStringLiteral("connecting"), QStringLiteral("active"),
                                    QStringLiteral("idle")}));
    QVERIFY(!jsonLines(printed, QStringLiteral("discarded")).isEmpty());
}

QTEST_GUILESS_MAIN(TestRecordCli)
#include "tst_record_cli.moc"
