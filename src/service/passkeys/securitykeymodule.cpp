#include "securitykeymodule.h"

#include "core/log.h"

#include <dlfcn.h>

namespace sorv {

namespace {

class UnavailableAuthenticator : public Authenticator {
public:
    PasskeyResult<AttestedCredential> makeCredential(const MakeCredentialRequest& /*request*/,
                                                     AuthenticatorPrompts& /*prompts*/) override
    {
        return PasskeyError::notAvailable();
    }
    PasskeyResult<Assertion> getAssertion(const GetAssertionRequest& /*request*/,
                                          AuthenticatorPrompts& /*prompts*/) override
    {
        return PasskeyError::notAvailable();
    }
    void cancel() override {}
};

} // namespace

std::shared_ptr<Authenticator> loadSecurityKeyAuthenticator()
{
    // dlopen here rather than through QLibrary: the search then follows this
    // program's RUNPATH, which names the private library directory. The
    // module stays loaded for the rest of the process.
    void* module = ::dlopen(kSecurityKeyModule, RTLD_NOW | RTLD_LOCAL);
    void* symbol = module ? ::dlsym(module, kSecurityKeyFactory) : nullptr;
    if (!symbol) {
        const char* reason = ::dlerror();
        consoleLog(QStringLiteral("⚠️ Security keys cannot be used: %1")
                       .arg(reason ? QString::fromLocal8Bit(reason)
                                   : QString::fromLatin1(kSecurityKeyModule)));
        return std::make_shared<UnavailableAuthenticator>();
    }
    const auto create = reinterpret_cast<SecurityKeyAuthenticatorFactory>(symbol);
    return std::shared_ptr<Authenticator>(create(&consoleLog));
}

} // namespace sorv
