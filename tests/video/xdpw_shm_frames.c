// Preloaded into xdg-desktop-portal-wlr 0.7 so that it shares a screen that
// only has shared-memory buffers. Its Start refuses any output for which the
// compositor sent no DMA-BUF format (screencast.c, start_screencast: the test
// compares the portal's interface version where the screencopy version was
// meant), and a compositor without a render node (wlroots' pixman renderer)
// never sends one. Passing on the shared-memory format as the DMA-BUF one gets
// past that check; with no DMA-BUF modifiers from the compositor the portal
// then offers PipeWire shared memory only, which is what it would have done.

#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdint.h>
#include <string.h>

struct wl_proxy;
typedef void (*handler)(void);
typedef void (*buffer_handler)(void*, struct wl_proxy*, uint32_t, uint32_t, uint32_t, uint32_t);
typedef void (*dmabuf_handler)(void*, struct wl_proxy*, uint32_t, uint32_t, uint32_t);
typedef int (*add_listener)(struct wl_proxy*, handler*, void*);

const char* wl_proxy_get_class(struct wl_proxy* proxy);

// zwlr_screencopy_frame_v1 events: buffer, flags, ready, failed, damage,
// linux_dmabuf, buffer_done. The portal registers one listener for all frames.
enum { kBuffer = 0, kLinuxDmabuf = 5, kEvents = 7 };
static handler* portalListener;
static handler listener[kEvents];

static void onBuffer(void* data, struct wl_proxy* frame, uint32_t shmFormat, uint32_t width,
                     uint32_t height, uint32_t stride)
{
    ((buffer_handler)portalListener[kBuffer])(data, frame, shmFormat, width, height, stride);
    // wl_shm's codes are DRM fourccs except its first two.
    const uint32_t fourcc = shmFormat == 0   ? 0x34325241 // AR24
                            : shmFormat == 1 ? 0x34325258 // XR24
                                             : shmFormat;
    ((dmabuf_handler)portalListener[kLinuxDmabuf])(data, frame, fourcc, width, height);
}

int wl_proxy_add_listener(struct wl_proxy* proxy, handler* implementation, void* data)
{
    static add_listener next;
    if (!next)
        next = (add_listener)dlsym(RTLD_NEXT, "wl_proxy_add_listener");
    if (strcmp(wl_proxy_get_class(proxy), "zwlr_screencopy_frame_v1") == 0) {
        portalListener = implementation;
        memcpy(listener, implementation, sizeof listener);
        listener[kBuffer] = (handler)onBuffer;
        implementation = listener;
    }
    return next(proxy, implementation, data);
}
