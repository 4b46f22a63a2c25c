#include "clisession.h"

namespace sorv::cli {

CliSession::CliSession(const CommandContext& ctx) : m_ctx(ctx), m_auth(m_secrets) {}

bool CliSession::requireSignedIn()
{
    if (m_auth.isLoggedIn())
        return true;
    m_ctx.error(QStringLiteral("Not signed in. Sign in with: %1")
                    .arg(m_ctx.commandLine({QStringLiteral("login")})));
    return false;
}

} // namespace sorv::cli
