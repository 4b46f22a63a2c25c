#pragma once

#include <QByteArray>
#include <QString>

namespace sorv {

// The multipart body of an upload is staged in a file next to the recordings
// and streamed from there, so a recording of any length is never held in
// memory.

// "sorvelandrix-" + an upper-case UUID: 49 characters.
QString makeUploadBoundary();

// By the file's extension, compared in lower case.
QString uploadContentType(const QString& filePath);

// Writes the body file: one "file" part holding the recording's bytes
// unchanged, copied 1 MiB at a time. Returns the body file's path, or an
// empty string with *error set (a partly written body is removed).
QString stageMultipartBody(const QString& boundary, const QString& fieldName,
                           const QString& filename, const QString& contentType,
                           const QString& filePath, QString* error);

// The message for a refused upload: the service's "detail" when it gives one.
QString uploadFailureMessage(const QByteArray& data, int status);

} // namespace sorv
