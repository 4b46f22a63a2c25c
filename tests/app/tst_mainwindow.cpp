// The main window as a user drives it: the sign-in form, the code step, the
// tab view and the user menu, with the real session against the local
// service.

#include "app/floatingpanelcontroller.h"
#include "app/keptrecordings.h"
#include "app/recorderapp.h"
#include "audio/wavwriter.h"
#include "core/paths.h"
#include "core/settings.h"
#include "localservicefixture.h"
#include "qmlfinder.h"
#include "recording/audiorecorder.h"
#include "service/authmanager.h"
#include "service/recordingslistcontroller.h"
#include "service/recordingsmodel.h"
#include "support/isolatedenvironment.h"
#include "support/scriptedengine.h"
#include "transcript/livetranscriptmanager.h"
#include "ui/joinmeetingcontroller.h"
#include "ui/recorderscreen.h"
#include "ui/recordingconsent.h"
#include "ui/viewhelpers.h"

#include <QAccessible>
#include <QAction>
#include <QMenu>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(Sorvelandrix_UiPlugin)

using namespace sorv;
using local::LocalService;

class TestMainWindow : public QObject {
    Q_OBJECT

    std::unique_ptr<test::IsolatedEnvironment> m_env;
    std::unique_ptr<test::LocalServiceFixture> m_service;
    std::unique_ptr<SorvelandrixRecorderApp> m_app;
    test::ScriptedEngine* m_engine = nullptr; // the app's

    QObject* item(const char* name)
    {
        QObject* found = test::findNamed(m_app->mainWindow(), QString::fromLatin1(name));
        if (!found)
            qWarning("no item named %s", name);
        return found;
    }
    bool enabled(const char* name) { return item(name)->property("enabled").toBool(); }
    void click(const char* name) { QMetaObject::invokeMethod(item(name), "clicked"); }
    void type(const char* name, const QString& text)
    {
        auto* field = qobject_cast<QQuickItem*>(item(name));
        field->forceActiveFocus();
        typeText(text);
    }
    void typeText(const QString& text)
    {
        for (const QChar c : text)
            QTest::keyClick(m_app->mainWindow(), c.toLatin1());
    }
    void press(const char* name)
    {
        auto* target = qobject_cast<QQuickItem*>(item(name));
        QVERIFY(target);
        test::clickCentre(m_app->mainWindow(), target);
    }
    // Signed in as the demo account, by default with the consent already given.
    void signIn(const QString& email = LocalService::kDemoEmail,
                const QString& password = LocalService::kDemoPassword, bool consentGiven = true)
    {
        if (consentGiven)
            Settings::setValue(RecordingConsent::kAcknowledgedKey, true);
        type("emailField", email);
        type("passwordField", password);
        click("signInButton");
        QTRY_VERIFY(showsTabs());
    }
    bool shown(const char* name) { return test::isShown(m_app->mainWindow(), name); }
    // Where the item is in the window, and whether all of it is in view.
    QRectF sceneRect(const char* name)
    {
        auto* target = qobject_cast<QQuickItem*>(item(name));
        return target ? target->mapRectToScene(target->boundingRect()) : QRectF();
    }
    bool inView(const char* name)
    {
        return QRectF(QPointF(), m_app->mainWindow()->size()).contains(sceneRect(name));
    }
    bool isInside(QQuickItem* focused, const char* name)
    {
        QObject* scope = item(name);
        // A popup's items hang from its own item, a child of the popup.
        for (QObject* up = focused; up; up = up->parent()) {
            if (up == scope)
                return true;
        }
        for (QQuickItem* up = focused; up; up = up->parentItem()) {
            if (up->parent() == scope)
                return true;
        }
        return false;
    }
    bool showsTabs() { return test::findNamed(m_app->mainWindow(), "tabBar") != nullptr; }

