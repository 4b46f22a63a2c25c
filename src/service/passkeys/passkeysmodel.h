#pragma once

#include "core/listmodel.h"
#include "service/records.h"

#include <QList>
#include <QString>

#include <optional>

namespace sorv {

class AccountSource;

// The account's passkeys as the passkeys sheet shows them: the list with its
// loading and load error (ListModel's `loading` and `error`), adding one for
// this computer, and removing one after the user confirms. Main thread.
class PasskeysModel : public sorv::ListModel {
    Q_OBJECT
    Q_PROPERTY(bool registering READ registering NOTIFY registeringChanged)
    Q_PROPERTY(QString addButtonText READ addButtonText NOTIFY registeringChanged)
    Q_PROPERTY(QString actionError READ actionError NOTIFY actionErrorChanged)
    Q_PROPERTY(bool isEmpty READ isEmpty NOTIFY isEmptyChanged)
    Q_PROPERTY(bool confirmingRemoval READ confirmingRemoval NOTIFY pendingDeleteChanged)
    Q_PROPERTY(QString pendingDeleteTitle READ pendingDeleteTitle NOTIFY pendingDeleteChanged)
public:
    enum Role {
        IdRole = Qt::UserRole + 1,
        TitleRole,
        AddedTextRole,
        LastUsedTextRole,
        BackupEligibleRole,
        RemoveLabelRole,
    };
    Q_ENUM(Role)

    // Row texts, shared with the command line.
    static QString titleOf(const Passkey& passkey);
    static QString addedText(const Passkey& passkey);
    static QString lastUsedText(const Passkey& passkey);

    // `source` must outlive the model.
    explicit PasskeysModel(AccountSource& source, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    const QList<Passkey>& items() const { return m_items; }
    bool registering() const { return m_registering; }
    QString addButtonText() const;
    QString actionError() const { return m_actionError; }
    // The empty state: loaded, without an error, and nothing in it.
    bool isEmpty() const;
    bool confirmingRemoval() const { return m_pendingDelete.has_value(); }
    QString pendingDeleteTitle() const;

public Q_SLOTS:
    // Fetches the list (when the sheet opens, and on "Retry"). A newer load
    // makes the answer of an older one irrelevant.
    void reload();
    // Registers a passkey without a label; the new one goes to the top.
    void add();
    // Asks for confirmation before removing `id`.
    void requestRemove(qint64 id);
    void cancelRemove();
    // Forgets the rows, the errors and a pending removal (the sheet closed,
    // or the session ended); answers still on their way are dropped.
    void clear();
    // Removes the passkey awaiting confirmation; a failure keeps its row.
    void confirmRemove();

Q_SIGNALS:
    void registeringChanged();
    void actionErrorChanged();
    void isEmptyChanged();
    void pendingDeleteChanged();

private:
    void setRegistering(bool value);
    void setActionError(const QString& error);
    void setPendingDelete(std::optional<Passkey> passkey);
    void removeRowsOf(qint64 id);
    void updateEmpty();

    AccountSource& m_source;
    QList<Passkey> m_items;
    bool m_registering = false;
    QString m_actionError;
    std::optional<Passkey> m_pendingDelete;
    bool m_loadedOnce = false;
    bool m_isEmpty = false;
    quint64 m_loadGeneration = 0;
    // Bumped by clear(): adds and removals sent before it are dropped.
    quint64 m_actionGeneration = 0;
};

} // namespace sorv
