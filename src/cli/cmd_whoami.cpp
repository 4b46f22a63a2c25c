// sorvelandrix whoami

#include "cli/command.h"
#include "cli/session.h"
#include "core/secretstore.h"
#include "service/authmanager.h"

#include <QCoreApplication>
#include <QJsonObject>

using namespace sorv;
using namespace sorv::cli;

namespace {

void report(CommandContext& ctx, AuthManager& auth, bool confirmed)
{
    if (!confirmed) {
        // A refused refresh has ended the session and says so; anything else
        // (service unreachable) leaves the stored session alone.
        ctx.error(auth.isLoggedIn()
                      ? QStringLiteral("Could not confirm the session with the service.")
                      : auth.sessionExpiredBanner());
        QCoreApplication::exit(kExitFailure);
        return;
    }
    ctx.print(auth.userName().isEmpty()
                  ? auth.userEmail()
                  : QStringLiteral("%1 <%2>").arg(auth.userName(), auth.userEmail()));
    ctx.event({{QStringLiteral("event"), QStringLiteral("user")},
               {QStringLiteral("email"), auth.userEmail()},
               {QStringLiteral("name"), auth.userName()}});
    QCoreApplication::exit(kExitOk);
}

int run(CommandContext& ctx)
{
    SecretStore secrets;
    AuthManager auth(secrets);
    if (!requireSignedIn(auth, ctx))
        return kExitFailure;
    // Not validateSession(): a check from a terminal must not sign the user
    // out just because the service is unreachable right now.
    auth.verifyAccessToken(&auth, [&](bool valid) {
        if (valid) {
            report(ctx, auth, true);
            return;
        }
        auth.refreshAccessToken(&auth, [&](bool refreshed) {
            if (!refreshed) {
                report(ctx, auth, false);
                return;
            }
            auth.verifyAccessToken(&auth, [&](bool validNow) { report(ctx, auth, validNow); });
        });
    });
    return QCoreApplication::exec();
}

const CommandRegistration registration({
    QStringLiteral("whoami"),
    QStringLiteral("whoami"),
    QStringLiteral("show who is signed in (checks the session with the service)"),
    run,
});

} // namespace
