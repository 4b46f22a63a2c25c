#pragma once

#include "localservice/httpexchange.h"

#include <chrono>
#include <deque>
#include <map>
#include <mutex>
#include <optional>

namespace sorv::local {

// A request the service received, as it arrived.
struct LoggedRequest {
    QByteArray method;
    QString path;   // without the query
    QString target; // with the query
    HeaderList headers;
    QByteArray body; // empty for streamed bodies
    // Streamed bodies (uploads) are not kept; their size and SHA-256 are, once
    // the body has been read.
    qint64 streamedBodySize = 0;
    QByteArray streamedBodySha256;
    QByteArray header(const QByteArray& name) const { return headerValue(headers, name); }
};

// A one-shot answer that replaces the endpoint's own for the next matching
// request. Without a status the endpoint answers as usual, after the delay.
struct ScriptedAnswer {
    std::optional<int> status;
    HeaderList headers;
    QByteArray body;
    std::chrono::milliseconds delay{0};
    bool dropConnection = false; // close the connection without any answer

    static ScriptedAnswer reply(int status, QByteArray body = {}, HeaderList headers = {});
    static ScriptedAnswer json(int status, const QJsonObject& object);
    static ScriptedAnswer delayed(std::chrono::milliseconds delay);
    static ScriptedAnswer dropped();
};

// What tests script and read back: the answers queued per method and path
// (no query), used in the order they were queued, and the log of every
// request. Thread-safe: the connection threads take and log.
class RequestScripts {
public:
    void queue(const QByteArray& method, const QString& path, ScriptedAnswer answer);
    std::optional<ScriptedAnswer> take(const QByteArray& method, const QString& path);
    void clear();

    // Returns the entry's place, for noteStreamedBody() once the body is read.
    qsizetype log(LoggedRequest request);
    void noteStreamedBody(qsizetype entry, qint64 size, const QByteArray& sha256);
    QList<LoggedRequest> requests() const;
    int count(const QByteArray& method, const QString& path) const;
    void clearLog();

private:
    mutable std::mutex m_scriptMutex;
    std::map<std::pair<QByteArray, QString>, std::deque<ScriptedAnswer>> m_scripts;
    mutable std::mutex m_logMutex;
    QList<LoggedRequest> m_log;
};

} // namespace sorv::local
