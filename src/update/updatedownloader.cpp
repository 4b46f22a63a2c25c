#include "updatedownloader.h"

#include "core/log.h"
#include "core/mainthread.h"
#include "update/edsignature.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTemporaryFile>

#include <sys/stat.h>

namespace sorv {

namespace {

// The longest quiet time in the middle of a download.
constexpr int kTransferTimeoutMs = 30 * 1000;

QString networkReason(const QNetworkReply& reply)
{
    const int status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    return status >= 400
               ? QCoreApplication::translate("UpdateCheckError", "HTTP status %1").arg(status)
               : reply.errorString();
}

} // namespace

// The file being written, owned by the worker queue.
struct UpdateDownloader::Target {
    QString directory;
    std::unique_ptr<QTemporaryFile> file;
    QString error; // the first thing that went wrong with the file
};

UpdateDownloader::UpdateDownloader(QNetworkAccessManager& network, QObject* parent)
    : QObject(parent), m_network(network), m_self(this)
{}

UpdateDownloader::~UpdateDownloader()
{
    abortTransfer();
    if (m_target)
        m_files.post([target = std::move(m_target)] { target->file.reset(); });
}

QString UpdateDownloader::fileNameFor(const AppcastItem& item)
{
    QString name = QFileInfo(item.enclosureUrl.path()).fileName().left(100);
    for (QChar& c : name) {
        const bool safe = (c >= QLatin1Char('a') && c <= QLatin1Char('z')) ||
                          (c >= QLatin1Char('A') && c <= QLatin1Char('Z')) ||
                          (c >= QLatin1Char('0') && c <= QLatin1Char('9')) ||
                          QStringLiteral("._+-").contains(c);
        if (!safe)
            c = QLatin1Char('_');
    }
    // Never hidden, never "." or "..", never empty.
    if (name.isEmpty() || name.startsWith(QLatin1Char('.')))
        name.prepend(QStringLiteral("sorvelandrix-update-") + item.version);
    return name;
}

void UpdateDownloader::start(const AppcastItem& item, const QString& publicKey,
                             const QString& userAgent, const QString& directory)
{
    abortTransfer();
    if (m_target)
        m_files.post([target = std::move(m_target)] { target->file.reset(); });
    ++m_generation;
    m_running = true;
    m_item = item;
    m_publicKey = publicKey;
    m_fileName = fileNameFor(item);
    m_received = 0;

    m_target = std::make_shared<Target>();
    m_target->directory = directory;
    m_files.post([target = m_target] {
        if (!QDir().mkpath(target->directory)) {
            target->error = QStringLiteral("cannot create %1").arg(target->directory);
            return;
        }
        ::chmod(QFile::encodeName(target->directory).constData(), 0700);
        // Hidden until it has been verified.
        target->file = std::make_unique<QTemporaryFile>(target->directory +
                                                        QStringLiteral("/.download-XXXXXX"));
        if (!target->file->open()) {
            target->error = target->file->errorString();
            target->file.reset();
        }
    });

    QNetworkRequest request(item.enclosureUrl);
    request.setHeader(QNetworkRequest::UserAgentHeader, userAgent);
    // The bytes as signed: no transfer compression to undo (nor a
    // Content-Length that counts compressed bytes).
    request.setRawHeader("Accept-Encoding", "identity");
    request.setTransferTimeout(kTransferTimeoutMs);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::UserVerifiedRedirectPolicy);
    QNetworkReply* reply = m_network.get(request);
    m_reply = reply;
    connect(reply, &QNetworkReply::redirected, this, [this, reply](const QUrl& target) {
        if (isTrustedUpdateUrl(target))
            Q_EMIT reply->redirectAllowed();
        else
            stop(UpdateCheckError::insecureRedirect(target));
    });
    connect(reply, &QNetworkReply::metaDataChanged, this, &UpdateDownloader::checkHeaders);
    connect(reply, &QNetworkReply::readyRead, this, &UpdateDownloader::readyRead);
    connect(reply, &QNetworkReply::finished, this, &UpdateDownloader::transferFinished);
    Q_EMIT progress(0, m_item.enclosureLength);
}

