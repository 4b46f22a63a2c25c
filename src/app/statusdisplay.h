#pragma once

#include <QString>
#include <QUrl>

#include <optional>

namespace sorv {

// What the tray shows for the recorder's state. Kept apart from the tray
// itself so the choice can be checked without a tray host.
struct StatusDisplay {
    enum class Kind { Recording, Processing, Idle };
    enum class Icon { RecordFilled, RecordOutlined, Processing, Idle };

    Kind kind = Kind::Idle;
    Icon icon = Icon::Idle;
    QString title; // " REC 00:00" while recording, else empty
    QString
        tooltip; // "Sorvelandrix — RECORDING (00:00)", "Sorvelandrix — processing…", "Sorvelandrix"
    QString accessibleName;

    bool operator==(const StatusDisplay&) const = default;
};

// Recording wins over processing; a recorder that is gone reads as idle.
StatusDisplay statusDisplayFor(bool isRecording, bool isProcessing, double elapsed,
                               bool pulseToggle);

// The icon of a recording in the given phase of its pulse.
StatusDisplay::Icon recordingIcon(bool pulseToggle);

// The service's web dashboard: the stored origin (as stored, not normalised)
// or the default origin, plus "/dashboard". None when that is no URL.
std::optional<QUrl> dashboardUrl(const std::optional<QString>& storedOrigin);

} // namespace sorv
