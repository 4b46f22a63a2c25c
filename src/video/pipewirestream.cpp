#include "pipewirestream.h"

#include "core/log.h"
#include "core/monotonicclock.h"
#include "video/capturearea.h"
#include "video/videolog.h"
#include "video/x11screengrabber.h"

#include <pipewire/pipewire.h>
#include <spa/buffer/meta.h>
#include <spa/param/buffers.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/builder.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <unistd.h>

namespace sorv {

namespace {

constexpr int kMaxSide = 16384;
constexpr int kFramesPerSecond = 30;

void initPipeWire()
{
    static std::once_flag once;
    std::call_once(once, [] { pw_init(nullptr, nullptr); });
}

// Each 32-bit layout we take: blue or red first in memory. The fourth byte is
// never read.
const std::array<spa_video_format, 4> kFormats{SPA_VIDEO_FORMAT_BGRx, SPA_VIDEO_FORMAT_BGRA,
                                               SPA_VIDEO_FORMAT_RGBx, SPA_VIDEO_FORMAT_RGBA};

const spa_pod* formatParam(spa_pod_builder* b)
{
    const spa_rectangle defaultSize{1920, 1080};
    const spa_rectangle minSize{1, 1};
    const spa_rectangle maxSize{kMaxSide, kMaxSide};
    const spa_fraction defaultRate{kFramesPerSecond, 1};
    const spa_fraction minRate{0, 1};
    const spa_fraction maxRate{kFramesPerSecond, 1};
    spa_pod_frame f{};
    spa_pod_builder_push_object(b, &f, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    spa_pod_builder_add(
        b, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype,
        SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), SPA_FORMAT_VIDEO_format,
        SPA_POD_CHOICE_ENUM_Id(5, kFormats[0], kFormats[0], kFormats[1], kFormats[2], kFormats[3]),
        SPA_FORMAT_VIDEO_size, SPA_POD_CHOICE_RANGE_Rectangle(&defaultSize, &minSize, &maxSize),
        SPA_FORMAT_VIDEO_framerate, SPA_POD_CHOICE_RANGE_Fraction(&defaultRate, &minRate, &maxRate),
        0);
    return static_cast<const spa_pod*>(spa_pod_builder_pop(b, &f));
}

// Plain memory or memfd only: a DMA-BUF is never asked for (without
// modifiers in the format a producer falls back to shared memory).
const spa_pod* buffersParam(spa_pod_builder* b, int stride, int height)
{
    spa_pod_frame f{};
    spa_pod_builder_push_object(b, &f, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers);
    spa_pod_builder_add(
        b, SPA_PARAM_BUFFERS_buffers, SPA_POD_CHOICE_RANGE_Int(4, 2, 8), SPA_PARAM_BUFFERS_blocks,
        SPA_POD_Int(1), SPA_PARAM_BUFFERS_size, SPA_POD_Int(stride * height),
        SPA_PARAM_BUFFERS_stride, SPA_POD_Int(stride), SPA_PARAM_BUFFERS_dataType,
        SPA_POD_CHOICE_FLAGS_Int((1 << SPA_DATA_MemPtr) | (1 << SPA_DATA_MemFd)), 0);
    return static_cast<const spa_pod*>(spa_pod_builder_pop(b, &f));
}

constexpr int cursorMetaSize(int side)
{
    return int(sizeof(spa_meta_cursor) + sizeof(spa_meta_bitmap)) + side * side * 4;
}

// Room for the pointer's metadata with a bitmap of up to 256×256.
const spa_pod* cursorMetaParam(spa_pod_builder* b)
{
    spa_pod_frame f{};
    spa_pod_builder_push_object(b, &f, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta);
    spa_pod_builder_add(b, SPA_PARAM_META_type, SPA_POD_Id(SPA_META_Cursor), SPA_PARAM_META_size,
                        SPA_POD_CHOICE_RANGE_Int(cursorMetaSize(64), cursorMetaSize(1),
                                                 cursorMetaSize(CursorOverlay::kMaxSide)),
                        0);
    return static_cast<const spa_pod*>(spa_pod_builder_pop(b, &f));
}

// Byte positions of alpha, red, green and blue in a bitmap's pixel; false for
// a layout without alpha, which no pointer comes in.
bool cursorLayout(std::uint32_t format, std::array<int, 4>* argb)
{
    switch (format) {
    case SPA_VIDEO_FORMAT_RGBA:
        *argb = {3, 0, 1, 2};
        return true;
    case SPA_VIDEO_FORMAT_BGRA:
        *argb = {3, 2, 1, 0};
        return true;
    case SPA_VIDEO_FORMAT_ARGB:
        *argb = {0, 1, 2, 3};
        return true;
    case SPA_VIDEO_FORMAT_ABGR:
        *argb = {0, 3, 2, 1};
        return true;
    default:
        return false;
    }
}

} // namespace

CursorOverlay::CursorOverlay() : m_pixels(std::size_t(kMaxSide) * kMaxSide) {}

void CursorOverlay::update(const spa_meta_cursor& meta, std::size_t metaSize)
{
    // Id 0: nothing new about the pointer.
    if (!spa_meta_cursor_is_valid(&meta))
        return;
    m_position = QPoint(meta.position.x, meta.position.y);
    // Offset 0: the same bitmap as before.
    if (meta.bitmap_offset < sizeof(spa_meta_cursor) ||
        std::size_t(meta.bitmap_offset) + sizeof(spa_meta_bitmap) > metaSize)
        return;
    const auto* base = reinterpret_cast<const std::uint8_t*>(&meta);
    spa_meta_bitmap bitmap{};
    std::memcpy(&bitmap, base + meta.bitmap_offset, sizeof bitmap);
    if (!spa_meta_bitmap_is_valid(&bitmap))
        return;
    // A bitmap without image data: the pointer is hidden.
    m_size = QSize();
    const int width = int(bitmap.size.width);
    const int height = int(bitmap.size.height);
    std::array<int, 4> argb{};
    if (bitmap.offset < sizeof(spa_meta_bitmap) || width <= 0 || height <= 0 || width > kMaxSide ||
        height > kMaxSide || bitmap.stride < width * 4 || !cursorLayout(bitmap.format, &argb) ||
        std::size_t(meta.bitmap_offset) + bitmap.offset +
                std::size_t(bitmap.stride) * std::size_t(height - 1) + std::size_t(width) * 4 >
            metaSize)
        return;
    const std::uint8_t* pixels = base + meta.bitmap_offset + bitmap.offset;
    for (int y = 0; y < height; ++y) {
        const std::uint8_t* row = pixels + std::ptrdiff_t(y) * bitmap.stride;
        std::uint32_t* out = m_pixels.data() + std::ptrdiff_t(y) * width;
        for (int x = 0; x < width; ++x, row += 4) {
            // Straight alpha in, premultiplied out (what drawCursor blends).
            const std::uint32_t a = row[argb[0]];
            const auto pre = [a](std::uint32_t c) { return (c * a + 127) / 255; };
            out[x] = (a << 24) | (pre(row[argb[1]]) << 16) | (pre(row[argb[2]]) << 8) |
                     pre(row[argb[3]]);
        }
    }
    m_size = QSize(width, height);
    m_hotspot = QPoint(meta.hotspot.x, meta.hotspot.y);
}

void CursorOverlay::draw(std::uint8_t* picture, QSize size, int stride) const
{
    if (!m_size.isEmpty())
        drawCursor(picture, size, stride, m_pixels.data(), m_size, m_position - m_hotspot);
}

std::unique_ptr<PipeWireStream> PipeWireStream::open(int fd, std::uint32_t nodeID,
                                                     std::shared_ptr<FramePool> pool,
                                                     bool cursorMetadata, QString* error)
{
    initPipeWire();
    std::unique_ptr<PipeWireStream> s(new PipeWireStream);
    s->m_pool = std::move(pool);
    if (cursorMetadata)
        s->m_cursor = std::make_unique<CursorOverlay>();
    s->m_loop = pw_thread_loop_new("sorv-screencast", nullptr);
    if (!s->m_loop) {
        *error = QStringLiteral("cannot make a PipeWire loop");
        return nullptr;
    }
    s->m_context = pw_context_new(pw_thread_loop_get_loop(s->m_loop), nullptr, 0);
    if (!s->m_context || pw_thread_loop_start(s->m_loop) < 0) {
        *error = QStringLiteral("cannot start PipeWire");
        return nullptr;
    }
    pw_thread_loop_lock(s->m_loop);
    const int own = fcntl(fd, F_DUPFD_CLOEXEC, 3);
    s->m_core = own >= 0 ? pw_context_connect_fd(s->m_context, own, nullptr, 0) : nullptr;
    if (!s->m_core) {
        pw_thread_loop_unlock(s->m_loop);
        *error = QStringLiteral("cannot connect to the desktop's PipeWire remote");
        return nullptr;
    }
    s->m_stream = pw_stream_new(s->m_core, "Sorvelandrix screen",
                                pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY,
                                                  "Capture", PW_KEY_MEDIA_ROLE, "Screen", nullptr));
    static const pw_stream_events events = [] {
        pw_stream_events e{};
        e.version = PW_VERSION_STREAM_EVENTS;
        e.state_changed = [](void* data, pw_stream_state old, pw_stream_state state,
                             const char* why) { onStateChanged(data, int(old), int(state), why); };
        e.param_changed = &PipeWireStream::onParamChanged;
        e.process = &PipeWireStream::onProcess;
        return e;
    }();
    s->m_listener = std::make_unique<spa_hook>();
    pw_stream_add_listener(s->m_stream, s->m_listener.get(), &events, s.get());
    std::array<std::uint8_t, 1024> buffer{};
    spa_pod_builder b{};
    spa_pod_builder_init(&b, buffer.data(), std::uint32_t(buffer.size()));
    const spa_pod* params[] = {formatParam(&b)};
    const int rc = pw_stream_connect(
        s->m_stream, PW_DIRECTION_INPUT, nodeID,
        static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS),
        params, 1);
    pw_thread_loop_unlock(s->m_loop);
    if (rc < 0) {
        *error = QStringLiteral("cannot connect to the shared screen: %1")
                     .arg(QString::fromLocal8Bit(strerror(-rc)));
        return nullptr;
    }
    return s;
}

