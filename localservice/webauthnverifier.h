#pragma once

#include "localservice/cborreader.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace sorv::local::webauthn {

// The relying party's checks on what a WebAuthn client sends, written from
// the service's side. Every function reports why it refused in `error`.

// Base64url with or without padding; none when it does not decode.
std::optional<QByteArray> decodeBase64Url(const QString& text);

// The collected client data (JSON): type, challenge, origin, crossOrigin.
struct ClientData {
    QString type;
    QByteArray challenge;
    QString origin;
    bool crossOrigin = false;
};
std::optional<ClientData> parseClientData(const QByteArray& json, QString* error);

// Authenticator data: rpIdHash ‖ flags ‖ signCount ‖ [attested credential
// data] ‖ [extensions].
struct AuthenticatorData {
    static constexpr quint8 kUserPresent = 0x01;
    static constexpr quint8 kUserVerified = 0x04;
    static constexpr quint8 kBackupEligible = 0x08;
    static constexpr quint8 kAttestedData = 0x40;
    static constexpr quint8 kExtensions = 0x80;

    QByteArray rpIdHash;
    quint8 flags = 0;
    quint32 signCount = 0;
    QByteArray aaguid;
    QByteArray credentialId;
    QByteArray credentialPublicKey; // the COSE key, CBOR-encoded

    bool has(quint8 flag) const { return (flags & flag) != 0; }
};
std::optional<AuthenticatorData> parseAuthenticatorData(const QByteArray& raw, QString* error);

// The attestation object {"fmt", "attStmt", "authData"}.
struct AttestationObject {
    QString format;
    cbor::Value statement;
    QByteArray authenticatorData;
};
std::optional<AttestationObject> parseAttestationObject(const QByteArray& encoded, QString* error);

// An ES256 COSE key (EC2, P-256, alg -7), checked to be a point on the
// curve, as DER SubjectPublicKeyInfo for storage.
std::optional<QByteArray> coseKeyToSubjectPublicKeyInfo(const QByteArray& cose, QString* error);

// An ES256 signature (DER-encoded ECDSA over SHA-256) by the stored key.
bool verifySignature(const QByteArray& subjectPublicKeyInfo, const QByteArray& signedData,
                     const QByteArray& signature);

// The attestation statement of formats "none", "packed" (self or with a
// certificate, whose chain is not judged) and "fido-u2f".
bool verifyAttestationStatement(const AttestationObject& attestation,
                                const AuthenticatorData& authenticatorData,
                                const QByteArray& clientDataHash,
                                const QByteArray& credentialPublicKeyInfo, QString* error);

} // namespace sorv::local::webauthn
