#pragma once

#include <QString>
#include <QTemporaryDir>

namespace sorv::test {

// Points XDG_CONFIG_HOME, XDG_DATA_HOME, XDG_CACHE_HOME (and QStandardPaths'
// test mode) at a private temporary directory for the life of the object, so
// a test never reads or writes the user's settings, secrets or recordings.
class IsolatedEnvironment {
public:
    IsolatedEnvironment();
    ~IsolatedEnvironment();
    IsolatedEnvironment(const IsolatedEnvironment&) = delete;
    IsolatedEnvironment& operator=(const IsolatedEnvironment&) = delete;

    QString root() const { return m_dir.path(); }
    QString path(const QString& name) const { return m_dir.filePath(name); }

private:
    QTemporaryDir m_dir;
};

// Directory of the build tree (for helper executables), from the environment CTest sets.
QString buildDirectory();

} // namespace sorv::test
