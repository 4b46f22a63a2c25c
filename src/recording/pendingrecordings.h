#pragma once

#include "core/listmodel.h"
#include "core/serialqueue.h"
#include "recording/recordingrepair.h"

#include <QDateTime>
#include <QFileSystemWatcher>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <functional>
#include <vector>

namespace sorv {

// One recording in the recordings folder that the service does not have.
struct PendingRecording {
    QString path;           // what an upload sends: the MP4 of a video recording, else the WAV
    QStringList companions; // deleted with it after an upload (the WAV beside an MP4)
    QDateTime startedAt;
    double seconds = 0;
    qint64 bytes = 0; // all of its files
    QString reason;   // why it is here, when known
    bool damaged = false;
    // Left by a crash and not repaired yet, because this program cannot.
    bool needsRemux = false;
};

// The files that belong with a recording: the WAV beside an MP4.
QStringList recordingCompanions(const QString& path);

// Every recording in `dir` not uploaded yet, oldest first. A file that
// another process holds (still being written, or being sent) is left out; a
// file left by a crash is repaired first (see recordingrepair.h). Slow: runs
// off the GUI thread.
std::vector<PendingRecording> scanPendingRecordings(const QString& dir, const Mp4Remuxer& remux);

// The recordings not uploaded yet, as a list the views show: kept up to
// date while the folder changes. Main thread; the scan runs on a worker.
class PendingRecordings : public sorv::ListModel {
    Q_OBJECT
public:
    enum Role {
        PathRole = Qt::UserRole + 1,
        StartedRole,
        DurationRole,
        SizeRole,
        ReasonRole,
        DamagedRole,
        SummaryRole, // start, length and size in words
    };

    explicit PendingRecordings(Mp4Remuxer remux, QObject* parent = nullptr);

    QHash<int, QByteArray> roleNames() const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

    const std::vector<PendingRecording>& recordings() const { return m_rows; }
    // The companions of the recording at `path` (for an upload).
    Q_INVOKABLE QStringList companionsOf(const QString& path) const;

    // What the row's buttons do beyond the folder (the application's).
    void setUploadHandler(std::function<void(const QString& path)> upload)
    {
        m_upload = std::move(upload);
    }
    void setShowInFolderHandler(std::function<void(const QString& path)> show)
    {
        m_showInFolder = std::move(show);
    }
    Q_INVOKABLE void upload(const QString& path)
    {
        if (m_upload)
            m_upload(path);
    }
    Q_INVOKABLE void showInFolder(const QString& path)
    {
        if (m_showInFolder)
            m_showInFolder(path);
    }

    // Looks at the folder again (coalesced: one scan at a time).
    Q_INVOKABLE void refresh();
    // Deletes a recording and its companions, unless another program holds it.
    Q_INVOKABLE void remove(const QString& path);

private:
    void scanned(std::vector<PendingRecording> rows);

    Mp4Remuxer m_remux;
    std::function<void(const QString&)> m_upload;
    std::function<void(const QString&)> m_showInFolder;
    std::vector<PendingRecording> m_rows;
    SerialQueue m_queue{QStringLiteral("com.sorvelandrix.pending")};
    QFileSystemWatcher m_watcher;
    QTimer m_settle; // a burst of folder changes makes one scan
    QPointer<PendingRecordings> m_self;
    bool m_scanning = false;
    bool m_again = false;
};

} // namespace sorv
