// A video recording in a process of its own: records the main display with a
// synthetic tone as its mixed audio into the file given, reporting the frames
// written, until it is killed.

#include "support/syntheticaudio.h"
#include "video/videorecorder.h"

#include <QCoreApplication>
#include <QTimer>

#include <cstdio>

using namespace sorv;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: videorecorder_child OUT.mp4\n");
        return 2;
    }
    VideoRecorder recorder;
    test::SyntheticAudio audio(test::SyntheticAudio::nowNs(), 0.2f);
    QTimer feed;
    QObject::connect(&feed, &QTimer::timeout, [&] {
        for (const AudioBuffer& b : audio.due())
            recorder.appendAudio(b);
    });
    QTimer report;
    QObject::connect(&report, &QTimer::timeout, [&] {
        std::printf("frames %lld\n", static_cast<long long>(recorder.statistics().framesWritten));
        std::fflush(stdout);
    });
    recorder.start(QString::fromLocal8Bit(argv[1]), ScreenCaptureTargetOption::mainDisplay(),
                   [&](const std::optional<VideoRecorderError>& error) {
                       if (error) {
                           std::fprintf(stderr, "%s\n", qPrintable(error->description()));
                           QCoreApplication::exit(1);
                           return;
                       }
                       std::printf("recording\n");
                       std::fflush(stdout);
                       feed.start(20);
                       report.start(200);
                   });
    return QCoreApplication::exec();
}
