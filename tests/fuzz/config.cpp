#include "datastorage/kelmemorydatastorage.h"
#include "kernel/kelapplicationplus.h"
#include "tests/datastorage/storagemodel.h"
#include "tests/fuzz/harness.h"
#include "tests/fuzz/memoryfiles.h"

#include <sqlite3.h>

#include <cmath>
#include <fstream>
#include <map>

using namespace Ombrin;
using KelFuzz::require;

// Bytes as a configuration database: whatever they are, they load or not, and what loads is what SQLite reads from the
// table by itself.

namespace {

constexpr const char* fileName = "configuration.db";

long long truncated(double value, double least, double most)
{
    return static_cast<long long>(std::trunc(std::min(std::max(value, least), most)));
}

/// A row of the table as the columns are to be read.
class Row
{
public:
    explicit Row(sqlite3_stmt* statement) : m_statement(statement) {}

    void requireColumns(int count) const
    {
        require(sqlite3_column_count(m_statement) >= count, "only a table of enough columns loads");
    }

    unsigned int natural32(int column) const
    {
        if (type(column) == SQLITE_FLOAT)
            return static_cast<unsigned int>(truncated(real(column), 0, 4294967295.0));
        return type(column) == SQLITE_INTEGER ? static_cast<unsigned int>(integer(column)) : 0;
    }

    CkelVariant value(int column, unsigned int code) const
    {
        if (code == 8 || code == 9)
            return type(column) == SQLITE_INTEGER || type(column) == SQLITE_FLOAT ? real(column) : 0.0;
        if (code == 10)
            return text(column);
        const CkelVariant number = type(column) == SQLITE_FLOAT     ? CkelVariant(real(column))
                                   : type(column) == SQLITE_INTEGER ? CkelVariant(integer(column))
                                                                    : CkelVariant(0);
        return code == 11 || code == 13 ? unsignedOf(number) : signedOf(number);
    }

    std::string text(int column) const
    {
        if (type(column) == SQLITE_TEXT)
            return {reinterpret_cast<const char*>(sqlite3_column_text(m_statement, column)),
                    static_cast<std::size_t>(sqlite3_column_bytes(m_statement, column))};
        if (type(column) == SQLITE_INTEGER)
            return std::to_string(integer(column));
        return type(column) == SQLITE_FLOAT ? CkelVariant(real(column)).toStdString() : "";
    }

private:
    int type(int column) const { return sqlite3_column_type(m_statement, column); }
    long long integer(int column) const { return sqlite3_column_int64(m_statement, column); }
    double real(int column) const { return sqlite3_column_double(m_statement, column); }

    static CkelVariant signedOf(const CkelVariant& number)
    {
        return number.type() == CkelVariant::Double ? CkelVariant(std::trunc(number.toDouble())).toLongLong()
                                                    : number.toLongLong();
    }

    static CkelVariant unsignedOf(const CkelVariant& number)
    {
        return number.type() == CkelVariant::Double ? CkelVariant(std::trunc(number.toDouble())).toULongLong()
                                                    : number.toULongLong();
    }

    sqlite3_stmt* const m_statement;
};

struct Expected
{
    std::map<unsigned int, tagStorageData> items;
    std::map<std::string, unsigned int> names;
    tagStorageData record{}; // carries from one row to the next what a row does not set

    void add(const Row& row)
    {
        record.ID = row.natural32(0);
        record.NameID = row.text(1);
        record.CommSource = static_cast<std::uint8_t>(row.natural32(2));
        record.DBSource = static_cast<std::uint8_t>(row.natural32(3));
        record.RW = static_cast<std::uint8_t>(row.natural32(4));
        record.Block = static_cast<std::uint8_t>(row.natural32(5));
        record.ValueT = static_cast<std::uint8_t>(row.natural32(6));
        row.requireColumns(7);
        if (record.ValueT == 0 || record.ValueT > 14)
            return;
        row.requireColumns(record.ValueT == 10 ? 9 : 11);
        record.Value = row.value(7, record.ValueT);
        record.DefValue = row.value(8, record.ValueT);
        if (record.ValueT != 10) {
            record.Max = row.value(9, record.ValueT);
            record.Min = row.value(10, record.ValueT);
        }
        if (record.ID != 0) {
            items.insert({record.ID, record});
            names.insert({record.NameID, record.ID});
        }
    }
};

Expected expectedItems()
{
    sqlite3* connection = nullptr;
    sqlite3_stmt* statement = nullptr;
    Expected expected;
    require(sqlite3_open(fileName, &connection) == SQLITE_OK, "the file opens again");
    sqlite3_exec(connection, "PRAGMA cell_size_check=ON", nullptr, nullptr, nullptr);
    require(sqlite3_prepare_v2(connection, "SELECT * FROM kel", -1, &statement, nullptr) == SQLITE_OK,
            "only a table loads");
    int step = SQLITE_DONE;
    while ((step = sqlite3_step(statement)) == SQLITE_ROW) {
        expected.add(Row(statement));
    }
    require(step == SQLITE_DONE, "only what can be read to its end loads");
    sqlite3_finalize(statement);
    sqlite3_close(connection);
    return expected;
}

bool same(const tagStorageData& a, const tagStorageData& b)
{
    using KelTest::identical;
    return a.ID == b.ID && a.NameID == b.NameID && a.CommSource == b.CommSource && a.DBSource == b.DBSource &&
           a.RW == b.RW && a.Block == b.Block && a.ValueT == b.ValueT && a.Dirty == 0 && identical(a.Value, b.Value) &&
           identical(a.DefValue, b.DefValue) && identical(a.Max, b.Max) && identical(a.Min, b.Min);
}

void compare(const CkelMemoryDataStorage& storage)
{
    const Expected expected = expectedItems();
    require(storage.queryDataList(0, CkelAbstractDataStorage::Greater).size() == expected.items.size(),
            "there are as many items as the file has IDs");
    for (const auto& [id, item] : expected.items)
        require(same(storage.queryData(id), item), "an item is as the file has it");
    for (const auto& [name, id] : expected.names)
        require(storage.ID(name) == id, "a name leads to the first that bears it");
}

} // namespace

const std::vector<std::string> KelFuzz::endingChecks{"index>=0||index<count()"};

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    KelFuzz::keepFilesInMemory();
    static const bool made = std::ofstream(fileName).good(); // the library asks the system whether it is there
    static auto& storage = *new CkelMemoryDataStorage;
    require(made, "the file can be made");
    KelFuzz::setFile(fileName, std::string(reinterpret_cast<const char*>(data), size));
    KelFuzz::takePrinted();
    KelFuzz::runToItsEnd([] {
        if (storage.readDBFile(fileName))
            compare(storage);
    });
    return 0;
}
