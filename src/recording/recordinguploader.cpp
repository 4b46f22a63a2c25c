#include "recordinguploader.h"

#include "core/appinfo.h"
#include "core/log.h"
#include "core/mainthread.h"
#include "core/paths.h"
#include "recording/uploadbody.h"
#include "recording/uploadfailurelog.h"
#include "service/authmanager.h"
#include "service/requestrules.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>

namespace sorv {

namespace {

const char* const kSignInAgainBanner =
    QT_TRANSLATE_NOOP("RecordingUploader", "Sign in again to upload your recording.");

} // namespace

RecordingUploader::RecordingUploader(QObject* parent) : QObject(parent), m_self(this)
{
    qRegisterMetaType<Outcome>();
}

RecordingUploader::~RecordingUploader()
{
    abortTransfer();
}

void RecordingUploader::setAuthManager(AuthManager* auth)
{
    m_auth = auth;
}

void RecordingUploader::sweepStaleBodies()
{
    const QString dir = recordingsDirectory();
    if (dir.isEmpty())
        return;
    m_fileQueue.post([dir] {
        // Anything this old is no longer being sent by anyone.
        const QDateTime cutoff = QDateTime::currentDateTimeUtc().addSecs(-3600);
        const QFileInfoList bodies =
            QDir(dir).entryInfoList({QStringLiteral("sorvelandrix-upload-*.body")}, QDir::Files);
        for (const QFileInfo& body : bodies) {
            if (body.lastModified().toUTC() < cutoff && QFile::remove(body.absoluteFilePath()))
                consoleLog(QStringLiteral("🧹 Removed a stale upload body: %1")
                               .arg(body.absoluteFilePath()));
        }
    });
}

void RecordingUploader::finish(Outcome outcome)
{
    m_files.clear();
    m_running = false;
    outcome.path = m_path;
    // Remembered for the list of recordings not uploaded yet; a recording
    // busy elsewhere has not failed.
    if (isInRecordingsDirectory(m_path)) {
        if (outcome.kind == Outcome::Kind::Uploaded)
            uploadfailurelog::forget(m_path);
        else if (outcome.keepForRetry && !m_busy)
            uploadfailurelog::record(m_path, {outcome.message, outcome.transient});
    }
    Q_EMIT finished(outcome);
}

void RecordingUploader::fail(const QString& message, bool keepForRetry, bool transient)
{
    consoleLog(QStringLiteral("❌ %1").arg(message));
    Outcome outcome;
    outcome.kind = Outcome::Kind::Failed;
    outcome.message = message;
    outcome.keepForRetry = keepForRetry;
    outcome.transient = transient;
    finish(outcome);
}

void RecordingUploader::requireSignIn(const QString& message)
{
    if (m_auth)
        m_auth->expireSession(QCoreApplication::translate("RecordingUploader", kSignInAgainBanner));
    Outcome outcome;
    outcome.kind = Outcome::Kind::SignInRequired;
    outcome.message = message;
    outcome.keepForRetry = true;
    finish(outcome);
}

void RecordingUploader::upload(const QString& path, const QStringList& companions)
{
    if (m_running)
        return;
    m_running = true;
    m_path = path;
    m_busy = false;
    ++m_generation;
    if (!m_auth) {
        fail(QCoreApplication::translate("RecordingUploader", "Not logged in"), false);
        return;
    }
    if (m_auth->accessToken().isEmpty()) {
        fail(QCoreApplication::translate("RecordingUploader",
                                         "Not signed in — open the app menu and sign in again"),
             false);
        return;
    }
    if (!lockFiles(path, companions))
        return;
    Attempt attempt;
    attempt.path = path;
    attempt.companions = companions;
    attempt.filename = QFileInfo(path).fileName();
    attempt.contentType = uploadContentType(path);
    attempt.boundary = makeUploadBoundary();

    const std::uint64_t generation = m_generation;
    // The refresh's own result does not matter here; a refresh the service
    // refused has already ended the session, which the check below sees.
    m_auth->refreshAccessToken(this, [this, attempt, generation](bool) {
        if (generation == m_generation && m_running)
            checkSession(attempt);
    });
}

bool RecordingUploader::lockFiles(const QString& path, const QStringList& companions)
{
    m_files.clear();
    for (const QString& file : QStringList{path} + companions) {
        auto lock = std::make_shared<RecordingFileLock>(RecordingFileLock::tryLock(file));
        if (lock->status() == RecordingFileLock::Status::Busy) {
            m_busy = true;
            fail(QCoreApplication::translate(
                     "RecordingUploader",
                     "This recording is still being written or uploaded by another "
                     "program: %1")
                     .arg(file),
                 true, true);
            return false;
        }
        if (lock->isHeld()) {
            m_files.push_back({lock, lock->stamp()});
        } else if (file == path) {
            fail(QCoreApplication::translate("RecordingUploader", "Upload failed: ") +
                     lock->errorString(),
                 true);
            return false;
        }
        // A companion that is gone has nothing to be deleted.
    }
    return true;
}

void RecordingUploader::checkSession(const Attempt& attempt)
{
    if (!m_auth)
        return fail(QCoreApplication::translate("RecordingUploader", "Not logged in"), false);
    if (m_auth->accessToken().isEmpty())
        return requireSignIn(QCoreApplication::translate(
            "RecordingUploader", "Sign-in required — use Sign in with Browser below."));
    const std::uint64_t generation = m_generation;
    m_auth->checkAccessToken(
        this, [this, attempt, generation](AuthManager::TokenCheck check, const QString& error) {
            if (generation != m_generation || !m_running)
                return;
            switch (check) {
            case AuthManager::TokenCheck::Valid:
                send(attempt, true);
                return;
            case AuthManager::TokenCheck::Rejected:
                requireSignIn(QCoreApplication::translate(
                    "RecordingUploader", "Sign-in required — use Sign in with Browser below."));
                return;
            case AuthManager::TokenCheck::Unreachable:
                // A network that misbehaves for a moment is not a sign-out.
                fail(QCoreApplication::translate("RecordingUploader", "Upload failed: ") + error,
                     true, true);
                return;
            }
        });
}

void RecordingUploader::send(const Attempt& attempt, bool allowAuthRetry)
{
    const QString token = m_auth ? m_auth->accessToken() : QString();
    if (!allowAuthRetry && token.isEmpty())
        return fail(
            QCoreApplication::translate("RecordingUploader",
                                        "Session expired — sign in again, then tap Retry upload"),
            true);
    const std::optional<QUrl> url = endpointUrl(QStringLiteral("/api/upload"));
    if (!url)
        return fail(QCoreApplication::translate("RecordingUploader", "Invalid server URL"), false);
    Q_EMIT progress(0.0);

    auto* body = new MultipartBodyDevice(attempt.path, attempt.boundary, QStringLiteral("file"),
                                         attempt.filename, attempt.contentType);
    if (!body->open()) {
        const QString error = body->errorString();
        delete body;
        return fail(QCoreApplication::translate("RecordingUploader", "Upload failed: ") + error,
                    true);
    }
    m_files.front().stamp = body->sentStamp();

    QNetworkRequest request = authorizedRequest(*url, token);
    request.setRawHeader("Content-Type",
                         "multipart/form-data; boundary=" + attempt.boundary.toUtf8());
    request.setRawHeader("x-sorvelandrix-client", "linux-app");
    request.setRawHeader("x-sorvelandrix-language", languageCode(kRequestFallbackLocale).toUtf8());
    // The first attempt is the only one that names our client; the retry
    // after a 401 goes out with the network stack's own user agent.
    if (allowAuthRetry)
        request.setRawHeader(
            "User-Agent",
            QStringLiteral("SorvelandrixRecorder/%1 (Linux)")
                .arg(AppInfo::version().isEmpty() ? QStringLiteral("0") : AppInfo::version())
                .toUtf8());
    request.setTransferTimeout(m_transferTimeoutMs);
    request.setHeader(QNetworkRequest::ContentLengthHeader, body->totalSize());
    // Streamed from the file as it goes, never buffered whole, and never
    // sent a second time by the network stack.
    request.setAttribute(QNetworkRequest::DoNotBufferUploadDataAttribute, true);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::UserVerifiedRedirectPolicy);

