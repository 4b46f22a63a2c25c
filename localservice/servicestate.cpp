#include "servicestate.h"

#include "core/log.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QRandomGenerator>
#include <QUuid>

namespace sorv::local {

namespace {
constexpr int kMaxFailures = 5;
constexpr qint64 kFailureWindowMs = 5LL * 60 * 1000;
constexpr qint64 kCodeChallengeLifetimeMs = 10LL * 60 * 1000;
constexpr qint64 kRefreshLifetimeMs = 30LL * 24 * 3600 * 1000;
} // namespace

ServiceState::ServiceState(ServiceOptions options)
    : m_options(std::move(options)), m_lifetime(m_options.accessTokenLifetime.count())
{}

bool ServiceState::open(QString* error)
{
    if (!QDir().mkpath(m_options.dataDirectory)) {
        if (error)
            *error = QStringLiteral("cannot create %1").arg(m_options.dataDirectory);
        return false;
    }
    if (!m_db.open(m_options.dataDirectory + QStringLiteral("/service.sqlite"), error))
        return false;
    createSchema();
    createDemoAccount();
    sweepPartialUploads();
    return true;
}

void ServiceState::sweepPartialUploads()
{
    // An upload still being received when the service died left its part
    // file behind; nothing refers to it.
    const QDir uploads(m_options.dataDirectory + QStringLiteral("/uploads"));
    for (const QString& id : uploads.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QDir dir(uploads.filePath(id));
        if (dir.exists(QStringLiteral("upload.part"))) {
            dir.removeRecursively();
            consoleLog(QStringLiteral("🧹 Removed an unfinished upload (%1)").arg(id));
        }
    }
}

void ServiceState::createSchema()
{
    m_db.exec("CREATE TABLE IF NOT EXISTS accounts(id TEXT PRIMARY KEY, email TEXT UNIQUE NOT NULL,"
              " name TEXT NOT NULL, salt TEXT NOT NULL, password_hash TEXT NOT NULL)");
    m_db.exec("CREATE TABLE IF NOT EXISTS tokens(token TEXT PRIMARY KEY, kind TEXT NOT NULL,"
              " account_id TEXT NOT NULL, session_id TEXT NOT NULL, expires_ms INTEGER NOT NULL,"
              " revoked INTEGER NOT NULL DEFAULT 0)");
    m_db.exec("CREATE TABLE IF NOT EXISTS recordings(id TEXT PRIMARY KEY, account_id TEXT NOT NULL,"
              " original_filename TEXT NOT NULL, status TEXT NOT NULL, created_ms INTEGER NOT NULL,"
              " duration_ms INTEGER, language TEXT, ai_title TEXT, file_path TEXT)");
    m_db.exec("CREATE TABLE IF NOT EXISTS meetings(id TEXT PRIMARY KEY, account_id TEXT NOT NULL,"
              " meeting_url TEXT NOT NULL, meeting_code TEXT NOT NULL, platform TEXT NOT NULL,"
              " bot_name TEXT, language TEXT, created_ms INTEGER NOT NULL, ended_ms INTEGER,"
              " transcription_id TEXT)");
    m_db.exec("CREATE TABLE IF NOT EXISTS passkeys(id INTEGER PRIMARY KEY AUTOINCREMENT,"
              " account_id TEXT NOT NULL, credential_id TEXT UNIQUE NOT NULL,"
              " public_key BLOB NOT NULL, sign_count INTEGER NOT NULL,"
              " user_verified INTEGER NOT NULL, label TEXT, created_ms INTEGER NOT NULL,"
              " last_used_ms INTEGER, backup_eligible INTEGER NOT NULL, transports TEXT)");
}

void ServiceState::createDemoAccount()
{
    std::lock_guard lock(m_db.lock());
    if (accountByEmail(kDemoEmail))
        return;
    const QString id = addAccount(kDemoEmail, QStringLiteral("Demo User"), kDemoPassword);
    addRecording(id, QStringLiteral("sorvelandrix_welcome.wav"), QStringLiteral("completed"), 95000,
                 QStringLiteral("Welcome to Sorvelandrix"));
}

qint64 ServiceState::nowMs()
{
    return QDateTime::currentMSecsSinceEpoch();
}

QString ServiceState::timestamp(qint64 ms)
{
    return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC)
        .toString(QStringLiteral("yyyy-MM-dd'T'HH:mm:ss"));
}

