// The recorder screen's view-model against the real recorder (with a
// substitute capture engine), the real transcript managers and the local
// service: the consent rule before a start, the stored language, video mode
// after a session, the server transcript's fallback watch on a hand-moved
// clock, the stop rules for the on-device preview, and the post-recording
// screens.

#include "audio/inputdevicemodel.h"
#include "core/secretstore.h"
#include "core/settings.h"
#include "recording/audiorecorder.h"
#include "service/authmanager.h"
#include "signedin.h"
#include "support/isolatedenvironment.h"
#include "support/manualdelays.h"
#include "support/scriptedengine.h"
#include "transcript/livetranscriptsession.h"
#include "transcript/localtranscriptmanager.h"
#include "transcript/servertranscriptmanager.h"
#include "ui/recorderscreen.h"
#include "ui/recordingconsent.h"
#include "ui/transcriptlistmodel.h"
#include "video/screencapturetargetmodel.h"
#include "video/screencapturetargetstore.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTest>
#include <QThreadPool>

#include <atomic>

// Generous waits: the service and other builds share a busy machine; a wait
// ends as soon as its condition holds.
#define TRY_COMPARE(actual, expected) QTRY_COMPARE_WITH_TIMEOUT(actual, expected, 30000)
#define TRY_VERIFY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, 30000)

using namespace sorv;
using namespace std::chrono_literals;
using Kind = RecordingState::Kind;

namespace {

// One screen over a recorder and a session, in a private environment.
struct World {
    explicit World(bool acknowledged = true)
    {
        if (acknowledged)
            Settings::setValue(RecordingConsent::kAcknowledgedKey, true);
        engine->devices = {{5, QStringLiteral("Built-in"), true},
                           {7, QStringLiteral("Headset"), false}};
        recorder = std::make_unique<AudioRecorder>(std::unique_ptr<RecordingEngine>(engine));
        recorder->setAuthManager(&auth);
        RecorderScreen::Parts parts;
        parts.live.schedule = clock.delayedCall();
        parts.captureTargets = std::make_unique<ScreenCaptureTargetStore>();
        parts.captureTargets->setContentQuery([this](ShareableContentError*) {
            ++targetReloads;
            ShareableContent content;
            content.displays = {{42, QStringLiteral("HDMI-1"), QRect(0, 0, 1920, 1080), true}};
            content.windows = {{0x400001, 0, QStringLiteral("Standup"), QStringLiteral("Zoom"), 1,
                                QString(), QRect(0, 0, 800, 600)}};
            return std::optional<ShareableContent>(content);
        });
        screen = std::make_unique<RecorderScreen>(*recorder, auth, std::move(parts));
        screen->setDesktopHooks({[this](const QUrl& url) {
                                     opened << url;
                                     return true;
                                 },
                                 [this](const QString& program, const QStringList& args) {
                                     started << (QStringList{program} + args);
                                     return true;
                                 }});
    }
    ~World()
    {
        // Capture targets are listed on the thread pool, through this object.
        QThreadPool::globalInstance()->waitForDone();
        screen.reset();
        recorder.reset();
        Settings::setServerOverride({});
    }

    void signIn()
    {
        service = std::make_unique<test::LocalServiceFixture>();
        test::signIn(auth);
    }
    // A session whose token no service will ever see: the server
    // transcript keeps trying to connect and never becomes active.
    void tokenWithoutService()
    {
        Settings::setServerOverride(QStringLiteral("http://127.0.0.1:9"));
        secrets.write(AuthManager::originKey, QStringLiteral("http://127.0.0.1:9"));
        secrets.write(AuthManager::tokenKey, QStringLiteral("token-without-service"));
    }
    bool record()
    {
        screen->pressMainButton();
        return QTest::qWaitFor([&] { return recorder->state().kind() == Kind::Recording; }, 10000);
    }
    bool stopToPendingSave()
    {
        screen->pressMainButton();
        return QTest::qWaitFor([&] { return recorder->state().kind() == Kind::PendingSave; },
                               10000);
    }

