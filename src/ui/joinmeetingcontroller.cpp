#include "joinmeetingcontroller.h"

#include "core/notify.h"
#include "service/accountsource.h"

#include <QPointer>
#include <QVariantMap>

namespace sorv {

JoinMeetingController::JoinMeetingController(AccountSource& source, QObject* parent)
    : JoinMeetingController(source, timerDelayedCall(), parent)
{}

JoinMeetingController::JoinMeetingController(AccountSource& source, DelayedCall after,
                                             QObject* parent)
    : QObject(parent), m_source(source), m_after(std::move(after))
{
    // The next account starts with an empty form.
    connect(&source, &AccountSource::sessionEnded, this, [this] {
        setMeetingUrl(QString());
        setErrorMessage(QString());
        setSucceeded(false);
        setJoining(false);
    });
}

JoinMeetingController::~JoinMeetingController() = default;

void JoinMeetingController::setMeetingUrl(const QString& url)
{
    setAndNotify(this, m_meetingUrl, url, &JoinMeetingController::meetingUrlChanged);
    updateCanJoin();
}

bool JoinMeetingController::canJoin() const
{
    return m_canJoin;
}

QVariantList JoinMeetingController::platforms()
{
    const auto platform = [](const char* name, const char* icon) {
        return QVariantMap{{QStringLiteral("name"), QString::fromLatin1(name)},
                           {QStringLiteral("icon"), QString::fromLatin1(icon)}};
    };
    return {platform("Google Meet", "GoogleMeet"), platform("Microsoft Teams", "MicrosoftTeams"),
            platform("Zoom", "Zoom"), platform("Webex", "Webex")};
}

void JoinMeetingController::join()
{
    const QString link = m_meetingUrl.trimmed();
    if (link.isEmpty() || m_joining)
        return;
    setErrorMessage(QString());
    setSucceeded(false);
    setJoining(true);
    const quint64 session = m_source.sessionGeneration();
    m_source.joinMeeting(link, kBotName, this, [this, session](const ApiResult<Meeting>& result) {
        if (session != m_source.sessionGeneration())
            return;
        if (!result.ok()) {
            setErrorMessage(result.error().description());
            setJoining(false);
            return;
        }
        setSucceeded(true);
        setMeetingUrl(QString());
        Q_EMIT joined(result.value().id);
        m_after(kSwitchDelay, [self = QPointer<JoinMeetingController>(this), session] {
            if (!self || session != self->m_source.sessionGeneration())
                return;
            Q_EMIT self->switchToRecordings();
            // Back on this tab later, the form is ready for the next link.
            self->setSucceeded(false);
            self->setJoining(false);
        });
    });
}

void JoinMeetingController::setJoining(bool joining)
{
    setAndNotify(this, m_joining, joining, &JoinMeetingController::isJoiningChanged);
    updateCanJoin();
}

void JoinMeetingController::setSucceeded(bool succeeded)
{
    setAndNotify(this, m_succeeded, succeeded, &JoinMeetingController::succeededChanged);
}

void JoinMeetingController::setErrorMessage(const QString& message)
{
    setAndNotify(this, m_errorMessage, message, &JoinMeetingController::errorMessageChanged);
}

void JoinMeetingController::updateCanJoin()
{
    setAndNotify(this, m_canJoin, !m_meetingUrl.trimmed().isEmpty() && !m_joining,
                 &JoinMeetingController::canJoinChanged);
}

} // namespace sorv

#include "moc_joinmeetingcontroller.cpp"
