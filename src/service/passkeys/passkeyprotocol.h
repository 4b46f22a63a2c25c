#pragma once

#include "service/passkeys/authenticator.h"
#include "service/passkeys/passkeyerror.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <optional>

namespace sorv::passkeys {

// The WebAuthn client's side of the exchange, as pure functions: what the
// service sends is decoded here, and what it is sent is built here.

// The origin of a server address as WebAuthn serialises it
// ("https://host[:port]", no default port, no path), and its host, the
// relying-party id. None when the address is not a usable URL.
struct ServiceOrigin {
    QString origin;
    QString host;
};
std::optional<ServiceOrigin> serviceOrigin(const QString& serverAddress);
bool isLoopbackHost(const QString& host);

// The collected client data, in the member order browsers use:
// {"type":…,"challenge":…,"origin":…,"crossOrigin":false}.
inline const QString kGetType = QStringLiteral("webauthn.get");
inline const QString kCreateType = QStringLiteral("webauthn.create");
QByteArray clientDataJson(const QString& type, const QByteArray& challenge, const QString& origin);

// The "credential" objects sent to the service.
QJsonObject assertionCredentialJson(const Assertion& assertion, const QByteArray& clientData);
// Fails when the authenticator's attestation statement is not valid CBOR.
PasskeyResult<QJsonObject> registrationCredentialJson(const AttestedCredential& credential,
                                                      const QByteArray& clientData);

// An answer to a begin request: the challenge id and the options object,
// which the service sends as a JSON string inside the JSON body.
struct BeginResult {
    QString challengeId;
    QJsonObject options;
};
PasskeyAuthResult<BeginResult> decodeBeginBody(const QByteArray& body);

// A refused request: the body's "detail", else "Server returned HTTP {status}".
PasskeyAuthError serverRefusal(int status, const QByteArray& body);

struct SignInOptions {
    QByteArray challenge;
    QList<QByteArray> allowedCredentialIds;
};
PasskeyAuthResult<SignInOptions> decodeSignInOptions(const QJsonObject& options);

struct RegistrationOptions {
    QByteArray challenge;
    QByteArray userId;
    std::optional<QString> userName; // none: the caller uses the signed-in e-mail
};
PasskeyAuthResult<RegistrationOptions> decodeRegistrationOptions(const QJsonObject& options);

} // namespace sorv::passkeys
