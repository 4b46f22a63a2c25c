#pragma once

#include <QObject>
#include <QString>

#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace sorv {

class SerialQueueThread;

// A named worker thread with its own event loop that runs posted work in order.
// Everything that is "confined to a queue" lives on one of these; timers that
// belong to the queue are QTimers whose thread affinity is the queue's thread
// (create them inside a posted function, parented to context()).
//
// Work is handed over through an instrumented std::mutex and an eventfd that
// wakes the thread's event loop, never through Qt's cross-thread events: the
// hand-over is then visible to ThreadSanitizer (Debian's Qt is not built with
// it), so the audio path's threading is actually checked.
class SerialQueue {
public:
    explicit SerialQueue(const QString& label);
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    const QString& label() const { return m_label; }

    // Runs fn on the queue's thread, after everything posted before it.
    // After shutdown() it does nothing.
    void post(std::function<void()> fn) const;

    // Runs fn on the queue and waits for it. For shutdown paths, tests and
    // command-line tools only: never call it from the GUI thread while audio runs.
    void postAndWait(const std::function<void()>& fn) const;

    // True when the calling thread is this queue's thread.
    bool isCurrent() const;

    // The object that lives on the queue's thread: the parent for the queue's
    // timers and the context for queued continuations.
    QObject* context() const;

    // Runs the work already posted, then stops the thread. Idempotent.
    void shutdown();

private:
    friend class SerialQueueThread;
    bool enqueue(std::function<void()> fn) const;
    void drain();

    QString m_label;
    int m_wakeFd = -1;
    mutable std::mutex m_mutex;
    mutable std::deque<std::function<void()>> m_pending;
    bool m_accepting = true;
    std::unique_ptr<SerialQueueThread> m_thread;
};

} // namespace sorv
