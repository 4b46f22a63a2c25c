#include "passkeyprotocol.h"

#include "service/passkeys/base64url.h"
#include "service/passkeys/passkeycbor.h"
#include "service/requestrules.h"

#include <QCoreApplication>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QUrl>

namespace sorv::passkeys {

std::optional<ServiceOrigin> serviceOrigin(const QString& serverAddress)
{
    const std::optional<QUrl> url = endpointUrl(serverAddress, QStringLiteral("/api/"));
    if (!url || url->host().isEmpty())
        return std::nullopt;
    QUrl origin = url->adjusted(QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment |
                                QUrl::RemoveUserInfo);
    const QString scheme = origin.scheme();
    if ((scheme == QLatin1String("https") && origin.port() == 443) ||
        (scheme == QLatin1String("http") && origin.port() == 80))
        origin.setPort(-1);
    return ServiceOrigin{origin.toString(QUrl::FullyEncoded), url->host()};
}

bool isLoopbackHost(const QString& host)
{
    if (host.compare(QLatin1String("localhost"), Qt::CaseInsensitive) == 0)
        return true;
    const QHostAddress address(host);
    return !address.isNull() && address.isLoopback();
}

namespace {

// JSON string escaping as WebAuthn's CCDToString does it.
QByteArray jsonString(const QString& text)
{
    QByteArray out = "\"";
    for (const char c : text.toUtf8()) {
        const auto u = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (u < 0x20) {
            out += QByteArray("\\u00") + QByteArray::number(u, 16).rightJustified(2, '0');
        } else {
            out += c;
        }
    }
    out += '"';
    return out;
}

} // namespace

QByteArray clientDataJson(const QString& type, const QByteArray& challenge, const QString& origin)
{
    return "{\"type\":" + jsonString(type) +
           ",\"challenge\":" + jsonString(base64UrlEncode(challenge)) +
           ",\"origin\":" + jsonString(origin) + ",\"crossOrigin\":false}";
}

namespace {

QJsonObject credentialJson(const QByteArray& id, const QJsonObject& response)
{
    const QString encodedId = base64UrlEncode(id);
    return {
        {QStringLiteral("id"), encodedId},
        {QStringLiteral("rawId"), encodedId},
        {QStringLiteral("type"), QStringLiteral("public-key")},
        {QStringLiteral("authenticatorAttachment"), QStringLiteral("cross-platform")},
        {QStringLiteral("clientExtensionResults"), QJsonObject()},
        {QStringLiteral("response"), response},
    };
}

} // namespace

QJsonObject assertionCredentialJson(const Assertion& assertion, const QByteArray& clientData)
{
    return credentialJson(
        assertion.credentialId,
        {
            {QStringLiteral("authenticatorData"), base64UrlEncode(assertion.authenticatorData)},
            {QStringLiteral("clientDataJSON"), base64UrlEncode(clientData)},
            {QStringLiteral("signature"), base64UrlEncode(assertion.signature)},
            {QStringLiteral("userHandle"), assertion.userHandle
                                               ? QJsonValue(base64UrlEncode(*assertion.userHandle))
                                               : QJsonValue(QJsonValue::Null)},
        });
}

PasskeyResult<QJsonObject> registrationCredentialJson(const AttestedCredential& credential,
                                                      const QByteArray& clientData)
{
    const std::optional<QByteArray> attestation = encodeAttestationObject(
        credential.format, credential.attestationStatementCbor, credential.authenticatorData);
    if (!attestation)
        return PasskeyError::authorizationFailed(QCoreApplication::translate(
            "PasskeyProtocol", "the security key returned an unreadable attestation"));
    return credentialJson(
        credential.credentialId,
        {
            {QStringLiteral("attestationObject"), base64UrlEncode(*attestation)},
            {QStringLiteral("clientDataJSON"), base64UrlEncode(clientData)},
            {QStringLiteral("transports"), QJsonArray::fromStringList(credential.transports)},
        });
}

PasskeyAuthResult<BeginResult> decodeBeginBody(const QByteArray& body)
{
    const QJsonDocument doc = QJsonDocument::fromJson(body);
    if (!doc.isObject())
        return PasskeyAuthError::badResponse(
            QCoreApplication::translate("PasskeyProtocol", "Begin response is not JSON"));
    const QJsonObject object = doc.object();
    const QJsonValue challengeId = object.value(QLatin1String("challenge_id"));
    if (!challengeId.isString())
        return PasskeyAuthError::badResponse(
            QCoreApplication::translate("PasskeyProtocol", "Missing challenge_id"));
    const QJsonValue options = object.value(QLatin1String("options"));
    const QJsonDocument optionsDoc =
        options.isString() ? QJsonDocument::fromJson(options.toString().toUtf8()) : QJsonDocument();
    if (!optionsDoc.isObject())
        return PasskeyAuthError::badResponse(
            QCoreApplication::translate("PasskeyProtocol", "Missing/invalid options blob"));
    return BeginResult{challengeId.toString(), optionsDoc.object()};
}

PasskeyAuthError serverRefusal(int status, const QByteArray& body)
{
    return PasskeyAuthError::server(detailOf(body).value_or(
        QCoreApplication::translate("PasskeyProtocol", "Server returned HTTP %1").arg(status)));
}

namespace {

std::optional<QByteArray> bytesMember(const QJsonObject& object, const QString& key)
{
    const QJsonValue v = object.value(key);
    if (!v.isString())
        return std::nullopt;
    return base64UrlDecode(v.toString());
}

} // namespace

PasskeyAuthResult<SignInOptions> decodeSignInOptions(const QJsonObject& options)
{
    SignInOptions result;
    const std::optional<QByteArray> challenge = bytesMember(options, QStringLiteral("challenge"));
    if (!challenge)
        return PasskeyAuthError::badResponse(
            QCoreApplication::translate("PasskeyProtocol", "Missing challenge"));
    result.challenge = *challenge;
    for (const QJsonValue entry : options.value(QLatin1String("allowCredentials")).toArray()) {
        if (const std::optional<QByteArray> id =
                bytesMember(entry.toObject(), QStringLiteral("id")))
            result.allowedCredentialIds.append(*id);
    }
    return result;
}

PasskeyAuthResult<RegistrationOptions> decodeRegistrationOptions(const QJsonObject& options)
{
    RegistrationOptions result;
    const std::optional<QByteArray> challenge = bytesMember(options, QStringLiteral("challenge"));
    if (!challenge)
        return PasskeyAuthError::badResponse(QCoreApplication::translate(
            "PasskeyProtocol", "Missing challenge in registration options"));
    result.challenge = *challenge;
    const QJsonObject user = options.value(QLatin1String("user")).toObject();
    const std::optional<QByteArray> userId = bytesMember(user, QStringLiteral("id"));
    if (!userId)
        return PasskeyAuthError::badResponse(QCoreApplication::translate(
            "PasskeyProtocol", "Missing user.id in registration options"));
    result.userId = *userId;
    const QJsonValue name = user.value(QLatin1String("name"));
    if (name.isString())
        result.userName = name.toString();
    return result;
}

} // namespace sorv::passkeys
