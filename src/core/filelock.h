#pragma once

#include <QString>

#include <chrono>
#include <functional>
#include <memory>

class QObject;

namespace sorv {

// An exclusive lock shared with other processes of the same user (flock on a
// file), for work that two programs must not do at once, such as rotating
// the session's refresh token. Taken without blocking the calling thread:
// when another process holds it, the wait happens on a worker thread.
class FileLock {
public:
    explicit FileLock(QString path);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    // Calls `done` on the context's thread, with true once the lock is held
    // and false when it could not be had within `bound` (or the file cannot
    // be opened). Never synchronously. Not re-entrant: one holder per object.
    void acquire(const QObject* context, std::function<void(bool held)> done,
                 std::chrono::milliseconds bound = std::chrono::seconds(20));

    // Releases the lock; harmless when not held. Any thread.
    void release();

    // Releases it later, from the function's end: for holders that must first
    // finish work on another thread. Returns the function that releases.
    std::function<void()> releaser();

    const QString& path() const { return m_path; }

private:
    struct State;
    QString m_path;
    std::shared_ptr<State> m_state;
};

} // namespace sorv
