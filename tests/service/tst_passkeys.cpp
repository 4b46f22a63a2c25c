// Passkeys on the client: the ceremony driver with the software
// authenticator and the session's passkey operations, end to end against
// the local service.

#include "signedin.h"

#include "core/log.h"
#include "core/secretstore.h"
#include "core/settings.h"
#include "service/authmanager.h"
#include "service/passkeys/base64url.h"
#include "service/passkeys/passkeymanager.h"
#include "service/passkeys/passkeyoperations.h"
#include "service/passkeys/securitykeymodule.h"
#include "service/passkeys/softwareauthenticator.h"
#include "support/isolatedenvironment.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QtTest>

using namespace sorv;
using namespace sorv::local;

namespace {

constexpr auto kPin = "2468";

struct World : test::SignedOut {
    explicit World(SoftwareAuthenticator::Options options = {})
        : authenticator(std::make_shared<SoftwareAuthenticator>(std::move(options)))
    {
        // The PIN dialog: answers with `pinAnswer`, or closes when it is none.
        QObject::connect(
            &passkeys, &PasskeyManager::isPinRequestedChanged, &passkeys,
            [this] {
                if (!answerPins || !passkeys.isPinRequested())
                    return;
                if (pinAnswer)
                    passkeys.providePin(*pinAnswer);
                else
                    passkeys.cancelPinRequest();
            },
            Qt::QueuedConnection);
    }

    void signIn()
    {
        test::signIn(auth);
        service->clearRequestLog();
    }

    template <typename T> static T wait(std::optional<T>& slot)
    {
        if (!QTest::qWaitFor([&] { return slot.has_value(); }, 20000))
            qFatal("no answer");
        return *slot;
    }

    PasskeyOperationResult<Passkey> registerPasskey(const std::optional<QString>& label = {})
    {
        std::optional<PasskeyOperationResult<Passkey>> r;
        operations.registerPasskey(label, &passkeys, [&r](auto result) { r = std::move(result); });
        return wait(r);
    }
    PasskeyOperationResult<QList<Passkey>> listPasskeys()
    {
        std::optional<PasskeyOperationResult<QList<Passkey>>> r;
        operations.listPasskeys(&passkeys, [&r](auto result) { r = std::move(result); });
        return wait(r);
    }
    std::optional<PasskeyFailure> deletePasskey(qint64 id)
    {
        std::optional<std::optional<PasskeyFailure>> r;
        operations.deletePasskey(id, &passkeys, [&r](auto result) { r = std::move(result); });
        return wait(r);
    }
    void loginWithPasskey(const QString& email)
    {
        operations.loginWithPasskey(email);
        QVERIFY(auth.isLoggingIn());
        QTRY_VERIFY_WITH_TIMEOUT(!auth.isLoggingIn(), 20000);
    }

    // The newest request to `path`: other requests (the session's own
    // checks) may come in between, in any order.
    LoggedRequest lastRequest(const QString& path)
    {
        const QList<LoggedRequest> log = service->requestLog();
        for (qsizetype i = log.size() - 1; i >= 0; --i) {
            if (log.at(i).path == path)
                return log.at(i);
        }
        return {};
    }
    QJsonObject lastBody(const QString& path)
    {
        return QJsonDocument::fromJson(lastRequest(path).body).object();
    }

    bool answerPins = true;
    std::optional<QString> pinAnswer = QString::fromLatin1(kPin);

    std::shared_ptr<SoftwareAuthenticator> authenticator;
    PasskeyManager passkeys{authenticator};
    PasskeyOperations operations{auth, passkeys};
};

QString describeResult(const auto& result)
{
    return result.ok() ? QString() : describe(result.error());
}

} // namespace

