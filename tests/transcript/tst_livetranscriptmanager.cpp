// LiveTranscriptManager against the local service: the bot's conversation
// from join to stop, and scripted streams for what a real service does on
// a bad day (a refusal, a connection cut mid-stream, a captive portal's
// page, odd bytes). The
// retry's 3 s wait runs on a clock the test moves.

#include "core/log.h"
#include "core/secretstore.h"
#include "service/apiclient.h"
#include "service/authmanager.h"
#include "signedin.h"
#include "support/isolatedenvironment.h"
#include "support/manualdelays.h"
#include "transcript/livetranscriptmanager.h"

#include <QJsonArray>
#include <QSignalSpy>
#include <QTest>

// Generous waits: the service, the sanitizers and other builds share a busy
// machine, and a wait ends as soon as its condition holds.
#define TRY_COMPARE(actual, expected) QTRY_COMPARE_WITH_TIMEOUT(actual, expected, 30000)
#define TRY_VERIFY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, 30000)

using namespace sorv;
using local::LocalService;
using local::MeetingStreamScript;
using namespace std::chrono_literals;

namespace {

local::LocalService::Options fastBots()
{
    local::LocalService::Options options;
    options.meetingPhase = 40ms;
    options.meetingStreamPace = 5ms;
    return options;
}

struct SignedIn : test::SignedIn {
    test::ManualDelays clock;
    LiveTranscriptManager manager{clock.delayedCall()};
    QString meeting;

    SignedIn() : test::SignedIn(fastBots())
    {
        meeting = service->addMeeting(LocalService::kDemoEmail,
                                      QStringLiteral("https://meet.google.com/abc-defg-hij"));
    }
    QString path() const { return QStringLiteral("/api/meetings/%1/live").arg(meeting); }
    void connect() { manager.connect(meeting, service.origin(), auth.accessToken()); }
};

QStringList rows(const LiveTranscriptManager& m)
{
    QStringList out;
    for (const TranscriptSegment& s : m.segments())
        out << QStringLiteral("%1 %2: %3").arg(s.id).arg(s.displayName, s.text);
    return out;
}

QJsonObject transcript(const char* speaker, const char* text)
{
    return {{"type", "transcript"},
            {"segments", QJsonArray{QJsonObject{{"speaker", speaker}, {"text", text}}}}};
}

} // namespace

class TestLiveTranscriptManager : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        setLogSink([](const QString&) {});
    }
    void cleanupTestCase() { setLogSink({}); }

    void followsTheBotFromJoinToStop();
    void refusalsEndTheStream_data();
    void refusalsEndTheStream();
    void aDroppedStreamIsFollowedAgainThreeSecondsLater();
    void aPageThatIsNotAStreamIsRetried();
    void bytesAsTheyComeOffTheWire();
    void disconnectKeepsTheTranscriptConnectStartsOver();
    void streamUrl();
};

void TestLiveTranscriptManager::followsTheBotFromJoinToStop()
{
    SignedIn w;
    QSignalSpy ended(&w.manager, &LiveTranscriptManager::streamEnded);
    QStringList meetingStatuses;
    QObject::connect(&w.manager, &LiveTranscriptManager::meetingStatusChanged, &w.manager,
                     [&] { meetingStatuses << w.manager.meetingStatus(); });
    w.connect();
    QCOMPARE(w.manager.connectionStatus(), SSEConnectionStatus::connecting());
    QVERIFY(w.manager.isActive());
    TRY_COMPARE(w.manager.connectionStatus(), SSEConnectionStatus::connected());
    // Three speakers: two named by the service, the third by her own elements.
    TRY_VERIFY(w.manager.segments().size() >= 4);
    const QStringList first = rows(w.manager).mid(0, 3);
    QCOMPARE(first, (QStringList{"0 Alex: Good morning everyone, thanks for joining so early.",
                                 "1 Sam: Morning! Shall we start with the release?",
                                 "2 Priya: Sure. The build passed last night and the installers "
                                 "are ready."}));
    QCOMPARE(w.manager.speakerNames().value("1"), QStringLiteral("Sam"));
    QCOMPARE(w.manager.speakerNamesMap().value("0").toString(), QStringLiteral("Alex"));
    QVERIFY(w.manager.segments().at(0).timestamp.has_value());
    const QString auth =
        QString::fromUtf8(w.service->requestLog().constLast().header("Authorization"));
    QCOMPARE(auth, QStringLiteral("Bearer ") + w.auth.accessToken());
    QCOMPARE(w.service->requestLog().constLast().header("Accept"), QByteArray("text/event-stream"));

    std::optional<bool> stopped;
    APIClient(w.auth).stopMeeting(w.meeting, &w.manager,
                                  [&](const std::optional<APIError>& e) { stopped = !e; });
    TRY_VERIFY(stopped.has_value());
    QVERIFY(*stopped);
    // The stream ends cleanly: disconnected, not retried, the transcript kept.
    TRY_COMPARE(ended.count(), 1);
    QCOMPARE(w.manager.connectionStatus(), SSEConnectionStatus::disconnected());
    QVERIFY(!w.manager.isActive());
    QCOMPARE(w.manager.meetingStatus(), QStringLiteral("completed"));
    QVERIFY(meetingStatuses.contains(QStringLiteral("recording")));
    QVERIFY(rows(w.manager).mid(0, 3) == first);
    QCOMPARE(w.clock.pendingCount(), 0);
    QCOMPARE(w.manager.attempts(), 1);
}

