// sorvelandrix logout

#include "cli/clisession.h"
#include "cli/command.h"
#include "cli/commands.h"

#include <QJsonObject>
#include <QTimer>

namespace sorv::cli {
namespace {

int runLogout(CommandContext& ctx)
{
    CliSession session(ctx);
    AuthManager& auth = session.auth();
    auth.logout();
    ctx.print(QStringLiteral("Signed out."));
    ctx.event({{QStringLiteral("event"), QStringLiteral("signedOut")}});
    if (!auth.hasDetachedRequests())
        return kExitOk;
    // The server is told in passing; a process that exits at once would cut
    // that request off, so it gets a bounded moment to leave. The exit comes
    // from the next turn of the loop, so the finished reply is deleted first.
    QObject::connect(&auth, &AuthManager::detachedRequestsFinished, &auth,
                     [&ctx] { QTimer::singleShot(0, [&ctx] { ctx.finish(kExitOk); }); });
    QTimer::singleShot(2000, &auth, [&ctx] { ctx.finish(kExitOk); });
    return ctx.exec();
}

} // namespace

Command logoutCommand()
{
    return {QStringLiteral("logout"), QStringLiteral("logout"),
            QStringLiteral("sign out on this computer and end the session on the service"),
            runLogout};
}

} // namespace sorv::cli
