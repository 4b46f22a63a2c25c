#include "sparkleupdater.h"

#include "core/log.h"
#include "core/paths.h"
#include "update/appcast.h"
#include "update/updatecheckerror.h"
#include "update/updatedownloader.h"
#include "update/versioncompare.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QProcess>

#include <cmath>

namespace sorv {

namespace {

// Appcasts are a few kilobytes; a feed this large is not one.
constexpr qint64 kMaxFeedBytes = qint64{4} * 1024 * 1024;
constexpr int kFeedTimeoutMs = 30 * 1000;

bool openWithXdgOpen(const QUrl& url)
{
    return QProcess::startDetached(QStringLiteral("xdg-open"), {url.toString(QUrl::FullyEncoded)});
}

} // namespace

SparkleUpdater::SparkleUpdater(QObject* parent) : SparkleUpdater(SparkleUpdaterConfig{}, parent) {}

SparkleUpdater::SparkleUpdater(SparkleUpdaterConfig config, QObject* parent)
    : QObject(parent), m_config(std::move(config)),
      m_runtimeEnabled(isRuntimeEnabled(m_config.publicKey)),
      m_automaticChecksEnabled(
          isAutomaticChecksEnabled(m_runtimeEnabled, m_config.automaticChecks)),
      m_opener(openWithXdgOpen)
{}

SparkleUpdater::~SparkleUpdater()
{
    // The reply dies with the network manager, after this object's members:
    // it must not call back into them.
    if (m_reply)
        m_reply->disconnect(this);
    // The downloader's reply belongs to the network manager too.
    m_downloader.reset();
}

bool SparkleUpdater::isRuntimeEnabled(const QVariant& publicKey)
{
    if (publicKey.typeId() != QMetaType::QString)
        return false;
    const QString key = publicKey.toString().trimmed();
    return !key.isEmpty() && !key.contains(QLatin1String("REPLACE"), Qt::CaseSensitive);
}

bool SparkleUpdater::isAutomaticChecksEnabled(bool runtimeEnabled, const QVariant& automaticChecks)
{
    return runtimeEnabled && automaticChecks.typeId() == QMetaType::Bool &&
           automaticChecks.toBool();
}

void SparkleUpdater::setUrlOpener(UrlOpener opener)
{
    m_opener = std::move(opener);
}

void SparkleUpdater::checkForUpdates()
{
    if (!m_runtimeEnabled) {
        publish(UpdateAlert::disabled());
        return;
    }
    if (m_checking)
        return;
    if (!isTrustedUpdateUrl(m_config.feedUrl)) {
        fail(UpdateCheckError::insecureFeed(m_config.feedUrl));
        return;
    }

    QNetworkRequest request(m_config.feedUrl);
    request.setHeader(QNetworkRequest::UserAgentHeader, userAgent());
    request.setRawHeader("Accept", "application/rss+xml, application/xml;q=0.9, */*;q=0.1");
    request.setTransferTimeout(kFeedTimeoutMs);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::UserVerifiedRedirectPolicy);
    m_feedTooLarge = false;
    m_reply = network().get(request);
    connect(m_reply, &QNetworkReply::downloadProgress, this, [this](qint64 received, qint64) {
        if (received > kMaxFeedBytes && m_reply && !m_feedTooLarge) {
            m_feedTooLarge = true;
            m_reply->abort();
        }
    });
    connect(m_reply, &QNetworkReply::redirected, this, [this](const QUrl& target) {
        if (!m_reply)
            return;
        if (isTrustedUpdateUrl(target)) {
            Q_EMIT m_reply->redirectAllowed();
            return;
        }
        // Deleting the reply aborts it; abort() inside its own signal would
        // make it report an error twice.
        QNetworkReply* reply = std::exchange(m_reply, nullptr);
        reply->disconnect(this);
        reply->deleteLater();
        fail(UpdateCheckError::insecureRedirect(target));
    });
    connect(m_reply, &QNetworkReply::finished, this, &SparkleUpdater::feedFinished);
    setActivity(QCoreApplication::translate("SparkleUpdater", "Checking for updates…"));
    setChecking(true);
}

void SparkleUpdater::feedFinished()
{
    QNetworkReply* reply = std::exchange(m_reply, nullptr);
    if (!reply)
        return;
    reply->deleteLater();

    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (m_feedTooLarge)
        fail(UpdateCheckError::feedTooLarge());
    else if (status >= 400)
        fail(UpdateCheckError::httpStatus(status));
    else if (reply->error() == QNetworkReply::OperationCanceledError)
        fail(UpdateCheckError::timeout()); // the transfer timeout is the only canceller left
    else if (reply->error() != QNetworkReply::NoError)
        fail(UpdateCheckError::network(reply->errorString()));
    else
        offerNewest(reply->readAll(), reply->url());
}

