// sorvelandrix recordings

#include "cli/clisession.h"
#include "cli/command.h"
#include "cli/commands.h"
#include "service/recordingsmodel.h"

#include <QJsonObject>

namespace sorv::cli {
namespace {

int runRecordings(CommandContext& ctx)
{
    CliSession session(ctx);
    if (!session.requireSignedIn())
        return kExitFailure;
    RecordingsModel model(session.source());
    QObject::connect(&model, &RecordingsModel::refreshed, &model, [&] {
        if (!model.error().isEmpty()) {
            ctx.error(model.error());
            ctx.finish(kExitFailure);
            return;
        }
        if (model.rowCount() == 0)
            ctx.print(QStringLiteral("No recordings yet."));
        for (int row = 0; row < model.rowCount(); ++row) {
            const QModelIndex i = model.index(row);
            const auto text = [&](int role) { return model.data(i, role).toString(); };
            // One arg() for all: a title is not scanned for markers.
            ctx.print(QStringLiteral("%1  %2  %3  %4")
                          .arg(text(RecordingsModel::DateTextRole).leftJustified(6),
                               text(RecordingsModel::DurationTextRole).rightJustified(8),
                               text(RecordingsModel::TitleRole).left(48).leftJustified(48),
                               text(RecordingsModel::StatusRole)));
            ctx.event({{QStringLiteral("event"), QStringLiteral("recording")},
                       {QStringLiteral("id"), text(RecordingsModel::IdRole)},
                       {QStringLiteral("date"), text(RecordingsModel::DateTextRole)},
                       {QStringLiteral("duration"), text(RecordingsModel::DurationTextRole)},
                       {QStringLiteral("title"), text(RecordingsModel::TitleRole)},
                       {QStringLiteral("status"), text(RecordingsModel::StatusRole)},
                       {QStringLiteral("url"), text(RecordingsModel::WebAddressRole)}});
        }
        ctx.finish(kExitOk);
    });
    model.refresh();
    return ctx.exec();
}

} // namespace

Command recordingsCommand()
{
    return {QStringLiteral("recordings"), QStringLiteral("recordings"),
            QStringLiteral("list the recordings on your account"), runRecordings};
}

} // namespace sorv::cli
