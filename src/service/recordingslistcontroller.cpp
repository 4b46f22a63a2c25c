#include "recordingslistcontroller.h"

#include "core/notify.h"
#include "core/settings.h"
#include "service/accountsource.h"

#include <algorithm>
#include <utility>

namespace sorv {

RecordingsListController::RecordingsListController(AccountSource& source, QObject* parent)
    : QObject(parent), m_source(source), m_recordings(std::make_unique<RecordingsModel>(source)),
      m_meetings(std::make_unique<MeetingsModel>(source))
{
    m_meetings->setActiveOnly(true);
    connect(m_recordings.get(), &RecordingsModel::refreshed, this, [this] { listIn(true); });
    connect(m_meetings.get(), &MeetingsModel::refreshed, this, [this] { listIn(false); });
    connect(m_meetings.get(), &ListModel::countChanged, this,
            &RecordingsListController::hasActiveBotsChanged);
    connect(m_meetings.get(), &MeetingsModel::stopFinished, this,
            &RecordingsListController::refresh);
    connect(&source, &AccountSource::sessionEnded, this, &RecordingsListController::forgetAccount);
}

void RecordingsListController::forgetAccount()
{
    m_recordings->clear();
    m_meetings->clear();
    m_refreshAgain = false;
    if (std::exchange(m_loading, false))
        Q_EMIT refreshingChanged();
    setAndNotify(this, m_loadError, QString(), &RecordingsListController::loadErrorChanged);
    setState(State::Loading);
}

bool RecordingsListController::isListed(const QString& meetingId) const
{
    const QList<Meeting>& listed = m_meetings->items();
    return std::any_of(listed.cbegin(), listed.cend(),
                       [&](const Meeting& m) { return m.id == meetingId; });
}

void RecordingsListController::refresh()
{
    if (m_loading) {
        m_refreshAgain = true;
        return;
    }
    m_loading = true;
    m_recordingsIn = false;
    m_meetingsIn = false;
    Q_EMIT refreshingChanged();
    if (m_state == State::Error)
        setState(State::Loading);
    m_recordings->refresh();
    m_meetings->refresh();
}

// Only bots of the list on screen: a row left over from another account
// must not send its id with this account's token.
void RecordingsListController::stopMeeting(const QString& meetingId)
{
    if (isListed(meetingId))
        m_meetings->stop(meetingId);
}

void RecordingsListController::showLiveTranscript(const QString& meetingId)
{
    if (!isListed(meetingId))
        return;
    Q_EMIT liveTranscriptRequested(meetingId, Settings::serverOrigin(), m_source.accessToken());
}

void RecordingsListController::listIn(bool recordings)
{
    // Either list may also be refreshed by someone else; the state follows.
    if (!m_loading) {
        settle();
        return;
    }
    (recordings ? m_recordingsIn : m_meetingsIn) = true;
    if (!m_recordingsIn || !m_meetingsIn)
        return;
    m_loading = false;
    settle();
    Q_EMIT refreshingChanged();
    if (std::exchange(m_refreshAgain, false))
        refresh();
}

void RecordingsListController::settle()
{
    setAndNotify(this, m_loadError, m_recordings->error(),
                 &RecordingsListController::loadErrorChanged);
    if (!m_loadError.isEmpty())
        setState(State::Error);
    else if (m_recordings->count() == 0 && m_meetings->count() == 0)
        setState(State::Empty);
    else
        setState(State::Loaded);
}

void RecordingsListController::setState(State state)
{
    setAndNotify(this, m_state, state, &RecordingsListController::stateChanged);
}

} // namespace sorv

#include "moc_recordingslistcontroller.cpp"
