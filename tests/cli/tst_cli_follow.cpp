// `sorvelandrix join` then `sorvelandrix follow`, in-process against the
// local service: the transcript as JSON events and as lines (rewritten in
// place on a terminal), the ends of a follow (the meeting stopped, a
// refused token), a transport error that does not end it, and an endless
// line. What the service's words cannot do to the terminal is
// tst_cli_commands' (every command prints through the same context).

#include "cli/clirun.h"
#include "core/log.h"
#include "core/secretstore.h"
#include "service/apiclient.h"
#include "service/authmanager.h"
#include "signedin.h"
#include "support/isolatedenvironment.h"
#include "support/manualdelays.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QTest>
#include <QTimer>

using namespace sorv;
using local::LocalService;
using local::MeetingStreamScript;
using namespace std::chrono_literals;

namespace {

using Run = test::CliRun;

// `during` runs every 20 ms while the command runs, with what it printed so
// far. The command's waits are on `clock` when one is given.
Run runCli(const QStringList& args, bool terminal = false,
           const std::function<void(const QString& out)>& during = {},
           test::ManualDelays* clock = nullptr)
{
    QString printed;
    QTimer watcher;
    if (during) {
        QObject::connect(&watcher, &QTimer::timeout, &watcher, [&] { during(printed); });
        watcher.start(20);
    }
    return test::runCli(
        args,
        [&](cli::CommandContext& ctx) {
            ctx.terminal = terminal;
            if (clock)
                ctx.delays = clock->delayedCall();
        },
        [&printed](const QString& out) { printed = out; });
}

LocalService::Options fastBots()
{
    LocalService::Options options;
    options.meetingPhase = 30ms;
    options.meetingStreamPace = 5ms;
    return options;
}

struct World : test::SignedIn {
    World() : SignedIn(fastBots()) {}

    QString join()
    {
        const Run r = runCli({"--json", "join", "https://meet.google.com/abc-defg-hij"});
        if (r.status != cli::kExitOk)
            return {};
        return r.events("meeting").value(0).value("id").toString();
    }
};

QJsonObject transcript(const char* speaker, const char* text)
{
    return {{"type", "transcript"},
            {"segments", QJsonArray{QJsonObject{{"speaker", speaker}, {"text", text}}}}};
}

} // namespace

class TestCliFollow : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        qputenv("SORVELANDRIX_SECRETS", "file");
        setLogSink([](const QString&) {});
    }
    void cleanupTestCase() { setLogSink({}); }

    void joinThenFollowUntilTheBotIsStopped();
    void jsonEventsOfAScriptedStream();
    void linesOnATerminal();
    void aRefusedTokenEndsWithItsStatus();
    void aTransportErrorKeepsFollowing();
    void anEndlessLineIsDroppedAsItArrives();
};

void TestCliFollow::joinThenFollowUntilTheBotIsStopped()
{
    World w;
    const QString id = w.join();
    QVERIFY(!id.isEmpty());
    bool stopSent = false;
    const Run r = runCli({"--json", "follow", id}, false, [&](const QString& out) {
        // Once the third speaker has spoken, the bot leaves the meeting.
        if (stopSent || !out.contains(QStringLiteral("\"displayName\":\"Priya\"")))
            return;
        stopSent = true;
        APIClient(w.auth).stopMeeting(id, &w.auth, [](const std::optional<APIError>&) {});
    });
    // The stopped meeting ends the follow; the events' form is the scripted
    // stream's case below.
    QCOMPARE(r.status, cli::kExitOk);
    QVERIFY(r.err.isEmpty());
    QCOMPARE(r.events("connection").last().value("status").toString(),
             QStringLiteral("disconnected"));
    QCOMPARE(r.events("meetingStatus").last(),
             (QJsonObject{{"event", "meetingStatus"}, {"status", "completed"}}));
    // The first line grew piece by piece.
    QList<QJsonObject> first;
    for (const QJsonObject& e : r.events("segment"))
        if (e.value("id").toInt() == 0)
            first << e;
    QVERIFY(first.size() >= 2);
    QCOMPARE(first.last().value("text").toString(),
             QStringLiteral("Good morning everyone, thanks for joining so early."));
}

void TestCliFollow::jsonEventsOfAScriptedStream()
{
    World w;
    const QString id = w.join();
    w.service->scriptMeetingStream(
        MeetingStreamScript()
            .raw(": hello\n\nevent: status\n")
            .data({{"type", "status"}, {"status", "recording"}})
            .data({{"type", "speaker_names"}, {"names", QJsonObject{{"0", "Ada"}}}})
            .data(transcript("0", "Hello"))
            .data(transcript("0", "world"))
            .data(transcript("1", "Hi"))
            .end());
    const Run r = runCli({"--json", "follow", id});
    QCOMPARE(r.status, cli::kExitOk);
    const auto segment = [](int row, const char* speaker, const char* name, const char* text) {
        return QJsonObject{{"event", "segment"},
                           {"id", row},
                           {"speaker", speaker},
                           {"displayName", name},
                           {"text", text}};
    };
    QList<QJsonObject> expected{
        {{"event", "connection"}, {"status", "connecting"}, {"message", ""}},
        {{"event", "connection"}, {"status", "connected"}, {"message", ""}},
        {{"event", "meetingStatus"}, {"status", "recording"}},
        {{"event", "speakerNames"}, {"names", QJsonObject{{"0", "Ada"}}}},
        segment(0, "0", "Ada", "Hello"),
        segment(0, "0", "Ada", "Hello world"),
        segment(1, "1", "1", "Hi"),
        {{"event", "connection"}, {"status", "disconnected"}, {"message", ""}},
    };
    QCOMPARE(r.events(), expected);
}

