#include "ui/colorscheme.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QEvent>
#include <QGuiApplication>
#include <QPalette>

#include <utility>

namespace sorv {

namespace {

const QString kService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kInterface = QStringLiteral("org.freedesktop.portal.Settings");
const QString kNamespace = QStringLiteral("org.freedesktop.appearance");
const QString kKey = QStringLiteral("color-scheme");

// Read wraps the value in one variant more than ReadOne does, and some
// portals wrap it twice; unwrap whatever comes.
QVariant unwrap(QVariant value)
{
    while (value.canConvert<QDBusVariant>() && value.userType() == qMetaTypeId<QDBusVariant>())
        value = value.value<QDBusVariant>().variant();
    if (value.userType() == qMetaTypeId<QDBusArgument>()) {
        QDBusVariant inner;
        value.value<QDBusArgument>() >> inner;
        return unwrap(inner.variant());
    }
    return value;
}

bool paletteIsDark()
{
    const QColor window = QGuiApplication::palette().color(QPalette::Window);
    return window.lightnessF() < 0.5;
}

} // namespace

ColorScheme::ColorScheme(QObject* parent) : ColorScheme(QDBusConnection::sessionBus(), parent) {}

ColorScheme::ColorScheme(QDBusConnection bus, QObject* parent)
    : QObject(parent), m_bus(std::move(bus))
{
    const QByteArray forced = qgetenv("SORVELANDRIX_COLOR_SCHEME").toLower();
    if (forced == "dark" || forced == "light")
        m_override = forced == "dark";
    if (QCoreApplication::instance())
        QCoreApplication::instance()->installEventFilter(this);
    if (m_bus.isConnected()) {
        // The slot's argument type must be known before the subscription
        // is made, or QtDBus turns it down.
        qRegisterMetaType<QDBusVariant>();
        // From whoever owns the portal's name now: a portal started (or
        // restarted) later is heard too.
        m_bus.connect(QString(), kPath, kInterface, QStringLiteral("SettingChanged"), this,
                      SLOT(settingChanged(QString, QString, QDBusVariant)));
        // ReadOne is the portal's newer call; older portals only know Read.
        read(QStringLiteral("ReadOne"));
    }
    update();
}

void ColorScheme::read(const QString& method)
{
    QDBusMessage message = QDBusMessage::createMethodCall(kService, kPath, kInterface, method);
    message << kNamespace << kKey;
    // Asynchronous: a portal that is slow to start never holds up the window.
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(message), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, method](QDBusPendingCallWatcher* call) { readFinished(call, method); });
}

void ColorScheme::readFinished(QDBusPendingCallWatcher* call, const QString& method)
{
    call->deleteLater();
    const QDBusPendingReply<QDBusVariant> reply = *call;
    if (reply.isError()) {
        if (method == QLatin1String("ReadOne") && reply.error().type() == QDBusError::UnknownMethod)
            read(QStringLiteral("Read"));
        return;
    }
    takePortalValue(reply.argumentAt(0));
}

void ColorScheme::settingChanged(const QString& ns, const QString& key, const QDBusVariant& value)
{
    if (ns == kNamespace && key == kKey)
        takePortalValue(value.variant());
}

void ColorScheme::takePortalValue(const QVariant& value)
{
    bool ok = false;
    const uint number = unwrap(value).toUInt(&ok);
    m_portal = ok && number <= 2 ? static_cast<Preference>(number) : Preference::None;
    update();
}

bool ColorScheme::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::ApplicationPaletteChange &&
        watched == QCoreApplication::instance())
        update();
    return QObject::eventFilter(watched, event);
}

void ColorScheme::update()
{
    bool dark = false;
    if (m_override)
        dark = *m_override;
    else if (m_portal && *m_portal != Preference::None)
        dark = *m_portal == Preference::Dark;
    else
        dark = qobject_cast<QGuiApplication*>(QCoreApplication::instance()) && paletteIsDark();
    if (dark == m_dark)
        return;
    m_dark = dark;
    Q_EMIT darkChanged();
}

} // namespace sorv

#include "moc_colorscheme.cpp"
