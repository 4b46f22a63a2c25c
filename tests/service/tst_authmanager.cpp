// The session against the local service: sign-in outcomes, the shared
// refresh, start-up checks, sign-out and the recordings list.

#include "signedin.h"

#include "core/log.h"
#include "core/secretstore.h"
#include "core/settings.h"
#include "service/authmanager.h"
#include "support/isolatedenvironment.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QtTest>

using namespace sorv;
using namespace sorv::local;
using namespace std::chrono_literals;

namespace {

LocalService::Options withMfa(bool mfa)
{
    LocalService::Options o;
    o.mfa = mfa;
    return o;
}

struct World {
    explicit World(bool mfa = false) : service(withMfa(mfa)) {}
    void signIn()
    {
        test::signIn(*auth);
        service->clearRequestLog();
    }
    // A new manager over the same secrets and settings: the next start.
    void restart() { auth = std::make_unique<AuthManager>(secrets); }

    test::IsolatedEnvironment env;
    test::LocalServiceFixture service;
    SecretStore secrets{SecretStore::Options::fileOnly()};
    std::unique_ptr<AuthManager> auth = std::make_unique<AuthManager>(secrets);
};

// One refresh through the session, waited for: whether it succeeded.
bool refreshOnce(AuthManager& auth)
{
    std::optional<bool> result;
    auth.refreshAccessToken(&auth, [&result](bool ok) { result = ok; });
    if (!QTest::qWaitFor([&] { return result.has_value(); }, 20000))
        qFatal("no refresh answer");
    return *result;
}

RecordingsFetchResult fetchRecordings(AuthManager& auth)
{
    std::optional<RecordingsFetchResult> result;
    auth.fetchRecordings(&auth, [&result](RecordingsFetchResult r) { result = std::move(r); });
    if (!QTest::qWaitFor([&] { return result.has_value(); }, 20000))
        qFatal("no recordings answer");
    return *result;
}

struct ConsoleCapture {
    ConsoleCapture()
    {
        setLogSink([this](const QString& line) { lines << line; });
    }
    ~ConsoleCapture() { setLogSink({}); }
    QStringList lines;
};

} // namespace

