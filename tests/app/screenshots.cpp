// sorvelandrix-screenshots OUTDIR: renders every screen and state of the
// application to OUTDIR/NAME.png, with the real controllers driven into each
// state against an in-process local service. Exits 1 when a screen fails to
// load or QML reports a warning, so a broken view fails the build.

#include "app/recorderapp.h"
#include "core/settings.h"
#include "localservicefixture.h"
#include "qmlfinder.h"
#include "recording/audiorecorder.h"
#include "service/authmanager.h"
#include "support/isolatedenvironment.h"
#include "ui/recorderscreen.h"
#include "ui/recordingconsent.h"
#include "ui/viewhelpers.h"
#include "update/sparkleupdater.h"

#include <QApplication>
#include <QDir>
#include <QMenu>
#include <QPainter>
#include <QQuickItem>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QSystemTrayIcon>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>

#include <cstdio>

Q_IMPORT_QML_PLUGIN(Sorvelandrix_UiPlugin)

namespace {

int g_failures = 0;
QtMessageHandler g_previousHandler = nullptr;

void countQmlWarnings(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    const bool fromViews =
        message.contains(QLatin1String("qrc:/")) || message.contains(QLatin1String(".qml"));
    if (type >= QtWarningMsg && fromViews) {
        ++g_failures;
        std::fprintf(stderr, "screenshots: QML: %s\n", qPrintable(message));
        return;
    }
    if (g_previousHandler)
        g_previousHandler(type, context, message);
}

// The tray's recorder as it publishes itself, for the recording menu.
class PublishedRecorder : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isRecording MEMBER isRecording NOTIFY changed)
    Q_PROPERTY(bool isProcessing MEMBER isProcessing NOTIFY changed)
    Q_PROPERTY(double elapsed MEMBER elapsed NOTIFY changed)
public:
    bool isRecording = true;
    bool isProcessing = false;
    double elapsed = 754.2;
Q_SIGNALS:
    void changed();
};

// A security key that asks for its PIN, for the PIN dialog.
class PinAskingKey : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isPinRequested READ yes CONSTANT)
    Q_PROPERTY(bool isWaitingForTouch READ no CONSTANT)
    Q_PROPERTY(int pinAttemptsLeft READ attempts CONSTANT)
public:
    bool yes() const { return true; }
    bool no() const { return false; }
    int attempts() const { return 7; }
    Q_INVOKABLE void providePin(const QString&) {}
    Q_INVOKABLE void cancelPinRequest() {}
    Q_INVOKABLE void cancel() {}
};

class Shooter {
public:
    Shooter(sorv::SorvelandrixRecorderApp& app, QString dir) : m_app(app), m_dir(std::move(dir)) {}

    QQuickWindow* window() const { return m_app.mainWindow(); }

    QObject* find(const char* name) const
    {
        QObject* found = sorv::test::findNamed(window(), QString::fromLatin1(name));
        if (!found) {
            std::fprintf(stderr, "screenshots: no item named %s\n", name);
            ++g_failures;
        }
        return found;
    }
    void set(const char* name, const char* property, const QVariant& value) const
    {
        if (QObject* o = find(name))
            o->setProperty(property, value);
    }
    void click(const char* name) const
    {
        if (QObject* o = find(name))
            QMetaObject::invokeMethod(o, "clicked");
    }
    bool waitFor(const std::function<bool()>& condition, const char* what) const
    {
        if (QTest::qWaitFor(condition, 10000))
            return true;
        std::fprintf(stderr, "screenshots: timed out waiting for %s\n", what);
        ++g_failures;
        return false;
    }

    void shoot(const QString& name) const
    {
        settle();
        const QImage image = window()->grabWindow();
        save(image, name);
    }
    void save(const QImage& image, const QString& name) const
    {
        const QString path = QDir(m_dir).filePath(name + QStringLiteral(".png"));
        if (image.isNull() || !image.save(path)) {
            std::fprintf(stderr, "screenshots: could not render %s\n", qPrintable(name));
            ++g_failures;
            return;
        }
        std::printf("%s\n", qPrintable(path));
        m_shots.append({name, image});
    }

