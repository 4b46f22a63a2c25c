#include "shareablecontent.h"

#include "video/x11connection.h"

#include <xcb/randr.h>
#include <xcb/xcb_ewmh.h>
#include <xcb/xcb_icccm.h>

#include <algorithm>

namespace sorv {

using x11::Reply;
using x11::topLevelAncestor;

const DisplayInfo* ShareableContent::mainDisplay() const
{
    if (displays.empty())
        return nullptr;
    auto primary = std::find_if(displays.begin(), displays.end(),
                                [](const DisplayInfo& d) { return d.primary; });
    return primary != displays.end() ? &*primary : &displays.front();
}

const DisplayInfo* ShareableContent::display(std::uint32_t id) const
{
    auto it = std::find_if(displays.begin(), displays.end(),
                           [id](const DisplayInfo& d) { return d.id == id; });
    return it != displays.end() ? &*it : nullptr;
}

const WindowInfo* ShareableContent::window(std::uint32_t id) const
{
    auto it = std::find_if(windows.begin(), windows.end(),
                           [id](const WindowInfo& w) { return w.id == id; });
    return it != windows.end() ? &*it : nullptr;
}

std::uint32_t displayIDForMonitorName(const QString& name)
{
    // FNV-1a over the UTF-8 name: stable across server restarts.
    std::uint32_t hash = 2166136261u;
    for (const char c : name.toUtf8()) {
        hash ^= static_cast<std::uint8_t>(c);
        hash *= 16777619u;
    }
    return hash | 0x80000000u;
}

namespace {

QString atomName(xcb_connection_t* c, xcb_atom_t atom)
{
    if (atom == XCB_ATOM_NONE)
        return {};
    Reply<xcb_get_atom_name_reply_t> r(
        xcb_get_atom_name_reply(c, xcb_get_atom_name(c, atom), nullptr));
    if (!r)
        return {};
    return QString::fromUtf8(xcb_get_atom_name_name(r.get()),
                             xcb_get_atom_name_name_length(r.get()));
}

std::vector<DisplayInfo> queryDisplays(const x11::Connection& connection)
{
    xcb_connection_t* c = connection.get();
    std::vector<DisplayInfo> displays;
    const xcb_query_extension_reply_t* randr = xcb_get_extension_data(c, &xcb_randr_id);
    if (randr && randr->present) {
        Reply<xcb_randr_query_version_reply_t> version(
            xcb_randr_query_version_reply(c, xcb_randr_query_version(c, 1, 6), nullptr));
        if (version && (version->major_version > 1 || version->minor_version >= 5)) {
            Reply<xcb_randr_get_monitors_reply_t> monitors(xcb_randr_get_monitors_reply(
                c, xcb_randr_get_monitors(c, connection.root(), 1), nullptr));
            if (monitors) {
                for (auto it = xcb_randr_get_monitors_monitors_iterator(monitors.get()); it.rem;
                     xcb_randr_monitor_info_next(&it)) {
                    const xcb_randr_monitor_info_t* m = it.data;
                    DisplayInfo d;
                    d.name = atomName(c, m->name);
                    d.frame = QRect(m->x, m->y, m->width, m->height);
                    d.primary = m->primary != 0;
                    const int outputs = xcb_randr_monitor_info_outputs_length(m);
                    d.id = outputs > 0 ? xcb_randr_monitor_info_outputs(m)[0]
                                       : displayIDForMonitorName(d.name);
                    displays.push_back(std::move(d));
                }
            }
        }
    }
    // Without RandR 1.5 the whole root window is the one display.
    if (displays.empty())
        displays.push_back({0, {}, connection.currentRootRect(), true});
    return displays;
}

QString textProperty(const xcb_icccm_get_text_property_reply_t& prop, xcb_atom_t utf8)
{
    const auto* bytes = prop.name;
    const int length = static_cast<int>(prop.name_len);
    // STRING is Latin-1; COMPOUND_TEXT is close enough to it for titles.
    return prop.encoding == utf8 ? QString::fromUtf8(bytes, length)
                                 : QString::fromLatin1(bytes, length);
}

bool hasAtom(const xcb_ewmh_get_atoms_reply_t& atoms, xcb_atom_t atom)
{
    return std::find(atoms.atoms, atoms.atoms + atoms.atoms_len, atom) !=
           atoms.atoms + atoms.atoms_len;
}

std::vector<WindowInfo> queryWindows(const x11::Connection& connection)
{
    xcb_connection_t* c = connection.get();
    xcb_ewmh_connection_t* ewmh = connection.ewmh();
    std::vector<WindowInfo> windows;

    xcb_ewmh_get_windows_reply_t list{};
    if (!xcb_ewmh_get_client_list_reply(ewmh, xcb_ewmh_get_client_list(ewmh, 0), &list, nullptr))
        return windows; // no EWMH window manager: nothing to list
    const std::vector<xcb_window_t> clients(list.windows, list.windows + list.windows_len);
    xcb_ewmh_get_windows_reply_wipe(&list);

    struct Pending {
        xcb_get_window_attributes_cookie_t attributes;
        xcb_get_property_cookie_t state, type, netName, name, wmClass, pid, machine;
    };
    std::vector<Pending> pending;
    pending.reserve(clients.size());
    // Send every request first: one round trip for the whole list.
    for (const xcb_window_t w : clients)
        pending.push_back({xcb_get_window_attributes(c, w), xcb_ewmh_get_wm_state(ewmh, w),
                           xcb_ewmh_get_wm_window_type(ewmh, w), xcb_ewmh_get_wm_name(ewmh, w),
                           xcb_icccm_get_wm_name(c, w), xcb_icccm_get_wm_class(c, w),
                           xcb_ewmh_get_wm_pid(ewmh, w), xcb_icccm_get_wm_client_machine(c, w)});

    for (size_t i = 0; i < clients.size(); ++i) {
        const Pending& p = pending[i];
        WindowInfo info;
        info.id = clients[i];

        Reply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply(c, p.attributes, nullptr));
        bool onScreen = attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;

        xcb_ewmh_get_atoms_reply_t atoms{};
        if (xcb_ewmh_get_wm_state_reply(ewmh, p.state, &atoms, nullptr)) {
            if (hasAtom(atoms, ewmh->_NET_WM_STATE_HIDDEN))
                onScreen = false;
            xcb_ewmh_get_atoms_reply_wipe(&atoms);
        }
        // Desktop backgrounds and panels are part of a display, not windows
        // anyone would record on their own.
        if (xcb_ewmh_get_wm_window_type_reply(ewmh, p.type, &atoms, nullptr)) {
            if (hasAtom(atoms, ewmh->_NET_WM_WINDOW_TYPE_DESKTOP) ||
                hasAtom(atoms, ewmh->_NET_WM_WINDOW_TYPE_DOCK))
                onScreen = false;
            xcb_ewmh_get_atoms_reply_wipe(&atoms);
        }

        xcb_ewmh_get_utf8_strings_reply_t netName{};
        if (xcb_ewmh_get_wm_name_reply(ewmh, p.netName, &netName, nullptr)) {
            info.title = QString::fromUtf8(netName.strings, static_cast<int>(netName.strings_len));
            xcb_ewmh_get_utf8_strings_reply_wipe(&netName);
        }
        xcb_icccm_get_text_property_reply_t name{};
        if (xcb_icccm_get_wm_name_reply(c, p.name, &name, nullptr)) {
            if (info.title.isEmpty())
                info.title = textProperty(name, ewmh->UTF8_STRING);
            xcb_icccm_get_text_property_reply_wipe(&name);
        }
        // Some toolkits pad with NULs.
        while (info.title.endsWith(QChar(0)))
            info.title.chop(1);

        xcb_icccm_get_wm_class_reply_t wmClass{};
        if (xcb_icccm_get_wm_class_reply(c, p.wmClass, &wmClass, nullptr)) {
            if (wmClass.class_name)
                info.applicationName = QString::fromLocal8Bit(wmClass.class_name);
            xcb_icccm_get_wm_class_reply_wipe(&wmClass);
        }
        std::uint32_t pid = 0;
        if (xcb_ewmh_get_wm_pid_reply(ewmh, p.pid, &pid, nullptr))
            info.pid = pid;
        xcb_icccm_get_text_property_reply_t machine{};
        if (xcb_icccm_get_wm_client_machine_reply(c, p.machine, &machine, nullptr)) {
            info.clientMachine = textProperty(machine, ewmh->UTF8_STRING);
            xcb_icccm_get_text_property_reply_wipe(&machine);
        }

        if (!onScreen)
            continue;
        info.frameWindow = topLevelAncestor(c, connection.root(), info.id);
        if (info.frameWindow == XCB_WINDOW_NONE)
            continue; // gone meanwhile
        Reply<xcb_get_geometry_reply_t> geometry(
            xcb_get_geometry_reply(c, xcb_get_geometry(c, info.frameWindow), nullptr));
        if (!geometry)
            continue;
        info.frame = QRect(geometry->x, geometry->y, geometry->width + 2 * geometry->border_width,
                           geometry->height + 2 * geometry->border_width);
        windows.push_back(std::move(info));
    }
    return windows;
}

} // namespace

std::optional<ShareableContent> queryShareableContent(const x11::Connection& connection,
                                                      ShareableContentError* error)
{
    ShareableContent content;
    content.rootRect = connection.currentRootRect();
    content.displays = queryDisplays(connection);
    content.windows = queryWindows(connection);
    if (connection.hasError()) {
        if (error)
            *error = {ShareableContentError::Code::Failed,
                      QStringLiteral("the connection to the X server was lost")};
        return std::nullopt;
    }
    return content;
}

std::optional<ShareableContent> queryShareableContent(ShareableContentError* error)
{
    QString why;
    const auto connection = x11::Connection::open(&why);
    if (!connection) {
        if (error)
            *error = {ShareableContentError::Code::NoDisplay, why};
        return std::nullopt;
    }
    return queryShareableContent(*connection, error);
}

} // namespace sorv
