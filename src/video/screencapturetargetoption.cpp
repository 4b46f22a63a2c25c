#include "screencapturetargetoption.h"

#include <QCoreApplication>

namespace sorv {

QString ScreenCaptureTargetOption::Kind::name() const
{
    switch (type) {
    case Type::Display:
        return QStringLiteral("display");
    case Type::Application:
        return QStringLiteral("application");
    case Type::Window:
        return QStringLiteral("window");
    case Type::PortalMonitor:
        return QStringLiteral("portalMonitor");
    case Type::PortalWindow:
        return QStringLiteral("portalWindow");
    case Type::MainDisplay:
        break;
    }
    return QStringLiteral("mainDisplay");
}

ScreenCaptureTargetOption ScreenCaptureTargetOption::portalMonitor()
{
    return {QStringLiteral("portal:monitor"),
            QCoreApplication::translate("ScreenCaptureTargetOption", "Entire screen"),
            QCoreApplication::translate("ScreenCaptureTargetOption",
                                        "Chosen in the desktop's sharing dialog"),
            Kind::portal(Kind::Type::PortalMonitor)};
}

ScreenCaptureTargetOption ScreenCaptureTargetOption::portalWindow()
{
    return {QStringLiteral("portal:window"),
            QCoreApplication::translate("ScreenCaptureTargetOption", "A window"),
            QCoreApplication::translate("ScreenCaptureTargetOption",
                                        "Chosen in the desktop's sharing dialog"),
            Kind::portal(Kind::Type::PortalWindow)};
}

ScreenCaptureTargetOption ScreenCaptureTargetOption::mainDisplay()
{
    return {QStringLiteral("display:main"),
            QCoreApplication::translate("ScreenCaptureTargetOption", "Main display"),
            QCoreApplication::translate("ScreenCaptureTargetOption", "Full screen (default)"),
            Kind::mainDisplay()};
}

ScreenCaptureTargetOption ScreenCaptureTargetOption::display(std::uint32_t displayID,
                                                             const QString& screenName, int width,
                                                             int height)
{
    const QString number = QString::number(displayID);
    return {QStringLiteral("display:") + number,
            screenName.isEmpty()
                ? QCoreApplication::translate("ScreenCaptureTargetOption", "Display ") + number
                : screenName,
            QStringLiteral("%1×%2").arg(width).arg(height), Kind::display(displayID)};
}

ScreenCaptureTargetOption ScreenCaptureTargetOption::application(const QString& bundleIdentifier,
                                                                 const QString& name)
{
    return {QStringLiteral("app:") + bundleIdentifier, name,
            QCoreApplication::translate("ScreenCaptureTargetOption", "Application"),
            Kind::application(bundleIdentifier)};
}

ScreenCaptureTargetOption ScreenCaptureTargetOption::window(std::uint32_t windowID,
                                                            const QString& title,
                                                            const QString& applicationName)
{
    return {QStringLiteral("window:") + QString::number(windowID),
            title.isEmpty()
                ? QCoreApplication::translate("ScreenCaptureTargetOption", "Untitled window")
                : title,
            applicationName.isEmpty()
                ? QCoreApplication::translate("ScreenCaptureTargetOption", "Window")
                : applicationName,
            Kind::window(windowID)};
}

std::optional<ScreenCaptureTargetOption> ScreenCaptureTargetOption::fromID(const QString& id)
{
    if (id == QLatin1String("display:main"))
        return mainDisplay();
    if (id == QLatin1String("portal:monitor"))
        return portalMonitor();
    if (id == QLatin1String("portal:window"))
        return portalWindow();
    const auto number = [&id](QLatin1String prefix) -> std::optional<std::uint32_t> {
        if (!id.startsWith(prefix))
            return std::nullopt;
        const QStringView digits = QStringView(id).mid(prefix.size());
        bool ok = false;
        const uint value = digits.toUInt(&ok);
        // Decimal digits only, as the ids are written.
        if (!ok || digits.isEmpty() || !digits.front().isDigit() || !digits.back().isDigit())
            return std::nullopt;
        return static_cast<std::uint32_t>(value);
    };
    if (const auto display = number(QLatin1String("display:")))
        return ScreenCaptureTargetOption{id, {}, {}, Kind::display(*display)};
    if (const auto window = number(QLatin1String("window:")))
        return ScreenCaptureTargetOption{id, {}, {}, Kind::window(*window)};
    if (id.startsWith(QLatin1String("app:")) && id.size() > 4)
        return ScreenCaptureTargetOption{id, {}, {}, Kind::application(id.mid(4))};
    return std::nullopt;
}

} // namespace sorv

#include "moc_screencapturetargetoption.cpp"
