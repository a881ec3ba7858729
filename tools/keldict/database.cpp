#include "database.h"

#include "failure.h"
#include "quietoutput.h"

#include "database/kelsqlitestatement.h"

#include <sqlite3.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string_view>
#include <system_error>

#include <strings.h> // strcasecmp: NOLINT(modernize-deprecated-headers) POSIX, not C++

namespace Keldict {

namespace fs = std::filesystem;
using Ombrin::CkelSqliteStatement;

namespace {

constexpr int patience = 5000; // milliseconds that a writer on the device may take
constexpr const char* tableName = "kel";
constexpr const char* rowsText = "SELECT * FROM kel";

/// The file itself where the name is a link to it: SQLite looks for a journal and a log there.
std::string resolved(const std::string& name)
{
    std::error_code error;
    const fs::path path = fs::canonical(name, error);
    return error ? name : path.string();
}

/// The path as an URI that asks for reading only; SQLite refuses to make or to change the file then.
std::string readOnlyUri(const std::string& path)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string uri = "file:";
    for (const char c : fs::absolute(path).string()) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '%' || c == '?' || c == '#' || byte < 0x21 || byte > 0x7E)
            uri.append({'%', digits[byte >> 4U], digits[byte & 0xFU]});
        else
            uri += c;
    }
    return uri + "?mode=ro";
}

/// Whether the file keeps a write-ahead log. Even reading it would make files beside it.
bool keepsLog(const std::string& path)
{
    constexpr std::streamoff formatOffset = 18;
    std::ifstream file(path, std::ios::binary);
    file.seekg(formatOffset);
    return file.get() == 2;
}

bool isThere(const fs::path& path)
{
    std::error_code error;
    return fs::file_size(path, error) > 0 && !error;
}

void copyFile(const fs::path& from, const fs::path& to)
{
    std::error_code error;
    fs::copy_file(from, to, error);
    if (error)
        throw Failure(Unreadable, from.string() + ": " + error.message());
    fs::permissions(to, fs::perms::owner_read | fs::perms::owner_write, error); // whatever the original's are
}

void writeBytes(const fs::path& path, const std::string& bytes)
{
    std::ofstream file(path, std::ios::binary);
    file << bytes;
    file.close();
    if (!file)
        throw Failure(Unreadable, path.string() + ": cannot be written");
}

std::string textOf(sqlite3_stmt* row, int index)
{
    const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(row, index));
    return text ? text : "";
}

} // namespace

PrivateFolder::PrivateFolder()
{
    std::string name = (fs::temp_directory_path() / "keldict-XXXXXX").string();
    if (!mkdtemp(name.data()))
        throw Failure(Unreadable, "no temporary folder: " + std::generic_category().message(errno));
    m_path = name;
}