    // What a screen reader finds wrong on the screen shown: a control
    // (button, field, picker, tab, menu entry) without a name, and, going
    // round with Tab, a stop that is no named control or one that jumps
    // back up against the reading order. An empty list is a clean screen.
    QStringList accessibilityProblems(const QString& screen)
    {
        // Roles are given to controls as accessibility comes on; this also
        // reaches the ones made since it last did.
        QAccessible::setActive(true);
        QCoreApplication::processEvents();
        static const QSet<QAccessible::Role> kControls{
            QAccessible::Button,     QAccessible::CheckBox,     QAccessible::RadioButton,
            QAccessible::ComboBox,   QAccessible::EditableText, QAccessible::PageTab,
            QAccessible::MenuItem,   QAccessible::Link,         QAccessible::SpinBox,
            QAccessible::ButtonMenu, QAccessible::Slider};
        const auto describe = [](QObject* o) {
            if (!o)
                return QStringLiteral("(nothing)");
            return o->objectName().isEmpty() ? QString::fromLatin1(o->metaObject()->className())
                                             : o->objectName();
        };
        // Qt withholds a password field's name (it would read out the
        // text); its description stands in.
        const auto named = [](QAccessibleInterface* node) {
            const QAccessible::Text text =
                node->state().passwordEdit ? QAccessible::Description : QAccessible::Name;
            return !node->text(text).trimmed().isEmpty();
        };
        QStringList problems;
        const std::function<void(QAccessibleInterface*)> walk = [&](QAccessibleInterface* node) {
            if (!node || node->state().invisible)
                return;
            if (kControls.contains(node->role()) && !named(node))
                problems << screen + QStringLiteral(": nameless ") + describe(node->object());
            for (int i = 0; i < node->childCount(); ++i)
                walk(node->child(i));
        };
        walk(QAccessible::queryAccessibleInterface(m_app->mainWindow()));

        QQuickWindow* window = m_app->mainWindow();
        QList<QQuickItem*> stops;
        for (int i = 0; i < 60; ++i) {
            QTest::keyClick(window, Qt::Key_Tab);
            QQuickItem* focused = window->activeFocusItem();
            if (!focused || stops.contains(focused))
                break;
            stops << focused;
        }
        // Once round, read from the stop nearest the top left.
        const auto place = [](QQuickItem* item) {
            const QPointF at = item->mapToScene(QPointF(0, 0));
            return std::pair(qRound(at.y() / 8), at.x());
        };
        if (!stops.isEmpty()) {
            const auto first =
                std::min_element(stops.begin(), stops.end(),
                                 [&](QQuickItem* a, QQuickItem* b) { return place(a) < place(b); });
            std::rotate(stops.begin(), first, stops.end());
        }
        QPointF previous(-1, -1);
        for (QQuickItem* stop : std::as_const(stops)) {
            // A field's text input stands for its field.
            QQuickItem* control = stop;
            while (control && !QAccessible::queryAccessibleInterface(control))
                control = control->parentItem();
            QAccessibleInterface* node =
                control ? QAccessible::queryAccessibleInterface(control) : nullptr;
            if (!node || !kControls.contains(node->role()) || !named(node))
                problems << screen + QStringLiteral(": Tab stops on ") + describe(stop) +
                                QStringLiteral(", no named control");
            const QPointF at = stop->mapToScene(QPointF(0, 0));
            // Reading order: down the window, left to right along a row.
            if (at.y() + 8 < previous.y() && previous.y() >= 0)
                problems << screen + QStringLiteral(": Tab goes back up to ") + describe(stop);
            previous = at;
        }
        if (stops.size() >= 60)
            problems << screen + QStringLiteral(": Tab never comes round");
        return problems;
    }

private Q_SLOTS:
    void init()
    {
        m_env = std::make_unique<test::IsolatedEnvironment>();
        LocalService::Options options;
        options.mfa = QByteArray(QTest::currentTestFunction()).contains("Code");
        // Bots that join and talk without the real pauses.
        options.meetingPhase = std::chrono::milliseconds(40);
        options.meetingStreamPace = std::chrono::milliseconds(5);
        m_service = std::make_unique<test::LocalServiceFixture>(options);
        m_engine = new test::ScriptedEngine;
        m_engine->devices = test::ScriptedEngine::twoMicrophones();
        m_engine->seconds = 2;
        m_app =
            std::make_unique<SorvelandrixRecorderApp>(std::unique_ptr<RecordingEngine>(m_engine));
        m_app->helpers().setUrlOpener([](const QUrl&) {});
        QVERIFY(m_app->launch());
        QVERIFY(QTest::qWaitForWindowExposed(m_app->mainWindow()));
        m_app->mainWindow()->requestActivate();
        QVERIFY(QTest::qWaitForWindowActive(m_app->mainWindow()));
    }
    void cleanup()
    {
        QAccessible::setActive(false);
        m_app.reset();
        m_service.reset();
        m_env.reset();
    }

