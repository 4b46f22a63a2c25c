#pragma once

#include "service/records.h"

#include <QDateTime>
#include <QList>
#include <QString>

#include <optional>

namespace sorv {

// Display helpers for the recordings list (shared by the CLI and the views).
// A duration in whole seconds ("00:59", "1:01:01") is formatElapsed() in core.

// A recording's `duration_ms`: "m:ss" under an hour, else "h:mm:ss".
QString formatDurationMs(qint64 ms);

// A recording's `created_at` as "d MMM"; "--" when absent; the first ten
// characters when the text is not a date-time we know.
QString formatRecordingDate(const std::optional<QString>& createdAt);

// How long ago a meeting bot was sent, from its `created_at`
// ("yyyy-MM-ddTHH:mm:ss", which the service writes in UTC): "Just now",
// "12m ago", "3h ago", "2d ago" (whole units, rounded down). Empty from a
// week on, and when the text is absent or not of that form.
QString formatRelativeAge(const std::optional<QString>& createdAt, const QDateTime& now);

// A recording's status as its icon tells it: "completed" (any status that
// begins with "complete"), "error", else "processing".
QString recordingStatusKind(const QString& status);

// Where a recording stands in the list. Recordings that share a `batch_id`
// form one group, in the place of the group's first recording in the
// service's order, ordered within by `batch_index` (none counts as 0; ties
// keep the service's order). Recordings without a batch stand alone.
struct RecordingPlace {
    qsizetype source = 0;  // its index in the list as the service sent it
    int groupPosition = 0; // 0-based within its group
    int groupSize = 1;     // 1 for a recording without a batch
    bool inBatch = false;
};
QList<RecordingPlace> arrangeRecordings(const QList<Recording>& recordings);

} // namespace sorv
