#pragma once

#include <QByteArray>
#include <QRect>
#include <QString>

#include <xcb/xcb.h>
#include <xcb/xcb_ewmh.h>

#include <cstdlib>
#include <memory>

namespace sorv::x11 {

// xcb hands out malloc'ed replies; this owns one.
struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
template <typename T> using Reply = std::unique_ptr<T, FreeDeleter>;

// One connection to the X server, owned. Not thread-safe in our use: each
// thread that talks to the server opens its own.
class Connection {
public:
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Connects to $DISPLAY. Null with `error` set when there is no X server to
    // talk to (DISPLAY unset, or the connection fails).
    static std::unique_ptr<Connection> open(QString* error);

    xcb_connection_t* get() const { return m_connection; }
    xcb_window_t root() const { return m_screen->root; }
    const xcb_screen_t& screen() const { return *m_screen; }
    QRect rootRect() const { return {0, 0, m_screen->width_in_pixels, m_screen->height_in_pixels}; }
    // The root's size now (it changes with RandR, unlike the setup data).
    QRect currentRootRect() const;

    bool hasError() const { return xcb_connection_has_error(m_connection) != 0; }

    // EWMH atoms, interned once at connection time.
    xcb_ewmh_connection_t* ewmh() const { return m_ewmh.get(); }

    xcb_atom_t internAtom(const char* name) const;

private:
    Connection() = default;

    struct EwmhDeleter {
        void operator()(xcb_ewmh_connection_t* e) const;
    };

    xcb_connection_t* m_connection = nullptr;
    const xcb_screen_t* m_screen = nullptr;
    std::unique_ptr<xcb_ewmh_connection_t, EwmhDeleter> m_ewmh;
};

// The ancestor of `window` whose parent is the root: what the window manager
// moves and stacks. XCB_WINDOW_NONE when the window is gone.
xcb_window_t topLevelAncestor(xcb_connection_t* c, xcb_window_t root, xcb_window_t window);

// The text of an X error for messages ("BadMatch (request 130.4)").
QString errorText(const xcb_generic_error_t* error);

} // namespace sorv::x11
