// sorvelandrix-recorder: the tray application. Everything but the process
// set-up lives in the sorvelandrix_app library.

#include "app/recorderapp.h"
#include "app/recordercontrol.h"
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
    const QCommandLineOption hiddenOption(
        QStringLiteral("hidden"),
        QStringLiteral("Start in the tray without opening the window (the start at login)."));
    const QCommandLineOption toggleOption(
        QStringLiteral("toggle"),
        QStringLiteral("Start a recording, or stop the one under way, in the running "
                       "application (starting it if needed)."));
    const QCommandLineOption startOption(
        QStringLiteral("start"),
        QStringLiteral("Start a recording in the mode last chosen in the window."));
    const QCommandLineOption stopOption(QStringLiteral("stop"),
                                        QStringLiteral("Stop the recording under way."));
    parser.addOptions({hiddenOption, toggleOption, startOption, stopOption});
    parser.process(app);

    QString command;
    for (const auto* option : {&toggleOption, &startOption, &stopOption}) {
        if (!parser.isSet(*option))
            continue;
        if (!command.isEmpty()) {
            std::fputs("sorvelandrix-recorder: --toggle, --start and --stop go alone\n", stderr);
            return 2;
        }
        command = option->names().constFirst();
    }

    QString server = qEnvironmentVariable("SORVELANDRIX_SERVER");
    if (parser.isSet(serverOption))
        server = parser.value(serverOption);
    if (!server.isEmpty())
        sorv::Settings::setServerOverride(server);

    sorv::SingleInstance instance;
    if (!instance.claim(command)) {
        if (command.isEmpty())
            std::fputs("sorvelandrix-recorder is already running; its window has been raised.\n",
                       stderr);
        return 0;
    }
    // Nothing ran: this start is the application, and stopping has nothing
    // to stop.
    if (command == QLatin1String("stop"))
        return 0;

    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    sorv::SorvelandrixRecorderApp recorderApp;
    recorderApp.listenTo(instance);
    // A start with a command (a shortcut pressed with nothing running) stays
    // in the tray like a start at login; the command decides what shows.
    if (!recorderApp.launch(parser.isSet(hiddenOption) || !command.isEmpty()))
        return 1;
    if (!command.isEmpty())
        recorderApp.control().perform(command);
    return QApplication::exec();
}
