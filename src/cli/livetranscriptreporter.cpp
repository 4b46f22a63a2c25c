#include "livetranscriptreporter.h"

#include "core/terminaltext.h"
#include "transcript/livetranscriptmanager.h"

#include <QJsonObject>
#include <QPointer>

#include <algorithm>
#include <utility>

#include <sys/ioctl.h>
#include <unistd.h>

namespace sorv::cli {

LiveTranscriptReporter::LiveTranscriptReporter(
    const CommandContext& ctx, std::function<const QList<TranscriptSegment>&()> segments,
    std::function<bool(int row)> isOpen)
    : m_ctx(ctx), m_after(ctx.delays ? ctx.delays : timerDelayedCall()),
      m_segments(std::move(segments)), m_isOpen(std::move(isOpen))
{}

LiveTranscriptReporter::LiveTranscriptReporter(const CommandContext& ctx, LiveTranscriptManager& t)
    : LiveTranscriptReporter(
          ctx, [&t]() -> const QList<TranscriptSegment>& { return t.segments(); },
          [&t](int row) { return row == t.segments().size() - 1; })
{
    connect(&t, &LiveTranscriptManager::segmentAppended, this, &LiveTranscriptReporter::changed);
    connect(&t, &LiveTranscriptManager::segmentTextChanged, this, &LiveTranscriptReporter::changed);
    connect(&t, &LiveTranscriptManager::segmentsCleared, this, [this] { rowsDropped(-1); });
    connect(&t, &LiveTranscriptManager::segmentsTrimmed, this,
            &LiveTranscriptReporter::rowsDropped);
}

QString LiveTranscriptReporter::segmentLine(const TranscriptSegment& segment)
{
    // One line, whatever the service put in it.
    return terminalSafe(segment.displayName) + QStringLiteral(": ") + terminalSafe(segment.text);
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
    if (m_ctx.json) {
        if (m_isOpen(row)) {
            emitInterim(row);
        } else {
            if (m_heldRow != row)
                emitHeld();
            m_heldRow = -1;
            m_ctx.event(segmentEvent(segments.at(row)));
        }
    }
    printFinished();
    if (m_ctx.terminal && redraw)
        redraw();
}

void LiveTranscriptReporter::emitInterim(int row)
{
    if (m_interimRecently) {
        if (m_heldRow != row)
            emitHeld();
        m_heldRow = row;
        return;
    }
    m_ctx.event(segmentEvent(m_segments().at(row)));
    m_interimRecently = true;
    m_after(kInterimInterval, [self = QPointer<LiveTranscriptReporter>(this)] {
        if (self)
            self->intervalEnded();
    });
}

void LiveTranscriptReporter::intervalEnded()
{
    m_interimRecently = false;
    const int row = std::exchange(m_heldRow, -1);
    if (row >= 0 && row < m_segments().size())
        emitInterim(row);
}

void LiveTranscriptReporter::flush()
{
    emitHeld();
}

void LiveTranscriptReporter::emitHeld()
{
    const int row = std::exchange(m_heldRow, -1);
    if (row >= 0 && row < m_segments().size())
        m_ctx.event(segmentEvent(m_segments().at(row)));
}

void LiveTranscriptReporter::rowsDropped(int count)
{
    // -1: all of them.
    if (count < 0) {
        m_printed = 0;
        m_heldRow = -1;
        return;
    }
    // The oldest segments of a very long transcript are let go; rows move up.
    m_printed = std::max(0, m_printed - count);
    m_heldRow = m_heldRow >= count ? m_heldRow - count : -1;
}

void LiveTranscriptReporter::printFinished()
{
    const QList<TranscriptSegment>& segments = m_segments();
    while (m_printed < segments.size() && !m_isOpen(m_printed)) {
        const QString line = segmentLine(segments.at(m_printed++));
        // Over whatever a terminal shows in place.
        m_ctx.printOver(line);
    }
}

void LiveTranscriptReporter::statusChanged(const TranscriptStatus& status)
{
    emitHeld();
    m_ctx.event(statusEvent(status));
    if (!status.isError())
        return;
    const QString line = QStringLiteral("Live transcript: ") + terminalSafe(status.message());
    m_ctx.printOver(line);
    if (m_ctx.terminal && redraw)
        redraw();
}

void LiveTranscriptReporter::finish()
{
    emitHeld();
    const QList<TranscriptSegment>& segments = m_segments();
    while (m_printed < segments.size()) {
        const QString line = segmentLine(segments.at(m_printed++));
        m_ctx.printOver(line);
    }
}

} // namespace sorv::cli

#include "moc_livetranscriptreporter.cpp"
