#include "x11screengrabber.h"

#include "core/monotonicclock.h"

#include <QCoreApplication>

#include <xcb/shm.h>
#include <xcb/xcb_ewmh.h>
#include <xcb/xcb_icccm.h>
#include <xcb/xfixes.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace sorv {

using x11::Reply;
using x11::topLevelAncestor;

namespace {

// The root visual must be what FFmpeg calls bgr0: 32 bits a pixel, blue in the
// lowest byte; depth 24 leaves the top byte undefined (we never read it).
bool rootIsBgr0(xcb_connection_t* c, const xcb_screen_t& screen, QString* error)
{
    const xcb_visualtype_t* visual = nullptr;
    int depth = 0;
    for (auto d = xcb_screen_allowed_depths_iterator(&screen); d.rem && !visual;
         xcb_depth_next(&d)) {
        for (auto v = xcb_depth_visuals_iterator(d.data); v.rem; xcb_visualtype_next(&v)) {
            if (v.data->visual_id == screen.root_visual) {
                visual = v.data;
                depth = d.data->depth;
                break;
            }
        }
    }
    int bitsPerPixel = 0;
    for (auto f = xcb_setup_pixmap_formats_iterator(xcb_get_setup(c)); f.rem; xcb_format_next(&f))
        if (f.data->depth == depth)
            bitsPerPixel = f.data->bits_per_pixel;
    const bool ok = visual && (depth == 24 || depth == 32) && bitsPerPixel == 32 &&
                    visual->red_mask == 0xff0000 && visual->green_mask == 0x00ff00 &&
                    visual->blue_mask == 0x0000ff &&
                    xcb_get_setup(c)->image_byte_order == XCB_IMAGE_ORDER_LSB_FIRST;
    if (!ok && error)
        *error = QStringLiteral("unsupported screen pixel format (depth %1, %2 bits a pixel)")
                     .arg(depth)
                     .arg(bitsPerPixel);
    return ok;
}

QRect geometryRect(const xcb_get_geometry_reply_t& g)
{
    return {g.x, g.y, g.width + 2 * g.border_width, g.height + 2 * g.border_width};
}

} // namespace

void subtractRect(const QRect& rect, const QRect& hole, std::vector<QRect>* out)
{
    const QRect h = rect.intersected(hole);
    if (h.isEmpty()) {
        out->push_back(rect);
        return;
    }
    if (h.top() > rect.top())
        out->push_back(QRect(rect.left(), rect.top(), rect.width(), h.top() - rect.top()));
    if (h.bottom() < rect.bottom())
        out->push_back(
            QRect(rect.left(), h.bottom() + 1, rect.width(), rect.bottom() - h.bottom()));
    if (h.left() > rect.left())
        out->push_back(QRect(rect.left(), h.top(), h.left() - rect.left(), h.height()));
    if (h.right() < rect.right())
        out->push_back(QRect(h.right() + 1, h.top(), rect.right() - h.right(), h.height()));
}

void drawCursor(std::uint8_t* picture, QSize size, int stride, const std::uint32_t* cursor,
                QSize cursorSize, QPoint at)
{
    const QRect drawn = QRect(at, cursorSize).intersected(QRect(QPoint(0, 0), size));
    for (int y = drawn.top(); y <= drawn.bottom(); ++y) {
        const std::uint32_t* src = cursor +
                                   static_cast<std::ptrdiff_t>(y - at.y()) * cursorSize.width() +
                                   (drawn.left() - at.x());
        std::uint8_t* dst = picture + static_cast<std::ptrdiff_t>(y) * stride +
                            static_cast<std::ptrdiff_t>(drawn.left()) * 4;
        for (int x = 0; x < drawn.width(); ++x, ++src, dst += 4) {
            const std::uint32_t p = *src;
            const std::uint32_t a = p >> 24;
            if (a == 0)
                continue;
            // Premultiplied: out = src + dst × (1 − α).
            const std::uint32_t inv = 255 - a;
            dst[0] = static_cast<std::uint8_t>((p & 0xff) + (dst[0] * inv + 127) / 255);
            dst[1] = static_cast<std::uint8_t>(((p >> 8) & 0xff) + (dst[1] * inv + 127) / 255);
            dst[2] = static_cast<std::uint8_t>(((p >> 16) & 0xff) + (dst[2] * inv + 127) / 255);
        }
    }
}

