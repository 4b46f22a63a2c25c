#pragma once

#include "audio/inputdevice.h"
#include "recording/recordingstate.h"
#include "transcript/transcriptmode.h"
#include "transcript/transcriptstatus.h"
#include "ui/desktophooks.h"

#include <QFileSystemWatcher>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QVariantList>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace sorv {

class AudioRecorder;
class AuthManager;
class LocalTranscriptManager;
class RecordingConsent;
class ScreenCaptureTargetStore;
class ServerTranscriptManager;
class TranscriptListModel;

// The recorder screen's view-model: the screen's own state (video mode, the
// live transcript and its fallback offer, the consent sheet, the language)
// and everything it shows, ready to display, derived from the recorder, the
// two transcript managers and the capture targets. Every action is one call
// on those controllers; the screen records nothing itself. Lives on the main
// thread.
//
// Properties that are derived from the controllers share a few change
// signals (displayChanged, transcriptDisplayChanged, …); the screen's own
// state has one signal per field.
class RecorderScreen : public QObject {
    Q_OBJECT
    Q_MOC_INCLUDE("recording/audiorecorder.h")
    Q_MOC_INCLUDE("transcript/localtranscriptmanager.h")
    Q_MOC_INCLUDE("transcript/servertranscriptmanager.h")
    Q_MOC_INCLUDE("ui/recordingconsent.h")
    Q_MOC_INCLUDE("ui/transcriptlistmodel.h")
    Q_MOC_INCLUDE("video/screencapturetargetstore.h")
    // --- The screen's own state
    Q_PROPERTY(bool transcriptVisible READ transcriptVisible NOTIFY transcriptVisibleChanged)
    Q_PROPERTY(QString transcriptMode READ transcriptModeName NOTIFY transcriptModeChanged)
    Q_PROPERTY(
        QString speechLocale READ speechLocale WRITE setSpeechLocale NOTIFY speechLocaleChanged)
    Q_PROPERTY(
        bool serverFallbackOffered READ serverFallbackOffered NOTIFY serverFallbackOfferedChanged)
    Q_PROPERTY(bool showingConsentSheet READ showingConsentSheet NOTIFY showingConsentSheetChanged)
    Q_PROPERTY(bool recordVideo READ recordVideo WRITE setRecordVideo NOTIFY recordVideoChanged)
    Q_PROPERTY(bool transcriptExpanded READ transcriptExpanded WRITE setTranscriptExpanded NOTIFY
                   transcriptExpandedChanged)

    // --- What the screen is built from
    Q_PROPERTY(sorv::AudioRecorder* recorder READ recorder CONSTANT)
    Q_PROPERTY(sorv::RecordingConsent* consent READ consent CONSTANT)
    Q_PROPERTY(sorv::ScreenCaptureTargetStore* captureTargets READ captureTargets CONSTANT)
    Q_PROPERTY(sorv::ServerTranscriptManager* serverTranscript READ serverTranscript CONSTANT)
    Q_PROPERTY(sorv::LocalTranscriptManager* localTranscript READ localTranscript CONSTANT)
    Q_PROPERTY(sorv::TranscriptListModel* transcript READ transcript CONSTANT)

    // --- Which screen, the main button, the status line
    Q_PROPERTY(QString page READ page NOTIFY displayChanged)
    Q_PROPERTY(QString recorderState READ recorderState NOTIFY displayChanged)
    Q_PROPERTY(bool isRecording READ isRecording NOTIFY displayChanged)
    Q_PROPERTY(bool mainButtonShowsStop READ isRecording NOTIFY displayChanged)
    Q_PROPERTY(bool mainButtonEnabled READ mainButtonEnabled NOTIFY displayChanged)
    Q_PROPERTY(QString mainButtonAccessibleName READ mainButtonAccessibleName NOTIFY displayChanged)
    Q_PROPERTY(QString statusText READ statusText NOTIFY displayChanged)
    Q_PROPERTY(QString recordingSourceLine READ recordingSourceLine NOTIFY displayChanged)
    Q_PROPERTY(SoundServer soundServer READ soundServer NOTIFY displayChanged)

