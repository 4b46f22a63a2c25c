#include "recorderapp.h"

#include "app/floatingpanelcontroller.h"
#include "app/keptrecordings.h"
#include "app/recordercontrol.h"
#include "app/singleinstance.h"
#include "audio/recordingengine.h"
#include "core/log.h"
#include "core/secretstore.h"
#include "core/settings.h"
#include "recording/audiorecorder.h"
#include "service/accountsource.h"
#include "service/authmanager.h"
#include "service/passkeys/passkeymanager.h"
#include "service/passkeys/passkeyoperations.h"
#include "service/passkeys/passkeysmodel.h"
#include "service/recordingslistcontroller.h"
#include "ui/joinmeetingcontroller.h"
#include "ui/recorderscreen.h"
#include "ui/symbolimageprovider.h"
#include "ui/viewhelpers.h"
#include "ui/windowplacement.h"
#include "update/sparkleupdater.h"
#include "video/portalscreencast.h"
#include <QSystemTrayIcon>

#include <QApplication>
#include <QDesktopServices>
#include <QProcess>
#include <QQuickWindow>
#include <QScreen>

#include <cstdio>

namespace sorv {

namespace {
SecretStore::Options secretStoreOptions()
{
    SecretStore::Options options;
    // Someone at the window may be choosing a password for a new keyring.
    options.callWait = std::chrono::seconds(30);
    return options;
}
} // namespace

SorvelandrixRecorderApp::SorvelandrixRecorderApp(QObject* parent)
    : SorvelandrixRecorderApp(nullptr, parent)
{}

SorvelandrixRecorderApp::SorvelandrixRecorderApp(std::unique_ptr<RecordingEngine> engine,
                                                 QObject* parent)
    : QObject(parent), m_secrets(std::make_unique<SecretStore>(secretStoreOptions())),
      m_auth(std::make_unique<AuthManager>(*m_secrets)),
      m_recorder(engine ? std::make_unique<AudioRecorder>(std::move(engine))
                        : std::make_unique<AudioRecorder>()),
      m_passkeyManager(std::make_unique<PasskeyManager>()),
      m_passkeyOps(std::make_unique<PasskeyOperations>(*m_auth, *m_passkeyManager)),
      m_account(std::make_unique<ServiceAccountSource>(*m_auth, m_passkeyOps.get())),
      m_passkeys(std::make_unique<PasskeysModel>(*m_account)),
      m_helpers(std::make_unique<ViewHelpers>()), m_updater(std::make_unique<SparkleUpdater>())
{
    m_updater->setUrlOpener([](const QUrl& url) { return QDesktopServices::openUrl(url); });
    // The answer to a check is shown where the user looks: the window comes
    // forward with it, even when the check came from the tray or the panel.
    connect(m_updater.get(), &SparkleUpdater::alertChanged, this, [this] {
        if (m_updater->alert().kind() != UpdateAlert::Kind::None)
            showMainWindow();
    });
    m_recorderScreen = std::make_unique<RecorderScreen>(*m_recorder, *m_auth);
    m_recorderScreen->setDesktopHooks({[this](const QUrl& url) {
                                           m_helpers->openUrl(url.toString());
                                           return true;
                                       },
                                       [](const QString& program, const QStringList& arguments) {
                                           return QProcess::startDetached(program, arguments);
                                       }});
    m_recorder->setAuthManager(m_auth.get());
    m_recordingsList = std::make_unique<RecordingsListController>(*m_account);
    m_joinMeeting = std::make_unique<JoinMeetingController>(*m_account);
    m_floatingPanel = std::make_unique<FloatingPanelController>(m_engine);
    connect(m_recordingsList.get(), &RecordingsListController::liveTranscriptRequested,
            m_floatingPanel.get(), &FloatingPanelController::show);
    // The panel follows the signed-in account's meeting with its token.
    connect(m_auth.get(), &AuthManager::sessionEnded, m_floatingPanel.get(),
            &FloatingPanelController::close);
    connect(m_auth.get(), &AuthManager::sessionEnded, m_passkeys.get(), &PasskeysModel::clear);
    AppDelegate::Hooks hooks;
    hooks.showMainWindow = [this] { showMainWindow(); };
    hooks.openUrl = [](const QUrl& url) { QDesktopServices::openUrl(url); };
    hooks.quit = [this] { requestQuit(); };
    m_delegate = std::make_unique<AppDelegate>(std::move(hooks));
    m_control =
        std::make_unique<RecorderControl>(*m_recorderScreen, *m_auth, [this] { showMainWindow(); });
    KeptRecordings::Hooks keptHooks;
    keptHooks.windowActive = [this] { return m_window && m_window->isActive(); };
    keptHooks.openUrl = [](const QUrl& url) { QDesktopServices::openUrl(url); };
    keptHooks.showMainWindow = [this] { showMainWindow(); };
    m_kept = std::make_unique<KeptRecordings>(*m_recorder, *m_auth, std::move(keptHooks));
    connect(&m_kept->pending(), &PendingRecordings::countChanged, this,
            [this] { m_delegate->setPendingCount(m_kept->pending().count()); });
}

SorvelandrixRecorderApp::~SorvelandrixRecorderApp()
{
    saveGeometry();
    m_floatingPanel.reset();
    // The views go first: they hold bindings to the controllers below.
    const auto roots = m_engine.rootObjects();
    for (QObject* root : roots)
        delete root;
}

bool SorvelandrixRecorderApp::launch(bool hidden)
{
    m_engine.addImageProvider(QStringLiteral("symbol"), new SymbolImageProvider);
    m_engine.addImportPath(QStringLiteral("qrc:/"));
    m_engine.setInitialProperties({
        {QStringLiteral("auth"), QVariant::fromValue<QObject*>(m_auth.get())},
        {QStringLiteral("recorder"), QVariant::fromValue<QObject*>(m_recorder.get())},
        {QStringLiteral("helpers"), QVariant::fromValue<QObject*>(m_helpers.get())},
        {QStringLiteral("recorderScreen"), QVariant::fromValue<QObject*>(m_recorderScreen.get())},
        {QStringLiteral("updater"), QVariant::fromValue<QObject*>(m_updater.get())},
        {QStringLiteral("appDelegate"), QVariant::fromValue<QObject*>(m_delegate.get())},
        {QStringLiteral("passkeys"), QVariant::fromValue<QObject*>(m_passkeys.get())},
        {QStringLiteral("passkeyOps"), QVariant::fromValue<QObject*>(m_passkeyOps.get())},
        {QStringLiteral("passkeyManager"), QVariant::fromValue<QObject*>(m_passkeyManager.get())},
        {QStringLiteral("recordingsList"), QVariant::fromValue<QObject*>(m_recordingsList.get())},
        {QStringLiteral("joinMeeting"), QVariant::fromValue<QObject*>(m_joinMeeting.get())},
        {QStringLiteral("floatingPanel"), QVariant::fromValue<QObject*>(m_floatingPanel.get())},
        {QStringLiteral("pendingRecordings"), QVariant::fromValue<QObject*>(&m_kept->pending())},
    });
    m_engine.load(QUrl(QStringLiteral("qrc:/Sorvelandrix/Ui/Main.qml")));
    const auto roots = m_engine.rootObjects();
    m_window = roots.isEmpty() ? nullptr : qobject_cast<QQuickWindow*>(roots.first());
    if (!m_window) {
        std::fputs("sorvelandrix-recorder: the main window could not be loaded\n", stderr);
        return false;
    }
    m_window->setIcon(QIcon(QStringLiteral(":/sorvelandrix/sorvelandrix-recorder.svg")));
    // The desktop's sharing dialog belongs to the window. Only an X11 window
    // (Xwayland included) can be named: a Wayland one needs an xdg-foreign
    // export, which Qt 6.4 offers no way to make, so there it goes unnamed.
    PortalScreenCast::setParentWindow([window = QPointer<QQuickWindow>(m_window)] {
        if (!window || !window->isVisible() ||
            QGuiApplication::platformName() != QLatin1String("xcb"))
            return QString();
        return QStringLiteral("x11:%1").arg(window->winId(), 0, 16);
    });
    restoreGeometry();
    m_delegate->applicationDidFinishLaunching();
    // With a tray the application lives on when its window closes; without
    // one, closing the window is the way to quit.
    QApplication::setQuitOnLastWindowClosed(false);
    connect(m_window, &QWindow::visibleChanged, this, [this](bool visible) {
        if (visible) {
            m_windowShown = true;
            contentAppeared();
            return;
        }
        saveGeometry();
        if (!QSystemTrayIcon::isSystemTrayAvailable())
            requestQuit();
    });
    m_control->registerOn(QDBusConnection::sessionBus());
    if (!hidden || !QSystemTrayIcon::isSystemTrayAvailable())
        showMainWindow();
    else
        contentAppeared(); // the tray follows the recorder from the start
    return true;
}

void SorvelandrixRecorderApp::listenTo(SingleInstance& instance)
{
    connect(&instance, &SingleInstance::activationRequested, this,
            &SorvelandrixRecorderApp::showMainWindow);
    connect(&instance, &SingleInstance::commandReceived, m_control.get(),
            &RecorderControl::perform);
}

void SorvelandrixRecorderApp::contentAppeared()
{
    m_delegate->setAuth(m_auth.get());
    m_delegate->setUpdater(m_updater.get());
    m_delegate->bindRecorder(m_recorder.get());
}

void SorvelandrixRecorderApp::showMainWindow()
{
    if (!m_window)
        return;
    m_window->show();
    m_window->raise();
    m_window->requestActivate();
}

void SorvelandrixRecorderApp::requestQuit()
{
    if (m_quitting)
        return;
    m_quitting = true;
    saveGeometry();
    if (!m_recorder->isRecording()) {
        QApplication::quit();
        return;
    }
    // Stopping writes the rest of the audio and closes the file; it then
    // waits in the cache folder for a later save or `sorvelandrix upload`.
    consoleLog(QStringLiteral("⏹️ Stopping the recording before quitting"));
    connect(m_recorder.get(), &AudioRecorder::isRecordingChanged, this, [this] {
        if (!m_recorder->isRecording())
            QApplication::quit();
    });
    m_recorder->stopRecording();
}

void SorvelandrixRecorderApp::restoreGeometry()
{
    const QRect saved = Settings::value(kGeometryKey).toRect();
    if (!saved.isValid())
        return;
    // Whole on a screen that is there now: a monitor may have gone, or the
    // scale changed since it was saved.
    m_window->setGeometry(keptOnScreen(saved, availableScreenAreas(), m_window->minimumSize()));
}

void SorvelandrixRecorderApp::saveGeometry()
{
    if (m_window && m_windowShown)
        Settings::setValue(kGeometryKey, m_window->geometry());
}

} // namespace sorv

#include "moc_recorderapp.cpp"
