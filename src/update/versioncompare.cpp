#include "versioncompare.h"

#include <QList>
#include <QString>

#include <algorithm>
#include <array>

namespace sorv {

namespace {

// A number is kept as its digits without leading zeros, so that a component
// of any length compares correctly without overflowing.
struct Number {
    QStringView digits;
};
// One piece of a pre-release suffix: a number, or a lower-case word.
struct Piece {
    bool isNumber = false;
    Number number;
    QString word;
};

struct ParsedVersion {
    QList<Number> release;
    QList<Piece> suffix;
};

bool isDigit(QChar c)
{
    return c >= QLatin1Char('0') && c <= QLatin1Char('9');
}

Number readNumber(QStringView s, qsizetype& i)
{
    const qsizetype start = i;
    while (i < s.size() && isDigit(s[i]))
        ++i;
    QStringView digits = s.sliced(start, i - start);
    while (digits.size() > 1 && digits.front() == QLatin1Char('0'))
        digits = digits.sliced(1);
    return {digits};
}

ParsedVersion parse(QStringView s)
{
    s = s.trimmed();
    if (const qsizetype plus = s.indexOf(QLatin1Char('+')); plus >= 0)
        s = s.first(plus);
    if (s.size() > 1 && (s[0] == QLatin1Char('v') || s[0] == QLatin1Char('V')) && isDigit(s[1]))
        s = s.sliced(1);

    ParsedVersion v;
    qsizetype i = 0;
    while (i < s.size() && isDigit(s[i])) {
        v.release.append(readNumber(s, i));
        if (i + 1 < s.size() && s[i] == QLatin1Char('.') && isDigit(s[i + 1]))
            ++i;
        else
            break;
    }
    while (i < s.size()) {
        if (isDigit(s[i])) {
            v.suffix.append({true, readNumber(s, i), {}});
        } else if (s[i].isLetter()) {
            const qsizetype start = i;
            while (i < s.size() && s[i].isLetter())
                ++i;
            v.suffix.append({false, {}, s.sliced(start, i - start).toString().toLower()});
        } else {
            ++i; // separators: ".", "-", "_", " "
        }
    }
    return v;
}

int compareNumbers(Number a, Number b)
{
    if (a.digits.size() != b.digits.size())
        return a.digits.size() < b.digits.size() ? -1 : 1;
    return std::clamp(a.digits.compare(b.digits), -1, 1);
}

int labelRank(const QString& word)
{
    struct Label {
        const char* name;
        int rank;
    };
    static constexpr std::array<Label, 9> labels{{
        {"dev", 0},
        {"alpha", 1},
        {"a", 1},
        {"beta", 2},
        {"b", 2},
        {"pre", 3},
        {"preview", 3},
        {"rc", 4},
        {"c", 4},
    }};
    for (const Label& label : labels) {
        if (word == QLatin1String(label.name))
            return label.rank;
    }
    return 5;
}

int comparePieces(const Piece& a, const Piece& b)
{
    if (a.isNumber && b.isNumber)
        return compareNumbers(a.number, b.number);
    // A number sorts before a word, as in semantic versioning.
    if (a.isNumber || b.isNumber)
        return a.isNumber ? -1 : 1;
    if (const int ra = labelRank(a.word), rb = labelRank(b.word); ra != rb)
        return ra < rb ? -1 : 1;
    return std::clamp(a.word.compare(b.word), -1, 1);
}

} // namespace

int compareVersions(QStringView a, QStringView b)
{
    const ParsedVersion va = parse(a);
    const ParsedVersion vb = parse(b);
    const Number zero{u"0"};
    for (qsizetype i = 0; i < std::max(va.release.size(), vb.release.size()); ++i) {
        const int c = compareNumbers(va.release.value(i, zero), vb.release.value(i, zero));
        if (c != 0)
            return c;
    }
    // The release without a suffix is newer than any of its pre-releases.
    if (va.suffix.isEmpty() || vb.suffix.isEmpty())
        return va.suffix.isEmpty() == vb.suffix.isEmpty() ? 0 : (va.suffix.isEmpty() ? 1 : -1);
    for (qsizetype i = 0; i < std::min(va.suffix.size(), vb.suffix.size()); ++i) {
        if (const int c = comparePieces(va.suffix[i], vb.suffix[i]); c != 0)
            return c;
    }
    if (va.suffix.size() == vb.suffix.size())
        return 0;
    return va.suffix.size() < vb.suffix.size() ? -1 : 1;
}

} // namespace sorv
