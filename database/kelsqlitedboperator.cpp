#undef NDEBUG // the checks hold in every build

#include "database/kelsqlitedboperator.h"

#include "database/kelforeignfile.h"
#include "database/kelsqlitedb.h"
#include "kernel/kelstring.h"

#include <sqlite3.h>

#include <cassert>

namespace Ombrin {

namespace {

const char* typeText(int type)
{
    switch (type) {
    case CkelSqliteDBOperator::Int2:
        return " INT2 ";
    case CkelSqliteDBOperator::Int8:
        return " INT8 ";
    case CkelSqliteDBOperator::Int:
        return " INT ";
    case CkelSqliteDBOperator::Integer:
        return " INTEGER ";
    case CkelSqliteDBOperator::Numeric:
        return " NUMERIC ";
    case CkelSqliteDBOperator::Real:
        return " REAL ";
    case CkelSqliteDBOperator::Text:
        return " TEXT ";
    case CkelSqliteDBOperator::Blob:
        return " BLOB ";
    default:
        assert(false);
        return "";
    }
}

const char* operatorText(int expression)
{
    switch (expression) {
    case CkelSqliteDBOperator::NotEqual:
        return " != ";
    case CkelSqliteDBOperator::Less:
        return " < ";
    case CkelSqliteDBOperator::Greater:
        return " > ";
    case CkelSqliteDBOperator::LessEqual:
        return " <= ";
    case CkelSqliteDBOperator::GreaterEqual:
        return " >= ";
    default:
        return " = ";
    }
}

template <typename List, typename Text>
std::string joined(const List& list, Text text)
{
    std::string result;
    for (const auto& element : list) {
        if (!result.empty())
            result += ", ";
        result += text(element);
    }
    return result;
}

std::string placeholders(std::size_t count)
{
    return joined(std::string(count, '?'), [](char placeholder) { return placeholder; });
}

std::string quoted(const std::string& value)
{
    std::string text = "'";
    for (const char c : value)
        text += c == '\'' ? std::string("''") : std::string(1, c);
    return text + "'";
}

std::string columnText(const CkelSqliteDBOperator::Column& column)
{
    std::string text = column.name + typeText(column.type);
    if ((column.constraints & CkelSqliteDBOperator::PrimaryKey) != 0)
        text += " PRIMARY KEY ";
    if ((column.constraints & CkelSqliteDBOperator::NotNull) != 0)
        text += " NOT NULL ";
    return text;
}

} // namespace

CkelSqliteDBOperator::CkelSqliteDBOperator(CkelSqliteDB* database) : m_database(database) {}

bool CkelSqliteDBOperator::isValid() const
{
    return m_database && m_database->isOpen();
}

std::vector<std::string> CkelSqliteDBOperator::tables() const
{
    std::vector<std::string> names;
    const auto visit = [&names](const CkelSqliteVariantVector& row) {
        names.push_back(row.toValue<std::string>(0));
        return true;
    };
    // A virtual table, which is code, has no page.
    if (!isValid() || !m_database->forEachStoredRow(
                          "SELECT name FROM sqlite_master WHERE type='table' AND rootpage<>0;", 1, false, visit))
        return {};
    return names;
}

bool CkelSqliteDBOperator::forEachRow(const std::string& text, int columns,
                                      const std::function<bool(const CkelSqliteVariantVector&)>& visit) const
{
    return isReady() && isStored(columns) &&
           m_database->forEachStoredRow(text, columns, isKeyedByFirstColumn(m_database->handle(), m_table), visit);
}

/// Whether there is the table and the file holds its first `columns` columns, so that reading them computes nothing.
bool CkelSqliteDBOperator::isStored(int columns) const
{
    constexpr int hiddenColumn = 6; // of the answer: more than 0 for a computed column
    int seen = 0;
    bool computed = false;
    const auto visit = [&](const CkelSqliteVariantVector& row) {
        computed = computed || (seen < columns && row.toValue<long long>(hiddenColumn) != 0);
        ++seen;
    };
    return m_database->forEachRow("PRAGMA table_xinfo(" + m_table + ")", visit) && seen > 0 && !computed;
}

std::string CkelSqliteDBOperator::createText(const std::vector<Column>& columns) const
{
    if (!isReady())
        return {};
    return "CREATE TABLE IF NOT EXISTS " + m_table + "( " + joined(columns, columnText) + " );";
}

std::string CkelSqliteDBOperator::dropText() const
{
    return isReady() ? "DROP TABLE " + m_table : std::string();
}

std::string CkelSqliteDBOperator::selectText() const
{
    return isReady() ? "SELECT * FROM " + m_table + " ;" : std::string();
}

std::string CkelSqliteDBOperator::replaceText(std::size_t columnCount) const
{
    return isReady() ? "REPLACE INTO " + m_table + " VALUES( " + placeholders(columnCount) + " );" : std::string();
}

std::string CkelSqliteDBOperator::insertText(const std::vector<std::string>& columns, bool replace) const
{
    if (!isReady())
        return {};
    const std::string names = joined(columns, [](const std::string& name) { return name; });
    return (replace ? "REPLACE INTO " : "INSERT INTO ") + m_table + " ( " + names + " )  VALUES ( " +
           placeholders(columns.size()) + " );";
}

std::string CkelSqliteDBOperator::updateText(const std::vector<std::string>& columns, const std::string& where) const
{
    if (!isReady())
        return {};
    const std::string settings = joined(columns, [](const std::string& name) { return name + "=?"; });
    return "UPDATE " + m_table + " SET " + settings + " " + where + (where.empty() ? ";" : " ;");
}

std::string CkelSqliteDBOperator::updateText(const std::string& column, const std::string& value,
                                             const std::string& key, const std::string& keyValue) const
{
    if (!isReady())
        return {};
    return "UPDATE " + m_table + " SET " + column + " = " + value + " WHERE " + key + " = " + keyValue + " ;";
}

std::string CkelSqliteDBOperator::deleteText(const std::string& key) const
{
    return isReady() ? "DELETE FROM " + m_table + " WHERE " + key + "=?;" : std::string();
}

std::string CkelSqliteDBOperator::deleteText(const std::string& key, const std::vector<unsigned int>& ids) const
{
    if (!isReady() || ids.empty())
        return {};
    CkelString text("DELETE FROM " + m_table + " WHERE " + key + " in ( ");
    for (const unsigned int id : ids)
        text.append(CkelString::number(id, 10)).append(" ,");
    return text.append(" );").toStdString();
}

std::string CkelSqliteDBOperator::whereText(const std::string& column, int expression, const std::string& value)
{
    return " WHERE " + column + operatorText(expression) + (value == "?" ? value : quoted(value)) + " ";
}

bool CkelSqliteDBOperator::execute_helper(const std::string& text) const
{
    if (!isValid() || text.empty())
        return false;
    m_database->restartSteps();
    const int result = sqlite3_exec(m_database->handle(), text.c_str(), nullptr, nullptr, nullptr);
    m_database->setLastResult(result);
    return result == SQLITE_OK;
}

} // namespace Ombrin
