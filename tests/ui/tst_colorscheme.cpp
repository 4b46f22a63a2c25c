#include "ui/colorscheme.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QGuiApplication>
#include <QPalette>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/prctl.h>

namespace {

// A stand-in for the desktop's Settings portal, as its D-Bus documentation
// describes it: ReadOne answers the value, the older Read wraps it in one
// variant more, and an old portal knows no ReadOne at all.
class SettingsPortal : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Settings")
public:
    uint scheme = 0;
    bool hasReadOne = true;

public Q_SLOTS:
    QDBusVariant ReadOne(const QString& ns, const QString& key)
    {
        if (!hasReadOne) {
            sendErrorReply(QDBusError::UnknownMethod, QStringLiteral("No such method"));
            return {};
        }
        return QDBusVariant(valueOf(ns, key));
    }
    QDBusVariant Read(const QString& ns, const QString& key)
    {
        return QDBusVariant(QVariant::fromValue(QDBusVariant(valueOf(ns, key))));
    }

Q_SIGNALS:
    void SettingChanged(const QString& ns, const QString& key, const QDBusVariant& value);

private:
    QVariant valueOf(const QString& ns, const QString& key)
    {
        if (ns != QLatin1String("org.freedesktop.appearance") ||
            key != QLatin1String("color-scheme")) {
            sendErrorReply(QStringLiteral("org.freedesktop.portal.Error.NotFound"), key);
            return {};
        }
        return QVariant::fromValue(scheme);
    }
};

} // namespace

class TestColorScheme : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        qunsetenv("SORVELANDRIX_COLOR_SCHEME");
        // A bus of its own with nothing to activate: no real portal answers.
        QFile config(m_dir.filePath(QStringLiteral("bus.conf")));
        QVERIFY(config.open(QIODevice::WriteOnly));
        config.write(
            "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration "
            "1.0//EN\"\n \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
            "<busconfig><type>session</type><listen>unix:dir=" +
            QFile::encodeName(m_dir.path()) +
            "</listen><policy context=\"default\"><allow send_destination=\"*\" "
            "eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow own=\"*\"/>"
            "</policy></busconfig>\n");
        config.close();
        m_daemon.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
        m_daemon.start(QStringLiteral("dbus-daemon"),
                       {QStringLiteral("--config-file=") + config.fileName(),
                        QStringLiteral("--nofork"), QStringLiteral("--print-address=1")});
        if (!m_daemon.waitForStarted(5000))
            QSKIP("dbus-daemon is not installed");
        while (!m_daemon.canReadLine() && m_daemon.waitForReadyRead(10000)) {
        }
        m_address = QString::fromUtf8(m_daemon.readLine()).trimmed();
        QVERIFY2(!m_address.isEmpty(), m_daemon.readAllStandardError().constData());
    }
    void cleanup()
    {
        for (const QString& name : std::as_const(m_names))
            QDBusConnection::disconnectFromBus(name);
        m_names.clear();
    }
    void cleanupTestCase()
    {
        m_daemon.terminate();
        m_daemon.waitForFinished(5000);
    }

    // The desktop's choice wins over the palette, and a change on the
    // desktop repaints the open window.
    void followsThePortal_data()
    {
        QTest::addColumn<bool>("hasReadOne");
        QTest::newRow("ReadOne") << true;
        QTest::newRow("an older portal, Read only") << false;
    }
    void followsThePortal()
    {
        QFETCH(bool, hasReadOne);
        QDBusConnection portalBus = connect(QStringLiteral("portal"));
        SettingsPortal portal;
        portal.scheme = 1;
        portal.hasReadOne = hasReadOne;
        QVERIFY(portalBus.registerObject(QStringLiteral("/org/freedesktop/portal/desktop"), &portal,
                                         QDBusConnection::ExportAllSlots |
                                             QDBusConnection::ExportAllSignals));
        QVERIFY(portalBus.registerService(QStringLiteral("org.freedesktop.portal.Desktop")));

        QGuiApplication::setPalette(QPalette(Qt::white)); // a light palette, overruled
        sorv::ColorScheme scheme(connect(QStringLiteral("app")));
        QTRY_VERIFY(scheme.portalPreference().has_value());
        QVERIFY(scheme.dark());

        // The bus takes the window's subscription in its own time: the
        // desktop says it until it is heard.
        const auto announce = [&portal](uint value) {
            Q_EMIT portal.SettingChanged(QStringLiteral("org.freedesktop.appearance"),
                                         QStringLiteral("color-scheme"), QDBusVariant(value));
            return true;
        };
        QSignalSpy changed(&scheme, &sorv::ColorScheme::darkChanged);
        QTRY_VERIFY(announce(2) && !scheme.dark());
        QCOMPARE(changed.count(), 1);
        // "No preference": the palette decides.
        QGuiApplication::setPalette(QPalette(QColor(0x20, 0x20, 0x22)));
        QTRY_VERIFY(announce(0) && scheme.dark());

        portalBus.unregisterObject(QStringLiteral("/org/freedesktop/portal/desktop"));
    }

    // Without a portal the palette decides, and follows its changes.
    void withoutAPortalThePaletteDecides()
    {
        QGuiApplication::setPalette(QPalette(QColor(0x20, 0x20, 0x22)));
        sorv::ColorScheme scheme(connect(QStringLiteral("alone")));
        QVERIFY(scheme.dark());
        QGuiApplication::setPalette(QPalette(Qt::white));
        QVERIFY(!scheme.dark());
        QVERIFY(!scheme.portalPreference().has_value());
    }

private:
    QDBusConnection connect(const QString& name)
    {
        m_names << name + QString::number(++m_connections);
        return QDBusConnection::connectToBus(m_address, m_names.last());
    }

    QTemporaryDir m_dir;
    QProcess m_daemon;
    QString m_address;
    QStringList m_names;
    int m_connections = 0;
};

QTEST_MAIN(TestColorScheme)
#include "tst_colorscheme.moc"
