#include "uploadbody.h"

#include "core/paths.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>

#include <memory>

namespace sorv {

namespace {
constexpr qint64 kChunkSize = 1'048'576;
}

QString makeUploadBoundary()
{
    return QStringLiteral("sorvelandrix-") +
           QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

QString uploadContentType(const QString& filePath)
{
    const QString ext = QFileInfo(filePath).suffix().toLower();
    if (ext == QLatin1String("mp4"))
        return QStringLiteral("video/mp4");
    if (ext == QLatin1String("wav"))
        return QStringLiteral("audio/wav");
    if (ext == QLatin1String("m4a"))
        return QStringLiteral("audio/m4a");
    return QStringLiteral("application/octet-stream");
}

QString stageMultipartBody(const QString& boundary, const QString& fieldName,
                           const QString& filename, const QString& contentType,
                           const QString& filePath, QString* error)
{
    auto fail = [error](const QString& message) {
        if (error)
            *error = message;
        return QString();
    };

    QString dir = recordingsDirectory();
    if (dir.isEmpty())
        dir = QFileInfo(filePath).absolutePath();
    const QString bodyPath = dir + QStringLiteral("/sorvelandrix-upload-") +
                             QUuid::createUuid().toString(QUuid::WithoutBraces) +
                             QStringLiteral(".body");

    QFile source(filePath);
    if (!source.open(QIODevice::ReadOnly))
        return fail(QStringLiteral("%1: %2").arg(filePath, source.errorString()));

    QFile body(bodyPath);
    if (!body.open(QIODevice::WriteOnly | QIODevice::NewOnly))
        return fail(QStringLiteral("Could not create staging file at %1").arg(bodyPath));
    body.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);

    auto abandon = [&](const QString& message) {
        body.close();
        QFile::remove(bodyPath);
        return fail(message);
    };

    const QByteArray head = "--" + boundary.toUtf8() + "\r\n" +
                            "Content-Disposition: form-data; name=\"" + fieldName.toUtf8() +
                            "\"; filename=\"" + filename.toUtf8() + "\"\r\n" +
                            "Content-Type: " + contentType.toUtf8() + "\r\n" + "\r\n";
    if (body.write(head) != head.size())
        return abandon(body.errorString());

    // One chunk in memory at a time, whatever the recording's length.
    const auto chunk = std::make_unique<char[]>(kChunkSize);
    for (;;) {
        const qint64 got = source.read(chunk.get(), kChunkSize);
        if (got < 0)
            return abandon(QStringLiteral("%1: %2").arg(filePath, source.errorString()));
        if (got == 0)
            break;
        if (body.write(chunk.get(), got) != got)
            return abandon(body.errorString());
    }

    const QByteArray tail = "\r\n--" + boundary.toUtf8() + "--\r\n";
    if (body.write(tail) != tail.size() || !body.flush())
        return abandon(body.errorString());
    body.close();
    if (body.error() != QFileDevice::NoError)
        return abandon(body.errorString());
    return bodyPath;
}

QString uploadFailureMessage(const QByteArray& data, int status)
{
    const QJsonDocument doc = QJsonDocument::fromJson(data);
    if (doc.isObject()) {
        const QJsonValue detail = doc.object().value(QStringLiteral("detail"));
        if (detail.isString() && !detail.toString().isEmpty())
            return QStringLiteral("Upload failed (HTTP %1): %2").arg(status).arg(detail.toString());
    }
    if (status == 401)
        return QStringLiteral("Upload failed (HTTP 401). Your sign-in expired — use the profile "
                              "menu to sign in again, then Retry upload.");
    return QStringLiteral("Upload failed (HTTP %1)").arg(status);
}

} // namespace sorv
