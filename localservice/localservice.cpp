#include "localservice.h"

#include "localservice/endpoints.h"
#include "localservice/liveendpoints.h"
#include "localservice/meetingstreamendpoint.h"
#include "localservice/transport.h"
#include "localservice/updateendpoints.h"

#include <QUrl>

namespace sorv::local {

// The composition: the state, the endpoint groups on the router, and the
// transport in front of them.
struct LocalService::Impl {
    explicit Impl(Options options)
        : state(std::move(options)), transport(state.options(), router, scripts)
    {}

    ServiceState state;
    Router router;
    RequestScripts scripts;
    UpdateEndpoints updates{state};
    LiveEndpoint live{state};
    MeetingStreamEndpoint meetingStream{state};
    Transport transport;
};

LocalService::LocalService(Options options) : d(std::make_unique<Impl>(std::move(options)))
{
    Router& router = d->router;
    addAuthEndpoints(router, d->state);
    addRecordingEndpoints(router, d->state);
    addMeetingEndpoints(router, d->state);
    addUploadEndpoints(router, d->state);
    addPasskeyEndpoints(router, d->state);
    d->updates.addRoutes(router);
    d->live.addRoutes(router);
    d->meetingStream.addRoutes(router);
}

LocalService::~LocalService()
{
    stop();
}

bool LocalService::start(std::uint16_t port, QString* error)
{
    return d->transport.isListening() ||
           (d->state.open(error) && d->updates.open(error) && d->transport.start(port, error));
}

void LocalService::stop()
{
    d->transport.stop();
}

std::uint16_t LocalService::port() const
{
    return d->transport.port();
}

QString LocalService::origin() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(port());
}

void LocalService::script(const QByteArray& method, const QString& path, ScriptedAnswer answer)
{
    d->scripts.queue(method, path, std::move(answer));
}

void LocalService::clearScripts()
{
    d->scripts.clear();
}

QList<LoggedRequest> LocalService::requestLog() const
{
    return d->scripts.requests();
}

int LocalService::requestCount(const QByteArray& method, const QString& path) const
{
    return d->scripts.count(method, path);
}

void LocalService::clearRequestLog()
{
    d->scripts.clearLog();
}

QString LocalService::lastMfaCode() const
{
    return d->state.lastMfaCode();
}

QString LocalService::appcastUrl() const
{
    return origin() + UpdateEndpoints::kAppcastPath;
}

QString LocalService::appcastVersion() const
{
    return d->updates.version();
}

QString LocalService::appcastPublicKey() const
{
    return d->updates.publicKeyBase64();
}

void LocalService::setAccessTokenLifetime(std::chrono::seconds lifetime)
{
    d->state.setAccessTokenLifetime(lifetime);
}

void LocalService::expireAccessTokens()
{
    d->state.db().exec("UPDATE tokens SET expires_ms = 0 WHERE kind = 'access'");
}

QString LocalService::addRecording(const QString& email, const QString& filename, qint64 durationMs,
                                   const QString& title)
{
    const std::optional<Account> account = d->state.accountByEmail(email);
    if (!account)
        return {};
    return d->state.addRecording(account->id, filename, QStringLiteral("completed"), durationMs,
                                 title);
}

QString LocalService::addAccount(const QString& email, const QString& name, const QString& password)
{
    return d->state.addAccount(email, name, password);
}

void LocalService::scriptMeetingStream(MeetingStreamScript script)
{
    d->meetingStream.queueScript(std::move(script));
}

int LocalService::meetingStreamsServed() const
{
    return d->meetingStream.streamsServed();
}

QString LocalService::addMeeting(const QString& email, const QString& meetingUrl)
{
    const std::optional<Account> account = d->state.accountByEmail(email);
    if (!account)
        return {};
    QString id = ServiceState::newId();
    d->state.db().exec(
        "INSERT INTO meetings(id, account_id, meeting_url, meeting_code, platform, bot_name,"
        " language, created_ms) VALUES(?, ?, ?, ?, ?, ?, ?, ?)",
        {id, account->id, meetingUrl, QUrl(meetingUrl).path().section(QLatin1Char('/'), -1),
         QStringLiteral("google_meet"), QStringLiteral("Sorvelandrix Recorder"),
         QStringLiteral("en"), ServiceState::nowMs()});
    return id;
}

void LocalService::scriptLive(LiveScript script)
{
    d->live.queueScript(std::move(script));
}

QList<LiveSession> LocalService::liveSessions() const
{
    return d->live.sessions();
}

int LocalService::liveFramesReceived() const
{
    return d->live.framesReceived();
}

} // namespace sorv::local
