#pragma once

#include "video/framepool.h"
#include "video/yuvframe.h"

#include <QPoint>
#include <QRect>
#include <QSize>
#include <QString>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

struct pw_thread_loop;
struct pw_context;
struct pw_core;
struct pw_stream;
struct spa_hook;
struct spa_pod;
struct spa_meta_cursor;

namespace sorv {

// The pointer as the desktop sends it beside the pictures (the portal's
// cursor mode "metadata"): a position with the pictures, its bitmap only
// when it changes, so the last one is kept. Room for the largest bitmap is
// made up front: updating and drawing allocate nothing, as befits PipeWire's
// thread.
class CursorOverlay {
public:
    static constexpr int kMaxSide = 256;

    CursorOverlay();
    // One buffer's cursor metadata, `metaSize` bytes with its bitmap.
    void update(const spa_meta_cursor& meta, std::size_t metaSize);
    // Onto a bgr0 picture, clipped to it.
    void draw(std::uint8_t* picture, QSize size, int stride) const;
    bool visible() const { return !m_size.isEmpty(); }

private:
    std::vector<std::uint32_t> m_pixels; // premultiplied ARGB, m_size.width() a row
    QSize m_size;                        // empty: nothing to draw
    QPoint m_position;
    QPoint m_hotspot;
};

// A screen-cast video stream from PipeWire: the node the desktop's portal
// shared, on the connection the portal opened. Negotiates 32-bit RGB in
// shared-memory buffers; on PipeWire's own thread each picture is converted
// straight out of the desktop's buffer into a free slot of the frame pool as
// the video's YUV 4:2:0 frame, stamped with CLOCK_MONOTONIC and handed to the
// sink, which posts it on to the encoder. A pointer that comes as metadata is
// drawn onto a copy first (the desktop's buffer is not ours to write).
class PipeWireStream {
public:
    // Called on the PipeWire thread with a filled slot, or with slot -1 for a
    // picture dropped because every slot waits for the encoder; must not
    // block.
    using Sink = std::function<void(const GrabbedFrame& frame)>;
    // Called on the PipeWire thread once when the stream fails or the
    // desktop takes it away.
    using Failure = std::function<void(const QString& message)>;

    ~PipeWireStream();
    PipeWireStream(const PipeWireStream&) = delete;
    PipeWireStream& operator=(const PipeWireStream&) = delete;

    // Takes a duplicate of `fd`. Null with `error` when PipeWire refuses.
    // `cursorMetadata`: the desktop sends the pointer beside the pictures.
    static std::unique_ptr<PipeWireStream> open(int fd, std::uint32_t nodeID,
                                                std::shared_ptr<FramePool> pool,
                                                bool cursorMetadata, QString* error);

    // Blocks the calling (capture) thread until the stream has a format, at
    // most `timeoutMs`; the picture size in `size`.
    bool waitForFormat(int timeoutMs, QSize* size, QString* error);
    // From now on pictures go to `sink`, fitted into `videoSize`; before,
    // they are dropped.
    void setSink(QSize videoSize, Sink sink, Failure failure);

private:
    PipeWireStream() = default;

    static void onStateChanged(void* data, int old, int state, const char* error);
    static void onParamChanged(void* data, std::uint32_t id, const spa_pod* param);
    static void onProcess(void* data);
    void fail(const QString& message);

    pw_thread_loop* m_loop = nullptr;
    pw_context* m_context = nullptr;
    pw_core* m_core = nullptr;
    pw_stream* m_stream = nullptr;
    std::unique_ptr<spa_hook> m_listener;
    std::shared_ptr<FramePool> m_pool;
    // PipeWire thread only:
    std::unique_ptr<CursorOverlay> m_cursor; // null unless asked for
    RgbToYuv m_converter;
    std::vector<std::uint8_t> m_withPointer; // the picture with the pointer drawn in
    struct SlotFrame {
        std::uint32_t generation = 0;
        QRect destination; // where the last picture went: the black around it is there
    };
    std::array<SlotFrame, FramePool::kCapacity> m_slotFrames{};
    std::int64_t m_conversionFailures = 0;

    std::mutex m_mutex;
    std::condition_variable m_formatKnown;
    QSize m_size;          // negotiated picture size
    bool m_swapRB = false; // RGBx/RGBA: red first in memory
    QString m_error;
    QSize m_videoSize;
    Sink m_sink;
    Failure m_failure;
};

} // namespace sorv
