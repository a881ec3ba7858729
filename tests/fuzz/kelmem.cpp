#include "datastorage/kelmemorydb.h"
#include "tests/fuzz/harness.h"
#include "tests/fuzz/memoryfiles.h"

#include <sqlite3.h>

using namespace Ombrin;
using KelFuzz::require;

// Bytes as the local database: whatever they are, opening, reading and writing come to their end, and a table that was
// rebuilt in a sound file holds what was written.

namespace {

constexpr const char* fileName = "kelmem.db";

using Records = std::vector<tagStorageData>;

Records someRecords()
{
    Records records(3);
    for (std::size_t i = 0; i < records.size(); ++i) {
        tagStorageData& record = records[i];
        record.ID = static_cast<std::uint32_t>(i + 1);
        record.NameID = "item" + std::to_string(i + 1);
        record.ValueT = 9;
        record.Value = 1.5 * static_cast<double>(i);
        record.DefValue = record.Max = record.Min = 0.5;
    }
    return records;
}

bool isSound(const std::string& bytes)
{
    KelFuzz::setFile("copy.db", bytes);
    sqlite3* connection = nullptr;
    bool sound = false;
    const auto look = [](void* result, int, char** texts, char**) {
        *static_cast<bool*>(result) = texts[0] && std::string(texts[0]) == "ok";
        return 0;
    };
    sqlite3_open("copy.db", &connection);
    sqlite3_exec(connection, "PRAGMA integrity_check(1)", look, &sound, nullptr);
    sqlite3_close(connection);
    return sound;
}

bool holds(CkelMemoryDB& database, const Records& records)
{
    const Records& loaded = database.loadMemoryDB();
    if (!database.isLoadComplete() || loaded.size() != records.size())
        return false;
    for (std::size_t i = 0; i < records.size(); ++i) {
        if (loaded[i].ID != records[i].ID || loaded[i].NameID != records[i].NameID ||
            !loaded[i].Value.cmp(records[i].Value))
            return false;
    }
    return true;
}

/// A way to the connection, which an explicit instantiation may name.
template <typename Tag, auto member>
struct Opened
{
    friend auto memberOf(Tag /*tag*/) { return member; }
};
struct Connection
{
    friend auto memberOf(Connection tag);
};
template struct Opened<Connection, &CkelMemoryDB::m_database>;

/// Made once, since its thread takes long to start; opened anew for each case.
CkelMemoryDB& openedDatabase()
{
    static auto& database = *new CkelMemoryDB;
    (database.*memberOf(Connection())).open(fileName);
    return database;
}

void readAndWrite(const std::string& bytes)
{
    static const Records records = someRecords();
    CkelMemoryDB& database = openedDatabase();
    database.hasMemoryDBTable();
    database.loadMemoryDB();
    database.insertDatas(records);
    database.insertData(records[0]);
    database.updateDatas(records);
    database.updateValue(2, 7.5);
    database.updateValues({1, 2}, {1, 2.5});
    database.deleteData(3);
    database.deleteDatas(std::vector<unsigned int>{1, 2});
    if (database.rebuildMemoryDBTable(records))
        require(holds(database, records) || !isSound(bytes), "a rebuilt table holds what was written");
    database.hasMemoryDBTable();
}

} // namespace

const std::vector<std::string> KelFuzz::endingChecks{};

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    KelFuzz::keepFilesInMemory();
    KelFuzz::removeFiles();
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    KelFuzz::setFile(fileName, bytes);
    KelFuzz::takePrinted();
    readAndWrite(bytes); // no file ends the process
    return 0;
}
