#include "terminaltext.h"

namespace sorv {

namespace {

bool isControl(char16_t c)
{
    return c < 0x20 || (c >= 0x7f && c <= 0x9f);
}

} // namespace

QString terminalSafe(const QString& text, bool keepLineEnds)
{
    const auto unsafe = [keepLineEnds](QChar c) {
        return isControl(c.unicode()) && !(keepLineEnds && c == QLatin1Char('\n'));
    };
    // Nearly every text is clean: no copy then.
    qsizetype i = 0;
    while (i < text.size() && !unsafe(text.at(i)))
        ++i;
    if (i == text.size())
        return text;
    QString safe = text;
    for (; i < safe.size(); ++i) {
        const QChar c = safe.at(i);
        if (!unsafe(c))
            continue;
        const bool blank =
            c == QLatin1Char('\n') || c == QLatin1Char('\r') || c == QLatin1Char('\t');
        safe[i] = blank ? QLatin1Char(' ') : QChar(QChar::ReplacementCharacter);
    }
    return safe;
}

} // namespace sorv
