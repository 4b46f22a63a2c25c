// The local service's live WebSocket from the service's side of the
// contract, driven by a bare QWebSocket: the token check, the hints, the
// frames counted, the end of the stream, the canned conversation in both
// dialects, real recognition of English speech, and the scripting tests use.

#include "localservicefixture.h"
#include "speechsamples.h"
#include "support/isolatedenvironment.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTest>
#include <QWebSocket>

// Generous waits: the service, the sanitizers and other builds share a busy
// machine, and a wait ends as soon as its condition holds.
#define TRY_COMPARE(actual, expected) QTRY_COMPARE_WITH_TIMEOUT(actual, expected, 30000)
#define TRY_VERIFY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, 30000)

using namespace sorv;
using local::LiveScript;
using local::LocalService;

namespace {

// A client that records everything it hears.
struct Client {
    QWebSocket ws;
    QList<QJsonObject> messages;
    bool closed = false;
    int closeCode = 0;
    QString closeReason;

    Client(const QString& origin, const QString& token)
    {
        QObject::connect(&ws, &QWebSocket::textMessageReceived, [this](const QString& text) {
            messages << QJsonDocument::fromJson(text.toUtf8()).object();
        });
        QObject::connect(&ws, &QWebSocket::disconnected, [this] {
            closed = true;
            closeCode = ws.closeCode();
            closeReason = ws.closeReason();
        });
        QString url = origin;
        url.replace(QLatin1String("http://"), QLatin1String("ws://"));
        ws.open(QUrl(url + QStringLiteral("/api/live/stream?token=") + token));
    }

    bool open()
    {
        return QTest::qWaitFor([this] { return ws.state() == QAbstractSocket::ConnectedState; },
                               10000);
    }
    void hints(const QStringList& languages)
    {
        ws.sendTextMessage(
            QString::fromUtf8(QJsonDocument(QJsonObject{{QStringLiteral("language_hints"),
                                                         QJsonArray::fromStringList(languages)}})
                                  .toJson(QJsonDocument::Compact)));
    }
    void silence(int frames)
    {
        for (int i = 0; i < frames; ++i)
            ws.sendBinaryMessage(QByteArray(3840, '\0'));
    }
    QStringList types() const
    {
        QStringList out;
        for (const QJsonObject& m : messages)
            out << (m.contains(QLatin1String("type")) ? m.value(QLatin1String("type")).toString()
                                                      : m.keys().join(QLatin1Char('+')));
        return out;
    }
};

QString signIn(const QString& origin)
{
    QNetworkAccessManager nam;
    QNetworkRequest request(QUrl(origin + QStringLiteral("/api/auth/login")));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    QNetworkReply* reply =
        nam.post(request, QJsonDocument(QJsonObject{{"email", LocalService::kDemoEmail},
                                                    {"password", LocalService::kDemoPassword}})
                              .toJson());
    if (!QTest::qWaitFor([reply] { return reply->isFinished(); }, 10000))
        qFatal("no answer to the sign-in");
    const QString token =
        QJsonDocument::fromJson(reply->readAll()).object().value(QLatin1String("token")).toString();
    reply->deleteLater();
    return token;
}

// 16 kHz 16-bit frames of a 48 kHz recording (every third sample: the
// test's speech has nothing above 8 kHz worth keeping).
QList<QByteArray> frames(const std::vector<float>& samples48k)
{
    QByteArray pcm;
    for (std::size_t i = 0; i < samples48k.size(); i += 3) {
        const auto v = static_cast<std::int16_t>(std::clamp(samples48k[i], -1.0f, 1.0f) * 32767.0f);
        pcm.append(char(v & 0xff)).append(char((v >> 8) & 0xff));
    }
    QList<QByteArray> out;
    for (qsizetype at = 0; at + 3840 <= pcm.size(); at += 3840)
        out << pcm.mid(at, 3840);
    return out;
}

// The final text of each token message that has final tokens.
QStringList finalTokenTexts(const QList<QJsonObject>& messages)
{
    QStringList out;
    for (const QJsonObject& m : messages) {
        QString text;
        for (const QJsonValue& t : m.value(QLatin1String("tokens")).toArray())
            if (t[QLatin1String("is_final")].toBool())
                text += t[QLatin1String("text")].toString();
        if (!text.isEmpty())
            out << text;
    }
    return out;
}

} // namespace

