#include "tests/reliability/savedrows.h"

#include <sqlite3.h>

#include <fstream>

using namespace Ombrin;

namespace KelTest {

namespace {

bool isSound(sqlite3* connection)
{
    bool sound = false;
    sqlite3_exec(
        connection, "PRAGMA integrity_check",
        [](void* result, int /*count*/, char** values, char** /*names*/) {
            *static_cast<bool*>(result) = values[0] && std::string(values[0]) == "ok";
            return 0;
        },
        &sound, nullptr);
    return sound;
}

bool readRows(sqlite3* connection, std::vector<SavedRow>& rows)
{
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(connection, "SELECT ID, NameID, Value FROM kel ORDER BY ID", -1, &statement, nullptr) !=
        SQLITE_OK)
        return false;
    int result = SQLITE_ROW;
    while ((result = sqlite3_step(statement)) == SQLITE_ROW) {
        const auto* const name = reinterpret_cast<const char*>(sqlite3_column_text(statement, 1));
        rows.push_back({static_cast<unsigned int>(sqlite3_column_int64(statement, 0)), name ? name : "",
                        sqlite3_column_int64(statement, 2)});
    }
    sqlite3_finalize(statement);
    return result == SQLITE_DONE;
}

} // namespace

SavedFile readSavedFile()
{
    SavedFile file;
    sqlite3* connection = nullptr;
    if (sqlite3_open_v2("kelmem.db", &connection, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
        sqlite3_busy_timeout(connection, 10000);
        file.whole = isSound(connection) && readRows(connection, file.rows);
    }
    sqlite3_close(connection);
    return file;
}

tagStorageData integerItem(unsigned int id, long long value)
{
    tagStorageData item{};
    item.ID = id;
    item.NameID = "item number " + std::to_string(id);
    item.RW = 1;
    item.Block = 2;
    item.ValueT = ValueTypeInteger5;
    item.Value = value;
    item.DefValue = 0LL;
    item.Max = 1000LL;
    item.Min = 0LL;
    return item;
}

std::vector<tagStorageData> integerItems(unsigned int first, int count, long long value)
{
    std::vector<tagStorageData> items;
    for (unsigned int i = 0; i < static_cast<unsigned int>(count); ++i)
        items.push_back(integerItem(first + i, value));
    return items;
}

std::vector<SavedRow> rowsOf(const std::vector<tagStorageData>& items)
{
    std::vector<SavedRow> rows;
    for (const tagStorageData& item : items)
        rows.push_back({item.ID, item.NameID, item.Value.toLongLong()});
    return rows;
}

void writeDictionary(const std::string& path, const std::vector<tagStorageData>& items)
{
    std::ofstream file(path);
    file << R"({"kel":[)";
    for (const tagStorageData& item : items)
        file << (&item == &items.front() ? "" : ",") << R"({"ID":)" << item.ID << R"(,"NameID":")" << item.NameID
             << R"(","CommSource":0,"DBSource":0,"RW":1,"Block":2,"ValueT":5,"Value":)" << item.Value.toLongLong()
             << R"(,"DefValue":0,"Max":1000,"Min":0})";
    file << "]}";
}

} // namespace KelTest
