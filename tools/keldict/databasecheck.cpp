#include "databasecheck.h"

#include "database.h"
#include "itemregistry.h"
#include "itemrules.h"
#include "progress.h"
#include "words.h"

#include "datastorage/kelrowvalues.h"

#include <sqlite3.h>

#include <cmath>
#include <limits>
#include <utility>

#include <strings.h> // strcasecmp: NOLINT(modernize-deprecated-headers) POSIX, not C++

namespace Keldict {

using Ombrin::CkelSqliteVariantVector;
using Ombrin::CkelVariant;
using Ombrin::tagStorageData;

namespace {

Finding ofFile(const Rule& rule, std::string what, std::string effect, std::string meant = {})
{
    return {&rule, rule.severity, {}, {}, {}, std::move(what), std::move(effect), std::move(meant), {}, {}};
}

/// A column as it stands in the file.
CkelVariant columnOf(sqlite3_stmt* row, int column)
{
    switch (sqlite3_column_type(row, column)) {
    case SQLITE_INTEGER:
        return static_cast<long long>(sqlite3_column_int64(row, column));
    case SQLITE_FLOAT:
        return sqlite3_column_double(row, column);
    case SQLITE_TEXT:
        return std::string(reinterpret_cast<const char*>(sqlite3_column_text(row, column)),
                           static_cast<std::size_t>(sqlite3_column_bytes(row, column)));
    default:
        return {};
    }
}

std::string shownColumn(sqlite3_stmt* row, int column)
{
    return sqlite3_column_type(row, column) == SQLITE_BLOB ? "a blob" : shown(columnOf(row, column));
}

class DatabaseCheck
{
public:
    DatabaseCheck(Database& database, FileFindings& result)
        : m_database(database),
          m_findings(result.findings),
          m_registry(
              [](std::size_t row) {
                  return Place{{}, row};
              },
              0, result.findings)
    {}

    /// How many items the device would hold.
    std::size_t run(const std::string& file);

private:
    void checkColumnNames();
    void checkRow(const CkelSqliteVariantVector& row, sqlite3_stmt* statement);
    bool isRead(Field field) const { return m_record.ValueT != Ombrin::ValueTypeText || field < Field::Max; }
    bool checkId(const CheckedItem& item, sqlite3_stmt* statement);
    void checkName(const CheckedItem& item, sqlite3_stmt* statement);
    void checkByte(const CheckedItem& item, Field field, sqlite3_stmt* statement);
    void checkValueColumn(const CheckedItem& item, Field field, sqlite3_stmt* statement);
    void checkTextBounds(const CheckedItem& item, sqlite3_stmt* statement);
    void add(const Rule& rule, const CheckedItem& item, Field field, std::string what, std::string effect,
             std::string meant = {});
    void addError(const Rule& rule, const CheckedItem& item, Field field, std::string what, std::string effect,
                  std::string meant = {});

