// The application as the desktop sees it over its session bus, on a private
// bus (dbus-run-session) and a private X server: its tray registers as a
// StatusNotifierItem with a stand-in watcher, exports the tray menu over
// com.canonical.dbusmenu and changes the item's icon with the recorder's
// state; and com.sorvelandrix.Recorder starts and stops recordings (the
// consent rule and sign-in still apply), as does `sorvelandrix-recorder
// --toggle` started as its own process.

#include "app/appdelegate.h"
#include "app/recorderapp.h"
#include "app/recordercontrol.h"
#include "app/singleinstance.h"
#include "core/settings.h"
#include "localservicefixture.h"
#include "qmlfinder.h"
#include "recording/audiorecorder.h"
#include "service/authmanager.h"
#include "support/isolatedenvironment.h"
#include "support/scriptedengine.h"
#include "ui/recorderscreen.h"
#include "ui/recordingconsent.h"
#include "ui/viewhelpers.h"

#include <QCryptographicHash>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMetaType>
#include <QDBusPendingCall>
#include <QDBusVariant>
#include <QMutex>
#include <QProcess>
#include <QQuickWindow>
#include <QTest>
#include <QThread>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(Sorvelandrix_UiPlugin)

using namespace sorv;
using local::LocalService;

namespace {

constexpr int kWaitMs = 20000;
const QString kProperties = QStringLiteral("org.freedesktop.DBus.Properties");

// org.kde.StatusNotifierWatcher as a tray host runs it, with a host already
// registered. It lives on its own thread and connection: Qt asks it
// synchronously whether a host is there.
class StandInWatcher : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ isHostRegistered)
    Q_PROPERTY(int ProtocolVersion READ protocolVersion)
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems READ items)

public:
    bool isHostRegistered() const { return true; }
    int protocolVersion() const { return 0; }
    QStringList items() const
    {
        const QMutexLocker lock(&m_mutex);
        return m_items;
    }

public Q_SLOTS:
    void RegisterStatusNotifierItem(const QString& service)
    {
        const QMutexLocker lock(&m_mutex);
        m_items << service;
    }
    void RegisterStatusNotifierHost(const QString&) {}

private:
    mutable QMutex m_mutex;
    QStringList m_items;
};

// Answers PropertiesChanged of com.sorvelandrix.Recorder.
class ChangeRecorder : public QObject {
    Q_OBJECT
public:
    QStringList states;

public Q_SLOTS:
    void changed(const QString& interface, const QVariantMap& properties, const QStringList&)
    {
        if (interface == RecorderControl::kInterface && properties.contains("State"))
            states << properties.value("State").toString();
    }
};

} // namespace

class TestDesktopBus : public QObject {
    Q_OBJECT

    QThread m_watcherThread;
    StandInWatcher* m_watcher = nullptr;
    // The test's own connection, as another program on the desktop.
    QDBusConnection m_client{QStringLiteral("none")};
    std::unique_ptr<test::IsolatedEnvironment> m_env;
    std::unique_ptr<test::LocalServiceFixture> m_service;
    std::unique_ptr<SorvelandrixRecorderApp> m_app;

