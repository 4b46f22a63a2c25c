#include "uploadbody.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>

#include <cstring>

namespace sorv {

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

QString uploadFailureMessage(const QByteArray& data, int status)
{
    const QJsonDocument doc = QJsonDocument::fromJson(data);
    if (doc.isObject()) {
        const QJsonValue detail = doc.object().value(QStringLiteral("detail"));
        if (detail.isString() && !detail.toString().isEmpty())
            return QCoreApplication::translate("RecordingUploader", "Upload failed (HTTP %1): %2")
                .arg(status)
                .arg(detail.toString());
    }
    if (status == 401)
        return QCoreApplication::translate(
            "RecordingUploader", "Upload failed (HTTP 401). Your sign-in expired — use the profile "
                                 "menu to sign in again, then Retry upload.");
    return QCoreApplication::translate("RecordingUploader", "Upload failed (HTTP %1)").arg(status);
}

QString uploadTransportFailureMessage(QNetworkReply::NetworkError error, const QString& errorString,
                                      int timeoutMs)
{
    using E = QNetworkReply::NetworkError;
    const auto failed = [](const QString& why) -> QString {
        return QCoreApplication::translate("RecordingUploader", "Upload failed: ") + why;
    };
    switch (error) {
    case E::RemoteHostClosedError:
    // The connection closed under a body that is never sent twice: the
    // stack would have had to send it again.
    case E::ContentReSendError:
        return failed(QCoreApplication::translate("RecordingUploader",
                                                  "the connection to the service was lost"));
    case E::ConnectionRefusedError:
        return failed(
            QCoreApplication::translate("RecordingUploader", "the service refused the connection"));
    case E::HostNotFoundError:
        return failed(QCoreApplication::translate("RecordingUploader",
                                                  "the service's address could not be found"));
    case E::TimeoutError:
        return failed(
            QCoreApplication::translate("RecordingUploader", "the service could not be reached"));
    case E::OperationCanceledError: {
        // The transfer's own timeout: nothing moved for that long. (Our own
        // aborts are never reported as failures.)
        const int minutes = timeoutMs / 60'000;
        const QString span =
            timeoutMs % 60'000 == 0
                ? (minutes == 1 ? QCoreApplication::translate("RecordingUploader", "1 minute")
                                : QCoreApplication::translate("RecordingUploader", "%1 minutes")
                                      .arg(minutes))
                : QCoreApplication::translate("RecordingUploader", "%1 seconds")
                      .arg(timeoutMs / 1000.0);
        return failed(
            QCoreApplication::translate("RecordingUploader", "the service did not answer within %1")
                .arg(span));
    }
    case E::TemporaryNetworkFailureError:
    case E::NetworkSessionFailedError:
        return failed(
            QCoreApplication::translate("RecordingUploader", "the network is not available"));
    case E::SslHandshakeFailedError:
        return failed(
            QCoreApplication::translate("RecordingUploader",
                                        "a secure connection to the service could not be made (%1)")
                .arg(errorString));
    default:
        break;
    }
    if (errorString.isEmpty() || errorString == QLatin1String("Unknown error"))
        return failed(QCoreApplication::translate("RecordingUploader",
                                                  "the connection to the service failed"));
    return failed(errorString);
}

QByteArray MultipartBodyDevice::partHeader(const QString& boundary, const QString& fieldName,
                                           const QString& filename, const QString& contentType)
{
    return "--" + boundary.toUtf8() + "\r\n" + "Content-Disposition: form-data; name=\"" +
           fieldName.toUtf8() + "\"; filename=\"" + filename.toUtf8() + "\"\r\n" +
           "Content-Type: " + contentType.toUtf8() + "\r\n" + "\r\n";
}

QByteArray MultipartBodyDevice::closingDelimiter(const QString& boundary)
{
    return "\r\n--" + boundary.toUtf8() + "--\r\n";
}

MultipartBodyDevice::MultipartBodyDevice(const QString& filePath, const QString& boundary,
                                         const QString& fieldName, const QString& filename,
                                         const QString& contentType, QObject* parent)
    : QIODevice(parent), m_file(filePath),
      m_head(partHeader(boundary, fieldName, filename, contentType)),
      m_tail(closingDelimiter(boundary))
{}

bool MultipartBodyDevice::open(OpenMode mode)
{
    if (mode != ReadOnly) {
        setErrorString(QStringLiteral("the body can only be read"));
        return false;
    }
    // Unbuffered, here and below: the network layer reads in large pieces,
    // and each buffered layer would copy every byte once more.
    if (!m_file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        setErrorString(QStringLiteral("%1: %2").arg(m_file.fileName(), m_file.errorString()));
        return false;
    }
    // Length and stamp from one look at the open file, so they agree.
    m_stamp = FileStamp::ofDescriptor(m_file.handle());
    m_fileSize = m_stamp ? m_stamp->size : m_file.size();
    m_position = 0;
    return QIODevice::open(mode | QIODevice::Unbuffered);
}

void MultipartBodyDevice::close()
{
    m_file.close();
    QIODevice::close();
}

qint64 MultipartBodyDevice::bytesAvailable() const
{
    return totalSize() - m_position + QIODevice::bytesAvailable();
}

bool MultipartBodyDevice::atEnd() const
{
    return m_position >= totalSize() && QIODevice::bytesAvailable() == 0;
}

qint64 MultipartBodyDevice::readData(char* data, qint64 maxSize)
{
    qint64 done = 0;
    const auto fromBuffer = [&](const QByteArray& bytes, qint64 offset) {
        const qint64 n = std::min(maxSize - done, bytes.size() - offset);
        std::memcpy(data + done, bytes.constData() + offset, static_cast<size_t>(n));
        done += n;
        m_position += n;
    };
    while (done < maxSize && m_position < totalSize()) {
        if (m_position < m_head.size()) {
            fromBuffer(m_head, m_position);
        } else if (m_position < m_head.size() + m_fileSize) {
            const qint64 got = m_file.read(
                data + done, std::min(maxSize - done, m_head.size() + m_fileSize - m_position));
            if (got <= 0) {
                // The recording changed or vanished under us: end the body
                // with an error rather than send something else.
                setErrorString(QStringLiteral("%1: %2").arg(
                    m_file.fileName(),
                    got < 0 ? m_file.errorString() : QStringLiteral("the file became shorter")));
                return done > 0 ? done : -1;
            }
            done += got;
            m_position += got;
        } else {
            fromBuffer(m_tail, m_position - m_head.size() - m_fileSize);
        }
    }
    if (done == 0 && m_position >= totalSize())
        return -1;
    if (done > 0 && m_observer)
        m_observer(m_position, totalSize());
    return done;
}

} // namespace sorv
