#include "audiorecorder.h"

#include "audio/audioengine.h"
#include "audio/screencaptureaccess.h"
#include "core/format.h"
#include "core/log.h"
#include "core/mainthread.h"
#include "core/notify.h"
#include "core/paths.h"
#include "service/authmanager.h"
#include "service/requestrules.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cmath>

namespace sorv {

namespace {

const QString kMicrophoneDenied = QStringLiteral(
    "Microphone access denied. Allow Sorvelandrix Recorder to use the microphone in your "
    "desktop's privacy settings, then try again.");
const QString kNoRecordingFile =
    QStringLiteral("Recording file is no longer available — please record again");
const QString kSignInFirst = QStringLiteral("Sign in first, then tap Retry upload.");
const QString kSelectedMicrophone = QStringLiteral("The selected microphone");

} // namespace

AudioRecorder::AudioRecorder(QObject* parent)
    : AudioRecorder(std::make_unique<AudioEngine>(), parent)
{}

AudioRecorder::AudioRecorder(std::unique_ptr<RecordingEngine> engine, QObject* parent)
    : QObject(parent), m_engine(std::move(engine)), m_self(this)
{
    qRegisterMetaType<RecordingState>();
    qRegisterMetaType<InputDevice>();
    m_clock.setInterval(kClockIntervalMs);
    connect(&m_clock, &QTimer::timeout, this, [this] {
        if (m_startTime.isValid())
            setElapsed(static_cast<double>(m_startTime.nsecsElapsed()) / 1e9);
    });
    // X11 lets every client capture: the probe answers at once.
    m_screenProbe = [](std::function<void(ProbeResult)> done) {
        done(screenCapturePreflight() ? ProbeResult::Allowed : ProbeResult::Failed);
    };
    connect(&m_uploader, &RecordingUploader::progress, this,
            [this](double fraction) { setState(RecordingState::uploading(fraction)); });
    m_uploader.sweepStaleBodies();
    refreshInputDevices();
}

AudioRecorder::~AudioRecorder() = default;

void AudioRecorder::onMain(std::function<void()> fn) const
{
    postToMainThread(m_self, std::move(fn));
}

// --- Published fields ------------------------------------------------------

void AudioRecorder::setState(const RecordingState& state)
{
    if (m_state != state) {
        m_state = state;
        Q_EMIT stateChanged();
    }
    if (m_isRecording != state.isRecording()) {
        m_isRecording = state.isRecording();
        Q_EMIT isRecordingChanged();
    }
    if (m_isProcessing != state.isProcessing()) {
        m_isProcessing = state.isProcessing();
        Q_EMIT isProcessingChanged();
    }
    updateCanRetryUpload();
}

QString AudioRecorder::elapsedText() const
{
    return formatElapsed(m_elapsed);
}

QString AudioRecorder::uploadedRecordingUrl() const
{
    if (m_state.kind() != RecordingState::Kind::Uploaded || !m_state.id())
        return {};
    return recordingWebAddress(*m_state.id());
}

void AudioRecorder::setElapsed(double v)
{
    setAndNotify(this, m_elapsed, v, &AudioRecorder::elapsedChanged);
}

void AudioRecorder::setMicLevel(float v)
{
    setAndNotify(this, m_micLevel, v, &AudioRecorder::micLevelChanged);
}

void AudioRecorder::setSystemLevel(float v)
{
    setAndNotify(this, m_systemLevel, v, &AudioRecorder::systemLevelChanged);
}

void AudioRecorder::setSystemAudioActive(bool v)
{
    setAndNotify(this, m_systemAudioActive, v, &AudioRecorder::systemAudioActiveChanged);
}

void AudioRecorder::setMicSilent(bool v)
{
    setAndNotify(this, m_micSilent, v, &AudioRecorder::micSilentChanged);
}

void AudioRecorder::setSignInRequired(bool v)
{
    setAndNotify(this, m_signInRequired, v, &AudioRecorder::signInRequiredChanged);
}

// Optional texts: a null string is "none", distinct from an empty text.
void AudioRecorder::setSystemAudioError(const QString& v)
{
    setAndNotifyOptionalText(this, m_systemAudioError, v, &AudioRecorder::systemAudioErrorChanged);
}

void AudioRecorder::setScreenAccessWarning(const QString& v)
{
    setAndNotifyOptionalText(this, m_screenAccessWarning, v,
                             &AudioRecorder::screenAccessWarningChanged);
}

void AudioRecorder::setMicSilentMessage(const QString& v)
{
    setAndNotifyOptionalText(this, m_micSilentMessage, v, &AudioRecorder::micSilentMessageChanged);
}

void AudioRecorder::setPaths(const QString& output, const QString& wav, const QString& video)
{
    if (output == m_outputPath && wav == m_lastWavPath && video == m_lastVideoPath)
        return;
    m_outputPath = output;
    m_lastWavPath = wav;
    m_lastVideoPath = video;
    Q_EMIT pathsChanged();
    updateCanRetryUpload();
}

void AudioRecorder::setFailedUploadPath(const QString& path)
{
    if (path == m_failedUploadPath)
        return;
    m_failedUploadPath = path;
    Q_EMIT pathsChanged();
    updateCanRetryUpload();
}

void AudioRecorder::updateCanRetryUpload()
{
    const QString file = !m_failedUploadPath.isEmpty() ? m_failedUploadPath : m_outputPath;
    const bool can =
        m_state.kind() == RecordingState::Kind::Error && !file.isEmpty() && QFileInfo::exists(file);
    setAndNotify(this, m_canRetryUpload, can, &AudioRecorder::canRetryUploadChanged);
}

// --- Start -----------------------------------------------------------------

void AudioRecorder::requestStartRecording(bool recordVideo)
{
    const auto kind = m_state.kind();
    if (kind != RecordingState::Kind::Idle && kind != RecordingState::Kind::Uploaded &&
        kind != RecordingState::Kind::Error)
        return;

    const std::uint64_t session = ++m_session;
    setState(RecordingState::preparing());
    setMicSilent(false);
    setMicSilentMessage(QString());
    setSignInRequired(false);
    refreshInputDevices();

    m_engine->requestMicrophoneAccess([this, session, recordVideo](bool granted) {
        onMain([this, session, granted, recordVideo] {
            if (session != m_session)
                return;
            if (!granted) {
                setState(RecordingState::error(kMicrophoneDenied));
                return;
            }
            consoleLog(QStringLiteral("✅ Microphone permission granted"));
            // The session is refreshed beside the start, never before it: a
            // slow or hanging service must not cost the meeting's first words.
            if (m_authManager)
                m_authManager->refreshAccessToken(this, [](bool) {});
            // Only a recording that shows the screen needs screen capture;
            // system audio needs no such permission on Linux.
            if (!recordVideo) {
                startEngine(session);
                return;
            }
            if (m_screenCaptureConfirmed) {
                setScreenAccessWarning(QString());
                startEngine(session);
                return;
            }
            probeScreenCapture(session, 1);
        });
    });
}

void AudioRecorder::probeScreenCapture(std::uint64_t session, int attempt)
{
    m_screenProbe([this, session, attempt](ProbeResult result) {
        onMain([this, session, attempt, result] {
            if (session != m_session)
                return;
            if (result == ProbeResult::Allowed) {
                m_screenCaptureConfirmed = true;
                setScreenAccessWarning(QString());
                startEngine(session);
                return;
            }
            if (result == ProbeResult::Declined && attempt < kScreenProbeAttempts) {
                // Waits of 1, 2 and 3 s: consent given a moment ago takes a while to apply.
                QTimer::singleShot(attempt * 1000, this, [this, session, attempt] {
                    if (session == m_session)
                        probeScreenCapture(session, attempt + 1);
                });
                return;
            }
            // The recording still starts; the screen part may then fail on its own.
            setScreenAccessWarning(screenCaptureAdviceText());
            startEngine(session);
        });
    });
}

QString AudioRecorder::nextRecordingPath() const
{
    const QString dir = recordingsDirectory();
    if (dir.isEmpty())
        return {};
    // Names resolve to the second: a start in the same second as an earlier
    // one takes the next free stem rather than overwrite.
    qint64 stem = QDateTime::currentSecsSinceEpoch();
    auto taken = [&dir](qint64 s) {
        const QString base = QDir(dir).filePath(QStringLiteral("sorvelandrix_%1").arg(s));
        return QFile::exists(base + QStringLiteral(".wav")) ||
               QFile::exists(base + QStringLiteral(".mp4"));
    };
    while (taken(stem))
        ++stem;
    return QDir(dir).filePath(QStringLiteral("sorvelandrix_%1.wav").arg(stem));
}

void AudioRecorder::startEngine(std::uint64_t session)
{
    const QString wav = nextRecordingPath();
    if (wav.isEmpty()) {
        setState(RecordingState::error(QStringLiteral("Could not create the recordings folder")));
        return;
    }
    setPaths(wav, wav, QString());

    RecordingEngine::StartRequest request;
    request.outputPath = wav;
    request.deviceId = m_selectedInputDeviceID;
    if (m_durationLimit > 0)
        request.frameLimit = std::llround(m_durationLimit * kCommonSampleRate);
    auto onUpdate = [this](const AudioEngineUpdate& update) {
        onMain([this, update] { applyUpdate(update); });
    };
    m_engine->start(request, onUpdate, [this, session, wav](std::optional<RecorderError> error) {
        onMain([this, session, wav, error] {
            if (session != m_session || m_state.kind() != RecordingState::Kind::Preparing) {
                // Abandoned while starting: do not leave capture running.
                if (!error) {
                    m_engine->stop([] {});
                    QFile::remove(wav);
                }
                return;
            }
            if (error) {
                setPaths({}, {}, {});
                setState(RecordingState::error(error->description()));
                return;
            }
            m_startTime.start();
            setState(RecordingState::recording());
            m_clock.start();
            refreshInputDevices();
        });
    });
}

// --- Engine updates ----------------------------------------------------------

void AudioRecorder::applyUpdate(const AudioEngineUpdate& update)
{
    using Kind = AudioEngineUpdate::Kind;
    switch (update.kind) {
    case Kind::Meters:
        setMicLevel(update.meters.mic);
        setSystemLevel(update.meters.system);
        break;
    case Kind::SystemAudioActive:
        setSystemAudioActive(update.flag);
        break;
    case Kind::SystemAudioError:
        setSystemAudioError(update.text.value_or(QString()));
        break;
    case Kind::MicSilent: {
        setMicSilent(update.flag);
        if (!update.flag || !update.text) {
            setMicSilentMessage(QString());
            break;
        }
        QString message = *update.text;
        for (const InputDevice& d : m_inputDevices.devices()) {
            if (d.id == m_selectedInputDeviceID && !d.name.isEmpty()) {
                message.replace(kSelectedMicrophone, d.name);
                break;
            }
        }
        setMicSilentMessage(message);
        break;
    }
    case Kind::MicEngineRestarted:
        consoleLog(QStringLiteral("🔁 Mic engine restart bridged to view-model (#%1)")
                       .arg(update.restartCount));
        break;
    case Kind::FatalError:
        setState(RecordingState::error(update.text.value_or(QString())));
        break;
    case Kind::RecordingFailed:
        endAfterWriteFailure(update.text.value_or(QString()), update.flag);
        break;
    case Kind::DurationReached:
        stopRecording();
        break;
    }
}

void AudioRecorder::endAfterWriteFailure(const QString& message, bool somethingSaved)
{
    // The file takes no more audio: the recording is over, and says so.
    if (m_state.kind() != RecordingState::Kind::Recording)
        return;
    const std::uint64_t session = ++m_session;
    m_clock.stop();
    rewireMixedBuffers();
    setState(RecordingState::error(message));
    const QString file = m_outputPath;
    m_engine->stop([this, session, somethingSaved, file] {
        onMain([this, session, somethingSaved, file] {
            // An empty file is no recording: nothing is left to retry.
            if (!somethingSaved) {
                QFile::remove(file);
                if (session == m_session)
                    setPaths({}, {}, {});
            }
            updateCanRetryUpload();
        });
    });
}

// --- Stop, save, discard -----------------------------------------------------

void AudioRecorder::stopRecording()
{
    if (m_state.kind() != RecordingState::Kind::Recording)
        return;
    setState(RecordingState::stopping());
    m_clock.stop();
    rewireMixedBuffers();
    const std::uint64_t session = m_session;
    m_engine->stop([this, session] {
        onMain([this, session] {
            if (session == m_session && m_state.kind() == RecordingState::Kind::Stopping)
                setState(RecordingState::pendingSave());
        });
    });
}

void AudioRecorder::saveRecording()
{
    if (m_state.kind() != RecordingState::Kind::PendingSave || m_outputPath.isEmpty())
        return;
    setFailedUploadPath({});
    const QString path = m_outputPath;
    onMain([this, path] { uploadRecording(path); });
}

void AudioRecorder::uploadRecording(const QString& path)
{
    if (m_uploader.isRunning())
        return;
    setSignInRequired(false);
    QStringList companions;
    if (!m_lastWavPath.isEmpty() && m_lastWavPath != path)
        companions << m_lastWavPath;
    m_uploader.setAuthManager(m_authManager);
    connect(
        &m_uploader, &RecordingUploader::finished, this,
        [this, path](const RecordingUploader::Outcome& outcome) { uploadFinished(path, outcome); },
        Qt::SingleShotConnection);
    m_uploader.upload(path, companions);
}

void AudioRecorder::uploadFinished(const QString& path, const RecordingUploader::Outcome& outcome)
{
    using Kind = RecordingUploader::Outcome::Kind;
    if (outcome.keepForRetry)
        setFailedUploadPath(path);
    switch (outcome.kind) {
    case Kind::Uploaded:
        setFailedUploadPath({});
        setState(RecordingState::uploaded(outcome.name, outcome.id));
        break;
    case Kind::SignInRequired:
        setSignInRequired(true);
        setState(RecordingState::error(outcome.message));
        break;
    case Kind::Failed:
        setState(RecordingState::error(outcome.message));
        break;
    }
}

void AudioRecorder::cancelUpload()
{
    m_uploader.cancel();
}

void AudioRecorder::discardRecording()
{
    if (m_state.kind() != RecordingState::Kind::PendingSave)
        return;
    if (!m_outputPath.isEmpty())
        QFile::remove(m_outputPath);
    if (!m_lastWavPath.isEmpty() && m_lastWavPath != m_outputPath)
        QFile::remove(m_lastWavPath);
    setPaths({}, {}, {});
    resetToIdle();
}

void AudioRecorder::retryUpload()
{
    const QString file = !m_failedUploadPath.isEmpty() ? m_failedUploadPath : m_outputPath;
    if (file.isEmpty()) {
        setState(RecordingState::error(kNoRecordingFile));
        return;
    }
    if (!m_authManager || !m_authManager->isLoggedIn()) {
        setState(RecordingState::error(kSignInFirst));
        return;
    }
    onMain([this, file] { uploadRecording(file); });
}

void AudioRecorder::resetToIdle()
{
    ++m_session;
    m_clock.stop();
    setState(RecordingState::idle());
    clearSessionFields();
}

void AudioRecorder::clearSessionFields()
{
    setElapsed(0.0);
    setMicLevel(0.0f);
    setSystemLevel(0.0f);
    setScreenAccessWarning(QString());
    setSystemAudioError(QString());
    setFailedUploadPath({});
    setSignInRequired(false);
    m_screenCaptureConfirmed = false;
}

// --- Session, devices and mixed audio ------------------------------------------

void AudioRecorder::setAuthManager(AuthManager* auth)
{
    m_authManager = auth;
}

AuthManager* AudioRecorder::authManager() const
{
    return m_authManager;
}

void AudioRecorder::selectInputDevice(quint32 id)
{
    if (id == m_selectedInputDeviceID)
        return;
    m_selectedInputDeviceID = id;
    Q_EMIT selectedInputDeviceIDChanged();
    setMicSilent(false);
    setMicSilentMessage(QString());
    if (m_state.kind() != RecordingState::Kind::Recording)
        return;
    m_engine->selectInputDevice(id, [id] {
        consoleLog(QStringLiteral("🎤 Switched input device to ID %1 mid-recording").arg(id));
    });
}

void AudioRecorder::refreshInputDevices()
{
    if (m_inputDevices.setDevices(m_engine->listInputDevices()))
        Q_EMIT availableInputDevicesChanged();
}

void AudioRecorder::setOnMixedAudioBuffer(MixedBufferCallback callback)
{
    m_onMixedAudioBuffer = std::move(callback);
    rewireMixedBuffers();
}

void AudioRecorder::rewireMixedBuffers()
{
    // The engine gets the consumers as they are now; later changes re-wire.
    // The transcript's consumer and the video recorder each get every buffer.
    m_engine->setMixedBufferCallback(m_onMixedAudioBuffer);
}

} // namespace sorv