    // Every shot on one page, half size, with its name: for looking over
    // all screens at once.
    void contactSheet() const
    {
        constexpr int kColumns = 4;
        constexpr int kCell = 280;
        constexpr int kLabel = 20;
        const int rows = (static_cast<int>(m_shots.size()) + kColumns - 1) / kColumns;
        QImage sheet(kColumns * kCell, rows * (kCell + kLabel), QImage::Format_RGB32);
        sheet.fill(QColor(0x30, 0x30, 0x34));
        QPainter painter(&sheet);
        painter.setPen(Qt::white);
        for (int i = 0; i < m_shots.size(); ++i) {
            const QRect cell((i % kColumns) * kCell, (i / kColumns) * (kCell + kLabel), kCell,
                             kCell + kLabel);
            const QImage scaled = m_shots[i].second.scaled(
                kCell - 8, kCell - 8, Qt::KeepAspectRatio, Qt::SmoothTransformation);
            painter.drawImage(cell.x() + (kCell - scaled.width()) / 2, cell.y() + 4, scaled);
            painter.drawText(QRect(cell.x(), cell.bottom() - kLabel, kCell, kLabel),
                             Qt::AlignCenter, m_shots[i].first);
        }
        painter.end();
        sheet.save(QDir(m_dir).filePath(QStringLiteral("contact-sheet.png")));
    }
    // Layout, images and animations come to rest.
    static void settle() { QTest::qWait(250); }

private:
    sorv::SorvelandrixRecorderApp& m_app;
    QString m_dir;
    mutable QList<QPair<QString, QImage>> m_shots;
};

void signInScreens(Shooter& s, sorv::AuthManager& auth, sorv::test::LocalServiceFixture& service,
                   sorv::test::LocalServiceFixture& mfaService)
{
    using sorv::local::LocalService;
    using sorv::local::ScriptedAnswer;
    s.shoot(QStringLiteral("signin-empty"));

    s.set("emailField", "text", LocalService::kDemoEmail);
    s.set("passwordField", "text", QStringLiteral("not the password"));
    s.click("signInButton");
    s.waitFor([&] { return !auth.loginError().isEmpty(); }, "the sign-in error");
    s.shoot(QStringLiteral("signin-error"));

    service->script("POST", QStringLiteral("/api/auth/login"),
                    ScriptedAnswer::delayed(std::chrono::milliseconds(60000)));
    s.set("passwordField", "text", LocalService::kDemoPassword);
    s.click("signInButton");
    s.waitFor([&] { return auth.isLoggingIn(); }, "signing in");
    s.shoot(QStringLiteral("signin-signing-in"));
    service.restart(); // drops the held request
    s.waitFor([&] { return !auth.isLoggingIn(); }, "the held sign-in to end");
    service->clearScripts();

    auth.cancelMfa(); // forgets the dropped request's error
    auth.expireSession(sorv::AuthManager::kExpiredBanner);
    s.set("passwordField", "text", QString());
    s.shoot(QStringLiteral("signin-session-expired"));

    sorv::Settings::setServerOverride(mfaService.origin());
    s.set("passwordField", "text", LocalService::kDemoPassword);
    s.click("signInButton");
    s.waitFor([&] { return !auth.pendingMfaChallengeId().isEmpty(); }, "the code step");
    s.shoot(QStringLiteral("signin-code-step"));
    s.set("codeField", "text", QStringLiteral("12a 34 5678"));
    s.shoot(QStringLiteral("signin-code-step-filled"));
    s.click("differentAccountButton");
    sorv::Settings::setServerOverride(service.origin());

    s.set("emailField", "text", LocalService::kDemoEmail);
    s.set("passwordField", "text", LocalService::kDemoPassword);
    s.click("signInButton");
    s.waitFor([&] { return auth.isLoggedIn(); }, "signing in");
}

