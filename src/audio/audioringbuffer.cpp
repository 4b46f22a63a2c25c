#include "audioringbuffer.h"

#include <algorithm>
#include <cstring>

namespace sorv {

AudioRingBuffer::AudioRingBuffer(std::int64_t capacity)
    : m_buffer(static_cast<size_t>(std::max<std::int64_t>(capacity, 1)), 0.0f),
      m_capacity(std::max<std::int64_t>(capacity, 1))
{}

void AudioRingBuffer::write(std::span<const float> samples)
{
    std::lock_guard lock(m_lock);
    auto n = static_cast<std::int64_t>(samples.size());
    const float* src = samples.data();
    // Only the newest `capacity` samples can survive; skip the rest up front
    // but account for them as overwritten.
    if (n > m_capacity) {
        const std::int64_t skipped = n - m_capacity;
        src += skipped;
        n = m_capacity;
        m_writeIndex = (m_writeIndex + skipped) % m_capacity;
        m_readIndex = m_writeIndex;
        m_count = 0;
    }
    // Copy in at most two contiguous runs.
    std::int64_t remaining = n;
    while (remaining > 0) {
        const std::int64_t run = std::min(remaining, m_capacity - m_writeIndex);
        std::memcpy(m_buffer.data() + m_writeIndex, src, static_cast<size_t>(run) * sizeof(float));
        src += run;
        remaining -= run;
        m_writeIndex = (m_writeIndex + run) % m_capacity;
    }
    const std::int64_t overflow = std::max<std::int64_t>(0, m_count + n - m_capacity);
    m_count = std::min(m_capacity, m_count + n);
    m_readIndex = (m_readIndex + overflow) % m_capacity;
}

std::int64_t AudioRingBuffer::read(std::span<float> out)
{
    std::lock_guard lock(m_lock);
    const std::int64_t k = std::min(m_count, static_cast<std::int64_t>(out.size()));
    std::int64_t copied = 0;
    while (copied < k) {
        const std::int64_t run = std::min(k - copied, m_capacity - m_readIndex);
        std::memcpy(out.data() + copied, m_buffer.data() + m_readIndex,
                    static_cast<size_t>(run) * sizeof(float));
        copied += run;
        m_readIndex = (m_readIndex + run) % m_capacity;
    }
    m_count -= k;
    return k;
}

std::vector<float> AudioRingBuffer::read(std::int64_t n)
{
    std::vector<float> out(static_cast<size_t>(std::max<std::int64_t>(n, 0)));
    out.resize(static_cast<size_t>(read(std::span<float>(out))));
    return out;
}

void AudioRingBuffer::clear()
{
    std::lock_guard lock(m_lock);
    m_writeIndex = m_readIndex = m_count = 0;
}

std::int64_t AudioRingBuffer::count() const
{
    std::lock_guard lock(m_lock);
    return m_count;
}

} // namespace sorv
