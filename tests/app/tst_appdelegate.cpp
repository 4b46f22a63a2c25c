// The tray: which display each recorder state gets, the elapsed text, the
// pulse timer, the weak recorder reference and the dashboard address.

#include "app/appdelegate.h"
#include "app/desktopnotifier.h"
#include "app/statusdisplay.h"
#include "core/settings.h"
#include "support/isolatedenvironment.h"

#include "core/secretstore.h"
#include "service/authmanager.h"
#include <QAction>
#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QMenu>
#include <QProcess>
#include <QSignalSpy>
#include <QSystemTrayIcon>
#include <QTest>

using namespace sorv;

namespace {

// What the tray reads of a recorder: three published fields.
class Publisher : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isRecording READ isRecording NOTIFY isRecordingChanged)
    Q_PROPERTY(bool isProcessing READ isProcessing NOTIFY isProcessingChanged)
    Q_PROPERTY(double elapsed READ elapsed NOTIFY elapsedChanged)
public:
    bool isRecording() const { return m_recording; }
    bool isProcessing() const { return m_processing; }
    double elapsed() const { return m_elapsed; }
    void setRecording(bool v)
    {
        m_recording = v;
        Q_EMIT isRecordingChanged();
    }
    void setProcessing(bool v)
    {
        m_processing = v;
        Q_EMIT isProcessingChanged();
    }
    void setElapsed(double v)
    {
        m_elapsed = v;
        Q_EMIT elapsedChanged();
    }
Q_SIGNALS:
    void isRecordingChanged();
    void isProcessingChanged();
    void elapsedChanged();

private:
    bool m_recording = false;
    bool m_processing = false;
    double m_elapsed = 0;
};

// A notification server on a private bus that records what it is sent.
class NotificationServer : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    struct Shown {
        QString summary;
        QString body;
        QStringList actions;
    };
    QList<Shown> shown;

public Q_SLOTS:
    uint Notify(const QString& /*app*/, uint /*replaces*/, const QString& /*icon*/,
                const QString& summary, const QString& body, const QStringList& actions,
                const QVariantMap& /*hints*/, int /*timeout*/)
    {
        shown.append({summary, body, actions});
        return static_cast<uint>(shown.size());
    }
};

QStringList menuTexts(const QMenu* menu)
{
    QStringList texts;
    for (const QAction* a : menu->actions())
        if (a->isVisible())
            texts << (a->isSeparator() ? QStringLiteral("-") : a->text());
    return texts;
}

} // namespace

