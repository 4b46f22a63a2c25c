#include "statusdisplay.h"

#include "core/format.h"
#include "core/settings.h"

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
        d.tooltip = QStringLiteral("Sorvelandrix — RECORDING (%1)").arg(time);
        d.accessibleName = QStringLiteral("Sorvelandrix — RECORDING");
    } else if (isProcessing) {
        d.kind = StatusDisplay::Kind::Processing;
        d.icon = StatusDisplay::Icon::Processing;
        d.tooltip = QStringLiteral("Sorvelandrix — processing…");
        d.accessibleName = QStringLiteral("Sorvelandrix — processing");
    } else {
        d.tooltip = QStringLiteral("Sorvelandrix");
        d.accessibleName = QStringLiteral("Sorvelandrix — idle");
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
