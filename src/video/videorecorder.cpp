#include "videorecorder.h"

#include "core/log.h"
#include "core/mainthread.h"
#include "core/monotonicclock.h"
#include "core/notify.h"
#include "core/recordingfilelock.h"
#include "core/serialqueue.h"
#include "video/capturearea.h"
#include "video/framepool.h"
#include "video/mp4writer.h"
#include "video/pipewirestream.h"
#include "video/portalscreencast.h"
#include "video/screencaptureaccess.h"
#include "video/shareablecontent.h"
#include "video/videolog.h"
#include "video/x11connection.h"
#include "video/x11screengrabber.h"
#include "video/yuvframe.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QPointer>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <ctime>
#include <limits>
#include <utility>

namespace sorv {

namespace {

constexpr std::int64_t kFramePeriodNs = kNsPerSecond / VideoRecorder::kFramesPerSecond;
// At stop, how long the writer waits for the audio that was captured before
// the stop but is still on its way from the audio engine (a buffer or so).
constexpr int kAudioGraceMs = 300;
constexpr int kAudioGracePollMs = 20;
constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

// Runs fn on the GUI thread later, unless the recorder is gone by then.
// `self` is taken on the GUI thread, when the work is handed off, and only
// looked at there.
void onMain(const QPointer<VideoRecorder>& self, std::function<void(VideoRecorder&)> fn)
{
    postToMainThread(QCoreApplication::instance(), [self, fn = std::move(fn)] {
        if (VideoRecorder* recorder = self.data())
            fn(*recorder);
    });
}

struct Counters {
    std::atomic<std::int64_t> framesDue{0};
    std::atomic<std::int64_t> framesGrabbed{0};
    std::atomic<std::int64_t> framesDroppedQueueFull{0};
    std::atomic<std::int64_t> framesWritten{0};
    std::atomic<std::int64_t> audioBuffersWritten{0};
    std::atomic<std::int64_t> audioBuffersDropped{0};
    std::atomic<int> maxFramesWaiting{0};

    void reset()
    {
        for (auto* c : {&framesDue, &framesGrabbed, &framesDroppedQueueFull, &framesWritten,
                        &audioBuffersWritten, &audioBuffersDropped})
            c->store(0);
        maxFramesWaiting.store(0);
    }
};

} // namespace

QString VideoRecorderState::name() const
{
    switch (m_kind) {
    case Kind::Error:
        return QStringLiteral("error(%1)").arg(m_message);
    case Kind::Idle:
        return QStringLiteral("idle");
    case Kind::Preparing:
        return QStringLiteral("preparing");
    case Kind::Recording:
        return QStringLiteral("recording");
    case Kind::Finalising:
        break;
    }
    return QStringLiteral("finalising");
}

// Writing state: touched only on the video queue, except the atomics.
struct VideoCore {
    Counters counters;
    // CLOCK_MONOTONIC of the stop; what was captured from then on is ignored.
    std::atomic<std::int64_t> stoppedAtNs{kNever};

    std::unique_ptr<Mp4Writer> writer;
    QString path;
    std::shared_ptr<RecordingFileLock> lock; // held while the file is written
    std::optional<std::int64_t> firstSampleTimeNs;
    std::int64_t lastVideoPtsNs = 0;
    std::int64_t lastAudioEndNs = std::numeric_limits<std::int64_t>::min();
    std::int64_t videoFailures = 0;
    std::int64_t audioFailures = 0;
    std::uint64_t cancelledUpTo = 0; // sessions up to this one were torn down

    void onFrame(const FramePool& pool, const GrabbedFrame& frame);
    void onAudio(const std::vector<float>& samples, std::int64_t hostTimeNs);
    void reset()
    {
        writer.reset();
        lock.reset();
        firstSampleTimeNs.reset();
        lastVideoPtsNs = 0;
        lastAudioEndNs = std::numeric_limits<std::int64_t>::min();
        videoFailures = 0;
        audioFailures = 0;
    }
};

// Capture state: touched only on the capture queue.
struct CaptureStream {
    std::shared_ptr<VideoCore> core; // for its counters
    std::unique_ptr<X11ScreenGrabber> grabber;
    std::unique_ptr<PipeWireStream> portalStream; // instead of the grabber on Wayland
    std::shared_ptr<FramePool> pool;
    std::unique_ptr<QTimer> timer;
    std::int64_t nextDueNs = 0;
    std::uint64_t session = 0;
    std::uint64_t cancelledUpTo = 0;

