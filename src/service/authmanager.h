#pragma once

#include "service/records.h"

#include <QNetworkRequest>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <functional>
#include <vector>

class QNetworkReply;

namespace sorv {

class SecretStore;

// The one signed-in session. Lives on the main thread: every published change
// and every secret and settings access happens there, which is also what makes
// the shared refresh safe without a lock.
//
// Asynchronous operations of the service subsystem take a completion callback
// and a context object: the callback runs on the main thread after the
// operation ends, never synchronously, and not at all once the context is
// destroyed.
class AuthManager : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isLoggedIn READ isLoggedIn NOTIFY isLoggedInChanged)
    Q_PROPERTY(QString userName READ userName NOTIFY userNameChanged)
    Q_PROPERTY(QString userEmail READ userEmail NOTIFY userEmailChanged)
    Q_PROPERTY(bool isLoggingIn READ isLoggingIn NOTIFY isLoggingInChanged)
    Q_PROPERTY(QString loginError READ loginError NOTIFY loginErrorChanged)
    Q_PROPERTY(
        QString sessionExpiredBanner READ sessionExpiredBanner NOTIFY sessionExpiredBannerChanged)
    Q_PROPERTY(QString pendingMfaChallengeId READ pendingMfaChallengeId NOTIFY
                   pendingMfaChallengeIdChanged)
    Q_PROPERTY(QString pendingMfaMaskedEmail READ pendingMfaMaskedEmail NOTIFY
                   pendingMfaMaskedEmailChanged)

public:
    static inline const QString serverKey = QStringLiteral("sorvelandrix_server");
    static inline const QString tokenKey = QStringLiteral("sorvelandrix_token");
    static inline const QString refreshKey = QStringLiteral("sorvelandrix_refresh");
    static inline const QString emailKey = QStringLiteral("sorvelandrix_email");
    static inline const QString nameKey = QStringLiteral("sorvelandrix_name");
    static inline const QString deviceIdKey = QStringLiteral("sorvelandrix_device_id");

    static inline const QString kExpiredBanner =
        QStringLiteral("Your session expired. Sign in again to continue.");
    static inline const QString kOutOfDateBanner =
        QStringLiteral("Your saved sign-in is out of date. Sign in again to upload recordings.");

    // The store must outlive the manager.
    explicit AuthManager(SecretStore& secrets, QObject* parent = nullptr);
    ~AuthManager() override;

    // Published state. Optional texts are empty when there is none.
    bool isLoggedIn() const { return m_isLoggedIn; }
    QString userName() const { return m_userName; }
    QString userEmail() const { return m_userEmail; }
    bool isLoggingIn() const { return m_isLoggingIn; }
    QString loginError() const { return m_loginError; }
    QString sessionExpiredBanner() const { return m_sessionExpiredBanner; }
    QString pendingMfaChallengeId() const { return m_pendingMfaChallengeId; }
    QString pendingMfaMaskedEmail() const { return m_pendingMfaMaskedEmail; }

    // The stored access token, empty when there is none.
    QString accessToken() const;
    // Created (upper-case UUID) and stored on first use.
    QString deviceId();

    // A request for the service with the shared settings and the current
    // bearer token (none when signed out).
    QNetworkRequest authorizedRequest(const QUrl& url) const;

    // True: a new access token is stored and the caller may retry once.
    // Concurrent callers share one request and all see its result.
    void refreshAccessToken(const QObject* context, std::function<void(bool)> done);
    bool isRefreshing() const { return m_refreshRunning; }
    // Ends the session locally and shows the banner.
    void expireSession(const QString& banner);
    // The service confirms the stored token.
    void verifyAccessToken(const QObject* context, std::function<void(bool)> done);

    // Checks the stored session once at start; `done` runs when the check ends.
    void validateSession(std::function<void()> done = {});
    void login(const QString& email, const QString& password);
    void verifyMfa(const QString& code);
    // Signs out locally at once; the server is told in the background.
    void logout();
    // The sign-out request sent by logout() is still under way. It is never
    // waited on for the session, only (briefly) by a process about to exit.
    bool hasDetachedRequests() const { return m_detachedRequests > 0; }
    void fetchRecordings(const QObject* context, std::function<void(RecordingsFetchResult)> done);

Q_SIGNALS:
    void isLoggedInChanged();
    void userNameChanged();
    void userEmailChanged();
    void isLoggingInChanged();
    void loginErrorChanged();
    void sessionExpiredBannerChanged();
    void pendingMfaChallengeIdChanged();
    void pendingMfaMaskedEmailChanged();
    void detachedRequestsFinished();

private:
    struct RefreshWaiter {
        QPointer<const QObject> context;
        std::function<void(bool)> done;
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
    void applyTokenResponse(const QByteArray& body, const QString& typedEmail);
    void finishRefresh(bool result);
    void clearLocalSession();
    void sendRecordingsRequest(const QUrl& url, bool isRetry, const QObject* context,
                               std::function<void(RecordingsFetchResult)> done);
    void later(const QObject* context, std::function<void()> fn) const;

    SecretStore& m_secrets;

    bool m_isLoggedIn = false;
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
