#include "softwareauthenticator.h"

#include "service/passkeys/base64url.h"
#include "service/passkeys/opensslhandles.h"
#include "service/passkeys/passkeycbor.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <openssl/core_names.h>
#include <openssl/rand.h>
#include <openssl/x509.h>

#include <algorithm>

namespace sorv {

namespace {

constexpr quint8 kFlagUserPresent = 0x01;
constexpr quint8 kFlagUserVerified = 0x04;
constexpr quint8 kFlagAttestedData = 0x40;
constexpr int kCredentialIdBytes = 32;

PasskeyError failed(const QString& what)
{
    return PasskeyError::authorizationFailed(what);
}

QByteArray bigEndian(quint32 v, int bytes)
{
    QByteArray out(bytes, '\0');
    for (int i = bytes - 1; i >= 0; --i, v >>= 8)
        out[i] = static_cast<char>(v & 0xff);
    return out;
}

std::optional<QByteArray> randomBytes(int count)
{
    QByteArray out(count, '\0');
    if (RAND_bytes(reinterpret_cast<unsigned char*>(out.data()), count) != 1)
        return std::nullopt;
    return out;
}

EvpKey loadPrivateKey(const QByteArray& der)
{
    const auto* p = reinterpret_cast<const unsigned char*>(der.constData());
    return EvpKey(d2i_AutoPrivateKey(nullptr, &p, static_cast<long>(der.size())));
}

std::optional<QByteArray> privateKeyDer(EVP_PKEY* key)
{
    const int length = i2d_PrivateKey(key, nullptr);
    if (length <= 0)
        return std::nullopt;
    QByteArray der(length, '\0');
    auto* p = reinterpret_cast<unsigned char*>(der.data());
    if (i2d_PrivateKey(key, &p) != length)
        return std::nullopt;
    return der;
}

// The uncompressed public point 0x04 ‖ x ‖ y.
std::optional<QByteArray> publicPoint(EVP_PKEY* key)
{
    unsigned char buffer[65];
    size_t length = 0;
    if (EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, buffer, sizeof buffer,
                                        &length) != 1 ||
        length != sizeof buffer || buffer[0] != 0x04)
        return std::nullopt;
    return QByteArray(reinterpret_cast<const char*>(buffer), sizeof buffer);
}

// ECDSA over SHA-256, DER-encoded, as ES256 asks.
std::optional<QByteArray> sign(EVP_PKEY* key, const QByteArray& data)
{
    EvpDigestContext ctx(EVP_MD_CTX_new());
    size_t length = 0;
    const auto* bytes = reinterpret_cast<const unsigned char*>(data.constData());
    if (!ctx || EVP_DigestSignInit(ctx.get(), nullptr, EVP_sha256(), nullptr, key) != 1 ||
        EVP_DigestSign(ctx.get(), nullptr, &length, bytes, static_cast<size_t>(data.size())) != 1)
        return std::nullopt;
    QByteArray signature(static_cast<qsizetype>(length), '\0');
    if (EVP_DigestSign(ctx.get(), reinterpret_cast<unsigned char*>(signature.data()), &length,
                       bytes, static_cast<size_t>(data.size())) != 1)
        return std::nullopt;
    signature.truncate(static_cast<qsizetype>(length));
    return signature;
}

} // namespace

SoftwareAuthenticator::SoftwareAuthenticator() : SoftwareAuthenticator(Options{}) {}

SoftwareAuthenticator::SoftwareAuthenticator(Options options) : m_options(std::move(options)) {}

SoftwareAuthenticator::~SoftwareAuthenticator() = default;

quint32 SoftwareAuthenticator::signCount() const
{
    std::lock_guard lock(m_mutex);
    return m_state.signCount;
}

int SoftwareAuthenticator::credentialCount() const
{
    std::lock_guard lock(m_mutex);
    return static_cast<int>(m_state.credentials.size());
}