    void tick(SerialQueue& videoQueue, const QPointer<VideoRecorder>& recorder);

    void stop()
    {
        // stop() may run inside the timer's own timeout.
        if (timer) {
            timer->stop();
            timer.release()->deleteLater();
        }
        grabber.reset();
        // Joins the PipeWire thread: no frame is posted after this.
        portalStream.reset();
        pool.reset();
    }
};

// The end of a recording on the video queue (see VideoRecorder::stop).
struct FinishJob {
    std::shared_ptr<VideoCore> core;
    std::int64_t stoppedAtNs = 0;
    bool withSound = false; // the sound ended before the stop: so does the picture
    std::uint64_t session = 0;
    SerialQueue* queue = nullptr;
    // Once, when the file has taken all the audio it will take.
    std::function<void()> audioEnded;
    std::function<void(const VideoRecorder::StopResult&)> done;

    static void run(const std::shared_ptr<FinishJob>& job, int waitedMs);
};

// One frame time: grab into a free slot and hand the frame to the video
// queue, or count the frame as dropped when five are already waiting there.
void CaptureStream::tick(SerialQueue& videoQueue, const QPointer<VideoRecorder>& recorder)
{
    Counters& counters = core->counters;
    counters.framesDue.fetch_add(1);
    const int slot = pool->tryAcquire();
    if (slot < 0) {
        counters.framesDroppedQueueFull.fetch_add(1);
    } else {
        const int waiting = pool->inUse();
        int seen = counters.maxFramesWaiting.load();
        while (waiting > seen && !counters.maxFramesWaiting.compare_exchange_weak(seen, waiting)) {
        }
        X11ScreenGrabber::Frame frame;
        QString grabError;
        if (!grabber->grab(*pool, slot, &frame, &grabError)) {
            pool->release(slot);
            qCWarning(lcVideo, "Screen capture stopped with error: %s", qPrintable(grabError));
            stop();
            onMain(recorder, [grabError](VideoRecorder& r) { Q_EMIT r.captureFailed(grabError); });
            return;
        }
        counters.framesGrabbed.fetch_add(1);
        videoQueue.post([core = core, pool = pool, frame] {
            core->onFrame(*pool, frame);
            pool->release(frame.slot);
        });
    }
    // The next tick on the 30 Hz grid; ticks already missed (the thread was
    // held up) are skipped, not caught up.
    const std::int64_t now = monotonicNowNs();
    nextDueNs += kFramePeriodNs;
    if (nextDueNs <= now) {
        const std::int64_t missed = (now - nextDueNs) / kFramePeriodNs + 1;
        nextDueNs += missed * kFramePeriodNs;
        counters.framesDue.fetch_add(missed);
    }
    timer->start(int((nextDueNs - now + 999'999) / 1'000'000));
}

void VideoCore::onFrame(const FramePool& pool, const GrabbedFrame& frame)
{
    if (!writer || !writer->isOpen() || frame.hostTimeNs >= stoppedAtNs.load())
        return;
    if (!firstSampleTimeNs) {
        firstSampleTimeNs = frame.hostTimeNs;
        qCInfo(lcVideo, "First video frame: originalPTS=%.6f",
               double(frame.hostTimeNs) / double(kNsPerSecond));
    }
    const std::int64_t pts = frame.hostTimeNs - *firstSampleTimeNs;
    if (pts < 0)
        return;
    QString why;
    const std::uint8_t* pixels = frame.size.isEmpty() ? nullptr : pool.slot(frame.slot).data;
    const bool ok =
        !pixels ? writer->writeBlackVideo(pts, &why)
        : frame.yuv420
            ? writer->writeVideoYuv(pixels, Yuv420Layout::forSize(frame.size), pts, &why)
            : writer->writeVideo(pixels, frame.size, frame.stride, frame.destination, pts, &why);
    if (!ok) {
        if (logThinned(++videoFailures, 3))
            qCWarning(lcVideo, "Failed to encode video frame: %s", qPrintable(why));
        return;
    }
    lastVideoPtsNs = pts;
    counters.framesWritten.fetch_add(1);
}

void VideoCore::onAudio(const std::vector<float>& samples, std::int64_t hostTimeNs)
{
    // Nothing before the first frame, nothing captured after the stop.
    if (!writer || !writer->isOpen() || !firstSampleTimeNs || hostTimeNs >= stoppedAtNs.load() ||
        hostTimeNs < *firstSampleTimeNs) {
        counters.audioBuffersDropped.fetch_add(1);
        return;
    }
    // A buffer that runs past the stop ends at it, as the picture does.
    auto count = static_cast<std::int64_t>(samples.size());
    const std::int64_t stop = stoppedAtNs.load();
    if (stop != kNever) {
        const std::int64_t untilStop =
            (stop - hostTimeNs) * static_cast<std::int64_t>(kCommonSampleRate) / kNsPerSecond;
        count = std::min(count, untilStop);
    }
    QString why;
    if (!writer->writeAudio(samples.data(), static_cast<int>(count),
                            hostTimeNs - *firstSampleTimeNs, &why)) {
        if (logThinned(++audioFailures, 3))
            qCWarning(lcVideo, "Failed to encode audio: %s", qPrintable(why));
        return;
    }
    lastAudioEndNs = hostTimeNs + static_cast<std::int64_t>(samples.size()) * kNsPerSecond /
                                      static_cast<std::int64_t>(kCommonSampleRate);
    counters.audioBuffersWritten.fetch_add(1);
}

VideoRecorder::VideoRecorder(QObject* parent)
    : VideoCapture(parent),
      m_videoQueue(std::make_shared<SerialQueue>(QStringLiteral("com.sorvelandrix.video.screen"))),
      m_captureQueue(
          std::make_unique<SerialQueue>(QStringLiteral("com.sorvelandrix.video.capture"))),
      m_core(std::make_shared<VideoCore>()), m_capture(std::make_shared<CaptureStream>())
{
    m_capture->core = m_core;
    m_elapsedTimer.setInterval(kElapsedIntervalMs);
    connect(&m_elapsedTimer, &QTimer::timeout, this, [this] {
        if (m_startWallClock.isValid())
            setElapsed(double(m_startWallClock.nsecsElapsed()) / double(kNsPerSecond));
    });
}

VideoRecorder::~VideoRecorder()
{
    m_elapsedTimer.stop();
    m_core->stoppedAtNs.store(monotonicNowNs());
    // Capture first, so that nothing new reaches the writer; then the writer,
    // which finishes a stop already under way or drops an unfinished file
    // as written (it stays playable).
    m_captureQueue->post([capture = m_capture] { capture->stop(); });
    m_captureQueue->shutdown();
    m_videoQueue->post([core = m_core] { core->reset(); });
    m_videoQueue->shutdown();
}

void VideoRecorder::setState(const VideoRecorderState& state)
{
    setAndNotify(this, m_state, state, &VideoRecorder::stateChanged);
}

void VideoRecorder::setElapsed(double v)
{
    setAndNotify(this, m_elapsed, v, &VideoRecorder::elapsedChanged);
}

VideoRecorder::Statistics VideoRecorder::statistics() const
{
    const Counters& c = m_core->counters;
    return {c.framesDue.load(),       c.framesGrabbed.load(),       c.framesDroppedQueueFull.load(),
            c.framesWritten.load(),   c.audioBuffersWritten.load(), c.audioBuffersDropped.load(),
            c.maxFramesWaiting.load()};
}

void VideoRecorder::start(const QString& outputPath, const ScreenCaptureTargetOption& target,
                          StartCompletion done,
                          const std::shared_ptr<RecordingFileLock>& outputLock)
{
    const QPointer<VideoRecorder> self(this);
    if (m_state.kind() != VideoRecorderState::Kind::Idle) {
        const auto error = VideoRecorderError::invalidState(QStringLiteral("start() called from ") +
                                                            m_state.name());
        onMain(self, [done = std::move(done), error](VideoRecorder&) { done(error); });
        return;
    }
    setState(VideoRecorderState::preparing());
    setElapsed(0.0);
    const std::uint64_t session = ++m_session;
    m_core->counters.reset();
    m_core->stoppedAtNs.store(kNever);

    SerialQueue* videoQueue = m_videoQueue.get();
    SerialQueue* captureQueue = m_captureQueue.get();
    std::shared_ptr<VideoCore> core = m_core;
    std::shared_ptr<CaptureStream> capture = m_capture;
    auto fail = [self, session, done](const VideoRecorderError& error) {
        onMain(self,
               [session, done, error](VideoRecorder& r) { r.failStart(session, error, done); });
    };
    // A tear-down overtook the start: it still answers, once.
    const auto cancelled = [fail] {
        fail(VideoRecorderError::invalidState(QStringLiteral("start() cancelled by tearDown()")));
    };

    // On the capture queue, once the source is ready: the file on the video
    // queue, then back on the capture queue `begin` lets the frames come.
    const auto openFile = [=](QSize size, const std::function<void()>& begin) {
        videoQueue->post([=] {
            if (session <= core->cancelledUpTo) {
                cancelled();
                return;
            }
            core->reset();
            auto writer = std::make_unique<Mp4Writer>();
            QString writerError;
            if (!writer->open(outputPath, Mp4Writer::defaultSettings(size), &writerError)) {
                writer.reset();
                QFile::remove(outputPath); // at most a header
                captureQueue->post([capture, session] {
                    if (capture->session == session)
                        capture->stop();
                });
                fail(VideoRecorderError::writerSetupFailed(writerError));
                return;
            }
            core->writer = std::move(writer);
            core->path = outputPath;
            core->lock = outputLock;

            captureQueue->post([=] {
                if (session <= capture->cancelledUpTo || capture->session != session ||
                    (!capture->grabber && !capture->portalStream)) {
                    cancelled();
                    return;
                }
                begin();
                onMain(self, [session, done, outputPath, size](VideoRecorder& r) {
                    r.finishStart(session, outputPath, size, done);
                });
            });
        });
    };

    if (screenCaptureBackend() == ScreenCaptureBackend::Portal) {
        startPortal(session, target, openFile, fail, cancelled);
        return;
    }

    // On the capture queue: what is on screen, the target's area, the grabber.
    m_captureQueue->post([=] {
        if (session <= capture->cancelledUpTo) {
            cancelled();
            return;
        }
        QString why;
        const auto connection = x11::Connection::open(&why);
        if (!connection) {
            qCWarning(lcVideo, "No X display to capture: %s", qPrintable(why));
            fail(VideoRecorderError::noDisplay());
            return;
        }
        ShareableContentError contentError;
        const auto content = queryShareableContent(*connection, &contentError);
        if (!content) {
            fail(VideoRecorderError::shareableContentFailed(contentError.message));
            return;
        }
        const auto area = resolveCaptureArea(*content, target.kind);
        if (!area) {
            qCWarning(lcVideo, "Capture target %s is not on screen", qPrintable(target.id));
            fail(VideoRecorderError::noDisplay());
            return;
        }
        auto grabber = X11ScreenGrabber::create(*area, &why);
        if (!grabber) {
            fail(VideoRecorderError::scStreamStartFailed(why));
            return;
        }
        if (!grabber->usesSharedMemory())
            qCInfo(lcVideo, "MIT-SHM is not available: frames come over the X connection");
        auto pool = std::make_shared<FramePool>();
        if (!grabber->prepare(*pool, &why)) {
            fail(VideoRecorderError::scStreamStartFailed(why));
            return;
        }
        capture->stop();
        capture->session = session;
        capture->grabber = std::move(grabber);
        capture->pool = std::move(pool);
        // The frame clock.
        openFile(area->videoSize, [capture, videoQueue, self] {
            capture->timer = std::make_unique<QTimer>();
            capture->timer->setSingleShot(true);
            capture->timer->setTimerType(Qt::PreciseTimer);
            CaptureStream* stream = capture.get();
            QObject::connect(capture->timer.get(), &QTimer::timeout, capture->timer.get(),
                             [stream, videoQueue, self] { stream->tick(*videoQueue, self); });
            capture->nextDueNs = monotonicNowNs();
            capture->timer->start(0);
        });
    });
}

void VideoRecorder::startPortal(std::uint64_t session, const ScreenCaptureTargetOption& target,
                                const OpenFile& openFile, const Fail& fail,
                                const std::function<void()>& cancelled)
{
    using Type = ScreenCaptureTargetOption::Kind::Type;
    using Status = PortalScreenCast::Result::Status;
    const QPointer<VideoRecorder> self(this);
    closePortal();
    auto* portal = new PortalScreenCast(this);
    m_portal = portal;
    // The desktop's "Stop sharing": the recording ends as a Stop would end it.
    // Still starting, it ends as soon as it has started.
    m_endAfterStart = false;
    connect(portal, &PortalScreenCast::closed, this, [this, session] {
        if (session != m_session)
            return;
        if (m_state.kind() == VideoRecorderState::Kind::Recording)
            Q_EMIT captureEnded();
        else if (m_state.kind() == VideoRecorderState::Kind::Preparing)
            m_endAfterStart = true;
    });
    const Type type = target.kind.type;
    const auto source =
        type == Type::PortalWindow || type == Type::Window || type == Type::Application
            ? PortalScreenCast::Source::Window
            : PortalScreenCast::Source::Monitor;
    SerialQueue* videoQueue = m_videoQueue.get();
    std::shared_ptr<VideoCore> core = m_core;
    std::shared_ptr<CaptureStream> capture = m_capture;
    portal->start(source, [=](const PortalScreenCast::Result& result) {
        if (!self || self->m_session != session) {
            cancelled();
            return;
        }
        switch (result.status) {
        case Status::Cancelled:
            fail(VideoRecorderError::sharingCancelled());
            return;
        case Status::NoPortal:
            fail(VideoRecorderError::noScreenCastPortal());
            return;
        case Status::Failed:
            fail(VideoRecorderError::scStreamStartFailed(result.message));
            return;
        case Status::Started:
            break;
        }
        // Waiting for the stream's format blocks the capture queue, never
        // the GUI thread.
        self->m_captureQueue->post([=] {
            if (session <= capture->cancelledUpTo) {
                cancelled();
                return;
            }
            auto pool = std::make_shared<FramePool>();
            QString why;
            QSize size;
            auto stream = PipeWireStream::open(result.remote.fileDescriptor(), result.nodeID, pool,
                                               result.cursorMetadata, &why);
            if (!stream || !stream->waitForFormat(PortalScreenCast::callTimeoutMs(), &size, &why)) {
                fail(VideoRecorderError::scStreamStartFailed(why));
                return;
            }
            capture->stop();
            capture->session = session;
            capture->portalStream = std::move(stream);
            capture->pool = pool;
            const QSize videoSize(std::max(2, size.width() & ~1), std::max(2, size.height() & ~1));
            openFile(videoSize, [=] {
                capture->portalStream->setSink(
                    videoSize,
                    [core, pool, videoQueue](const GrabbedFrame& frame) {
                        Counters& counters = core->counters;
                        counters.framesDue.fetch_add(1);
                        if (frame.slot < 0) {
                            counters.framesDroppedQueueFull.fetch_add(1);
                            return;
                        }
                        const int waiting = pool->inUse();
                        int seen = counters.maxFramesWaiting.load();
                        while (waiting > seen &&
                               !counters.maxFramesWaiting.compare_exchange_weak(seen, waiting)) {
                        }
                        counters.framesGrabbed.fetch_add(1);
                        videoQueue->post([core, pool, frame] {
                            core->onFrame(*pool, frame);
                            pool->release(frame.slot);
                        });
                    },
                    [self](const QString& message) {
                        qCWarning(lcVideo, "Screen capture stopped with error: %s",
                                  qPrintable(message));
                        onMain(self,
                               [message](VideoRecorder& r) { Q_EMIT r.captureFailed(message); });
                    });
            });
        });
    });
}

void VideoRecorder::closePortal()
{
    if (!m_portal)
        return;
    m_portal->close();
    m_portal->deleteLater();
    m_portal = nullptr;
}

void VideoRecorder::finishStart(std::uint64_t session, const QString& outputPath, QSize size,
                                const StartCompletion& done)
{
    if (session != m_session) {
        failStart(
            session,
            VideoRecorderError::invalidState(QStringLiteral("start() cancelled by tearDown()")),
            done);
        return;
    }
    qCInfo(lcVideo, "Video recording started: %dx%d @ %d fps → %s", size.width(), size.height(),
           kFramesPerSecond, qPrintable(QFileInfo(outputPath).fileName()));
    m_outputPath = outputPath;
    m_startWallClock.start();
    setState(VideoRecorderState::recording());
    m_elapsedTimer.start();
    done(std::nullopt);
    if (std::exchange(m_endAfterStart, false))
        QTimer::singleShot(0, this, [this, session] {
            if (session == m_session && m_state.kind() == VideoRecorderState::Kind::Recording)
                Q_EMIT captureEnded();
        });
}

void VideoRecorder::failStart(std::uint64_t session, const VideoRecorderError& error,
                              const StartCompletion& done)
{
    qCWarning(lcVideo, "Video recording failed to start: %s", qPrintable(error.description()));
    if (session == m_session)
        tearDown();
    done(error);
}

void VideoRecorder::appendAudio(const AudioBuffer& buffer) const
{
    std::vector<float> samples(buffer.samples);
    m_videoQueue->post([core = m_core, samples = std::move(samples), t = buffer.hostTimeNs] {
        core->onAudio(samples, t);
    });
}

VideoRecorder::AudioSink VideoRecorder::audioSink() const
{
    return [queue = std::weak_ptr<SerialQueue>(m_videoQueue),
            weakCore = std::weak_ptr<VideoCore>(m_core)](const AudioBuffer& buffer) {
        const std::shared_ptr<SerialQueue> q = queue.lock();
        if (!q)
            return;
        std::vector<float> samples(buffer.samples);
        q->post([weakCore, samples = std::move(samples), t = buffer.hostTimeNs] {
            if (const auto core = weakCore.lock())
                core->onAudio(samples, t);
        });
    };
}

void VideoRecorder::stop(StopCompletion done)
{
    stop(false, std::move(done));
}

void VideoRecorder::stopWithSound(StopCompletion done)
{
    stop(true, std::move(done));
}

void VideoRecorder::stop(bool withSound, StopCompletion done)
{
    const QPointer<VideoRecorder> self(this);
    std::optional<VideoRecorderError> refusal;
    switch (m_state.kind()) {
    case VideoRecorderState::Kind::Recording:
        break;
    case VideoRecorderState::Kind::Preparing:
    case VideoRecorderState::Kind::Finalising:
        refusal =
            VideoRecorderError::invalidState(QStringLiteral("stop() during ") + m_state.name());
        break;
    case VideoRecorderState::Kind::Idle:
    case VideoRecorderState::Kind::Error:
        refusal = VideoRecorderError::notRecording();
        break;
    }
    if (refusal) {
        onMain(self, [done = std::move(done), error = *refusal](VideoRecorder&) {
            done({{}, error});
        });
        return;
    }
    setState(VideoRecorderState::finalising());
    m_elapsedTimer.stop();
    const std::int64_t stoppedAt = monotonicNowNs();
    m_core->stoppedAtNs.store(stoppedAt);
    const std::uint64_t session = m_session;
    SerialQueue* videoQueue = m_videoQueue.get();

    // On the video queue, once the capture has stopped: wait briefly for the
    // audio captured before the stop, then finish the file and move its index
    // to the front.
    auto finish = std::make_shared<FinishJob>();
    finish->core = m_core;
    finish->stoppedAtNs = stoppedAt;
    finish->withSound = withSound;
    finish->session = session;
    finish->queue = videoQueue;
    finish->audioEnded = [self] { onMain(self, [](VideoRecorder& r) { Q_EMIT r.audioEnded(); }); };
    finish->done = [self, session, done = std::move(done)](const StopResult& result) {
        onMain(self,
               [session, done, result](VideoRecorder& r) { r.finishStop(session, result, done); });
    };
    m_captureQueue->post([capture = m_capture, videoQueue, finish] {
        capture->stop();
        // Every frame grabbed so far is already on the video queue, ahead of this.
        videoQueue->post([finish] { FinishJob::run(finish, 0); });
    });
}

void FinishJob::run(const std::shared_ptr<FinishJob>& job, int waitedMs)
{
    VideoCore& core = *job->core;
    if (job->session <= core.cancelledUpTo || !core.writer) {
        job->done(
            {{}, VideoRecorderError::invalidState(QStringLiteral("stop() after tearDown()"))});
        return;
    }
    const bool audioSeen = core.lastAudioEndNs != std::numeric_limits<std::int64_t>::min();
    if (audioSeen && !job->withSound && core.lastAudioEndNs < job->stoppedAtNs &&
        waitedMs < kAudioGraceMs) {
        QTimer::singleShot(kAudioGracePollMs, job->queue->context(),
                           [job, waitedMs] { run(job, waitedMs + kAudioGracePollMs); });
        return;
    }
    // The file is finished in this same step, so later audio finds no
    // writer: its source may stop now, while the index is rewritten.
    job->audioEnded();
    const Mp4Writer::Statistics& stats = core.writer->statistics();
    const std::int64_t packets = stats.videoPackets + stats.audioPackets;
    // The frames encoded while the news of the sound's end was on its way.
    const std::int64_t videoEndNs = job->withSound && audioSeen && core.firstSampleTimeNs
                                        ? core.lastAudioEndNs - *core.firstSampleTimeNs
                                        : std::numeric_limits<std::int64_t>::max();
    QString why;
    const bool finished = core.writer->finish(&why);
    const QString path = core.path;
    // Held until the finished file is in place under its name.
    std::shared_ptr<RecordingFileLock> lock = std::move(core.lock);
    core.reset();
    if (!finished) {
        lock.reset();
        job->done({{},
                   VideoRecorderError::writerSetupFailed(
                       QStringLiteral("finishWriting status=3 error=%1")
                           .arg(why.isEmpty() ? QStringLiteral("nil") : why))});
        return;
    }
    const QString part = path + QStringLiteral(".part");
    QString remuxError;
    if (!Mp4Writer::remuxWithIndexFirst(path, part, packets, &remuxError, videoEndNs)) {
        // The fragmented file plays everywhere that matters: keep it.
        qCWarning(lcVideo,
                  "Could not move the index to the front (%s); keeping the fragmented file",
                  qPrintable(remuxError));
    } else if (std::rename(QFile::encodeName(part).constData(),
                           QFile::encodeName(path).constData()) != 0) {
        QFile::remove(part);
        qCWarning(lcVideo, "Could not replace the fragmented file; keeping it");
    }
    lock.reset();
    job->done({path, std::nullopt});
}

void VideoRecorder::finishStop(std::uint64_t session, const StopResult& result,
                               const StopCompletion& done)
{
    if (session != m_session) {
        done({{}, VideoRecorderError::invalidState(QStringLiteral("stop() after tearDown()"))});
        return;
    }
    m_outputPath.clear();
    closePortal();
    if (result.error) {
        setState(VideoRecorderState::error(result.error->description()));
        done(result);
        return;
    }
    const Statistics stats = statistics();
    qCInfo(lcVideo,
           "Video finalised: %s (frames: %lld written, %lld grabbed of %lld due, %lld dropped "
           "with five waiting, at most %d waiting)",
           qPrintable(QFileInfo(result.path).fileName()),
           static_cast<long long>(stats.framesWritten), static_cast<long long>(stats.framesGrabbed),
           static_cast<long long>(stats.framesDue),
           static_cast<long long>(stats.framesDroppedQueueFull), stats.maxFramesWaiting);
    m_lastFinalisedPath = result.path;
    setState(VideoRecorderState::idle());
    done(result);
}

void VideoRecorder::tearDown()
{
    // Every session up to the current one stops; a later start gets a new one.
    const std::uint64_t cancelled = m_session++;
    m_elapsedTimer.stop();
    m_core->stoppedAtNs.store(monotonicNowNs());
    m_captureQueue->post([capture = m_capture, cancelled] {
        capture->cancelledUpTo = std::max(capture->cancelledUpTo, cancelled);
        capture->stop();
    });
    m_videoQueue->post([core = m_core, cancelled] {
        core->cancelledUpTo = std::max(core->cancelledUpTo, cancelled);
        core->reset();
    });
    m_outputPath.clear();
    m_startWallClock.invalidate();
    closePortal();
    setState(VideoRecorderState::idle());
}

} // namespace sorv

#include "moc_videorecorder.cpp"
