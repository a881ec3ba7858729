#pragma once

#include "datastorage/kelstoragedata.h"

#include <sqlite3.h>

#include <string>
#include <vector>

namespace KelBench {

/// SQLite without the library. What fails ends the program.
class Connection
{
public:
    explicit Connection(const std::string& path);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void execute(const char* text) const;
    operator sqlite3*() const { return m_handle; } // NOLINT(google-explicit-constructor)

private:
    sqlite3* m_handle = nullptr;
};

class Statement
{
public:
    Statement(const Connection& connection, const char* text);
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    operator sqlite3_stmt*() const { return m_handle; } // NOLINT(google-explicit-constructor)

    void bind(int position, long long value) { sqlite3_bind_int64(m_handle, position, value); }
    void bind(int position, double value) { sqlite3_bind_double(m_handle, position, value); }
    void bind(int position, const std::string& value)
    {
        sqlite3_bind_text(m_handle, position, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT);
    }
    /// In the form that the variant has.
    void bind(int position, const Ombrin::CkelVariant& value);

    template <typename... Values>
    void bindAll(const Values&... values)
    {
        int position = 0;
        (bindOne(++position, values), ...);
    }

    /// Runs a statement without result rows.
    void run();

private:
    template <typename T>
    void bindOne(int position, const T& value)
    {
        if constexpr (std::is_integral_v<T>)
            bind(position, static_cast<long long>(value));
        else
            bind(position, value);
    }

    sqlite3_stmt* m_handle = nullptr;
};

/// A table of all fields of items. What is inserted is one transaction.
class ItemTable : public Connection
{
public:
    /// `idColumn` is "ID INTEGER", with or without a key.
    ItemTable(const std::string& path, const std::string& idColumn);

    void insert(const Ombrin::tagStorageData& item);
    void commit() const { execute("COMMIT"); }
    void indexNames() const { execute("CREATE INDEX names ON kel(NameID)"); }

private:
    static const Connection& begin(const Connection& database, const std::string& idColumn);

    Statement m_insert;
};

/// A table of the items in memory, with the columns ID, Block, Dirty and Value.
class MemoryTable : public Connection
{
public:
    enum Index
    {
        Unindexed, ///< every search walks over the rows
        ByID,
        ByAll ///< by ID, Block and Dirty
    };

    MemoryTable(const std::vector<Ombrin::tagStorageData>& items, Index index);
};

/// Reads a column in the form that the row has it, as any reader must, and keeps nothing.
void readColumn(sqlite3_stmt* row, int column);

} // namespace KelBench
