// sorvelandrix: the command-line interface. Everything but the process set-up
// lives in the sorvelandrix_cli library.

#include "cli/command.h"
#include "core/appinfo.h"
#include "core/log.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("sorvelandrix"));
    QCoreApplication::setApplicationVersion(sorv::AppInfo::version());

    // Standard output carries the command's results (and JSON Lines with
    // --json); the pictogram diagnostics go to standard error.
    sorv::setLogSink([](const QString& line) {
        const QByteArray bytes = line.toUtf8() + '\n';
        std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stderr);
        std::fflush(stderr);
    });

    sorv::cli::CommandContext ctx;
    return sorv::cli::run(QCoreApplication::arguments().mid(1), ctx);
}
