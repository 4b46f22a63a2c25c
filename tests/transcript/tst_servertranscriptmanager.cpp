// ServerTranscriptManager: how the service's events fold into segments and
// a status, the display names, the bounds on what a service can make it
// hold, and whole runs against the local service (its scripted
// conversation in both dialects; an expired token refreshed through the
// session; a start during the session's refresh).

#include "core/secretstore.h"
#include "service/authmanager.h"
#include "signedin.h"
#include "support/isolatedenvironment.h"
#include "transcript/servertranscriptmanager.h"

#include <QSignalSpy>
#include <QTest>

// Generous waits: the service, the sanitizers and other builds share a busy
// machine, and a wait ends as soon as its condition holds.
#define TRY_COMPARE(actual, expected) QTRY_COMPARE_WITH_TIMEOUT(actual, expected, 30000)
#define TRY_VERIFY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, 30000)

using namespace sorv;
using namespace sorv::LiveEvent;

using Events = std::vector<sorv::LiveTranscriptEvent>;
Q_DECLARE_METATYPE(Events)

namespace {

// "id speaker displayName: text", one per segment.
QStringList rows(const ServerTranscriptManager& m)
{
    QStringList out;
    for (const TranscriptSegment& s : m.segments())
        out << QStringLiteral("%1 %2 %3: %4").arg(s.id).arg(s.speaker, s.displayName, s.text);
    return out;
}

void feed(ServerTranscriptManager& m, const Events& events)
{
    for (const auto& e : events)
        m.handle(e);
}

using test::SignedIn;

} // namespace

