// The local service from the wire: what it answers and what it remembers.
// (Its scripting, and the live stream's counts, are read by every client
// test that uses them.)

#include "localservicefixture.h"
#include "wire.h"

#include "core/log.h"
#include "support/isolatedenvironment.h"

#include <QJsonArray>
#include <QProcess>
#include <QTcpSocket>
#include <QTimer>
#include <QtTest>

#include <memory>
#include <mutex>
#include <vector>

#include <sys/prctl.h>
#include <sys/resource.h>

#include <csignal>

using namespace sorv;
using namespace sorv::local;
using sorv::test::Answer;
using sorv::test::Wire;
using namespace std::chrono_literals;

namespace {

// One exchange over a raw socket, for requests no HTTP client would send.
QByteArray rawExchange(quint16 port, const QByteArray& request, int waitMs = 5000)
{
    QTcpSocket socket;
    socket.connectToHost(QStringLiteral("127.0.0.1"), port);
    if (!socket.waitForConnected(5000))
        return {};
    socket.write(request);
    socket.waitForBytesWritten(5000);
    QByteArray answer;
    while (socket.waitForReadyRead(waitMs))
        answer += socket.readAll();
    return answer + socket.readAll();
}

// One answer on a kept-alive connection: the head and its Content-Length.
QByteArray readAnswer(QTcpSocket& socket)
{
    QByteArray answer;
    while (socket.waitForReadyRead(10000)) {
        answer += socket.readAll();
        const qsizetype headEnd = answer.indexOf("\r\n\r\n");
        if (headEnd < 0)
            continue;
        const qsizetype at = answer.toLower().indexOf("content-length:");
        const qsizetype length =
            at < 0 ? 0 : answer.mid(at + 15, answer.indexOf('\r', at) - at - 15).trimmed().toInt();
        if (answer.size() >= headEnd + 4 + length)
            break;
    }
    return answer;
}

QByteArray multipartUpload(const QString& token, const QByteArray& filename)
{
    const QByteArray body = "--b\r\nContent-Disposition: form-data; name=\"file\"; filename=\"" +
                            filename + "\"\r\nContent-Type: audio/wav\r\n\r\nRIFF\r\n--b--\r\n";
    return "POST /api/upload HTTP/1.1\r\nHost: x\r\nConnection: close\r\nAuthorization: Bearer " +
           token.toUtf8() +
           "\r\nContent-Type: multipart/form-data; boundary=b\r\nContent-Length: " +
           QByteArray::number(body.size()) + "\r\n\r\n" + body;
}

} // namespace

class TestLocalService : public QObject {
    Q_OBJECT
    std::unique_ptr<test::IsolatedEnvironment> m_env;

private Q_SLOTS:
    void init() { m_env = std::make_unique<test::IsolatedEnvironment>(); }
    void cleanup() { m_env.reset(); }

    void signInRefreshAndSignOut()
    {
        test::LocalServiceFixture service;
        Wire wire(service.origin());

        // A wrong password, and /me with and without a token: the session's
        // own tests.
        const QString refresh = wire.signIn().value("refresh_token").toString();
        QVERIFY(!refresh.isEmpty());

        // Refresh tokens rotate: each is good for exactly one use.
        const Answer refreshed =
            wire.call("POST", "/api/auth/refresh", {{"refresh_token", refresh}});
        QCOMPARE(refreshed.status, 200);
        const QString rotated = refreshed.json.object().value("refresh_token").toString();
        QVERIFY(!rotated.isEmpty() && rotated != refresh);
        QCOMPARE(wire.call("POST", "/api/auth/refresh", {{"refresh_token", refresh}}).status, 401);

        // Logout ends the whole session, access tokens included.
        const QString newAccess = refreshed.json.object().value("token").toString();
        QCOMPARE(wire.call("POST", "/api/auth/logout", {{"refresh_token", rotated}}).status, 200);
        QCOMPARE(wire.call("GET", "/api/auth/me", {}, newAccess).status, 401);
        QCOMPARE(wire.call("POST", "/api/auth/refresh", {{"refresh_token", rotated}}).status, 401);
    }

    void repeatedFailuresAreThrottled()
    {
        test::LocalServiceFixture service;
        Wire wire(service.origin());
        for (int i = 0; i < 5; ++i)
            wire.signIn(QStringLiteral("wrong"));
        const Answer throttled = wire.call(
            "POST", "/api/auth/login",
            {{"email", LocalService::kDemoEmail}, {"password", LocalService::kDemoPassword}});
        QCOMPARE(throttled.status, 429);
        QVERIFY(throttled.retryAfter.toInt() > 0);
    }

