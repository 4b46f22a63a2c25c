#include "paths.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <sys/stat.h>

namespace sorv {

namespace {
QString location(QStandardPaths::StandardLocation base)
{
    const QString root = QStandardPaths::writableLocation(base);
    return root.isEmpty() ? QString() : root + QStringLiteral("/sorvelandrix");
}

QString privateDirectory(QStandardPaths::StandardLocation base)
{
    QString dir = location(base);
    if (dir.isEmpty() || !QDir().mkpath(dir))
        return {};
    ::chmod(QFile::encodeName(dir).constData(), 0700);
    return dir;
}
} // namespace

QString recordingsDirectory()
{
    return privateDirectory(QStandardPaths::GenericCacheLocation);
}

QString dataDirectory()
{
    return privateDirectory(QStandardPaths::GenericDataLocation);
}

QString dataDirectoryLocation()
{
    return location(QStandardPaths::GenericDataLocation);
}

bool isInRecordingsDirectory(const QString& path)
{
    const QString dir = recordingsDirectory();
    if (dir.isEmpty())
        return false;
    const QString canonicalDir = QFileInfo(dir).canonicalFilePath();
    const QString parent = QFileInfo(QFileInfo(path).absolutePath()).canonicalFilePath();
    return !canonicalDir.isEmpty() && parent == canonicalDir;
}

} // namespace sorv
