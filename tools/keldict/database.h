#pragma once

#include "source.h"

#include "database/kelforeignfile.h"
#include "database/kelsqlitevariantvector.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace Ombrin {
class CkelSqliteStatement;
}

namespace Keldict {

/// A folder of this process's own; gone with everything in it afterwards.
class PrivateFolder
{
public:
    PrivateFolder();
    ~PrivateFolder();
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;

    std::filesystem::path file(const std::string& name) const { return m_path / name; }

private:
    std::filesystem::path m_path;
};

/// An SQLite file opened to be read and nothing else: neither the file nor anything beside it changes, nothing that is
/// stored in it is run, and reading takes no more time and memory than a file of this size justifies.
///
/// A file beside which an interrupted transaction or a write-ahead log waits is copied with it into a private folder;
/// there SQLite puts the copy in order, as it would put the file when the device opens it next.
class Database
{
public:
    /// Ends with `Unreadable` when the file cannot be read, which is not the same as "is no database".
    explicit Database(const Source& source);

    /// What can be told about the table "kel".
    enum class Table
    {
        Present,
        Missing,
        View,      ///< or anything else that computes what the loader would read: it reads none of it
        NoDatabase ///< the file is of another kind
    };

    Table table() const { return m_table; }

    /// The names of the table's columns.
    const std::vector<std::string>& columns() const { return m_columns; }

    /// The names of all tables. Ends with `Unreadable` when they cannot be read.
    std::vector<std::string> tables();

    /// Whether the table is one of saved values, as in kelmem.db, and none of a configuration.
    bool isSaved() const;

    /// How many columns the loader reads.
    int columnsRead() const { return isSaved() ? 10 : 11; }

    /// Calls `visit` with every row, in the order in which the loader meets them. What the library prints about columns
    /// meanwhile is dropped. Ends with `Unreadable` when a row cannot be read, or the file cannot hold it.
    using Visit = std::function<void(const Ombrin::CkelSqliteVariantVector& row, sqlite3_stmt* statement)>;
    void forEachRow(const Visit& visit);

private:
    struct Closer
    {
        void operator()(sqlite3* connection) const;
    };

    void open(const std::string& path, int flags);
    void openCopy(const Source& source, const std::string& path);
    void readRows(const Ombrin::CkelSqliteStatement& rows, bool isKeyed, int columns, const Visit& visit);
    int lookForTable(); // these two: SQLite's result
    int readColumns();
    [[noreturn]] void fail() const;
    [[noreturn]] void failAsDamaged() const;

    const std::string m_name;
    std::unique_ptr<PrivateFolder> m_folder; // these two outlive the connection
    Ombrin::CkelForeignSteps m_steps;
    std::unique_ptr<sqlite3, Closer> m_connection;
    Table m_table = Table::Missing;
    std::vector<std::string> m_columns;
};

} // namespace Keldict
