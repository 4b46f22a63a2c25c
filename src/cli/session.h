#pragma once

#include "cli/command.h"

namespace sorv {
class AuthManager;
}

namespace sorv::cli {

// Commands that act as the signed-in user check this first: without a
// session the service would only refuse, so say so at once.
bool requireSignedIn(const AuthManager& auth, const CommandContext& ctx);

} // namespace sorv::cli