class TestServerTranscriptManager : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void folding_data()
    {
        QTest::addColumn<Events>("events");
        QTest::addColumn<QStringList>("segments");
        QTest::addColumn<QString>("open");

        QTest::newRow("interim text firms up in place")
            << Events{Partial{"Hel", "0"}, Partial{"Hello", "0"},
                      Segment{"0", "Hello there", 0, 900, true}}
            << QStringList{"0 0 0: Hello there"} << QString();
        // Speaker 0's interim text goes on where it was, in a segment of its own.
        QTest::newRow("another speaker in between starts new segments")
            << Events{Partial{"So", "0"}, Segment{"1", "Yes.", 0, 0, true}, Partial{" then", "0"}}
            << QStringList{"0 0 0: So", "1 1 1: Yes.", "2 0 0: So then"} << QStringLiteral("0");
        QTest::newRow("increments are joined, whole texts replace")
            << Events{Partial{"Hel", "0"}, Partial{"lo", "0"}, Partial{"Hello wor", "0"}}
            << QStringList{"0 0 0: Hello wor"} << QStringLiteral("0");
        QTest::newRow("a final without an open segment is appended")
            << Events{Segment{"0", "One.", 0, 0, true}, Segment{"0", "Two.", 0, 0, true}}
            << QStringList{"0 0 0: One.", "1 0 0: Two."} << QString();
        QTest::newRow("an interim segment stays open for its speaker")
            << Events{Segment{"2", "Well", 0, 0, false}, Partial{"Well then", "2"}}
            << QStringList{"0 2 2: Well then"} << QStringLiteral("2");
        QTest::newRow("a final closes the buffer: the next interim text starts afresh")
            << Events{Partial{"Hi", "0"}, Segment{"0", "Hi.", 0, 0, true}, Partial{"Bye", "0"}}
            << QStringList{"0 0 0: Hi.", "1 0 0: Bye"} << QStringLiteral("0");
    }

    void folding()
    {
        QFETCH(Events, events);
        QFETCH(QStringList, segments);
        QFETCH(QString, open);
        ServerTranscriptManager m;
        QSignalSpy appended(&m, &ServerTranscriptManager::segmentAppended);
        feed(m, events);
        QCOMPARE(rows(m), segments);
        QCOMPARE(m.currentPartialSpeaker().value_or(QString()), open);
        QCOMPARE(appended.count(), segments.size());
        QCOMPARE(m.status(), TranscriptStatus::active());
    }

    void displayNames_data()
    {
        QTest::addColumn<QString>("label");
        QTest::addColumn<QString>("name");
        QTest::newRow("you") << QStringLiteral("you") << "You";
        QTest::newRow("words") << QStringLiteral("guest_speaker") << "Guest Speaker";
        QTest::newRow("numbered") << QStringLiteral("speaker_1") << "Speaker 1";
        QTest::newRow("a bare number") << QStringLiteral("0") << "0";
        QTest::newRow("rest lower case") << QStringLiteral("SPEAKER_TWO") << "Speaker Two";
        QTest::newRow("the service's name wins") << QStringLiteral("1") << "Ada";
    }

    void displayNames()
    {
        QFETCH(QString, label);
        QFETCH(QString, name);
        QCOMPARE(ServerTranscriptManager::displayName(label, {{"1", "Ada"}}), name);
    }

    void speakerNamesRenameAndName()
    {
        ServerTranscriptManager m;
        QSignalSpy renamed(&m, &ServerTranscriptManager::segmentDisplayNameChanged);
        feed(m, {Segment{"1", "Hi.", 0, 0, true}, Segment{"2", "Hey.", 0, 0, true},
                 Segment{"1", "How are you?", 0, 0, true}});
        feed(m, {SpeakerNames{{{"1", "Ada"}}}});
        QCOMPARE(rows(m), (QStringList{"0 1 Ada: Hi.", "1 2 2: Hey.", "2 1 Ada: How are you?"}));
        QCOMPARE(renamed.count(), 2);
        QCOMPARE(m.speakerNamesMap(), (QVariantMap{{"1", "Ada"}}));
        feed(m, {Partial{"Fine", "1"}, SpeakerNames{{{"2", "Bo"}}}});
        // A new map replaces the old; names already given stay.
        QCOMPARE(rows(m).last(), QStringLiteral("3 1 Ada: Fine"));
        QCOMPARE(rows(m).at(1), QStringLiteral("1 2 Bo: Hey."));
        QCOMPARE(m.speakerNames(), (QMap<QString, QString>{{"2", "Bo"}}));
    }

    void status_data()
    {
        QTest::addColumn<Events>("events");
        QTest::addColumn<TranscriptStatus>("status");
        const auto connecting = TranscriptStatus::connecting();
        const auto active = TranscriptStatus::active();
        const LiveTranscriptEvent lost =
            Error{"Connection lost (reset), reconnecting in 2s…", true};
        const LiveTranscriptEvent refreshing = Error{"Authentication expired, refreshing…", true};

        QTest::newRow("connected") << Events{Connected{"t"}} << active;
        QTest::newRow("text before connected") << Events{Partial{"a", "0"}} << active;
        QTest::newRow("lost while active stays active") << Events{Connected{"t"}, lost} << active;
        QTest::newRow("lost while connecting stays connecting")
            << Events{Status{"connecting"}, lost} << connecting;
        QTest::newRow("reconnecting never replaces active")
            << Events{Connected{"t"}, Status{"connecting"}} << active;
        QTest::newRow("other statuses are ignored")
            << Events{Status{"connecting"}, Status{"completed"}} << connecting;
        QTest::newRow("authentication failed, and stays after disconnected")
            << Events{Connected{"t"}, refreshing, Error{"Authentication failed"}, Disconnected{}}
            << TranscriptStatus::error("Authentication failed");
        QTest::newRow("a service error") << Events{Connected{"t"}, Error{"Quota exceeded"}}
                                         << TranscriptStatus::error("Quota exceeded");
        QTest::newRow("a service error that mentions reconnecting")
            << Events{Connected{"t"}, Error{"Upstream reconnecting failed"}}
            << TranscriptStatus::error("Upstream reconnecting failed");
        QTest::newRow("disconnected ends an active transcript")
            << Events{Connected{"t"}, Disconnected{}} << TranscriptStatus::idle();
    }

    void status()
    {
        QFETCH(Events, events);
        QFETCH(TranscriptStatus, status);
        ServerTranscriptManager m;
        feed(m, events);
        QCOMPARE(m.status(), status);
    }

    void languageHints()
    {
        QCOMPARE(ServerTranscriptManager::languageHints("en-US"), QStringList{"en"});
        QCOMPARE(ServerTranscriptManager::languageHints("en-GB"), QStringList{"en"});
        QCOMPARE(ServerTranscriptManager::languageHints("af-ZA"), (QStringList{"af", "en"}));
    }

    void boundedWhateverTheServiceSends()
    {
        ServerTranscriptManager m;
        const QString label(1000, QLatin1Char('L'));
        // Pieces that never extend the text: the interim text stops growing.
        for (int i = 0; i < 3000; ++i)
            m.handle(Partial{QStringLiteral("w%1 ").arg(i), label});
        QCOMPARE(m.segments().size(), 1);
        QCOMPARE(m.segments().first().text.size(), 8192);
        QVERIFY(m.segments().first().text.startsWith(QStringLiteral("w0 w1 w2 ")));
        QCOMPARE(m.segments().first().speaker.size(), 200);
        QCOMPARE(m.segments().first().displayName.size(), 200);
        // The final text is kept whole, in segments of the speaker.
        const QString final = QStringLiteral("x").repeated(20000);
        m.handle(Segment{label, final, 0, 0, true});
        QStringList texts;
        for (const TranscriptSegment& s : m.segments())
            texts << s.text;
        QCOMPARE(texts.size(), 3);
        QCOMPARE(texts.join(QString()), final);
        QCOMPARE(texts.first().size(), 8192);
        QVERIFY(!m.currentPartialSpeaker());

        // Thousands of turns: the oldest go in batches.
        QSignalSpy trimmed(&m, &ServerTranscriptManager::segmentsTrimmed);
        for (int i = 0; i < 2500; ++i)
            m.handle(Segment{QString::number(i % 2), "Yes.", 0, 0, true});
        QVERIFY(m.segments().size() <= 2000);
        QCOMPARE(m.segments().last().id, 2502);
        QCOMPARE(trimmed.count(), 3);
        QCOMPARE(trimmed.first().first().toInt(), 200);
    }

    void notLoggedInConnectsNothing()
    {
        test::SignedOut w;
        ServerTranscriptManager m;
        m.start(w.auth, "en-US");
        QCOMPARE(m.status(), TranscriptStatus::error("Not logged in"));
        QVERIFY(!m.isStreaming());
        QTest::qWait(200);
        QVERIFY(w.service->liveSessions().isEmpty());
        m.stop();
        QCOMPARE(m.status(), TranscriptStatus::idle());
    }

    void stopKeepsSegmentsStartClearsThem()
    {
        SignedIn w;
        w.service->scriptLive(local::LiveScript().send(
            {{"type", "segment"}, {"speaker", "0"}, {"text", "Hello."}, {"is_final", true}}));
        ServerTranscriptManager m;
        QSignalSpy ended(&m, &ServerTranscriptManager::streamEnded);
        m.start(w.auth, "en-US");
        QCOMPARE(m.status(), TranscriptStatus::connecting());
        TRY_COMPARE(rows(m), QStringList{"0 0 0: Hello."});
        QCOMPARE(m.status(), TranscriptStatus::active());
        m.stop();
        QCOMPARE(m.status(), TranscriptStatus::idle());
        TRY_COMPARE(ended.count(), 1);
        QVERIFY(!m.isStreaming());
        QCOMPARE(rows(m), QStringList{"0 0 0: Hello."});

        w.service->scriptLive(local::LiveScript());
        QSignalSpy cleared(&m, &ServerTranscriptManager::segmentsCleared);
        m.start(w.auth, "en-US");
        QCOMPARE(cleared.count(), 1);
        QVERIFY(m.segments().isEmpty());
        TRY_COMPARE(m.status(), TranscriptStatus::active());
        m.stop();
        TRY_COMPARE(ended.count(), 2);
    }

    void conversationFromTheService()
    {
        // Not English: the local service plays its conversation, whose speakers
        // talk in the two dialects, and then names them.
        SignedIn w;
        ServerTranscriptManager m;
        m.start(w.auth, "de-DE");
        TRY_COMPARE(m.status(), TranscriptStatus::active());
        QCOMPARE(w.service->liveSessions().value(0).languageHints, (QStringList{"de", "en"}));
        for (int i = 0; i < 45; ++i)
            m.streamer().sendAudio(std::vector<float>(std::size_t{3} * 1920, 0.0f));
        TRY_COMPARE(m.speakerNames().value("1"), QStringLiteral("Sam"));
        TRY_VERIFY(m.segments().size() >= 2);
        QCOMPARE(rows(m).mid(0, 2), (QStringList{"0 0 Alex: Good morning, thanks for joining.",
                                                 "1 1 Sam: Morning! Happy to be here."}));
        m.stop();
    }

    void expiredTokenIsRefreshedThroughTheSession()
    {
        SignedIn w;
        const QString old = w.auth.accessToken();
        w.service->expireAccessTokens();
        w.service->clearRequestLog();
        ServerTranscriptManager m;
        QSignalSpy statuses(&m, &ServerTranscriptManager::statusChanged);
        m.start(w.auth, "en-US");
        TRY_COMPARE(m.status(), TranscriptStatus::active());
        const auto sessions = w.service->liveSessions();
        QCOMPARE(sessions.size(), 2);
        QCOMPARE(sessions[0].token, old);
        QCOMPARE(sessions[0].closeCodeSent, 4001);
        QCOMPARE(sessions[1].token, w.auth.accessToken());
        QVERIFY(sessions[1].token != old);
        QCOMPARE(w.service->requestCount("POST", "/api/auth/refresh"), 1);
        // "refreshing" showed as connecting, never as an error.
        QCOMPARE(statuses.count(), 2); // connecting, active
        m.stop();
    }

    void startDuringARefreshWaitsForItsToken()
    {
        // The recording's start refreshes the session beside the capture, and
        // the transcript starts with it.
        SignedIn w;
        const QString old = w.auth.accessToken();
        w.service->expireAccessTokens();
        w.service->clearRequestLog();
        w.service->script("POST", QStringLiteral("/api/auth/refresh"),
                          local::ScriptedAnswer::delayed(std::chrono::milliseconds(500)));
        w.auth.refreshAccessToken(&w.auth, [](bool) {});
        ServerTranscriptManager m;
        m.start(w.auth, "de-DE");
        TRY_COMPARE(m.status(), TranscriptStatus::active());
        // One connection, with the new token: none refused, no second refresh.
        const auto sessions = w.service->liveSessions();
        QCOMPARE(sessions.size(), 1);
        QVERIFY(sessions[0].token != old);
        QCOMPARE(sessions[0].token, w.auth.accessToken());
        QCOMPARE(w.service->requestCount("POST", "/api/auth/refresh"), 1);
        m.stop();
    }
};

QTEST_GUILESS_MAIN(TestServerTranscriptManager)
#include "tst_servertranscriptmanager.moc"
