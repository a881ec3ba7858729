#pragma once

#include "kernel/kelglobal.h"

#include <string>
#include <vector>

namespace Ombrin {

class CkelSqliteDB;

/// Writes the SQL texts for one table of a database, and runs those that take no parameters.
///
/// The texts keep their blanks: they are compared as they are. Every text is empty while the database is closed or no
/// table is selected.
class KEL_EXPORT CkelSqliteDBOperator
{
public:
    enum ColumnType : int
    {
        Int2 = 1,
        Int8 = 2,
        Int = 3,
        Integer = 4,
        Numeric = 5,
        Real = 6,
        Text = 7,
        Blob = 8
    };

    enum Constraint : int
    {
        NoConstraint = 0,
        NotNull = 1,
        PrimaryKey = 2
    };

    /// Comparison of a where clause; every other number means equality.
    enum Expression : int
    {
        Equal = 1,
        NotEqual = 2,
        Less = 3,
        Greater = 4,
        LessEqual = 5,
        GreaterEqual = 6
    };

    struct Column
    {
        std::string name;
        int type;        ///< a ColumnType; any other number ends the process when it is written
        int constraints; ///< Constraints, or-ed
    };

    /// `database` must outlive this object; it may be null.
    explicit CkelSqliteDBOperator(CkelSqliteDB* database);

    /// Whether the database is open.
    bool isValid() const;
    CkelSqliteDB* sqliteDB() const { return m_database; }

    void selectTable(const std::string& table) { m_table = table; }
    bool hasSelectTable() const { return !m_table.empty(); }
    const std::string& currentTable() const { return m_table; }

    /// The names of the database's tables; empty when they cannot be read.
    std::vector<std::string> tables() const;

    std::string createText(const std::vector<Column>& columns) const;
    std::string dropText() const;
    std::string selectText() const;

    /// One row of `columnCount` columns in table order, replaced if its key is there.
    std::string replaceText(std::size_t columnCount) const;

    /// A row of the named columns; with `replace`, an existing row of the same key gives way.
    std::string insertText(const std::vector<std::string>& columns, bool replace) const;

    /// Sets the named columns to parameters in the rows of `where`, or in all rows when `where` is empty.
    std::string updateText(const std::vector<std::string>& columns, const std::string& where) const;

    /// Sets one column to `value` where the column `key` is `keyValue`; both are SQL literals.
    std::string updateText(const std::string& column, const std::string& value, const std::string& key,
                           const std::string& keyValue) const;

    /// Deletes the row whose column `key` is a parameter.
    std::string deleteText(const std::string& key) const;

    /// Deletes several rows. The separator behind the last ID is meant: SQLite refuses the text.
    std::string deleteText(const std::string& key, const std::vector<unsigned int>& ids) const;

    /// A `value` of "?" is a parameter; any other is quoted.
    static std::string whereText(const std::string& column, int expression, const std::string& value);

    /// Runs `text` and leaves SQLite's result code in the database object. An empty text is refused.
    bool execute_helper(const std::string& text) const;

private:
    bool isReady() const { return isValid() && hasSelectTable(); }

    CkelSqliteDB* const m_database;
    std::string m_table;
};

} // namespace Ombrin
