#pragma once

#include "service/meetingsmodel.h"
#include "service/recordingsmodel.h"

#include <QObject>
#include <QString>

namespace sorv {

class AccountSource;

// What the "Recordings" tab shows: the account's active meeting bots and
// its recordings, loaded together, and which of four states the tab is in.
//
//   Loading  until the first load is in (and again on a retry after an error)
//   Error    the recordings could not be fetched: `loadError` says why
//   Empty    no recordings and no active bot
//   Loaded   "ACTIVE BOTS" (when `hasActiveBots`), then "RECORDINGS"
//
// A meetings list that cannot be fetched only leaves the bots' section out.
// Stopping a bot refreshes both lists afterwards (its recording appears).
class RecordingsListController : public QObject {
    Q_OBJECT
    Q_PROPERTY(sorv::RecordingsModel* recordings READ recordings CONSTANT)
    Q_PROPERTY(sorv::MeetingsModel* activeMeetings READ activeMeetings CONSTANT)
    Q_PROPERTY(State state READ state NOTIFY stateChanged)
    // A load is under way (also when the list stays on screen meanwhile).
    Q_PROPERTY(bool refreshing READ refreshing NOTIFY refreshingChanged)
    Q_PROPERTY(QString loadError READ loadError NOTIFY loadErrorChanged)
    Q_PROPERTY(bool hasActiveBots READ hasActiveBots NOTIFY hasActiveBotsChanged)

public:
    enum class State { Loading, Loaded, Empty, Error };
    Q_ENUM(State)

    explicit RecordingsListController(AccountSource& source, QObject* parent = nullptr);

    RecordingsModel* recordings() const { return m_recordings.get(); }
    MeetingsModel* activeMeetings() const { return m_meetings.get(); }
    State state() const { return m_state; }
    bool refreshing() const { return m_loading; }
    QString loadError() const { return m_loadError; }
    bool hasActiveBots() const { return m_meetings->count() > 0; }

    // Loads both lists (when the tab appears, "Refresh", "Retry"); ignored
    // while a load is under way.
    Q_INVOKABLE void refresh();
    // "Stop" on an active bot's row.
    Q_INVOKABLE void stopMeeting(const QString& meetingId);
    // "Live" on an active bot's row: asks for the floating transcript panel
    // with the current origin and access token.
    Q_INVOKABLE void showLiveTranscript(const QString& meetingId);

Q_SIGNALS:
    void stateChanged();
    void refreshingChanged();
    void loadErrorChanged();
    void hasActiveBotsChanged();
    void liveTranscriptRequested(const QString& meetingId, const QString& serverURL,
                                 const QString& token);

private:
    void listIn(bool recordings);
    void settle();
    void setState(State state);
    // Signed out: nothing of the account stays, and nothing sent for it
    // comes back.
    void forgetAccount();
    bool isListed(const QString& meetingId) const;

    AccountSource& m_source;
    std::unique_ptr<RecordingsModel> m_recordings;
    std::unique_ptr<MeetingsModel> m_meetings;
    State m_state = State::Loading;
    QString m_loadError;
    bool m_loading = false;
    bool m_recordingsIn = false;
    bool m_meetingsIn = false;
    // Asked for while a load was out (a bot stopped meanwhile): the load
    // may predate what changed, so another follows it.
    bool m_refreshAgain = false;
};

} // namespace sorv
