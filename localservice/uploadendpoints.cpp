// /api/upload: one multipart "file" part, streamed to disk under the data
// directory as it arrives, then listed by /api/transcriptions ("processing",
// then "completed" once the simulated transcription is done).

#include "localservice/endpoints.h"
#include "localservice/multipartreceiver.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sndfile.h>

namespace sorv::local {

namespace {

QVariant durationMs(const QString& path)
{
    SF_INFO info{};
    SNDFILE* f = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
    if (!f)
        return {};
    sf_close(f);
    if (info.samplerate <= 0)
        return {};
    return QVariant::fromValue<qint64>(info.frames * 1000 / info.samplerate);
}

} // namespace

void addUploadEndpoints(Router& router, ServiceState& state)
{
    router.addStreaming(
        "POST", QStringLiteral("/api/upload"),
        signedIn<BodyReader>(
            state,
            [&state](const ServiceRequest& request, const Account& account,
                     BodyReader& body) -> ServiceResponse {
                const QByteArray boundary =
                    MultipartReceiver::boundaryFromContentType(request.header("Content-Type"));
                if (boundary.isEmpty()) {
                    body.drain();
                    return ServiceResponse::detail(
                        400, QStringLiteral("Expected a multipart/form-data body with a boundary"));
                }

                const QString id = ServiceState::newId();
                const QString dir = state.dataDirectory() + QStringLiteral("/uploads/") + id;
                if (!QDir().mkpath(dir)) {
                    body.drain();
                    return ServiceResponse::detail(500, QStringLiteral("Cannot store the upload"));
                }
                const QString partial = dir + QStringLiteral("/upload.part");
                MultipartReceiver receiver(boundary, partial);
                QString readError;
                for (;;) {
                    const std::optional<QByteArray> piece = body.next(&readError);
                    if (!piece) {
                        // The client went away: nothing to answer, nothing kept.
                        QDir(dir).removeRecursively();
                        return ServiceResponse::detail(400, readError);
                    }
                    if (piece->isEmpty())
                        break;
                    if (!receiver.feed(*piece)) {
                        body.drain();
                        break;
                    }
                }
                if (!receiver.finish()) {
                    QDir(dir).removeRecursively();
                    return ServiceResponse::detail(400, receiver.errorString());
                }

                // Only the name's last component: the client's filename is not a path.
                QString filename = QFileInfo(receiver.filename()).fileName();
                if (filename.isEmpty() || filename.startsWith(QLatin1Char('.')))
                    filename = QStringLiteral("recording");
                const QString stored = dir + QLatin1Char('/') + filename;
                if (!QFile::rename(partial, stored)) {
                    QDir(dir).removeRecursively();
                    return ServiceResponse::detail(
                        400, QStringLiteral("The file name cannot be stored"));
                }
                const QString recordingId = state.addUploadedRecording(id, account.id, filename,
                                                                       durationMs(stored), stored);
                return ServiceResponse::json(
                    200, QJsonObject{
                             {QStringLiteral("id"), recordingId},
                             {QStringLiteral("filename"), filename},
                             {QStringLiteral("status"), QStringLiteral("processing")},
                             {QStringLiteral("size"), receiver.fileBytes()},
                         });
            }));
}

} // namespace sorv::local
