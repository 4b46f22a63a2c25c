#pragma once

#include "core/recordingfilelock.h"

#include <QByteArray>
#include <QFile>
#include <QIODevice>
#include <QNetworkReply>
#include <QString>

#include <functional>
#include <optional>

namespace sorv {

// "sorvelandrix-" + an upper-case UUID: 49 characters.
QString makeUploadBoundary();

// By the file's extension, compared in lower case.
QString uploadContentType(const QString& filePath);

// The message for a refused upload: the service's "detail" when it gives one.
QString uploadFailureMessage(const QByteArray& data, int status);

// The message for an upload that got no answer, in words a user can act
// on. `timeoutMs` is how long the transfer could stay silent.
QString uploadTransportFailureMessage(QNetworkReply::NetworkError error, const QString& errorString,
                                      int timeoutMs);

// The multipart body of an upload, produced while it is sent: the one "file"
// part's header, the recording's bytes read straight from its file, and the
// closing delimiter. Nothing is copied to disk first and only one read's
// worth is in memory, whatever the recording's length. It reads once, from
// start to end (a retry builds a new one with the same boundary), so the
// network stack can never send it twice on its own.
class MultipartBodyDevice : public QIODevice {
public:
    MultipartBodyDevice(const QString& filePath, const QString& boundary, const QString& fieldName,
                        const QString& filename, const QString& contentType,
                        QObject* parent = nullptr);

    // Opens the recording. False with errorString() when it cannot be read.
    bool open(OpenMode mode = ReadOnly) override;
    void close() override;

    // The whole body's length, for Content-Length.
    qint64 totalSize() const { return m_head.size() + m_fileSize + m_tail.size(); }
    // The recording as it was opened: what the body sends is its first
    // `size` bytes, whatever is added to it later.
    std::optional<FileStamp> sentStamp() const { return m_stamp; }
    // How far the network stack has read, called after each read. The stack
    // pulls the body only as the socket drains, so this is the upload's
    // progress to within the socket's buffers; QNetworkReply's own
    // uploadProgress reports the whole body as sent as soon as it starts.
    void setReadObserver(std::function<void(qint64 position, qint64 total)> observer)
    {
        m_observer = std::move(observer);
    }

    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override;
    bool atEnd() const override;
    bool reset() override { return false; }

    static QByteArray partHeader(const QString& boundary, const QString& fieldName,
                                 const QString& filename, const QString& contentType);
    static QByteArray closingDelimiter(const QString& boundary);

protected:
    qint64 readData(char* data, qint64 maxSize) override;
    qint64 writeData(const char*, qint64) override { return -1; }

private:
    QFile m_file;
    QByteArray m_head;
    QByteArray m_tail;
    qint64 m_fileSize = 0;
    std::optional<FileStamp> m_stamp;
    qint64 m_position = 0; // in the whole body
    std::function<void(qint64, qint64)> m_observer;
};

} // namespace sorv
