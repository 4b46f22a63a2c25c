// sorvelandrix whoami

#include "cli/clisession.h"
#include "cli/command.h"
#include "cli/commands.h"

#include <QJsonObject>

namespace sorv::cli {
namespace {

int runWhoami(CommandContext& ctx)
{
    CliSession session(ctx);
    if (!session.requireSignedIn())
        return kExitFailure;
    AuthManager& auth = session.auth();
    QObject::connect(&auth, &AuthManager::sessionConfirmed, &auth,
                     [&](bool confirmed, const QString& message) {
                         if (!confirmed) {
                             ctx.error(message);
                             ctx.finish(kExitFailure);
                             return;
                         }
                         ctx.print(auth.displayName());
                         ctx.event({{QStringLiteral("event"), QStringLiteral("user")},
                                    {QStringLiteral("email"), auth.userEmail()},
                                    {QStringLiteral("name"), auth.userName()}});
                         ctx.finish(kExitOk);
                     });
    auth.confirmSession();
    return ctx.exec();
}

} // namespace

Command whoamiCommand()
{
    return {QStringLiteral("whoami"), QStringLiteral("whoami"),
            QStringLiteral("show who is signed in (checks the session with the service)"),
            runWhoami};
}

} // namespace sorv::cli