void recorderScreens(Shooter& s, sorv::RecorderScreen& screen)
{
    s.click("tab0");
    screen.setRecordVideo(false);
    s.shoot(QStringLiteral("record-idle-audio"));
    screen.setRecordVideo(true);
    s.shoot(QStringLiteral("record-idle-video"));

    // A fresh installation: the consent sheet comes before the first recording.
    screen.setRecordVideo(false);
    screen.pressMainButton();
    s.waitFor([&] { return screen.showingConsentSheet(); }, "the consent sheet");
    s.shoot(QStringLiteral("consent-audio"));
    screen.consent()->setAcknowledged(true);
    s.shoot(QStringLiteral("consent-ticked"));
    screen.consent()->cancel();
    screen.setRecordVideo(true);
    screen.pressMainButton();
    s.waitFor([&] { return screen.showingConsentSheet(); }, "the consent sheet");
    s.shoot(QStringLiteral("consent-video"));
    screen.consent()->cancel();
    screen.setRecordVideo(false);
}

void tabScreens(Shooter& s)
{
    const char* names[] = {"tab-record", "tab-recordings", "tab-join"};
    for (int i = 0; i < 3; ++i) {
        s.click(QStringLiteral("tab%1").arg(i).toLatin1().constData());
        s.shoot(QString::fromLatin1(names[i]));
    }
    s.click("tab0");
    s.click("userMenuButton");
    s.shoot(QStringLiteral("user-menu-open"));
    s.set("userMenu", "visible", false);
}

void passkeyScreens(Shooter& s, sorv::test::LocalServiceFixture& service)
{
    QObject* sheet = s.find("passkeysSheet");
    QObject* passkeys = s.window()->property("passkeys").value<QObject*>();
    if (!sheet || !passkeys)
        return;
    sheet->setProperty("visible", true); // loading starts as it opens; shot before it ends
    s.save(s.window()->grabWindow(), QStringLiteral("passkeys-loading"));
    s.waitFor([&] { return !passkeys->property("loading").toBool(); }, "the passkeys list");
    s.shoot(QStringLiteral("passkeys-empty"));

    QMetaObject::invokeMethod(passkeys, "add");
    s.save(s.window()->grabWindow(), QStringLiteral("passkeys-adding"));
    s.waitFor([&] { return !passkeys->property("registering").toBool(); }, "the new passkey");
    QMetaObject::invokeMethod(passkeys, "add");
    s.waitFor([&] { return !passkeys->property("registering").toBool(); }, "the second passkey");
    s.shoot(QStringLiteral("passkeys-list"));

    const QVariant firstId =
        passkeys->property("count").toInt() > 0
            ? static_cast<QAbstractItemModel*>(passkeys)->index(0, 0).data(Qt::UserRole + 1)
            : QVariant();
    QMetaObject::invokeMethod(passkeys, "requestRemove", Q_ARG(qint64, firstId.toLongLong()));
    s.shoot(QStringLiteral("passkeys-confirm-removal"));
    QMetaObject::invokeMethod(passkeys, "cancelRemove");

    service.stop();
    QMetaObject::invokeMethod(passkeys, "reload");
    s.waitFor([&] { return !passkeys->property("error").toString().isEmpty(); }, "the load error");
    s.shoot(QStringLiteral("passkeys-error"));
    service.restart();
    sheet->setProperty("visible", false);

    PinAskingKey key;
    s.window()->setProperty("passkeyManager", QVariant::fromValue<QObject*>(&key));
    s.shoot(QStringLiteral("passkeys-pin-dialog"));
    s.window()->setProperty("passkeyManager", QVariant::fromValue<QObject*>(nullptr));
    Shooter::settle();
}

