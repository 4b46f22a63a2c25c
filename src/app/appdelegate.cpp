#include "appdelegate.h"

#include "core/settings.h"
#include "service/authmanager.h"
#include "ui/symbols.h"

#include <QAction>
#include <QGuiApplication>
#include <QMenu>
#include <QMetaProperty>
#include <QPalette>
#include <QSystemTrayIcon>

#include <cstdio>

namespace sorv {

namespace {

constexpr int kIconSize = 18;
const QColor kRecordingRed(0xff, 0x3b, 0x30);
const QColor kProcessingOrange(0xff, 0x95, 0x00);

bool boolProperty(const QObject* object, const char* name)
{
    return object && object->property(name).toBool();
}

} // namespace

AppDelegate::AppDelegate(Hooks hooks, QObject* parent) : QObject(parent), m_hooks(std::move(hooks))
{
    m_throttle.setSingleShot(true);
    m_throttle.setInterval(kThrottleMs);
    connect(&m_throttle, &QTimer::timeout, this, [this] {
        if (!m_changedDuringThrottle)
            return;
        // The latest change of the interval, delivered at its end; the
        // interval starts again so bursts stay at four redraws a second.
        m_changedDuringThrottle = false;
        m_throttle.start();
        QMetaObject::invokeMethod(this, &AppDelegate::updateStatusItem, Qt::QueuedConnection);
    });
    m_pulseTimer.setInterval(kPulseMs);
    connect(&m_pulseTimer, &QTimer::timeout, this, &AppDelegate::togglePulse);
}

AppDelegate::~AppDelegate() = default;

void AppDelegate::setIntervals(int throttleMs, int pulseMs)
{
    m_throttle.setInterval(throttleMs);
    m_pulseTimer.setInterval(pulseMs);
}

void AppDelegate::applicationDidFinishLaunching()
{
    m_statusItem = std::make_unique<QSystemTrayIcon>();
    connect(m_statusItem.get(), &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick)
                    showMainWindow();
            });
    updateStatusItem();
    buildMenu();
    m_statusItem->setContextMenu(m_menu.get());
    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        std::fputs("sorvelandrix-recorder: this desktop has no system tray (no StatusNotifier "
                   "host or XEmbed tray answers), so there is no tray icon; the main window "
                   "stays open instead. A tray that starts later shows the icon.\n",
                   stderr);
    }
    m_statusItem->show();
}

void AppDelegate::buildMenu()
{
    m_menu = std::make_unique<QMenu>();
    // Tray hosts show no text beside the icon: the recording time is the
    // menu's first line instead (shown only while recording).
    m_titleAction = m_menu->addAction(m_display.title);
    m_titleAction->setEnabled(false);
    m_titleSeparator = m_menu->addSeparator();
    m_titleAction->setVisible(!m_display.title.isEmpty());
    m_titleSeparator->setVisible(!m_display.title.isEmpty());

    m_menu->addAction(tr("Open Sorvelandrix"), this, &AppDelegate::showMainWindow);
    m_pendingAction = m_menu->addAction(QString(), this, &AppDelegate::showMainWindow);
    setPendingCount(m_pendingCount);
    m_menu->addSeparator();
    m_menu->addAction(tr("Open Dashboard in Browser"), this, &AppDelegate::openDashboard);
    m_menu->addSeparator();
    m_menu->addAction(tr("Check for Updates…"), this, &AppDelegate::checkForUpdates);
    m_menu->addSeparator();
    QAction* quit = m_menu->addAction(tr("Quit Sorvelandrix"), this, &AppDelegate::quitApp);
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
}

void AppDelegate::setPendingCount(int count)
{
    m_pendingCount = count;
    if (!m_pendingAction)
        return;
    m_pendingAction->setText(count == 1 ? tr("1 recording not uploaded")
                                        : tr("%1 recordings not uploaded").arg(count));
    m_pendingAction->setVisible(count > 0);
}