void maskOutside(std::uint8_t* picture, QSize size, int stride, const std::vector<QRect>& visible)
{
    const QRect bounds(QPoint(0, 0), size);
    std::vector<QRect> rects;
    std::vector<int> edges{0, size.height()};
    for (const QRect& r : visible) {
        const QRect c = r.intersected(bounds);
        if (c.isEmpty())
            continue;
        rects.push_back(c);
        edges.push_back(c.top());
        edges.push_back(c.bottom() + 1);
    }
    std::sort(edges.begin(), edges.end());
    edges.erase(std::unique(edges.begin(), edges.end()), edges.end());

    // Between two edges every row has the same visible spans.
    std::vector<std::pair<int, int>> spans;
    for (size_t e = 0; e + 1 < edges.size(); ++e) {
        const int y0 = edges[e];
        const int y1 = edges[e + 1];
        spans.clear();
        for (const QRect& r : rects)
            if (r.top() <= y0 && r.bottom() >= y1 - 1)
                spans.emplace_back(r.left(), r.right() + 1);
        std::sort(spans.begin(), spans.end());
        for (int y = y0; y < y1; ++y) {
            std::uint8_t* row = picture + static_cast<std::ptrdiff_t>(y) * stride;
            int x = 0;
            for (const auto& [from, to] : spans) {
                if (from > x)
                    std::memset(row + static_cast<std::ptrdiff_t>(x) * 4, 0,
                                static_cast<size_t>(from - x) * 4);
                x = std::max(x, to);
            }
            if (x < size.width())
                std::memset(row + static_cast<std::ptrdiff_t>(x) * 4, 0,
                            static_cast<size_t>(size.width() - x) * 4);
        }
    }
}

X11ScreenGrabber::~X11ScreenGrabber()
{
    if (m_connection && m_shm) {
        for (std::uint32_t seg : m_segments)
            if (seg)
                xcb_shm_detach(m_connection->get(), seg);
        xcb_flush(m_connection->get());
    }
}

std::unique_ptr<X11ScreenGrabber> X11ScreenGrabber::create(const CaptureArea& area, QString* error)
{
    std::unique_ptr<X11ScreenGrabber> g(new X11ScreenGrabber);
    g->m_connection = x11::Connection::open(error);
    if (!g->m_connection)
        return nullptr;
    xcb_connection_t* c = g->m_connection->get();
    if (!rootIsBgr0(c, g->m_connection->screen(), error))
        return nullptr;
    g->m_area = area;

    // MIT-SHM with file descriptors (1.2) lets the server write the picture
    // straight into our buffer; without it (a remote display) each frame
    // travels over the socket instead.
    const xcb_query_extension_reply_t* shm = xcb_get_extension_data(c, &xcb_shm_id);
    if (shm && shm->present) {
        Reply<xcb_shm_query_version_reply_t> v(
            xcb_shm_query_version_reply(c, xcb_shm_query_version(c), nullptr));
        g->m_shm = v && (v->major_version > 1 || v->minor_version >= 2);
    }
    const xcb_query_extension_reply_t* xfixes = xcb_get_extension_data(c, &xcb_xfixes_id);
    if (xfixes && xfixes->present) {
        Reply<xcb_xfixes_query_version_reply_t> v(
            xcb_xfixes_query_version_reply(c, xcb_xfixes_query_version(c, 4, 0), nullptr));
        g->m_xfixes = v && v->major_version >= 1;
    }
    if (area.mode == CaptureArea::Mode::Window)
        g->m_frameWindow = topLevelAncestor(c, g->m_connection->root(), area.window);
    return g;
}

bool X11ScreenGrabber::attach(FramePool& pool, int slot, QString* error)
{
    const auto i = static_cast<size_t>(slot);
    const FramePool::Slot& s = pool.slot(slot);
    if (m_segments[i] && m_attachedGeneration[i] == s.generation)
        return true;
    xcb_connection_t* c = m_connection->get();
    if (m_segments[i])
        xcb_shm_detach(c, m_segments[i]);
    m_segments[i] = xcb_generate_id(c);
    // xcb closes the descriptor it sends; it gets a duplicate.
    const int fd = ::fcntl(s.fd, F_DUPFD_CLOEXEC, 0);
    if (fd < 0) {
        if (error)
            *error = QStringLiteral("cannot share a frame buffer with the X server");
        return false;
    }
    xcb_generic_error_t* e =
        xcb_request_check(c, xcb_shm_attach_fd_checked(c, m_segments[i], fd, 0));
    if (e) {
        if (error)
            *error = QCoreApplication::translate("VideoRecorder", "MIT-SHM attach failed: ") +
                     x11::errorText(e);
        std::free(e);
        m_segments[i] = 0;
        return false;
    }
    m_attachedGeneration[i] = s.generation;
    return true;
}