    test::IsolatedEnvironment env;
    std::unique_ptr<test::LocalServiceFixture> service;
    SecretStore secrets{SecretStore::Options::fileOnly()};
    AuthManager auth{secrets};
    test::ScriptedEngine* engine = new test::ScriptedEngine;
    std::unique_ptr<AudioRecorder> recorder;
    test::ManualDelays clock; // the fallback watch's
    std::atomic<int> targetReloads = 0;
    std::unique_ptr<RecorderScreen> screen;
    QList<QUrl> opened;
    QList<QStringList> started;
};

} // namespace

class TestRecorderScreen : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void consentComesBeforeTheFirstRecording();
    void remindShowsTheSheetBeforeEveryRecording();
    void failedStartAfterAgreeingDoesNotAskAgain();
    void languageDefaults();
    void videoModeEndsWithTheSession();
    void fallbackWatch_data();
    void fallbackWatch();
    void stoppingEndsTheOnDevicePreview();
    void serverTranscriptFromTheService();
    void sessionWindsDownWithTheRecording();
    void retryUploadOnlyWhileTheFileExists();
    void uploadedRecordingOpensOnTheWeb();
    void pickersAndWarnings();
    void soundServerGoesAway();
    void privacySettingsProgram_data();
    void privacySettingsProgram();
};

void TestRecorderScreen::consentComesBeforeTheFirstRecording()
{
    World w(false);
    w.screen->appear();
    QVERIFY(w.screen->showingConsentSheet()); // at once, on first use
    w.screen->consent()->cancel();
    QVERIFY(!w.screen->showingConsentSheet());

    // The main button asks again, and starts nothing.
    w.screen->pressMainButton();
    QVERIFY(w.screen->showingConsentSheet());
    QVERIFY(!w.screen->consent()->acknowledged());
    QCOMPARE(w.recorder->state(), RecordingState::idle());

    w.screen->consent()->agree(); // not ticked: nothing
    QVERIFY(w.screen->showingConsentSheet());
    w.screen->consent()->setAcknowledged(true);
    w.screen->consent()->agree();
    QVERIFY(!w.screen->showingConsentSheet());
    QCOMPARE(w.recorder->state().kind(), Kind::Preparing);
    TRY_COMPARE(w.recorder->state().kind(), Kind::Recording);
    QVERIFY(w.screen->isRecording());

    // Acknowledged once: the next recording starts straight away.
    QVERIFY(w.stopToPendingSave());
    QCOMPARE(w.screen->statusText(), QStringLiteral("Recording stopped"));
    w.screen->discard();
    QCOMPARE(w.recorder->state(), RecordingState::idle());
    QVERIFY(w.record());
    QVERIFY(!w.screen->showingConsentSheet());
}

void TestRecorderScreen::remindShowsTheSheetBeforeEveryRecording()
{
    World w;
    w.screen->appear();
    QVERIFY(!w.screen->showingConsentSheet());
    Settings::setValue(RecordingConsent::kRemindKey, true);
    for (int i = 0; i < 2; ++i) {
        w.screen->pressMainButton();
        QVERIFY(w.screen->showingConsentSheet());
        QVERIFY(w.screen->consent()->remindEachRecording());
        QVERIFY(!w.screen->consent()->acknowledged()); // unticked every time
        w.screen->consent()->setAcknowledged(true);
        w.screen->consent()->agree();
        TRY_COMPARE(w.recorder->state().kind(), Kind::Recording);
        QVERIFY(w.stopToPendingSave());
        w.screen->discard();
    }
}

void TestRecorderScreen::failedStartAfterAgreeingDoesNotAskAgain()
{
    World w(false);
    w.engine->startError = RecorderError::noMicrophone();
    w.screen->pressMainButton();
    w.screen->consent()->setAcknowledged(true);
    w.screen->consent()->agree();
    TRY_COMPARE(w.recorder->state().kind(), Kind::Error);
    QCOMPARE(w.screen->page(), QStringLiteral("error"));
    QCOMPARE(w.screen->errorMessage(), QStringLiteral("No microphone available"));
    QVERIFY(!w.screen->retryUploadOffered());

    w.engine->startError.reset();
    w.screen->pressMainButton(); // straight from the error screen
    QVERIFY(!w.screen->showingConsentSheet());
    TRY_COMPARE(w.recorder->state().kind(), Kind::Recording);
}

