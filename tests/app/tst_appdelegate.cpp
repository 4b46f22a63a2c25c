// The tray: which display each recorder state gets, the elapsed text, the
// pulse timer, the weak recorder reference and the dashboard address.

#include "app/appdelegate.h"
#include "app/statusdisplay.h"
#include "core/format.h"
#include "core/settings.h"
#include "support/isolatedenvironment.h"

#include "core/secretstore.h"
#include "service/authmanager.h"
#include <QAction>
#include <QApplication>
#include <QMenu>
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
    void elapsedText_data()
    {
        QTest::addColumn<double>("seconds");
        QTest::addColumn<QString>("text");
        QTest::newRow("zero") << 0.0 << "00:00";
        QTest::newRow("59.9") << 59.9 << "00:59";
        QTest::newRow("3599.4") << 3599.4 << "59:59";
        QTest::newRow("an hour") << 3600.0 << "1:00:00";
        QTest::newRow("36125") << 36125.0 << "10:02:05";
        QTest::newRow("negative") << -3.0 << "00:00";
    }
    void elapsedText()
    {
        QFETCH(double, seconds);
        QFETCH(QString, text);
        QCOMPARE(formatElapsed(seconds), text);
    }

    void displayForEachState()
    {
        const StatusDisplay idle = statusDisplayFor(false, false, 12, true);
        QCOMPARE(idle.kind, StatusDisplay::Kind::Idle);
        QCOMPARE(idle.tooltip, QStringLiteral("Sorvelandrix"));
        QVERIFY(idle.title.isEmpty());

        const StatusDisplay processing = statusDisplayFor(false, true, 12, false);
        QCOMPARE(processing.kind, StatusDisplay::Kind::Processing);
        QCOMPARE(processing.tooltip, QStringLiteral("Sorvelandrix — processing…"));
        QCOMPARE(processing.accessibleName, QStringLiteral("Sorvelandrix — processing"));
        QVERIFY(processing.title.isEmpty());

        // Recording wins when the recorder also reports processing.
        const StatusDisplay both = statusDisplayFor(true, true, 3600, true);
        QCOMPARE(both.kind, StatusDisplay::Kind::Recording);
        QCOMPARE(both.title, QStringLiteral(" REC 1:00:00"));
        QCOMPARE(both.tooltip, QStringLiteral("Sorvelandrix — RECORDING (1:00:00)"));
        QCOMPARE(both.icon, StatusDisplay::Icon::RecordFilled);
        QCOMPARE(statusDisplayFor(true, false, 3599.4, false).title, QStringLiteral(" REC 59:59"));
        QCOMPARE(statusDisplayFor(true, false, 1, false).icon, StatusDisplay::Icon::RecordOutlined);
    }

    void dashboardAddress()
    {
        QCOMPARE(dashboardUrl(std::nullopt)->toString(),
                 Settings::kDefaultOrigin + QStringLiteral("/dashboard"));
        // Stored with a trailing slash: no normalising, so a double slash.
        QCOMPARE(dashboardUrl(QStringLiteral("https://eu.example.com/"))->toString(),
                 QStringLiteral("https://eu.example.com//dashboard"));
        QVERIFY(!dashboardUrl(QStringLiteral("not a url")).has_value());
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
        QCOMPARE(opened[1].toString(), QStringLiteral("http://127.0.0.1:7//dashboard"));
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