bool X11ScreenGrabber::prepare(FramePool& pool, QString* error)
{
    // A window can grow up to the whole screen; the other areas keep their size.
    const QSize largest = m_area.mode == CaptureArea::Mode::Window ? m_connection->rootRect().size()
                                                                   : m_area.videoSize;
    const auto bytes =
        static_cast<std::size_t>(largest.width()) * static_cast<std::size_t>(largest.height()) * 4;
    std::vector<int> slots;
    bool ok = true;
    xcb_connection_t* c = m_connection->get();
    for (int slot = pool.tryAcquire(); slot >= 0 && ok; slot = pool.tryAcquire()) {
        slots.push_back(slot);
        ok = pool.reserve(slot, bytes, error) && (!m_shm || attach(pool, slot, error));
        // One grab over the whole buffer: the server's side of it is touched too.
        if (ok && m_shm) {
            const QRect r = QRect(QPoint(0, 0), largest).intersected(m_connection->rootRect());
            std::free(xcb_shm_get_image_reply(
                c,
                xcb_shm_get_image(c, m_connection->root(), 0, 0, std::uint16_t(r.width()),
                                  std::uint16_t(r.height()), ~0u, XCB_IMAGE_FORMAT_Z_PIXMAP,
                                  m_segments[static_cast<size_t>(slot)], 0),
                nullptr));
        }
    }
    for (int slot : slots)
        pool.release(slot);
    return ok;
}

bool X11ScreenGrabber::grab(FramePool& pool, int slot, Frame* frame, QString* error)
{
    xcb_connection_t* c = m_connection->get();
    Layout layout;
    if (!updateLayout(&layout)) {
        if (error)
            *error = QStringLiteral("the connection to the X server was lost");
        return false;
    }
    const QSize size = layout.grab.size();
    const int stride = size.width() * 4;
    const auto bytes = static_cast<std::size_t>(std::max(1, stride * size.height()));
    if (!pool.reserve(slot, bytes, error))
        return false;
    if (m_shm && !attach(pool, slot, error))
        return false;
    std::uint8_t* picture = pool.slot(slot).data;

    const std::int64_t before = monotonicNowNs();
    xcb_shm_get_image_cookie_t shmCookie{};
    xcb_get_image_cookie_t plainCookie{};
    const bool any = !layout.grab.isEmpty();
    if (any) {
        const auto x = static_cast<std::int16_t>(layout.grab.x());
        const auto y = static_cast<std::int16_t>(layout.grab.y());
        const auto w = static_cast<std::uint16_t>(size.width());
        const auto h = static_cast<std::uint16_t>(size.height());
        if (m_shm)
            shmCookie = xcb_shm_get_image(c, m_connection->root(), x, y, w, h, ~0u,
                                          XCB_IMAGE_FORMAT_Z_PIXMAP,
                                          m_segments[static_cast<size_t>(slot)], 0);
        else
            plainCookie =
                xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, m_connection->root(), x, y, w, h, ~0u);
    }
    xcb_xfixes_get_cursor_image_cookie_t cursorCookie{};
    if (m_xfixes)
        cursorCookie = xcb_xfixes_get_cursor_image(c);

    if (any) {
        xcb_generic_error_t* e = nullptr;
        if (m_shm) {
            Reply<xcb_shm_get_image_reply_t> r(xcb_shm_get_image_reply(c, shmCookie, &e));
            if (!r) {
                if (error)
                    *error = QCoreApplication::translate("VideoRecorder", "GetImage failed: ") +
                             x11::errorText(e);
                std::free(e);
                return false;
            }
        } else {
            Reply<xcb_get_image_reply_t> r(xcb_get_image_reply(c, plainCookie, &e));
            if (!r) {
                if (error)
                    *error = QCoreApplication::translate("VideoRecorder", "GetImage failed: ") +
                             x11::errorText(e);
                std::free(e);
                return false;
            }
            const auto length = static_cast<std::size_t>(xcb_get_image_data_length(r.get()));
            std::memcpy(picture, xcb_get_image_data(r.get()), std::min(length, bytes));
        }
    }
    const std::int64_t after = monotonicNowNs();

    if (m_xfixes) {
        Reply<xcb_xfixes_get_cursor_image_reply_t> cursor(
            xcb_xfixes_get_cursor_image_reply(c, cursorCookie, nullptr));
        if (cursor && any) {
            const QPoint at(cursor->x - cursor->xhot - layout.grab.x(),
                            cursor->y - cursor->yhot - layout.grab.y());
            drawCursor(picture, size, stride,
                       xcb_xfixes_get_cursor_image_cursor_image(cursor.get()),
                       QSize(cursor->width, cursor->height), at);
        }
    }
    if (layout.masked && any) {
        std::vector<QRect> visible;
        visible.reserve(layout.visible.size());
        for (const QRect& r : layout.visible)
            visible.push_back(r.translated(-layout.grab.topLeft()));
        maskOutside(picture, size, stride, visible);
    }

    frame->slot = slot;
    frame->size = any ? size : QSize();
    frame->stride = stride;
    frame->destination = any ? layout.destination : QRect();
    // The server copied the picture somewhere between request and reply.
    frame->hostTimeNs = before + (after - before) / 2;
    return true;
}