    // --- Mode section (idle)
    Q_PROPERTY(QString recordingModeLabel READ recordingModeLabel CONSTANT)
    Q_PROPERTY(QString audioOnlyLabel READ audioOnlyLabel CONSTANT)
    Q_PROPERTY(QString videoCallLabel READ videoCallLabel CONSTANT)
    Q_PROPERTY(QString modeDescription READ modeDescription NOTIFY recordVideoChanged)
    Q_PROPERTY(QString headphonesHint READ headphonesHint CONSTANT)
    Q_PROPERTY(QString videoModeNote READ videoModeNote CONSTANT)
    Q_PROPERTY(QString captureSourceLabel READ captureSourceLabel CONSTANT)
    Q_PROPERTY(QString captureSourceHelp READ captureSourceHelp CONSTANT)
    Q_PROPERTY(QString refreshLabel READ refreshLabel CONSTANT)
    Q_PROPERTY(QStringList captureSourceSections READ captureSourceSections CONSTANT)
    Q_PROPERTY(QVariantList captureSources READ captureSources NOTIFY captureSourcesChanged)
    Q_PROPERTY(
        int selectedCaptureSourceIndex READ selectedCaptureSourceIndex NOTIFY captureSourcesChanged)
    Q_PROPERTY(bool captureSourcesLoading READ captureSourcesLoading NOTIFY captureSourcesChanged)
    Q_PROPERTY(QString captureSourcesError READ captureSourcesError NOTIFY captureSourcesChanged)

    // --- Meters and warnings (while recording)
    Q_PROPERTY(QString microphoneMeterLabel READ microphoneMeterLabel CONSTANT)
    Q_PROPERTY(QString systemAudioMeterLabel READ systemAudioMeterLabel CONSTANT)
    Q_PROPERTY(QString meterHint READ meterHint CONSTANT)
    Q_PROPERTY(bool micSilentWarningVisible READ micSilentWarningVisible NOTIFY displayChanged)
    Q_PROPERTY(QString micSilentTitle READ micSilentTitle CONSTANT)
    Q_PROPERTY(QString micSilentMessage READ micSilentMessage NOTIFY displayChanged)
    Q_PROPERTY(bool systemAudioWarningVisible READ systemAudioWarningVisible NOTIFY displayChanged)
    Q_PROPERTY(QString systemAudioWarningTitle READ systemAudioWarningTitle CONSTANT)
    Q_PROPERTY(QString systemAudioError READ systemAudioError NOTIFY displayChanged)
    Q_PROPERTY(QString systemAudioSettingsLabel READ systemAudioSettingsLabel CONSTANT)
    Q_PROPERTY(QString systemAudioRetryLabel READ systemAudioRetryLabel CONSTANT)
    Q_PROPERTY(
        bool screenAccessWarningVisible READ screenAccessWarningVisible NOTIFY displayChanged)
    Q_PROPERTY(QString screenAccessWarning READ screenAccessWarning NOTIFY displayChanged)
    Q_PROPERTY(QString openSettingsLabel READ openSettingsLabel CONSTANT)
    Q_PROPERTY(QString checkAgainLabel READ checkAgainLabel CONSTANT)
    Q_PROPERTY(bool canOpenPrivacySettings READ canOpenPrivacySettings CONSTANT)

    // --- Microphone picker
    Q_PROPERTY(QVariantList microphones READ microphones NOTIFY microphonesChanged)
    Q_PROPERTY(int selectedMicrophoneIndex READ selectedMicrophoneIndex NOTIFY microphonesChanged)
    Q_PROPERTY(QString refreshDeviceListLabel READ refreshDeviceListLabel CONSTANT)

