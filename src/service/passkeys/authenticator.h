#pragma once

#include "service/passkeys/passkeyerror.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace sorv {

// What a ceremony asks of the person at the key. Called on the worker thread
// that runs the authenticator; the implementation hands the question to the
// user interface and, for the PIN, blocks this thread until it is answered.
class AuthenticatorPrompts {
public:
    virtual ~AuthenticatorPrompts() = default;
    // The key's PIN; none when the user cancelled. `attemptsLeft` is -1 when
    // the key does not say.
    virtual std::optional<QString> requestPin(int attemptsLeft) = 0;
    // The authenticator waits for a touch (true) or no longer does (false).
    virtual void waitingForTouch(bool waiting) = 0;
    // The ceremony was cancelled: a call that has not yet reached the key
    // should not start, and one that failed after a cancel() ends `cancelled`.
    virtual bool isCancelled() const = 0;
};

struct MakeCredentialRequest {
    QByteArray clientDataHash; // SHA-256 of the client data JSON
    QString rpId;
    QString rpName;
    QByteArray userId;
    QString userName;
    QString userDisplayName;
};

// A new credential as the authenticator returned it.
struct AttestedCredential {
    QByteArray credentialId;
    QByteArray authenticatorData;        // raw bytes, as signed
    QString format;                      // attestation statement format, e.g. "none", "packed"
    QByteArray attestationStatementCbor; // the statement map, CBOR-encoded ({} for "none")
    QStringList transports;              // as the authenticator reports them
};

struct GetAssertionRequest {
    QByteArray clientDataHash;
    QString rpId;
    QList<QByteArray> allowCredentialIds; // empty: any discoverable credential for rpId
};

struct Assertion {
    QByteArray credentialId;
    QByteArray authenticatorData;
    QByteArray signature;
    std::optional<QByteArray> userHandle; // none when the authenticator gives none
};

// One FIDO2 authenticator. Calls block (USB I/O, the user's touch) and are
// made on a worker thread, one at a time; cancel() may be called from any
// thread, after the prompts report the cancellation, and makes a call that
// waits on the key end soon.
class Authenticator {
public:
    virtual ~Authenticator() = default;

    virtual PasskeyResult<AttestedCredential> makeCredential(const MakeCredentialRequest& request,
                                                             AuthenticatorPrompts& prompts) = 0;
    virtual PasskeyResult<Assertion> getAssertion(const GetAssertionRequest& request,
                                                  AuthenticatorPrompts& prompts) = 0;
    virtual void cancel() = 0;

    // A development stand-in that must only ever talk to a service on this
    // computer.
    virtual bool isDevelopmentOnly() const { return false; }
};

} // namespace sorv
