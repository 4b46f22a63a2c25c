#include "uploadtransfer.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>

namespace sorv {

UploadTransfer::UploadTransfer(QNetworkAccessManager& network, QObject* parent)
    : QObject(parent), m_network(network)
{}

UploadTransfer::~UploadTransfer()
{
    abort();
}

bool UploadTransfer::start(const QNetworkRequest& request, const QString& bodyPath, QString* error)
{
    m_body.setFileName(bodyPath);
    if (!m_body.open(QIODevice::ReadOnly)) {
        if (error)
            *error = m_body.errorString();
        return false;
    }
    QNetworkRequest r(request);
    r.setHeader(QNetworkRequest::ContentLengthHeader, m_body.size());
    m_reply = m_network.post(r, &m_body);

    connect(m_reply, &QNetworkReply::uploadProgress, this, [this](qint64 sent, qint64 total) {
        // An unknown total leaves the progress where it was.
        if (total > 0)
            Q_EMIT progress(static_cast<double>(sent) / static_cast<double>(total));
    });
    connect(m_reply, &QNetworkReply::readyRead, this, [this] { m_received += m_reply->readAll(); });
    connect(m_reply, &QNetworkReply::finished, this, [this] {
        QNetworkReply* reply = m_reply;
        m_received += reply->readAll();
        Answer answer;
        const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (status.isValid() && status.toInt() > 0) {
            answer.status = status.toInt();
            answer.body = m_received;
        } else {
            answer.transportError = true;
            answer.errorText = reply->errorString();
        }
        m_reply = nullptr;
        reply->deleteLater();
        m_body.close();
        Q_EMIT finished(answer);
    });
    return true;
}

void UploadTransfer::abort()
{
    if (m_reply) {
        QNetworkReply* reply = m_reply;
        m_reply = nullptr;
        reply->disconnect(this);
        reply->abort();
        reply->deleteLater();
    }
    m_body.close();
}

} // namespace sorv
