#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

namespace sorv::local {

// Parses a multipart/form-data body as it arrives, piece by piece, and
// streams the one "file" part straight into a file: the body is never held
// whole, however large the upload. Other parts are read and dropped (up to a
// small limit each).
class MultipartReceiver {
public:
    // `boundary` without the leading "--"; the file part is written to
    // `destinationPath` (created, replaced if it exists).
    MultipartReceiver(const QByteArray& boundary, QString destinationPath);
    ~MultipartReceiver();
    MultipartReceiver(const MultipartReceiver&) = delete;
    MultipartReceiver& operator=(const MultipartReceiver&) = delete;

    // The boundary parameter of a Content-Type header, or empty.
    static QByteArray boundaryFromContentType(const QByteArray& contentType);

    // False once the body is malformed (see errorString()); later pieces are ignored.
    bool feed(const QByteArray& piece);

    // True when the closing delimiter arrived and exactly one file part was
    // received; otherwise errorString() says why and the file is removed.
    bool finish();

    const QString& errorString() const { return m_error; }
    const QString& filename() const { return m_filename; }
    qint64 fileBytes() const { return m_fileBytes; }
    int fileParts() const { return m_fileParts; }

private:
    enum class Stage { Preamble, AfterDelimiter, Headers, Data, Done, Failed };

    bool fail(const QString& message);
    bool startPart(const QByteArray& headerBlock);
    bool emitData(const char* data, qsizetype size);

    QByteArray m_delimiter;     // "--" + boundary
    QByteArray m_dataDelimiter; // "\r\n--" + boundary
    QString m_destinationPath;
    QFile m_file;
    QByteArray m_pending;
    Stage m_stage = Stage::Preamble;
    bool m_inFilePart = false;
    qint64 m_otherPartBytes = 0;
    qint64 m_fileBytes = 0;
    int m_fileParts = 0;
    QString m_filename;
    QString m_error;
};

} // namespace sorv::local
