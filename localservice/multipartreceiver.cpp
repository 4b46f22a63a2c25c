#include "multipartreceiver.h"

#include <QRegularExpression>

namespace sorv::local {

namespace {
constexpr qsizetype kMaxHeaderBlock = qsizetype{16} * 1024;
constexpr qint64 kMaxOtherPart = qint64{1024} * 1024;

QByteArray dispositionParameter(const QByteArray& disposition, const char* name)
{
    // name="value" (quoted, as browsers and our client send it) or name=token.
    const QRegularExpression re(
        QStringLiteral("(?:^|;)\\s*%1=(?:\"([^\"]*)\"|([^;\\s]*))").arg(QLatin1String(name)),
        QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch m = re.match(QString::fromUtf8(disposition));
    if (!m.hasMatch())
        return {};
    return (m.capturedStart(1) >= 0 ? m.captured(1) : m.captured(2)).toUtf8();
}
} // namespace

MultipartReceiver::MultipartReceiver(const QByteArray& boundary, QString destinationPath)
    : m_delimiter("--" + boundary), m_dataDelimiter("\r\n--" + boundary),
      m_destinationPath(std::move(destinationPath))
{
    if (boundary.isEmpty())
        fail(QStringLiteral("The request is not multipart/form-data with a boundary"));
}

MultipartReceiver::~MultipartReceiver()
{
    if (m_stage != Stage::Done && m_file.isOpen()) {
        m_file.close();
        m_file.remove();
    }
}

QByteArray MultipartReceiver::boundaryFromContentType(const QByteArray& contentType)
{
    if (!contentType.trimmed().toLower().startsWith("multipart/form-data"))
        return {};
    for (const QByteArray& param : contentType.split(';')) {
        const QByteArray p = param.trimmed();
        if (p.toLower().startsWith("boundary=")) {
            QByteArray value = p.mid(9);
            if (value.size() >= 2 && value.startsWith('"') && value.endsWith('"'))
                value = value.mid(1, value.size() - 2);
            return value;
        }
    }
    return {};
}

bool MultipartReceiver::fail(const QString& message)
{
    if (m_stage != Stage::Failed) {
        m_stage = Stage::Failed;
        m_error = message;
        if (m_file.isOpen())
            m_file.close();
        if (m_fileParts > 0)
            QFile::remove(m_destinationPath);
    }
    return false;
}

bool MultipartReceiver::startPart(const QByteArray& headerBlock)
{
    QByteArray disposition;
    for (const QByteArray& line : headerBlock.split('\n')) {
        const QByteArray l = line.trimmed();
        if (l.toLower().startsWith("content-disposition:"))
            disposition = l.mid(20).trimmed();
    }
    if (!disposition.toLower().startsWith("form-data"))
        return fail(QStringLiteral("A part has no form-data Content-Disposition"));
    const QByteArray name = dispositionParameter(disposition, "name");
    const QByteArray filename = dispositionParameter(disposition, "filename");
    m_inFilePart = name == "file";
    m_otherPartBytes = 0;
    if (!m_inFilePart)
        return true;
    if (++m_fileParts > 1)
        return fail(QStringLiteral("Expected exactly one \"file\" part, got more"));
    if (filename.isEmpty())
        return fail(QStringLiteral("The \"file\" part has no filename"));
    // What a file system can store: no NUL, at most 255 bytes.
    if (filename.contains('\0'))
        return fail(QStringLiteral("The file name contains a NUL character"));
    if (filename.size() > 255)
        return fail(QStringLiteral("The file name is longer than 255 bytes"));
    m_filename = QString::fromUtf8(filename);
    m_file.setFileName(m_destinationPath);
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return fail(QStringLiteral("Cannot store the upload: %1").arg(m_file.errorString()));
    return true;
}

bool MultipartReceiver::emitData(const char* data, qsizetype size)
{
    if (size <= 0)
        return true;
    if (m_inFilePart) {
        if (m_file.write(data, size) != size)
            return fail(QStringLiteral("Cannot store the upload: %1").arg(m_file.errorString()));
        m_fileBytes += size;
        return true;
    }
    m_otherPartBytes += size;
    if (m_otherPartBytes > kMaxOtherPart)
        return fail(QStringLiteral("A form field is too large"));
    return true;
}

bool MultipartReceiver::feed(const QByteArray& piece)
{
    if (m_stage == Stage::Failed)
        return false;
    if (m_stage == Stage::Done)
        return true; // the epilogue is ignored
    m_pending += piece;
    for (;;) {
        switch (m_stage) {
        case Stage::Preamble: {
            const qsizetype at = m_pending.indexOf(m_delimiter);
            if (at < 0) {
                // Keep only what could be the start of the delimiter.
                if (m_pending.size() > m_delimiter.size())
                    m_pending.remove(0, m_pending.size() - m_delimiter.size());
                return true;
            }
            m_pending.remove(0, at + m_delimiter.size());
            m_stage = Stage::AfterDelimiter;
            break;
        }
        case Stage::AfterDelimiter:
            if (m_pending.size() < 2)
                return true;
            if (m_pending.startsWith("--")) {
                if (m_inFilePart && m_file.isOpen())
                    m_file.close();
                m_stage = Stage::Done;
                m_pending.clear();
                return true;
            }
            if (!m_pending.startsWith("\r\n"))
                return fail(QStringLiteral("Malformed multipart delimiter"));
            if (m_inFilePart && m_file.isOpen())
                m_file.close();
            m_pending.remove(0, 2);
            m_stage = Stage::Headers;
            break;
        case Stage::Headers: {
            const qsizetype end = m_pending.indexOf("\r\n\r\n");
            if (end < 0) {
                if (m_pending.size() > kMaxHeaderBlock)
                    return fail(QStringLiteral("Part headers are too large"));
                return true;
            }
            if (!startPart(m_pending.left(end)))
                return false;
            m_pending.remove(0, end + 4);
            m_stage = Stage::Data;
            break;
        }
        case Stage::Data: {
            const qsizetype at = m_pending.indexOf(m_dataDelimiter);
            if (at < 0) {
                // Everything except a possible partial delimiter at the end
                // belongs to the part.
                const qsizetype safe = m_pending.size() - (m_dataDelimiter.size() - 1);
                if (safe > 0) {
                    if (!emitData(m_pending.constData(), safe))
                        return false;
                    m_pending.remove(0, safe);
                }
                return true;
            }
            if (!emitData(m_pending.constData(), at))
                return false;
            m_pending.remove(0, at + m_dataDelimiter.size());
            m_stage = Stage::AfterDelimiter;
            break;
        }
        case Stage::Done:
        case Stage::Failed:
            return m_stage == Stage::Done;
        }
    }
}

bool MultipartReceiver::finish()
{
    if (m_stage == Stage::Failed)
        return false;
    if (m_stage != Stage::Done)
        return fail(QStringLiteral("The multipart body ends before its closing delimiter"));
    if (m_fileParts != 1) {
        m_stage = Stage::Failed;
        m_error = QStringLiteral("Expected exactly one \"file\" part");
        QFile::remove(m_destinationPath);
        return false;
    }
    return true;
}

} // namespace sorv::local
