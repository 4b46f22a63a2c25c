#pragma once

#include "audio/audioringbuffer.h"
#include "audio/audiotypes.h"
#include "audio/wavwriter.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace sorv {

// The path every recorded buffer takes, on one thread: the microphone buffer
// is paired with as many system samples from the ring buffer, mixed with gain
// control (or only limited while system audio is not running), written to the
// WAV file, handed to the mixed-audio consumer and metered. The live engine
// drives it from its audio queue; `sorvelandrix mix`, the benchmarks and the
// tests drive it directly. Not thread-safe: one owner thread.
class MixPipeline {
public:
    // Monotonic seconds; the meters' cadence is measured on it.
    using Clock = std::function<double()>;
    using MetersSink = std::function<void(const AudioMeters&)>;
    using MixedSink = std::function<void(const AudioBuffer&)>;

    // The file stopped taking audio. Reported once per recording; nothing is
    // written afterwards, so the file keeps exactly what was saved before.
    struct WriteFailure {
        QString path;
        QString reason;        // the writer's own error text
        bool diskFull = false; // no space left (or over quota)
        std::int64_t framesSaved = 0;
        double secondsSaved() const { return static_cast<double>(framesSaved) / kCommonSampleRate; }
        // The text the user sees.
        QString message() const;
    };
    using WriteFailureSink = std::function<void(const WriteFailure&)>;

    static constexpr double kMetersIntervalSeconds = 1.0 / 30.0;

    explicit MixPipeline(Clock clock = monotonicSeconds);

    // The recording's file. False with the reason when it cannot be created.
    bool openOutput(const QString& path, QString* error = nullptr);
    // Closes the file (its header is final afterwards). Returns its frames.
    std::int64_t closeOutput();
    bool hasOutput() const { return m_output.isOpen(); }
    std::int64_t outputFrames() const { return m_output.frames(); }
    const QString& outputPath() const { return m_output.path(); }

    // A new recording: counters, gain control, meter clock, system-audio flag,
    // levels and the system ring buffer (audio left from an earlier
    // recording must not leak into this one). Sinks and the file stay.
    void reset();

    // Microphone-only until system capture reports that it runs.
    void setSystemAudioActive(bool active) { m_systemAudioActive = active; }
    bool systemAudioActive() const { return m_systemAudioActive; }

    // Stop writing after this many frames (0: no limit); `onLimit` runs once
    // when the file holds exactly that many.
    void setFrameLimit(std::int64_t frames, std::function<void()> onLimit);

    void setMetersSink(MetersSink sink) { m_metersSink = std::move(sink); }
    void setMixedSink(MixedSink sink) { m_mixedSink = std::move(sink); }
    void setWriteFailureSink(WriteFailureSink sink) { m_writeFailureSink = std::move(sink); }

    // System-audio samples as they arrive (already in the common format).
    void receiveSystemAudio(std::span<const float> samples, float peak);

    // One microphone buffer in the common format: levels, the buffer count,
    // the mix, the file, the consumer and the meters. In microphone-only mode
    // the buffer is limited in place.
    void processMicBuffer(AudioBuffer& buffer, float peak);

    // Sends meters when at least 1/30 s passed since the last ones.
    void emitMetersIfDue();

    // The loudest microphone peak since the last resetPeakWindow(): what the
    // silence checks look at.
    float peakWindowMax() const { return m_micPeakWindowMax; }
    void resetPeakWindow() { m_micPeakWindowMax = 0.0f; }

    std::int64_t writeCount() const { return m_writeCount; }
    std::int64_t micBufferCount() const { return m_micBufferCount; }
    const AGCState& agcState() const { return m_agc; }
    AudioRingBuffer& systemBuffer() { return m_systemBuffer; }
    bool writeFailed() const { return m_writeFailed; }

    static double monotonicSeconds();

private:
    void mix(AudioBuffer& buffer);
    bool write(std::span<const float> samples, bool mixed);

    Clock m_clock;
    WavWriter m_output;
    AudioRingBuffer m_systemBuffer;

    AGCState m_agc;
    std::int64_t m_writeCount = 0;
    std::int64_t m_micBufferCount = 0;
    bool m_systemAudioActive = false;
    bool m_writeFailed = false;
    std::int64_t m_frameLimit = 0;
    bool m_limitReached = false;
    std::function<void()> m_onLimit;

    float m_latestMicLevel = 0.0f;
    float m_latestSystemLevel = 0.0f;
    float m_micPeakWindowMax = 0.0f;
    double m_lastMetersEmittedAt = 0.0;

    MetersSink m_metersSink;
    MixedSink m_mixedSink;
    WriteFailureSink m_writeFailureSink;

    // Sized once per buffer length, so the steady state allocates nothing.
    std::vector<float> m_sysScratch;
    std::vector<float> m_micScratch;
    AudioBuffer m_mixed;
};

} // namespace sorv
