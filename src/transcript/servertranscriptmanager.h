#pragma once

#include "transcript/liveaudiostreamer.h"
#include "transcript/livetranscriptevent.h"
#include "transcript/transcriptsegment.h"
#include "transcript/transcriptstatus.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <cstdint>
#include <optional>

namespace sorv {

class AudioRecorder;
class AuthManager;

// The service's live transcript of a recording: the recorder's mixed audio
// goes to the service through a LiveAudioStreamer, and what comes back is
// folded into segments with speaker names. One speaker talking without
// interruption makes one segment whose interim text grows and is then
// finalised in place. Lives on the main thread.
//
// Segments are only appended, changed in place, dropped from the front or
// all cleared; the finer signals say which, so that a list model can follow
// without resetting.
//
// Memory stays bounded whatever the service sends (TranscriptLimits): the
// oldest segments go in batches past kMaxSegments; interim text stops
// growing at kMaxSegmentChars (the rest waits for the final text), and a
// final text longer than that continues in new segments of the speaker.
class ServerTranscriptManager : public QObject {
    Q_OBJECT
    Q_PROPERTY(QList<sorv::TranscriptSegment> segments READ segments NOTIFY segmentsChanged)
    Q_PROPERTY(sorv::TranscriptStatus status READ status NOTIFY statusChanged)
    Q_PROPERTY(QVariantMap speakerNames READ speakerNamesMap NOTIFY speakerNamesChanged)

public:
    explicit ServerTranscriptManager(QObject* parent = nullptr);
    // With the streamer's clock and timers replaced (tests).
    explicit ServerTranscriptManager(LiveAudioStreamer::Timing timing, QObject* parent = nullptr);
    ~ServerTranscriptManager() override;

    const QList<TranscriptSegment>& segments() const { return m_segments; }
    const TranscriptStatus& status() const { return m_status; }
    const QMap<QString, QString>& speakerNames() const { return m_speakerNames; }
    QVariantMap speakerNamesMap() const;
    // The speaker whose segment at the end of the list is still interim.
    const std::optional<QString>& currentPartialSpeaker() const { return m_currentPartialSpeaker; }

    LiveAudioStreamer& streamer() { return m_streamer; }
    // From a start that reached the service until its stream ended.
    bool isStreaming() const { return m_streaming; }

    // Starts the transcript of a recording: clears the segments, connects
    // with the session's token, and routes the recorder's mixed audio to
    // the service. `language` is a speech locale such as "de-DE".
    void start(AudioRecorder& recorder, AuthManager& auth, const QString& language);
    // The same without a recorder: audio goes to streamer().sendAudio().
    void start(AuthManager& auth, const QString& language);

    // The hints the service gets for a speech locale: ["en"] for English,
    // else the language and English.
    static QStringList languageHints(const QString& language);
    // How a speaker label is shown: its name from the service, "You" for
    // "you", else the label in words ("guest_speaker" → "Guest Speaker").
    static QString displayName(const QString& label, const QMap<QString, QString>& names);

    // One event from the streamer.
    void handle(const LiveTranscriptEvent& event);

public Q_SLOTS:
    // Ends the stream; the segments stay.
    void stop();

Q_SIGNALS:
    void segmentsChanged();
    void segmentAppended(int row);
    // Its text changed, or it became final with the text it had.
    void segmentTextChanged(int row);
    void segmentDisplayNameChanged(int row);
    // The oldest `count` segments were dropped; rows moved up by as many.
    void segmentsTrimmed(int count);
    void segmentsCleared();
    void statusChanged();
    void speakerNamesChanged();
    // The stream ended: after stop(), or when authentication failed.
    void streamEnded();

private:
    void applySegment(const QString& speaker, const QString& text, bool isFinal);
    void applyPartial(const QString& speaker, const QString& text);
    void appendSegment(const QString& speaker, const QString& text);
    void setStatus(const TranscriptStatus& status);
    void becomeActive();
    bool lastSegmentIsOpenFor(const QString& speaker) const;

    QList<TranscriptSegment> m_segments;
    TranscriptStatus m_status;
    QMap<QString, QString> m_speakerNames;
    std::int64_t m_nextSegmentId = 0;
    std::optional<QString> m_currentPartialSpeaker;
    QMap<QString, QString> m_partialBufferBySpeaker;
    bool m_streaming = false;
    // Declared after the state above: it goes first, and no event can
    // arrive for a manager that is being destroyed.
    LiveAudioStreamer m_streamer;
};

} // namespace sorv
