#pragma once

#include "cli/command.h"
#include "core/delayedcall.h"
#include "transcript/transcriptsegment.h"
#include "transcript/transcriptstatus.h"

#include <QList>
#include <QObject>
#include <QString>

#include <chrono>
#include <functional>

namespace sorv {
class LiveTranscriptManager;
class LocalTranscriptManager;
class ServerTranscriptManager;
} // namespace sorv

namespace sorv::cli {

// Shows a live transcript on the command line as it firms up. Finished
// segments become lines "Speaker: text"; the segment still being spoken is
// offered as openLine(), which a terminal shows in place beside the level
// meter. With --json every change of a segment is a "segment" event and
// every change of status a "transcriptStatus" event.
//
// A segment is finished once the service made it final or another segment
// followed it (the on-device preview and a meeting's stream only know the
// latter). A meeting's stream has no transcript status of its own: its
// connection is the caller's to report.
//
// Interim text can change with every message the service sends, and each
// "segment" event carries the whole text: its events are coalesced to one
// per kInterimInterval (the latest text), so that the output grows with
// what was said, not with how often it was revised. Finished segments go
// out at once, after whatever interim change was held back.
class LiveTranscriptReporter : public QObject {
    Q_OBJECT

public:
    static constexpr std::chrono::milliseconds kInterimInterval{250};

    LiveTranscriptReporter(const CommandContext& ctx, ServerTranscriptManager& transcript);
    LiveTranscriptReporter(const CommandContext& ctx, LocalTranscriptManager& transcript);
    LiveTranscriptReporter(const CommandContext& ctx, LiveTranscriptManager& transcript);

    // The segment being spoken, as a line; empty when there is none.
    QString openLine() const;
    // Called when openLine() changed, and after a finished line was printed
    // over the line drawn in place.
    std::function<void()> redraw;

    // The interim change held back goes out now, ahead of another event.
    void flush();
    // The transcript is over: what is still open is printed as a line.
    void finish();

    static QString segmentLine(const TranscriptSegment& segment);
    // The end of a line that is too wide, after an ellipsis.
    static QString fitToWidth(const QString& line, int width);
    // The width of the terminal on standard output (80 when unknown).
    static int terminalColumns();
    static QJsonObject segmentEvent(const TranscriptSegment& segment);
    static QJsonObject statusEvent(const TranscriptStatus& status);

private:
    LiveTranscriptReporter(const CommandContext& ctx,
                           std::function<const QList<TranscriptSegment>&()> segments,
                           std::function<bool(int row)> isOpen);
    void changed(int row);
    void statusChanged(const TranscriptStatus& status);
    void printFinished();
    void emitInterim(int row);
    void emitHeld();
    void intervalEnded();
    void rowsDropped(int count);

    const CommandContext& m_ctx;
    DelayedCall m_after;
    std::function<const QList<TranscriptSegment>&()> m_segments;
    std::function<bool(int row)> m_isOpen;
    // Segments before this row are printed.
    int m_printed = 0;
    // An interim event went out less than kInterimInterval ago; the row
    // whose latest change waits for the interval's end (-1: none).
    bool m_interimRecently = false;
    int m_heldRow = -1;
};

} // namespace sorv::cli