PipeWireStream::~PipeWireStream()
{
    if (m_loop)
        pw_thread_loop_stop(m_loop);
    // Our own disconnect is no failure to report.
    if (m_listener && m_stream)
        spa_hook_remove(m_listener.get());
    if (m_stream)
        pw_stream_destroy(m_stream);
    if (m_core)
        pw_core_disconnect(m_core);
    if (m_context)
        pw_context_destroy(m_context);
    if (m_loop)
        pw_thread_loop_destroy(m_loop);
}

bool PipeWireStream::waitForFormat(int timeoutMs, QSize* size, QString* error)
{
    std::unique_lock lock(m_mutex);
    m_formatKnown.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                           [this] { return m_size.isValid() || !m_error.isEmpty(); });
    if (m_size.isValid()) {
        *size = m_size;
        return true;
    }
    *error =
        m_error.isEmpty() ? QStringLiteral("the shared screen sent no picture format") : m_error;
    return false;
}

void PipeWireStream::setSink(QSize videoSize, Sink sink, Failure failure)
{
    const std::lock_guard lock(m_mutex);
    m_videoSize = videoSize;
    m_sink = std::move(sink);
    m_failure = std::move(failure);
    if (!m_error.isEmpty() && m_failure)
        std::exchange(m_failure, nullptr)(m_error);
}

