#pragma once

#include "video/capturearea.h"
#include "video/framepool.h"
#include "video/x11connection.h"

#include <QRect>
#include <QSize>
#include <QString>

#include <array>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

namespace sorv {

// Grabs a capture area from the X server: MIT-SHM GetImage of the root window
// straight into a frame-pool buffer, the pointer drawn in from XFixes, and —
// for window and application areas — everything that is not the target's own
// visible pixels painted black. Used from one thread only (it owns its own
// connection).
class X11ScreenGrabber {
public:
    using Frame = GrabbedFrame;

    ~X11ScreenGrabber();
    X11ScreenGrabber(const X11ScreenGrabber&) = delete;
    X11ScreenGrabber& operator=(const X11ScreenGrabber&) = delete;

    // Opens its own connection. Null with `error` when the server cannot be
    // captured (no connection, or a pixel format other than 24/32-bit bgr0).
    static std::unique_ptr<X11ScreenGrabber> create(const CaptureArea& area, QString* error);

    const CaptureArea& area() const { return m_area; }
    bool usesSharedMemory() const { return m_shm; }

    // Makes every buffer of the pool big enough for the largest grab, shares
    // it with the server and has the server write it once, so that the first
    // frames cost what later ones do (the first grab into a fresh 8 MiB
    // buffer takes the server about 0.1 s).
    bool prepare(FramePool& pool, QString* error);

    // Grabs into `slot` of `pool` (acquired by the caller). False with `error`
    // when the server stopped answering.
    bool grab(FramePool& pool, int slot, Frame* frame, QString* error);

private:
    X11ScreenGrabber() = default;

    struct Layout {
        QRect grab;                 // root coordinates, inside the root window
        std::vector<QRect> visible; // root coordinates; empty = all of `grab`
        bool masked = false;        // paint black outside `visible`
        QRect destination;
    };

    bool updateLayout(Layout* layout);
    bool windowLayout(Layout* layout);
    bool applicationLayout(Layout* layout);
    void refreshApplicationWindows();
    void visibleParts(const std::vector<xcb_window_t>& targets, Layout* layout);
    bool attach(FramePool& pool, int slot, QString* error);

    std::unique_ptr<x11::Connection> m_connection;
    CaptureArea m_area;
    bool m_shm = false;
    bool m_xfixes = false;
    std::array<std::uint32_t, FramePool::kCapacity> m_segments{};
    std::array<std::uint32_t, FramePool::kCapacity> m_attachedGeneration{};

    // Window mode: the client's top-level frame, found again when it changes.
    xcb_window_t m_frameWindow = XCB_WINDOW_NONE;
    // Application mode: the application's on-screen clients and their frames,
    // refreshed every few frames; the class of every client seen, cached.
    std::vector<xcb_window_t> m_appFrames;
    std::unordered_map<xcb_window_t, bool> m_isAppClient;
    int m_framesSinceRefresh = 0;
};

// Draws a premultiplied ARGB cursor image into a bgr0 picture, clipped to it.
// `at` is the image's top-left corner in the picture's coordinates.
void drawCursor(std::uint8_t* picture, QSize size, int stride, const std::uint32_t* cursor,
                QSize cursorSize, QPoint at);

// Paints everything in the bgr0 picture black except the `visible`
// rectangles (picture coordinates; they may overlap).
void maskOutside(std::uint8_t* picture, QSize size, int stride, const std::vector<QRect>& visible);

// `rect` minus `hole`: up to four rectangles.
void subtractRect(const QRect& rect, const QRect& hole, std::vector<QRect>* out);

} // namespace sorv
