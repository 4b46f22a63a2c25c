#include "isolatedenvironment.h"

#include <QDir>

namespace sorv::test {

IsolatedEnvironment::IsolatedEnvironment()
{
    const QString root = m_dir.path();
    for (const char* sub : {"config", "data", "cache", "runtime"})
        QDir(root).mkpath(QString::fromLatin1(sub));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(root + QStringLiteral("/config")));
    qputenv("XDG_DATA_HOME", QFile::encodeName(root + QStringLiteral("/data")));
    qputenv("XDG_CACHE_HOME", QFile::encodeName(root + QStringLiteral("/cache")));
    qputenv("HOME", QFile::encodeName(root));
}

IsolatedEnvironment::~IsolatedEnvironment() = default;

QString buildDirectory()
{
    const QString dir = qEnvironmentVariable("SORV_TEST_BINARY_DIR");
    return dir.isEmpty() ? QDir::currentPath() : dir;
}

} // namespace sorv::test
