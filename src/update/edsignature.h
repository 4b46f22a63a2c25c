#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <optional>

namespace sorv {

// Ed25519 ("EdDSA" in appcasts) as updates are signed: a 32-byte public key
// and 64-byte signatures, both written in base64.

// The raw bytes of strict base64 `text` (surrounding white space allowed)
// when they are exactly `size` bytes long; none otherwise.
std::optional<QByteArray> decodeBase64Exactly(QStringView text, qsizetype size);

// True when `signatureBase64` could be an Ed25519 signature: 64 bytes of base64.
bool isWellFormedEdSignature(QStringView signatureBase64);

// True only when `signatureBase64` is a valid Ed25519 signature of `data`
// made with the private half of `publicKeyBase64`. Any malformed key or
// signature is simply "not verified".
bool verifyEdSignature(const QString& publicKeyBase64, QByteArrayView data,
                       const QString& signatureBase64);

} // namespace sorv
