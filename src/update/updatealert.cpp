#include "updatealert.h"

#include "core/appinfo.h"

#include <QCoreApplication>

namespace sorv {

namespace {
// The web domain the signed release is published on.
const QString kReleaseDomain = QStringLiteral("sorvelandrix.com");
} // namespace

UpdateAlert UpdateAlert::disabled()
{
    return {Kind::Disabled,
            QCoreApplication::translate("UpdateAlert", "Updates not available in this build"),
            QCoreApplication::translate("UpdateAlert",
                                        "In-app updates only work in the signed release from ") +
                kReleaseDomain +
                QStringLiteral(".\n\nThis copy was built for local testing. To get automatic "
                               "updates, install the release build once it is published."),
            {QCoreApplication::translate("UpdateAlert", "OK")}};
}

UpdateAlert UpdateAlert::upToDate(const QString& currentVersion)
{
    UpdateAlert alert(Kind::UpToDate,
                      QCoreApplication::translate("UpdateAlert", "You're up to date"),
                      QCoreApplication::translate(
                          "UpdateAlert", "%1 %2 is currently the newest version available.")
                          .arg(AppInfo::applicationName(), currentVersion),
                      {QCoreApplication::translate("UpdateAlert", "OK")});
    alert.m_version = currentVersion;
    return alert;
}

UpdateAlert UpdateAlert::available(const QString& version, const QString& currentVersion,
                                   const QString& filePath)
{
    UpdateAlert alert(
        Kind::Available,
        QCoreApplication::translate("UpdateAlert", "A new version of %1 is available!")
            .arg(AppInfo::applicationName()),
        QStringLiteral("%1 %2 is now available — you have %3. It has been downloaded and its "
                       "signature checked. Would you like to open it now?")
            .arg(AppInfo::applicationName(), version, currentVersion),
        {QCoreApplication::translate("UpdateAlert", "Open"),
         QCoreApplication::translate("UpdateAlert", "Later")});
    alert.m_filePath = filePath;
    alert.m_version = version;
    return alert;
}

UpdateAlert UpdateAlert::failed(const QString& description)
{
    return {Kind::Failed,
            QCoreApplication::translate("UpdateAlert", "Update check failed"),
            description,
            {QCoreApplication::translate("UpdateAlert", "OK")}};
}

} // namespace sorv

#include "moc_updatealert.cpp"
