// libFuzzer target: arbitrary bytes through the local service's reading of
// what a WebAuthn client sends: attestation objects (CBOR), the
// authenticator data inside them, COSE keys, attestation statements and
// client data. Nothing may crash, hang or read out of bounds.

#include "localservice/cborreader.h"
#include "localservice/webauthnverifier.h"

#include <cstddef>
#include <cstdint>

using namespace sorv::local;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray bytes =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    QString error;
    const QByteArray clientDataHash(32, '\x5a');

    // A registration: the object, its authenticator data, the key, the statement.
    if (const auto attestation = webauthn::parseAttestationObject(bytes, &error)) {
        if (const auto authData =
                webauthn::parseAuthenticatorData(attestation->authenticatorData, &error)) {
            const QByteArray key =
                webauthn::coseKeyToSubjectPublicKeyInfo(authData->credentialPublicKey, &error)
                    .value_or(QByteArray());
            webauthn::verifyAttestationStatement(*attestation, *authData, clientDataHash, key,
                                                 &error);
        }
    }
    // An assertion's authenticator data, and the pieces on their own.
    if (const auto authData = webauthn::parseAuthenticatorData(bytes, &error))
        webauthn::coseKeyToSubjectPublicKeyInfo(authData->credentialPublicKey, &error);
    webauthn::coseKeyToSubjectPublicKeyInfo(bytes, &error);
    qsizetype consumed = 0;
    cbor::decodeFirst(bytes, &consumed, &error);
    webauthn::parseClientData(bytes, &error);
    webauthn::decodeBase64Url(QString::fromUtf8(bytes));
    return 0;
}
