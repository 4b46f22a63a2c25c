#include "pocketsphinxrecognizer.h"

#include "core/log.h"
#include "core/serialqueue.h"
#include "transcript/mainthreadinbox.h"
#include "transcript/pocketsphinxdecoder.h"
#include "transcript/speechdownsampler.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QStringList>

#include <algorithm>
#include <atomic>
#include <deque>
#include <mutex>

namespace sorv {

namespace {

// What the speech queue hands to the main thread.
struct Output {
    enum class Kind { Partial, Final, EndedWithoutWords, AudioEnded, Failed };
    Kind kind = Kind::Partial;
    std::int64_t utterance = 0;
    // The decoder's words, or the failure's description.
    QString text;
    SpeechRecognitionError::Code failure = SpeechRecognitionError::Code::DecoderFailed;
};

Output fromEvent(const PocketsphinxDecoder::Event& e)
{
    using K = PocketsphinxDecoder::Event::Kind;
    const Output::Kind kind = e.kind == K::Partial ? Output::Kind::Partial
                              : e.kind == K::Final ? Output::Kind::Final
                                                   : Output::Kind::EndedWithoutWords;
    return {kind, e.utterance, e.text};
}

Output failure(SpeechRecognitionError::Code code, const QString& description)
{
    return {Output::Kind::Failed, 0, description, code};
}

} // namespace

// Results on their way to the main thread.
class PocketsphinxRecognizer::Mailbox : public MainThreadInbox<Output> {};

// The queue side: pending audio (appended on the main thread, bounded), and
// the decoder with its resampler (touched on the speech queue only).
class PocketsphinxRecognizer::Session {
public:
    Session(PocketsphinxDecoder::Config config, QString locale, std::size_t maxBacklogSamples,
            std::shared_ptr<Mailbox> mailbox)
        : m_config(std::move(config)), m_locale(std::move(locale)), m_maxBacklog(maxBacklogSamples),
          m_mailbox(std::move(mailbox))
    {}

    // Main thread. Each returns true when the queue needs a drain posted.
    bool pushAudio(std::vector<float>&& samples)
    {
        if (samples.empty() || m_cancelled)
            return false;
        std::lock_guard lock(m_mutex);
        m_pendingSamples += samples.size();
        m_pending.push_back({std::move(samples), false});
        while (m_pendingSamples > m_maxBacklog) {
            // The oldest audio goes; an end of audio stays where it is.
            const auto oldest = std::find_if(m_pending.begin(), m_pending.end(),
                                             [](const Item& i) { return !i.endOfAudio; });
            m_pendingSamples -= oldest->samples.size();
            m_pending.erase(oldest);
            if (!m_warnedBacklog) {
                m_warnedBacklog = true;
                consoleLog(
                    QStringLiteral("⚠️ On-device recognition is falling behind: dropping "
                                   "the oldest audio (more than %1 s waiting)")
                        .arg(static_cast<double>(m_maxBacklog) / 48000.0));
            }
        }
        return scheduleDrain();
    }

    bool pushEndOfAudio()
    {
        if (m_cancelled)
            return false;
        std::lock_guard lock(m_mutex);
        m_pending.push_back({{}, true});
        return scheduleDrain();
    }

    // Any thread: nothing more is decoded or reported.
    void cancel()
    {
        m_cancelled = true;
        std::lock_guard lock(m_mutex);
        m_pending.clear();
        m_pendingSamples = 0;
    }

    // Queue.
    void load()
    {
        if (m_decoder || m_failed || m_cancelled)
            return;
        QElapsedTimer timer;
        timer.start();
        QString error;
        m_decoder = PocketsphinxDecoder::load(m_config, &error);
        if (!m_decoder) {
            m_failed = true;
            consoleLog(QStringLiteral("❌ On-device recognition (%1): %2").arg(m_locale, error));
            m_mailbox->post({failure(SpeechRecognitionError::Code::ModelUnavailable, error)});
            return;
        }
        consoleLog(QStringLiteral("✅ On-device recognition ready: %1 (%2%3) in %4 s")
                       .arg(m_locale, m_config.model.languageDirectory,
                            m_config.grammarFile.isEmpty()
                                ? QString()
                                : QStringLiteral(", grammar %1").arg(m_config.grammarFile))
                       .arg(static_cast<double>(timer.elapsed()) / 1000.0, 0, 'f', 2));
    }

    void drain()
    {
        for (;;) {
            std::deque<Item> batch;
            {
                std::lock_guard lock(m_mutex);
                if (m_pending.empty()) {
                    m_drainScheduled = false;
                    return;
                }
                batch.swap(m_pending);
                m_pendingSamples = 0;
            }
            load();
            std::vector<Output> outputs;
            // Consecutive audio is decoded in one go: one partial per batch.
            m_pcm.clear();
            for (Item& item : batch) {
                if (m_cancelled)
                    return;
                if (item.endOfAudio) {
                    decode(outputs);
                    endAudio(outputs);
                } else {
                    m_downsampler.process(item.samples, m_pcm);
                }
            }
            decode(outputs);
            if (!m_cancelled)
                m_mailbox->post(std::move(outputs));
        }
    }

