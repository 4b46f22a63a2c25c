#include "keptrecordings.h"

#include "recording/audiorecorder.h"
#include "service/authmanager.h"
#include "service/requestrules.h"
#include "video/mp4writer.h"

#include <QFileInfo>
#include <QUrl>

namespace sorv {

KeptRecordings::KeptRecordings(AudioRecorder& recorder, AuthManager& auth, Hooks hooks,
                               QDBusConnection bus, QObject* parent)
    : QObject(parent), m_recorder(recorder), m_hooks(std::move(hooks)),
      m_pending([](const QString& from, const QString& to, QString* error) {
          return Mp4Writer::remuxWithIndexFirst(from, to, 0, error);
      }),
      m_retries(&auth), m_notifier(std::move(bus))
{
    m_notifier.setWindowActive(m_hooks.windowActive);
    m_pending.setUploadHandler([this](const QString& path) { m_retries.retryNow(path); });
    m_pending.setShowInFolderHandler([this](const QString& path) {
        if (m_hooks.openUrl)
            m_hooks.openUrl(QUrl::fromLocalFile(QFileInfo(path).absolutePath()));
    });
    connect(&recorder.uploader(), &RecordingUploader::finished, this,
            &KeptRecordings::recorderUploadEnded);
    connect(&m_retries, &UploadRetryScheduler::finished, this, &KeptRecordings::retryEnded);
    connect(&recorder, &AudioRecorder::isRecordingChanged, this, [this] {
        const bool was = std::exchange(m_wasRecording, m_recorder.isRecording());
        if (was && !m_recorder.isRecording() &&
            m_recorder.state().kind() == RecordingState::Kind::Error)
            m_notifier.recordingStopped(m_recorder.state().message());
        m_pending.refresh();
    });
    m_retries.addRemembered();
    m_retries.followNetworkReachability();
    m_pending.refresh();
}

void KeptRecordings::notifyUploaded(const RecordingUploader::Outcome& outcome)
{
    std::function<void()> view;
    if (outcome.id && m_hooks.openUrl)
        view = [open = m_hooks.openUrl, url = recordingWebAddress(*outcome.id)] {
            open(QUrl(url));
        };
    m_notifier.uploadFinished(outcome.name, view);
}

void KeptRecordings::recorderUploadEnded(const RecordingUploader::Outcome& outcome)
{
    using Kind = RecordingUploader::Outcome::Kind;
    m_pending.refresh();
    if (outcome.kind == Kind::Uploaded)
        return notifyUploaded(outcome);
    if (outcome.message == QStringLiteral("Upload cancelled"))
        return;
    m_retries.add(outcome);
    m_notifier.uploadFailed(QFileInfo(outcome.path).fileName(), outcome.message,
                            [this] { m_recorder.retryUpload(); });
}

void KeptRecordings::retryEnded(const RecordingUploader::Outcome& outcome)
{
    using Kind = RecordingUploader::Outcome::Kind;
    m_pending.refresh();
    if (outcome.kind == Kind::Uploaded)
        return notifyUploaded(outcome);
    // A network failure is tried again by itself: only the end of the tries
    // is worth a notification.
    if (outcome.transient)
        return;
    m_notifier.uploadFailed(QFileInfo(outcome.path).fileName(), outcome.message,
                            [this, path = outcome.path] { m_retries.retryNow(path); });
}

} // namespace sorv

#include "moc_keptrecordings.cpp"
