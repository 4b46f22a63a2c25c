#pragma once

#include "audio/audiotypes.h"
#include "core/backoff.h"
#include "transcript/livemessagehandler.h"
#include "transcript/livepcmframer.h"
#include "transcript/livetranscriptevent.h"

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>

class QWebSocket;

namespace sorv {

class SerialQueue;

// Carries a recording's mixed audio to the live-transcript service over a
// WebSocket and reports what the service answers as LiveTranscriptEvents.
//
// One connection at a time: the audio goes out as 16 kHz 16-bit frames of
// 120 ms, a ping goes out every kKeepaliveInterval, a lost connection is
// reconnected with back-off (1, 2, 4, 8, 16, then every 30 s), and a close
// with code 4001 (the access token expired) asks the owner for a fresh token
// before reconnecting. Given a way to learn the session's current token, it
// asks before each connection, so that one is not opened with a token that a
// refresh under way is about to replace. It knows nothing of segments or
// their display.
//
// A service that misbehaves costs a reconnect, never unbounded memory or a
// busy loop: a message over kMaxMessageBytes (in one frame or in many)
// closes the connection, and so does text arriving faster than the main
// thread takes it (more than kMaxUndeliveredChars on their way there); an
// opening handshake unanswered for kHandshakeTimeout is given up, and so is
// a ping unanswered for kPongTimeout or a connection that leaves more than
// kMaxUnwrittenBytes of audio unsent (the frames beyond are dropped); a
// 4001 close soon after a refresh (the fresh token refused as well) waits
// out the back-off before the next one.
//
// All its state is confined to the queue "com.sorvelandrix.audio.streamer";
// the public operations may be called from any thread and return at once.
// Events reach onTranscriptUpdate on the main thread, in order.
class LiveAudioStreamer : public QObject {
    Q_OBJECT

public:
    static inline const QString kQueueLabel = QStringLiteral("com.sorvelandrix.audio.streamer");
    static constexpr int kAuthExpiredCloseCode = 4001;
    // A ping this often, whether audio flows or not.
    static constexpr std::chrono::seconds kKeepaliveInterval{15};
    // A ping unanswered this long: the connection is stalled.
    static constexpr std::chrono::seconds kPongTimeout{10};
    // Audio handed to the socket and not yet written out, frame headers
    // included: at most 2 s of the stream.
    static constexpr qint64 kMaxUnwrittenBytes = qint64{2} * LivePcmFramer::kSampleRate * 2;
    static constexpr std::chrono::milliseconds kStopGrace{500};
    static constexpr qint64 kMaxMessageBytes = qint64{1} << 20;
    static constexpr qint64 kMaxUndeliveredChars = qint64{4} << 20;
    static constexpr std::chrono::seconds kHandshakeTimeout{15};
    // A 4001 this soon after a refresh is no expired token.
    static constexpr std::chrono::seconds kRecentRefresh{60};
    // Audio made while a connection is being opened (or its token awaited)
    // waits for it, up to this many frames (10 s); the oldest go first.
    static constexpr std::size_t kMaxFramesWhileConnecting = 84;
    static constexpr Backoff kReconnectBackoff =
        Backoff::doubling(std::chrono::seconds(1), std::chrono::seconds(30));

    using Clock = std::chrono::steady_clock;
    // Where time comes from: the real clock and Qt timers, or a clock a test
    // controls. `after` runs its function once the delay has passed; the
    // function may be run from any thread (it re-enters the queue itself).
    struct Timing {
        std::function<Clock::time_point()> now;
        std::function<void(std::chrono::milliseconds delay, std::function<void()> fn)> after;
    };

    using TranscriptCallback = std::function<void(const LiveTranscriptEvent&)>;
    using TokenReply = std::function<void(std::optional<QString> token)>;
    // Asked, on the main thread, for a new access token after a 4001 close;
    // answers, on the main thread, with the token or nothing.
    using AuthNeededCallback = std::function<void(TokenReply reply)>;
    using AudioInput = std::function<void(const AudioBuffer&)>;

    explicit LiveAudioStreamer(QObject* parent = nullptr);
    explicit LiveAudioStreamer(Timing timing, QObject* parent = nullptr);
    ~LiveAudioStreamer() override;

    // Set by the owner before start(); used on the main thread.
    TranscriptCallback onTranscriptUpdate;
    AuthNeededCallback onAuthNeeded;

