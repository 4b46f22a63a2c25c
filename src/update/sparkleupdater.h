#pragma once

#include "core/appinfo.h"
#include "update/updatealert.h"

#include <QObject>
#include <QString>
#include <QUrl>
#include <QVariant>

#include <functional>
#include <memory>

class QNetworkAccessManager;
class QNetworkReply;

namespace sorv {

class UpdateCheckError;
class UpdateDownloader;
struct AppcastItem;

// What the update checker is built with; by default the build's AppInfo.
// Tests give their own.
struct SparkleUpdaterConfig {
    QVariant publicKey = AppInfo::updatePublicKey();             // base64 Ed25519 public key
    QVariant automaticChecks = AppInfo::updateAutomaticChecks(); // on only as the bool true
    QUrl feedUrl = AppInfo::updateFeedUrl();
    QString currentVersion = AppInfo::version();
};

// The application's update checker (one per application, on the main
// thread). It decides once, at creation, whether in-app updates can work in
// this build; checkForUpdates() then reads the appcast, downloads the newest
// update into the cache directory and checks its length and signature, and
// only then publishes an UpdateAlert offering it (or one saying why not).
// It has no user interface of its own: views bind to `alert`, `checking`,
// `activity` and `progress` and answer with answerAlert().
class SparkleUpdater : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool sparkleRuntimeEnabled READ sparkleRuntimeEnabled CONSTANT)
    Q_PROPERTY(bool automaticChecksEnabled READ automaticChecksEnabled CONSTANT)
    Q_PROPERTY(bool checking READ checking NOTIFY checkingChanged)
    Q_PROPERTY(QString activity READ activity NOTIFY activityChanged)
    Q_PROPERTY(double progress READ progress NOTIFY progressChanged)
    Q_PROPERTY(sorv::UpdateAlert alert READ alert NOTIFY alertChanged)

public:
    // Opens an address outside the application (the browser); false when it could not.
    using UrlOpener = std::function<bool(const QUrl&)>;

    explicit SparkleUpdater(QObject* parent = nullptr);
    explicit SparkleUpdater(SparkleUpdaterConfig config, QObject* parent = nullptr);
    ~SparkleUpdater() override;
    SparkleUpdater(const SparkleUpdater&) = delete;
    SparkleUpdater& operator=(const SparkleUpdater&) = delete;

    // In-app updates can work with this signing key: it is a string that is
    // neither blank nor a placeholder (containing "REPLACE").
    static bool isRuntimeEnabled(const QVariant& publicKey);
    // Automatic checks: only in an enabled build, and only for the bool true
    // (a string "true" or "YES" is not a bool).
    static bool isAutomaticChecksEnabled(bool runtimeEnabled, const QVariant& automaticChecks);

    bool sparkleRuntimeEnabled() const { return m_runtimeEnabled; }
    // Nothing schedules checks yet; the flag is published for when something does.
    bool automaticChecksEnabled() const { return m_automaticChecksEnabled; }
    // From the request for the appcast until the alert is published.
    bool checking() const { return m_checking; }
    // What the check is doing, for the user ("Downloading 1.2…"); empty
    // when no check runs.
    QString activity() const { return m_activity; }
    // The download's fraction done, 0…1; -1 when there is none to show.
    double progress() const { return m_progress; }
    // The alert to show; kind None when there is none.
    UpdateAlert alert() const { return m_alert; }

    // How "Open" opens the downloaded update. The default hands it to
    // xdg-open; the application installs QDesktopServices::openUrl, tests a
    // recorder.
    void setUrlOpener(UrlOpener opener);

public Q_SLOTS:
    // A user-initiated check. A disabled build publishes the "not available"
    // alert and sends nothing. A call while a check runs is answered by it.
    void checkForUpdates();
    // The user pressed button `index` of the current alert (-1: closed it):
    // "Open" opens the downloaded update; every answer clears the alert.
    void answerAlert(int index);

Q_SIGNALS:
    void checkingChanged();
    void activityChanged();
    void progressChanged();
    void alertChanged();
    // Every alert published, also one equal to the last (show it again).
    void alertRequested(const sorv::UpdateAlert& alert);

private:
    void feedFinished();
    // Downloads the newest signed item of `feed` when it is newer than this build.
    void offerNewest(const QByteArray& feed, const QUrl& feedUrl);
    void download(const AppcastItem& item);
    void publish(const UpdateAlert& alert);
    void fail(const UpdateCheckError& error);
    void setChecking(bool checking);
    void setActivity(const QString& activity);
    void setProgress(double progress);
    QString userAgent() const;
    QNetworkAccessManager& network();

    SparkleUpdaterConfig m_config;
    bool m_runtimeEnabled = false;
    bool m_automaticChecksEnabled = false;
    UrlOpener m_opener;
    UpdateAlert m_alert;
    QNetworkAccessManager* m_network = nullptr; // child, made on the first check
    QNetworkReply* m_reply = nullptr;           // the running check's
    bool m_feedTooLarge = false;
    std::unique_ptr<UpdateDownloader> m_downloader; // made on the first download
    QString m_offeredVersion;                       // the one being downloaded
    bool m_checking = false;
    QString m_activity;
    double m_progress = -1;
};

} // namespace sorv
