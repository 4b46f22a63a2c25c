#pragma once

#include <QSettings>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>

namespace sorv {

// The user defaults: QSettings for organisation "Sorvelandrix", application
// "SorvelandrixRecorder" (an INI file under $XDG_CONFIG_HOME). Keys are the
// system's own (`sorvelandrix_server`, `speechLocale`, …).
class Settings {
public:
    static inline const QString kServerKey = QStringLiteral("sorvelandrix_server");
    static inline const QString kSpeechLocaleKey = QStringLiteral("speechLocale");
    static inline const QString kDefaultOrigin = QStringLiteral("https://sorvelandrix.com");

    static QVariant value(const QString& key, const QVariant& fallback = {});
    static void setValue(const QString& key, const QVariant& value);
    static void remove(const QString& key);
    static bool contains(const QString& key);
    // The names of the groups directly under `group`.
    static QStringList childGroups(const QString& group);

    // The server origin: the run's override (--server / SORVELANDRIX_SERVER),
    // else the `sorvelandrix_server` setting, else the default origin.
    static QString serverOrigin();
    // The same without the run's override: the origin this computer is set up for.
    static QString configuredOrigin();
    // An override for this run only; it is never written to the settings.
    static void setServerOverride(const QString& origin);

private:
    static std::unique_ptr<QSettings> store();
};

} // namespace sorv
