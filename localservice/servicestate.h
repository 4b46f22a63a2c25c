#pragma once

#include "localservice/database.h"
#include "localservice/httpexchange.h"
#include "localservice/serviceoptions.h"

#include <QJsonObject>
#include <QString>

#include <atomic>
#include <map>
#include <mutex>
#include <optional>

namespace sorv::local {

struct Account {
    QString id;
    QString email;
    QString name;
};

// What the endpoint groups share: the database, the options, the clock and
// the console. Thread-safe: every connection thread uses it.
class ServiceState {
public:
    explicit ServiceState(ServiceOptions options);

    bool open(QString* error);

    Database& db() { return m_db; }
    const ServiceOptions& options() const { return m_options; }
    QString dataDirectory() const { return m_options.dataDirectory; }

    static qint64 nowMs();
    static QString timestamp(qint64 ms); // "yyyy-MM-ddTHH:mm:ss", UTC, no zone
    static QString randomToken(int bytes);
    static QString newId();

    // The account of a valid, unexpired access token, else none.
    std::optional<Account> authenticate(const ServiceRequest& request);
    std::optional<Account> authenticateToken(const QString& accessToken);
    std::optional<Account> accountByEmail(const QString& email);
    std::optional<Account> accountById(const QString& id);
    bool checkPassword(const QString& accountId, const QString& password);
    QString addAccount(const QString& email, const QString& name, const QString& password);
    // A new access + refresh token pair in a new (or the given) session.
    QJsonObject issueTokens(const QString& accountId, const QString& sessionId = {});
    void revokeSession(const QString& sessionId);

    std::chrono::seconds accessTokenLifetime() const
    {
        return std::chrono::seconds(m_lifetime.load());
    }
    void setAccessTokenLifetime(std::chrono::seconds s) { m_lifetime = s.count(); }
    std::chrono::milliseconds meetingPhase() const { return m_options.meetingPhase; }

    // Sign-in second factor.
    struct Challenge {
        QString accountId;
        QString code;
        qint64 expiresMs = 0;
        int attempts = 0;
    };
    QString createChallenge(const QString& accountId); // prints the code on the console
    std::map<QString, Challenge>& challenges() { return m_challenges; }
    std::mutex& challengeMutex() { return m_challengeMutex; }
    QString lastMfaCode() const;

    // Failed sign-ins per e-mail, for the 429 answer.
    std::optional<int> retryAfterSeconds(const QString& email);
    void noteFailedLogin(const QString& email);
    void clearFailedLogins(const QString& email);

    QString addRecording(const QString& accountId, const QString& filename, const QString& status,
                         qint64 durationMs, const QString& title);
    // An upload: "processing" until the simulated transcription finishes.
    QString addUploadedRecording(const QString& id, const QString& accountId,
                                 const QString& filename, const QVariant& durationMs,
                                 const QString& filePath);
    // Marks uploads older than the processing time "completed".
    void completeFinishedProcessing();

private:
    void createSchema();
    void sweepPartialUploads();
    void createDemoAccount();
    static QString hashPassword(const QString& salt, const QString& password);

    ServiceOptions m_options;
    Database m_db;
    std::atomic<qint64> m_lifetime;

    mutable std::mutex m_challengeMutex;
    std::map<QString, Challenge> m_challenges;
    QString m_lastMfaCode;

    std::mutex m_failureMutex;
    std::map<QString, std::vector<qint64>> m_failures;
};

} // namespace sorv::local
