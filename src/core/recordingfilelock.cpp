#include "recordingfilelock.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sorv {

namespace {

std::optional<FileStamp> stampOf(const struct stat& st)
{
    FileStamp s;
    s.device = st.st_dev;
    s.inode = st.st_ino;
    s.size = st.st_size;
    s.modifiedNs =
        static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1'000'000'000 + st.st_mtim.tv_nsec;
    return s;
}

QString systemError(const QString& path, int error)
{
    return QStringLiteral("%1: %2").arg(path, QString::fromLocal8Bit(std::strerror(error)));
}

} // namespace

std::optional<FileStamp> FileStamp::ofPath(const QString& path)
{
    struct stat st {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return std::nullopt;
    return stampOf(st);
}

std::optional<FileStamp> FileStamp::ofDescriptor(int fd)
{
    struct stat st {};
    if (fd < 0 || ::fstat(fd, &st) != 0)
        return std::nullopt;
    return stampOf(st);
}

RecordingFileLock::~RecordingFileLock()
{
    release();
}

RecordingFileLock::RecordingFileLock(RecordingFileLock&& other) noexcept
    : m_path(std::move(other.m_path)), m_error(std::move(other.m_error)),
      m_fd(std::exchange(other.m_fd, -1)), m_status(std::exchange(other.m_status, Status::Failed))
{}

RecordingFileLock& RecordingFileLock::operator=(RecordingFileLock&& other) noexcept
{
    if (this != &other) {
        release();
        m_path = std::move(other.m_path);
        m_error = std::move(other.m_error);
        m_fd = std::exchange(other.m_fd, -1);
        m_status = std::exchange(other.m_status, Status::Failed);
    }
    return *this;
}

RecordingFileLock RecordingFileLock::lockOpened(const QString& path, int fd)
{
    RecordingFileLock lock;
    lock.m_path = path;
    int rc = 0;
    while ((rc = ::flock(fd, LOCK_EX | LOCK_NB)) != 0 && errno == EINTR) {
    }
    if (rc != 0 && errno == EWOULDBLOCK) {
        ::close(fd);
        lock.m_status = Status::Busy;
        return lock;
    }
    // A file system without locks cannot tell anyone: go on as if held
    // rather than refuse every recording there.
    lock.m_fd = fd;
    lock.m_status = Status::Held;
    return lock;
}

RecordingFileLock RecordingFileLock::create(const QString& path)
{
    const int fd =
        ::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) {
        RecordingFileLock lock;
        lock.m_path = path;
        lock.m_status = errno == EEXIST ? Status::Exists : Status::Failed;
        lock.m_error = systemError(path, errno);
        return lock;
    }
    return lockOpened(path, fd);
}

RecordingFileLock RecordingFileLock::tryLock(const QString& path)
{
    // flock does not care how the file was opened: reading is enough, and
    // works for files we may not write.
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        RecordingFileLock lock;
        lock.m_path = path;
        lock.m_error = systemError(path, errno);
        return lock;
    }
    return lockOpened(path, fd);
}

std::optional<FileStamp> RecordingFileLock::stamp() const
{
    return FileStamp::ofDescriptor(m_fd);
}

void RecordingFileLock::release()
{
    // Closing the last descriptor of the open file lets go of its flock.
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}

} // namespace sorv
