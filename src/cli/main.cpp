#include "cli/command.h"
#include "core/appinfo.h"
#include "core/log.h"
#include "core/settings.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdio>

using namespace sorv;
using namespace sorv::cli;

namespace {

void printHelp()
{
    QString text = QStringLiteral(
        "Usage: sorvelandrix [--server URL] [--json] COMMAND [ARGS...]\n\n"
        "Records meetings and calls (microphone and system audio) and hands them to the\n"
        "Sorvelandrix transcription service.\n\n"
        "Global options:\n"
        "  --server URL   use this service origin for this run (also SORVELANDRIX_SERVER)\n"
        "  --json         JSON Lines events on standard output instead of text\n"
        "  --help         show this help\n"
        "  --version      show the version\n\n"
        "Commands:\n");
    auto commands = commandRegistry();
    std::sort(commands.begin(), commands.end(),
              [](const Command& a, const Command& b) { return a.name < b.name; });
    for (const Command& c : commands)
        text += QStringLiteral("  %1\n      %2\n").arg(c.usage, c.summary);
    std::fputs(text.toUtf8().constData(), stdout);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("sorvelandrix"));
    QCoreApplication::setApplicationVersion(AppInfo::version());

    CommandContext ctx;
    QString commandName;
    QString server = qEnvironmentVariable("SORVELANDRIX_SERVER");
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& a = arguments.at(i);
        if (!commandName.isEmpty()) {
            if (a == QLatin1String("--json"))
                ctx.json = true;
            else if (a == QLatin1String("--server") && i + 1 < arguments.size())
                server = arguments.at(++i);
            else if (a.startsWith(QLatin1String("--server=")))
                server = a.mid(9);
            else
                ctx.args << a;
            continue;
        }
        if (a == QLatin1String("--help") || a == QLatin1String("-h")) {
            printHelp();
            return kExitOk;
        }
        if (a == QLatin1String("--version")) {
            std::printf("sorvelandrix %s\n", qPrintable(AppInfo::version()));
            return kExitOk;
        }
        if (a == QLatin1String("--json")) {
            ctx.json = true;
        } else if (a == QLatin1String("--server")) {
            if (i + 1 >= arguments.size()) {
                std::fputs("--server needs a URL\n", stderr);
                return kExitUsage;
            }
            server = arguments.at(++i);
        } else if (a.startsWith(QLatin1String("--server="))) {
            server = a.mid(9);
        } else if (a.startsWith(QLatin1Char('-'))) {
            std::fprintf(stderr, "Unknown option %s (see sorvelandrix --help)\n", qPrintable(a));
            return kExitUsage;
        } else {
            commandName = a;
        }
    }
    if (commandName.isEmpty()) {
        printHelp();
        return kExitUsage;
    }
    if (!server.isEmpty())
        Settings::setServerOverride(server);

    // Standard output carries the command's results (and JSON Lines with
    // --json); the pictogram diagnostics go to standard error.
    setLogSink([](const QString& line) {
        const QByteArray bytes = line.toUtf8() + '\n';
        std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stderr);
        std::fflush(stderr);
    });

    for (const Command& c : commandRegistry()) {
        if (c.name != commandName)
            continue;
        if (ctx.args.contains(QLatin1String("--help"))) {
            std::printf("Usage: sorvelandrix %s\n%s\n", qPrintable(c.usage), qPrintable(c.summary));
            return kExitOk;
        }
        return c.run(ctx);
    }
    std::fprintf(stderr, "Unknown command %s (see sorvelandrix --help)\n", qPrintable(commandName));
    return kExitUsage;
}
