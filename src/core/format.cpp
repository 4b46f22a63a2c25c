#include "format.h"

#include <algorithm>
#include <cmath>

namespace sorv {

QString formatElapsed(double seconds)
{
    const auto s =
        std::max<long long>(0, std::isfinite(seconds) ? static_cast<long long>(seconds) : 0);
    if (s >= 3600)
        return QString::asprintf("%lld:%02lld:%02lld", s / 3600, (s % 3600) / 60, s % 60);
    return QString::asprintf("%02lld:%02lld", (s % 3600) / 60, s % 60);
}

QString mfaCodeDigits(const QString& typed)
{
    QString digits;
    for (const QChar c : typed) {
        if (c >= QLatin1Char('0') && c <= QLatin1Char('9'))
            digits.append(c);
        if (digits.size() == 6)
            break;
    }
    return digits;
}

QString formatBytes(double bytes)
{
    static const char* const units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    int unit = 0;
    while (bytes >= 1024.0 && unit < 4) {
        bytes /= 1024.0;
        ++unit;
    }
    return unit == 0
               ? QStringLiteral("%1 B").arg(bytes, 0, 'f', 0)
               : QStringLiteral("%1 %2").arg(bytes, 0, 'f', 1).arg(QLatin1String(units[unit]));
}

QString formatRate(double bytesPerSecond)
{
    return formatBytes(bytesPerSecond) + QStringLiteral("/s");
}

QString meterBar(float level, int width)
{
    const int filled =
        std::clamp(static_cast<int>(std::lround(level * static_cast<float>(width))), 0, width);
    return QString(filled, QChar(0x2588)) + QString(width - filled, QChar(0x00B7));
}

} // namespace sorv
