#include "pendingrecordings.h"

#include "core/format.h"
#include "core/mainthread.h"
#include "core/paths.h"
#include "core/recordingfilelock.h"
#include "recording/uploadfailurelog.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QRegularExpression>

#include <algorithm>
#include <map>
#include <memory>

namespace sorv {

namespace {

const char* const kLeftByACrash = QT_TRANSLATE_NOOP("PendingRecordings", "Left by a crash");

// sorvelandrix_SECONDS[-N]: the second the recording started at.
QDateTime startOf(const QFileInfo& file)
{
    static const QRegularExpression name(QStringLiteral("^sorvelandrix_(\\d+)(-\\d+)?$"));
    const QRegularExpressionMatch match = name.match(file.completeBaseName());
    if (match.hasMatch())
        return QDateTime::fromSecsSinceEpoch(match.captured(1).toLongLong());
    return file.lastModified();
}

} // namespace

QStringList recordingCompanions(const QString& path)
{
    if (!path.endsWith(QStringLiteral(".mp4")))
        return {};
    const QString wav = path.chopped(4) + QStringLiteral(".wav");
    return QFileInfo::exists(wav) ? QStringList{wav} : QStringList{};
}

std::vector<PendingRecording> scanPendingRecordings(const QString& dir, const Mp4Remuxer& remux)
{
    std::vector<PendingRecording> rows;
    if (dir.isEmpty())
        return rows;
    // One entry per recording: the MP4 when there is one, with its WAV.
    std::map<QString, QStringList> byStem;
    const QFileInfoList files = QDir(dir).entryInfoList(
        {QStringLiteral("sorvelandrix_*.wav"), QStringLiteral("sorvelandrix_*.mp4")}, QDir::Files,
        QDir::Name);
    for (const QFileInfo& file : files)
        byStem[file.absolutePath() + QLatin1Char('/') + file.completeBaseName()]
            << file.absoluteFilePath();

    for (const auto& [stem, paths] : byStem) {
        // Held while it is looked at and repaired, so nobody starts sending
        // it half repaired; one held by someone else is not ours to list.
        std::vector<RecordingFileLock> locks;
        bool busy = false;
        for (const QString& path : paths) {
            locks.push_back(RecordingFileLock::tryLock(path));
            busy = busy || locks.back().status() == RecordingFileLock::Status::Busy;
        }
        if (busy)
            continue;
        const QString mp4 = stem + QStringLiteral(".mp4");
        const QString wav = stem + QStringLiteral(".wav");
        PendingRecording row;
        row.path = paths.contains(mp4) ? mp4 : wav;
        row.companions =
            paths.contains(mp4) && paths.contains(wav) ? QStringList{wav} : QStringList{};
        row.startedAt = startOf(QFileInfo(row.path));

        RepairResult wavResult;
        if (paths.contains(wav))
            wavResult = repairWav(wav);
        RepairResult result = wavResult;
        if (row.path == mp4) {
            result = repairMp4(mp4, remux);
            // The sound of a video recording is its WAV's: say how long that is.
            if (wavResult.ok)
                result.seconds = std::max(result.seconds, wavResult.seconds);
            result.repaired = result.repaired || wavResult.repaired;
        }
        row.seconds = result.seconds;
        row.damaged = !result.ok && !result.needsRemux;
        row.needsRemux = result.needsRemux;
        for (const QString& path : paths)
            row.bytes += QFileInfo(path).size();
        const std::optional<uploadfailurelog::Entry> failure = uploadfailurelog::lookup(row.path);
        if (row.damaged)
            row.reason =
                QCoreApplication::translate("PendingRecordings", "Damaged: %1").arg(result.error);
        else if (failure)
            row.reason = failure->message;
        else
            row.reason = QCoreApplication::translate("PendingRecordings", kLeftByACrash);
        rows.push_back(std::move(row));
    }
    std::stable_sort(rows.begin(), rows.end(),
                     [](const auto& a, const auto& b) { return a.startedAt < b.startedAt; });
    return rows;
}

PendingRecordings::PendingRecordings(Mp4Remuxer remux, QObject* parent)
    : ListModel(parent), m_remux(std::move(remux)), m_self(this)
{
    m_settle.setSingleShot(true);
    m_settle.setInterval(500);
    connect(&m_settle, &QTimer::timeout, this, &PendingRecordings::refresh);
    const QString dir = recordingsDirectory();
    if (!dir.isEmpty())
        m_watcher.addPath(dir);
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, [this] { m_settle.start(); });
}

QHash<int, QByteArray> PendingRecordings::roleNames() const
{
    return {{PathRole, "path"},      {StartedRole, "startedAt"}, {DurationRole, "seconds"},
            {SizeRole, "bytes"},     {ReasonRole, "reason"},     {DamagedRole, "damaged"},
            {SummaryRole, "summary"}};
}

int PendingRecordings::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_rows.size());
}

QVariant PendingRecordings::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    const PendingRecording& row = m_rows[static_cast<size_t>(index.row())];
    switch (role) {
    case Qt::DisplayRole:
    case PathRole:
        return row.path;
    case StartedRole:
        return row.startedAt;
    case DurationRole:
        return row.seconds;
    case SizeRole:
        return row.bytes;
    case ReasonRole:
        return row.reason;
    case DamagedRole:
        return row.damaged;
    case SummaryRole:
        return QStringLiteral("%1 · %2 · %3")
            .arg(QLocale().toString(row.startedAt, QLocale::ShortFormat),
                 formatElapsed(row.seconds), formatBytes(static_cast<double>(row.bytes)));
    default:
        return {};
    }
}

QStringList PendingRecordings::companionsOf(const QString& path) const
{
    for (const PendingRecording& row : m_rows)
        if (row.path == path)
            return row.companions;
    return recordingCompanions(path);
}

void PendingRecordings::refresh()
{
    if (m_scanning) {
        m_again = true;
        return;
    }
    m_scanning = true;
    setLoading(true);
    m_queue.post([self = m_self, remux = m_remux, dir = recordingsDirectory()] {
        std::vector<PendingRecording> rows = scanPendingRecordings(dir, remux);
        postToMainThread(
            QPointer<const QObject>(self.data()),
            [self, rows = std::move(rows)]() mutable { self->scanned(std::move(rows)); });
    });
}

void PendingRecordings::scanned(std::vector<PendingRecording> rows)
{
    m_scanning = false;
    replaceRows(m_rows, std::move(rows));
    if (std::exchange(m_again, false))
        refresh();
    else
        setLoading(false);
}

void PendingRecordings::remove(const QString& path)
{
    const QStringList files = QStringList{path} + companionsOf(path);
    m_queue.post([self = m_self, files] {
        std::vector<RecordingFileLock> locks;
        for (const QString& file : files) {
            locks.push_back(RecordingFileLock::tryLock(file));
            if (locks.back().status() == RecordingFileLock::Status::Busy)
                return;
        }
        for (const QString& file : files)
            QFile::remove(file);
        uploadfailurelog::forget(files.front());
        postToMainThread(QPointer<const QObject>(self.data()), [self] { self->refresh(); });
    });
}

} // namespace sorv

#include "moc_pendingrecordings.cpp"
