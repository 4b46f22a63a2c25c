#include "liveaudiostreamer.h"

#include "core/log.h"
#include "core/mainthread.h"
#include "core/overloaded.h"
#include "core/serialqueue.h"
#include "service/requestrules.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringDecoder>
#include <QTimer>
#include <QUrl>
#include <QWebSocket>

#include <algorithm>
#include <variant>

namespace sorv {

namespace {

constexpr auto kLiveStreamPath = "/api/live/stream?token=";
// A client's binary frame of 126 to 65 535 bytes: two bytes, the length in
// two more, the mask in four.
constexpr qint64 kFrameHeaderBytes = 8;

// A socket we are done with: closed with the code if it is still open and
// deleted once the close handshake is over (or after a short while without
// one); a broken or unfinished one is dropped at once.
void dispose(QWebSocket* socket, QWebSocketProtocol::CloseCode code, const QString& reason = {},
             bool broken = false)
{
    if (broken || socket->state() != QAbstractSocket::ConnectedState) {
        socket->abort();
        socket->deleteLater();
        return;
    }
    socket->close(code, reason);
    if (socket->state() == QAbstractSocket::UnconnectedState) {
        socket->deleteLater();
        return;
    }
    QObject::connect(socket, &QWebSocket::disconnected, socket, &QObject::deleteLater);
    QTimer::singleShot(2000, socket, [socket] {
        socket->abort();
        socket->deleteLater();
    });
}

// The characters an event carries, and a little for the event itself.
qint64 textSize(const LiveTranscriptEvent& event)
{
    using namespace LiveEvent;
    const qint64 carried =
        std::visit(Overloaded{
                       [](const Connected& e) { return e.transcriptionId.size(); },
                       [](const Segment& e) { return e.speaker.size() + e.text.size(); },
                       [](const Partial& e) { return e.speaker.size() + e.text.size(); },
                       [](const SpeakerNames& e) {
                           qsizetype n = 0;
                           for (auto it = e.names.cbegin(); it != e.names.cend(); ++it)
                               n += it.key().size() + it.value().size();
                           return n;
                       },
                       [](const Status& e) { return e.status.size(); },
                       [](const Error& e) { return e.message.size(); },
                       [](const Disconnected&) { return qsizetype{0}; },
                   },
                   event);
    return 16 + carried;
}

} // namespace

LiveAudioStreamer::LiveAudioStreamer(QObject* parent) : LiveAudioStreamer(Timing{}, parent) {}

LiveAudioStreamer::LiveAudioStreamer(Timing timing, QObject* parent)
    : QObject(parent), m_timing(std::move(timing)), m_self(this),
      m_queue(std::make_shared<SerialQueue>(kQueueLabel))
{
    if (!m_timing.now)
        m_timing.now = [] { return Clock::now(); };
    if (!m_timing.after) {
        m_timing.after = [queue = m_queue.get()](std::chrono::milliseconds delay,
                                                 std::function<void()> fn) {
            // Called on the queue, whose thread runs the timer.
            QTimer::singleShot(delay, queue->context(), std::move(fn));
        };
    }
}

LiveAudioStreamer::~LiveAudioStreamer()
{
    m_queue->post([this] {
        m_isActive = false;
        ++m_session;
        ++m_keepaliveSerial;
        if (m_socket) {
            QObject::disconnect(m_socket, nullptr, m_queue->context(), nullptr);
            dispose(m_socket, QWebSocketProtocol::CloseCodeGoingAway);
            m_socket = nullptr;
        }
    });
    // Runs what is queued (the above last), then ends the thread; the
    // queue's timers and sockets go with it.
    m_queue->shutdown();
}

bool LiveAudioStreamer::onQueue() const
{
    return m_queue->isCurrent();
}

// ---- Public operations ---------------------------------------------------------

void LiveAudioStreamer::start(const QString& serverURL, const QString& token,
                              const QStringList& languageHints,
                              const AuthNeededCallback& currentToken)
{
    m_queue->post([this, serverURL, token, languageHints, currentToken] {
        if (m_isActive) {
            consoleLog(QStringLiteral("🌐 LiveAudioStreamer already active, ignoring start()"));
            return;
        }
        // The previous run's grace period ends here, quietly: its owner has
        // moved on to this run.
        if (m_socket) {
            QObject::disconnect(m_socket, nullptr, m_queue->context(), nullptr);
            dispose(m_socket, QWebSocketProtocol::CloseCodeNormal,
                    QStringLiteral("Client stopped"));
            m_socket = nullptr;
            m_socketOpen = false;
        }
        m_serverURL = serverURL;
        m_token = token;
        m_languageHints = languageHints;
        m_currentToken = currentToken;
        m_isActive = true;
        ++m_session;
        m_reconnectAttempts = 0;
        m_lastRefreshAt.reset();
        m_framer.clear();
        m_messages.reset();
        m_waitingFrames.clear();
        m_droppedWhileConnecting = false;
        m_droppedFrames = 0;
        m_droppedInEpisode = 0;
        m_pongs = 0;
        openConnection();
    });
}

void LiveAudioStreamer::stop()
{
    m_queue->post([this] { orderlyStop(); });
}

void LiveAudioStreamer::sendAudio(const AudioBuffer& buffer)
{
    sendAudio(std::span<const float>(buffer.samples));
}

void LiveAudioStreamer::sendAudio(std::span<const float> samples)
{
    m_queue->post(
        [this, copy = std::vector<float>(samples.begin(), samples.end())] { convert(copy); });
}

LiveAudioStreamer::AudioInput LiveAudioStreamer::audioInput()
{
    // Once the streamer is gone its queue takes no more work, so the raw
    // pointer inside is never used after that.
    return [queue = m_queue, self = this](const AudioBuffer& buffer) {
        queue->post([self, copy = buffer.samples] { self->convert(copy); });
    };
}

std::int64_t LiveAudioStreamer::reconnectAttempts() const
{
    std::int64_t n = 0;
    m_queue->postAndWait([this, &n] { n = m_reconnectAttempts; });
    return n;
}

bool LiveAudioStreamer::isActive() const
{
    bool active = false;
    m_queue->postAndWait([this, &active] { active = m_isActive; });
    return active;
}

std::int64_t LiveAudioStreamer::droppedFrames() const
{
    std::int64_t n = 0;
    m_queue->postAndWait([this, &n] { n = m_droppedFrames; });
    return n;
}

// ---- Rules -----------------------------------------------------------------------

QString LiveAudioStreamer::connectionUrlText(const QString& serverURL, const QString& token)
{
    QString base = trimmedOrigin(serverURL);
    base.replace(QLatin1String("https://"), QLatin1String("wss://"));
    base.replace(QLatin1String("http://"), QLatin1String("ws://"));
    return base + QLatin1String(kLiveStreamPath) + token;
}

QString LiveAudioStreamer::loggedUrl(const QString& urlText, const QString& token)
{
    QString shown = urlText;
    const QString query = QStringLiteral("?token=");
    const qsizetype at = shown.lastIndexOf(query);
    if (at >= 0 && !token.isEmpty())
        shown = shown.left(at + query.size()) + QStringLiteral("…");
    return shown.left(80) + QStringLiteral("…");
}

// ---- Connection --------------------------------------------------------------------

void LiveAudioStreamer::openConnection()
{
    Q_ASSERT(onQueue());
    if (!m_currentToken) {
        connectSocket();
        return;
    }
    // The audio meanwhile waits, as for a connection being opened.
    m_awaitingToken = true;
    postToMainThread(m_self, [reply = tokenReply(m_session, &LiveAudioStreamer::finishTokenWait),
                              ask = m_currentToken] { ask(reply); });
}

void LiveAudioStreamer::finishTokenWait(std::uint64_t session, const std::optional<QString>& token)
{
    Q_ASSERT(onQueue());
    if (session != m_session || !m_isActive)
        return;
    m_awaitingToken = false;
    if (!token || token->isEmpty()) {
        authenticationFailed();
        return;
    }
    m_token = *token;
    connectSocket();
}

void LiveAudioStreamer::connectSocket()
{
    Q_ASSERT(onQueue());
    const QString urlText = connectionUrlText(m_serverURL, m_token);
    const QUrl url(urlText, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty() ||
        (url.scheme() != QLatin1String("ws") && url.scheme() != QLatin1String("wss"))) {
        consoleLog(QStringLiteral("🌐 ❌ Invalid WebSocket URL"));
        deliver(LiveEvent::Error{
            QCoreApplication::translate("LiveAudioStreamer", "Invalid WebSocket URL")});
        return;
    }
    // The token stays out of the log.
    consoleLog(QStringLiteral("🌐 Connecting to ") + loggedUrl(urlText, m_token));
    deliver(LiveEvent::Status{QStringLiteral("connecting")});

    if (m_socket) {
        QObject::disconnect(m_socket, nullptr, m_queue->context(), nullptr);
        dispose(m_socket, QWebSocketProtocol::CloseCodeGoingAway);
    }
    m_socket = new QWebSocket(QString(), QWebSocketProtocol::VersionLatest, m_queue->context());
    m_socket->setMaxAllowedIncomingMessageSize(quint64(kMaxMessageBytes));
    m_socket->setMaxAllowedIncomingFrameSize(quint64(kMaxMessageBytes));
    m_socketOpen = false;
    m_pingSilence.reset();
    m_droppedWhileConnecting = false;
    const std::uint64_t serial = ++m_socketSerial;
    QWebSocket* socket = m_socket;
    QObject* context = m_queue->context();
    const auto current = [this, serial] { return serial == m_socketSerial && m_socket; };

    connect(socket, &QWebSocket::connected, context, [this, current] {
        if (!current())
            return;
        m_socketOpen = true;
        sendInitialConfig();
        sendWaitingFrames();
    });
    // What waited for the connection goes out as fast as the socket takes it.
    connect(socket, &QWebSocket::bytesWritten, context, [this, current](qint64) {
        if (current() && m_socketOpen)
            sendWaitingFrames();
    });
    connect(socket, &QWebSocket::textMessageReceived, context,
            [this, current](const QString& text) {
                if (current())
                    handleText(text);
            });
    connect(socket, &QWebSocket::binaryMessageReceived, context,
            [this, current](const QByteArray& bytes) {
                if (!current())
                    return;
                QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
                const QString text = utf8.decode(bytes);
                if (!utf8.hasError())
                    handleText(text);
            });
    connect(socket, qOverload<QAbstractSocket::SocketError>(&QWebSocket::error), context,
            [this, current, socket](QAbstractSocket::SocketError) {
                if (!current())
                    return;
                const QString reason = socket->errorString();
                // After a stop the service's own close is no failure.
                if (m_isActive)
                    consoleLog(QStringLiteral("🌐 ❌ WebSocket receive error: ") + reason);
                handleDisconnect(reason, true);
            });
    connect(socket, &QWebSocket::disconnected, context, [this, current, socket] {
        if (!current())
            return;
        // A close frame's reason first; a connection that never opened or
        // broke says why (refused, reset); only a bare close frame is left.
        QString reason = socket->closeReason();
        if (reason.isEmpty() && socket->error() != QAbstractSocket::UnknownSocketError)
            reason = socket->errorString();
        if (reason.isEmpty())
            reason = QCoreApplication::translate("LiveAudioStreamer",
                                                 "closed by the service with code %1")
                         .arg(socket->closeCode());
        if (m_isActive)
            consoleLog(QStringLiteral("🌐 ❌ WebSocket receive error: ") + reason);
        handleDisconnect(reason, true);
    });
    connect(socket, &QWebSocket::pong, context, [this, current](quint64, const QByteArray&) {
        if (!current() || !m_pingSilence)
            return;
        // One every 15 s of a whole meeting: the first few, then now and then.
        if (logThinned(++m_pongs, 3, 40))
            consoleLog(QStringLiteral("🌐 💓 Keepalive ping sent (silence: %1s)")
                           .arg(QString::asprintf("%.0f", *m_pingSilence)));
        m_pingSilence.reset();
    });

    socket->open(url);
    startKeepalive();
    // Qt waits for the handshake's answer as long as it takes.
    after(kHandshakeTimeout, [this, serial] { handshakeTimedOut(serial); });
}

void LiveAudioStreamer::handshakeTimedOut(std::uint64_t serial)
{
    if (serial != m_socketSerial || !m_socket || m_socketOpen || !m_isActive)
        return;
    const QString reason =
        QCoreApplication::translate("LiveAudioStreamer", "no answer from the service in %1 s")
            .arg(kHandshakeTimeout.count());
    consoleLog(QStringLiteral("🌐 ❌ WebSocket receive error: ") + reason);
    handleDisconnect(reason, true);
}

void LiveAudioStreamer::sendInitialConfig()
{
    if (!m_socket)
        return;
    const QJsonObject config{
        {QStringLiteral("language_hints"), QJsonArray::fromStringList(m_languageHints)}};
    const QString json = QString::fromUtf8(QJsonDocument(config).toJson(QJsonDocument::Compact));
    if (m_socket->sendTextMessage(json) > 0)
        consoleLog(QStringLiteral("📡 Sent initial config: ") + json);
    else
        consoleLog(QStringLiteral("🌐 ❌ Failed to send initial config: ") + m_socket->errorString());
}

// ---- Audio -----------------------------------------------------------------------------

void LiveAudioStreamer::convert(std::span<const float> samples)
{
    Q_ASSERT(onQueue());
    m_framer.push(samples, [this](const QByteArray& frame) { sendFrame(frame); });
}

void LiveAudioStreamer::sendFrame(const QByteArray& frame)
{
    // After the end-of-stream sentinel no more audio belongs to the stream.
    if (!m_isActive)
        return;
    if (!m_socketOpen) {
        // Between connections (the back-off) the audio is lost.
        if (!m_socket && !m_awaitingToken) {
            dropFrames(1);
            return;
        }
        // Sent once the connection is open, as a socket that is still
        // connecting would queue them.
        queueFrame(frame);
        return;
    }
    if (!m_waitingFrames.empty()) {
        // Behind what waited for the connection; ten seconds of it not
        // taken is no slow network but a stalled service.
        if (!queueFrame(frame)) {
            handleDisconnect(QCoreApplication::translate("LiveAudioStreamer",
                                                         "the service is not taking the audio"),
                             true);
            return;
        }
        sendWaitingFrames();
        return;
    }
    if (!fitsInSocket(frame)) {
        // The service takes none of it: the socket's buffer would only grow,
        // and the transcript stop without a word.
        dropFrames(1);
        handleDisconnect(
            QCoreApplication::translate("LiveAudioStreamer", "the service is not taking the audio"),
            true);
        return;
    }
    writeFrame(frame);
}

bool LiveAudioStreamer::queueFrame(const QByteArray& frame)
{
    bool kept = true;
    if (m_waitingFrames.size() >= kMaxFramesWhileConnecting) {
        m_waitingFrames.pop_front();
        dropFrames(1);
        if (!m_droppedWhileConnecting && !m_socketOpen)
            consoleLog(QStringLiteral("📡 ⚠️ Still connecting: dropping the oldest audio"));
        m_droppedWhileConnecting = true;
        kept = false;
    }
    m_waitingFrames.push_back(frame);
    return kept;
}

bool LiveAudioStreamer::fitsInSocket(const QByteArray& frame)
{
    if (m_socket->bytesToWrite() + frame.size() <= kMaxUnwrittenBytes)
        return true;
    // What a burst of frames left in the buffer may go out at once; only
    // what the connection will not take stays there.
    m_socket->flush();
    return m_socket->bytesToWrite() + frame.size() <= kMaxUnwrittenBytes;
}

void LiveAudioStreamer::writeFrame(const QByteArray& frame)
{
    m_lastAudioSentAt = m_timing.now();
    m_socket->sendBinaryMessage(frame);
    endDropEpisode();
}

void LiveAudioStreamer::sendWaitingFrames()
{
    while (m_socket && m_socketOpen && !m_waitingFrames.empty() &&
           fitsInSocket(m_waitingFrames.front())) {
        writeFrame(m_waitingFrames.front());
        m_waitingFrames.pop_front();
    }
}

void LiveAudioStreamer::dropFrames(std::int64_t count)
{
    m_droppedFrames += count;
    m_droppedInEpisode += count;
}

void LiveAudioStreamer::endDropEpisode()
{
    if (m_droppedInEpisode == 0)
        return;
    const double seconds = double(m_droppedInEpisode) * LivePcmFramer::kFrameSamples /
                           double(LivePcmFramer::kSampleRate);
    consoleLog(QStringLiteral("📡 ⚠️ %1 s of audio (%2 frames) did not reach the service")
                   .arg(QString::asprintf("%.1f", seconds))
                   .arg(m_droppedInEpisode));
    m_droppedInEpisode = 0;
}

// ---- Keepalive -------------------------------------------------------------------------

void LiveAudioStreamer::startKeepalive()
{
    const std::uint64_t serial = ++m_keepaliveSerial;
    after(kKeepaliveInterval, [this, serial] { keepaliveTick(serial); });
}

void LiveAudioStreamer::keepaliveTick(std::uint64_t serial)
{
    if (serial != m_keepaliveSerial)
        return;
    after(kKeepaliveInterval, [this, serial] { keepaliveTick(serial); });
    if (!m_isActive || !m_socket || !m_socketOpen)
        return;
    // Even while audio flows: a service that stopped reading is found out
    // by its silence, not by a buffer that fills behind kernel buffers.
    m_pingSilence = std::chrono::duration<double>(m_timing.now() - m_lastAudioSentAt).count();
    const std::uint64_t ping = ++m_pingSerial;
    m_socket->ping();
    after(kPongTimeout, [this, ping] { pongOverdue(ping); });
}

void LiveAudioStreamer::pongOverdue(std::uint64_t ping)
{
    if (ping != m_pingSerial || !m_pingSilence || !m_isActive || !m_socketOpen)
        return;
    consoleLog(QStringLiteral("🌐 ⚠️ Keepalive ping failed: no answer in %1 s")
                   .arg(kPongTimeout.count()));
    handleDisconnect(
        QCoreApplication::translate("LiveAudioStreamer", "no answer to the keepalive ping"), true);
}

// ---- Messages and failures ------------------------------------------------------------

void LiveAudioStreamer::handleText(const QString& text)
{
    std::vector<LiveTranscriptEvent> events;
    m_messages.handle(text, events);
    deliver(events);
    // Words come faster than they can be shown (printed, drawn): the rest
    // would only pile up in memory.
    if (m_undeliveredChars.load() > kMaxUndeliveredChars) {
        const QString reason = QCoreApplication::translate(
            "LiveAudioStreamer", "the service sends faster than it can be shown");
        consoleLog(QStringLiteral("🌐 ❌ WebSocket receive error: ") + reason);
        handleDisconnect(reason, true);
    }
}

void LiveAudioStreamer::handleDisconnect(const std::optional<QString>& error, bool broken)
{
    Q_ASSERT(onQueue());
    if (!m_isActive)
        return;
    // Only a close frame from the service sets the code; a dropped
    // connection keeps the default.
    const int closeCode = m_socket ? int(m_socket->closeCode()) : 0;
    tearDown(broken);

    if (closeCode == kAuthExpiredCloseCode) {
        consoleLog(QStringLiteral("🌐 🔑 Auth error (4001), attempting token refresh…"));
        deliver(LiveEvent::Error{
            QCoreApplication::translate("LiveAudioStreamer", "Authentication expired, refreshing…"),
            true});
        const std::uint64_t session = m_session;
        // The token just refreshed was refused too: refreshing again at
        // once would only repeat that, as fast as the service answers.
        if (m_lastRefreshAt && m_timing.now() - *m_lastRefreshAt < kRecentRefresh) {
            const auto delay = *kReconnectBackoff.after(++m_reconnectAttempts);
            consoleLog(QStringLiteral("🌐 🔄 Refused again (4001), refreshing in %1s (attempt #%2)")
                           .arg(delay.count() / 1000)
                           .arg(m_reconnectAttempts));
            after(delay, [this, session] {
                if (session == m_session && m_isActive)
                    askForToken(session);
            });
            return;
        }
        askForToken(session);
        return;
    }

    const auto delay = *kReconnectBackoff.after(++m_reconnectAttempts);
    const QString reason = error.value_or(QStringLiteral("unknown"));
    const QString seconds = QString::number(delay.count() / 1000);
    consoleLog(QStringLiteral("🌐 🔄 Disconnected (%1), reconnecting in %2s (attempt #%3)")
                   .arg(reason, seconds, QString::number(m_reconnectAttempts)));
    deliver(LiveEvent::Error{QCoreApplication::translate(
                                 "LiveAudioStreamer", "Connection lost (%1), reconnecting in %2s…")
                                 .arg(reason, seconds),
                             true});
    const std::uint64_t session = m_session;
    after(delay, [this, session] {
        if (session == m_session && m_isActive)
            openConnection();
    });
}

void LiveAudioStreamer::askForToken(std::uint64_t session)
{
    m_awaitingToken = true;
    postToMainThread(m_self,
                     [this, reply = tokenReply(session, &LiveAudioStreamer::finishRefresh)] {
                         const AuthNeededCallback ask = onAuthNeeded;
                         if (ask)
                             ask(reply);
                         else
                             reply(std::nullopt);
                     });
}

LiveAudioStreamer::TokenReply LiveAudioStreamer::tokenReply(std::uint64_t session,
                                                            TokenFinish finish)
{
    // Called on the main thread, where the streamer is destroyed.
    return [weak = QPointer<LiveAudioStreamer>(this), session,
            finish](const std::optional<QString>& token) {
        if (!weak)
            return;
        LiveAudioStreamer* self = weak.data();
        self->m_queue->post([self, session, token, finish] { (self->*finish)(session, token); });
    };
}

void LiveAudioStreamer::finishRefresh(std::uint64_t session, const std::optional<QString>& token)
{
    Q_ASSERT(onQueue());
    // A stop (or a new start) since the refresh began has settled things.
    if (session != m_session)
        return;
    m_awaitingToken = false;
    if (!token || token->isEmpty()) {
        authenticationFailed();
        return;
    }
    if (!m_isActive)
        return;
    m_token = *token;
    // The count starts over only when the last refresh was long enough ago
    // to have been a real expiry.
    const Clock::time_point now = m_timing.now();
    if (!m_lastRefreshAt || now - *m_lastRefreshAt >= kRecentRefresh)
        m_reconnectAttempts = 0;
    m_lastRefreshAt = now;
    connectSocket();
}

void LiveAudioStreamer::authenticationFailed()
{
    m_isActive = false;
    ++m_session;
    m_waitingFrames.clear();
    deliver(LiveEvent::Error{
        QCoreApplication::translate("LiveAudioStreamer", "Authentication failed")});
    deliver(LiveEvent::Disconnected{});
}

void LiveAudioStreamer::tearDown(bool broken)
{
    ++m_keepaliveSerial;
    if (m_socket) {
        // Whole frames still in the socket's buffer go with it.
        if (m_socketOpen)
            dropFrames(m_socket->bytesToWrite() / (LivePcmFramer::kFrameBytes + kFrameHeaderBytes));
        QObject::disconnect(m_socket, nullptr, m_queue->context(), nullptr);
        dispose(m_socket, QWebSocketProtocol::CloseCodeGoingAway, {}, broken);
        m_socket = nullptr;
    }
    m_socketOpen = false;
    m_awaitingToken = false;
    m_pingSilence.reset();
    dropFrames(std::int64_t(m_waitingFrames.size()));
    m_waitingFrames.clear();
    m_framer.clear();
}

// ---- Stop --------------------------------------------------------------------------------

void LiveAudioStreamer::orderlyStop()
{
    if (!m_isActive)
        return;
    m_isActive = false;
    ++m_session;
    m_messages.reset();
    ++m_keepaliveSerial;
    if (!m_socket) {
        closeConnection(1000, QStringLiteral("Client stopped"));
        return;
    }
    if (m_socketOpen) {
        m_socket->sendBinaryMessage(QByteArray());
        consoleLog(QStringLiteral("📡 Sent end-of-stream sentinel"));
    }
    // The service's last words (the final segment, "finished") still
    // arrive during the grace period.
    const std::uint64_t serial = m_socketSerial;
    after(kStopGrace, [this, serial] {
        if (serial == m_socketSerial && m_socket && !m_isActive)
            closeConnection(1000, QStringLiteral("Client stopped"));
    });
}

void LiveAudioStreamer::closeConnection(int code, const QString& reason)
{
    ++m_keepaliveSerial;
    if (m_socket) {
        QObject::disconnect(m_socket, nullptr, m_queue->context(), nullptr);
        dispose(m_socket, static_cast<QWebSocketProtocol::CloseCode>(code), reason);
        m_socket = nullptr;
    }
    m_socketOpen = false;
    m_awaitingToken = false;
    m_pingSilence.reset();
    m_waitingFrames.clear();
    m_framer.clear();
    endDropEpisode();
    consoleLog(QStringLiteral("🌐 Disconnected (%1)").arg(reason));
    deliver(LiveEvent::Disconnected{});
}

// ---- Delivery and time --------------------------------------------------------------------

void LiveAudioStreamer::deliver(LiveTranscriptEvent event)
{
    const qint64 chars = textSize(event);
    m_undeliveredChars += chars;
    postToMainThread(m_self, [this, chars, event = std::move(event)] {
        m_undeliveredChars -= chars;
        const TranscriptCallback callback = onTranscriptUpdate;
        if (callback)
            callback(event);
    });
}

void LiveAudioStreamer::deliver(std::vector<LiveTranscriptEvent>& events)
{
    for (LiveTranscriptEvent& e : events)
        deliver(std::move(e));
}

void LiveAudioStreamer::after(std::chrono::milliseconds delay, std::function<void()> fn)
{
    // Whoever runs the timer, the work itself runs on the queue.
    m_timing.after(delay, [queue = m_queue, fn = std::move(fn)] { queue->post(fn); });
}

} // namespace sorv

#include "moc_liveaudiostreamer.cpp"
