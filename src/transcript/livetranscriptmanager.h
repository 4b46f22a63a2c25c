#pragma once

#include "core/delayedcall.h"
#include "transcript/eventstreamreader.h"
#include "transcript/meetingtranscript.h"
#include "transcript/sseconnectionstatus.h"
#include "transcript/transcriptsegment.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>
#include <QVariantMap>

#include <chrono>
#include <cstdint>
#include <optional>

class QNetworkReply;

namespace sorv {

// Follows the live transcript of a meeting that the service's bot is
// recording: a server-sent event stream of JSON payloads (transcript
// elements, speaker names, the meeting's status), read as it arrives and
// folded into segments by a MeetingTranscript. Lives on the main thread.
//
// The stream: 200 with the content type text/event-stream → connected, then
// every "data: " line is a payload. Any other status ends it with the error
// "HTTP {status}", and so does an origin that makes no URL ("Invalid URL");
// neither is retried. A transport error (refused, reset, dropped
// mid-stream), or a 200 that is not an event stream (a captive portal's
// page), shows its text and a new attempt follows 3 s later, without limit,
// keeping the transcript; the status stays at that error until the next
// attempt is connected. A stream that ends cleanly leaves the manager
// disconnected.
//
// Qt's HTTP/1.1 layer takes a connection closed in the middle of a chunked
// body for the body's end, most of the time without an error. A body that
// stops in the middle of a line cannot be a whole event stream, so that
// end counts as the drop it is ("Connection closed mid-stream") and is
// retried; one cut exactly between two lines is indistinguishable from a
// clean end here. (HTTP/2, which https origins usually speak, reports
// either as an error.)
//
// Segments are only appended, extended in place, dropped from the front
// (the oldest, once there are very many: see MeetingTranscript) or all
// cleared; the finer signals say which, as ServerTranscriptManager's do.
class LiveTranscriptManager : public QObject {
    Q_OBJECT
    Q_PROPERTY(QList<sorv::TranscriptSegment> segments READ segments NOTIFY segmentsChanged)
    Q_PROPERTY(QVariantMap speakerNames READ speakerNamesMap NOTIFY speakerNamesChanged)
    Q_PROPERTY(sorv::SSEConnectionStatus connectionStatus READ connectionStatus NOTIFY
                   connectionStatusChanged)
    Q_PROPERTY(QString meetingStatus READ meetingStatus NOTIFY meetingStatusChanged)
    Q_PROPERTY(QString meetingId READ meetingId NOTIFY meetingIdChanged)
    Q_PROPERTY(bool active READ isActive NOTIFY activeChanged)

public:
    static constexpr std::chrono::milliseconds kRetryDelay{3000};
    // What Qt may read of the stream ahead of its handling.
    static constexpr qint64 kReadBufferBytes = qint64{256} * 1024;

    explicit LiveTranscriptManager(QObject* parent = nullptr);
    // With the retry's delay replaced (tests).
    explicit LiveTranscriptManager(DelayedCall after, QObject* parent = nullptr);
    ~LiveTranscriptManager() override;

    const QList<TranscriptSegment>& segments() const { return m_transcript.segments(); }
    const QMap<QString, QString>& speakerNames() const { return m_transcript.speakerNames(); }
    QVariantMap speakerNamesMap() const;
    const SSEConnectionStatus& connectionStatus() const { return m_status; }
    QString meetingStatus() const { return m_transcript.meetingStatus(); }
    QString meetingId() const { return m_meetingId; }
    // From connect() until the stream ends for good or disconnect(); true
    // while a retry is waiting.
    bool isActive() const { return m_active; }
    // Requests made since connect(), the first included.
    int attempts() const { return m_attempts; }

    // The stream's address: the origin with every "/" trimmed from both
    // ends, then "/api/meetings/{id}/live" (the id percent-encoded as one
    // path segment). None when that is not a usable URL.
    static std::optional<QUrl> streamUrl(const QString& serverURL, const QString& meetingId);

    // Follows a meeting: ends any earlier stream, empties the transcript and
    // starts over (connecting). `serverURL` is the service's origin.
    Q_INVOKABLE void connect(const QString& meetingId, const QString& serverURL,
                             const QString& token);
    // Ends the stream (disconnected); the segments stay.
    Q_INVOKABLE void disconnect();

Q_SIGNALS:
    void segmentsChanged();
    void segmentAppended(int row);
    void segmentTextChanged(int row);
    // The oldest `count` segments were dropped; rows moved up by as many.
    void segmentsTrimmed(int count);
    void segmentsCleared();
    void speakerNamesChanged();
    void connectionStatusChanged();
    void meetingStatusChanged();
    void meetingIdChanged();
    void activeChanged();
    // The stream ended by itself for good: cleanly (disconnected) or with an
    // error that is not retried. Not after disconnect().
    void streamEnded();

private:
    void startAttempt();
    void readMetaData();
    void readBody();
    void finished();
    void retryLater(const QString& errorText);
    void handlePayloads(const QList<QByteArray>& payloads, std::uint64_t generation);
    void endStream(const SSEConnectionStatus& status);
    void dropReply();
    void setStatus(const SSEConnectionStatus& status);
    void setActive(bool active);

    DelayedCall m_after;
    MeetingTranscript m_transcript;
    EventStreamReader m_reader;
    SSEConnectionStatus m_status;
    QString m_meetingId;
    QString m_serverURL;
    QString m_token;
    bool m_active = false;
    int m_attempts = 0;
    // Bumped by every connect() and disconnect(): whatever an earlier stream
    // left behind (a pending retry, a payload loop) checks it and stops.
    std::uint64_t m_generation = 0;
    QPointer<QNetworkReply> m_reply;
    bool m_streamOpen = false; // the current reply answered 200
};

} // namespace sorv
