// libsorvelandrix-fido2.so: the libfido2 authenticator behind a C entry point
// (see securitykeymodule.h). Everything else in the module is hidden.

#include "core/log.h"
#include "service/passkeys/fido2authenticator.h"
#include "service/passkeys/securitykeymodule.h"

#include <atomic>
#include <type_traits>

namespace sorv {

namespace {
std::atomic<void (*)(const QString&)> g_hostLog{nullptr};
} // namespace

// The module's own console log: it writes through the host's.
void consoleLog(const QString& text)
{
    if (auto* log = g_hostLog.load())
        log(text);
}

} // namespace sorv

extern "C" __attribute__((visibility("default"))) sorv::Authenticator*
sorv_create_security_key_authenticator(void (*log)(const QString& line))
{
    sorv::g_hostLog.store(log);
    return new sorv::Fido2Authenticator;
}

static_assert(std::is_same_v<decltype(&sorv_create_security_key_authenticator),
                             sorv::SecurityKeyAuthenticatorFactory>);
