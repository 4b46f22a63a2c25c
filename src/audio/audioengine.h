#pragma once

#include "audio/audioringbuffer.h"
#include "audio/audiotypes.h"
#include "audio/recordingengine.h"
#include "audio/sampleconverter.h"
#include "audio/wavwriter.h"
#include "core/serialqueue.h"

#include <QHash>
#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>

namespace sorv {

class PulseContext;
class PulseCaptureStream;

// Captures the microphone and the system's audio output, mixes them with
// automatic gain control and writes the recording. All of its state lives on
// the serial queue `com.sorvelandrix.audio`: every method below marked
// "(audio queue)" asserts that it runs there; the others may be called from
// any thread and hop onto the queue themselves.
//
// Capture runs on PulseAudio: a record stream on the microphone source and
// one on the monitor of the default sink. Their read callbacks only copy and
// post to the audio queue.
class AudioEngine : public RecordingEngine {
public:
    using UpdateHandler = RecordingEngine::UpdateHandler;
    using MixedBufferCallback = RecordingEngine::MixedBufferCallback;
    using UptimeClock = std::function<double()>;

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

    static constexpr std::uint32_t kFramesPerBuffer = 4096;
    static constexpr int kSystemAudioAttempts = 3;

    static constexpr double sampleRate = kCommonSampleRate;
    static constexpr std::uint32_t channels = kCommonChannels;

    AudioEngine();
    ~AudioEngine();
    AudioEngine(const AudioEngine&) = delete;
    AudioEngine& operator=(const AudioEngine&) = delete;

    SerialQueue& audioQueue() { return m_audioQueue; }

    // --- Capture (RecordingEngine) ---------------------------------------
    // Completions run on the audio queue.

    void requestMicrophoneAccess(std::function<void(bool granted)> done) override;
    void start(const QString& outputPath, std::uint32_t deviceId, UpdateHandler onUpdate,
               std::function<void(std::optional<RecorderError>)> done) override;
    void stop(std::function<void()> done) override;
    void selectInputDevice(std::uint32_t id, std::function<void()> done) override;
    QList<InputDevice> listInputDevices() const override;

    // Set before start.
    void setSystemCaptureFaultInjector(SystemCaptureFaultInjector injector);

    // (audio queue)
    bool isRunning() const { return m_isRunning; }
    std::uint32_t selectedInputDeviceID() const { return m_selectedInputDeviceID; }
    QString micSourceName() const;

    // --- Mixer and output file -------------------------------------------

    // Installs (or clears) the consumer of mixed buffers, asynchronously on
    // the audio queue. The engine's stop clears it; its start leaves it set.
    void setMixedBufferCallback(MixedBufferCallback callback) override;

    // (audio queue) Resets the per-recording mixer state: write counter, gain
    // control, meter clock, system-audio flag; empties the system ring buffer
    // so audio left from an earlier recording never leaks into this one.
    void resetMixState();

    // (audio queue) Creates the recording's WAV file. False with a message
    // when it cannot be created.
    bool openOutputFile(const QString& path, QString* error = nullptr);
    // (audio queue) Closes the WAV file (the header is final afterwards).
    void closeOutputFile();

    // (audio queue) The reporting target (set by start, cleared by stop).
    void setUpdateHandler(UpdateHandler handler);

    // (audio queue) What system capture reports: the mixer runs in
    // microphone-only mode until this is true.
    void setSystemAudioActiveFlag(bool active);

    // (audio queue) System-audio samples arriving from the capture stream.
    void receiveSystemAudio(std::span<const float> samples, float peak);
    // (audio queue) Stream-microphone samples (no source on Linux yet; kept so
    // the source choice stays exercised).
    void receiveSCMicAudio(std::span<const float> samples, float peak);

    // (audio queue) One microphone buffer in the common format: levels, the
    // buffer counter, the mix and the meters.
    void processMicBuffer(AudioBuffer buffer, float peak);

    // (audio queue) Pairs the microphone buffer with as many system samples,
    // mixes, writes and delivers. The buffer is limited in place in
    // microphone-only mode.
    void mixAndWrite(AudioBuffer& buffer);

    // (audio queue) Sends `meters` when at least 1/30 s passed since the last.
    void emitMetersIfDue();

    // --- Introspection (audio queue), for tests and tools -----------------
    std::int64_t writeCount() const { return m_writeCount; }
    std::int64_t micBufferCount() const { return m_micBufferCount; }
    const AGCState& agcState() const { return m_agcState; }
    bool systemAudioActiveFlag() const { return m_systemAudioActiveFlag; }
    void setSCMicCaptureEnabled(bool enabled) { m_scMicCaptureEnabled = enabled; }
    std::int64_t outputFrames() const { return m_outputFile ? m_outputFile->frames() : 0; }
    AudioRingBuffer& systemBuffer() { return m_systemBuffer; }

    // Replaces the monotonic uptime clock (seconds) so tests can drive the
    // meter cadence. Call before the engine is used.
    void setUptimeClock(UptimeClock clock) { m_uptime = std::move(clock); }

    static double monotonicUptimeSeconds();

private:
    void assertOnQueue() const;
    void writeOutput(std::span<const float> samples, bool logMixPath);
    void report(const AudioEngineUpdate& update) const;

    std::optional<RecorderError> startOnQueue(const QString& outputPath, std::uint32_t deviceId,
                                              UpdateHandler onUpdate);
    std::optional<RecorderError> startMicEngine();
    void stopCapture();
    void logDefaultInputDevice();
    void refreshInputDevices();
    void armWatchdog();
    void cancelWatchdog();
    void runSystemAudioAttempt(int attempt, std::uint64_t generation);
    std::optional<SystemCaptureFailure> startSystemAudioCapture();
    void reportSystemAudioStatus(bool active, const std::optional<QString>& error);
    void onMicChunk(std::vector<float> interleaved, float peak, std::int64_t hostTimeNs);
    void onSystemChunk(std::vector<float> interleaved, float peak);

    SerialQueue m_audioQueue{QStringLiteral("com.sorvelandrix.audio")};

    AudioRingBuffer m_systemBuffer;
    AudioRingBuffer m_scMicBuffer;
    bool m_scMicCaptureEnabled = false;

    std::unique_ptr<WavWriter> m_outputFile;
    QString m_outputPath;

    AGCState m_agcState;
    std::int64_t m_writeCount = 0;
    std::int64_t m_micBufferCount = 0;
    bool m_systemAudioActiveFlag = false;

    float m_latestMicLevel = 0.0f;
    float m_latestSCMicLevel = 0.0f;
    float m_latestSystemLevel = 0.0f;
    float m_micPeakWindowMax = 0.0f;
    float m_scMicPeakWindowMax = 0.0f;

    double m_lastMetersEmittedAt = 0.0;
    double m_metersIntervalSeconds = 1.0 / 30.0;
    UptimeClock m_uptime = &AudioEngine::monotonicUptimeSeconds;

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

    // Scratch space for the mix, sized once per buffer length so the steady
    // state allocates nothing but the delivered buffer.
    std::vector<float> m_sysScratch;
    std::vector<float> m_scMicScratch;
    std::vector<float> m_micScratch;
    AudioBuffer m_mixed;
};

} // namespace sorv
