#pragma once
// Private to this project: not installed.

#include <sqlite3.h>

namespace Ombrin {

/// Holds SQLite's own lock on a connection. Every call that SQLite gets takes it; for the thread that has it already
/// that costs next to nothing.
class CkelSqliteConnectionLock
{
public:
    explicit CkelSqliteConnectionLock(sqlite3* connection) : m_mutex(sqlite3_db_mutex(connection))
    {
        sqlite3_mutex_enter(m_mutex);
    }
    ~CkelSqliteConnectionLock() { sqlite3_mutex_leave(m_mutex); }
    CkelSqliteConnectionLock(const CkelSqliteConnectionLock&) = delete;
    CkelSqliteConnectionLock& operator=(const CkelSqliteConnectionLock&) = delete;

private:
    sqlite3_mutex* const m_mutex;
};

} // namespace Ombrin
