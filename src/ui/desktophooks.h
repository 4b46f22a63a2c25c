#pragma once

#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>

namespace sorv {

// How view-models reach the desktop: open a web page in the browser, start
// another program. The application installs QDesktopServices and QProcess;
// tests record the calls. Without hooks nothing is opened (and false is
// returned), so the view-models need no display.
struct DesktopHooks {
    std::function<bool(const QUrl& url)> openUrl;
    std::function<bool(const QString& program, const QStringList& arguments)> startProgram;
};

} // namespace sorv
