#include "audioengine.h"

#include "audio/inputdevicelist.h"
#include "audio/mixer.h"
#include "audio/pulsebackend.h"
#include "core/log.h"

#include <QCoreApplication>
#include <QFile>
#include <QTimer>
#include <QtGlobal>

#include <algorithm>

namespace sorv {

namespace {

const QString kClientName = QStringLiteral("Sorvelandrix Recorder");

// The monitor stream refused by the sound server: system audio needs no
// screen permission on Linux, so the advice is about the sound server.
const char* const kSystemAudioRefused = QT_TRANSLATE_NOOP(
    "AudioEngine",
    "The sound server refused to let Sorvelandrix Recorder record what the computer plays. "
    "Allow it in your desktop's privacy settings, then press Retry.");

} // namespace

AudioEngine::AudioEngine(Options options)
    : m_options(std::move(options)), m_mix(m_options.clock),
      m_health(*this, m_options.clock, m_options.health)
{
    if (!m_options.backend)
        m_options.backend = PulseBackend::shared();
    if (!m_options.devices.backend)
        m_options.devices.backend = m_options.backend;
    m_health.setReporter([this](const AudioEngineUpdate& update) {
        report(update);
        if (update.kind == AudioEngineUpdate::Kind::FatalError)
            endAfterFatal();
    });
    // The device list is wanted before any recording: the monitor starts now.
    m_monitor = std::make_unique<InputDeviceMonitor>(
        [this](const InputDeviceMonitor::Change& change) {
            if (change.first || change.devicesChanged) {
                std::lock_guard lock(m_handlerLock);
                if (m_devicesChangedHandler)
                    m_devicesChangedHandler();
            }
            m_audioQueue.post([this, change] { onDeviceChange(change); });
        },
        m_options.devices);
}

AudioEngine::~AudioEngine()
{
    // The monitor posts here: stop it first. Capture callbacks point at this
    // engine too: end the streams, then let the work already queued finish
    // before the members it touches go away.
    m_monitor.reset();
    m_audioQueue.postAndWait([this] {
        if (m_isRunning || m_server)
            stopCapture();
        m_lifetime.reset();
    });
    m_audioQueue.shutdown();
}

void AudioEngine::after(std::chrono::milliseconds delay, std::function<void()> fn)
{
    if (!m_options.delays) {
        QTimer::singleShot(delay, Qt::PreciseTimer, m_audioQueue.context(), std::move(fn));
        return;
    }
    m_options.delays(delay, [this, alive = std::weak_ptr<int>(m_lifetime), fn = std::move(fn)] {
        if (alive.lock())
            m_audioQueue.post(fn);
    });
}

void AudioEngine::assertOnQueue() const
{
    Q_ASSERT_X(m_audioQueue.isCurrent(), "AudioEngine", "must run on com.sorvelandrix.audio");
}

void AudioEngine::report(const AudioEngineUpdate& update) const
{
    if (m_onUpdate)
        m_onUpdate(update);
}

void AudioEngine::inspect(const std::function<void(const AudioEngine&)>& fn) const
{
    m_audioQueue.postAndWait([this, &fn] { fn(*this); });
}

// --- Start --------------------------------------------------------------------

void AudioEngine::requestMicrophoneAccess(std::function<void(bool)> done)
{
    m_audioQueue.post([this, done = std::move(done)] {
        // Only an explicit refusal counts; with no server at all the start
        // reports the missing microphone instead.
        CaptureBackend::ConnectError error = CaptureBackend::ConnectError::None;
        QString message;
        const bool connected = m_options.backend->connect(kClientName, &error, &message) != nullptr;
        if (!connected && error == CaptureBackend::ConnectError::AccessDenied)
            consoleLog(QStringLiteral("❌ Sound server refused access: %1").arg(message));
        done(error != CaptureBackend::ConnectError::AccessDenied);
    });
}

void AudioEngine::start(const StartRequest& request, UpdateHandler onUpdate,
                        std::function<void(std::optional<RecorderError>)> done)
{
    m_audioQueue.post(
        [this, request, onUpdate = std::move(onUpdate), done = std::move(done)]() mutable {
            done(startOnQueue(request, std::move(onUpdate)));
        });
}

std::optional<RecorderError> AudioEngine::startOnQueue(const StartRequest& request,
                                                       UpdateHandler onUpdate)
{
    assertOnQueue();
    if (m_isRunning || m_server)
        stopCapture();

    m_onUpdate = std::move(onUpdate);
    m_requestedDeviceID = request.deviceId;
    m_selectedInputDeviceID = request.deviceId;
    m_isRunning = true;
    m_serverAway = false;
    m_systemAttempting = false;
    ++m_generation;

    m_mix.reset();
    m_mix.setMetersSink(
        [this](const AudioMeters& meters) { report(AudioEngineUpdate::makeMeters(meters)); });
    m_mix.setMixedSink([this](const AudioBuffer& buffer) {
        if (m_mixedBufferCallback)
            m_mixedBufferCallback(buffer);
    });
    m_mix.setWriteFailureSink([this](const MixPipeline::WriteFailure& failure) {
        report(AudioEngineUpdate::recordingFailed(failure.message(), failure.framesSaved > 0));
    });
    m_mix.setFrameLimit(request.frameLimit,
                        [this] { report(AudioEngineUpdate::durationReached()); });

    auto abandon = [this, &request](RecorderError error) {
        stopCapture();
        QFile::remove(request.outputPath);
        return std::optional<RecorderError>(std::move(error));
    };

    QString fileError;
    if (!m_mix.openOutput(request.outputPath, &fileError)) {
        // A file system that is full may still have made an empty file.
        QFile::remove(request.outputPath);
        m_isRunning = false;
        m_onUpdate = {};
        return RecorderError::other(fileError);
    }
    m_outputLock = request.outputLock;

    if (!connectToServer())
        return abandon(RecorderError::noMicrophone());

    if (auto error = startMicEngine())
        return abandon(*error);
    m_health.start();
    armWatchdog();

    // System audio comes up on its own after the start has returned.
    postSystemAudioAttempts();
    return std::nullopt;
}

bool AudioEngine::connectToServer()
{
    assertOnQueue();
    CaptureBackend::ConnectError connectError = CaptureBackend::ConnectError::None;
    QString message;
    auto server = m_options.backend->connect(kClientName, &connectError, &message);
    if (!server) {
        consoleLog(QStringLiteral("❌ Could not connect to the sound server: %1").arg(message));
        return false;
    }
    const std::uint64_t generation = m_generation;
    server->setConnectionLostHandler([this, generation] {
        m_audioQueue.post([this, generation] {
            if (generation == m_generation)
                enterServerAway();
        });
    });
    m_server = std::move(server);
    return true;
}

std::optional<std::uint32_t> AudioEngine::defaultInputDeviceID(QString* sourceName)
{
    assertOnQueue();
    const auto server = m_server ? m_server->serverInfo() : std::nullopt;
    if (!server)
        return std::nullopt;
    if (sourceName)
        *sourceName = server->defaultSourceName;
    return inputDeviceIdForSourceName(server->defaultSourceName);
}

void AudioEngine::logDefaultInputDevice()
{
    QString name;
    const auto id = defaultInputDeviceID(&name);
    if (!id) {
        consoleLog(QStringLiteral("⚠️ Could not get default input device (status: %1)")
                       .arg(m_server ? m_server->lastErrorText() : QStringLiteral("no server")));
        return;
    }
    if (const auto info = m_server->sourceInfo(name))
        consoleLog(QStringLiteral("🎤 Default input device: %1 (ID: %2)")
                       .arg(info->description, QString::number(*id)));
    else
        consoleLog(QStringLiteral("🎤 Default input device: <unknown> (ID: %1, nameStatus: %2)")
                       .arg(*id)
                       .arg(m_server->lastErrorText()));
}

std::optional<RecorderError> AudioEngine::startMicEngine()
{
    assertOnQueue();
    logDefaultInputDevice();
    m_micStream.reset();
    m_micConverter.reset();
    ++m_micStreamSerial;
    if (!m_server)
        return RecorderError::noMicrophone();

    QString defaultName;
    const std::uint32_t defaultId = defaultInputDeviceID(&defaultName).value_or(0);
    const std::uint64_t generation = m_generation;
    const std::uint64_t serial = m_micStreamSerial;

    auto openStream = [this, generation, serial](const QString& sourceName, QString* error) {
        auto stream = m_server->openStream(
            QStringLiteral("Microphone"), sourceName, kFramesPerBuffer,
            [this, generation](CaptureBackend::Chunk&& chunk) {
                m_audioQueue.post([this, generation, chunk = std::move(chunk)]() mutable {
                    if (generation != m_generation || !m_isRunning)
                        return;
                    // Stamped when it was captured, not when it reached us:
                    // what video is lined up against.
                    onMicChunk(std::move(chunk.samples), chunk.peak,
                               chunk.hostTimeNs - chunk.latencyNs);
                });
            });
        stream->setFailureHandler([this, generation, serial] {
            m_audioQueue.post([this, generation, serial] {
                if (generation != m_generation || !m_isRunning || serial != m_micStreamSerial)
                    return;
                micStreamFailed();
            });
        });
        if (!stream->start(error, nullptr))
            stream.reset();
        return stream;
    };

    QString error;
    const std::uint32_t wanted = m_requestedDeviceID;
    if (wanted != 0 && wanted != defaultId) {
        // Resolved afresh each time: the id outlives the source's index.
        const auto sources = m_server->sources();
        const auto name = sources ? sourceNameForInputDevice(*sources, wanted) : std::nullopt;
        if (name)
            m_micStream = openStream(*name, &error);
        else
            error = sources ? QStringLiteral("No such entity") : m_server->lastErrorText();
        if (m_micStream) {
            consoleLog(QStringLiteral("🎤 Explicitly set input device ID: %1").arg(wanted));
            m_selectedInputDeviceID = wanted;
            m_micFollowsDefault = false;
        } else {
            consoleLog(
                QStringLiteral("⚠️ Could not set input device (status: %1), using default")
                    .arg(error));
        }
    }
    if (!m_micStream) {
        // The default source falls back to a sink's monitor when a machine
        // has no microphone: recording that would only double system audio.
        const auto info = m_server->sourceInfo(defaultName);
        if (defaultName.isEmpty() || !info || info->isMonitor) {
            consoleLog(QStringLiteral("❌ No microphone source (default source: %1)")
                           .arg(defaultName.isEmpty() ? QStringLiteral("none") : defaultName));
            return RecorderError::noMicrophone();
        }
        consoleLog(QStringLiteral("🎤 Using system default input device (ID: %1)").arg(defaultId));
        m_selectedInputDeviceID = wanted == 0 ? defaultId : wanted;
        // Asked for the default, or standing in for a device that is missing.
        m_micFollowsDefault = wanted != defaultId;
        m_micStream = openStream(defaultName, &error);
        if (!m_micStream) {
            consoleLog(QStringLiteral("❌ Microphone stream failed: %1").arg(error));
            return RecorderError::noMicrophone();
        }
    }

    consoleLog(QStringLiteral("🎤 Mic hardware format: %1 Hz, %2 ch, float32 (%3)")
                   .arg(m_micStream->sampleRate())
                   .arg(m_micStream->channels())
                   .arg(m_micStream->sourceName()));
    SampleConverter converter(m_micStream->sampleRate(), m_micStream->channels());
    if (converter.isPassThrough()) {
        consoleLog(QStringLiteral("🎤 No conversion needed, formats match"));
    } else {
        m_micConverter = std::move(converter);
        consoleLog(QStringLiteral("🎤 Converter created: %1Hz/%2ch → 48000.0Hz/1ch")
                       .arg(m_micStream->sampleRate())
                       .arg(m_micStream->channels()));
    }
    m_mix.resetPeakWindow();
    consoleLog(QStringLiteral("✅ Mic engine started, running=true"));
    return std::nullopt;
}

void AudioEngine::onMicChunk(std::vector<float> interleaved, float peak, std::int64_t hostTimeNs)
{
    AudioBuffer buffer;
    buffer.samples = m_micConverter ? m_micConverter->convert(interleaved) : std::move(interleaved);
    buffer.hostTimeNs = hostTimeNs;
    m_mix.processMicBuffer(buffer, peak);
}

void AudioEngine::onSystemChunk(std::vector<float> interleaved, float peak)
{
    if (m_systemConverter)
        interleaved = m_systemConverter->convert(interleaved);
    m_mix.receiveSystemAudio(interleaved, peak);
}

// --- System audio ------------------------------------------------------------

void AudioEngine::runSystemAudioAttempt(int attempt, std::uint64_t generation)
{
    assertOnQueue();
    if (generation != m_generation || !m_isRunning || m_serverAway)
        return;
    m_systemAttempting = true;
    consoleLog(QStringLiteral("🔍 System audio attempt %1/%2...")
                   .arg(attempt)
                   .arg(m_options.systemRetry.maxAttempts));

    const std::optional<SystemCaptureFailure> failure = startSystemAudioCapture();

    if (!failure) {
        consoleLog(QStringLiteral("✅ System audio capture started on attempt %1 (%2)")
                       .arg(attempt)
                       .arg(m_systemSinkDescription));
        m_systemAttempting = false;
        report(AudioEngineUpdate::systemAudioDevice(m_systemSinkDescription));
        reportSystemAudioStatus(true, std::nullopt);
        return;
    }
    consoleLog(QStringLiteral("⚠️ Attempt %1 failed: %2").arg(attempt).arg(failure->message));
    if (const auto delay = m_options.systemRetry.after(attempt); delay && failure->accessDenied) {
        consoleLog(QStringLiteral("🔄 Access error detected, retrying in %1s...")
                       .arg(QString::number(static_cast<double>(delay->count()) / 1000, 'f', 1)));
        after(*delay,
              [this, attempt, generation] { runSystemAudioAttempt(attempt + 1, generation); });
        return;
    }
    m_systemAttempting = false;
    reportSystemAudioStatus(false, failure->accessDenied ? QCoreApplication::translate(
                                                               "AudioEngine", kSystemAudioRefused)
                                                         : failure->message);
}

void AudioEngine::postSystemAudioAttempts()
{
    assertOnQueue();
    // Under way from now, not from when it runs: a Retry or an output's news
    // in between must not open a second stream.
    m_systemAttempting = true;
    const std::uint64_t generation = m_generation;
    m_audioQueue.post([this, generation] { runSystemAudioAttempt(1, generation); });
}

void AudioEngine::retrySystemAudio()
{
    m_audioQueue.post([this] {
        if (!m_isRunning || m_serverAway || m_systemAttempting || m_mix.systemAudioActive())
            return;
        consoleLog(QStringLiteral("🔄 System audio: trying again"));
        runSystemAudioAttempt(1, m_generation);
    });
}

std::optional<AudioEngine::SystemCaptureFailure> AudioEngine::startSystemAudioCapture()
{
    assertOnQueue();
    m_systemStream.reset();
    m_systemConverter.reset();
    ++m_systemStreamSerial;
    if (!m_server)
        return SystemCaptureFailure{false,
                                    QCoreApplication::translate("AudioEngine", "No sound server")};

    // The monitor is found by name: some pulse servers do not resolve
    // @DEFAULT_MONITOR@.
    const auto server = m_server->serverInfo();
    if (!server)
        return SystemCaptureFailure{
            false, QCoreApplication::translate("AudioEngine", "Could not read the sound server's "
                                                              "configuration: %1")
                       .arg(m_server->lastErrorText())};
    if (server->defaultSinkName.isEmpty())
        return SystemCaptureFailure{
            false, QCoreApplication::translate(
                       "AudioEngine", "No sound output device to capture system audio from")};
    const QString monitor = server->defaultSinkName + QStringLiteral(".monitor");
    const auto info = m_server->sourceInfo(monitor);
    if (!info || !info->isMonitor)
        return SystemCaptureFailure{
            false,
            QCoreApplication::translate(
                "AudioEngine", "The sound output %1 has no monitor to capture system audio from")
                .arg(server->defaultSinkName)};

    const std::uint64_t generation = m_generation;
    const std::uint64_t serial = m_systemStreamSerial;
    auto stream = m_server->openStream(
        QStringLiteral("System audio"), monitor, kFramesPerBuffer,
        [this, generation](CaptureBackend::Chunk&& chunk) {
            m_audioQueue.post([this, generation, chunk = std::move(chunk)]() mutable {
                if (generation != m_generation || !m_isRunning)
                    return;
                onSystemChunk(std::move(chunk.samples), chunk.peak);
            });
        });
    stream->setFailureHandler([this, generation, serial] {
        m_audioQueue.post([this, generation, serial] {
            if (generation != m_generation || !m_isRunning || serial != m_systemStreamSerial ||
                !m_mix.systemAudioActive())
                return;
            if (!m_server || !m_server->isReady()) {
                enterServerAway();
                return;
            }
            // Its output went away: whatever the server plays on now.
            consoleLog(QStringLiteral("⚠️ System audio stream ended (%1)").arg(m_systemSink));
            moveSystemAudio();
        });
    });
    QString error;
    bool accessDenied = false;
    if (!stream->start(&error, &accessDenied))
        return SystemCaptureFailure{accessDenied, error};

    SampleConverter converter(stream->sampleRate(), stream->channels());
    if (!converter.isPassThrough())
        m_systemConverter = std::move(converter);
    m_systemStream = std::move(stream);
    m_systemSink = server->defaultSinkName;
    m_systemSinkDescription = m_systemSink;
    if (const auto sinks = m_server->sinks())
        for (const auto& sink : *sinks)
            if (sink.name == m_systemSink && !sink.description.isEmpty())
                m_systemSinkDescription = sink.description;
    return std::nullopt;
}

void AudioEngine::moveSystemAudio()
{
    assertOnQueue();
    const QString from = m_systemSinkDescription;
    if (const auto failure = startSystemAudioCapture()) {
        consoleLog(QStringLiteral("⚠️ System audio could not follow the output: %1")
                       .arg(failure->message));
        reportSystemAudioStatus(
            false, QCoreApplication::translate("AudioEngine", "System audio capture stopped"));
        return;
    }
    consoleLog(QStringLiteral("🔊 System audio follows the output: %1 → %2")
                   .arg(from, m_systemSinkDescription));
    report(AudioEngineUpdate::systemAudioDevice(m_systemSinkDescription));
}

void AudioEngine::followOutputs(const InputDeviceMonitor::Change& change,
                                const QString& defaultSink,
                                const QList<CaptureBackend::SinkInfo>& sinks)
{
    assertOnQueue();
    if (m_systemAttempting)
        return;
    if (m_mix.systemAudioActive()) {
        const bool present = std::any_of(sinks.begin(), sinks.end(),
                                         [this](const auto& s) { return s.name == m_systemSink; });
        if (!present || (!defaultSink.isEmpty() && defaultSink != m_systemSink))
            moveSystemAudio();
        return;
    }
    // Not recording system audio (no output, or it failed): a new output or
    // a new default is worth another round, each time one comes.
    if (defaultSink.isEmpty() || (change.addedSinks.isEmpty() && !change.defaultSinkChanged))
        return;
    consoleLog(QStringLiteral("🔄 System audio: the outputs changed, trying again"));
    runSystemAudioAttempt(1, m_generation);
}

void AudioEngine::reportSystemAudioStatus(bool active, const std::optional<QString>& error)
{
    assertOnQueue();
    m_mix.setSystemAudioActive(active);
    report(AudioEngineUpdate::systemAudioActive(active));
    report(AudioEngineUpdate::systemAudioError(error));
}

// --- Stop ---------------------------------------------------------------------

void AudioEngine::stop(std::function<void()> done)
{
    m_audioQueue.post([this, done = std::move(done)]() mutable {
        if (!m_isRunning) {
            stopCapture();
            if (done)
                done();
            return;
        }
        // The streams stop delivering now; chunks they posted before that are
        // still queued behind this step, so the tails are written after them.
        CaptureBackend::Chunk micTail;
        CaptureBackend::Chunk systemTail;
        if (m_micStream)
            micTail = m_micStream->takeRemaining();
        if (m_systemStream)
            systemTail = m_systemStream->takeRemaining();
        m_audioQueue.post([this, micTail = std::move(micTail), systemTail = std::move(systemTail),
                           done = std::move(done)]() mutable {
            finishStop(std::move(micTail), std::move(systemTail));
            if (done)
                done();
        });
    });
}

void AudioEngine::endAfterFatal()
{
    assertOnQueue();
    // A microphone given up on would leave the file open, and growing again
    // should the source wake: the recording ends here, as a stop would end
    // it. The report is said once; the owner's own stop finds nothing left.
    consoleLog(QStringLiteral("❌ Microphone given up: the recording ends with what it holds"));
    m_health.stop();
    stop({});
}

void AudioEngine::finishStop(CaptureBackend::Chunk micTail, CaptureBackend::Chunk systemTail)
{
    assertOnQueue();
    if (m_isRunning) {
        if (!systemTail.samples.empty())
            onSystemChunk(std::move(systemTail.samples), systemTail.peak);
        if (m_micConverter) {
            std::vector<float> rest = m_micConverter->convert(micTail.samples);
            const std::vector<float> held = m_micConverter->flush();
            rest.insert(rest.end(), held.begin(), held.end());
            micTail.samples = std::move(rest);
            m_micConverter.reset();
        }
        if (!micTail.samples.empty()) {
            AudioBuffer buffer;
            buffer.samples = std::move(micTail.samples);
            buffer.hostTimeNs = micTail.hostTimeNs - micTail.latencyNs;
            m_mix.processMicBuffer(buffer, micTail.peak);
        }
    }
    stopCapture();
}

void AudioEngine::stopCapture()
{
    assertOnQueue();
    m_isRunning = false;
    m_serverAway = false;
    m_systemAttempting = false;
    m_waitingForMicrophone = false;
    m_systemSink.clear();
    m_systemSinkDescription.clear();
    ++m_generation;
    ++m_watchdogSerial;
    m_health.stop();
    // Streams before the connection they belong to.
    m_micStream.reset();
    m_systemStream.reset();
    m_server.reset();
    m_micConverter.reset();
    m_systemConverter.reset();
    m_mix.closeOutput();
    m_outputLock.reset();
    m_mix.setSystemAudioActive(false);
    m_mix.setMetersSink({});
    m_mix.setMixedSink({});
    m_mix.setWriteFailureSink({});
    m_mix.setFrameLimit(0, {});
    m_onUpdate = {};
    m_mixedBufferCallback = {};
}

// --- Devices ------------------------------------------------------------------

void AudioEngine::selectInputDevice(std::uint32_t id, std::function<void()> done)
{
    m_audioQueue.post([this, id, done = std::move(done)] {
        m_requestedDeviceID = id;
        m_selectedInputDeviceID = id;
        m_health.deviceSwitched();
        // Only the microphone starts again; system audio and the file go on.
        // While the server is away, the id is used once it answers.
        if (m_isRunning && !m_serverAway) {
            if (auto error = startMicEngine())
                consoleLog(QStringLiteral("❌ Failed to switch input device: %1")
                               .arg(error->description()));
            else
                consoleLog(
                    QStringLiteral("🎤 Switched input device to ID %1 mid-recording").arg(id));
        }
        if (done)
            done();
    });
}

QString AudioEngine::micSourceName() const
{
    assertOnQueue();
    return m_micStream ? m_micStream->sourceName() : QString();
}

QList<InputDevice> AudioEngine::listInputDevices() const
{
    return m_monitor->devices();
}

void AudioEngine::setInputDevicesChangedHandler(InputDevicesChangedHandler handler)
{
    std::lock_guard lock(m_handlerLock);
    m_devicesChangedHandler = std::move(handler);
}

// --- Microphone health ----------------------------------------------------------

void AudioEngine::armWatchdog()
{
    assertOnQueue();
    scheduleWatchdogTick(++m_watchdogSerial);
}

void AudioEngine::scheduleWatchdogTick(std::uint64_t serial)
{
    after(m_health.timing().watchdogPeriod, [this, serial] {
        if (serial != m_watchdogSerial)
            return;
        watchdogTick();
        if (serial == m_watchdogSerial && m_isRunning)
            scheduleWatchdogTick(serial);
    });
}

void AudioEngine::watchdogTick()
{
    assertOnQueue();
    if (!m_isRunning)
        return;
    if (m_serverAway) {
        if (m_serverAvailable)
            resumeAfterServer();
        return;
    }
    m_health.tick();
}

bool AudioEngine::engineRunning() const
{
    return m_micStream && m_micStream->isRecording();
}

std::optional<QString> AudioEngine::restart()
{
    if (auto error = startMicEngine())
        return error->description();
    return std::nullopt;
}

void AudioEngine::micStreamFailed()
{
    assertOnQueue();
    // With the whole server gone there is nothing to restart onto yet.
    if (!m_server || !m_server->isReady()) {
        enterServerAway();
        return;
    }
    consoleLog(QStringLiteral("⚠️ Microphone stream ended unexpectedly"));
    m_health.configurationChanged();
}

void AudioEngine::onDeviceChange(const InputDeviceMonitor::Change& change)
{
    assertOnQueue();
    m_serverAvailable = change.snapshot.serverAvailable;
    if (!m_isRunning)
        return;
    if (change.serverLost) {
        enterServerAway();
        return;
    }
    if (m_serverAway) {
        if (m_serverAvailable)
            resumeAfterServer();
        return;
    }
    if (!m_server)
        return;
    // Decided on what the server says now, not on the news: a burst of
    // changes may reach us as one, news may be older than what the engine
    // has seen since, and a stream that failed has been restarted already.
    const auto server = m_server->serverInfo();
    const auto sources = server ? m_server->sources() : std::nullopt;
    const auto sinks = sources ? m_server->sinks() : std::nullopt;
    if (!sinks)
        return; // it broke under the question: its lost handler follows
    followOutputs(change, server->defaultSinkName, *sinks);
    // A microphone that failed to come back is the watchdog's to restart.
    if (!m_micStream)
        return;

    // The source gone, or re-created under its name, is a change.
    const QString current = m_micStream->sourceName();
    const auto source = std::find_if(sources->begin(), sources->end(),
                                     [&](const auto& s) { return s.name == current; });
    bool affected = source == sources->end() || source->index != m_micStream->sourceIndex();
    if (m_micFollowsDefault) {
        // The chosen microphone when it is back (plugged in again), else the
        // default one.
        auto wanted = m_requestedDeviceID != 0
                          ? sourceNameForInputDevice(*sources, m_requestedDeviceID)
                          : std::nullopt;
        if (!wanted)
            wanted = sourceNameForInputDevice(
                *sources, inputDeviceIdForSourceName(server->defaultSourceName));
        if (wanted && *wanted != current)
            affected = true;
    }
    if (affected)
        m_health.configurationChanged();
}

void AudioEngine::enterServerAway()
{
    assertOnQueue();
    if (!m_isRunning || m_serverAway)
        return;
    m_serverAway = true;
    // A round of attempts waiting for its next try ends at that try.
    m_systemAttempting = false;
    consoleLog(
        QStringLiteral("⚠️ Sound server went away — the recording waits and resumes when "
                       "it answers"));
    // Streams before the connection they belong to. The file stays open: the
    // mix is clocked by the microphone, so nothing is written meanwhile.
    m_micStream.reset();
    m_systemStream.reset();
    m_server.reset();
    m_micConverter.reset();
    m_systemConverter.reset();
    m_mix.setSystemAudioActive(false);
    report(AudioEngineUpdate::soundServer(false));
}

void AudioEngine::resumeAfterServer()
{
    assertOnQueue();
    if (!m_isRunning || !m_serverAway || !connectToServer())
        return;
    // A server that answers may not have its devices yet (after a restart
    // wireplumber re-creates them a moment later): without a microphone the
    // recording goes on waiting, and the next device change tries again.
    if (auto error = startMicEngine()) {
        if (!m_waitingForMicrophone)
            consoleLog(
                QStringLiteral("⚠️ The sound server answers but has no microphone yet (%1); "
                               "waiting for one")
                    .arg(error->description()));
        m_waitingForMicrophone = true;
        m_micStream.reset();
        m_server.reset();
        return;
    }
    m_waitingForMicrophone = false;
    m_serverAway = false;
    // What system audio had queued belongs before the gap.
    m_mix.systemBuffer().clear();
    // As at a start: the first look at the new stream a whole period later.
    m_health.resumed();
    armWatchdog();
    consoleLog(QStringLiteral("✅ Sound server is back — microphone and system audio restarted"));
    report(AudioEngineUpdate::soundServer(true));
    postSystemAudioAttempts();
}

// --- Mixed audio --------------------------------------------------------------

void AudioEngine::setMixedBufferCallback(MixedBufferCallback callback)
{
    m_audioQueue.post(
        [this, cb = std::move(callback)]() mutable { m_mixedBufferCallback = std::move(cb); });
}

} // namespace sorv
