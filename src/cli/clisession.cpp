#include "clisession.h"

namespace sorv::cli {

CliSession::CliSession(const CommandContext& ctx) : m_ctx(ctx), m_auth(m_secrets) {}

bool CliSession::requireSignedIn()
{
    if (m_auth.isLoggedIn())
        return true;
    const QString signIn = m_ctx.commandLine({QStringLiteral("login")});
    if (!m_auth.sessionOriginElsewhere().isEmpty())
        m_ctx.error(
            QStringLiteral("%1. Sign in with: %2").arg(m_auth.notSignedInHereMessage(), signIn));
    else
        m_ctx.error(QStringLiteral("Not signed in. Sign in with: %1").arg(signIn));
    return false;
}

} // namespace sorv::cli