class TestAppDelegate : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void displayForEachState()
    {
        const StatusDisplay processing = statusDisplayFor(false, true, 12, false);
        QCOMPARE(processing.tooltip, QStringLiteral("Sorvelandrix — processing…"));
        QCOMPARE(processing.accessibleName, QStringLiteral("Sorvelandrix — processing"));

        // Recording wins when the recorder also reports processing.
        const StatusDisplay both = statusDisplayFor(true, true, 3600, true);
        QCOMPARE(both.kind, StatusDisplay::Kind::Recording);
        QCOMPARE(both.title, QStringLiteral(" REC 1:00:00"));
        QCOMPARE(both.tooltip, QStringLiteral("Sorvelandrix — RECORDING (1:00:00)"));
        QCOMPARE(both.icon, StatusDisplay::Icon::RecordFilled);
        QCOMPARE(statusDisplayFor(true, false, 3599.4, false).title, QStringLiteral(" REC 59:59"));
        QCOMPARE(statusDisplayFor(true, false, 1, false).icon, StatusDisplay::Icon::RecordOutlined);
    }

    void openDashboardUsesTheStoredOrigin()
    {
        test::IsolatedEnvironment env;
        Settings::setValue(Settings::kServerKey, QStringLiteral("http://127.0.0.1:7/"));
        QList<QUrl> opened;
        AppDelegate delegate({{}, [&](const QUrl& u) { opened << u; }, {}});
        delegate.openDashboard(); // no session yet: the default origin
        SecretStore secrets(SecretStore::Options::fileOnly());
        AuthManager auth(secrets);
        delegate.setAuth(&auth);
        delegate.openDashboard();
        QCOMPARE(opened.size(), 2);
        QCOMPARE(opened[0].toString(), Settings::kDefaultOrigin + QStringLiteral("/dashboard"));
        // Stored with a trailing slash: no normalising, so a double slash.
        QCOMPARE(opened[1].toString(), QStringLiteral("http://127.0.0.1:7//dashboard"));
        QVERIFY(!dashboardUrl(QStringLiteral("not a url")));
    }

    void followsTheRecorder()
    {
        AppDelegate delegate({});
        delegate.setIntervals(20, 60);
        delegate.applicationDidFinishLaunching();
        // Before the window binds a recorder: idle.
        QCOMPARE(delegate.display().kind, StatusDisplay::Kind::Idle);
        QCOMPARE(delegate.statusItem()->toolTip(), QStringLiteral("Sorvelandrix"));
        QCOMPARE(menuTexts(delegate.menu()),
                 QStringList({"Open Sorvelandrix", "-", "Open Dashboard in Browser", "-",
                              "Check for Updates…", "-", "Quit Sorvelandrix"}));
        delegate.setPendingCount(2);
        QCOMPARE(menuTexts(delegate.menu()).at(1), QStringLiteral("2 recordings not uploaded"));
        delegate.setPendingCount(0);
        QCOMPARE(menuTexts(delegate.menu()).at(1), QStringLiteral("-"));

        Publisher recorder;
        delegate.bindRecorder(&recorder);
        recorder.setRecording(true);
        recorder.setElapsed(754.2);
        QTRY_COMPARE(delegate.display().title, QStringLiteral(" REC 12:34"));
        QCOMPARE(delegate.statusItem()->toolTip(),
                 QStringLiteral("Sorvelandrix — RECORDING (12:34)"));
        QCOMPARE(menuTexts(delegate.menu()).first(), QStringLiteral(" REC 12:34"));
        QVERIFY(!delegate.menu()->actions().first()->isEnabled());
        QVERIFY(delegate.isPulseRunning());

        // The pulse alternates the icon.
        const int draws = delegate.iconDraws();
        QTRY_VERIFY(delegate.iconDraws() >= draws + 2);

        recorder.setRecording(false);
        recorder.setProcessing(true);
        QTRY_COMPARE(delegate.display().kind, StatusDisplay::Kind::Processing);
        QVERIFY(!delegate.isPulseRunning());
        QVERIFY(!delegate.pulseToggle());
        QCOMPARE(menuTexts(delegate.menu()).first(), QStringLiteral("Open Sorvelandrix"));
    }

    void notificationsOnlyWhenTheWindowIsNotInFront()
    {
        QProcess daemon;
        daemon.start(QStringLiteral("dbus-daemon"),
                     {QStringLiteral("--session"), QStringLiteral("--nofork"),
                      QStringLiteral("--print-address=1")});
        QVERIFY(daemon.waitForReadyRead(10000));
        const QString address = QString::fromUtf8(daemon.readLine()).trimmed();
        QDBusConnection serverBus = QDBusConnection::connectToBus(address, QStringLiteral("s"));
        QDBusConnection appBus = QDBusConnection::connectToBus(address, QStringLiteral("a"));
        QVERIFY(serverBus.isConnected() && appBus.isConnected());

        // No server yet: nothing is shown and nothing breaks.
        bool active = false;
        DesktopNotifier notifier(appBus);
        notifier.setWindowActive([&] { return active; });
        notifier.recordingStopped(QStringLiteral("The disk is full"));
        QTest::qWait(200);

        NotificationServer server;
        QVERIFY(serverBus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &server,
                                         QDBusConnection::ExportAllSlots));
        QVERIFY(serverBus.registerService(QStringLiteral("org.freedesktop.Notifications")));
        int retries = 0;
        active = true;
        notifier.uploadFailed(QStringLiteral("a.wav"), QStringLiteral("x"), [&] { ++retries; });
        active = false;
        notifier.uploadFailed(QStringLiteral("a.wav"), QStringLiteral("Upload failed (HTTP 503)"),
                              [&] { ++retries; });
        QTRY_COMPARE(server.shown.size(), 1);
        QCOMPARE(server.shown[0].summary, QStringLiteral("Upload failed"));
        QCOMPARE(server.shown[0].body, QStringLiteral("a.wav: Upload failed (HTTP 503)"));
        QCOMPARE(server.shown[0].actions, (QStringList{"retry", "Retry"}));
        QTest::qWait(100); // the id comes back with the answer

        // The user presses "Retry" in the notification.
        QDBusMessage pressed = QDBusMessage::createSignal(
            QStringLiteral("/org/freedesktop/Notifications"),
            QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("ActionInvoked"));
        pressed << uint(1) << QStringLiteral("retry");
        QVERIFY(serverBus.send(pressed));
        QTRY_COMPARE(retries, 1);

        notifier.uploadFinished(QStringLiteral("b.wav"), [] {});
        notifier.recordingStopped(QStringLiteral("The disk is full"));
        QTRY_COMPARE(server.shown.size(), 3);
        QCOMPARE(server.shown[1].actions, (QStringList{"view", "View recording"}));
        QCOMPARE(server.shown[2].body, QStringLiteral("The disk is full"));
        QDBusConnection::disconnectFromBus(QStringLiteral("s"));
        QDBusConnection::disconnectFromBus(QStringLiteral("a"));
        daemon.terminate();
        daemon.waitForFinished();
    }

    void aSecondStartKeepsThePulse()
    {
        AppDelegate delegate({});
        delegate.setIntervals(5, 300);
        delegate.applicationDidFinishLaunching();
        Publisher recorder;
        recorder.setRecording(true);
        delegate.bindRecorder(&recorder);
        QVERIFY(delegate.pulseToggle());
        QTRY_VERIFY(!delegate.pulseToggle()); // the first tick
        QSignalSpy updates(&delegate, &AppDelegate::statusItemUpdated);
        recorder.setRecording(true);
        QVERIFY(updates.wait(1000));
        QVERIFY(delegate.isPulseRunning());
        QVERIFY(!delegate.pulseToggle()); // not restarted, not reset
    }

    void throttlesBursts()
    {
        AppDelegate delegate({});
        delegate.setIntervals(50, 100000);
        delegate.applicationDidFinishLaunching();
        Publisher recorder;
        recorder.setRecording(true);
        delegate.bindRecorder(&recorder);
        QSignalSpy updates(&delegate, &AppDelegate::statusItemUpdated);
        for (int i = 0; i < 100; ++i)
            recorder.setElapsed(i * 0.1);
        QTRY_COMPARE(delegate.display().title, QStringLiteral(" REC 00:09"));
        // The first change at once, the latest at the end of the interval,
        // then nothing more.
        QTest::qWait(150);
        QCOMPARE(updates.size(), 2);
    }

    void doesNotKeepTheRecorderAlive()
    {
        AppDelegate delegate({});
        delegate.setIntervals(10, 20);
        delegate.applicationDidFinishLaunching();
        auto recorder = std::make_unique<Publisher>();
        recorder->setRecording(true);
        delegate.bindRecorder(recorder.get());
        QVERIFY(delegate.isPulseRunning());
        recorder.reset();
        // Pulse ticks after the recorder is gone draw nothing.
        const int draws = delegate.iconDraws();
        QTest::qWait(100);
        QCOMPARE(delegate.iconDraws(), draws);
        delegate.updateStatusItem();
        QCOMPARE(delegate.display().kind, StatusDisplay::Kind::Idle);
        QVERIFY(!delegate.isPulseRunning());
    }
};

QTEST_MAIN(TestAppDelegate)
#include "tst_appdelegate.moc"
