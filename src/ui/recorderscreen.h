#pragma once

#include "recording/recordingstate.h"
#include "transcript/livetranscriptsession.h"
#include "transcript/transcriptmode.h"
#include "transcript/transcriptstatus.h"
#include "ui/desktophooks.h"

#include <QFileSystemWatcher>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

namespace sorv {

class AudioRecorder;
class AuthManager;
class InputDeviceModel;
class LocalTranscriptManager;
class RecordingConsent;
class ScreenCaptureTargetModel;
class ScreenCaptureTargetStore;
class ServerTranscriptManager;
class SpeechLanguageModel;
class TranscriptListModel;

// The recorder screen's view-model: the screen's own state (video mode, the
// consent sheet, the transcript's size) and the state it shows, derived from
// the recorder, the live transcript session and the capture targets; the
// views hold the words. Every action is one call on those controllers; the
// screen records nothing itself. Lives on the main thread.
//
// Properties that are derived from the controllers share a few change
// signals (displayChanged, transcriptDisplayChanged, …); the screen's own
// state has one signal per field.
class RecorderScreen : public QObject {
    Q_OBJECT
    Q_MOC_INCLUDE("audio/inputdevicemodel.h")
    Q_MOC_INCLUDE("recording/audiorecorder.h")
    Q_MOC_INCLUDE("transcript/livetranscriptsession.h")
    Q_MOC_INCLUDE("transcript/localtranscriptmanager.h")
    Q_MOC_INCLUDE("transcript/servertranscriptmanager.h")
    Q_MOC_INCLUDE("transcript/speechlanguagemodel.h")
    Q_MOC_INCLUDE("ui/recordingconsent.h")
    Q_MOC_INCLUDE("ui/transcriptlistmodel.h")
    Q_MOC_INCLUDE("video/screencapturetargetmodel.h")
    Q_MOC_INCLUDE("video/screencapturetargetstore.h")
    // --- The screen's own state
    Q_PROPERTY(bool transcriptVisible READ transcriptVisible NOTIFY transcriptModeChanged)
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
    Q_PROPERTY(sorv::LiveTranscriptSession* live READ live CONSTANT)
    Q_PROPERTY(sorv::TranscriptListModel* transcript READ transcript CONSTANT)

    // --- Which screen, the main button, the status line
    Q_PROPERTY(QString page READ page NOTIFY displayChanged)
    Q_PROPERTY(QString recorderState READ recorderState NOTIFY displayChanged)
    Q_PROPERTY(bool isRecording READ isRecording NOTIFY displayChanged)
    Q_PROPERTY(bool mainButtonShowsStop READ isRecording NOTIFY displayChanged)
    Q_PROPERTY(bool mainButtonEnabled READ mainButtonEnabled NOTIFY displayChanged)
    Q_PROPERTY(QString statusText READ statusText NOTIFY displayChanged)
    Q_PROPERTY(QString recordingSourceLine READ recordingSourceLine NOTIFY displayChanged)
    Q_PROPERTY(SoundServer soundServer READ soundServer NOTIFY displayChanged)

    // --- Capture sources (video mode)
    Q_PROPERTY(sorv::ScreenCaptureTargetModel* captureSources READ captureSources CONSTANT)
    Q_PROPERTY(
        int selectedCaptureSourceIndex READ selectedCaptureSourceIndex NOTIFY captureSourcesChanged)
    Q_PROPERTY(bool captureSourcesLoading READ captureSourcesLoading NOTIFY captureSourcesChanged)
    Q_PROPERTY(QString captureSourcesError READ captureSourcesError NOTIFY captureSourcesChanged)

    // --- Warnings (while recording)
    Q_PROPERTY(bool micSilentWarningVisible READ micSilentWarningVisible NOTIFY displayChanged)
    Q_PROPERTY(QString micSilentMessage READ micSilentMessage NOTIFY displayChanged)
    Q_PROPERTY(bool systemAudioWarningVisible READ systemAudioWarningVisible NOTIFY displayChanged)
    Q_PROPERTY(QString systemAudioError READ systemAudioError NOTIFY displayChanged)
    Q_PROPERTY(
        bool screenAccessWarningVisible READ screenAccessWarningVisible NOTIFY displayChanged)
    Q_PROPERTY(QString screenAccessWarning READ screenAccessWarning NOTIFY displayChanged)
    Q_PROPERTY(bool canOpenPrivacySettings READ canOpenPrivacySettings CONSTANT)

    // --- Microphone picker
    Q_PROPERTY(sorv::InputDeviceModel* microphones READ microphones CONSTANT)
    Q_PROPERTY(int selectedMicrophoneIndex READ selectedMicrophoneIndex NOTIFY microphonesChanged)

