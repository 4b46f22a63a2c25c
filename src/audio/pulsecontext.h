#pragma once

#include <QList>
#include <QString>

#include <cstdint>
#include <functional>
#include <optional>

struct pa_threaded_mainloop;
struct pa_context;

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
        std::uint32_t channels = 0;
        bool isMonitor = false; // the monitor of a sink, not a microphone
    };

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

    pa_threaded_mainloop* m_mainloop = nullptr;
    pa_context* m_context = nullptr;
};

} // namespace sorv
