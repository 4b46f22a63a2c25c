#pragma once

#include "audio/audiotypes.h"
#include "audio/capturebackend.h"
#include "audio/inputdevicemonitor.h"
#include "audio/microphonehealth.h"
#include "audio/mixpipeline.h"
#include "audio/recordingengine.h"
#include "audio/sampleconverter.h"
#include "core/backoff.h"
#include "core/delayedcall.h"
#include "core/serialqueue.h"

#include <QString>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace sorv {

// Captures the microphone and the system's audio output through PulseAudio
// and feeds them to the mix pipeline (gain control, WAV file, consumers,
// meters). All of its state lives on the serial queue
// `com.sorvelandrix.audio`; the capture streams' read callbacks only copy and
// post there. Every public operation may be called from any thread and
// completes on the audio queue.
//
// During a recording the microphone is kept alive by MicrophoneHealth (the
// engine is the microphone it restarts; once it gives up, the recording ends
// with what the file holds) and follows the sound server's
// device changes as the InputDeviceMonitor reports them. System audio is the
// default output's monitor, so it follows the output: to the new default, or
// away from an output that vanished, and back once there is one again. When
// the server itself goes away the recording waits, writing nothing, and both
// streams start again once it answers with a microphone.
class AudioEngine : public RecordingEngine, private MicrophoneHealth::Microphone {
public:
    using UpdateHandler = RecordingEngine::UpdateHandler;
    using MixedBufferCallback = RecordingEngine::MixedBufferCallback;

    // What a system-audio attempt ran into. `accessDenied` marks a refusal by
    // the sound server, the one kind of failure worth retrying.
    struct SystemCaptureFailure {
        bool accessDenied = false;
        QString message;
    };

    // Timing and the sound server, injectable so that tests can run the
    // engine on a fake server and a clock of their own; the defaults are the
    // application's.
    struct Options {
        // A refused system-audio attempt k waits k × 1.5 s before the next,
        // up to three attempts.
        Backoff systemRetry = Backoff::linear(std::chrono::milliseconds(1500), 3);
        MixPipeline::Clock clock = MixPipeline::monotonicSeconds;
        // Runs the engine's waits (watchdog, retries); a timer on the audio
        // queue when not set. The engine posts what it runs to its queue.
        DelayedCall delays;
        // Watchdog period, grace period and silence window.
        MicrophoneHealth::Timing health;
        // How often the device monitor tries a sound server that went away.
        InputDeviceMonitor::Options devices;
        // The sound server; PulseBackend when not set.
        std::shared_ptr<CaptureBackend> backend;
    };

    static constexpr std::uint32_t kFramesPerBuffer = 4096;

    static constexpr double sampleRate = kCommonSampleRate;
    static constexpr std::uint32_t channels = kCommonChannels;

    AudioEngine() : AudioEngine(Options{}) {}
    explicit AudioEngine(Options options);
    ~AudioEngine() override;
    AudioEngine(const AudioEngine&) = delete;
    AudioEngine& operator=(const AudioEngine&) = delete;

    void requestMicrophoneAccess(std::function<void(bool granted)> done) override;
    void start(const StartRequest& request, UpdateHandler onUpdate,
               std::function<void(std::optional<RecorderError>)> done) override;
    void stop(std::function<void()> done) override;
    void retrySystemAudio() override;
    void selectInputDevice(std::uint32_t id, std::function<void()> done) override;
    void setMixedBufferCallback(MixedBufferCallback callback) override;
    QList<InputDevice> listInputDevices() const override;
    void setInputDevicesChangedHandler(InputDevicesChangedHandler handler) override;

    // Runs fn on the audio queue and waits: for tests and tools that look at
    // the engine's state. Never from the GUI thread while audio runs.
    void inspect(const std::function<void(const AudioEngine&)>& fn) const;

    // (audio queue)
    bool isRunning() const { return m_isRunning; }
    std::uint32_t selectedInputDeviceID() const { return m_selectedInputDeviceID; }
    QString micSourceName() const;
    const MixPipeline& pipeline() const { return m_mix; }
    const MicrophoneHealth& health() const { return m_health; }
    bool soundServerAway() const { return m_serverAway; }

private:
    void assertOnQueue() const;
    void report(const AudioEngineUpdate& update) const;

