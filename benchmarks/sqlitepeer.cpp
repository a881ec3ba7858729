#include "benchmarks/sqlitepeer.h"

#include "benchmarks/check.h"

namespace KelBench {

using Ombrin::CkelVariant;

Connection::Connection(const std::string& path)
{
    require(sqlite3_open(path.c_str(), &m_handle) == SQLITE_OK, "SQLite opens its file");
}

Connection::~Connection()
{
    sqlite3_close_v2(m_handle);
}

void Connection::execute(const char* text) const
{
    require(sqlite3_exec(m_handle, text, nullptr, nullptr, nullptr) == SQLITE_OK, text);
}

Statement::Statement(const Connection& connection, const char* text)
{
    require(sqlite3_prepare_v2(connection, text, -1, &m_handle, nullptr) == SQLITE_OK, text);
}

Statement::~Statement()
{
    sqlite3_finalize(m_handle);
}

void Statement::bind(int position, const CkelVariant& value)
{
    switch (value.type()) {
    case CkelVariant::String:
        bind(position, value.toStdString());
        break;
    case CkelVariant::Double:
        bind(position, value.toDouble());
        break;
    default:
        bind(position, value.toLongLong());
        break;
    }
}

void Statement::run()
{
    require(sqlite3_step(m_handle) == SQLITE_DONE, "SQLite runs a statement");
    sqlite3_reset(m_handle);
}

ItemTable::ItemTable(const std::string& path, const std::string& idColumn)
    : Connection(path), m_insert(begin(*this, idColumn), "INSERT INTO kel VALUES(?,?,?,?,?,?,?,?,?,?,?)")
{}

void ItemTable::insert(const Ombrin::tagStorageData& item)
{
    m_insert.bindAll(item.ID, item.NameID, item.CommSource, item.DBSource, item.RW, item.Block, item.ValueT, item.Value,
                     item.DefValue, item.Max, item.Min);
    m_insert.run();
}

const Connection& ItemTable::begin(const Connection& database, const std::string& idColumn)
{
    const std::string create = "BEGIN; CREATE TABLE kel(" + idColumn +
                               ", NameID TEXT, CommSource INTEGER, DBSource INTEGER, RW INTEGER, Block INTEGER,"
                               " ValueT INTEGER, Value NUMERIC, DefValue NUMERIC, Max NUMERIC, Min NUMERIC);";
    database.execute(create.c_str());
    return database;
}

MemoryTable::MemoryTable(const std::vector<Ombrin::tagStorageData>& items, Index index) : Connection(":memory:")
{
    execute(index == Unindexed ? "CREATE TABLE kel(ID INTEGER, Block INTEGER, Dirty INTEGER, Value)"
                               : "CREATE TABLE kel(ID INTEGER PRIMARY KEY, Block INTEGER, Dirty INTEGER, Value)");
    execute("BEGIN");
    Statement insert(*this, "INSERT INTO kel VALUES(?,?,?,?)");
    for (const Ombrin::tagStorageData& item : items) {
        insert.bindAll(item.ID, item.Block, item.Dirty, item.Value);
        insert.run();
    }
    execute("COMMIT");
    if (index == ByAll)
        execute("CREATE INDEX blocks ON kel(Block); CREATE INDEX marks ON kel(Dirty); ANALYZE");
}

void readColumn(sqlite3_stmt* row, int column)
{
    switch (sqlite3_column_type(row, column)) {
    case SQLITE_INTEGER:
        benchmark::DoNotOptimize(sqlite3_column_int64(row, column));
        break;
    case SQLITE_FLOAT:
        benchmark::DoNotOptimize(sqlite3_column_double(row, column));
        break;
    default:
        benchmark::DoNotOptimize(sqlite3_column_text(row, column));
        benchmark::DoNotOptimize(sqlite3_column_bytes(row, column));
        break;
    }
}

} // namespace KelBench
