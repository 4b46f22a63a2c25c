// sorvelandrix logout

#include "cli/command.h"
#include "core/secretstore.h"
#include "service/authmanager.h"

#include <QCoreApplication>
#include <QJsonObject>
#include <QTimer>

using namespace sorv;
using namespace sorv::cli;

namespace {

int run(CommandContext& ctx)
{
    SecretStore secrets;
    AuthManager auth(secrets);
    auth.logout();
    ctx.print(QStringLiteral("Signed out."));
    ctx.event({{QStringLiteral("event"), QStringLiteral("signedOut")}});
    if (!auth.hasDetachedRequests())
        return kExitOk;
    // The server is told in passing; a process that exits at once would cut
    // that request off, so it gets a bounded moment to leave.
    // Exit from the next turn of the loop, so the finished reply is deleted
    // before the network manager goes.
    QObject::connect(&auth, &AuthManager::detachedRequestsFinished,
                     [] { QTimer::singleShot(0, [] { QCoreApplication::exit(kExitOk); }); });
    QTimer::singleShot(2000, [] { QCoreApplication::exit(kExitOk); });
    return QCoreApplication::exec();
}

const CommandRegistration registration({
    QStringLiteral("logout"),
    QStringLiteral("logout"),
    QStringLiteral("sign out on this computer and end the session on the service"),
    run,
});

} // namespace