void PipeWireStream::fail(const QString& message)
{
    Failure failure;
    {
        const std::lock_guard lock(m_mutex);
        if (!m_error.isEmpty())
            return;
        m_error = message;
        failure = std::exchange(m_failure, nullptr);
    }
    m_formatKnown.notify_all();
    if (failure)
        failure(message);
}

void PipeWireStream::onStateChanged(void* data, int old, int state, const char* error)
{
    auto* self = static_cast<PipeWireStream*>(data);
    qCInfo(lcVideo, "Screen stream: %s → %s", pw_stream_state_as_string(pw_stream_state(old)),
           pw_stream_state_as_string(pw_stream_state(state)));
    if (state == PW_STREAM_STATE_ERROR)
        self->fail(QStringLiteral("the shared screen's stream failed: %1")
                       .arg(QString::fromUtf8(error ? error : "unknown error")));
    else if (state == PW_STREAM_STATE_UNCONNECTED && old != PW_STREAM_STATE_UNCONNECTED)
        self->fail(QStringLiteral("the desktop stopped the shared screen's stream"));
}

void PipeWireStream::onParamChanged(void* data, std::uint32_t id, const spa_pod* param)
{
    auto* self = static_cast<PipeWireStream*>(data);
    if (param == nullptr || id != SPA_PARAM_Format)
        return;
    spa_video_info_raw info{};
    if (spa_format_video_raw_parse(param, &info) < 0)
        return;
    const QSize size(int(info.size.width), int(info.size.height));
    if (size.isEmpty() || size.width() > kMaxSide || size.height() > kMaxSide)
        return;
    {
        const std::lock_guard lock(self->m_mutex);
        self->m_size = size;
        self->m_swapRB =
            info.format == SPA_VIDEO_FORMAT_RGBx || info.format == SPA_VIDEO_FORMAT_RGBA;
    }
    qCInfo(lcVideo, "Screen stream format: %u (SPA video format), %dx%d", unsigned(info.format),
           size.width(), size.height());
    self->m_formatKnown.notify_all();
    std::array<std::uint8_t, 1024> buffer{};
    spa_pod_builder b{};
    spa_pod_builder_init(&b, buffer.data(), std::uint32_t(buffer.size()));
    const spa_pod* params[] = {buffersParam(&b, size.width() * 4, size.height()),
                               cursorMetaParam(&b)};
    pw_stream_update_params(self->m_stream, params, self->m_cursor ? 2 : 1);
}

