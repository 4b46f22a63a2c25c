#pragma once

#include <QList>
#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace sorv {

// The sound server as the capture engine and the device monitor use it: a
// connection that answers questions about the server and reports its
// changes, and record streams on its sources. PulseBackend is the real one
// (libpulse, for PulseAudio and PipeWire's pulse server); the tests drive a
// fake, so the engine's policies run without a daemon.
//
// Connections and streams are used from one owner thread at a time. Their
// handlers run on the backend's own thread and must only copy and post.
class CaptureBackend {
public:
    enum class ConnectError {
        None,
        AccessDenied, // the server refused this client
        NoServer,     // nothing answered, or the connection broke
    };

    struct ServerInfo {
        QString defaultSinkName;
        QString defaultSourceName;
    };

    struct SourceInfo {
        QString name;
        QString description;
        std::uint32_t index = 0xffffffffu; // the server's index; a re-created source gets a new one
        std::uint32_t channels = 0;
        std::uint32_t sampleRate = 0;
        int sampleFormat = -1;  // the server's sample format code
        bool isMonitor = false; // the monitor of a sink, not a microphone

        // The same source object delivering the same format: a change of
        // volume, mute or suspension keeps the configuration; a re-created
        // source or a new sample format does not.
        bool sameConfiguration(const SourceInfo& other) const
        {
            return index == other.index && channels == other.channels &&
                   sampleRate == other.sampleRate && sampleFormat == other.sampleFormat;
        }
        friend bool operator==(const SourceInfo&, const SourceInfo&) = default;
    };

    struct SinkInfo {
        QString name;
        QString description;
        std::uint32_t index = 0xffffffffu;
        QString monitorSourceName;
        friend bool operator==(const SinkInfo&, const SinkInfo&) = default;
    };

    // What a subscription reports: which kind of object, and what happened to it.
    enum class Facility { Source, Sink, Server, Other };
    enum class EventType { New, Change, Remove };
    using SubscriptionHandler = std::function<void(Facility, EventType, std::uint32_t index)>;
    using ConnectionLostHandler = std::function<void()>;

    // Samples as a record stream delivers them.
    struct Chunk {
        std::vector<float> samples; // interleaved, `channels` per frame
        float peak = 0.0f;          // max |x| over channel 0
        // CLOCK_MONOTONIC nanoseconds of the first frame, as if the newest
        // frame read had been captured at the moment it was read.
        std::int64_t hostTimeNs = 0;
        // How long before that moment the newest frame was really captured,
        // as the server reports it (device and transport latency; 0 when it
        // cannot say yet).
        std::int64_t latencyNs = 0;
    };

    static constexpr int kDefaultTimeoutMs = 5000;

    // A record stream on one source, in 32-bit float at 48 kHz mono unless
    // the server says otherwise. It is opened on the source's name and never
    // moved: a vanished device fails the stream instead of being silently
    // swapped for another source.
    class Stream {
    public:
        using Sink = std::function<void(Chunk&&)>;
        // A running stream failed (its device is gone).
        using FailureHandler = std::function<void()>;

        virtual ~Stream() = default;
        virtual void setFailureHandler(FailureHandler handler) = 0;
        // Connects and waits until the stream records. False with `message`
        // otherwise; `accessDenied` says the server refused it.
        virtual bool start(QString* message, bool* accessDenied,
                           int timeoutMs = kDefaultTimeoutMs) = 0;
        // Ends delivery and returns the samples of a last, partial chunk.
        virtual Chunk takeRemaining() = 0;
        // Connected and recording (a suspended source still counts).
        virtual bool isRecording() const = 0;
        virtual double sampleRate() const = 0;
        virtual std::uint32_t channels() const = 0;
        virtual QString sourceName() const = 0;
        // The server's index of that source: a source re-created under the
        // same name (a Bluetooth profile switch) has a new one.
        virtual std::uint32_t sourceIndex() const = 0;
    };

    // One connection to the server. The queries wait with a bound, so a hung
    // server cannot hang the caller; they are for worker queues, never for
    // the GUI thread.
    class Connection {
    public:
        virtual ~Connection() = default;
        virtual bool isReady() const = 0;
        // Follows changes of sources, sinks and the server (default devices).
        virtual bool subscribe(SubscriptionHandler handler, int timeoutMs = kDefaultTimeoutMs) = 0;
        // Called once when the established connection breaks.
        virtual void setConnectionLostHandler(ConnectionLostHandler handler) = 0;
        virtual std::optional<ServerInfo> serverInfo(int timeoutMs = kDefaultTimeoutMs) = 0;
        virtual std::optional<SourceInfo> sourceInfo(const QString& name,
                                                     int timeoutMs = kDefaultTimeoutMs) = 0;
        virtual std::optional<QList<SourceInfo>> sources(int timeoutMs = kDefaultTimeoutMs) = 0;
        virtual std::optional<QList<SinkInfo>> sinks(int timeoutMs = kDefaultTimeoutMs) = 0;
        // The last error, in the server library's own wording.
        virtual QString lastErrorText() const = 0;
        // A stream on `sourceName` delivering chunks of `framesPerChunk`
        // frames to `sink` (on the backend's thread); start() connects it.
        virtual std::unique_ptr<Stream> openStream(const QString& streamName,
                                                   const QString& sourceName,
                                                   std::uint32_t framesPerChunk,
                                                   Stream::Sink sink) = 0;
    };

    virtual ~CaptureBackend() = default;

    // Connects to the server, never starting one. Nothing, with `error` and
    // `message` saying why, when it does not answer or refuses.
    virtual std::unique_ptr<Connection> connect(const QString& clientName, ConnectError* error,
                                                QString* message,
                                                int timeoutMs = kDefaultTimeoutMs) = 0;
};

} // namespace sorv
