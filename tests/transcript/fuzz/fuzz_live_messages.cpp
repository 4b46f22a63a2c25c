// libFuzzer target: arbitrary bytes through the live service's message
// handling, both dialects. The input is split into messages at newlines and
// handled in order by one handler, so the per-speaker interim text carries
// from message to message as on a real stream. Nothing may crash, hang or
// read out of bounds, and what comes out must keep the handler's promises.

#include "core/log.h"
#include "transcript/livemessagehandler.h"
#include "transcript/transcriptlimits.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <variant>

using namespace sorv;

namespace {

void check(bool condition)
{
    if (!condition)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    setLogSink([](const QString&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray bytes =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    LiveMessageHandler handler;
    for (const QByteArray& message : bytes.split('\n')) {
        std::vector<LiveTranscriptEvent> events;
        handler.handle(QString::fromUtf8(message), events);
        // A message of several events is a token message: its partials
        // first, then its finals, none of them empty.
        if (events.size() > 1) {
            bool sawFinal = false;
            for (const LiveTranscriptEvent& e : events) {
                if (const auto* s = std::get_if<LiveEvent::Segment>(&e)) {
                    check(s->isFinal && !s->text.isEmpty());
                    sawFinal = true;
                } else {
                    check(std::holds_alternative<LiveEvent::Partial>(e) && !sawFinal);
                }
            }
        }
        for (const LiveTranscriptEvent& e : events)
            (void)describe(e);
        // Interim text, once accumulated, is never empty, and what is kept
        // stays bounded whatever comes.
        check(handler.partialAccBySpeaker().size() <= TranscriptLimits::kMaxSpeakers);
        for (auto it = handler.partialAccBySpeaker().cbegin();
             it != handler.partialAccBySpeaker().cend(); ++it) {
            check(!it.value().isEmpty());
            check(it.value().size() <= TranscriptLimits::kMaxSegmentChars);
            check(it.key().size() <= TranscriptLimits::kMaxLabelChars);
        }
    }
    return 0;
}
