#pragma once

#include "service/apierror.h"
#include "service/passkeys/passkeyerror.h"
#include "service/records.h"

#include <QList>
#include <QObject>
#include <QString>

#include <functional>
#include <optional>

namespace sorv {

class AuthManager;
class PasskeyOperations;

// What the account's lists and forms ask of the service: the recordings,
// the meeting bots, joining and stopping one, and the passkeys. Callbacks
// follow AuthManager's rule: main thread, never synchronous, dropped once
// the context is gone.
class AccountSource : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // Changes whenever a session begins or ends; an answer to work of an
    // older session must not reach the next account's screens.
    virtual quint64 sessionGeneration() const = 0;
    virtual QString accessToken() const = 0;

    virtual void fetchRecordings(const QObject* context,
                                 std::function<void(RecordingsFetchResult)> done) = 0;
    virtual void fetchMeetings(const QObject* context,
                               std::function<void(ApiResult<QList<Meeting>>)> done) = 0;
    virtual void joinMeeting(const QString& meetingUrl, const QString& botName,
                             const QObject* context,
                             std::function<void(ApiResult<Meeting>)> done) = 0;
    // None on success.
    virtual void stopMeeting(const QString& id, const QObject* context,
                             std::function<void(std::optional<APIError>)> done) = 0;

    virtual void listPasskeys(const QObject* context,
                              std::function<void(PasskeyOperationResult<QList<Passkey>>)> done) = 0;
    // Registers one without a label.
    virtual void registerPasskey(const QObject* context,
                                 std::function<void(PasskeyOperationResult<Passkey>)> done) = 0;
    // None on success.
    virtual void deletePasskey(qint64 id, const QObject* context,
                               std::function<void(std::optional<PasskeyFailure>)> done) = 0;

Q_SIGNALS:
    // Signed out, expired or refused: everything of the account goes.
    void sessionEnded();
};

// The service itself, for the signed-in session: the session's token and
// its shared refresh, one retry after a 401. Without passkey operations
// (the command line's lists) the passkey calls fail as not available.
class ServiceAccountSource : public AccountSource {
    Q_OBJECT
public:
    // Both must outlive this object.
    explicit ServiceAccountSource(AuthManager& auth, PasskeyOperations* passkeys = nullptr,
                                  QObject* parent = nullptr);

    quint64 sessionGeneration() const override;
    QString accessToken() const override;
    void fetchRecordings(const QObject* context,
                         std::function<void(RecordingsFetchResult)> done) override;
    void fetchMeetings(const QObject* context,
                       std::function<void(ApiResult<QList<Meeting>>)> done) override;
    void joinMeeting(const QString& meetingUrl, const QString& botName, const QObject* context,
                     std::function<void(ApiResult<Meeting>)> done) override;
    void stopMeeting(const QString& id, const QObject* context,
                     std::function<void(std::optional<APIError>)> done) override;
    void listPasskeys(const QObject* context,
                      std::function<void(PasskeyOperationResult<QList<Passkey>>)> done) override;
    void registerPasskey(const QObject* context,
                         std::function<void(PasskeyOperationResult<Passkey>)> done) override;
    void deletePasskey(qint64 id, const QObject* context,
                       std::function<void(std::optional<PasskeyFailure>)> done) override;

private:
    template <typename Done> void unavailable(const QObject* context, Done done);

    AuthManager& m_auth;
    PasskeyOperations* m_passkeys;
};

} // namespace sorv
