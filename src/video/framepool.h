#pragma once

#include <QRect>
#include <QSize>
#include <QString>

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace sorv {

// The frames between the screen grab and the encoder: at most five, each a
// shared-memory buffer the X server writes the grab into (or PipeWire's
// thread converts the desktop's picture into) and the encoder reads from, so
// a frame is never copied on its way. The capture thread acquires a
// slot and hands its index to the video queue, which releases it once the
// frame is encoded. A grab that finds all five out is not made: that frame is
// dropped.
class FramePool {
public:
    static constexpr int kCapacity = 5;

    struct Slot {
        std::uint8_t* data = nullptr;
        std::size_t size = 0;
        int fd = -1;                  // the memfd behind `data`, for MIT-SHM attachment
        std::uint32_t generation = 0; // new whenever the buffer is replaced
    };

    FramePool() = default;
    ~FramePool();
    FramePool(const FramePool&) = delete;
    FramePool& operator=(const FramePool&) = delete;

    // A free slot's index, or -1 when all are waiting for the encoder.
    int tryAcquire();
    // Any thread: the slot's frame is done with.
    void release(int index);
    int inUse() const;

    // For the holder of an acquired slot: makes its buffer at least `bytes`
    // long (replacing it, with a new generation, when it is smaller).
    bool reserve(int index, std::size_t bytes, QString* error);
    const Slot& slot(int index) const { return m_slots[static_cast<std::size_t>(index)]; }

private:
    std::array<Slot, kCapacity> m_slots{};
    mutable std::mutex m_mutex;
    std::array<bool, kCapacity> m_busy{};
};

// One captured picture in a pool slot: `size` pixels of bgr0 at `stride`
// bytes a row, to be placed at `destination` inside the video frame (the rest
// is black). An empty size stands for a black frame. With `yuv420` the slot
// holds the whole video frame, converted already (Yuv420Layout::forSize(size)).
struct GrabbedFrame {
    int slot = -1;
    QSize size;
    int stride = 0;
    QRect destination;
    std::int64_t hostTimeNs = 0; // CLOCK_MONOTONIC, the moment of the capture
    bool yuv420 = false;
};

} // namespace sorv
