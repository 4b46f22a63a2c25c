#include "statusdisplay.h"

#include "core/format.h"
#include "core/settings.h"

#include <QCoreApplication>

namespace sorv {

StatusDisplay::Icon recordingIcon(bool pulseToggle)
{
    return pulseToggle ? StatusDisplay::Icon::RecordFilled : StatusDisplay::Icon::RecordOutlined;
}

StatusDisplay statusDisplayFor(bool isRecording, bool isProcessing, double elapsed,
                               bool pulseToggle)
{
    StatusDisplay d;
    if (isRecording) {
        const QString time = formatElapsed(elapsed);
        d.kind = StatusDisplay::Kind::Recording;
        d.icon = recordingIcon(pulseToggle);
        d.title = QStringLiteral(" REC ") + time;
        d.tooltip =
            QCoreApplication::translate("StatusDisplay", "Sorvelandrix — RECORDING (%1)").arg(time);
        d.accessibleName = QCoreApplication::translate("StatusDisplay", "Sorvelandrix — RECORDING");
    } else if (isProcessing) {
        d.kind = StatusDisplay::Kind::Processing;
        d.icon = StatusDisplay::Icon::Processing;
        d.tooltip = QCoreApplication::translate("StatusDisplay", "Sorvelandrix — processing…");
        d.accessibleName =
            QCoreApplication::translate("StatusDisplay", "Sorvelandrix — processing");
    } else {
        d.tooltip = QStringLiteral("Sorvelandrix");
        d.accessibleName = QCoreApplication::translate("StatusDisplay", "Sorvelandrix — idle");
    }
    return d;
}

std::optional<QUrl> dashboardUrl(const std::optional<QString>& storedOrigin)
{
    const QString address = storedOrigin.value_or(Settings::kDefaultOrigin) + "/dashboard";
    QUrl url(address, QUrl::StrictMode);
    if (!url.isValid() || url.scheme().isEmpty() || url.host().isEmpty())
        return std::nullopt;
    return url;
}

} // namespace sorv
