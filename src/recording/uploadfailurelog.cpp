#include "uploadfailurelog.h"

#include "core/paths.h"
#include "core/settings.h"

#include <QDir>
#include <QFileInfo>

namespace sorv::uploadfailurelog {

namespace {

const QString kGroup = QStringLiteral("uploadFailures");

QString key(const QString& path, const QString& field)
{
    return QStringLiteral("%1/%2/%3").arg(kGroup, QFileInfo(path).fileName(), field);
}

} // namespace

void record(const QString& path, const Entry& entry)
{
    Settings::setValue(key(path, QStringLiteral("message")), entry.message);
    Settings::setValue(key(path, QStringLiteral("transient")), entry.transient);
}

void forget(const QString& path)
{
    Settings::remove(QStringLiteral("%1/%2").arg(kGroup, QFileInfo(path).fileName()));
}

std::optional<Entry> lookup(const QString& path)
{
    const QVariant message = Settings::value(key(path, QStringLiteral("message")));
    if (!message.isValid())
        return std::nullopt;
    return Entry{message.toString(),
                 Settings::value(key(path, QStringLiteral("transient"))).toBool()};
}

QStringList transientPaths()
{
    const QStringList names = Settings::childGroups(kGroup);
    QStringList paths;
    const QDir dir(recordingsDirectory());
    for (const QString& name : names) {
        const QString path = dir.filePath(name);
        const std::optional<Entry> entry = lookup(path);
        if (entry && entry->transient && QFileInfo::exists(path))
            paths << path;
    }
    return paths;
}

} // namespace sorv::uploadfailurelog
