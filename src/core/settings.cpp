#include "settings.h"

#include <QMutex>
#include <QMutexLocker>
#include <QStandardPaths>

namespace sorv {

namespace {
QMutex& overrideMutex()
{
    static QMutex m;
    return m;
}
QString& serverOverride()
{
    static QString s;
    return s;
}
} // namespace

std::unique_ptr<QSettings> Settings::store()
{
    // The file is located afresh on every use (QSettings caches its search
    // path for the whole process), so XDG_CONFIG_HOME is honoured even when
    // it changes, as it does between isolated tests.
    const QString path = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                         QStringLiteral("/Sorvelandrix/SorvelandrixRecorder.ini");
    return std::make_unique<QSettings>(path, QSettings::IniFormat);
}

QVariant Settings::value(const QString& key, const QVariant& fallback)
{
    return store()->value(key, fallback);
}

QStringList Settings::childGroups(const QString& group)
{
    auto s = store();
    s->beginGroup(group);
    return s->childGroups();
}

void Settings::setValue(const QString& key, const QVariant& value)
{
    auto s = store();
    s->setValue(key, value);
    s->sync();
}

void Settings::remove(const QString& key)
{
    auto s = store();
    s->remove(key);
    s->sync();
}

bool Settings::contains(const QString& key)
{
    return store()->contains(key);
}

QString Settings::serverOrigin()
{
    {
        QMutexLocker lock(&overrideMutex());
        if (!serverOverride().isEmpty())
            return serverOverride();
    }
    return configuredOrigin();
}

QString Settings::configuredOrigin()
{
    const QString stored = value(kServerKey).toString().trimmed();
    return stored.isEmpty() ? kDefaultOrigin : stored;
}

void Settings::setServerOverride(const QString& origin)
{
    QMutexLocker lock(&overrideMutex());
    serverOverride() = origin.trimmed();
}

} // namespace sorv
