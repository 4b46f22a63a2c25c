#include "speakercolors.h"

#include <QByteArray>

#include <array>
#include <charconv>

namespace sorv {

namespace {

constexpr std::array<const char*, kSpeakerPaletteSize> kPalette = {
    "#3B82F6", "#EF4444", "#10B981", "#F59E0B", "#8B5CF6", "#EC4899", "#06B6D4", "#F97316",
    "#6366F1", "#14B8A6", "#E11D48", "#84CC16", "#0EA5E9", "#A855F7", "#D946EF"};

// Everything but letters and digits is trimmed from both ends, the rest read
// as hexadecimal RRGGBB.
std::uint32_t parseColor(const char* text)
{
    QString s = QString::fromLatin1(text);
    while (!s.isEmpty() && !s.front().isLetterOrNumber())
        s.remove(0, 1);
    while (!s.isEmpty() && !s.back().isLetterOrNumber())
        s.chop(1);
    bool ok = false;
    const uint value = s.toUInt(&ok, 16);
    return ok ? value & 0xFFFFFFu : 0u;
}

const std::array<std::uint32_t, kSpeakerPaletteSize>& paletteRgb()
{
    static const auto parsed = [] {
        std::array<std::uint32_t, kSpeakerPaletteSize> out{};
        for (std::size_t i = 0; i < out.size(); ++i)
            out[i] = parseColor(kPalette[i]);
        return out;
    }();
    return parsed;
}

int wrap(long long value)
{
    const long long r = value % kSpeakerPaletteSize;
    return static_cast<int>(r < 0 ? r + kSpeakerPaletteSize : r);
}

// A decimal integer with an optional sign that fits 64 bits; no spaces.
bool parseDecimal(const QString& label, long long* value)
{
    QByteArray bytes = label.toLatin1();
    if (bytes.startsWith('+'))
        bytes.remove(0, 1);
    const qsizetype firstDigit = bytes.startsWith('-') ? 1 : 0;
    if (bytes.size() <= firstDigit || bytes.at(firstDigit) < '0' || bytes.at(firstDigit) > '9')
        return false;
    const char* end = bytes.constData() + bytes.size();
    const auto [ptr, ec] = std::from_chars(bytes.constData(), end, *value);
    return ec == std::errc() && ptr == end;
}

// 32-bit FNV-1a over the UTF-8 text: the same in every run, unlike qHash.
std::uint32_t stableHash(const QString& label)
{
    std::uint32_t hash = 2166136261u;
    for (const char c : label.toUtf8()) {
        hash ^= static_cast<std::uint8_t>(c);
        hash *= 16777619u;
    }
    return hash;
}

} // namespace

QString speakerPaletteColorName(int index)
{
    return QLatin1Char('#') + QString::number(speakerPaletteRgb(index), 16)
                                  .rightJustified(6, QLatin1Char('0'))
                                  .toUpper();
}

std::uint32_t speakerPaletteRgb(int index)
{
    return paletteRgb()[static_cast<std::size_t>(wrap(index))];
}

QStringList speakersInOrder(const QList<TranscriptSegment>& segments)
{
    QStringList out;
    for (const TranscriptSegment& segment : segments) {
        if (!out.contains(segment.speaker))
            out << segment.speaker;
    }
    return out;
}

int speakerColorIndex(const QString& label, const QStringList& speakersOnScreen)
{
    if (const qsizetype at = speakersOnScreen.indexOf(label); at >= 0)
        return wrap(at);
    long long value = 0;
    if (parseDecimal(label, &value))
        return wrap(value);
    return static_cast<int>(stableHash(label) % kSpeakerPaletteSize);
}

} // namespace sorv
