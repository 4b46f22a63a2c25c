#include "webauthnverifier.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/x509.h>

#include <memory>

namespace sorv::local::webauthn {

namespace {

struct SslFree {
    void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
    void operator()(EVP_PKEY_CTX* p) const { EVP_PKEY_CTX_free(p); }
    void operator()(EVP_MD_CTX* p) const { EVP_MD_CTX_free(p); }
    void operator()(OSSL_PARAM_BLD* p) const { OSSL_PARAM_BLD_free(p); }
    void operator()(OSSL_PARAM* p) const { OSSL_PARAM_free(p); }
    void operator()(X509* p) const { X509_free(p); }
};
template <typename T> using Owned = std::unique_ptr<T, SslFree>;

constexpr qsizetype kRpIdHashSize = 32;
constexpr qsizetype kFixedSize = kRpIdHashSize + 1 + 4;
constexpr qsizetype kAaguidSize = 16;
constexpr qsizetype kMaxCredentialIdSize = 1023;
constexpr std::int64_t kAlgEs256 = -7;

template <typename T> std::optional<T> refuse(QString* error, const QString& why)
{
    if (error)
        *error = why;
    return std::nullopt;
}

bool refused(QString* error, const QString& why)
{
    if (error)
        *error = why;
    return false;
}

// The uncompressed point 0x04 ‖ x ‖ y of an ES256 COSE key.
std::optional<QByteArray> cosePoint(const QByteArray& cose, QString* error)
{
    QString cborError;
    const std::optional<cbor::Value> key = cbor::decode(cose, &cborError);
    if (!key || key->type != cbor::Value::Type::map)
        return refuse<QByteArray>(error, QStringLiteral("Credential public key is not a COSE key"));
    const cbor::Value* kty = key->find(1);
    const cbor::Value* alg = key->find(3);
    const cbor::Value* crv = key->find(-1);
    const cbor::Value* x = key->find(-2);
    const cbor::Value* y = key->find(-3);
    if (!alg || !alg->isInteger() || alg->integer() != kAlgEs256)
        return refuse<QByteArray>(
            error, QStringLiteral("Unsupported public key algorithm (only ES256 is accepted)"));
    if (!kty || kty->integer() != 2 || !crv || crv->integer() != 1 || !x ||
        x->type != cbor::Value::Type::bytes || x->bytes.size() != 32 || !y ||
        y->type != cbor::Value::Type::bytes || y->bytes.size() != 32)
        return refuse<QByteArray>(error, QStringLiteral("Malformed ES256 public key"));
    return QByteArray(1, '\x04') + x->bytes + y->bytes;
}

Owned<EVP_PKEY> keyFromPoint(const QByteArray& point)
{
    Owned<OSSL_PARAM_BLD> builder(OSSL_PARAM_BLD_new());
    if (!builder ||
        OSSL_PARAM_BLD_push_utf8_string(builder.get(), OSSL_PKEY_PARAM_GROUP_NAME, "prime256v1",
                                        0) != 1 ||
        OSSL_PARAM_BLD_push_octet_string(builder.get(), OSSL_PKEY_PARAM_PUB_KEY, point.constData(),
                                         static_cast<size_t>(point.size())) != 1)
        return nullptr;
    Owned<OSSL_PARAM> params(OSSL_PARAM_BLD_to_param(builder.get()));
    Owned<EVP_PKEY_CTX> ctx(EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr));
    EVP_PKEY* key = nullptr;
    if (!params || !ctx || EVP_PKEY_fromdata_init(ctx.get()) != 1 ||
        EVP_PKEY_fromdata(ctx.get(), &key, EVP_PKEY_PUBLIC_KEY, params.get()) != 1)
        return nullptr;
    Owned<EVP_PKEY> owned(key);
    // A point off the curve would make every later check meaningless.
    Owned<EVP_PKEY_CTX> check(EVP_PKEY_CTX_new_from_pkey(nullptr, owned.get(), nullptr));
    if (!check || EVP_PKEY_public_check(check.get()) != 1)
        return nullptr;
    return owned;
}

bool verifyWith(EVP_PKEY* key, const QByteArray& data, const QByteArray& signature)
{
    Owned<EVP_MD_CTX> ctx(EVP_MD_CTX_new());
    return ctx && EVP_DigestVerifyInit(ctx.get(), nullptr, EVP_sha256(), nullptr, key) == 1 &&
           EVP_DigestVerify(ctx.get(),
                            reinterpret_cast<const unsigned char*>(signature.constData()),
                            static_cast<size_t>(signature.size()),
                            reinterpret_cast<const unsigned char*>(data.constData()),
                            static_cast<size_t>(data.size())) == 1;
}

Owned<X509> certificate(const cbor::Value& der)
{
    if (der.type != cbor::Value::Type::bytes)
        return nullptr;
    const auto* p = reinterpret_cast<const unsigned char*>(der.bytes.constData());
    return Owned<X509>(d2i_X509(nullptr, &p, static_cast<long>(der.bytes.size())));
}

bool isP256(EVP_PKEY* key)
{
    char group[32] = {};
    size_t length = 0;
    return EVP_PKEY_is_a(key, "EC") &&
           EVP_PKEY_get_utf8_string_param(key, OSSL_PKEY_PARAM_GROUP_NAME, group, sizeof group,
                                          &length) == 1 &&
           qstrcmp(group, "prime256v1") == 0;
}

} // namespace