    // Calls without blocking: the callee lives on this thread.
    QDBusMessage call(const QString& service, const QString& path, const QString& interface,
                      const QString& method, const QVariantList& arguments = {})
    {
        QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, method);
        message.setArguments(arguments);
        QDBusPendingCall pending = m_client.asyncCall(message);
        if (!QTest::qWaitFor([&] { return pending.isFinished(); }, kWaitMs))
            qWarning("no answer to %s", qPrintable(method));
        return pending.reply();
    }
    QVariant property(const QString& service, const QString& path, const QString& interface,
                      const QString& name)
    {
        const QDBusMessage reply =
            call(service, path, kProperties, QStringLiteral("Get"), {interface, name});
        return reply.arguments().isEmpty()
                   ? QVariant()
                   : reply.arguments().constFirst().value<QDBusVariant>().variant();
    }
    QVariant recorderProperty(const QString& name)
    {
        return property(RecorderControl::kService, RecorderControl::kPath,
                        RecorderControl::kInterface, name);
    }
    QDBusMessage control(const QString& method, const QVariantList& arguments = {})
    {
        return call(RecorderControl::kService, RecorderControl::kPath, RecorderControl::kInterface,
                    method, arguments);
    }
    // A fingerprint of the item's IconPixmap (a(iiay)).
    QByteArray iconOf(const QString& item)
    {
        const QVariant value =
            property(item, QStringLiteral("/StatusNotifierItem"),
                     QStringLiteral("org.kde.StatusNotifierItem"), QStringLiteral("IconPixmap"));
        const auto argument = value.value<QDBusArgument>();
        QCryptographicHash hash(QCryptographicHash::Sha1);
        argument.beginArray();
        while (!argument.atEnd()) {
            int width = 0;
            int height = 0;
            QByteArray bytes;
            argument.beginStructure();
            argument >> width >> height >> bytes;
            argument.endStructure();
            hash.addData(bytes);
        }
        argument.endArray();
        return hash.result();
    }
    // The labels of the exported menu's top level, "-" for separators.
    QStringList exportedMenu(const QString& item, const QString& menuPath)
    {
        const QDBusMessage reply = call(
            item, menuPath, QStringLiteral("com.canonical.dbusmenu"), QStringLiteral("GetLayout"),
            {0, -1,
             QStringList{QStringLiteral("label"), QStringLiteral("type"),
                         QStringLiteral("visible")}});
        QStringList labels;
        if (reply.arguments().size() < 2)
            return labels;
        const auto layout = reply.arguments().at(1).value<QDBusArgument>();
        int id = 0;
        QVariantMap rootProperties;
        layout.beginStructure();
        layout >> id >> rootProperties;
        layout.beginArray();
        while (!layout.atEnd()) {
            const auto child = qdbus_cast<QDBusVariant>(layout).variant().value<QDBusArgument>();
            QVariantMap properties;
            child.beginStructure();
            child >> id >> properties;
            child.endStructure();
            if (properties.value(QStringLiteral("visible"), true).toBool()) {
                labels << (properties.value(QStringLiteral("type")) == "separator"
                               ? QStringLiteral("-")
                               : properties.value(QStringLiteral("label")).toString());
            }
        }
        return labels;
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
            QSKIP("needs a private session bus (dbus-run-session)");
        m_client = QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                                 QStringLiteral("test-client"));
        QVERIFY(m_client.isConnected());
        // Qt looks for a tray host once, at the first tray icon: the watcher
        // is there before.
        m_watcher = new StandInWatcher;
        m_watcher->moveToThread(&m_watcherThread);
        connect(&m_watcherThread, &QThread::finished, m_watcher, &QObject::deleteLater);
        m_watcherThread.start();
        auto watcherBus = QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                                        QStringLiteral("test-watcher"));
        QVERIFY(watcherBus.registerObject(QStringLiteral("/StatusNotifierWatcher"), m_watcher,
                                          QDBusConnection::ExportAllSlots |
                                              QDBusConnection::ExportAllProperties));
        QVERIFY(watcherBus.registerService(QStringLiteral("org.kde.StatusNotifierWatcher")));

        m_env = std::make_unique<test::IsolatedEnvironment>();
        // The single-instance socket of this run, where a second start finds it.
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_env->path(QStringLiteral("runtime"))));
        m_service = std::make_unique<test::LocalServiceFixture>();
        auto engine = std::make_unique<test::ScriptedEngine>();
        engine->devices = test::ScriptedEngine::twoMicrophones();
        engine->seconds = 2;
        m_app = std::make_unique<SorvelandrixRecorderApp>(std::move(engine));
        m_app->helpers().setUrlOpener([](const QUrl&) {});
        QVERIFY(m_app->launch(/*hidden=*/true));
    }
    void cleanupTestCase()
    {
        m_app.reset();
        m_watcherThread.quit();
        m_watcherThread.wait();
    }

    // On KDE, GNOME with AppIndicator or waybar, the icon and its menu
    // reach the panel only this way.
    void trayIsAStatusNotifierItemWithItsMenuAndIcons()
    {
        QTRY_COMPARE_WITH_TIMEOUT(m_watcher->items().size(), 1, kWaitMs);
        const QString item = m_watcher->items().constFirst();
        // A start at login with a tray: the window stays closed.
        QVERIFY(!m_app->mainWindow()->isVisible());

        const auto menuPath =
            property(item, QStringLiteral("/StatusNotifierItem"),
                     QStringLiteral("org.kde.StatusNotifierItem"), QStringLiteral("Menu"))
                .value<QDBusObjectPath>();
        QVERIFY(!menuPath.path().isEmpty());
        QCOMPARE(exportedMenu(item, menuPath.path()),
                 QStringList({"Open Sorvelandrix", "-", "Open Dashboard in Browser", "-",
                              "Check for Updates…", "-", "Quit Sorvelandrix"}));

        // Idle, recording and processing look different on the panel.
        const QByteArray idle = iconOf(item);
        QVERIFY(!idle.isEmpty());
        m_app->auth().login(LocalService::kDemoEmail, LocalService::kDemoPassword);
        QTRY_VERIFY_WITH_TIMEOUT(m_app->auth().isLoggedIn(), kWaitMs);
        Settings::setValue(RecordingConsent::kAcknowledgedKey, true);
        AudioRecorder& recorder = m_app->recorder();
        // One recording icon: the pulse would alternate two.
        m_app->appDelegate().setIntervals(AppDelegate::kThrottleMs, 3600 * 1000);
        m_app->recorderScreen().pressMainButton();
        // The tray redraws at most four times a second: each state is read
        // off the item once the tray has drawn it.
        const auto drawn = [this](StatusDisplay::Icon icon) {
            return m_app->appDelegate().display().icon == icon;
        };
        QTRY_VERIFY_WITH_TIMEOUT(drawn(StatusDisplay::Icon::RecordFilled), kWaitMs);
        const QByteArray recording = iconOf(item);
        QVERIFY(recording != idle);
        m_app->recorderScreen().pressMainButton();
        QTRY_VERIFY_WITH_TIMEOUT(!recorder.isRecording(), kWaitMs);
        QTRY_VERIFY_WITH_TIMEOUT(drawn(StatusDisplay::Icon::Processing), kWaitMs);
        const QByteArray processing = iconOf(item);
        QVERIFY(processing != recording && processing != idle);
        m_app->recorderScreen().discard();
        QTRY_VERIFY_WITH_TIMEOUT(drawn(StatusDisplay::Icon::Idle), kWaitMs);
        QCOMPARE(iconOf(item), idle);
        m_app->auth().logout();
        QTRY_VERIFY(!m_app->auth().isLoggedIn());
    }

    void controlInterfaceStartsAndStops()
    {
        ChangeRecorder changes;
        QVERIFY(m_client.connect(RecorderControl::kService, RecorderControl::kPath, kProperties,
                                 QStringLiteral("PropertiesChanged"), &changes,
                                 SLOT(changed(QString, QVariantMap, QStringList))));
        QTRY_COMPARE(recorderProperty("State").toString(), QStringLiteral("idle"));
        m_app->mainWindow()->hide();

        // Signed out: the window opens on the sign-in form, and the caller
        // is told why nothing records.
        QDBusMessage reply = control("StartRecording", {QStringLiteral("audio")});
        QCOMPARE(reply.errorName(), QStringLiteral("com.sorvelandrix.Recorder.Error.SignedOut"));
        QTRY_VERIFY(m_app->mainWindow()->isVisible());

        m_app->auth().login(LocalService::kDemoEmail, LocalService::kDemoPassword);
        QTRY_VERIFY_WITH_TIMEOUT(m_app->auth().isLoggedIn(), kWaitMs);
        reply = control("StartRecording", {QStringLiteral("radio")});
        QCOMPARE(reply.errorName(), QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs"));

        // Consent not given: the window comes up with the sheet, and
        // nothing records until it is agreed to.
        Settings::setValue(RecordingConsent::kAcknowledgedKey, false);
        m_app->mainWindow()->hide();
        reply = control("StartRecording", {QStringLiteral("audio")});
        QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
        QVERIFY(m_app->recorderScreen().showingConsentSheet());
        QTRY_VERIFY(m_app->mainWindow()->isVisible());
        QCOMPARE(recorderProperty("State").toString(), QStringLiteral("idle"));
        RecordingConsent* consent = m_app->recorderScreen().consent();
        consent->setAcknowledged(true);
        consent->agree();
        QTRY_COMPARE_WITH_TIMEOUT(recorderProperty("State").toString(), QStringLiteral("recording"),
                                  kWaitMs);
        QVERIFY(!m_app->recorderScreen().recordVideo());
        QCOMPARE(recorderProperty("Elapsed").typeId(), QMetaType::Double);

        // A keyboard shortcut's `sorvelandrix-recorder --toggle` stops it.
        SingleInstance instance;
        QVERIFY(instance.claim());
        m_app->listenTo(instance);
        QProcess second;
        second.start(test::buildDirectory() + QStringLiteral("/src/app/sorvelandrix-recorder"),
                     {QStringLiteral("--toggle")});
        QTRY_VERIFY_WITH_TIMEOUT(second.state() == QProcess::NotRunning, kWaitMs);
        QCOMPARE(second.exitCode(), 0);
        QTRY_COMPARE_WITH_TIMEOUT(recorderProperty("State").toString(),
                                  QStringLiteral("pendingSave"), kWaitMs);
        // Waiting for Save or Discard, so not started again.
        reply = control("ToggleRecording");
        QCOMPARE(reply.errorName(), QStringLiteral("com.sorvelandrix.Recorder.Error.Busy"));
        m_app->recorderScreen().discard();

        QTRY_VERIFY_WITH_TIMEOUT(changes.states.contains("idle"), kWaitMs);
        const auto started = changes.states.indexOf("recording");
        QVERIFY2(started >= 0 && changes.states.indexOf("pendingSave") > started,
                 qPrintable(changes.states.join(' ')));
        reply = control("ToggleRecording");
        QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
        QTRY_COMPARE_WITH_TIMEOUT(recorderProperty("State").toString(), QStringLiteral("recording"),
                                  kWaitMs);
        QCOMPARE(control("StopRecording").type(), QDBusMessage::ReplyMessage);
        QTRY_COMPARE_WITH_TIMEOUT(recorderProperty("State").toString(),
                                  QStringLiteral("pendingSave"), kWaitMs);
        m_app->recorderScreen().discard();
    }
};

SORV_WINDOW_TEST_MAIN(TestDesktopBus)

#include "tst_desktop_bus.moc"
