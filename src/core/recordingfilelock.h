#pragma once

#include <QString>

#include <cstdint>
#include <optional>

namespace sorv {

// One state of a file: the same file (device and inode), the same length and
// the same modification time. A file whose stamp is unchanged still holds
// what was read from it.
struct FileStamp {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t size = 0;
    std::int64_t modifiedNs = 0;

    static std::optional<FileStamp> ofPath(const QString& path);
    static std::optional<FileStamp> ofDescriptor(int fd);
    friend bool operator==(const FileStamp&, const FileStamp&) = default;
};

// An exclusive lock on a recording file, shared with every process of the
// user (flock on the file itself). Whoever writes a recording holds it from
// the moment the name is taken until the file is closed; whoever sends one
// holds it while it sends. So a file is never sent while it is still
// growing, and never by two programs at once. The lock lives as long as the
// object (or until release()); a process that dies lets go of it.
class RecordingFileLock {
public:
    enum class Status {
        Held,
        Busy,   // another holder has it
        Exists, // create(): the name is taken
        Failed, // the file could not be opened or created: errorString()
    };

    RecordingFileLock() = default;
    ~RecordingFileLock();
    RecordingFileLock(RecordingFileLock&& other) noexcept;
    RecordingFileLock& operator=(RecordingFileLock&& other) noexcept;
    RecordingFileLock(const RecordingFileLock&) = delete;
    RecordingFileLock& operator=(const RecordingFileLock&) = delete;

    // Creates `path` (0600), which must not exist yet, and holds it: two
    // programs asking for the same name can never both have it.
    static RecordingFileLock create(const QString& path);
    // Takes the lock of an existing file, without waiting.
    static RecordingFileLock tryLock(const QString& path);

    // How the taking went.
    Status status() const { return m_status; }
    // Taken and not released yet.
    bool isHeld() const { return m_fd >= 0; }
    const QString& path() const { return m_path; }
    const QString& errorString() const { return m_error; }
    // The locked file as it is now.
    std::optional<FileStamp> stamp() const;

    // Lets go of the lock (harmless when not held). Any thread.
    void release();

private:
    static RecordingFileLock lockOpened(const QString& path, int fd);

    QString m_path;
    QString m_error;
    int m_fd = -1;
    Status m_status = Status::Failed;
};

} // namespace sorv
