#pragma once

#include "service/passkeys/authenticator.h"

#include <memory>
#include <mutex>

typedef struct fido_dev fido_dev_t;

namespace sorv {

// A FIDO2 security key through libfido2: the first FIDO2 HID device found
// (a U2F-only key when there is no other). Credentials are resident and
// user-verifying where the key can do that: its built-in verification when
// it has one, else its PIN, asked through the prompts.
class Fido2Authenticator : public Authenticator {
public:
    Fido2Authenticator();
    ~Fido2Authenticator() override;

    PasskeyResult<AttestedCredential> makeCredential(const MakeCredentialRequest& request,
                                                     AuthenticatorPrompts& prompts) override;
    PasskeyResult<Assertion> getAssertion(const GetAssertionRequest& request,
                                          AuthenticatorPrompts& prompts) override;
    void cancel() override;

    // The readable text of a libfido2 error, or none when it means the user
    // declined or the call was cancelled.
    static std::optional<QString> describeFidoError(int code);

private:
    struct Device;
    PasskeyResult<std::shared_ptr<Device>> openDevice();
    void setCurrent(fido_dev_t* device);

    std::mutex m_mutex;
    fido_dev_t* m_current = nullptr; // the device a call is running on
};

} // namespace sorv