void TestRecorderScreen::languageDefaults()
{
    {
        // A fresh installation shows audio mode and stores Afrikaans.
        World w;
        w.screen->appear();
        QCOMPARE(Settings::value(Settings::kSpeechLocaleKey).toString(), QStringLiteral("af-ZA"));
        QCOMPARE(w.screen->speechLocale(), QStringLiteral("af-ZA"));
        QCOMPARE(w.screen->localTranscript()->currentLocale(), QStringLiteral("af-ZA"));
        // Stored already: video mode keeps it.
        w.screen->setRecordVideo(true);
        QCOMPARE(w.screen->speechLocale(), QStringLiteral("af-ZA"));
        // The picker stores its choice and hands it to the on-device preview.
        w.screen->selectLanguage(5);
        QCOMPARE(w.screen->speechLocale(), QStringLiteral("de-DE"));
        QCOMPARE(Settings::value(Settings::kSpeechLocaleKey).toString(), QStringLiteral("de-DE"));
        QCOMPARE(w.screen->localTranscript()->currentLocale(), QStringLiteral("de-DE"));
        QCOMPARE(w.screen->languageIndex(), 5);
    }
    {
        // Nothing stored when video mode is switched on: Italian, for the
        // command line's video recordings too.
        World w;
        QCOMPARE(LiveTranscriptSession::storedLanguage(false), QStringLiteral("af-ZA"));
        QCOMPARE(LiveTranscriptSession::storedLanguage(true), QStringLiteral("it-IT"));
        w.screen->setRecordVideo(true);
        QCOMPARE(Settings::value(Settings::kSpeechLocaleKey).toString(), QStringLiteral("it-IT"));
        QCOMPARE(w.screen->speechLocale(), QStringLiteral("it-IT"));
        QCOMPARE(w.screen->localTranscript()->currentLocale(), QStringLiteral("it-IT"));
        w.screen->appear();
        QCOMPARE(w.screen->speechLocale(), QStringLiteral("it-IT"));
    }
}

void TestRecorderScreen::videoModeEndsWithTheSession()
{
    qunsetenv("DISPLAY"); // the video cannot start: the session ends in an error
    World w;
    w.screen->appear();
    QCOMPARE(w.screen->statusText(), QStringLiteral("Tap to start recording"));
    w.screen->setRecordVideo(true);
    QCOMPARE(w.screen->statusText(), QStringLiteral("Tap to record video call"));
    // Switching it on lists what can be captured, under their headings.
    const ScreenCaptureTargetModel& sources = *w.screen->captureSources();
    TRY_COMPARE(sources.count(), 4);
    QCOMPARE(w.targetReloads, 1);
    QStringList sections;
    for (int row = 0; row < sources.count(); ++row)
        sections << sources.index(row).data(ScreenCaptureTargetModel::SectionRole).toString();
    QCOMPARE(sections, (QStringList{"Displays", "Displays", "Applications", "Windows"}));
    w.screen->selectCaptureSource(1);
    QCOMPARE(w.screen->captureTargets()->selectedID(), QStringLiteral("display:42"));
    QCOMPARE(w.screen->selectedCaptureSourceIndex(), 1);

    w.screen->pressMainButton();
    QCOMPARE(w.screen->recordingSourceLine(), QStringLiteral("Recording: HDMI-1"));
    w.screen->setRecordVideo(false); // not while a session is being made
    QVERIFY(w.screen->recordVideo());
    TRY_COMPARE(w.recorder->state().kind(), Kind::Error);
    QVERIFY(w.screen->recordVideo()); // the error screen still shows the session's mode

    w.screen->startOver();
    QCOMPARE(w.recorder->state(), RecordingState::idle());
    QVERIFY(!w.screen->recordVideo());
    QVERIFY(!w.screen->consent()->recordsVideo());
    QCOMPARE(w.screen->statusText(), QStringLiteral("Tap to start recording"));
}