std::optional<QByteArray> decodeBase64Url(const QString& text)
{
    const QByteArray ascii = text.toLatin1();
    // Qt takes a lone trailing character for nothing; base64 never ends so.
    if (ascii.size() % 4 == 1)
        return std::nullopt;
    QByteArray::FromBase64Result r = QByteArray::fromBase64Encoding(
        ascii, QByteArray::Base64UrlEncoding | QByteArray::AbortOnBase64DecodingErrors);
    if (!r)
        return std::nullopt;
    return std::move(r.decoded);
}

std::optional<ClientData> parseClientData(const QByteArray& json, QString* error)
{
    const QJsonDocument doc = QJsonDocument::fromJson(json);
    if (!doc.isObject())
        return refuse<ClientData>(error, QStringLiteral("Client data is not a JSON object"));
    const QJsonObject o = doc.object();
    const QJsonValue type = o.value(QLatin1String("type"));
    const QJsonValue challenge = o.value(QLatin1String("challenge"));
    const QJsonValue origin = o.value(QLatin1String("origin"));
    const QJsonValue crossOrigin = o.value(QLatin1String("crossOrigin"));
    if (!type.isString() || !challenge.isString() || !origin.isString())
        return refuse<ClientData>(error,
                                  QStringLiteral("Client data lacks type, challenge or origin"));
    if (!crossOrigin.isUndefined() && !crossOrigin.isBool())
        return refuse<ClientData>(error, QStringLiteral("Client data crossOrigin is not boolean"));
    const std::optional<QByteArray> bytes = decodeBase64Url(challenge.toString());
    if (!bytes)
        return refuse<ClientData>(error, QStringLiteral("Client data challenge is not base64url"));
    return ClientData{type.toString(), *bytes, origin.toString(), crossOrigin.toBool(false)};
}

std::optional<AuthenticatorData> parseAuthenticatorData(const QByteArray& raw, QString* error)
{
    if (raw.size() < kFixedSize)
        return refuse<AuthenticatorData>(error, QStringLiteral("Authenticator data is too short"));
    AuthenticatorData data;
    data.rpIdHash = raw.left(kRpIdHashSize);
    data.flags = static_cast<quint8>(raw.at(kRpIdHashSize));
    for (qsizetype i = kRpIdHashSize + 1; i < kFixedSize; ++i)
        data.signCount = (data.signCount << 8) | static_cast<quint8>(raw.at(i));
    qsizetype pos = kFixedSize;

    if (data.has(AuthenticatorData::kAttestedData)) {
        if (raw.size() - pos < kAaguidSize + 2)
            return refuse<AuthenticatorData>(
                error, QStringLiteral("Attested credential data is truncated"));
        data.aaguid = raw.mid(pos, kAaguidSize);
        pos += kAaguidSize;
        const qsizetype idLength =
            (static_cast<quint8>(raw.at(pos)) << 8) | static_cast<quint8>(raw.at(pos + 1));
        pos += 2;
        if (idLength == 0 || idLength > kMaxCredentialIdSize || raw.size() - pos < idLength)
            return refuse<AuthenticatorData>(error,
                                             QStringLiteral("Credential id length is invalid"));
        data.credentialId = raw.mid(pos, idLength);
        pos += idLength;
        qsizetype keyLength = 0;
        QString cborError;
        const std::optional<cbor::Value> key =
            cbor::decodeFirst(QByteArrayView(raw).sliced(pos), &keyLength, &cborError);
        if (!key || key->type != cbor::Value::Type::map)
            return refuse<AuthenticatorData>(
                error, QStringLiteral("Credential public key is not a CBOR map"));
        data.credentialPublicKey = raw.mid(pos, keyLength);
        pos += keyLength;
    }
    if (data.has(AuthenticatorData::kExtensions)) {
        qsizetype extensionsLength = 0;
        QString cborError;
        const std::optional<cbor::Value> extensions =
            cbor::decodeFirst(QByteArrayView(raw).sliced(pos), &extensionsLength, &cborError);
        if (!extensions || extensions->type != cbor::Value::Type::map)
            return refuse<AuthenticatorData>(error,
                                             QStringLiteral("Extensions are not a CBOR map"));
        pos += extensionsLength;
    }
    if (pos != raw.size())
        return refuse<AuthenticatorData>(error,
                                         QStringLiteral("Authenticator data has trailing bytes"));
    return data;
}

