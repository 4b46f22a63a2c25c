// /api/live/stream: the live transcript WebSocket, from the service's side.

#include "liveendpoints.h"

#include "core/log.h"
#include "localservice/router.h"
#include "localservice/servicestate.h"
#include "localservice/streamrecognizer.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <memory>
#include <span>

namespace sorv::local {

namespace {

constexpr int kFrameBytes = 3840;
constexpr int kFrameMs = 120;

struct Reply {
    enum class Kind { Send, Close, Drop, Deafen };
    Kind kind = Kind::Send;
    QByteArray text;
    int code = 1000;
    QByteArray reason;
    qsizetype frameBytes = -1;

    static Reply send(const QJsonObject& o)
    {
        return {Kind::Send, QJsonDocument(o).toJson(QJsonDocument::Compact), 1000, {}, -1};
    }
};

// Where a connection's transcript comes from.
class TranscriptSource {
public:
    virtual ~TranscriptSource() = default;
    virtual QString name() const = 0;
    // Right after "connected".
    virtual void begin(std::vector<Reply>&) {}
    // One audio frame; `frames` counts them from 1.
    virtual void frame(std::span<const std::int16_t> pcm, int frames, std::vector<Reply>& out) = 0;
    // The stream ended; the last words.
    virtual void end(std::vector<Reply>& out) = 0;
};

// ---- A test's script ---------------------------------------------------------------

class ScriptSource final : public TranscriptSource {
public:
    explicit ScriptSource(LiveScript script) : m_steps(std::move(script.steps))
    {
        std::stable_sort(m_steps.begin(), m_steps.end(), [](const auto& a, const auto& b) {
            return a.afterFrames < b.afterFrames;
        });
    }
    QString name() const override { return QStringLiteral("script"); }

    // The steps due once `frames` frames have arrived.
    void due(int frames, std::vector<Reply>& out)
    {
        while (m_next < m_steps.size() && m_steps[m_next].afterFrames <= frames) {
            const LiveScript::Step& s = m_steps[m_next++];
            switch (s.action) {
            case LiveScript::Step::Action::Send:
                out.push_back({Reply::Kind::Send, s.message, 1000, {}, s.frameBytes});
                break;
            case LiveScript::Step::Action::Close:
                out.push_back({Reply::Kind::Close, {}, s.closeCode, s.reason, -1});
                break;
            case LiveScript::Step::Action::Drop:
                out.push_back({Reply::Kind::Drop, {}, 0, {}, -1});
                break;
            case LiveScript::Step::Action::Deafen:
                out.push_back({Reply::Kind::Deafen, {}, 0, {}, -1});
                break;
            }
        }
    }
    void begin(std::vector<Reply>& out) override { due(0, out); }
    void frame(std::span<const std::int16_t>, int frames, std::vector<Reply>& out) override
    {
        due(frames, out);
    }
    void end(std::vector<Reply>&) override {}

private:
    std::vector<LiveScript::Step> m_steps;
    std::size_t m_next = 0;
};

// ---- A canned conversation, for languages we do not recognise ------------------------

// Two speakers take turns, a word every 240 ms of audio. The first talks in
// typed messages ("partial", "segment"), the second in token messages with
// short keys, so a client meets both dialects; names for both follow the
// first exchange, and a keepalive every 15 s of audio.
class ConversationSource final : public TranscriptSource {
public:
    QString name() const override { return QStringLiteral("conversation"); }

    void begin(std::vector<Reply>& out) override
    {
        out.push_back(Reply::send({{QStringLiteral("type"), QStringLiteral("status")},
                                   {QStringLiteral("status"), QStringLiteral("transcribing")}}));
    }

