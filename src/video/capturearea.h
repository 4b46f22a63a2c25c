#pragma once

#include "video/screencapturetargetoption.h"
#include "video/shareablecontent.h"

#include <QRect>
#include <QSize>
#include <QString>

#include <cstdint>
#include <optional>

namespace sorv {

// A capture target resolved against the current screen: which part of the
// root window a recording grabs and the size of its video.
struct CaptureArea {
    enum class Mode {
        Display,     // a monitor's rectangle, as it is
        Window,      // one window's frame, followed as it moves
        Application, // a monitor, black outside the application's windows
    };

    Mode mode = Mode::Display;
    // Display and Application: the monitor; Window: the frame at the start.
    QRect rect;
    // Even width and height (4:2:0 video needs them); the rectangle's size
    // rounded down.
    QSize videoSize;
    std::uint32_t window = 0; // Window: the client window
    QString applicationName;  // Application: its WM_CLASS class

    friend bool operator==(const CaptureArea&, const CaptureArea&) = default;
};

// The size rounded down to even numbers, at least 2×2: 4:2:0 video needs them.
QSize evenSize(QSize s);

// Null when the display, window or application of the target is not there.
// An application is recorded on the display that holds most of its windows
// (the main display on a tie).
std::optional<CaptureArea> resolveCaptureArea(const ShareableContent& content,
                                              const ScreenCaptureTargetOption::Kind& kind);

// Where a picture of size `content` goes inside a frame of size `frame`:
// scaled to fit with its aspect kept and centred, on even coordinates.
QRect letterboxRect(QSize content, QSize frame);

} // namespace sorv
