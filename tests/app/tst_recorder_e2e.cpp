// The recorder screen as a user meets it, with nothing substituted: the
// application on an X server, PulseAudio's sandbox with a speaking
// microphone, and the local service. First use asks for consent, the main
// button records, the service's live transcript shows up in the window, and
// the recording is stopped, saved and uploaded.

#include "app/recorderapp.h"
#include "localservicefixture.h"
#include "qmlfinder.h"
#include "recording/audiorecorder.h"
#include "service/authmanager.h"
#include "support/isolatedenvironment.h"
#include "support/pulsesandbox.h"
#include "ui/recorderscreen.h"
#include "ui/viewhelpers.h"

#include <QQuickItem>
#include <QTemporaryDir>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(Sorvelandrix_UiPlugin)

#define TRY_VERIFY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, 30000)

using namespace sorv;
using local::LocalService;

class TestRecorderEndToEnd : public QObject {
    Q_OBJECT

    std::unique_ptr<SorvelandrixRecorderApp> m_app;

    QObject* item(const char* name)
    {
        QObject* found = test::findNamed(m_app->mainWindow(), QString::fromLatin1(name));
        if (!found)
            qWarning("no item named %s", name);
        return found;
    }
    bool shown(const char* name) { return test::isShown(m_app->mainWindow(), name); }
    void click(const char* name)
    {
        auto* target = qobject_cast<QQuickItem*>(item(name));
        QVERIFY(target);
        QTRY_VERIFY(target->isVisible() && target->isEnabled());
        test::clickCentre(m_app->mainWindow(), target);
    }

private Q_SLOTS:
    void recordTranscribeSaveAndUpload()
    {
        if (!test::PulseSandbox::toolsAvailable())
            QSKIP("the PulseAudio tools are needed");
        test::IsolatedEnvironment env;
        test::LocalServiceFixture service;
        test::PulseSandbox sandbox;
        QVERIFY2(sandbox.isRunning(), qPrintable(sandbox.errorString()));
        QTemporaryDir tones;
        const QString voice = tones.filePath(QStringLiteral("voice.wav"));
        QVERIFY(test::PulseSandbox::makeTone(voice, 440, 60));
        QVERIFY(sandbox.playIntoMicrophone(voice));

        m_app = std::make_unique<SorvelandrixRecorderApp>();
        m_app->helpers().setUrlOpener([](const QUrl&) {});
        QVERIFY(m_app->launch());
        QVERIFY(QTest::qWaitForWindowExposed(m_app->mainWindow()));

        // Signed in, the recorder screen asks for consent before anything else.
        m_app->auth().login(LocalService::kDemoEmail, LocalService::kDemoPassword);
        TRY_VERIFY(shown("mainButton"));
        TRY_VERIFY(m_app->recorderScreen().showingConsentSheet());
        click("consentCancelButton");
        TRY_VERIFY(!m_app->recorderScreen().showingConsentSheet());

        // The main button: the sheet again, agreed this time, and the recording
        // starts from it.
        click("mainButton");
        TRY_VERIFY(m_app->recorderScreen().showingConsentSheet());
        click("acknowledgeCheckBox");
        click("agreeButton");
        AudioRecorder& recorder = m_app->recorder();
        TRY_VERIFY(recorder.isRecording());
        TRY_VERIFY(recorder.micLevel() > 0.0f);

        // The service's live transcript, in the window.
        click("transcriptToggle");
        TRY_VERIFY(shown("transcriptList") &&
                   item("transcriptList")->property("count").toInt() > 0);
        QVERIFY(service->liveFramesReceived() > 0);

        click("mainButton");
        TRY_VERIFY(shown("pendingSavePage"));
        const QString wav = recorder.lastWavPath();
        QVERIFY(QFileInfo(wav).size() > 44);
        click("saveButton");
        TRY_VERIFY(shown("uploadedPage"));
        QVERIFY(!QFile::exists(wav)); // sent, so no longer kept
        QCOMPARE(service->requestCount("POST", QStringLiteral("/api/upload")), 1);
        m_app.reset();
    }
};

SORV_WINDOW_TEST_MAIN(TestRecorderEndToEnd)

#include "tst_recorder_e2e.moc"