    void signInButtonNeedsAnAddressAndAPassword()
    {
        // The show-password eye is reached from the keyboard too.
        type("passwordField", QStringLiteral("secret"));
        QTest::keyClick(m_app->mainWindow(), Qt::Key_Tab);
        QCOMPARE(m_app->mainWindow()->activeFocusItem()->objectName(),
                 QStringLiteral("showPasswordButton"));
        QTest::keyClick(m_app->mainWindow(), Qt::Key_Space);
        QCOMPARE(item("passwordField")->property("echoMode").toInt(), 0); // TextInput.Normal
        item("passwordField")->setProperty("text", QString());

        QVERIFY(!enabled("signInButton"));
        type("emailField", QStringLiteral("   "));
        type("passwordField", QStringLiteral("secret"));
        QVERIFY(!enabled("signInButton")); // spaces are no address
        type("emailField", QStringLiteral("a@b.c"));
        QVERIFY(enabled("signInButton"));
    }

    void returnMovesOnThenSignsIn()
    {
        type("emailField", QStringLiteral("  ") + LocalService::kDemoEmail + QStringLiteral(" "));
        QTest::keyClick(m_app->mainWindow(), Qt::Key_Return);
        QVERIFY(qobject_cast<QQuickItem*>(item("passwordField"))->hasActiveFocus());
        typeText(LocalService::kDemoPassword);
        QTest::keyClick(m_app->mainWindow(), Qt::Key_Return);
        QTRY_VERIFY(m_app->auth().isLoggedIn());
        QTRY_VERIFY(showsTabs());
        QCOMPARE(m_app->auth().userEmail(), LocalService::kDemoEmail); // trimmed
    }

    void theCodeStepKeepsSixDigits()
    {
        type("emailField", LocalService::kDemoEmail);
        type("passwordField", LocalService::kDemoPassword);
        click("signInButton");
        QTRY_VERIFY(!m_app->auth().pendingMfaChallengeId().isEmpty());
        QTRY_VERIFY(item("codeField")->property("visible").toBool());
        QVERIFY(item("codeExplanation")
                    ->property("text")
                    .toString()
                    .startsWith(QStringLiteral("Enter the 6-digit code we sent to ")));
        type("codeField", QStringLiteral("12a 34"));
        QCOMPARE(item("codeField")->property("text").toString(), QStringLiteral("1234"));
        QVERIFY(!enabled("verifyButton"));
        type("codeField", QStringLiteral(" 5678"));
        QCOMPARE(item("codeField")->property("text").toString(), QStringLiteral("123456"));
        QVERIFY(enabled("verifyButton"));

        // "Use a different account" forgets the challenge and the code.
        click("differentAccountButton");
        QVERIFY(m_app->auth().pendingMfaChallengeId().isEmpty());
        QCOMPARE(item("codeField")->property("text").toString(), QString());
        QVERIFY(item("signInButton")->property("visible").toBool());

        click("signInButton");
        QTRY_VERIFY(!m_app->auth().pendingMfaChallengeId().isEmpty());
        type("codeField", m_service->service().lastMfaCode());
        QTest::keyClick(m_app->mainWindow(), Qt::Key_Return);
        QTRY_VERIFY(showsTabs());
    }