bool X11ScreenGrabber::updateLayout(Layout* layout)
{
    switch (m_area.mode) {
    case CaptureArea::Mode::Display: {
        const QRect root = m_connection->rootRect();
        layout->grab = QRect(m_area.rect.topLeft(), m_area.videoSize).intersected(root);
        layout->destination =
            QRect(layout->grab.topLeft() - m_area.rect.topLeft(), layout->grab.size());
        return !m_connection->hasError();
    }
    case CaptureArea::Mode::Window:
        return windowLayout(layout);
    case CaptureArea::Mode::Application:
        return applicationLayout(layout);
    }
    return false;
}

bool X11ScreenGrabber::windowLayout(Layout* layout)
{
    xcb_connection_t* c = m_connection->get();
    layout->masked = true;
    Reply<xcb_get_geometry_reply_t> g;
    if (m_frameWindow != XCB_WINDOW_NONE)
        g.reset(xcb_get_geometry_reply(c, xcb_get_geometry(c, m_frameWindow), nullptr));
    if (!g) {
        // The frame went away (the window manager restarted, or the window
        // was closed): look for the window's new frame.
        m_frameWindow = topLevelAncestor(c, m_connection->root(), m_area.window);
        if (m_frameWindow != XCB_WINDOW_NONE)
            g.reset(xcb_get_geometry_reply(c, xcb_get_geometry(c, m_frameWindow), nullptr));
    }
    if (!g)
        return !m_connection->hasError(); // gone: black frames

    const QRect frameRect = geometryRect(*g);
    const QSize content = evenSize(frameRect.size());
    const QRect placed = letterboxRect(content, m_area.videoSize);
    const QRect shown = QRect(frameRect.topLeft(), content).intersected(m_connection->rootRect());
    if (shown.isEmpty() || placed.isEmpty())
        return true;
    const double sx = double(placed.width()) / content.width();
    const double sy = double(placed.height()) / content.height();
    const auto mapX = [&](int x) {
        return std::clamp(int(std::lround(placed.x() + (x - frameRect.x()) * sx)) & ~1, 0,
                          m_area.videoSize.width());
    };
    const auto mapY = [&](int y) {
        return std::clamp(int(std::lround(placed.y() + (y - frameRect.y()) * sy)) & ~1, 0,
                          m_area.videoSize.height());
    };
    const int x0 = mapX(shown.left());
    const int y0 = mapY(shown.top());
    const int x1 = std::max(x0 + 2, mapX(shown.right() + 1));
    const int y1 = std::max(y0 + 2, mapY(shown.bottom() + 1));
    layout->grab = shown;
    layout->destination = QRect(x0, y0, std::min(x1, m_area.videoSize.width()) - x0,
                                std::min(y1, m_area.videoSize.height()) - y0);
    visibleParts({m_frameWindow}, layout);
    return !m_connection->hasError();
}

bool X11ScreenGrabber::applicationLayout(Layout* layout)
{
    // New and closed windows of the application are picked up twice a second.
    if (m_framesSinceRefresh-- <= 0) {
        refreshApplicationWindows();
        m_framesSinceRefresh = 15;
    }
    layout->masked = true;
    layout->grab =
        QRect(m_area.rect.topLeft(), m_area.videoSize).intersected(m_connection->rootRect());
    layout->destination =
        QRect(layout->grab.topLeft() - m_area.rect.topLeft(), layout->grab.size());
    visibleParts(m_appFrames, layout);
    return !m_connection->hasError();
}

