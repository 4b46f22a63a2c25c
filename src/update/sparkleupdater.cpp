#include "sparkleupdater.h"

#include "core/log.h"
#include "update/appcast.h"
#include "update/updatecheckerror.h"
#include "update/versioncompare.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QProcess>

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
    if (m_reply)
        return;
    if (!isTrustedUpdateUrl(m_config.feedUrl)) {
        fail(UpdateCheckError::insecureFeed(m_config.feedUrl));
        return;
    }

    QNetworkRequest request(m_config.feedUrl);
    request.setHeader(
        QNetworkRequest::UserAgentHeader,
        QStringLiteral("SorvelandrixRecorder/%1 (Linux)").arg(m_config.currentVersion));
    request.setRawHeader("Accept", "application/rss+xml, application/xml;q=0.9, */*;q=0.1");
    request.setTransferTimeout(kFeedTimeoutMs);
    m_feedTooLarge = false;
    m_reply = network().get(request);
    connect(m_reply, &QNetworkReply::downloadProgress, this, [this](qint64 received, qint64) {
        if (received > kMaxFeedBytes && m_reply && !m_feedTooLarge) {
            m_feedTooLarge = true;
            m_reply->abort();
        }
    });
    connect(m_reply, &QNetworkReply::finished, this, &SparkleUpdater::feedFinished);
    Q_EMIT checkingChanged();
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
    Q_EMIT checkingChanged();
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
        consoleLog(QStringLiteral("✅ Update check: %1 is available (running %2)")
                       .arg(newest->displayVersion(), m_config.currentVersion));
        publish(UpdateAlert::available(newest->displayVersion(), m_config.currentVersion,
                                       newest->enclosureUrl));
    } else {
        consoleLog(QStringLiteral("✅ Update check: %1 is the newest version")
                       .arg(m_config.currentVersion));
        publish(UpdateAlert::upToDate(m_config.currentVersion));
    }
}

void SparkleUpdater::answerAlert(int index)
{
    const UpdateAlert answered = std::exchange(m_alert, UpdateAlert());
    if (answered.kind() == UpdateAlert::Kind::Available && index == 0) {
        if (!m_opener || !m_opener(answered.downloadUrl()))
            consoleLog(QStringLiteral("⚠️ Could not open %1")
                           .arg(answered.downloadUrl().toDisplayString()));
    }
    if (answered.kind() != UpdateAlert::Kind::None)
        Q_EMIT alertChanged();
}

void SparkleUpdater::publish(const UpdateAlert& alert)
{
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

QNetworkAccessManager& SparkleUpdater::network()
{
    if (!m_network)
        m_network = new QNetworkAccessManager(this);
    return *m_network;
}

} // namespace sorv
