#include "desktopnotifier.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>

namespace sorv {

namespace {

const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kInterface = QStringLiteral("org.freedesktop.Notifications");

} // namespace

DesktopNotifier::DesktopNotifier(QDBusConnection bus, QObject* parent)
    : QObject(parent), m_bus(std::move(bus))
{
    if (!m_bus.isConnected())
        return;
    m_bus.connect(kService, kPath, kInterface, QStringLiteral("ActionInvoked"), this,
                  SLOT(actionInvoked(uint, QString)));
    m_bus.connect(kService, kPath, kInterface, QStringLiteral("NotificationClosed"), this,
                  SLOT(closed(uint, uint)));
}

void DesktopNotifier::uploadFinished(const QString& name, std::function<void()> view)
{
    std::vector<Action> actions;
    if (view)
        actions.push_back(
            {QStringLiteral("view"), QStringLiteral("View recording"), std::move(view)});
    notify(QStringLiteral("Recording uploaded"),
           QStringLiteral("%1 is on the service; its transcript follows.").arg(name),
           std::move(actions));
}

void DesktopNotifier::uploadFailed(const QString& name, const QString& message,
                                   std::function<void()> retry)
{
    std::vector<Action> actions;
    if (retry)
        actions.push_back({QStringLiteral("retry"), QStringLiteral("Retry"), std::move(retry)});
    notify(QStringLiteral("Upload failed"),
           name.isEmpty() ? message : QStringLiteral("%1: %2").arg(name, message),
           std::move(actions));
}

void DesktopNotifier::recordingStopped(const QString& message)
{
    notify(QStringLiteral("Recording stopped"), message);
}

void DesktopNotifier::notify(const QString& summary, const QString& body,
                             std::vector<Action> actions)
{
    if ((m_windowActive && m_windowActive()) || !m_bus.isConnected())
        return;
    QStringList pairs;
    for (const Action& action : actions)
        pairs << action.key << action.label;
    QDBusMessage call =
        QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("Notify"));
    call << QStringLiteral("Sorvelandrix Recorder") << uint(0)
         << QStringLiteral("sorvelandrix-recorder") << summary << body << pairs
         << QVariantMap{{QStringLiteral("desktop-entry"), QStringLiteral("sorvelandrix-recorder")}}
         << -1;
    // No server, or one that does not answer: the watcher just ends.
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call, 5000), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, actions = std::move(actions)](QDBusPendingCallWatcher* w) {
                w->deleteLater();
                const QDBusPendingReply<uint> reply = *w;
                if (!reply.isError() && !actions.empty())
                    m_shown[reply.value()] = actions;
            });
}

void DesktopNotifier::actionInvoked(uint id, const QString& key)
{
    const auto it = m_shown.find(id);
    if (it == m_shown.end())
        return;
    const std::vector<Action> actions = it->second;
    m_shown.erase(it);
    for (const Action& action : actions)
        if (action.key == key && action.run)
            action.run();
}

void DesktopNotifier::closed(uint id, uint /*reason*/)
{
    m_shown.erase(id);
}

} // namespace sorv

#include "moc_desktopnotifier.cpp"
