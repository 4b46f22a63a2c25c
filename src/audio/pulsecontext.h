#pragma once

#include <QList>
#include <QString>

#include <cstdint>
#include <functional>
#include <optional>

struct pa_threaded_mainloop;
struct pa_context;
struct pa_source_info;

namespace sorv {

// One connection to the PulseAudio server (or PipeWire's pulse server) with
// its own pa_threaded_mainloop thread. Owns both handles; the destructor
// disconnects and stops the thread. Not thread-safe: one owner thread calls
// it (the audio queue); PulseAudio's own thread only runs the callbacks.
//
// The blocking calls wait with a bound so that a hung server cannot hang the
// caller; they are meant for the audio queue, never for the GUI thread.
class PulseContext {
public:
    enum class ConnectError {
        None,
        AccessDenied, // the server refused this client (PA_ERR_ACCESS)
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
        int sampleFormat = -1;  // pa_sample_format_t
        bool isMonitor = false; // the monitor of a sink, not a microphone

        static SourceInfo fromPa(const pa_source_info& info);
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

    // What a subscription reports: which kind of object, and what happened to it.
    enum class Facility { Source, Server, Other };
    enum class EventType { New, Change, Remove };
    // Runs on PulseAudio's thread: it must only post.
    using SubscriptionHandler = std::function<void(Facility, EventType, std::uint32_t index)>;
    using ConnectionLostHandler = std::function<void()>;

    static constexpr int kDefaultTimeoutMs = 5000;

    PulseContext();
    ~PulseContext();
    PulseContext(const PulseContext&) = delete;
    PulseContext& operator=(const PulseContext&) = delete;

    // Connects to the server named by PULSE_SERVER or the user's default,
    // never spawning one. False with `error` describing why.
    bool connect(const QString& clientName, ConnectError* error, QString* message,
                 int timeoutMs = kDefaultTimeoutMs);
    bool isReady() const;

    // Subscribes to changes of sources and of the server (default devices).
    bool subscribe(SubscriptionHandler handler, int timeoutMs = kDefaultTimeoutMs);
    // Called once, on PulseAudio's thread, when an established connection
    // breaks: the server went away. It must only post.
    void setConnectionLostHandler(ConnectionLostHandler handler);

    std::optional<ServerInfo> serverInfo(int timeoutMs = kDefaultTimeoutMs);
    std::optional<SourceInfo> sourceInfo(const QString& name, int timeoutMs = kDefaultTimeoutMs);
    std::optional<QList<SourceInfo>> sources(int timeoutMs = kDefaultTimeoutMs);

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
    QString lastErrorText() const;
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
