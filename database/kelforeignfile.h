#pragma once
// Private to this project: not installed.

#include "kernel/kelglobal.h"

#include <atomic>
#include <string>

struct sqlite3;

namespace Ombrin {

class CkelSqliteVariantVector;

// A database file may come from anybody. The library and the tools take these precautions.

/// Opens a connection with SQLite's flags. Files that are no regular files are refused at once: a FIFO in the place of
/// the file, its journal or its log would block for ever. The result is SQLite's; `connection` receives a handle, which
/// the caller closes, also after most failures.
KEL_EXPORT int openForeignFile(const char* name, int flags, sqlite3** connection);

/// Nothing in the file is run, nothing but tables is read, and what a table's constraints compute reaches nothing
/// outside and takes no more memory than a row may have.
KEL_EXPORT void distrustFile(sqlite3* connection);

/// Whether the first column of the table is surely the rows' number, in whose order SQLite returns them.
KEL_EXPORT bool isKeyedByFirstColumn(sqlite3* connection, const std::string& table);

/// Ends a statement with an error when it takes far more steps than a sound file of this size needs, as a search
/// through pages that contain each other does.
class KEL_EXPORT CkelForeignSteps
{
public:
    /// From now on for the statements of this connection, which outlives this object's use of it.
    void watch(sqlite3* connection);

    /// Counts from zero again; called before each operation.
    void restart() { m_periods = 0; }

private:
    static int count(void* steps);

    sqlite3* m_connection = nullptr;
    std::atomic<int> m_periods{0};
};

/// Tells the rows that a file can hold from those of a file whose pages or texts are shared between rows.
class KEL_EXPORT CkelForeignRows
{
public:
    /// `isKeyed`: see isKeyedByFirstColumn().
    CkelForeignRows(sqlite3* connection, bool isKeyed);

    /// Whether the file can hold the row, beside those before. `bytes` is the size of its texts and blobs.
    bool admit(const CkelSqliteVariantVector& row, long long bytes);

private:
    void measure();

    sqlite3* const m_connection;
    const bool m_isKeyed;
    long long m_rowsLeft = 0;
    long long m_bytesLeft = 0;
    bool m_isFirst = true;
    long long m_lastKey = 0;
};

} // namespace Ombrin