PrivateFolder::~PrivateFolder()
{
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

void Database::Closer::operator()(sqlite3* connection) const
{
    sqlite3_close_v2(connection);
}

Database::Database(const Source& source) : m_name(source.name)
{
    const std::string path = source.isStandardInput() ? std::string() : resolved(source.name);
    const bool inPlace = !path.empty() && !keepsLog(path);
    if (inPlace)
        open(readOnlyUri(path), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
    else
        openCopy(source, path);
    int result = lookForTable();
    if (inPlace && (result == SQLITE_READONLY || result == SQLITE_CANTOPEN)) {
        openCopy(source, path); // an interrupted transaction waits to be rolled back
        result = lookForTable();
    }
    if (result == SQLITE_NOTADB)
        m_table = Table::NoDatabase;
    else if (result != SQLITE_OK)
        fail();
}

void Database::open(const std::string& path, int flags)
{
    sqlite3* connection = nullptr;
    const int result = Ombrin::openForeignFile(path.c_str(), flags, &connection);
    m_connection.reset(connection);
    if (result != SQLITE_OK)
        fail();
    sqlite3_busy_timeout(connection, patience);
    Ombrin::distrustFile(connection);
    m_steps.watch(connection);
    m_steps.restart();
}

/// Of standard input, `path` is empty.
void Database::openCopy(const Source& source, const std::string& path)
{
    m_connection.reset();
    m_folder = std::make_unique<PrivateFolder>();
    const fs::path copy = m_folder->file("copy.db");
    if (path.empty())
        writeBytes(copy, source.bytes);
    else
        copyFile(path, copy);
    for (const char* suffix : {"-journal", "-wal"}) {
        const std::string beside = path + suffix;
        if (path.empty())
            continue;
        requireRegularFile(beside);
        if (isThere(beside))
            copyFile(beside, copy.string() + suffix);
    }
    open(copy.string(), SQLITE_OPEN_READWRITE);
}

void Database::failAsDamaged() const
{
    throw Failure(Unreadable,
                  m_name + ": is damaged: it claims more than a file of its size holds, or rows out of order");
}

void Database::fail() const
{
    if (sqlite3_errcode(m_connection.get()) == SQLITE_INTERRUPT)
        failAsDamaged(); // by m_steps
    throw Failure(Unreadable, m_name + ": " + sqlite3_errmsg(m_connection.get()));
}

int Database::lookForTable()
{
    // SQLite finds tables without regard to letter case, and so does the loader.
    const CkelSqliteStatement find(m_connection.get(),
                                   "SELECT rootpage FROM sqlite_master WHERE name='kel' COLLATE NOCASE AND type IN "
                                   "('table', 'view')");
    if (!find.isValid())
        return sqlite3_errcode(m_connection.get());
    const int result = sqlite3_step(find.handle());
    if (result == SQLITE_DONE)
        return SQLITE_OK;
    if (result != SQLITE_ROW)
        return result;
    m_table = Table::View;
    const bool hasPages = sqlite3_column_int(find.handle(), 0) > 0; // only tables have
    return hasPages ? readColumns() : SQLITE_OK;
}

int Database::readColumns()
{
    constexpr int nameColumn = 1; // of the answer
    constexpr int hiddenColumn = 6;
    const CkelSqliteStatement find(m_connection.get(), "PRAGMA table_xinfo(kel)");
    if (!find.isValid())
        return sqlite3_errcode(m_connection.get());
    m_columns.clear();
    std::size_t stored = 0; // in front of the first computed one
    int result = SQLITE_DONE;
    while ((result = sqlite3_step(find.handle())) == SQLITE_ROW) {
        const bool isComputed = sqlite3_column_int(find.handle(), hiddenColumn) != 0;
        stored += !isComputed && stored == m_columns.size() ? 1U : 0U;
        m_columns.push_back(textOf(find.handle(), nameColumn));
    }
    if (result != SQLITE_DONE)
        return result;
    if (stored >= std::min(m_columns.size(), static_cast<std::size_t>(columnsRead())))
        m_table = Table::Present;
    return SQLITE_OK;
}

/// Calls `visit` with each row. Ends with `Unreadable` when the file cannot hold what it claims in the first `columns`.
void Database::readRows(const CkelSqliteStatement& rows, bool isKeyed, int columns, const Visit& visit)
{
    Ombrin::CkelForeignRows foreign(m_connection.get(), isKeyed);
    Ombrin::CkelSqliteVariantVector values;
    int result = rows.isValid() ? SQLITE_ROW : SQLITE_ERROR;
    while (result == SQLITE_ROW && (result = sqlite3_step(rows.handle())) == SQLITE_ROW) {
        const long long bytes = values.read(rows.handle(), columns);
        if (!foreign.admit(values, bytes))
            failAsDamaged();
        visit(values, rows.handle());
    }
    if (result != SQLITE_DONE)
        fail();
}

std::vector<std::string> Database::tables()
{
    std::vector<std::string> names;
    m_steps.restart();
    const CkelSqliteStatement find(m_connection.get(), "SELECT name FROM sqlite_master WHERE type='table'");
    const auto visit = [&names](const Ombrin::CkelSqliteVariantVector& /*row*/, sqlite3_stmt* statement) {
        names.push_back(textOf(statement, 0));
    };
    readRows(find, false, 1, visit);
    return names;
}

bool Database::isSaved() const
{
    constexpr std::size_t configurationColumns = 11;
    if (m_columns.size() < configurationColumns)
        return fs::path(m_name).filename() == "kelmem.db"; // the device looks at nothing else
    return m_columns.size() > configurationColumns && strcasecmp(m_columns[10].c_str(), "Unit") == 0 &&
           strcasecmp(m_columns[11].c_str(), "CUnit") == 0;
}

void Database::forEachRow(const Visit& visit)
{
    const QuietOutput quiet;
    m_steps.restart();
    const bool isKeyed = Ombrin::isKeyedByFirstColumn(m_connection.get(), tableName);
    const CkelSqliteStatement rows(m_connection.get(), rowsText);
    readRows(rows, isKeyed, columnsRead(), visit);
}

} // namespace Keldict