    // Queue: the decoder goes on the thread that used it.
    void release() { m_decoder.reset(); }

private:
    struct Item {
        std::vector<float> samples;
        bool endOfAudio = false;
    };

    bool scheduleDrain()
    {
        const bool post = !m_drainScheduled;
        m_drainScheduled = true;
        return post;
    }

    void decode(std::vector<Output>& outputs)
    {
        if (m_pcm.empty() || !m_decoder || m_failed) {
            m_pcm.clear();
            return;
        }
        m_events.clear();
        const bool ok = m_decoder->process(m_pcm, true, m_events);
        m_pcm.clear();
        for (const auto& e : m_events)
            outputs.push_back(fromEvent(e));
        if (!ok) {
            m_failed = true;
            consoleLog(QStringLiteral("❌ On-device recognition (%1): the decoder rejected the "
                                      "audio")
                           .arg(m_locale));
            outputs.push_back(failure(SpeechRecognitionError::Code::DecoderFailed,
                                      QStringLiteral("On-device recognition stopped: the speech "
                                                     "decoder failed")));
        }
    }

    void endAudio(std::vector<Output>& outputs)
    {
        if (!m_decoder || m_failed)
            return;
        if (!m_decoder->inUtterance()) {
            outputs.push_back({Output::Kind::AudioEnded, m_decoder->currentUtterance(), {}});
            return;
        }
        m_events.clear();
        if (!m_decoder->endUtterance(m_events))
            m_failed = true;
        for (const auto& e : m_events)
            outputs.push_back(fromEvent(e));
    }

    const PocketsphinxDecoder::Config m_config;
    const QString m_locale;
    const std::size_t m_maxBacklog;
    const std::shared_ptr<Mailbox> m_mailbox;
    std::atomic<bool> m_cancelled = false;

    std::mutex m_mutex;
    std::deque<Item> m_pending;
    std::size_t m_pendingSamples = 0;
    bool m_drainScheduled = false;
    bool m_warnedBacklog = false;

    std::unique_ptr<PocketsphinxDecoder> m_decoder;
    bool m_failed = false;
    SpeechDownsampler m_downsampler;
    std::vector<std::int16_t> m_pcm;
    std::vector<PocketsphinxDecoder::Event> m_events;
};

// The main side: which task the stream's results belong to. A task takes
// the results of the first utterance that is not older than the task, and
// ends with that utterance.
class PocketsphinxRecognizer::Router {
public:
    struct TaskState {
        UpdateHandler handler;
        std::int64_t firstUtterance = 0;
        std::optional<std::int64_t> boundUtterance;
        bool partials = true;
        bool punctuation = true;
        bool done = false;
    };

    std::shared_ptr<TaskState> start(UpdateHandler handler, bool partials, bool punctuation)
    {
        if (m_current)
            cancel(*m_current);
        auto state = std::make_shared<TaskState>();
        state->handler = std::move(handler);
        state->firstUtterance = m_nextUtterance;
        state->partials = partials;
        state->punctuation = punctuation;
        m_current = state;
        return state;
    }

    void cancel(TaskState& state)
    {
        if (state.done)
            return;
        state.done = true;
        // The rest of an utterance the task had begun is not the next task's.
        if (state.boundUtterance)
            m_nextUtterance = std::max(m_nextUtterance, *state.boundUtterance + 1);
        if (m_current.get() == &state)
            m_current.reset();
    }

    const std::optional<SpeechRecognitionError>& failure() const { return m_failure; }

    void deliver(Output&& o)
    {
        if (o.kind == Output::Kind::Failed)
            m_failure = SpeechRecognitionError(o.failure, o.text);
        if (o.kind == Output::Kind::Final || o.kind == Output::Kind::EndedWithoutWords)
            m_nextUtterance = std::max(m_nextUtterance, o.utterance + 1);

        const std::shared_ptr<TaskState> task = m_current;
        if (!task || task->done)
            return;
        if (o.kind != Output::Kind::Failed && o.utterance < task->firstUtterance)
            return;

        std::optional<SpeechRecognitionUpdate> update;
        switch (o.kind) {
        case Output::Kind::Partial:
            if (!task->partials)
                return;
            task->boundUtterance = o.utterance;
            update = SpeechRecognitionResult{text(*task, o.text, false), false};
            break;
        case Output::Kind::Final:
            update = SpeechRecognitionResult{text(*task, o.text, true), true};
            break;
        case Output::Kind::EndedWithoutWords:
            update = SpeechRecognitionError::endedByItself();
            break;
        case Output::Kind::AudioEnded:
            update = SpeechRecognitionError::audioEnded();
            break;
        case Output::Kind::Failed:
            update = SpeechRecognitionError(o.failure, o.text);
            break;
        }
        if (o.kind != Output::Kind::Partial) {
            task->done = true;
            m_current.reset();
        }
        // The handler may cancel or destroy its task and start the next one.
        const UpdateHandler handler = task->handler;
        handler(*update);
    }

private:
    static QString text(const TaskState& task, const QString& words, bool isFinal)
    {
        return task.punctuation ? formatText(words, isFinal) : words;
    }

