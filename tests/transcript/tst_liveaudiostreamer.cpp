// LiveAudioStreamer against the local service over loopback, on a clock the
// test moves: the session's wire exchange, the connection URL and its log
// line, the back-off schedule, the 4001 refresh both ways, the wait for the
// session's current token, the keepalive, the service's own errors and
// closes, and a service that misbehaves (oversized messages, a flood, a
// handshake never answered, a fresh token refused, a service that stops
// reading).

#include "core/log.h"
#include "core/secretstore.h"
#include "manualclock.h"
#include "service/authmanager.h"
#include "signedin.h"
#include "support/isolatedenvironment.h"
#include "transcript/liveaudiostreamer.h"

#include <QDeadlineTimer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <QThread>

#include <mutex>

// Generous waits: the service, the sanitizers and other builds share a busy
// machine, and a wait ends as soon as its condition holds.
#define TRY_COMPARE(actual, expected) QTRY_COMPARE_WITH_TIMEOUT(actual, expected, 30000)
#define TRY_VERIFY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, 30000)

using namespace sorv;
using namespace sorv::LiveEvent;
using local::LiveScript;
using namespace std::chrono_literals;

namespace {

// A second session's token, the first one's still good.
QString signIn()
{
    SecretStore secrets(SecretStore::Options::fileOnly());
    AuthManager auth(secrets);
    test::signIn(auth);
    return auth.accessToken();
}

struct Harness : test::SignedIn {
    test::ManualClock clock;
    LiveAudioStreamer streamer{clock.timing()};
    std::vector<LiveTranscriptEvent> events;
    QString token = auth.accessToken();

    Harness()
    {
        streamer.onTranscriptUpdate = [this](const LiveTranscriptEvent& e) { events.push_back(e); };
        clock.setSettle([this] { (void)streamer.isActive(); });
    }

    template <typename T> QList<T> all() const
    {
        QList<T> out;
        for (const auto& e : events)
            if (const T* t = std::get_if<T>(&e))
                out << *t;
        return out;
    }
    template <typename T> int count() const { return int(all<T>().size()); }
    QStringList errors() const
    {
        QStringList out;
        for (const Error& e : all<Error>())
            out << e.message;
        return out;
    }
    int connecting() const { return all<Status>().count(Status{QStringLiteral("connecting")}); }
    local::LiveSession session(int i) { return service->liveSessions().value(i); }
    // A whole number of frames of audio.
    void sendFrames(int frames, float value = 0.1f)
    {
        streamer.sendAudio(std::vector<float>(std::size_t(3 * 1920 * frames), value));
    }
};

} // namespace

