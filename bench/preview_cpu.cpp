// One recording through AudioRecorder for a number of seconds, with or
// without the on-device preview fed from its mixed audio; prints the CPU
// time the whole process used (user + system) and, with the preview, how
// many segments it made. bench/preview_cpu.sh runs it both ways in the
// PulseAudio sandbox with speech on the microphone.
//
// preview_cpu SECONDS [--preview]

#include "core/log.h"
#include "core/settings.h"
#include "recording/audiorecorder.h"
#include "transcript/localtranscriptmanager.h"

#include <QCoreApplication>
#include <QFile>
#include <QTimer>

#include <cstdio>
#include <sys/resource.h>

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
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const double seconds = args.size() > 1 ? args.at(1).toDouble() : 30.0;
    const bool preview = args.contains(QStringLiteral("--preview"));
    setLogSink([](const QString&) {});
    Settings::setValue(Settings::kSpeechLocaleKey, QStringLiteral("en-US"));

    AudioRecorder recorder;
    LocalTranscriptManager transcript;
    if (preview)
        transcript.start(recorder);

    double cpuAtStart = 0.0;
    QObject::connect(&recorder, &AudioRecorder::stateChanged, &app, [&] {
        const auto kind = recorder.state().kind();
        if (kind == RecordingState::Kind::Recording) {
            cpuAtStart = cpuSeconds();
            QTimer::singleShot(int(seconds * 1000), &recorder, &AudioRecorder::stopRecording);
        } else if (kind == RecordingState::Kind::PendingSave) {
            const double used = cpuSeconds() - cpuAtStart;
            std::printf("%s: %.2f s CPU in %.0f s of recording = %.2f %% of one core",
                        preview ? "with preview" : "without preview", used, seconds,
                        100.0 * used / seconds);
            if (preview)
                std::printf(", %lld segments",
                            static_cast<long long>(transcript.segments().size()));
            std::printf("\n");
            transcript.stop();
            recorder.discardRecording();
            app.quit();
        } else if (kind == RecordingState::Kind::Error) {
            std::fprintf(stderr, "preview_cpu: %s\n", qPrintable(recorder.state().message()));
            app.exit(1);
        }
    });
    recorder.requestStartRecording();
    return app.exec();
}
