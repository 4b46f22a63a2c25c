#include "log.h"

#include "core/terminaltext.h"

#include <QByteArray>

#include <cstdio>
#include <mutex>

namespace sorv {

namespace {
std::mutex& logMutex()
{
    static std::mutex m;
    return m;
}
LogSink& logSink()
{
    static LogSink sink;
    return sink;
}
} // namespace

void consoleLog(const QString& text)
{
    // Lines quote what the service sent (its errors, odd messages): none of
    // it may reach a terminal as an escape sequence.
    const QString line = terminalSafe(text, true);
    std::lock_guard lock(logMutex());
    if (auto& sink = logSink()) {
        sink(line);
        return;
    }
    const QByteArray bytes = line.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
    std::fflush(stdout);
}

void setLogSink(LogSink sink)
{
    std::lock_guard lock(logMutex());
    logSink() = std::move(sink);
}

} // namespace sorv