    void frame(std::span<const std::int16_t>, int frames, std::vector<Reply>& out) override
    {
        m_frames = frames;
        if (frames % 125 == 0)
            out.push_back(Reply::send({{QStringLiteral("type"), QStringLiteral("keepalive")},
                                       {QStringLiteral("status"), QStringLiteral("listening")}}));
        if (--m_wait > 0)
            return;
        const Line& line = kLines[m_line % std::size(kLines)];
        const QStringList words = QString::fromUtf8(line.text).split(QLatin1Char(' '));
        if (m_shown == 0)
            m_lineStartMs = qint64(frames) * kFrameMs;
        if (m_shown < words.size()) {
            ++m_shown;
            partial(line, words, out);
            m_wait = 2;
            return;
        }
        final(line, words, m_shown, out);
        if (m_line == 1)
            out.push_back(
                Reply::send({{QStringLiteral("type"), QStringLiteral("speaker_names")},
                             {QStringLiteral("names"),
                              QJsonObject{{QStringLiteral("0"), QStringLiteral("Alex")},
                                          {QStringLiteral("1"), QStringLiteral("Sam")}}}}));
        ++m_line;
        m_shown = 0;
        m_wait = 4;
    }

    void end(std::vector<Reply>& out) override
    {
        if (m_shown == 0)
            return;
        const Line& line = kLines[m_line % std::size(kLines)];
        final(line, QString::fromUtf8(line.text).split(QLatin1Char(' ')), m_shown, out);
    }

private:
    struct Line {
        const char* speaker;
        const char* text;
    };
    static constexpr Line kLines[] = {
        {"0", "Good morning, thanks for joining."},
        {"1", "Morning! Happy to be here."},
        {"0", "Shall we start with the weekly numbers?"},
        {"1", "Sure, sales are up four percent."},
        {"0", "Great. And the new release?"},
        {"1", "It ships on Friday."},
    };

    bool typed(const Line& line) const { return qstrcmp(line.speaker, "0") == 0; }

    void partial(const Line& line, const QStringList& words, std::vector<Reply>& out) const
    {
        const QString speaker = QString::fromUtf8(line.speaker);
        if (typed(line)) {
            out.push_back(Reply::send(
                {{QStringLiteral("type"), QStringLiteral("partial")},
                 {QStringLiteral("speaker"), speaker},
                 {QStringLiteral("text"), words.mid(0, m_shown).join(QLatin1Char(' '))}}));
            return;
        }
        // The next word only: the client accumulates.
        const QString piece = (m_shown > 1 ? QStringLiteral(" ") : QString()) + words[m_shown - 1];
        out.push_back(Reply::send(
            {{QStringLiteral("fw"), QJsonArray{QJsonObject{{QStringLiteral("text"), piece},
                                                           {QStringLiteral("spk"), speaker},
                                                           {QStringLiteral("f"), false}}}}}));
    }

    void final(const Line& line, const QStringList& words, qsizetype shown,
               std::vector<Reply>& out) const
    {
        const QString speaker = QString::fromUtf8(line.speaker);
        const qint64 endMs = qint64(m_frames) * kFrameMs;
        if (typed(line)) {
            out.push_back(
                Reply::send({{QStringLiteral("type"), QStringLiteral("segment")},
                             {QStringLiteral("speaker"), speaker},
                             {QStringLiteral("text"), words.mid(0, shown).join(QLatin1Char(' '))},
                             {QStringLiteral("start_ms"), m_lineStartMs},
                             {QStringLiteral("end_ms"), endMs},
                             {QStringLiteral("is_final"), true}}));
            return;
        }
        QJsonArray tokens;
        for (qsizetype i = 0; i < shown; ++i)
            tokens.append(
                QJsonObject{{QStringLiteral("text"),
                             QString((i > 0 ? QStringLiteral(" ") : QString()) + words[i])},
                            {QStringLiteral("spk"), speaker},
                            {QStringLiteral("f"), true},
                            {QStringLiteral("s"), m_lineStartMs},
                            {QStringLiteral("e"), endMs}});
        tokens.append(QJsonObject{{QStringLiteral("text"), QStringLiteral("<end>")},
                                  {QStringLiteral("f"), true}});
        out.push_back(Reply::send({{QStringLiteral("fw"), tokens}}));
    }

