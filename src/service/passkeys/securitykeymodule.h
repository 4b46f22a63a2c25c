#pragma once

#include "service/passkeys/authenticator.h"

#include <QString>

#include <memory>

namespace sorv {

// Security keys (FIDO2 over USB) are driven by libfido2, which lives in a
// module of its own (libsorvelandrix-fido2.so in the private library
// directory) so that only the ceremonies that touch a key load it.

// The module's one entry point: a new authenticator, which the caller owns.
// `log` receives the module's console lines, so that they reach the host's
// log sink.
using SecurityKeyAuthenticatorFactory = Authenticator* (*)(void (*log)(const QString& line));
inline constexpr char kSecurityKeyModule[] = "libsorvelandrix-fido2.so";
inline constexpr char kSecurityKeyFactory[] = "sorv_create_security_key_authenticator";

// The security-key authenticator from the module; when the module cannot be
// loaded, one whose every ceremony ends "not available" (the reason is
// logged).
std::shared_ptr<Authenticator> loadSecurityKeyAuthenticator();

} // namespace sorv
