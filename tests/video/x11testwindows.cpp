// A small X11 client for the video tests: opens windows with known classes
// and titles, then moves, resizes, paints, iconifies and flashes them on
// command, answering only once the X server (and the window manager) has done
// it.
//
//   x11testwindows "CLASS|X|Y|W|H|TITLE" ...
//     TITLE empty: no title at all; "wm:TEXT": only the old WM_NAME.
//   prints each window's id, then "ready"; then reads commands:
//     move I X Y | resize I W H | fill I RRGGBB | iconify I | quit
//     flash I COUNT PERIOD_MS ON_MS START_NS
//       paints window I white for ON_MS at START_NS + k × PERIOD_MS
//       (CLOCK_MONOTONIC), black in between, printing "flash K NS" with the
//       moment each flash reached the screen.
//   answers "ok" (move and resize: "ok X Y W H", the frame in root coordinates).

#include <xcb/xcb.h>

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

xcb_connection_t* c = nullptr;
xcb_screen_t* screen = nullptr;

xcb_atom_t atom(const char* name)
{
    xcb_intern_atom_reply_t* r =
        xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, uint16_t(std::strlen(name)), name), nullptr);
    const xcb_atom_t a = r ? r->atom : xcb_atom_t(XCB_ATOM_NONE);
    std::free(r);
    return a;
}

std::int64_t nowNs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return std::int64_t(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

void sleepUntil(std::int64_t ns)
{
    timespec ts{time_t(ns / 1'000'000'000), long(ns % 1'000'000'000)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, nullptr) != 0) {
    }
}

// A round trip: everything sent before has been processed by the server.
void roundTrip()
{
    std::free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
}

struct Rect {
    int x = 0, y = 0, w = 0, h = 0;
    bool operator==(const Rect&) const = default;
};

Rect frameOf(xcb_window_t w)
{
    xcb_window_t current = w;
    for (int i = 0; i < 16; ++i) {
        xcb_query_tree_reply_t* t = xcb_query_tree_reply(c, xcb_query_tree(c, current), nullptr);
        if (!t)
            break;
        const xcb_window_t parent = t->parent;
        std::free(t);
        if (parent == screen->root)
            break;
        current = parent;
    }
    xcb_get_geometry_reply_t* g = xcb_get_geometry_reply(c, xcb_get_geometry(c, current), nullptr);
    Rect r;
    if (g) {
        r = {g->x, g->y, g->width + 2 * g->border_width, g->height + 2 * g->border_width};
        std::free(g);
    }
    return r;
}

bool viewable(xcb_window_t w)
{
    xcb_get_window_attributes_reply_t* a =
        xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, w), nullptr);
    const bool v = a && a->map_state == XCB_MAP_STATE_VIEWABLE;
    std::free(a);
    return v;
}

bool windowManagerRunning()
{
    const xcb_atom_t check = atom("_NET_SUPPORTING_WM_CHECK");
    xcb_get_property_reply_t* r = xcb_get_property_reply(
        c, xcb_get_property(c, 0, screen->root, check, XCB_ATOM_WINDOW, 0, 1), nullptr);
    const bool running = r && xcb_get_property_value_length(r) == 4;
    std::free(r);
    return running;
}

bool managed(xcb_window_t w, bool withWindowManager)
{
    // Reparented into a frame by the window manager, or at least viewable
    // when there is none.
    xcb_query_tree_reply_t* t = xcb_query_tree_reply(c, xcb_query_tree(c, w), nullptr);
    const bool reparented = t && t->parent != screen->root;
    std::free(t);
    return viewable(w) && (reparented || !withWindowManager);
}

// Waits up to two seconds for the frame to leave `before`.
Rect waitForChange(xcb_window_t w, const Rect& before)
{
    const std::int64_t deadline = nowNs() + 2'000'000'000;
    Rect r = frameOf(w);
    while (r == before && nowNs() < deadline) {
        usleep(5000);
        r = frameOf(w);
    }
    // The window manager may move in steps; let it settle.
    usleep(20000);
    roundTrip();
    return frameOf(w);
}

void fill(xcb_window_t w, std::uint32_t rgb)
{
    xcb_change_window_attributes(c, w, XCB_CW_BACK_PIXEL, &rgb);
    xcb_clear_area(c, 0, w, 0, 0, 0, 0);
    roundTrip();
}

void setText(xcb_window_t w, xcb_atom_t property, xcb_atom_t type, const std::string& text)
{
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, w, property, type, 8, uint32_t(text.size()),
                        text.data());
}

} // namespace

