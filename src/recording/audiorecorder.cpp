#include "audiorecorder.h"

#include "audio/audioengine.h"
#include "audio/audiofilereader.h"
#include "core/format.h"
#include "core/log.h"
#include "core/mainthread.h"
#include "core/notify.h"
#include "core/paths.h"
#include "service/authmanager.h"
#include "service/requestrules.h"
#include "video/screencaptureaccess.h"
#include "video/videorecorder.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cmath>
#include <optional>
#include <utility>

namespace sorv {

namespace {

const char* const kMicrophoneDenied = QT_TRANSLATE_NOOP(
    "AudioRecorder",
    "Microphone access denied. Allow Sorvelandrix Recorder to use the microphone in your "
    "desktop's privacy settings, then try again.");
const char* const kNoRecordingFile = QT_TRANSLATE_NOOP(
    "AudioRecorder", "Recording file is no longer available — please record again");
const char* const kSignInFirst =
    QT_TRANSLATE_NOOP("AudioRecorder", "Sign in first, then tap Retry upload.");
const char* const kSelectedMicrophone =
    QT_TRANSLATE_NOOP("AudioRecorder", "The selected microphone");
const char* const kVideoStartFailed =
    QT_TRANSLATE_NOOP("AudioRecorder", "Video recording failed to start: ");
const char* const kVideoStopFailed = QT_TRANSLATE_NOOP("AudioRecorder", "Video stop failed: ");

// The texts above, in the user's language.
QString translated(const char* source)
{
    return QCoreApplication::translate("AudioRecorder", source);
}

} // namespace

AudioRecorder::AudioRecorder(QObject* parent)
    : AudioRecorder(std::make_unique<AudioEngine>(), parent)
{}

AudioRecorder::AudioRecorder(std::unique_ptr<RecordingEngine> engine, QObject* parent)
    : QObject(parent), m_self(this), m_engine(std::move(engine))
{
    qRegisterMetaType<RecordingState>();
    qRegisterMetaType<InputDevice>();
    m_clock.setInterval(kClockIntervalMs);
    connect(&m_clock, &QTimer::timeout, this, [this] { setElapsed(recordedSeconds()); });
    // X11 lets every client capture: the probe answers at once. On Wayland
    // the desktop asks in its own dialog when the video starts; the probe
    // only finds out whether a ScreenCast portal is there to ask.
    m_screenProbe = [this](const std::function<void(ProbeResult)>& done) {
        probeScreenCaptureAvailable(this, [done](bool available) {
            done(available ? ProbeResult::Allowed : ProbeResult::Failed);
        });
    };
    m_videoFactory = [](QObject* owner) { return new VideoRecorder(owner); };
    connect(&m_uploader, &RecordingUploader::progress, this,
            [this](double fraction) { setState(RecordingState::uploading(fraction)); });
    connect(&m_uploader, &RecordingUploader::finished, this, &AudioRecorder::uploadFinished);
    m_uploader.sweepStaleBodies();
    // The engine follows the sound server's devices from now on; the list
    // the views show follows it.
    m_engine->setInputDevicesChangedHandler([this] { onMain([this] { refreshInputDevices(); }); });
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

void AudioRecorder::setSystemAudioDevice(const QString& v)
{
    setAndNotify(this, m_systemAudioDevice, v, &AudioRecorder::systemAudioDeviceChanged);
}

void AudioRecorder::setMicSilent(bool v)
{
    setAndNotify(this, m_micSilent, v, &AudioRecorder::micSilentChanged);
}

void AudioRecorder::setSoundServerLost(bool v)
{
    if (v == m_soundServerLost)
        return;
    // The file takes nothing while the sound server is away: neither does
    // the clock, and the meters show the silence.
    if (v) {
        m_waitStart.start();
        setMicLevel(0.0f);
        setSystemLevel(0.0f);
    } else if (m_waitStart.isValid()) {
        m_waitedNs += m_waitStart.nsecsElapsed();
        m_waitStart.invalidate();
    }
    m_soundServerLost = v;
    Q_EMIT soundServerLostChanged();
}

void AudioRecorder::startClock()
{
    m_waitedNs = 0;
    m_waitStart.invalidate();
    m_startTime.start();
    m_clock.start();
}

double AudioRecorder::recordedSeconds() const
{
    if (!m_startTime.isValid())
        return m_elapsed;
    qint64 ns = m_startTime.nsecsElapsed() - m_waitedNs;
    if (m_waitStart.isValid())
        ns -= m_waitStart.nsecsElapsed();
    return static_cast<double>(std::max<qint64>(ns, 0)) / 1e9;
}

void AudioRecorder::showFileDuration()
{
    // The file is the truth: the clock cannot see a capture that stalled.
    AudioFileReader file;
    if (!m_lastWavPath.isEmpty() && file.open(m_lastWavPath) && file.sampleRate() > 0)
        setElapsed(static_cast<double>(file.frames()) / file.sampleRate());
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

void AudioRecorder::setVideoRecorder(VideoCapture* recorder)
{
    if (recorder == m_videoRecorder)
        return;
    m_videoRecorder = recorder;
    Q_EMIT videoRecorderChanged();
}

void AudioRecorder::setIsVideoMode(bool v)
{
    setAndNotify(this, m_isVideoMode, v, &AudioRecorder::isVideoModeChanged);
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
    const bool can = m_state.kind() == RecordingState::Kind::Error && !m_captureBusy &&
                     !file.isEmpty() && QFileInfo::exists(file);
    setAndNotify(this, m_canRetryUpload, can, &AudioRecorder::canRetryUploadChanged);
}

// --- Start -----------------------------------------------------------------

void AudioRecorder::requestStartRecording(bool recordVideo,
                                          const ScreenCaptureTargetOption& captureTarget)
{
    const auto kind = m_state.kind();
    if (kind != RecordingState::Kind::Idle && kind != RecordingState::Kind::Uploaded &&
        kind != RecordingState::Kind::Error)
        return;

    const std::uint64_t session = ++m_session;
    m_startVideo = recordVideo;
    m_captureTarget = captureTarget;
    setState(RecordingState::preparing());
    setMicSilent(false);
    setMicSilentMessage(QString());
    setSoundServerLost(false);
    setSystemAudioDevice(QString());
    setSignInRequired(false);
    refreshInputDevices();
    // The session is refreshed beside the start, never before it: a slow or
    // hanging service must not cost the meeting's first words. It begins
    // here, at once, so that a live transcript started with the recording
    // sees it under way and waits for its token.
    if (m_authManager)
        m_authManager->refreshAccessToken(this, [](bool) {});

    m_engine->requestMicrophoneAccess([this, session, recordVideo](bool granted) {
        onMain([this, session, granted, recordVideo] {
            if (session != m_session)
                return;
            if (!granted) {
                setState(RecordingState::error(translated(kMicrophoneDenied)));
                return;
            }
            consoleLog(QStringLiteral("✅ Microphone permission granted"));
            // Only a recording that shows the screen needs screen capture;
            // system audio needs no such permission on Linux.
            if (!recordVideo) {
                // An earlier video recording's advice is not about this one.
                setScreenAccessWarning(QString());
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
            const auto delay = kScreenProbeBackoff.after(attempt);
            if (result == ProbeResult::Declined && delay) {
                QTimer::singleShot(*delay, this, [this, session, attempt] {
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

AudioRecorder::ReservedFiles AudioRecorder::reserveRecordingFiles(bool video)
{
    ReservedFiles files;
    const QString dir = recordingsDirectory();
    if (dir.isEmpty()) {
        files.error =
            QCoreApplication::translate("AudioRecorder", "Could not create the recordings folder");
        return files;
    }
    // Names resolve to the second, and other programs record into the same
    // folder: a taken name gets a suffix. Each name is created exclusively,
    // so two starts can never share a file, and locked from that moment, so
    // nobody sends it while it is written. A stem belongs to one recording:
    // the WAV and, in video mode, the MP4 beside it.
    const QString stem = QDir(dir).filePath(
        QStringLiteral("sorvelandrix_%1").arg(QDateTime::currentSecsSinceEpoch()));
    constexpr int kMaxSuffix = 1000;
    for (int n = 1; n <= kMaxSuffix; ++n) {
        const QString base = n == 1 ? stem : QStringLiteral("%1-%2").arg(stem).arg(n);
        const QString wav = base + QStringLiteral(".wav");
        const QString mp4 = base + QStringLiteral(".mp4");
        auto wavLock = std::make_shared<RecordingFileLock>(RecordingFileLock::create(wav));
        if (wavLock->status() == RecordingFileLock::Status::Failed) {
            files.error = QCoreApplication::translate("AudioRecorder",
                                                      "The recording file could not be created: %1")
                              .arg(wavLock->errorString());
            return files;
        }
        if (!wavLock->isHeld())
            continue;
        std::shared_ptr<RecordingFileLock> mp4Lock;
        if (video) {
            mp4Lock = std::make_shared<RecordingFileLock>(RecordingFileLock::create(mp4));
            if (!mp4Lock->isHeld()) {
                QFile::remove(wav);
                if (mp4Lock->status() == RecordingFileLock::Status::Failed) {
                    files.error = QCoreApplication::translate(
                                      "AudioRecorder", "The video file could not be created: %1")
                                      .arg(mp4Lock->errorString());
                    return files;
                }
                continue;
            }
        } else if (QFile::exists(mp4)) {
            // A video recording's MP4 left without its WAV.
            QFile::remove(wav);
            continue;
        }
        files.wav = wav;
        files.wavLock = std::move(wavLock);
        if (video) {
            files.mp4 = mp4;
            files.mp4Lock = std::move(mp4Lock);
        }
        return files;
    }
    files.error =
        QCoreApplication::translate("AudioRecorder", "No free name for a recording in %1").arg(dir);
    return files;
}

void AudioRecorder::startEngine(std::uint64_t session)
{
    if (m_captureBusy) {
        // The last recording's files are still being finished (an error
        // ended it a moment ago): this one starts once they are.
        m_waitingSession = session;
        return;
    }
    ReservedFiles files = reserveRecordingFiles(m_startVideo);
    if (!files.error.isEmpty()) {
        setState(RecordingState::error(files.error));
        return;
    }
    const QString wav = files.wav;
    // Video mode saves and uploads the MP4; the WAV is its companion.
    const QString mp4 = files.mp4;
    m_captureBusy = true;
    setPaths(mp4.isEmpty() ? wav : mp4, wav, mp4);

    RecordingEngine::StartRequest request;
    request.outputPath = wav;
    request.outputLock = std::move(files.wavLock);
    request.deviceId = m_selectedInputDeviceID;
    // A limit never rounds down to none, which would mean "until stopped".
    if (m_durationLimit > 0)
        request.frameLimit =
            std::max<std::int64_t>(1, std::llround(m_durationLimit * kCommonSampleRate));
    auto onUpdate = [this, session](const AudioEngineUpdate& update) {
        onMain([this, session, update] { applyUpdate(session, update); });
    };
    // The video's lock waits here until its writer takes it over.
    m_engine->start(
        request, onUpdate,
        [this, session, wav, mp4,
         mp4Lock = std::move(files.mp4Lock)](const std::optional<RecorderError>& error) {
            onMain([this, session, wav, mp4, mp4Lock, error] {
                if (session != m_session || m_state.kind() != RecordingState::Kind::Preparing) {
                    // Abandoned while starting: do not leave capture running.
                    QFile::remove(wav);
                    if (!mp4.isEmpty())
                        QFile::remove(mp4);
                    if (error) {
                        releaseCapture();
                        startWaitingSession();
                        return;
                    }
                    m_engine->stop([this] {
                        onMain([this] {
                            releaseCapture();
                            startWaitingSession();
                        });
                    });
                    return;
                }
                if (error) {
                    // The engine removed its file; the video's was never written.
                    if (!mp4.isEmpty())
                        QFile::remove(mp4);
                    releaseCapture();
                    setPaths({}, {}, {});
                    setState(RecordingState::error(error->description()));
                    return;
                }
                if (!mp4.isEmpty()) {
                    startVideo(session, wav, mp4, mp4Lock);
                    return;
                }
                startClock();
                setState(RecordingState::recording());
                refreshInputDevices();
            });
        });
}

void AudioRecorder::startVideo(std::uint64_t session, const QString& wav, const QString& mp4,
                               const std::shared_ptr<RecordingFileLock>& mp4Lock)
{
    // Never two: one left over would grab the screen until the app quits.
    Q_ASSERT_X(!m_video, "AudioRecorder", "a video recorder is still running");
    if (m_video) {
        consoleLog(QStringLiteral("⚠️ A video recorder was still running; it is torn down"));
        m_video->tearDown();
        m_video->deleteLater();
    }
    VideoCapture* video = m_videoFactory(this);
    m_video = video;
    m_videoLock = mp4Lock;
    video->start(
        mp4, m_captureTarget,
        [this, session, wav, mp4, video](const std::optional<VideoRecorderError>& error) {
            if (session != m_session || m_state.kind() != RecordingState::Kind::Preparing) {
                // Abandoned while starting: neither capture goes on.
                if (!error)
                    video->tearDown();
                video->deleteLater();
                QFile::remove(wav);
                QFile::remove(mp4);
                m_engine->stop([this] {
                    onMain([this] {
                        releaseCapture();
                        startWaitingSession();
                    });
                });
                return;
            }
            if (error) {
                video->deleteLater();
                videoStartFailed(wav, mp4, *error);
                return;
            }
            setVideoRecorder(video);
            setIsVideoMode(true);
            // The desktop's "Stop sharing" ends the recording as Stop does.
            connect(video, &VideoCapture::captureEnded, this, [this, video] {
                if (video == m_videoRecorder)
                    stopRecording();
            });
            m_videoAudioSink = video->audioSink();
            rewireMixedBuffers();
            startClock();
            setState(RecordingState::recording());
            refreshInputDevices();
        },
        mp4Lock);
}

void AudioRecorder::videoStartFailed(const QString& wav, const QString& mp4,
                                     const VideoRecorderError& error)
{
    // Reserved with the WAV, and at most a header by now.
    QFile::remove(mp4);
    setVideoRecorder(nullptr);
    setIsVideoMode(false);
    setPaths({}, {}, {});
    // The user's own choice needs no "failed to start" in front of it.
    setState(RecordingState::error(error.code() == VideoRecorderError::Code::SharingCancelled
                                       ? error.description()
                                       : translated(kVideoStartFailed) + error.description()));
    // Without its video the recording is not what was asked for: the engine
    // stops too, and its file goes once it is closed.
    m_engine->stop([this, wav] {
        QFile::remove(wav);
        onMain([this] {
            releaseCapture();
            startWaitingSession();
        });
    });
}

void AudioRecorder::releaseCapture()
{
    m_captureBusy = false;
    m_video = nullptr;
    m_videoLock.reset();
    updateCanRetryUpload();
}

void AudioRecorder::startWaitingSession()
{
    const std::uint64_t session = std::exchange(m_waitingSession, 0);
    if (session != 0 && session == m_session && m_state.kind() == RecordingState::Kind::Preparing)
        startEngine(session);
}

// --- Engine updates ----------------------------------------------------------

void AudioRecorder::applyUpdate(std::uint64_t session, const AudioEngineUpdate& update)
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
    case Kind::SystemAudioDevice:
        setSystemAudioDevice(update.text.value_or(QString()));
        break;
    case Kind::MicSilent: {
        // The message first, so that whoever follows micSilent reads the
        // text that goes with it.
        if (!update.flag || !update.text) {
            setMicSilentMessage(QString());
            setMicSilent(update.flag);
            break;
        }
        QString message = *update.text;
        for (const InputDevice& d : m_inputDevices.devices()) {
            if (d.id == m_selectedInputDeviceID && !d.name.isEmpty()) {
                message.replace(translated(kSelectedMicrophone), d.name);
                break;
            }
        }
        setMicSilentMessage(message);
        setMicSilent(true);
        break;
    }
    case Kind::MicEngineRestarted:
        consoleLog(QStringLiteral("🔁 Mic engine restart bridged to view-model (#%1)")
                       .arg(update.restartCount));
        Q_EMIT micEngineRestarted(update.restartCount);
        break;
    case Kind::SoundServer:
        setSoundServerLost(!update.flag);
        break;
    // The recording's end is this session's alone: a report that comes
    // again, or late, finds it over and changes nothing.
    case Kind::FatalError:
        if (session != m_session)
            break;
        if (m_state.kind() == RecordingState::Kind::Preparing) {
            // Before the video was under way: the start, abandoned now, stops
            // the rest and removes both files.
            ++m_session;
            setPaths({}, {}, {});
            setState(RecordingState::error(update.text.value_or(QString())));
            break;
        }
        endWithError(update.text.value_or(QString()), std::nullopt);
        break;
    case Kind::RecordingFailed:
        if (session == m_session)
            endWithError(update.text.value_or(QString()), update.flag);
        break;
    case Kind::DurationReached:
        if (session == m_session)
            endRecording(true);
        break;
    }
}

void AudioRecorder::endWithError(const QString& message, std::optional<bool> somethingSaved)
{
    if (m_state.kind() != RecordingState::Kind::Recording)
        return;
    // Shown once the capture has ended: the error screen then offers only
    // finished files, and a program that ends at the error leaves them so.
    const std::uint64_t session = ++m_session;
    m_clock.stop();
    setSoundServerLost(false);
    setState(RecordingState::stopping());
    const QString file = m_outputPath;
    const QString wav = m_lastWavPath;
    stopCapture(
        false, [this, session, message, somethingSaved, file, wav](const QString& videoError) {
            AudioFileReader reader;
            const bool wavSaved = somethingSaved.value_or(reader.open(wav) && reader.frames() > 0);
            // An empty WAV is no recording; a video file is kept when it was
            // finished, without the companion that has nothing in it.
            const bool videoMode = file != wav;
            const bool videoKept = videoMode && videoError.isNull();
            if (!wavSaved)
                QFile::remove(wav);
            if (videoMode && !videoKept)
                QFile::remove(file);
            if (session != m_session)
                return;
            if (videoKept)
                setPaths(file, wavSaved ? wav : QString(), file);
            else if (wavSaved)
                setPaths(wav, wav, {});
            else
                setPaths({}, {}, {});
            showFileDuration();
            setState(RecordingState::error(message));
        });
}

// --- Stop, save, discard -----------------------------------------------------

void AudioRecorder::stopRecording()
{
    endRecording(false);
}

void AudioRecorder::endRecording(bool soundEnded)
{
    if (m_state.kind() != RecordingState::Kind::Recording)
        return;
    setState(RecordingState::stopping());
    m_clock.stop();
    setSoundServerLost(false);
    const std::uint64_t session = m_session;
    stopCapture(soundEnded, [this, session](const QString& videoError) {
        if (session != m_session || m_state.kind() != RecordingState::Kind::Stopping)
            return;
        showFileDuration();
        setState(videoError.isNull()
                     ? RecordingState::pendingSave()
                     : RecordingState::error(translated(kVideoStopFailed) + videoError));
    });
}

void AudioRecorder::stopCapture(bool soundEnded,
                                const std::function<void(const QString& videoError)>& done)
{
    VideoCapture* video = m_videoRecorder;
    setVideoRecorder(nullptr);
    setIsVideoMode(false);
    // Every capture has stopped: the files are finished, the next recording
    // may start.
    auto finished = [this, done](const QString& videoError) {
        releaseCapture();
        done(videoError);
        startWaitingSession();
    };
    if (!video) {
        rewireMixedBuffers();
        m_engine->stop([this, finished] { onMain([finished] { finished(QString()); }); });
        return;
    }

    // The video file first, then the engine. Its stop instant is "now", but
    // the audio captured just before it is still on its way (up to a buffer
    // waits in the engine): the engine keeps running and feeding the video
    // until the file has all of it (audioEnded), and only then is unhooked
    // and stopped. Unhooking first would cut the end of the file's sound;
    // stopping the engine first would leave the last frames without any.
    struct Sequence {
        bool engineStopAsked = false;
        bool engineStopped = false;
        bool videoStopped = false;
        QString videoError;
    };
    auto seq = std::make_shared<Sequence>();
    auto finishIfDone = [seq, video, finished] {
        if (!seq->engineStopped || !seq->videoStopped)
            return;
        video->deleteLater();
        finished(seq->videoError);
    };
    auto stopEngine = [this, seq, finishIfDone] {
        if (seq->engineStopAsked)
            return;
        seq->engineStopAsked = true;
        m_videoAudioSink = {};
        rewireMixedBuffers();
        m_engine->stop([this, seq, finishIfDone] {
            onMain([seq, finishIfDone] {
                seq->engineStopped = true;
                finishIfDone();
            });
        });
    };
    connect(video, &VideoCapture::audioEnded, this, stopEngine, Qt::SingleShotConnection);
    auto stopped = [seq, stopEngine, finishIfDone](const VideoCapture::StopResult& result) {
        seq->videoStopped = true;
        if (result.error)
            seq->videoError = result.error->description();
        stopEngine(); // a failed stop never reports audioEnded
        finishIfDone();
    };
    // At its length the sound has ended already; the picture ends with it.
    if (soundEnded)
        video->stopWithSound(stopped);
    else
        video->stop(stopped);
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
    m_uploader.upload(path, companions);
}

void AudioRecorder::uploadFinished(const RecordingUploader::Outcome& outcome)
{
    using Kind = RecordingUploader::Outcome::Kind;
    if (outcome.keepForRetry)
        setFailedUploadPath(outcome.path);
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
    if (m_captureBusy && (file == m_outputPath || file == m_lastWavPath)) {
        consoleLog(QStringLiteral("⚠️ Not sent: the recording is still being written"));
        return;
    }
    if (file.isEmpty()) {
        setState(RecordingState::error(translated(kNoRecordingFile)));
        return;
    }
    if (!m_authManager || !m_authManager->isLoggedIn()) {
        setState(RecordingState::error(translated(kSignInFirst)));
        return;
    }
    onMain([this, file] { uploadRecording(file); });
}

void AudioRecorder::resetToIdle()
{
    const bool recording = m_state.kind() == RecordingState::Kind::Recording;
    ++m_session;
    m_clock.stop();
    setState(RecordingState::idle());
    clearSessionFields();
    // Start over lets nothing run on. A capture already being ended (an
    // error, a stop) finishes its files by itself; one starting is
    // abandoned by its own completion.
    if (recording)
        stopCapture(false, [](const QString&) {});
}

void AudioRecorder::clearSessionFields()
{
    setElapsed(0.0);
    setMicLevel(0.0f);
    setSystemLevel(0.0f);
    setScreenAccessWarning(QString());
    setSystemAudioError(QString());
    setSystemAudioDevice(QString());
    setSoundServerLost(false);
    setFailedUploadPath({});
    setSignInRequired(false);
    m_screenCaptureConfirmed = false;
}

// --- Session, devices and mixed audio ------------------------------------------

void AudioRecorder::setAuthManager(AuthManager* auth)
{
    m_authManager = auth;
    m_uploader.setAuthManager(auth);
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

void AudioRecorder::retrySystemAudio()
{
    if (m_state.kind() != RecordingState::Kind::Recording || m_systemAudioActive)
        return;
    m_engine->retrySystemAudio();
}

void AudioRecorder::checkScreenCaptureAgain()
{
    if (m_screenAccessWarning.isNull())
        return;
    const std::uint64_t session = m_session;
    m_screenProbe([this, session](ProbeResult result) {
        onMain([this, session, result] {
            if (session != m_session)
                return;
            if (result != ProbeResult::Allowed) {
                setScreenAccessWarning(screenCaptureAdviceText());
                return;
            }
            m_screenCaptureConfirmed = true;
            setScreenAccessWarning(QString());
        });
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
    // The transcript's consumer and the video file each get every buffer.
    if (!m_videoAudioSink) {
        m_engine->setMixedBufferCallback(m_onMixedAudioBuffer);
        return;
    }
    m_engine->setMixedBufferCallback(
        [transcript = m_onMixedAudioBuffer, video = m_videoAudioSink](const AudioBuffer& buffer) {
            if (transcript)
                transcript(buffer);
            video(buffer);
        });
}

} // namespace sorv

#include "moc_audiorecorder.cpp"
