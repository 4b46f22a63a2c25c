#pragma once

#include "cli/command.h"
#include "support/jsonlines.h"

#include <QStringList>

#include <functional>

namespace sorv::test {

// A command run in-process, and what it printed.
struct CliRun {
    int status = -1;
    QString out;
    QString err;
    QList<QJsonObject> events(const QString& event = {}) const { return jsonLines(out, event); }
    QJsonObject last(const QString& event) const
    {
        const auto list = events(event);
        return list.isEmpty() ? QJsonObject() : list.last();
    }
};

// Runs a command without a terminal; `setup` adjusts its context first, and
// `printed` sees standard output each time it grows.
inline CliRun runCli(const QStringList& args,
                     const std::function<void(cli::CommandContext&)>& setup = {},
                     const std::function<void(const QString&)>& printed = {})
{
    CliRun r;
    cli::CommandContext ctx;
    ctx.terminal = false;
    ctx.out = [&](const QByteArray& b) {
        r.out += QString::fromUtf8(b);
        if (printed)
            printed(r.out);
    };
    ctx.err = [&r](const QByteArray& b) { r.err += QString::fromUtf8(b); };
    if (setup)
        setup(ctx);
    r.status = cli::run(args, ctx);
    return r;
}

} // namespace sorv::test
