#include "recordingsmodel.h"

#include "service/accountsource.h"
#include "service/requestrules.h"

namespace sorv {

RecordingsModel::RecordingsModel(AccountSource& source, QObject* parent)
    : ListModel(parent), m_source(source)
{}

int RecordingsModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_items.size());
}

QVariant RecordingsModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const Recording& r = m_items.at(index.row());
    const RecordingPlace& place = m_places.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case TitleRole:
        return r.ai_title.value_or(r.original_filename);
    case IdRole:
        return r.id;
    case FilenameRole:
        return r.original_filename;
    case StatusRole:
        return r.status;
    case DateTextRole:
        return formatRecordingDate(r.created_at);
    case DurationTextRole:
        return r.duration_ms ? formatDurationMs(*r.duration_ms) : QStringLiteral("--");
    case SpeakerCountRole:
        return r.speaker_list ? static_cast<int>(r.speaker_list->size()) : 0;
    case BatchIdRole:
        return r.batch_id ? QVariant(*r.batch_id) : QVariant();
    case BatchIndexRole:
        return r.batch_index ? QVariant(*r.batch_index) : QVariant();
    case WebAddressRole:
        return recordingWebAddress(r);
    case StatusKindRole:
        return recordingStatusKind(r.status);
    case InBatchRole:
        return place.inBatch;
    case GroupPositionRole:
        return place.groupPosition;
    case GroupSizeRole:
        return place.groupSize;
    case IsGroupStartRole:
        return place.inBatch && place.groupPosition == 0;
    case IsGroupEndRole:
        return place.inBatch && place.groupPosition == place.groupSize - 1;
    default:
        return {};
    }
}

QHash<int, QByteArray> RecordingsModel::roleNames() const
{
    return {{IdRole, "recordingId"},
            {TitleRole, "title"},
            {FilenameRole, "filename"},
            {StatusRole, "status"},
            {DateTextRole, "dateText"},
            {DurationTextRole, "durationText"},
            {SpeakerCountRole, "speakerCount"},
            {BatchIdRole, "batchId"},
            {BatchIndexRole, "batchIndex"},
            {WebAddressRole, "webAddress"},
            {StatusKindRole, "statusKind"},
            {InBatchRole, "inBatch"},
            {GroupPositionRole, "groupPosition"},
            {GroupSizeRole, "groupSize"},
            {IsGroupStartRole, "isGroupStart"},
            {IsGroupEndRole, "isGroupEnd"}};
}

void RecordingsModel::setRecordings(const QList<Recording>& recordings)
{
    const QList<RecordingPlace> places = arrangeRecordings(recordings);
    QList<Recording> ordered;
    ordered.reserve(places.size());
    for (const RecordingPlace& place : places)
        ordered.append(recordings.at(place.source));
    const qsizetype before = m_items.size();
    beginResetModel();
    m_items = std::move(ordered);
    m_places = places;
    endResetModel();
    if (m_items.size() != before)
        Q_EMIT countChanged();
}

void RecordingsModel::refresh()
{
    setLoading(true);
    const quint64 load = ++m_load;
    const quint64 session = m_source.sessionGeneration();
    m_source.fetchRecordings(this, [this, load, session](const RecordingsFetchResult& result) {
        if (load != m_load || session != m_source.sessionGeneration())
            return;
        setRecordings(result.recordings);
        setError(result.error.value_or(QString()));
        setLoading(false);
        Q_EMIT refreshed();
    });
}

void RecordingsModel::clear()
{
    ++m_load;
    setRecordings({});
    setError({});
    setLoading(false);
}

} // namespace sorv

#include "moc_recordingsmodel.cpp"
