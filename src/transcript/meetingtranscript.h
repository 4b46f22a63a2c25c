#pragma once

#include "transcript/transcriptlimits.h"
#include "transcript/transcriptsegment.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>

#include <cstdint>

class QJsonObject;

namespace sorv {

// The transcript of a bot's meeting as its event stream tells it, one
// payload (a JSON object) at a time: "transcript" elements folded into
// segments, the speaker names, and the meeting's status. Anything that is
// not a payload we know is ignored. No signals and no I/O: apply() says
// what changed, and the owner tells its views.
//
// Folding: an element by the speaker of the last segment extends that
// segment (a space, then its text); another speaker starts a new segment
// with the next id. A segment's display name is settled when it starts.
//
// Memory stays bounded however long the meeting runs (TranscriptLimits):
// at most kMaxSegments segments are kept (past that the oldest kTrimBatch
// go at once), and a segment grows to kMaxSegmentChars at most; the same
// speaker's next words then start a new segment. Labels, names, timestamps
// and the meeting's status are cut to kMaxLabelChars.
class MeetingTranscript {
public:
    static constexpr qsizetype kMaxSegments = TranscriptLimits::kMaxSegments;
    static constexpr qsizetype kTrimBatch = TranscriptLimits::kTrimBatch;
    static constexpr qsizetype kMaxSegmentChars = TranscriptLimits::kMaxSegmentChars;

    // What one payload changed, with rows as they are after it.
    struct Changes {
        // The oldest rows dropped; the rows below are counted after them.
        qsizetype trimmed = 0;
        // A row that was there before got more text (-1: none).
        qsizetype grownRow = -1;
        // The rows from here to the end are new (-1: none).
        qsizetype firstAppended = -1;
        bool speakerNames = false;
        bool meetingStatus = false;

        bool segmentsChanged() const { return trimmed > 0 || grownRow >= 0 || firstAppended >= 0; }
    };

    Changes apply(const QByteArray& payload);
    // Segments, names, status and the next id, all back to the start.
    void clear();

    const QList<TranscriptSegment>& segments() const { return m_segments; }
    const QMap<QString, QString>& speakerNames() const { return m_speakerNames; }
    const QString& meetingStatus() const { return m_meetingStatus; }
    std::int64_t nextSegmentId() const { return m_nextSegmentId; }

private:
    void applyElement(const QJsonObject& element, Changes& changes);
    void trim(Changes& changes);

    QList<TranscriptSegment> m_segments;
    QMap<QString, QString> m_speakerNames;
    QString m_meetingStatus;
    std::int64_t m_nextSegmentId = 0;
};

} // namespace sorv
