// /api/meetings: the simulated meeting bot. A bot walks through "joining",
// "in_meeting" and "recording", one phase each, derived from its age, so
// no timer is needed and a restart keeps the story straight.

#include "localservice/endpoints.h"

#include <QJsonArray>
#include <QRegularExpression>
#include <QUrl>

namespace sorv::local {

namespace {

struct MeetingLink {
    QString platform;
    QString code;
};

std::optional<MeetingLink> recogniseLink(const QString& text)
{
    const QUrl url(text.trimmed(), QUrl::StrictMode);
    if (!url.isValid() ||
        (url.scheme() != QLatin1String("https") && url.scheme() != QLatin1String("http")))
        return std::nullopt;
    const QString host = url.host().toLower();
    const QString path = url.path();
    const auto match = [&path](const char* pattern) {
        return QRegularExpression(QString::fromLatin1(pattern)).match(path);
    };
    if (host == QLatin1String("meet.google.com")) {
        if (const auto m = match(R"(^/([a-z]{3}-[a-z]{4}-[a-z]{3})/?$)"); m.hasMatch())
            return MeetingLink{QStringLiteral("google_meet"), m.captured(1)};
    } else if (host == QLatin1String("zoom.us") || host.endsWith(QLatin1String(".zoom.us"))) {
        if (const auto m = match(R"(^/(?:j|wc/join|s)/(\d{9,11})/?$)"); m.hasMatch())
            return MeetingLink{QStringLiteral("zoom"), m.captured(1)};
    } else if (host == QLatin1String("teams.microsoft.com")) {
        if (const auto m = match(R"(^/l/meetup-join/([^/]+))"); m.hasMatch())
            return MeetingLink{QStringLiteral("teams"), m.captured(1).left(32)};
    } else if (host == QLatin1String("teams.live.com")) {
        if (const auto m = match(R"(^/meet/(\d+)/?$)"); m.hasMatch())
            return MeetingLink{QStringLiteral("teams"), m.captured(1)};
    } else if (host.endsWith(QLatin1String(".webex.com"))) {
        if (const auto m = match(R"(^/(?:meet|join|[^/]+/j\.php)/?([^/]*)/?$)"); m.hasMatch()) {
            const QString code = m.captured(1).isEmpty() ? url.query() : m.captured(1);
            if (!code.isEmpty())
                return MeetingLink{QStringLiteral("webex"), code.left(64)};
        }
    }
    return std::nullopt;
}

constexpr const char* kMeetingColumns =
    "id, meeting_url, meeting_code, platform, bot_name, created_ms, ended_ms, transcription_id";

QJsonObject meetingJson(const Database::Row& row, std::chrono::milliseconds phase)
{
    const auto orNull = [](const QVariant& v) {
        return v.isNull() ? QJsonValue() : QJsonValue(v.toString());
    };
    return {
        {QStringLiteral("id"), row[0].toString()},
        {QStringLiteral("meeting_url"), row[1].toString()},
        {QStringLiteral("meeting_code"), row[2].toString()},
        {QStringLiteral("platform"), row[3].toString()},
        {QStringLiteral("status"), meetingStatusOf(row[5], row[6], phase)},
        {QStringLiteral("bot_name"), orNull(row[4])},
        {QStringLiteral("created_at"), ServiceState::timestamp(row[5].toLongLong())},
        {QStringLiteral("ended_at"),
         row[6].isNull() ? QJsonValue() : QJsonValue(ServiceState::timestamp(row[6].toLongLong()))},
        {QStringLiteral("transcription_id"), orNull(row[7])},
        {QStringLiteral("error_message"), QJsonValue()},
    };
}

} // namespace

QString meetingStatusOf(const QVariant& createdMs, const QVariant& endedMs,
                        std::chrono::milliseconds phase)
{
    if (!endedMs.isNull())
        return QStringLiteral("completed");
    const qint64 age = ServiceState::nowMs() - createdMs.toLongLong();
    if (age < phase.count())
        return QStringLiteral("joining");
    if (age < 2 * phase.count())
        return QStringLiteral("in_meeting");
    return QStringLiteral("recording");
}

void addMeetingEndpoints(Router& router, ServiceState& state)
{
    router.add("GET", QStringLiteral("/api/meetings"),
               signedIn(state, [&state](const ServiceRequest&, const Account& account) {
                   const QByteArray sql =
                       QByteArray("SELECT ") + kMeetingColumns +
                       " FROM meetings WHERE account_id = ? ORDER BY created_ms DESC, rowid DESC";
                   QJsonArray list;
                   for (const auto& row : state.db().query(sql.constData(), {account.id}))
                       list.append(meetingJson(row, state.meetingPhase()));
                   return ServiceResponse::json(200, list);
               }));

    router.add(
        "POST", QStringLiteral("/api/meetings/join"),
        signedIn(state, [&state](const ServiceRequest& request, const Account& account) {
            const QJsonObject body = request.jsonObject();
            const QString link = body.value(QLatin1String("meeting_url")).toString().trimmed();
            if (link.isEmpty())
                return ServiceResponse::detail(422, QStringLiteral("A meeting link is required."));
            const std::optional<MeetingLink> meeting = recogniseLink(link);
            if (!meeting)
                return ServiceResponse::detail(
                    422, QStringLiteral("This is not a Google Meet, Zoom, Microsoft Teams or "
                                        "Webex meeting link."));
            const QString id = ServiceState::newId();
            const QString botName = body.value(QLatin1String("bot_name")).toString();
            Database& db = state.db();
            std::lock_guard lock(db.lock());
            db.exec("INSERT INTO meetings(id, account_id, meeting_url, meeting_code, platform, "
                    "bot_name, language,"
                    " created_ms) VALUES(?, ?, ?, ?, ?, ?, ?, ?)",
                    {id, account.id, link, meeting->code, meeting->platform,
                     botName.isEmpty() ? QVariant() : QVariant(botName),
                     body.value(QLatin1String("language")).toString(), ServiceState::nowMs()});
            const QByteArray sql =
                QByteArray("SELECT ") + kMeetingColumns + " FROM meetings WHERE id = ?";
            return ServiceResponse::json(
                201, meetingJson(db.query(sql.constData(), {id}).at(0), state.meetingPhase()));
        }));

    router.add(
        "POST", QStringLiteral("/api/meetings/{}/stop"),
        signedIn(state, [&state](const ServiceRequest& request, const Account& account) {
            const QString id = request.params.value(0);
            Database& db = state.db();
            std::lock_guard lock(db.lock());
            const QByteArray select = QByteArray("SELECT ") + kMeetingColumns +
                                      " FROM meetings WHERE id = ? AND account_id = ?";
            auto rows = db.query(select.constData(), {id, account.id});
            if (rows.empty())
                return ServiceResponse::detail(404, QStringLiteral("Meeting not found"));
            if (rows[0][6].isNull()) {
                // What the bot heard becomes a recording on the account.
                const QString recording = state.addRecording(
                    account.id, QStringLiteral("meeting_%1.wav").arg(rows[0][2].toString()),
                    QStringLiteral("completed"), ServiceState::nowMs() - rows[0][5].toLongLong(),
                    QStringLiteral("Meeting %1").arg(rows[0][2].toString()));
                db.exec("UPDATE meetings SET ended_ms = ?, transcription_id = ? WHERE id = ?",
                        {ServiceState::nowMs(), recording, id});
                rows = db.query(select.constData(), {id, account.id});
            }
            return ServiceResponse::json(200, meetingJson(rows.at(0), state.meetingPhase()));
        }));
}

} // namespace sorv::local