    // --- Live transcript (while recording)
    Q_PROPERTY(
        QString transcriptToggleLabel READ transcriptToggleLabel NOTIFY transcriptDisplayChanged)
    Q_PROPERTY(QString transcriptModeLabel READ transcriptModeLabel NOTIFY transcriptDisplayChanged)
    Q_PROPERTY(bool connectingToServer READ connectingToServer NOTIFY transcriptDisplayChanged)
    Q_PROPERTY(QString connectingText READ connectingText CONSTANT)
    Q_PROPERTY(bool listening READ listening NOTIFY transcriptDisplayChanged)
    Q_PROPERTY(QString listeningText READ listeningText CONSTANT)
    Q_PROPERTY(QString transcriptError READ transcriptError NOTIFY transcriptDisplayChanged)
    Q_PROPERTY(QString retryServerLabel READ retryServerLabel CONSTANT)
    Q_PROPERTY(QString useOnDevicePreviewLabel READ useOnDevicePreviewLabel CONSTANT)
    Q_PROPERTY(QString expandLabel READ expandLabel NOTIFY transcriptExpandedChanged)
    Q_PROPERTY(QString expandHelp READ expandHelp NOTIFY transcriptExpandedChanged)
    Q_PROPERTY(int transcriptMaxHeight READ transcriptMaxHeight NOTIFY transcriptExpandedChanged)
    Q_PROPERTY(QString languagePickerLabel READ languagePickerLabel CONSTANT)
    Q_PROPERTY(QVariantList languages READ languages CONSTANT)
    Q_PROPERTY(int languageIndex READ languageIndex NOTIFY speechLocaleChanged)
    Q_PROPERTY(QString languageNote READ languageNote CONSTANT)

    // --- After the recording
    Q_PROPERTY(QString saveTitle READ saveTitle CONSTANT)
    Q_PROPERTY(QString durationText READ durationText NOTIFY durationTextChanged)
    Q_PROPERTY(QString saveLabel READ saveLabel CONSTANT)
    Q_PROPERTY(QString saveHelp READ saveHelp CONSTANT)
    Q_PROPERTY(QString discardLabel READ discardLabel CONSTANT)
    Q_PROPERTY(QString discardHelp READ discardHelp CONSTANT)
    Q_PROPERTY(QString uploadingTitle READ uploadingTitle CONSTANT)
    Q_PROPERTY(double uploadProgress READ uploadProgress NOTIFY displayChanged)
    Q_PROPERTY(QString uploadedTitle READ uploadedTitle CONSTANT)
    Q_PROPERTY(QString viewRecordingLabel READ viewRecordingLabel CONSTANT)
    Q_PROPERTY(bool canViewRecording READ canViewRecording NOTIFY displayChanged)
    Q_PROPERTY(QString recordAnotherLabel READ recordAnotherLabel CONSTANT)
    Q_PROPERTY(QString errorMessage READ errorMessage NOTIFY displayChanged)
    Q_PROPERTY(bool retryUploadOffered READ retryUploadOffered NOTIFY displayChanged)
    Q_PROPERTY(QString retryUploadLabel READ retryUploadLabel CONSTANT)
    Q_PROPERTY(QString startOverLabel READ startOverLabel NOTIFY displayChanged)

public:
    // The sound server during this recording: it answers, it went away (the
    // recording waits, writing nothing), or it came back.
    enum class SoundServer { Answers, Waiting, Resumed };
    Q_ENUM(SoundServer)

    // Runs fn once `delay` has passed, on this thread (the fallback watch's
    // clock; tests move it by hand).
    using Schedule = std::function<void(std::chrono::milliseconds delay, std::function<void()> fn)>;

    // What the screen owns. Empty members get the real ones.
    struct Parts {
        std::unique_ptr<ServerTranscriptManager> serverTranscript;
        std::unique_ptr<LocalTranscriptManager> localTranscript;
        std::unique_ptr<ScreenCaptureTargetStore> captureTargets;
        Schedule schedule;
    };

    // The server transcript is given this long to come up before the
    // on-device preview is offered: kFallbackChecks checks, this far apart.
    static constexpr int kFallbackChecks = 120;
    static constexpr std::chrono::milliseconds kFallbackCheckInterval{100};
    static constexpr int kTranscriptHeight = 220;
    static constexpr int kExpandedTranscriptHeight = 400;

