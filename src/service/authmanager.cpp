#include "authmanager.h"

#include "core/notify.h"

#include "core/log.h"
#include "core/secretstore.h"
#include "core/settings.h"
#include "service/network.h"
#include "service/requestrules.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>
#include <QStringDecoder>
#include <QTimer>
#include <QUuid>

namespace sorv {

namespace {

QByteArray jsonBody(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

std::optional<QJsonObject> jsonObject(const QByteArray& body)
{
    const QJsonDocument doc = QJsonDocument::fromJson(body);
    if (!doc.isObject())
        return std::nullopt;
    return doc.object();
}

QString stringMember(const QJsonObject& object, const QString& key, const QString& fallback = {})
{
    const QJsonValue v = object.value(key);
    return v.isString() ? v.toString() : fallback;
}

// The start of a body for a diagnostic line, or "<binary>" when it is not text.
QString bodyPreview(const QByteArray& body)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder.decode(body.left(400));
    return decoder.hasError() ? QStringLiteral("<binary>") : text;
}

} // namespace

AuthManager::AuthManager(SecretStore& secrets, QObject* parent)
    : QObject(parent), m_secrets(secrets)
{
    // An older version kept the access token in the settings file.
    const QString legacy = Settings::value(tokenKey).toString();
    if (!legacy.isEmpty() && !m_secrets.read(tokenKey)) {
        m_secrets.write(tokenKey, legacy);
        Settings::remove(tokenKey);
    }
    if (!accessToken().isEmpty()) {
        m_isLoggedIn = true;
        m_userEmail = Settings::value(emailKey).toString();
        m_userName = Settings::value(nameKey).toString();
    }
}

AuthManager::~AuthManager() = default;

QString AuthManager::accessToken() const
{
    return m_secrets.read(tokenKey).value_or(QString());
}

QString AuthManager::refreshToken() const
{
    return m_secrets.read(refreshKey).value_or(QString());
}

QString AuthManager::deviceId()
{
    const QString stored = m_secrets.read(deviceIdKey).value_or(QString());
    if (!stored.isEmpty())
        return stored;
    const QString created = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    m_secrets.write(deviceIdKey, created);
    return created;
}

QNetworkRequest AuthManager::authorizedRequest(const QUrl& url) const
{
    return sorv::authorizedRequest(url, accessToken());
}

void AuthManager::later(const QObject* context, std::function<void()> fn) const
{
    QTimer::singleShot(0, context ? context : this, std::move(fn));
}

// ---- published state --------------------------------------------------------

void AuthManager::setIsLoggedIn(bool value)
{
    setAndNotify(this, m_isLoggedIn, value, &AuthManager::isLoggedInChanged);
}

void AuthManager::setUserName(const QString& value)
{
    setAndNotify(this, m_userName, value, &AuthManager::userNameChanged);
}

void AuthManager::setUserEmail(const QString& value)
{
    setAndNotify(this, m_userEmail, value, &AuthManager::userEmailChanged);
}

void AuthManager::setIsLoggingIn(bool value)
{
    setAndNotify(this, m_isLoggingIn, value, &AuthManager::isLoggingInChanged);
}

void AuthManager::setLoginError(const QString& value)
{
    setAndNotify(this, m_loginError, value, &AuthManager::loginErrorChanged);
}

void AuthManager::setSessionExpiredBanner(const QString& value)
{
    setAndNotify(this, m_sessionExpiredBanner, value, &AuthManager::sessionExpiredBannerChanged);
}

void AuthManager::setPendingMfa(const QString& challengeId, const QString& maskedEmail,
                                const QString& email)
{
    m_pendingMfaEmail = email;
    if (m_pendingMfaMaskedEmail != maskedEmail) {
        m_pendingMfaMaskedEmail = maskedEmail;
        Q_EMIT pendingMfaMaskedEmailChanged();
    }
    // Last: views switch to the code field on this change and read the rest.
    if (m_pendingMfaChallengeId != challengeId) {
        m_pendingMfaChallengeId = challengeId;
        Q_EMIT pendingMfaChallengeIdChanged();
    }
}

// ---- sign-in ---------------------------------------------------------------

void AuthManager::login(const QString& email, const QString& password)
{
    setLoginError({});
    setIsLoggingIn(true);
    const std::optional<QUrl> url = endpointUrl(QStringLiteral("/api/auth/login"));
    if (!url) {
        setLoginError(QStringLiteral("Invalid server URL"));
        setIsLoggingIn(false);
        return;
    }
    QNetworkRequest request = serviceRequest(*url);
    request.setRawHeader("Content-Type", "application/json");
    request.setRawHeader("X-Device-Id", deviceId().toUtf8());
    const QByteArray body =
        jsonBody({{QStringLiteral("email"), email}, {QStringLiteral("password"), password}});
    sendRequest("POST", request, body, this, [this, email](const HttpAnswer& answer) {
        if (answer.transportError) {
            setLoginError(answer.errorText);
        } else if (!answer.isHttp) {
            setLoginError(QStringLiteral("No response from server"));
        } else if (answer.status == 200) {
            const QJsonObject object = jsonObject(answer.body).value_or(QJsonObject());
            const QJsonValue challenge = object.value(QLatin1String("challenge_id"));
            if (object.value(QLatin1String("mfa_required")) == QJsonValue(true) &&
                challenge.isString()) {
                setPendingMfa(challenge.toString(),
                              stringMember(object, QStringLiteral("masked_email"), email), email);
                setLoginError({});
            } else {
                applyTokenResponse(answer.body, email);
            }
        } else if (answer.status == 429) {
            const QByteArray retryAfter = answer.header("Retry-After");
            setLoginError(QStringLiteral("Too many failed attempts. Try again in %1s.")
                              .arg(answer.reply && answer.reply->hasRawHeader("Retry-After")
                                       ? QString::fromUtf8(retryAfter)
                                       : QStringLiteral("?")));
        } else {
            setLoginError(
                detailOf(answer.body)
                    .value_or(QStringLiteral("Login failed (HTTP %1)").arg(answer.status)));
        }
        setIsLoggingIn(false);
    });
}

void AuthManager::verifyMfa(const QString& code)
{
    if (m_pendingMfaChallengeId.isEmpty())
        return;
    setLoginError({});
    setIsLoggingIn(true);
    const std::optional<QUrl> url = endpointUrl(QStringLiteral("/api/auth/mfa/verify"));
    if (!url) {
        setLoginError(QStringLiteral("Invalid server URL"));
        setIsLoggingIn(false);
        return;
    }
    QNetworkRequest request = serviceRequest(*url);
    request.setRawHeader("Content-Type", "application/json");
    request.setRawHeader("X-Device-Id", deviceId().toUtf8());
    const QByteArray body = jsonBody({{QStringLiteral("challenge_id"), m_pendingMfaChallengeId},
                                      {QStringLiteral("code"), code}});
    sendRequest("POST", request, body, this, [this](const HttpAnswer& answer) {
        if (answer.transportError) {
            setLoginError(answer.errorText);
        } else if (answer.isHttp && answer.status == 200) {
            applyTokenResponse(answer.body, m_pendingMfaEmail);
            setPendingMfa({}, {}, {});
        } else {
            setLoginError(detailOf(answer.body).value_or(QStringLiteral("Verification failed")));
        }
        setIsLoggingIn(false);
    });
}

void AuthManager::applyTokenResponse(const QByteArray& body, const QString& typedEmail)
{
    const std::optional<QJsonObject> object = jsonObject(body);
    if (!object || !object->value(QLatin1String("token")).isString()) {
        setLoginError(QStringLiteral("Invalid response from server"));
        return;
    }
    setSessionExpiredBanner({});
    m_secrets.write(tokenKey, object->value(QLatin1String("token")).toString());
    const QJsonValue refresh = object->value(QLatin1String("refresh_token"));
    if (refresh.isString())
        m_secrets.write(refreshKey, refresh.toString());
    else
        m_secrets.remove(refreshKey);

    const QJsonValue user = object->value(QLatin1String("user"));
    if (user.isObject()) {
        setUserName(stringMember(user.toObject(), QStringLiteral("name")));
        setUserEmail(stringMember(user.toObject(), QStringLiteral("email"), typedEmail));
    } else {
        setUserEmail(typedEmail);
    }
    Settings::setValue(emailKey, m_userEmail);
    Settings::setValue(nameKey, m_userName);
    setIsLoggedIn(true);
}

// ---- tokens ------------------------------------------------------------------

void AuthManager::verifyAccessToken(const QObject* context, std::function<void(bool)> done)
{
    const QString token = accessToken();
    const std::optional<QUrl> url = endpointUrl(QStringLiteral("/api/auth/me"));
    if (token.isEmpty() || !url) {
        later(context, [done] { done(false); });
        return;
    }
    QNetworkRequest request = serviceRequest(*url);
    request.setRawHeader("Authorization", "Bearer " + token.toUtf8());
    sendRequest("GET", request, {}, context ? context : this,
                [done](const HttpAnswer& answer) { done(answer.isHttp && answer.status == 200); });
}

void AuthManager::refreshAccessToken(const QObject* context, std::function<void(bool)> done)
{
    m_refreshWaiters.push_back({context ? context : this, std::move(done)});
    if (m_refreshRunning)
        return;

    m_refreshRunning = true;
    const QString refresh = refreshToken();
    const std::optional<QUrl> url = endpointUrl(QStringLiteral("/api/auth/refresh"));
    if (refresh.isEmpty() || !url) {
        later(this, [this] { finishRefresh(false); });
        return;
    }
    QNetworkRequest request = serviceRequest(*url);
    request.setTransferTimeout(10000);
    request.setRawHeader("Content-Type", "application/json");
    const QByteArray body = jsonBody({{QStringLiteral("refresh_token"), refresh}});
    sendRequest("POST", request, body, this, [this](const HttpAnswer& answer) {
        if (!answer.isHttp) {
            consoleLog(
                QStringLiteral("⚠️ Token refresh failed: %1")
                    .arg(answer.transportError ? answer.errorText : QStringLiteral("no response")));
            finishRefresh(false);
            return;
        }
        if (answer.status == 200) {
            const QJsonObject object = jsonObject(answer.body).value_or(QJsonObject());
            const QJsonValue token = object.value(QLatin1String("token"));
            if (!token.isString()) {
                finishRefresh(false);
                return;
            }
            m_secrets.write(tokenKey, token.toString());
            const QJsonValue rotated = object.value(QLatin1String("refresh_token"));
            if (rotated.isString())
                m_secrets.write(refreshKey, rotated.toString());
            consoleLog(QStringLiteral("🔑 Access token refreshed"));
            finishRefresh(true);
            return;
        }
        if (answer.status == 401) {
            consoleLog(QStringLiteral("🔑 Refresh refused: the session has ended"));
            expireSession(kExpiredBanner);
        } else {
            consoleLog(QStringLiteral("⚠️ Token refresh failed: HTTP %1").arg(answer.status));
        }
        finishRefresh(false);
    });
}

void AuthManager::finishRefresh(bool result)
{
    // Callers that arrive from inside a callback start a new refresh.
    std::vector<RefreshWaiter> waiters;
    waiters.swap(m_refreshWaiters);
    m_refreshRunning = false;
    for (RefreshWaiter& waiter : waiters) {
        if (waiter.context)
            waiter.done(result);
    }
}

void AuthManager::clearLocalSession()
{
    m_secrets.remove(tokenKey);
    m_secrets.remove(refreshKey);
    setIsLoggedIn(false);
    setUserName({});
    setUserEmail({});
    Settings::remove(emailKey);
    Settings::remove(nameKey);
}

void AuthManager::expireSession(const QString& banner)
{
    clearLocalSession();
    setSessionExpiredBanner(banner);
}

void AuthManager::validateSession(std::function<void()> done)
{
    const auto finish = [done] {
        if (done)
            done();
    };
    if (accessToken().isEmpty()) {
        later(this, finish);
        return;
    }
    verifyAccessToken(this, [this, finish](bool valid) {
        if (valid) {
            setIsLoggedIn(true);
            finish();
            return;
        }
        refreshAccessToken(this, [this, finish](bool refreshed) {
            const auto giveUp = [this, finish] {
                expireSession(refreshToken().isEmpty() ? kOutOfDateBanner : kExpiredBanner);
                finish();
            };
            if (!refreshed) {
                giveUp();
                return;
            }
            verifyAccessToken(this, [this, finish, giveUp](bool validNow) {
                if (!validNow) {
                    giveUp();
                    return;
                }
                setIsLoggedIn(true);
                finish();
            });
        });
    });
}

void AuthManager::logout()
{
    const QString refresh = refreshToken();
    const std::optional<QUrl> url = endpointUrl(QStringLiteral("/api/auth/logout"));
    if (!refresh.isEmpty() && url) {
        QNetworkRequest request(*url);
        request.setTransferTimeout(60000);
        request.setRawHeader("Content-Type", "application/json");
        QNetworkReply* reply = sendRequest(
            "POST", request, jsonBody({{QStringLiteral("refresh_token"), refresh}}), nullptr, {});
        ++m_detachedRequests;
        // The answer is ignored; the count only lets an exiting process give
        // the request a moment to leave.
        connect(reply, &QNetworkReply::finished, this, [this] {
            if (--m_detachedRequests == 0)
                Q_EMIT detachedRequestsFinished();
        });
    }
    clearLocalSession();
}

// ---- recordings ----------------------------------------------------------------

void AuthManager::fetchRecordings(const QObject* context,
                                  std::function<void(RecordingsFetchResult)> done)
{
    const std::optional<QUrl> url = endpointUrl(QStringLiteral("/api/transcriptions?limit=200"));
    if (!url) {
        later(context, [done] { done({{}, QStringLiteral("Bad server URL")}); });
        return;
    }
    sendRecordingsRequest(*url, false, context ? context : this, std::move(done));
}

void AuthManager::sendRecordingsRequest(const QUrl& url, bool isRetry, const QObject* context,
                                        std::function<void(RecordingsFetchResult)> done)
{
    QNetworkRequest request = serviceRequest(url);
    const QString token = accessToken();
    if (!token.isEmpty())
        request.setRawHeader("Authorization", "Bearer " + token.toUtf8());

    const QPointer<const QObject> guard(context);
    sendRequest(
        "GET", request, {}, this, [this, url, isRetry, guard, done](const HttpAnswer& answer) {
            if (!guard)
                return;
            if (answer.transportError) {
                consoleLog(
                    QStringLiteral("[fetchRecordings] network error: %1").arg(answer.errorText));
                done({{}, answer.errorText});
                return;
            }
            if (answer.isHttp && answer.status == 401 && !isRetry) {
                refreshAccessToken(guard, [this, url, guard, done](bool refreshed) {
                    if (refreshed) {
                        sendRecordingsRequest(url, true, guard, done);
                        return;
                    }
                    consoleLog(QStringLiteral("[fetchRecordings] 401 and could not refresh token"));
                    done({{}, QStringLiteral("Your session expired — please sign in again.")});
                });
                return;
            }
            if (answer.isHttp && answer.status >= 400) {
                const QString detail = detailOf(answer.body).value_or(QString());
                done({{},
                      detail.isEmpty()
                          ? QStringLiteral("Server returned HTTP %1").arg(answer.status)
                          : detail});
                return;
            }
            QString error;
            QList<Recording> list;
            const std::optional<QJsonValue> json = parseJsonBody(answer.body, &error);
            bool decoded = false;
            if (json) {
                QString envelopeError;
                QString arrayError;
                if (auto envelope = RecordingsEnvelope::fromJson(*json, &envelopeError)) {
                    list = envelope->items;
                    decoded = true;
                } else if (auto array = recordingsFromJson(*json, &arrayError)) {
                    list = *array;
                    decoded = true;
                } else {
                    // Report the attempt that matches the body's shape.
                    error = json->isArray() ? arrayError : envelopeError;
                }
            }
            if (!decoded)
                consoleLog(QStringLiteral("[fetchRecordings] decode failed: %1\nbody: %2")
                               .arg(error, bodyPreview(answer.body)));
            done({list, std::nullopt});
        });
}

} // namespace sorv
