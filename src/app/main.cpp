// sorvelandrix-recorder: the tray application. Everything but the process
// set-up lives in the sorvelandrix_app library.

#include "app/recorderapp.h"
#include "app/singleinstance.h"
#include "core/appinfo.h"
#include "core/settings.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QQuickStyle>
#include <QtQml/qqmlextensionplugin.h>

#include <cstdio>

Q_IMPORT_QML_PLUGIN(Sorvelandrix_UiPlugin)

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("sorvelandrix-recorder"));
    QApplication::setApplicationDisplayName(QStringLiteral("Sorvelandrix"));
    QApplication::setApplicationVersion(sorv::AppInfo::version());
    QApplication::setOrganizationName(QStringLiteral("Sorvelandrix"));
    QApplication::setDesktopFileName(QStringLiteral("sorvelandrix-recorder"));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QCoreApplication::translate("main", "Records meetings and calls on this computer."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption serverOption(
        QStringLiteral("server"),
        QCoreApplication::translate(
            "main", "Use this service origin for this run (also SORVELANDRIX_SERVER)."),
        QStringLiteral("URL"));
    parser.addOption(serverOption);
    parser.process(app);

    QString server = qEnvironmentVariable("SORVELANDRIX_SERVER");
    if (parser.isSet(serverOption))
        server = parser.value(serverOption);
    if (!server.isEmpty())
        sorv::Settings::setServerOverride(server);

    sorv::SingleInstance instance;
    if (!instance.claim()) {
        std::fputs("sorvelandrix-recorder is already running; its window has been raised.\n",
                   stderr);
        return 0;
    }

    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    sorv::SorvelandrixRecorderApp recorderApp;
    QObject::connect(&instance, &sorv::SingleInstance::activationRequested, &recorderApp,
                     &sorv::SorvelandrixRecorderApp::showMainWindow);
    if (!recorderApp.launch())
        return 1;
    return QApplication::exec();
}
