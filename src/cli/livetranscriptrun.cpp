#include "livetranscriptrun.h"

#include "cli/livetranscriptreporter.h"
#include "transcript/livetranscriptsession.h"
#include "transcript/localtranscriptmanager.h"
#include "transcript/pocketsphinxrecognizer.h"
#include "transcript/servertranscriptmanager.h"

namespace sorv::cli {

std::optional<LiveTranscriptRun::Mode> LiveTranscriptRun::parseMode(const QString& text)
{
    if (text == QLatin1String("server"))
        return Mode::Server;
    if (text == QLatin1String("on-device"))
        return Mode::OnDevice;
    return std::nullopt;
}

LiveTranscriptRun::LiveTranscriptRun(const CommandContext& ctx, Mode mode, const QString& language,
                                     bool video, const QString& grammarFile)
    : m_mode(mode)
{
    LiveTranscriptSession::Parts parts;
    if (mode == Mode::OnDevice) {
        PocketsphinxRecognizer::Options options;
        options.grammarFile = grammarFile;
        parts.local =
            std::make_unique<LocalTranscriptManager>(PocketsphinxRecognizer::factory(options));
    }
    m_session = std::make_unique<LiveTranscriptSession>(std::move(parts));
    m_session->setLanguage(language.isEmpty() ? LiveTranscriptSession::storedLanguage(video)
                                              : language);
    if (mode == Mode::Server)
        m_reporter = std::make_unique<LiveTranscriptReporter>(ctx, m_session->server());
    else
        m_reporter = std::make_unique<LiveTranscriptReporter>(ctx, m_session->local());
}

LiveTranscriptRun::~LiveTranscriptRun() = default;

void LiveTranscriptRun::start(AudioRecorder& recorder, AuthManager* auth)
{
    if (m_mode == Mode::OnDevice)
        m_session->start(recorder, TranscriptMode::onDevice());
    else if (auth)
        m_session->start(recorder, *auth);
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
    return m_session->windDown([this, then = std::move(then)] {
        m_reporter->finish();
        then();
    });
}

void LiveTranscriptRun::stop()
{
    if (!m_session->isRunning())
        return;
    m_session->stop();
    m_reporter->finish();
}

} // namespace sorv::cli
