#include "livetranscriptrun.h"

#include "cli/livetranscriptreporter.h"
#include "core/settings.h"
#include "recording/audiorecorder.h"
#include "transcript/localtranscriptmanager.h"
#include "transcript/pocketsphinxrecognizer.h"
#include "transcript/servertranscriptmanager.h"

#include <QTimer>

namespace sorv::cli {

namespace {
// How long the service gets for its last words after the recording ended.
constexpr int kWindDownMs = 2000;
} // namespace

std::optional<LiveTranscriptRun::Mode> LiveTranscriptRun::parseMode(const QString& text)
{
    if (text == QLatin1String("server"))
        return Mode::Server;
    if (text == QLatin1String("on-device"))
        return Mode::OnDevice;
    return std::nullopt;
}

LiveTranscriptRun::LiveTranscriptRun(const CommandContext& ctx, Mode mode, QString language,
                                     const QString& grammarFile)
    : m_ctx(ctx), m_mode(mode), m_language(std::move(language))
{
    if (mode == Mode::Server) {
        m_server = std::make_unique<ServerTranscriptManager>();
        m_reporter = std::make_unique<LiveTranscriptReporter>(ctx, *m_server);
    } else {
        PocketsphinxRecognizer::Options options;
        options.grammarFile = grammarFile;
        m_local =
            std::make_unique<LocalTranscriptManager>(PocketsphinxRecognizer::factory(options));
        m_reporter = std::make_unique<LiveTranscriptReporter>(ctx, *m_local);
    }
}

LiveTranscriptRun::~LiveTranscriptRun() = default;

void LiveTranscriptRun::start(AudioRecorder& recorder, AuthManager* auth)
{
    if (m_server) {
        // The same language the on-device preview would use.
        QString language = m_language;
        if (language.isEmpty())
            language = Settings::value(Settings::kSpeechLocaleKey).toString();
        if (language.isEmpty())
            language = LocalTranscriptManager::kDefaultLocale;
        if (auth)
            m_server->start(recorder, *auth, language);
        return;
    }
    if (!m_language.isEmpty())
        m_local->overrideLocale(m_language);
    m_local->start(recorder);
}

QString LiveTranscriptRun::openLine() const
{
    return m_reporter->openLine();
}

void LiveTranscriptRun::setRedraw(std::function<void()> redraw)
{
    m_reporter->redraw = std::move(redraw);
}

bool LiveTranscriptRun::windDown(std::function<void()> then)
{
    if (m_ended)
        return false;
    m_ended = true;
    if (m_local || !m_server->isStreaming()) {
        stopAll();
        then();
        return true;
    }
    // The end-of-stream frame makes the service send what it still holds,
    // then close; the recording's own ending waits for that, briefly.
    auto done = std::make_shared<bool>(false);
    auto finish = [this, done, then = std::move(then)] {
        if (*done)
            return;
        *done = true;
        m_reporter->finish();
        then();
    };
    QObject::connect(m_server.get(), &ServerTranscriptManager::streamEnded, m_reporter.get(),
                     finish, Qt::SingleShotConnection);
    QTimer::singleShot(kWindDownMs, m_reporter.get(), finish);
    m_server->stop();
    return true;
}

void LiveTranscriptRun::stop()
{
    if (m_ended)
        return;
    m_ended = true;
    stopAll();
}

void LiveTranscriptRun::stopAll()
{
    if (m_server)
        m_server->stop();
    if (m_local)
        m_local->stop();
    m_reporter->finish();
}

} // namespace sorv::cli