    void signOutIsImmediateEvenWithoutTheService()
    {
        signIn();
        m_service->stop();

        // The menu's own button closes it, as does a press elsewhere.
        press("userMenuButton");
        QTRY_VERIFY(shown("userMenu"));
        press("userMenuButton");
        QTRY_VERIFY(!shown("userMenu"));
        press("userMenuButton");
        QTRY_VERIFY(shown("userMenu"));
        press("tab0");
        QTRY_VERIFY(!shown("userMenu"));
        press("userMenuButton");
        QTRY_VERIFY(shown("userMenu"));
        press("signOutButton");
        // No waiting on the service: the form is back at once.
        QVERIFY(!m_app->auth().isLoggedIn());
        QTRY_VERIFY(!showsTabs());
        QVERIFY(item("signInButton") != nullptr);
    }

    // The entry starts this very program, hidden in the tray, at the next
    // login; switched off, nothing of it stays behind.
    void startAtLoginWritesAndRemovesTheAutostartEntry()
    {
        signIn();
        const QString entry = m_env->path(QStringLiteral("config/autostart/"
                                                         "sorvelandrix-recorder.desktop"));
        QCOMPARE(AutostartEntry::filePath(), entry);
        press("userMenuButton");
        QTRY_VERIFY(shown("userMenu"));
        press("startAtLoginButton");
        QTRY_VERIFY(QFile::exists(entry));
        const QSettings desktop(entry, QSettings::IniFormat);
        QCOMPARE(desktop.value("Desktop Entry/Exec").toString(),
                 QCoreApplication::applicationFilePath() + QStringLiteral(" --hidden"));
        QVERIFY(m_app->helpers().autostart()->isEnabled());
        press("startAtLoginButton");
        QTRY_VERIFY(!QFile::exists(entry));
        // The desktop's own settings switch it off with Hidden=true.
        QVERIFY(m_app->helpers().autostart()->setEnabled(true));
        QSettings(entry, QSettings::IniFormat).setValue("Desktop Entry/Hidden", true);
        QVERIFY(!m_app->helpers().autostart()->isEnabled());
    }

    void aRecordingNotUploadedIsListedAndDeletedAfterAsking()
    {
        const QString wav = recordingsDirectory() + QStringLiteral("/sorvelandrix_1763850000.wav");
        {
            WavWriter w;
            QVERIFY(w.open(wav));
            w.write(std::vector<float>(48000, 0.1f));
        }
        m_app->keptRecordings().pending().refresh();
        signIn();
        press("tab1");
        QTRY_VERIFY(shown("pendingRow"));
        QStringList tray;
        for (const QAction* a : m_app->appDelegate().menu()->actions())
            if (a->isVisible())
                tray << a->text();
        QVERIFY(tray.contains(QStringLiteral("1 recording not uploaded")));
        press("pendingDeleteButton");
        QTRY_VERIFY(shown("pendingDeleteConfirmation"));
        QVERIFY(QFile::exists(wav));
        QMetaObject::invokeMethod(item("pendingDeleteConfirmation"), "confirmed");
        QTRY_VERIFY(!QFile::exists(wav));
        QTRY_VERIFY(!shown("pendingRow"));
    }

