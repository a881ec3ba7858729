#include "database/kelsqlitedb.h"

#include "database/kelforeignfile.h"
#include "database/kelsqliteconnectionlock.h"
#include "database/kelsqlitestatement.h"

#include <sqlite3.h>

#include <chrono>
#include <limits>

namespace Ombrin {

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
