// sorvelandrix-screenshots OUTDIR: renders every screen and state of the
// application to OUTDIR/NAME.png, with the real controllers driven into each
// state against an in-process local service. Exits 1 when a screen fails to
// load or QML reports a warning, so a broken view fails the build.

#include "app/floatingpanelcontroller.h"
#include "app/recorderapp.h"
#include "core/settings.h"
#include "localservicefixture.h"
#include "qmlfinder.h"
#include "recording/audiorecorder.h"
#include "service/authmanager.h"
#include "service/recordingslistcontroller.h"
#include "support/isolatedenvironment.h"
#include "support/scriptedengine.h"
#include "support/xvfbsession.h"
#include "transcript/livetranscriptmanager.h"
#include "transcript/servertranscriptmanager.h"
#include "ui/joinmeetingcontroller.h"
#include "ui/recorderscreen.h"
#include "ui/recordingconsent.h"
#include "ui/transcriptlistmodel.h"
#include "ui/viewhelpers.h"
#include "update/sparkleupdater.h"
#include "video/testwindows.h"

#include <QApplication>
#include <QDir>
#include <QJsonArray>
#include <QJsonObject>
#include <QMenu>
#include <QPainter>
#include <QQuickItem>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QSystemTrayIcon>
#include <QTcpServer>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>

#include <cstdio>
#include <optional>

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

    // Without letting events through first: a state that lasts only until
    // the next answer comes in.
    void shootNow(const QString& name) const { save(window()->grabWindow(), name); }
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
    auth.expireSession(sorv::AuthManager::expiredBanner());
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

// Until the first consent, showing the Record tab asks for it; the sheet is
// modal, so a user cancels it before doing anything else there.
void showRecordTab(Shooter& s, sorv::RecorderScreen& screen)
{
    s.click("tab0");
    Shooter::settle();
    if (screen.showingConsentSheet()) {
        screen.consent()->cancel();
        s.waitFor([&] { return !screen.showingConsentSheet(); }, "the consent sheet closed");
    }
}

