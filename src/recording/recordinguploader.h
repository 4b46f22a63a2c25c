#pragma once

#include "core/recordingfilelock.h"
#include "core/serialqueue.h"
#include "service/network.h"

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

class QNetworkReply;

namespace sorv {

class AuthManager;
class MultipartBodyDevice;

// Sends one finished recording to the service in one multipart POST, the
// body produced from the recording file as it goes. The session is refreshed
// first and checked; a 401 leads to one refresh and one retry. The recording
// and its companions are locked for the whole upload (RecordingFileLock): a
// file that another program still writes, or already sends, is refused. The
// files are deleted only once the service has answered 200 with the new
// recording's id, and only when they are still what was sent (a file that
// changed meanwhile stays); every failure keeps them for Retry. Main thread
// only; the slow file work runs on a worker.
class RecordingUploader : public QObject {
    Q_OBJECT
public:
    struct Outcome {
        enum class Kind {
            Uploaded,
            Failed,         // `message` says why
            SignInRequired, // the session ended: sign in, then Retry
        };
        Kind kind = Kind::Failed;
        QString path; // the recording asked for
        QString message;
        QString name;              // Uploaded: the file's name
        std::optional<QString> id; // Uploaded: the service's recording id
        bool keepForRetry = false; // the recording stays and Retry can send it
        // Failed for a reason that may pass by itself (no connection, a
        // timeout, a 5xx, the file busy elsewhere): worth trying again later.
        bool transient = false;
    };

    static constexpr int kUploadTimeoutMs = Timeouts::kUploadMs;

    explicit RecordingUploader(QObject* parent = nullptr);
    ~RecordingUploader() override;

    void setAuthManager(AuthManager* auth);
    bool isRunning() const { return m_running; }
    // How long a transfer may go without moving a byte (tests shorten it).
    void setTransferTimeout(std::chrono::milliseconds timeout)
    {
        m_transferTimeoutMs = static_cast<int>(timeout.count());
    }

    // Sends `path`; `companions` are deleted with it after a success (the
    // WAV beside a video). Progress, then one finished(), which names the
    // recording; nothing while another upload runs.
    void upload(const QString& path, const QStringList& companions);

    // Stops an upload under way at once: finished() reports it, the
    // recording is kept.
    void cancel();

    // Body files left by an earlier version's staging (or a crash during it)
    // are removed in the background.
    void sweepStaleBodies();

Q_SIGNALS:
    // The transfer started (0) and then moved on (fraction of the body sent).
    void progress(double fraction);
    void finished(const sorv::RecordingUploader::Outcome& outcome);

private:
    struct Attempt {
        QString path;
        QStringList companions;
        QString boundary;
        QString filename;
        QString contentType;
    };

    void checkSession(const Attempt& attempt);
    void send(const Attempt& attempt, bool allowAuthRetry);
    void answered(const Attempt& attempt, bool allowAuthRetry, const HttpAnswer& answer);
    void succeed(const Attempt& attempt, const std::optional<QString>& id);
    void fail(const QString& message, bool keepForRetry, bool transient = false);
    void requireSignIn(const QString& message);
    void finish(Outcome outcome);
    void abortTransfer();
    bool lockFiles(const QString& path, const QStringList& companions);

    QPointer<AuthManager> m_auth;
    QPointer<const QObject> m_self;
    // File work that may take a while (removing gigabytes) runs here.
    SerialQueue m_fileQueue{QStringLiteral("com.sorvelandrix.files")};
    bool m_running = false;
    int m_transferTimeoutMs = kUploadTimeoutMs;
    std::uint64_t m_generation = 0; // answers of a cancelled upload are ignored
    QPointer<QNetworkReply> m_reply;
    QByteArray m_received;
    // Held from the start of an upload to its end.
    struct LockedFile {
        std::shared_ptr<RecordingFileLock> lock;
        std::optional<FileStamp> stamp; // what it was when sent (or locked)
    };
    std::vector<LockedFile> m_files; // the recording first, then its companions
    QString m_path;                  // the recording of the upload under way
    bool m_busy = false;             // another program holds it
    bool m_transportTransient = false;
};

} // namespace sorv

Q_DECLARE_METATYPE(sorv::RecordingUploader::Outcome)