    void aBotFromJoinToItsLiveTranscript()
    {
        signIn();
        QCOMPARE(item("tabContent")->property("currentIndex").toInt(), 0);
        click("tab2");
        QCOMPARE(item("tabContent")->property("currentIndex").toInt(), 2);
        QVERIFY(!enabled("joinButton"));
        type("meetingUrlField", QStringLiteral("https://meet.google.com/abc-defg-hij"));
        QVERIFY(enabled("joinButton"));
        click("joinButton");
        QTRY_VERIFY(item("joinSuccess")->property("visible").toBool());
        // The pause before the switch is the controller's, tested on its own
        // clock; here only that the tab follows it.
        QVERIFY(QMetaObject::invokeMethod(&m_app->joinMeeting(), "switchToRecordings"));
        QCOMPARE(item("tabContent")->property("currentIndex").toInt(), 1);

        // The new bot is among the active ones; "Live" opens the panel on it.
        QTRY_VERIFY(test::findNamed(m_app->mainWindow(), "liveButton") != nullptr);
        FloatingPanelController& panel = m_app->floatingPanel();
        QSignalSpy closed(&panel, &FloatingPanelController::floatingTranscriptDidClose);
        click("liveButton");
        QVERIFY(panel.isOpen());
        QVERIFY(QTest::qWaitForWindowExposed(panel.window()));
        QVERIFY(panel.window()->flags().testFlags(Qt::Tool | Qt::FramelessWindowHint |
                                                  Qt::WindowStaysOnTopHint));
        QCOMPARE(panel.window()->size(), FloatingPanelController::kSize);
        const QString meeting = panel.meetingId();
        QVERIFY(!meeting.isEmpty());
        QObject* lines = test::findNamed(panel.window(), "transcriptList");
        QTRY_VERIFY(lines->property("count").toInt() >= 3);
        QCOMPARE(test::findNamed(panel.window(), "statusLabel")->property("text").toString(),
                 QStringLiteral("Connected"));

        // Another meeting only raises the open panel, which keeps its own.
        QVERIFY(panel.show(QStringLiteral("another"), QStringLiteral("http://127.0.0.1:1"),
                           m_app->auth().accessToken()));
        QCOMPARE(panel.meetingId(), meeting);
        QCOMPARE(panel.manager()->connectionStatus(), SSEConnectionStatus::connected());

        // Its close button: the stream ends, the panel goes, one notice.
        QPointer<LiveTranscriptManager> manager = panel.manager();
        QVERIFY(QMetaObject::invokeMethod(test::findNamed(panel.window(), "closeTranscriptButton"),
                                          "clicked"));
        QVERIFY(!panel.isOpen());
        QCOMPARE(closed.count(), 1);
        QTRY_VERIFY(manager.isNull());

        // Closed by the window manager: the same ending, one notice.
        click("liveButton");
        QVERIFY(panel.isOpen());
        manager = panel.manager();
        panel.window()->close();
        QTRY_VERIFY(!panel.isOpen());
        QTRY_VERIFY(manager.isNull());
        QCOMPARE(closed.count(), 2);
        panel.close(); // nothing open: nothing to say
        QCOMPARE(closed.count(), 2);

        // "Stop" takes the bot out: it leaves the active ones, and the
        // list says so once the service has it.
        RecordingsListController& list = m_app->recordingsList();
        QVERIFY(list.hasActiveBots());
        click("stopButton");
        QTRY_VERIFY_WITH_TIMEOUT(!list.hasActiveBots(), 10000);

        // Signing out takes the account's transcript off the screen.
        QVERIFY(panel.show(meeting, m_service->origin(), m_app->auth().accessToken()));
        m_app->auth().logout();
        QVERIFY(!panel.isOpen());
        QCOMPARE(closed.count(), 3);
    }

