#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QString>

namespace sorv::test {

// What a command printed with --json, an object a line; with `event`, only
// the objects of that event.
inline QList<QJsonObject> jsonLines(const QByteArray& out, const QString& event = {})
{
    QList<QJsonObject> list;
    for (const QByteArray& line : out.split('\n')) {
        if (line.trimmed().isEmpty())
            continue;
        const QJsonObject e = QJsonDocument::fromJson(line).object();
        if (event.isEmpty() || e.value(QStringLiteral("event")).toString() == event)
            list << e;
    }
    return list;
}

inline QList<QJsonObject> jsonLines(const QString& out, const QString& event = {})
{
    return jsonLines(out.toUtf8(), event);
}

} // namespace sorv::test