int main(int argc, char** argv)
{
    c = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(c)) {
        std::fprintf(stderr, "x11testwindows: no X server\n");
        return 1;
    }
    screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    const xcb_atom_t utf8 = atom("UTF8_STRING");
    const xcb_atom_t netWmName = atom("_NET_WM_NAME");
    const xcb_atom_t netWmPid = atom("_NET_WM_PID");
    const xcb_atom_t wmChangeState = atom("WM_CHANGE_STATE");

    std::vector<xcb_window_t> windows;
    for (int i = 1; i < argc; ++i) {
        std::vector<std::string> f;
        std::stringstream spec(argv[i]);
        for (std::string part; std::getline(spec, part, '|');)
            f.push_back(part);
        if (f.size() < 5) {
            std::fprintf(stderr, "x11testwindows: bad window %s\n", argv[i]);
            return 2;
        }
        const std::string title = f.size() > 5 ? f[5] : std::string();
        const xcb_window_t w = xcb_generate_id(c);
        const std::uint32_t values[] = {0x202020, XCB_EVENT_MASK_STRUCTURE_NOTIFY};
        xcb_create_window(c, XCB_COPY_FROM_PARENT, w, screen->root, int16_t(std::stoi(f[1])),
                          int16_t(std::stoi(f[2])), uint16_t(std::stoi(f[3])),
                          uint16_t(std::stoi(f[4])), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                          screen->root_visual, XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, values);
        // WM_CLASS: instance and class, each NUL-terminated.
        std::string instance = f[0];
        for (char& ch : instance)
            ch = char(std::tolower(static_cast<unsigned char>(ch)));
        const std::string wmClass = instance + '\0' + f[0] + '\0';
        setText(w, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, wmClass);
        if (title.rfind("wm:", 0) == 0) {
            setText(w, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, title.substr(3));
        } else if (!title.empty()) {
            setText(w, netWmName, utf8, title);
            setText(w, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, title);
        }
        const std::uint32_t pid = std::uint32_t(getpid());
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, w, netWmPid, XCB_ATOM_CARDINAL, 32, 1, &pid);
        // WM_NORMAL_HINTS with USPosition|USSize, so the window manager keeps
        // the position asked for.
        std::uint32_t hints[18] = {};
        hints[0] = 1 | 2;
        hints[1] = std::uint32_t(std::stoi(f[1]));
        hints[2] = std::uint32_t(std::stoi(f[2]));
        hints[3] = std::uint32_t(std::stoi(f[3]));
        hints[4] = std::uint32_t(std::stoi(f[4]));
        xcb_change_property(c, XCB_PROP_MODE_REPLACE, w, XCB_ATOM_WM_NORMAL_HINTS,
                            XCB_ATOM_WM_SIZE_HINTS, 32, 18, hints);
        xcb_map_window(c, w);
        windows.push_back(w);
    }
    xcb_flush(c);
    const bool withWindowManager = windowManagerRunning();
    const std::int64_t deadline = nowNs() + 10'000'000'000;
    for (xcb_window_t w : windows)
        while (!managed(w, withWindowManager) && nowNs() < deadline)
            usleep(10000);
    usleep(50000); // the window manager's last configure
    roundTrip();
    for (xcb_window_t w : windows)
        std::printf("%u\n", w);
    std::printf("ready\n");
    std::fflush(stdout);

    std::string line;
    while (std::getline(std::cin, line)) {
        std::stringstream in(line);
        std::string command;
        size_t index = 0;
        in >> command >> index;
        if (command == "quit")
            break;
        if (index >= windows.size()) {
            std::printf("error no window %zu\n", index);
            std::fflush(stdout);
            continue;
        }
        const xcb_window_t w = windows[index];
        if (command == "move" || command == "resize") {
            int a = 0, b = 0;
            in >> a >> b;
            const Rect before = frameOf(w);
            const std::uint16_t mask = command == "move"
                                           ? XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y
                                           : XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT;
            const std::uint32_t values[] = {std::uint32_t(a), std::uint32_t(b)};
            xcb_configure_window(c, w, mask, values);
            xcb_flush(c);
            const Rect r = waitForChange(w, before);
            std::printf("ok %d %d %d %d\n", r.x, r.y, r.w, r.h);
        } else if (command == "fill") {
            std::string hex;
            in >> hex;
            fill(w, std::uint32_t(std::stoul(hex, nullptr, 16)));
            std::printf("ok\n");
        } else if (command == "iconify") {
            // ICCCM: ask the window manager for IconicState.
            xcb_client_message_event_t e{};
            e.response_type = XCB_CLIENT_MESSAGE;
            e.format = 32;
            e.window = w;
            e.type = wmChangeState;
            e.data.data32[0] = 3;
            xcb_send_event(c, 0, screen->root,
                           XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT |
                               XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                           reinterpret_cast<const char*>(&e));
            xcb_flush(c);
            const std::int64_t until = nowNs() + 2'000'000'000;
            while (viewable(w) && nowNs() < until)
                usleep(5000);
            std::printf("ok\n");
        } else if (command == "flash") {
            int count = 0;
            std::int64_t period = 0, on = 0, start = 0;
            in >> count >> period >> on >> start;
            for (int k = 0; k < count; ++k) {
                const std::int64_t at = start + k * period * 1'000'000;
                sleepUntil(at);
                const std::int64_t before = nowNs();
                fill(w, 0xffffff);
                const std::int64_t after = nowNs();
                std::printf("flash %d %lld\n", k,
                            static_cast<long long>(before + (after - before) / 2));
                std::fflush(stdout);
                sleepUntil(at + on * 1'000'000);
                fill(w, 0x000000);
            }
            std::printf("ok\n");
        } else {
            std::printf("error unknown command\n");
        }
        std::fflush(stdout);
    }
    xcb_disconnect(c);
    return 0;
}
