#include "recorderscreen.h"

#include "core/log.h"
#include "core/notify.h"
#include "core/settings.h"
#include "recording/audiorecorder.h"
#include "service/authmanager.h"
#include "transcript/localtranscriptmanager.h"
#include "transcript/servertranscriptmanager.h"
#include "transcript/speechlanguages.h"
#include "ui/recordingconsent.h"
#include "ui/transcriptlistmodel.h"
#include "video/screencapturetargetstore.h"

#include <QFileInfo>
#include <QStandardPaths>
#include <QTimer>
#include <QVariantMap>

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

QString sectionOf(const ScreenCaptureTargetOption& option)
{
    using Type = ScreenCaptureTargetOption::Kind::Type;
    switch (option.kind.type) {
    case Type::MainDisplay:
    case Type::Display:
        return QStringLiteral("Displays");
    case Type::Application:
        return QStringLiteral("Applications");
    case Type::Window:
        return QStringLiteral("Windows");
    }
    return {};
}

} // namespace

RecorderScreen::RecorderScreen(AudioRecorder& recorder, AuthManager& auth, QObject* parent)
    : RecorderScreen(recorder, auth, Parts{}, parent)
{}

RecorderScreen::RecorderScreen(AudioRecorder& recorder, AuthManager& auth, Parts parts,
                               QObject* parent)
    : QObject(parent), m_recorder(&recorder), m_auth(&auth),
      m_server(std::move(parts.serverTranscript)), m_local(std::move(parts.localTranscript)),
      m_captureTargets(std::move(parts.captureTargets)), m_schedule(std::move(parts.schedule)),
      m_privacySettings(privacySettingsCommand())
{
    if (!m_server)
        m_server = std::make_unique<ServerTranscriptManager>();
    if (!m_local)
        m_local = std::make_unique<LocalTranscriptManager>();
    if (!m_captureTargets)
        m_captureTargets = std::make_unique<ScreenCaptureTargetStore>();
    if (!m_schedule) {
        m_schedule = [this](std::chrono::milliseconds delay, std::function<void()> fn) {
            QTimer::singleShot(delay, this, std::move(fn));
        };
    }
    m_consent = new RecordingConsent(this);
    m_transcript = new TranscriptListModel(this);
    m_transcript->follow(m_server.get());
    m_speechLocale = m_local->currentLocale();
    m_lastStateKind = recorder.state().kind();

    // The two transcripts never run together, however the preview is started.
    m_local->setStopServerTranscript([this] { m_server->stop(); });

    // The live transcript speaks with the account's token: it ends with
    // the session (and its lines go with its next start).
    // An upload is the account's too: it stops, and the file is kept for a
    // retry after the next sign-in.
    connect(&auth, &AuthManager::sessionEnded, this, [this] {
        stopLiveTranscript();
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
    m_microphones = recorder.availableInputDevices();
    connect(&recorder, &AudioRecorder::availableInputDevicesChanged, this, [this] {
        if (m_recorder->soundServerLost() && m_recorder->availableInputDevices().isEmpty())
            return;
        m_microphones = m_recorder->availableInputDevices();
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
    // The "Recording: …" line names the selected source.
    connect(m_captureTargets.get(), &ScreenCaptureTargetStore::selectedIDChanged, this,
            &RecorderScreen::displayChanged);

    connect(m_server.get(), &ServerTranscriptManager::statusChanged, this,
            &RecorderScreen::transcriptDisplayChanged);
    connect(m_local.get(), &LocalTranscriptManager::statusChanged, this,
            &RecorderScreen::transcriptDisplayChanged);
    connect(m_transcript, &TranscriptListModel::countChanged, this,
            &RecorderScreen::transcriptDisplayChanged);
}

RecorderScreen::~RecorderScreen()
{
    ++m_watch;
    // The recorder outlives the screen: it must not feed managers that go.
    if (m_transcriptMode != TranscriptMode::none() && m_recorder)
        m_recorder->setOnMixedAudioBuffer({});
    // The parts go after this body: nothing they say on the way may reach
    // this half-destroyed screen or, through it, the views.
    disconnect();
    delete m_transcript;
    m_transcript = nullptr;
    if (m_recorder)
        m_recorder->disconnect(this);
    m_server->disconnect(this);
    m_local->disconnect(this);
    m_captureTargets->disconnect(this);
    m_retryFileWatcher.disconnect(this);
    m_local->setStopServerTranscript({});
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
    const QString stored = storedLocale();
    setSpeechLocaleField(
        stored.isEmpty() ? (m_recordVideo ? kVideoLocaleDefault : kAudioLocaleDefault) : stored);
    m_local->overrideLocale(m_speechLocale);
}

void RecorderScreen::ensureStoredLocaleDefault(bool video)
{
    if (!storedLocale().isEmpty())
        return;
    Settings::setValue(Settings::kSpeechLocaleKey,
                       video ? kVideoLocaleDefault : kAudioLocaleDefault);
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
        const QString stored = storedLocale();
        setSpeechLocaleField(stored.isEmpty() ? kVideoLocaleDefault : stored);
        m_captureTargets->reload();
    }
    m_local->overrideLocale(m_speechLocale);
}

void RecorderScreen::setSpeechLocale(const QString& locale)
{
    if (locale.isEmpty() || locale == m_speechLocale)
        return;
    setSpeechLocaleField(locale);
    Settings::setValue(Settings::kSpeechLocaleKey, locale);
    m_local->overrideLocale(locale);
    if (!m_transcriptVisible || !m_recorder)
        return;
    // The running transcript starts again in the new language (a preview
    // that had no model for the old one included).
    if (m_transcriptMode == TranscriptMode::server())
        restartServerTranscript();
    else if (m_transcriptMode == TranscriptMode::onDevice())
        m_local->start(*m_recorder);
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
        stopLiveTranscript();
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
            // The whole transcript stops, the toggle included: the next
            // recording starts without one.
            stopLiveTranscript();
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
    if (m_transcriptVisible)
        stopLiveTranscript();
    else if (isRecording())
        showLiveTranscript();
}

void RecorderScreen::showLiveTranscript()
{
    if (!m_recorder || !m_auth)
        return;
    setTranscriptVisible(true);
    setTranscriptMode(TranscriptMode::server());
    setServerFallbackOffered(false);
    m_transcript->follow(m_server.get());
    m_server->start(*m_recorder, *m_auth, m_speechLocale);
    startFallbackWatch();
}

void RecorderScreen::stopLiveTranscript()
{
    ++m_watch;
    setTranscriptVisible(false);
    setServerFallbackOffered(false);
    if (m_transcriptMode == TranscriptMode::server())
        m_server->stop();
    m_local->stop();
    if (m_recorder)
        m_recorder->setOnMixedAudioBuffer({});
    setTranscriptMode(TranscriptMode::none());
}

void RecorderScreen::restartServerTranscript()
{
    m_server->stop();
    m_local->stop();
    if (m_recorder)
        m_recorder->setOnMixedAudioBuffer({});
    showLiveTranscript();
}

void RecorderScreen::retryServer()
{
    setServerFallbackOffered(false);
    restartServerTranscript();
}

void RecorderScreen::useOnDevicePreview()
{
    if (!m_recorder || !m_transcriptVisible)
        return;
    ++m_watch;
    setServerFallbackOffered(false);
    m_server->stop();
    m_recorder->setOnMixedAudioBuffer({});
    // Empties the preview, stops it, starts it afresh on the mixed audio.
    m_local->start(*m_recorder);
    m_transcript->follow(m_local.get());
    setTranscriptMode(TranscriptMode::onDevice());
}

void RecorderScreen::startFallbackWatch()
{
    checkFallback(++m_watch, 1);
}

void RecorderScreen::checkFallback(std::uint64_t watch, int check)
{
    if (watch != m_watch || !m_transcriptVisible || m_transcriptMode != TranscriptMode::server())
        return;
    const TranscriptStatus& status = m_server->status();
    if (status.isActive())
        return;
    if (check > kFallbackChecks) {
        // Twelve seconds without a live transcript: offer the preview.
        setServerFallbackOffered(true);
        return;
    }
    // The streamer's own retries show as connecting: an error is final.
    if (status.isError()) {
        setServerFallbackOffered(true);
        return;
    }
    m_schedule(kFallbackCheckInterval, [this, watch, check] { checkFallback(watch, check + 1); });
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
    if (index >= 0 && index < m_microphones.size())
        m_recorder->selectInputDevice(m_microphones.at(index).id);
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

void RecorderScreen::setTranscriptVisible(bool v)
{
    if (v == m_transcriptVisible)
        return;
    m_transcriptVisible = v;
    Q_EMIT transcriptVisibleChanged();
    Q_EMIT transcriptDisplayChanged();
}

void RecorderScreen::setTranscriptMode(TranscriptMode mode)
{
    if (mode == m_transcriptMode)
        return;
    m_transcriptMode = mode;
    Q_EMIT transcriptModeChanged();
    Q_EMIT transcriptDisplayChanged();
}

void RecorderScreen::setSpeechLocaleField(const QString& locale)
{
    setAndNotify(this, m_speechLocale, locale, &RecorderScreen::speechLocaleChanged);
}

void RecorderScreen::setServerFallbackOffered(bool v)
{
    setAndNotify(this, m_serverFallbackOffered, v, &RecorderScreen::serverFallbackOfferedChanged);
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

QString RecorderScreen::mainButtonAccessibleName() const
{
    return isRecording() ? QStringLiteral("Stop recording") : QStringLiteral("Start recording");
}

QString RecorderScreen::statusText() const
{
    if (!m_recorder)
        return {};
    const RecordingState& state = m_recorder->state();
    switch (state.kind()) {
    case Kind::Idle:
        return m_recordVideo ? QStringLiteral("Tap to record video call")
                             : QStringLiteral("Tap to start recording");
    case Kind::Preparing:
        return QStringLiteral("Preparing...");
    case Kind::Recording:
        return {};
    case Kind::Stopping:
        return QStringLiteral("Stopping...");
    case Kind::PendingSave:
        return QStringLiteral("Recording stopped");
    case Kind::Uploading:
        return QStringLiteral("Uploading... %1%")
            .arg(static_cast<int>(std::trunc(state.progress() * 100.0)));
    case Kind::Uploaded:
        return QStringLiteral("Recording uploaded!");
    case Kind::Error:
        return state.message();
    }
    return {};
}

QString RecorderScreen::recordingSourceLine() const
{
    if (!m_recordVideo || page() != QLatin1String("capturing"))
        return {};
    return QStringLiteral("Recording: %1").arg(m_captureTargets->selectedOption().title);
}

RecorderScreen::SoundServer RecorderScreen::soundServer() const
{
    if (!isRecording())
        return SoundServer::Answers;
    if (m_recorder->soundServerLost())
        return SoundServer::Waiting;
    return m_soundServerResumed ? SoundServer::Resumed : SoundServer::Answers;
}

QString RecorderScreen::recordingModeLabel() const
{
    return QStringLiteral("Recording mode");
}

QString RecorderScreen::audioOnlyLabel() const
{
    return QStringLiteral("Audio only");
}

QString RecorderScreen::videoCallLabel() const
{
    return QStringLiteral("Video call");
}

QString RecorderScreen::modeDescription() const
{
    return m_recordVideo ? QStringLiteral("Records your screen plus mic and call audio — best for "
                                          "WhatsApp, Zoom, and Teams.")
                         : QStringLiteral("Records microphone and system audio only (no screen "
                                          "video).");
}

QString RecorderScreen::headphonesHint() const
{
    return QStringLiteral(
        "Use headphones if you hear echo — speakers let the mic pick up the call twice.");
}

QString RecorderScreen::videoModeNote() const
{
    return QStringLiteral("Needs screen-sharing permission on Wayland desktops. After allowing, "
                          "quit (Ctrl+Q) and reopen once.");
}

QString RecorderScreen::captureSourceLabel() const
{
    return QStringLiteral("Capture source");
}

QString RecorderScreen::captureSourceHelp() const
{
    return QStringLiteral("Choose which display, app, or window to record.");
}

QString RecorderScreen::refreshLabel() const
{
    return QStringLiteral("Refresh");
}

QStringList RecorderScreen::captureSourceSections() const
{
    return {QStringLiteral("Displays"), QStringLiteral("Applications"), QStringLiteral("Windows")};
}

QVariantList RecorderScreen::captureSources() const
{
    QVariantList out;
    for (const ScreenCaptureTargetOption& option : m_captureTargets->options()) {
        out << QVariantMap{{QStringLiteral("id"), option.id},
                           {QStringLiteral("title"), option.title},
                           {QStringLiteral("subtitle"), option.subtitle},
                           {QStringLiteral("section"), sectionOf(option)}};
    }
    return out;
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

QString RecorderScreen::microphoneMeterLabel() const
{
    return QStringLiteral("Microphone");
}

QString RecorderScreen::systemAudioMeterLabel() const
{
    return QStringLiteral("System Audio");
}

QString RecorderScreen::meterHint() const
{
    return QStringLiteral("During WhatsApp/Zoom calls, watch the Microphone meter — if it stays "
                          "flat while you speak, your voice may not be recorded until the call "
                          "ends.");
}

bool RecorderScreen::micSilentWarningVisible() const
{
    return isRecording() && m_recorder->micSilent();
}

QString RecorderScreen::micSilentTitle() const
{
    return QStringLiteral("Microphone is silent");
}

QString RecorderScreen::micSilentMessage() const
{
    return m_recorder ? m_recorder->micSilentMessage() : QString();
}

bool RecorderScreen::systemAudioWarningVisible() const
{
    return isRecording() && !m_recorder->systemAudioActive();
}

QString RecorderScreen::systemAudioWarningTitle() const
{
    return QStringLiteral("Mic only — system audio unavailable");
}

QString RecorderScreen::systemAudioError() const
{
    return m_recorder ? m_recorder->systemAudioError() : QString();
}

QString RecorderScreen::systemAudioSettingsLabel() const
{
    return QStringLiteral("Settings");
}

QString RecorderScreen::systemAudioRetryLabel() const
{
    return QStringLiteral("Retry");
}

bool RecorderScreen::screenAccessWarningVisible() const
{
    return isRecording() && !m_recorder->screenAccessWarning().isNull();
}

QString RecorderScreen::screenAccessWarning() const
{
    return m_recorder ? m_recorder->screenAccessWarning() : QString();
}

QString RecorderScreen::openSettingsLabel() const
{
    return QStringLiteral("Open Settings");
}

QString RecorderScreen::checkAgainLabel() const
{
    return QStringLiteral("I fixed it — check again");
}

QVariantList RecorderScreen::microphones() const
{
    QVariantList out;
    if (!m_recorder)
        return out;
    for (const InputDevice& device : m_microphones) {
        out << QVariantMap{
            {QStringLiteral("id"), device.id},
            {QStringLiteral("label"),
             device.isDefault ? device.name + QStringLiteral(" (default)") : device.name},
            {QStringLiteral("isDefault"), device.isDefault}};
    }
    return out;
}

int RecorderScreen::selectedMicrophoneIndex() const
{
    if (!m_recorder)
        return -1;
    const QList<InputDevice>& devices = m_microphones;
    const quint32 selected = m_recorder->selectedInputDeviceID();
    // 0 is "the system default": the default device's entry stands for it.
    for (qsizetype i = 0; i < devices.size(); ++i) {
        if (selected != 0 ? devices.at(i).id == selected : devices.at(i).isDefault)
            return static_cast<int>(i);
    }
    return -1;
}

QString RecorderScreen::refreshDeviceListLabel() const
{
    return QStringLiteral("Refresh device list");
}

QString RecorderScreen::transcriptToggleLabel() const
{
    return m_transcriptVisible ? QStringLiteral("Hide Live Transcript")
                               : QStringLiteral("Show Live Transcript");
}

QString RecorderScreen::transcriptModeLabel() const
{
    switch (m_transcriptMode.kind()) {
    case TranscriptMode::Kind::Server:
        return QStringLiteral("Server (diarized)");
    case TranscriptMode::Kind::OnDevice:
        return QStringLiteral("On-device preview");
    case TranscriptMode::Kind::None:
        break;
    }
    return {};
}

bool RecorderScreen::connectingToServer() const
{
    return m_transcriptVisible && m_transcriptMode == TranscriptMode::server() &&
           m_server->status().isConnecting();
}

QString RecorderScreen::connectingText() const
{
    return QStringLiteral("Connecting to server…");
}

bool RecorderScreen::listening() const
{
    if (!m_transcriptVisible || m_transcript->count() > 0)
        return false;
    switch (m_transcriptMode.kind()) {
    case TranscriptMode::Kind::Server:
        return m_server->status().isActive();
    case TranscriptMode::Kind::OnDevice:
        return m_local->status().isActive();
    case TranscriptMode::Kind::None:
        break;
    }
    return false;
}

QString RecorderScreen::listeningText() const
{
    return QStringLiteral("Listening...");
}

QString RecorderScreen::transcriptError() const
{
    switch (m_transcriptMode.kind()) {
    case TranscriptMode::Kind::Server:
        return m_server->status().message();
    case TranscriptMode::Kind::OnDevice:
        return m_local->status().message();
    case TranscriptMode::Kind::None:
        break;
    }
    return {};
}

QString RecorderScreen::retryServerLabel() const
{
    return QStringLiteral("Retry server");
}

QString RecorderScreen::useOnDevicePreviewLabel() const
{
    return QStringLiteral("Use on-device preview");
}

QString RecorderScreen::expandLabel() const
{
    return m_transcriptExpanded ? QStringLiteral("Collapse") : QStringLiteral("Expand");
}

QString RecorderScreen::expandHelp() const
{
    return m_transcriptExpanded ? QStringLiteral("Use a shorter transcript panel")
                                : QStringLiteral("Show more lines of live transcript");
}

int RecorderScreen::transcriptMaxHeight() const
{
    return m_transcriptExpanded ? kExpandedTranscriptHeight : kTranscriptHeight;
}

QString RecorderScreen::languagePickerLabel() const
{
    return QStringLiteral("Transcription language:");
}

QVariantList RecorderScreen::languages() const
{
    QVariantList out;
    for (const SpeechLanguage& language : speechLanguages()) {
        out << QVariantMap{{QStringLiteral("identifier"), language.identifier},
                           {QStringLiteral("label"), language.label}};
    }
    return out;
}

int RecorderScreen::languageIndex() const
{
    const QList<SpeechLanguage>& all = speechLanguages();
    for (qsizetype i = 0; i < all.size(); ++i) {
        if (all.at(i).identifier == m_speechLocale)
            return static_cast<int>(i);
    }
    return -1;
}

QString RecorderScreen::languageNote() const
{
    return QStringLiteral("Live shows the original language with speaker labels. English "
                          "translation is available on the website after you upload.");
}

QString RecorderScreen::saveTitle() const
{
    return QStringLiteral("Save this recording?");
}

QString RecorderScreen::durationText() const
{
    return m_recorder ? m_recorder->elapsedText() : QString();
}

QString RecorderScreen::saveLabel() const
{
    return QStringLiteral("Save & Upload");
}

QString RecorderScreen::saveHelp() const
{
    return QStringLiteral("Save and upload recording");
}

QString RecorderScreen::discardLabel() const
{
    return QStringLiteral("Discard");
}

QString RecorderScreen::discardHelp() const
{
    return QStringLiteral("Discard recording");
}

QString RecorderScreen::uploadingTitle() const
{
    return QStringLiteral("Uploading to Sorvelandrix...");
}

double RecorderScreen::uploadProgress() const
{
    return m_recorder && m_recorder->state().kind() == Kind::Uploading
               ? m_recorder->state().progress()
               : 0.0;
}

QString RecorderScreen::uploadedTitle() const
{
    return QStringLiteral("Uploaded successfully");
}

QString RecorderScreen::viewRecordingLabel() const
{
    return QStringLiteral("View Recording");
}

bool RecorderScreen::canViewRecording() const
{
    return m_recorder && !m_recorder->uploadedRecordingUrl().isEmpty();
}

QString RecorderScreen::recordAnotherLabel() const
{
    return QStringLiteral("Record Another");
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

QString RecorderScreen::retryUploadLabel() const
{
    return QStringLiteral("Retry upload");
}

QString RecorderScreen::startOverLabel() const
{
    return retryUploadOffered() ? QStringLiteral("Start over") : QStringLiteral("Try Again");
}

} // namespace sorv
