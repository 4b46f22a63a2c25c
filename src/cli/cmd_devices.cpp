// sorvelandrix devices
//
// The microphones the sound server offers, as the recorder's picker lists
// them: the default first, then by name. The id is what `record --device`
// takes; it stays the same across restarts of the server and re-plugging.

#include "audio/inputdevicemonitor.h"
#include "cli/command.h"
#include "cli/commands.h"
#include "core/mainthread.h"

#include <QJsonObject>
#include <QPointer>

namespace sorv::cli {
namespace {

void printDevices(CommandContext& ctx, const InputDeviceMonitor::Snapshot& snapshot)
{
    if (!snapshot.serverAvailable) {
        ctx.error(QStringLiteral("Could not connect to the sound server"));
        ctx.finish(kExitFailure);
        return;
    }
    if (snapshot.devices.isEmpty())
        ctx.print(QStringLiteral("No microphones found."));
    for (const InputDevice& d : snapshot.devices) {
        ctx.print(QStringLiteral("%1  %2%3")
                      .arg(d.id, 10)
                      .arg(d.name, d.isDefault ? QStringLiteral(" (default)") : QString()));
        ctx.event({{QStringLiteral("event"), QStringLiteral("device")},
                   {QStringLiteral("id"), static_cast<qint64>(d.id)},
                   {QStringLiteral("name"), d.name},
                   {QStringLiteral("isDefault"), d.isDefault}});
    }
    ctx.finish(kExitOk);
}

} // namespace

int runDevices(CommandContext& ctx)
{
    if (!ctx.args.isEmpty()) {
        ctx.error(QStringLiteral("Unexpected argument %1\nUsage: sorvelandrix devices")
                      .arg(ctx.args.first()));
        return kExitUsage;
    }
    // The monitor answers once it has reached the server, or failed to.
    QObject anchor;
    const QPointer<const QObject> alive(&anchor);
    InputDeviceMonitor::Options options;
    options.backend = ctx.captureBackend;
    InputDeviceMonitor monitor(
        [&ctx, alive](const InputDeviceMonitor::Change& change) {
            if (change.first)
                postToMainThread(
                    alive, [&ctx, snapshot = change.snapshot] { printDevices(ctx, snapshot); });
        },
        options);
    return ctx.exec();
}

} // namespace sorv::cli
