#include "framepool.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

namespace sorv {

namespace {
void unmap(FramePool::Slot& s)
{
    if (s.data)
        ::munmap(s.data, s.size);
    if (s.fd >= 0)
        ::close(s.fd);
    s.data = nullptr;
    s.size = 0;
    s.fd = -1;
}
} // namespace

FramePool::~FramePool()
{
    for (Slot& s : m_slots)
        unmap(s);
}

int FramePool::tryAcquire()
{
    std::lock_guard lock(m_mutex);
    for (int i = 0; i < kCapacity; ++i) {
        if (!m_busy[static_cast<std::size_t>(i)]) {
            m_busy[static_cast<std::size_t>(i)] = true;
            return i;
        }
    }
    return -1;
}

void FramePool::release(int index)
{
    if (index < 0 || index >= kCapacity)
        return;
    std::lock_guard lock(m_mutex);
    m_busy[static_cast<std::size_t>(index)] = false;
}

int FramePool::inUse() const
{
    std::lock_guard lock(m_mutex);
    int n = 0;
    for (bool b : m_busy)
        n += b ? 1 : 0;
    return n;
}

bool FramePool::reserve(int index, std::size_t bytes, QString* error)
{
    Slot& s = m_slots[static_cast<std::size_t>(index)];
    if (s.data && s.size >= bytes)
        return true;
    unmap(s);
    const int fd = ::memfd_create("sorvelandrix-frame", MFD_CLOEXEC);
    if (fd < 0 || ::ftruncate(fd, static_cast<off_t>(bytes)) != 0) {
        if (error)
            *error = QStringLiteral("cannot allocate a frame buffer: %1")
                         .arg(QString::fromLocal8Bit(std::strerror(errno)));
        if (fd >= 0)
            ::close(fd);
        return false;
    }
    // Populated now rather than page by page during the first grabs.
    void* p = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, fd, 0);
    if (p == MAP_FAILED) {
        if (error)
            *error = QStringLiteral("cannot map a frame buffer: %1")
                         .arg(QString::fromLocal8Bit(std::strerror(errno)));
        ::close(fd);
        return false;
    }
    s.data = static_cast<std::uint8_t*>(p);
    s.size = bytes;
    s.fd = fd;
    // Unique across pools: a grabber that outlives a pool must not take a new
    // buffer for the one it attached before.
    static std::atomic<std::uint32_t> generations{0};
    s.generation = ++generations;
    return true;
}

} // namespace sorv
