#pragma once

#include "localservice/httpexchange.h"
#include "localservice/livescript.h"
#include "localservice/meetingstreamscript.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

namespace sorv::local {

// A request the service received, as it arrived.
struct LoggedRequest {
    QByteArray method;
    QString path;   // without the query
    QString target; // with the query
    HeaderList headers;
    QByteArray body; // empty for streamed bodies
    // Streamed bodies (uploads) are not kept; their size and SHA-256 are, once
    // the body has been read.
    qint64 streamedBodySize = 0;
    QByteArray streamedBodySha256;
    QByteArray header(const QByteArray& name) const;
};

// A one-shot answer that replaces the endpoint's own for the next matching
// request. Without a status the endpoint answers as usual, after the delay.
struct ScriptedAnswer {
    std::optional<int> status;
    HeaderList headers;
    QByteArray body;
    std::chrono::milliseconds delay{0};
    bool dropConnection = false; // close the connection without any answer

    static ScriptedAnswer reply(int status, QByteArray body = {}, HeaderList headers = {});
    static ScriptedAnswer json(int status, const QJsonObject& object);
    static ScriptedAnswer delayed(std::chrono::milliseconds delay);
    static ScriptedAnswer dropped();
};

// The local implementation of the service's API, on 127.0.0.1. Used both by
// the sorvelandrix-local-service executable and in-process by tests. Its
// state (accounts, tokens, recordings, meetings) lives in SQLite under the
// data directory and survives a restart.
class LocalService {
public:
    struct Options {
        QString dataDirectory;
        bool mfa = false; // sign-in asks for an e-mailed code
        std::chrono::seconds accessTokenLifetime{15 * 60};
        std::chrono::milliseconds meetingPhase{3000}; // time a bot spends in each start-up state
        std::chrono::milliseconds meetingStreamPace{400}; // between a meeting stream's events
        bool logRequests = false;                         // one console line per request
        std::chrono::milliseconds processingTime{5000};   // an upload's time in "processing"
        std::chrono::milliseconds idleTimeout{30000};     // a kept-alive connection's quiet time
        // A request head must be complete this long after the connection
        // opened (the first request) or after its first byte (later ones).
        std::chrono::milliseconds headerTimeout{30000};
        // Connections open at once; further ones wait in the listen queue
        // until one closes.
        int maxConnections = 512;
        // Live transcripts of English streams: pocketsphinx's models here
        // (empty: its own directory), decoded with this JSGF grammar instead
        // of the general language model when one is given.
        QString speechModelDirectory;
        QString speechGrammarFile;
        bool keepLiveAudio = false; // LiveSession::audio, for tests
        // Streamed request bodies (uploads) are read no faster than this (0:
        // as they come): a slow uplink, to watch an upload's progress.
        std::int64_t uploadBytesPerSecond = 0;
        // The update appcast (/updates/appcast.xml) offers this version
        // (empty: the service's own build version), signed with the Ed25519
        // private key in this PEM file (empty: one kept in the data
        // directory, made on the first start).
        QString appcastVersion;
        QString appcastKeyFile;
    };

    static inline const QString kDemoEmail = QStringLiteral("demo@sorvelandrix.local");
    static inline const QString kDemoPassword = QStringLiteral("demo");

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

    // For endpoint groups added in their own files; only before start().
    void addRoute(Route route);
    void addWebSocketRoute(const QString& pattern, WebSocketHandler handler);
    void addResponseStreamRoute(const QByteArray& method, const QString& pattern,
                                ResponseStreamHandler handler);

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace sorv::local
