// sorvelandrix meetings · join URL · stop-bot ID: the meeting bot.

#include "cli/command.h"
#include "cli/session.h"
#include "core/secretstore.h"
#include "service/apiclient.h"
#include "service/authmanager.h"

#include <QCoreApplication>
#include <QJsonObject>

using namespace sorv;
using namespace sorv::cli;

namespace {

const QString kBotName = QStringLiteral("Sorvelandrix Recorder");

QJsonObject meetingEvent(const Meeting& m)
{
    return {{QStringLiteral("event"), QStringLiteral("meeting")},
            {QStringLiteral("id"), m.id},
            {QStringLiteral("status"), m.status},
            {QStringLiteral("platform"), m.platform},
            {QStringLiteral("meetingCode"), m.meeting_code},
            {QStringLiteral("meetingUrl"), m.meeting_url.value_or(QString())}};
}

int listMeetings(CommandContext& ctx)
{
    SecretStore secrets;
    AuthManager auth(secrets);
    if (!requireSignedIn(auth, ctx))
        return kExitFailure;
    APIClient client(auth);
    client.fetchMeetings(&auth, [&ctx](const QList<Meeting>& meetings) {
        if (meetings.isEmpty())
            ctx.print(QStringLiteral("No meetings."));
        for (const Meeting& m : meetings) {
            ctx.print(QStringLiteral("%1  %2  %3  %4")
                          .arg(m.id, -36)
                          .arg(m.status, -10)
                          .arg(m.platform, -11)
                          .arg(m.meeting_url.value_or(m.meeting_code)));
            ctx.event(meetingEvent(m));
        }
        QCoreApplication::exit(kExitOk);
    });
    return QCoreApplication::exec();
}

int join(CommandContext& ctx)
{
    if (ctx.args.size() != 1) {
        ctx.error(QStringLiteral("Usage: sorvelandrix join URL"));
        return kExitUsage;
    }
    SecretStore secrets;
    AuthManager auth(secrets);
    if (!requireSignedIn(auth, ctx))
        return kExitFailure;
    APIClient client(auth);
    client.joinMeeting(
        ctx.args.at(0).trimmed(), kBotName, &auth, [&ctx](const ApiResult<Meeting>& result) {
            if (!result.ok()) {
                ctx.error(result.error().description());
                QCoreApplication::exit(kExitFailure);
                return;
            }
            const Meeting& m = result.value();
            ctx.print(QStringLiteral("Bot sent! Meeting %1 (%2).").arg(m.id, m.status));
            ctx.event(meetingEvent(m));
            QCoreApplication::exit(kExitOk);
        });
    return QCoreApplication::exec();
}

int stopBot(CommandContext& ctx)
{
    if (ctx.args.size() != 1) {
        ctx.error(QStringLiteral("Usage: sorvelandrix stop-bot ID"));
        return kExitUsage;
    }
    SecretStore secrets;
    AuthManager auth(secrets);
    if (!requireSignedIn(auth, ctx))
        return kExitFailure;
    APIClient client(auth);
    const QString id = ctx.args.at(0);
    client.stopMeeting(id, &auth, [&ctx, id](const std::optional<APIError>& error) {
        if (error) {
            ctx.error(error->description());
            QCoreApplication::exit(kExitFailure);
            return;
        }
        ctx.print(QStringLiteral("Bot stopped."));
        ctx.event(
            {{QStringLiteral("event"), QStringLiteral("stopped")}, {QStringLiteral("id"), id}});
        QCoreApplication::exit(kExitOk);
    });
    return QCoreApplication::exec();
}

const CommandRegistration meetingsRegistration({
    QStringLiteral("meetings"),
    QStringLiteral("meetings"),
    QStringLiteral("list your meeting bots"),
    listMeetings,
});
const CommandRegistration joinRegistration({
    QStringLiteral("join"),
    QStringLiteral("join URL"),
    QStringLiteral("send the meeting bot into a Google Meet, Zoom, Teams or Webex meeting"),
    join,
});
const CommandRegistration stopRegistration({
    QStringLiteral("stop-bot"),
    QStringLiteral("stop-bot ID"),
    QStringLiteral("take the meeting bot out of its meeting"),
    stopBot,
});

} // namespace