    std::shared_ptr<TaskState> m_current;
    std::int64_t m_nextUtterance = 0;
    std::optional<SpeechRecognitionError> m_failure;
};

namespace {

class PocketsphinxTask : public SpeechRecognitionTask {
public:
    using Router = PocketsphinxRecognizer::Router;

    PocketsphinxTask(std::weak_ptr<Router> router, std::shared_ptr<Router::TaskState> state)
        : m_router(std::move(router)), m_state(std::move(state))
    {}
    ~PocketsphinxTask() override { cancel(); }

    void cancel() override
    {
        if (const auto router = m_router.lock())
            router->cancel(*m_state);
        else
            m_state->done = true;
    }

private:
    std::weak_ptr<Router> m_router;
    std::shared_ptr<Router::TaskState> m_state;
};

} // namespace

PocketsphinxRecognizer::PocketsphinxRecognizer(const QString& locale,
                                               std::shared_ptr<SerialQueue> queue,
                                               const Options& options)
    : m_locale(locale),
      m_model(SpeechModelLocator::find(
          locale, options.modelRoots.value_or(SpeechModelLocator::searchRoots()))),
      m_queue(std::move(queue)), m_mailbox(std::make_shared<Mailbox>()),
      m_router(std::make_shared<Router>())
{
    m_mailbox->setDeliver([router = std::weak_ptr<Router>(m_router)](Output&& o) {
        if (const auto r = router.lock())
            r->deliver(std::move(o));
    });
    if (!m_model)
        return;
    const auto backlog =
        static_cast<std::size_t>(std::max(0.5, options.maxBacklogSeconds) * kCommonSampleRate);
    m_session = std::make_shared<Session>(
        PocketsphinxDecoder::Config{*m_model, options.grammarFile}, locale, backlog, m_mailbox);
    // Loading takes a while: it starts now, before the first audio.
    m_queue->post([s = m_session] { s->load(); });
}

PocketsphinxRecognizer::~PocketsphinxRecognizer()
{
    m_mailbox->setDeliver({});
    if (m_session) {
        m_session->cancel();
        m_queue->post([s = m_session] { s->release(); });
    }
}

PocketsphinxRecognizer::Factory PocketsphinxRecognizer::factory(Options options)
{
    // The queue starts with the first recogniser and lives as long as the factory.
    auto queue = std::make_shared<std::shared_ptr<SerialQueue>>();
    return [options = std::move(options), queue](const QString& locale) {
        if (!*queue)
            *queue = std::make_shared<SerialQueue>(kQueueLabel);
        return std::unique_ptr<SpeechRecognizer>(
            std::make_unique<PocketsphinxRecognizer>(locale, *queue, options));
    };
}

std::unique_ptr<SpeechRecognitionTask>
PocketsphinxRecognizer::recognitionTask(SpeechAudioBufferRequest& request, UpdateHandler handler)
{
    auto state = m_router->start(std::move(handler), request.shouldReportPartialResults,
                                 request.addsPunctuation);
    const std::weak_ptr<Session> session = m_session;
    const std::weak_ptr<Router::TaskState> weakState = state;
    request.attach({
        [session, queue = m_queue](AudioBuffer&& buffer) {
            const auto s = session.lock();
            if (s && s->pushAudio(std::move(buffer.samples)))
                queue->post([s] { s->drain(); });
        },
        [session, queue = m_queue, weakState] {
            // A cancelled task's request ends without touching the stream.
            const auto st = weakState.lock();
            if (!st || st->done)
                return;
            const auto s = session.lock();
            if (s && s->pushEndOfAudio())
                queue->post([s] { s->drain(); });
        },
    });
    if (!m_session) {
        m_mailbox->post(
            {failure(SpeechRecognitionError::Code::ModelUnavailable,
                     QCoreApplication::translate("SpeechRecognizer", "No speech model for %1")
                         .arg(m_locale))});
    } else if (const auto& f = m_router->failure()) {
        m_mailbox->post({failure(f->code(), f->description())});
    }
    return std::make_unique<PocketsphinxTask>(m_router, std::move(state));
}

QString PocketsphinxRecognizer::formatText(const QString& words, bool isFinal)
{
    QStringList list = words.simplified().split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (list.isEmpty())
        return {};
    for (QString& w : list) {
        if (w == QLatin1String("i") || w.startsWith(QLatin1String("i'")))
            w[0] = QLatin1Char('I');
    }
    list.first()[0] = list.first()[0].toUpper();
    QString text = list.join(QLatin1Char(' '));
    if (isFinal)
        text += QLatin1Char('.');
    return text;
}

} // namespace sorv