    Database& m_database;
    std::vector<Finding>& m_findings;
    ItemRegistry m_registry;
    tagStorageData m_record{}; // carries the bounds of texts from one row to the next, as on the device
    std::size_t m_row = 0;
};

std::size_t DatabaseCheck::run(const std::string& file)
{
    checkColumnNames();
    Progress progress(file);
    m_database.forEachRow([&](const CkelSqliteVariantVector& row, sqlite3_stmt* statement) {
        ++m_row;
        progress.at(m_row, 0);
        checkRow(row, statement);
    });
    if (m_row == 0)
        m_findings.push_back(
            ofFile(Rules::noItems, "the table \"kel\" has no rows", "The device holds no items of this file."));
    return m_registry.count();
}

void DatabaseCheck::checkColumnNames()
{
    for (const Field field : allFields) {
        const std::string& name = m_database.columns()[static_cast<std::size_t>(field)];
        const std::string wanted(nameOf(field));
        if (strcasecmp(name.c_str(), wanted.c_str()) != 0)
            m_findings.push_back(ofFile(Rules::columnName,
                                        "column " + std::to_string(static_cast<int>(field)) + " is " + inQuotes(name),
                                        "It is read as " + wanted + ": columns count by position, from 0.",
                                        inQuotes(wanted) + " in this place"));
    }
}

void DatabaseCheck::add(const Rule& rule, const CheckedItem& item, Field field, std::string what, std::string effect,
                        std::string meant)
{
    m_findings.push_back(warning(rule, item, field, std::move(what), std::move(effect), std::move(meant)));
}

void DatabaseCheck::addError(const Rule& rule, const CheckedItem& item, Field field, std::string what,
                             std::string effect, std::string meant)
{
    add(rule, item, field, std::move(what), std::move(effect), std::move(meant));
    m_findings.back().severity = Severity::Error;
}

void DatabaseCheck::checkRow(const CkelSqliteVariantVector& row, sqlite3_stmt* statement)
{
    const bool known = readConfigurationRow(row, m_record);
    const CheckedItem item{m_record, [this](Field field) { return isRead(field); },
                           [this](Field) {
                               return Place{{}, m_row};
                           },
                           [this](Field field) { return shown(valueOf(m_record, field)); }};
    const bool hasId = checkId(item, statement);
    checkName(item, statement);
    for (const Field field : {Field::CommSource, Field::DBSource, Field::RW, Field::Block, Field::ValueT})
        checkByte(item, field, statement);
    if (!known) {
        addError(Rules::unknownType, item, Field::ValueT, "value type " + std::to_string(m_record.ValueT),
                 "The row is lost: databases know the types 1 to 14 only. The device says so at every start.",
                 m_record.ValueT == Ombrin::ValueTypeUnsigned16 ? "13, which holds the same numbers" : "");
        return;
    }
    if (!hasId)
        return;
    m_registry.add(item, m_row);
    for (const Field field : valueFields)
        checkValueColumn(item, field, statement);
    checkTextBounds(item, statement);
    checkItem(item, m_findings);
}

bool DatabaseCheck::checkId(const CheckedItem& item, sqlite3_stmt* statement)
{
    const std::string written = shownColumn(statement, 0);
    if (m_record.ID == 0)
        addError(sqlite3_column_type(statement, 0) == SQLITE_NULL ? Rules::missingId : Rules::unusableId, item,
                 Field::ID, "ID is " + written + ", which is read as 0", "The row is lost.");
    else if (!CkelVariant(m_record.ID).cmp(columnOf(statement, 0)))
        add(Rules::changedId, item, Field::ID, "ID is " + written, "It is read as " + std::to_string(m_record.ID) + ".",
            "an integer from 1 to 4294967295");
    return m_record.ID != 0;
}

void DatabaseCheck::checkName(const CheckedItem& item, sqlite3_stmt* statement)
{
    const int type = sqlite3_column_type(statement, 1);
    if (type != SQLITE_TEXT)
        add(Rules::wrongType, item, Field::NameID, "NameID is " + shownColumn(statement, 1) + " where a text is taken",
            "It is read as " + inQuotes(m_record.NameID) + ".");
    else if (!isUtf8(m_record.NameID))
        add(Rules::invalidUtf8, item, Field::NameID, "NameID " + inQuotes(m_record.NameID) + " is not UTF-8",
            "The bytes are taken as they are; what shows them may not.");
}

void DatabaseCheck::checkByte(const CheckedItem& item, Field field, sqlite3_stmt* statement)
{
    const int column = static_cast<int>(field);
    const CkelVariant read = contentOf(m_record, field);
    if (read.cmp(columnOf(statement, column)))
        return;
    const bool isInteger = sqlite3_column_type(statement, column) == SQLITE_INTEGER;
    const std::string what = std::string(nameOf(field)) + " is " + shownColumn(statement, column);
    if (isInteger)
        add(Rules::byteOverflow, item, field, what, "Kept as " + shown(read) + ": only the low eight bits count.",
            "0 to 255");
    else
        add(Rules::wrongType, item, field, what + " where an integer from 0 to 255 is taken",
            "It is read as " + shown(read) + ".");
}

void DatabaseCheck::checkValueColumn(const CheckedItem& item, Field field, sqlite3_stmt* statement)
{
    if (!isRead(field))
        return;
    const int column = static_cast<int>(field);
    const CkelVariant written = columnOf(statement, column);
    const CkelVariant& read = valueOf(m_record, field);
    if (read.cmp(written))
        return;
    const std::string what = std::string(nameOf(field)) + " is " + shownColumn(statement, column) +
                             " where value type " + std::to_string(m_record.ValueT) + " holds " +
                             std::string(formOf(m_record.ValueT));
    const bool isNumber = written.type() == CkelVariant::LongLong || written.type() == CkelVariant::Double;
    add(isNumber ? Rules::changedValue : Rules::wrongType, item, field, what, "It is read as " + shown(read) + ".");
}

void DatabaseCheck::checkTextBounds(const CheckedItem& item, sqlite3_stmt* statement)
{
    if (m_record.ValueT != Ombrin::ValueTypeText)
        return;
    const auto given = [&](Field field) { return columnOf(statement, static_cast<int>(field)); };
    if (m_record.Max.cmp(given(Field::Max)) && m_record.Min.cmp(given(Field::Min)))
        return;
    add(Rules::inheritedField, item, Field::Max, "Max and Min of a text are not read",
        "The item has Max " + shown(m_record.Max) + ", Min " + shown(m_record.Min) + ", from the rows before.");
}

bool checkTable(Database& database, std::vector<Finding>& findings)
{
    const std::string nothing = "The device holds no items of this file.";
    switch (database.table()) {
    case Database::Table::NoDatabase:
        findings.push_back(ofFile(Rules::notADatabase, "the file is no SQLite database", nothing));
        return false;
    case Database::Table::View:
        findings.push_back(ofFile(Rules::notATable,
                                  "\"kel\" is a view, a virtual table, or computes a column that is read", nothing,
                                  "a table"));
        return false;
    case Database::Table::Missing: {
        const auto tables = database.tables();
        const auto meant = nearest("kel", {tables.begin(), tables.end()});
        findings.push_back(ofFile(Rules::noTable, "the database has no table \"kel\"", nothing,
                                  meant ? "\"kel\" in place of " + inQuotes(*meant) : std::string()));
        return false;
    }
    default:
        return true;
    }
}

bool checkColumns(const Database& database, std::vector<Finding>& findings)
{
    if (database.columns().size() < static_cast<std::size_t>(database.columnsRead())) {
        findings.push_back(ofFile(Rules::tooFewColumns,
                                  "the table has " + counted(database.columns().size(), "column") + " of " +
                                      std::to_string(database.columnsRead()),
                                  database.isSaved()
                                      ? "If it has rows, the device does not read it, keeps it, and saves nothing."
                                      : "The device stops when it reads the first row."));
        return false;
    }
    if (database.isSaved()) {
        findings.push_back(ofFile(Rules::savedFile, "the columns are those of kelmem.db",
                                  "As a configuration, every column from the fourth on is read as the one behind it.",
                                  "keldict show and keldict convert take such a file"));
        return false;
    }
    return true;
}

} // namespace

void checkDatabase(const Source& source, FileFindings& result)
{
    Database database(source);
    if (checkTable(database, result.findings) && checkColumns(database, result.findings))
        result.items = DatabaseCheck(database, result).run(source.name);
}

} // namespace Keldict
