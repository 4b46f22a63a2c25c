#pragma once

#include "audio/inputdevice.h"
#include "audio/recordingengine.h"
#include "recording/recordingstate.h"
#include "recording/uploadtransfer.h"
#include "service/authmanager.h"

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <cstdint>
#include <functional>
#include <memory>

class QUrl;
class QNetworkRequest;

namespace sorv {

// The controller the views drive for one recording at a time: session state,
// microphone permission, file names, engine start and stop, the elapsed
// clock, and the finished file waiting to be saved or discarded. Lives on the
// main thread; every published field changes there. The engine is awaited
// through callbacks that hop back here, never by blocking.
class AudioRecorder : public QObject {
    Q_OBJECT
    Q_PROPERTY(sorv::RecordingState state READ state NOTIFY stateChanged)
    Q_PROPERTY(bool isRecording READ isRecording NOTIFY isRecordingChanged)
    Q_PROPERTY(bool isProcessing READ isProcessing NOTIFY isProcessingChanged)
    Q_PROPERTY(double elapsed READ elapsed NOTIFY elapsedChanged)
    Q_PROPERTY(float micLevel READ micLevel NOTIFY micLevelChanged)
    Q_PROPERTY(float systemLevel READ systemLevel NOTIFY systemLevelChanged)
    Q_PROPERTY(bool systemAudioActive READ systemAudioActive NOTIFY systemAudioActiveChanged)
    Q_PROPERTY(QString systemAudioError READ systemAudioError NOTIFY systemAudioErrorChanged)
    Q_PROPERTY(
        QString screenAccessWarning READ screenAccessWarning NOTIFY screenAccessWarningChanged)
    Q_PROPERTY(bool micSilent READ micSilent NOTIFY micSilentChanged)
    Q_PROPERTY(QString micSilentMessage READ micSilentMessage NOTIFY micSilentMessageChanged)
    Q_PROPERTY(QList<sorv::InputDevice> availableInputDevices READ availableInputDevices NOTIFY
                   availableInputDevicesChanged)
    Q_PROPERTY(quint32 selectedInputDeviceID READ selectedInputDeviceID NOTIFY
                   selectedInputDeviceIDChanged)
    Q_PROPERTY(bool isVideoMode READ isVideoMode NOTIFY isVideoModeChanged)

public:
    using MixedBufferCallback = RecordingEngine::MixedBufferCallback;
    // Refreshes the session's access token and calls `done` when finished,
    // whatever the outcome (on any thread).
    using TokenRefreshHook = std::function<void(std::function<void()> done)>;
    // Whether a session is signed in (for Retry upload).
    using SignedInCheck = std::function<bool()>;
    // Hands a finished recording to the upload.
    using UploadHandler = std::function<void(const QString& path)>;
    // One screen-capture access probe; answers on any thread.
    enum class ProbeResult { Allowed, Declined, Failed };
    using ScreenCaptureProbe = std::function<void(std::function<void(ProbeResult)> done)>;

    static constexpr int kClockIntervalMs = 100;
    static constexpr int kScreenProbeAttempts = 4;

    explicit AudioRecorder(QObject* parent = nullptr);
    // With another engine (tests substitute one).
    explicit AudioRecorder(std::unique_ptr<RecordingEngine> engine, QObject* parent = nullptr);
    ~AudioRecorder() override;

    const RecordingState& state() const { return m_state; }
    bool isRecording() const { return m_isRecording; }
    bool isProcessing() const { return m_isProcessing; }
    double elapsed() const { return m_elapsed; }
    float micLevel() const { return m_micLevel; }
    float systemLevel() const { return m_systemLevel; }
    bool systemAudioActive() const { return m_systemAudioActive; }
    // A null string means "none".
    QString systemAudioError() const { return m_systemAudioError; }
    QString screenAccessWarning() const { return m_screenAccessWarning; }
    bool micSilent() const { return m_micSilent; }
    QString micSilentMessage() const { return m_micSilentMessage; }
    QList<InputDevice> availableInputDevices() const { return m_availableInputDevices; }
    quint32 selectedInputDeviceID() const { return m_selectedInputDeviceID; }
    bool isVideoMode() const { return m_isVideoMode; }

    // The file that save uploads and discard deletes, and its relatives.
    QString outputPath() const { return m_outputPath; }
    QString lastWavPath() const { return m_lastWavPath; }
    QString lastVideoPath() const { return m_lastVideoPath; }
    QString failedUploadPath() const { return m_failedUploadPath; }

    // The session: refreshed before each start, and used by the upload.
    // Installs the token-refresh hook and the signed-in check.
    void setAuthManager(AuthManager* auth);
    AuthManager* authManager() const { return m_authManager; }