    std::size_t m_line = 0;
    qsizetype m_shown = 0;
    int m_wait = 4;
    int m_frames = 0;
    qint64 m_lineStartMs = 0;
};

// ---- Recognition ----------------------------------------------------------------------

// What pocketsphinx hears, as token messages of one speaker: interim text
// as it grows (only ever extended: a revised hypothesis waits for the
// final), then the utterance's words as final tokens.
class RecognitionSource final : public TranscriptSource {
public:
    explicit RecognitionSource(std::unique_ptr<StreamRecognizer> recognizer)
        : m_recognizer(std::move(recognizer))
    {}
    QString name() const override { return QStringLiteral("recognition"); }

    void frame(std::span<const std::int16_t> pcm, int, std::vector<Reply>& out) override
    {
        std::vector<StreamRecognizer::Result> results;
        m_recognizer->process(pcm, results);
        apply(results, out);
    }

    void end(std::vector<Reply>& out) override
    {
        std::vector<StreamRecognizer::Result> results;
        m_recognizer->finish(results);
        apply(results, out);
    }

private:
    static inline const QString kSpeaker = QStringLiteral("speaker_1");

    void apply(const std::vector<StreamRecognizer::Result>& results, std::vector<Reply>& out)
    {
        for (const StreamRecognizer::Result& r : results) {
            if (!r.isFinal) {
                if (!r.text.startsWith(m_sent) || r.text.size() == m_sent.size())
                    continue;
                const QString piece = r.text.mid(m_sent.size());
                m_sent = r.text;
                out.push_back(
                    Reply::send({{QStringLiteral("tokens"),
                                  QJsonArray{QJsonObject{{QStringLiteral("text"), piece},
                                                         {QStringLiteral("speaker"), kSpeaker},
                                                         {QStringLiteral("is_final"), false}}}}}));
                continue;
            }
            // An utterance that lost its words still closes what was shown.
            const QString words = r.text.isEmpty() ? m_sent : r.text;
            m_sent.clear();
            if (words.isEmpty())
                continue;
            QStringList list = words.split(QLatin1Char(' '), Qt::SkipEmptyParts);
            for (QString& w : list) {
                if (w == QLatin1String("i") || w.startsWith(QLatin1String("i'")))
                    w[0] = QLatin1Char('I');
            }
            list.first()[0] = list.first()[0].toUpper();
            list.last() += QLatin1Char('.');
            QJsonArray tokens;
            for (qsizetype i = 0; i < list.size(); ++i)
                tokens.append(
                    QJsonObject{{QStringLiteral("text"),
                                 QString((i > 0 ? QStringLiteral(" ") : QString()) + list[i])},
                                {QStringLiteral("speaker"), kSpeaker},
                                {QStringLiteral("is_final"), true},
                                {QStringLiteral("start_ms"), qint64(r.startMs)},
                                {QStringLiteral("end_ms"), qint64(r.endMs)}});
            out.push_back(Reply::send({{QStringLiteral("tokens"), tokens}}));
        }
    }

