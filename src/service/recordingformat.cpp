#include "recordingformat.h"

#include <QCoreApplication>
#include <QHash>
#include <QLocale>
#include <QRegularExpression>
#include <QTimeZone>

#include <algorithm>

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
    // Whole seconds only: without a zone (the service's usual form, in UTC)
    // or with one. Anything else (fractions of a second, other forms) is
    // shown as its first 10 characters.
    static const QRegularExpression form(
        QStringLiteral("^\\d{4}-\\d{2}-\\d{2}T\\d{2}:\\d{2}:\\d{2}(Z|[+-]\\d{2}:\\d{2})?$"));
    QDateTime when;
    if (const QRegularExpressionMatch match = form.match(text); match.hasMatch()) {
        when = QDateTime::fromString(text, Qt::ISODate);
        if (match.capturedLength(1) == 0) {
            when = QDateTime(QDate::fromString(text.left(10), QStringLiteral("yyyy-MM-dd")),
                             QTime::fromString(text.mid(11), QStringLiteral("HH:mm:ss")),
                             QTimeZone::utc());
        }
    }
    if (!when.isValid())
        return text.left(10);
    // The day it was where the user is; month names in English, as the
    // rest of the interface.
    return QLocale::c().toString(when.toLocalTime().date(), QStringLiteral("d MMM"));
}

QString formatRelativeAge(const std::optional<QString>& createdAt, const QDateTime& now)
{
    if (!createdAt || createdAt->size() != 19 || createdAt->at(10) != QLatin1Char('T'))
        return {};
    // Date and time apart and then as UTC: read as local time, an hour that
    // a clock change skips would not parse.
    const QDate date = QDate::fromString(createdAt->left(10), QStringLiteral("yyyy-MM-dd"));
    const QTime time = QTime::fromString(createdAt->mid(11), QStringLiteral("HH:mm:ss"));
    if (!date.isValid() || !time.isValid())
        return {};
    const qint64 minutes = QDateTime(date, time, QTimeZone::utc()).secsTo(now) / 60;
    if (minutes < 1)
        return QCoreApplication::translate("RecordingFormat", "Just now");
    if (minutes < 60)
        return QCoreApplication::translate("RecordingFormat", "%1m ago").arg(minutes);
    if (minutes < 1440)
        return QCoreApplication::translate("RecordingFormat", "%1h ago").arg(minutes / 60);
    if (minutes < 10080)
        return QCoreApplication::translate("RecordingFormat", "%1d ago").arg(minutes / 1440);
    return {};
}

QString recordingStatusKind(const QString& status)
{
    if (status.startsWith(QLatin1String("complete")))
        return QStringLiteral("completed");
    if (status == QLatin1String("error"))
        return QStringLiteral("error");
    return QStringLiteral("processing");
}

QList<RecordingPlace> arrangeRecordings(const QList<Recording>& recordings)
{
    QHash<QString, QList<qsizetype>> batches;
    for (qsizetype i = 0; i < recordings.size(); ++i) {
        if (recordings.at(i).batch_id)
            batches[*recordings.at(i).batch_id].append(i);
    }
    QList<RecordingPlace> places;
    places.reserve(recordings.size());
    for (qsizetype i = 0; i < recordings.size(); ++i) {
        const std::optional<QString>& batch = recordings.at(i).batch_id;
        if (!batch) {
            places.append({i, 0, 1, false});
            continue;
        }
        const auto it = batches.find(*batch);
        // Placed already, with its group's first recording.
        if (it == batches.end())
            continue;
        QList<qsizetype> members = it.value();
        batches.erase(it);
        std::stable_sort(members.begin(), members.end(), [&recordings](qsizetype a, qsizetype b) {
            return recordings.at(a).batch_index.value_or(0) <
                   recordings.at(b).batch_index.value_or(0);
        });
        const int size = static_cast<int>(members.size());
        for (int position = 0; position < size; ++position)
            places.append({members.at(position), position, size, true});
    }
    return places;
}

} // namespace sorv