void recorderScreens(Shooter& s, sorv::RecorderScreen& screen)
{
    showRecordTab(s, screen);
    screen.setRecordVideo(false);
    s.shoot(QStringLiteral("record-idle-audio"));
    screen.setRecordVideo(true);
    s.waitFor([&] { return !screen.captureSourcesLoading(); }, "the capture sources");
    s.shoot(QStringLiteral("record-idle-video"));
    if (QObject* picker = s.find("captureSourcePicker")) {
        auto* popup = picker->property("popup").value<QObject*>();
        popup->setProperty("visible", true);
        s.shoot(QStringLiteral("record-capture-sources"));
        popup->setProperty("visible", false);
    }

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

// A recording from the main button to its upload, with every warning and
// transcript state on the way, and the two error screens.
void recordingScreens(Shooter& s, sorv::RecorderScreen& screen, sorv::test::ScriptedEngine& engine,
                      sorv::test::LocalServiceFixture& service, bool canRecordScreen)
{
    using sorv::AudioEngineUpdate;
    using sorv::local::LiveScript;
    using sorv::local::ScriptedAnswer;
    sorv::AudioRecorder& recorder = *screen.recorder();
    const auto pageIs = [&](const char* page) {
        return [&screen, page] { return screen.page() == QLatin1String(page); };
    };
    const auto send = [&](const AudioEngineUpdate& update, const char* what,
                          const std::function<bool()>& shown) {
        engine.send(update);
        s.waitFor(shown, what);
    };
    sorv::Settings::setValue(sorv::RecordingConsent::kAcknowledgedKey, true);
    s.click("tab0");

    // A minute of audio, so that the upload below takes a moment.
    engine.seconds = 60;
    engine.holdStart = true;
    screen.pressMainButton();
    s.waitFor([&] { return screen.recorderState() == QLatin1String("preparing"); }, "preparing");
    s.shoot(QStringLiteral("record-preparing"));
    engine.holdStart = false;
    engine.releaseStart();
    s.waitFor([&] { return recorder.isRecording(); }, "recording");
    send(AudioEngineUpdate::systemAudioActive(true), "system audio",
         [&] { return recorder.systemAudioActive(); });
    send(AudioEngineUpdate::makeMeters({0.62f, 0.0f, 0.38f, 0.7f}), "meters",
         [&] { return recorder.micLevel() > 0.5f; });
    s.shoot(QStringLiteral("record-meters"));

    send(
        AudioEngineUpdate::micSilent(
            true, QStringLiteral(
                      "No sound from “Built-in Audio Analog Stereo” for 10 seconds. Is it muted?")),
        "the silent microphone", [&] { return screen.micSilentWarningVisible(); });
    s.shoot(QStringLiteral("record-warning-mic-silent"));
    send(AudioEngineUpdate::micSilent(false, {}), "the microphone back",
         [&] { return !screen.micSilentWarningVisible(); });

    // As the engine reports it: inactive, then why.
    engine.send(AudioEngineUpdate::systemAudioActive(false));
    send(AudioEngineUpdate::systemAudioError(
             QStringLiteral("The sound server has no monitor source for the output device.")),
         "the system audio warning", [&] {
             return screen.systemAudioWarningVisible() && !recorder.systemAudioError().isEmpty();
         });
    s.shoot(QStringLiteral("record-warning-system-audio"));
    engine.send(AudioEngineUpdate::systemAudioActive(true));
    send(AudioEngineUpdate::systemAudioError(std::nullopt), "system audio back",
         [&] { return !screen.systemAudioWarningVisible(); });

    // The service's transcript: connecting (shot before the answer is in),
    // listening, three speakers, and a failure that offers the preview.
    // A taller window, so that the list below the meters is in the picture.
    const QSize normalSize = s.window()->size();
    s.window()->resize(normalSize.width(), 900);
    service->scriptLive(LiveScript{});
    screen.toggleTranscript();
    s.shootNow(QStringLiteral("transcript-connecting"));
    s.waitFor([&] { return screen.listening(); }, "listening");
    s.shoot(QStringLiteral("transcript-listening"));
    screen.toggleTranscript();

    LiveScript talk;
    const auto say = [&](const char* speaker, const char* text) {
        talk.send({{"type", "segment"}, {"speaker", speaker}, {"text", text}, {"is_final", true}});
    };
    talk.send({{"type", "speaker_names"}, {"names", QJsonObject{{"0", "Alex"}, {"2", "Priya"}}}});
    say("0", "Let's go over the launch checklist.");
    say("guest_speaker", "The press release is approved and scheduled for nine.");
    say("2", "Support has the new help articles ready.");
    say("0", "Great, then we only need the final build.");
    talk.send({{"type", "segment"},
               {"speaker", "guest_speaker"},
               {"text", "It should be out by"},
               {"is_final", false}});
    service->scriptLive(talk);
    screen.toggleTranscript();
    s.waitFor([&] { return screen.transcript()->count() == 5; }, "five transcript lines");
    s.shoot(QStringLiteral("transcript-three-speakers"));
    screen.toggleTranscript();

    service->scriptLive(LiveScript{}.send(
        {{"type", "error"}, {"message", "Live transcription is not available for this account."}}));
    screen.toggleTranscript();
    s.waitFor([&] { return screen.serverFallbackOffered(); }, "the fallback offer");
    s.shoot(QStringLiteral("transcript-fallback-offered"));
    screen.toggleTranscript();
    s.window()->resize(normalSize);

    // Stop, save, and watch the upload over a slow uplink.
    screen.pressMainButton();
    s.waitFor(pageIs("pendingSave"), "the save question");
    s.shoot(QStringLiteral("record-pending-save"));
    screen.saveAndUpload();
    s.waitFor([&] { return screen.uploadProgress() >= 0.42; }, "the upload at 42 %");
    s.shootNow(QStringLiteral("record-uploading"));
    s.waitFor(pageIs("uploaded"), "the upload's end");
    s.shoot(QStringLiteral("record-uploaded"));
    screen.recordAnother();

    // A refused upload keeps the file: "Retry upload".
    engine.seconds = 2;
    screen.pressMainButton();
    s.waitFor([&] { return recorder.isRecording(); }, "the second recording");
    screen.pressMainButton();
    s.waitFor(pageIs("pendingSave"), "the second save question");
    service->script("POST", "/api/upload",
                    ScriptedAnswer::json(507, {{"detail", "Your storage is full."}}));
    screen.saveAndUpload();
    s.waitFor(pageIs("error"), "the upload error");
    s.shoot(QStringLiteral("record-error-retry"));
    screen.startOver();
    s.waitFor(pageIs("idle"), "idle again");

    // A recording that ended on its own with nothing saved: no Retry.
    screen.pressMainButton();
    s.waitFor([&] { return recorder.isRecording(); }, "the third recording");
    send(AudioEngineUpdate::recordingFailed(
             QStringLiteral("The disk is full: nothing could be saved."), false),
         "the failed recording", pageIs("error"));
    s.shoot(QStringLiteral("record-error-no-retry"));
    screen.startOver();
    s.waitFor(pageIs("idle"), "idle again");

    // A video call on a desktop that refuses screen capture: the recording
    // runs, with the warning and its way out.
    if (!canRecordScreen)
        return;
    recorder.setScreenCaptureProbe(
        [](const std::function<void(sorv::AudioRecorder::ProbeResult)>& done) {
            done(sorv::AudioRecorder::ProbeResult::Failed);
        });
    screen.setRecordVideo(true);
    screen.pressMainButton();
    s.waitFor([&] { return screen.screenAccessWarningVisible(); }, "the screen-access warning");
    s.shoot(QStringLiteral("record-warning-screen-access"));
    screen.pressMainButton();
    s.waitFor(pageIs("pendingSave"), "the video's save question");
    screen.discard();
    s.waitFor(pageIs("idle"), "idle at the end");
}

void tabScreens(Shooter& s, sorv::RecorderScreen& screen)
{
    const char* names[] = {"tab-record", "tab-recordings", "tab-join"};
    for (int i = 0; i < 3; ++i) {
        if (i == 0)
            showRecordTab(s, screen);
        else
            s.click(QStringLiteral("tab%1").arg(i).toLatin1().constData());
        s.shoot(QString::fromLatin1(names[i]));
    }
    showRecordTab(s, screen);
    s.click("userMenuButton");
    s.shoot(QStringLiteral("user-menu-open"));
    s.set("userMenu", "visible", false);
}

const char* const kSpeakerColors[] = {"#3B82F6", "#EF4444", "#10B981", "#F59E0B"};

QJsonObject recordingJson(const QString& id, const QString& title, const char* status,
                          qint64 durationMs, int speakers, const QJsonValue& batch = {},
                          const QJsonValue& index = {})
{
    QJsonArray speakerList;
    for (int i = 0; i < speakers; ++i)
        speakerList.append(QJsonObject{{"name", QStringLiteral("Speaker %1").arg(i + 1)},
                                       {"color", kSpeakerColors[i % 4]}});
    return {{"id", id},
            {"original_filename", QString(id + QStringLiteral(".wav"))},
            {"ai_title", title},
            {"status", QString::fromLatin1(status)},
            {"created_at", "2026-11-20T09:30:00"},
            {"duration_ms", durationMs},
            {"batch_id", batch},
            {"batch_index", index},
            {"speaker_list", speakerList}};
}

// The Recordings and Join Meeting tabs in each of their states.
void meetingTabScreens(Shooter& s, sorv::SorvelandrixRecorderApp& app,
                       sorv::test::LocalServiceFixture& service)
{
    using sorv::RecordingsListController;
    using sorv::local::ScriptedAnswer;
    using namespace std::chrono_literals;
    RecordingsListController& list = app.recordingsList();
    const auto stateIs = [&](RecordingsListController::State state) {
        return [&list, state] { return list.state() == state && !list.refreshing(); };
    };

    // The first load, slowed down, of an account with nothing in it yet.
    ScriptedAnswer nothing = ScriptedAnswer::json(200, {{"items", QJsonArray()}, {"total", 0}});
    nothing.delay = 1500ms;
    service->script("GET", "/api/transcriptions", nothing);
    s.click("tab1");
    s.shoot(QStringLiteral("recordings-loading"));
    s.waitFor(stateIs(RecordingsListController::State::Empty), "an empty recordings list");
    s.shoot(QStringLiteral("recordings-empty"));

    service->script(
        "GET", "/api/transcriptions",
        ScriptedAnswer::json(503, {{"detail", "The service is down for maintenance."}}));
    s.click("refreshButton");
    s.waitFor(stateIs(RecordingsListController::State::Error), "the recordings error");
    s.shoot(QStringLiteral("recordings-error"));

    // Two bots at work, two recordings on their own and a batch of three.
    service->addMeeting(sorv::local::LocalService::kDemoEmail,
                        QStringLiteral("https://meet.google.com/abc-defg-hij"));
    service->addMeeting(sorv::local::LocalService::kDemoEmail,
                        QStringLiteral("https://zoom.us/j/81234567890"));
    const QJsonArray items{
        recordingJson("r1", "Weekly planning", "completed", 1'834'000, 4),
        recordingJson("b2", "Workshop, afternoon", "completed", 2'710'000, 3, "w1", 1),
        recordingJson("b1", "Workshop, morning", "completed", 3'905'000, 5, "w1", 0),
        recordingJson("b3", "Workshop, wrap-up", "processing", 612'000, 0, "w1", 2),
        recordingJson("r2", "Call with the printer", "error", 59'999, 2),
    };
    service->script("GET", "/api/transcriptions",
                    ScriptedAnswer::json(200, {{"items", items}, {"total", items.size()}}));
    s.click("retryButton");
    s.waitFor(stateIs(RecordingsListController::State::Loaded), "the recordings list");
    s.waitFor([&] { return list.hasActiveBots(); }, "the active bots");
    s.shoot(QStringLiteral("recordings-list"));

    // Join Meeting: idle, filled in, joining, sent, refused.
    sorv::JoinMeetingController& join = app.joinMeeting();
    s.click("tab2");
    s.shoot(QStringLiteral("join-idle"));
    join.setMeetingUrl(QStringLiteral("https://meet.google.com/xyz-abcd-efg"));
    s.shoot(QStringLiteral("join-filled"));
    service->script("POST", "/api/meetings/join", ScriptedAnswer::delayed(1000ms));
    join.join();
    s.shoot(QStringLiteral("join-joining"));
    s.waitFor([&] { return join.succeeded(); }, "the bot sent");
    s.shoot(QStringLiteral("join-success"));
    s.waitFor([&] { return !join.isJoining(); }, "the switch to the recordings");
    s.click("tab2");
    join.setMeetingUrl(QStringLiteral("https://example.com/not-a-meeting"));
    join.join();
    s.waitFor([&] { return !join.errorMessage().isEmpty(); }, "the join error");
    s.shoot(QStringLiteral("join-error"));
    join.setMeetingUrl(QString());
    s.click("tab1");
}

// The floating transcript panel in each state of its stream.
void floatingPanelScreens(Shooter& s, sorv::SorvelandrixRecorderApp& app,
                          sorv::test::LocalServiceFixture& service)
{
    using sorv::SSEConnectionStatus;
    using sorv::local::MeetingStreamScript;
    using namespace std::chrono_literals;
    sorv::FloatingPanelController& panel = app.floatingPanel();
    const QString token = app.auth().accessToken();
    const QString meeting =
        service->addMeeting(sorv::local::LocalService::kDemoEmail,
                            QStringLiteral("https://meet.google.com/pan-elsh-ots"));
    const auto shootPanel = [&](const QString& name) {
        Shooter::settle();
        s.save(panel.window()->grabWindow(), name);
        panel.close();
    };
    const auto statusIs = [&](const SSEConnectionStatus& status) {
        return [&panel, status] { return panel.manager()->connectionStatus() == status; };
    };

    // A service that takes the connection and never answers.
    QTcpServer silent;
    silent.listen(QHostAddress::LocalHost);
    panel.show(meeting, QStringLiteral("http://127.0.0.1:%1").arg(silent.serverPort()), token);
    shootPanel(QStringLiteral("panel-connecting"));

    service->scriptMeetingStream(MeetingStreamScript{});
    panel.show(meeting, service.origin(), token);
    s.waitFor(statusIs(SSEConnectionStatus::connected()), "the panel connected");
    shootPanel(QStringLiteral("panel-waiting"));

    MeetingStreamScript talk;
    talk.data({{"type", "speaker_names"}, {"names", QJsonObject{{"0", "Alex"}, {"1", "Sam"}}}});
    const auto say = [&](const char* speaker, const char* text) {
        talk.data({{"type", "transcript"},
                   {"segments", QJsonArray{QJsonObject{{"speaker", speaker}, {"text", text}}}}});
    };
    say("0", "Good morning everyone, thanks for joining so early.");
    say("1", "Morning! Shall we start with the release?");
    say("2", "Sure. The build passed last night and the installers are ready.");
    say("0", "Great. Any blockers from QA?");
    say("1", "Two small ones, both fixed this morning.");
    service->scriptMeetingStream(talk);
    panel.show(meeting, service.origin(), token);
    s.waitFor([&] { return panel.manager()->segments().size() == 5; }, "five lines in the panel");
    shootPanel(QStringLiteral("panel-three-speakers"));

    panel.show(meeting, service.origin(), QStringLiteral("not-a-token"));
    s.waitFor([&] { return panel.manager()->connectionStatus().isError(); }, "the panel's error");
    shootPanel(QStringLiteral("panel-error"));

    service->scriptMeetingStream(MeetingStreamScript{}.end());
    panel.show(meeting, service.origin(), token);
    s.waitFor([&] { return !panel.manager()->isActive(); }, "the panel's stream ended");
    shootPanel(QStringLiteral("panel-disconnected"));
}

void passkeyScreens(Shooter& s, sorv::test::LocalServiceFixture& service)
{
    QObject* sheet = s.find("passkeysSheet");
    auto* passkeys = s.window()->property("passkeys").value<QObject*>();
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
    {
        // The update is held back a moment, to show the download under way.
        service->script("GET",
                        QStringLiteral("/updates/files/sorvelandrix-recorder-%1.txt")
                            .arg(service->appcastVersion()),
                        sorv::local::ScriptedAnswer::delayed(std::chrono::milliseconds(1500)));
        sorv::SparkleUpdaterConfig config;
        config.publicKey = service->appcastPublicKey();
        config.feedUrl = QUrl(service->appcastUrl());
        config.currentVersion = QStringLiteral("0.0.1");
        sorv::SparkleUpdater updater(config);
        s.window()->setProperty("updater", QVariant::fromValue<QObject*>(&updater));
        updater.checkForUpdates();
        s.waitFor([&] { return updater.activity().startsWith(QLatin1String("Downloading")); },
                  "the download");
        s.shoot(QStringLiteral("update-downloading"));
        s.waitFor([&] { return !updater.checking(); }, "the update check");
        updater.answerAlert(-1);
        s.window()->setProperty("updater", QVariant::fromValue<QObject*>(&appUpdater));
    }
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
    // A desktop with a settings program, for the warnings' "Settings" button
    // (never started: the screenshots only show it).
    const QString bin = environment.path(QStringLiteral("bin"));
    QDir().mkpath(bin);
    QFile settingsProgram(bin + QStringLiteral("/gnome-control-center"));
    settingsProgram.open(QIODevice::WriteOnly);
    settingsProgram.write("#!/bin/sh\nexit 0\n");
    settingsProgram.close();
    settingsProgram.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("PATH", (bin + QLatin1Char(':')).toLocal8Bit() + qgetenv("PATH"));
    qputenv("SORVELANDRIX_SOFTWARE_AUTHENTICATOR",
            environment.path(QStringLiteral("authenticator")).toLocal8Bit());
    sorv::local::LocalService::Options mfaOptions;
    mfaOptions.mfa = true;
    sorv::test::LocalServiceFixture mfaService(mfaOptions);
    // A slow uplink, to show an upload on its way.
    sorv::local::LocalService::Options options;
    options.uploadBytesPerSecond = std::int64_t{12} * 1024 * 1024;
    sorv::test::LocalServiceFixture service(options); // the run's origin from here on

    // A private X server with a window manager and three meeting windows:
    // video mode then lists real capture sources and can record.
    std::optional<sorv::test::XvfbSession> x11;
    std::optional<sorv::test::TestWindows> windows;
    if (sorv::test::XvfbSession::toolsAvailable()) {
        x11.emplace(sorv::test::XvfbSession::Options{QSize(1920, 1080), true});
        if (x11->isRunning())
            windows.emplace(QStringList{
                QStringLiteral("Google-chrome|60|60|1000|700|Weekly sync – Google Meet"),
                QStringLiteral("zoom|400|200|900|600|Zoom Meeting"),
                QStringLiteral("Slack|800|300|800|600|Slack – Sorvelandrix"),
            });
    }
    if (!windows || !windows->isReady())
        std::fputs("screenshots: no X server with windows (Xvfb, openbox); video mode shows "
                   "no sources\n",
                   stderr);

    QQuickStyle::setStyle(QStringLiteral("Fusion"));
    auto* engine = new sorv::test::ScriptedEngine;
    engine->devices = sorv::test::ScriptedEngine::twoMicrophones();
    engine->seconds = 2;
    sorv::SorvelandrixRecorderApp recorderApp{std::unique_ptr<sorv::RecordingEngine>(engine)};
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
    meetingTabScreens(shooter, recorderApp, service);
    floatingPanelScreens(shooter, recorderApp, service);
    tabScreens(shooter, recorderApp.recorderScreen());
    recorderScreens(shooter, recorderApp.recorderScreen());
    recordingScreens(shooter, recorderApp.recorderScreen(), *engine, service,
                     x11 && x11->isRunning());
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
