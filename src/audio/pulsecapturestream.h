#pragma once

#include "audio/capturebackend.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <vector>

struct pa_stream;

namespace sorv {

class PulseContext;

// A PulseAudio record stream on one source, asking the server for 32-bit
// float, 48 kHz, mono in fragments of `framesPerChunk` frames. The stream is
// opened on the source's name with PA_STREAM_DONT_MOVE, so a vanished device
// fails the stream instead of being silently swapped for another source.
//
// The read callback is real-time code on PulseAudio's thread: it copies the
// samples, measures the peak and hands the chunk to `sink`, which must only
// post it somewhere else (no locks held long, no I/O).
class PulseCaptureStream : public CaptureBackend::Stream {
public:
    using Chunk = CaptureBackend::Chunk;

    PulseCaptureStream(PulseContext& context, QString streamName, QString sourceName,
                       std::uint32_t framesPerChunk, Sink sink);
    ~PulseCaptureStream() override;
    PulseCaptureStream(const PulseCaptureStream&) = delete;
    PulseCaptureStream& operator=(const PulseCaptureStream&) = delete;

    // Called on PulseAudio's thread when a running stream fails (device gone).
    void setFailureHandler(FailureHandler handler) override { m_onFailure = std::move(handler); }

    // Connects and waits until the stream records. False with `message`
    // otherwise; `accessDenied` for PA_ERR_ACCESS.
    bool start(QString* message, bool* accessDenied, int timeoutMs) override;

    // Ends delivery (no more chunks reach the sink) and returns what the
    // stream still holds: the samples of a last, partial chunk. For the end
    // of a recording, so its last fraction of a second is not lost.
    Chunk takeRemaining() override;

    // Connected and recording (a suspended source still counts: it may
    // deliver nothing, which is the watchdog's business).
    bool isRecording() const override;

    // What the server actually delivers (normally 48000 Hz, 1 channel).
    double sampleRate() const override { return m_rate; }
    std::uint32_t channels() const override { return m_channels; }
    QString sourceName() const override { return m_sourceName; }
    std::uint32_t sourceIndex() const override { return m_sourceIndex; }

private:
    static void onRead(pa_stream* s, size_t nbytes, void* userdata);
    static void onState(pa_stream* s, void* userdata);
    void read();
    // Moves one fragment of the server's buffer into m_pending; false when
    // there is none.
    bool takeFragment();
    void deliver();
    Chunk makeChunk(size_t offset, size_t count, std::int64_t firstFrameNs,
                    std::int64_t latency) const;
    // The server's latency of the stream now (main-loop lock held).
    std::int64_t latencyNs() const;
    void close();

    PulseContext& m_context;
    QString m_streamName;
    QString m_sourceName;
    std::uint32_t m_framesPerChunk;
    Sink m_sink;
    FailureHandler m_onFailure;

    pa_stream* m_stream = nullptr;
    bool m_wasReady = false;
    std::uint32_t m_sourceIndex = 0xffffffffu;
    double m_rate = 48000.0;
    std::uint32_t m_channels = 1;

    // Touched only on PulseAudio's thread while the stream runs.
    std::vector<float> m_pending;
};

} // namespace sorv