void TestRecorderScreen::fallbackWatch_data()
{
    QTest::addColumn<QString>("event");
    QTest::addColumn<bool>("transient");
    QTest::addColumn<int>("offeredAfterMs"); // -1: never
    QTest::newRow("nothing happens") << QString() << false << 12000;
    // The streamer's own retries: the service is given the whole time.
    QTest::newRow("reconnecting") << "Connection lost (reset), reconnecting in 2s…" << true
                                  << 12000;
    QTest::newRow("refreshing the session")
        << "Authentication expired, refreshing…" << true << 12000;
    QTest::newRow("a real failure") << "Live transcription is not available" << false << 100;
    // Whatever its words: the service's own error is no retry of ours.
    QTest::newRow("the service's error mentions reconnecting")
        << "Upstream model reconnecting failed" << false << 100;
    QTest::newRow("active") << "connected" << false << -1;
}

void TestRecorderScreen::fallbackWatch()
{
    QFETCH(QString, event);
    QFETCH(bool, transient);
    QFETCH(int, offeredAfterMs);
    World w;
    w.tokenWithoutService();
    QVERIFY(w.record());
    w.screen->toggleTranscript();
    QVERIFY(w.screen->transcriptVisible());
    QCOMPARE(w.screen->transcriptMode(), TranscriptMode::server());
    QVERIFY(w.screen->connectingToServer());
    QVERIFY(w.engine->hasConsumer()); // the recorder's audio goes to the service

    // From here on the event loop does not run: the status is what the
    // events below make it.
    if (event == QLatin1String("connected"))
        w.screen->serverTranscript()->handle(LiveEvent::Connected{});
    else if (!event.isEmpty())
        w.screen->serverTranscript()->handle(LiveEvent::Error{event, transient});

    if (offeredAfterMs < 0) {
        w.clock.advance(13s);
        QVERIFY(!w.screen->serverFallbackOffered());
        QCOMPARE(w.clock.pendingCount(), 0); // the watch ended when the transcript came up
        QVERIFY(w.screen->listening());
        // A service that fails once connected still gets the offer.
        w.screen->serverTranscript()->handle(
            LiveEvent::Error{QStringLiteral("Live transcription is not available"), false});
        QVERIFY(w.screen->serverFallbackOffered());
        return;
    }
    w.clock.advance(std::chrono::milliseconds(offeredAfterMs) - 1ms);
    QVERIFY(!w.screen->serverFallbackOffered());
    w.clock.advance(1ms);
    QVERIFY(w.screen->serverFallbackOffered());
    QCOMPARE(w.clock.pendingCount(), 0);

    // "Retry server" withdraws the offer and watches afresh.
    w.screen->retryServer();
    QVERIFY(!w.screen->serverFallbackOffered());
    QCOMPARE(w.screen->transcriptMode(), TranscriptMode::server());
    w.screen->toggleTranscript(); // hidden: the watch ends without an offer
    w.clock.advance(13s);
    QVERIFY(!w.screen->serverFallbackOffered());
    QVERIFY(!w.engine->hasConsumer());
}

void TestRecorderScreen::stoppingEndsTheOnDevicePreview()
{
    for (const bool byMainButton : {true, false}) {
        World w; // signed out: the server transcript fails at once
        Settings::setValue(Settings::kSpeechLocaleKey, QStringLiteral("en-US"));
        w.screen->appear();
        QVERIFY(w.record());
        w.screen->toggleTranscript();
        QCOMPARE(w.screen->transcriptError(), QStringLiteral("Not logged in"));
        QVERIFY(w.screen->serverFallbackOffered());

        w.screen->useOnDevicePreview();
        QVERIFY(!w.screen->serverFallbackOffered());
        QCOMPARE(w.screen->transcriptMode(), TranscriptMode::onDevice());
        LocalTranscriptManager& local = *w.screen->localTranscript();
        TRY_COMPARE(local.status(), TranscriptStatus::active());
        QVERIFY(local.usesMixedAudio());
        QVERIFY(w.engine->hasConsumer());
        QVERIFY(w.screen->listening());

        // A language without a model, then one with: the preview follows.
        w.screen->setSpeechLocale(QStringLiteral("af-ZA"));
        TRY_VERIFY(local.status().isError());
        QVERIFY(local.status().message().contains(QStringLiteral("Afrikaans")));
        w.screen->setSpeechLocale(QStringLiteral("en-US"));
        TRY_COMPARE(local.status(), TranscriptStatus::active());
        QVERIFY(w.engine->hasConsumer());

        if (byMainButton) {
            w.screen->pressMainButton();
        } else {
            // The recording fails under it: the state change alone stops it.
            w.engine->send(AudioEngineUpdate::fatalError(QStringLiteral("disk gone")));
            TRY_COMPARE(w.recorder->state().kind(), Kind::Error);
        }
        TRY_COMPARE(local.status(), TranscriptStatus::idle());
        QVERIFY(!local.usesMixedAudio());
        QVERIFY(!w.engine->hasConsumer());
        QCOMPARE(w.screen->transcriptMode(), TranscriptMode::none());
        QVERIFY(!w.screen->transcriptVisible());
    }
}

