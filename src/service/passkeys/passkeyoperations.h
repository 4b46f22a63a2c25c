#pragma once

#include "service/passkeys/passkeyerror.h"
#include "service/passkeys/passkeyprotocol.h"
#include "service/records.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>
#include <optional>

namespace sorv {

class AuthManager;
class PasskeyManager;

// The passkey operations of the session: sign-in with a passkey, and list,
// add and remove for the signed-in account. They talk to the service for the
// session (its token, its shared refresh, its sign-in state) and hand the
// ceremony to the PasskeyManager. Main thread; callbacks follow AuthManager's
// rule (main thread, never synchronous, dropped once the context is gone).
class PasskeyOperations : public QObject {
    Q_OBJECT

public:
    // Both must outlive this object.
    PasskeyOperations(AuthManager& auth, PasskeyManager& passkeys, QObject* parent = nullptr);

    // Results go to the session's published sign-in state (isLoggingIn,
    // loginError, isLoggedIn).
    Q_INVOKABLE void loginWithPasskey(const QString& email);

    void registerPasskey(const std::optional<QString>& label, const QObject* context,
                         const std::function<void(PasskeyOperationResult<Passkey>)>& done);
    void listPasskeys(const QObject* context,
                      const std::function<void(PasskeyOperationResult<QList<Passkey>>)>& done);
    // None on success.
    void deletePasskey(qint64 id, const QObject* context,
                       const std::function<void(std::optional<PasskeyFailure>)>& done);

    // The two exchanges the operations are made of.
    void passkeyBegin(const QString& path, const QJsonObject& body, bool authorized,
                      const QObject* context,
                      const std::function<void(PasskeyAuthResult<passkeys::BeginResult>)>& done);
    // With the bearer token; a 401 refreshes the token once and retries once.
    void authorizedPasskeyRequest(const QUrl& url, const QByteArray& method,
                                  const std::optional<QJsonObject>& body, const QObject* context,
                                  const std::function<void(PasskeyAuthResult<QByteArray>)>& done);

private:
    void finishLogin(const QString& challengeId, const QJsonObject& credential,
                     const QString& typedEmail);
    void later(const QObject* context, std::function<void()> fn);

    AuthManager& m_auth;
    PasskeyManager& m_passkeys;
};

} // namespace sorv
