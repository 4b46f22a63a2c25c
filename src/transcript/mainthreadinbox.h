#pragma once

#include <QCoreApplication>
#include <QObject>

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace sorv {

// Values on their way to the main thread from any other: a locked list and
// one queued wake-up of the main thread per batch. The values travel under a
// std::mutex rather than inside Qt's event queue, so ThreadSanitizer sees
// the hand-over (Debian's Qt is not built with it). Shared between the
// posting side and its owner; whatever arrives after the owner cleared the
// delivery is dropped.
template <typename T>
class MainThreadInbox : public std::enable_shared_from_this<MainThreadInbox<T>> {
public:
    using Deliver = std::function<void(T&&)>;

    // Main thread; an empty function stops delivery.
    void setDeliver(Deliver deliver) { m_deliver = std::move(deliver); }

    // Any thread.
    void post(T value)
    {
        bool wake = false;
        {
            std::lock_guard lock(m_mutex);
            wake = m_items.empty();
            m_items.push_back(std::move(value));
        }
        if (wake)
            wakeMainThread();
    }

    void post(std::vector<T>&& values)
    {
        if (values.empty())
            return;
        bool wake = false;
        {
            std::lock_guard lock(m_mutex);
            wake = m_items.empty();
            for (T& v : values)
                m_items.push_back(std::move(v));
        }
        if (wake)
            wakeMainThread();
    }

private:
    void wakeMainThread()
    {
        QObject* app = QCoreApplication::instance();
        if (!app)
            return;
        QMetaObject::invokeMethod(
            app,
            [weak = this->weak_from_this()] {
                if (const auto self = weak.lock())
                    self->drain();
            },
            Qt::QueuedConnection);
    }

    void drain()
    {
        std::deque<T> items;
        {
            std::lock_guard lock(m_mutex);
            items.swap(m_items);
        }
        for (T& item : items) {
            if (!m_deliver)
                return;
            // A copy: delivering may end the owner, which clears m_deliver.
            const Deliver deliver = m_deliver;
            deliver(std::move(item));
        }
    }

    std::mutex m_mutex;
    std::deque<T> m_items;
    Deliver m_deliver;
};

} // namespace sorv
