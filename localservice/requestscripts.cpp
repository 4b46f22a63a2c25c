#include "requestscripts.h"

namespace sorv::local {

ScriptedAnswer ScriptedAnswer::reply(int status, QByteArray body, HeaderList headers)
{
    ScriptedAnswer a;
    a.status = status;
    a.body = std::move(body);
    a.headers = std::move(headers);
    return a;
}

ScriptedAnswer ScriptedAnswer::json(int status, const QJsonObject& object)
{
    const ServiceResponse r = ServiceResponse::json(status, object);
    return reply(status, r.body, {{"Content-Type", "application/json"}});
}

ScriptedAnswer ScriptedAnswer::delayed(std::chrono::milliseconds delay)
{
    ScriptedAnswer a;
    a.delay = delay;
    return a;
}

ScriptedAnswer ScriptedAnswer::dropped()
{
    ScriptedAnswer a;
    a.dropConnection = true;
    return a;
}

void RequestScripts::queue(const QByteArray& method, const QString& path, ScriptedAnswer answer)
{
    std::lock_guard lock(m_scriptMutex);
    m_scripts[{method, path}].push_back(std::move(answer));
}

std::optional<ScriptedAnswer> RequestScripts::take(const QByteArray& method, const QString& path)
{
    std::lock_guard lock(m_scriptMutex);
    const auto it = m_scripts.find({method, path});
    if (it == m_scripts.end() || it->second.empty())
        return std::nullopt;
    ScriptedAnswer answer = std::move(it->second.front());
    it->second.pop_front();
    return answer;
}

void RequestScripts::clear()
{
    std::lock_guard lock(m_scriptMutex);
    m_scripts.clear();
}

qsizetype RequestScripts::log(LoggedRequest request)
{
    std::lock_guard lock(m_logMutex);
    m_log.append(std::move(request));
    return m_log.size() - 1;
}

void RequestScripts::noteStreamedBody(qsizetype entry, qint64 size, const QByteArray& sha256)
{
    std::lock_guard lock(m_logMutex);
    // The log may have been cleared meanwhile.
    if (entry < m_log.size()) {
        m_log[entry].streamedBodySize = size;
        m_log[entry].streamedBodySha256 = sha256;
    }
}

QList<LoggedRequest> RequestScripts::requests() const
{
    // A copy with storage of its own: a shared list would be detached later,
    // outside the lock, while the connection threads append to the original.
    std::lock_guard lock(m_logMutex);
    QList<LoggedRequest> copy;
    copy.reserve(m_log.size());
    for (const LoggedRequest& r : std::as_const(m_log))
        copy.append(r);
    return copy;
}

int RequestScripts::count(const QByteArray& method, const QString& path) const
{
    std::lock_guard lock(m_logMutex);
    return static_cast<int>(
        std::count_if(m_log.cbegin(), m_log.cend(), [&](const LoggedRequest& r) {
            return r.method == method && r.path == path;
        }));
}

void RequestScripts::clearLog()
{
    std::lock_guard lock(m_logMutex);
    m_log.clear();
}

} // namespace sorv::local
