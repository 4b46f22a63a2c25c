#include "livetranscriptsession.h"

#include "core/notify.h"
#include "core/settings.h"
#include "recording/audiorecorder.h"
#include "service/authmanager.h"
#include "transcript/localtranscriptmanager.h"
#include "transcript/servertranscriptmanager.h"

#include <QTimer>

namespace sorv {

QString LiveTranscriptSession::defaultLanguage(bool video)
{
    return video ? kVideoLanguageDefault : kAudioLanguageDefault;
}

QString LiveTranscriptSession::storedLanguage(bool video)
{
    const QString stored = Settings::value(Settings::kSpeechLocaleKey).toString();
    return stored.isEmpty() ? defaultLanguage(video) : stored;
}

LiveTranscriptSession::LiveTranscriptSession(QObject* parent)
    : LiveTranscriptSession(Parts{}, parent)
{}

LiveTranscriptSession::LiveTranscriptSession(Parts parts, QObject* parent)
    : QObject(parent), m_server(std::move(parts.server)), m_local(std::move(parts.local)),
      m_schedule(std::move(parts.schedule))
{
    if (!m_server)
        m_server = std::make_unique<ServerTranscriptManager>();
    if (!m_local)
        m_local = std::make_unique<LocalTranscriptManager>();
    if (!m_schedule) {
        m_schedule = [this](std::chrono::milliseconds delay, std::function<void()> fn) {
            QTimer::singleShot(delay, this, std::move(fn));
        };
    }
    m_language = m_local->currentLocale();
    // However the preview is started, the service's transcript stops first.
    m_local->setStopServerTranscript([this] { m_server->stop(); });
    connect(m_server.get(), &ServerTranscriptManager::statusChanged, this, [this] {
        if (m_mode != TranscriptMode::server())
            return;
        if (m_watchSawActive == m_watch && m_server->status().isError())
            checkFallback(m_watch, 1);
        Q_EMIT statusChanged();
    });
    connect(m_local.get(), &LocalTranscriptManager::statusChanged, this, [this] {
        if (m_mode == TranscriptMode::onDevice())
            Q_EMIT statusChanged();
    });
}

LiveTranscriptSession::~LiveTranscriptSession()
{
    ++m_watch;
    // The recorder outlives the session: it must not feed managers that go.
    if (isRunning())
        detach();
    m_server->disconnect(this);
    m_local->disconnect(this);
    m_local->setStopServerTranscript({});
}

TranscriptStatus LiveTranscriptSession::status() const
{
    switch (m_mode.kind()) {
    case TranscriptMode::Kind::Server:
        return m_server->status();
    case TranscriptMode::Kind::OnDevice:
        return m_local->status();
    case TranscriptMode::Kind::None:
        break;
    }
    return TranscriptStatus::idle();
}

void LiveTranscriptSession::setLanguage(const QString& language)
{
    if (language.isEmpty() || language == m_language)
        return;
    m_language = language;
    m_local->overrideLocale(language);
    Q_EMIT languageChanged();
    // A preview that had no model for the old language starts again too.
    if (m_mode == TranscriptMode::server())
        retryServer();
    else if (m_mode == TranscriptMode::onDevice() && m_recorder)
        m_local->start(*m_recorder);
}

void LiveTranscriptSession::start(AudioRecorder& recorder, AuthManager& auth, TranscriptMode mode)
{
    m_auth = &auth;
    start(recorder, mode);
}

void LiveTranscriptSession::start(AudioRecorder& recorder, TranscriptMode mode)
{
    m_recorder = &recorder;
    if (mode == TranscriptMode::onDevice()) {
        setMode(TranscriptMode::onDevice());
        useOnDevice();
    } else if (mode == TranscriptMode::server()) {
        startServer();
    }
}

void LiveTranscriptSession::startServer()
{
    m_server->stop();
    m_local->stop();
    detach();
    setFallbackOffered(false);
    if (!m_recorder || !m_auth) {
        setMode(TranscriptMode::none());
        return;
    }
    setMode(TranscriptMode::server());
    m_server->start(*m_recorder, *m_auth, m_language);
    checkFallback(++m_watch, 1);
}

void LiveTranscriptSession::retryServer()
{
    if (isRunning())
        startServer();
}

void LiveTranscriptSession::useOnDevice()
{
    if (!m_recorder || !isRunning())
        return;
    ++m_watch;
    setFallbackOffered(false);
    m_server->stop();
    detach();
    // Empties the preview, stops it, starts it afresh on the mixed audio.
    m_local->start(*m_recorder);
    setMode(TranscriptMode::onDevice());
}

void LiveTranscriptSession::checkFallback(std::uint64_t watch, int check)
{
    if (watch != m_watch || m_mode != TranscriptMode::server())
        return;
    const TranscriptStatus& status = m_server->status();
    if (status.isActive()) {
        // Nothing to poll for while it runs; a service that fails after
        // connecting still gets the offer.
        m_watchSawActive = watch;
        return;
    }
    // The streamer's own retries show as connecting: an error is final.
    if (check > kFallbackChecks || status.isError()) {
        setFallbackOffered(true);
        return;
    }
    m_schedule(kFallbackCheckInterval, [this, watch, check] { checkFallback(watch, check + 1); });
}

bool LiveTranscriptSession::windDown(std::function<void()> then)
{
    const bool streaming = m_mode == TranscriptMode::server() && m_server->isStreaming();
    if (!isRunning())
        return false;
    if (!streaming) {
        stop();
        if (then)
            then();
        return true;
    }
    ++m_watch;
    setFallbackOffered(false);
    detach();
    setMode(TranscriptMode::none());
    // The end-of-stream frame makes the service send what it still holds,
    // then close.
    auto done = std::make_shared<bool>(false);
    auto finish = [done, then = std::move(then)] {
        if (*done)
            return;
        *done = true;
        if (then)
            then();
    };
    connect(m_server.get(), &ServerTranscriptManager::streamEnded, this, finish,
            Qt::SingleShotConnection);
    m_schedule(kWindDown, finish);
    m_server->stop();
    return true;
}

void LiveTranscriptSession::stop()
{
    ++m_watch;
    setFallbackOffered(false);
    m_server->stop();
    m_local->stop();
    detach();
    setMode(TranscriptMode::none());
}

void LiveTranscriptSession::detach()
{
    if (m_recorder)
        m_recorder->setOnMixedAudioBuffer({});
}

void LiveTranscriptSession::setMode(TranscriptMode mode)
{
    if (mode == m_mode)
        return;
    m_mode = mode;
    Q_EMIT modeChanged();
    Q_EMIT statusChanged();
}

void LiveTranscriptSession::setFallbackOffered(bool v)
{
    setAndNotify(this, m_fallbackOffered, v, &LiveTranscriptSession::fallbackOfferedChanged);
}

} // namespace sorv

#include "moc_livetranscriptsession.cpp"
