#pragma once

#include "audio/inputdevice.h"
#include "audio/inputdevicemodel.h"
#include "audio/recordingengine.h"
#include "core/backoff.h"
#include "core/recordingfilelock.h"
#include "recording/recordingstate.h"
#include "recording/recordinguploader.h"
#include "video/screencapturetargetoption.h"
#include "video/videocapture.h"

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace sorv {

class AuthManager;

// The controller the views drive for one recording at a time: session state,
// microphone permission, file names, engine start and stop, the elapsed
// clock, and the finished file waiting to be saved or discarded. Lives on the
// main thread; every published field changes there. The engine is awaited
// through callbacks that hop back here, never by blocking; the upload is the
// RecordingUploader's, this controller only publishes its states.
//
// In video mode a VideoRecorder runs beside the engine: the WAV is kept as
// the MP4's companion, every mixed buffer goes to both the live transcript's
// consumer and the video file, and save uploads the MP4.
//
// One capture at a time: a start waits until the last recording's capture is
// finished (an error can end a recording while its files are still being
// closed), and an error ends the capture before it is shown, so what the
// error screen offers to send is a finished file.
class AudioRecorder : public QObject {
    Q_OBJECT
    Q_PROPERTY(sorv::RecordingState state READ state NOTIFY stateChanged)
    Q_PROPERTY(bool isRecording READ isRecording NOTIFY isRecordingChanged)
    Q_PROPERTY(bool isProcessing READ isProcessing NOTIFY isProcessingChanged)
    Q_PROPERTY(double elapsed READ elapsed NOTIFY elapsedChanged)
    Q_PROPERTY(QString elapsedText READ elapsedText NOTIFY elapsedChanged)
    Q_PROPERTY(float micLevel READ micLevel NOTIFY micLevelChanged)
    Q_PROPERTY(float systemLevel READ systemLevel NOTIFY systemLevelChanged)
    Q_PROPERTY(bool systemAudioActive READ systemAudioActive NOTIFY systemAudioActiveChanged)
    Q_PROPERTY(QString systemAudioError READ systemAudioError NOTIFY systemAudioErrorChanged)
    Q_PROPERTY(QString systemAudioDevice READ systemAudioDevice NOTIFY systemAudioDeviceChanged)
    Q_PROPERTY(
        QString screenAccessWarning READ screenAccessWarning NOTIFY screenAccessWarningChanged)
    Q_PROPERTY(bool micSilent READ micSilent NOTIFY micSilentChanged)
    Q_PROPERTY(QString micSilentMessage READ micSilentMessage NOTIFY micSilentMessageChanged)
    Q_PROPERTY(bool soundServerLost READ soundServerLost NOTIFY soundServerLostChanged)
    Q_PROPERTY(QList<sorv::InputDevice> availableInputDevices READ availableInputDevices NOTIFY
                   availableInputDevicesChanged)
    Q_PROPERTY(sorv::InputDeviceModel* inputDevices READ inputDevices CONSTANT)
    Q_PROPERTY(quint32 selectedInputDeviceID READ selectedInputDeviceID NOTIFY
                   selectedInputDeviceIDChanged)
    Q_PROPERTY(sorv::VideoCapture* videoRecorder READ videoRecorder NOTIFY videoRecorderChanged)
    Q_PROPERTY(bool isVideoMode READ isVideoMode NOTIFY isVideoModeChanged)
    Q_PROPERTY(QString outputPath READ outputPath NOTIFY pathsChanged)
    Q_PROPERTY(QString lastWavPath READ lastWavPath NOTIFY pathsChanged)
    Q_PROPERTY(QString lastVideoPath READ lastVideoPath NOTIFY pathsChanged)
    Q_PROPERTY(QString failedUploadPath READ failedUploadPath NOTIFY pathsChanged)
    Q_PROPERTY(bool canRetryUpload READ canRetryUpload NOTIFY canRetryUploadChanged)
    Q_PROPERTY(QString uploadedRecordingUrl READ uploadedRecordingUrl NOTIFY stateChanged)
    Q_PROPERTY(bool signInRequired READ signInRequired NOTIFY signInRequiredChanged)

public:
    using MixedBufferCallback = RecordingEngine::MixedBufferCallback;
    // One screen-capture access probe (video mode); answers on any thread.
    enum class ProbeResult { Allowed, Declined, Failed };
    using ScreenCaptureProbe = std::function<void(std::function<void(ProbeResult)> done)>;
    // Makes the video recorder of one video recording, a child of `parent`.
    using VideoCaptureFactory = std::function<VideoCapture*(QObject* parent)>;

    static constexpr int kClockIntervalMs = 100;
    // Waits of 1, 2 and 3 s: consent given a moment ago takes a while to apply.
    static constexpr Backoff kScreenProbeBackoff = Backoff::linear(std::chrono::seconds(1), 4);

    explicit AudioRecorder(QObject* parent = nullptr);
    // With another engine (tests substitute one).
    explicit AudioRecorder(std::unique_ptr<RecordingEngine> engine, QObject* parent = nullptr);
    ~AudioRecorder() override;

    const RecordingState& state() const { return m_state; }
    bool isRecording() const { return m_isRecording; }
    bool isProcessing() const { return m_isProcessing; }
    double elapsed() const { return m_elapsed; }
    QString elapsedText() const;
    float micLevel() const { return m_micLevel; }
    float systemLevel() const { return m_systemLevel; }
    bool systemAudioActive() const { return m_systemAudioActive; }
    // A null string means "none".
    QString systemAudioError() const { return m_systemAudioError; }
    // The output whose sound is recorded, by name (empty before there is one):
    // system audio follows the default output when it changes.
    QString systemAudioDevice() const { return m_systemAudioDevice; }
    QString screenAccessWarning() const { return m_screenAccessWarning; }
    bool micSilent() const { return m_micSilent; }
    QString micSilentMessage() const { return m_micSilentMessage; }
    // The sound server went away during the recording: it waits, writing
    // nothing, and goes on once the server answers.
    bool soundServerLost() const { return m_soundServerLost; }
    QList<InputDevice> availableInputDevices() const { return m_inputDevices.devices(); }
    InputDeviceModel* inputDevices() { return &m_inputDevices; }
    quint32 selectedInputDeviceID() const { return m_selectedInputDeviceID; }
    // The video recorder of the running video recording (null otherwise).
    VideoCapture* videoRecorder() const { return m_videoRecorder; }
    bool isVideoMode() const { return m_isVideoMode; }

    // The file that save uploads and discard deletes, and its relatives.
    QString outputPath() const { return m_outputPath; }
    QString lastWavPath() const { return m_lastWavPath; }
    QString lastVideoPath() const { return m_lastVideoPath; }
    QString failedUploadPath() const { return m_failedUploadPath; }
    // An error screen may offer "Retry upload": a file to send still exists,
    // and it is finished (no capture writes it any more).
    bool canRetryUpload() const { return m_canRetryUpload; }
    // Where the uploaded recording is shown on the service's web site (empty
    // unless the state is uploaded with an id).
    QString uploadedRecordingUrl() const;
    // The last upload ended because the session did: sign in, then retry.
    bool signInRequired() const { return m_signInRequired; }

    // The uploader that save and Retry use, for views that follow the
    // transfer itself.
    RecordingUploader& uploader() { return m_uploader; }

    // The session the upload uses; its refresh runs beside each start.
    void setAuthManager(AuthManager* auth);
    AuthManager* authManager() const;

    // Video mode only: the screen-capture probe (X11 allows at once).
    void setScreenCaptureProbe(ScreenCaptureProbe probe) { m_screenProbe = std::move(probe); }
    // Video mode only: another video recorder (tests substitute one).
    void setVideoCaptureFactory(VideoCaptureFactory factory)
    {
        m_videoFactory = std::move(factory);
    }

    // The live-transcript consumers' tap on the mixed audio; called on the
    // audio queue, so it must copy what it keeps and touch nothing here.
    void setOnMixedAudioBuffer(MixedBufferCallback callback);

    // Later recordings stop by themselves once the file holds this many
    // seconds, measured on the audio itself (0: until stopped).
    void setDurationLimit(double seconds) { m_durationLimit = seconds; }

public Q_SLOTS:
    // Video mode records `captureTarget` (from ScreenCaptureTargetStore's
    // selectedOption) into an MP4 beside the WAV; audio mode ignores it.
    void requestStartRecording(bool recordVideo = false,
                               const sorv::ScreenCaptureTargetOption& captureTarget =
                                   ScreenCaptureTargetOption::mainDisplay());
    void stopRecording();
    void saveRecording();
    // Sends a recording to the service (the Save and Retry paths).
    void uploadRecording(const QString& path);
    void discardRecording();
    void retryUpload();
    // Stops an upload under way; the recording is kept for Retry.
    void cancelUpload();
    // Back to idle; a capture still running is ended, its files kept.
    void resetToIdle();
    void selectInputDevice(quint32 id);
    void refreshInputDevices();
    // A recording that goes on without system audio tries it again (the
    // sound server's refusal may have been lifted since); nothing happens
    // while system audio runs or is still being tried.
    void retrySystemAudio();
    // Asks for screen-capture access once more: the warning goes once it is
    // allowed, and is brought up to date otherwise.
    void checkScreenCaptureAgain();

Q_SIGNALS:
    void stateChanged();
    void isRecordingChanged();
    void isProcessingChanged();
    void elapsedChanged();
    void micLevelChanged();
    void systemLevelChanged();
    void systemAudioActiveChanged();
    void systemAudioErrorChanged();
    void systemAudioDeviceChanged();
    void screenAccessWarningChanged();
    void micSilentChanged();
    void micSilentMessageChanged();
    void soundServerLostChanged();
    // The engine restarted the microphone by itself (the n-th time in this
    // recording): for views that show warnings as they come.
    void micEngineRestarted(qint64 count);
    void availableInputDevicesChanged();
    void selectedInputDeviceIDChanged();
    void videoRecorderChanged();
    void isVideoModeChanged();
    void pathsChanged();
    void canRetryUploadChanged();
    void signInRequiredChanged();

private:
    void setState(const RecordingState& state);
    void setElapsed(double v);
    void setMicLevel(float v);
    void setSystemLevel(float v);
    void setSystemAudioActive(bool v);
    void setSystemAudioError(const QString& v);
    void setSystemAudioDevice(const QString& v);
    void setScreenAccessWarning(const QString& v);
    void setMicSilent(bool v);
    void setMicSilentMessage(const QString& v);
    void setSoundServerLost(bool v);
    void startClock();
    // Wall time since the start, less the time spent waiting for the sound
    // server.
    double recordedSeconds() const;
    void showFileDuration();
    void setSignInRequired(bool v);
    void setPaths(const QString& output, const QString& wav, const QString& video);
    void setFailedUploadPath(const QString& path);
    void updateCanRetryUpload();

    void probeScreenCapture(std::uint64_t session, int attempt);
    void startEngine(std::uint64_t session);
    void startVideo(std::uint64_t session, const QString& wav, const QString& mp4,
                    const std::shared_ptr<RecordingFileLock>& mp4Lock);
    void videoStartFailed(const QString& wav, const QString& mp4, const VideoRecorderError& error);
    void setVideoRecorder(VideoCapture* recorder);
    void setIsVideoMode(bool v);
    // Ends the capture: the video file first, then the engine. `done` gets
    // the video's failure text, a null string when there was none.
    // `soundEnded`: the recording reached its length, so the sound has ended.
    void stopCapture(bool soundEnded, const std::function<void(const QString& videoError)>& done);
    void endRecording(bool soundEnded);
    void applyUpdate(std::uint64_t session, const AudioEngineUpdate& update);
    // The capture failed under a recording: it is ended, and the error shown
    // once its files are finished, with what was saved. `somethingSaved`
    // unknown: the WAV is looked at.
    void endWithError(const QString& message, std::optional<bool> somethingSaved);
    // Every capture of the last recording has stopped: the next may start.
    void releaseCapture();
    void startWaitingSession();
    void uploadFinished(const RecordingUploader::Outcome& outcome);
    void rewireMixedBuffers();
    void clearSessionFields();
    // The files of a new recording, created and locked; or why not.
    struct ReservedFiles {
        QString wav;
        QString mp4; // video mode only
        std::shared_ptr<RecordingFileLock> wavLock;
        std::shared_ptr<RecordingFileLock> mp4Lock;
        QString error;
    };
    static ReservedFiles reserveRecordingFiles(bool video);

    // Runs fn on the main thread later, unless the recorder is gone by then.
    void onMain(std::function<void()> fn) const;

    // For callbacks from other threads. Declared before the engine so that it
    // outlives the engine's threads, which read it.
    QPointer<const QObject> m_self;
    std::unique_ptr<RecordingEngine> m_engine;
    RecordingUploader m_uploader;
    InputDeviceModel m_inputDevices;

    RecordingState m_state;
    bool m_isRecording = false;
    bool m_isProcessing = false;
    double m_elapsed = 0.0;
    float m_micLevel = 0.0f;
    float m_systemLevel = 0.0f;
    bool m_systemAudioActive = false;
    QString m_systemAudioError;
    QString m_systemAudioDevice;
    QString m_screenAccessWarning;
    bool m_micSilent = false;
    QString m_micSilentMessage;
    bool m_soundServerLost = false;
    quint32 m_selectedInputDeviceID = 0;
    bool m_isVideoMode = false;
    VideoCaptureFactory m_videoFactory;
    // A child of this object while it records; handed to the stop, which
    // deletes it once the file is finished.
    VideoCapture* m_videoRecorder = nullptr;
    // The one video recorder there is, from its creation until the capture
    // is released: never two at once.
    QPointer<VideoCapture> m_video;
    // The MP4's lock, held until the engine has stopped too: the recording
    // is one MP4 and its companion WAV, and neither is sent half-written.
    std::shared_ptr<RecordingFileLock> m_videoLock;
    // The video file's audio input while it takes audio: from the video's
    // start until its stop has every buffer captured before the stop instant.
    VideoCapture::AudioSink m_videoAudioSink;
    // From the engine's start until every capture of that recording has
    // stopped; a start asked for meanwhile waits (its session).
    bool m_captureBusy = false;
    std::uint64_t m_waitingSession = 0;
    // What the session being started asked for.
    bool m_startVideo = false;
    ScreenCaptureTargetOption m_captureTarget;
    bool m_canRetryUpload = false;
    bool m_signInRequired = false;

    QString m_outputPath;
    QString m_lastWavPath;
    QString m_lastVideoPath;
    QString m_failedUploadPath;

    MixedBufferCallback m_onMixedAudioBuffer;
    ScreenCaptureProbe m_screenProbe;
    QPointer<AuthManager> m_authManager;
    // Screen capture was confirmed in this run: later video starts skip the probe.
    bool m_screenCaptureConfirmed = false;
    double m_durationLimit = 0.0;

    QTimer m_clock;
    QElapsedTimer m_startTime;
    QElapsedTimer m_waitStart; // valid while the sound server is away
    qint64 m_waitedNs = 0;
    // Bumped whenever a session starts or is abandoned, so that answers for
    // an earlier session are recognised and ignored.
    std::uint64_t m_session = 0;
};

} // namespace sorv
