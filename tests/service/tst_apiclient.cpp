// The meeting-bot client against the local service over loopback.

#include "signedin.h"

#include "core/log.h"
#include "core/secretstore.h"
#include "core/settings.h"
#include "service/apiclient.h"
#include "service/authmanager.h"
#include "support/isolatedenvironment.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

using namespace sorv;
using namespace sorv::local;

namespace {

template <typename T>
T await(std::function<void(const QObject*, std::function<void(T)>)> start, const QObject* context)
{
    std::optional<T> result;
    start(context, [&result](T value) { result = std::move(value); });
    if (!QTest::qWaitFor([&] { return result.has_value(); }, 20000))
        qFatal("no answer");
    return std::move(*result);
}

// One test's world: private settings and secrets, a fresh service, a client.
struct World : test::SignedOut {
    explicit World(bool signIn = true)
    {
        if (signIn)
            test::signIn(auth);
        service->clearRequestLog();
    }
    QList<Meeting> meetings()
    {
        return await<QList<Meeting>>(
            [this](const QObject* c, auto done) { client.fetchMeetings(c, done); }, &context);
    }
    ApiResult<Meeting> join(const QString& link, const QString& bot)
    {
        return await<ApiResult<Meeting>>(
            [&](const QObject* c, auto done) { client.joinMeeting(link, bot, c, done); }, &context);
    }

    APIClient client{auth};
    QObject context;
};

} // namespace

