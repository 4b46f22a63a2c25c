#include "meetingsmodel.h"

#include "service/apiclient.h"
#include "service/authmanager.h"

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

MeetingsModel::MeetingsModel(AuthManager& auth, QObject* parent) : ListModel(parent), m_auth(auth)
{}

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
            {IsActiveRole, "isActive"}};
}

void MeetingsModel::refresh()
{
    setLoading(true);
    APIClient(m_auth).fetchMeetingsResult(this, [this](const ApiResult<QList<Meeting>>& result) {
        replaceRows(m_items, result.ok() ? result.value() : QList<Meeting>());
        setError(result.ok() ? QString() : result.error().description());
        setLoading(false);
        Q_EMIT refreshed();
    });
}

} // namespace sorv