void TestLiveTranscriptManager::refusalsEndTheStream_data()
{
    QTest::addColumn<QString>("token");
    QTest::addColumn<QString>("meeting");
    QTest::addColumn<QString>("error");
    QTest::newRow("bad token") << "not-a-token" << QString() << "HTTP 401";
    QTest::newRow("someone else's meeting") << QString() << "no-such-meeting"
                                            << "HTTP 404";
}

void TestLiveTranscriptManager::refusalsEndTheStream()
{
    QFETCH(QString, token);
    QFETCH(QString, meeting);
    QFETCH(QString, error);
    SignedIn w;
    QSignalSpy ended(&w.manager, &LiveTranscriptManager::streamEnded);
    QSignalSpy statuses(&w.manager, &LiveTranscriptManager::connectionStatusChanged);
    w.manager.connect(meeting.isEmpty() ? w.meeting : meeting, w.service.origin(),
                      token.isEmpty() ? w.auth.accessToken() : token);
    TRY_COMPARE(ended.count(), 1);
    QCOMPARE(w.manager.connectionStatus(), SSEConnectionStatus::error(error));
    QVERIFY(!w.manager.isActive());
    QCOMPARE(statuses.count(), 2); // connecting, then the error
    // Not refreshed, not retried.
    QCOMPARE(w.clock.pendingCount(), 0);
    w.clock.advance(10s);
    QTest::qWait(50);
    QCOMPARE(w.manager.attempts(), 1);
    QCOMPARE(w.service->requestCount("POST", "/api/auth/refresh"), 0);
}

void TestLiveTranscriptManager::aDroppedStreamIsFollowedAgainThreeSecondsLater()
{
    SignedIn w;
    // Cut in the middle of the next event, as a failing network leaves it.
    w.service->scriptMeetingStream(MeetingStreamScript()
                                       .data(transcript("0", "Hello"))
                                       .raw("event: transcript\ndata: {\"type\":")
                                       .pause(30ms)
                                       .drop());
    QList<SSEConnectionStatus> seen;
    QObject::connect(&w.manager, &LiveTranscriptManager::connectionStatusChanged, &w.manager,
                     [&] { seen << w.manager.connectionStatus(); });
    QSignalSpy ended(&w.manager, &LiveTranscriptManager::streamEnded);
    w.connect();
    TRY_VERIFY(w.manager.connectionStatus().isError());
    // The error's own words, and the transcript stays.
    QVERIFY(!w.manager.connectionStatus().message().isEmpty());
    QVERIFY(!w.manager.connectionStatus().message().startsWith(QLatin1String("HTTP")));
    QCOMPARE(rows(w.manager), QStringList{"0 0: Hello"});
    QVERIFY(w.manager.isActive());
    QCOMPARE(w.clock.requests(), QList<qint64>{3000});

    // Qt's HTTP layer sometimes sends the request once more by itself as the
    // connection breaks (an answer nobody reads); the next script is for
    // the attempt after the wait.
    QTest::qWait(100);
    w.service->scriptMeetingStream(MeetingStreamScript().data(transcript("0", "again")).end());
    const int requests = w.service->requestCount("GET", w.path());
    w.clock.advance(2999ms);
    QTest::qWait(50);
    QCOMPARE(w.manager.attempts(), 1);
    QCOMPARE(w.service->requestCount("GET", w.path()), requests);
    w.clock.advance(1ms);
    QCOMPARE(w.manager.attempts(), 2);
    TRY_COMPARE(w.service->requestCount("GET", w.path()), requests + 1);
    TRY_COMPARE(ended.count(), 1);
    // The same speaker goes on in the segment that was kept.
    QCOMPARE(rows(w.manager), QStringList{"0 0: Hello again"});
    // Error → connected directly: "connecting" belongs to connect() alone.
    QStringList names;
    for (const SSEConnectionStatus& s : seen)
        names << s.caseName();
    QCOMPARE(names, (QStringList{"connecting", "connected", "error", "connected", "disconnected"}));
}

void TestLiveTranscriptManager::aPageThatIsNotAStreamIsRetried()
{
    SignedIn w;
    // A captive portal answers everything with its sign-in page.
    w.service->script("GET", w.path(),
                      local::ScriptedAnswer::reply(200, "<html>Sign in to the Wi-Fi</html>",
                                                   {{"Content-Type", "text/html; charset=utf-8"}}));
    w.service->scriptMeetingStream(MeetingStreamScript().data(transcript("0", "Hi")).end());
    QSignalSpy ended(&w.manager, &LiveTranscriptManager::streamEnded);
    QSignalSpy statuses(&w.manager, &LiveTranscriptManager::connectionStatusChanged);
    w.connect();
    TRY_VERIFY(w.manager.connectionStatus().isError());
    QCOMPARE(w.manager.connectionStatus().message(),
             QStringLiteral("Not an event stream: the answer was text/html; charset=utf-8 "
                            "(HTTP 200)"));
    QVERIFY(w.manager.isActive());
    QCOMPARE(statuses.count(), 2); // connecting, then the error: never connected
    QCOMPARE(w.clock.requests(), QList<qint64>{3000});
    w.clock.advance(3s);
    TRY_COMPARE(ended.count(), 1);
    QCOMPARE(w.manager.connectionStatus(), SSEConnectionStatus::disconnected());
    QCOMPARE(rows(w.manager), QStringList{"0 0: Hi"});
}

