// AudioRecorder's upload: the saved recording goes to the service in one
// multipart POST streamed from a staged body file, with one token refresh and
// one retry after a 401. The recording is deleted only after a 200; every
// failure keeps it for Retry. Everything here runs on the main thread.

#include "recording/audiorecorder.h"
#include "recording/uploadbody.h"
#include "recording/uploadtransfer.h"

#include "core/appinfo.h"
#include "core/log.h"
#include "core/paths.h"
#include "service/authmanager.h"
#include "service/network.h"
#include "service/requestrules.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

namespace sorv {

namespace {

const QString kSignInAgainBanner = QStringLiteral("Sign in again to upload your recording.");
constexpr int kUploadTimeoutMs = 600'000;

} // namespace

void AudioRecorder::setAuthManager(AuthManager* auth)
{
    m_authManager = auth;
    if (!auth) {
        m_tokenRefreshHook = {};
        m_signedInCheck = {};
        return;
    }
    QPointer<AuthManager> weak(auth);
    m_tokenRefreshHook = [this, weak](std::function<void()> done) {
        if (!weak) {
            done();
            return;
        }
        weak->refreshAccessToken(this, [done = std::move(done)](bool) { done(); });
    };
    m_signedInCheck = [weak] { return weak && weak->isLoggedIn(); };
}

QNetworkRequest AudioRecorder::uploadRequest(const QUrl& url, const QString& boundary,
                                             bool firstAttempt) const
{
    QNetworkRequest request =
        authorizedRequest(url, m_authManager ? m_authManager->accessToken() : QString());
    request.setRawHeader("Content-Type", "multipart/form-data; boundary=" + boundary.toUtf8());
    request.setRawHeader("x-sorvelandrix-client", "linux-app");
    request.setRawHeader("x-sorvelandrix-language", languageCode(kRequestFallbackLocale).toUtf8());
    if (firstAttempt)
        request.setRawHeader(
            "User-Agent",
            QStringLiteral("SorvelandrixRecorder/%1 (Linux)")
                .arg(AppInfo::version().isEmpty() ? QStringLiteral("0") : AppInfo::version())
                .toUtf8());
    request.setTransferTimeout(kUploadTimeoutMs);
    return request;
}

void AudioRecorder::uploadRecording(const QString& path)
{
    if (!m_authManager) {
        setState(RecordingState::error(QStringLiteral("Not logged in")));
        return;
    }
    if (m_authManager->accessToken().isEmpty()) {
        setState(RecordingState::error(
            QStringLiteral("Not signed in — open the app menu and sign in again")));
        return;
    }
    QPointer<AudioRecorder> self(this);
    m_authManager->refreshAccessToken(this, [self, path](bool) {
        if (!self || !self->m_authManager)
            return;
        AudioRecorder* recorder = self;
        auto sessionGone = [recorder, path] {
            recorder->m_failedUploadPath = path;
            if (recorder->m_authManager)
                recorder->m_authManager->expireSession(kSignInAgainBanner);
            recorder->setState(RecordingState::error(
                QStringLiteral("Sign-in required — use Sign in with Browser below.")));
        };
        if (recorder->m_authManager->accessToken().isEmpty()) {
            sessionGone();
            return;
        }
        recorder->m_authManager->verifyAccessToken(recorder, [self, path, sessionGone](bool ok) {
            if (!self)
                return;
            if (!ok) {
                sessionGone();
                return;
            }
            self->beginUpload(path);
        });
    });
}

void AudioRecorder::beginUpload(const QString& path)
{
    setState(RecordingState::uploading(0.0));
    const std::optional<QUrl> url = endpointUrl(QStringLiteral("/api/upload"));
    if (!url) {
        setState(RecordingState::error(QStringLiteral("Invalid server URL")));
        return;
    }

    UploadParameters params;
    params.filename = QFileInfo(path).fileName();
    params.contentType = uploadContentType(path);
    params.boundary = makeUploadBoundary();
    if (!m_lastWavPath.isEmpty() && m_lastWavPath != path)
        params.companions << m_lastWavPath;

    QString stageError;
    QElapsedTimer staging;
    staging.start();
    const QString body = stageMultipartBody(params.boundary, QStringLiteral("file"),
                                            params.filename, params.contentType, path, &stageError);
    if (!body.isEmpty())
        consoleLog(QStringLiteral("📝 Staged upload body: %1 bytes in %2 s")
                       .arg(QFileInfo(body).size())
                       .arg(staging.elapsed() / 1000.0, 0, 'f', 3));
    if (body.isEmpty()) {
        m_failedUploadPath = path;
        setState(RecordingState::error(QStringLiteral("Could not stage upload: ") + stageError));
        return;
    }
    sendUpload(path, true, body, params, *url);
}

void AudioRecorder::performUpload(const QString& recordingPath, bool allowAuthRetry,
                                  const QString& bodyPath, const UploadParameters& params)
{
    if (!m_authManager || m_authManager->accessToken().isEmpty()) {
        QFile::remove(bodyPath);
        m_failedUploadPath = recordingPath;
        setState(RecordingState::error(
            QStringLiteral("Session expired — sign in again, then tap Retry upload")));
        return;
    }
    const std::optional<QUrl> url = endpointUrl(QStringLiteral("/api/upload"));
    if (!url) {
        QFile::remove(bodyPath);
        setState(RecordingState::error(QStringLiteral("Invalid server URL")));
        return;
    }
    sendUpload(recordingPath, allowAuthRetry, bodyPath, params, *url);
}

void AudioRecorder::sendUpload(const QString& recordingPath, bool allowAuthRetry,
                               const QString& bodyPath, const UploadParameters& params,
                               const QUrl& url)
{
    // The first attempt is the only one that names our client; the retry
    // after a 401 goes out with the network stack's own user agent.
    const QNetworkRequest request = uploadRequest(url, params.boundary, allowAuthRetry);
    auto* transfer = new UploadTransfer(sharedNetworkAccess(), this);
    m_uploadDelegate = transfer;
    QPointer<AudioRecorder> self(this);
    connect(transfer, &UploadTransfer::progress, this, [self](double fraction) {
        if (self && self->m_state.kind() == RecordingState::Kind::Uploading)
            self->setState(RecordingState::uploading(fraction));
    });
    connect(transfer, &UploadTransfer::finished, this,
            [self, transfer, recordingPath, allowAuthRetry, bodyPath,
             params](const UploadTransfer::Answer& answer) {
                transfer->deleteLater();
                if (self)
                    self->finishUpload(recordingPath, allowAuthRetry, bodyPath, params, answer);
            });
    QString error;
    if (!transfer->start(request, bodyPath, &error)) {
        transfer->deleteLater();
        QFile::remove(bodyPath);
        m_failedUploadPath = recordingPath;
        setState(RecordingState::error(QStringLiteral("Upload failed: ") + error));
    }
}

void AudioRecorder::finishUpload(const QString& recordingPath, bool allowAuthRetry,
                                 const QString& bodyPath, const UploadParameters& params,
                                 const UploadTransfer::Answer& answer)
{
    if (answer.transportError) {
        QFile::remove(bodyPath);
        m_failedUploadPath = recordingPath;
        consoleLog(QStringLiteral("❌ Upload failed: %1").arg(answer.errorText));
        setState(RecordingState::error(QStringLiteral("Upload failed: ") + answer.errorText));
        return;
    }

    if (answer.status == 401 && allowAuthRetry && m_authManager) {
        consoleLog(QStringLiteral("🔄 Upload answered 401, refreshing the session once"));
        QPointer<AudioRecorder> self(this);
        m_authManager->refreshAccessToken(this, [self, recordingPath, bodyPath,
                                                 params](bool refreshed) {
            if (!self) {
                QFile::remove(bodyPath);
                return;
            }
            if (refreshed && self->m_authManager && !self->m_authManager->accessToken().isEmpty()) {
                self->performUpload(recordingPath, false, bodyPath, params);
                return;
            }
            QFile::remove(bodyPath);
            self->m_failedUploadPath = recordingPath;
            if (self->m_authManager)
                self->m_authManager->expireSession(kSignInAgainBanner);
            self->setState(RecordingState::error(
                QStringLiteral("Sign-in required — sign in below, then tap Retry upload.")));
        });
        return;
    }

    QFile::remove(bodyPath);
    if (answer.status != 200) {
        m_failedUploadPath = recordingPath;
        const QString message = uploadFailureMessage(answer.body, answer.status);
        consoleLog(QStringLiteral("❌ %1").arg(message));
        setState(RecordingState::error(message));
        return;
    }

    std::optional<QString> id;
    const QJsonDocument doc = QJsonDocument::fromJson(answer.body);
    if (doc.isObject() && doc.object().value(QStringLiteral("id")).isString())
        id = doc.object().value(QStringLiteral("id")).toString();
    m_failedUploadPath.clear();
    consoleLog(QStringLiteral("✅ Uploaded %1%2")
                   .arg(params.filename, id ? QStringLiteral(" (id %1)").arg(*id) : QString()));
    setState(RecordingState::uploaded(params.filename, id));
    // Only now, with the service's confirmation, do the local files go; and
    // only our own recordings: a file the user handed us from elsewhere
    // stays where it is.
    if (isInRecordingsDirectory(recordingPath))
        QFile::remove(recordingPath);
    for (const QString& companion : params.companions) {
        if (isInRecordingsDirectory(companion))
            QFile::remove(companion);
    }
}

} // namespace sorv