void X11ScreenGrabber::refreshApplicationWindows()
{
    xcb_connection_t* c = m_connection->get();
    xcb_ewmh_connection_t* ewmh = m_connection->ewmh();
    xcb_ewmh_get_windows_reply_t list{};
    if (!xcb_ewmh_get_client_list_reply(ewmh, xcb_ewmh_get_client_list(ewmh, 0), &list, nullptr))
        return;
    const std::vector<xcb_window_t> clients(list.windows, list.windows + list.windows_len);
    xcb_ewmh_get_windows_reply_wipe(&list);

    std::vector<std::pair<xcb_window_t, xcb_get_property_cookie_t>> unknown;
    for (xcb_window_t w : clients)
        if (!m_isAppClient.count(w))
            unknown.emplace_back(w, xcb_icccm_get_wm_class(c, w));
    const QByteArray wanted = m_area.applicationName.toLocal8Bit();
    for (auto& [w, cookie] : unknown) {
        xcb_icccm_get_wm_class_reply_t wmClass{};
        bool match = false;
        if (xcb_icccm_get_wm_class_reply(c, cookie, &wmClass, nullptr)) {
            match = wmClass.class_name && wanted == wmClass.class_name;
            xcb_icccm_get_wm_class_reply_wipe(&wmClass);
        }
        m_isAppClient[w] = match;
    }
    // Forget windows that left the list.
    for (auto it = m_isAppClient.begin(); it != m_isAppClient.end();)
        it = std::find(clients.begin(), clients.end(), it->first) == clients.end()
                 ? m_isAppClient.erase(it)
                 : std::next(it);

    m_appFrames.clear();
    for (xcb_window_t w : clients) {
        if (!m_isAppClient[w])
            continue;
        const xcb_window_t frame = topLevelAncestor(c, m_connection->root(), w);
        if (frame != XCB_WINDOW_NONE &&
            std::find(m_appFrames.begin(), m_appFrames.end(), frame) == m_appFrames.end())
            m_appFrames.push_back(frame);
    }
}

void X11ScreenGrabber::visibleParts(const std::vector<xcb_window_t>& targets, Layout* layout)
{
    xcb_connection_t* c = m_connection->get();
    Reply<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(c, xcb_query_tree(c, m_connection->root()), nullptr));
    if (!tree)
        return;
    const xcb_window_t* children = xcb_query_tree_children(tree.get());
    const int count = xcb_query_tree_children_length(tree.get());
    // Children come bottom to top; only what lies above the lowest target
    // can cover it.
    int lowest = count;
    for (int i = 0; i < count; ++i) {
        if (std::find(targets.begin(), targets.end(), children[i]) != targets.end()) {
            lowest = i;
            break;
        }
    }
    struct Pending {
        xcb_window_t window;
        bool target;
        xcb_get_geometry_cookie_t geometry;
        xcb_get_window_attributes_cookie_t attributes;
    };
    std::vector<Pending> pending;
    for (int i = lowest; i < count; ++i)
        pending.push_back(
            {children[i], std::find(targets.begin(), targets.end(), children[i]) != targets.end(),
             xcb_get_geometry(c, children[i]), xcb_get_window_attributes(c, children[i])});

    // Walk from the top down, keeping what is above as the set of occluders.
    std::vector<QRect> occluders;
    std::vector<QRect> pieces;
    std::vector<std::pair<bool, QRect>> stack; // (target, rect) bottom to top
    for (Pending& p : pending) {
        Reply<xcb_get_geometry_reply_t> g(xcb_get_geometry_reply(c, p.geometry, nullptr));
        Reply<xcb_get_window_attributes_reply_t> a(
            xcb_get_window_attributes_reply(c, p.attributes, nullptr));
        // Input-only windows (the window manager's) cover nothing.
        if (!g || !a || a->map_state != XCB_MAP_STATE_VIEWABLE ||
            a->_class == XCB_WINDOW_CLASS_INPUT_ONLY)
            continue;
        stack.emplace_back(p.target, geometryRect(*g));
    }
    // Top of the stack first.
    for (std::size_t i = stack.size(); i-- > 0;) {
        const auto& [target, rect] = stack[i];
        if (!target) {
            occluders.push_back(rect);
            continue;
        }
        pieces.assign(1, rect.intersected(layout->grab));
        for (const QRect& hole : occluders) {
            std::vector<QRect> next;
            for (const QRect& piece : pieces)
                subtractRect(piece, hole, &next);
            pieces.swap(next);
        }
        for (const QRect& piece : pieces)
            if (!piece.isEmpty())
                layout->visible.push_back(piece);
    }
}

} // namespace sorv
