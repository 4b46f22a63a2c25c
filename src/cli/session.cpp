#include "session.h"

#include "service/authmanager.h"

namespace sorv::cli {

bool requireSignedIn(const AuthManager& auth, const CommandContext& ctx)
{
    if (auth.isLoggedIn())
        return true;
    ctx.error(QStringLiteral("Not signed in."));
    return false;
}

} // namespace sorv::cli