    // Sign out, sign in as someone else: nothing of the first account is
    // shown, and none of its ids goes out with the second account's token
    // (late answers: tst_recordingsviews).
    void theNextAccountSeesNothingOfThePrevious()
    {
        LocalService& service = m_service->service();
        const QString other = QStringLiteral("other@sorvelandrix.local");
        service.addAccount(other, QStringLiteral("Other User"), QStringLiteral("other"));
        const QString bot = service.addMeeting(
            LocalService::kDemoEmail, QStringLiteral("https://meet.google.com/abc-defg-hij"));
        signIn();
        RecordingsListController& list = m_app->recordingsList();
        press("tab1");
        QTRY_VERIFY(list.hasActiveBots());
        QTRY_VERIFY(list.recordings()->count() > 0);
        press("tab2");
        type("meetingUrlField", QStringLiteral("https://zoom.us/j/1"));
        press("tab1");
        press("userMenuButton");
        QTRY_VERIFY(item("userMenu")->property("visible").toBool());
        press("signOutButton");
        QTRY_VERIFY(!showsTabs());
        QCOMPARE(list.recordings()->count(), 0);
        QVERIFY(!list.hasActiveBots());
        QCOMPARE(m_app->joinMeeting().meetingUrl(), QString());

        signIn(other, QStringLiteral("other"));
        press("tab1");
        QTRY_COMPARE(list.state(), RecordingsListController::State::Empty);
        list.stopMeeting(bot);
        list.showLiveTranscript(bot);
        QVERIFY(!m_app->floatingPanel().isOpen());
        QCOMPARE(service.requestCount("POST", QStringLiteral("/api/meetings/%1/stop").arg(bot)), 0);
    }

    // The consent sheet's obligations change with the mode while it is
    // closed; the next resize used to arrange the deleted ones.
    void videoModeSurvivesResizing()
    {
        signIn();
        press("videoCallButton");
        QVERIFY(m_app->recorderScreen().recordVideo());
        QQuickWindow* w = m_app->mainWindow();
        for (const QSize size : {w->minimumSize(), QSize(1600, 1200), w->minimumSize()}) {
            w->resize(size);
            QTRY_COMPARE(w->contentItem()->size(), QSizeF(size));
        }
        press("tab1");
        press("tab0");
        QCOMPARE(item("tabContent")->property("currentIndex").toInt(), 0);
    }

