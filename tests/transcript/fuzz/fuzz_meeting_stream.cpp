// libFuzzer target: arbitrary bytes as a meeting's event stream, cut into
// reads of arbitrary sizes, through the line reader and the payload
// handling. Nothing may crash, hang or read out of bounds; the cut must not
// matter; and the transcript must keep its promises (bounded, ids rising).
//
// The first eight bytes choose the cuts; the rest is the stream.

#include "transcript/eventstreamreader.h"
#include "transcript/meetingtranscript.h"

#include <QByteArray>
#include <QList>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

using namespace sorv;

namespace {

void check(bool condition)
{
    if (!condition)
        std::abort();
}

// Read sizes from 1 to 64 bytes, now and then a larger one, from a seed.
class Cuts {
public:
    explicit Cuts(std::uint64_t seed) : m_state(seed | 1) {}
    qsizetype next()
    {
        m_state ^= m_state << 13;
        m_state ^= m_state >> 7;
        m_state ^= m_state << 17;
        return (m_state % 16 == 0) ? qsizetype(m_state % 4096) + 1 : qsizetype(m_state % 64) + 1;
    }

private:
    std::uint64_t m_state;
};

// The rows a payload touched (the grown one and those appended), against
// their neighbours; the whole list is checked once at the end.
void checkRows(const MeetingTranscript& t, qsizetype from)
{
    const QList<TranscriptSegment>& segments = t.segments();
    for (qsizetype row = std::max<qsizetype>(0, from); row < segments.size(); ++row) {
        check(row == 0 || segments[row].id > segments[row - 1].id);
        check(segments[row].text.size() <= MeetingTranscript::kMaxSegmentChars);
    }
    check(segments.isEmpty() || segments.last().id < t.nextSegmentId());
}

void checkChanges(const MeetingTranscript& t, const MeetingTranscript::Changes& c)
{
    const qsizetype size = t.segments().size();
    check(size <= MeetingTranscript::kMaxSegments);
    check(c.firstAppended < size);
    check(c.grownRow < size);
    check(c.grownRow < 0 || c.firstAppended < 0 || c.grownRow < c.firstAppended);
    if (c.grownRow >= 0)
        checkRows(t, c.grownRow);
    else if (c.firstAppended >= 0)
        checkRows(t, c.firstAppended);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::uint64_t seed = 0;
    const std::size_t seedBytes = std::min<std::size_t>(sizeof seed, size);
    std::memcpy(&seed, data, seedBytes);
    const QByteArray stream = QByteArray::fromRawData(
        reinterpret_cast<const char*>(data + seedBytes), static_cast<qsizetype>(size - seedBytes));

    // In one read, for comparison.
    EventStreamReader whole;
    QList<QByteArray> expected;
    whole.feed(stream, expected);

    EventStreamReader reader;
    MeetingTranscript transcript;
    QList<QByteArray> payloads;
    Cuts cuts(seed);
    for (qsizetype at = 0; at < stream.size();) {
        const qsizetype n = std::min(cuts.next(), stream.size() - at);
        QList<QByteArray> fresh;
        reader.feed(QByteArrayView(stream.constData() + at, n), fresh);
        at += n;
        check(reader.bufferedBytes() <= EventStreamReader::kMaxLineBytes);
        for (const QByteArray& payload : fresh) {
            check(!payload.contains('\n') && !payload.contains('\r'));
            checkChanges(transcript, transcript.apply(payload));
        }
        payloads += fresh;
    }
    checkRows(transcript, 0);
    check(payloads == expected);
    check(reader.midLine() == whole.midLine());
    check(reader.bufferedBytes() == whole.bufferedBytes());
    reader.reset();
    check(reader.bufferedBytes() == 0 && !reader.midLine());
    return 0;
}