void UpdateDownloader::checkHeaders()
{
    if (!m_reply)
        return;
    const int status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (status >= 300 && status < 400)
        return; // a redirect being followed: its own headers do not count
    if (status >= 400) {
        stop(UpdateCheckError::downloadFailed(networkReason(*m_reply)));
        return;
    }
    // A length the server announces that differs is refused before the body.
    bool known = false;
    const qint64 announced =
        m_reply->header(QNetworkRequest::ContentLengthHeader).toLongLong(&known);
    if (known && announced != m_item.enclosureLength)
        stop(UpdateCheckError::wrongLength(m_item.enclosureLength, announced));
}

void UpdateDownloader::readyRead()
{
    if (!m_reply || !m_running)
        return;
    const QByteArray chunk = m_reply->readAll();
    m_received += chunk.size();
    if (m_received > m_item.enclosureLength) {
        stop(UpdateCheckError::wrongLength(m_item.enclosureLength, -1));
        return;
    }
    m_files.post([target = m_target, chunk] {
        if (target->file && target->file->write(chunk) != chunk.size() && target->error.isEmpty())
            target->error = target->file->errorString();
    });
    Q_EMIT progress(m_received, m_item.enclosureLength);
}

void UpdateDownloader::transferFinished()
{
    QNetworkReply* reply = m_reply;
    m_reply = nullptr;
    if (!reply)
        return;
    reply->deleteLater();
    if (!m_running)
        return;
    if (reply->error() == QNetworkReply::OperationCanceledError) {
        stop(UpdateCheckError::timeout()); // our own aborts disconnect first
        return;
    }
    if (reply->error() != QNetworkReply::NoError) {
        stop(UpdateCheckError::downloadFailed(networkReason(*reply)));
        return;
    }
    if (m_received != m_item.enclosureLength) {
        stop(UpdateCheckError::wrongLength(m_item.enclosureLength, m_received));
        return;
    }

    Q_EMIT verifying();
    // Ed25519 signs the whole file as one message: it is mapped, not read
    // into memory, and checked on the worker.
    m_files.post([target = m_target, item = m_item, publicKey = m_publicKey, fileName = m_fileName,
                  generation = m_generation, self = m_self, this] {
        std::optional<UpdateCheckError> error;
        QString path;
        QTemporaryFile* file = target->file.get();
        uchar* data = nullptr;
        if (target->error.isEmpty() && file && file->flush() &&
            file->size() == item.enclosureLength)
            data = file->map(0, item.enclosureLength);
        if (!data) {
            error = UpdateCheckError::cannotStore(
                target->error.isEmpty() && file ? file->errorString() : target->error);
        } else {
            const bool valid = verifyEdSignature(
                publicKey,
                QByteArrayView(reinterpret_cast<const char*>(data), item.enclosureLength),
                item.edSignature);
            file->unmap(data);
            if (!valid) {
                error = UpdateCheckError::badSignature();
            } else {
                // An earlier download of the same name gives way (a rename
                // never replaces a file).
                const QString kept = target->directory + QLatin1Char('/') + fileName;
                QFile::remove(kept);
                if (file->rename(kept)) {
                    file->setAutoRemove(false);
                    path = kept;
                } else {
                    error = UpdateCheckError::cannotStore(file->errorString());
                }
            }
        }
        target->file.reset(); // deletes the download unless it was kept
        postToMainThread(self, [this, generation, path, error] {
            if (generation == m_generation && m_running) {
                m_running = false;
                if (error)
                    Q_EMIT failed(*error);
                else
                    Q_EMIT downloaded(path);
            }
        });
    });
}

void UpdateDownloader::stop(const UpdateCheckError& error)
{
    if (!m_running)
        return;
    m_running = false;
    abortTransfer();
    m_files.post([target = m_target] { target->file.reset(); });
    Q_EMIT failed(error);
}

void UpdateDownloader::abortTransfer()
{
    QNetworkReply* reply = m_reply;
    m_reply = nullptr;
    if (!reply)
        return;
    reply->disconnect(this);
    // Deleting a reply aborts it. Not abort() here: this may run inside the
    // reply's own signal, which then goes on to report its error.
    reply->deleteLater();
}

} // namespace sorv

#include "moc_updatedownloader.cpp"
