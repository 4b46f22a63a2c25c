// sorvelandrix login [--email E] [--password-stdin] · login --passkey [--email E]

#include "cli/clisession.h"
#include "cli/command.h"
#include "cli/commands.h"
#include "cli/passkeyterminal.h"
#include "cli/terminalprompt.h"

#include <QJsonObject>

namespace sorv::cli {
namespace {

int runLogin(CommandContext& ctx)
{
    QString email;
    bool passwordFromStdin = false;
    bool passkey = false;
    for (qsizetype i = 0; i < ctx.args.size(); ++i) {
        const QString& a = ctx.args.at(i);
        if (a == QLatin1String("--email") && i + 1 < ctx.args.size())
            email = ctx.args.at(++i);
        else if (a.startsWith(QLatin1String("--email=")))
            email = a.mid(8);
        else if (a == QLatin1String("--password-stdin"))
            passwordFromStdin = true;
        else if (a == QLatin1String("--passkey"))
            passkey = true;
        else {
            ctx.error(QStringLiteral("Unexpected argument %1").arg(a));
            return kExitUsage;
        }
    }
    if (passkey && passwordFromStdin) {
        ctx.error(QStringLiteral("--passkey and --password-stdin exclude each other"));
        return kExitUsage;
    }
    // With a passkey the e-mail is optional: the key can name the account.
    if (email.isEmpty() && !passkey) {
        if (passwordFromStdin) {
            ctx.error(QStringLiteral("--password-stdin needs --email"));
            return kExitUsage;
        }
        email = prompt("E-mail: ", true).value_or(QString()).trimmed();
    }
    const std::optional<QString> password = passkey             ? std::nullopt
                                            : passwordFromStdin ? readLine()
                                                                : prompt("Password: ", false);
    if (!passkey && (email.isEmpty() || !password)) {
        ctx.error(QStringLiteral("E-mail and password are required"));
        return kExitUsage;
    }

    CliSession session(ctx);
    AuthManager& auth = session.auth();
    bool codeAsked = false;
    bool done = false;
    QObject::connect(
        &auth, &AuthManager::isLoggingInChanged, &auth,
        [&] {
            if (auth.isLoggingIn() || done)
                return;
            // A session from an earlier sign-in does not make this one a success.
            if (auth.loginError().isEmpty() && auth.pendingMfaChallengeId().isEmpty() &&
                auth.isLoggedIn()) {
                ctx.print(QStringLiteral("Signed in as %1").arg(auth.displayName()));
                ctx.event({{QStringLiteral("event"), QStringLiteral("signedIn")},
                           {QStringLiteral("email"), auth.userEmail()},
                           {QStringLiteral("name"), auth.userName()}});
                done = true;
                ctx.finish(kExitOk);
                return;
            }
            // A wrong code may be typed again, as in the sign-in form.
            if (!auth.pendingMfaChallengeId().isEmpty() &&
                (!codeAsked || !auth.loginError().isEmpty())) {
                if (codeAsked)
                    ctx.error(auth.loginError());
                codeAsked = true;
                ctx.print(QStringLiteral("A sign-in code was sent to %1.")
                              .arg(auth.pendingMfaMaskedEmail()));
                ctx.event({{QStringLiteral("event"), QStringLiteral("codeRequired")},
                           {QStringLiteral("maskedEmail"), auth.pendingMfaMaskedEmail()}});
                const std::optional<QString> code =
                    passwordFromStdin ? readLine() : prompt("Code: ", true);
                if (!code) {
                    ctx.error(QStringLiteral("No code given"));
                    done = true;
                    ctx.finish(kExitFailure);
                    return;
                }
                auth.verifyMfa(code->trimmed());
                return;
            }
            ctx.error(auth.loginError());
            done = true;
            ctx.finish(kExitFailure);
        },
        Qt::QueuedConnection); // the prompts read the terminal outside the callback
    if (passkey)
        return signInWithPasskey(ctx, auth, email);
    auth.login(email, *password);
    return ctx.exec();
}

} // namespace

Command loginCommand()
{
    return {QStringLiteral("login"),
            QStringLiteral("login [--email E] [--password-stdin] | login --passkey [--email E]"),
            QStringLiteral(
                "sign in (with --password-stdin: password, then the code if asked, one per line)"),
            runLogin};
}

} // namespace sorv::cli
