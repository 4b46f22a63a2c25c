#pragma once

#include "core/listmodel.h"
#include "service/records.h"

#include <QList>

namespace sorv {

class AuthManager;

// The recordings of the signed-in account, as the recordings list shows them.
class RecordingsModel : public ListModel {
    Q_OBJECT
public:
    enum Role {
        IdRole = Qt::UserRole + 1,
        TitleRole, // the service's title, else the file name
        FilenameRole,
        StatusRole,
        DateTextRole, // "5 Mar"
        DurationTextRole,
        SpeakerCountRole,
        BatchIdRole,
        BatchIndexRole,
        WebAddressRole,
    };
    Q_ENUM(Role)

    explicit RecordingsModel(AuthManager& auth, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    const QList<Recording>& items() const { return m_items; }

public Q_SLOTS:
    // Fetches the list again; `loading` is true until it is in.
    void refresh();

Q_SIGNALS:
    void refreshed();

private:
    AuthManager& m_auth;
    QList<Recording> m_items;
};

} // namespace sorv