    static inline const QString kAudioLocaleDefault = QStringLiteral("af-ZA");
    static inline const QString kVideoLocaleDefault = QStringLiteral("it-IT");

    // The recorder and the session are held weakly: the application owns them.
    RecorderScreen(AudioRecorder& recorder, AuthManager& auth, QObject* parent = nullptr);
    RecorderScreen(AudioRecorder& recorder, AuthManager& auth, Parts parts,
                   QObject* parent = nullptr);
    ~RecorderScreen() override;

    // Opening web pages and the desktop's settings (also the consent
    // sheet's terms link).
    void setDesktopHooks(DesktopHooks hooks);

    // The desktop's privacy settings, when a settings program we know is
    // on PATH: the program's path and its arguments.
    struct Command {
        QString program;
        QStringList arguments;
    };
    static std::optional<Command> privacySettingsCommand();

    bool transcriptVisible() const { return m_transcriptVisible; }
    TranscriptMode transcriptMode() const { return m_transcriptMode; }
    QString transcriptModeName() const { return m_transcriptMode.caseName(); }
    QString speechLocale() const { return m_speechLocale; }
    // The language picker: stores the choice; restarts a running server
    // transcript so that it takes effect.
    void setSpeechLocale(const QString& locale);
    bool serverFallbackOffered() const { return m_serverFallbackOffered; }
    bool showingConsentSheet() const { return m_showingConsentSheet; }
    bool recordVideo() const { return m_recordVideo; }
    // The mode picker; ignored while a recording is being made.
    void setRecordVideo(bool v);
    bool transcriptExpanded() const { return m_transcriptExpanded; }
    void setTranscriptExpanded(bool v);

    AudioRecorder* recorder() const { return m_recorder; }
    RecordingConsent* consent() const { return m_consent; }
    ScreenCaptureTargetStore* captureTargets() const { return m_captureTargets.get(); }
    ServerTranscriptManager* serverTranscript() const { return m_server.get(); }
    LocalTranscriptManager* localTranscript() const { return m_local.get(); }
    TranscriptListModel* transcript() const { return m_transcript; }

    QString page() const;
    QString recorderState() const;
    bool isRecording() const;
    bool mainButtonEnabled() const;
    QString mainButtonAccessibleName() const;
    QString statusText() const;
    QString recordingSourceLine() const;
    SoundServer soundServer() const;

    QString recordingModeLabel() const;
    QString audioOnlyLabel() const;
    QString videoCallLabel() const;
    QString modeDescription() const;
    QString headphonesHint() const;
    QString videoModeNote() const;
    QString captureSourceLabel() const;
    QString captureSourceHelp() const;
    QString refreshLabel() const;
    QStringList captureSourceSections() const;
    QVariantList captureSources() const;
    int selectedCaptureSourceIndex() const;
    bool captureSourcesLoading() const;
    QString captureSourcesError() const;

    QString microphoneMeterLabel() const;
    QString systemAudioMeterLabel() const;
    QString meterHint() const;
    bool micSilentWarningVisible() const;
    QString micSilentTitle() const;
    QString micSilentMessage() const;
    bool systemAudioWarningVisible() const;
    QString systemAudioWarningTitle() const;
    QString systemAudioError() const;
    QString systemAudioSettingsLabel() const;
    QString systemAudioRetryLabel() const;
    bool screenAccessWarningVisible() const;
    QString screenAccessWarning() const;
    QString openSettingsLabel() const;
    QString checkAgainLabel() const;
    bool canOpenPrivacySettings() const { return m_privacySettings.has_value(); }

    QVariantList microphones() const;
    int selectedMicrophoneIndex() const;
    QString refreshDeviceListLabel() const;

