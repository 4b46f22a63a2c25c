#pragma once

#include "app/statusdisplay.h"
#include "service/authmanager.h"

#include <QIcon>
#include <QObject>
#include <QPointer>
#include <QTimer>

#include <functional>
#include <memory>

class QAction;
class QMenu;
class QSystemTrayIcon;

namespace sorv {

// The tray: an icon that says whether a recording runs (with its time in the
// tooltip and as the menu's first line, since tray hosts show no text beside
// icons), is being processed, or nothing happens; and the menu that opens the
// window, the web dashboard, the update check and quits.
//
// It only observes the recorder's published state (`isRecording`,
// `isProcessing`, `elapsed` and their change signals), holds the recorder
// weakly and redraws at most four times a second from its changes, plus one
// pulse tick every 1.5 s while recording.
class AppDelegate : public QObject {
    Q_OBJECT

public:
    struct Hooks {
        std::function<void()> showMainWindow;
        std::function<void(const QUrl&)> openUrl;
        std::function<void()> quit;
    };
    static constexpr int kThrottleMs = 250;
    static constexpr int kPulseMs = 1500;

    explicit AppDelegate(Hooks hooks, QObject* parent = nullptr);
    ~AppDelegate() override;

    // Creates the tray icon and its menu. Without a tray host the icon waits
    // for one (hosts that start later pick it up) and standard error says
    // once why nothing shows.
    void applicationDidFinishLaunching();

    void setAuth(AuthManager* auth) { m_auth = auth; }
    // Any object with a checkForUpdates() slot.
    void setUpdater(QObject* updater) { m_updater = updater; }
    // Follows this recorder from now on (replacing any earlier one).
    void bindRecorder(QObject* recorder);
    // "N recordings not uploaded" in the menu while N > 0.
    void setPendingCount(int count);

    // Redraws icon, title and tooltip from the recorder's state.
    void updateStatusItem();

    // For the views and tests.
    const StatusDisplay& display() const { return m_display; }
    QSystemTrayIcon* statusItem() const { return m_statusItem.get(); }
    QMenu* menu() const { return m_menu.get(); }
    bool isPulseRunning() const { return m_pulseTimer.isActive(); }
    bool pulseToggle() const { return m_pulseToggle; }
    int iconDraws() const { return m_iconDraws; }
    // Shorter intervals for tests.
    void setIntervals(int throttleMs, int pulseMs);

public Q_SLOTS:
    void showMainWindow();
    void openDashboard();
    void checkForUpdates();
    void quitApp();

Q_SIGNALS:
    void statusItemUpdated();

private Q_SLOTS:
    void recorderChanged();

private:
    void startPulse();
    void stopPulse();
    void togglePulse();
    void drawIcon(StatusDisplay::Icon icon, const QString& accessibleName);
    bool recorderIsRecording() const;
    void buildMenu();

    Hooks m_hooks;
    std::unique_ptr<QSystemTrayIcon> m_statusItem;
    std::unique_ptr<QMenu> m_menu;
    QAction* m_titleAction = nullptr;
    QAction* m_titleSeparator = nullptr;
    QAction* m_pendingAction = nullptr;
    int m_pendingCount = 0;
    QPointer<AuthManager> m_auth;
    QPointer<QObject> m_updater;
    QPointer<QObject> m_recorder;
    QList<QMetaObject::Connection> m_subscription;
    QTimer m_throttle;
    bool m_changedDuringThrottle = false;
    QTimer m_pulseTimer;
    bool m_pulseToggle = false;
    StatusDisplay m_display;
    int m_iconDraws = 0;
};

} // namespace sorv