void TestRecorderScreen::serverTranscriptFromTheService()
{
    World w;
    w.signIn();
    w.screen->appear();
    w.screen->setSpeechLocale(QStringLiteral("en-GB"));
    QVERIFY(w.record());
    w.screen->toggleTranscript();
    TRY_COMPARE(w.screen->serverTranscript()->status(), TranscriptStatus::active());
    QVERIFY(w.screen->listening());
    QVERIFY(!w.screen->connectingToServer());

    // A language change restarts the service's transcript in the new language.
    w.screen->setSpeechLocale(QStringLiteral("de-DE"));
    TRY_COMPARE(w.service->service().liveSessions().size(), 2);
    QCOMPARE(w.service->service().liveSessions().at(1).languageHints, (QStringList{"de", "en"}));
    TRY_COMPARE(w.screen->serverTranscript()->status(), TranscriptStatus::active());

    // The mixed audio reaches the service through the recorder; its
    // conversation comes back as bubbles.
    for (int i = 0; i < 45; ++i)
        w.engine->feed(AudioBuffer{std::vector<float>(std::size_t{3} * 1920, 0.0f), 0});
    const TranscriptListModel& model = *w.screen->transcript();
    TRY_VERIFY(model.count() >= 2);
    QVERIFY(!w.screen->listening());
    TRY_COMPARE(model.data(model.index(1), TranscriptListModel::AccessibleNameRole).toString(),
                QStringLiteral("Sam said: Morning! Happy to be here."));

    w.screen->toggleTranscriptExpanded();
    QCOMPARE(w.screen->transcriptMaxHeight(), RecorderScreen::kExpandedTranscriptHeight);
    QVERIFY(w.stopToPendingSave());
    QVERIFY(!w.screen->transcriptExpanded());
    QVERIFY(!w.engine->hasConsumer());
    QCOMPARE(w.screen->transcriptMode(), TranscriptMode::none());
    TRY_VERIFY(!w.screen->serverTranscript()->streamer().isActive());
}

void TestRecorderScreen::sessionWindsDownWithTheRecording()
{
    World w;
    w.signIn();
    QVERIFY(w.record());
    LiveTranscriptSession& live = *w.screen->live();
    live.setLanguage(QStringLiteral("de-DE")); // the service's scripted conversation
    live.start(*w.recorder, w.auth);
    TRY_COMPARE(live.status(), TranscriptStatus::active());
    // Audio until the service's first line is under way, not finished.
    const QList<TranscriptSegment>& segments = live.server().segments();
    for (int i = 0; i < 40 && segments.isEmpty(); ++i) {
        w.engine->feed(AudioBuffer{std::vector<float>(std::size_t{3} * 1920, 0.0f), 0});
        QTest::qWait(50);
    }
    QVERIFY(!segments.isEmpty());
    QVERIFY(live.server().currentPartialSpeaker().has_value());

    // The recording is over: the service makes its open line final, then
    // the session ends without the wind-down's clock moving.
    bool ended = false;
    QVERIFY(live.windDown([&] { ended = true; }));
    QCOMPARE(live.mode(), TranscriptMode::none());
    QVERIFY(!w.engine->hasConsumer());
    TRY_VERIFY(ended);
    QVERIFY(!live.server().currentPartialSpeaker().has_value());
    QVERIFY(!live.windDown([] { QFAIL("a second ending"); }));
}

