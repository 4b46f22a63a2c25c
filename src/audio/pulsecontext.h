#pragma once

#include "audio/capturebackend.h"

#include <QList>
#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

struct pa_threaded_mainloop;
struct pa_context;
struct pa_source_info;
struct pa_sink_info;

namespace sorv {

// One connection to the PulseAudio server (or PipeWire's pulse server) with
// its own pa_threaded_mainloop thread. Owns both handles; the destructor
// disconnects and stops the thread. Not thread-safe: one owner thread calls
// it (the audio queue); PulseAudio's own thread only runs the callbacks.
//
// The blocking calls wait with a bound so that a hung server cannot hang the
// caller; they are meant for the audio queue, never for the GUI thread.
class PulseContext : public CaptureBackend::Connection {
public:
    using ConnectError = CaptureBackend::ConnectError;
    using ServerInfo = CaptureBackend::ServerInfo;
    using SourceInfo = CaptureBackend::SourceInfo;
    using SinkInfo = CaptureBackend::SinkInfo;
    using Facility = CaptureBackend::Facility;
    using EventType = CaptureBackend::EventType;
    using SubscriptionHandler = CaptureBackend::SubscriptionHandler;
    using ConnectionLostHandler = CaptureBackend::ConnectionLostHandler;

    static SourceInfo toSourceInfo(const pa_source_info& info);
    static SinkInfo toSinkInfo(const pa_sink_info& info);

    static constexpr int kDefaultTimeoutMs = CaptureBackend::kDefaultTimeoutMs;

    PulseContext();
    ~PulseContext() override;
    PulseContext(const PulseContext&) = delete;
    PulseContext& operator=(const PulseContext&) = delete;

    // Connects to the server named by PULSE_SERVER or the user's default,
    // never spawning one. False with `error` describing why.
    bool connect(const QString& clientName, ConnectError* error, QString* message,
                 int timeoutMs = kDefaultTimeoutMs);
    bool isReady() const override;

    // Subscribes to changes of sources, sinks and the server (default devices).
    bool subscribe(SubscriptionHandler handler, int timeoutMs = kDefaultTimeoutMs) override;
    // Called once, on PulseAudio's thread, when an established connection
    // breaks: the server went away. It must only post.
    void setConnectionLostHandler(ConnectionLostHandler handler) override;

    std::optional<ServerInfo> serverInfo(int timeoutMs = kDefaultTimeoutMs) override;
    std::optional<SourceInfo> sourceInfo(const QString& name,
                                         int timeoutMs = kDefaultTimeoutMs) override;
    std::optional<QList<SourceInfo>> sources(int timeoutMs = kDefaultTimeoutMs) override;
    std::optional<QList<SinkInfo>> sinks(int timeoutMs = kDefaultTimeoutMs) override;
    std::unique_ptr<CaptureBackend::Stream> openStream(const QString& streamName,
                                                       const QString& sourceName,
                                                       std::uint32_t framesPerChunk,
                                                       CaptureBackend::Stream::Sink sink) override;

    // For PulseCaptureStream: the raw handles and the wait primitive.
    pa_threaded_mainloop* mainloop() const { return m_mainloop; }
    pa_context* context() const { return m_context; }

    // With the main-loop lock held: waits until `done()` or the bound passes.
    // Callbacks wake the waiter through signal(). Returns done().
    bool waitLocked(const std::function<bool()>& done, int timeoutMs);
    void signal();

    // RAII for the main-loop lock.
    class Lock {
    public:
        explicit Lock(const PulseContext& c);
        ~Lock();
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        pa_threaded_mainloop* m_mainloop;
    };

    // The last error of the context as text (PulseAudio's own wording).
    QString lastErrorText() const override;
    int lastError() const;

private:
    void disconnect();
    static void onState(pa_context* c, void* self);

    pa_threaded_mainloop* m_mainloop = nullptr;
    pa_context* m_context = nullptr;
    // Touched on PulseAudio's thread, set with the main-loop lock held.
    bool m_wasReady = false;
    ConnectionLostHandler m_onLost;
    SubscriptionHandler m_onEvent;
};

} // namespace sorv
