#include "accountsource.h"

#include "service/apiclient.h"
#include "service/authmanager.h"
#include "service/passkeys/passkeyoperations.h"

#include <QTimer>

namespace sorv {

ServiceAccountSource::ServiceAccountSource(AuthManager& auth, PasskeyOperations* passkeys,
                                           QObject* parent)
    : AccountSource(parent), m_auth(auth), m_passkeys(passkeys)
{
    connect(&auth, &AuthManager::sessionEnded, this, &AccountSource::sessionEnded);
}

quint64 ServiceAccountSource::sessionGeneration() const
{
    return m_auth.sessionGeneration();
}

QString ServiceAccountSource::accessToken() const
{
    return m_auth.accessToken();
}

void ServiceAccountSource::fetchRecordings(const QObject* context,
                                           std::function<void(RecordingsFetchResult)> done)
{
    m_auth.fetchRecordings(context, std::move(done));
}

void ServiceAccountSource::fetchMeetings(const QObject* context,
                                         std::function<void(ApiResult<QList<Meeting>>)> done)
{
    APIClient(m_auth).fetchMeetingsResult(context, std::move(done));
}

void ServiceAccountSource::joinMeeting(const QString& meetingUrl, const QString& botName,
                                       const QObject* context,
                                       std::function<void(ApiResult<Meeting>)> done)
{
    APIClient(m_auth).joinMeeting(meetingUrl, botName, context, std::move(done));
}

void ServiceAccountSource::stopMeeting(const QString& id, const QObject* context,
                                       std::function<void(std::optional<APIError>)> done)
{
    APIClient(m_auth).stopMeeting(id, context, std::move(done));
}

// Without the operations (the command line's lists) passkeys are not offered.
template <typename Done> void ServiceAccountSource::unavailable(const QObject* context, Done done)
{
    QTimer::singleShot(0, context ? context : this, [done = std::move(done)] {
        done(PasskeyFailure(PasskeyError::notAvailable()));
    });
}

void ServiceAccountSource::listPasskeys(
    const QObject* context, std::function<void(PasskeyOperationResult<QList<Passkey>>)> done)
{
    if (!m_passkeys)
        return unavailable(context, std::move(done));
    m_passkeys->listPasskeys(context, done);
}

void ServiceAccountSource::registerPasskey(
    const QObject* context, std::function<void(PasskeyOperationResult<Passkey>)> done)
{
    if (!m_passkeys)
        return unavailable(context, std::move(done));
    m_passkeys->registerPasskey(std::nullopt, context, done);
}

void ServiceAccountSource::deletePasskey(qint64 id, const QObject* context,
                                         std::function<void(std::optional<PasskeyFailure>)> done)
{
    if (!m_passkeys)
        return unavailable(context, std::move(done));
    m_passkeys->deletePasskey(id, context, done);
}

} // namespace sorv

#include "moc_accountsource.cpp"
