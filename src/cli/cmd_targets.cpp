// sorvelandrix targets
//
// What a video recording can capture: the displays, the applications with
// windows on screen and those windows, in the order and with the texts the
// recorder screen's picker shows.

#include "cli/command.h"
#include "cli/commands.h"
#include "video/screencapturetargetstore.h"

#include <QJsonObject>

#include <algorithm>

namespace sorv::cli {
namespace {

QString heading(ScreenCaptureTargetOption::Kind::Type type)
{
    using Type = ScreenCaptureTargetOption::Kind::Type;
    switch (type) {
    case Type::Application:
        return QStringLiteral("Applications");
    case Type::Window:
    case Type::PortalWindow:
        return QStringLiteral("Windows");
    case Type::Display:
    case Type::MainDisplay:
    case Type::PortalMonitor:
        break;
    }
    return QStringLiteral("Displays");
}

} // namespace

int runTargets(CommandContext& ctx)
{
    if (!ctx.args.isEmpty()) {
        ctx.error(QStringLiteral("Usage: sorvelandrix targets"));
        return kExitUsage;
    }
    ScreenCaptureTargetStore store;
    QObject::connect(&store, &ScreenCaptureTargetStore::reloaded, &store, [&] {
        if (!store.loadError().isNull()) {
            ctx.error(store.loadError());
            ctx.finish(kExitFailure);
            return;
        }
        const QList<ScreenCaptureTargetOption> options = store.options();
        int idWidth = 0;
        int titleWidth = 0;
        for (const ScreenCaptureTargetOption& o : options) {
            idWidth = std::max(idWidth, int(o.id.size()));
            titleWidth = std::max(titleWidth, int(std::min<qsizetype>(o.title.size(), 48)));
        }
        QString group;
        for (const ScreenCaptureTargetOption& o : options) {
            const QString h = heading(o.kind.type);
            if (h != group) {
                ctx.print(group.isEmpty() ? h : QStringLiteral("\n") + h);
                group = h;
            }
            // Window titles are other programs' text: one arg() for all.
            ctx.print(QStringLiteral("  %1  %2  %3")
                          .arg(o.id.leftJustified(idWidth),
                               o.title.left(48).leftJustified(titleWidth), o.subtitle));
            ctx.event({{QStringLiteral("event"), QStringLiteral("target")},
                       {QStringLiteral("id"), o.id},
                       {QStringLiteral("title"), o.title},
                       {QStringLiteral("subtitle"), o.subtitle},
                       {QStringLiteral("kind"), o.kind.name()}});
        }
        ctx.finish(kExitOk);
    });
    store.reload();
    return ctx.exec();
}

} // namespace sorv::cli
