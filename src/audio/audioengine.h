#pragma once

#include "audio/audioringbuffer.h"
#include "audio/audiotypes.h"
#include "audio/wavwriter.h"
#include "core/serialqueue.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <span>

namespace sorv {

// Captures the microphone and the system's audio output, mixes them with
// automatic gain control and writes the recording. All of its state lives on
// the serial queue `com.sorvelandrix.audio`: every method below marked
// "(audio queue)" asserts that it runs there; the others may be called from
// any thread and hop onto the queue themselves.
class AudioEngine {
public:
    using UpdateHandler = std::function<void(const AudioEngineUpdate&)>;
    using MixedBufferCallback = std::function<void(const AudioBuffer&)>;
    using UptimeClock = std::function<double()>;

    static constexpr double sampleRate = kCommonSampleRate;
    static constexpr std::uint32_t channels = kCommonChannels;

    AudioEngine();
    ~AudioEngine();
    AudioEngine(const AudioEngine&) = delete;
    AudioEngine& operator=(const AudioEngine&) = delete;

    SerialQueue& audioQueue() { return m_audioQueue; }

    // --- Mixer and output file -------------------------------------------

    // Installs (or clears) the consumer of mixed buffers, asynchronously on
    // the audio queue. The engine's stop clears it; its start leaves it set.
    void setMixedBufferCallback(MixedBufferCallback callback);

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

    // Scratch space for the mix, sized once per buffer length so the steady
    // state allocates nothing but the delivered buffer.
    std::vector<float> m_sysScratch;
    std::vector<float> m_scMicScratch;
    std::vector<float> m_micScratch;
    AudioBuffer m_mixed;
};

} // namespace sorv
