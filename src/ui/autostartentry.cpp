#include "autostartentry.h"

#include "core/log.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QSettings>
#include <QStandardPaths>

namespace sorv {

namespace {

// Exec keys quote arguments with spaces; backslashes and quotes are escaped
// inside the quotes (Desktop Entry Specification, "The Exec key").
QString execArgument(const QString& argument)
{
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
    bool plain = true;
    for (const QChar c : argument)
        plain = plain && !reserved.contains(c);
    if (plain)
        return argument;
    QString quoted = argument;
    for (const char* c : {"\\", "\"", "`", "$"})
        quoted.replace(QLatin1String(c), QLatin1String("\\") + QLatin1String(c));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

} // namespace

AutostartEntry::AutostartEntry(QString program, QObject* parent)
    : QObject(parent), m_program(std::move(program))
{
    if (m_program.isEmpty())
        m_program = QCoreApplication::applicationFilePath();
}

QString AutostartEntry::filePath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/autostart/sorvelandrix-recorder.desktop");
}

bool AutostartEntry::isEnabled() const
{
    if (!QFile::exists(filePath()))
        return false;
    // Desktops switch an entry off with Hidden=true rather than removing it.
    const QSettings entry(filePath(), QSettings::IniFormat);
    return !entry.value(QStringLiteral("Desktop Entry/Hidden")).toBool();
}

bool AutostartEntry::setEnabled(bool enabled)
{
    if (enabled == isEnabled())
        return true;
    const QString path = filePath();
    if (!enabled) {
        if (!QFile::remove(path)) {
            consoleLog(QStringLiteral("❌ Could not remove %1").arg(path));
            return false;
        }
        Q_EMIT enabledChanged();
        return true;
    }
    QDir().mkpath(QFileInfo(path).path());
    QSaveFile file(path);
    const QString text = QStringLiteral("[Desktop Entry]\n"
                                        "Type=Application\n"
                                        "Name=Sorvelandrix Recorder\n"
                                        "Comment=Record meetings and calls\n"
                                        "Icon=sorvelandrix-recorder\n"
                                        "Exec=%1 --hidden\n"
                                        "Terminal=false\n"
                                        "X-GNOME-Autostart-enabled=true\n")
                             .arg(execArgument(m_program));
    if (!file.open(QIODevice::WriteOnly) || file.write(text.toUtf8()) < 0 || !file.commit()) {
        consoleLog(QStringLiteral("❌ Could not write %1: %2").arg(path, file.errorString()));
        return false;
    }
    Q_EMIT enabledChanged();
    return true;
}

} // namespace sorv

#include "moc_autostartentry.cpp"
