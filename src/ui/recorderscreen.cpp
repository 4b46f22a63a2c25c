#include "recorderscreen.h"

#include "audio/inputdevicemodel.h"
#include "core/log.h"
#include "core/notify.h"
#include "core/settings.h"
#include "recording/audiorecorder.h"
#include "service/authmanager.h"
#include "transcript/localtranscriptmanager.h"
#include "transcript/servertranscriptmanager.h"
#include "transcript/speechlanguagemodel.h"
#include "transcript/speechlanguages.h"
#include "ui/recordingconsent.h"
#include "ui/transcriptlistmodel.h"
#include "video/screencapturetargetmodel.h"
#include "video/screencapturetargetstore.h"

#include <QFileInfo>
#include <QStandardPaths>

#include <cmath>

namespace sorv {

namespace {

using Kind = RecordingState::Kind;

bool acceptsStart(Kind kind)
{
    return kind == Kind::Idle || kind == Kind::Uploaded || kind == Kind::Error;
}

QString storedLocale()
{
    return Settings::value(Settings::kSpeechLocaleKey).toString();
}

} // namespace

RecorderScreen::RecorderScreen(AudioRecorder& recorder, AuthManager& auth, QObject* parent)
    : RecorderScreen(recorder, auth, Parts{}, parent)
{}

RecorderScreen::RecorderScreen(AudioRecorder& recorder, AuthManager& auth, Parts parts,
                               QObject* parent)
    : QObject(parent), m_recorder(&recorder), m_auth(&auth),
      m_captureTargets(std::move(parts.captureTargets)), m_privacySettings(privacySettingsCommand())
{
    if (!m_captureTargets)
        m_captureTargets = std::make_unique<ScreenCaptureTargetStore>();
    m_live = new LiveTranscriptSession(std::move(parts.live), this);
    m_consent = new RecordingConsent(this);
    m_transcript = new TranscriptListModel(this);
    m_transcript->follow(&m_live->server());
    m_microphones = new InputDeviceModel(this);
    m_captureSources = new ScreenCaptureTargetModel(this);
    m_languages = new SpeechLanguageModel(this);
    m_lastStateKind = recorder.state().kind();

    // The live transcript speaks with the account's token: it ends with
    // the session (and its lines go with its next start).
    // An upload is the account's too: it stops, and the file is kept for a
    // retry after the next sign-in.
    connect(&auth, &AuthManager::sessionEnded, this, [this] {
        m_live->stop();
        if (m_recorder && m_recorder->state().kind() == Kind::Uploading)
            m_recorder->cancelUpload();
    });
    connect(m_consent, &RecordingConsent::agreed, this, &RecorderScreen::consentAgreed);
    connect(m_consent, &RecordingConsent::cancelled, this,
            [this] { setShowingConsentSheet(false); });

    connect(&recorder, &AudioRecorder::stateChanged, this, &RecorderScreen::onRecorderStateChanged);
    for (const auto signal :
         {&AudioRecorder::micSilentChanged, &AudioRecorder::micSilentMessageChanged,
          &AudioRecorder::systemAudioActiveChanged, &AudioRecorder::systemAudioErrorChanged,
          &AudioRecorder::screenAccessWarningChanged, &AudioRecorder::canRetryUploadChanged,
          &AudioRecorder::pathsChanged}) {
        connect(&recorder, signal, this, [this] {
            watchRetryUploadFile();
            Q_EMIT displayChanged();
        });
    }
    connect(&recorder, &AudioRecorder::elapsedChanged, this, &RecorderScreen::durationTextChanged);
    m_microphones->setDevices(recorder.availableInputDevices());
    connect(&recorder, &AudioRecorder::availableInputDevicesChanged, this, [this] {
        if (m_recorder->soundServerLost() && m_recorder->availableInputDevices().isEmpty())
            return;
        m_microphones->setDevices(m_recorder->availableInputDevices());
        Q_EMIT microphonesChanged();
    });
    connect(&recorder, &AudioRecorder::soundServerLostChanged, this, [this] {
        if (!m_recorder->soundServerLost() && isRecording())
            m_soundServerResumed = true;
        Q_EMIT displayChanged();
    });
    connect(&recorder, &AudioRecorder::selectedInputDeviceIDChanged, this,
            &RecorderScreen::microphonesChanged);
    // A kept recording that vanishes from disk can no longer be retried.
    connect(&m_retryFileWatcher, &QFileSystemWatcher::fileChanged, this,
            [this] { Q_EMIT displayChanged(); });

    for (const auto signal :
         {&ScreenCaptureTargetStore::optionsChanged, &ScreenCaptureTargetStore::selectedIDChanged,
          &ScreenCaptureTargetStore::isLoadingChanged,
          &ScreenCaptureTargetStore::loadErrorChanged}) {
        connect(m_captureTargets.get(), signal, this, &RecorderScreen::captureSourcesChanged);
    }
    connect(m_captureTargets.get(), &ScreenCaptureTargetStore::optionsChanged, this,
            [this] { m_captureSources->setOptions(m_captureTargets->options()); });
    m_captureSources->setOptions(m_captureTargets->options());
    // The "Recording: …" line names the selected source.
    connect(m_captureTargets.get(), &ScreenCaptureTargetStore::selectedIDChanged, this,
            &RecorderScreen::displayChanged);

    connect(m_live, &LiveTranscriptSession::modeChanged, this, [this] {
        // The list shows the transcript that runs; the last one's lines
        // stay while it is wound down.
        if (m_live->mode() == TranscriptMode::onDevice())
            m_transcript->follow(&m_live->local());
        else if (m_live->mode() == TranscriptMode::server())
            m_transcript->follow(&m_live->server());
        Q_EMIT transcriptModeChanged();
    });
    connect(m_live, &LiveTranscriptSession::statusChanged, this,
            &RecorderScreen::transcriptDisplayChanged);
    connect(m_live, &LiveTranscriptSession::languageChanged, this,
            &RecorderScreen::speechLocaleChanged);
    connect(m_live, &LiveTranscriptSession::fallbackOfferedChanged, this,
            &RecorderScreen::serverFallbackOfferedChanged);
    connect(m_transcript, &TranscriptListModel::countChanged, this,
            &RecorderScreen::transcriptDisplayChanged);
}

RecorderScreen::~RecorderScreen()
{
    // The parts go after this body: nothing they say on the way may reach
    // this half-destroyed screen or, through it, the views.
    disconnect();
    delete m_transcript;
    m_transcript = nullptr;
    if (m_recorder)
        m_recorder->disconnect(this);
    m_live->disconnect(this);
    m_captureTargets->disconnect(this);
    m_retryFileWatcher.disconnect(this);
    delete m_live;
    m_live = nullptr;
}

void RecorderScreen::setDesktopHooks(DesktopHooks hooks)
{
    m_consent->setDesktopHooks(hooks);
    m_hooks = std::move(hooks);
}

std::optional<RecorderScreen::Command> RecorderScreen::privacySettingsCommand()
{
    QList<Command> candidates{{QStringLiteral("gnome-control-center"), {QStringLiteral("privacy")}},
                              {QStringLiteral("systemsettings"), {}}};
    // On a KDE desktop that also has GNOME's program installed, KDE's own first.
    if (qEnvironmentVariable("XDG_CURRENT_DESKTOP").contains(QLatin1String("KDE")))
        std::swap(candidates[0], candidates[1]);
    for (const Command& candidate : std::as_const(candidates)) {
        const QString path = QStandardPaths::findExecutable(candidate.program);
        if (!path.isEmpty())
            return Command{path, candidate.arguments};
    }
    return std::nullopt;
}

// --- Appearance, video mode, language ------------------------------------------------

void RecorderScreen::appear()
{
    if (!RecordingConsent::isAcknowledged())
        openConsentSheet();
    ensureStoredLocaleDefault(m_recordVideo);
    m_live->setLanguage(LiveTranscriptSession::storedLanguage(m_recordVideo));
}

void RecorderScreen::ensureStoredLocaleDefault(bool video)
{
    if (!storedLocale().isEmpty())
        return;
    Settings::setValue(Settings::kSpeechLocaleKey, LiveTranscriptSession::defaultLanguage(video));
}

void RecorderScreen::setRecordVideo(bool v)
{
    // The session being made keeps the mode it was started in.
    if (!acceptsStart(m_recorder ? m_recorder->state().kind() : Kind::Idle))
        return;
    applyRecordVideo(v);
}

void RecorderScreen::applyRecordVideo(bool v)
{
    if (v == m_recordVideo)
        return;
    m_recordVideo = v;
    m_consent->setRecordsVideo(v);
    Q_EMIT recordVideoChanged();
    Q_EMIT displayChanged();
    if (v) {
        ensureStoredLocaleDefault(true);
        m_live->setLanguage(LiveTranscriptSession::storedLanguage(true));
        m_captureTargets->reload();
    }
}

void RecorderScreen::setSpeechLocale(const QString& locale)
{
    if (locale.isEmpty())
        return;
    Settings::setValue(Settings::kSpeechLocaleKey, locale);
    m_live->setLanguage(locale);
}

void RecorderScreen::selectLanguage(int index)
{
    const QList<SpeechLanguage>& all = speechLanguages();
    if (index >= 0 && index < all.size())
        setSpeechLocale(all.at(index).identifier);
}

// --- Consent and the main button ---------------------------------------------------

void RecorderScreen::openConsentSheet()
{
    m_consent->setRecordsVideo(m_recordVideo);
    m_consent->reset();
    setShowingConsentSheet(true);
}

void RecorderScreen::consentAgreed()
{
    setShowingConsentSheet(false);
    startRecording();
}

void RecorderScreen::pressMainButton()
{
    if (!m_recorder)
        return;
    const Kind kind = m_recorder->state().kind();
    if (kind == Kind::Recording) {
        m_recorder->stopRecording();
        return;
    }
    if (!acceptsStart(kind))
        return;
    if (RecordingConsent::isDue()) {
        openConsentSheet();
        return;
    }
    startRecording();
}

void RecorderScreen::startRecording()
{
    if (m_recorder)
        m_recorder->requestStartRecording(m_recordVideo, m_captureTargets->selectedOption());
}

void RecorderScreen::onRecorderStateChanged()
{
    const Kind kind = m_recorder->state().kind();
    // A new upload progress is the same state for what follows.
    if (kind != m_lastStateKind) {
        m_lastStateKind = kind;
        m_soundServerResumed = false;
        if (kind != Kind::Recording) {
            setTranscriptExpanded(false);
            // The transcript ends with the recording, the toggle included:
            // the next recording starts without one. The service hears the
            // recording's last audio first.
            if (kind == Kind::Error)
                m_live->stop();
            else if (kind != Kind::Stopping)
                m_live->windDown();
        }
        // Each new session starts in audio-only mode.
        if (kind == Kind::Idle)
            applyRecordVideo(false);
    }
    watchRetryUploadFile();
    Q_EMIT displayChanged();
}

// --- Live transcript ----------------------------------------------------------------

void RecorderScreen::toggleTranscript()
{
    if (m_live->isRunning())
        m_live->stop();
    else if (isRecording() && m_auth)
        m_live->start(*m_recorder, *m_auth);
}

void RecorderScreen::retryServer()
{
    m_live->retryServer();
}

void RecorderScreen::useOnDevicePreview()
{
    m_live->useOnDevice();
}

void RecorderScreen::setTranscriptExpanded(bool v)
{
    setAndNotify(this, m_transcriptExpanded, v, &RecorderScreen::transcriptExpandedChanged);
}

void RecorderScreen::toggleTranscriptExpanded()
{
    setTranscriptExpanded(!m_transcriptExpanded);
}

// --- Devices, sources, warnings -------------------------------------------------------

void RecorderScreen::selectCaptureSource(int index)
{
    const QList<ScreenCaptureTargetOption> options = m_captureTargets->options();
    if (index >= 0 && index < options.size())
        m_captureTargets->setSelectedID(options.at(index).id);
}

void RecorderScreen::refreshCaptureSources()
{
    m_captureTargets->reload();
}

void RecorderScreen::selectMicrophone(int index)
{
    if (!m_recorder)
        return;
    const QList<InputDevice>& devices = m_microphones->devices();
    if (index >= 0 && index < devices.size())
        m_recorder->selectInputDevice(devices.at(index).id);
}

void RecorderScreen::refreshMicrophones()
{
    if (m_recorder)
        m_recorder->refreshInputDevices();
}

void RecorderScreen::openPrivacySettings()
{
    if (!m_privacySettings)
        return;
    if (!m_hooks.startProgram ||
        !m_hooks.startProgram(m_privacySettings->program, m_privacySettings->arguments))
        consoleLog(QStringLiteral("⚠️ Could not start %1").arg(m_privacySettings->program));
}

// "Retry" beside "Mic only — system audio unavailable" tries the system-audio
// stream again inside the running recording. On Linux system audio fails
// when the sound server refuses the monitor stream or has no output to
// monitor: both can be put right while the recording runs (the user allows
// it, or plugs in an output), and the refusal's own text asks for Retry.
// Restarting the recording instead would split the meeting into two files.
void RecorderScreen::retrySystemAudio()
{
    if (m_recorder)
        m_recorder->retrySystemAudio();
}

void RecorderScreen::checkScreenAccessAgain()
{
    if (m_recorder)
        m_recorder->checkScreenCaptureAgain();
}

// --- After the recording ----------------------------------------------------------------

void RecorderScreen::saveAndUpload()
{
    if (m_recorder)
        m_recorder->saveRecording();
}

void RecorderScreen::discard()
{
    if (m_recorder)
        m_recorder->discardRecording();
}

void RecorderScreen::viewRecording()
{
    if (canViewRecording())
        open(QUrl(m_recorder->uploadedRecordingUrl()));
}

void RecorderScreen::recordAnother()
{
    if (m_recorder)
        m_recorder->resetToIdle();
}

void RecorderScreen::retryUpload()
{
    if (!retryUploadOffered()) {
        Q_EMIT displayChanged();
        return;
    }
    m_recorder->retryUpload();
}

void RecorderScreen::startOver()
{
    if (m_recorder)
        m_recorder->resetToIdle();
}

QString RecorderScreen::retryUploadFile() const
{
    if (!m_recorder)
        return {};
    return !m_recorder->failedUploadPath().isEmpty() ? m_recorder->failedUploadPath()
                                                     : m_recorder->outputPath();
}

void RecorderScreen::watchRetryUploadFile()
{
    const QString file = m_recorder && m_recorder->canRetryUpload() ? retryUploadFile() : QString();
    const QStringList watched = m_retryFileWatcher.files();
    if (watched == QStringList{file} || (file.isEmpty() && watched.isEmpty()))
        return;
    if (!watched.isEmpty())
        m_retryFileWatcher.removePaths(watched);
    if (!file.isEmpty() && QFileInfo::exists(file))
        m_retryFileWatcher.addPath(file);
}

bool RecorderScreen::open(const QUrl& url)
{
    if (m_hooks.openUrl && m_hooks.openUrl(url))
        return true;
    consoleLog(QStringLiteral("⚠️ Could not open %1").arg(url.toString()));
    return false;
}

// --- Published fields -------------------------------------------------------------------

bool RecorderScreen::transcriptVisible() const
{
    return m_live->isRunning();
}

TranscriptMode RecorderScreen::transcriptMode() const
{
    return m_live->mode();
}

QString RecorderScreen::speechLocale() const
{
    return m_live->language();
}

bool RecorderScreen::serverFallbackOffered() const
{
    return m_live->fallbackOffered();
}

ServerTranscriptManager* RecorderScreen::serverTranscript() const
{
    return &m_live->server();
}

LocalTranscriptManager* RecorderScreen::localTranscript() const
{
    return &m_live->local();
}

void RecorderScreen::setShowingConsentSheet(bool v)
{
    setAndNotify(this, m_showingConsentSheet, v, &RecorderScreen::showingConsentSheetChanged);
}

// --- Derived display ------------------------------------------------------------------------

QString RecorderScreen::page() const
{
    switch (m_recorder ? m_recorder->state().kind() : Kind::Idle) {
    case Kind::Idle:
        return QStringLiteral("idle");
    case Kind::Preparing:
    case Kind::Recording:
    case Kind::Stopping:
        return QStringLiteral("capturing");
    case Kind::PendingSave:
        return QStringLiteral("pendingSave");
    case Kind::Uploading:
        return QStringLiteral("uploading");
    case Kind::Uploaded:
        return QStringLiteral("uploaded");
    case Kind::Error:
        return QStringLiteral("error");
    }
    return {};
}

QString RecorderScreen::recorderState() const
{
    return m_recorder ? m_recorder->state().caseName() : QString();
}

bool RecorderScreen::isRecording() const
{
    return m_recorder && m_recorder->state().kind() == Kind::Recording;
}

bool RecorderScreen::mainButtonEnabled() const
{
    if (!m_recorder)
        return false;
    const Kind kind = m_recorder->state().kind();
    return kind == Kind::Recording || acceptsStart(kind);
}

QString RecorderScreen::statusText() const
{
    if (!m_recorder)
        return {};
    const RecordingState& state = m_recorder->state();
    switch (state.kind()) {
    case Kind::Idle:
        return m_recordVideo ? tr("Tap to record video call") : tr("Tap to start recording");
    case Kind::Preparing:
        return tr("Preparing...");
    case Kind::Recording:
        return {};
    case Kind::Stopping:
        return tr("Stopping...");
    case Kind::PendingSave:
        return tr("Recording stopped");
    case Kind::Uploading:
        return tr("Uploading... %1%").arg(static_cast<int>(std::trunc(state.progress() * 100.0)));
    case Kind::Uploaded:
        return tr("Recording uploaded!");
    case Kind::Error:
        return state.message();
    }
    return {};
}

QString RecorderScreen::recordingSourceLine() const
{
    if (!m_recordVideo || page() != QLatin1String("capturing"))
        return {};
    return tr("Recording: %1").arg(m_captureTargets->selectedOption().title);
}

RecorderScreen::SoundServer RecorderScreen::soundServer() const
{
    if (!isRecording())
        return SoundServer::Answers;
    if (m_recorder->soundServerLost())
        return SoundServer::Waiting;
    return m_soundServerResumed ? SoundServer::Resumed : SoundServer::Answers;
}

int RecorderScreen::selectedCaptureSourceIndex() const
{
    const QList<ScreenCaptureTargetOption> options = m_captureTargets->options();
    const QString selected = m_captureTargets->selectedOption().id;
    for (qsizetype i = 0; i < options.size(); ++i) {
        if (options.at(i).id == selected)
            return static_cast<int>(i);
    }
    return -1;
}

bool RecorderScreen::captureSourcesLoading() const
{
    return m_captureTargets->isLoading();
}

QString RecorderScreen::captureSourcesError() const
{
    return m_captureTargets->loadError();
}

bool RecorderScreen::micSilentWarningVisible() const
{
    return isRecording() && m_recorder->micSilent();
}

QString RecorderScreen::micSilentMessage() const
{
    return m_recorder ? m_recorder->micSilentMessage() : QString();
}

bool RecorderScreen::systemAudioWarningVisible() const
{
    return isRecording() && !m_recorder->systemAudioActive();
}

QString RecorderScreen::systemAudioError() const
{
    return m_recorder ? m_recorder->systemAudioError() : QString();
}

bool RecorderScreen::screenAccessWarningVisible() const
{
    return isRecording() && !m_recorder->screenAccessWarning().isNull();
}

QString RecorderScreen::screenAccessWarning() const
{
    return m_recorder ? m_recorder->screenAccessWarning() : QString();
}

int RecorderScreen::selectedMicrophoneIndex() const
{
    if (!m_recorder)
        return -1;
    const QList<InputDevice>& devices = m_microphones->devices();
    const quint32 selected = m_recorder->selectedInputDeviceID();
    // 0 is "the system default": the default device's entry stands for it.
    for (qsizetype i = 0; i < devices.size(); ++i) {
        if (selected != 0 ? devices.at(i).id == selected : devices.at(i).isDefault)
            return static_cast<int>(i);
    }
    return -1;
}

bool RecorderScreen::connectingToServer() const
{
    return m_live->mode() == TranscriptMode::server() && m_live->status().isConnecting();
}

bool RecorderScreen::listening() const
{
    return m_transcript->count() == 0 && m_live->status().isActive();
}

QString RecorderScreen::transcriptError() const
{
    return m_live->status().message();
}

int RecorderScreen::transcriptMaxHeight() const
{
    return m_transcriptExpanded ? kExpandedTranscriptHeight : kTranscriptHeight;
}

int RecorderScreen::languageIndex() const
{
    const QList<SpeechLanguage>& all = speechLanguages();
    for (qsizetype i = 0; i < all.size(); ++i) {
        if (all.at(i).identifier == m_live->language())
            return static_cast<int>(i);
    }
    return -1;
}

QString RecorderScreen::durationText() const
{
    return m_recorder ? m_recorder->elapsedText() : QString();
}

double RecorderScreen::uploadProgress() const
{
    return m_recorder && m_recorder->state().kind() == Kind::Uploading
               ? m_recorder->state().progress()
               : 0.0;
}

bool RecorderScreen::canViewRecording() const
{
    return m_recorder && !m_recorder->uploadedRecordingUrl().isEmpty();
}

QString RecorderScreen::errorMessage() const
{
    return m_recorder ? m_recorder->state().message() : QString();
}

bool RecorderScreen::retryUploadOffered() const
{
    // Looked at now, not when the upload failed: the file may be gone since.
    return m_recorder && m_recorder->canRetryUpload() && QFileInfo::exists(retryUploadFile());
}

} // namespace sorv

#include "moc_recorderscreen.cpp"
