// What the main window costs while it shows a recording: one audio
// recording through the application, SECONDS with the recorder screen shown
// (meters, timer, REC badge), then SECONDS with the window hidden; prints
// the CPU the process used (user + system) in each half. Signs in to an
// in-process local service so that the tabs are shown.
// bench/window_cpu.sh runs it on Xvfb in the PulseAudio sandbox.
//
// window_cpu SECONDS

#include "app/recorderapp.h"
#include "core/log.h"
#include "core/settings.h"
#include "localservice/localservice.h"
#include "recording/audiorecorder.h"
#include "service/authmanager.h"
#include "ui/recorderscreen.h"
#include "ui/recordingconsent.h"

#include <QApplication>
#include <QQuickStyle>
#include <QTimer>
#include <QtQml/qqmlextensionplugin.h>

#include <cstdio>
#include <sys/resource.h>

Q_IMPORT_QML_PLUGIN(Sorvelandrix_UiPlugin)

using namespace sorv;

namespace {

double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& t) { return double(t.tv_sec) + double(t.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("SORVELANDRIX_SECRETS", "file");
    QApplication app(argc, argv);
    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    const double seconds = argc > 1 ? QString::fromLocal8Bit(argv[1]).toDouble() : 20.0;
    setLogSink([](const QString&) {});

    local::LocalService::Options options;
    options.dataDirectory = qEnvironmentVariable("XDG_DATA_HOME") + QStringLiteral("/service");
    local::LocalService service(options);
    QString error;
    if (!service.start(0, &error)) {
        std::fprintf(stderr, "window_cpu: %s\n", qPrintable(error));
        return 1;
    }
    Settings::setServerOverride(service.origin());
    Settings::setValue(RecordingConsent::kAcknowledgedKey, true);

    SorvelandrixRecorderApp recorderApp;
    if (!recorderApp.launch())
        return 1;
    AudioRecorder& recorder = recorderApp.recorder();
    double shown = 0.0;
    double mark = 0.0;
    QObject::connect(&recorder, &AudioRecorder::stateChanged, &app, [&] {
        const auto kind = recorder.state().kind();
        if (kind == RecordingState::Kind::Recording) {
            // A second to settle, then the window shown, then hidden.
            QTimer::singleShot(1000, &app, [&] {
                mark = cpuSeconds();
                QTimer::singleShot(int(seconds * 1000), &app, [&] {
                    shown = cpuSeconds() - mark;
                    recorderApp.mainWindow()->hide();
                    mark = cpuSeconds();
                    QTimer::singleShot(int(seconds * 1000), &app, [&] {
                        const double hidden = cpuSeconds() - mark;
                        std::printf("window shown:  %.2f s CPU in %.0f s = %.1f %% of one core\n",
                                    shown, seconds, 100.0 * shown / seconds);
                        std::printf("window hidden: %.2f s CPU in %.0f s = %.1f %% of one core\n",
                                    hidden, seconds, 100.0 * hidden / seconds);
                        std::printf("ratio:         %.2fx\n", hidden > 0 ? shown / hidden : 0.0);
                        recorder.stopRecording();
                    });
                });
            });
        } else if (kind == RecordingState::Kind::PendingSave) {
            recorder.discardRecording();
            app.quit();
        } else if (kind == RecordingState::Kind::Error) {
            std::fprintf(stderr, "window_cpu: %s\n", qPrintable(recorder.state().message()));
            app.exit(1);
        }
    });
    QObject::connect(&recorderApp.auth(), &AuthManager::isLoggedInChanged, &app, [&] {
        if (recorderApp.auth().isLoggedIn())
            QTimer::singleShot(500, &app, [&] { recorderApp.recorderScreen().pressMainButton(); });
    });
    recorderApp.auth().login(local::LocalService::kDemoEmail, local::LocalService::kDemoPassword);
    return app.exec();
}
