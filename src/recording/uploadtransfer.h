#pragma once

#include <QByteArray>
#include <QFile>
#include <QNetworkRequest>
#include <QObject>
#include <QPointer>
#include <QString>

class QNetworkAccessManager;
class QNetworkReply;

namespace sorv {

// One POST of a staged body file: the body is streamed from the file by the
// network stack (never read whole), sent bytes are reported as they leave,
// and the answer is collected. The file itself belongs to the caller.
class UploadTransfer : public QObject {
    Q_OBJECT
public:
    struct Answer {
        bool transportError = false; // no HTTP answer at all
        QString errorText;           // the transport error's description
        int status = 0;
        QByteArray body;
    };

    UploadTransfer(QNetworkAccessManager& network, QObject* parent = nullptr);
    ~UploadTransfer() override;

    // False (with the reason) when the body file cannot be opened.
    bool start(const QNetworkRequest& request, const QString& bodyPath, QString* error);
    // Stops the transfer; finished() is not emitted afterwards.
    void abort();

Q_SIGNALS:
    // Only for a known total (> 0).
    void progress(double fraction);
    void finished(const sorv::UploadTransfer::Answer& answer);

private:
    QNetworkAccessManager& m_network;
    QFile m_body;
    QPointer<QNetworkReply> m_reply;
    QByteArray m_received;
};

} // namespace sorv
