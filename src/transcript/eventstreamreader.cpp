#include "eventstreamreader.h"

namespace sorv {

namespace {

constexpr char kDataPrefix[] = "data: ";
constexpr int kDataPrefixSize = sizeof(kDataPrefix) - 1;

} // namespace

void EventStreamReader::feed(QByteArrayView bytes, QList<QByteArray>& payloads)
{
    const char* p = bytes.data();
    const char* const end = p + bytes.size();
    while (p < end) {
        if (m_afterCR) {
            m_afterCR = false;
            if (*p == '\n') {
                ++p;
                continue;
            }
        }
        const char* stop = p;
        while (stop < end && *stop != '\n' && *stop != '\r')
            ++stop;
        take(p, stop - p);
        if (stop == end)
            return;
        m_afterCR = *stop == '\r';
        endLine(payloads);
        p = stop + 1;
    }
}

void EventStreamReader::reset()
{
    m_line = QByteArray();
    m_prefixMatched = 0;
    m_skipping = false;
    m_overlong = false;
    m_lineStarted = false;
    m_afterCR = false;
}

void EventStreamReader::take(const char* bytes, qsizetype size)
{
    if (size <= 0)
        return;
    m_lineStarted = true;
    while (size > 0 && !m_skipping && m_prefixMatched < kDataPrefixSize) {
        if (*bytes != kDataPrefix[m_prefixMatched]) {
            m_skipping = true;
            break;
        }
        ++m_prefixMatched;
        ++bytes;
        --size;
    }
    if (m_skipping || m_overlong || size == 0)
        return;
    if (m_line.size() + size > kMaxLineBytes) {
        m_overlong = true;
        m_line = QByteArray();
        ++m_droppedLines;
        return;
    }
    m_line.append(bytes, size);
}

void EventStreamReader::endLine(QList<QByteArray>& payloads)
{
    if (!m_skipping && !m_overlong && m_prefixMatched == kDataPrefixSize)
        payloads.append(m_line);
    // The payload now shares the bytes; the next line starts a buffer of its own.
    m_line.clear();
    m_prefixMatched = 0;
    m_skipping = false;
    m_overlong = false;
    m_lineStarted = false;
}

} // namespace sorv
