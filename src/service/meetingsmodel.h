#pragma once

#include "core/listmodel.h"
#include "service/records.h"

#include <QList>
#include <QSet>

namespace sorv {

class AuthManager;

// The account's meeting bots, as the recordings list and the command line
// show them.
class MeetingsModel : public ListModel {
    Q_OBJECT
    Q_PROPERTY(bool hasActive READ hasActive NOTIFY countChanged)
public:
    enum Role {
        IdRole = Qt::UserRole + 1,
        MeetingUrlRole,
        MeetingCodeRole,
        PlatformRole,
        StatusRole,
        BotNameRole,
        CreatedAtRole,
        IsActiveRole,
    };
    Q_ENUM(Role)

    // A bot is active (listed under "ACTIVE BOTS") in one of these states.
    static const QSet<QString>& activeStatuses();
    static bool isActive(const Meeting& meeting);

    explicit MeetingsModel(AuthManager& auth, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    const QList<Meeting>& items() const { return m_items; }
    bool hasActive() const;

public Q_SLOTS:
    // Fetches the list again. A failure empties it and sets `error`.
    void refresh();

Q_SIGNALS:
    void refreshed();

private:
    AuthManager& m_auth;
    QList<Meeting> m_items;
};

} // namespace sorv
