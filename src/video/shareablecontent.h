#pragma once

#include <QRect>
#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

namespace sorv {

namespace x11 {
class Connection;
}

// A display: one RandR monitor.
struct DisplayInfo {
    // The RandR output id of the monitor's first output. A monitor without an
    // output (one defined with `xrandr --setmonitor NAME GEOMETRY none`) gets
    // a hash of its name with the top bit set, which no server-side XID has.
    std::uint32_t id = 0;
    // The monitor's name: the output's name for the monitors the server makes
    // itself ("HDMI-1"), the given name for user-defined ones.
    QString name;
    QRect frame; // in root coordinates
    bool primary = false;
};

// A window on screen: an EWMH client window that is mapped and not minimised.
struct WindowInfo {
    std::uint32_t id = 0;          // the client window
    std::uint32_t frameWindow = 0; // its top-level ancestor (the window manager's frame)
    QString title;                 // _NET_WM_NAME, else WM_NAME; may be empty
    QString applicationName;       // the WM_CLASS class; empty when not set
    std::int64_t pid = -1;         // _NET_WM_PID, -1 when not set
    QString clientMachine;         // WM_CLIENT_MACHINE
    QRect frame;                   // the frame, decorations included, in root coordinates

    friend bool operator==(const WindowInfo&, const WindowInfo&) = default;
};

// What can be captured right now: the X11 counterpart of the platform's
// "shareable content".
struct ShareableContent {
    QRect rootRect;
    std::vector<DisplayInfo> displays;
    std::vector<WindowInfo> windows;

    // The primary monitor, else the first one; null without any.
    const DisplayInfo* mainDisplay() const;
    const DisplayInfo* display(std::uint32_t id) const;
    const WindowInfo* window(std::uint32_t id) const;
};

struct ShareableContentError {
    enum class Code {
        NoDisplay, // no X server to talk to
        Failed,    // the server stopped answering
    };
    Code code = Code::Failed;
    QString message;
};

// Asks the X server for its monitors and on-screen windows. With no
// connection given, opens one for the call (for use off the GUI thread).
std::optional<ShareableContent> queryShareableContent(const x11::Connection& connection,
                                                      ShareableContentError* error);
std::optional<ShareableContent> queryShareableContent(ShareableContentError* error);

// The id a monitor without outputs is known by (see DisplayInfo::id).
std::uint32_t displayIDForMonitorName(const QString& name);

} // namespace sorv
