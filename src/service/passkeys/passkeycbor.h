#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace sorv {

// The few CBOR structures the client writes or unwraps, on libcbor.

// A P-256 public key for ES256 as a COSE_Key map {1: 2, 3: -7, -1: 1, -2: x,
// -3: y}, in the canonical key order authenticators use.
QByteArray encodeCoseEs256Key(const QByteArray& x, const QByteArray& y);

// The attestation object {"fmt", "attStmt", "authData"}; the statement is
// given CBOR-encoded, as the authenticator returned it. None when the
// statement is not one CBOR map.
std::optional<QByteArray> encodeAttestationObject(const QString& format,
                                                  const QByteArray& statementCbor,
                                                  const QByteArray& authenticatorData);

// The bytes of a CBOR byte string (libfido2 hands authenticator data of an
// assertion over wrapped in one). None when `cbor` is not exactly that.
std::optional<QByteArray> unwrapCborByteString(const QByteArray& cbor);

} // namespace sorv
