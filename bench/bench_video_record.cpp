// Drives VideoRecorder the way a video-call recording does, for
// bench/video_cpu.sh:
//
//   bench_video_record record SECONDS OUT.mp4 FLASHES.txt
//     records the main display for SECONDS with synthetic mixed audio (a quiet
//     tone, 4 096-frame buffers stamped like the engine's). In the last seconds
//     a 240×240 box in the top-left corner flashes white three times while the
//     audio carries a click at the same moments; FLASHES.txt gets each flash's
//     planned and actual time. Prints the recorder's counters and how long the
//     stop took.
//   bench_video_record analyse OUT.mp4 FLASHES.txt
//     finds the flashes and the clicks in the file and prints their offsets.
//
// The two steps are separate processes so that the analysis does not count
// in the recording's CPU time.

#include "mediafile.h"
#include "support/syntheticaudio.h"
#include "video/videorecorder.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTextStream>
#include <QTimer>

#include <xcb/xcb.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <thread>
#include <vector>

using namespace sorv;

namespace {

constexpr int kBox = 240;
constexpr std::int64_t kOnNs = 150'000'000;

// A window of our own in the corner, black, made white at given moments.
class FlashBox {
public:
    bool open()
    {
        m_c = xcb_connect(nullptr, nullptr);
        if (xcb_connection_has_error(m_c))
            return false;
        xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(m_c)).data;
        m_w = xcb_generate_id(m_c);
        const std::uint32_t values[] = {0x000000, 1};
        xcb_create_window(m_c, XCB_COPY_FROM_PARENT, m_w, screen->root, 0, 0, kBox, kBox, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
        xcb_map_window(m_c, m_w);
        roundTrip();
        return true;
    }
    ~FlashBox()
    {
        if (m_thread.joinable())
            m_thread.join();
        if (m_c)
            xcb_disconnect(m_c);
    }

    void run(std::vector<std::int64_t> at)
    {
        m_thread = std::thread([this, at] {
            for (std::int64_t t : at) {
                sleepUntil(t);
                const std::int64_t before = test::SyntheticAudio::nowNs();
                fill(0xffffff);
                const std::int64_t after = test::SyntheticAudio::nowNs();
                m_shown.push_back(before + (after - before) / 2);
                sleepUntil(t + kOnNs);
                fill(0x000000);
            }
        });
    }
    const std::vector<std::int64_t>& shown() const { return m_shown; }
    void join()
    {
        if (m_thread.joinable())
            m_thread.join();
    }

private:
    static void sleepUntil(std::int64_t ns)
    {
        timespec ts{time_t(ns / 1'000'000'000), long(ns % 1'000'000'000)};
        while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, nullptr) != 0) {
        }
    }
    void roundTrip()
    {
        std::free(xcb_get_input_focus_reply(m_c, xcb_get_input_focus(m_c), nullptr));
    }
    void fill(std::uint32_t rgb)
    {
        xcb_change_window_attributes(m_c, m_w, XCB_CW_BACK_PIXEL, &rgb);
        // Keep it above the moving window.
        const std::uint32_t above = XCB_STACK_MODE_ABOVE;
        xcb_configure_window(m_c, m_w, XCB_CONFIG_WINDOW_STACK_MODE, &above);
        xcb_clear_area(m_c, 0, m_w, 0, 0, 0, 0);
        roundTrip();
    }

    xcb_connection_t* m_c = nullptr;
    xcb_window_t m_w = 0;
    std::thread m_thread;
    std::vector<std::int64_t> m_shown;
};

