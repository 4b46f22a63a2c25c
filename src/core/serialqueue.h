#pragma once

#include <QObject>
#include <QString>
#include <QThread>

#include <functional>
#include <memory>

namespace sorv {

// A named worker thread with its own event loop that runs posted work in order.
// Everything that is "confined to a queue" lives on one of these; timers that
// belong to the queue are QTimers whose thread affinity is the queue's thread
// (create them inside a posted function, parented to context()).
class SerialQueue {
public:
    explicit SerialQueue(const QString& label);
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    const QString& label() const { return m_label; }

    // Runs fn on the queue's thread, after everything posted before it.
    void post(std::function<void()> fn) const;

    // Runs fn on the queue and waits for it. For shutdown paths, tests and
    // command-line tools only: never call it from the GUI thread while audio runs.
    void postAndWait(const std::function<void()>& fn) const;

    // True when the calling thread is this queue's thread.
    bool isCurrent() const;

    // The object that lives on the queue's thread: the parent for the queue's
    // timers and the context for queued continuations.
    QObject* context() const { return m_context.get(); }

    // Stops the thread after the work already posted. Posting afterwards is a no-op.
    void shutdown();

private:
    QString m_label;
    std::unique_ptr<QThread> m_thread;
    std::unique_ptr<QObject> m_context;
};

} // namespace sorv
