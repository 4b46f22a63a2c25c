#include "edsignature.h"

#include <openssl/err.h>
#include <openssl/evp.h>

#include <memory>

namespace sorv {

namespace {

constexpr qsizetype kPublicKeySize = 32;
constexpr qsizetype kSignatureSize = 64;

struct OpenSslFree {
    void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
    void operator()(EVP_MD_CTX* p) const { EVP_MD_CTX_free(p); }
};
using EvpKey = std::unique_ptr<EVP_PKEY, OpenSslFree>;
using EvpDigestContext = std::unique_ptr<EVP_MD_CTX, OpenSslFree>;

const auto* bytes(const QByteArray& b)
{
    return reinterpret_cast<const unsigned char*>(b.constData());
}

} // namespace

std::optional<QByteArray> decodeBase64Exactly(QStringView text, qsizetype size)
{
    const QByteArray encoded = text.trimmed().toLatin1();
    const QByteArray::FromBase64Result decoded =
        QByteArray::fromBase64Encoding(encoded, QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded || decoded.decoded.size() != size)
        return std::nullopt;
    return decoded.decoded;
}

bool isWellFormedEdSignature(QStringView signatureBase64)
{
    return decodeBase64Exactly(signatureBase64, kSignatureSize).has_value();
}

bool verifyEdSignature(const QString& publicKeyBase64, QByteArrayView data,
                       const QString& signatureBase64)
{
    const std::optional<QByteArray> rawKey = decodeBase64Exactly(publicKeyBase64, kPublicKeySize);
    const std::optional<QByteArray> signature =
        decodeBase64Exactly(signatureBase64, kSignatureSize);
    if (!rawKey || !signature)
        return false;
    const EvpKey key(EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr, bytes(*rawKey),
                                                 static_cast<size_t>(rawKey->size())));
    const EvpDigestContext context(EVP_MD_CTX_new());
    // Ed25519 is a one-shot signature over the whole message: no digest.
    const bool valid =
        key && context &&
        EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key.get()) == 1 &&
        EVP_DigestVerify(context.get(), bytes(*signature), static_cast<size_t>(signature->size()),
                         reinterpret_cast<const unsigned char*>(data.data()),
                         static_cast<size_t>(data.size())) == 1;
    // A failed verification leaves its reasons queued; they are not ours to report.
    ERR_clear_error();
    return valid;
}

} // namespace sorv