class TestLiveEndpoint : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void refusesTokensThatDoNotAuthenticate_data();
    void refusesTokensThatDoNotAuthenticate();
    void framesAreCountedAndTheEndIsAnswered();
    void conversationSpeaksBothDialects();
    void englishSpeechIsRecognised();
    void scriptedStepsCloseAndDrop();
};

void TestLiveEndpoint::refusesTokensThatDoNotAuthenticate_data()
{
    QTest::addColumn<bool>("expired");
    QTest::newRow("unknown token") << false;
    QTest::newRow("expired token") << true;
}

void TestLiveEndpoint::refusesTokensThatDoNotAuthenticate()
{
    QFETCH(bool, expired);
    test::IsolatedEnvironment env;
    test::LocalServiceFixture service;
    QString token = QStringLiteral("sla_made_up");
    if (expired) {
        token = signIn(service.origin());
        service->expireAccessTokens();
    }
    Client c(service.origin(), token);
    TRY_VERIFY(c.closed);
    QCOMPARE(c.closeCode, 4001);
    QVERIFY(c.messages.isEmpty());
    TRY_VERIFY(service->liveSessions().value(0).ended);
    QCOMPARE(service->liveSessions().value(0).closeCodeSent, 4001);
    QVERIFY(service->liveSessions().value(0).transcriptionId.isEmpty());
}

void TestLiveEndpoint::framesAreCountedAndTheEndIsAnswered()
{
    test::IsolatedEnvironment env;
    test::LocalServiceFixture service;
    service->scriptLive(LiveScript());
    Client c(service.origin(), signIn(service.origin()));
    QVERIFY(c.open());
    c.hints({QStringLiteral("de"), QStringLiteral("en")});
    TRY_COMPARE(c.types(), QStringList{QStringLiteral("connected")});
    QCOMPARE(c.messages[0].value(QLatin1String("transcription_id")).toString(),
             service->liveSessions().value(0).transcriptionId);
    c.silence(5);
    c.ws.sendBinaryMessage(QByteArray(100, '\0'));
    c.ws.ping();
    TRY_COMPARE(service->liveFramesReceived(), 6);
    TRY_COMPARE(service->liveSessions().value(0).pings, 1);
    c.ws.sendBinaryMessage(QByteArray());
    TRY_VERIFY(c.closed);
    QCOMPARE(c.messages.last(), (QJsonObject{{QStringLiteral("finished"), true}}));
    QCOMPARE(c.closeCode, 1000);
    const local::LiveSession s = service->liveSessions().value(0);
    QCOMPARE(s.languageHints, (QStringList{QStringLiteral("de"), QStringLiteral("en")}));
    QCOMPARE(s.frames, 6);
    QCOMPARE(s.oddFrames, 1);
    QCOMPARE(s.bytes, 5 * 3840 + 100);
    QVERIFY(s.sentinel);
    QCOMPARE(s.source, QStringLiteral("script"));
}

void TestLiveEndpoint::conversationSpeaksBothDialects()
{
    test::IsolatedEnvironment env;
    test::LocalServiceFixture service;
    Client c(service.origin(), signIn(service.origin()));
    QVERIFY(c.open());
    c.hints({QStringLiteral("fr"), QStringLiteral("en")});
    c.silence(30);
    TRY_VERIFY(c.types().contains(QStringLiteral("speaker_names")));
    const QStringList types = c.types();
    QCOMPARE(types.mid(0, 3), (QStringList{QStringLiteral("connected"), QStringLiteral("status"),
                                           QStringLiteral("partial")}));
    QVERIFY(types.contains(QStringLiteral("segment")));
    QVERIFY(types.contains(QStringLiteral("fw")));
    QCOMPARE(c.messages[2], (QJsonObject{{"type", "partial"}, {"speaker", "0"}, {"text", "Good"}}));
    // The second speaker's words, one token at a time, then all of them final.
    QList<QJsonArray> tokens;
    for (const QJsonObject& m : std::as_const(c.messages))
        if (m.contains(QLatin1String("fw")))
            tokens << m.value(QLatin1String("fw")).toArray();
    QCOMPARE(tokens.first(),
             (QJsonArray{QJsonObject{{"text", "Morning!"}, {"spk", "1"}, {"f", false}}}));
    QCOMPARE(tokens.at(1).at(0)[QLatin1String("text")].toString(), QStringLiteral(" Happy"));
    QString finalText;
    for (const QJsonValue& t : tokens.last())
        finalText += t[QLatin1String("text")].toString();
    QCOMPARE(finalText, QStringLiteral("Morning! Happy to be here.<end>"));
    QCOMPARE(service->liveSessions().value(0).source, QStringLiteral("conversation"));
}

