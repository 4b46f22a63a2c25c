#include "serialqueue.h"

#include <QSocketNotifier>
#include <QThread>

#include <cerrno>
#include <cstdint>
#include <latch>
#include <sys/eventfd.h>
#include <unistd.h>

namespace sorv {

class SerialQueueThread : public QThread {
public:
    explicit SerialQueueThread(SerialQueue& queue) : m_queue(queue) {}

    QObject* context() const { return m_context; }
    void waitUntilReady() { m_ready.wait(); }
    void waitUntilFinished()
    {
        m_finished.wait();
        wait();
    }

protected:
    void run() override
    {
        // Everything Qt-side of the queue is created and destroyed on this
        // thread, so no Qt object ever crosses threads.
        QObject context;
        QSocketNotifier notifier(m_queue.m_wakeFd, QSocketNotifier::Read);
        QObject::connect(&notifier, &QSocketNotifier::activated, &context, [this] {
            std::uint64_t value = 0;
            while (::read(m_queue.m_wakeFd, &value, sizeof value) < 0 && errno == EINTR) {
            }
            m_queue.drain();
        });
        m_context = &context;
        m_ready.count_down();
        exec();
        // Whatever was posted before shutdown still runs.
        m_queue.drain();
        m_context = nullptr;
        // QThread::wait() synchronises inside Qt, where ThreadSanitizer cannot
        // see it; this latch makes the end of the thread visible to it too.
        m_finished.count_down();
    }

private:
    SerialQueue& m_queue;
    QObject* m_context = nullptr;
    std::latch m_ready{1};
    std::latch m_finished{1};
};

SerialQueue::SerialQueue(const QString& label)
    : m_label(label), m_wakeFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      m_thread(std::make_unique<SerialQueueThread>(*this))
{
    // Linux thread names are limited to 15 characters; QThread applies the
    // object name to the OS thread when it starts.
    m_thread->setObjectName(label.right(15));
    m_thread->start();
    m_thread->waitUntilReady();
}

SerialQueue::~SerialQueue()
{
    shutdown();
    if (m_wakeFd >= 0)
        ::close(m_wakeFd);
}

QObject* SerialQueue::context() const
{
    return m_thread->context();
}

void SerialQueue::post(std::function<void()> fn) const
{
    enqueue(std::move(fn));
}

bool SerialQueue::enqueue(std::function<void()> fn) const
{
    {
        std::lock_guard lock(m_mutex);
        if (!m_accepting)
            return false;
        m_pending.push_back(std::move(fn));
    }
    const std::uint64_t one = 1;
    while (::write(m_wakeFd, &one, sizeof one) < 0 && errno == EINTR) {
    }
    return true;
}

void SerialQueue::drain()
{
    for (;;) {
        std::function<void()> fn;
        {
            std::lock_guard lock(m_mutex);
            if (m_pending.empty())
                return;
            fn = std::move(m_pending.front());
            m_pending.pop_front();
        }
        fn();
    }
}

void SerialQueue::postAndWait(const std::function<void()>& fn) const
{
    if (isCurrent()) {
        fn();
        return;
    }
    std::latch done(1);
    const bool queued = enqueue([&] {
        fn();
        done.count_down();
    });
    if (queued)
        done.wait();
}

bool SerialQueue::isCurrent() const
{
    return QThread::currentThread() == m_thread.get();
}

void SerialQueue::shutdown()
{
    bool first = false;
    {
        std::lock_guard lock(m_mutex);
        first = m_accepting;
        if (first) {
            m_accepting = false;
            // The last item ends the event loop from inside the thread.
            m_pending.emplace_back([] { QThread::currentThread()->quit(); });
        }
    }
    if (first) {
        const std::uint64_t one = 1;
        while (::write(m_wakeFd, &one, sizeof one) < 0 && errno == EINTR) {
        }
    }
    // From its own work the queue cannot wait for itself; the owner's
    // destructor does.
    if (!isCurrent())
        m_thread->waitUntilFinished();
}

} // namespace sorv
