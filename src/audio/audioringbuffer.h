#pragma once

#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

namespace sorv {

// A fixed-capacity FIFO of float samples for one source. When full, a write
// overwrites the oldest samples (they are lost). Every whole write and read
// takes the buffer's own lock.
class AudioRingBuffer {
public:
    static constexpr std::int64_t kDefaultCapacity = 96'000; // two seconds at 48 kHz

    explicit AudioRingBuffer(std::int64_t capacity = kDefaultCapacity);

    void write(std::span<const float> samples);

    // Copies up to out.size() of the oldest unread samples into out and returns
    // how many it copied; the caller pads the rest.
    std::int64_t read(std::span<float> out);

    // Convenience for tests and tools: at most n samples.
    std::vector<float> read(std::int64_t n);

    void clear();
    std::int64_t count() const;
    std::int64_t capacity() const { return m_capacity; }

private:
    mutable std::mutex m_lock;
    std::vector<float> m_buffer;
    std::int64_t m_writeIndex = 0;
    std::int64_t m_readIndex = 0;
    std::int64_t m_count = 0;
    std::int64_t m_capacity;
};

} // namespace sorv
