#pragma once

#include <QDBusConnection>
#include <QDBusVariant>
#include <QObject>
#include <QtQml/qqml.h>

#include <optional>

class QDBusPendingCallWatcher;

namespace sorv {

// Whether the window is drawn dark: the desktop's choice as the Settings
// portal publishes it (org.freedesktop.appearance color-scheme), followed
// as it changes; where the portal does not answer or has no preference,
// the application palette's window colour decides. SORVELANDRIX_COLOR_SCHEME
// (light or dark) overrides both.
class ColorScheme : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_PROPERTY(bool dark READ dark NOTIFY darkChanged)

public:
    // The portal's values for color-scheme.
    enum class Preference : uint { None = 0, Dark = 1, Light = 2 };

    // On the session bus.
    explicit ColorScheme(QObject* parent = nullptr);
    // On the given bus (tests use a private one).
    explicit ColorScheme(QDBusConnection bus, QObject* parent = nullptr);

    bool dark() const { return m_dark; }
    // The portal's last answer; empty until it answers (or when it never does).
    std::optional<Preference> portalPreference() const { return m_portal; }

Q_SIGNALS:
    void darkChanged();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private Q_SLOTS:
    void settingChanged(const QString& ns, const QString& key, const QDBusVariant& value);

private:
    void read(const QString& method);
    void readFinished(QDBusPendingCallWatcher* call, const QString& method);
    void takePortalValue(const QVariant& value);
    void update();

    QDBusConnection m_bus;
    std::optional<Preference> m_portal;
    std::optional<bool> m_override;
    bool m_dark = false;
};

} // namespace sorv