void TestRecorderScreen::retryUploadOnlyWhileTheFileExists()
{
    World w; // signed out: the upload is refused and the recording kept
    QVERIFY(w.record());
    QVERIFY(w.stopToPendingSave());
    const QString file = w.recorder->outputPath();
    w.screen->saveAndUpload();
    TRY_COMPARE(w.recorder->state().kind(), Kind::Error);
    QVERIFY(w.screen->retryUploadOffered());

    QSignalSpy display(w.screen.get(), &RecorderScreen::displayChanged);
    QVERIFY(QFile::remove(file));
    TRY_VERIFY(display.count() > 0); // the view hears of it
    QVERIFY(!w.screen->retryUploadOffered());
    const RecordingState before = w.recorder->state();
    w.screen->retryUpload(); // nothing left to send
    QCOMPARE(w.recorder->state(), before);
}

void TestRecorderScreen::uploadedRecordingOpensOnTheWeb()
{
    World w;
    w.signIn();
    QVERIFY(w.record());
    QVERIFY(w.stopToPendingSave());
    QSignalSpy display(w.screen.get(), &RecorderScreen::displayChanged);
    w.screen->saveAndUpload();
    TRY_COMPARE(w.recorder->state().kind(), Kind::Uploaded);
    QCOMPARE(w.screen->page(), QStringLiteral("uploaded"));
    QCOMPARE(w.screen->statusText(), QStringLiteral("Recording uploaded!"));
    QVERIFY(w.screen->canViewRecording());
    w.screen->viewRecording();
    QCOMPARE(w.opened, QList<QUrl>{QUrl(w.service->origin() + QStringLiteral("/recording/") +
                                        *w.recorder->state().id())});
    w.screen->recordAnother();
    QCOMPARE(w.screen->page(), QStringLiteral("idle"));
}

void TestRecorderScreen::pickersAndWarnings()
{
    World w;
    const InputDeviceModel& microphones = *w.screen->microphones();
    QCOMPARE(microphones.count(), 2);
    QCOMPARE(microphones.index(0).data(InputDeviceModel::LabelRole).toString(),
             QStringLiteral("Built-in (default)"));
    QCOMPARE(microphones.index(1).data(InputDeviceModel::LabelRole).toString(),
             QStringLiteral("Headset"));
    QCOMPARE(w.screen->selectedMicrophoneIndex(), 0); // the system default
    w.screen->selectMicrophone(1);
    QCOMPARE(w.recorder->selectedInputDeviceID(), 7u);
    QCOMPARE(w.screen->selectedMicrophoneIndex(), 1);

    QVERIFY(!w.screen->systemAudioWarningVisible()); // only while recording
    QVERIFY(w.record());
    w.engine->send(AudioEngineUpdate::systemAudioActive(false));
    w.engine->send(AudioEngineUpdate::systemAudioError(QStringLiteral("refused")));
    w.engine->send(
        AudioEngineUpdate::micSilent(true, QStringLiteral("The selected microphone is quiet")));
    TRY_COMPARE(w.screen->systemAudioError(), QStringLiteral("refused"));
    QVERIFY(w.screen->systemAudioWarningVisible());
    TRY_VERIFY(w.screen->micSilentWarningVisible());
    QCOMPARE(w.screen->micSilentMessage(), QStringLiteral("Headset is quiet"));
    w.screen->retrySystemAudio();
    QCOMPARE(w.engine->systemAudioRetries, 1);
    w.engine->send(AudioEngineUpdate::systemAudioActive(true));
    TRY_VERIFY(!w.screen->systemAudioWarningVisible());
    QVERIFY(w.stopToPendingSave());
    w.screen->discard();

    // A video recording's screen-access advice, then an audio-only one
    // straight from where the first ended: the advice is not shown.
    w.recorder->setScreenCaptureProbe(
        [](const std::function<void(AudioRecorder::ProbeResult)>& done) {
            done(AudioRecorder::ProbeResult::Failed);
        });
    w.screen->setRecordVideo(true);
    w.screen->pressMainButton();
    TRY_VERIFY(!w.recorder->screenAccessWarning().isEmpty());
    // The made-up display cannot be captured: the video part fails.
    TRY_COMPARE(w.recorder->state().kind(), Kind::Error);
    w.screen->setRecordVideo(false);
    QVERIFY(w.record());
    QVERIFY(!w.screen->screenAccessWarningVisible());
}

