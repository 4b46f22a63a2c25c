#pragma once

#include "core/listmodel.h"
#include "service/recordingformat.h"
#include "service/records.h"

#include <QList>

namespace sorv {

class AccountSource;

// The recordings of the signed-in account, as the recordings list shows them.
// Recordings that share a batch stand together as one group, ordered by
// their place in the batch (see arrangeRecordings()); a view draws a group's
// header above the row whose `isGroupStart` is true, and every row of a
// batch opens the batch's page.
class RecordingsModel : public sorv::ListModel {
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
        StatusKindRole, // "completed", "error" or "processing"
        InBatchRole,
        GroupPositionRole, // 0-based within the batch; 0 without one
        GroupSizeRole,     // recordings in the batch; 1 without one
        IsGroupStartRole,  // the first row of a batch
        IsGroupEndRole,    // the last row of a batch
    };
    Q_ENUM(Role)

    explicit RecordingsModel(AccountSource& source, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    // In the order the list shows them.
    const QList<Recording>& items() const { return m_items; }

public Q_SLOTS:
    // Fetches the list again; `loading` is true until it is in. An answer
    // that comes back after the session changed is dropped.
    void refresh();
    // No rows, no error, nothing loading (the session ended).
    void clear();

Q_SIGNALS:
    void refreshed();

private:
    void setRecordings(const QList<Recording>& recordings);

    AccountSource& m_source;
    QList<Recording> m_items;
    QList<RecordingPlace> m_places; // beside m_items, row for row
    quint64 m_load = 0;             // the load whose answer is awaited
};

} // namespace sorv
