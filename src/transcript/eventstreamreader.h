#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QList>

namespace sorv {

// Splits a server-sent event stream into lines as its bytes arrive, in
// pieces of any size, and keeps what follows "data: " (with the space) on
// the lines that begin with it. Every other line (event names, ids,
// comments, blank separators, "data:" without the space) is skipped: each
// payload is a single line. Lines end with LF, CRLF or a lone CR.
//
// Memory stays bounded however long the stream runs: only the data line
// being read is buffered, and one longer than kMaxLineBytes is dropped up
// to its end instead of growing the buffer further.
class EventStreamReader {
public:
    static constexpr qsizetype kMaxLineBytes = qsizetype{1} << 20;

    // The payloads of the lines these bytes complete are appended, in order.
    void feed(QByteArrayView bytes, QList<QByteArray>& payloads);
    // A line has begun and not ended. A well-formed stream never ends so:
    // its events end with a blank line.
    bool midLine() const { return m_lineStarted; }
    // Forgets a line begun on a connection that is gone.
    void reset();

    // The data line being read, so far.
    qsizetype bufferedBytes() const { return m_line.size(); }
    // Data lines dropped for being longer than kMaxLineBytes.
    qint64 droppedLines() const { return m_droppedLines; }

private:
    void take(const char* bytes, qsizetype size);
    void endLine(QList<QByteArray>& payloads);

    QByteArray m_line;
    // How much of "data: " the line has matched so far.
    int m_prefixMatched = 0;
    bool m_skipping = false; // not a data line
    bool m_overlong = false; // a data line past the limit
    bool m_lineStarted = false;
    bool m_afterCR = false; // an LF right after it ends nothing
    qint64 m_droppedLines = 0;
};

} // namespace sorv
