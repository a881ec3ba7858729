#include "database/kelsqlitedb.h"

#include "database/kelsqliteconnectionlock.h"
#include "database/kelsqlitestatement.h"

#include <sqlite3.h>

#include <chrono>
#include <limits>

namespace Ombrin {

namespace {

constexpr int longestRow = 64 << 20; // bytes

/// Anybody may have made the file: nothing in it is run, nothing but tables is read, and what a table's constraints
/// compute reaches nothing outside and takes no more memory than a row may have.
void distrustFile(sqlite3* connection)
{
    constexpr int off = 0;
    constexpr int on = 1;
    sqlite3_db_config(connection, SQLITE_DBCONFIG_TRUSTED_SCHEMA, off, nullptr);
    sqlite3_db_config(connection, SQLITE_DBCONFIG_ENABLE_TRIGGER, off, nullptr);
    sqlite3_db_config(connection, SQLITE_DBCONFIG_ENABLE_VIEW, off, nullptr);
    sqlite3_db_config(connection, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, off, nullptr);
    sqlite3_db_config(connection, SQLITE_DBCONFIG_DEFENSIVE, on, nullptr);
    sqlite3_drop_modules(connection, nullptr); // virtual tables are code
    // Without it a damaged page may be read beyond its end, with rows out of what the memory held before.
    sqlite3_exec(connection, "PRAGMA cell_size_check=ON", nullptr, nullptr, nullptr);
    sqlite3_limit(connection, SQLITE_LIMIT_LENGTH, longestRow);
}

} // namespace

CkelSqliteDB::~CkelSqliteDB()
{
    close();
}

bool CkelSqliteDB::open(const CkelString& fileName)
{
    close();
    constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX;
    m_lastResult = sqlite3_open_v2(fileName.toStdString().c_str(), &m_connection, flags, nullptr);
    if (m_lastResult != SQLITE_OK) {
        close(); // SQLite gives a handle for a failed open too
        return false;
    }
    distrustFile(m_connection);
    setBusyTimeOut(defaultBusyTimeOut);
    return true;
}

void CkelSqliteDB::setBusyTimeOut(std::chrono::milliseconds timeOut)
{
    if (m_connection)
        sqlite3_busy_timeout(m_connection, static_cast<int>(timeOut.count()));
}

void CkelSqliteDB::close()
{
    sqlite3_close_v2(m_connection);
    m_connection = nullptr;
}

bool CkelSqliteDB::forEachRow(const CkelString& text, const std::function<void(const CkelSqliteVariantVector&)>& visit)
{
    return forEachRow(text, std::numeric_limits<int>::max(), [&visit](const CkelSqliteVariantVector& row) {
        visit(row);
        return true;
    });
}

bool CkelSqliteDB::forEachRow(const CkelString& text, int columns,
                              const std::function<bool(const CkelSqliteVariantVector&)>& visit)
{
    CkelSqliteStatement statement(m_connection, text.toStdString());
    if (!statement.isValid()) {
        m_lastResult = m_connection ? sqlite3_errcode(m_connection) : SQLITE_MISUSE;
        if (m_lastResult == SQLITE_OK)
            m_lastResult = SQLITE_MISUSE; // the text holds no statement
        return false;
    }
    const CkelSqliteConnectionLock lock(m_connection);
    CkelSqliteVariantVector row;
    while ((m_lastResult = sqlite3_step(statement.handle())) == SQLITE_ROW) {
        row.read(statement.handle(), columns);
        if (!visit(row))
            return false;
    }
    return m_lastResult == SQLITE_DONE;
}

} // namespace Ombrin