class TestAPIClient : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void headersWithAndWithoutToken()
    {
        World w(false);
        w.meetings();
        w.join("https://meet.google.com/abc-defg-hij", "Bot");
        const QList<LoggedRequest> log = w.service->requestLog();
        QCOMPARE(log.size(), 2);
        for (const LoggedRequest& r : log) {
            // Absent, not an empty bearer.
            const bool hasAuthorization =
                std::any_of(r.headers.cbegin(), r.headers.cend(), [](const auto& h) {
                    return h.first.compare("Authorization", Qt::CaseInsensitive) == 0;
                });
            QVERIFY(!hasAuthorization);
            QCOMPARE(r.header("Content-Type"), QByteArray("application/json"));
            // No speechLocale yet: the header falls back to "af" ...
            QCOMPARE(r.header("x-sorvelandrix-language"), QByteArray("af"));
        }
        // ... while the join body falls back to "it".
        QCOMPARE(QJsonDocument::fromJson(log.at(1).body).object().value("language").toString(),
                 QStringLiteral("it"));
    }

    void joinListAndStop()
    {
        World w;
        Settings::setValue(Settings::kSpeechLocaleKey, QStringLiteral("fr-FR"));
        const auto joined = w.join("https://meet.google.com/abc-defg-hij", "Sorvelandrix Recorder");
        QVERIFY(joined.ok());
        QCOMPARE(joined.value().meeting_code, QStringLiteral("abc-defg-hij"));
        QCOMPARE(joined.value().bot_name,
                 std::optional<QString>(QStringLiteral("Sorvelandrix Recorder")));
        const LoggedRequest join = w.service->requestLog().last();
        QVERIFY(join.header("Authorization").startsWith("Bearer sla_"));
        QCOMPARE(join.header("x-sorvelandrix-language"), QByteArray("fr"));
        QCOMPARE(QJsonDocument::fromJson(join.body).object(),
                 QJsonObject({{"meeting_url", "https://meet.google.com/abc-defg-hij"},
                              {"bot_name", "Sorvelandrix Recorder"},
                              {"language", "fr"}}));

        const auto meetings = w.meetings();
        QCOMPARE(meetings.size(), 1);
        QCOMPARE(meetings.at(0), joined.value());

        const auto stopped = await<std::optional<APIError>>(
            [&](const QObject* c, auto done) { w.client.stopMeeting(joined.value().id, c, done); },
            &w.context);
        QVERIFY(!stopped);
        Settings::remove(Settings::kSpeechLocaleKey);
    }

    void joinFailures_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("message");
        QTest::newRow("service's own 422")
            << 0 << QByteArray()
            << "This is not a Google Meet, Zoom, Microsoft Teams or Webex meeting link.";
        QTest::newRow("502 html") << 502 << QByteArray("<html><body>Bad Gateway</body></html>")
                                  << "HTTP 502";
        QTest::newRow("detail not a string")
            << 400 << QByteArray(R"({"detail":[{"msg":"x"}]})") << "HTTP 400";
        QTest::newRow("201 that is no meeting")
            << 201 << QByteArray(R"({"id":"m"})") << "missing key \"meeting_code\"";
    }
    void joinFailures()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, message);
        World w;
        if (status)
            w.service->script("POST", "/api/meetings/join", ScriptedAnswer::reply(status, body));
        const auto joined = w.join("https://example.com/not-a-meeting", "Bot");
        QVERIFY(!joined.ok());
        QCOMPARE(joined.error().description(), message);
    }

    void stopOfAnUnknownMeetingFails()
    {
        World w;
        const auto error = await<std::optional<APIError>>(
            [&](const QObject* c, auto done) { w.client.stopMeeting("nope", c, done); },
            &w.context);
        QVERIFY(error);
        QCOMPARE(error->description(), QStringLiteral("No response from server"));
    }

    void invalidOriginAndUnreadableList()
    {
        World w;
        QStringList console;
        setLogSink([&console](const QString& line) { console << line; });

        w.service->script("GET", "/api/meetings", ScriptedAnswer::reply(200, R"([{"id":"m1"}])"));
        const auto meetings = w.meetings();
        QVERIFY(meetings.isEmpty());
        QCOMPARE(console.size(), 1);
        QVERIFY(console.at(0).startsWith(QStringLiteral("Fetch meetings error: ")));

        Settings::setServerOverride(QStringLiteral("not a server"));
        const auto joined = w.join("https://meet.google.com/abc-defg-hij", "B");
        QCOMPARE(joined.error().description(), QStringLiteral("Invalid URL"));
        const auto stopped = await<std::optional<APIError>>(
            [&](const QObject* c, auto done) { w.client.stopMeeting("x", c, done); }, &w.context);
        QCOMPARE(stopped->description(), QStringLiteral("Invalid URL"));
        setLogSink({});
    }

    void postIsNeverSentTwice()
    {
        // The service takes the request and closes the connection without an
        // answer, on a connection kept alive from an earlier request: it may
        // have sent the bot already, so the request is not sent again.
        World w;
        w.meetings();
        w.service->script("POST", "/api/meetings/join", ScriptedAnswer::dropped());
        const auto failed = w.join("https://meet.google.com/abc-defg-hij", "Bot");
        QVERIFY(!failed.ok());
        QCOMPARE(w.service->requestCount("POST", "/api/meetings/join"), 1);
    }

    void answersAreBounded()
    {
        World w;
        w.service->script("GET", "/api/meetings",
                          ScriptedAnswer::reply(200, QByteArray(qsizetype{5} * 1024 * 1024, ' ')));
        const auto result = await<ApiResult<QList<Meeting>>>(
            [&](const QObject* c, auto done) { w.client.fetchMeetingsResult(c, done); },
            &w.context);
        QVERIFY(!result.ok());
        QVERIFY2(result.error().description().contains(QStringLiteral("too large")),
                 qPrintable(result.error().description()));
    }

    void redirectsAreFollowedOnlyWhenNoLessSafe()
    {
        World w;
        // Within the service: followed.
        w.service->script("GET", "/api/meetings",
                          ScriptedAnswer::reply(302, {}, {{"Location", "/api/meetings"}}));
        auto result = await<ApiResult<QList<Meeting>>>(
            [&](const QObject* c, auto done) { w.client.fetchMeetingsResult(c, done); },
            &w.context);
        QVERIFY(result.ok());
        QCOMPARE(w.service->requestCount("GET", "/api/meetings"), 2);

        // Elsewhere, with the token on the request: refused, nothing sent there.
        const QByteArray elsewhere =
            w.service.origin().replace("127.0.0.1", "localhost").toUtf8() + "/api/meetings";
        w.service->script("GET", "/api/meetings",
                          ScriptedAnswer::reply(302, {}, {{"Location", elsewhere}}));
        result = await<ApiResult<QList<Meeting>>>(
            [&](const QObject* c, auto done) { w.client.fetchMeetingsResult(c, done); },
            &w.context);
        QVERIFY(!result.ok());
        QVERIFY2(result.error().description().startsWith(QStringLiteral("Refused a redirect")),
                 qPrintable(result.error().description()));
        QCOMPARE(w.service->requestCount("GET", "/api/meetings"), 3);
    }

    void nothingIsCalledOnceTheContextIsGone()
    {
        World w;
        w.service->script("GET", "/api/meetings",
                          ScriptedAnswer::delayed(std::chrono::milliseconds(200)));
        bool called = false;
        auto context = std::make_unique<QObject>();
        w.client.fetchMeetings(context.get(), [&called](const QList<Meeting>&) { called = true; });
        context.reset();
        QTest::qWait(400);
        QVERIFY(!called);
    }
};

QTEST_GUILESS_MAIN(TestAPIClient)
#include "tst_apiclient.moc"
