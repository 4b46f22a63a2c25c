#pragma once

#include "app/appdelegate.h"

#include <QObject>
#include <QPointer>
#include <QQmlApplicationEngine>
#include <QQuickWindow>

#include <memory>

namespace sorv {

class AudioRecorder;
class AuthManager;
class FloatingPanelController;
class JoinMeetingController;
class KeptRecordings;
class PasskeyManager;
class RecordingEngine;
class PasskeyOperations;
class PasskeysModel;
class RecorderControl;
class RecorderScreen;
class SingleInstance;
class RecordingsListController;
class SecretStore;
class ServiceAccountSource;
class SparkleUpdater;
class ViewHelpers;

// The application: the one session, the one recorder and the one updater,
// the main window (QML) over them, and the tray.
class SorvelandrixRecorderApp : public QObject {
    Q_OBJECT

public:
    static inline const QString kGeometryKey = QStringLiteral("mainWindowGeometry");

    explicit SorvelandrixRecorderApp(QObject* parent = nullptr);
    // Over another capture engine than PulseAudio's (the screenshots).
    explicit SorvelandrixRecorderApp(std::unique_ptr<RecordingEngine> engine,
                                     QObject* parent = nullptr);
    ~SorvelandrixRecorderApp() override;

    // Loads the main window, creates the tray and offers the control
    // interface on the session bus. False when the views could not be
    // loaded (the reasons are on standard error). `hidden` (a start at
    // login) leaves the window closed when there is a tray to reach it from.
    bool launch(bool hidden = false);
    // Later starts of the application show the window or pass on their
    // recording command.
    void listenTo(SingleInstance& instance);

    AuthManager& auth() { return *m_auth; }
    AudioRecorder& recorder() { return *m_recorder; }
    AppDelegate& appDelegate() { return *m_delegate; }
    ViewHelpers& helpers() { return *m_helpers; }
    SparkleUpdater& updater() { return *m_updater; }
    RecorderScreen& recorderScreen() { return *m_recorderScreen; }
    RecordingsListController& recordingsList() { return *m_recordingsList; }
    JoinMeetingController& joinMeeting() { return *m_joinMeeting; }
    FloatingPanelController& floatingPanel() { return *m_floatingPanel; }
    RecorderControl& control() { return *m_control; }
    KeptRecordings& keptRecordings() { return *m_kept; }
    QQuickWindow* mainWindow() const { return m_window; }
    QQmlApplicationEngine& engine() { return m_engine; }

    // Shows, raises and focuses the main window.
    void showMainWindow();
    // Quits; a recording under way is stopped first, so its file is complete
    // and kept for saving later.
    void requestQuit();

private:
    void restoreGeometry();
    void saveGeometry();
    void contentAppeared();

    std::unique_ptr<SecretStore> m_secrets;
    std::unique_ptr<AuthManager> m_auth;
    std::unique_ptr<AudioRecorder> m_recorder;
    // Its own, not the process-wide one: its worker thread must end before
    // the application object does.
    std::unique_ptr<PasskeyManager> m_passkeyManager;
    std::unique_ptr<PasskeyOperations> m_passkeyOps;
    // What the account's lists and forms fetch through.
    std::unique_ptr<ServiceAccountSource> m_account;
    std::unique_ptr<PasskeysModel> m_passkeys;
    std::unique_ptr<ViewHelpers> m_helpers;
    std::unique_ptr<SparkleUpdater> m_updater;
    std::unique_ptr<RecorderScreen> m_recorderScreen;
    std::unique_ptr<RecordingsListController> m_recordingsList;
    std::unique_ptr<JoinMeetingController> m_joinMeeting;
    std::unique_ptr<AppDelegate> m_delegate;
    std::unique_ptr<RecorderControl> m_control;
    std::unique_ptr<KeptRecordings> m_kept;
    QQmlApplicationEngine m_engine;
    // Builds its panel with the engine, so it goes first.
    std::unique_ptr<FloatingPanelController> m_floatingPanel;
    QPointer<QQuickWindow> m_window;
    bool m_quitting = false;
    bool m_windowShown = false;
};

} // namespace sorv
