#pragma once

#include <QString>

namespace sorv {

// Text from elsewhere (the service, a file name) made safe to print on a
// terminal: every control character — C0, DEL and C1, which is what escape
// sequences (a window title, the clipboard, clearing the screen) are made
// of — becomes U+FFFD, and line ends, carriage returns and tabs become a
// space, so the text stays on its line. With `keepLineEnds` a "\n" stays
// (multi-line messages of our own around such text).
QString terminalSafe(const QString& text, bool keepLineEnds = false);

} // namespace sorv