class TestAuthManager : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void loginOutcomes_data()
    {
        QTest::addColumn<int>("status"); // 0: the service's own answer; -1: none at all
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QByteArray>("retryAfter");
        QTest::addColumn<QString>("password");
        QTest::addColumn<QString>("error");
        QTest::addColumn<bool>("loggedIn");
        QTest::newRow("signed in") << 0 << QByteArray() << QByteArray() << "demo"
                                   << "" << true;
        QTest::newRow("no answer") << -1 << QByteArray() << QByteArray() << "demo"
                                   << "Connection refused" << false;
        QTest::newRow("wrong password") << 0 << QByteArray() << QByteArray() << "nope"
                                        << "Invalid email or password" << false;
        QTest::newRow("429 with Retry-After")
            << 429 << QByteArray() << QByteArray("30") << "demo"
            << "Too many failed attempts. Try again in 30s." << false;
        QTest::newRow("429 without Retry-After")
            << 429 << QByteArray() << QByteArray() << "demo"
            << "Too many failed attempts. Try again in ?s." << false;
        QTest::newRow("500 without detail")
            << 500 << QByteArray("<h1>oops</h1>") << QByteArray() << "demo"
            << "Login failed (HTTP 500)" << false;
        QTest::newRow("200 without token")
            << 200 << QByteArray(R"({"user":{"name":"X"}})") << QByteArray() << "demo"
            << "Invalid response from server" << false;
    }
    void loginOutcomes()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QByteArray, retryAfter);
        QFETCH(QString, password);
        QFETCH(QString, error);
        QFETCH(bool, loggedIn);
        World w;
        if (status < 0)
            w.service.stop();
        if (status > 0) {
            HeaderList headers;
            if (!retryAfter.isEmpty())
                headers.append({"Retry-After", retryAfter});
            w.service->script("POST", "/api/auth/login",
                              ScriptedAnswer::reply(status, body, headers));
        }
        QSignalSpy loggingIn(w.auth.get(), &AuthManager::isLoggingInChanged);
        w.auth->login(LocalService::kDemoEmail, password);
        QVERIFY(w.auth->isLoggingIn());
        QTRY_VERIFY(!w.auth->isLoggingIn());
        QCOMPARE(loggingIn.size(), 2);
        QCOMPARE(w.auth->loginError(), error);
        QCOMPARE(w.auth->isLoggedIn(), loggedIn);
        QCOMPARE(!w.auth->accessToken().isEmpty(), loggedIn);
        if (loggedIn) {
            QCOMPARE(w.auth->userName(), QStringLiteral("Demo User"));
            QCOMPARE(Settings::value(AuthManager::emailKey).toString(), LocalService::kDemoEmail);
        }
        if (status < 0)
            return;
        // The device id goes with every sign-in and never the old bearer.
        const LoggedRequest request = w.service->requestLog().last();
        QCOMPARE(request.header("X-Device-Id"), w.auth->deviceId().toUtf8());
        QVERIFY(request.header("Authorization").isEmpty());
    }

    void deviceIdIsCreatedOnceAndKept()
    {
        World w;
        const QString id = w.auth->deviceId();
        QCOMPARE(id.size(), 36);
        QCOMPARE(id, id.toUpper());
        w.restart();
        QCOMPARE(w.auth->deviceId(), id);
        w.auth->expireSession(QStringLiteral("x"));
        QCOMPARE(w.auth->deviceId(), id);
    }

    void secondFactor()
    {
        World w(true);
        w.auth->login(QStringLiteral("Demo@Sorvelandrix.local"), LocalService::kDemoPassword);
        QTRY_VERIFY(!w.auth->pendingMfaChallengeId().isEmpty());
        QCOMPARE(w.auth->pendingMfaMaskedEmail(), QStringLiteral("d***@sorvelandrix.local"));
        QVERIFY(!w.auth->isLoggedIn());

        w.auth->verifyMfa(QStringLiteral("not-the-code"));
        QTRY_VERIFY(!w.auth->isLoggingIn());
        QCOMPARE(w.auth->loginError(), QStringLiteral("Invalid code"));
        QVERIFY(!w.auth->pendingMfaChallengeId().isEmpty()); // the user can type it again

        w.auth->verifyMfa(w.service->lastMfaCode());
        QTRY_VERIFY(w.auth->isLoggedIn());
        QVERIFY(w.auth->pendingMfaChallengeId().isEmpty());
        QVERIFY(w.auth->pendingMfaMaskedEmail().isEmpty());
        QCOMPARE(w.auth->userEmail(), LocalService::kDemoEmail);
        QVERIFY(!w.secrets.read(AuthManager::refreshKey).value_or(QString()).isEmpty());
    }

    void challengeWithoutMaskedEmailShowsTheTypedOne()
    {
        World w;
        w.service->script(
            "POST", "/api/auth/login",
            ScriptedAnswer::json(200, {{"mfa_required", true}, {"challenge_id", "c1"}}));
        w.auth->login(QStringLiteral("me@example.org"), QStringLiteral("pw"));
        QTRY_COMPARE(w.auth->pendingMfaChallengeId(), QStringLiteral("c1"));
        QCOMPARE(w.auth->pendingMfaMaskedEmail(), QStringLiteral("me@example.org"));

        // The code check's answer has no user: the typed e-mail is shown, the name stays.
        Settings::setValue(AuthManager::nameKey, QStringLiteral("unused"));
        w.service->script("POST", "/api/auth/mfa/verify",
                          ScriptedAnswer::json(200, {{"token", "t1"}}));
        w.auth->verifyMfa(QStringLiteral("123456"));
        QTRY_VERIFY(w.auth->isLoggedIn());
        QCOMPARE(w.auth->userEmail(), QStringLiteral("me@example.org"));
        QCOMPARE(w.auth->userName(), QString());
        QCOMPARE(w.auth->accessToken(), QStringLiteral("t1"));
        QVERIFY(!w.secrets.read(AuthManager::refreshKey)); // none given, none kept
        QCOMPARE(Settings::value(AuthManager::emailKey).toString(),
                 QStringLiteral("me@example.org"));
    }

    void concurrentRefreshSharesOneRequest()
    {
        World w;
        w.signIn();
        const QString before = w.auth->accessToken();
        // Held back so that both callers are certainly waiting at once.
        w.service->script("POST", "/api/auth/refresh", ScriptedAnswer::delayed(300ms));
        std::optional<bool> first;
        std::optional<bool> second;
        w.auth->refreshAccessToken(w.auth.get(), [&](bool ok) { first = ok; });
        w.auth->refreshAccessToken(w.auth.get(), [&](bool ok) { second = ok; });
        QTRY_VERIFY(first && second);
        QVERIFY(*first && *second);
        QCOMPARE(w.service->requestCount("POST", "/api/auth/refresh"), 1);
        QVERIFY(w.auth->accessToken() != before);
        QVERIFY(!w.auth->isRefreshing());

        // A later caller starts a new one; the rotated refresh token works.
        QVERIFY(refreshOnce(*w.auth));
        QCOMPARE(w.service->requestCount("POST", "/api/auth/refresh"), 2);
        QVERIFY(w.service->requestLog().last().header("Authorization").isEmpty());
    }

    void refreshRefusals_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<bool>("staysSignedIn");
        QTest::newRow("500") << 500 << QByteArray() << true;
        QTest::newRow("200 without token") << 200 << QByteArray("{}") << true;
        QTest::newRow("401") << 401 << QByteArray(R"({"detail":"Invalid refresh token"})") << false;
    }
    void refreshRefusals()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(bool, staysSignedIn);
        World w;
        w.signIn();
        const QString token = w.auth->accessToken();
        w.service->script("POST", "/api/auth/refresh", ScriptedAnswer::reply(status, body));
        QVERIFY(!refreshOnce(*w.auth));
        QCOMPARE(w.auth->isLoggedIn(), staysSignedIn);
        QCOMPARE(w.auth->accessToken(), staysSignedIn ? token : QString());
        QCOMPARE(w.auth->sessionExpiredBanner(),
                 staysSignedIn ? QString() : AuthManager::expiredBanner());
        if (!staysSignedIn) {
            QVERIFY(!w.secrets.read(AuthManager::refreshKey));
            QVERIFY(w.auth->userEmail().isEmpty());
            QVERIFY(!Settings::contains(AuthManager::emailKey));
        }
    }

    void refreshWithoutRefreshTokenIsFalseAtOnce()
    {
        World w;
        std::optional<bool> result;
        w.auth->refreshAccessToken(w.auth.get(), [&](bool ok) { result = ok; });
        QVERIFY(!result); // never synchronously
        QTRY_VERIFY(result);
        QVERIFY(!*result);
        QCOMPARE(w.service->requestLog().size(), 0);
    }

    void startUp_data()
    {
        QTest::addColumn<bool>("keepRefreshToken");
        QTest::addColumn<bool>("loggedIn");
        QTest::addColumn<QString>("banner");
        QTest::newRow("expired access, good refresh") << true << true << QString();
        QTest::newRow("rejected token, no refresh token")
            << false << false << AuthManager::outOfDateBanner();
    }
    void startUp()
    {
        QFETCH(bool, keepRefreshToken);
        QFETCH(bool, loggedIn);
        QFETCH(QString, banner);
        World w;
        w.signIn();
        w.service->expireAccessTokens();
        if (!keepRefreshToken)
            w.secrets.remove(AuthManager::refreshKey);
        w.restart();
        QVERIFY(w.auth->isLoggedIn()); // a stored token counts until checked
        QCOMPARE(w.auth->userEmail(), LocalService::kDemoEmail);
        QSignalSpy done(w.auth.get(), &AuthManager::sessionValidated);
        w.auth->validateSession();
        QTRY_COMPARE(done.count(), 1);
        QCOMPARE(w.auth->isLoggedIn(), loggedIn);
        QCOMPARE(w.auth->sessionExpiredBanner(), banner);
        QCOMPARE(w.service->requestCount("POST", "/api/auth/refresh"), keepRefreshToken ? 1 : 0);
    }

    void tokenMovesFromSettingsToSecrets()
    {
        // Older versions did not record which service issued the session:
        // it is taken as the configured service's.
        World w;
        Settings::setValue(Settings::kServerKey, w.service.origin());
        Settings::setValue(AuthManager::tokenKey, QStringLiteral("legacy-token"));
        Settings::setValue(AuthManager::emailKey, QStringLiteral("old@example.org"));
        w.restart();
        QCOMPARE(w.secrets.read(AuthManager::tokenKey),
                 std::optional<QString>(QStringLiteral("legacy-token")));
        QCOMPARE(w.secrets.read(AuthManager::originKey),
                 std::optional<QString>(w.service.origin()));
        QVERIFY(!Settings::contains(AuthManager::tokenKey));
        QVERIFY(w.auth->isLoggedIn());
        QCOMPARE(w.auth->userEmail(), QStringLiteral("old@example.org"));

        // With both present neither changes.
        Settings::setValue(AuthManager::tokenKey, QStringLiteral("other"));
        w.restart();
        QCOMPARE(w.auth->accessToken(), QStringLiteral("legacy-token"));
        QCOMPARE(Settings::value(AuthManager::tokenKey).toString(), QStringLiteral("other"));
    }

    void legacySessionIsNotTakenToAnotherService()
    {
        // Configured for the hosted service, this run for the local one.
        World w;
        w.secrets.write(AuthManager::tokenKey, QStringLiteral("legacy-token"));
        w.secrets.write(AuthManager::refreshKey, QStringLiteral("legacy-refresh"));
        w.restart();
        QVERIFY(!w.auth->isLoggedIn());
        QVERIFY(w.auth->accessToken().isEmpty());
        QCOMPARE(w.auth->sessionOriginElsewhere(), Settings::kDefaultOrigin);
        QCOMPARE(w.auth->sessionExpiredBanner(),
                 QStringLiteral("Not signed in to %1 (the saved sign-in is for %2)")
                     .arg(w.service.origin(), Settings::kDefaultOrigin));
        w.auth->logout();
        QTRY_VERIFY(!w.auth->hasDetachedRequests());
        QVERIFY(w.service->requestLog().isEmpty());
        QCOMPARE(w.secrets.read(AuthManager::refreshKey),
                 std::optional<QString>(QStringLiteral("legacy-refresh")));
    }

    void sessionThatCannotBeKeptIsNoSignIn()
    {
        // The window shows why instead of a session that would be gone at
        // the next start.
        test::IsolatedEnvironment env;
        test::LocalServiceFixture service;
        QFile blocker(env.path(QStringLiteral("not-a-folder")));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        SecretStore::Options options = SecretStore::Options::fileOnly();
        options.directory = blocker.fileName() + QStringLiteral("/sorvelandrix");
        SecretStore secrets(options);
        AuthManager auth(secrets);
        auth.login(LocalService::kDemoEmail, LocalService::kDemoPassword);
        QTRY_VERIFY(!auth.isLoggingIn());
        QVERIFY(!auth.isLoggedIn());
        QVERIFY2(auth.loginError().contains(options.directory + QStringLiteral("/secrets")),
                 qPrintable(auth.loginError()));
        QVERIFY(auth.accessToken().isEmpty());
    }

    void logoutEndsTheServerSession()
    {
        World w;
        w.signIn();
        const QString refresh = *w.secrets.read(AuthManager::refreshKey);
        QSignalSpy finished(w.auth.get(), &AuthManager::detachedRequestsFinished);
        w.auth->logout();
        QVERIFY(!w.auth->isLoggedIn());
        QVERIFY(w.auth->hasDetachedRequests());
        QVERIFY(finished.wait(5000));
        const LoggedRequest request = w.service->requestLog().last();
        QCOMPARE(request.path, QStringLiteral("/api/auth/logout"));
        QCOMPARE(QJsonDocument::fromJson(request.body).object().value("refresh_token").toString(),
                 refresh);
        QVERIFY(request.header("Authorization").isEmpty());
    }

    void logoutWhileOfflineSignsOutAtOnce()
    {
        World w;
        w.signIn();
        w.auth->expireSession(QStringLiteral("earlier banner"));
        w.signIn();
        Settings::setValue(AuthManager::nameKey, QStringLiteral("Demo User"));
        w.service.stop();
        w.auth->logout();
        QVERIFY(!w.auth->isLoggedIn());
        QVERIFY(w.auth->accessToken().isEmpty());
        QVERIFY(!w.secrets.read(AuthManager::refreshKey));
        QVERIFY(w.auth->userName().isEmpty());
        QVERIFY(!Settings::contains(AuthManager::nameKey));
        QVERIFY(w.auth->sessionExpiredBanner()
                    .isEmpty()); // cleared by the sign-in, untouched by logout
        QTRY_VERIFY(!w.auth->hasDetachedRequests());
    }

    void recordingsEnvelopeAndArray()
    {
        World w;
        w.signIn();
        w.service->addRecording(LocalService::kDemoEmail, QStringLiteral("second.wav"), 1000);
        RecordingsFetchResult r = fetchRecordings(*w.auth);
        QVERIFY(!r.error);
        QCOMPARE(r.recordings.size(), 2);
        QCOMPARE(w.service->requestLog().last().target,
                 QStringLiteral("/api/transcriptions?limit=200"));

        w.service->script(
            "GET", "/api/transcriptions",
            ScriptedAnswer::reply(
                200, R"([{"id":"a","original_filename":"a.wav","status":"completed"}])"));
        r = fetchRecordings(*w.auth);
        QVERIFY(!r.error);
        QCOMPARE(r.recordings.size(), 1);
        QCOMPARE(r.recordings.at(0).id, QStringLiteral("a"));
    }

    void recordingsRetryOnceAfterRefresh()
    {
        World w;
        w.signIn();
        w.service->expireAccessTokens();
        const RecordingsFetchResult r = fetchRecordings(*w.auth);
        QVERIFY(!r.error);
        QCOMPARE(r.recordings.size(), 1);
        QCOMPARE(w.service->requestCount("GET", "/api/transcriptions"), 2);
        QCOMPARE(w.service->requestCount("POST", "/api/auth/refresh"), 1);
    }

    void recordingsFailures_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<int>("refreshStatus"); // 0: no refresh expected
        QTest::addColumn<QString>("error");
        QTest::addColumn<QString>("console");
        QTest::newRow("401, refresh fails")
            << 401 << QByteArray() << 500 << "Your session expired — please sign in again."
            << "[fetchRecordings] 401 and could not refresh token";
        QTest::newRow("400 with detail")
            << 400 << QByteArray(R"({"detail":"Bad limit"})") << 0 << "Bad limit"
            << "";
        QTest::newRow("400 with empty detail")
            << 400 << QByteArray(R"({"detail":""})") << 0 << "Server returned HTTP 400"
            << "";
    }
    void recordingsFailures()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(int, refreshStatus);
        QFETCH(QString, error);
        QFETCH(QString, console);
        World w;
        w.signIn();
        ConsoleCapture capture;
        w.service->script("GET", "/api/transcriptions", ScriptedAnswer::reply(status, body));
        if (refreshStatus)
            w.service->script("POST", "/api/auth/refresh", ScriptedAnswer::reply(refreshStatus));
        const RecordingsFetchResult r = fetchRecordings(*w.auth);
        QCOMPARE(r.error, std::optional<QString>(error));
        QVERIFY(r.recordings.isEmpty());
        if (!console.isEmpty())
            QVERIFY2(capture.lines.contains(console), qPrintable(capture.lines.join('\n')));
        // A failed refresh other than 401 does not end the session.
        QVERIFY(w.auth->isLoggedIn());
    }

    void undecodableRecordingsAreAnEmptyList_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("bodyLine");
        QTest::newRow("wrong shape") << QByteArray(R"({"results":[]})") << "body: {\"results\":[]}";
        QTest::newRow("binary") << QByteArray("\xff\xfe\x00\x01", 4) << "body: <binary>";
    }
    void undecodableRecordingsAreAnEmptyList()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, bodyLine);
        World w;
        w.signIn();
        ConsoleCapture capture;
        w.service->script("GET", "/api/transcriptions", ScriptedAnswer::reply(200, body));
        const RecordingsFetchResult r = fetchRecordings(*w.auth);
        QVERIFY(!r.error);
        QVERIFY(r.recordings.isEmpty());
        QCOMPARE(capture.lines.size(), 1);
        const QStringList parts = capture.lines.at(0).split('\n');
        QCOMPARE(parts.size(), 2);
        QVERIFY(parts.at(0).startsWith(QStringLiteral("[fetchRecordings] decode failed: ")));
        QCOMPARE(parts.at(1), bodyLine);
    }

    void tokenCheckTellsRefusalFromSilence()
    {
        World w;
        w.signIn();
        const auto check = [&] {
            std::optional<AuthManager::TokenCheck> result;
            w.auth->checkAccessToken(
                w.auth.get(), [&](AuthManager::TokenCheck c, const QString&) { result = c; });
            [[maybe_unused]] const bool answered =
                QTest::qWaitFor([&] { return result.has_value(); }, 20000);
            return result.value_or(AuthManager::TokenCheck::Valid);
        };
        QCOMPARE(check(), AuthManager::TokenCheck::Valid);
        w.service->script("GET", "/api/auth/me", ScriptedAnswer::reply(503));
        QCOMPARE(check(), AuthManager::TokenCheck::Unreachable);
        w.service->expireAccessTokens();
        QCOMPARE(check(), AuthManager::TokenCheck::Rejected);
        w.service.stop();
        QCOMPARE(check(), AuthManager::TokenCheck::Unreachable);
    }

    void confirmationRefreshesButNeverSignsOutForSilence()
    {
        World w;
        w.signIn();
        QSignalSpy confirmed(w.auth.get(), &AuthManager::sessionConfirmed);
        w.service->expireAccessTokens();
        w.auth->confirmSession();
        QTRY_COMPARE(confirmed.count(), 1);
        QCOMPARE(confirmed.at(0).at(0).toBool(), true);
        QCOMPARE(w.service->requestCount("POST", "/api/auth/refresh"), 1);

        w.service.stop();
        w.auth->confirmSession();
        QTRY_COMPARE(confirmed.count(), 2);
        QCOMPARE(confirmed.at(1).at(0).toBool(), false);
        QVERIFY(confirmed.at(1).at(1).toString().startsWith(
            QStringLiteral("Could not confirm the session with the service")));
        QVERIFY(w.auth->isLoggedIn());
    }

    void sessionStoredLaterIsTakenUp()
    {
        // Tokens that arrive in the store after the start (another program
        // signed in; the keyring answered late) sign the session in.
        World w;
        QVERIFY(!w.auth->isLoggedIn());
        Settings::setValue(AuthManager::emailKey, QStringLiteral("other@example.org"));
        {
            SecretStore other(SecretStore::Options::fileOnly());
            other.write(AuthManager::originKey, w.service.origin());
            other.write(AuthManager::tokenKey, QStringLiteral("from-elsewhere"));
        }
        bool reloaded = false;
        w.secrets.reload(w.auth.get(), [&] { reloaded = true; });
        QTRY_VERIFY(reloaded);
        QVERIFY(w.auth->isLoggedIn());
        QCOMPARE(w.auth->userEmail(), QStringLiteral("other@example.org"));
        QCOMPARE(w.auth->displayName(), QStringLiteral("other@example.org"));
    }

    void refusedTokenNoLongerStoredKeepsTheSession()
    {
        // While the refused refresh was under way, another program stored a
        // newer session: the refusal concerns the old token only.
        World w;
        w.signIn();
        ScriptedAnswer refused = ScriptedAnswer::reply(401);
        refused.delay = 300ms;
        w.service->script("POST", "/api/auth/refresh", refused);
        std::optional<bool> result;
        w.auth->refreshAccessToken(w.auth.get(), [&](bool ok) { result = ok; });
        QTRY_COMPARE(w.service->requestCount("POST", "/api/auth/refresh"), 1);
        {
            SecretStore other(SecretStore::Options::fileOnly());
            other.write(AuthManager::tokenKey, QStringLiteral("newer-token"));
            other.write(AuthManager::refreshKey, QStringLiteral("newer-refresh"));
        }
        QTRY_VERIFY(result);
        QVERIFY(*result);
        QVERIFY(w.auth->isLoggedIn());
        QCOMPARE(w.auth->accessToken(), QStringLiteral("newer-token"));
        QVERIFY(w.auth->sessionExpiredBanner().isEmpty());
    }

    void noLogLineCarriesAToken()
    {
        ConsoleCapture capture;
        World w;
        w.signIn();
        const QString access = w.auth->accessToken();
        const QString refresh = *w.secrets.read(AuthManager::refreshKey);
        w.service->expireAccessTokens();
        fetchRecordings(*w.auth);
        w.service->script("POST", "/api/auth/refresh", ScriptedAnswer::reply(500));
        refreshOnce(*w.auth);
        const QString rotated = w.auth->accessToken();
        w.auth->logout();
        QTRY_VERIFY(!w.auth->hasDetachedRequests());
        QVERIFY(!capture.lines.isEmpty());
        for (const QString& line : std::as_const(capture.lines))
            for (const QString& token : {access, refresh, rotated})
                QVERIFY2(!line.contains(token), qPrintable(line));
    }

    void recordingsBadServerUrl()
    {
        World w;
        Settings::setServerOverride(QStringLiteral("no server"));
        const RecordingsFetchResult r = fetchRecordings(*w.auth);
        QCOMPARE(r.error, std::optional<QString>(QStringLiteral("Bad server URL")));
        w.auth->login(QStringLiteral("a@b.c"), QStringLiteral("x"));
        QCOMPARE(w.auth->loginError(), QStringLiteral("Invalid server URL"));
        QVERIFY(!w.auth->isLoggingIn());
    }
};

QTEST_GUILESS_MAIN(TestAuthManager)
#include "tst_authmanager.moc"
