#pragma once

#include "cli/command.h"

namespace sorv {
class AuthManager;
class PasskeyManager;
} // namespace sorv

namespace sorv::cli {

// Shows a passkey ceremony's questions on the terminal while it runs: "Touch
// your security key…" while the key waits, and the PIN prompt (without echo
// on a terminal; a line of standard input otherwise).
void attachPasskeyPrompts(PasskeyManager& passkeys, const CommandContext& ctx);

// The passkey path of sorvelandrix login: starts the sign-in on `auth`, whose
// sign-in state the login command watches, and runs until it finishes.
int signInWithPasskey(CommandContext& ctx, AuthManager& auth, const QString& email);

} // namespace sorv::cli
