#include "screencapturetargetoption.h"

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
    case Type::MainDisplay:
        break;
    }
    return QStringLiteral("mainDisplay");
}

ScreenCaptureTargetOption ScreenCaptureTargetOption::mainDisplay()
{
    return {QStringLiteral("display:main"), QStringLiteral("Main display"),
            QStringLiteral("Full screen (default)"), Kind::mainDisplay()};
}

ScreenCaptureTargetOption ScreenCaptureTargetOption::display(std::uint32_t displayID,
                                                             const QString& screenName, int width,
                                                             int height)
{
    const QString number = QString::number(displayID);
    return {QStringLiteral("display:") + number,
            screenName.isEmpty() ? QStringLiteral("Display ") + number : screenName,
            QStringLiteral("%1×%2").arg(width).arg(height), Kind::display(displayID)};
}

ScreenCaptureTargetOption ScreenCaptureTargetOption::application(const QString& bundleIdentifier,
                                                                 const QString& name)
{
    return {QStringLiteral("app:") + bundleIdentifier, name, QStringLiteral("Application"),
            Kind::application(bundleIdentifier)};
}

ScreenCaptureTargetOption ScreenCaptureTargetOption::window(std::uint32_t windowID,
                                                            const QString& title,
                                                            const QString& applicationName)
{
    return {QStringLiteral("window:") + QString::number(windowID),
            title.isEmpty() ? QStringLiteral("Untitled window") : title,
            applicationName.isEmpty() ? QStringLiteral("Window") : applicationName,
            Kind::window(windowID)};
}

} // namespace sorv
