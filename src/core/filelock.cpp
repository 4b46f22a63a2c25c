#include "filelock.h"

#include "core/mainthread.h"

#include <QFile>
#include <QObject>
#include <QPointer>

#include <cerrno>
#include <mutex>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace sorv {

struct FileLock::State {
    std::mutex mutex;
    int fd = -1;

    void unlock()
    {
        std::lock_guard guard(mutex);
        if (fd >= 0) {
            ::flock(fd, LOCK_UN);
            ::close(fd);
            fd = -1;
        }
    }
};

namespace {

int openLockFile(const QString& path)
{
    return ::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
}

bool tryLock(int fd)
{
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EINTR)
            return false;
    }
    return true;
}

} // namespace

FileLock::FileLock(QString path) : m_path(std::move(path)), m_state(std::make_shared<State>()) {}

FileLock::~FileLock()
{
    release();
}

void FileLock::acquire(const QObject* context, std::function<void(bool)> done,
                       std::chrono::milliseconds bound)
{
    const QPointer<const QObject> guard(context);
    auto answer = [guard, done = std::move(done)](bool held) {
        postToMainThread(guard, [done, held] { done(held); });
    };
    const int fd = openLockFile(m_path);
    if (fd < 0) {
        answer(false);
        return;
    }
    if (tryLock(fd)) {
        {
            std::lock_guard lock(m_state->mutex);
            m_state->fd = fd;
        }
        answer(true);
        return;
    }
    // Another process holds it: wait for it elsewhere, in small steps, so a
    // holder that hangs cannot keep us waiting for ever.
    std::thread([state = m_state, fd, bound, answer] {
        const auto deadline = std::chrono::steady_clock::now() + bound;
        bool held = false;
        while (!(held = tryLock(fd)) && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        if (held) {
            std::lock_guard lock(state->mutex);
            state->fd = fd;
        } else {
            ::close(fd);
        }
        answer(held);
    }).detach();
}

void FileLock::release()
{
    m_state->unlock();
}

std::function<void()> FileLock::releaser()
{
    return [state = m_state] { state->unlock(); };
}

} // namespace sorv