int record(double seconds, const QString& out, const QString& flashesPath)
{
    FlashBox box;
    if (!box.open()) {
        std::fprintf(stderr, "no X display\n");
        return 1;
    }
    VideoRecorder recorder;
    const std::int64_t t0 = test::SyntheticAudio::nowNs();
    test::SyntheticAudio audio(t0, 0.1f);
    // Three flashes in the last seconds: the offset at the end of a recording.
    const auto ns = [](double s) { return std::int64_t(s * 1e9); };
    std::vector<std::int64_t> planned;
    for (double before : {6.5, 4.5, 2.5})
        planned.push_back(t0 + ns(std::max(seconds - before, 1.0 + (6.5 - before))));
    for (std::int64_t t : planned)
        audio.addClick(t);

    QTimer feed;
    QObject::connect(&feed, &QTimer::timeout, [&] {
        for (const AudioBuffer& b : audio.due())
            recorder.appendAudio(b);
    });
    feed.start(20);
    int status = 0;
    QElapsedTimer stopClock;
    recorder.start(out, ScreenCaptureTargetOption::mainDisplay(),
                   [&](const std::optional<VideoRecorderError>& error) {
                       if (error) {
                           std::fprintf(stderr, "%s\n", qPrintable(error->description()));
                           QCoreApplication::exit(1);
                           return;
                       }
                       box.run(planned);
                       const int remainingMs =
                           int((t0 + ns(seconds) - test::SyntheticAudio::nowNs()) / 1'000'000);
                       QTimer::singleShot(std::max(remainingMs, 0), [&] {
                           stopClock.start();
                           recorder.stop([&](const VideoRecorder::StopResult& r) {
                               if (r.error) {
                                   std::fprintf(stderr, "%s\n", qPrintable(r.error->description()));
                                   status = 1;
                               }
                               QCoreApplication::exit(status);
                           });
                       });
                   });
    const int rc = QCoreApplication::exec();
    const double stopSeconds = double(stopClock.nsecsElapsed()) / 1e9;
    box.join();
    if (rc != 0)
        return rc;

    const VideoRecorder::Statistics s = recorder.statistics();
    std::printf("frames_due %lld\nframes_grabbed %lld\nframes_written %lld\n"
                "frames_dropped_queue_full %lld\nmax_frames_waiting %d\n"
                "audio_buffers_written %lld\nstop_seconds %.3f\n",
                static_cast<long long>(s.framesDue), static_cast<long long>(s.framesGrabbed),
                static_cast<long long>(s.framesWritten),
                static_cast<long long>(s.framesDroppedQueueFull), s.maxFramesWaiting,
                static_cast<long long>(s.audioBuffersWritten), stopSeconds);
    QFile f(flashesPath);
    if (f.open(QIODevice::WriteOnly)) {
        QTextStream ts(&f);
        for (size_t i = 0; i < box.shown().size(); ++i)
            ts << planned[i] << ' ' << box.shown()[i] << '\n';
    }
    return 0;
}

int analyse(const QString& path, const QString& flashesPath)
{
    std::vector<double> stimulus; // how late each flash reached the screen, in seconds
    QFile f(flashesPath);
    if (!f.open(QIODevice::ReadOnly))
        return 1;
    while (!f.atEnd()) {
        const QList<QByteArray> fields = f.readLine().trimmed().split(' ');
        if (fields.size() == 2)
            stimulus.push_back(double(fields[1].toLongLong() - fields[0].toLongLong()) / 1e9);
    }
    const test::MediaFile probe = test::MediaFile::read(path, false);
    if (!probe.opened) {
        std::fprintf(stderr, "%s: %s\n", qPrintable(path), qPrintable(probe.error));
        return 1;
    }
    // Only the end is decoded: that is where the flashes are.
    const double from = std::max(0.0, probe.duration - 9.0);
    const test::MediaFile m = test::MediaFile::read(path, true, QRect(0, 0, kBox, kBox), from);

    std::vector<double> flashes;
    bool bright = false;
    for (size_t i = 0; i < m.frameLuma.size(); ++i) {
        const bool now = m.frameLuma[i] > 128.0;
        if (now && !bright)
            flashes.push_back(m.framePts[i]);
        bright = now;
    }
    std::vector<double> clicks;
    double last = -1.0;
    for (size_t i = 0; i < m.audio.size(); ++i) {
        if (std::fabs(m.audio[i]) < 0.4f)
            continue;
        const double t = m.audioStart + double(i) / m.audioSampleRate;
        if (last < 0 || t - last > 0.5)
            clicks.push_back(t);
        last = t;
    }
    std::printf("video %s %dx%d profile %d, audio %s %d ch %d Hz, duration %.3f s\n",
                qPrintable(probe.videoCodec), probe.videoSize.width(), probe.videoSize.height(),
                probe.videoProfile, qPrintable(probe.audioCodec), probe.audioChannels,
                probe.audioSampleRate, probe.duration);
    std::printf("end of video %.3f s, end of audio %.3f s, decode errors %d\n", m.videoEnd,
                m.audioEnd, m.decodeErrors + m.readErrors);
    if (flashes.size() != stimulus.size() || clicks.size() != stimulus.size()) {
        std::printf("found %zu flashes and %zu clicks for %zu planned:", flashes.size(),
                    clicks.size(), stimulus.size());
        for (double t : flashes)
            std::printf(" flash %.3f", t);
        for (double t : clicks)
            std::printf(" click %.3f", t);
        std::printf("\n");
        return 1;
    }
    double worst = 0.0;
    for (size_t k = 0; k < flashes.size(); ++k) {
        const double offset = (flashes[k] - stimulus[k]) - clicks[k];
        worst = std::max(worst, std::fabs(offset));
        std::printf("flash at %.3f s: picture %+.1f ms from its click\n", clicks[k], offset * 1e3);
    }
    std::printf("av_offset_max_ms %.1f\n", worst * 1e3);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() == 5 && args[1] == QLatin1String("record"))
        return record(args[2].toDouble(), args[3], args[4]);
    if (args.size() == 4 && args[1] == QLatin1String("analyse"))
        return analyse(args[2], args[3]);
    std::fprintf(stderr, "usage: bench_video_record record SECONDS OUT.mp4 FLASHES.txt\n"
                         "       bench_video_record analyse OUT.mp4 FLASHES.txt\n");
    return 2;
}
