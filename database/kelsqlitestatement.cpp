#include "database/kelsqlitestatement.h"

#include <sqlite3.h>

#include <limits>

namespace Ombrin {

CkelSqliteStatement::CkelSqliteStatement(sqlite3* connection, const std::string& text)
{
    if (connection && !text.empty())
        sqlite3_prepare_v2(connection, text.c_str(), -1, &m_statement, nullptr);
}

CkelSqliteStatement::~CkelSqliteStatement()
{
    sqlite3_finalize(m_statement);
}

bool CkelSqliteStatement::bind(int position, int value)
{
    return m_statement && sqlite3_bind_int(m_statement, position, value) == SQLITE_OK;
}

bool CkelSqliteStatement::bind(int position, long long value)
{
    return m_statement && sqlite3_bind_int64(m_statement, position, value) == SQLITE_OK;
}

bool CkelSqliteStatement::bind(int position, double value)
{
    return m_statement && sqlite3_bind_double(m_statement, position, value) == SQLITE_OK;
}

bool CkelSqliteStatement::bind(int position, const std::string& value)
{
    return m_statement && value.size() <= static_cast<std::size_t>(std::numeric_limits<int>::max()) &&
           sqlite3_bind_text(m_statement, position, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT) ==
               SQLITE_OK;
}

bool CkelSqliteStatement::execute()
{
    if (!m_statement)
        return false;
    sqlite3_stmt_status(m_statement, SQLITE_STMTSTATUS_VM_STEP, 1); // CkelForeignSteps bounds each execution
    const int result = sqlite3_step(m_statement);
    sqlite3_reset(m_statement);
    return result == SQLITE_DONE || result == SQLITE_ROW;
}

CkelSqliteTransaction::CkelSqliteTransaction(sqlite3* connection)
    : m_connection(connection),
      m_rollback(connection, "ROLLBACK"),
      m_lastResult(m_rollback.isValid() ? sqlite3_exec(connection, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr)
                                        : SQLITE_MISUSE),
      m_open(m_lastResult == SQLITE_OK)
{
    // On a file that cannot be written SQLite begins a transaction that only reads.
    if (m_open && sqlite3_db_readonly(connection, "main") != 0) {
        rollBack();
        m_lastResult = SQLITE_READONLY;
        m_open = false;
    }
}

CkelSqliteTransaction::~CkelSqliteTransaction()
{
    if (m_open)
        rollBack();
}

void CkelSqliteTransaction::rollBack()
{
    // SQLite has done so by itself after some errors; then there is nothing left to end.
    if (sqlite3_get_autocommit(m_connection) == 0)
        m_rollback.execute();
}

bool CkelSqliteTransaction::commit()
{
    if (!m_open)
        return false;
    m_lastResult = sqlite3_exec(m_connection, "COMMIT", nullptr, nullptr, nullptr);
    m_open = m_lastResult != SQLITE_OK;
    return !m_open;
}

} // namespace Ombrin
