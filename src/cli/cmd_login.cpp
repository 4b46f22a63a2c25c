// sorvelandrix login [--email E] [--password-stdin]

#include "cli/clisession.h"
#include "cli/command.h"
#include "cli/commands.h"

#include <QJsonObject>

#include <cstdio>
#include <iostream>
#include <string>

#include <termios.h>
#include <unistd.h>

namespace sorv::cli {
namespace {

std::optional<QString> readLine()
{
    std::string line;
    if (!std::getline(std::cin, line))
        return std::nullopt;
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return QString::fromStdString(line);
}

std::optional<QString> prompt(const char* text, bool echo)
{
    std::fputs(text, stderr);
    std::fflush(stderr);
    termios saved{};
    const bool hide = !echo && ::isatty(STDIN_FILENO) && ::tcgetattr(STDIN_FILENO, &saved) == 0;
    if (hide) {
        termios quiet = saved;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    std::optional<QString> line = readLine();
    if (hide) {
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
        std::fputs("\n", stderr);
    }
    return line;
}

int runLogin(CommandContext& ctx)
{
    QString email;
    bool passwordFromStdin = false;
    for (qsizetype i = 0; i < ctx.args.size(); ++i) {
        const QString& a = ctx.args.at(i);
        if (a == QLatin1String("--email") && i + 1 < ctx.args.size())
            email = ctx.args.at(++i);
        else if (a.startsWith(QLatin1String("--email=")))
            email = a.mid(8);
        else if (a == QLatin1String("--password-stdin"))
            passwordFromStdin = true;
        else {
            ctx.error(QStringLiteral("Unexpected argument %1").arg(a));
            return kExitUsage;
        }
    }
    if (email.isEmpty()) {
        if (passwordFromStdin) {
            ctx.error(QStringLiteral("--password-stdin needs --email"));
            return kExitUsage;
        }
        email = prompt("E-mail: ", true).value_or(QString()).trimmed();
    }
    const std::optional<QString> password =
        passwordFromStdin ? readLine() : prompt("Password: ", false);
    if (email.isEmpty() || !password) {
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
    auth.login(email, *password);
    return ctx.exec();
}

} // namespace

Command loginCommand()
{
    return {QStringLiteral("login"), QStringLiteral("login [--email E] [--password-stdin]"),
            QStringLiteral(
                "sign in (with --password-stdin: password, then the code if asked, one per line)"),
            runLogin};
}

} // namespace sorv::cli
