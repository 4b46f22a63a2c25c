#include "recordingformat.h"

#include <QLocale>

namespace sorv {

QString formatDurationMs(qint64 ms)
{
    const qint64 seconds = ms / 1000;
    if (ms < 3600000)
        return QStringLiteral("%1:%2").arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
    return QStringLiteral("%1:%2:%3")
        .arg(seconds / 3600)
        .arg((seconds / 60) % 60, 2, 10, QLatin1Char('0'))
        .arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

QString formatRecordingDate(const std::optional<QString>& createdAt)
{
    if (!createdAt)
        return QStringLiteral("--");
    const QString& text = *createdAt;
    // Without a zone first (the service's usual form), then with one.
    QDateTime when = QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd'T'HH:mm:ss.zzz"));
    if (!when.isValid())
        when = QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd'T'HH:mm:ss"));
    if (!when.isValid() && text.contains(QLatin1Char('T')))
        when = QDateTime::fromString(text, Qt::ISODateWithMs);
    if (!when.isValid())
        return text.left(10);
    // Month names in English, as the rest of the interface.
    return QLocale::c().toString(when.date(), QStringLiteral("d MMM"));
}

} // namespace sorv
