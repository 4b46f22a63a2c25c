#pragma once

#include "audio/capturebackend.h"
#include "audio/inputdevice.h"
#include "core/serialqueue.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>

namespace sorv {

// Keeps the sound server's list of microphones (and of outputs) current. It
// has its own connection, subscribed to source, sink and server changes, and
// its own queue
// (`com.sorvelandrix.audio.observer`), so a slow server never holds up the
// audio queue or the GUI. When the server goes away it says so and connects
// again on a timer; the list is known from the first contact on, before any
// recording.
class InputDeviceMonitor {
public:
    struct Options {
        // How often a lost (or never reached) server is tried again.
        std::chrono::milliseconds reconnectInterval{1000};
        // The sound server; PulseBackend when not set.
        std::shared_ptr<CaptureBackend> backend;
    };

    // The server as last seen.
    struct Snapshot {
        bool serverAvailable = false;
        QString defaultSourceName;
        QString defaultSinkName;
        QList<CaptureBackend::SourceInfo> sources; // monitors included, server order
        QList<CaptureBackend::SinkInfo> sinks;     // the outputs, server order
        QList<InputDevice> devices;                // the picker's list, sorted
    };

    // What changed between two snapshots.
    struct Change {
        Snapshot snapshot;
        bool first = false;      // the first contact (or the first failure to make one)
        bool serverLost = false; // the connection broke
        bool serverBack = false; // connected again after it had been lost or never made
        bool devicesChanged = false;
        bool defaultSourceChanged = false;
        bool defaultSinkChanged = false;
        QStringList addedSources;
        QStringList removedSources;
        QStringList reconfiguredSources; // same name, but re-created or a new format
        QStringList addedSinks;          // new, or re-created under the same name
        QStringList removedSinks;

        bool isEmpty() const
        {
            return !first && !serverLost && !serverBack && !devicesChanged &&
                   !defaultSourceChanged && !defaultSinkChanged && addedSources.isEmpty() &&
                   removedSources.isEmpty() && reconfiguredSources.isEmpty() &&
                   addedSinks.isEmpty() && removedSinks.isEmpty();
        }
    };
    // Called on the monitor's queue for every change; it must only copy and post.
    using Listener = std::function<void(const Change&)>;

    // Pure: the change from one snapshot to the next.
    static Change compare(const Snapshot& before, const Snapshot& after);

    explicit InputDeviceMonitor(Listener listener) : InputDeviceMonitor(std::move(listener), {}) {}
    InputDeviceMonitor(Listener listener, Options options);
    ~InputDeviceMonitor();
    InputDeviceMonitor(const InputDeviceMonitor&) = delete;
    InputDeviceMonitor& operator=(const InputDeviceMonitor&) = delete;

    // Any thread, never blocks.
    Snapshot snapshot() const;
    QList<InputDevice> devices() const;

private:
    void connectToServer();
    void scheduleReconnect();
    void scheduleRefresh();
    void refresh();
    void connectionLost();
    void publish(const Snapshot& next);

    Options m_options;
    Listener m_listener;
    SerialQueue m_queue{QStringLiteral("com.sorvelandrix.audio.observer")};

    // Queue state.
    std::unique_ptr<CaptureBackend::Connection> m_context;
    bool m_refreshPending = false;
    bool m_published = false;
    bool m_stopping = false;

    mutable std::mutex m_lock;
    Snapshot m_snapshot;
};

} // namespace sorv
