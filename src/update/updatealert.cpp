#include "updatealert.h"

#include "core/appinfo.h"

namespace sorv {

namespace {
// The web domain the signed release is published on.
const QString kReleaseDomain = QStringLiteral("sorvelandrix.com");
} // namespace

UpdateAlert UpdateAlert::disabled()
{
    return {Kind::Disabled,
            QStringLiteral("Updates not available in this build"),
            QStringLiteral("In-app updates only work in the signed release from ") +
                kReleaseDomain +
                QStringLiteral(".\n\nThis copy was built for local testing. To get automatic "
                               "updates, install the release build once it is published."),
            {QStringLiteral("OK")}};
}

UpdateAlert UpdateAlert::upToDate(const QString& currentVersion)
{
    UpdateAlert alert(Kind::UpToDate, QStringLiteral("You're up to date"),
                      QStringLiteral("%1 %2 is currently the newest version available.")
                          .arg(AppInfo::applicationName(), currentVersion),
                      {QStringLiteral("OK")});
    alert.m_version = currentVersion;
    return alert;
}

UpdateAlert UpdateAlert::available(const QString& version, const QString& currentVersion,
                                   const QString& filePath)
{
    UpdateAlert alert(
        Kind::Available,
        QStringLiteral("A new version of %1 is available!").arg(AppInfo::applicationName()),
        QStringLiteral("%1 %2 is now available — you have %3. It has been downloaded and its "
                       "signature checked. Would you like to open it now?")
            .arg(AppInfo::applicationName(), version, currentVersion),
        {QStringLiteral("Open"), QStringLiteral("Later")});
    alert.m_filePath = filePath;
    alert.m_version = version;
    return alert;
}

UpdateAlert UpdateAlert::failed(const QString& description)
{
    return {
        Kind::Failed, QStringLiteral("Update check failed"), description, {QStringLiteral("OK")}};
}

} // namespace sorv
