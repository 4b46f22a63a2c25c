#pragma once

#include "core/serialqueue.h"
#include "update/appcast.h"
#include "update/updatecheckerror.h"

#include <QObject>
#include <QPointer>
#include <QString>

#include <cstdint>
#include <memory>

class QNetworkAccessManager;
class QNetworkReply;

namespace sorv {

// Fetches the file an appcast item offers and checks it before anything may
// offer or open it: it must be exactly as long as the appcast says, and its
// Ed25519 signature must verify with the build's key. Only then is it kept,
// under `directory`; a file that fails is deleted. Main thread; the file is
// written and verified on a worker. Progress, then downloaded() or failed().
class UpdateDownloader : public QObject {
    Q_OBJECT
public:
    explicit UpdateDownloader(QNetworkAccessManager& network, QObject* parent = nullptr);
    ~UpdateDownloader() override;
    UpdateDownloader(const UpdateDownloader&) = delete;
    UpdateDownloader& operator=(const UpdateDownloader&) = delete;

    // Starts fetching `item` (one that appcastItemProblem() accepts) into
    // `directory`, replacing any download under way.
    void start(const AppcastItem& item, const QString& publicKey, const QString& userAgent,
               const QString& directory);
    bool isRunning() const { return m_running; }

    // The name the verified file gets: the last segment of the enclosure's
    // address, reduced to characters that are safe in a file name.
    static QString fileNameFor(const AppcastItem& item);

Q_SIGNALS:
    // Bytes received so far out of the appcast's length.
    void progress(qint64 received, qint64 total);
    // Bytes are in and are being checked.
    void verifying();
    void downloaded(const QString& filePath);
    void failed(const sorv::UpdateCheckError& error);

private:
    struct Target;

    void checkHeaders();
    void readyRead();
    void transferFinished();
    void stop(const UpdateCheckError& error);
    void abortTransfer();

    QNetworkAccessManager& m_network;
    QPointer<const QObject> m_self;
    // The file is written and checked here, never on the GUI thread.
    SerialQueue m_files{QStringLiteral("com.sorvelandrix.update")};
    std::shared_ptr<Target> m_target; // touched on m_files only
    QPointer<QNetworkReply> m_reply;
    AppcastItem m_item;
    QString m_publicKey;
    QString m_fileName;
    qint64 m_received = 0;
    bool m_running = false;
    std::uint64_t m_generation = 0; // results of an earlier download are ignored
};

} // namespace sorv
