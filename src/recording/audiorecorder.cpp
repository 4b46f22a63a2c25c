#include "audiorecorder.h"

#include "audio/audioengine.h"
#include "audio/screencaptureaccess.h"
#include "core/log.h"
#include "core/notify.h"
#include "core/paths.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QPointer>

namespace sorv {

namespace {

const QString kMicrophoneDenied = QStringLiteral(
    "Microphone access denied. Allow Sorvelandrix Recorder to use the microphone in your "
    "desktop's privacy settings, then try again.");
const QString kNoRecordingFile =
    QStringLiteral("Recording file is no longer available — please record again");
const QString kSignInFirst = QStringLiteral("Sign in first, then tap Retry upload.");
const QString kSelectedMicrophone = QStringLiteral("The selected microphone");

// Screen capture confirmed once in this run: later starts skip the probe.
bool s_screenCaptureConfirmed = false;

} // namespace

AudioRecorder::AudioRecorder(QObject* parent)
    : AudioRecorder(std::make_unique<AudioEngine>(), parent)
{}

AudioRecorder::AudioRecorder(std::unique_ptr<RecordingEngine> engine, QObject* parent)
    : QObject(parent), m_engine(std::move(engine))
{
    qRegisterMetaType<RecordingState>();
    qRegisterMetaType<InputDevice>();
    m_clock.setInterval(kClockIntervalMs);
    connect(&m_clock, &QTimer::timeout, this, [this] {
        if (m_startTime.isValid())
            setElapsed(static_cast<double>(m_startTime.nsecsElapsed()) / 1e9);
    });
    // X11 lets every client capture: the probe answers at once.
    m_screenProbe = [](std::function<void(ProbeResult)> done) { done(ProbeResult::Allowed); };
    refreshInputDevices();
}

AudioRecorder::~AudioRecorder() = default;

void AudioRecorder::onMain(const QPointer<AudioRecorder>& self, std::function<void()> fn)
{
    // Posted to the application object, which outlives us: the guard is
    // checked on the main thread, where this object is destroyed.
    QObject* context = QCoreApplication::instance();
    if (!context)
        return;
    QMetaObject::invokeMethod(
        context,
        [self, fn = std::move(fn)] {
            if (self)
                fn();
        },
        Qt::QueuedConnection);
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

// --- Start -----------------------------------------------------------------

void AudioRecorder::requestStartRecording()
{
    const auto kind = m_state.kind();
    if (kind != RecordingState::Kind::Idle && kind != RecordingState::Kind::Uploaded &&
        kind != RecordingState::Kind::Error)
        return;

    const std::uint64_t session = ++m_session;
    setState(RecordingState::preparing());
    setMicSilent(false);
    setMicSilentMessage(QString());
    refreshInputDevices();

    const QPointer<AudioRecorder> self(this);
    m_engine->requestMicrophoneAccess([this, self, session](bool granted) {
        onMain(self, [this, session, granted] {
            if (session != m_session)
                return;
            if (!granted) {
                setState(RecordingState::error(kMicrophoneDenied));
                return;
            }
            consoleLog(QStringLiteral("✅ Microphone permission granted"));
            if (!m_tokenRefreshHook) {
                continueAfterPermission(session);
                return;
            }
            // The refresh's outcome does not matter here: the start goes on.
            m_tokenRefreshHook([this, session, self = QPointer<AudioRecorder>(this)] {
                onMain(self, [this, session] {
                    if (session == m_session)
                        continueAfterPermission(session);
                });
            });
        });
    });
}

void AudioRecorder::continueAfterPermission(std::uint64_t session)
{
    if (s_screenCaptureConfirmed) {
        setScreenAccessWarning(QString());
        startEngine(session);
        return;
    }
    probeScreenCapture(session, 1);
}

void AudioRecorder::probeScreenCapture(std::uint64_t session, int attempt)
{
    m_screenProbe(
        [this, session, attempt, self = QPointer<AudioRecorder>(this)](ProbeResult result) {
            onMain(self, [this, session, attempt, result] {
                if (session != m_session)
                    return;
                if (result == ProbeResult::Allowed) {
                    s_screenCaptureConfirmed = true;
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
                // The recording still starts; system audio may then fail on its own.
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
    m_lastWavPath = wav;
    m_outputPath = wav;
    m_lastVideoPath.clear();

    const QPointer<AudioRecorder> self(this);
    auto onUpdate = [this, self](const AudioEngineUpdate& update) {
        onMain(self, [this, update] { applyUpdate(update); });
    };
    m_engine->start(wav, m_selectedInputDeviceID, onUpdate,
                    [this, self, session, wav](std::optional<RecorderError> error) {
                        onMain(self, [this, session, wav, error] {
                            if (session != m_session ||
                                m_state.kind() != RecordingState::Kind::Preparing) {
                                // Abandoned while starting: do not leave capture running.
                                if (!error) {
                                    m_engine->stop([] {});
                                    QFile::remove(wav);
                                }
                                return;
                            }
                            if (error) {
                                m_outputPath.clear();
                                m_lastWavPath.clear();
                                m_lastVideoPath.clear();
                                setState(RecordingState::error(error->description()));
                                return;
                            }
                            m_startTime.start();
                            setState(RecordingState::recording());
                            startClock();
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
        for (const InputDevice& d : std::as_const(m_availableInputDevices)) {
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
    }
}

// --- Stop, save, discard -----------------------------------------------------

void AudioRecorder::stopRecording()
{
    if (m_state.kind() != RecordingState::Kind::Recording)
        return;
    setState(RecordingState::stopping());
    stopClock();
    rewireMixedBuffers();
    const std::uint64_t session = m_session;
    m_engine->stop([this, session, self = QPointer<AudioRecorder>(this)] {
        onMain(self, [this, session] {
            if (session == m_session && m_state.kind() == RecordingState::Kind::Stopping)
                setState(RecordingState::pendingSave());
        });
    });
}

void AudioRecorder::saveRecording()
{
    if (m_state.kind() != RecordingState::Kind::PendingSave || m_outputPath.isEmpty())
        return;
    m_failedUploadPath.clear();
    startUploadLater(m_outputPath);
}

void AudioRecorder::discardRecording()
{
    if (m_state.kind() != RecordingState::Kind::PendingSave)
        return;
    if (!m_outputPath.isEmpty())
        QFile::remove(m_outputPath);
    if (!m_lastWavPath.isEmpty() && m_lastWavPath != m_outputPath)
        QFile::remove(m_lastWavPath);
    m_outputPath.clear();
    m_lastVideoPath.clear();
    m_lastWavPath.clear();
    resetToIdle();
}

void AudioRecorder::retryUpload()
{
    const QString file = !m_failedUploadPath.isEmpty() ? m_failedUploadPath : m_outputPath;
    if (file.isEmpty()) {
        setState(RecordingState::error(kNoRecordingFile));
        return;
    }
    if (!m_signedInCheck || !m_signedInCheck()) {
        setState(RecordingState::error(kSignInFirst));
        return;
    }
    startUploadLater(file);
}

void AudioRecorder::startUploadLater(const QString& path)
{
    // As its own step on the main thread, after the caller has returned.
    onMain(QPointer<AudioRecorder>(this), [this, path] {
        if (m_uploadHandler)
            m_uploadHandler(path);
        else
            uploadRecording(path);
    });
}

void AudioRecorder::resetToIdle()
{
    ++m_session;
    stopClock();
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
    m_failedUploadPath.clear();
    s_screenCaptureConfirmed = false;
}

// --- Devices and mixed audio -------------------------------------------------

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
    const QList<InputDevice> devices = m_engine->listInputDevices();
    if (devices == m_availableInputDevices)
        return;
    m_availableInputDevices = devices;
    Q_EMIT availableInputDevicesChanged();
}

void AudioRecorder::setOnMixedAudioBuffer(MixedBufferCallback callback)
{
    m_onMixedAudioBuffer = std::move(callback);
    rewireMixedBuffers();
}

void AudioRecorder::rewireMixedBuffers()
{
    // The engine gets a copy of the consumer as it is now; later changes
    // re-wire. The video recorder joins here once video mode exists.
    m_engine->setMixedBufferCallback(m_onMixedAudioBuffer);
}

// --- Clock ------------------------------------------------------------------

void AudioRecorder::startClock()
{
    m_clock.start();
}

void AudioRecorder::stopClock()
{
    m_clock.stop();
}

} // namespace sorv