void TestCliFollow::linesOnATerminal()
{
    World w;
    const QString id = w.join();
    const auto script = [&] {
        w.service->scriptMeetingStream(MeetingStreamScript()
                                           .data(transcript("0", "Hello"))
                                           .pause(30ms)
                                           .data(transcript("0", "world"))
                                           .pause(30ms)
                                           .data(transcript("1", "Hi"))
                                           .end());
    };
    script();
    const Run piped = runCli({"follow", id});
    QCOMPARE(piped.status, cli::kExitOk);
    // Without a terminal: a line per segment once it is finished, nothing
    // drawn in place.
    QCOMPARE(piped.out, QStringLiteral("Connecting to meeting %1...\nConnected.\n0: Hello world\n"
                                       "1: Hi\nThe stream ended.\n")
                            .arg(id));

    script();
    const Run terminal = runCli({"follow", id}, true);
    QCOMPARE(terminal.status, cli::kExitOk);
    // The open segment is drawn in place and redrawn as it grows; when the
    // next speaker starts, it becomes a line of its own.
    const QString clear = QStringLiteral("\r\033[K");
    QVERIFY2(terminal.out.contains(clear + "0: Hello" + clear + "0: Hello world" + clear +
                                   "0: Hello world\n" + clear + "1: Hi"),
             qPrintable(terminal.out));
    QVERIFY(terminal.out.endsWith(clear + "1: Hi\n" + clear + "The stream ended.\n"));
}

void TestCliFollow::aRefusedTokenEndsWithItsStatus()
{
    World w;
    const QString id = w.join();
    QVERIFY(!id.isEmpty());
    w.service->expireAccessTokens();
    const Run r = runCli({"--json", "follow", id});
    QCOMPARE(r.status, cli::kExitFailure);
    QCOMPARE(r.err, QStringLiteral("HTTP 401\n"));
    QCOMPARE(r.events("connection").last(),
             (QJsonObject{{"event", "connection"}, {"status", "error"}, {"message", "HTTP 401"}}));
    QCOMPARE(r.events("error").last().value("message").toString(), QStringLiteral("HTTP 401"));
    // Not refreshed, not tried again.
    QCOMPARE(w.service->requestCount("POST", "/api/auth/refresh"), 0);
    QCOMPARE(w.service->requestCount("GET", QStringLiteral("/api/meetings/%1/live").arg(id)), 1);
}

void TestCliFollow::aTransportErrorKeepsFollowing()
{
    World w;
    const QString id = w.join();
    w.service->scriptMeetingStream(
        MeetingStreamScript().data(transcript("0", "Before")).raw("data: {").drop());
    test::ManualDelays clock;
    int ticks = 0;
    const Run r = runCli(
        {"follow", id}, false,
        [&](const QString& out) {
            if (!out.contains(QStringLiteral("trying again")) || clock.pendingCount() == 0)
                return;
            // The script is for the attempt after the wait, not for a request
            // Qt's HTTP layer may send once more by itself as the connection breaks.
            if (++ticks == 1)
                w.service->scriptMeetingStream(
                    MeetingStreamScript().data(transcript("0", "after")).end());
            else if (ticks == 5)
                clock.advance(3s);
        },
        &clock);
    QCOMPARE(clock.requests(), QList<qint64>{3000});
    QCOMPARE(r.status, cli::kExitOk);
    const QStringList lines = r.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 6);
    QVERIFY2(lines.at(2).endsWith(QStringLiteral(" (trying again in 3 s)")), qPrintable(r.out));
    QCOMPARE(lines.at(3), QStringLiteral("Connected."));
    QCOMPARE(lines.at(4), QStringLiteral("0: Before after"));
    QVERIFY(r.err.isEmpty());
}

void TestCliFollow::anEndlessLineIsDroppedAsItArrives()
{
    World w;
    const QString id = w.join();
    // 128 MiB without a line end, then the stream goes on.
    MeetingStreamScript script;
    script.raw("data: ");
    const QByteArray chunk(qsizetype{64} * 1024, 'a');
    for (int i = 0; i < 2048; ++i)
        script.raw(chunk);
    w.service->scriptMeetingStream(script.raw("\n\n").data(transcript("0", "after")).end());
    // The peak from here on.
    QFile clear(QStringLiteral("/proc/self/clear_refs"));
    const bool peakReset = clear.open(QIODevice::WriteOnly) && clear.write("5") == 1;
    clear.close();
    const auto peakKiB = [] {
        QFile status(QStringLiteral("/proc/self/status"));
        if (!status.open(QIODevice::ReadOnly))
            return qint64(-1);
        for (const QByteArray& line : status.readAll().split('\n'))
            if (line.startsWith("VmHWM:"))
                return line.mid(6).trimmed().split(' ').first().toLongLong();
        return qint64(-1);
    };
    const qint64 before = peakKiB();
    const Run r = runCli({"follow", id});
    QCOMPARE(r.status, cli::kExitOk);
    QVERIFY2(r.out.contains(QStringLiteral("\n0: after\n")), qPrintable(r.out));
#if defined(__SANITIZE_ADDRESS__)
    QSKIP("AddressSanitizer keeps freed memory in quarantine: the peak says nothing here");
#endif
    if (!peakReset || before < 0)
        QSKIP("this kernel does not reset the peak of resident memory");
    // A few read buffers, not the line.
    QVERIFY2(peakKiB() - before < qint64{48} * 1024,
             qPrintable(QStringLiteral("the peak grew by %1 KiB").arg(peakKiB() - before)));
}

QTEST_GUILESS_MAIN(TestCliFollow)
#include "tst_cli_follow.moc"
