#pragma once

#include "audio/audiotypes.h"
#include "audio/mixpipeline.h"
#include "audio/pulsecapturestream.h"
#include "audio/recordingengine.h"
#include "audio/sampleconverter.h"
#include "core/serialqueue.h"

#include <QHash>
#include <QString>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace sorv {

class PulseContext;

// Captures the microphone and the system's audio output through PulseAudio
// and feeds them to the mix pipeline (gain control, WAV file, consumers,
// meters). All of its state lives on the serial queue
// `com.sorvelandrix.audio`; the capture streams' read callbacks only copy and
// post there. Every public operation may be called from any thread and
// completes on the audio queue.
class AudioEngine : public RecordingEngine {
public:
    using UpdateHandler = RecordingEngine::UpdateHandler;
    using MixedBufferCallback = RecordingEngine::MixedBufferCallback;

    // What a system-audio attempt ran into. `accessDenied` marks a refusal by
    // the sound server, the one kind of failure worth retrying.
    struct SystemCaptureFailure {
        bool accessDenied = false;
        QString message;
    };
    // Test seam: consulted before each system-audio attempt (1…3); a value
    // makes that attempt fail as described.
    using SystemCaptureFaultInjector =
        std::function<std::optional<SystemCaptureFailure>(int attempt)>;

    struct Options {
        // A refused system-audio attempt k waits k × this before the next.
        std::chrono::milliseconds systemRetryUnit{1500};
        MixPipeline::Clock clock = MixPipeline::monotonicSeconds;
    };

    static constexpr std::uint32_t kFramesPerBuffer = 4096;
    static constexpr int kSystemAudioAttempts = 3;

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
    void selectInputDevice(std::uint32_t id, std::function<void()> done) override;
    void setMixedBufferCallback(MixedBufferCallback callback) override;
    QList<InputDevice> listInputDevices() const override;

    // Set before start.
    void setSystemCaptureFaultInjector(SystemCaptureFaultInjector injector);

    // Runs fn on the audio queue and waits: for tests and tools that look at
    // the engine's state. Never from the GUI thread while audio runs.
    void inspect(const std::function<void(const AudioEngine&)>& fn) const;

    // (audio queue)
    bool isRunning() const { return m_isRunning; }
    std::uint32_t selectedInputDeviceID() const { return m_selectedInputDeviceID; }
    QString micSourceName() const;
    const MixPipeline& pipeline() const { return m_mix; }

private:
    void assertOnQueue() const;
    void report(const AudioEngineUpdate& update) const;

    std::optional<RecorderError> startOnQueue(const StartRequest& request, UpdateHandler onUpdate);
    std::optional<RecorderError> startMicEngine();
    void finishStop(PulseCaptureStream::Chunk micTail, PulseCaptureStream::Chunk systemTail);
    void stopCapture();
    void logDefaultInputDevice();
    void refreshInputDevices();
    void runSystemAudioAttempt(int attempt, std::uint64_t generation);
    std::optional<SystemCaptureFailure> startSystemAudioCapture();
    void reportSystemAudioStatus(bool active, const std::optional<QString>& error);
    void onMicChunk(std::vector<float> interleaved, float peak, std::int64_t hostTimeNs);
    void onSystemChunk(std::vector<float> interleaved, float peak);

    Options m_options;
    SerialQueue m_audioQueue{QStringLiteral("com.sorvelandrix.audio")};
    MixPipeline m_mix;

    UpdateHandler m_onUpdate;
    MixedBufferCallback m_mixedBufferCallback;

    // Capture state (audio queue). The generation changes at every start and
    // stop, so buffers still queued from an earlier stream are dropped.
    bool m_isRunning = false;
    std::uint64_t m_generation = 0;
    std::uint32_t m_selectedInputDeviceID = 0;
    std::unique_ptr<PulseContext> m_pulse;
    std::unique_ptr<PulseCaptureStream> m_micStream;
    std::unique_ptr<PulseCaptureStream> m_systemStream;
    std::optional<SampleConverter> m_micConverter;
    std::optional<SampleConverter> m_systemConverter;
    SystemCaptureFaultInjector m_systemFaultInjector;
    QHash<std::uint32_t, QString> m_sourceNameById;

    // The device list is read from any thread, written on the audio queue.
    mutable std::mutex m_devicesLock;
    QList<InputDevice> m_devices;
};

} // namespace sorv
