#pragma once

#include "service/apierror.h"
#include "service/records.h"

#include <QList>
#include <QNetworkRequest>
#include <QObject>
#include <QUrl>

#include <functional>
#include <optional>

namespace sorv {

class AuthManager;

// The meeting-bot endpoints: list, join, stop. Reads the origin and the
// current token through the session. Callbacks follow AuthManager's rule:
// main thread, never synchronous, dropped once the context is gone.
class APIClient {
public:
    explicit APIClient(AuthManager& auth) : m_auth(auth) {}

    // Shared settings, bearer token when there is one, JSON, language header.
    QNetworkRequest authorizedRequest(const QUrl& url) const;

    // Never fails: any failure gives an empty list (and a console line).
    void fetchMeetings(const QObject* context, std::function<void(QList<Meeting>)> done) const;
    // The same request, for callers that must tell an empty list from a
    // failed one.
    void fetchMeetingsResult(const QObject* context,
                             std::function<void(ApiResult<QList<Meeting>>)> done) const;
    void joinMeeting(const QString& meetingURL, const QString& botName, const QObject* context,
                     std::function<void(ApiResult<Meeting>)> done) const;
    // None on success. The id is percent-encoded into the path.
    void stopMeeting(const QString& id, const QObject* context,
                     std::function<void(std::optional<APIError>)> done) const;

private:
    AuthManager& m_auth;
};

} // namespace sorv
