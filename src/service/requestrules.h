#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QNetworkRequest>
#include <QString>
#include <QUrl>

#include <optional>

namespace sorv {

struct Recording;

// The origin with every "/" trimmed from both ends.
QString trimmedOrigin(const QString& origin);
// The origin in one spelling for comparisons: trimmed, scheme and host in
// lower case, no default port.
QString normalizedOrigin(const QString& origin);

// Every endpoint URL is the origin with all "/" trimmed from both ends, then
// the path (which begins with "/api/"). None when the result is not a usable
// URL; the caller then takes its invalid-URL path.
std::optional<QUrl> endpointUrl(const QString& origin, const QString& path);
// The same for the current origin (Settings::serverOrigin()).
std::optional<QUrl> endpointUrl(const QString& path);

// Fallback locales when `speechLocale` has never been written.
inline const QString kRequestFallbackLocale = QStringLiteral("af-ZA");
inline const QString kJoinFallbackLocale = QStringLiteral("it-IT");

// The user's language as two letters: the start of `speechLocale`, else of
// the given fallback.
QString languageCode(const QString& fallbackLocale);

// A request body: the object as compact JSON.
QByteArray jsonBody(const QJsonObject& object);

// A request with the shared settings: default cache policy, 15 s timeout.
QNetworkRequest serviceRequest(const QUrl& url);

// The builder used by the meeting calls and the upload: the shared settings,
// "Authorization: Bearer" only when a token is given, JSON content type and
// the language header.
QNetworkRequest authorizedRequest(const QUrl& url, const QString& accessToken);

// Where a recording is shown on the service's web site: origin + "/recording/" + id.
QString recordingWebAddress(const QString& id);
// The same for a recording of the list: one of a batch opens its batch,
// origin + "/recording/" + batch id + "?type=batch".
QString recordingWebAddress(const Recording& recording);

// The "detail" string of a JSON object body, if there is one.
std::optional<QString> detailOf(const QByteArray& body);

} // namespace sorv
