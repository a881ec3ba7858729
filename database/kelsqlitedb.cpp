#include "database/kelsqlitedb.h"

#include "database/kelforeignfile.h"
#include "database/kelsqliteclock.h"
#include "database/kelsqliteconnectionlock.h"
#include "database/kelsqlitestatement.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <utility>

namespace Ombrin {

std::chrono::steady_clock::time_point (*kelSqliteNow)() = &std::chrono::steady_clock::now;

CkelSqliteDB::CkelSqliteDB() : m_steps(std::make_unique<CkelForeignSteps>()) {}

CkelSqliteDB::~CkelSqliteDB()
{
    close();
}

bool CkelSqliteDB::open(const CkelString& fileName)
{
    close();
    m_fileName = fileName.toStdString();
    m_connection = connect();
    if (isOpen())
        m_steps->watch(m_connection);
    return isOpen();
}

/// Null, and the reason in m_lastResult, when the file cannot be opened.
sqlite3* CkelSqliteDB::connect()
{
    constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX;
    sqlite3* connection = nullptr;
    m_lastResult = openForeignFile(m_fileName.c_str(), flags, &connection);
    if (m_lastResult != SQLITE_OK) {
        sqlite3_close_v2(connection); // SQLite gives a handle for a failed open too
        return nullptr;
    }
    distrustFile(connection);
    sqlite3_busy_handler(connection, &CkelSqliteDB::waitWhileBusy, this);
    return connection;
}

bool CkelSqliteDB::isCurrent() const
{
    if (!m_connection || sqlite3_db_readonly(m_connection, "main") != 0)
        return false;
    int hasMoved = 0;
    return sqlite3_file_control(m_connection, "main", SQLITE_FCNTL_HAS_MOVED, &hasMoved) != SQLITE_OK || hasMoved == 0;
}

void CkelSqliteDB::refresh()
{
    if (isCurrent())
        return;
    const int resultBefore = m_lastResult;
    sqlite3* const stale = std::exchange(m_connection, connect());
    if (isCurrent() || !stale) {
        sqlite3_close_v2(stale);
    } else {
        sqlite3_close_v2(std::exchange(m_connection, stale));
        m_lastResult = resultBefore;
    }
    if (isOpen())
        m_steps->watch(m_connection);
}

void CkelSqliteDB::setBusyTimeOut(std::chrono::milliseconds timeOut)
{
    m_busyTimeOut = timeOut;
}

/// Whether SQLite tries again. The end is a time: signals cut the pauses short, and SQLite's own handler counts pauses.
int CkelSqliteDB::waitWhileBusy(void* database, int attempts)
{
    constexpr std::array<int, 8> pauses{1, 2, 5, 10, 15, 25, 50, 100}; // milliseconds
    auto& self = *static_cast<CkelSqliteDB*>(database);
    const auto now = kelSqliteNow();
    if (attempts == 0)
        self.m_waitEnd = now + self.m_busyTimeOut;
    if (now >= self.m_waitEnd)
        return 0;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(self.m_waitEnd - now).count();
    const int pause = pauses[std::min(static_cast<std::size_t>(attempts), pauses.size() - 1)];
    sqlite3_sleep(static_cast<int>(std::min<long long>(pause, left)));
    return 1;
}

void CkelSqliteDB::restartSteps()
{
    m_steps->restart();
}

void CkelSqliteDB::close()
{
    sqlite3_close_v2(m_connection);
    m_connection = nullptr;
}

/// Calls `visit` with each row that `text` returns, until it returns false.
bool CkelSqliteDB::step(const CkelString& text, const Visit& visit)
{
    CkelSqliteStatement statement(m_connection, text.toStdString());
    if (!statement.isValid()) {
        m_lastResult = m_connection ? sqlite3_errcode(m_connection) : SQLITE_MISUSE;
        if (m_lastResult == SQLITE_OK)
            m_lastResult = SQLITE_MISUSE; // the text holds no statement
        return false;
    }
    const CkelSqliteConnectionLock lock(m_connection);
    m_steps->restart();
    while ((m_lastResult = sqlite3_step(statement.handle())) == SQLITE_ROW) {
        if (!visit(statement.handle()))
            return false;
    }
    return m_lastResult == SQLITE_DONE;
}

bool CkelSqliteDB::forEachRow(const CkelString& text, const std::function<void(const CkelSqliteVariantVector&)>& visit)
{
    CkelSqliteVariantVector columns;
    return step(text, [&](sqlite3_stmt* row) {
        columns.read(row);
        visit(columns);
        return true;
    });
}

bool CkelSqliteDB::forEachStoredRow(const CkelString& text, int columns, bool isKeyed,
                                    const std::function<bool(const CkelSqliteVariantVector&)>& visit)
{
    CkelForeignRows rows(m_connection, isKeyed);
    CkelSqliteVariantVector values;
    bool isSound = true;
    const bool done = step(text, [&](sqlite3_stmt* row) {
        const long long bytes = values.read(row, columns);
        isSound = rows.admit(values, bytes);
        return isSound && visit(values);
    });
    if (!isSound)
        m_lastResult = SQLITE_CORRUPT;
    return done;
}

} // namespace Ombrin
