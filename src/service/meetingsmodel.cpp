#include "meetingsmodel.h"

#include "core/notify.h"
#include "service/accountsource.h"
#include "service/recordingformat.h"

#include <algorithm>

namespace sorv {

const QSet<QString>& MeetingsModel::activeStatuses()
{
    static const QSet<QString> statuses{QStringLiteral("joining"), QStringLiteral("waiting_room"),
                                        QStringLiteral("in_meeting"), QStringLiteral("recording")};
    return statuses;
}

bool MeetingsModel::isActive(const Meeting& meeting)
{
    return activeStatuses().contains(meeting.status);
}

MeetingsModel::MeetingsModel(AccountSource& source, QObject* parent)
    : ListModel(parent), m_source(source), m_now([] { return QDateTime::currentDateTimeUtc(); })
{
    m_ageTimer.setInterval(kAgeRefreshMs);
    connect(&m_ageTimer, &QTimer::timeout, this, &MeetingsModel::updateAges);
}

int MeetingsModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_items.size());
}

bool MeetingsModel::hasActive() const
{
    return std::any_of(m_items.cbegin(), m_items.cend(), &MeetingsModel::isActive);
}

QVariant MeetingsModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const Meeting& m = m_items.at(index.row());
    const auto optional = [](const std::optional<QString>& v) {
        return v ? QVariant(*v) : QVariant();
    };
    switch (role) {
    case Qt::DisplayRole:
    case MeetingUrlRole:
        return m.meeting_url.value_or(m.meeting_code);
    case IdRole:
        return m.id;
    case MeetingCodeRole:
        return m.meeting_code;
    case PlatformRole:
        return m.platform;
    case StatusRole:
        return m.status;
    case BotNameRole:
        return optional(m.bot_name);
    case CreatedAtRole:
        return optional(m.created_at);
    case IsActiveRole:
        return isActive(m);
    case AgeTextRole:
        return formatRelativeAge(m.created_at, m_now());
    case IsStoppingRole:
        return !m_stoppingId.isEmpty() && m.id == m_stoppingId;
    default:
        return {};
    }
}

QHash<int, QByteArray> MeetingsModel::roleNames() const
{
    return {{IdRole, "meetingId"},
            {MeetingUrlRole, "meetingUrl"},
            {MeetingCodeRole, "meetingCode"},
            {PlatformRole, "platform"},
            {StatusRole, "status"},
            {BotNameRole, "botName"},
            {CreatedAtRole, "createdAt"},
            {IsActiveRole, "isActive"},
            {AgeTextRole, "ageText"},
            {IsStoppingRole, "isStopping"}};
}

void MeetingsModel::setActiveOnly(bool activeOnly)
{
    if (m_activeOnly == activeOnly)
        return;
    m_activeOnly = activeOnly;
    showRows();
    Q_EMIT activeOnlyChanged();
}

void MeetingsModel::setClock(std::function<QDateTime()> now)
{
    m_now = std::move(now);
    updateAges();
}

void MeetingsModel::showRows()
{
    QList<Meeting> rows;
    for (const Meeting& m : std::as_const(m_all)) {
        if (!m_activeOnly || isActive(m))
            rows.append(m);
    }
    replaceRows(m_items, std::move(rows));
    if (m_items.isEmpty())
        m_ageTimer.stop();
    else if (!m_ageTimer.isActive())
        m_ageTimer.start();
}

void MeetingsModel::refresh()
{
    setLoading(true);
    const quint64 load = ++m_load;
    const quint64 session = m_source.sessionGeneration();
    m_source.fetchMeetings(this, [this, load, session](const ApiResult<QList<Meeting>>& result) {
        if (load != m_load || session != m_source.sessionGeneration())
            return;
        m_all = result.ok() ? result.value() : QList<Meeting>();
        showRows();
        setError(result.ok() ? QString() : result.error().description());
        setLoading(false);
        Q_EMIT refreshed();
    });
}

void MeetingsModel::stop(const QString& id)
{
    if (!m_stoppingId.isEmpty() || id.isEmpty())
        return;
    setStoppingId(id);
    setAndNotify(this, m_stopError, QString(), &MeetingsModel::stopErrorChanged);
    const quint64 session = m_source.sessionGeneration();
    m_source.stopMeeting(id, this, [this, id, session](const std::optional<APIError>& error) {
        if (session != m_source.sessionGeneration())
            return;
        setStoppingId(QString());
        const QString text = error ? error->description() : QString();
        setAndNotify(this, m_stopError, text, &MeetingsModel::stopErrorChanged);
        Q_EMIT stopFinished(id, text);
    });
}

void MeetingsModel::clear()
{
    ++m_load;
    m_all.clear();
    showRows();
    setStoppingId(QString());
    setAndNotify(this, m_stopError, QString(), &MeetingsModel::stopErrorChanged);
    setError({});
    setLoading(false);
}

void MeetingsModel::updateAges()
{
    if (m_items.isEmpty())
        return;
    Q_EMIT dataChanged(index(0), index(static_cast<int>(m_items.size()) - 1), {AgeTextRole});
}

void MeetingsModel::setStoppingId(const QString& id)
{
    const QString before = m_stoppingId;
    if (before == id)
        return;
    m_stoppingId = id;
    rowsOfIdChanged(before, IsStoppingRole);
    rowsOfIdChanged(id, IsStoppingRole);
    Q_EMIT stoppingIdChanged();
}

void MeetingsModel::rowsOfIdChanged(const QString& id, int role)
{
    if (id.isEmpty())
        return;
    for (qsizetype row = 0; row < m_items.size(); ++row) {
        if (m_items.at(row).id == id)
            Q_EMIT dataChanged(index(static_cast<int>(row)), index(static_cast<int>(row)), {role});
    }
}

} // namespace sorv

#include "moc_meetingsmodel.cpp"
