#pragma once

#include "audio/audiotypes.h"
#include "video/screencapturetargetoption.h"
#include "video/videorecordererror.h"

#include <QMetaType>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

namespace sorv {

class RecordingFileLock;

// The video recorder's state: idle → preparing → recording → finalising →
// idle; `error` holds the message of a failed stop for display.
class VideoRecorderState {
    Q_GADGET
    Q_PROPERTY(QString name READ name CONSTANT)
    Q_PROPERTY(QString message READ message CONSTANT)

public:
    enum class Kind { Error, Idle, Preparing, Recording, Finalising };

    VideoRecorderState() = default;
    static VideoRecorderState error(const QString& message) { return {Kind::Error, message}; }
    static VideoRecorderState idle() { return {Kind::Idle, {}}; }
    static VideoRecorderState preparing() { return {Kind::Preparing, {}}; }
    static VideoRecorderState recording() { return {Kind::Recording, {}}; }
    static VideoRecorderState finalising() { return {Kind::Finalising, {}}; }

    Kind kind() const { return m_kind; }
    const QString& message() const { return m_message; }
    // "idle", "preparing", "recording", "finalising", "error(…)"
    QString name() const;

    friend bool operator==(const VideoRecorderState&, const VideoRecorderState&) = default;

private:
    VideoRecorderState(Kind kind, QString message) : m_kind(kind), m_message(std::move(message)) {}

    Kind m_kind = Kind::Idle;
    QString m_message;
};

// What the recording controller needs from a screen recorder: start, the
// mixed audio's way in, stop and tear-down. VideoRecorder is the real one;
// the controller's tests substitute their own. Lives on the GUI thread, where
// every completion is called.
class VideoCapture : public QObject {
    Q_OBJECT

public:
    using StartCompletion = std::function<void(const std::optional<VideoRecorderError>& error)>;
    // Either the finished file's path or the error.
    struct StopResult {
        QString path;
        std::optional<VideoRecorderError> error;
    };
    using StopCompletion = std::function<void(const StopResult& result)>;
    // Takes one mixed buffer; callable on any thread, never blocks.
    using AudioSink = std::function<void(const AudioBuffer& buffer)>;

    using QObject::QObject;

    virtual const VideoRecorderState& state() const = 0;

    // Only from idle. `outputLock`, the lock taken with the file's name, is
    // held while the file is written.
    virtual void start(const QString& outputPath, const ScreenCaptureTargetOption& target,
                       StartCompletion done,
                       const std::shared_ptr<RecordingFileLock>& outputLock = {}) = 0;
    // The mixed audio's way into the file; stays safe to call after the
    // recorder is gone (it then does nothing).
    virtual AudioSink audioSink() const = 0;
    // Only from recording: finishes the file and hands back its path.
    virtual void stop(StopCompletion done) = 0;
    // The same for a recording whose sound has already ended (its length
    // reached): the picture ends with the sound, not when this is called,
    // however late the news of the end came.
    virtual void stopWithSound(StopCompletion done) { stop(std::move(done)); }
    // Drops whatever runs; returns at once.
    virtual void tearDown() = 0;

Q_SIGNALS:
    // During a stop: every audio buffer captured before the stop is in the
    // file, later ones are ignored. The audio's source may stop now, while the
    // file is still being finished. A failed stop never says it.
    void audioEnded();
    // While recording: the desktop ended the screen sharing ("Stop
    // sharing"). The recording should end as if Stop had been pressed.
    void captureEnded();
};

} // namespace sorv

Q_DECLARE_METATYPE(sorv::VideoRecorderState)
