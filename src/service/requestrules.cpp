#include "requestrules.h"

#include "core/settings.h"
#include "service/network.h"
#include "service/records.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace sorv {

std::optional<QUrl> endpointUrl(const QString& origin, const QString& path)
{
    const QUrl url(trimmedOrigin(origin) + path, QUrl::StrictMode);
    // A relative result cannot be requested; treat it like one that does not parse.
    if (!url.isValid() || url.scheme().isEmpty())
        return std::nullopt;
    return url;
}

std::optional<QUrl> endpointUrl(const QString& path)
{
    return endpointUrl(Settings::serverOrigin(), path);
}

QString languageCode(const QString& fallbackLocale)
{
    const QVariant stored = Settings::value(Settings::kSpeechLocaleKey);
    const QString locale = stored.isValid() ? stored.toString() : fallbackLocale;
    return locale.left(2);
}

QNetworkRequest serviceRequest(const QUrl& url)
{
    QNetworkRequest request(url);
    request.setTransferTimeout(Timeouts::kServiceMs);
    return request;
}

QNetworkRequest authorizedRequest(const QUrl& url, const QString& accessToken)
{
    QNetworkRequest request = serviceRequest(url);
    setBearer(request, accessToken);
    request.setRawHeader("Content-Type", "application/json");
    request.setRawHeader("x-sorvelandrix-language", languageCode(kRequestFallbackLocale).toUtf8());
    return request;
}

QString trimmedOrigin(const QString& origin)
{
    qsizetype begin = 0;
    qsizetype end = origin.size();
    while (begin < end && origin.at(begin) == QLatin1Char('/'))
        ++begin;
    while (end > begin && origin.at(end - 1) == QLatin1Char('/'))
        --end;
    return origin.mid(begin, end - begin);
}

QString normalizedOrigin(const QString& origin)
{
    QString trimmed = trimmedOrigin(origin.trimmed());
    QUrl url(trimmed, QUrl::StrictMode);
    if (!url.isValid() || url.scheme().isEmpty() || url.host().isEmpty())
        return trimmed;
    if ((url.scheme() == QLatin1String("https") && url.port() == 443) ||
        (url.scheme() == QLatin1String("http") && url.port() == 80))
        url.setPort(-1);
    return url.adjusted(QUrl::NormalizePathSegments | QUrl::StripTrailingSlash).toString();
}

QString recordingWebAddress(const QString& id)
{
    return trimmedOrigin(Settings::serverOrigin()) + QStringLiteral("/recording/") + id;
}

QString recordingWebAddress(const Recording& recording)
{
    if (recording.batch_id)
        return recordingWebAddress(*recording.batch_id + QStringLiteral("?type=batch"));
    return recordingWebAddress(recording.id);
}

std::optional<QString> detailOf(const QByteArray& body)
{
    const QJsonDocument doc = QJsonDocument::fromJson(body);
    if (!doc.isObject())
        return std::nullopt;
    const QJsonValue detail = doc.object().value(QLatin1String("detail"));
    if (!detail.isString())
        return std::nullopt;
    return detail.toString();
}

QByteArray jsonBody(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

} // namespace sorv
