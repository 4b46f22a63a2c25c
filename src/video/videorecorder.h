#pragma once

#include "audio/audiotypes.h"
#include "video/screencapturetargetoption.h"
#include "video/videocapture.h"
#include "video/videorecordererror.h"

#include <QElapsedTimer>
#include <QMetaType>
#include <QObject>
#include <QPointer>
#include <QSize>
#include <QString>
#include <QTimer>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace sorv {

class PortalScreenCast;
class RecordingFileLock;
class SerialQueue;
struct VideoCore;
struct CaptureStream;

// Records a display, an application or a window into an MP4 file with the
// recording's mixed audio: H.264 (libx264, High, 4 Mbit/s, a key frame every
// 60 frames) and AAC (mono, 44.1 kHz, 128 kbit/s).
//
// Where the screen comes from: on X11 the recorder grabs it itself; on a
// Wayland session the desktop shares it (see PortalScreenCast), its own
// dialog picking the screen or window, and the pictures come over PipeWire.
//
// Threads. The object lives on the GUI thread, where `state` and `elapsed`
// change and every completion is called. On X11 the screen is grabbed on the queue
// com.sorvelandrix.video.capture, paced by a timer at up to 30 frames a second;
// each grab goes to the queue com.sorvelandrix.video.screen, which does all
// conversion, encoding and writing. At most five grabbed frames wait for the
// encoder: a grab that would make a sixth is not made, and counted. On
// Wayland, PipeWire's thread copies each picture the desktop sends into the
// same pool and posts it to the same queue.
//
// Timing. Frames and audio buffers carry CLOCK_MONOTONIC times; the file's
// time zero is the first frame written. Audio from before it is not written;
// the audio track starts at zero with silence up to its first buffer.
//
// Crash safety. The file at the output path is a fragmented MP4 while
// recording (a fragment at least twice a second), so a killed process leaves a
// file that plays to its last fragment. Stop rewrites it as a plain MP4 with
// its index at the front (a stream copy) and replaces it in one rename.
class VideoRecorder : public VideoCapture {
    Q_OBJECT
    Q_PROPERTY(sorv::VideoRecorderState state READ state NOTIFY stateChanged)
    Q_PROPERTY(double elapsed READ elapsed NOTIFY elapsedChanged)

public:
    // Counters since the last start, readable from any thread.
    struct Statistics {
        std::int64_t framesDue = 0;              // timer ticks while capturing (30 a second)
        std::int64_t framesGrabbed = 0;          // grabs handed to the encoder
        std::int64_t framesDroppedQueueFull = 0; // five already waiting: not grabbed
        std::int64_t framesWritten = 0;
        std::int64_t audioBuffersWritten = 0;
        std::int64_t audioBuffersDropped = 0; // before the first frame, or after stop
        int maxFramesWaiting = 0;
    };

    static constexpr int kFramesPerSecond = 30;
    static constexpr int kMaxFramesWaiting = 5;
    static constexpr int kElapsedIntervalMs = 100;

    explicit VideoRecorder(QObject* parent = nullptr);
    // Abandons a recording still running (the file stays as it was written).
    ~VideoRecorder() override;

    const VideoRecorderState& state() const override { return m_state; }
    double elapsed() const { return m_elapsed; }
    // The file being written; empty when not recording.
    QString outputPath() const { return m_outputPath; }
    QString lastFinalisedPath() const { return m_lastFinalisedPath; }

    // Only from idle. Replaces a file at `outputPath`. Resolves the target
    // against the screen as it is now; `done` gets nothing on success or the
    // reason (noDisplay when the target's display, window or application is
    // gone, or there is no X server; on Wayland sharingCancelled when the
    // user cancelled the desktop's dialog, noScreenCastPortal when no portal
    // answers). `outputLock`, the lock taken with the file's name, is
    // held while the file is written and let go once it is finished.
    void start(const QString& outputPath, const ScreenCaptureTargetOption& target,
               StartCompletion done,
               const std::shared_ptr<RecordingFileLock>& outputLock = {}) override;

    // One mixed buffer (48 kHz mono float, `hostTimeNs` = CLOCK_MONOTONIC of
    // its first sample). Copies the samples and posts them to the video
    // queue; any thread, never blocks.
    void appendAudio(const AudioBuffer& buffer) const;
    // The same as a value the audio engine's callback can hold: it stays safe
    // to call after the recorder is gone (it then does nothing).
    AudioSink audioSink() const override;

    // Only from recording: finishes the file and hands back its path. Fails
    // with notRecording when there is nothing to stop, invalidState while
    // starting or finishing.
    void stop(StopCompletion done) override;
    // Frames stamped after the last audio buffer's end are left out of the
    // finished file.
    void stopWithSound(StopCompletion done) override;

    // Drops whatever runs (after a failed start, or when the controller
    // abandons a recording): the fragmented file stays as written. Returns at
    // once; the state becomes idle.
    void tearDown() override;

    Statistics statistics() const;

Q_SIGNALS:
    void stateChanged();
    void elapsedChanged();
    // The screen capture failed while recording (the X server went away);
    // the recording goes on with what it has.
    void captureFailed(const QString& message);

private:
    void stop(bool withSound, StopCompletion done);
    using OpenFile = std::function<void(QSize size, const std::function<void()>& begin)>;
    using Fail = std::function<void(const VideoRecorderError& error)>;

    void startPortal(std::uint64_t session, const ScreenCaptureTargetOption& target,
                     const OpenFile& openFile, const Fail& fail,
                     const std::function<void()>& cancelled);
    void closePortal();
    void setState(const VideoRecorderState& state);
    void setElapsed(double v);
    void finishStart(std::uint64_t session, const QString& outputPath, QSize size,
                     const StartCompletion& done);
    void failStart(std::uint64_t session, const VideoRecorderError& error,
                   const StartCompletion& done);
    void finishStop(std::uint64_t session, const StopResult& result, const StopCompletion& done);

    VideoRecorderState m_state = VideoRecorderState::idle();
    double m_elapsed = 0.0;
    QString m_outputPath;
    QString m_lastFinalisedPath;

    std::shared_ptr<SerialQueue> m_videoQueue;
    std::unique_ptr<SerialQueue> m_captureQueue;
    std::shared_ptr<VideoCore> m_core;
    std::shared_ptr<CaptureStream> m_capture;
    QPointer<PortalScreenCast> m_portal; // Wayland: the desktop's sharing session
    bool m_endAfterStart = false;        // the desktop stopped sharing while starting

    QTimer m_elapsedTimer;
    QElapsedTimer m_startWallClock;
    // Bumped by every start and tear-down: answers for an earlier session are
    // recognised and dropped.
    std::uint64_t m_session = 0;
};

} // namespace sorv
