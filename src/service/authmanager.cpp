#include "authmanager.h"

#include "core/log.h"
#include "core/notify.h"
#include "core/secretstore.h"
#include "core/settings.h"
#include "service/network.h"
#include "service/requestrules.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringDecoder>
#include <QTimer>
#include <QUuid>

namespace sorv {

namespace {

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

QNetworkRequest jsonRequest(const QUrl& url, int timeoutMs = Timeouts::kServiceMs)
{
    QNetworkRequest request = serviceRequest(url);
    request.setTransferTimeout(timeoutMs);
    request.setRawHeader("Content-Type", "application/json");
    return request;
}

} // namespace

AuthManager::AuthManager(SecretStore& secrets, QObject* parent)
    : QObject(parent), m_secrets(secrets), m_refreshLock(secrets.lockFilePath())
{
    // An older version kept the access token in the settings file.
    const QString legacy = Settings::value(tokenKey).toString();
    if (!legacy.isEmpty() && !m_secrets.read(tokenKey)) {
        m_secrets.write(tokenKey, legacy);
        Settings::remove(tokenKey);
    }
    // An older version did not record where the session came from: it is
    // taken as the configured service's (never a one-run --server's), and
    // recorded so.
    if (!m_secrets.read(tokenKey).value_or(QString()).isEmpty() && !m_secrets.read(originKey))
        m_secrets.write(originKey, normalizedOrigin(Settings::configuredOrigin()));
    adoptStoredSession();
    if (!m_isLoggedIn && !sessionOriginElsewhere().isEmpty())
        setSessionExpiredBanner(notSignedInHereMessage());
    // The keyring may answer after the start-up wait, with a session in it.
    connect(&m_secrets, &SecretStore::valuesChanged, this, [this] {
        if (!m_isLoggedIn)
            adoptStoredSession();
    });
    connect(this, &AuthManager::userNameChanged, this, &AuthManager::displayNameChanged);
    connect(this, &AuthManager::userEmailChanged, this, &AuthManager::displayNameChanged);
}

AuthManager::~AuthManager() = default;

void AuthManager::adoptStoredSession()
{
    if (accessToken().isEmpty())
        return;
    setUserEmail(Settings::value(emailKey).toString());
    setUserName(Settings::value(nameKey).toString());
    setIsLoggedIn(true);
}

QString AuthManager::displayName() const
{
    if (m_userName.isEmpty())
        return m_userEmail;
    return QStringLiteral("%1 <%2>").arg(m_userName, m_userEmail);
}

QString AuthManager::storedOrigin() const
{
    const std::optional<QString> stored = m_secrets.read(originKey);
    return normalizedOrigin(stored ? *stored : Settings::configuredOrigin());
}

bool AuthManager::sessionIsHere() const
{
    return storedOrigin() == normalizedOrigin(Settings::serverOrigin());
}

QString AuthManager::sessionOriginElsewhere() const
{
    if (m_secrets.read(tokenKey).value_or(QString()).isEmpty() || sessionIsHere())
        return {};
    return storedOrigin();
}

QString AuthManager::notSignedInHereMessage() const
{
    return QCoreApplication::translate("AuthManager",
                                       "Not signed in to %1 (the saved sign-in is for %2)")
        .arg(trimmedOrigin(Settings::serverOrigin().trimmed()), storedOrigin());
}

QString AuthManager::accessToken() const
{
    return sessionIsHere() ? m_secrets.read(tokenKey).value_or(QString()) : QString();
}

QString AuthManager::refreshToken() const
{
    return sessionIsHere() ? m_secrets.read(refreshKey).value_or(QString()) : QString();
}

QString AuthManager::deviceId()
{
    QString stored = m_secrets.read(deviceIdKey).value_or(QString());
    if (!stored.isEmpty())
        return stored;
    QString created = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
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
    if (value == m_isLoggedIn)
        return;
    ++m_sessionGeneration;
    m_isLoggedIn = value;
    Q_EMIT isLoggedInChanged();
    if (!value)
        Q_EMIT sessionEnded();
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
    setAndNotify(this, m_pendingMfaMaskedEmail, maskedEmail,
                 &AuthManager::pendingMfaMaskedEmailChanged);
    // Last: views switch to the code field on this change and read the rest.
    setAndNotify(this, m_pendingMfaChallengeId, challengeId,
                 &AuthManager::pendingMfaChallengeIdChanged);
}

// ---- sign-in ---------------------------------------------------------------

void AuthManager::login(const QString& email, const QString& password)
{
    setLoginError({});
    setIsLoggingIn(true);
    const std::optional<QUrl> url = endpointUrl(QStringLiteral("/api/auth/login"));
    if (!url) {
        setLoginError(QCoreApplication::translate("AuthManager", "Invalid server URL"));
        setIsLoggingIn(false);
        return;
    }
    QNetworkRequest request = jsonRequest(*url);
    request.setRawHeader("X-Device-Id", deviceId().toUtf8());
    const QByteArray body =
        jsonBody({{QStringLiteral("email"), email}, {QStringLiteral("password"), password}});
    sendRequest("POST", request, body, this, [this, email](const HttpAnswer& answer) {
        if (answer.transportError) {
            setLoginError(answer.errorText);
        } else if (!answer.isHttp) {
            setLoginError(QCoreApplication::translate("AuthManager", "No response from server"));
        } else if (answer.status == 200) {
            const QJsonObject object = jsonObject(answer.body).value_or(QJsonObject());
            const QJsonValue challenge = object.value(QLatin1String("challenge_id"));
            if (object.value(QLatin1String("mfa_required")) == QJsonValue(true) &&
                challenge.isString()) {
                setPendingMfa(challenge.toString(),
                              stringMember(object, QStringLiteral("masked_email"), email), email);
                setLoginError({});
            } else {
                applyTokenResponse(answer.body, email, [this] { setIsLoggingIn(false); });
                return;
            }
        } else if (answer.status == 429) {
            setLoginError(QCoreApplication::translate("AuthManager",
                                                      "Too many failed attempts. Try again in %1s.")
                              .arg(answer.hasHeader("Retry-After")
                                       ? QString::fromUtf8(answer.header("Retry-After"))
                                       : QStringLiteral("?")));
        } else {
            setLoginError(
                detailOf(answer.body)
                    .value_or(QCoreApplication::translate("AuthManager", "Login failed (HTTP %1)")
                                  .arg(answer.status)));
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
        setLoginError(QCoreApplication::translate("AuthManager", "Invalid server URL"));
        setIsLoggingIn(false);
        return;
    }
    QNetworkRequest request = jsonRequest(*url);
    request.setRawHeader("X-Device-Id", deviceId().toUtf8());
    const QByteArray body = jsonBody({{QStringLiteral("challenge_id"), m_pendingMfaChallengeId},
                                      {QStringLiteral("code"), code}});
    sendRequest("POST", request, body, this, [this](const HttpAnswer& answer) {
        if (answer.transportError) {
            setLoginError(answer.errorText);
        } else if (answer.isHttp && answer.status == 200) {
            applyTokenResponse(answer.body, m_pendingMfaEmail, [this] { setIsLoggingIn(false); });
            setPendingMfa({}, {}, {});
            return;
        } else {
            setLoginError(
                detailOf(answer.body)
                    .value_or(QCoreApplication::translate("AuthManager", "Verification failed")));
        }
        setIsLoggingIn(false);
    });
}

void AuthManager::cancelMfa()
{
    setPendingMfa({}, {}, {});
    setLoginError({});
}

void AuthManager::beginSignIn()
{
    setLoginError({});
    setIsLoggingIn(true);
}

void AuthManager::finishSignIn(const QByteArray& tokenResponse, const QString& typedEmail)
{
    applyTokenResponse(tokenResponse, typedEmail, [this] { setIsLoggingIn(false); });
}

void AuthManager::failSignIn(const QString& error)
{
    setLoginError(error);
    setIsLoggingIn(false);
}

void AuthManager::applyTokenResponse(const QByteArray& body, const QString& typedEmail,
                                     std::function<void()> then)
{
    const std::optional<QJsonObject> object = jsonObject(body);
    if (!object || !object->value(QLatin1String("token")).isString()) {
        setLoginError(QCoreApplication::translate("AuthManager", "Invalid response from server"));
        then();
        return;
    }
    setSessionExpiredBanner({});
    // The new session replaces any other, wherever that one came from.
    m_secrets.write(originKey, normalizedOrigin(Settings::serverOrigin()));
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
    // Signed in only once the session would be there for the next start.
    m_secrets.whenStored(this, [this, then = std::move(then)](const QString& error) {
        if (error.isEmpty()) {
            setIsLoggedIn(true);
        } else {
            clearLocalSession();
            setLoginError(
                QCoreApplication::translate("AuthManager", "The sign-in could not be kept. %1")
                    .arg(error));
        }
        then();
    });
}

// ---- tokens ------------------------------------------------------------------

void AuthManager::checkAccessToken(const QObject* context,
                                   std::function<void(TokenCheck, const QString&)> done)
{
    const QString token = accessToken();
    const std::optional<QUrl> url = endpointUrl(QStringLiteral("/api/auth/me"));
    if (token.isEmpty()) {
        later(context, [done = std::move(done)] { done(TokenCheck::Rejected, QString()); });
        return;
    }
    if (!url) {
        later(context, [done = std::move(done)] {
            done(TokenCheck::Unreachable,
                 QCoreApplication::translate("AuthManager", "Invalid server URL"));
        });
        return;
    }
    QNetworkRequest request = serviceRequest(*url);
    setBearer(request, token);
    sendRequest("GET", request, {}, context ? context : this,
                [done = std::move(done)](const HttpAnswer& answer) {
                    if (answer.isHttp && answer.status == 200)
                        done(TokenCheck::Valid, QString());
                    else if (answer.isHttp && answer.status == 401)
                        done(TokenCheck::Rejected, QString());
                    else if (answer.isHttp)
                        done(TokenCheck::Unreachable,
                             detailOf(answer.body)
                                 .value_or(QCoreApplication::translate("AuthManager", "HTTP %1")
                                               .arg(answer.status)));
                    else
                        done(TokenCheck::Unreachable, answer.errorText);
                });
}

void AuthManager::verifyAccessToken(const QObject* context, std::function<void(bool)> done)
{
    checkAccessToken(context, [done = std::move(done)](TokenCheck check, const QString&) {
        done(check == TokenCheck::Valid);
    });
}

void AuthManager::refreshAccessToken(const QObject* context, std::function<void(bool)> done)
{
    refreshAccessToken(context, [done = std::move(done)](RefreshOutcome outcome) {
        done(outcome == RefreshOutcome::Refreshed);
    });
}

void AuthManager::refreshAccessToken(const QObject* context,
                                     std::function<void(RefreshOutcome)> done)
{
    m_refreshWaiters.push_back({context ? context : this, std::move(done)});
    if (m_refreshRunning)
        return;
    m_refreshRunning = true;

    // Another program (the application beside the command line) may rotate
    // the same refresh token: one at a time, and whoever comes second uses
    // what the first one got instead of presenting a token already spent.
    const QString known = refreshToken();
    m_refreshLock.acquire(this, [this, known](bool held) {
        if (!held) {
            consoleLog(QStringLiteral("⚠️ Token refresh failed: the session lock could not be "
                                      "taken (%1)")
                           .arg(m_refreshLock.path()));
            finishRefresh(RefreshOutcome::Failed);
            return;
        }
        m_secrets.reload(this, [this, known] { refreshUnderLock(known); });
    });
}

void AuthManager::refreshThenRetry(const QObject* context, std::function<void()> retry,
                                   std::function<void(RefreshOutcome)> giveUp)
{
    const quint64 session = m_sessionGeneration;
    refreshAccessToken(context, [this, session, retry = std::move(retry),
                                 giveUp = std::move(giveUp)](RefreshOutcome outcome) {
        // Another account's token must not retry for this one.
        if (session != m_sessionGeneration && outcome == RefreshOutcome::Refreshed)
            outcome = RefreshOutcome::Failed;
        if (outcome == RefreshOutcome::Refreshed && !accessToken().isEmpty())
            retry();
        else
            giveUp(outcome);
    });
}

void AuthManager::sendWithRefresh(const QByteArray& verb, const QNetworkRequest& request,
                                  const QByteArray& body, const QObject* context,
                                  const AnswerCallback& done,
                                  const std::function<void(RefreshOutcome)>& giveUp)
{
    QNetworkRequest first = request;
    setBearer(first, accessToken());
    const QPointer<const QObject> guard(context);
    sendRequest(verb, first, body, this, [=, this](const HttpAnswer& answer) {
        if (!guard)
            return;
        if (!answer.isHttp || answer.status != 401)
            return done(answer);
        consoleLog(QStringLiteral("🔄 %1 answered 401: refreshing the session once")
                       .arg(request.url().path()));
        refreshThenRetry(
            guard,
            [=, this] {
                QNetworkRequest again = request;
                setBearer(again, accessToken());
                sendRequest(verb, again, body, guard, done);
            },
            giveUp);
    });
}

void AuthManager::refreshUnderLock(const QString& knownRefreshToken)
{
    const QString refresh = refreshToken();
    if (refresh.isEmpty()) {
        finishRefresh(RefreshOutcome::NoRefreshToken);
        return;
    }
    if (refresh != knownRefreshToken && !accessToken().isEmpty()) {
        consoleLog(QStringLiteral("🔑 Access token refreshed by another program; using it"));
        adoptStoredSession();
        finishRefresh(RefreshOutcome::Refreshed);
        return;
    }
    const std::optional<QUrl> url = endpointUrl(QStringLiteral("/api/auth/refresh"));
    if (!url) {
        finishRefresh(RefreshOutcome::Failed);
        return;
    }
    const QByteArray body = jsonBody({{QStringLiteral("refresh_token"), refresh}});
    sendRequest(
        "POST", jsonRequest(*url, Timeouts::kRefreshMs), body, this,
        [this, refresh](const HttpAnswer& answer) {
            if (!answer.isHttp) {
                consoleLog(QStringLiteral("⚠️ Token refresh failed: %1")
                               .arg(answer.transportError ? answer.errorText
                                                          : QStringLiteral("no response")));
                finishRefresh(RefreshOutcome::Failed);
                return;
            }
            if (answer.status == 200) {
                const QJsonObject object = jsonObject(answer.body).value_or(QJsonObject());
                const QJsonValue token = object.value(QLatin1String("token"));
                if (!token.isString()) {
                    finishRefresh(RefreshOutcome::Failed);
                    return;
                }
                m_secrets.write(tokenKey, token.toString());
                const QJsonValue rotated = object.value(QLatin1String("refresh_token"));
                if (rotated.isString())
                    m_secrets.write(refreshKey, rotated.toString());
                consoleLog(QStringLiteral("🔑 Access token refreshed"));
                finishRefresh(RefreshOutcome::Refreshed);
                return;
            }
            if (answer.status == 401) {
                // Only the token that was refused ends the session: one
                // stored since then (a new sign-in, another program that
                // does not take turns) is left alone.
                m_secrets.reload(this, [this, refresh] {
                    if (refreshToken() == refresh) {
                        consoleLog(QStringLiteral("🔑 Refresh refused: the session has ended"));
                        expireSession(expiredBanner());
                        finishRefresh(RefreshOutcome::Refused);
                        return;
                    }
                    adoptStoredSession();
                    finishRefresh(accessToken().isEmpty() ? RefreshOutcome::Refused
                                                          : RefreshOutcome::Refreshed);
                });
                return;
            }
            consoleLog(QStringLiteral("⚠️ Token refresh failed: HTTP %1").arg(answer.status));
            finishRefresh(RefreshOutcome::Failed);
        });
}

void AuthManager::finishRefresh(RefreshOutcome outcome)
{
    // The lock is let go once what this refresh stored has reached the
    // keyring, so the next program to take it reads the new tokens.
    m_secrets.whenWritten(m_refreshLock.releaser());
    // Callers that arrive from inside a callback start a new refresh.
    std::vector<RefreshWaiter> waiters;
    waiters.swap(m_refreshWaiters);
    m_refreshRunning = false;
    for (RefreshWaiter& waiter : waiters) {
        if (waiter.context)
            waiter.done(outcome);
    }
}

void AuthManager::clearLocalSession()
{
    // A session another origin issued is not this run's to end.
    if (sessionIsHere()) {
        m_secrets.remove(tokenKey);
        m_secrets.remove(refreshKey);
        m_secrets.remove(originKey);
        Settings::remove(emailKey);
        Settings::remove(nameKey);
    }
    setIsLoggedIn(false);
    setUserName({});
    setUserEmail({});
}

void AuthManager::expireSession(const QString& banner)
{
    clearLocalSession();
    setSessionExpiredBanner(banner);
}

void AuthManager::validateSession()
{
    const auto finish = [this] { Q_EMIT sessionValidated(); };
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
                expireSession(refreshToken().isEmpty() ? outOfDateBanner() : expiredBanner());
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

void AuthManager::confirmSession()
{
    if (accessToken().isEmpty()) {
        later(this, [this] {
            Q_EMIT sessionConfirmed(false,
                                    QCoreApplication::translate("AuthManager", "Not signed in."));
        });
        return;
    }
    // Unlike validateSession(), a service that cannot be reached leaves the
    // session alone: only a refusal ends it (through the refresh).
    const auto unreachable = [this](const QString& error) {
        Q_EMIT sessionConfirmed(
            false, QCoreApplication::translate("AuthManager",
                                               "Could not confirm the session with the service: %1")
                       .arg(error));
    };
    checkAccessToken(this, [this, unreachable](TokenCheck check, const QString& error) {
        if (check == TokenCheck::Valid) {
            Q_EMIT sessionConfirmed(true, QString());
            return;
        }
        if (check == TokenCheck::Unreachable) {
            unreachable(error);
            return;
        }
        refreshAccessToken(this, [this, unreachable](RefreshOutcome outcome) {
            if (outcome != RefreshOutcome::Refreshed) {
                if (m_isLoggedIn)
                    unreachable(QStringLiteral("the session could not be refreshed"));
                else
                    Q_EMIT sessionConfirmed(false, m_sessionExpiredBanner);
                return;
            }
            checkAccessToken(this, [this, unreachable](TokenCheck again, const QString& why) {
                if (again == TokenCheck::Valid)
                    Q_EMIT sessionConfirmed(true, QString());
                else
                    unreachable(why.isEmpty() ? QStringLiteral("the new token was refused") : why);
            });
        });
    });
}

void AuthManager::logout()
{
    const QString refresh = refreshToken();
    const std::optional<QUrl> url = endpointUrl(QStringLiteral("/api/auth/logout"));
    if (!refresh.isEmpty() && url) {
        ++m_detachedRequests;
        // The answer is ignored; the count only lets an exiting process give
        // the request a moment to leave.
        sendRequest("POST", jsonRequest(*url, Timeouts::kLogoutMs),
                    jsonBody({{QStringLiteral("refresh_token"), refresh}}), this,
                    [this](const HttpAnswer&) {
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
        later(context, [done] {
            done({{}, QCoreApplication::translate("AuthManager", "Bad server URL")});
        });
        return;
    }
    const quint64 session = m_sessionGeneration;
    const auto refreshFailed = [this, done, session](RefreshOutcome) {
        if (session != m_sessionGeneration)
            return done({{}, QCoreApplication::translate("AuthManager", "Signed out")});
        consoleLog(QStringLiteral("[fetchRecordings] 401 and could not refresh token"));
        done({{},
              QCoreApplication::translate("AuthManager",
                                          "Your session expired — please sign in again.")});
    };
    sendWithRefresh(
        "GET", serviceRequest(*url), {}, context ? context : this,
        [done = std::move(done)](const HttpAnswer& answer) {
            if (answer.transportError) {
                consoleLog(
                    QStringLiteral("[fetchRecordings] network error: %1").arg(answer.errorText));
                done({{}, answer.errorText});
                return;
            }
            if (answer.isHttp && answer.status >= 400) {
                const QString detail = detailOf(answer.body).value_or(QString());
                done({{},
                      detail.isEmpty()
                          ? QCoreApplication::translate("AuthManager", "Server returned HTTP %1")
                                .arg(answer.status)
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
        },
        refreshFailed);
}

} // namespace sorv

#include "moc_authmanager.cpp"