void PipeWireStream::onProcess(void* data)
{
    auto* self = static_cast<PipeWireStream*>(data);
    pw_buffer* buffer = nullptr;
    // Only the newest picture counts; older ones queued behind it go back,
    // though not before the pointer they carry is taken.
    while (pw_buffer* next = pw_stream_dequeue_buffer(self->m_stream)) {
        if (buffer)
            pw_stream_queue_buffer(self->m_stream, buffer);
        buffer = next;
        if (self->m_cursor)
            if (const spa_meta* m = spa_buffer_find_meta(buffer->buffer, SPA_META_Cursor);
                m && m->size >= sizeof(spa_meta_cursor))
                self->m_cursor->update(*static_cast<const spa_meta_cursor*>(m->data), m->size);
    }
    if (!buffer)
        return;
    const std::int64_t now = monotonicNowNs();
    const spa_data& d = buffer->buffer->datas[0];
    std::unique_lock lock(self->m_mutex);
    const QSize size = self->m_size;
    const int rowBytes = size.width() * 4;
    const bool usable = self->m_sink && d.data && d.chunk && d.chunk->size > 0 &&
                        (d.chunk->flags & SPA_CHUNK_FLAG_CORRUPTED) == 0 && size.isValid();
    const int stride = d.chunk && d.chunk->stride > 0 ? d.chunk->stride : rowBytes;
    const std::size_t offset =
        d.chunk ? d.chunk->offset % std::max<std::uint32_t>(d.maxsize, 1) : 0;
    const bool fits =
        usable && stride >= rowBytes &&
        offset + std::size_t(stride) * std::size_t(size.height() - 1) + std::size_t(rowBytes) <=
            d.maxsize;
    const int slot = fits ? self->m_pool->tryAcquire() : -1;
    if (fits && slot < 0) {
        // Five already wait for the encoder.
        pw_stream_queue_buffer(self->m_stream, buffer);
        GrabbedFrame dropped;
        dropped.hostTimeNs = now;
        self->m_sink(dropped);
        return;
    }
    const QSize videoSize = self->m_videoSize;
    const Yuv420Layout layout = Yuv420Layout::forSize(videoSize);
    QString why;
    if (slot >= 0 && !self->m_pool->reserve(slot, layout.bytes, &why)) {
        self->m_pool->release(slot);
        pw_stream_queue_buffer(self->m_stream, buffer);
        return;
    }
    if (slot >= 0) {
        const auto* src = static_cast<const std::uint8_t*>(d.data) + offset;
        const QRect full(QPoint(0, 0), videoSize);
        const QRect destination = size == videoSize ? full : letterboxRect(size, videoSize);
        const FramePool::Slot& out = self->m_pool->slot(slot);
        const auto planes = layout.planes(out.data);
        // The black around a smaller picture is painted once per slot, and
        // again only when the picture's place in the frame changes.
        SlotFrame& last = self->m_slotFrames[std::size_t(slot)];
        if (destination != full &&
            (last.generation != out.generation || last.destination != destination))
            fillBlack(planes, layout.linesize, videoSize);
        last = {out.generation, destination};
        const std::uint8_t* picture = src;
        int pictureStride = stride;
        auto order = self->m_swapRB ? RgbToYuv::Order::Rgb0 : RgbToYuv::Order::Bgr0;
        if (self->m_cursor && self->m_cursor->visible()) {
            self->m_withPointer.resize(std::size_t(rowBytes) * std::size_t(size.height()));
            std::uint8_t* dst = self->m_withPointer.data();
            for (int y = 0; y < size.height(); ++y) {
                const std::uint8_t* s = src + std::ptrdiff_t(y) * stride;
                std::uint8_t* o = dst + std::ptrdiff_t(y) * rowBytes;
                if (!self->m_swapRB) {
                    std::memcpy(o, s, std::size_t(rowBytes));
                    continue;
                }
                for (int x = 0; x < rowBytes; x += 4) {
                    o[x] = s[x + 2];
                    o[x + 1] = s[x + 1];
                    o[x + 2] = s[x];
                    o[x + 3] = 0;
                }
            }
            self->m_cursor->draw(dst, size, rowBytes);
            picture = dst;
            pictureStride = rowBytes;
            order = RgbToYuv::Order::Bgr0;
        }
        if (!self->m_converter.convert(picture, size, pictureStride, order, planes, layout.linesize,
                                       destination, &why)) {
            if (logThinned(++self->m_conversionFailures, 3))
                qCWarning(lcVideo, "Screen stream: %s", qPrintable(why));
            self->m_pool->release(slot);
            pw_stream_queue_buffer(self->m_stream, buffer);
            return;
        }
    }
    pw_stream_queue_buffer(self->m_stream, buffer);
    if (slot < 0)
        return;
    GrabbedFrame frame;
    frame.slot = slot;
    frame.size = videoSize;
    frame.destination = QRect(QPoint(0, 0), videoSize);
    frame.hostTimeNs = now;
    frame.yuv420 = true;
    self->m_sink(frame);
}

} // namespace sorv