    // Connects to the service at `serverURL` (its origin) with the token and
    // the language hints; ignored while already active. With `currentToken`
    // (called on the main thread, answering there) each connection opens
    // with the token it answers; no answer ends the stream as a failed
    // refresh does.
    void start(const QString& serverURL, const QString& token, const QStringList& languageHints,
               const AuthNeededCallback& currentToken = {});
    // Sends the end-of-stream sentinel and closes 500 ms later.
    void stop();
    // One mixed buffer (32-bit float, 48 kHz, mono); the samples are copied
    // before it returns. From any thread.
    void sendAudio(const AudioBuffer& buffer);
    void sendAudio(std::span<const float> samples);

    // The same as sendAudio(), as a function that may outlive the streamer
    // (a recorder's tap): once the streamer is gone it does nothing.
    AudioInput audioInput();

    // Snapshots from the queue, for tests and measurements (they wait for it).
    std::int64_t reconnectAttempts() const;
    bool isActive() const;
    // Frames of audio that never reached the service since start().
    std::int64_t droppedFrames() const;

    // The connection URL: the origin with every "/" trimmed from both ends,
    // "https://" → "wss://", "http://" → "ws://", then the path and the
    // token, appended as it is.
    static QString connectionUrlText(const QString& serverURL, const QString& token);
    // The URL for the log: the token's value replaced by "…", cut to 80
    // characters with "…" after them.
    static QString loggedUrl(const QString& urlText, const QString& token);

private:
    using TokenFinish = void (LiveAudioStreamer::*)(std::uint64_t, const std::optional<QString>&);

    void openConnection();
    void connectSocket();
    void sendInitialConfig();
    void convert(std::span<const float> samples);
    void sendFrame(const QByteArray& frame);
    // False when the oldest waiting frame had to go.
    bool queueFrame(const QByteArray& frame);
    bool fitsInSocket(const QByteArray& frame);
    void writeFrame(const QByteArray& frame);
    void sendWaitingFrames();
    void dropFrames(std::int64_t count);
    void endDropEpisode();
    void startKeepalive();
    void keepaliveTick(std::uint64_t generation);
    void pongOverdue(std::uint64_t ping);
    void handleText(const QString& text);
    // `broken`: the socket failed (no close frame can go out on it).
    void handleDisconnect(const std::optional<QString>& error, bool broken = false);
    void handshakeTimedOut(std::uint64_t serial);
    void askForToken(std::uint64_t session);
    TokenReply tokenReply(std::uint64_t session, TokenFinish finish);
    void finishRefresh(std::uint64_t session, const std::optional<QString>& token);
    void finishTokenWait(std::uint64_t session, const std::optional<QString>& token);
    void authenticationFailed();
    void orderlyStop();
    void closeConnection(int code, const QString& reason);
    void tearDown(bool broken);
    void deliver(LiveTranscriptEvent event);
    void deliver(std::vector<LiveTranscriptEvent>& events);
    void after(std::chrono::milliseconds delay, std::function<void()> fn);
    bool onQueue() const;

    Timing m_timing;
    QPointer<const QObject> m_self;
    // Characters of the events posted to the main thread and not yet taken.
    std::atomic<qint64> m_undeliveredChars{0};

    // ---- confined to the queue ----
    QWebSocket* m_socket = nullptr;
    bool m_socketOpen = false;
    // Bumped for every socket, so that signals and timers of an earlier one
    // are told apart.
    std::uint64_t m_socketSerial = 0;
    // Frames waiting for a connection to open, or for an open one to take
    // what waited.
    std::deque<QByteArray> m_waitingFrames;
    bool m_droppedWhileConnecting = false;
    bool m_awaitingToken = false;
    AuthNeededCallback m_currentToken; // called on the main thread only
    std::int64_t m_droppedFrames = 0;
    // Dropped since frames last reached the socket (logged once flow resumes).
    std::int64_t m_droppedInEpisode = 0;
    LivePcmFramer m_framer;
    LiveMessageHandler m_messages;
    bool m_isActive = false;
    QString m_serverURL;
    QString m_token;
    QStringList m_languageHints{QStringLiteral("it"), QStringLiteral("en")};
    int m_reconnectAttempts = 0;
    std::optional<Clock::time_point> m_lastRefreshAt;
    Clock::time_point m_lastAudioSentAt{};
    std::uint64_t m_keepaliveSerial = 0;
    std::optional<double> m_pingSilence; // a ping is out, sent after this silence
    std::uint64_t m_pingSerial = 0;
    std::int64_t m_pongs = 0;
    // Bumped by start and stop: a retry or refresh of an earlier run does nothing.
    std::uint64_t m_session = 0;

    // Last, so it is shut down (in the destructor) while the state above lives.
    std::shared_ptr<SerialQueue> m_queue;
};

} // namespace sorv
