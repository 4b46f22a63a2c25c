#pragma once

#include "localservice/livescript.h"
#include "localservice/meetingstreamscript.h"
#include "localservice/requestscripts.h"
#include "localservice/serviceoptions.h"

#include <cstdint>
#include <memory>

namespace sorv::local {

// The local implementation of the service's API, on 127.0.0.1. Used both by
// the sorvelandrix-local-service executable and in-process by tests. Its
// state (accounts, tokens, recordings, meetings) lives in SQLite under the
// data directory and survives a restart.
class LocalService {
public:
    using Options = ServiceOptions;
    static inline const QString kDemoEmail = local::kDemoEmail;
    static inline const QString kDemoPassword = local::kDemoPassword;

    explicit LocalService(Options options);
    ~LocalService();
    LocalService(const LocalService&) = delete;
    LocalService& operator=(const LocalService&) = delete;

    // Port 0 picks a free one. False (with the reason) when it cannot listen.
    bool start(std::uint16_t port = 0, QString* error = nullptr);
    // Closes the listener and every open connection; waits for them.
    void stop();
    std::uint16_t port() const;
    QString origin() const; // "http://127.0.0.1:{port}"

    // ---- scripting, for tests ----
    // Queues a one-shot answer for `method` + `path` (no query); answers are
    // used in the order they were queued.
    void script(const QByteArray& method, const QString& path, ScriptedAnswer answer);
    void clearScripts();
    QList<LoggedRequest> requestLog() const;
    int requestCount(const QByteArray& method, const QString& path) const;
    void clearRequestLog();

    // The live WebSocket: the next connection follows this script instead
    // of transcribing; scripts are used in the order they were queued.
    void scriptLive(LiveScript script);
    // Every live connection so far, oldest first.
    QList<LiveSession> liveSessions() const;
    // Audio frames received over all live connections.
    int liveFramesReceived() const;

    // A meeting's event stream: the next stream (after the token and the
    // meeting were checked) follows this script instead of the bot's
    // conversation; scripts are used in the order they were queued.
    void scriptMeetingStream(MeetingStreamScript script);
    // Meeting event streams answered with 200 so far.
    int meetingStreamsServed() const;

    // ---- state, for tests and the console ----
    QString lastMfaCode() const;
    // The update appcast's address, the version it offers and the public key
    // (base64) its enclosure is signed with; after start().
    QString appcastUrl() const;
    QString appcastVersion() const;
    QString appcastPublicKey() const;
    void setAccessTokenLifetime(std::chrono::seconds lifetime);
    // Every access token issued so far stops working (refresh tokens stay).
    void expireAccessTokens();
    // Adds a finished recording to an account's list.
    QString addRecording(const QString& email, const QString& filename, qint64 durationMs,
                         const QString& title = {});
    // A meeting bot sent into a meeting on an account's behalf; returns its id.
    QString addMeeting(const QString& email, const QString& meetingUrl);
    // Another account beside the demo one; returns its id.
    QString addAccount(const QString& email, const QString& name, const QString& password);

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace sorv::local
