#include "requestrules.h"

#include "core/settings.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace sorv {

std::optional<QUrl> endpointUrl(const QString& origin, const QString& path)
{
    qsizetype begin = 0;
    qsizetype end = origin.size();
    while (begin < end && origin.at(begin) == QLatin1Char('/'))
        ++begin;
    while (end > begin && origin.at(end - 1) == QLatin1Char('/'))
        --end;
    const QUrl url(origin.mid(begin, end - begin) + path, QUrl::StrictMode);
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
    request.setTransferTimeout(15000);
    return request;
}

QNetworkRequest authorizedRequest(const QUrl& url, const QString& accessToken)
{
    QNetworkRequest request = serviceRequest(url);
    if (!accessToken.isEmpty())
        request.setRawHeader("Authorization", "Bearer " + accessToken.toUtf8());
    request.setRawHeader("Content-Type", "application/json");
    request.setRawHeader("x-sorvelandrix-language", languageCode(kRequestFallbackLocale).toUtf8());
    return request;
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

} // namespace sorv
