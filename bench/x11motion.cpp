// Continuous motion on an X display, for the video capture benchmark: a
// full-screen window whose colour bands scroll sideways, a 480×270 "video
// tile" playing a moving plasma, and a pointer circling over it — 30 updates
// a second until killed. Prints "ready" once its window is on screen.

#include <xcb/xcb.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

namespace {

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

std::uint32_t hue(double h)
{
    const auto channel = [&](double offset) {
        return std::uint32_t(127.5 + 127.5 * std::sin(h + offset));
    };
    return (channel(0) << 16) | (channel(2.1) << 8) | channel(4.2);
}

} // namespace

int main()
{
    xcb_connection_t* c = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(c)) {
        std::fprintf(stderr, "x11motion: no X server\n");
        return 1;
    }
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    const int width = screen->width_in_pixels;
    const int height = screen->height_in_pixels;
    // The tile's frames, computed once: a plasma that drifts and turns.
    constexpr int kTileW = 480, kTileH = 270, kTileFrames = 60;
    std::vector<std::vector<std::uint32_t>> tile(kTileFrames,
                                                 std::vector<std::uint32_t>(kTileW * kTileH));
    for (int f = 0; f < kTileFrames; ++f) {
        const double t = f * 2.0 * M_PI / kTileFrames;
        for (int y = 0; y < kTileH; ++y)
            for (int x = 0; x < kTileW; ++x) {
                const double v = std::sin(x / 23.0 + t) + std::sin(y / 17.0 - 2 * t) +
                                 std::sin((x + y) / 31.0 + 3 * t) +
                                 std::sin(std::hypot(x - 240.0, y - 135.0) / 11.0 - t);
                tile[size_t(f)][size_t(y * kTileW + x)] = hue(v * 1.3 + t);
            }
    }

    const xcb_window_t w = xcb_generate_id(c);
    const std::uint32_t values[] = {0x000000};
    xcb_create_window(c, XCB_COPY_FROM_PARENT, w, screen->root, 0, 0, std::uint16_t(width),
                      std::uint16_t(height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                      XCB_CW_BACK_PIXEL, values);
    xcb_map_window(c, w);
    const xcb_gcontext_t gc = xcb_generate_id(c);
    xcb_create_gc(c, gc, w, 0, nullptr);
    // Mapped and on screen before anyone is told to start.
    std::free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
    std::printf("ready\n");
    std::fflush(stdout);

    const int stripe = 8;
    std::int64_t next = nowNs();
    for (std::uint64_t frame = 0;; ++frame) {
        // Bands scroll left; a new one enters on the right.
        xcb_copy_area(c, w, w, gc, stripe, 0, 0, 0, std::uint16_t(width - stripe),
                      std::uint16_t(height));
        const std::uint32_t colour = hue(double(frame) * 0.05);
        xcb_change_gc(c, gc, XCB_GC_FOREGROUND, &colour);
        const xcb_rectangle_t band{std::int16_t(width - stripe), 0, std::uint16_t(stripe),
                                   std::uint16_t(height)};
        xcb_poly_fill_rectangle(c, w, gc, 1, &band);
        // The tile, moving slowly across the screen.
        const int tx = int((width - kTileW) / 2 + (width / 4) * std::sin(double(frame) / 90.0));
        const int ty = int((height - kTileH) / 2 + (height / 4) * std::cos(double(frame) / 70.0));
        const auto& pixels = tile[frame % kTileFrames];
        for (int row = 0; row < kTileH; row += 54) // within the request size limit
            xcb_put_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, w, gc, kTileW, 54, std::int16_t(tx),
                          std::int16_t(ty + row), 0, 24, kTileW * 54 * 4,
                          reinterpret_cast<const std::uint8_t*>(pixels.data() + row * kTileW));
        // The pointer circles.
        const double a = double(frame) / 15.0;
        xcb_warp_pointer(c, XCB_NONE, screen->root, 0, 0, 0, 0,
                         std::int16_t(width / 2 + 300 * std::cos(a)),
                         std::int16_t(height / 2 + 200 * std::sin(a)));
        std::free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
        if (xcb_connection_has_error(c))
            return 0;
        next += 1'000'000'000 / 30;
        sleepUntil(next);
    }
}
