#pragma once

#include "core/filelock.h"
#include "core/settings.h"
#include "service/network.h"
#include "service/records.h"

#include <QCoreApplication>
#include <QNetworkRequest>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>
#include <vector>

namespace sorv {

class SecretStore;

// The one signed-in session. Lives on the main thread: every published change
// and every secret and settings access happens there, which also makes the
// shared refresh safe within the process; a lock file beside the secrets
// makes it safe between processes (the application and the command line
// share the tokens).
//
// Views call the invokable operations and read the published properties and
// signals. The other controllers use the C++ operations that take a context
// and a completion callback: the callback runs on the main thread after the
// operation ends, never synchronously, and not at all once the context is
// destroyed.
class AuthManager : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isLoggedIn READ isLoggedIn NOTIFY isLoggedInChanged)
    Q_PROPERTY(QString userName READ userName NOTIFY userNameChanged)
    Q_PROPERTY(QString userEmail READ userEmail NOTIFY userEmailChanged)
    Q_PROPERTY(QString displayName READ displayName NOTIFY displayNameChanged)
    Q_PROPERTY(bool isLoggingIn READ isLoggingIn NOTIFY isLoggingInChanged)
    Q_PROPERTY(QString loginError READ loginError NOTIFY loginErrorChanged)
    Q_PROPERTY(
        QString sessionExpiredBanner READ sessionExpiredBanner NOTIFY sessionExpiredBannerChanged)
    Q_PROPERTY(QString pendingMfaChallengeId READ pendingMfaChallengeId NOTIFY
                   pendingMfaChallengeIdChanged)
    Q_PROPERTY(QString pendingMfaMaskedEmail READ pendingMfaMaskedEmail NOTIFY
                   pendingMfaMaskedEmailChanged)

public:
    static inline const QString& serverKey = Settings::kServerKey;
    static inline const QString tokenKey = QStringLiteral("sorvelandrix_token");
    static inline const QString refreshKey = QStringLiteral("sorvelandrix_refresh");
    static inline const QString emailKey = QStringLiteral("sorvelandrix_email");
    static inline const QString nameKey = QStringLiteral("sorvelandrix_name");
    static inline const QString deviceIdKey = QStringLiteral("sorvelandrix_device_id");
    // The origin that issued the stored session: its tokens go nowhere else.
    static inline const QString originKey = QStringLiteral("sorvelandrix_session_origin");

    static QString expiredBanner()
    {
        return QCoreApplication::translate("AuthManager",
                                           "Your session expired. Sign in again to continue.");
    }
    static QString outOfDateBanner()
    {
        return QCoreApplication::translate(
            "AuthManager",
            "Your saved sign-in is out of date. Sign in again to upload recordings.");
    }

    // What the service said of the stored access token.
    enum class TokenCheck {
        Valid,       // HTTP 200 from /api/auth/me
        Rejected,    // HTTP 401: the token is no good
        Unreachable, // no answer, or an answer that says nothing about the token
    };
    // How a refresh ended.
    enum class RefreshOutcome {
        Refreshed,      // a new access token is stored (here or by another program)
        NoRefreshToken, // nothing to refresh with
        Refused,        // the service refused the refresh token (HTTP 401)
        Failed,         // anything else; the session stays
    };

    // The store must outlive the manager.
    explicit AuthManager(SecretStore& secrets, QObject* parent = nullptr);
    ~AuthManager() override;

    // Published state. Optional texts are empty when there is none.
    bool isLoggedIn() const { return m_isLoggedIn; }
    QString userName() const { return m_userName; }
    QString userEmail() const { return m_userEmail; }
    // "Name <email>", or the e-mail alone when there is no name.
    QString displayName() const;
    bool isLoggingIn() const { return m_isLoggingIn; }
    QString loginError() const { return m_loginError; }
    QString sessionExpiredBanner() const { return m_sessionExpiredBanner; }
    QString pendingMfaChallengeId() const { return m_pendingMfaChallengeId; }
    QString pendingMfaMaskedEmail() const { return m_pendingMfaMaskedEmail; }

    // The stored access token, empty when there is none (or it was issued by
    // another origin than this run's).
    QString accessToken() const;
    // The origin of a stored session that is not this run's, else empty:
    // that session is neither used nor ended here.
    QString sessionOriginElsewhere() const;
    // "Not signed in to ORIGIN (…)" for that case.
    QString notSignedInHereMessage() const;
    // Changes whenever a session begins or ends. Work started under one
    // session compares it before using an answer, so that one account's
    // results never reach the next account's screens or requests.
    quint64 sessionGeneration() const { return m_sessionGeneration; }
    // Created (upper-case UUID) and stored on first use.
    QString deviceId();

    // A request for the service with the shared settings and the current
    // bearer token (none when signed out).
    QNetworkRequest authorizedRequest(const QUrl& url) const;

    // True: a new access token is stored and the caller may retry once.
    // Concurrent callers share one request and all see its result.
    void refreshAccessToken(const QObject* context, std::function<void(bool)> done);
    void refreshAccessToken(const QObject* context, std::function<void(RefreshOutcome)> done);
    bool isRefreshing() const { return m_refreshRunning; }
    // For a request the service answered 401: one refresh (shared with any
    // under way), then `retry` if it stored a token for the same session,
    // else `giveUp` with how it ended (Failed when the session changed).
    void refreshThenRetry(const QObject* context, std::function<void()> retry,
                          std::function<void(RefreshOutcome)> giveUp);
    // Sends a request of the session with its token; a 401 leads to
    // refreshThenRetry() and one resend with the new token, whose answer
    // `done` takes whatever it is.
    void sendWithRefresh(const QByteArray& verb, const QNetworkRequest& request,
                         const QByteArray& body, const QObject* context, const AnswerCallback& done,
                         const std::function<void(RefreshOutcome)>& giveUp);
    // Ends the session locally and shows the banner.
    void expireSession(const QString& banner);
    // The service confirms the stored token (true only for HTTP 200).
    void verifyAccessToken(const QObject* context, std::function<void(bool)> done);
    // The same, telling a refusal apart from a service that cannot be reached.
    void checkAccessToken(const QObject* context,
                          std::function<void(TokenCheck, const QString& error)> done);

    // The recordings of the account (one page of up to 200).
    void fetchRecordings(const QObject* context, std::function<void(RecordingsFetchResult)> done);

    // The sign-out request sent by logout() is still under way. It is never
    // waited on for the session, only (briefly) by a process about to exit.
    bool hasDetachedRequests() const { return m_detachedRequests > 0; }

    // Sign-in methods that live outside this class (passkeys) drive the same
    // published sign-in state: begin, then finish with the service's token
    // answer or fail with the text to show.
    void beginSignIn();
    void finishSignIn(const QByteArray& tokenResponse, const QString& typedEmail);
    void failSignIn(const QString& error);

