#pragma once

#include "core/listmodel.h"
#include "service/records.h"

#include <QDateTime>
#include <QList>
#include <QSet>
#include <QTimer>

#include <functional>

namespace sorv {

class AccountSource;

// The account's meeting bots, as the recordings list and the command line
// show them: every bot, or (activeOnly) only those still at work, the
// "ACTIVE BOTS" of the recordings list. A bot can be stopped from here;
// `stoppingId` names the one being stopped meanwhile, and its row says so.
// Ages ("5m ago") are kept current while the list is shown.
class MeetingsModel : public sorv::ListModel {
    Q_OBJECT
    Q_PROPERTY(bool hasActive READ hasActive NOTIFY countChanged)
    Q_PROPERTY(bool activeOnly READ activeOnly WRITE setActiveOnly NOTIFY activeOnlyChanged)
    Q_PROPERTY(QString stoppingId READ stoppingId NOTIFY stoppingIdChanged)
    // Why the last stop failed; empty when it did not.
    Q_PROPERTY(QString stopError READ stopError NOTIFY stopErrorChanged)
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
        AgeTextRole,    // "Just now", "5m ago", …; empty from a week on
        IsStoppingRole, // this bot is being stopped
    };
    Q_ENUM(Role)

    static constexpr int kAgeRefreshMs = 30'000;

    // A bot is active (listed under "ACTIVE BOTS") in one of these states.
    static const QSet<QString>& activeStatuses();
    static bool isActive(const Meeting& meeting);

    explicit MeetingsModel(AccountSource& source, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    const QList<Meeting>& items() const { return m_items; }
    bool hasActive() const;
    bool activeOnly() const { return m_activeOnly; }
    void setActiveOnly(bool activeOnly);
    QString stoppingId() const { return m_stoppingId; }
    QString stopError() const { return m_stopError; }

    // Where the ages are measured from (tests); the current UTC time by default.
    void setClock(std::function<QDateTime()> now);

public Q_SLOTS:
    // Fetches the list again. A failure empties it and sets `error`.
    void refresh();
    // Takes a bot out of its meeting. One at a time: ignored while another
    // stop runs. stopFinished() follows; the owner refreshes the lists then.
    void stop(const QString& id);
    // The ages again, as time has passed.
    void updateAges();
    // No rows, no error, no stop under way (the session ended); answers
    // to requests sent before are dropped.
    void clear();

Q_SIGNALS:
    void refreshed();
    void activeOnlyChanged();
    void stoppingIdChanged();
    void stopErrorChanged();
    // `error` is empty when the bot was stopped.
    void stopFinished(const QString& id, const QString& error);

private:
    void showRows();
    void setStoppingId(const QString& id);
    void rowsOfIdChanged(const QString& id, int role);

    AccountSource& m_source;
    QList<Meeting> m_all;   // as fetched
    QList<Meeting> m_items; // the rows shown
    bool m_activeOnly = false;
    QString m_stoppingId;
    QString m_stopError;
    std::function<QDateTime()> m_now;
    QTimer m_ageTimer;
    quint64 m_load = 0; // the list request whose answer is awaited
};

} // namespace sorv