std::optional<AttestationObject> parseAttestationObject(const QByteArray& encoded, QString* error)
{
    QString cborError;
    const std::optional<cbor::Value> object = cbor::decode(encoded, &cborError);
    if (!object || object->type != cbor::Value::Type::map)
        return refuse<AttestationObject>(
            error, QStringLiteral("Attestation object is not a CBOR map (%1)").arg(cborError));
    const cbor::Value* fmt = object->find("fmt");
    const cbor::Value* statement = object->find("attStmt");
    const cbor::Value* authData = object->find("authData");
    if (!fmt || fmt->type != cbor::Value::Type::text || !statement ||
        statement->type != cbor::Value::Type::map || !authData ||
        authData->type != cbor::Value::Type::bytes)
        return refuse<AttestationObject>(
            error, QStringLiteral("Attestation object lacks fmt, attStmt or authData"));
    return AttestationObject{QString::fromUtf8(fmt->bytes), *statement, authData->bytes};
}

std::optional<QByteArray> coseKeyToSubjectPublicKeyInfo(const QByteArray& cose, QString* error)
{
    const std::optional<QByteArray> point = cosePoint(cose, error);
    if (!point)
        return std::nullopt;
    const Owned<EVP_PKEY> key = keyFromPoint(*point);
    if (!key)
        return refuse<QByteArray>(error, QStringLiteral("Credential public key is not on P-256"));
    const int length = i2d_PUBKEY(key.get(), nullptr);
    if (length <= 0)
        return refuse<QByteArray>(error, QStringLiteral("Credential public key cannot be stored"));
    QByteArray der(length, '\0');
    auto* p = reinterpret_cast<unsigned char*>(der.data());
    i2d_PUBKEY(key.get(), &p);
    return der;
}

bool verifySignature(const QByteArray& subjectPublicKeyInfo, const QByteArray& signedData,
                     const QByteArray& signature)
{
    const auto* p = reinterpret_cast<const unsigned char*>(subjectPublicKeyInfo.constData());
    const Owned<EVP_PKEY> key(
        d2i_PUBKEY(nullptr, &p, static_cast<long>(subjectPublicKeyInfo.size())));
    return key && verifyWith(key.get(), signedData, signature);
}

bool verifyAttestationStatement(const AttestationObject& attestation,
                                const AuthenticatorData& authenticatorData,
                                const QByteArray& clientDataHash,
                                const QByteArray& credentialPublicKeyInfo, QString* error)
{
    const cbor::Value& statement = attestation.statement;
    const QByteArray signedData = attestation.authenticatorData + clientDataHash;
    if (attestation.format == QLatin1String("none")) {
        if (!statement.entries.empty())
            return refused(error, QStringLiteral("A \"none\" attestation carries a statement"));
        return true;
    }
    if (attestation.format != QLatin1String("packed") &&
        attestation.format != QLatin1String("fido-u2f"))
        return refused(
            error, QStringLiteral("Unsupported attestation format \"%1\"").arg(attestation.format));
    const cbor::Value* sig = statement.find("sig");
    const cbor::Value* x5c = statement.find("x5c");
    if (!sig || sig->type != cbor::Value::Type::bytes)
        return refused(error, QStringLiteral("Attestation statement has no signature"));
    if (x5c && (x5c->type != cbor::Value::Type::array || x5c->items.empty()))
        return refused(error, QStringLiteral("Attestation certificates are malformed"));
    const Owned<X509> cert = x5c ? certificate(x5c->items.front()) : nullptr;
    if (x5c && !cert)
        return refused(error, QStringLiteral("Attestation certificate cannot be read"));

    if (attestation.format == QLatin1String("packed")) {
        const cbor::Value* alg = statement.find("alg");
        if (!alg || alg->integer() != kAlgEs256)
            return refused(error, QStringLiteral("Unsupported attestation algorithm"));
        const bool valid = cert ? verifyWith(X509_get0_pubkey(cert.get()), signedData, sig->bytes)
                                : verifySignature(credentialPublicKeyInfo, signedData, sig->bytes);
        return valid || refused(error, QStringLiteral("Attestation signature is invalid"));
    }
    // fido-u2f: the key signs what a U2F registration would have.
    if (!cert || x5c->items.size() != 1 || !isP256(X509_get0_pubkey(cert.get())))
        return refused(error, QStringLiteral("A U2F attestation needs one P-256 certificate"));
    const std::optional<QByteArray> point = cosePoint(authenticatorData.credentialPublicKey, error);
    if (!point)
        return false;
    const QByteArray data = QByteArray(1, '\0') + authenticatorData.rpIdHash + clientDataHash +
                            authenticatorData.credentialId + *point;
    return verifyWith(X509_get0_pubkey(cert.get()), data, sig->bytes) ||
           refused(error, QStringLiteral("Attestation signature is invalid"));
}

} // namespace sorv::local::webauthn
