#pragma once

#include "app/desktopnotifier.h"
#include "recording/pendingrecordings.h"
#include "recording/uploadretryscheduler.h"

#include <QObject>
#include <QPointer>

#include <functional>
#include <memory>

namespace sorv {

class AudioRecorder;
class AuthManager;

// What the application does for recordings that did not reach the service:
// lists them (PendingRecordings), sends again by itself those that failed
// for a network reason (UploadRetryScheduler), and tells a user whose window
// is not in front how uploads and recordings ended (DesktopNotifier).
class KeptRecordings : public QObject {
    Q_OBJECT
public:
    struct Hooks {
        std::function<bool()> windowActive;
        std::function<void(const QUrl&)> openUrl;
        std::function<void()> showMainWindow;
    };

    KeptRecordings(AudioRecorder& recorder, AuthManager& auth, Hooks hooks,
                   QDBusConnection bus = QDBusConnection::sessionBus(), QObject* parent = nullptr);

    PendingRecordings& pending() { return m_pending; }
    UploadRetryScheduler& retries() { return m_retries; }
    DesktopNotifier& notifier() { return m_notifier; }

private:
    void recorderUploadEnded(const RecordingUploader::Outcome& outcome);
    void retryEnded(const RecordingUploader::Outcome& outcome);
    void notifyUploaded(const RecordingUploader::Outcome& outcome);

    AudioRecorder& m_recorder;
    Hooks m_hooks;
    PendingRecordings m_pending;
    UploadRetryScheduler m_retries;
    DesktopNotifier m_notifier;
    bool m_wasRecording = false;
};

} // namespace sorv