    void stateSurvivesARestart()
    {
        test::LocalServiceFixture service;
        Wire wire(service.origin());
        const QString access = wire.token();
        QCOMPARE(wire.call("POST", "/api/meetings/join",
                           {{"meeting_url", "https://us02web.zoom.us/j/1234567890"}}, access)
                     .status,
                 201);

        service.restart();
        QCOMPARE(wire.call("GET", "/api/auth/me", {}, access).status, 200);
        const QJsonArray meetings = wire.call("GET", "/api/meetings", {}, access).json.array();
        QCOMPARE(meetings.size(), 1);
        QCOMPARE(meetings.at(0).toObject().value("platform").toString(), QStringLiteral("zoom"));
        QCOMPARE(meetings.at(0).toObject().value("meeting_code").toString(),
                 QStringLiteral("1234567890"));
    }

    void meetingLinks_data()
    {
        QTest::addColumn<QString>("link");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("platform");
        QTest::newRow("meet") << QStringLiteral("https://meet.google.com/abc-defg-hij") << 201
                              << "google_meet";
        QTest::newRow("zoom") << QStringLiteral("https://zoom.us/j/98765432101?pwd=x") << 201
                              << "zoom";
        QTest::newRow("teams")
            << QStringLiteral(
                   "https://teams.microsoft.com/l/meetup-join/19%3ameeting_abc%40thread.v2/0")
            << 201 << "teams";
        QTest::newRow("webex") << QStringLiteral("https://acme.webex.com/meet/jdoe") << 201
                               << "webex";
        QTest::newRow("meet lookalike")
            << QStringLiteral("https://meet.google.com.evil.test/abc-defg-hij") << 422 << "";
        QTest::newRow("not a link") << QStringLiteral("let's meet at noon") << 422 << "";
    }
    void meetingLinks()
    {
        QFETCH(QString, link);
        QFETCH(int, status);
        QFETCH(QString, platform);
        test::LocalServiceFixture service;
        Wire wire(service.origin());
        const QString access = wire.token();
        const Answer a =
            wire.call("POST", "/api/meetings/join",
                      {{"meeting_url", link}, {"bot_name", "Bot"}, {"language", "en"}}, access);
        QCOMPARE(a.status, status);
        if (status == 201) {
            QCOMPARE(a.json.object().value("platform").toString(), platform);
            QCOMPARE(a.json.object().value("status").toString(), QStringLiteral("joining"));
        } else {
            QVERIFY(!a.json.object().value("detail").toString().isEmpty());
        }
    }

    void stopEndsOpenConnections()
    {
        test::LocalServiceFixture service;
        Wire wire(service.origin());
        service->script("GET", "/api/auth/me", ScriptedAnswer::delayed(30s));
        QElapsedTimer timer;
        timer.start();
        QTimer::singleShot(200ms, [&service] { service.stop(); });
        const Answer a = wire.call("GET", "/api/auth/me");
        QCOMPARE(a.status, 0);
        QVERIFY(timer.elapsed() < 20000); // not the scripted 30 s
    }

    void abuseGetsClearAnswers()
    {
        LocalService::Options options;
        options.idleTimeout = 300ms;
        options.headerTimeout = 1s;
        test::LocalServiceFixture service(options);
        const quint16 port = service->port();

        // A request the parser cannot read is answered, not dropped.
        const QByteArray garbage = rawExchange(port, "GET /\x01 nonsense\r\n\r\n");
        QVERIFY2(garbage.startsWith("HTTP/1.1 400"), garbage.constData());

        // A connection that says nothing is closed after the idle time, and
        // one whose request head stops halfway after the header time.
        QTcpSocket idle;
        idle.connectToHost(QStringLiteral("127.0.0.1"), port);
        QVERIFY(idle.waitForConnected(5000));
        QVERIFY(idle.waitForDisconnected(20000)); // not the default 30 s
        QTcpSocket halfway;
        halfway.connectToHost(QStringLiteral("127.0.0.1"), port);
        QVERIFY(halfway.waitForConnected(5000));
        for (const char* piece : {"GET /api/auth/me HTTP/1.1\r\n", "Host: x\r\n"}) {
            halfway.write(piece);
            QVERIFY(halfway.waitForBytesWritten(5000));
        }
        QVERIFY(halfway.waitForDisconnected(10000));
        // Nor does a body that stops coming hold its connection.
        QTcpSocket stalled;
        stalled.connectToHost(QStringLiteral("127.0.0.1"), port);
        QVERIFY(stalled.waitForConnected(5000));
        stalled.write("POST /api/auth/login HTTP/1.1\r\nHost: x\r\nContent-Length: 100\r\n\r\n{");
        QVERIFY(stalled.waitForBytesWritten(5000));
        QVERIFY(stalled.waitForDisconnected(10000));

        // File names the disk cannot hold are refused, and nothing is kept.
        Wire wire(service.origin());
        const QString token = wire.token();
        for (const QByteArray& name : {QByteArray(5000, 'a'), QByteArray("a\0b.wav", 7)}) {
            const QByteArray answer = rawExchange(port, multipartUpload(token, name));
            QVERIFY2(answer.startsWith("HTTP/1.1 400"), answer.left(200).constData());
            QVERIFY(answer.contains("\"detail\""));
        }
        QVERIFY(QDir(service.dataDirectory() + QStringLiteral("/uploads"))
                    .entryList(QDir::Dirs | QDir::NoDotAndDotDot)
                    .isEmpty());
        const QByteArray fine = rawExchange(port, multipartUpload(token, "fine.wav"));
        QVERIFY2(fine.startsWith("HTTP/1.1 200"), fine.left(200).constData());
    }