class TestLiveAudioStreamer : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        setLogSink([this](const QString& line) {
            // On the streamer's queue: read under the same lock.
            std::lock_guard lock(m_logMutex);
            m_lines << line;
        });
    }
    void cleanupTestCase() { setLogSink({}); }
    void init()
    {
        std::lock_guard lock(m_logMutex);
        m_lines.clear();
    }

    void urlRules_data()
    {
        QTest::addColumn<QString>("origin");
        QTest::addColumn<QString>("url");
        QTest::newRow("https becomes wss") << QStringLiteral("https://sorvelandrix.com")
                                           << "wss://sorvelandrix.com/api/live/stream?token=T0K";
        QTest::newRow("http becomes ws, slashes trimmed")
            << QStringLiteral("//http://127.0.0.1:8765///")
            << "ws://127.0.0.1:8765/api/live/stream?token=T0K";
    }

    void urlRules()
    {
        QFETCH(QString, origin);
        QFETCH(QString, url);
        QCOMPARE(LiveAudioStreamer::connectionUrlText(origin, QStringLiteral("T0K")), url);

        // The log shows neither the token nor more than 80 characters.
        const QString token = QStringLiteral("sla_") + QStringLiteral("s3cr3t").repeated(8);
        const QString full = LiveAudioStreamer::connectionUrlText(origin, token);
        const QString shown = LiveAudioStreamer::loggedUrl(full, token);
        QVERIFY(!shown.contains(QStringLiteral("s3cr3t")));
        QCOMPARE(shown, url.chopped(3) + QStringLiteral("……"));
        const QString longOrigin = QStringLiteral("https://") + QStringLiteral("a").repeated(100);
        const QString cut = LiveAudioStreamer::loggedUrl(
            LiveAudioStreamer::connectionUrlText(longOrigin, token), token);
        QCOMPARE(cut.size(), 81);
        QVERIFY(cut.endsWith(QStringLiteral("a…")));
    }

    void sessionOnTheWire()
    {
        Harness h;
        h.service->scriptLive(LiveScript()); // no transcript: the exchange alone
        h.streamer.start(h.service.origin(), h.token, {QStringLiteral("de"), QStringLiteral("en")});
        TRY_COMPARE(h.count<Connected>(), 1);
        QCOMPARE(h.events.front(), LiveTranscriptEvent(Status{QStringLiteral("connecting")}));
        const local::LiveSession opened = h.session(0);
        QCOMPARE(h.all<Connected>().first().transcriptionId, opened.transcriptionId);
        QCOMPARE(opened.token, h.token);
        QCOMPARE(opened.languageHints, (QStringList{QStringLiteral("de"), QStringLiteral("en")}));

        // One second of audio: 8 frames of 3 840 bytes; 1 280 bytes wait.
        h.streamer.sendAudio(std::vector<float>(48000, 0.1f));
        TRY_COMPARE(h.service->liveFramesReceived(), 8);
        QCOMPARE(h.session(0).oddFrames, 0);
        QCOMPARE(h.session(0).bytes, 8 * 3840);

        h.streamer.stop();
        TRY_VERIFY(h.session(0).sentinel);
        // The service's answer to the sentinel arrives within the grace period.
        TRY_COMPARE(h.all<Status>().count(Status{QStringLiteral("completed")}), 1);
        QCOMPARE(h.count<Disconnected>(), 0);
        h.clock.advance(499ms);
        QCOMPARE(h.count<Disconnected>(), 0);
        h.clock.advance(1ms);
        TRY_COMPARE(h.count<Disconnected>(), 1);
        TRY_VERIFY(h.session(0).ended);
        QCOMPARE(h.session(0).frames, 8); // what waited was never sent
        QCOMPARE(h.session(0).closeCodeSent, 1000);
        QVERIFY(!h.streamer.isActive());

        const QString connectingLine =
            QStringLiteral("🌐 Connecting to ws://127.0.0.1:%1/api/live/stream?token=……")
                .arg(h.service->port());
        QVERIFY2(logged(connectingLine), qPrintable(log().join('\n')));
        for (const QString& line : log())
            QVERIFY2(!line.contains(h.token), qPrintable(line));
        QVERIFY(logged(QStringLiteral(R"(📡 Sent initial config: {"language_hints":["de","en"]})")));
        QVERIFY(logged(QStringLiteral("📡 Sent end-of-stream sentinel")));
        QVERIFY(logged(QStringLiteral("🌐 Disconnected (Client stopped)")));
    }

    void startWhileActiveAndStopWhileIdle()
    {
        Harness h;
        h.streamer.stop();
        QVERIFY(!h.streamer.isActive());
        h.service->scriptLive(LiveScript());
        h.streamer.start(h.service.origin(), h.token, {QStringLiteral("en")});
        h.streamer.start(h.service.origin(), h.token, {QStringLiteral("fr")});
        TRY_COMPARE(h.count<Connected>(), 1);
        QTRY_VERIFY(logged(QStringLiteral("🌐 LiveAudioStreamer already active, ignoring start()")));
        QCOMPARE(h.service->liveSessions().size(), 1);
        QCOMPARE(h.session(0).languageHints, QStringList{QStringLiteral("en")});
        QCOMPARE(h.connecting(), 1);
    }

    void invalidUrlIsReportedAndNotRetried()
    {
        Harness h;
        h.streamer.start(QStringLiteral("not a server"), h.token, {QStringLiteral("en")});
        TRY_COMPARE(h.errors(), QStringList{QStringLiteral("Invalid WebSocket URL")});
        QCOMPARE(h.connecting(), 0);
        QVERIFY(logged(QStringLiteral("🌐 ❌ Invalid WebSocket URL")));
        QVERIFY(h.clock.requests().isEmpty());
        // Still active: stopping ends it.
        QVERIFY(h.streamer.isActive());
        h.streamer.stop();
        TRY_COMPARE(h.count<Disconnected>(), 1);
    }

    void backoffSchedule()
    {
        Harness h;
        h.service.stop();
        h.streamer.start(h.service.origin(), h.token, {QStringLiteral("en")});
        const QList<qint64> schedule{1000, 2000, 4000, 8000, 16000, 30000, 30000};
        for (qsizetype i = 0; i < schedule.size(); ++i) {
            TRY_COMPARE(h.clock.requestsBesidesKeepalive().size(), i + 1);
            QCOMPARE(h.clock.requestsBesidesKeepalive().last(), schedule[i]);
            TRY_COMPARE(h.errors().size(), i + 1);
            const QString error = h.errors().last();
            // The socket's own words, not a close code nobody sent.
            QVERIFY2(error.startsWith(QStringLiteral("Connection lost (Connection refused)")) &&
                         error.endsWith(
                             QStringLiteral("), reconnecting in %1s…").arg(schedule[i] / 1000)),
                     qPrintable(error));
            QCOMPARE(h.connecting(), i + 1);
            QCOMPARE(h.streamer.reconnectAttempts(), i + 1);
            // Not a moment early.
            h.clock.advance(std::chrono::milliseconds(schedule[i] - 1));
            QCOMPARE(h.connecting(), i + 1);
            h.clock.advance(1ms);
            TRY_COMPARE(h.connecting(), i + 2);
        }
        const QStringList lines = log();
        QVERIFY2(std::any_of(lines.cbegin(), lines.cend(),
                             [](const QString& l) {
                                 return l.startsWith(QStringLiteral("🌐 🔄 Disconnected (")) &&
                                        l.endsWith(
                                            QStringLiteral("reconnecting in 30s (attempt #7)"));
                             }),
                 qPrintable(lines.join('\n')));

        // Back again: the stream resumes; the count only resets on start or refresh.
        TRY_COMPARE(h.clock.requestsBesidesKeepalive().size(), 8);
        QCOMPARE(h.clock.requestsBesidesKeepalive().last(), 30000);
        h.service.restart();
        h.clock.advance(30s);
        TRY_COMPARE(h.count<Connected>(), 1);
        QCOMPARE(h.streamer.reconnectAttempts(), 8);
    }

    void closeByTheServiceReconnects()
    {
        Harness h;
        h.service->scriptLive(LiveScript().close(1011, "overloaded", 1));
        h.streamer.start(h.service.origin(), h.token, {QStringLiteral("en")});
        TRY_COMPARE(h.count<Connected>(), 1);
        h.sendFrames(1);
        TRY_COMPARE(h.clock.requestsBesidesKeepalive(), QList<qint64>{1000});
        // The event is posted to this thread before the retry is timed, but may
        // not have been handled yet.
        TRY_COMPARE(h.errors().size(), 1);
        QCOMPARE(h.errors().last(),
                 QStringLiteral("Connection lost (overloaded), reconnecting in 1s…"));
        h.clock.advance(1s);
        TRY_COMPARE(h.count<Connected>(), 2);
        QCOMPARE(h.service->liveSessions().size(), 2);
    }

    void authExpiredAndRefreshFails()
    {
        Harness h;
        int asked = 0;
        h.streamer.onAuthNeeded = [&asked](const LiveAudioStreamer::TokenReply& reply) {
            ++asked;
            reply(std::nullopt);
        };
        h.service->expireAccessTokens();
        h.streamer.start(h.service.origin(), h.token, {QStringLiteral("en")});
        TRY_COMPARE(h.count<Disconnected>(), 1);
        QCOMPARE(asked, 1);
        QCOMPARE(h.session(0).closeCodeSent, 4001);
        QCOMPARE(h.events, (std::vector<LiveTranscriptEvent>{
                               Status{QStringLiteral("connecting")},
                               Error{QStringLiteral("Authentication expired, refreshing…"), true},
                               Error{QStringLiteral("Authentication failed")}, Disconnected{}}));
        QVERIFY(logged(QStringLiteral("🌐 🔑 Auth error (4001), attempting token refresh…")));
        QVERIFY(!h.streamer.isActive());
        // No reconnection, however long one waits.
        h.clock.advance(120s);
        QCOMPARE(h.service->liveSessions().size(), 1);
        QVERIFY(h.clock.requestsBesidesKeepalive().isEmpty());
    }

    void authExpiredAndRefreshSucceeds()
    {
        Harness h;
        const QString fresh = signIn();
        QVERIFY(fresh != h.token);
        h.streamer.onAuthNeeded = [&fresh](const LiveAudioStreamer::TokenReply& reply) {
            reply(fresh);
        };
        // Two failures first, so there is a count to reset.
        h.service->scriptLive(LiveScript().drop());
        h.service->scriptLive(LiveScript().drop());
        h.service->scriptLive(
            LiveScript().close(4001, "Token expired", LiveScript::kBeforeConnected));
        h.service->scriptLive(LiveScript().drop(1));
        h.streamer.start(h.service.origin(), h.token, {QStringLiteral("en")});
        TRY_COMPARE(h.clock.requestsBesidesKeepalive(), QList<qint64>{1000});
        h.clock.advance(1s);
        TRY_COMPARE(h.clock.requestsBesidesKeepalive(), (QList<qint64>{1000, 2000}));
        QCOMPARE(h.streamer.reconnectAttempts(), 2);
        h.clock.advance(2s);
        // The 4001 close: refreshed, and at once (no back-off) on the new token.
        TRY_COMPARE(h.service->liveSessions().size(), 4);
        TRY_COMPARE(h.count<Connected>(), 3);
        QCOMPARE(h.session(2).token, h.token);
        QCOMPARE(h.session(3).token, fresh);
        QCOMPARE(h.streamer.reconnectAttempts(), 0);
        QVERIFY(h.errors().contains(QStringLiteral("Authentication expired, refreshing…")));
        QVERIFY(!h.errors().contains(QStringLiteral("Authentication failed")));
        // The next failure starts the schedule from the beginning.
        h.sendFrames(1);
        TRY_COMPARE(h.clock.requestsBesidesKeepalive(), (QList<qint64>{1000, 2000, 1000}));
    }

    void connectionWaitsForTheCurrentToken()
    {
        Harness h;
        const QString fresh = signIn();
        // The session's refresh is under way: its answer is held back.
        std::vector<LiveAudioStreamer::TokenReply> asked;
        const auto currentToken = [&asked](const LiveAudioStreamer::TokenReply& reply) {
            asked.push_back(reply);
        };
        h.service->scriptLive(LiveScript().drop(3));
        h.service->scriptLive(LiveScript());
        h.streamer.start(h.service.origin(), h.token, {QStringLiteral("en")}, currentToken);
        TRY_COMPARE(asked.size(), std::size_t{1});
        // The meeting's first words wait with the connection.
        h.sendFrames(3);
        QCOMPARE(h.streamer.isActive(), true);
        QVERIFY(h.service->liveSessions().isEmpty());
        asked.front()(fresh);
        TRY_COMPARE(h.service->liveFramesReceived(), 3);
        QCOMPARE(h.session(0).token, fresh);
        // A reconnection asks again.
        TRY_COMPARE(h.clock.requestsBesidesKeepalive(), QList<qint64>{1000});
        h.clock.advance(1s);
        TRY_COMPARE(asked.size(), std::size_t{2});
        asked.back()(h.token);
        TRY_COMPARE(h.count<Connected>(), 2);
        QCOMPARE(h.session(1).token, h.token);
        QCOMPARE(h.streamer.droppedFrames(), 0);
    }

    void keepalivePingsWhileAudioFlows()
    {
        Harness h;
        h.service->scriptLive(LiveScript());
        h.streamer.start(h.service.origin(), h.token, {QStringLiteral("en")});
        TRY_COMPARE(h.count<Connected>(), 1);
        // Audio every 5 s; a ping every 15 s all the same.
        for (int i = 1; i <= 6; ++i) {
            h.sendFrames(1);
            TRY_COMPARE(h.service->liveFramesReceived(), i);
            h.clock.advance(5s);
            TRY_COMPARE(h.session(0).pings, i / 3);
            // Answered before its 10 s are up.
            if (i % 3 == 0)
                TRY_COMPARE(log().count(QStringLiteral("🌐 💓 Keepalive ping sent (silence: 5s)")),
                            i / 3);
        }
        QCOMPARE(h.service->liveSessions().size(), 1);
        QVERIFY(h.clock.requestsBesidesKeepalive().isEmpty());
    }

    void unansweredPingIsAStall()
    {
        Harness h;
        h.service->scriptLive(LiveScript().deafen());
        h.service->scriptLive(LiveScript());
        h.streamer.start(h.service.origin(), h.token, {QStringLiteral("en")});
        TRY_COMPARE(h.count<Connected>(), 1);
        h.clock.advance(15s);
        h.clock.advance(9999ms);
        QVERIFY(h.errors().isEmpty());
        h.clock.advance(1ms);
        TRY_COMPARE(h.errors(),
                    QStringList{QStringLiteral("Connection lost (no answer to the keepalive ping), "
                                               "reconnecting in 1s…")});
        QVERIFY(logged(QStringLiteral("🌐 ⚠️ Keepalive ping failed: no answer in 10 s")));
        h.clock.advance(1s);
        TRY_COMPARE(h.count<Connected>(), 2);
    }

    void serviceThatStopsReadingCostsAReconnectNotMemory()
    {
        Harness h;
        h.service->scriptLive(LiveScript().deafen(1));
        h.service->scriptLive(LiveScript());
        h.streamer.start(h.service.origin(), h.token, {QStringLiteral("en")});
        TRY_COMPARE(h.count<Connected>(), 1);
        h.sendFrames(1);
        TRY_COMPARE(h.session(0).frames, 1);
        // Minutes of audio, faster than it is made: once the kernel's buffers
        // are full, only 2 s of it may wait in the socket's.
        int sent = 0;
        while (h.streamer.reconnectAttempts() == 0 && sent < 8000) {
            h.sendFrames(100);
            sent += 100;
        }
        QCOMPARE(h.streamer.reconnectAttempts(), 1);
        TRY_COMPARE(h.errors(),
                    QStringList{QStringLiteral("Connection lost (the service is not "
                                               "taking the audio), reconnecting in 1s…")});
        h.clock.advance(1s);
        TRY_COMPARE(h.count<Connected>(), 2);
        h.sendFrames(1);
        TRY_COMPARE(h.session(1).frames, 1);
        // What was lost is told once, with how much.
        const std::int64_t dropped = h.streamer.droppedFrames();
        QVERIFY(dropped > 0 && dropped < sent);
        const QStringList told = log().filter(QStringLiteral("did not reach the service"));
        QCOMPARE(told.size(), 1);
        QVERIFY2(told.first().endsWith(
                     QStringLiteral("(%1 frames) did not reach the service").arg(dropped)),
                 qPrintable(told.first()));
    }

    void serviceErrorKeepsTheConnection()
    {
        Harness h;
        h.service->scriptLive(
            LiveScript().send({{QStringLiteral("type"), QStringLiteral("error")},
                               {QStringLiteral("message"), QStringLiteral("Quota exceeded")}}));
        h.streamer.start(h.service.origin(), h.token, {QStringLiteral("en")});
        TRY_COMPARE(h.errors(), QStringList{QStringLiteral("Quota exceeded")});
        QVERIFY(logged(QStringLiteral("🌐 ❌ Server error: Quota exceeded")));
        h.sendFrames(2);
        TRY_COMPARE(h.service->liveFramesReceived(), 2);
        QCOMPARE(h.service->liveSessions().size(), 1);
        QVERIFY(h.clock.requestsBesidesKeepalive().isEmpty());
    }

    void oversizedMessageClosesTheConnection_data()
    {
        QTest::addColumn<qsizetype>("frameBytes");
        QTest::newRow("in one frame") << qsizetype(0);
        QTest::newRow("in many small frames") << qsizetype(4096);
    }

    void oversizedMessageClosesTheConnection()
    {
        QFETCH(qsizetype, frameBytes);
        Harness h;
        const QByteArray text(qsizetype{2} * 1024 * 1024, 'a');
        h.service->scriptLive(LiveScript().sendInFrames(
            R"({"type":"partial","speaker":"0","text":")" + text + R"("})", frameBytes));
        h.streamer.start(h.service.origin(), h.token, {QStringLiteral("en")});
        // Refused unread: a lost connection like any other, and back again after 1 s.
        TRY_COMPARE(h.clock.requestsBesidesKeepalive(), QList<qint64>{1000});
        TRY_COMPARE(h.errors().size(), 1);
        QVERIFY2(h.errors().first().startsWith(QStringLiteral("Connection lost (")),
                 qPrintable(h.errors().first()));
        QCOMPARE(h.count<Partial>(), 0);
        h.clock.advance(1s);
        TRY_COMPARE(h.count<Connected>(), 2);
    }

    void wordsFasterThanTheyCanBeTakenCloseTheConnection()
    {
        Harness h;
        // 16 MB of final segments at once.
        LiveScript script;
        const QString text = QStringLiteral("x").repeated(1000);
        for (int i = 0; i < 16000; ++i)
            script.send(
                {{"type", "segment"}, {"speaker", "0"}, {"text", text}, {"is_final", true}});
        h.service->scriptLive(script);
        h.streamer.start(h.service.origin(), h.token, {QStringLiteral("en")});
        // This thread takes no event meanwhile (its event loop does not run):
        // what waits for it stays bounded, and the connection goes.
        const QDeadlineTimer deadline(30000);
        while (h.streamer.reconnectAttempts() == 0 && !deadline.hasExpired())
            QThread::yieldCurrentThread();
        QCOMPARE(h.streamer.reconnectAttempts(), 1);
        TRY_VERIFY(
            h.errors().contains(QStringLiteral("Connection lost (the service sends faster than it "
                                               "can be shown), reconnecting in 1s…")));
        QVERIFY(h.count<Segment>() < 16000);
    }

    void unansweredHandshakeIsGivenUp()
    {
        Harness h;
        // Takes the connection and never answers the upgrade.
        QTcpServer silent;
        QVERIFY(silent.listen(QHostAddress::LocalHost));
        QList<QTcpSocket*> held;
        connect(&silent, &QTcpServer::newConnection, &silent,
                [&] { held << silent.nextPendingConnection(); });
        h.streamer.start(QStringLiteral("http://127.0.0.1:%1").arg(silent.serverPort()), h.token,
                         {QStringLiteral("en")});
        TRY_COMPARE(held.size(), 1);
        h.clock.advance(14s);
        QVERIFY(h.errors().isEmpty());
        h.clock.advance(1s);
        TRY_COMPARE(h.errors(), QStringList{QStringLiteral(
                                    "Connection lost (no answer from the service in 15 s), "
                                    "reconnecting in 1s…")});
        h.clock.advance(1s);
        TRY_COMPARE(held.size(), 2);
        // And the next wait is longer.
        h.clock.advance(15s);
        TRY_COMPARE(h.errors().size(), 2);
        QVERIFY(h.errors().last().endsWith(QStringLiteral("reconnecting in 2s…")));
        QCOMPARE(h.connecting(), 2);
    }

    void freshTokenRefusedAgainBacksOff()
    {
        Harness h;
        int asked = 0;
        h.streamer.onAuthNeeded = [&](const LiveAudioStreamer::TokenReply& reply) {
            ++asked;
            reply(h.token);
        };
        for (int i = 0; i < 4; ++i)
            h.service->scriptLive(
                LiveScript().close(4001, "Token expired", LiveScript::kBeforeConnected));
        h.streamer.start(h.service.origin(), h.token, {QStringLiteral("en")});
        // The first refusal is an expiry: refreshed, and tried again at once.
        TRY_COMPARE(h.clock.requestsBesidesKeepalive(), QList<qint64>{1000});
        QCOMPARE(h.service->liveSessions().size(), 2);
        QCOMPARE(asked, 1);
        // The fresh token refused as well: each refresh waits out the back-off.
        h.clock.advance(999ms);
        QCOMPARE(asked, 1);
        h.clock.advance(1ms);
        TRY_COMPARE(h.clock.requestsBesidesKeepalive(), (QList<qint64>{1000, 2000}));
        QCOMPARE(asked, 2);
        QCOMPARE(h.service->liveSessions().size(), 3);
        h.clock.advance(2s);
        TRY_COMPARE(h.clock.requestsBesidesKeepalive(), (QList<qint64>{1000, 2000, 4000}));
        QCOMPARE(h.streamer.reconnectAttempts(), 3);
        h.clock.advance(4s);
        TRY_COMPARE(h.count<Connected>(), 1);
        QCOMPARE(h.service->liveSessions().size(), 5);
        QCOMPARE(h.count<Disconnected>(), 0);
    }

private:
    QStringList log() const
    {
        std::lock_guard lock(m_logMutex);
        return m_lines;
    }
    bool logged(const QString& line) const { return log().contains(line); }
    mutable std::mutex m_logMutex;
    QStringList m_lines;
};

QTEST_GUILESS_MAIN(TestLiveAudioStreamer)
#include "tst_liveaudiostreamer.moc"
