#pragma once

#include <QString>

#include <cstdint>
#include <functional>

namespace sorv {

// Console diagnostics: one line on standard output per call, starting with the
// pictogram that tells its kind ("✅", "❌", "⚠️", "🎤", "🔊", "📝", …).
// Thread-safe; lines from different threads never interleave. Control
// characters are replaced (terminalSafe), line ends kept.
void consoleLog(const QString& line);

// Tests capture the console by installing a sink; an empty function restores stdout.
using LogSink = std::function<void(const QString&)>;
void setLogSink(LogSink sink);

// True for the first `first` occurrences (1-based count n) and then for every
// `every`-th one: the thinning rule of the high-rate lines.
constexpr bool logThinned(std::int64_t n, std::int64_t first, std::int64_t every = 500)
{
    return (n >= 1 && n <= first) || (n > 0 && n % every == 0);
}

} // namespace sorv