public Q_SLOTS:
    // Checks the stored session once at start; sessionValidated() follows.
    void validateSession();
    // Asks the service whether the stored session still holds, refreshing it
    // if needed, without ending it when the service cannot be reached:
    // sessionConfirmed() follows.
    void confirmSession();
    void login(const QString& email, const QString& password);
    void verifyMfa(const QString& code);
    // Forgets a pending code step ("Use a different account").
    void cancelMfa();
    // Signs out locally at once; the server is told in the background.
    void logout();

Q_SIGNALS:
    void isLoggedInChanged();
    void userNameChanged();
    void userEmailChanged();
    void displayNameChanged();
    void isLoggingInChanged();
    void loginErrorChanged();
    void sessionExpiredBannerChanged();
    void pendingMfaChallengeIdChanged();
    void pendingMfaMaskedEmailChanged();
    void sessionValidated();
    // Signed out, expired or refused: everything of the account goes.
    void sessionEnded();
    // `message` says why when not confirmed.
    void sessionConfirmed(bool confirmed, const QString& message);
    void detachedRequestsFinished();

private:
    struct RefreshWaiter {
        QPointer<const QObject> context;
        std::function<void(RefreshOutcome)> done;
    };

    void setIsLoggedIn(bool value);
    void setUserName(const QString& value);
    void setUserEmail(const QString& value);
    void setIsLoggingIn(bool value);
    void setLoginError(const QString& value);
    void setSessionExpiredBanner(const QString& value);
    void setPendingMfa(const QString& challengeId, const QString& maskedEmail,
                       const QString& email);

    QString refreshToken() const;
    QString storedOrigin() const;
    bool sessionIsHere() const;
    void adoptStoredSession();
    // `then` runs once the new session is kept, or sign-in failed.
    void applyTokenResponse(const QByteArray& body, const QString& typedEmail,
                            std::function<void()> then);
    void refreshUnderLock(const QString& knownRefreshToken);
    void finishRefresh(RefreshOutcome outcome);
    void clearLocalSession();
    void later(const QObject* context, std::function<void()> fn) const;

    SecretStore& m_secrets;
    FileLock m_refreshLock;

    bool m_isLoggedIn = false;
    quint64 m_sessionGeneration = 0;
    QString m_userName;
    QString m_userEmail;
    bool m_isLoggingIn = false;
    QString m_loginError;
    QString m_sessionExpiredBanner;
    QString m_pendingMfaChallengeId;
    QString m_pendingMfaMaskedEmail;
    QString m_pendingMfaEmail;

    bool m_refreshRunning = false;
    std::vector<RefreshWaiter> m_refreshWaiters;
    int m_detachedRequests = 0;
};

} // namespace sorv
