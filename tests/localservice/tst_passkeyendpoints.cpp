// The local service as a WebAuthn relying party, from the wire. Client data
// and attestation objects are built by hand here, and a
// software authenticator plays the security key, so that the service's
// checks are tested against something other than our own client.

#include "localservicefixture.h"
#include "wire.h"

#include "localservice/cborreader.h"
#include "service/passkeys/softwareauthenticator.h"
#include "support/isolatedenvironment.h"

#include <QCryptographicHash>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <openssl/evp.h>
#include <openssl/x509.h>

using namespace sorv;
using namespace sorv::local;
using sorv::test::Answer;
using sorv::test::Wire;

namespace {

const QString kRpId = QStringLiteral("127.0.0.1");

QString b64(const QByteArray& bytes)
{
    return QString::fromLatin1(
        bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

QByteArray unb64(const QString& text)
{
    return QByteArray::fromBase64(text.toLatin1(), QByteArray::Base64UrlEncoding);
}

QByteArray sha256(const QByteArray& data)
{
    return QCryptographicHash::hash(data, QCryptographicHash::Sha256);
}

// CBOR, by hand: a text key, then a byte string or a prepared value.
QByteArray cborHead(int major, qsizetype length)
{
    const auto m = static_cast<char>(major << 5);
    if (length < 24)
        return QByteArray(1, static_cast<char>(m | static_cast<char>(length)));
    if (length < 256)
        return QByteArray(1, static_cast<char>(m | 24)) + QByteArray(1, static_cast<char>(length));
    return QByteArray(1, static_cast<char>(m | 25)) +
           QByteArray(1, static_cast<char>(length >> 8)) +
           QByteArray(1, static_cast<char>(length & 0xff));
}
QByteArray cborText(const QByteArray& s)
{
    return cborHead(3, s.size()) + s;
}
QByteArray cborBytes(const QByteArray& b)
{
    return cborHead(2, b.size()) + b;
}
QByteArray attestationObject(const QByteArray& fmt, const QByteArray& statement,
                             const QByteArray& authData)
{
    return cborHead(5, 3) + cborText("fmt") + cborText(fmt) + cborText("attStmt") + statement +
           cborText("authData") + cborBytes(authData);
}

struct Prompts : AuthenticatorPrompts {
    std::optional<QString> requestPin(int) override { return std::nullopt; }
    void waitingForTouch(bool) override {}
    bool isCancelled() const override { return false; }
};

QByteArray clientData(const QString& type, const QByteArray& challenge, const QString& origin,
                      bool crossOrigin = false)
{
    return QJsonDocument(QJsonObject{{"type", type},
                                     {"challenge", b64(challenge)},
                                     {"origin", origin},
                                     {"crossOrigin", crossOrigin}})
        .toJson(QJsonDocument::Compact);
}

struct Begun {
    QString challengeId;
    QJsonObject options;
};

Begun begun(const Answer& a)
{
    return {a.json.object().value("challenge_id").toString(),
            QJsonDocument::fromJson(a.json.object().value("options").toString().toUtf8()).object()};
}

// One service, the demo account signed in, and a key in a file.
struct World {
    World() : wire(service.origin())
    {
        keyOptions.file = env.path("key.json");
        token = wire.token();
    }

    std::shared_ptr<SoftwareAuthenticator> key(bool present = true, bool verified = true)
    {
        SoftwareAuthenticator::Options o = keyOptions;
        o.userPresent = present;
        o.userVerified = verified;
        return std::make_shared<SoftwareAuthenticator>(o);
    }

    // What a registration would send; `tamper` changes it before it goes.
    struct Registration {
        QString challengeId;
        QByteArray challenge;
        QByteArray clientData;
        AttestedCredential credential;
        QByteArray attestation;
    };
    Registration prepareRegistration(SoftwareAuthenticator& authenticator,
                                     const QString& type = QStringLiteral("webauthn.create"),
                                     const QString& origin = {})
    {
        const Begun b = begun(
            wire.call("POST", "/api/auth/passkey/register/begin", {{"label", "Test key"}}, token));
        Registration r;
        r.challengeId = b.challengeId;
        r.challenge = unb64(b.options.value("challenge").toString());
        r.clientData = clientData(type, r.challenge, origin.isEmpty() ? service.origin() : origin);
        Prompts prompts;
        const PasskeyResult<AttestedCredential> made = authenticator.makeCredential(
            {sha256(r.clientData), kRpId, "x",
             unb64(b.options.value("user").toObject().value("id").toString()), "demo", "demo"},
            prompts);
        r.credential = made.value();
        r.attestation =
            attestationObject("none", QByteArray(1, '\xa0'), r.credential.authenticatorData);
        return r;
    }
    Answer finishRegistration(const Registration& r, const QByteArray& credentialId = {})
    {
        const QString id = b64(credentialId.isEmpty() ? r.credential.credentialId : credentialId);
        return wire.call(
            "POST", "/api/auth/passkey/register/finish",
            {{"challenge_id", r.challengeId},
             {"credential",
              QJsonObject{{"id", id},
                          {"rawId", id},
                          {"type", "public-key"},
                          {"response", QJsonObject{{"clientDataJSON", b64(r.clientData)},
                                                   {"attestationObject", b64(r.attestation)},
                                                   {"transports", QJsonArray{"usb"}}}}}}},
            token);
    }
    qint64 registerKey()
    {
        auto authenticator = key();
        const Answer a = finishRegistration(prepareRegistration(*authenticator));
        if (a.status != 200)
            qFatal("registration refused: %s", qPrintable(a.detail()));
        return a.json.object().value("id").toInteger();
    }

    struct SignIn {
        QString challengeId;
        QByteArray challenge;
        QByteArray clientData;
        Assertion assertion;
    };
    SignIn prepareSignIn(SoftwareAuthenticator& authenticator, const QString& email = {},
                         const QString& type = QStringLiteral("webauthn.get"),
                         const QString& origin = {}, bool crossOrigin = false)
    {
        QJsonObject body;
        if (!email.isEmpty())
            body.insert("email", email);
        const Begun b = begun(wire.call("POST", "/api/auth/passkey/login/begin", body));
        SignIn s;
        s.challengeId = b.challengeId;
        s.challenge = unb64(b.options.value("challenge").toString());
        s.clientData = clientData(type, s.challenge, origin.isEmpty() ? service.origin() : origin,
                                  crossOrigin);
        Prompts prompts;
        s.assertion =
            authenticator.getAssertion({sha256(s.clientData), kRpId, {}}, prompts).value();
        return s;
    }
    Answer finishSignIn(const SignIn& s)
    {
        const QString id = b64(s.assertion.credentialId);
        return wire.call(
            "POST", "/api/auth/passkey/login/finish",
            {{"challenge_id", s.challengeId},
             {"credential",
              QJsonObject{{"id", id},
                          {"rawId", id},
                          {"type", "public-key"},
                          {"response",
                           QJsonObject{{"clientDataJSON", b64(s.clientData)},
                                       {"authenticatorData", b64(s.assertion.authenticatorData)},
                                       {"signature", b64(s.assertion.signature)},
                                       {"userHandle", s.assertion.userHandle
                                                          ? QJsonValue(b64(*s.assertion.userHandle))
                                                          : QJsonValue()}}}}}});
    }

    test::IsolatedEnvironment env;
    test::LocalServiceFixture service;
    Wire wire;
    SoftwareAuthenticator::Options keyOptions;
    QString token;
};

// Signs `data` with the first key in the software authenticator's file.
QByteArray signWithStoredKey(const QString& file, const QByteArray& data)
{
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    const QByteArray der = unb64(QJsonDocument::fromJson(f.readAll())
                                     .object()
                                     .value("credentials")
                                     .toArray()
                                     .first()
                                     .toObject()
                                     .value("privateKey")
                                     .toString());
    const auto* p = reinterpret_cast<const unsigned char*>(der.constData());
    EVP_PKEY* key = d2i_AutoPrivateKey(nullptr, &p, static_cast<long>(der.size()));
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    size_t length = 0;
    QByteArray signature;
    const auto* bytes = reinterpret_cast<const unsigned char*>(data.constData());
    if (key && ctx && EVP_DigestSignInit(ctx, nullptr, EVP_sha256(), nullptr, key) == 1 &&
        EVP_DigestSign(ctx, nullptr, &length, bytes, static_cast<size_t>(data.size())) == 1) {
        signature.resize(static_cast<qsizetype>(length));
        EVP_DigestSign(ctx, reinterpret_cast<unsigned char*>(signature.data()), &length, bytes,
                       static_cast<size_t>(data.size()));
        signature.resize(static_cast<qsizetype>(length));
    }
    EVP_MD_CTX_free(ctx);
    EVP_PKEY_free(key);
    return signature;
}

} // namespace

class TestPasskeyEndpoints : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void beginOptions()
    {
        World w;
        const Answer registration =
            w.wire.call("POST", "/api/auth/passkey/register/begin", {}, w.token);
        // What the client reads of the options, the passkeys' own test reads.
        QCOMPARE(registration.status, 200);
        QCOMPARE(unb64(begun(registration).options.value("challenge").toString()).size(), 32);
        QCOMPARE(w.wire.call("POST", "/api/auth/passkey/register/begin").status, 401);

        const qint64 id = w.registerKey();
        QVERIFY(id > 0);
        const QJsonObject named = begun(w.wire.call("POST", "/api/auth/passkey/login/begin",
                                                    {{"email", LocalService::kDemoEmail}}))
                                      .options;
        QCOMPARE(named.value("allowCredentials").toArray().size(), 1);
        // An unknown e-mail looks like an account without passkeys.
        const QJsonObject unknown = begun(w.wire.call("POST", "/api/auth/passkey/login/begin",
                                                      {{"email", "nobody@example.com"}}))
                                        .options;
        QVERIFY(unknown.value("allowCredentials").toArray().isEmpty());
        QVERIFY(unknown.value("challenge").toString() != named.value("challenge").toString());
    }

    void assertionChecks_data()
    {
        QTest::addColumn<QString>("change");
        QTest::addColumn<QString>("detail");
        QTest::newRow("replayed") << QStringLiteral("replay")
                                  << "This passkey request has expired. Try again.";
        QTest::newRow("wrong origin")
            << QStringLiteral("origin") << "Client data origin http://evil.example is not";
        QTest::newRow("wrong type")
            << QStringLiteral("type") << "Client data type is \"webauthn.create\"";
        QTest::newRow("cross-origin")
            << QStringLiteral("crossOrigin") << "Cross-origin requests are not accepted";
        QTest::newRow("other challenge")
            << QStringLiteral("challenge") << "Client data is for another challenge";
        QTest::newRow("tampered signature")
            << QStringLiteral("signature") << "The passkey signature is invalid";
        QTest::newRow("tampered counter")
            << QStringLiteral("counter") << "The passkey signature is invalid";
        QTest::newRow("other relying party")
            << QStringLiteral("rpIdHash") << "Authenticator data is for another relying party";
        QTest::newRow("user not present") << QStringLiteral("absent") << "The user was not present";
        QTest::newRow("user not verified")
            << QStringLiteral("unverified") << "The user was not verified";
        QTest::newRow("counter did not grow")
            << QStringLiteral("cloned") << "The passkey's signature counter did not increase";
        QTest::newRow("another account's e-mail")
            << QStringLiteral("account") << "This passkey is not registered for this account";
        QTest::newRow("someone else's user handle")
            << QStringLiteral("userHandle") << "The passkey belongs to another user";
    }
    void assertionChecks()
    {
        QFETCH(QString, change);
        QFETCH(QString, detail);
        World w;
        w.registerKey();
        w.service->addAccount("other@sorvelandrix.local", "Other", "pw");
        auto key = w.key(change != "absent", change != "unverified");

        if (change == "cloned") {
            // A copy of the key taken before it signs once more.
            QFile::copy(w.keyOptions.file, w.env.path("copy.json"));
            QCOMPARE(w.finishSignIn(w.prepareSignIn(*key)).status, 200);
            QFile::remove(w.keyOptions.file);
            QFile::copy(w.env.path("copy.json"), w.keyOptions.file);
        }
        World::SignIn s =
            change == "origin" ? w.prepareSignIn(*key, {}, "webauthn.get", "http://evil.example")
            : change == "type" ? w.prepareSignIn(*key, {}, "webauthn.create")
            : change == "crossOrigin" ? w.prepareSignIn(*key, {}, "webauthn.get", {}, true)
            : change == "account"     ? w.prepareSignIn(*key, "other@sorvelandrix.local")
                                      : w.prepareSignIn(*key);
        if (change == "challenge") {
            // A signature over client data for a challenge of another request.
            const World::SignIn other = w.prepareSignIn(*key);
            s.clientData = other.clientData;
            s.assertion = other.assertion;
        } else if (change == "signature") {
            s.assertion.signature[s.assertion.signature.size() - 1] ^= 0x01;
        } else if (change == "counter") {
            s.assertion.authenticatorData[36] = static_cast<char>(0x7f);
        } else if (change == "rpIdHash") {
            s.assertion.authenticatorData[0] ^= 0x01;
        } else if (change == "userHandle") {
            s.assertion.userHandle = QByteArray(16, 'x');
        }

        // A sign-in that passes every check: the passkeys' own test's.
        const Answer answer = w.finishSignIn(s);
        if (change == "replay") {
            QCOMPARE(answer.status, 200);
            const Answer again = w.finishSignIn(s);
            QCOMPARE(again.status, 400);
            QCOMPARE(again.detail(), detail);
            return;
        }
        QCOMPARE(answer.status, 400);
        QVERIFY2(answer.detail().startsWith(detail), qPrintable(answer.detail()));
        // A refused assertion uses up its challenge too.
        QCOMPARE(w.finishSignIn(s).detail(),
                 QStringLiteral("This passkey request has expired. Try again."));
    }

    void registrationChecks_data()
    {
        QTest::addColumn<QString>("change");
        QTest::addColumn<QString>("detail"); // empty: accepted
        QTest::newRow("none") << QStringLiteral("") << "";
        QTest::newRow("packed self-attestation") << QStringLiteral("packed") << "";
        QTest::newRow("packed with a bad signature")
            << QStringLiteral("packed-bad") << "Attestation signature is invalid";
        QTest::newRow("unknown format")
            << QStringLiteral("tpm") << "Unsupported attestation format \"tpm\"";
        QTest::newRow("\"none\" with a statement")
            << QStringLiteral("none-statement") << "A \"none\" attestation carries a statement";
        QTest::newRow("wrong origin")
            << QStringLiteral("origin") << "Client data origin http://evil.example is not";
        QTest::newRow("wrong type")
            << QStringLiteral("type") << "Client data type is \"webauthn.get\"";
        QTest::newRow("other relying party")
            << QStringLiteral("rpIdHash") << "Authenticator data is for another relying party";
        QTest::newRow("user not present") << QStringLiteral("absent") << "The user was not present";
        QTest::newRow("other credential id")
            << QStringLiteral("id") << "Credential id does not match the authenticator data";
        QTest::newRow("truncated attestation")
            << QStringLiteral("truncated") << "Attestation object is not a CBOR map";
        QTest::newRow("replayed") << QStringLiteral("replay")
                                  << "This passkey request has expired. Try again.";
    }
    void registrationChecks()
    {
        QFETCH(QString, change);
        QFETCH(QString, detail);
        World w;
        auto key = w.key(change != "absent");
        World::Registration r = change == "origin" ? w.prepareRegistration(*key, "webauthn.create",
                                                                           "http://evil.example")
                                : change == "type" ? w.prepareRegistration(*key, "webauthn.get")
                                                   : w.prepareRegistration(*key);
        const QByteArray signedData = r.credential.authenticatorData + sha256(r.clientData);
        if (change == "packed" || change == "packed-bad") {
            QByteArray signature = signWithStoredKey(w.keyOptions.file, signedData);
            if (change == "packed-bad")
                signature[signature.size() - 1] ^= 0x01;
            const QByteArray statement = cborHead(5, 2) + cborText("alg") + QByteArray(1, '\x26') +
                                         cborText("sig") + cborBytes(signature);
            r.attestation = attestationObject("packed", statement, r.credential.authenticatorData);
        } else if (change == "tpm") {
            r.attestation =
                attestationObject("tpm", QByteArray(1, '\xa0'), r.credential.authenticatorData);
        } else if (change == "none-statement") {
            r.attestation =
                attestationObject("none", cborHead(5, 1) + cborText("x") + cborText("y"),
                                  r.credential.authenticatorData);
        } else if (change == "rpIdHash") {
            QByteArray data = r.credential.authenticatorData;
            data[0] ^= 0x01;
            r.attestation = attestationObject("none", QByteArray(1, '\xa0'), data);
        } else if (change == "truncated") {
            r.attestation.chop(1);
        }

        const Answer answer =
            w.finishRegistration(r, change == "id" ? QByteArray(16, 'i') : QByteArray());
        if (detail.isEmpty()) {
            QCOMPARE(answer.status, 200);
            QCOMPARE(answer.json.object().value("label").toString(), QStringLiteral("Test key"));
            QVERIFY(answer.json.object().value("last_used_at").isNull());
            QCOMPARE(answer.json.object().value("transports").toArray(), QJsonArray{"usb"});
            // The stored key then verifies a sign-in.
            QCOMPARE(w.finishSignIn(w.prepareSignIn(*key)).status, 200);
            return;
        }
        if (change == "replay") {
            QCOMPARE(answer.status, 200);
            QCOMPARE(w.finishRegistration(r).detail(), detail);
            return;
        }
        QCOMPARE(answer.status, 400);
        QVERIFY2(answer.detail().startsWith(detail), qPrintable(answer.detail()));
        QVERIFY(w.wire.call("GET", "/api/auth/passkey/list", {}, w.token).json.array().isEmpty());
    }

    void listAndRemoveOnlyTheSignedInAccountsPasskeys()
    {
        World w;
        const qint64 id = w.registerKey();
        w.service->addAccount("other@sorvelandrix.local", "Other", "pw");
        const QString other =
            w.wire.signIn("pw", "other@sorvelandrix.local").value("token").toString();
        QVERIFY(!other.isEmpty());

        QVERIFY(w.wire.call("GET", "/api/auth/passkey/list", {}, other).json.array().isEmpty());
        const Answer foreign =
            w.wire.call("DELETE", "/api/auth/passkey/" + QString::number(id), {}, other);
        QCOMPARE(foreign.status, 404);
        QCOMPARE(foreign.detail(), QStringLiteral("Passkey not found"));
        QCOMPARE(w.wire.call("GET", "/api/auth/passkey/list", {}, w.token).json.array().size(), 1);

        QCOMPARE(w.wire.call("GET", "/api/auth/passkey/list").status, 401);
        QCOMPARE(w.wire.call("DELETE", "/api/auth/passkey/" + QString::number(id)).status, 401);
        const Answer removed =
            w.wire.call("DELETE", "/api/auth/passkey/" + QString::number(id), {}, w.token);
        QCOMPARE(removed.status, 204);
        QVERIFY(w.wire.call("GET", "/api/auth/passkey/list", {}, w.token).json.array().isEmpty());
        // Gone from sign-in as well.
        auto key = w.key();
        QCOMPARE(w.finishSignIn(w.prepareSignIn(*key)).detail(),
                 QStringLiteral("This passkey is not registered for this account"));
    }

    void cborReading_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("COSE-style map") << QByteArray::fromHex("a201022026") << true;
        QTest::newRow("duplicate key") << QByteArray::fromHex("a201020103") << false;
        QTest::newRow("indefinite array") << QByteArray::fromHex("9f01ff") << false;
        QTest::newRow("tag") << QByteArray::fromHex("c11a514b67b0") << false;
        QTest::newRow("float") << QByteArray::fromHex("f93c00") << false;
        QTest::newRow("string past the end") << QByteArray::fromHex("5a0000ffff00") << false;
        QTest::newRow("trailing byte") << QByteArray::fromHex("a000") << false;
        QTest::newRow("array claiming 2^32 items")
            << QByteArray::fromHex("9b0000000100000000") << false;
        QTest::newRow("deep nesting") << QByteArray(40, '\x81') + QByteArray(1, '\x00') << false;
    }
    void cborReading()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, accepted);
        QCOMPARE(cbor::decode(bytes).has_value(), accepted);
    }
};

QTEST_GUILESS_MAIN(TestPasskeyEndpoints)
#include "tst_passkeyendpoints.moc"
