#pragma once
// Private to this project: not installed.

#include <sqlite3.h>

namespace Ombrin {

/// Anybody may have made the file: nothing in it is run, nothing but tables is read, and what a table's constraints
/// compute reaches nothing outside and takes no more memory than a row may have.
inline void distrustFile(sqlite3* connection)
{
    constexpr int off = 0;
    constexpr int on = 1;
    constexpr int longestRow = 64 << 20; // bytes
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

} // namespace Ombrin
