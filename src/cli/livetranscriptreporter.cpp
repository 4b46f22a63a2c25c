#include "livetranscriptreporter.h"

#include "transcript/livetranscriptmanager.h"
#include "transcript/localtranscriptmanager.h"
#include "transcript/servertranscriptmanager.h"

#include <QJsonObject>

#include <algorithm>

#include <sys/ioctl.h>
#include <unistd.h>

namespace sorv::cli {

LiveTranscriptReporter::LiveTranscriptReporter(
    const CommandContext& ctx, std::function<const QList<TranscriptSegment>&()> segments,
    std::function<bool(int row)> isOpen)
    : m_ctx(ctx), m_segments(std::move(segments)), m_isOpen(std::move(isOpen))
{}

LiveTranscriptReporter::LiveTranscriptReporter(const CommandContext& ctx,
                                               ServerTranscriptManager& t)
    : LiveTranscriptReporter(
          ctx, [&t]() -> const QList<TranscriptSegment>& { return t.segments(); },
          [&t](int row) {
              return row == t.segments().size() - 1 && t.currentPartialSpeaker().has_value();
          })
{
    connect(&t, &ServerTranscriptManager::segmentAppended, this, &LiveTranscriptReporter::changed);
    connect(&t, &ServerTranscriptManager::segmentTextChanged, this,
            &LiveTranscriptReporter::changed);
    connect(&t, &ServerTranscriptManager::segmentDisplayNameChanged, this,
            &LiveTranscriptReporter::changed);
    connect(&t, &ServerTranscriptManager::segmentsCleared, this, [this] { m_printed = 0; });
    connect(&t, &ServerTranscriptManager::statusChanged, this,
            [this, &t] { statusChanged(t.status()); });
}

LiveTranscriptReporter::LiveTranscriptReporter(const CommandContext& ctx, LocalTranscriptManager& t)
    : LiveTranscriptReporter(
          ctx, [&t]() -> const QList<TranscriptSegment>& { return t.segments(); },
          [&t](int row) { return row == t.segments().size() - 1; })
{
    connect(&t, &LocalTranscriptManager::segmentAppended, this, &LiveTranscriptReporter::changed);
    connect(&t, &LocalTranscriptManager::segmentTextChanged, this,
            &LiveTranscriptReporter::changed);
    connect(&t, &LocalTranscriptManager::segmentsCleared, this, [this] { m_printed = 0; });
    connect(&t, &LocalTranscriptManager::statusChanged, this,
            [this, &t] { statusChanged(t.status()); });
}

LiveTranscriptReporter::LiveTranscriptReporter(const CommandContext& ctx, LiveTranscriptManager& t)
    : LiveTranscriptReporter(
          ctx, [&t]() -> const QList<TranscriptSegment>& { return t.segments(); },
          [&t](int row) { return row == t.segments().size() - 1; })
{
    connect(&t, &LiveTranscriptManager::segmentAppended, this, &LiveTranscriptReporter::changed);
    connect(&t, &LiveTranscriptManager::segmentTextChanged, this, &LiveTranscriptReporter::changed);
    connect(&t, &LiveTranscriptManager::segmentsCleared, this, [this] { m_printed = 0; });
    // The oldest segments of a very long meeting are let go; rows move up.
    connect(&t, &LiveTranscriptManager::segmentsTrimmed, this,
            [this](int count) { m_printed = std::max(0, m_printed - count); });
}

QString LiveTranscriptReporter::segmentLine(const TranscriptSegment& segment)
{
    return segment.displayName + QStringLiteral(": ") + segment.text;
}

QString LiveTranscriptReporter::fitToWidth(const QString& line, int width)
{
    if (width <= 1)
        return {};
    if (line.size() <= width)
        return line;
    return QStringLiteral("…") + line.right(width - 1);
}

int LiveTranscriptReporter::terminalColumns()
{
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    bool ok = false;
    const int columns = qEnvironmentVariableIntValue("COLUMNS", &ok);
    return ok && columns > 0 ? columns : 80;
}

QJsonObject LiveTranscriptReporter::segmentEvent(const TranscriptSegment& s)
{
    return {{QStringLiteral("event"), QStringLiteral("segment")},
            {QStringLiteral("id"), qint64(s.id)},
            {QStringLiteral("speaker"), s.speaker},
            {QStringLiteral("displayName"), s.displayName},
            {QStringLiteral("text"), s.text}};
}

QJsonObject LiveTranscriptReporter::statusEvent(const TranscriptStatus& status)
{
    return {{QStringLiteral("event"), QStringLiteral("transcriptStatus")},
            {QStringLiteral("status"), status.caseName()},
            {QStringLiteral("message"), status.message()}};
}

QString LiveTranscriptReporter::openLine() const
{
    const QList<TranscriptSegment>& segments = m_segments();
    const int last = static_cast<int>(segments.size()) - 1;
    if (last < m_printed || !m_isOpen(last))
        return {};
    return segmentLine(segments.at(last));
}

void LiveTranscriptReporter::changed(int row)
{
    const QList<TranscriptSegment>& segments = m_segments();
    if (row < 0 || row >= segments.size())
        return;
    m_ctx.event(segmentEvent(segments.at(row)));
    printFinished();
    if (m_ctx.terminal && redraw)
        redraw();
}

void LiveTranscriptReporter::printFinished()
{
    const QList<TranscriptSegment>& segments = m_segments();
    while (m_printed < segments.size() && !m_isOpen(m_printed)) {
        const QString line = segmentLine(segments.at(m_printed++));
        // Over whatever a terminal shows in place.
        m_ctx.print(m_ctx.terminal ? QStringLiteral("\r\033[K") + line : line);
    }
}

void LiveTranscriptReporter::statusChanged(const TranscriptStatus& status)
{
    m_ctx.event(statusEvent(status));
    if (!status.isError())
        return;
    const QString line = QStringLiteral("Live transcript: ") + status.message();
    m_ctx.print(m_ctx.terminal ? QStringLiteral("\r\033[K") + line : line);
    if (m_ctx.terminal && redraw)
        redraw();
}

void LiveTranscriptReporter::finish()
{
    const QList<TranscriptSegment>& segments = m_segments();
    while (m_printed < segments.size()) {
        const QString line = segmentLine(segments.at(m_printed++));
        m_ctx.print(m_ctx.terminal ? QStringLiteral("\r\033[K") + line : line);
    }
}

} // namespace sorv::cli