void SparkleUpdater::offerNewest(const QByteArray& feed, const QUrl& feedUrl)
{
    QString parseError;
    const std::optional<QList<AppcastItem>> items = parseAppcast(feed, feedUrl, &parseError);
    if (!items) {
        fail(UpdateCheckError::invalidFeed(parseError));
        return;
    }
    QStringList skipped;
    const std::optional<AppcastItem> newest = newestAppcastItem(*items, &skipped);
    for (const QString& why : std::as_const(skipped))
        consoleLog(QStringLiteral("⚠️ Update skipped, %1").arg(why));
    if (newest && compareVersions(newest->version, m_config.currentVersion) > 0) {
        download(*newest);
    } else {
        consoleLog(QStringLiteral("✅ Update check: %1 is the newest version")
                       .arg(m_config.currentVersion));
        publish(UpdateAlert::upToDate(m_config.currentVersion));
    }
}

void SparkleUpdater::download(const AppcastItem& item)
{
    const QString cache = recordingsDirectory();
    if (cache.isEmpty()) {
        fail(UpdateCheckError::cannotStore(QStringLiteral("there is no cache directory")));
        return;
    }
    if (!m_downloader) {
        m_downloader = std::make_unique<UpdateDownloader>(network());
        connect(m_downloader.get(), &UpdateDownloader::progress, this,
                [this](qint64 received, qint64 total) {
                    // A thousand steps are more than any progress bar shows.
                    setProgress(total > 0
                                    ? std::floor(1000.0 * double(received) / double(total)) / 1000.0
                                    : -1.0);
                });
        connect(m_downloader.get(), &UpdateDownloader::verifying, this, [this] {
            setActivity(
                QCoreApplication::translate("SparkleUpdater", "Checking the signature of %1…")
                    .arg(m_offeredVersion));
            setProgress(-1);
        });
        connect(
            m_downloader.get(), &UpdateDownloader::downloaded, this, [this](const QString& path) {
                consoleLog(
                    QStringLiteral("✅ Update check: %1 is available (running %2), verified in %3")
                        .arg(m_offeredVersion, m_config.currentVersion, path));
                publish(UpdateAlert::available(m_offeredVersion, m_config.currentVersion, path));
            });
        connect(m_downloader.get(), &UpdateDownloader::failed, this, &SparkleUpdater::fail);
    }
    m_offeredVersion = item.displayVersion();
    consoleLog(QStringLiteral("🌐 Update check: downloading %1 from %2")
                   .arg(m_offeredVersion, item.enclosureUrl.toDisplayString()));
    setActivity(
        QCoreApplication::translate("SparkleUpdater", "Downloading %1…").arg(m_offeredVersion));
    m_downloader->start(item, m_config.publicKey.toString().trimmed(), userAgent(),
                        cache + QStringLiteral("/updates"));
}

void SparkleUpdater::answerAlert(int index)
{
    const UpdateAlert answered = std::exchange(m_alert, UpdateAlert());
    if (answered.kind() == UpdateAlert::Kind::Available && index == 0) {
        if (!m_opener || !m_opener(QUrl::fromLocalFile(answered.filePath())))
            consoleLog(QStringLiteral("⚠️ Could not open %1").arg(answered.filePath()));
    }
    if (answered.kind() != UpdateAlert::Kind::None)
        Q_EMIT alertChanged();
}

void SparkleUpdater::publish(const UpdateAlert& alert)
{
    // Every check ends here: the alert is its answer.
    setActivity({});
    setProgress(-1);
    setChecking(false);
    const bool changed = alert != m_alert;
    m_alert = alert;
    if (changed)
        Q_EMIT alertChanged();
    Q_EMIT alertRequested(m_alert);
}

void SparkleUpdater::fail(const UpdateCheckError& error)
{
    consoleLog(QStringLiteral("❌ Sparkle update check aborted: ") + error.description());
    publish(UpdateAlert::failed(error.description()));
}

void SparkleUpdater::setChecking(bool checking)
{
    if (m_checking == checking)
        return;
    m_checking = checking;
    Q_EMIT checkingChanged();
}

void SparkleUpdater::setActivity(const QString& activity)
{
    if (m_activity == activity)
        return;
    m_activity = activity;
    Q_EMIT activityChanged();
}

void SparkleUpdater::setProgress(double progress)
{
    if (m_progress == progress)
        return;
    m_progress = progress;
    Q_EMIT progressChanged();
}

QString SparkleUpdater::userAgent() const
{
    return QStringLiteral("SorvelandrixRecorder/%1 (Linux)").arg(m_config.currentVersion);
}

QNetworkAccessManager& SparkleUpdater::network()
{
    if (!m_network)
        m_network = new QNetworkAccessManager(this);
    return *m_network;
}

} // namespace sorv

#include "moc_sparkleupdater.cpp"