    // --- Live transcript (while recording)
    Q_PROPERTY(bool connectingToServer READ connectingToServer NOTIFY transcriptDisplayChanged)
    Q_PROPERTY(bool listening READ listening NOTIFY transcriptDisplayChanged)
    Q_PROPERTY(QString transcriptError READ transcriptError NOTIFY transcriptDisplayChanged)
    Q_PROPERTY(int transcriptMaxHeight READ transcriptMaxHeight NOTIFY transcriptExpandedChanged)
    Q_PROPERTY(sorv::SpeechLanguageModel* languages READ languages CONSTANT)
    Q_PROPERTY(int languageIndex READ languageIndex NOTIFY speechLocaleChanged)

    // --- After the recording
    Q_PROPERTY(QString durationText READ durationText NOTIFY durationTextChanged)
    Q_PROPERTY(double uploadProgress READ uploadProgress NOTIFY displayChanged)
    Q_PROPERTY(bool canViewRecording READ canViewRecording NOTIFY displayChanged)
    Q_PROPERTY(QString errorMessage READ errorMessage NOTIFY displayChanged)
    Q_PROPERTY(bool retryUploadOffered READ retryUploadOffered NOTIFY displayChanged)

public:
    // The sound server during this recording: it answers, it went away (the
    // recording waits, writing nothing), or it came back.
    enum class SoundServer { Answers, Waiting, Resumed };
    Q_ENUM(SoundServer)

    // What the screen owns. Empty members get the real ones.
    struct Parts {
        LiveTranscriptSession::Parts live;
        std::unique_ptr<ScreenCaptureTargetStore> captureTargets;
    };

    static constexpr int kTranscriptHeight = 220;
    static constexpr int kExpandedTranscriptHeight = 400;

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

    bool transcriptVisible() const;
    TranscriptMode transcriptMode() const;
    QString transcriptModeName() const { return transcriptMode().caseName(); }
    QString speechLocale() const;
    // The language picker: stores the choice; a running transcript starts
    // again in it.
    void setSpeechLocale(const QString& locale);
    bool serverFallbackOffered() const;
    bool showingConsentSheet() const { return m_showingConsentSheet; }
    bool recordVideo() const { return m_recordVideo; }
    // The mode picker; ignored while a recording is being made.
    void setRecordVideo(bool v);
    bool transcriptExpanded() const { return m_transcriptExpanded; }
    void setTranscriptExpanded(bool v);

    AudioRecorder* recorder() const { return m_recorder; }
    RecordingConsent* consent() const { return m_consent; }
    ScreenCaptureTargetStore* captureTargets() const { return m_captureTargets.get(); }
    LiveTranscriptSession* live() const { return m_live; }
    ServerTranscriptManager* serverTranscript() const;
    LocalTranscriptManager* localTranscript() const;
    TranscriptListModel* transcript() const { return m_transcript; }

    QString page() const;
    QString recorderState() const;
    bool isRecording() const;
    bool mainButtonEnabled() const;
    QString statusText() const;
    QString recordingSourceLine() const;
    SoundServer soundServer() const;

    ScreenCaptureTargetModel* captureSources() const { return m_captureSources; }
    int selectedCaptureSourceIndex() const;
    bool captureSourcesLoading() const;
    QString captureSourcesError() const;

    bool micSilentWarningVisible() const;
    QString micSilentMessage() const;
    bool systemAudioWarningVisible() const;
    QString systemAudioError() const;
    bool screenAccessWarningVisible() const;
    QString screenAccessWarning() const;
    bool canOpenPrivacySettings() const { return m_privacySettings.has_value(); }

    InputDeviceModel* microphones() const { return m_microphones; }
    int selectedMicrophoneIndex() const;

    bool connectingToServer() const;
    bool listening() const;
    QString transcriptError() const;
    int transcriptMaxHeight() const;
    SpeechLanguageModel* languages() const { return m_languages; }
    int languageIndex() const;

    QString durationText() const;
    double uploadProgress() const;
    bool canViewRecording() const;
    QString errorMessage() const;
    bool retryUploadOffered() const;

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

    QString retryUploadFile() const;
    void watchRetryUploadFile();
    bool open(const QUrl& url);

    void setShowingConsentSheet(bool v);

    QPointer<AudioRecorder> m_recorder;
    QPointer<AuthManager> m_auth;
    std::unique_ptr<ScreenCaptureTargetStore> m_captureTargets;
    LiveTranscriptSession* m_live = nullptr;
    RecordingConsent* m_consent = nullptr;
    TranscriptListModel* m_transcript = nullptr;
    // The picker keeps the last list while the sound server is away.
    InputDeviceModel* m_microphones = nullptr;
    ScreenCaptureTargetModel* m_captureSources = nullptr;
    SpeechLanguageModel* m_languages = nullptr;
    DesktopHooks m_hooks;
    std::optional<Command> m_privacySettings;
    QFileSystemWatcher m_retryFileWatcher;

    bool m_showingConsentSheet = false;
    bool m_recordVideo = false;
    bool m_transcriptExpanded = false;

    RecordingState::Kind m_lastStateKind = RecordingState::Kind::Idle;
    bool m_soundServerResumed = false;
};

} // namespace sorv