    void requestTextIsLoggedAsItCame()
    {
        std::mutex mutex;
        QStringList lines;
        setLogSink([&](const QString& line) {
            std::lock_guard lock(mutex);
            lines.append(line);
        });
        LocalService::Options options;
        options.logRequests = true;
        test::LocalServiceFixture service(options);
        service->script("GET", QStringLiteral("/scripted/%0%2"), ScriptedAnswer::reply(204));
        for (const QByteArray path : {"/nowhere/%1%20%0", "/scripted/%0%2"})
            rawExchange(service->port(),
                        "GET " + path + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
        service.stop();
        setLogSink({});
        QCOMPARE(lines.filter(QStringLiteral("🌐")),
                 (QStringList{QStringLiteral("🌐 GET /nowhere/%1%20%0 → 404"),
                              QStringLiteral("🌐 GET /scripted/%0%2 → 204 (scripted)")}));
    }

    // The executable, with its limits lowered, under connections that never
    // finish a request: it backs off instead of spinning, serves its open
    // connections meanwhile, and answers a new one long before the header
    // time would have closed them (the idle ones make room).
    void idleConnectionsBeyondTheLimits_data()
    {
        QTest::addColumn<int>("fileLimit"); // 0: as inherited
        QTest::addColumn<int>("maxConnections");
        QTest::addColumn<int>("idle");
        QTest::addColumn<QString>("warning");
        QTest::newRow("out of file descriptors")
            << 32 << 512 << 60
            << QStringLiteral("⚠️ Cannot accept connections (Too many open files)");
        QTest::newRow("at the connection cap")
            << 0 << 8 << 30 << QStringLiteral("⚠️ 8 connections open: new ones wait");
    }

    void idleConnectionsBeyondTheLimits()
    {
        QFETCH(int, fileLimit);
        QFETCH(int, maxConnections);
        QFETCH(int, idle);
        QFETCH(QString, warning);
        QProcess process;
        process.setChildProcessModifier([fileLimit] {
            ::prctl(PR_SET_PDEATHSIG, SIGTERM);
            if (fileLimit > 0) {
                const rlimit limit{rlim_t(fileLimit), rlim_t(fileLimit)};
                ::setrlimit(RLIMIT_NOFILE, &limit);
            }
        });
        process.start(test::buildDirectory() +
                          QStringLiteral("/localservice/sorvelandrix-local-service"),
                      {"--port", "0", "--data", m_env->path("service"), "--max-connections",
                       QString::number(maxConnections)});
        QByteArray output;
        const QRegularExpression listening(QStringLiteral("Listening on http://127.0.0.1:(\\d+)"));
        QRegularExpressionMatch match;
        while (!(match = listening.match(QString::fromUtf8(output))).hasMatch()) {
            QVERIFY2(process.waitForReadyRead(10000), output.constData());
            output += process.readAllStandardOutput();
        }
        const auto port = static_cast<quint16>(match.captured(1).toUInt());
        const QByteArray request = "GET /updates/appcast.xml HTTP/1.1\r\nHost: x\r\n\r\n";

        QTcpSocket kept;
        kept.connectToHost(QStringLiteral("127.0.0.1"), port);
        QVERIFY(kept.waitForConnected(5000));
        kept.write(request);
        QVERIFY(readAnswer(kept).startsWith("HTTP/1.1 200"));

        // Half say nothing, half stop in the middle of a request head.
        std::vector<std::unique_ptr<QTcpSocket>> quiet;
        for (int i = 0; i < idle; ++i) {
            auto& socket = quiet.emplace_back(std::make_unique<QTcpSocket>());
            socket->connectToHost(QStringLiteral("127.0.0.1"), port);
            QVERIFY(socket->waitForConnected(5000));
            if (i % 2 == 1) {
                socket->write("GET /api/auth/me HTTP/1.1\r\nHost: x\r\n");
                socket->flush();
            }
        }
        kept.write(request);
        QVERIFY(readAnswer(kept).startsWith("HTTP/1.1 200"));
        const QByteArray fresh = rawExchange(
            port, "GET /updates/appcast.xml HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n",
            15000);
        QVERIFY2(fresh.startsWith("HTTP/1.1 200"), fresh.left(200).constData());

        process.terminate();
        QVERIFY(process.waitForFinished(10000));
        output += process.readAllStandardOutput();
        QVERIFY2(output.contains(warning.toUtf8()), output.constData());
    }
};

QTEST_GUILESS_MAIN(TestLocalService)
#include "tst_localservice.moc"