void TestLiveEndpoint::englishSpeechIsRecognised()
{
    if (!test::speechToolsAvailable())
        QSKIP("espeak-ng or sox is not installed");
    test::IsolatedEnvironment env;
    QTemporaryDir dir;
    const QStringList phrases{QStringLiteral("hello there"), QStringLiteral("how are you today")};
    const QString grammar = dir.filePath(QStringLiteral("phrases.jsgf"));
    const QString speech = dir.filePath(QStringLiteral("speech.wav"));
    QVERIFY(test::writeGrammar(grammar, phrases));
    QString error;
    QVERIFY2(test::makeSpeech(speech, phrases, 1.5, 1.0, &error), qPrintable(error));

    LocalService::Options options;
    options.speechGrammarFile = grammar;
    test::LocalServiceFixture service(options);
    Client c(service.origin(), signIn(service.origin()));
    QVERIFY(c.open());
    c.hints({QStringLiteral("en")});
    TRY_COMPARE(c.types().value(0), QStringLiteral("connected"));
    if (service->liveSessions().value(0).source != QLatin1String("recognition"))
        QSKIP("pocketsphinx-en-us is not installed");
    for (const QByteArray& f : frames(test::readMonoSamples(speech)))
        c.ws.sendBinaryMessage(f);
    c.ws.sendBinaryMessage(QByteArray());
    QTRY_VERIFY_WITH_TIMEOUT(c.closed, 30000);
    QCOMPARE(finalTokenTexts(c.messages),
             (QStringList{QStringLiteral("Hello there."), QStringLiteral("How are you today.")}));
    // Interim words came first, as increments.
    const QJsonObject first = c.messages.value(1);
    QCOMPARE(
        first.value(QLatin1String("tokens")).toArray().at(0)[QLatin1String("is_final")].toBool(),
        false);
    QCOMPARE(
        first.value(QLatin1String("tokens")).toArray().at(0)[QLatin1String("speaker")].toString(),
        QStringLiteral("speaker_1"));
}

void TestLiveEndpoint::scriptedStepsCloseAndDrop()
{
    test::IsolatedEnvironment env;
    test::LocalServiceFixture service;
    const QString token = signIn(service.origin());
    service->scriptLive(
        LiveScript()
            .sendText(R"({"type":"status","status":"early"})", LiveScript::kBeforeConnected)
            .send({{"type", "keepalive"}, {"status", "alive"}})
            .sendText(R"({"tokens":[{"text":"x"}]})", 2)
            .close(4001, "Token expired", 2));
    service->scriptLive(LiveScript().drop(1));

    Client first(service.origin(), token);
    QVERIFY(first.open());
    first.hints({QStringLiteral("en")});
    first.silence(1);
    TRY_COMPARE(first.types(), (QStringList{"status", "connected", "keepalive"}));
    first.silence(1);
    TRY_VERIFY(first.closed);
    QCOMPARE(first.types().last(), QStringLiteral("tokens"));
    QCOMPARE(first.closeCode, 4001);
    QCOMPARE(first.closeReason, QStringLiteral("Token expired"));

    Client second(service.origin(), token);
    QVERIFY(second.open());
    second.hints({QStringLiteral("en")});
    second.silence(1);
    TRY_VERIFY(second.closed);
    // No close frame: the service just went away.
    TRY_VERIFY(service->liveSessions().value(1).ended);
    QCOMPARE(service->liveSessions().value(1).closeCodeSent, 0);
}

QTEST_GUILESS_MAIN(TestLiveEndpoint)
#include "tst_liveendpoint.moc"