    // What the recorder screen shows before and while recording.
    void theRecorderScreenAsShown()
    {
        signIn(LocalService::kDemoEmail, LocalService::kDemoPassword, false);
        // A first-time user who cancels the consent sheet gets it again
        // each time the screen comes back.
        QTRY_VERIFY(shown("consentSheet"));
        press("consentCancelButton");
        QTRY_VERIFY(!shown("consentSheet"));
        press("tab1");
        press("tab0");
        QTRY_VERIFY(shown("consentSheet"));
        // The keyboard stays in the sheet: Tab goes round it, and Space
        // acts there, never on the tabs behind it.
        for (int i = 0; i < 12; ++i) {
            QTest::keyClick(m_app->mainWindow(), Qt::Key_Tab);
            QVERIFY(isInside(m_app->mainWindow()->activeFocusItem(), "consentSheet"));
        }
        QTest::keyClick(m_app->mainWindow(), Qt::Key_Space);
        QCOMPARE(item("tabContent")->property("currentIndex").toInt(), 0);
        // At the smallest size its buttons are still there to press.
        QQuickWindow* w = m_app->mainWindow();
        const QSize size = w->size();
        w->resize(w->minimumSize());
        QTRY_VERIFY(inView("agreeButton") && inView("consentCancelButton"));
        Settings::setValue(RecordingConsent::kAcknowledgedKey, true);
        press("consentCancelButton");
        QTRY_VERIFY(!shown("consentSheet"));

        // Transcript controls only while recording; the headphones hint in
        // both modes.
        QVERIFY(!shown("transcriptToggle"));
        QVERIFY(shown("headphonesHint"));
        press("videoCallButton");
        QVERIFY(shown("headphonesHint"));
        QTRY_VERIFY(inView("mainButton")); // the smallest window, the longest form
        w->resize(size);
        // Laid out again on the next frame: a press before that lands where
        // the button was.
        QTRY_VERIFY(
            (press("audioOnlyButton"), item("audioOnlyButton")->property("selected").toBool()));
        press("mainButton");
        QTRY_VERIFY(m_app->recorder().isRecording());
        QTRY_VERIFY(shown("transcriptToggle"));
        // Warnings come in above: the button and the timer stay put.
        const QRectF button = sceneRect("mainButton");
        m_engine->send(AudioEngineUpdate::systemAudioActive(false));
        m_engine->send(AudioEngineUpdate::micSilent(true, QStringLiteral("Nothing heard")));
        m_engine->send(AudioEngineUpdate::soundServer(false));
        QTRY_VERIFY(shown("micSilentWarning") && shown("soundServerNotice"));
        QCOMPARE(sceneRect("mainButton"), button);
        QVERIFY(inView("elapsedText"));
        m_engine->send(AudioEngineUpdate::soundServer(true));
        press("transcriptToggle");
        QTRY_VERIFY(shown("transcriptPlaceholder"));
        QCOMPARE(item("transcriptPlaceholder")->property("text").toString(),
                 QStringLiteral("Waiting for speech..."));

        // Discard asks first; Cancel keeps the file.
        press("mainButton");
        QTRY_VERIFY(shown("pendingSavePage"));
        const QString wav = m_app->recorder().lastWavPath();
        press("discardButton");
        QTRY_VERIFY(shown("discardConfirmation"));
        press("confirmCancelButton");
        QTRY_VERIFY(!shown("discardConfirmation"));
        QVERIFY(QFile::exists(wav));
        press("discardButton");
        QTRY_VERIFY(shown("discardConfirmation"));
        press("confirmButton");
        QTRY_VERIFY(!QFile::exists(wav));
        QTRY_VERIFY(shown("mainButton"));

        // Sign Out while an upload runs asks too; agreeing stops the upload.
        m_service->service().script("POST", QStringLiteral("/api/upload"),
                                    local::ScriptedAnswer::delayed(std::chrono::seconds(20)));
        press("mainButton");
        QTRY_VERIFY(m_app->recorder().isRecording());
        press("mainButton");
        QTRY_VERIFY(shown("saveButton"));
        press("saveButton");
        QTRY_COMPARE(m_app->recorder().state().kind(), RecordingState::Kind::Uploading);
        press("userMenuButton");
        QTRY_VERIFY(shown("signOutButton"));
        press("signOutButton");
        QTRY_VERIFY(shown("signOutConfirmation"));
        QVERIFY(m_app->auth().isLoggedIn());
        press("confirmButton");
        QTRY_VERIFY(!m_app->auth().isLoggedIn());
        QTRY_VERIFY(m_app->recorder().state().kind() != RecordingState::Kind::Uploading);
    }

