#pragma once

#include "kernel/kelglobal.h"

#include <string>

struct sqlite3;
struct sqlite3_stmt;

namespace Ombrin {

/// One prepared SQL statement of a connection; finalised by its destructor.
///
/// Parameters are bound by position, from 1; texts are copied. Every operation reports success; a statement that could
/// not be prepared does nothing and reports false.
/// @ingroup database
class KEL_EXPORT CkelSqliteStatement
{
public:
    /// An empty `text` or a null connection prepares nothing.
    CkelSqliteStatement(sqlite3* connection, const std::string& text);
    ~CkelSqliteStatement();

    CkelSqliteStatement(const CkelSqliteStatement&) = delete;
    CkelSqliteStatement& operator=(const CkelSqliteStatement&) = delete;

    /// Whether SQLite accepted the text.
    bool isValid() const { return m_statement != nullptr; }

    /// SQLite's handle; null when nothing was prepared. The statement stays this object's.
    sqlite3_stmt* handle() const { return m_statement; }

    /// @name Parameters
    /// bind() gives the parameter at `position`, from 1, its value, which stays until it is bound anew. False when
    /// there is no such parameter.
    /// @{

    bool bind(int position, int value);                ///< a 32-bit integer
    bool bind(int position, long long value);          ///< a 64-bit integer
    bool bind(int position, double value);             ///< a real number; NaN becomes NULL
    bool bind(int position, const std::string& value); ///< a text, NULs included; it is copied

    /// @}

    /// Runs a statement that returns no rows and makes it ready for the next values.
    bool execute();

private:
    sqlite3_stmt* m_statement = nullptr;
};

/// A write transaction, from "BEGIN IMMEDIATE" to "COMMIT"; rolled back by its destructor unless it was committed.
/// @ingroup database
class KEL_EXPORT CkelSqliteTransaction
{
public:
    /// Begins at once, and waits for a locked file as long as the connection does. A null connection begins nothing.
    explicit CkelSqliteTransaction(sqlite3* connection);
    ~CkelSqliteTransaction();

    CkelSqliteTransaction(const CkelSqliteTransaction&) = delete;
    CkelSqliteTransaction& operator=(const CkelSqliteTransaction&) = delete;

    /// False when the file cannot be written or could not be locked.
    bool isOpen() const { return m_open; }

    /// False when the changes could not be written; the destructor then rolls them back. It may be called again.
    bool commit();

    /// SQLite's result code of "BEGIN IMMEDIATE" or, once commit() was called, of "COMMIT".
    int lastResult() const { return m_lastResult; }

private:
    void rollBack();

    sqlite3* const m_connection;
    CkelSqliteStatement m_rollback; // prepared here because rolling back must not allocate
    int m_lastResult;
    bool m_open;
};

} // namespace Ombrin