    m_received.clear();
    const std::uint64_t generation = m_generation;
    // Whole per-mille steps: a read is 16 KiB, far finer than a bar shows.
    body->setReadObserver([this, generation, shown = -1](qint64 read, qint64 total) mutable {
        const int perMille = total > 0 ? static_cast<int>(read * 1000 / total) : 0;
        if (generation != m_generation || perMille == shown)
            return;
        shown = perMille;
        Q_EMIT progress(perMille / 1000.0);
    });
    QNetworkReply* reply = sharedNetworkAccess().post(request, body);
    body->setParent(reply);
    guardReply(reply, !token.isEmpty());
    m_reply = reply;

    connect(reply, &QNetworkReply::readyRead, this, [this, reply] {
        m_received += reply->readAll();
        if (m_received.size() > kMaxJsonAnswerBytes)
            reply->abort();
    });
    connect(reply, &QNetworkReply::finished, this,
            [this, reply, attempt, allowAuthRetry, generation] {
                reply->deleteLater();
                if (generation != m_generation || m_reply != reply)
                    return;
                m_reply = nullptr;
                HttpAnswer answer;
                const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
                if (status.isValid() && status.toInt() > 0 &&
                    m_received.size() <= kMaxJsonAnswerBytes) {
                    m_received += reply->readAll();
                    answer.isHttp = true;
                    answer.status = status.toInt();
                    answer.body = m_received;
                } else {
                    answer.transportError = true;
                    // A connection that dropped after the body went out may
                    // have delivered it: that is the user's call, not ours.
                    m_transportTransient = reply->error() != QNetworkReply::RemoteHostClosedError &&
                                           m_received.size() <= kMaxJsonAnswerBytes;
                    const QString refused = refusalReason(reply);
                    if (m_received.size() > kMaxJsonAnswerBytes)
                        answer.errorText = QCoreApplication::translate(
                            "RecordingUploader", "Upload failed: the server's answer is too large");
                    else if (!refused.isEmpty()) {
                        m_transportTransient = false;
                        answer.errorText =
                            QCoreApplication::translate("RecordingUploader", "Upload failed: ") +
                            refused;
                    } else
                        answer.errorText = uploadTransportFailureMessage(
                            reply->error(), reply->errorString(), m_transferTimeoutMs);
                }
                m_received.clear();
                answered(attempt, allowAuthRetry, answer);
            });
}

