#include "serialqueue.h"

#include <QMetaObject>

#include <latch>

namespace sorv {

SerialQueue::SerialQueue(const QString& label)
    : m_label(label), m_thread(std::make_unique<QThread>()), m_context(std::make_unique<QObject>())
{
    // Linux thread names are limited to 15 characters; QThread applies the
    // object name to the OS thread when it starts.
    m_thread->setObjectName(label.right(15));
    m_context->moveToThread(m_thread.get());
    m_thread->start();
}

SerialQueue::~SerialQueue()
{
    shutdown();
}

void SerialQueue::post(std::function<void()> fn) const
{
    if (!m_thread->isRunning()) return;
    QMetaObject::invokeMethod(m_context.get(), std::move(fn), Qt::QueuedConnection);
}

void SerialQueue::postAndWait(const std::function<void()>& fn) const
{
    if (isCurrent()) {
        fn();
        return;
    }
    if (!m_thread->isRunning()) return;
    std::latch done(1);
    QMetaObject::invokeMethod(
        m_context.get(),
        [&] {
            fn();
            done.count_down();
        },
        Qt::QueuedConnection);
    done.wait();
}

bool SerialQueue::isCurrent() const
{
    return QThread::currentThread() == m_thread.get();
}

void SerialQueue::shutdown()
{
    if (!m_thread || !m_thread->isRunning()) return;
    // Destroy the context (and the timers parented to it) on its own thread,
    // after the work already queued has run.
    QObject* ctx = m_context.release();
    QMetaObject::invokeMethod(
        ctx,
        [ctx] {
            delete ctx;
            QThread::currentThread()->quit();
        },
        Qt::QueuedConnection);
    m_thread->wait();
    m_context.reset(new QObject);
}

} // namespace sorv
