#include "passkeyoperations.h"

#include "core/log.h"
#include "service/authmanager.h"
#include "service/network.h"
#include "service/passkeys/passkeymanager.h"
#include "service/requestrules.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QPointer>
#include <QTimer>

namespace sorv {

namespace {

const QString kLoginBeginPath = QStringLiteral("/api/auth/passkey/login/begin");
const QString kLoginFinishPath = QStringLiteral("/api/auth/passkey/login/finish");
const QString kRegisterBeginPath = QStringLiteral("/api/auth/passkey/register/begin");
const QString kRegisterFinishPath = QStringLiteral("/api/auth/passkey/register/finish");
const QString kListPath = QStringLiteral("/api/auth/passkey/list");

// Every passkey exchange is an ordinary service call.
QNetworkRequest passkeyRequest(const QUrl& url)
{
    QNetworkRequest request = serviceRequest(url);
    request.setTransferTimeout(Timeouts::kServiceMs);
    return request;
}

PasskeyAuthError invalidServerUrl()
{
    return PasskeyAuthError::badResponse(
        QCoreApplication::translate("PasskeyOperations", "Invalid server URL"));
}

// What a non-2xx or missing answer means, or none for a success.
std::optional<PasskeyAuthError> answerFailure(const HttpAnswer& answer)
{
    if (answer.transportError)
        return PasskeyAuthError::transport(answer.errorText);
    if (!answer.isHttp)
        return PasskeyAuthError::badResponse(
            QCoreApplication::translate("PasskeyOperations", "No response"));
    return std::nullopt;
}

} // namespace

PasskeyOperations::PasskeyOperations(AuthManager& auth, PasskeyManager& passkeys, QObject* parent)
    : QObject(parent), m_auth(auth), m_passkeys(passkeys)
{}

void PasskeyOperations::later(const QObject* context, std::function<void()> fn)
{
    QTimer::singleShot(0, context ? context : this, std::move(fn));
}

// ---- the two exchanges -------------------------------------------------------

void PasskeyOperations::passkeyBegin(
    const QString& path, const QJsonObject& body, bool authorized, const QObject* context,
    const std::function<void(PasskeyAuthResult<passkeys::BeginResult>)>& done)
{
    const std::optional<QUrl> url = endpointUrl(path);
    if (!url) {
        later(context, [done] { done(invalidServerUrl()); });
        return;
    }
    if (authorized) {
        authorizedPasskeyRequest(*url, "POST", body, context,
                                 [done](const PasskeyAuthResult<QByteArray>& answer) {
                                     if (!answer.ok())
                                         done(answer.error());
                                     else
                                         done(passkeys::decodeBeginBody(answer.value()));
                                 });
        return;
    }
    QNetworkRequest request = passkeyRequest(*url);
    request.setRawHeader("Content-Type", "application/json");
    request.setRawHeader("X-Device-Id", m_auth.deviceId().toUtf8());
    sendRequest("POST", request, jsonBody(body), context ? context : this,
                [done](const HttpAnswer& answer) {
                    if (const std::optional<PasskeyAuthError> failure = answerFailure(answer))
                        done(*failure);
                    else if (answer.status != 200)
                        done(passkeys::serverRefusal(answer.status, answer.body));
                    else
                        done(passkeys::decodeBeginBody(answer.body));
                });
}

void PasskeyOperations::authorizedPasskeyRequest(
    const QUrl& url, const QByteArray& method, const std::optional<QJsonObject>& body,
    const QObject* context, const std::function<void(PasskeyAuthResult<QByteArray>)>& done)
{
    QNetworkRequest request = passkeyRequest(url);
    QByteArray payload;
    if (body) {
        request.setRawHeader("Content-Type", "application/json");
        payload = jsonBody(*body);
    }
    m_auth.sendWithRefresh(
        method, request, payload, context ? context : this,
        [done](const HttpAnswer& answer) {
            if (const std::optional<PasskeyAuthError> failure = answerFailure(answer))
                done(*failure);
            else if (answer.status >= 200 && answer.status <= 299)
                done(answer.body);
            else
                done(passkeys::serverRefusal(answer.status, answer.body));
        },
        [done](AuthManager::RefreshOutcome) {
            done(PasskeyAuthError::server(QCoreApplication::translate(
                "PasskeyOperations", "Your session expired — please sign in again.")));
        });
}

// ---- sign-in -------------------------------------------------------------------

void PasskeyOperations::loginWithPasskey(const QString& email)
{
    m_auth.beginSignIn();
    const QString typed = email.trimmed();
    if (const std::optional<PasskeyError> refused = m_passkeys.refusal()) {
        later(this, [this, text = refused->description()] { m_auth.failSignIn(text); });
        return;
    }
    QJsonObject body;
    if (!typed.isEmpty())
        body.insert(QStringLiteral("email"), typed);
    passkeyBegin(kLoginBeginPath, body, false, this,
                 [this, typed](const PasskeyAuthResult<passkeys::BeginResult>& begun) {
                     if (!begun.ok()) {
                         m_auth.failSignIn(begun.error().description());
                         return;
                     }
                     const PasskeyAuthResult<passkeys::SignInOptions> options =
                         passkeys::decodeSignInOptions(begun.value().options);
                     if (!options.ok()) {
                         m_auth.failSignIn(options.error().description());
                         return;
                     }
                     m_passkeys.signIn(options.value().challenge,
                                       options.value().allowedCredentialIds, this,
                                       [this, typed, challengeId = begun.value().challengeId](
                                           const PasskeyResult<QJsonObject>& credential) {
                                           if (!credential.ok()) {
                                               m_auth.failSignIn(credential.error().description());
                                               return;
                                           }
                                           finishLogin(challengeId, credential.value(), typed);
                                       });
                 });
}

void PasskeyOperations::finishLogin(const QString& challengeId, const QJsonObject& credential,
                                    const QString& typedEmail)
{
    const std::optional<QUrl> url = endpointUrl(kLoginFinishPath);
    if (!url) {
        m_auth.failSignIn(invalidServerUrl().description());
        return;
    }
    QNetworkRequest request = passkeyRequest(*url);
    request.setRawHeader("Content-Type", "application/json");
    request.setRawHeader("X-Device-Id", m_auth.deviceId().toUtf8());
    const QByteArray body = jsonBody({{QStringLiteral("challenge_id"), challengeId},
                                      {QStringLiteral("credential"), credential}});
    sendRequest("POST", request, body, this, [this, typedEmail](const HttpAnswer& answer) {
        if (const std::optional<PasskeyAuthError> failure = answerFailure(answer)) {
            m_auth.failSignIn(failure->description());
        } else if (answer.status == 200) {
            m_auth.finishSignIn(answer.body,
                                typedEmail.isEmpty() ? m_auth.userEmail() : typedEmail);
            if (m_auth.isLoggedIn() && m_auth.loginError().isEmpty())
                consoleLog(QStringLiteral("🔑 Signed in with a passkey"));
        } else {
            m_auth.failSignIn(passkeys::serverRefusal(answer.status, answer.body).description());
        }
    });
}

// ---- the account's passkeys ------------------------------------------------------

void PasskeyOperations::registerPasskey(
    const std::optional<QString>& label, const QObject* context,
    const std::function<void(PasskeyOperationResult<Passkey>)>& done)
{
    if (!m_auth.isLoggedIn()) {
        later(context, [done] { done(PasskeyFailure(PasskeyAuthError::notLoggedIn())); });
        return;
    }
    if (const std::optional<PasskeyError> refused = m_passkeys.refusal()) {
        later(context, [done, error = *refused] { done(PasskeyFailure(error)); });
        return;
    }
    QJsonObject body;
    if (label)
        body.insert(QStringLiteral("label"), *label);
    const QPointer<const QObject> guard(context ? context : this);
    passkeyBegin(
        kRegisterBeginPath, body, true, this,
        [this, guard, done](const PasskeyAuthResult<passkeys::BeginResult>& begun) {
            if (!guard)
                return;
            if (!begun.ok()) {
                done(PasskeyFailure(begun.error()));
                return;
            }
            const PasskeyAuthResult<passkeys::RegistrationOptions> options =
                passkeys::decodeRegistrationOptions(begun.value().options);
            if (!options.ok()) {
                done(PasskeyFailure(options.error()));
                return;
            }
            const QString name = options.value().userName.value_or(m_auth.userEmail());
            m_passkeys.registerCredential(
                options.value().challenge, name, options.value().userId, this,
                [this, guard, done, challengeId = begun.value().challengeId](
                    const PasskeyResult<QJsonObject>& credential) {
                    if (!guard)
                        return;
                    if (!credential.ok()) {
                        if (credential.error().kind() == PasskeyError::Kind::cancelled)
                            done(PasskeyFailure(PasskeyAuthError::cancelled()));
                        else
                            done(PasskeyFailure(credential.error()));
                        return;
                    }
                    const std::optional<QUrl> url = endpointUrl(kRegisterFinishPath);
                    if (!url) {
                        done(PasskeyFailure(invalidServerUrl()));
                        return;
                    }
                    authorizedPasskeyRequest(
                        *url, "POST",
                        QJsonObject{{QStringLiteral("challenge_id"), challengeId},
                                    {QStringLiteral("credential"), credential.value()}},
                        guard, [done](const PasskeyAuthResult<QByteArray>& answer) {
                            if (!answer.ok()) {
                                done(PasskeyFailure(answer.error()));
                                return;
                            }
                            QString error;
                            const std::optional<QJsonValue> json =
                                parseJsonBody(answer.value(), &error);
                            const std::optional<Passkey> passkey =
                                json ? Passkey::fromJson(*json, &error) : std::nullopt;
                            if (!passkey) {
                                done(PasskeyFailure(PasskeyAuthError::badResponse(
                                    QCoreApplication::translate("PasskeyOperations",
                                                                "Could not decode passkey: %1")
                                        .arg(error))));
                                return;
                            }
                            consoleLog(QStringLiteral("🔑 Passkey %1 added").arg(passkey->id));
                            done(*passkey);
                        });
                });
        });
}

void PasskeyOperations::listPasskeys(
    const QObject* context, const std::function<void(PasskeyOperationResult<QList<Passkey>>)>& done)
{
    if (!m_auth.isLoggedIn()) {
        later(context, [done] { done(PasskeyFailure(PasskeyAuthError::notLoggedIn())); });
        return;
    }
    const std::optional<QUrl> url = endpointUrl(kListPath);
    if (!url) {
        later(context, [done] { done(PasskeyFailure(invalidServerUrl())); });
        return;
    }
    authorizedPasskeyRequest(
        *url, "GET", std::nullopt, context, [done](const PasskeyAuthResult<QByteArray>& answer) {
            if (!answer.ok()) {
                done(PasskeyFailure(answer.error()));
                return;
            }
            QString error;
            const std::optional<QJsonValue> json = parseJsonBody(answer.value(), &error);
            std::optional<QList<Passkey>> list =
                json ? passkeysFromJson(*json, &error) : std::nullopt;
            if (!list) {
                done(PasskeyFailure(PasskeyAuthError::badResponse(
                    QCoreApplication::translate("PasskeyOperations",
                                                "Could not decode passkey list: %1")
                        .arg(error))));
                return;
            }
            done(std::move(*list));
        });
}

void PasskeyOperations::deletePasskey(
    qint64 id, const QObject* context,
    const std::function<void(std::optional<PasskeyFailure>)>& done)
{
    if (!m_auth.isLoggedIn()) {
        later(context, [done] { done(PasskeyFailure(PasskeyAuthError::notLoggedIn())); });
        return;
    }
    const std::optional<QUrl> url =
        endpointUrl(QStringLiteral("/api/auth/passkey/") + QString::number(id));
    if (!url) {
        later(context, [done] { done(PasskeyFailure(invalidServerUrl())); });
        return;
    }
    authorizedPasskeyRequest(*url, "DELETE", std::nullopt, context,
                             [done, id](const PasskeyAuthResult<QByteArray>& answer) {
                                 if (!answer.ok()) {
                                     done(PasskeyFailure(answer.error()));
                                     return;
                                 }
                                 consoleLog(QStringLiteral("🔑 Passkey %1 removed").arg(id));
                                 done(std::nullopt);
                             });
}

} // namespace sorv

#include "moc_passkeyoperations.cpp"
