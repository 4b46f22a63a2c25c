#pragma once

#include <QString>
#include <QVariant>
#include <QVariantList>

#include <mutex>
#include <vector>

struct sqlite3;

namespace sorv::local {

// The service's state on disk: one SQLite file, shared by all connection
// threads. Each statement runs under one lock, which is plenty for a local
// peer; callers that need several statements to be atomic hold lock().
class Database {
public:
    Database() = default;
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    bool open(const QString& path, QString* error);
    void close();

    using Row = QVariantList;
    // Binds are positional ("?"); QString, integers, doubles, byte arrays and
    // null QVariants are understood. Failures are logged and give no rows.
    std::vector<Row> query(const char* sql, const QVariantList& binds = {});
    bool exec(const char* sql, const QVariantList& binds = {});
    // Rows changed by the last exec().
    int changes();

    std::recursive_mutex& lock() { return m_mutex; }

private:
    std::recursive_mutex m_mutex;
    sqlite3* m_db = nullptr;
    bool m_lastOk = false;
};

} // namespace sorv::local