void AppDelegate::bindRecorder(QObject* recorder)
{
    for (const auto& c : std::as_const(m_subscription))
        disconnect(c);
    m_subscription.clear();
    m_recorder = recorder;
    if (recorder) {
        const QMetaObject* meta = recorder->metaObject();
        const QMetaMethod changed =
            metaObject()->method(metaObject()->indexOfMethod("recorderChanged()"));
        for (const char* name : {"isRecording", "isProcessing", "elapsed"}) {
            const QMetaProperty property = meta->property(meta->indexOfProperty(name));
            if (property.hasNotifySignal())
                m_subscription.append(connect(recorder, property.notifySignal(), this, changed));
        }
    }
    updateStatusItem();
}

void AppDelegate::recorderChanged()
{
    if (m_throttle.isActive()) {
        m_changedDuringThrottle = true;
        return;
    }
    m_throttle.start();
    QMetaObject::invokeMethod(this, &AppDelegate::updateStatusItem, Qt::QueuedConnection);
}

bool AppDelegate::recorderIsRecording() const
{
    return boolProperty(m_recorder, "isRecording");
}

void AppDelegate::updateStatusItem()
{
    if (!m_statusItem)
        return;
    const QObject* recorder = m_recorder;
    const bool recording = recorderIsRecording();
    if (recording)
        startPulse();
    else
        stopPulse();
    m_display =
        statusDisplayFor(recording, boolProperty(recorder, "isProcessing"),
                         recorder ? recorder->property("elapsed").toDouble() : 0.0, m_pulseToggle);
    drawIcon(m_display.icon, m_display.accessibleName);
    m_statusItem->setToolTip(m_display.tooltip);
    if (m_titleAction) {
        m_titleAction->setText(m_display.title);
        m_titleAction->setVisible(!m_display.title.isEmpty());
        m_titleSeparator->setVisible(!m_display.title.isEmpty());
    }
    Q_EMIT statusItemUpdated();
}

void AppDelegate::drawIcon(StatusDisplay::Icon icon, const QString& accessibleName)
{
    QIcon image;
    switch (icon) {
    case StatusDisplay::Icon::RecordFilled:
        image = symbols::icon(QStringLiteral("record-fill"), kRecordingRed, kIconSize);
        break;
    case StatusDisplay::Icon::RecordOutlined:
        image = symbols::icon(QStringLiteral("record"), kRecordingRed, kIconSize);
        break;
    case StatusDisplay::Icon::Processing:
        image = symbols::icon(QStringLiteral("waveform-circle"), kProcessingOrange, kIconSize);
        break;
    case StatusDisplay::Icon::Idle:
        // Monochrome, in the text colour of the desktop's palette, so it
        // reads on a light and on a dark panel; hosts that honour masks
        // recolour it themselves.
        image = symbols::icon(QStringLiteral("waveform-circle"),
                              QGuiApplication::palette().color(QPalette::WindowText), kIconSize);
        image.setIsMask(true);
        break;
    }
    m_statusItem->setIcon(image);
    m_statusItem->setProperty("accessibleName", accessibleName);
    ++m_iconDraws;
}

void AppDelegate::startPulse()
{
    if (m_pulseTimer.isActive())
        return;
    m_pulseToggle = true;
    m_pulseTimer.start();
}

void AppDelegate::stopPulse()
{
    m_pulseTimer.stop();
    m_pulseToggle = false;
}

void AppDelegate::togglePulse()
{
    m_pulseToggle = !m_pulseToggle;
    if (m_statusItem && recorderIsRecording())
        drawIcon(recordingIcon(m_pulseToggle), m_display.accessibleName);
}

void AppDelegate::showMainWindow()
{
    if (m_hooks.showMainWindow)
        m_hooks.showMainWindow();
}

void AppDelegate::openDashboard()
{
    // The origin this run talks to: the --server override, else the stored
    // setting as it was typed (a trailing slash stays), else the default.
    std::optional<QString> origin;
    if (m_auth)
        origin = Settings::serverOrigin();
    if (const auto url = dashboardUrl(origin); url && m_hooks.openUrl)
        m_hooks.openUrl(*url);
}

void AppDelegate::checkForUpdates()
{
    if (m_updater)
        QMetaObject::invokeMethod(m_updater, "checkForUpdates");
}

void AppDelegate::quitApp()
{
    if (m_hooks.quit)
        m_hooks.quit();
}

} // namespace sorv

#include "moc_appdelegate.cpp"
