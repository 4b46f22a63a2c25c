#include "apiclient.h"

#include "core/log.h"
#include "service/authmanager.h"
#include "service/network.h"
#include "service/requestrules.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>

namespace sorv {

QNetworkRequest APIClient::authorizedRequest(const QUrl& url) const
{
    return sorv::authorizedRequest(url, m_auth.accessToken());
}

void APIClient::fetchMeetings(const QObject* context,
                              std::function<void(QList<Meeting>)> done) const
{
    fetchMeetingsResult(context, [done = std::move(done)](const ApiResult<QList<Meeting>>& result) {
        if (!result.ok()) {
            consoleLog(QCoreApplication::translate("ApiClient", "Fetch meetings error: %1")
                           .arg(result.error().description()));
            done({});
            return;
        }
        done(result.value());
    });
}

void APIClient::fetchMeetingsResult(const QObject* context,
                                    std::function<void(ApiResult<QList<Meeting>>)> done) const
{
    const std::optional<QUrl> url = endpointUrl(QStringLiteral("/api/meetings"));
    if (!url) {
        QTimer::singleShot(0, context, [done = std::move(done)] { done(APIError::invalidURL()); });
        return;
    }
    sendRequest("GET", authorizedRequest(*url), {}, context,
                [done = std::move(done)](const HttpAnswer& answer) {
                    // The status is not looked at: a body that is not a meeting list is the
                    // failure.
                    if (answer.transportError) {
                        done(APIError::transport(answer.errorText));
                        return;
                    }
                    QString error;
                    std::optional<QList<Meeting>> meetings;
                    if (const std::optional<QJsonValue> json = parseJsonBody(answer.body, &error))
                        meetings = meetingsFromJson(*json, &error);
                    if (!meetings) {
                        done(APIError::decoding(error));
                        return;
                    }
                    done(*meetings);
                });
}

void APIClient::joinMeeting(const QString& meetingURL, const QString& botName,
                            const QObject* context,
                            std::function<void(ApiResult<Meeting>)> done) const
{
    const std::optional<QUrl> url = endpointUrl(QStringLiteral("/api/meetings/join"));
    if (!url) {
        QTimer::singleShot(0, context, [done = std::move(done)] { done(APIError::invalidURL()); });
        return;
    }
    const QByteArray body =
        QJsonDocument(QJsonObject{
                          {QStringLiteral("meeting_url"), meetingURL},
                          {QStringLiteral("bot_name"), botName},
                          {QStringLiteral("language"), languageCode(kJoinFallbackLocale)},
                      })
            .toJson(QJsonDocument::Compact);
    sendRequest("POST", authorizedRequest(*url), body, context,
                [done = std::move(done)](const HttpAnswer& answer) {
                    if (answer.transportError) {
                        done(APIError::transport(answer.errorText));
                        return;
                    }
                    if (!answer.isHttp) {
                        done(APIError::noResponse());
                        return;
                    }
                    if (answer.status == 200 || answer.status == 201) {
                        QString error;
                        std::optional<Meeting> meeting;
                        if (const std::optional<QJsonValue> json =
                                parseJsonBody(answer.body, &error))
                            meeting = Meeting::fromJson(*json, &error);
                        if (meeting)
                            done(*meeting);
                        else
                            done(APIError::decoding(error));
                        return;
                    }
                    if (const std::optional<QString> detail = detailOf(answer.body))
                        done(APIError::server(*detail));
                    else
                        done(APIError::http(answer.status));
                });
}

void APIClient::stopMeeting(const QString& id, const QObject* context,
                            std::function<void(std::optional<APIError>)> done) const
{
    // An id is one path segment, whatever it holds.
    const std::optional<QUrl> url =
        endpointUrl(QStringLiteral("/api/meetings/") +
                    QString::fromLatin1(QUrl::toPercentEncoding(id)) + QStringLiteral("/stop"));
    if (!url) {
        QTimer::singleShot(0, context, [done = std::move(done)] { done(APIError::invalidURL()); });
        return;
    }
    sendRequest("POST", authorizedRequest(*url), QByteArray(""), context,
                [done = std::move(done)](const HttpAnswer& answer) {
                    if (answer.transportError)
                        done(APIError::transport(answer.errorText));
                    else if (answer.isHttp && answer.status >= 200 && answer.status <= 299)
                        done(std::nullopt);
                    else
                        done(APIError::noResponse());
                });
}

} // namespace sorv
