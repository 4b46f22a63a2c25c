// /api/meetings/{id}/live: the meeting bot's live transcript as a
// server-sent event stream, from the service's side.

#include "meetingstreamendpoint.h"

#include "localservice/endpoints.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <iterator>

namespace sorv::local {

namespace {

struct Line {
    const char* speaker;
    const char* text;
};

// Three people; the third is named by her elements themselves rather than
// by the speaker names.
constexpr Line kConversation[] = {
    {"0", "Good morning everyone, thanks for joining so early."},
    {"1", "Morning! Shall we start with the release?"},
    {"2", "Sure. The build passed last night and the installers are ready."},
    {"0", "Great news. Is anything still blocking us?"},
    {"1", "Only the translations, which are due on Thursday."},
    {"2", "I can help with those this afternoon."},
};
constexpr qsizetype kWordsPerPiece = 3;
constexpr int kBeatsPerComment = 8;

QByteArray event(const char* name, const QJsonObject& payload)
{
    return QByteArray("event: ") + name +
           "\ndata: " + QJsonDocument(payload).toJson(QJsonDocument::Compact) + "\n\n";
}

} // namespace

MeetingStreamScript& MeetingStreamScript::data(const QJsonObject& payload)
{
    return raw("data: " + QJsonDocument(payload).toJson(QJsonDocument::Compact) + "\n\n");
}

MeetingStreamScript& MeetingStreamScript::raw(const QByteArray& bytes)
{
    steps.push_back({Step::Action::Write, bytes, {}});
    return *this;
}

MeetingStreamScript& MeetingStreamScript::pause(std::chrono::milliseconds delay)
{
    steps.push_back({Step::Action::Pause, {}, delay});
    return *this;
}

MeetingStreamScript& MeetingStreamScript::end()
{
    steps.push_back({Step::Action::End, {}, {}});
    return *this;
}

MeetingStreamScript& MeetingStreamScript::drop()
{
    steps.push_back({Step::Action::Drop, {}, {}});
    return *this;
}

MeetingStreamEndpoint::MeetingStreamEndpoint(ServiceState& state) : m_state(state) {}

void MeetingStreamEndpoint::addRoutes(Router& router)
{
    router.addResponseStream(
        "GET", QStringLiteral("/api/meetings/{}/live"),
        signedIn<ResponseStream>(
            m_state, [this](const ServiceRequest& request, const Account& account,
                            ResponseStream& stream) { return serve(request, account, stream); }));
}

void MeetingStreamEndpoint::queueScript(MeetingStreamScript script)
{
    std::lock_guard lock(m_mutex);
    m_scripts.push_back(std::move(script));
}

int MeetingStreamEndpoint::streamsServed() const
{
    std::lock_guard lock(m_mutex);
    return m_streamsServed;
}

std::optional<MeetingStreamScript> MeetingStreamEndpoint::takeScript()
{
    std::lock_guard lock(m_mutex);
    ++m_streamsServed;
    if (m_scripts.empty())
        return std::nullopt;
    MeetingStreamScript script = std::move(m_scripts.front());
    m_scripts.pop_front();
    return script;
}

std::optional<ServiceResponse> MeetingStreamEndpoint::serve(const ServiceRequest& request,
                                                            const Account& account,
                                                            ResponseStream& stream)
{
    const QString id = request.params.value(0);
    if (m_state.db()
            .query("SELECT id FROM meetings WHERE id = ? AND account_id = ?", {id, account.id})
            .empty())
        return ServiceResponse::detail(404, QStringLiteral("Meeting not found"));
    if (!stream.begin(200, {{"Content-Type", "text/event-stream"}, {"Cache-Control", "no-cache"}}))
        return std::nullopt;
    if (std::optional<MeetingStreamScript> script = takeScript())
        runScript(*script, stream);
    else
        runConversation(id, stream);
    return std::nullopt;
}

void MeetingStreamEndpoint::runScript(const MeetingStreamScript& script, ResponseStream& stream)
{
    for (const MeetingStreamScript::Step& step : script.steps) {
        switch (step.action) {
        case MeetingStreamScript::Step::Action::Write:
            if (!stream.write(step.bytes))
                return;
            break;
        case MeetingStreamScript::Step::Action::Pause:
            if (!stream.wait(step.pause))
                return;
            break;
        case MeetingStreamScript::Step::Action::End:
            stream.end();
            return;
        case MeetingStreamScript::Step::Action::Drop:
            stream.drop();
            return;
        }
    }
    while (stream.wait(std::chrono::seconds(1))) {
    }
}

void MeetingStreamEndpoint::runConversation(const QString& meetingId, ResponseStream& stream)
{
    if (!stream.write(": live transcript of meeting " + meetingId.toUtf8() + "\n\n"))
        return;
    QString sentStatus;
    bool namesSent = false;
    std::size_t line = 0;
    qsizetype piece = 0;
    QString lineStart;
    for (int beat = 1;; ++beat) {
        const auto rows = m_state.db().query(
            "SELECT created_ms, ended_ms FROM meetings WHERE id = ?", {meetingId});
        if (rows.empty()) {
            stream.end();
            return;
        }
        const QString status = meetingStatusOf(rows[0][0], rows[0][1], m_state.meetingPhase());
        if (status != sentStatus) {
            sentStatus = status;
            if (!stream.write(event("status", {{QStringLiteral("type"), QStringLiteral("status")},
                                               {QStringLiteral("status"), status}})))
                return;
        }
        // Stopped: what was said stays said, and the stream is over.
        if (!rows[0][1].isNull()) {
            stream.end();
            return;
        }
        if (status == QLatin1String("recording") && !namesSent) {
            namesSent = true;
            const QJsonObject names{{QStringLiteral("0"), QStringLiteral("Alex")},
                                    {QStringLiteral("1"), QStringLiteral("Sam")}};
            if (!stream.write(event("speaker_names",
                                    {{QStringLiteral("type"), QStringLiteral("speaker_names")},
                                     {QStringLiteral("names"), names}})))
                return;
        } else if (status == QLatin1String("recording")) {
            const Line& spoken = kConversation[line % std::size(kConversation)];
            const QStringList words = QString::fromUtf8(spoken.text).split(QLatin1Char(' '));
            const qsizetype pieces = (words.size() + kWordsPerPiece - 1) / kWordsPerPiece;
            if (piece == 0)
                lineStart = ServiceState::timestamp(ServiceState::nowMs());
            const bool final = piece + 1 >= pieces;
            QJsonObject element{
                {QStringLiteral("speaker"), QString::fromLatin1(spoken.speaker)},
                {QStringLiteral("text"),
                 words.mid(piece * kWordsPerPiece, kWordsPerPiece).join(QLatin1Char(' '))},
                {QStringLiteral("is_final"), final},
                {QStringLiteral("absolute_start_time"), lineStart},
            };
            if (qstrcmp(spoken.speaker, "2") == 0)
                element.insert(QStringLiteral("display_name"), QStringLiteral("Priya"));
            if (!stream.write(
                    event("transcript", {{QStringLiteral("type"), QStringLiteral("transcript")},
                                         {QStringLiteral("segments"), QJsonArray{element}}})))
                return;
            if (final) {
                ++line;
                piece = 0;
            } else {
                ++piece;
            }
        }
        if (beat % kBeatsPerComment == 0 && !stream.write(": keepalive\n\n"))
            return;
        if (!stream.wait(m_state.options().meetingStreamPace))
            return;
    }
}

} // namespace sorv::local
