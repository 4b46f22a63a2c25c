// The application's memory: its resident size once signed in and idle, then
// after CYCLES rounds of what a day brings (record → stop → upload → the
// Recordings tab → the live panel opened and closed). The session is the
// one stored in the private directories (bench/app_memory.sh signs in to a
// local service first); MEETING_ID is the meeting the live panel follows.
//
// app_memory CYCLES MEETING_ID

#include "app/floatingpanelcontroller.h"
#include "app/recorderapp.h"
#include "core/log.h"
#include "core/settings.h"
#include "recording/audiorecorder.h"
#include "service/authmanager.h"
#include "ui/recorderscreen.h"
#include "ui/recordingconsent.h"

#include <QApplication>
#include <QFile>
#include <QQuickItem>
#include <QQuickStyle>
#include <QRegularExpression>
#include <QTimer>
#include <QtQml/qqmlextensionplugin.h>

#include <cstdio>
#include <functional>
#include <malloc.h>

Q_IMPORT_QML_PLUGIN(Sorvelandrix_UiPlugin)

using namespace sorv;

namespace {

// A "Key:   N kB" line of a /proc file, in MiB.
double procMiB(const QString& file, const QString& key)
{
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly))
        return 0;
    const QRegularExpression line(QStringLiteral("^%1:\\s+(\\d+) kB").arg(key),
                                  QRegularExpression::MultilineOption);
    const auto m = line.match(QString::fromLatin1(f.readAll()));
    return m.hasMatch() ? m.captured(1).toDouble() / 1024.0 : 0;
}

struct Memory {
    double rss = 0;
    double pss = 0;
};

Memory measure()
{
    return {procMiB(QStringLiteral("/proc/self/status"), QStringLiteral("VmRSS")),
            procMiB(QStringLiteral("/proc/self/smaps_rollup"), QStringLiteral("Pss"))};
}

// The main window's tab view (the object with `selectedTab`).
QObject* tabView(QQuickWindow* window)
{
    QObject* tabBar = window ? window->findChild<QObject*>(QStringLiteral("tabBar")) : nullptr;
    for (QObject* o = tabBar; o; o = o->parent())
        if (o->property("selectedTab").isValid())
            return o;
    return nullptr;
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    const int cycles = argc > 1 ? QString::fromLocal8Bit(argv[1]).toInt() : 50;
    const QString meetingId = argc > 2 ? QString::fromLocal8Bit(argv[2]) : QStringLiteral("bench");
    setLogSink([](const QString&) {});
    // The service the script signed in to, as the application's own start reads it.
    if (const QString server = qEnvironmentVariable("SORVELANDRIX_SERVER"); !server.isEmpty())
        Settings::setServerOverride(server);
    Settings::setValue(RecordingConsent::kAcknowledgedKey, true);

    SorvelandrixRecorderApp recorderApp;
    if (!recorderApp.launch())
        return 1;
    AudioRecorder& recorder = recorderApp.recorder();
    RecorderScreen& screen = recorderApp.recorderScreen();
    Memory idle;
    int done = 0;
    const auto after = [&app](int ms, std::function<void()> fn) {
        QTimer::singleShot(ms, &app, std::move(fn));
    };
    const auto setTab = [&](int tab) {
        if (QObject* tabs = tabView(recorderApp.mainWindow()))
            tabs->setProperty("selectedTab", tab);
    };
    const auto report = [&] {
        const Memory now = measure();
        std::printf("after %3d cycles: RSS %6.1f MiB  PSS %6.1f MiB  (RSS %+.1f MiB)\n", done,
                    now.rss, now.pss, now.rss - idle.rss);
        malloc_trim(0);
        const Memory trimmed = measure();
        std::printf("after malloc_trim: RSS %6.1f MiB  (RSS %+.1f MiB)\n", trimmed.rss,
                    trimmed.rss - idle.rss);
        std::fflush(stdout);
        app.quit();
    };
    std::function<void()> cycle = [&] {
        if (done == cycles) {
            after(5000, report);
            return;
        }
        screen.pressMainButton();
    };
    QObject::connect(&recorder, &AudioRecorder::stateChanged, &app, [&] {
        switch (recorder.state().kind()) {
        case RecordingState::Kind::Recording:
            after(1000, [&] { screen.pressMainButton(); });
            break;
        case RecordingState::Kind::PendingSave:
            screen.saveAndUpload();
            break;
        case RecordingState::Kind::Uploaded:
            setTab(1);
            after(700, [&] {
                setTab(0);
                const QString token = recorderApp.auth().accessToken();
                recorderApp.floatingPanel().show(meetingId, Settings::serverOrigin(), token);
                after(700, [&] {
                    recorderApp.floatingPanel().close();
                    ++done;
                    after(300, cycle);
                });
            });
            break;
        case RecordingState::Kind::Error:
            std::fprintf(stderr, "app_memory: %s\n", qPrintable(recorder.state().message()));
            app.exit(1);
            break;
        default:
            break;
        }
    });
    const auto begin = [&] {
        // Settled: the window drawn, the session checked.
        after(5000, [&] {
            idle = measure();
            std::printf("idle:            RSS %6.1f MiB  PSS %6.1f MiB\n", idle.rss, idle.pss);
            std::fflush(stdout);
            cycle();
        });
    };
    if (!recorderApp.auth().isLoggedIn()) {
        std::fprintf(stderr, "app_memory: not signed in\n");
        return 1;
    }
    begin();
    return app.exec();
}