class TestPasskeys : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void registerSignOutSignInListRemove()
    {
        World w;
        w.signIn();

        const PasskeyOperationResult<Passkey> added = w.registerPasskey(QStringLiteral("Laptop"));
        QVERIFY2(added.ok(), qPrintable(describeResult(added)));
        QCOMPARE(added.value().label, QStringLiteral("Laptop"));
        QCOMPARE(added.value().transports, QStringList{QStringLiteral("usb")});
        QVERIFY(!added.value().lastUsedAt);
        const QJsonObject registration =
            w.lastBody("/api/auth/passkey/register/finish").value("credential").toObject();
        QCOMPARE(registration.value("authenticatorAttachment").toString(),
                 QStringLiteral("cross-platform"));
        QCOMPARE(registration.value("response").toObject().value("transports").toArray(),
                 QJsonArray{"usb"});
        QCOMPARE(w.lastBody("/api/auth/passkey/register/begin"),
                 (QJsonObject{{"label", "Laptop"}}));

        w.auth.logout();
        QVERIFY(!w.auth.isLoggedIn());

        // Without an e-mail the key picks the account and names it.
        w.loginWithPasskey({});
        QCOMPARE(w.auth.loginError(), QString());
        QVERIFY(w.auth.isLoggedIn());
        QCOMPARE(w.auth.userEmail(), LocalService::kDemoEmail);
        QCOMPARE(w.auth.userName(), QStringLiteral("Demo User"));
        QCOMPARE(w.lastBody("/api/auth/passkey/login/begin"), QJsonObject());
        const QJsonObject discovered =
            w.lastBody("/api/auth/passkey/login/finish").value("credential").toObject();
        QVERIFY(discovered.value("response").toObject().value("userHandle").isString());
        const LoggedRequest begin = w.lastRequest(QStringLiteral("/api/auth/passkey/login/begin"));
        QCOMPARE(begin.header("X-Device-Id"), w.auth.deviceId().toUtf8());
        QVERIFY(begin.header("Authorization").isEmpty());

        // With an e-mail the service names the credential; the key then does
        // not name the user, and the handle goes as null.
        w.auth.logout();
        w.loginWithPasskey(QStringLiteral("  demo@sorvelandrix.local "));
        QVERIFY(w.auth.isLoggedIn());
        QCOMPARE(w.lastBody("/api/auth/passkey/login/begin"),
                 (QJsonObject{{"email", "demo@sorvelandrix.local"}}));
        const QJsonObject named =
            w.lastBody("/api/auth/passkey/login/finish").value("credential").toObject();
        QVERIFY(named.value("response").toObject().contains("userHandle"));
        QVERIFY(named.value("response").toObject().value("userHandle").isNull());

        const PasskeyOperationResult<QList<Passkey>> listed = w.listPasskeys();
        QVERIFY(listed.ok());
        QCOMPARE(listed.value().size(), 1);
        QCOMPARE(listed.value().front().id, added.value().id);
        QVERIFY(listed.value().front().lastUsedAt);

        w.service->clearRequestLog();
        QCOMPARE(w.deletePasskey(added.value().id), std::nullopt);
        QCOMPARE(w.service->requestCount("DELETE",
                                         "/api/auth/passkey/" + QString::number(added.value().id)),
                 1);
        QVERIFY(w.listPasskeys().value().isEmpty());
        const std::optional<PasskeyFailure> again = w.deletePasskey(added.value().id);
        QVERIFY(again);
        QCOMPARE(describe(*again), QStringLiteral("Passkey not found"));
    }

    void pinAnswers_data()
    {
        QTest::addColumn<QString>("pin"); // null: the PIN question is closed
        QTest::addColumn<QString>("loginError");
        QTest::newRow("right PIN") << QString::fromLatin1(kPin) << "";
        QTest::newRow("wrong PIN")
            << QStringLiteral("1111") << "Passkey authorization failed: PIN invalid";
        QTest::newRow("question closed") << QString() << "Passkey sign-in was cancelled.";
    }
    void pinAnswers()
    {
        QFETCH(QString, pin);
        QFETCH(QString, loginError);
        SoftwareAuthenticator::Options options;
        options.pin = QString::fromLatin1(kPin);
        World w(options);
        w.signIn();
        QVERIFY(w.registerPasskey().ok());
        w.auth.logout();

        w.pinAnswer = pin.isNull() ? std::nullopt : std::optional<QString>(pin);
        w.loginWithPasskey(LocalService::kDemoEmail);
        QCOMPARE(w.auth.loginError(), loginError);
        QCOMPARE(w.auth.isLoggedIn(), loginError.isEmpty());
        if (pin.isNull()) {
            // A cancelled add is the exchange's own "cancelled".
            w.signIn();
            const PasskeyOperationResult<Passkey> added = w.registerPasskey();
            QCOMPARE(describeResult(added), QStringLiteral("Passkey action was cancelled."));
        }
    }

    void signedOutManagementSendsNothing()
    {
        World w;
        const QString expected = QStringLiteral("You need to be signed in to manage passkeys.");
        QCOMPARE(describeResult(w.listPasskeys()), expected);
        QCOMPARE(describeResult(w.registerPasskey(QStringLiteral("x"))), expected);
        const std::optional<PasskeyFailure> removed = w.deletePasskey(1);
        QVERIFY(removed);
        QCOMPARE(describe(*removed), expected);
        QVERIFY(w.service->requestLog().isEmpty());
    }

    void unauthorizedManagementRefreshesOnce_data()
    {
        QTest::addColumn<QString>("scenario");
        QTest::addColumn<QString>("error");
        QTest::addColumn<int>("listRequests");
        QTest::addColumn<bool>("stillSignedIn");
        QTest::newRow("token expired") << QStringLiteral("expired") << "" << 2 << true;
        QTest::newRow("refresh refused")
            << QStringLiteral("refresh refused") << "Your session expired — please sign in again."
            << 1 << false;
        QTest::newRow("refused again after the refresh")
            << QStringLiteral("refused twice") << "Still not yours" << 2 << true;
    }
    void unauthorizedManagementRefreshesOnce()
    {
        QFETCH(QString, scenario);
        QFETCH(QString, error);
        QFETCH(int, listRequests);
        QFETCH(bool, stillSignedIn);
        World w;
        w.signIn();
        if (scenario == "expired") {
            w.service->expireAccessTokens();
        } else if (scenario == "refresh refused") {
            w.service->expireAccessTokens();
            w.service->script("POST", "/api/auth/refresh",
                              ScriptedAnswer::json(401, {{"detail", "Invalid refresh token"}}));
        } else {
            for (int i = 0; i < 2; ++i)
                w.service->script("GET", "/api/auth/passkey/list",
                                  ScriptedAnswer::json(401, {{"detail", "Still not yours"}}));
        }
        const QString oldToken = w.auth.accessToken();
        const PasskeyOperationResult<QList<Passkey>> listed = w.listPasskeys();
        QCOMPARE(describeResult(listed), error);
        QCOMPARE(w.service->requestCount("GET", "/api/auth/passkey/list"), listRequests);
        QCOMPARE(w.service->requestCount("POST", "/api/auth/refresh"), 1);
        QCOMPARE(w.auth.isLoggedIn(), stillSignedIn);
        if (!stillSignedIn)
            QCOMPARE(w.auth.sessionExpiredBanner(), AuthManager::expiredBanner());
        if (listRequests == 2) {
            // The retry carries the new token.
            const QList<LoggedRequest> log = w.service->requestLog();
            QCOMPARE(log.last().header("Authorization"), "Bearer " + w.auth.accessToken().toUtf8());
            QVERIFY(w.auth.accessToken() != oldToken);
        }
    }

    void signInRefusals_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("loginError");
        const QString begin = QStringLiteral("/api/auth/passkey/login/begin");
        QTest::newRow("options without a challenge")
            << begin << 200 << QByteArray(R"({"challenge_id":"c","options":"{}"})")
            << "Unexpected server response: Missing challenge";
        QTest::newRow("begin refused with a detail")
            << begin << 429 << QByteArray(R"({"detail":"Slow down"})") << "Slow down";
        QTest::newRow("begin refused without one")
            << begin << 503 << QByteArray(R"({"detail":[{"msg":"down"}]})")
            << "Server returned HTTP 503";
        QTest::newRow("finish refused")
            << QStringLiteral("/api/auth/passkey/login/finish") << 400
            << QByteArray(R"({"detail":"The passkey signature is invalid"})")
            << "The passkey signature is invalid";
        QTest::newRow("finish without a token")
            << QStringLiteral("/api/auth/passkey/login/finish") << 200
            << QByteArray(R"({"user":{}})") << "Invalid response from server";
    }
    void signInRefusals()
    {
        QFETCH(QString, path);
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, loginError);
        World w;
        w.signIn();
        QVERIFY(w.registerPasskey().ok());
        w.auth.logout();
        w.service->script("POST", path, ScriptedAnswer::reply(status, body));
        w.loginWithPasskey({});
        QCOMPARE(w.auth.loginError(), loginError);
        QVERIFY(!w.auth.isLoggedIn());
    }

    void registrationRefusals()
    {
        World w;
        w.signIn();
        // Spelled out: moc stops reading this file at a raw string literal.
        // NOLINTBEGIN(modernize-raw-string-literal)
        const char* begin =
            "{\"challenge_id\":\"c\",\"options\":\"{\\\"challenge\\\":\\\"YQ\\\"}\"}";
        // NOLINTEND(modernize-raw-string-literal)
        w.service->script("POST", "/api/auth/passkey/register/begin",
                          ScriptedAnswer::reply(200, begin));
        QCOMPARE(
            describeResult(w.registerPasskey()),
            QStringLiteral("Unexpected server response: Missing user.id in registration options"));
        QCOMPARE(w.authenticator->credentialCount(), 0);

        w.service->script("POST", "/api/auth/passkey/register/finish",
                          ScriptedAnswer::reply(200, R"({"id":1})"));
        QVERIFY(describeResult(w.registerPasskey())
                    .startsWith("Unexpected server response: Could not decode passkey: "));
    }

    void softwareAuthenticatorOnlyTalksToThisComputer()
    {
        World w;
        w.signIn();
        Settings::setServerOverride(QStringLiteral("https://sorvelandrix.com"));
        const auto restore = qScopeGuard([&w] { Settings::setServerOverride(w.service.origin()); });
        const PasskeyOperationResult<Passkey> added = w.registerPasskey();
        QVERIFY(!added.ok());
        QVERIFY2(describeResult(added).contains("only works with a service on this computer"),
                 qPrintable(describeResult(added)));
        w.loginWithPasskey({});
        QVERIFY(w.auth.loginError().startsWith("Passkey authorization failed: the software "
                                               "authenticator"));
        QCOMPARE(w.authenticator->credentialCount(), 0);
    }

    void securityKeyAbsentIsNotAvailable()
    {
        // The authenticator comes from the FIDO2 module, found beside the
        // program; a module that cannot be loaded would be logged.
        QStringList console;
        setLogSink([&console](const QString& line) { console << line; });
        const std::shared_ptr<Authenticator> key = loadSecurityKeyAuthenticator();
        setLogSink({});
        QVERIFY2(console.isEmpty(), qPrintable(console.join(QLatin1Char('\n'))));
        struct NoPrompts : AuthenticatorPrompts {
            std::optional<QString> requestPin(int) override { return std::nullopt; }
            void waitingForTouch(bool) override {}
            bool isCancelled() const override { return false; }
        } prompts;
        const PasskeyResult<Assertion> r =
            key->getAssertion({QByteArray(32, 'h'), QStringLiteral("127.0.0.1"), {}}, prompts);
        if (r.ok() || r.error().kind() != PasskeyError::Kind::notAvailable)
            QSKIP("a security key is attached to this computer");
        QCOMPARE(r.error().description(),
                 QStringLiteral("Passkeys are not available on this device."));
    }

    void softwareKeysInAPrivateFile()
    {
        test::IsolatedEnvironment env;
        SoftwareAuthenticator::Options options;
        options.file = env.path(QStringLiteral("dev/key.json"));
        World w(options);
        w.signIn();
        QVERIFY(w.registerPasskey().ok());
        QFile file(options.file);
        QVERIFY(file.exists());
        QCOMPARE(file.permissions() & ~(QFileDevice::ReadUser | QFileDevice::WriteUser),
                 QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        QVERIFY(!file.readAll().contains(w.auth.accessToken().toUtf8()));

        // Another run with the same file is the same key, counter and all.
        w.auth.logout();
        auto again = std::make_shared<SoftwareAuthenticator>(options);
        PasskeyManager passkeys(again);
        PasskeyOperations operations(w.auth, passkeys);
        operations.loginWithPasskey({});
        QTRY_VERIFY(!w.auth.isLoggingIn());
        QCOMPARE(w.auth.loginError(), QString());
        QVERIFY(w.auth.isLoggedIn());
        QCOMPARE(again->signCount(), 2u);
    }
};

QTEST_GUILESS_MAIN(TestPasskeys)
#include "tst_passkeys.moc"
