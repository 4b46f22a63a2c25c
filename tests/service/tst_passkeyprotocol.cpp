// The WebAuthn client's wire format: base64url, the service's begin answers
// and options, the client data and the credential JSON.

#include "service/passkeys/base64url.h"
#include "service/passkeys/passkeyprotocol.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QtTest>

using namespace sorv;
using namespace sorv::passkeys;

class TestPasskeyProtocol : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void base64UrlDecoding_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("decodes");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("empty") << QStringLiteral("") << true << QByteArray();
        QTest::newRow("no padding") << QStringLiteral("YQ") << true << QByteArray("a");
        QTest::newRow("padding") << QStringLiteral("YQ==") << true << QByteArray("a");
        QTest::newRow("dash and underscore")
            << QStringLiteral("-_8") << true << QByteArray::fromHex("fbff");
        QTest::newRow("one character short") << QStringLiteral("a") << false << QByteArray();
        QTest::newRow("space") << QStringLiteral("YW Jj") << false << QByteArray();
        QTest::newRow("padding inside") << QStringLiteral("YQ==YQ") << false << QByteArray();
        QTest::newRow("not ASCII") << QStringLiteral("YWé") << false << QByteArray();
    }
    void base64UrlDecoding()
    {
        QFETCH(QString, text);
        QFETCH(bool, decodes);
        QFETCH(QByteArray, bytes);
        const std::optional<QByteArray> decoded = base64UrlDecode(text);
        QCOMPARE(decoded.has_value(), decodes);
        if (decodes)
            QCOMPARE(*decoded, bytes);
    }

    void beginAnswers_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("error"); // empty: accepted
        // Spelled out: moc stops reading a class at a raw string with escapes.
        // NOLINTBEGIN(modernize-raw-string-literal)
        QTest::newRow("valid") << QByteArray(
                                      "{\"challenge_id\":\"c1\",\"options\":\"{\\\"a\\\":1}\"}")
                               << "";
        QTest::newRow("options as an object")
            << QByteArray(R"({"challenge_id":"c1","options":{"challenge":"YQ"}})")
            << "Unexpected server response: Missing/invalid options blob";
        QTest::newRow("options string that is not JSON")
            << QByteArray("{\"challenge_id\":\"c1\",\"options\":\"[\"}")
            << "Unexpected server response: Missing/invalid options blob";
        // NOLINTEND(modernize-raw-string-literal)
        QTest::newRow("options string holding an array")
            << QByteArray(R"({"challenge_id":"c1","options":"[]"})")
            << "Unexpected server response: Missing/invalid options blob";
        QTest::newRow("no options") << QByteArray(R"({"challenge_id":"c1"})")
                                    << "Unexpected server response: Missing/invalid options blob";
        QTest::newRow("challenge id a number")
            << QByteArray(R"({"challenge_id":7,"options":"{}"})")
            << "Unexpected server response: Missing challenge_id";
        QTest::newRow("array body")
            << QByteArray("[]") << "Unexpected server response: Begin response is not JSON";
        QTest::newRow("HTML body") << QByteArray("<h1>hi</h1>")
                                   << "Unexpected server response: Begin response is not JSON";
    }
    void beginAnswers()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, error);
        const PasskeyAuthResult<BeginResult> result = decodeBeginBody(body);
        QCOMPARE(result.ok(), error.isEmpty());
        if (!result.ok()) {
            QCOMPARE(result.error().description(), error);
            return;
        }
        QCOMPARE(result.value().challengeId, QStringLiteral("c1"));
        QCOMPARE(result.value().options.value("a").toInt(), 1);
    }

    void signInOptions()
    {
        const QJsonObject options = QJsonDocument::fromJson(R"({
            "challenge": "-_8",
            "allowCredentials": [{"id": "YQ"}, {"type": "public-key"}, {"id": "a"}, {"id": "Yg=="}]
        })")
                                        .object();
        const PasskeyAuthResult<SignInOptions> decoded = decodeSignInOptions(options);
        QVERIFY(decoded.ok());
        QCOMPARE(decoded.value().challenge, QByteArray::fromHex("fbff"));
        // Entries without a decodable id are left out.
        QCOMPARE(decoded.value().allowedCredentialIds, (QList<QByteArray>{"a", "b"}));

        QVERIFY(decodeSignInOptions(QJsonObject{{"challenge", "YQ"}})
                    .value()
                    .allowedCredentialIds.isEmpty());
        QCOMPARE(decodeSignInOptions(QJsonObject{{"challenge", "!"}}).error().description(),
                 QStringLiteral("Unexpected server response: Missing challenge"));
        QCOMPARE(decodeSignInOptions(QJsonObject{}).error().description(),
                 QStringLiteral("Unexpected server response: Missing challenge"));
    }

    void registrationOptions()
    {
        const auto decode = [](const char* json) {
            return decodeRegistrationOptions(QJsonDocument::fromJson(json).object());
        };
        const auto named = decode(R"({"challenge":"YQ","user":{"id":"Yg","name":"ann"}})");
        QVERIFY(named.ok());
        QCOMPARE(named.value().userId, QByteArray("b"));
        QCOMPARE(named.value().userName, QStringLiteral("ann"));
        QVERIFY(!decode(R"({"challenge":"YQ","user":{"id":"Yg","name":5}})").value().userName);
        QCOMPARE(decode(R"({"user":{"id":"Yg"}})").error().description(),
                 QStringLiteral(
                     "Unexpected server response: Missing challenge in registration options"));
    }

    void clientDataIsInTheBrowsersMemberOrder()
    {
        const QByteArray json = clientDataJson(kGetType, QByteArray::fromHex("fbff"),
                                               QStringLiteral("https://a\"b.example"));
        QCOMPARE(json, QByteArray("{\"type\":\"webauthn.get\",\"challenge\":\"-_8\","
                                  "\"origin\":\"https://a\\\"b.example\",\"crossOrigin\":false}"));
        QVERIFY(QJsonDocument::fromJson(json).isObject());
    }

    void serviceOrigins_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<QString>("origin"); // empty: not usable
        QTest::addColumn<QString>("host");
        QTest::newRow("trailing slashes")
            << QStringLiteral("https://sorvelandrix.com//") << "https://sorvelandrix.com"
            << "sorvelandrix.com";
        QTest::newRow("default port dropped")
            << QStringLiteral("https://Sorvelandrix.COM:443") << "https://sorvelandrix.com"
            << "sorvelandrix.com";
        QTest::newRow("other port kept")
            << QStringLiteral("http://127.0.0.1:8080") << "http://127.0.0.1:8080"
            << "127.0.0.1";
        QTest::newRow("IPv6") << QStringLiteral("http://[::1]:9000") << "http://[::1]:9000"
                              << "::1";
        QTest::newRow("no scheme") << QStringLiteral("sorvelandrix.com") << ""
                                   << "";
    }
    void serviceOrigins()
    {
        QFETCH(QString, address);
        QFETCH(QString, origin);
        QFETCH(QString, host);
        const std::optional<ServiceOrigin> found = serviceOrigin(address);
        QCOMPARE(found.has_value(), !origin.isEmpty());
        if (found) {
            QCOMPARE(found->origin, origin);
            QCOMPARE(found->host, host);
        }
    }

    void loopbackHosts()
    {
        for (const char* host : {"127.0.0.1", "127.8.9.10", "::1", "localhost", "LocalHost"})
            QVERIFY2(isLoopbackHost(QString::fromLatin1(host)), host);
        for (const char* host : {"10.0.0.1", "sorvelandrix.com", "localhost.example", ""})
            QVERIFY2(!isLoopbackHost(QString::fromLatin1(host)), host);
    }

    // The members the local service checks are the passkeys' own test's
    // (base64url, the user handle as null or a string); these it does not.
    void assertionJson()
    {
        const QJsonObject json =
            assertionCredentialJson(Assertion{"id", "data", "sig", std::nullopt}, "{}");
        QCOMPARE(json.value("authenticatorAttachment").toString(),
                 QStringLiteral("cross-platform"));
        QVERIFY(json.value("clientExtensionResults").isObject());
        QVERIFY(json.value("clientExtensionResults").toObject().isEmpty());
    }

    void registrationJsonCarriesTheAttestationObjectAsCbor()
    {
        AttestedCredential credential{
            "id", "abc", "none", QByteArray::fromHex("a0"), {"usb", "nfc"}};
        const PasskeyResult<QJsonObject> json = registrationCredentialJson(credential, "{}");
        QVERIFY(json.ok());
        const QJsonObject response = json.value().value("response").toObject();
        QCOMPARE(response.value("transports").toArray(), (QJsonArray{"usb", "nfc"}));
        // {"fmt": "none", "attStmt": {}, "authData": h'616263'}, keys in canonical order.
        QCOMPARE(base64UrlDecode(response.value("attestationObject").toString()),
                 QByteArray::fromHex("a363666d74646e6f6e656761747453746d74a068617574684461746143"
                                     "616263"));

        credential.attestationStatementCbor = QByteArray::fromHex("83"); // truncated array
        QCOMPARE(registrationCredentialJson(credential, "{}").error().kind(),
                 PasskeyError::Kind::authorizationFailed);
    }
};

QTEST_GUILESS_MAIN(TestPasskeyProtocol)
#include "tst_passkeyprotocol.moc"