    QString transcriptToggleLabel() const;
    QString transcriptModeLabel() const;
    bool connectingToServer() const;
    QString connectingText() const;
    bool listening() const;
    QString listeningText() const;
    QString transcriptError() const;
    QString retryServerLabel() const;
    QString useOnDevicePreviewLabel() const;
    QString expandLabel() const;
    QString expandHelp() const;
    int transcriptMaxHeight() const;
    QString languagePickerLabel() const;
    QVariantList languages() const;
    int languageIndex() const;
    QString languageNote() const;

    QString saveTitle() const;
    QString durationText() const;
    QString saveLabel() const;
    QString saveHelp() const;
    QString discardLabel() const;
    QString discardHelp() const;
    QString uploadingTitle() const;
    double uploadProgress() const;
    QString uploadedTitle() const;
    QString viewRecordingLabel() const;
    bool canViewRecording() const;
    QString recordAnotherLabel() const;
    QString errorMessage() const;
    bool retryUploadOffered() const;
    QString retryUploadLabel() const;
    QString startOverLabel() const;

public Q_SLOTS:
    // The screen is shown: the consent sheet on first use, the stored
    // language (with its default), the on-device preview's language.
    void appear();

    void pressMainButton();

    void selectCaptureSource(int index);
    void refreshCaptureSources();
    void selectMicrophone(int index);
    void refreshMicrophones();
    void selectLanguage(int index);

    void openPrivacySettings();
    void retrySystemAudio();
    void checkScreenAccessAgain();

    void toggleTranscript();
    void toggleTranscriptExpanded();
    void retryServer();
    void useOnDevicePreview();

    void saveAndUpload();
    void discard();
    void viewRecording();
    void recordAnother();
    void retryUpload();
    void startOver();

Q_SIGNALS:
    void transcriptVisibleChanged();
    void transcriptModeChanged();
    void speechLocaleChanged();
    void serverFallbackOfferedChanged();
    void showingConsentSheetChanged();
    void recordVideoChanged();
    void transcriptExpandedChanged();
    void displayChanged();
    void captureSourcesChanged();
    void microphonesChanged();
    void transcriptDisplayChanged();
    void durationTextChanged();

private:
    void onRecorderStateChanged();
    void openConsentSheet();
    void consentAgreed();
    void startRecording();
    void applyRecordVideo(bool v);
    void ensureStoredLocaleDefault(bool video);

    void showLiveTranscript();
    void stopLiveTranscript();
    void restartServerTranscript();
    void startFallbackWatch();
    void checkFallback(std::uint64_t watch, int check);

    QString retryUploadFile() const;
    void watchRetryUploadFile();
    bool open(const QUrl& url);

    void setTranscriptVisible(bool v);
    void setTranscriptMode(TranscriptMode mode);
    void setSpeechLocaleField(const QString& locale);
    void setServerFallbackOffered(bool v);
    void setShowingConsentSheet(bool v);

    QPointer<AudioRecorder> m_recorder;
    QPointer<AuthManager> m_auth;
    std::unique_ptr<ServerTranscriptManager> m_server;
    std::unique_ptr<LocalTranscriptManager> m_local;
    std::unique_ptr<ScreenCaptureTargetStore> m_captureTargets;
    RecordingConsent* m_consent = nullptr;
    TranscriptListModel* m_transcript = nullptr;
    Schedule m_schedule;
    DesktopHooks m_hooks;
    std::optional<Command> m_privacySettings;
    QFileSystemWatcher m_retryFileWatcher;

    bool m_transcriptVisible = false;
    TranscriptMode m_transcriptMode;
    QString m_speechLocale;
    bool m_serverFallbackOffered = false;
    bool m_showingConsentSheet = false;
    bool m_recordVideo = false;
    bool m_transcriptExpanded = false;

    RecordingState::Kind m_lastStateKind = RecordingState::Kind::Idle;
    bool m_soundServerResumed = false;
    // The picker keeps the last list while the sound server is away.
    QList<InputDevice> m_microphones;
    // Bumped by every start and stop of the transcript: a watch that is no
    // longer the current one ends at its next check.
    std::uint64_t m_watch = 0;
};

} // namespace sorv
