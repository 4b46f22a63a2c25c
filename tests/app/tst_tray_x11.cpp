// The tray on a real X server with a real system tray (trayer): the icon is
// embedded and opens the window. (The menu's items are the delegate's test's.)

#include "app/appdelegate.h"

#include <QAction>
#include <QApplication>
#include <QMenu>
#include <QSystemTrayIcon>
#include <QTest>

using namespace sorv;

class TestTrayX11 : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void iconAppearsInTheTray()
    {
        QTRY_VERIFY_WITH_TIMEOUT(QSystemTrayIcon::isSystemTrayAvailable(), 5000);
        int shown = 0;
        AppDelegate delegate({[&] { ++shown; }, {}, {}});
        delegate.applicationDidFinishLaunching();
        // Embedded: the tray gave the icon a place on the screen.
        QTRY_VERIFY_WITH_TIMEOUT(!delegate.statusItem()->geometry().isEmpty(), 5000);
        QVERIFY(delegate.statusItem()->isVisible());

        QCOMPARE(delegate.menu()->actions().last()->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Q));

        // A click on the icon opens the window.
        Q_EMIT delegate.statusItem()->activated(QSystemTrayIcon::Trigger);
        QCOMPARE(shown, 1);
    }
};

QTEST_MAIN(TestTrayX11)
#include "tst_tray_x11.moc"
