#include "audioengine.h"

#include "audio/mixer.h"
#include "audio/pulsecapturestream.h"
#include "audio/pulsecontext.h"
#include "audio/screencaptureaccess.h"
#include "core/log.h"

#include <QCollator>
#include <QFile>
#include <QTimer>
#include <QtGlobal>

#include <pulse/def.h>

#include <algorithm>
#include <ctime>

namespace sorv {

namespace {

const QString kClientName = QStringLiteral("Sorvelandrix Recorder");

} // namespace

AudioEngine::AudioEngine() = default;

AudioEngine::~AudioEngine()
{
    // Capture callbacks point at this engine: end the streams first, then let
    // the work already queued finish before the members it touches go away.
    m_audioQueue.postAndWait([this] {
        if (m_isRunning || m_pulse)
            stopCapture();
    });
    m_audioQueue.shutdown();
}

// --- Capture ------------------------------------------------------------------

void AudioEngine::requestMicrophoneAccess(std::function<void(bool)> done)
{
    m_audioQueue.post([this, done = std::move(done)] {
        // Only an explicit refusal counts; with no server at all the start
        // reports the missing microphone instead.
        PulseContext probe;
        PulseContext::ConnectError error = PulseContext::ConnectError::None;
        QString message;
        const bool connected = probe.connect(kClientName, &error, &message);
        if (!connected && error == PulseContext::ConnectError::AccessDenied)
            consoleLog(QStringLiteral("❌ Sound server refused access: %1").arg(message));
        done(error != PulseContext::ConnectError::AccessDenied);
    });
}

void AudioEngine::start(const QString& outputPath, std::uint32_t deviceId, UpdateHandler onUpdate,
                        std::function<void(std::optional<RecorderError>)> done)
{
    m_audioQueue.post([this, outputPath, deviceId, onUpdate = std::move(onUpdate),
                       done = std::move(done)]() mutable {
        done(startOnQueue(outputPath, deviceId, std::move(onUpdate)));
    });
}

std::optional<RecorderError>
AudioEngine::startOnQueue(const QString& outputPath, std::uint32_t deviceId, UpdateHandler onUpdate)
{
    assertOnQueue();
    if (m_isRunning || m_pulse)
        stopCapture();

    m_onUpdate = std::move(onUpdate);
    m_selectedInputDeviceID = deviceId;
    m_isRunning = true;
    ++m_generation;
    resetMixState();

    auto abandon = [this, &outputPath](RecorderError error) {
        stopCapture();
        QFile::remove(outputPath);
        return std::optional<RecorderError>(std::move(error));
    };

    QString fileError;
    if (!openOutputFile(outputPath, &fileError)) {
        m_isRunning = false;
        m_onUpdate = {};
        return RecorderError::other(fileError);
    }

    m_pulse = std::make_unique<PulseContext>();
    PulseContext::ConnectError connectError = PulseContext::ConnectError::None;
    QString message;
    if (!m_pulse->connect(kClientName, &connectError, &message)) {
        consoleLog(QStringLiteral("❌ Could not connect to the sound server: %1").arg(message));
        return abandon(RecorderError::noMicrophone());
    }
    refreshInputDevices();

    if (auto error = startMicEngine())
        return abandon(*error);
    armWatchdog();

    // System audio comes up on its own after the start has returned.
    const std::uint64_t generation = m_generation;
    m_audioQueue.post([this, generation] { runSystemAudioAttempt(1, generation); });
    return std::nullopt;
}

void AudioEngine::logDefaultInputDevice()
{
    const auto server = m_pulse ? m_pulse->serverInfo() : std::nullopt;
    if (!server) {
        consoleLog(QStringLiteral("⚠️ Could not get default input device (status: %1)")
                       .arg(m_pulse ? m_pulse->lastErrorText() : QStringLiteral("no server")));
        return;
    }
    const std::uint32_t id = inputDeviceIdForSourceName(server->defaultSourceName);
    if (const auto info = m_pulse->sourceInfo(server->defaultSourceName))
        consoleLog(
            QStringLiteral("🎤 Default input device: %1 (ID: %2)").arg(info->description).arg(id));
    else
        consoleLog(QStringLiteral("🎤 Default input device: <unknown> (ID: %1, nameStatus: %2)")
                       .arg(id)
                       .arg(m_pulse->lastErrorText()));
}

std::optional<RecorderError> AudioEngine::startMicEngine()
{
    assertOnQueue();
    logDefaultInputDevice();
    m_micStream.reset();
    m_micConverter.reset();
    if (!m_pulse)
        return RecorderError::noMicrophone();

    const auto server = m_pulse->serverInfo();
    const QString defaultName = server ? server->defaultSourceName : QString();
    const std::uint32_t defaultId = inputDeviceIdForSourceName(defaultName);
    const std::uint64_t generation = m_generation;

    auto openStream = [this, generation](const QString& sourceName, QString* error, int* paError) {
        auto stream = std::make_unique<PulseCaptureStream>(
            *m_pulse, QStringLiteral("Microphone"), sourceName, kFramesPerBuffer,
            [this, generation](PulseCaptureStream::Chunk&& chunk) {
                m_audioQueue.post([this, generation, chunk = std::move(chunk)]() mutable {
                    if (generation != m_generation || !m_isRunning)
                        return;
                    onMicChunk(std::move(chunk.samples), chunk.peak, chunk.hostTimeNs);
                });
            });
        stream->setFailureHandler([this, generation] {
            m_audioQueue.post([this, generation] {
                if (generation != m_generation || !m_isRunning)
                    return;
                // The microphone's health checks restart it from here.
                consoleLog(QStringLiteral("⚠️ Microphone stream ended unexpectedly"));
            });
        });
        if (!stream->start(error, paError))
            stream.reset();
        return stream;
    };

    QString error;
    int paError = 0;
    if (m_selectedInputDeviceID != 0 && m_selectedInputDeviceID != defaultId) {
        const QString name = m_sourceNameById.value(m_selectedInputDeviceID);
        if (!name.isEmpty())
            m_micStream = openStream(name, &error, &paError);
        if (m_micStream)
            consoleLog(QStringLiteral("🎤 Explicitly set input device ID: %1")
                           .arg(m_selectedInputDeviceID));
        else
            consoleLog(
                QStringLiteral("⚠️ Could not set input device (status: %1), using default")
                    .arg(name.isEmpty() ? QStringLiteral("unknown device") : error));
    }
    if (!m_micStream) {
        // The default source falls back to a sink's monitor when a machine
        // has no microphone: recording that would only double system audio.
        const auto info = m_pulse->sourceInfo(defaultName);
        if (defaultName.isEmpty() || !info || info->isMonitor) {
            consoleLog(QStringLiteral("❌ No microphone source (default source: %1)")
                           .arg(defaultName.isEmpty() ? QStringLiteral("none") : defaultName));
            return RecorderError::noMicrophone();
        }
        consoleLog(QStringLiteral("🎤 Using system default input device (ID: %1)").arg(defaultId));
        if (m_selectedInputDeviceID == 0)
            m_selectedInputDeviceID = defaultId;
        m_micStream = openStream(defaultName, &error, &paError);
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
        m_micConverter = converter;
        consoleLog(QStringLiteral("🎤 Converter created: %1Hz/%2ch → 48000.0Hz/1ch")
                       .arg(m_micStream->sampleRate())
                       .arg(m_micStream->channels()));
    }
    m_micPeakWindowMax = 0.0f;
    m_scMicPeakWindowMax = 0.0f;
    consoleLog(QStringLiteral("✅ Mic engine started, running=true"));
    return std::nullopt;
}

void AudioEngine::onMicChunk(std::vector<float> interleaved, float peak, std::int64_t hostTimeNs)
{
    AudioBuffer buffer;
    buffer.samples = m_micConverter ? m_micConverter->convert(interleaved) : std::move(interleaved);
    buffer.hostTimeNs = hostTimeNs;
    processMicBuffer(std::move(buffer), peak);
}

void AudioEngine::onSystemChunk(std::vector<float> interleaved, float peak)
{
    if (m_systemConverter)
        interleaved = m_systemConverter->convert(interleaved);
    receiveSystemAudio(interleaved, peak);
}

void AudioEngine::runSystemAudioAttempt(int attempt, std::uint64_t generation)
{
    assertOnQueue();
    if (generation != m_generation || !m_isRunning)
        return;
    consoleLog(
        QStringLiteral("🔍 System audio attempt %1/%2...").arg(attempt).arg(kSystemAudioAttempts));

    std::optional<SystemCaptureFailure> failure;
    if (m_systemFaultInjector)
        failure = m_systemFaultInjector(attempt);
    if (!failure)
        failure = startSystemAudioCapture();

    if (!failure) {
        consoleLog(QStringLiteral("✅ System audio capture started on attempt %1").arg(attempt));
        reportSystemAudioStatus(true, std::nullopt);
        return;
    }
    consoleLog(QStringLiteral("⚠️ Attempt %1 failed: %2").arg(attempt).arg(failure->message));
    if (failure->accessDenied && attempt < kSystemAudioAttempts) {
        const int delayMs = attempt * 1500;
        consoleLog(QStringLiteral("🔄 Access error detected, retrying in %1s...")
                       .arg(QString::number(delayMs / 1000.0, 'f', 1)));
        QTimer::singleShot(
            delayMs, Qt::PreciseTimer, m_audioQueue.context(),
            [this, attempt, generation] { runSystemAudioAttempt(attempt + 1, generation); });
        return;
    }
    reportSystemAudioStatus(false,
                            failure->accessDenied ? screenCaptureAdviceText() : failure->message);
}

std::optional<AudioEngine::SystemCaptureFailure> AudioEngine::startSystemAudioCapture()
{
    assertOnQueue();
    m_systemStream.reset();
    m_systemConverter.reset();
    if (!m_pulse)
        return SystemCaptureFailure{false, QStringLiteral("No sound server")};

    // The monitor is found by name: some pulse servers do not resolve
    // @DEFAULT_MONITOR@.
    const auto server = m_pulse->serverInfo();
    if (!server)
        return SystemCaptureFailure{false, QStringLiteral("Could not read the sound server's "
                                                          "configuration: %1")
                                               .arg(m_pulse->lastErrorText())};
    if (server->defaultSinkName.isEmpty())
        return SystemCaptureFailure{
            false, QStringLiteral("No sound output device to capture system audio from")};
    const QString monitor = server->defaultSinkName + QStringLiteral(".monitor");
    const auto info = m_pulse->sourceInfo(monitor);
    if (!info || !info->isMonitor)
        return SystemCaptureFailure{
            false, QStringLiteral("The sound output %1 has no monitor to capture system audio from")
                       .arg(server->defaultSinkName)};

    const std::uint64_t generation = m_generation;
    auto stream = std::make_unique<PulseCaptureStream>(
        *m_pulse, QStringLiteral("System audio"), monitor, kFramesPerBuffer,
        [this, generation](PulseCaptureStream::Chunk&& chunk) {
            m_audioQueue.post([this, generation, chunk = std::move(chunk)]() mutable {
                if (generation != m_generation || !m_isRunning)
                    return;
                onSystemChunk(std::move(chunk.samples), chunk.peak);
            });
        });
    stream->setFailureHandler([this, generation] {
        m_audioQueue.post([this, generation] {
            if (generation != m_generation || !m_isRunning || !m_systemAudioActiveFlag)
                return;
            consoleLog(
                QStringLiteral("⚠️ System audio stream ended; recording the microphone only"));
            reportSystemAudioStatus(false, QStringLiteral("System audio capture stopped"));
        });
    });
    QString error;
    int paError = 0;
    if (!stream->start(&error, &paError))
        return SystemCaptureFailure{paError == PA_ERR_ACCESS, error};

    SampleConverter converter(stream->sampleRate(), stream->channels());
    if (!converter.isPassThrough())
        m_systemConverter = converter;
    m_systemStream = std::move(stream);
    return std::nullopt;
}

void AudioEngine::reportSystemAudioStatus(bool active, const std::optional<QString>& error)
{
    assertOnQueue();
    m_systemAudioActiveFlag = active;
    report(AudioEngineUpdate::systemAudioActive(active));
    report(AudioEngineUpdate::systemAudioError(error));
}

void AudioEngine::stop(std::function<void()> done)
{
    m_audioQueue.post([this, done = std::move(done)] {
        stopCapture();
        if (done)
            done();
    });
}

void AudioEngine::stopCapture()
{
    assertOnQueue();
    m_isRunning = false;
    ++m_generation;
    cancelWatchdog();
    // Streams before the context they belong to.
    m_micStream.reset();
    m_systemStream.reset();
    m_pulse.reset();
    m_micConverter.reset();
    m_systemConverter.reset();
    closeOutputFile();
    m_scMicCaptureEnabled = false;
    m_scMicBuffer.clear();
    m_systemAudioActiveFlag = false;
    m_onUpdate = {};
    m_mixedBufferCallback = {};
}

void AudioEngine::selectInputDevice(std::uint32_t id, std::function<void()> done)
{
    m_audioQueue.post([this, id, done = std::move(done)] {
        m_selectedInputDeviceID = id;
        m_micPeakWindowMax = 0.0f;
        if (m_isRunning) {
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

void AudioEngine::setSystemCaptureFaultInjector(SystemCaptureFaultInjector injector)
{
    m_audioQueue.postAndWait([this, &injector] { m_systemFaultInjector = std::move(injector); });
}

void AudioEngine::refreshInputDevices()
{
    assertOnQueue();
    const auto server = m_pulse->serverInfo();
    const auto sources = m_pulse->sources();
    if (!sources)
        return;
    QList<InputDevice> devices;
    QHash<std::uint32_t, QString> names;
    for (const auto& source : *sources) {
        if (source.isMonitor || source.description.isEmpty())
            continue;
        const std::uint32_t id = inputDeviceIdForSourceName(source.name);
        names.insert(id, source.name);
        devices.append(InputDevice{id, source.description,
                                   server && source.name == server->defaultSourceName});
    }
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(devices.begin(), devices.end(),
                     [&collator](const InputDevice& a, const InputDevice& b) {
                         if (a.isDefault != b.isDefault)
                             return a.isDefault;
                         return collator.compare(a.name, b.name) < 0;
                     });
    m_sourceNameById = std::move(names);
    std::lock_guard lock(m_devicesLock);
    m_devices = std::move(devices);
}

QList<InputDevice> AudioEngine::listInputDevices() const
{
    std::lock_guard lock(m_devicesLock);
    return m_devices;
}

void AudioEngine::armWatchdog()
{
    // The microphone health checks (watchdog, silence windows) start here.
}

void AudioEngine::cancelWatchdog() {}

// --- Mixer --------------------------------------------------------------------

double AudioEngine::monotonicUptimeSeconds()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    const auto ns = static_cast<std::int64_t>(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
    return static_cast<double>(ns) / 1e9;
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

void AudioEngine::setMixedBufferCallback(MixedBufferCallback callback)
{
    m_audioQueue.post(
        [this, cb = std::move(callback)]() mutable { m_mixedBufferCallback = std::move(cb); });
}

void AudioEngine::resetMixState()
{
    assertOnQueue();
    m_writeCount = 0;
    m_micBufferCount = 0;
    m_agcState = AGCState{};
    m_lastMetersEmittedAt = 0.0;
    m_systemAudioActiveFlag = false;
    m_micPeakWindowMax = 0.0f;
    m_scMicPeakWindowMax = 0.0f;
    m_systemBuffer.clear();
    m_scMicBuffer.clear();
}

bool AudioEngine::openOutputFile(const QString& path, QString* error)
{
    assertOnQueue();
    auto file = std::make_unique<WavWriter>();
    if (!file->open(path, static_cast<int>(sampleRate), static_cast<int>(channels))) {
        if (error)
            *error = file->errorString();
        m_outputFile.reset();
        m_outputPath.clear();
        return false;
    }
    m_outputFile = std::move(file);
    m_outputPath = path;
    return true;
}

void AudioEngine::closeOutputFile()
{
    assertOnQueue();
    m_outputFile.reset();
    m_outputPath.clear();
}

void AudioEngine::setUpdateHandler(UpdateHandler handler)
{
    assertOnQueue();
    m_onUpdate = std::move(handler);
}

void AudioEngine::setSystemAudioActiveFlag(bool active)
{
    assertOnQueue();
    m_systemAudioActiveFlag = active;
}

void AudioEngine::receiveSystemAudio(std::span<const float> samples, float peak)
{
    assertOnQueue();
    m_systemBuffer.write(samples);
    m_latestSystemLevel = peak;
    emitMetersIfDue();
}

void AudioEngine::receiveSCMicAudio(std::span<const float> samples, float peak)
{
    assertOnQueue();
    if (!m_scMicCaptureEnabled)
        return;
    m_scMicBuffer.write(samples);
    m_latestSCMicLevel = peak;
    m_scMicPeakWindowMax = std::max(m_scMicPeakWindowMax, peak);
    emitMetersIfDue();
}

void AudioEngine::processMicBuffer(AudioBuffer buffer, float peak)
{
    assertOnQueue();
    m_latestMicLevel = peak;
    m_micPeakWindowMax = std::max(m_micPeakWindowMax, peak);
    ++m_micBufferCount;
    if (logThinned(m_micBufferCount, 5))
        consoleLog(QStringLiteral("🎤 Mic buffer #%1: frames=%2, peak=%3")
                       .arg(m_micBufferCount)
                       .arg(buffer.frameLength())
                       .arg(QString::asprintf("%.6f", static_cast<double>(peak))));
    mixAndWrite(buffer);
    emitMetersIfDue();
}

void AudioEngine::mixAndWrite(AudioBuffer& buffer)
{
    assertOnQueue();
    if (!m_outputFile) {
        if (m_writeCount >= 1 && m_writeCount % 100 == 0)
            consoleLog(QStringLiteral("⚠️ outputFile is nil, can't write (writeCount=%1)")
                           .arg(m_writeCount));
        return;
    }

    if (!m_systemAudioActiveFlag) {
        // Microphone only: no gain control, just keep it inside full scale.
        softLimit(buffer.samples);
        if (!m_outputFile->write(buffer.samples))
            consoleLog(QStringLiteral("Write error: %1").arg(m_outputFile->errorString()));
        if (m_mixedBufferCallback)
            m_mixedBufferCallback(buffer);
        return;
    }

    const auto n = static_cast<size_t>(buffer.frameLength());
    m_sysScratch.resize(n);
    const auto got = static_cast<size_t>(m_systemBuffer.read(std::span<float>(m_sysScratch)));
    std::fill(m_sysScratch.begin() + static_cast<std::ptrdiff_t>(got), m_sysScratch.end(), 0.0f);

    std::span<const float> scMic;
    if (m_scMicCaptureEnabled) {
        m_scMicScratch.resize(n);
        const auto scGot =
            static_cast<size_t>(m_scMicBuffer.read(std::span<float>(m_scMicScratch)));
        std::fill(m_scMicScratch.begin() + static_cast<std::ptrdiff_t>(scGot), m_scMicScratch.end(),
                  0.0f);
        scMic = m_scMicScratch;
    }

    m_micScratch.resize(n);
    const MicChoice choice = micSamplesForMix(
        static_cast<std::int64_t>(n),
        {buffer.samples, scMic, m_scMicCaptureEnabled, m_latestMicLevel, m_latestSCMicLevel},
        m_micScratch);
    if (choice.usedSCMic && m_writeCount <= 2)
        consoleLog(QString::asprintf("🎤 Using SCStream mic for mix (enginePeak=%.4f scPeak=%.4f)",
                                     static_cast<double>(choice.enginePeak),
                                     static_cast<double>(choice.scPeak)));

    // Consumers copy what they keep, so one output buffer serves every mix.
    m_mixed.samples.resize(n);
    m_mixed.hostTimeNs = buffer.hostTimeNs;
    m_agcState = mixWithGainControl(m_micScratch, m_sysScratch, true, m_agcState, m_mixed.samples);

    ++m_writeCount;
    if (logThinned(m_writeCount, 5))
        consoleLog(QString::asprintf(
            "🔊 Mix #%lld: micRMS=%.5f sysRMS=%.5f micGain=%.1fx sysGain=%.2fx",
            static_cast<long long>(m_writeCount), static_cast<double>(m_agcState.micRMS),
            static_cast<double>(m_agcState.sysRMS), static_cast<double>(m_agcState.micGainSmoothed),
            static_cast<double>(m_agcState.sysGainSmoothed)));

    if (m_outputFile->write(m_mixed.samples)) {
        if (logThinned(m_writeCount, 3))
            consoleLog(QStringLiteral("📝 Write #%1: %2 frames, file length: %3")
                           .arg(m_writeCount)
                           .arg(n)
                           .arg(m_outputFile->frames()));
    } else {
        consoleLog(QStringLiteral("❌ Write error at #%1: %2")
                       .arg(m_writeCount)
                       .arg(m_outputFile->errorString()));
    }

    if (m_mixedBufferCallback)
        m_mixedBufferCallback(m_mixed);
}

void AudioEngine::emitMetersIfDue()
{
    assertOnQueue();
    const double now = m_uptime();
    if (now - m_lastMetersEmittedAt < m_metersIntervalSeconds)
        return;
    m_lastMetersEmittedAt = now;
    AudioMeters meters;
    meters.mic = std::max(m_latestMicLevel, m_latestSCMicLevel);
    meters.scMic = m_latestSCMicLevel;
    meters.system = m_latestSystemLevel;
    meters.peakWindowMax = std::max(m_micPeakWindowMax, m_scMicPeakWindowMax);
    report(AudioEngineUpdate::makeMeters(meters));
}

} // namespace sorv