void TestLiveTranscriptManager::bytesAsTheyComeOffTheWire()
{
    SignedIn w;
    w.service->scriptMeetingStream(
        MeetingStreamScript()
            .raw(": welcome\n\nevent: transcript\n")
            .raw(R"(data: {"type":"transcript","segm)")
            .pause(40ms)
            .raw("ents\":[{\"speaker\":\"0\",\"text\":\"Hi\"}]}\r\n\r\n")
            .raw("data:{\"type\":\"status\",\"status\":\"no space\"}\n")
            .data({{"type", "status"}, {"status", 5}})
            .raw("data: not json at all\n\ndata: {\"type\":\"transcript\",\"segments\":7}\n")
            .data({{"type", "status"}, {"status", "recording"}})
            .raw("id: 9\nretry: 10\ndata: {\"type\":\"speaker_names\",\"names\":{\"0\":\"Ada\"}}")
            .pause(40ms)
            .raw("\ndata: "
                 "{\"type\":\"transcript\",\"segments\":[{\"speaker\":\"1\",\"text\":\"Yo\"}]}")
            .raw("\n")
            .end());
    QSignalSpy ended(&w.manager, &LiveTranscriptManager::streamEnded);
    QSignalSpy appended(&w.manager, &LiveTranscriptManager::segmentAppended);
    QSignalSpy meetingStatus(&w.manager, &LiveTranscriptManager::meetingStatusChanged);
    w.connect();
    TRY_COMPARE(ended.count(), 1);
    QCOMPARE(w.manager.connectionStatus(), SSEConnectionStatus::disconnected());
    QCOMPARE(rows(w.manager), (QStringList{"0 0: Hi", "1 1: Yo"}));
    QCOMPARE(appended.count(), 2);
    QCOMPARE(w.manager.meetingStatus(), QStringLiteral("recording"));
    QCOMPARE(meetingStatus.count(), 1);
    QCOMPARE(w.manager.speakerNames().value("0"), QStringLiteral("Ada"));
}

void TestLiveTranscriptManager::disconnectKeepsTheTranscriptConnectStartsOver()
{
    SignedIn w;
    w.service->scriptMeetingStream(MeetingStreamScript()
                                       .data({{"type", "status"}, {"status", "recording"}})
                                       .data(transcript("0", "Kept")));
    QSignalSpy ended(&w.manager, &LiveTranscriptManager::streamEnded);
    w.connect();
    TRY_COMPARE(w.manager.segments().size(), 1);
    w.manager.disconnect();
    QCOMPARE(w.manager.connectionStatus(), SSEConnectionStatus::disconnected());
    QCOMPARE(rows(w.manager), QStringList{"0 0: Kept"});
    QVERIFY(!w.manager.isActive());
    QCOMPARE(ended.count(), 0);
    QCOMPARE(w.clock.pendingCount(), 0);

    // Over again: empty, and its own stream.
    w.service->scriptMeetingStream(MeetingStreamScript().data(transcript("1", "New")).end());
    QSignalSpy cleared(&w.manager, &LiveTranscriptManager::segmentsCleared);
    w.connect();
    QCOMPARE(cleared.count(), 1);
    QVERIFY(w.manager.segments().isEmpty());
    QCOMPARE(w.manager.meetingStatus(), QString());
    TRY_COMPARE(ended.count(), 1);
    QCOMPARE(rows(w.manager), QStringList{"0 1: New"});

    // An origin that makes no URL: an error of its own, not retried.
    w.manager.connect(w.meeting, QString(), w.auth.accessToken());
    QCOMPARE(w.manager.connectionStatus(),
             SSEConnectionStatus::error(QStringLiteral("Invalid URL")));
    QVERIFY(!w.manager.isActive());
    QCOMPARE(w.clock.pendingCount(), 0);
}

void TestLiveTranscriptManager::streamUrl()
{
    // An id is one path segment, whatever it holds.
    QCOMPARE(LiveTranscriptManager::streamUrl(QStringLiteral("https://x.example"),
                                              QStringLiteral("a/b?c"))
                 ->toString(QUrl::FullyEncoded),
             QStringLiteral("https://x.example/api/meetings/a%2Fb%3Fc/live"));
    QVERIFY(!LiveTranscriptManager::streamUrl(QStringLiteral("//"), QStringLiteral("m1")));
}

QTEST_GUILESS_MAIN(TestLiveTranscriptManager)
#include "tst_livetranscriptmanager.moc"
