#include "transcriptlistmodel.h"

#include "transcript/livetranscriptmanager.h"
#include "transcript/localtranscriptmanager.h"
#include "transcript/servertranscriptmanager.h"
#include "transcript/speakercolors.h"

namespace sorv {

TranscriptListModel::TranscriptListModel(QObject* parent) : QAbstractListModel(parent) {}

int TranscriptListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : count();
}

QVariant TranscriptListModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_rows.size())
        return {};
    const TranscriptSegment& s = m_rows.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case TextRole:
        return s.text;
    case SegmentIdRole:
        return QVariant::fromValue<qint64>(s.id);
    case SpeakerRole:
        return s.speaker;
    case DisplayNameRole:
        return s.displayName;
    case TimestampRole:
        return s.timestamp.value_or(QString());
    case ColorIndexRole:
        return colorIndexForSpeaker(s.speaker);
    case ColorRole:
        return colorForSpeaker(s.speaker);
    case AccessibleNameRole:
        return tr("%1 said: %2").arg(s.displayName, s.text);
    default:
        return {};
    }
}

QHash<int, QByteArray> TranscriptListModel::roleNames() const
{
    return {{SegmentIdRole, "segmentId"},     {SpeakerRole, "speaker"},
            {DisplayNameRole, "displayName"}, {TextRole, "text"},
            {TimestampRole, "timestamp"},     {ColorIndexRole, "colorIndex"},
            {ColorRole, "speakerColor"},      {AccessibleNameRole, "accessibleName"}};
}

QString TranscriptListModel::placeholder() const
{
    return tr("Waiting for speech...");
}

int TranscriptListModel::colorIndexForSpeaker(const QString& speaker) const
{
    return speakerColorIndex(speaker, m_speakers);
}

QString TranscriptListModel::colorForSpeaker(const QString& speaker) const
{
    return speakerPaletteColorName(colorIndexForSpeaker(speaker));
}

template <typename Manager> void TranscriptListModel::followManager(const Manager* manager)
{
    for (const auto& c : std::as_const(m_connections))
        disconnect(c);
    m_connections.clear();
    m_source = {};
    if (manager) {
        m_source = [manager] { return &manager->segments(); };
        m_connections << connect(manager, &Manager::segmentAppended, this,
                                 &TranscriptListModel::appended);
        m_connections << connect(manager, &Manager::segmentTextChanged, this, [this](int row) {
            changed(row, {Qt::DisplayRole, TextRole, AccessibleNameRole});
        });
        m_connections << connect(manager, &Manager::segmentsCleared, this,
                                 &TranscriptListModel::resync);
        m_connections << connect(manager, &QObject::destroyed, this,
                                 [this] { followManager<Manager>(nullptr); });
    }
    resync();
}

void TranscriptListModel::follow(const ServerTranscriptManager* manager)
{
    followManager(manager);
    if (manager) {
        m_connections << connect(manager, &ServerTranscriptManager::segmentDisplayNameChanged, this,
                                 [this](int row) {
                                     changed(row, {DisplayNameRole, AccessibleNameRole});
                                 });
        m_connections << connect(manager, &ServerTranscriptManager::segmentsTrimmed, this,
                                 [this](int dropped) { trimmed(dropped); });
    }
}

void TranscriptListModel::follow(const LocalTranscriptManager* manager)
{
    followManager(manager);
}

void TranscriptListModel::follow(const LiveTranscriptManager* manager)
{
    followManager(manager);
    if (manager) {
        // A very long meeting drops its oldest lines in batches: the rows go
        // from the top, and the colours follow the speakers still on screen.
        m_connections << connect(manager, &LiveTranscriptManager::segmentsTrimmed, this,
                                 [this](int dropped) { trimmed(dropped); });
    }
}

void TranscriptListModel::trimmed(int dropped)
{
    const QList<TranscriptSegment>& source = *m_source();
    if (dropped <= 0 || dropped > m_rows.size() || m_rows.size() - dropped > source.size()) {
        resync();
        return;
    }
    beginRemoveRows({}, 0, dropped - 1);
    m_rows.remove(0, dropped);
    endRemoveRows();
    const QStringList before = m_speakers;
    m_speakers = speakersInOrder(m_rows);
    if (m_speakers != before && !m_rows.isEmpty())
        Q_EMIT dataChanged(index(0), index(count() - 1), {ColorIndexRole, ColorRole});
    Q_EMIT countChanged();
}

void TranscriptListModel::resync()
{
    const int before = count();
    beginResetModel();
    m_rows = m_source ? *m_source() : QList<TranscriptSegment>();
    m_speakers = speakersInOrder(m_rows);
    endResetModel();
    if (count() != before)
        Q_EMIT countChanged();
}

void TranscriptListModel::appended(int row)
{
    const QList<TranscriptSegment>& source = *m_source();
    // Appends arrive one at a time; anything else means we lost step.
    if (row != m_rows.size() || row >= source.size()) {
        resync();
        return;
    }
    beginInsertRows({}, row, row);
    m_rows.append(source.at(row));
    if (!m_speakers.contains(m_rows.last().speaker))
        m_speakers << m_rows.last().speaker;
    endInsertRows();
    Q_EMIT countChanged();
}

void TranscriptListModel::changed(int row, const QList<int>& roles)
{
    const QList<TranscriptSegment>& source = *m_source();
    if (row < 0 || row >= m_rows.size() || row >= source.size() ||
        source.at(row).id != m_rows.at(row).id) {
        resync();
        return;
    }
    m_rows[row] = source.at(row);
    const QModelIndex at = index(row);
    Q_EMIT dataChanged(at, at, roles);
}

} // namespace sorv

#include "moc_transcriptlistmodel.cpp"
