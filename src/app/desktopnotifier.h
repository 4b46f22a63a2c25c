#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>

#include <functional>
#include <map>
#include <utility>
#include <vector>

namespace sorv {

// Desktop notifications (org.freedesktop.Notifications on the session bus)
// for what a user whose window is not in front would otherwise miss. Shown
// only while the window is not the active one; without a notification
// server nothing is shown and nothing waits. The calls never block.
class DesktopNotifier : public QObject {
    Q_OBJECT
public:
    struct Action {
        QString key;
        QString label;
        std::function<void()> run;
    };

    explicit DesktopNotifier(QDBusConnection bus = QDBusConnection::sessionBus(),
                             QObject* parent = nullptr);

    // Whether the window is the active one (then nothing is shown).
    void setWindowActive(std::function<bool()> active) { m_windowActive = std::move(active); }

    void uploadFinished(const QString& name, std::function<void()> view);
    void uploadFailed(const QString& name, const QString& message, std::function<void()> retry);
    void recordingStopped(const QString& message);

    void notify(const QString& summary, const QString& body, std::vector<Action> actions = {});

private Q_SLOTS:
    void actionInvoked(uint id, const QString& key);
    void closed(uint id, uint reason);

private:
    QDBusConnection m_bus;
    std::function<bool()> m_windowActive;
    std::map<uint, std::vector<Action>> m_shown; // by the server's id
};

} // namespace sorv
