#include "database.h"

#include "core/log.h"

#include <sqlite3.h>

namespace sorv::local {

Database::~Database()
{
    close();
}

bool Database::open(const QString& path, QString* error)
{
    std::lock_guard lock(m_mutex);
    close();
    if (sqlite3_open_v2(path.toUtf8().constData(), &m_db,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX,
                        nullptr) != SQLITE_OK) {
        if (error)
            *error = QString::fromUtf8(m_db ? sqlite3_errmsg(m_db) : "out of memory");
        close();
        return false;
    }
    sqlite3_busy_timeout(m_db, 2000);
    exec("PRAGMA journal_mode=WAL");
    exec("PRAGMA foreign_keys=ON");
    return true;
}

void Database::close()
{
    std::lock_guard lock(m_mutex);
    if (m_db)
        sqlite3_close_v2(m_db);
    m_db = nullptr;
}

std::vector<Database::Row> Database::query(const char* sql, const QVariantList& binds)
{
    std::lock_guard lock(m_mutex);
    std::vector<Row> rows;
    m_lastOk = false;
    if (!m_db)
        return rows;
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(m_db, sql, -1, &stmt, nullptr) != SQLITE_OK) {
        consoleLog(QStringLiteral("❌ SQL error: %1 in %2")
                       .arg(QString::fromUtf8(sqlite3_errmsg(m_db)), QString::fromUtf8(sql)));
        return rows;
    }
    for (int i = 0; i < binds.size(); ++i) {
        const QVariant& v = binds.at(i);
        const int index = i + 1;
        if (v.isNull()) {
            sqlite3_bind_null(stmt, index);
        } else if (v.typeId() == QMetaType::QByteArray) {
            const QByteArray bytes = v.toByteArray();
            sqlite3_bind_blob(stmt, index, bytes.constData(), static_cast<int>(bytes.size()),
                              SQLITE_TRANSIENT);
        } else if (v.typeId() == QMetaType::Int || v.typeId() == QMetaType::LongLong ||
                   v.typeId() == QMetaType::Bool || v.typeId() == QMetaType::UInt ||
                   v.typeId() == QMetaType::ULongLong) {
            sqlite3_bind_int64(stmt, index, v.toLongLong());
        } else if (v.typeId() == QMetaType::Double) {
            sqlite3_bind_double(stmt, index, v.toDouble());
        } else {
            const QByteArray text = v.toString().toUtf8();
            sqlite3_bind_text(stmt, index, text.constData(), static_cast<int>(text.size()),
                              SQLITE_TRANSIENT);
        }
    }
    int rc = SQLITE_ROW;
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
        Row row;
        const int columns = sqlite3_column_count(stmt);
        for (int c = 0; c < columns; ++c) {
            switch (sqlite3_column_type(stmt, c)) {
            case SQLITE_INTEGER:
                row << QVariant::fromValue<qint64>(sqlite3_column_int64(stmt, c));
                break;
            case SQLITE_FLOAT:
                row << sqlite3_column_double(stmt, c);
                break;
            case SQLITE_NULL:
                row << QVariant();
                break;
            case SQLITE_BLOB:
                row << QByteArray(static_cast<const char*>(sqlite3_column_blob(stmt, c)),
                                  sqlite3_column_bytes(stmt, c));
                break;
            default:
                row << QString::fromUtf8(
                    reinterpret_cast<const char*>(sqlite3_column_text(stmt, c)),
                    sqlite3_column_bytes(stmt, c));
            }
        }
        rows.push_back(std::move(row));
    }
    m_lastOk = rc == SQLITE_DONE;
    if (rc != SQLITE_DONE)
        consoleLog(QStringLiteral("❌ SQL error: %1 in %2")
                       .arg(QString::fromUtf8(sqlite3_errmsg(m_db)), QString::fromUtf8(sql)));
    sqlite3_finalize(stmt);
    return rows;
}

bool Database::exec(const char* sql, const QVariantList& binds)
{
    std::lock_guard lock(m_mutex);
    if (!m_db)
        return false;
    query(sql, binds);
    return m_lastOk;
}

int Database::changes()
{
    std::lock_guard lock(m_mutex);
    return m_db ? sqlite3_changes(m_db) : 0;
}

} // namespace sorv::local