std::optional<PasskeyError> SoftwareAuthenticator::verifyUser(AuthenticatorPrompts& prompts)
{
    if (prompts.isCancelled())
        return PasskeyError::cancelled();
    if (m_options.pin) {
        int attemptsLeft = 0;
        {
            std::lock_guard lock(m_mutex);
            attemptsLeft = m_pinAttemptsLeft;
        }
        if (attemptsLeft <= 0)
            return failed(QCoreApplication::translate("Fido2Authenticator", "PIN blocked"));
        const std::optional<QString> pin = prompts.requestPin(attemptsLeft);
        if (!pin)
            return PasskeyError::cancelled();
        std::lock_guard lock(m_mutex);
        if (*pin != *m_options.pin) {
            --m_pinAttemptsLeft;
            return failed(QCoreApplication::translate("Fido2Authenticator", "PIN invalid"));
        }
        m_pinAttemptsLeft = kPinAttempts;
    }
    // A real key blinks until touched; this one is touched at once.
    prompts.waitingForTouch(true);
    prompts.waitingForTouch(false);
    if (prompts.isCancelled())
        return PasskeyError::cancelled();
    return std::nullopt;
}

QByteArray SoftwareAuthenticator::authenticatorData(const QString& rpId, bool attested,
                                                    quint32 count,
                                                    const QByteArray& attestedCredentialData) const
{
    quint8 flags = 0;
    if (m_options.userPresent)
        flags |= kFlagUserPresent;
    if (m_options.userVerified)
        flags |= kFlagUserVerified;
    if (attested)
        flags |= kFlagAttestedData;
    QByteArray data = QCryptographicHash::hash(rpId.toUtf8(), QCryptographicHash::Sha256);
    data.append(static_cast<char>(flags));
    data.append(bigEndian(count, 4));
    data.append(attestedCredentialData);
    return data;
}

PasskeyResult<AttestedCredential>
SoftwareAuthenticator::makeCredential(const MakeCredentialRequest& request,
                                      AuthenticatorPrompts& prompts)
{
    if (const std::optional<PasskeyError> refused = verifyUser(prompts))
        return *refused;

    EvpKey key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    const std::optional<QByteArray> point = key ? publicPoint(key.get()) : std::nullopt;
    const std::optional<QByteArray> der = key ? privateKeyDer(key.get()) : std::nullopt;
    const std::optional<QByteArray> id = randomBytes(kCredentialIdBytes);
    if (!point || !der || !id)
        return failed(QStringLiteral("could not create a key"));

    std::lock_guard lock(m_mutex);
    if (const std::optional<PasskeyError> error = load())
        return *error;
    // One passkey per account and site, as a resident credential replaces
    // the one it shadows.
    std::erase_if(m_state.credentials, [&request](const Credential& c) {
        return c.rpId == request.rpId && c.userId == request.userId;
    });
    m_state.credentials.push_back({*id, request.rpId, request.userId, request.userName, *der});
    const quint32 count = ++m_state.signCount;
    if (const std::optional<PasskeyError> error = save())
        return *error;

    QByteArray attested(16, '\0'); // AAGUID: none for this authenticator
    attested.append(bigEndian(static_cast<quint32>(id->size()), 2));
    attested.append(*id);
    attested.append(encodeCoseEs256Key(point->mid(1, 32), point->mid(33, 32)));

    AttestedCredential credential;
    credential.credentialId = *id;
    credential.authenticatorData = authenticatorData(request.rpId, true, count, attested);
    credential.format = QStringLiteral("none");
    credential.attestationStatementCbor = QByteArray(1, '\xa0'); // {}
    credential.transports = {QStringLiteral("usb")};
    return credential;
}