void updateScreens(Shooter& s, sorv::SparkleUpdater& appUpdater,
                   sorv::test::LocalServiceFixture& service)
{
    // A developer build: updates are not available.
    appUpdater.checkForUpdates();
    s.shoot(QStringLiteral("update-alert-disabled"));
    appUpdater.answerAlert(-1);

    const auto shootWith = [&](const QString& version, const QString& feed, const QString& name) {
        sorv::SparkleUpdaterConfig config;
        config.publicKey = service->appcastPublicKey();
        config.feedUrl = QUrl(feed);
        config.currentVersion = version;
        sorv::SparkleUpdater updater(config);
        s.window()->setProperty("updater", QVariant::fromValue<QObject*>(&updater));
        updater.checkForUpdates();
        s.waitFor([&] { return !updater.checking(); }, "the update check");
        s.shoot(name);
        updater.answerAlert(-1);
        s.window()->setProperty("updater", QVariant::fromValue<QObject*>(&appUpdater));
    };
    shootWith(QStringLiteral("0.0.1"), service->appcastUrl(),
              QStringLiteral("update-alert-available"));
    shootWith(service->appcastVersion(), service->appcastUrl(),
              QStringLiteral("update-alert-up-to-date"));
    shootWith(QStringLiteral("0.0.1"), service.origin() + QStringLiteral("/updates/missing.xml"),
              QStringLiteral("update-alert-failed"));
}

void trayScreens(Shooter& s, sorv::AppDelegate& delegate, sorv::AudioRecorder& recorder)
{
    const auto shootMenu = [&](const QString& name) {
        QMenu* menu = delegate.menu();
        menu->popup(QPoint(0, 0));
        Shooter::settle();
        s.save(menu->grab().toImage(), name);
        menu->hide();
        const QIcon icon = delegate.statusItem()->icon();
        s.save(icon.pixmap(64, 64).toImage(), name + QStringLiteral("-icon"));
    };
    shootMenu(QStringLiteral("tray-menu-idle"));
    PublishedRecorder recording;
    delegate.bindRecorder(&recording);
    shootMenu(QStringLiteral("tray-menu-recording"));
    delegate.bindRecorder(&recorder);
}

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("QT_QUICK_BACKEND", "software");
    qputenv("SORVELANDRIX_SECRETS", "file");
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("sorvelandrix-screenshots"));
    const QString dir = argc > 1 ? QString::fromLocal8Bit(argv[1])
                                 : QDir::current().filePath(QStringLiteral("screenshots"));
    QDir().mkpath(dir);
    g_previousHandler = qInstallMessageHandler(countQmlWarnings);

    sorv::test::IsolatedEnvironment environment;
    qputenv("SORVELANDRIX_SOFTWARE_AUTHENTICATOR",
            environment.path(QStringLiteral("authenticator")).toLocal8Bit());
    sorv::local::LocalService::Options mfaOptions;
    mfaOptions.mfa = true;
    sorv::test::LocalServiceFixture mfaService(mfaOptions);
    sorv::test::LocalServiceFixture service; // the run's origin from here on

    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    sorv::SorvelandrixRecorderApp recorderApp;
    recorderApp.helpers().setUrlOpener([](const QUrl&) {});
    if (!recorderApp.launch())
        return 1;
    recorderApp.mainWindow()->resize(500, 660);
    Shooter shooter(recorderApp, dir);

    signInScreens(shooter, recorderApp.auth(), service, mfaService);
    // Signed in on a fresh installation, the recorder screen asks for consent
    // at once; the tab screens are shot after cancelling it.
    shooter.waitFor([&] { return recorderApp.recorderScreen().showingConsentSheet(); },
                    "the first consent sheet");
    recorderApp.recorderScreen().consent()->cancel();
    tabScreens(shooter);
    recorderScreens(shooter, recorderApp.recorderScreen());
    passkeyScreens(shooter, service);
    updateScreens(shooter, recorderApp.updater(), service);
    trayScreens(shooter, recorderApp.appDelegate(), recorderApp.recorder());
    shooter.contactSheet();

    if (g_failures > 0) {
        std::fprintf(stderr, "screenshots: %d problem(s)\n", g_failures);
        return 1;
    }
    return 0;
}

#include "screenshots.moc"