void TestRecorderScreen::soundServerGoesAway()
{
    World w;
    w.engine->seconds = 2.5;
    QVERIFY(w.record());
    w.engine->send(AudioEngineUpdate::makeMeters({.mic = 0.5f, .system = 0.4f}));
    TRY_COMPARE(w.recorder->micLevel(), 0.5f);

    // The server's devices vanish with it: the picker keeps what it showed.
    w.engine->devices.clear();
    w.engine->send(AudioEngineUpdate::soundServer(false));
    TRY_COMPARE(w.screen->soundServer(), RecorderScreen::SoundServer::Waiting);
    w.recorder->refreshInputDevices();
    QCOMPARE(w.screen->microphones()->count(), 2);
    QCOMPARE(w.recorder->micLevel(), 0.0f);
    QCOMPARE(w.recorder->systemLevel(), 0.0f);

    w.engine->send(AudioEngineUpdate::soundServer(true));
    TRY_COMPARE(w.screen->soundServer(), RecorderScreen::SoundServer::Resumed);

    // The save card shows what the file holds, not the time that passed.
    QVERIFY(w.stopToPendingSave());
    QCOMPARE(w.recorder->elapsed(), 2.5);
    QCOMPARE(w.screen->durationText(), QStringLiteral("00:02"));
    QCOMPARE(w.screen->soundServer(), RecorderScreen::SoundServer::Answers);
}

void TestRecorderScreen::privacySettingsProgram_data()
{
    QTest::addColumn<QStringList>("installed");
    QTest::addColumn<QString>("desktop");
    QTest::addColumn<QStringList>("command");
    QTest::newRow("none") << QStringList() << "GNOME" << QStringList();
    QTest::newRow("GNOME") << QStringList{"gnome-control-center"} << "GNOME"
                           << QStringList{"gnome-control-center", "privacy"};
    QTest::newRow("KDE") << QStringList{"systemsettings"} << "KDE" << QStringList{"systemsettings"};
    QTest::newRow("both, on KDE") << QStringList{"gnome-control-center", "systemsettings"} << "KDE"
                                  << QStringList{"systemsettings"};
    QTest::newRow("both, elsewhere") << QStringList{"gnome-control-center", "systemsettings"}
                                     << "XFCE" << QStringList{"gnome-control-center", "privacy"};
}

void TestRecorderScreen::privacySettingsProgram()
{
    QFETCH(QStringList, installed);
    QFETCH(QString, desktop);
    QFETCH(QStringList, command);
    test::IsolatedEnvironment env;
    const QString bin = env.path(QStringLiteral("bin"));
    QVERIFY(QDir().mkpath(bin));
    for (const QString& program : installed) {
        QFile f(bin + QLatin1Char('/') + program);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.setPermissions(QFileDevice::ReadOwner | QFileDevice::ExeOwner);
    }
    const QByteArray path = qgetenv("PATH");
    const QByteArray currentDesktop = qgetenv("XDG_CURRENT_DESKTOP");
    qputenv("PATH", bin.toLocal8Bit());
    qputenv("XDG_CURRENT_DESKTOP", desktop.toLocal8Bit());
    World w;
    qputenv("PATH", path);
    qputenv("XDG_CURRENT_DESKTOP", currentDesktop);

    QCOMPARE(w.screen->canOpenPrivacySettings(), !command.isEmpty());
    w.screen->openPrivacySettings();
    if (command.isEmpty()) {
        QVERIFY(w.started.isEmpty());
        return;
    }
    command[0] = bin + QLatin1Char('/') + command[0];
    QCOMPARE(w.started, QList<QStringList>{command});
}

QTEST_GUILESS_MAIN(TestRecorderScreen)
#include "tst_recorderscreen.moc"