PasskeyResult<Assertion> SoftwareAuthenticator::getAssertion(const GetAssertionRequest& request,
                                                             AuthenticatorPrompts& prompts)
{
    {
        std::lock_guard lock(m_mutex);
        if (const std::optional<PasskeyError> error = load())
            return *error;
        const bool any = std::any_of(m_state.credentials.begin(), m_state.credentials.end(),
                                     [&request](const Credential& c) {
                                         return c.rpId == request.rpId &&
                                                (request.allowCredentialIds.isEmpty() ||
                                                 request.allowCredentialIds.contains(c.id));
                                     });
        if (!any)
            return failed(
                QStringLiteral("no passkey for %1 on this security key").arg(request.rpId));
    }
    if (const std::optional<PasskeyError> refused = verifyUser(prompts))
        return *refused;

    std::lock_guard lock(m_mutex);
    if (const std::optional<PasskeyError> error = load())
        return *error;
    // The newest matching credential, as keys list resident credentials.
    const auto found = std::find_if(
        m_state.credentials.rbegin(), m_state.credentials.rend(), [&request](const Credential& c) {
            return c.rpId == request.rpId && (request.allowCredentialIds.isEmpty() ||
                                              request.allowCredentialIds.contains(c.id));
        });
    if (found == m_state.credentials.rend())
        return failed(QStringLiteral("no passkey for %1 on this security key").arg(request.rpId));
    const Credential credential = *found;
    const quint32 count = ++m_state.signCount;
    if (const std::optional<PasskeyError> error = save())
        return *error;

    const EvpKey key = loadPrivateKey(credential.privateKeyDer);
    if (!key)
        return failed(QStringLiteral("the stored key cannot be read"));
    Assertion assertion;
    assertion.credentialId = credential.id;
    assertion.authenticatorData = authenticatorData(request.rpId, false, count, {});
    const std::optional<QByteArray> signature =
        sign(key.get(), assertion.authenticatorData + request.clientDataHash);
    if (!signature)
        return failed(QStringLiteral("could not sign"));
    assertion.signature = *signature;
    // Like a CTAP 2.0 key: the user is named only when the key chose the
    // credential itself.
    if (request.allowCredentialIds.isEmpty() && !credential.userId.isEmpty())
        assertion.userHandle = credential.userId;
    return assertion;
}

std::optional<PasskeyError> SoftwareAuthenticator::load()
{
    if (m_options.file.isEmpty())
        return std::nullopt;
    QFile file(m_options.file);
    if (!file.exists())
        return save(); // created on first use
    if (!file.open(QIODevice::ReadOnly))
        return failed(QStringLiteral("cannot read %1: %2").arg(m_options.file, file.errorString()));
    const QJsonObject root = QJsonDocument::fromJson(file.readAll()).object();
    State state;
    state.signCount = static_cast<quint32>(root.value(QLatin1String("signCount")).toDouble());
    for (const QJsonValue v : root.value(QLatin1String("credentials")).toArray()) {
        const QJsonObject o = v.toObject();
        const std::optional<QByteArray> id =
            base64UrlDecode(o.value(QLatin1String("id")).toString());
        const std::optional<QByteArray> user =
            base64UrlDecode(o.value(QLatin1String("userId")).toString());
        const std::optional<QByteArray> key =
            base64UrlDecode(o.value(QLatin1String("privateKey")).toString());
        if (!id || id->isEmpty() || !user || !key)
            return failed(QStringLiteral("%1 is damaged").arg(m_options.file));
        state.credentials.push_back({*id, o.value(QLatin1String("rpId")).toString(), *user,
                                     o.value(QLatin1String("userName")).toString(), *key});
    }
    m_state = std::move(state);
    return std::nullopt;
}

std::optional<PasskeyError> SoftwareAuthenticator::save() const
{
    if (m_options.file.isEmpty())
        return std::nullopt;
    QJsonArray credentials;
    for (const Credential& c : m_state.credentials)
        credentials.append(QJsonObject{
            {QStringLiteral("id"), base64UrlEncode(c.id)},
            {QStringLiteral("rpId"), c.rpId},
            {QStringLiteral("userId"), base64UrlEncode(c.userId)},
            {QStringLiteral("userName"), c.userName},
            {QStringLiteral("privateKey"), base64UrlEncode(c.privateKeyDer)},
        });
    const QJsonObject root{{QStringLiteral("signCount"), static_cast<double>(m_state.signCount)},
                           {QStringLiteral("credentials"), credentials}};

    QDir().mkpath(QFileInfo(m_options.file).absolutePath());
    QSaveFile file(m_options.file);
    // Private keys: the file is the owner's alone before anything is in it.
    if (!file.open(QIODevice::WriteOnly) ||
        !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner) ||
        file.write(QJsonDocument(root).toJson()) < 0 || !file.commit())
        return failed(
            QStringLiteral("cannot write %1: %2").arg(m_options.file, file.errorString()));
    return std::nullopt;
}

} // namespace sorv