    void setTokenRefreshHook(TokenRefreshHook hook) { m_tokenRefreshHook = std::move(hook); }
    void setSignedInCheck(SignedInCheck check) { m_signedInCheck = std::move(check); }
    void setUploadHandler(UploadHandler handler) { m_uploadHandler = std::move(handler); }
    void setScreenCaptureProbe(ScreenCaptureProbe probe) { m_screenProbe = std::move(probe); }

    // The live-transcript consumers' tap on the mixed audio; called on the
    // audio queue, so it must copy what it keeps and touch nothing here.
    void setOnMixedAudioBuffer(MixedBufferCallback callback);

    RecordingEngine& engine() { return *m_engine; }

public Q_SLOTS:
    void requestStartRecording();
    void stopRecording();
    void saveRecording();
    // Sends a recording to the service (the Save and Retry paths).
    void uploadRecording(const QString& path);
    void discardRecording();
    void retryUpload();
    void resetToIdle();
    void selectInputDevice(quint32 id);
    void refreshInputDevices();

Q_SIGNALS:
    void stateChanged();
    void isRecordingChanged();
    void isProcessingChanged();
    void elapsedChanged();
    void micLevelChanged();
    void systemLevelChanged();
    void systemAudioActiveChanged();
    void systemAudioErrorChanged();
    void screenAccessWarningChanged();
    void micSilentChanged();
    void micSilentMessageChanged();
    void availableInputDevicesChanged();
    void selectedInputDeviceIDChanged();
    void isVideoModeChanged();

private:
    struct UploadParameters {
        QString boundary;
        QString filename;
        QString contentType;
        QStringList companions;
    };

    void startUploadLater(const QString& path);
    void beginUpload(const QString& path);
    void performUpload(const QString& recordingPath, bool allowAuthRetry, const QString& bodyPath,
                       const UploadParameters& params);
    void sendUpload(const QString& recordingPath, bool allowAuthRetry, const QString& bodyPath,
                    const UploadParameters& params, const QUrl& url);
    void finishUpload(const QString& recordingPath, bool allowAuthRetry, const QString& bodyPath,
                      const UploadParameters& params, const UploadTransfer::Answer& answer);
    QNetworkRequest uploadRequest(const QUrl& url, const QString& boundary,
                                  bool firstAttempt) const;

    void setState(const RecordingState& state);
    void setElapsed(double v);
    void setMicLevel(float v);
    void setSystemLevel(float v);
    void setSystemAudioActive(bool v);
    void setSystemAudioError(const QString& v);
    void setScreenAccessWarning(const QString& v);
    void setMicSilent(bool v);
    void setMicSilentMessage(const QString& v);

    void continueAfterPermission(std::uint64_t session);
    void probeScreenCapture(std::uint64_t session, int attempt);
    void startEngine(std::uint64_t session);
    void applyUpdate(const AudioEngineUpdate& update);
    void startClock();
    void stopClock();
    void rewireMixedBuffers();
    void clearSessionFields();
    QString nextRecordingPath() const;

    // Runs fn on the main thread later, unless the recorder is gone by then.
    // `self` is taken on the main thread, when the callback is made.
    static void onMain(const QPointer<AudioRecorder>& self, std::function<void()> fn);

    std::unique_ptr<RecordingEngine> m_engine;

    RecordingState m_state;
    bool m_isRecording = false;
    bool m_isProcessing = false;
    double m_elapsed = 0.0;
    float m_micLevel = 0.0f;
    float m_systemLevel = 0.0f;
    bool m_systemAudioActive = false;
    QString m_systemAudioError;
    QString m_screenAccessWarning;
    bool m_micSilent = false;
    QString m_micSilentMessage;
    QList<InputDevice> m_availableInputDevices;
    quint32 m_selectedInputDeviceID = 0;
    bool m_isVideoMode = false;

    QString m_outputPath;
    QString m_lastWavPath;
    QString m_lastVideoPath;
    QString m_failedUploadPath;

    MixedBufferCallback m_onMixedAudioBuffer;
    TokenRefreshHook m_tokenRefreshHook;
    SignedInCheck m_signedInCheck;
    UploadHandler m_uploadHandler;
    ScreenCaptureProbe m_screenProbe;
    QPointer<AuthManager> m_authManager;
    // The running transfer; it lives as long as the transfer does.
    QPointer<UploadTransfer> m_uploadDelegate;

    QTimer m_clock;
    QElapsedTimer m_startTime;
    // Bumped whenever a session starts or is abandoned, so that answers for
    // an earlier session are recognised and ignored.
    std::uint64_t m_session = 0;
};

} // namespace sorv