    std::unique_ptr<StreamRecognizer> m_recognizer;
    QString m_sent;
};

QStringList languageHints(const QByteArray& message)
{
    const QJsonValue hints =
        QJsonDocument::fromJson(message).object().value(QLatin1String("language_hints"));
    QStringList list;
    for (const QJsonValue h : hints.toArray()) {
        if (h.isString())
            list << h.toString();
    }
    return list;
}

} // namespace

// ---- The script builder -------------------------------------------------------------------

LiveScript& LiveScript::send(const QJsonObject& message, int afterFrames)
{
    return sendText(QJsonDocument(message).toJson(QJsonDocument::Compact), afterFrames);
}

LiveScript& LiveScript::sendText(const QByteArray& text, int afterFrames)
{
    steps.push_back({afterFrames, Step::Action::Send, text, 1000, {}, -1});
    return *this;
}

LiveScript& LiveScript::sendInFrames(const QByteArray& text, qsizetype frameBytes, int afterFrames)
{
    steps.push_back(
        {afterFrames, Step::Action::Send, text, 1000, {}, std::max<qsizetype>(frameBytes, 0)});
    return *this;
}

LiveScript& LiveScript::close(int code, const QByteArray& reason, int afterFrames)
{
    steps.push_back({afterFrames, Step::Action::Close, {}, code, reason, -1});
    return *this;
}

LiveScript& LiveScript::drop(int afterFrames)
{
    steps.push_back({afterFrames, Step::Action::Drop, {}, 0, {}, -1});
    return *this;
}

LiveScript& LiveScript::deafen(int afterFrames)
{
    steps.push_back({afterFrames, Step::Action::Deafen, {}, 0, {}, -1});
    return *this;
}

// ---- The endpoint ---------------------------------------------------------------------------

LiveEndpoint::LiveEndpoint(ServiceState& state) : m_state(state) {}

void LiveEndpoint::addRoutes(Router& router)
{
    router.addWebSocket(QStringLiteral("/api/live/stream"),
                        [this](const ServiceRequest& request, WebSocketChannel& channel) {
                            serve(request, channel);
                        });
}

void LiveEndpoint::queueScript(LiveScript script)
{
    std::lock_guard lock(m_mutex);
    m_scripts.push_back(std::move(script));
}

std::optional<LiveScript> LiveEndpoint::takeScript()
{
    std::lock_guard lock(m_mutex);
    if (m_scripts.empty())
        return std::nullopt;
    LiveScript s = std::move(m_scripts.front());
    m_scripts.pop_front();
    return s;
}

QList<LiveSession> LiveEndpoint::sessions() const
{
    // A copy with storage of its own: a shared list would let a later write
    // here go in place (seeing it unshared) without ordering it after the
    // caller's reads.
    std::lock_guard lock(m_mutex);
    QList<LiveSession> copy;
    copy.reserve(m_sessions.size());
    for (const LiveSession& s : std::as_const(m_sessions))
        copy.append(s);
    return copy;
}

int LiveEndpoint::framesReceived() const
{
    std::lock_guard lock(m_mutex);
    int n = 0;
    for (const LiveSession& s : m_sessions)
        n += s.frames;
    return n;
}

qsizetype LiveEndpoint::openSession(const QString& token)
{
    std::lock_guard lock(m_mutex);
    LiveSession s;
    s.token = token;
    m_sessions.append(s);
    return m_sessions.size() - 1;
}

template <typename Fn> void LiveEndpoint::updateSession(qsizetype index, Fn&& fn)
{
    std::lock_guard lock(m_mutex);
    fn(m_sessions[index]);
}

void LiveEndpoint::serve(const ServiceRequest& request, WebSocketChannel& ws)
{
    const QString token = request.query.queryItemValue(QStringLiteral("token"));
    const qsizetype session = openSession(token);
    std::optional<LiveScript> script = takeScript();
    const bool logging = m_state.options().logRequests;

    // False once the replies ended the connection.
    const auto perform = [&](std::vector<Reply>& replies) {
        for (const Reply& r : replies) {
            switch (r.kind) {
            case Reply::Kind::Send:
                if (!(r.frameBytes < 0 ? ws.sendText(r.text)
                                       : ws.sendTextInFrames(r.text, r.frameBytes)))
                    return false;
                break;
            case Reply::Kind::Close:
                ws.close(r.code, r.reason);
                updateSession(session, [&](LiveSession& s) { s.closeCodeSent = r.code; });
                return false;
            case Reply::Kind::Drop:
                ws.drop();
                return false;
            case Reply::Kind::Deafen:
                ws.holdUnread();
                return false;
            }
        }
        replies.clear();
        return true;
    };
    ws.onPing = [&] { updateSession(session, [](LiveSession& s) { ++s.pings; }); };
    const auto finish = [&] {
        updateSession(session, [&](LiveSession& s) {
            s.ended = true;
            s.clientCloseCode = ws.closeCode();
            if (logging)
                consoleLog(QStringLiteral("🌐 Live stream ended: %1 frames (%2 s)")
                               .arg(s.frames)
                               .arg(double(s.frames) * kFrameMs / 1000.0, 0, 'f', 1));
        });
    };

    if (!m_state.authenticateToken(token)) {
        ws.close(4001, "Authentication expired");
        updateSession(session, [](LiveSession& s) { s.closeCodeSent = 4001; });
        finish();
        return;
    }
    std::vector<Reply> replies;
    if (script) {
        LiveScript before;
        for (const LiveScript::Step& step : script->steps) {
            if (step.afterFrames < 0)
                before.steps.push_back(step);
        }
        ScriptSource(before).due(LiveScript::kBeforeConnected, replies);
        std::erase_if(script->steps, [](const LiveScript::Step& s) { return s.afterFrames < 0; });
        if (!perform(replies)) {
            finish();
            return;
        }
    }

    // The client's first message carries the language hints.
    std::optional<WebSocketChannel::Message> first = ws.read();
    if (!first) {
        finish();
        return;
    }
    const QStringList hints = first->binary ? QStringList() : languageHints(first->data);
    if (!first->binary)
        first.reset();

    std::unique_ptr<TranscriptSource> source;
    if (script) {
        source = std::make_unique<ScriptSource>(std::move(*script));
    } else if (hints.value(0) == QLatin1String("en")) {
        const auto model = StreamRecognizer::findEnglish(m_state.options().speechModelDirectory,
                                                         m_state.options().speechGrammarFile);
        QString error;
        if (auto recognizer = model ? StreamRecognizer::load(*model, &error) : nullptr)
            source = std::make_unique<RecognitionSource>(std::move(recognizer));
        else if (logging)
            consoleLog(QStringLiteral("⚠️ No English speech recognition here (%1): a scripted "
                                      "conversation instead")
                           .arg(model ? error : QStringLiteral("pocketsphinx-en-us is missing")));
    }
    if (!source)
        source = std::make_unique<ConversationSource>();

    const QString transcriptionId = ServiceState::newId();
    updateSession(session, [&](LiveSession& s) {
        s.languageHints = hints;
        s.transcriptionId = transcriptionId;
        s.source = source->name();
    });
    if (logging)
        consoleLog(QStringLiteral("🌐 Live stream opened (hints %1): %2")
                       .arg(hints.join(QLatin1Char(',')), source->name()));
    replies.push_back(Reply::send({{QStringLiteral("type"), QStringLiteral("connected")},
                                   {QStringLiteral("transcription_id"), transcriptionId}}));
    source->begin(replies);
    if (!perform(replies)) {
        finish();
        return;
    }

    const bool keepAudio = m_state.options().keepLiveAudio;
    std::vector<std::int16_t> pcm;
    int frames = 0;
    for (;;) {
        // The message that opened the session is handled first, once.
        std::optional<WebSocketChannel::Message> message =
            first ? std::exchange(first, std::nullopt) : ws.read();
        if (!message)
            break;
        if (!message->binary)
            continue; // nothing else is expected of the client
        if (message->data.isEmpty()) {
            updateSession(session, [](LiveSession& s) { s.sentinel = true; });
            source->end(replies);
            replies.push_back(Reply::send({{QStringLiteral("finished"), true}}));
            replies.push_back({Reply::Kind::Close, {}, 1000, "Finished", -1});
            perform(replies);
            break;
        }
        ++frames;
        const QByteArray& data = message->data;
        updateSession(session, [&](LiveSession& s) {
            ++s.frames;
            s.bytes += data.size();
            if (data.size() != kFrameBytes)
                ++s.oddFrames;
            if (keepAudio)
                s.audio += data;
        });
        pcm.resize(std::size_t(data.size() / 2));
        for (std::size_t i = 0; i < pcm.size(); ++i)
            pcm[i] = static_cast<std::int16_t>(
                std::uint16_t(std::uint8_t(data[static_cast<qsizetype>(i) * 2])) |
                std::uint16_t(std::uint16_t(std::uint8_t(data[static_cast<qsizetype>(i) * 2 + 1]))
                              << 8));
        source->frame(pcm, frames, replies);
        if (!perform(replies))
            break;
    }
    finish();
}

} // namespace sorv::local