    std::optional<RecorderError> startOnQueue(const StartRequest& request, UpdateHandler onUpdate);
    std::optional<RecorderError> startMicEngine();
    bool connectToServer();
    void finishStop(CaptureBackend::Chunk micTail, CaptureBackend::Chunk systemTail);
    void endAfterFatal();
    // Runs fn on the audio queue once `delay` has passed, unless the engine
    // has gone by then.
    void after(std::chrono::milliseconds delay, std::function<void()> fn);
    void stopCapture();
    // The server's default source as an input device id (and its source
    // name); nothing when the server cannot say.
    std::optional<std::uint32_t> defaultInputDeviceID(QString* sourceName = nullptr);
    void logDefaultInputDevice();

    // Health and device changes (audio queue).
    void armWatchdog();
    void scheduleWatchdogTick(std::uint64_t serial);
    void watchdogTick();
    void onDeviceChange(const InputDeviceMonitor::Change& change);
    void micStreamFailed();
    void enterServerAway();
    void resumeAfterServer();

    // MicrophoneHealth::Microphone (audio queue)
    std::int64_t bufferCount() const override { return m_mix.micBufferCount(); }
    bool hasEngine() const override { return m_micStream != nullptr; }
    bool engineRunning() const override;
    float windowPeak() const override { return m_mix.peakWindowMax(); }
    void resetWindowPeak() override { m_mix.resetPeakWindow(); }
    std::optional<QString> restart() override;
    void runSystemAudioAttempt(int attempt, std::uint64_t generation);
    // A round of attempts, once the work queued before it is done.
    void postSystemAudioAttempts();
    std::optional<SystemCaptureFailure> startSystemAudioCapture();
    void followOutputs(const InputDeviceMonitor::Change& change, const QString& defaultSink,
                       const QList<CaptureBackend::SinkInfo>& sinks);
    void moveSystemAudio();
    void reportSystemAudioStatus(bool active, const std::optional<QString>& error);
    void onMicChunk(std::vector<float> interleaved, float peak, std::int64_t hostTimeNs);
    void onSystemChunk(std::vector<float> interleaved, float peak);

    Options m_options;
    SerialQueue m_audioQueue{QStringLiteral("com.sorvelandrix.audio")};
    MixPipeline m_mix;
    // Held while the mix writes its file.
    std::shared_ptr<RecordingFileLock> m_outputLock;
    MicrophoneHealth m_health;

    UpdateHandler m_onUpdate;
    MixedBufferCallback m_mixedBufferCallback;

    // Capture state (audio queue). The generation changes at every start and
    // stop, so buffers still queued from an earlier stream are dropped.
    bool m_isRunning = false;
    std::uint64_t m_generation = 0;
    // The device asked for (0: follow the default) and the one that is meant:
    // the default's id while following it.
    std::uint32_t m_requestedDeviceID = 0;
    std::uint32_t m_selectedInputDeviceID = 0;
    // The microphone runs on the default source, because that was asked for
    // or because the chosen device could not be opened.
    bool m_micFollowsDefault = true;
    // Changes with every microphone set-up, so a failure reported by a
    // stream that has since been replaced is recognised.
    std::uint64_t m_micStreamSerial = 0;
    std::unique_ptr<CaptureBackend::Connection> m_server;
    std::unique_ptr<CaptureBackend::Stream> m_micStream;
    std::unique_ptr<CaptureBackend::Stream> m_systemStream;
    std::optional<SampleConverter> m_micConverter;
    std::optional<SampleConverter> m_systemConverter;
    // Changes whenever the watchdog is armed or stopped: older ticks lapse.
    std::uint64_t m_watchdogSerial = 0;
    // Gone with the engine: waits that end later do nothing.
    std::shared_ptr<int> m_lifetime = std::make_shared<int>(0);
    bool m_serverAway = false;      // the recording waits for the sound server
    bool m_serverAvailable = false; // as the device monitor last saw it
    // A round of system-audio attempts has begun and not yet reported.
    bool m_systemAttempting = false;
    // The output whose monitor system audio records, and its name for people.
    QString m_systemSink;
    QString m_systemSinkDescription;
    std::uint64_t m_systemStreamSerial = 0;
    // Back from an away server that has no microphone yet (said once).
    bool m_waitingForMicrophone = false;

    // Set from the owner's thread, called from the monitor's.
    mutable std::mutex m_handlerLock;
    InputDevicesChangedHandler m_devicesChangedHandler;
    // Last, so that it stops first: its listener posts to the audio queue.
    std::unique_ptr<InputDeviceMonitor> m_monitor;
};

} // namespace sorv
