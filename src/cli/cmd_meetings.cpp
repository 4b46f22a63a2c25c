// sorvelandrix meetings · join URL · stop-bot ID: the meeting bot.

#include "cli/clisession.h"
#include "cli/command.h"
#include "cli/commands.h"
#include "service/apiclient.h"
#include "service/meetingsmodel.h"

#include <QJsonObject>

namespace sorv::cli {
namespace {

const QString kBotName = QStringLiteral("Sorvelandrix Recorder");

QJsonObject meetingEvent(const Meeting& m)
{
    return {{QStringLiteral("event"), QStringLiteral("meeting")},
            {QStringLiteral("id"), m.id},
            {QStringLiteral("status"), m.status},
            {QStringLiteral("active"), MeetingsModel::isActive(m)},
            {QStringLiteral("platform"), m.platform},
            {QStringLiteral("meetingCode"), m.meeting_code},
            {QStringLiteral("meetingUrl"), m.meeting_url.value_or(QString())}};
}

int listMeetings(CommandContext& ctx)
{
    CliSession session(ctx);
    if (!session.requireSignedIn())
        return kExitFailure;
    MeetingsModel model(session.source());
    QObject::connect(&model, &MeetingsModel::refreshed, &model, [&] {
        if (!model.error().isEmpty()) {
            ctx.error(QStringLiteral("Could not fetch the meetings: %1").arg(model.error()));
            ctx.finish(kExitFailure);
            return;
        }
        if (model.items().isEmpty())
            ctx.print(QStringLiteral("No meetings."));
        for (const Meeting& m : model.items()) {
            ctx.print(
                // One arg() for all: the service's texts are not scanned for markers.
                QStringLiteral("%1 %2  %3  %4  %5")
                    .arg(MeetingsModel::isActive(m) ? QStringLiteral("●") : QStringLiteral(" "),
                         m.id.leftJustified(36), m.status.leftJustified(12),
                         m.platform.leftJustified(11), m.meeting_url.value_or(m.meeting_code)));
            ctx.event(meetingEvent(m));
        }
        ctx.finish(kExitOk);
    });
    model.refresh();
    return ctx.exec();
}

int join(CommandContext& ctx)
{
    if (ctx.args.size() != 1 || ctx.args.at(0).trimmed().isEmpty()) {
        ctx.error(QStringLiteral("Usage: sorvelandrix join URL"));
        return kExitUsage;
    }
    CliSession session(ctx);
    if (!session.requireSignedIn())
        return kExitFailure;
    APIClient client(session.auth());
    client.joinMeeting(ctx.args.at(0).trimmed(), kBotName, &session.auth(),
                       [&ctx](const ApiResult<Meeting>& result) {
                           if (!result.ok()) {
                               ctx.error(result.error().description());
                               ctx.finish(kExitFailure);
                               return;
                           }
                           const Meeting& m = result.value();
                           ctx.print(
                               QStringLiteral("Bot sent! Meeting %1 (%2).").arg(m.id, m.status));
                           ctx.event(meetingEvent(m));
                           ctx.finish(kExitOk);
                       });
    return ctx.exec();
}

int stopBot(CommandContext& ctx)
{
    if (ctx.args.size() != 1 || ctx.args.at(0).isEmpty()) {
        ctx.error(QStringLiteral("Usage: sorvelandrix stop-bot ID"));
        return kExitUsage;
    }
    CliSession session(ctx);
    if (!session.requireSignedIn())
        return kExitFailure;
    APIClient client(session.auth());
    const QString id = ctx.args.at(0);
    client.stopMeeting(id, &session.auth(), [&ctx, id](const std::optional<APIError>& error) {
        if (error) {
            ctx.error(error->description());
            ctx.finish(kExitFailure);
            return;
        }
        ctx.print(QStringLiteral("Bot stopped."));
        ctx.event(
            {{QStringLiteral("event"), QStringLiteral("stopped")}, {QStringLiteral("id"), id}});
        ctx.finish(kExitOk);
    });
    return ctx.exec();
}

} // namespace

Command meetingsCommand()
{
    return {QStringLiteral("meetings"), QStringLiteral("meetings"),
            QStringLiteral("list your meeting bots (● marks the active ones)"), listMeetings};
}

Command joinCommand()
{
    return {QStringLiteral("join"), QStringLiteral("join URL"),
            QStringLiteral("send the meeting bot into a Google Meet, Zoom, Teams or Webex meeting"),
            join};
}

Command stopBotCommand()
{
    return {QStringLiteral("stop-bot"), QStringLiteral("stop-bot ID"),
            QStringLiteral("take the meeting bot out of its meeting"), stopBot};
}

} // namespace sorv::cli