void RecordingUploader::answered(const Attempt& attempt, bool allowAuthRetry,
                                 const HttpAnswer& answer)
{
    if (answer.transportError)
        return fail(answer.errorText, true, m_transportTransient);

    if (answer.status == 401 && allowAuthRetry && m_auth) {
        consoleLog(QStringLiteral("🔄 Upload answered 401, refreshing the session once"));
        const std::uint64_t generation = m_generation;
        const auto current = [this, generation] { return generation == m_generation && m_running; };
        m_auth->refreshThenRetry(
            this,
            [this, attempt, current] {
                if (current())
                    send(attempt, false);
            },
            [this, current](AuthManager::RefreshOutcome outcome) {
                if (!current())
                    return;
                // Failed: the service could not be asked; the session stands.
                if (outcome == AuthManager::RefreshOutcome::Failed)
                    fail(QCoreApplication::translate(
                             "RecordingUploader",
                             "Upload failed: the session could not be refreshed"),
                         true, true);
                else
                    requireSignIn(QCoreApplication::translate(
                        "RecordingUploader",
                        "Sign-in required — sign in below, then tap Retry upload."));
            });
        return;
    }

    if (answer.status != 200)
        return fail(uploadFailureMessage(answer.body, answer.status), true, answer.status >= 500);

    // A network that answers everything with its own sign-in page (hotels,
    // trains) says 200 too, and so may a proxy or a service having a bad
    // day: only the service's JSON with the new recording's id is a receipt,
    // and without one the recording is not deleted.
    const QJsonValue id = QJsonDocument::fromJson(answer.body).object().value(QStringLiteral("id"));
    if (!id.isString() || id.toString().isEmpty())
        return fail(
            QCoreApplication::translate("RecordingUploader",
                                        "Upload failed: the server's answer was not understood "
                                        "(HTTP 200)"),
            true);
    succeed(attempt, id.toString());
}

void RecordingUploader::succeed(const Attempt& attempt, const std::optional<QString>& id)
{
    consoleLog(QStringLiteral("✅ Uploaded %1%2")
                   .arg(attempt.filename, id ? QStringLiteral(" (id %1)").arg(*id) : QString()));
    // Only now, with the service's receipt, do the local files go; and only
    // our own recordings, as they were sent: a file the user handed us from
    // elsewhere stays, and so does one that changed meanwhile (something
    // was added that the service does not have).
    std::vector<LockedFile> doomed;
    for (LockedFile& file : m_files) {
        if (isInRecordingsDirectory(file.lock->path()))
            doomed.push_back(std::move(file));
    }
    Outcome outcome;
    outcome.kind = Outcome::Kind::Uploaded;
    outcome.name = attempt.filename;
    outcome.id = id;
    const std::uint64_t generation = m_generation;
    // Removing a file of gigabytes takes a while: not on this thread. Each
    // lock is let go once its file is removed.
    m_fileQueue.post([self = m_self, doomed = std::move(doomed), outcome, generation, this] {
        for (const LockedFile& file : doomed) {
            const QString& path = file.lock->path();
            if (file.stamp && FileStamp::ofPath(path) == file.stamp)
                QFile::remove(path);
            else
                consoleLog(
                    QStringLiteral("⚠️ %1 changed while it was being uploaded; it is kept")
                        .arg(path));
            file.lock->release();
        }
        postToMainThread(self, [this, outcome, generation] {
            if (generation == m_generation)
                finish(outcome);
        });
    });
}

void RecordingUploader::abortTransfer()
{
    if (!m_reply)
        return;
    QNetworkReply* reply = m_reply;
    m_reply = nullptr;
    reply->abort();
}

void RecordingUploader::cancel()
{
    if (!m_running)
        return;
    ++m_generation;
    abortTransfer();
    fail(QCoreApplication::translate("RecordingUploader", "Upload cancelled"), true);
}

} // namespace sorv

#include "moc_recordinguploader.cpp"
