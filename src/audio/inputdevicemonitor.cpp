#include "inputdevicemonitor.h"

#include "audio/inputdevicelist.h"
#include "audio/pulsebackend.h"
#include "core/log.h"

#include <QTimer>

namespace sorv {

namespace {

const QString kMonitorClientName = QStringLiteral("Sorvelandrix Recorder devices");
// Bounded so that a hung server only delays the next attempt.
constexpr int kQueryTimeoutMs = 2000;

template <typename Info> const Info* find(const QList<Info>& list, const QString& name)
{
    for (const auto& i : list)
        if (i.name == name)
            return &i;
    return nullptr;
}

} // namespace

InputDeviceMonitor::Change InputDeviceMonitor::compare(const Snapshot& before,
                                                       const Snapshot& after)
{
    Change change;
    change.snapshot = after;
    change.serverLost = before.serverAvailable && !after.serverAvailable;
    change.serverBack = !before.serverAvailable && after.serverAvailable;
    change.devicesChanged = before.devices != after.devices;
    if (!before.serverAvailable || !after.serverAvailable)
        return change;
    change.defaultSourceChanged = before.defaultSourceName != after.defaultSourceName;
    change.defaultSinkChanged = before.defaultSinkName != after.defaultSinkName;
    for (const auto& now : after.sources) {
        const auto* was = find(before.sources, now.name);
        if (!was)
            change.addedSources << now.name;
        else if (!was->sameConfiguration(now))
            change.reconfiguredSources << now.name;
    }
    for (const auto& was : before.sources)
        if (!find(after.sources, was.name))
            change.removedSources << was.name;
    // An output re-created under its name (unplugged and plugged in again
    // between two looks) is a new one too.
    for (const auto& now : after.sinks)
        if (const auto* was = find(before.sinks, now.name); !was || was->index != now.index)
            change.addedSinks << now.name;
    for (const auto& was : before.sinks)
        if (!find(after.sinks, was.name))
            change.removedSinks << was.name;
    return change;
}

InputDeviceMonitor::InputDeviceMonitor(Listener listener, Options options)
    : m_options(std::move(options)), m_listener(std::move(listener))
{
    if (!m_options.backend)
        m_options.backend = PulseBackend::shared();
    m_queue.post([this] { connectToServer(); });
}

InputDeviceMonitor::~InputDeviceMonitor()
{
    // The connection's callbacks post here: end it first, then the queue.
    m_queue.postAndWait([this] {
        m_stopping = true;
        m_context.reset();
    });
    m_queue.shutdown();
}

InputDeviceMonitor::Snapshot InputDeviceMonitor::snapshot() const
{
    std::lock_guard lock(m_lock);
    return m_snapshot;
}

QList<InputDevice> InputDeviceMonitor::devices() const
{
    std::lock_guard lock(m_lock);
    return m_snapshot.devices;
}

void InputDeviceMonitor::connectToServer()
{
    if (m_stopping || m_context)
        return;
    CaptureBackend::ConnectError error = CaptureBackend::ConnectError::None;
    QString message;
    auto context =
        m_options.backend->connect(kMonitorClientName, &error, &message, kQueryTimeoutMs);
    if (!context) {
        if (!m_published)
            publish(Snapshot{});
        scheduleReconnect();
        return;
    }
    context->setConnectionLostHandler([this] { m_queue.post([this] { connectionLost(); }); });
    const bool subscribed = context->subscribe(
        [this](CaptureBackend::Facility facility, CaptureBackend::EventType, std::uint32_t) {
            if (facility != CaptureBackend::Facility::Other)
                m_queue.post([this] { scheduleRefresh(); });
        },
        kQueryTimeoutMs);
    if (!subscribed) {
        consoleLog(QStringLiteral("⚠️ Could not follow the sound server's devices: %1")
                       .arg(context->lastErrorText()));
        scheduleReconnect();
        return;
    }
    m_context = std::move(context);
    refresh();
}

void InputDeviceMonitor::scheduleReconnect()
{
    if (m_stopping)
        return;
    QTimer::singleShot(m_options.reconnectInterval, m_queue.context(),
                       [this] { connectToServer(); });
}

void InputDeviceMonitor::scheduleRefresh()
{
    // A module load or unload sends a burst of events: one listing serves them all.
    if (m_refreshPending)
        return;
    m_refreshPending = true;
    m_queue.post([this] {
        m_refreshPending = false;
        refresh();
    });
}

void InputDeviceMonitor::refresh()
{
    if (m_stopping || !m_context)
        return;
    const auto server = m_context->serverInfo(kQueryTimeoutMs);
    const auto sources = server ? m_context->sources(kQueryTimeoutMs) : std::nullopt;
    const auto sinks = sources ? m_context->sinks(kQueryTimeoutMs) : std::nullopt;
    if (!server || !sources || !sinks) {
        // The connection broke under the query; its lost handler follows.
        // Anything else (a slow answer) is tried again on the next event.
        if (!m_context->isReady())
            connectionLost();
        return;
    }
    Snapshot next;
    next.serverAvailable = true;
    next.defaultSourceName = server->defaultSourceName;
    next.defaultSinkName = server->defaultSinkName;
    next.sources = *sources;
    next.sinks = *sinks;
    next.devices = inputDevicesFromSources(next.sources, next.defaultSourceName);
    publish(next);
}

void InputDeviceMonitor::connectionLost()
{
    if (m_stopping || !m_context)
        return;
    m_context.reset();
    publish(Snapshot{});
    scheduleReconnect();
}

void InputDeviceMonitor::publish(const Snapshot& next)
{
    Snapshot before;
    {
        std::lock_guard lock(m_lock);
        before = std::move(m_snapshot);
        m_snapshot = next;
    }
    Change change = compare(before, next);
    change.first = !m_published;
    m_published = true;
    if (change.serverLost)
        consoleLog(QStringLiteral("⚠️ Sound server went away; trying again every %1 ms")
                       .arg(m_options.reconnectInterval.count()));
    else if (change.serverBack && !change.first)
        consoleLog(QStringLiteral("✅ Sound server answers again"));
    if (!change.isEmpty() && m_listener)
        m_listener(change);
}

} // namespace sorv
