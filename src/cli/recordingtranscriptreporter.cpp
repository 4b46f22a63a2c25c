// The reporter for a recording's own transcripts (the service's live
// transcript, the on-device preview). Apart from the rest of the reporter so
// that `follow` does not bring in the capture stack.

#include "cli/livetranscriptreporter.h"
#include "transcript/localtranscriptmanager.h"
#include "transcript/servertranscriptmanager.h"

namespace sorv::cli {

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
    connect(&t, &ServerTranscriptManager::segmentsCleared, this, [this] { rowsDropped(-1); });
    connect(&t, &ServerTranscriptManager::segmentsTrimmed, this,
            &LiveTranscriptReporter::rowsDropped);
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
    connect(&t, &LocalTranscriptManager::segmentsCleared, this, [this] { rowsDropped(-1); });
    connect(&t, &LocalTranscriptManager::statusChanged, this,
            [this, &t] { statusChanged(t.status()); });
}

} // namespace sorv::cli