    // Each screen as a screen reader and a keyboard user meet it.
    void everyScreenIsNamedAndReachedByTab()
    {
        QStringList problems = accessibilityProblems(QStringLiteral("sign-in"));
        signIn();
        QTRY_VERIFY(shown("mainButton"));
        problems << accessibilityProblems(QStringLiteral("record, audio"));
        press("videoCallButton");
        problems << accessibilityProblems(QStringLiteral("record, video"));
        press("audioOnlyButton");
        press("tab1");
        QTRY_VERIFY(!m_app->recordingsList().refreshing());
        problems << accessibilityProblems(QStringLiteral("recordings"));
        press("tab2");
        problems << accessibilityProblems(QStringLiteral("join"));
        press("userMenuButton");
        QTRY_VERIFY(shown("signOutButton"));
        problems << accessibilityProblems(QStringLiteral("user menu"));
        QTest::keyClick(m_app->mainWindow(), Qt::Key_Escape);
        item("passkeysSheet")->setProperty("visible", true);
        QTRY_VERIFY(!m_app->mainWindow()
                         ->property("passkeys")
                         .value<QObject*>()
                         ->property("loading")
                         .toBool());
        problems << accessibilityProblems(QStringLiteral("passkeys"));
        item("passkeysSheet")->setProperty("visible", false);
        Settings::setValue(RecordingConsent::kAcknowledgedKey, false);
        press("tab0");
        QTRY_VERIFY(shown("consentSheet"));
        problems << accessibilityProblems(QStringLiteral("consent"));
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join(QLatin1Char('\n'))));
    }

    // From the tray with the window closed: the window comes back with the
    // answer, instead of keeping it for the next time it is opened.
    void anUpdateCheckShowsItsAnswer()
    {
        m_app->mainWindow()->close();
        QTRY_VERIFY(!m_app->mainWindow()->isVisible());
        m_app->appDelegate().checkForUpdates();
        QTRY_VERIFY(m_app->mainWindow()->isVisible());
        QTRY_VERIFY(item("updateAlert")->property("visible").toBool());
    }

    // The pointer as it moves over the screen: each event's place in the
    // window is where the pointer is now, wherever the window went.
    static void drag(QWindow* window, QPoint from, QPoint by)
    {
        const QPoint start = window->mapToGlobal(from);
        QTest::mousePress(window, Qt::LeftButton, {}, from);
        for (int step = 1; step <= 4; ++step)
            QTest::mouseMove(window, window->mapFromGlobal(start + by * step / 4));
        QTest::mouseRelease(window, Qt::LeftButton, {}, window->mapFromGlobal(start + by));
    }

    void thePanelFollowsThePointerAndStaysOnScreen()
    {
        FloatingPanelController& panel = m_app->floatingPanel();
        QVERIFY(panel.show(QStringLiteral("m1"), m_service->origin(), QString()));
        QQuickWindow* w = panel.window();
        QVERIFY(QTest::qWaitForWindowExposed(w));
        const QRect screen = w->screen()->availableGeometry();
        w->setPosition(screen.topLeft() + QPoint(50, 50));
        QTRY_COMPARE(w->position(), screen.topLeft() + QPoint(50, 50));

        drag(w, QPoint(60, 20), QPoint(30, 40));
        QTRY_COMPARE(w->position(), screen.topLeft() + QPoint(80, 90));
        QCOMPARE(w->size(), FloatingPanelController::kSize);

        // The corner grip resizes; the panel stays where it is.
        drag(w, QPoint(w->width() - 6, w->height() - 6), QPoint(-40, -30));
        QTRY_COMPARE(w->size(), FloatingPanelController::kSize - QSize(40, 30));
        QCOMPARE(w->position(), screen.topLeft() + QPoint(80, 90));

        // Dragged past the top edge, it stays whole on the screen.
        drag(w, QPoint(60, 20), QPoint(0, -500));
        QTRY_COMPARE(w->y(), screen.top());

        // Lost off the screens (a monitor went): "Live" brings it back.
        w->setPosition(screen.right() + 2000, screen.bottom() + 2000);
        QTRY_VERIFY(!screen.contains(w->geometry()));
        QVERIFY(panel.show(QStringLiteral("m1"), m_service->origin(), QString()));
        QTRY_VERIFY(screen.contains(w->geometry()));
    }

    void windowSizeIsRemembered()
    {
        m_app->mainWindow()->resize(610, 560);
        m_app.reset(); // saves on the way out
        m_app = std::make_unique<SorvelandrixRecorderApp>();
        QVERIFY(m_app->launch());
        QCOMPARE(m_app->mainWindow()->size(), QSize(610, 560));

        // Saved where no screen is now, or larger than the screen (another
        // scale): whole on a screen again.
        const QRect screen = m_app->mainWindow()->screen()->availableGeometry();
        Settings::setValue(
            SorvelandrixRecorderApp::kGeometryKey,
            QRect(screen.right() - 100, screen.top() + 300, 1120, screen.height() + 400));
        m_app.reset();
        m_app = std::make_unique<SorvelandrixRecorderApp>();
        QVERIFY(m_app->launch());
        QVERIFY(screen.contains(m_app->mainWindow()->geometry()));
    }
};

SORV_WINDOW_TEST_MAIN(TestMainWindow)

#include "tst_mainwindow.moc"
