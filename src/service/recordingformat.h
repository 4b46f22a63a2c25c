#pragma once

#include <QDateTime>
#include <QString>

#include <optional>

namespace sorv {

// Display helpers for the recordings list (shared by the CLI and the views).

// A recording's `duration_ms`: "m:ss" under an hour, else "h:mm:ss".
QString formatDurationMs(qint64 ms);

// A recording's `created_at` as "d MMM"; "--" when absent; the first ten
// characters when the text is not a date-time we know.
QString formatRecordingDate(const std::optional<QString>& createdAt);

} // namespace sorv
