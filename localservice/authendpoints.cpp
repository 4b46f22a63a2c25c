// /api/auth/*: password sign-in with an optional e-mailed code, token
// refresh with rotation, sign-out and the current user.

#include "localservice/endpoints.h"

#include <QJsonObject>

namespace sorv::local {

namespace {

QString maskEmail(const QString& email)
{
    const qsizetype at = email.indexOf(QLatin1Char('@'));
    if (at <= 0)
        return email;
    return email.left(1) + QStringLiteral("***") + email.mid(at);
}

QJsonObject userJson(const Account& account)
{
    return {{QStringLiteral("id"), account.id},
            {QStringLiteral("email"), account.email},
            {QStringLiteral("name"), account.name}};
}

ServiceResponse tokenResponse(ServiceState& state, const Account& account)
{
    QJsonObject body = state.issueTokens(account.id);
    body.insert(QStringLiteral("user"), userJson(account));
    return ServiceResponse::json(200, body);
}

} // namespace

void addAuthEndpoints(Router& router, ServiceState& state)
{
    router.add("POST", QStringLiteral("/api/auth/login"), [&state](const ServiceRequest& request) {
        const QJsonObject body = request.jsonObject();
        const QString email = body.value(QLatin1String("email")).toString();
        const QString password = body.value(QLatin1String("password")).toString();
        if (email.isEmpty() || password.isEmpty())
            return ServiceResponse::detail(422, QStringLiteral("E-mail and password are required"));
        if (const std::optional<int> wait = state.retryAfterSeconds(email)) {
            ServiceResponse r =
                ServiceResponse::detail(429, QStringLiteral("Too many failed attempts"));
            r.headers.append({"Retry-After", QByteArray::number(*wait)});
            return r;
        }
        const std::optional<Account> account = state.accountByEmail(email);
        if (!account || !state.checkPassword(account->id, password)) {
            state.noteFailedLogin(email);
            return ServiceResponse::detail(401, QStringLiteral("Invalid email or password"));
        }
        state.clearFailedLogins(email);
        if (state.options().mfa) {
            return ServiceResponse::json(
                200, QJsonObject{
                         {QStringLiteral("mfa_required"), true},
                         {QStringLiteral("challenge_id"), state.createChallenge(account->id)},
                         {QStringLiteral("masked_email"), maskEmail(account->email)},
                     });
        }
        return tokenResponse(state, *account);
    });

    router.add(
        "POST", QStringLiteral("/api/auth/mfa/verify"), [&state](const ServiceRequest& request) {
            const QJsonObject body = request.jsonObject();
            const QString challengeId = body.value(QLatin1String("challenge_id")).toString();
            const QString code = body.value(QLatin1String("code")).toString().trimmed();
            QString accountId;
            {
                std::lock_guard lock(state.challengeMutex());
                auto it = state.challenges().find(challengeId);
                if (it == state.challenges().end() || it->second.expiresMs < ServiceState::nowMs())
                    return ServiceResponse::detail(
                        400, QStringLiteral("This code has expired. Sign in again."));
                if (it->second.code != code) {
                    // A guessed code must not stay guessable for long.
                    if (++it->second.attempts >= 5)
                        state.challenges().erase(it);
                    return ServiceResponse::detail(400, QStringLiteral("Invalid code"));
                }
                accountId = it->second.accountId;
                state.challenges().erase(it);
            }
            const std::optional<Account> account = state.accountById(accountId);
            if (!account)
                return ServiceResponse::detail(
                    400, QStringLiteral("This code has expired. Sign in again."));
            return tokenResponse(state, *account);
        });

    router.add(
        "POST", QStringLiteral("/api/auth/refresh"), [&state](const ServiceRequest& request) {
            const QString refresh =
                request.jsonObject().value(QLatin1String("refresh_token")).toString();
            Database& db = state.db();
            std::lock_guard lock(db.lock());
            const auto rows = db.query(
                "SELECT account_id, session_id FROM tokens WHERE token = ? AND kind = 'refresh'"
                " AND revoked = 0 AND expires_ms > ?",
                {refresh, ServiceState::nowMs()});
            if (refresh.isEmpty() || rows.empty())
                return ServiceResponse::detail(401, QStringLiteral("Invalid refresh token"));
            // Rotation: the refresh token is good for one use.
            db.exec("UPDATE tokens SET revoked = 1 WHERE token = ?", {refresh});
            return ServiceResponse::json(
                200, state.issueTokens(rows[0][0].toString(), rows[0][1].toString()));
        });

    router.add("POST", QStringLiteral("/api/auth/logout"), [&state](const ServiceRequest& request) {
        const QString refresh =
            request.jsonObject().value(QLatin1String("refresh_token")).toString();
        const auto rows =
            state.db().query("SELECT session_id FROM tokens WHERE token = ?", {refresh});
        if (!rows.empty())
            state.revokeSession(rows[0][0].toString());
        return ServiceResponse::json(200, QJsonObject{{QStringLiteral("ok"), true}});
    });

    router.add("GET", QStringLiteral("/api/auth/me"),
               signedIn(state, [](const ServiceRequest&, const Account& account) {
                   return ServiceResponse::json(200, userJson(account));
               }));
}

} // namespace sorv::local
