#include "database/kelforeignfile.h"

#include "database/kelsqlitestatement.h"
#include "database/kelsqlitevariantvector.h"
#include "kernel/kelmutex.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <list>
#include <string>
#include <string_view>
#include <utility>

namespace Ombrin {

namespace {

/// SQLite's default file system, but that it opens regular files only.
struct RegularFiles
{
    sqlite3_vfs fileSystem; // first: SQLite hands it to openFile()
    sqlite3_vfs* base;
    std::string name;
};

bool isRegularOrMissing(const char* name)
{
    struct stat status = {};
    return stat(name, &status) != 0 || S_ISREG(status.st_mode);
}

int openFile(sqlite3_vfs* fileSystem, const char* name, sqlite3_file* file, int flags, int* outFlags)
{
    if (name && !isRegularOrMissing(name)) {
        file->pMethods = nullptr;
        return SQLITE_CANTOPEN;
    }
    sqlite3_vfs* const base = reinterpret_cast<RegularFiles*>(fileSystem)->base;
    return base->xOpen(base, name, file, flags, outFlags);
}

/// The name under which SQLite knows the file system; null without memory for it.
const char* regularFiles()
{
    // Never destroyed: threads may outlive main.
    static CkelMutex& mutex = *new CkelMutex;
    static auto& made = *new std::list<RegularFiles>;
    const CkelMutexLocker lock(mutex);
    sqlite3_vfs* const base = sqlite3_vfs_find(nullptr);
    auto found = std::find_if(made.begin(), made.end(), [base](const RegularFiles& each) { return each.base == base; });
    if (found == made.end()) {
        made.push_back({*base, base, "kel regular files " + std::to_string(made.size())});
        found = std::prev(made.end());
        found->fileSystem.zName = found->name.c_str();
        found->fileSystem.xOpen = &openFile;
    }
    return sqlite3_vfs_register(&found->fileSystem, 0) == SQLITE_OK ? found->name.c_str() : nullptr;
}

long long sizeOf(sqlite3* connection)
{
    sqlite3_int64 size = 0;
    sqlite3_file* file = nullptr;
    if (sqlite3_file_control(connection, "main", SQLITE_FCNTL_FILE_POINTER, &file) == SQLITE_OK && file->pMethods)
        file->pMethods->xFileSize(file, &size);
    struct stat log = {};
    const char* const name = sqlite3_db_filename(connection, "main");
    if (name && *name && stat(sqlite3_filename_wal(name), &log) == 0)
        size += log.st_size;
    return size;
}

} // namespace

int openForeignFile(const char* name, int flags, sqlite3** connection)
{
    const char* const fileSystem = regularFiles();
    return fileSystem ? sqlite3_open_v2(name, connection, flags, fileSystem) : SQLITE_NOMEM;
}

void distrustFile(sqlite3* connection)
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

bool isKeyedByFirstColumn(sqlite3* connection, const std::string& table)
{
    constexpr int typeColumn = 2; // of the answer
    constexpr int keyColumn = 5;  // the column's place in the primary key, from 1
    int seen = 0;
    int keys = 0;
    bool isKeyed = false;
    const CkelSqliteStatement columns(connection, "PRAGMA table_xinfo(" + table + ")");
    while (columns.isValid() && sqlite3_step(columns.handle()) == SQLITE_ROW) {
        const bool isKey = sqlite3_column_int64(columns.handle(), keyColumn) != 0;
        const auto* const type = reinterpret_cast<const char*>(sqlite3_column_text(columns.handle(), typeColumn));
        keys += isKey ? 1 : 0;
        isKeyed = isKeyed || (isKey && seen == 0 && type && std::string_view(type) == "INTEGER");
        ++seen;
    }
    // A descending key and one without row numbers come in another order.
    const CkelSqliteStatement others(connection, "SELECT 1 FROM sqlite_master WHERE tbl_name='" + table +
                                                     "' COLLATE NOCASE AND (name LIKE 'sqlite_autoindex%' OR sql LIKE "
                                                     "'%DESC%' OR sql LIKE '%WITHOUT%') LIMIT 1;");
    return isKeyed && keys == 1 && others.isValid() && sqlite3_step(others.handle()) == SQLITE_DONE;
}

void CkelForeignSteps::watch(sqlite3* connection)
{
    constexpr int period = 1'000'000;
    m_connection = connection;
    sqlite3_progress_handler(connection, period, &CkelForeignSteps::count, this);
}

int CkelForeignSteps::count(void* steps)
{
    constexpr long long base = 4; // periods
    // A period more for so many bytes of the file: a row has 6 at least and takes some 30 steps.
    constexpr long long bytes = 1'000'000 / 8;
    auto& self = *static_cast<CkelForeignSteps*>(steps);
    return ++self.m_periods > base + sizeOf(self.m_connection) / bytes ? 1 : 0;
}

CkelForeignRows::CkelForeignRows(sqlite3* connection, bool isKeyed) : m_connection(connection), m_isKeyed(isKeyed) {}

void CkelForeignRows::measure()
{
    constexpr long long shortestRow = 6; // bytes, its pointer in the page included
    constexpr long long widening = 2;    // more than UTF-16 grows by in UTF-8
    // What an open transaction has written need not be in the file yet.
    const bool isInFile = sqlite3_get_autocommit(m_connection) != 0;
    const long long size = isInFile ? sizeOf(m_connection) : std::numeric_limits<long long>::max() / widening;
    m_rowsLeft = size / shortestRow;
    m_bytesLeft = size * widening;
}

bool CkelForeignRows::admit(const CkelSqliteVariantVector& row, long long bytes)
{
    const bool isFirst = std::exchange(m_isFirst, false);
    if (isFirst)
        measure(); // not earlier: from the first row on the file is locked against growth
    m_bytesLeft -= bytes;
    if (--m_rowsLeft < 0 || m_bytesLeft < 0)
        return false;
    if (!m_isKeyed)
        return true;
    const long long before = std::exchange(m_lastKey, row.toValue<long long>(0));
    return isFirst || before < m_lastKey;
}

} // namespace Ombrin
