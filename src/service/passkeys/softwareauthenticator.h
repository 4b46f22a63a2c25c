#pragma once

#include "service/passkeys/authenticator.h"

#include <QString>

#include <mutex>
#include <optional>
#include <vector>

namespace sorv {

// A FIDO2 authenticator in software, for tests and for development against
// the local service: P-256 keys made with OpenSSL, one signature counter for
// all credentials, "none" attestation. It presents itself as a USB security
// key. Its keys live in memory, or in a file (created on first use, mode
// 0600) that is read before and written after every call, so that separate
// runs of the command-line tool share one "key".
class SoftwareAuthenticator : public Authenticator {
public:
    struct Options {
        QString file;               // empty: in memory only
        std::optional<QString> pin; // when set, every call asks for it
        // What the authenticator reports in the flags (tests turn them off).
        bool userPresent = true;
        bool userVerified = true;
    };

    static constexpr int kPinAttempts = 8;

    SoftwareAuthenticator();
    explicit SoftwareAuthenticator(Options options);
    ~SoftwareAuthenticator() override;

    PasskeyResult<AttestedCredential> makeCredential(const MakeCredentialRequest& request,
                                                     AuthenticatorPrompts& prompts) override;
    PasskeyResult<Assertion> getAssertion(const GetAssertionRequest& request,
                                          AuthenticatorPrompts& prompts) override;
    // Nothing here blocks except the PIN question, which the prompts end.
    void cancel() override {}
    bool isDevelopmentOnly() const override { return true; }

    quint32 signCount() const;
    int credentialCount() const;

private:
    struct Credential {
        QByteArray id;
        QString rpId;
        QByteArray userId;
        QString userName;
        QByteArray privateKeyDer;
    };
    struct State {
        quint32 signCount = 0;
        std::vector<Credential> credentials;
    };

    std::optional<PasskeyError> verifyUser(AuthenticatorPrompts& prompts);
    std::optional<PasskeyError> load();
    std::optional<PasskeyError> save() const;
    QByteArray authenticatorData(const QString& rpId, bool attested, quint32 count,
                                 const QByteArray& attestedCredentialData) const;

    Options m_options;
    mutable std::mutex m_mutex;
    State m_state;
    int m_pinAttemptsLeft = kPinAttempts;
};

} // namespace sorv
