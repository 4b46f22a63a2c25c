#include "x11connection.h"

#include <QCoreApplication>

#include <xcb/xcb_ewmh.h>

#include <cstring>

namespace sorv::x11 {

void Connection::EwmhDeleter::operator()(xcb_ewmh_connection_t* e) const
{
    xcb_ewmh_connection_wipe(e);
    delete e;
}

Connection::~Connection()
{
    m_ewmh.reset();
    if (m_connection)
        xcb_disconnect(m_connection);
}

std::unique_ptr<Connection> Connection::open(QString* error)
{
    const QByteArray display = qgetenv("DISPLAY");
    if (display.isEmpty()) {
        if (error)
            *error = QCoreApplication::translate("VideoRecorder", "DISPLAY is not set");
        return nullptr;
    }
    std::unique_ptr<Connection> c(new Connection);
    int screenNumber = 0;
    c->m_connection = xcb_connect(display.constData(), &screenNumber);
    if (const int code = xcb_connection_has_error(c->m_connection)) {
        if (error)
            *error = QStringLiteral("cannot connect to X server %1 (xcb error %2)")
                         .arg(QString::fromLocal8Bit(display))
                         .arg(code);
        return nullptr;
    }
    auto it = xcb_setup_roots_iterator(xcb_get_setup(c->m_connection));
    for (int i = 0; i < screenNumber && it.rem; ++i)
        xcb_screen_next(&it);
    if (!it.rem) {
        if (error)
            *error = QCoreApplication::translate("VideoRecorder", "X server has no screen %1")
                         .arg(screenNumber);
        return nullptr;
    }
    c->m_screen = it.data;

    c->m_ewmh.reset(new xcb_ewmh_connection_t{});
    xcb_intern_atom_cookie_t* cookies = xcb_ewmh_init_atoms(c->m_connection, c->m_ewmh.get());
    if (!cookies || !xcb_ewmh_init_atoms_replies(c->m_ewmh.get(), cookies, nullptr)) {
        // init_atoms_replies already wiped what it allocated.
        delete c->m_ewmh.release();
        if (error)
            *error = QStringLiteral("cannot intern the EWMH atoms");
        return nullptr;
    }
    return c;
}

QRect Connection::currentRootRect() const
{
    Reply<xcb_get_geometry_reply_t> g(
        xcb_get_geometry_reply(m_connection, xcb_get_geometry(m_connection, root()), nullptr));
    if (!g)
        return rootRect();
    return {0, 0, g->width, g->height};
}

xcb_atom_t Connection::internAtom(const char* name) const
{
    Reply<xcb_intern_atom_reply_t> r(xcb_intern_atom_reply(
        m_connection,
        xcb_intern_atom(m_connection, 0, static_cast<std::uint16_t>(std::strlen(name)), name),
        nullptr));
    return r ? r->atom : xcb_atom_t(XCB_ATOM_NONE);
}

QString errorText(const xcb_generic_error_t* error)
{
    if (!error)
        return QStringLiteral("no reply from the X server");
    static const char* const names[] = {
        "Success",   "BadRequest", "BadValue",    "BadWindow",   "BadPixmap", "BadAtom",
        "BadCursor", "BadFont",    "BadMatch",    "BadDrawable", "BadAccess", "BadAlloc",
        "BadColor",  "BadGC",      "BadIDChoice", "BadName",     "BadLength", "BadImplementation"};
    const QString name =
        error->error_code < std::size(names)
            ? QString::fromLatin1(names[error->error_code])
            : QCoreApplication::translate("VideoRecorder", "X error %1").arg(error->error_code);
    return QStringLiteral("%1 (request %2.%3)")
        .arg(name)
        .arg(error->major_code)
        .arg(error->minor_code);
}

xcb_window_t topLevelAncestor(xcb_connection_t* c, xcb_window_t root, xcb_window_t window)
{
    xcb_window_t current = window;
    for (int depth = 0; depth < 16; ++depth) {
        Reply<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(c, xcb_query_tree(c, current), nullptr));
        if (!tree)
            return XCB_WINDOW_NONE;
        if (tree->parent == root || tree->parent == XCB_WINDOW_NONE)
            return current;
        current = tree->parent;
    }
    return current;
}

} // namespace sorv::x11