QString ServiceState::randomToken(int bytes)
{
    QByteArray raw(bytes, Qt::Uninitialized);
    QRandomGenerator* rng = QRandomGenerator::system();
    for (char& c : raw)
        c = static_cast<char>(rng->bounded(256));
    return QString::fromLatin1(
        raw.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

QString ServiceState::newId()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

QString ServiceState::hashPassword(const QString& salt, const QString& password)
{
    return QString::fromLatin1(
        QCryptographicHash::hash((salt + QLatin1Char(':') + password).toUtf8(),
                                 QCryptographicHash::Sha256)
            .toHex());
}

QString ServiceState::addAccount(const QString& email, const QString& name, const QString& password)
{
    QString id = newId();
    const QString salt = randomToken(8);
    m_db.exec("INSERT INTO accounts(id, email, name, salt, password_hash) VALUES(?, ?, ?, ?, ?)",
              {id, email, name, salt, hashPassword(salt, password)});
    return id;
}

std::optional<Account> ServiceState::accountByEmail(const QString& email)
{
    const auto rows = m_db.query(
        "SELECT id, email, name FROM accounts WHERE lower(email) = lower(?)", {email.trimmed()});
    if (rows.empty())
        return std::nullopt;
    return Account{rows[0][0].toString(), rows[0][1].toString(), rows[0][2].toString()};
}

std::optional<Account> ServiceState::accountById(const QString& id)
{
    const auto rows = m_db.query("SELECT id, email, name FROM accounts WHERE id = ?", {id});
    if (rows.empty())
        return std::nullopt;
    return Account{rows[0][0].toString(), rows[0][1].toString(), rows[0][2].toString()};
}

bool ServiceState::checkPassword(const QString& accountId, const QString& password)
{
    const auto rows =
        m_db.query("SELECT salt, password_hash FROM accounts WHERE id = ?", {accountId});
    return !rows.empty() && hashPassword(rows[0][0].toString(), password) == rows[0][1].toString();
}

std::optional<Account> ServiceState::authenticate(const ServiceRequest& request)
{
    return authenticateToken(request.bearerToken());
}

std::optional<Account> ServiceState::authenticateToken(const QString& token)
{
    if (token.isEmpty())
        return std::nullopt;
    const auto rows = m_db.query("SELECT account_id FROM tokens WHERE token = ? AND kind = 'access'"
                                 " AND revoked = 0 AND expires_ms > ?",
                                 {token, nowMs()});
    if (rows.empty())
        return std::nullopt;
    return accountById(rows[0][0].toString());
}

QJsonObject ServiceState::issueTokens(const QString& accountId, const QString& sessionId)
{
    const QString session = sessionId.isEmpty() ? newId() : sessionId;
    const QString access = QStringLiteral("sla_") + randomToken(24);
    const QString refresh = QStringLiteral("slr_") + randomToken(32);
    const qint64 now = nowMs();
    std::lock_guard lock(m_db.lock());
    m_db.exec("INSERT INTO tokens(token, kind, account_id, session_id, expires_ms) VALUES(?, "
              "'access', ?, ?, ?)",
              {access, accountId, session, now + accessTokenLifetime().count() * 1000});
    m_db.exec("INSERT INTO tokens(token, kind, account_id, session_id, expires_ms) VALUES(?, "
              "'refresh', ?, ?, ?)",
              {refresh, accountId, session, now + kRefreshLifetimeMs});
    return QJsonObject{{QStringLiteral("token"), access},
                       {QStringLiteral("refresh_token"), refresh}};
}

void ServiceState::revokeSession(const QString& sessionId)
{
    m_db.exec("UPDATE tokens SET revoked = 1 WHERE session_id = ?", {sessionId});
}

QString ServiceState::createChallenge(const QString& accountId)
{
    QString id = newId();
    const QString code = QStringLiteral("%1").arg(QRandomGenerator::system()->bounded(1000000), 6,
                                                  10, QLatin1Char('0'));
    {
        std::lock_guard lock(m_challengeMutex);
        m_challenges[id] = Challenge{accountId, code, nowMs() + kCodeChallengeLifetimeMs, 0};
        m_lastMfaCode = code;
    }
    const std::optional<Account> account = accountById(accountId);
    consoleLog(QStringLiteral("🔑 Sign-in code for %1: %2")
                   .arg(account ? account->email : accountId, code));
    return id;
}

QString ServiceState::lastMfaCode() const
{
    std::lock_guard lock(m_challengeMutex);
    return m_lastMfaCode;
}

std::optional<int> ServiceState::retryAfterSeconds(const QString& email)
{
    std::lock_guard lock(m_failureMutex);
    std::vector<qint64>& times = m_failures[email.trimmed().toLower()];
    const qint64 now = nowMs();
    std::erase_if(times, [now](qint64 t) { return now - t > kFailureWindowMs; });
    if (static_cast<int>(times.size()) < kMaxFailures)
        return std::nullopt;
    return static_cast<int>((times.front() + kFailureWindowMs - now + 999) / 1000);
}

void ServiceState::noteFailedLogin(const QString& email)
{
    std::lock_guard lock(m_failureMutex);
    m_failures[email.trimmed().toLower()].push_back(nowMs());
}

void ServiceState::clearFailedLogins(const QString& email)
{
    std::lock_guard lock(m_failureMutex);
    m_failures.erase(email.trimmed().toLower());
}

QString ServiceState::addRecording(const QString& accountId, const QString& filename,
                                   const QString& status, qint64 durationMs, const QString& title)
{
    QString id = newId();
    m_db.exec(
        "INSERT INTO recordings(id, account_id, original_filename, status, created_ms, duration_ms,"
        " language, ai_title) VALUES(?, ?, ?, ?, ?, ?, 'en', ?)",
        {id, accountId, filename, status, nowMs(), durationMs,
         title.isEmpty() ? QVariant() : QVariant(title)});
    return id;
}

QString ServiceState::addUploadedRecording(const QString& id, const QString& accountId,
                                           const QString& filename, const QVariant& durationMs,
                                           const QString& filePath)
{
    m_db.exec(
        "INSERT INTO recordings(id, account_id, original_filename, status, created_ms, duration_ms,"
        " language, ai_title, file_path) VALUES(?, ?, ?, 'processing', ?, ?, 'en', NULL, ?)",
        {id, accountId, filename, nowMs(), durationMs, filePath});
    return id;
}

void ServiceState::completeFinishedProcessing()
{
    m_db.exec("UPDATE recordings SET status = 'completed'"
              " WHERE status = 'processing' AND created_ms <= ?",
              {nowMs() - qint64(m_options.processingTime.count())});
}

} // namespace sorv::local
