#pragma once

#include "kernel/kelglobal.h"

#include <functional>
#include <string>
#include <vector>

namespace Ombrin {

class CkelSqliteDB;
class CkelSqliteVariantVector;

/// Writes the SQL texts for one table of a database, and runs those that take no parameters.
///
/// The texts keep their blanks: they are compared as they are. Every text is empty while the database is closed or no
/// table is selected.
/// @ingroup database
class KEL_EXPORT CkelSqliteDBOperator
{
public:
    /// The declared type of a column, from which SQLite takes the column's affinity.
    enum ColumnType : int
    {
        Int2 = 1,    ///< INT2, integer affinity
        Int8 = 2,    ///< INT8, integer affinity
        Int = 3,     ///< INT, integer affinity
        Integer = 4, ///< INTEGER; as the primary key it is the row's number
        Numeric = 5, ///< NUMERIC: a text that reads as a number becomes one
        Real = 6,    ///< REAL, always a double
        Text = 7,    ///< TEXT
        Blob = 8     ///< BLOB, no affinity
    };

    /// What a column demands; to be or-ed.
    enum Constraint : int
    {
        NoConstraint = 0, ///< nothing
        NotNull = 1,      ///< a value other than NULL
        PrimaryKey = 2    ///< to be the key of the table
    };

    /// Comparison of a where clause; every other number means equality.
    enum Expression : int
    {
        Equal = 1,       ///< =
        NotEqual = 2,    ///< !=
        Less = 3,        ///< <
        Greater = 4,     ///< >
        LessEqual = 5,   ///< <=
        GreaterEqual = 6 ///< >=
    };

    /// One column of a table.
    struct Column
    {
        std::string name; ///< written as it is
        int type;         ///< a ColumnType; any other number ends the process when it is written
        int constraints;  ///< Constraints, or-ed
    };

    /// `database` must outlive this object; it may be null.
    explicit CkelSqliteDBOperator(CkelSqliteDB* database);

    /// Whether the database is open.
    bool isValid() const;

    /// The database given to the constructor; may be null.
    CkelSqliteDB* sqliteDB() const { return m_database; }

    /// The table that the texts are about. It need not exist; the name is written as it is, an empty one selects none.
    void selectTable(const std::string& table) { m_table = table; }

    /// Whether a table is selected.
    bool hasSelectTable() const { return !m_table.empty(); }

    /// The selected table; empty when none is.
    const std::string& currentTable() const { return m_table; }

    /// The names of the database's tables, without virtual ones; empty when they cannot be read.
    /// CkelSqliteDB::lastResult tells which.
    std::vector<std::string> tables() const;

    /// Runs `text`, which selects all rows of the selected table, and calls `visit` with the first `columns` columns of
    /// each until it returns false. False when it did, when the table is missing or does not store these columns but
    /// computes one of them, and when the file is damaged.
    bool forEachRow(const std::string& text, int columns,
                    const std::function<bool(const CkelSqliteVariantVector&)>& visit) const;

    /// Creates the table if it is not there.
    std::string createText(const std::vector<Column>& columns) const;

    /// Drops the table; SQLite refuses it when there is none.
    std::string dropText() const;

    /// All columns of all rows.
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

    /// Deletes several rows; empty when `ids` is empty. The separator behind the last ID is meant: SQLite refuses the
    /// text.
    std::string deleteText(const std::string& key, const std::vector<unsigned int>& ids) const;

    /// The where clause that compares `column` with `value`; `expression` is an Expression. A `value` of "?" is a
    /// parameter; any other is quoted. Needs no database.
    static std::string whereText(const std::string& column, int expression, const std::string& value);

    /// Runs `text` and leaves SQLite's result code in the database object. An empty text is refused.
    bool execute_helper(const std::string& text) const;

private:
    bool isReady() const { return isValid() && hasSelectTable(); }
    bool isStored(int columns) const;

    CkelSqliteDB* const m_database;
    std::string m_table;
};

} // namespace Ombrin
