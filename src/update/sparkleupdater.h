#pragma once

#include "core/appinfo.h"
#include "update/updatealert.h"

#include <QObject>
#include <QString>
#include <QUrl>
#include <QVariant>

#include <functional>

class QNetworkAccessManager;
class QNetworkReply;

namespace sorv {

class UpdateCheckError;

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
// this build; checkForUpdates() then reads the appcast and publishes an
// UpdateAlert for the application to show. It has no user interface of its
// own: views bind to `alert` / `checking` and answer with answerAlert().
class SparkleUpdater : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool sparkleRuntimeEnabled READ sparkleRuntimeEnabled CONSTANT)
    Q_PROPERTY(bool automaticChecksEnabled READ automaticChecksEnabled CONSTANT)
    Q_PROPERTY(bool checking READ checking NOTIFY checkingChanged)
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
    bool checking() const { return m_reply != nullptr; }
    // The alert to show; kind None when there is none.
    UpdateAlert alert() const { return m_alert; }

    // How "Download" opens its address. The default hands it to xdg-open; the
    // application installs QDesktopServices::openUrl, tests a recorder.
    void setUrlOpener(UrlOpener opener);

public Q_SLOTS:
    // A user-initiated check. A disabled build publishes the "not available"
    // alert and sends nothing. A call while a check runs is answered by it.
    void checkForUpdates();
    // The user pressed button `index` of the current alert (-1: closed it):
    // "Download" opens the update's address; every answer clears the alert.
    void answerAlert(int index);

Q_SIGNALS:
    void checkingChanged();
    void alertChanged();
    // Every alert published, also one equal to the last (show it again).
    void alertRequested(const sorv::UpdateAlert& alert);

private:
    void feedFinished();
    // Publishes the newest signed item of `feed` when it is newer than this build.
    void offerNewest(const QByteArray& feed, const QUrl& feedUrl);
    void publish(const UpdateAlert& alert);
    void fail(const UpdateCheckError& error);
    QNetworkAccessManager& network();

    SparkleUpdaterConfig m_config;
    bool m_runtimeEnabled = false;
    bool m_automaticChecksEnabled = false;
    UrlOpener m_opener;
    UpdateAlert m_alert;
    QNetworkAccessManager* m_network = nullptr; // child, made on the first check
    QNetworkReply* m_reply = nullptr;           // the running check's
    bool m_feedTooLarge = false;
};

} // namespace sorv
