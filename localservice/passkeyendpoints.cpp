// /api/auth/passkey/*: the service as a WebAuthn relying party. Begin
// endpoints hand out random challenges (single use, expiring); finish
// endpoints check the client data, the authenticator data, the signature
// and the signature counter before they store a credential or sign in.
// The relying party is the host the client addressed (127.0.0.1 or
// localhost), and the origin it must report is "http://" + that host.

#include "localservice/endpoints.h"
#include "localservice/webauthnverifier.h"

#include "core/log.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QUrl>
#include <QUuid>

#include <map>
#include <memory>
#include <mutex>

namespace sorv::local {

namespace {

constexpr qint64 kPasskeyChallengeLifetimeMs = 5LL * 60 * 1000;
constexpr int kChallengeBytes = 32;
constexpr int kTimeoutMs = 60000;
const QString kRpName = QStringLiteral("Sorvelandrix (local)");

QString base64Url(const QByteArray& bytes)
{
    return QString::fromLatin1(
        bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

QByteArray sha256(const QByteArray& data)
{
    return QCryptographicHash::hash(data, QCryptographicHash::Sha256);
}

QString isoTime(qint64 ms)
{
    return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC).toString(Qt::ISODateWithMs);
}

// The account's user handle: the bytes of its id, which names nobody.
QByteArray userHandle(const QString& accountId)
{
    return QUuid::fromString(accountId).toRfc4122();
}

struct Challenge {
    enum class Kind { registration, login } kind;
    QByteArray bytes;
    QString accountId; // registration: the signed-in account; login: the named one, if any
    bool accountNamed = false;
    QString rpId;
    QString origin;
    std::optional<QString> label;
    qint64 expiresMs = 0;
};

class Challenges {
public:
    // Fills in the random bytes and the expiry; returns the challenge's id.
    QString issue(Challenge& challenge)
    {
        challenge.bytes = QByteArray(kChallengeBytes, '\0');
        QRandomGenerator::system()->fillRange(reinterpret_cast<quint32*>(challenge.bytes.data()),
                                              kChallengeBytes / 4);
        challenge.expiresMs = ServiceState::nowMs() + kPasskeyChallengeLifetimeMs;
        QString id = ServiceState::newId();
        const qint64 now = ServiceState::nowMs();
        std::lock_guard lock(m_mutex);
        std::erase_if(m_challenges,
                      [now](const auto& entry) { return entry.second.expiresMs < now; });
        m_challenges.emplace(id, challenge);
        return id;
    }

    // Used once, whatever the outcome: a replayed answer finds nothing.
    std::optional<Challenge> take(const QString& id, Challenge::Kind kind)
    {
        std::lock_guard lock(m_mutex);
        const auto it = m_challenges.find(id);
        if (it == m_challenges.end())
            return std::nullopt;
        Challenge challenge = std::move(it->second);
        m_challenges.erase(it);
        if (challenge.kind != kind || challenge.expiresMs < ServiceState::nowMs())
            return std::nullopt;
        return challenge;
    }

private:
    std::mutex m_mutex;
    std::map<QString, Challenge> m_challenges;
};

// The relying party the client addressed, from the Host header.
std::optional<std::pair<QString, QString>> relyingParty(const ServiceRequest& request)
{
    const QString host = QString::fromUtf8(request.header("Host"));
    const QUrl url(QStringLiteral("http://") + host, QUrl::StrictMode);
    if (host.isEmpty() || !url.isValid() || url.host().isEmpty())
        return std::nullopt;
    return std::pair{url.host(), url.toString(QUrl::FullyEncoded)};
}

ServiceResponse refuse(const QString& why)
{
    consoleLog(QStringLiteral("🔑 Passkey refused: %1").arg(why));
    return ServiceResponse::detail(400, why);
}

ServiceResponse beginResponse(const QString& challengeId, const QJsonObject& options)
{
    return ServiceResponse::json(
        200,
        QJsonObject{{QStringLiteral("challenge_id"), challengeId},
                    {QStringLiteral("options"),
                     QString::fromUtf8(QJsonDocument(options).toJson(QJsonDocument::Compact))}});
}

QJsonObject passkeyJson(const Database::Row& row)
{
    // id, label, created_ms, last_used_ms, backup_eligible, transports
    const QJsonDocument transports = QJsonDocument::fromJson(row[5].toString().toUtf8());
    return {
        {QStringLiteral("id"), row[0].toLongLong()},
        {QStringLiteral("label"), row[1].isNull() ? QJsonValue() : QJsonValue(row[1].toString())},
        {QStringLiteral("created_at"), isoTime(row[2].toLongLong())},
        {QStringLiteral("last_used_at"),
         row[3].isNull() ? QJsonValue() : QJsonValue(isoTime(row[3].toLongLong()))},
        {QStringLiteral("backup_eligible"), row[4].toLongLong() != 0},
        {QStringLiteral("transports"),
         transports.isArray() ? QJsonValue(transports.array()) : QJsonValue(QJsonArray())},
    };
}

// The columns passkeyJson() reads, in its order.
constexpr const char* kPasskeysOfAccount =
    "SELECT id, label, created_ms, last_used_ms, backup_eligible, transports FROM passkeys"
    " WHERE account_id = ? ORDER BY id DESC";
constexpr const char* kPasskeyByCredential =
    "SELECT id, label, created_ms, last_used_ms, backup_eligible, transports FROM passkeys"
    " WHERE credential_id = ?";

// The parts of a "credential" member every finish endpoint reads.
struct CredentialMessage {
    QByteArray id;
    QByteArray clientDataJson;
    QJsonObject response;
};

std::optional<CredentialMessage> readCredential(const QJsonObject& body, QString* error)
{
    const QJsonObject credential = body.value(QLatin1String("credential")).toObject();
    const std::optional<QByteArray> id =
        webauthn::decodeBase64Url(credential.value(QLatin1String("id")).toString());
    const std::optional<QByteArray> rawId =
        webauthn::decodeBase64Url(credential.value(QLatin1String("rawId")).toString());
    if (credential.value(QLatin1String("type")).toString() != QLatin1String("public-key") || !id ||
        id->isEmpty() || rawId != id) {
        *error = QStringLiteral("The credential is not a public-key credential");
        return std::nullopt;
    }
    const QJsonObject response = credential.value(QLatin1String("response")).toObject();
    const std::optional<QByteArray> clientData =
        webauthn::decodeBase64Url(response.value(QLatin1String("clientDataJSON")).toString());
    if (!clientData) {
        *error = QStringLiteral("The credential has no client data");
        return std::nullopt;
    }
    return CredentialMessage{*id, *clientData, response};
}

// The client data must be for this ceremony, this challenge and this origin.
std::optional<QString> checkClientData(const QByteArray& json, const QString& type,
                                       const Challenge& challenge)
{
    QString error;
    const std::optional<webauthn::ClientData> data = webauthn::parseClientData(json, &error);
    if (!data)
        return error;
    if (data->type != type)
        return QStringLiteral("Client data type is \"%1\", expected \"%2\"").arg(data->type, type);
    if (data->challenge != challenge.bytes)
        return QStringLiteral("Client data is for another challenge");
    if (data->origin != challenge.origin)
        return QStringLiteral("Client data origin %1 is not %2")
            .arg(data->origin, challenge.origin);
    if (data->crossOrigin)
        return QStringLiteral("Cross-origin requests are not accepted");
    return std::nullopt;
}

std::optional<QString> checkAuthenticatorFlags(const webauthn::AuthenticatorData& data,
                                               const Challenge& challenge)
{
    if (data.rpIdHash != sha256(challenge.rpId.toUtf8()))
        return QStringLiteral("Authenticator data is for another relying party");
    if (!data.has(webauthn::AuthenticatorData::kUserPresent))
        return QStringLiteral("The user was not present");
    return std::nullopt;
}

ServiceResponse registerBegin(ServiceState& state, Challenges& challenges,
                              const ServiceRequest& request, const Account& account)
{
    const auto rp = relyingParty(request);
    if (!rp)
        return refuse(QStringLiteral("Missing Host header"));
    const QJsonValue label = request.jsonObject().value(QLatin1String("label"));

    Challenge challenge{Challenge::Kind::registration,
                        {},
                        account.id,
                        true,
                        rp->first,
                        rp->second,
                        label.isString() ? std::optional<QString>(label.toString()) : std::nullopt,
                        0};
    const QString id = challenges.issue(challenge);

    QJsonArray exclude;
    for (const auto& row :
         state.db().query("SELECT credential_id FROM passkeys WHERE account_id = ?", {account.id}))
        exclude.append(QJsonObject{{QStringLiteral("type"), QStringLiteral("public-key")},
                                   {QStringLiteral("id"), row[0].toString()}});
    const QJsonObject options{
        {QStringLiteral("rp"),
         QJsonObject{{QStringLiteral("id"), rp->first}, {QStringLiteral("name"), kRpName}}},
        {QStringLiteral("user"),
         QJsonObject{{QStringLiteral("id"), base64Url(userHandle(account.id))},
                     {QStringLiteral("name"), account.email},
                     {QStringLiteral("displayName"), account.name}}},
        {QStringLiteral("challenge"), base64Url(challenge.bytes)},
        {QStringLiteral("pubKeyCredParams"),
         QJsonArray{QJsonObject{{QStringLiteral("type"), QStringLiteral("public-key")},
                                {QStringLiteral("alg"), -7}}}},
        {QStringLiteral("timeout"), kTimeoutMs},
        {QStringLiteral("attestation"), QStringLiteral("direct")},
        {QStringLiteral("excludeCredentials"), exclude},
        {QStringLiteral("authenticatorSelection"),
         QJsonObject{{QStringLiteral("residentKey"), QStringLiteral("preferred")},
                     {QStringLiteral("userVerification"), QStringLiteral("preferred")}}},
    };
    return beginResponse(id, options);
}

ServiceResponse registerFinish(ServiceState& state, Challenges& challenges,
                               const ServiceRequest& request, const Account& account)
{
    const QJsonObject body = request.jsonObject();
    const std::optional<Challenge> challenge = challenges.take(
        body.value(QLatin1String("challenge_id")).toString(), Challenge::Kind::registration);
    if (!challenge || challenge->accountId != account.id)
        return refuse(QStringLiteral("This passkey request has expired. Try again."));

    QString error;
    const std::optional<CredentialMessage> credential = readCredential(body, &error);
    if (!credential)
        return refuse(error);
    if (const std::optional<QString> bad = checkClientData(
            credential->clientDataJson, QStringLiteral("webauthn.create"), *challenge))
        return refuse(*bad);
    const std::optional<QByteArray> encoded = webauthn::decodeBase64Url(
        credential->response.value(QLatin1String("attestationObject")).toString());
    if (!encoded)
        return refuse(QStringLiteral("The credential has no attestation object"));
    const std::optional<webauthn::AttestationObject> attestation =
        webauthn::parseAttestationObject(*encoded, &error);
    if (!attestation)
        return refuse(error);
    const std::optional<webauthn::AuthenticatorData> data =
        webauthn::parseAuthenticatorData(attestation->authenticatorData, &error);
    if (!data)
        return refuse(error);
    if (const std::optional<QString> bad = checkAuthenticatorFlags(*data, *challenge))
        return refuse(*bad);
    if (!data->has(webauthn::AuthenticatorData::kAttestedData))
        return refuse(QStringLiteral("Authenticator data carries no credential"));
    if (data->credentialId != credential->id)
        return refuse(QStringLiteral("Credential id does not match the authenticator data"));
    const std::optional<QByteArray> publicKey =
        webauthn::coseKeyToSubjectPublicKeyInfo(data->credentialPublicKey, &error);
    if (!publicKey)
        return refuse(error);
    if (!webauthn::verifyAttestationStatement(
            *attestation, *data, sha256(credential->clientDataJson), *publicKey, &error))
        return refuse(error);

    QStringList transports;
    for (const QJsonValue t : credential->response.value(QLatin1String("transports")).toArray()) {
        if (t.isString())
            transports << t.toString();
    }
    const QString credentialId = base64Url(credential->id);
    const qint64 now = ServiceState::nowMs();
    Database& db = state.db();
    std::lock_guard lock(db.lock());
    if (!db.query("SELECT 1 FROM passkeys WHERE credential_id = ?", {credentialId}).empty())
        return refuse(QStringLiteral("This security key is already registered"));
    db.exec("INSERT INTO passkeys(account_id, credential_id, public_key, sign_count, "
            "user_verified, label, created_ms, backup_eligible, transports)"
            " VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?)",
            {account.id, credentialId, *publicKey, qint64(data->signCount),
             data->has(webauthn::AuthenticatorData::kUserVerified) ? 1 : 0,
             challenge->label ? QVariant(*challenge->label) : QVariant(), now,
             data->has(webauthn::AuthenticatorData::kBackupEligible) ? 1 : 0,
             QString::fromUtf8(QJsonDocument(QJsonArray::fromStringList(transports))
                                   .toJson(QJsonDocument::Compact))});
    const auto rows = db.query(kPasskeyByCredential, {credentialId});
    if (rows.empty())
        return ServiceResponse::detail(500, QStringLiteral("The passkey could not be stored"));
    consoleLog(QStringLiteral("🔑 Passkey registered for %1 (%2 attestation)")
                   .arg(account.email, attestation->format));
    return ServiceResponse::json(200, passkeyJson(rows.front()));
}

ServiceResponse loginBegin(ServiceState& state, Challenges& challenges,
                           const ServiceRequest& request)
{
    const auto rp = relyingParty(request);
    if (!rp)
        return refuse(QStringLiteral("Missing Host header"));
    const QString email = request.jsonObject().value(QLatin1String("email")).toString().trimmed();
    Challenge challenge{Challenge::Kind::login, {}, {}, false, rp->first, rp->second,
                        std::nullopt,           0};
    QJsonArray allow;
    if (!email.isEmpty()) {
        // An unknown e-mail gets an empty list, as a known one without
        // passkeys does: the answer does not tell which accounts exist.
        challenge.accountNamed = true;
        if (const std::optional<Account> account = state.accountByEmail(email)) {
            challenge.accountId = account->id;
            for (const auto& row : state.db().query("SELECT credential_id, transports FROM passkeys"
                                                    " WHERE account_id = ? ORDER BY id",
                                                    {account->id})) {
                QJsonObject entry{{QStringLiteral("type"), QStringLiteral("public-key")},
                                  {QStringLiteral("id"), row[0].toString()}};
                const QJsonDocument transports = QJsonDocument::fromJson(row[1].toByteArray());
                if (transports.isArray() && !transports.array().isEmpty())
                    entry.insert(QStringLiteral("transports"), transports.array());
                allow.append(entry);
            }
        }
    }
    const QString id = challenges.issue(challenge);
    const QJsonObject options{
        {QStringLiteral("challenge"), base64Url(challenge.bytes)},
        {QStringLiteral("timeout"), kTimeoutMs},
        {QStringLiteral("rpId"), rp->first},
        {QStringLiteral("allowCredentials"), allow},
        {QStringLiteral("userVerification"), QStringLiteral("preferred")},
    };
    return beginResponse(id, options);
}

ServiceResponse loginFinish(ServiceState& state, Challenges& challenges,
                            const ServiceRequest& request)
{
    const QJsonObject body = request.jsonObject();
    const std::optional<Challenge> challenge = challenges.take(
        body.value(QLatin1String("challenge_id")).toString(), Challenge::Kind::login);
    if (!challenge)
        return refuse(QStringLiteral("This passkey request has expired. Try again."));

    QString error;
    const std::optional<CredentialMessage> credential = readCredential(body, &error);
    if (!credential)
        return refuse(error);

    Database& db = state.db();
    // The counter is read, checked and written as one step.
    std::lock_guard lock(db.lock());
    const auto rows = db.query("SELECT id, account_id, public_key, sign_count, user_verified"
                               " FROM passkeys WHERE credential_id = ?",
                               {base64Url(credential->id)});
    if (rows.empty() ||
        (challenge->accountNamed && rows.front()[1].toString() != challenge->accountId))
        return refuse(QStringLiteral("This passkey is not registered for this account"));
    const Database::Row& stored = rows.front();
    const QString accountId = stored[1].toString();

    if (const std::optional<QString> bad =
            checkClientData(credential->clientDataJson, QStringLiteral("webauthn.get"), *challenge))
        return refuse(*bad);
    const auto field = [&credential](const char* name) {
        return webauthn::decodeBase64Url(
            credential->response.value(QLatin1String(name)).toString());
    };
    const std::optional<QByteArray> rawData = field("authenticatorData");
    const std::optional<QByteArray> signature = field("signature");
    if (!rawData || !signature)
        return refuse(QStringLiteral("The assertion lacks authenticator data or a signature"));
    const std::optional<webauthn::AuthenticatorData> data =
        webauthn::parseAuthenticatorData(*rawData, &error);
    if (!data)
        return refuse(error);
    if (const std::optional<QString> bad = checkAuthenticatorFlags(*data, *challenge))
        return refuse(*bad);
    // A credential made with user verification keeps proving it.
    if (stored[4].toLongLong() != 0 && !data->has(webauthn::AuthenticatorData::kUserVerified))
        return refuse(QStringLiteral("The user was not verified"));
    if (!webauthn::verifySignature(stored[2].toByteArray(),
                                   *rawData + sha256(credential->clientDataJson), *signature))
        return refuse(QStringLiteral("The passkey signature is invalid"));
    const qint64 before = stored[3].toLongLong();
    const qint64 now = data->signCount;
    // Both 0: the authenticator keeps no counter. Otherwise it must grow; a
    // counter that did not is the sign of a cloned key.
    if ((before != 0 || now != 0) && now <= before)
        return refuse(QStringLiteral("The passkey's signature counter did not increase; the "
                                     "security key may have been cloned"));
    const QJsonValue handle = credential->response.value(QLatin1String("userHandle"));
    if (!handle.isNull() && !handle.isUndefined() &&
        webauthn::decodeBase64Url(handle.toString()) != userHandle(accountId))
        return refuse(QStringLiteral("The passkey belongs to another user"));

    db.exec("UPDATE passkeys SET sign_count = ?, last_used_ms = ? WHERE id = ?",
            {now, ServiceState::nowMs(), stored[0]});
    const std::optional<Account> account = state.accountById(accountId);
    if (!account)
        return refuse(QStringLiteral("This passkey is not registered for this account"));
    QJsonObject tokens = state.issueTokens(account->id);
    tokens.insert(QStringLiteral("user"), QJsonObject{{QStringLiteral("id"), account->id},
                                                      {QStringLiteral("email"), account->email},
                                                      {QStringLiteral("name"), account->name}});
    consoleLog(QStringLiteral("🔑 Signed in with a passkey: %1").arg(account->email));
    return ServiceResponse::json(200, tokens);
}

} // namespace

void addPasskeyEndpoints(Router& router, ServiceState& state)
{
    auto challenges = std::make_shared<Challenges>();
    router.add("POST", QStringLiteral("/api/auth/passkey/register/begin"),
               signedIn(state, [&state, challenges](const ServiceRequest& request,
                                                    const Account& account) {
                   return registerBegin(state, *challenges, request, account);
               }));
    router.add("POST", QStringLiteral("/api/auth/passkey/register/finish"),
               signedIn(state, [&state, challenges](const ServiceRequest& request,
                                                    const Account& account) {
                   return registerFinish(state, *challenges, request, account);
               }));
    router.add("POST", QStringLiteral("/api/auth/passkey/login/begin"),
               [&state, challenges](const ServiceRequest& request) {
                   return loginBegin(state, *challenges, request);
               });
    router.add("POST", QStringLiteral("/api/auth/passkey/login/finish"),
               [&state, challenges](const ServiceRequest& request) {
                   return loginFinish(state, *challenges, request);
               });
    router.add("GET", QStringLiteral("/api/auth/passkey/list"),
               signedIn(state, [&state](const ServiceRequest&, const Account& account) {
                   QJsonArray list;
                   for (const auto& row : state.db().query(kPasskeysOfAccount, {account.id}))
                       list.append(passkeyJson(row));
                   return ServiceResponse::json(200, list);
               }));
    router.add("DELETE", QStringLiteral("/api/auth/passkey/{}"),
               signedIn(state, [&state](const ServiceRequest& request, const Account& account) {
                   bool isNumber = false;
                   const qint64 id = request.params.value(0).toLongLong(&isNumber);
                   Database& db = state.db();
                   std::lock_guard lock(db.lock());
                   // Another account's passkey is as absent as a removed one.
                   if (!isNumber ||
                       !db.exec("DELETE FROM passkeys WHERE id = ? AND account_id = ?",
                                {id, account.id}) ||
                       db.changes() == 0)
                       return ServiceResponse::detail(404, QStringLiteral("Passkey not found"));
                   ServiceResponse removed;
                   removed.status = 204;
                   removed.contentType.clear();
                   return removed;
               }));
}

} // namespace sorv::local
