#include "servertranscriptmanager.h"

#include "core/notify.h"
#include "core/overloaded.h"
#include "core/settings.h"
#include "recording/audiorecorder.h"
#include "service/authmanager.h"
#include "transcript/transcriptlimits.h"

#include <QCoreApplication>
#include <QPointer>

namespace sorv {

namespace {

using TranscriptLimits::fitted;
using TranscriptLimits::kMaxLabelChars;
using TranscriptLimits::kMaxSegmentChars;

} // namespace

ServerTranscriptManager::ServerTranscriptManager(QObject* parent)
    : ServerTranscriptManager(LiveAudioStreamer::Timing{}, parent)
{}

ServerTranscriptManager::ServerTranscriptManager(LiveAudioStreamer::Timing timing, QObject* parent)
    : QObject(parent), m_streamer(std::move(timing))
{
    qRegisterMetaType<TranscriptSegment>();
    qRegisterMetaType<TranscriptStatus>();
    // Events come on the main thread, and not at all once the streamer (a
    // member) is gone.
    m_streamer.onTranscriptUpdate = [this](const LiveTranscriptEvent& event) { handle(event); };
}

ServerTranscriptManager::~ServerTranscriptManager()
{
    m_streamer.onTranscriptUpdate = {};
    m_streamer.onAuthNeeded = {};
}

QVariantMap ServerTranscriptManager::speakerNamesMap() const
{
    QVariantMap map;
    for (auto it = m_speakerNames.cbegin(); it != m_speakerNames.cend(); ++it)
        map.insert(it.key(), it.value());
    return map;
}

QStringList ServerTranscriptManager::languageHints(const QString& language)
{
    const QString lang = language.left(2);
    if (lang == QLatin1String("en"))
        return {QStringLiteral("en")};
    return {lang, QStringLiteral("en")};
}

QString ServerTranscriptManager::displayName(const QString& label,
                                             const QMap<QString, QString>& names)
{
    if (const auto it = names.constFind(label); it != names.cend())
        return it.value();
    if (label == QLatin1String("you"))
        return QCoreApplication::translate("ServerTranscriptManager", "You");
    QString words = label;
    words.replace(QLatin1Char('_'), QLatin1Char(' '));
    bool wordStart = true;
    for (QChar& c : words) {
        if (c.isSpace()) {
            wordStart = true;
            continue;
        }
        c = wordStart ? c.toUpper() : c.toLower();
        wordStart = false;
    }
    return words;
}

// ---- Start and stop -------------------------------------------------------------

void ServerTranscriptManager::start(AudioRecorder& recorder, AuthManager& auth,
                                    const QString& language)
{
    start(auth, language);
    if (m_status.isError())
        return;
    recorder.setOnMixedAudioBuffer(m_streamer.audioInput());
}

void ServerTranscriptManager::start(AuthManager& auth, const QString& language)
{
    if (!m_segments.isEmpty()) {
        m_segments.clear();
        Q_EMIT segmentsCleared();
        Q_EMIT segmentsChanged();
    }
    m_nextSegmentId = 0;
    m_currentPartialSpeaker.reset();
    m_partialBufferBySpeaker.clear();
    setAndNotify(this, m_speakerNames, QMap<QString, QString>(),
                 &ServerTranscriptManager::speakerNamesChanged);
    setStatus(TranscriptStatus::connecting());

    const QString token = auth.accessToken();
    if (token.isEmpty()) {
        setStatus(TranscriptStatus::error(
            QCoreApplication::translate("ServerTranscriptManager", "Not logged in")));
        return;
    }
    const QPointer<AuthManager> weakAuth(&auth);
    m_streamer.onAuthNeeded = [this, weakAuth](const LiveAudioStreamer::TokenReply& reply) {
        if (!weakAuth) {
            reply(std::nullopt);
            return;
        }
        weakAuth->refreshThenRetry(
            this, [weakAuth, reply] { reply(weakAuth->accessToken()); },
            [reply](AuthManager::RefreshOutcome) { reply(std::nullopt); });
    };
    // A refresh under way (the recording's start begins one) is about to
    // replace the token: the connection waits for it rather than being
    // refused and costing a refresh of its own.
    const auto currentToken = [this, weakAuth](const LiveAudioStreamer::TokenReply& reply) {
        const auto answer = [weakAuth, reply] {
            const QString current = weakAuth ? weakAuth->accessToken() : QString();
            reply(current.isEmpty() ? std::nullopt : std::optional<QString>(current));
        };
        if (!weakAuth || !weakAuth->isRefreshing()) {
            answer();
            return;
        }
        // Joins the refresh under way; whatever its outcome, the session's
        // token then is the one to use.
        weakAuth->refreshAccessToken(this, [answer](bool) { answer(); });
    };
    m_streamer.start(Settings::serverOrigin(), token, languageHints(language), currentToken);
    m_streaming = true;
}

void ServerTranscriptManager::stop()
{
    m_streamer.stop();
    setStatus(TranscriptStatus::idle());
}

// ---- Events -----------------------------------------------------------------------

void ServerTranscriptManager::handle(const LiveTranscriptEvent& event)
{
    std::visit(Overloaded{
                   [this](const LiveEvent::Connected&) { setStatus(TranscriptStatus::active()); },
                   [this](const LiveEvent::Segment& e) {
                       becomeActive();
                       applySegment(fitted(e.speaker, kMaxLabelChars), e.text, e.isFinal);
                   },
                   [this](const LiveEvent::Partial& e) {
                       becomeActive();
                       applyPartial(fitted(e.speaker, kMaxLabelChars), e.text);
                   },
                   [this](const LiveEvent::SpeakerNames& e) {
                       QMap<QString, QString> names;
                       for (auto it = e.names.cbegin(); it != e.names.cend(); ++it)
                           names.insert(fitted(it.key(), kMaxLabelChars),
                                        fitted(it.value(), kMaxLabelChars));
                       setAndNotify(this, m_speakerNames, names,
                                    &ServerTranscriptManager::speakerNamesChanged);
                       for (qsizetype row = 0; row < m_segments.size(); ++row) {
                           const auto it = names.constFind(m_segments.at(row).speaker);
                           if (it == names.cend() || m_segments.at(row).displayName == *it)
                               continue;
                           m_segments[row].displayName = *it;
                           Q_EMIT segmentDisplayNameChanged(static_cast<int>(row));
                           Q_EMIT segmentsChanged();
                       }
                   },
                   [this](const LiveEvent::Status& e) {
                       if (e.status == QLatin1String("connecting") && !m_status.isActive())
                           setStatus(TranscriptStatus::connecting());
                   },
                   [this](const LiveEvent::Error& e) {
                       if (!e.transient)
                           setStatus(TranscriptStatus::error(e.message));
                       else if (!m_status.isActive())
                           setStatus(TranscriptStatus::connecting());
                   },
                   [this](const LiveEvent::Disconnected&) {
                       if (!m_status.isError())
                           setStatus(TranscriptStatus::idle());
                       m_streaming = false;
                       Q_EMIT streamEnded();
                   },
               },
               event);
}

bool ServerTranscriptManager::lastSegmentIsOpenFor(const QString& speaker) const
{
    return !m_segments.isEmpty() && m_segments.last().speaker == speaker &&
           m_currentPartialSpeaker == speaker;
}

void ServerTranscriptManager::applySegment(const QString& speaker, const QString& fullText,
                                           bool isFinal)
{
    m_partialBufferBySpeaker.remove(speaker);
    const bool open = lastSegmentIsOpenFor(speaker);
    // An interim text shows as much as fits; a final one goes on in segments
    // of its own.
    const qsizetype fits = TranscriptLimits::fittingLength(fullText, kMaxSegmentChars);
    const QString text = fullText.left(fits);
    // Settled before the signals, so that whoever follows them sees whether
    // the segment is still interim.
    if (isFinal)
        m_currentPartialSpeaker.reset();
    else
        m_currentPartialSpeaker = speaker;
    if (!open) {
        appendSegment(speaker, text);
    } else {
        const qsizetype row = m_segments.size() - 1;
        if (m_segments.at(row).text != text || isFinal) {
            m_segments[row].text = text;
            Q_EMIT segmentTextChanged(static_cast<int>(row));
            Q_EMIT segmentsChanged();
        }
    }
    if (!isFinal)
        return;
    for (qsizetype at = fits; at < fullText.size();) {
        const QString rest = fullText.mid(at, kMaxSegmentChars + 1);
        const QString piece = rest.left(TranscriptLimits::fittingLength(rest, kMaxSegmentChars));
        appendSegment(speaker, piece);
        at += piece.size();
    }
}

void ServerTranscriptManager::applyPartial(const QString& speaker, const QString& text)
{
    const auto buffered = m_partialBufferBySpeaker.constFind(speaker);
    const QString prev = buffered == m_partialBufferBySpeaker.cend() ? QString() : *buffered;
    // Past the limit interim text stops growing; the final text has it all.
    const QString merged =
        fitted(prev.isEmpty() || text.startsWith(prev) ? text : prev + text.left(kMaxSegmentChars),
               kMaxSegmentChars);
    if (buffered == m_partialBufferBySpeaker.cend() &&
        m_partialBufferBySpeaker.size() >= TranscriptLimits::kMaxSpeakers)
        m_partialBufferBySpeaker.erase(m_partialBufferBySpeaker.begin());
    m_partialBufferBySpeaker.insert(speaker, merged);
    if (lastSegmentIsOpenFor(speaker)) {
        const qsizetype row = m_segments.size() - 1;
        if (m_segments.at(row).text != merged) {
            m_segments[row].text = merged;
            Q_EMIT segmentTextChanged(static_cast<int>(row));
            Q_EMIT segmentsChanged();
        }
        return;
    }
    m_currentPartialSpeaker = speaker;
    appendSegment(speaker, merged);
}

void ServerTranscriptManager::appendSegment(const QString& speaker, const QString& text)
{
    if (m_segments.size() >= TranscriptLimits::kMaxSegments) {
        m_segments.remove(0, TranscriptLimits::kTrimBatch);
        Q_EMIT segmentsTrimmed(static_cast<int>(TranscriptLimits::kTrimBatch));
    }
    m_segments.append(TranscriptSegment{
        m_nextSegmentId++, speaker, displayName(speaker, m_speakerNames), text, {}});
    Q_EMIT segmentAppended(static_cast<int>(m_segments.size() - 1));
    Q_EMIT segmentsChanged();
}

void ServerTranscriptManager::becomeActive()
{
    if (!m_status.isActive())
        setStatus(TranscriptStatus::active());
}

void ServerTranscriptManager::setStatus(const TranscriptStatus& status)
{
    setAndNotify(this, m_status, status, &ServerTranscriptManager::statusChanged);
}

} // namespace sorv

#include "moc_servertranscriptmanager.cpp"
