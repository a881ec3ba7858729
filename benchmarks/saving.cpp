#include "benchmarks/saving.h"

#include "benchmarks/check.h"
#include "benchmarks/countingvfs.h"
#include "benchmarks/measure.h"
#include "benchmarks/rows.h"
#include "benchmarks/world.h"
#include "datastorage/kelmemorydatastorage.h"
#include "datastorage/kelmemorydb.h"
#include "kernel/kelevent.h"

#include <chrono>
#include <memory>
#include <thread>

namespace KelBench {

namespace {

constexpr std::size_t rowCount = 10000;

const char* const createText =
    "CREATE TABLE IF NOT EXISTS kel( ID INTEGER  PRIMARY KEY  NOT NULL , NameID TEXT , CommSource INTEGER , "
    "RW INTEGER , Block INTEGER , ValueT INTEGER , Value NUMERIC , DefValue NUMERIC , Max NUMERIC , Min NUMERIC , "
    "Unit INTEGER , CUnit INTEGER  );";
const char* const replaceText =
    "REPLACE INTO kel ( ID, NameID, CommSource, RW, Block, ValueT, Value, DefValue, Max, Min, Unit, CUnit )  "
    "VALUES ( ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ? );";
const char* const updateText =
    "UPDATE kel SET CommSource=?, RW=?, Block=?, ValueT=?, Value=?, DefValue=?, Max=?, Min=?, Unit=?, CUnit=?  "
    "WHERE ID = ?  ;";

const std::vector<tagStorageData>& rows()
{
    static const std::vector<tagStorageData> items = makeItems(rowCount);
    return items;
}

/// Numbers as they are; a text as the number that the library writes for it.
void bindNumber(Statement& statement, int position, const CkelVariant& value)
{
    if (value.type() == CkelVariant::String || value.type() == CkelVariant::Double)
        statement.bind(position, value.toDouble());
    else
        statement.bind(position, value.toLongLong());
}

int bindFields(Statement& statement, int position, const tagStorageData& record)
{
    for (const int byte : {record.CommSource, record.RW, record.Block, record.ValueT})
        sqlite3_bind_int(statement, position++, byte);
    for (const CkelVariant* value : {&record.Value, &record.DefValue, &record.Max, &record.Min})
        bindNumber(statement, position++, *value);
    sqlite3_bind_int(statement, position++, 0);
    sqlite3_bind_int(statement, position++, 0);
    return position;
}

void replaceRows(const Connection& database, const std::vector<tagStorageData>& records)
{
    Statement replace(database, replaceText);
    for (const tagStorageData& record : records) {
        sqlite3_bind_int(replace, 1, static_cast<int>(record.ID));
        replace.bind(2, record.NameID);
        bindFields(replace, 3, record);
        replace.run();
    }
}

class LibraryTable
{
public:
    LibraryTable() { require(m_database.rebuildMemoryDBTable(rows()), "the library makes its table"); }
    Ombrin::CkelMemoryDB* operator->() { return &m_database; }

private:
    const AnotherFolder m_folder;
    Ombrin::CkelMemoryDB m_database;
};

long long rowsIn(const std::string& path)
{
    const Connection database(path);
    const Statement select(database, "SELECT count(*) FROM kel");
    sqlite3_step(select);
    return sqlite3_column_int64(select, 0);
}

template <typename Work>
void libraryBatch(benchmark::State& state, Work work)
{
    LibraryTable table;
    for (auto _ : state) {
        bool done = false;
        measureOnce<WallClock>(state, [&] { done = work(*table.operator->()); });
        check(state, done, "the library refuses a batch");
    }
    check(state, rowsIn("kelmem.db") == static_cast<long long>(rowCount), "rows are missing");
}

template <typename Work>
void bareBatch(benchmark::State& state, Work work)
{
    const AnotherFolder folder;
    std::filesystem::remove("bare.db");
    const Connection database("bare.db");
    bareRebuild(database, rows());
    for (auto _ : state)
        measureOnce<WallClock>(state, [&] { work(database, rows()); });
}

// Bytes written

/// Waits until nothing has been written for a while: the worker thread writes within a second.
void waitForWriter(const std::string& file)
{
    using namespace std::chrono_literals;
    const std::uint64_t before = bytesWritten(file);
    for (int i = 0; i < 500 && bytesWritten(file) == before; ++i)
        std::this_thread::sleep_for(10ms);
    for (std::uint64_t last = 0; last != bytesWritten(file);) {
        last = bytesWritten(file);
        std::this_thread::sleep_for(100ms);
    }
}

/// Changes of numbers: the table keeps a text as 0, and SQLite writes no page that stays as it is.
std::vector<tagStorageData> changedRecords(const World& world, std::size_t count)
{
    std::vector<tagStorageData> records;
    for (std::size_t i = 0; records.size() < count; ++i) {
        if (world.item(i).Value.type() == CkelVariant::String)
            continue;
        records.push_back(world.item(i));
        records.back().Value = world.changed[i].value;
    }
    return records;
}

/// The whole road: update, tick, worker thread.
void libraryBytes(benchmark::State& state, World& world, std::size_t changes)
{
    const AnotherFolder folder;
    const CountingVfs counting;
    std::filesystem::remove("kelmem.db");
    Ombrin::CkelMemoryDataStorage storage;
    storage.readConfigFile("../" + world.jsonPath, true);
    const std::vector<tagStorageData> records = changedRecords(world, changes);
    Ombrin::CkelTimerEvent tick(1);
    std::uint64_t bytes = 0;
    for (auto _ : state) {
        const std::uint64_t before = bytesWritten("kelmem.db");
        for (const tagStorageData& record : records)
            storage.updateValue(record.ID, record.Value, false);
        storage.timerEvent(&tick);
        waitForWriter("kelmem.db");
        bytes = bytesWritten("kelmem.db") - before;
    }
    check(state, bytes > 0, "nothing was written");
    state.counters["bytes"] = static_cast<double>(bytes);
}

void bareBytes(benchmark::State& state, World& world, std::size_t changes)
{
    const AnotherFolder folder;
    const CountingVfs counting;
    std::filesystem::remove("bare.db");
    const Connection database("bare.db");
    bareRebuild(database, world.items);
    const std::vector<tagStorageData> records = changedRecords(world, changes);
    std::uint64_t bytes = 0;
    for (auto _ : state) {
        const std::uint64_t before = bytesWritten("bare.db");
        bareUpdate(database, records);
        bytes = bytesWritten("bare.db") - before;
    }
    state.counters["bytes"] = static_cast<double>(bytes);
}

} // namespace

AnotherFolder::AnotherFolder() : m_before(std::filesystem::current_path())
{
    std::filesystem::create_directory("other");
    std::filesystem::current_path("other");
}

AnotherFolder::~AnotherFolder()
{
    std::filesystem::current_path(m_before);
}

void bareRebuild(const Connection& database, const std::vector<tagStorageData>& records)
{
    database.execute("BEGIN IMMEDIATE");
    database.execute(createText);
    replaceRows(database, records);
    database.execute("COMMIT");
}

void bareInsert(const Connection& database, const std::vector<tagStorageData>& records)
{
    database.execute("BEGIN IMMEDIATE");
    replaceRows(database, records);
    database.execute("COMMIT");
}

void bareUpdate(const Connection& database, const std::vector<tagStorageData>& records)
{
    database.execute("BEGIN IMMEDIATE");
    {
        Statement update(database, updateText);
        for (const tagStorageData& record : records) {
            sqlite3_bind_int(update, bindFields(update, 1, record), static_cast<int>(record.ID));
            update.run();
        }
    }
    database.execute("COMMIT");
}

void registerSaving(World& world)
{
    using Ombrin::CkelMemoryDB;
    const auto timed = [&](const std::string& name, auto function) {
        addRow(name, world, [function](benchmark::State& state, World&) { function(state); })->UseManualTime();
    };
    timed("batch_insert/library", [](benchmark::State& state) {
        libraryBatch(state, [](CkelMemoryDB& database) { return database.insertDatas(rows()); });
    });
    timed("batch_insert/limit", [](benchmark::State& state) { bareBatch(state, bareInsert); });
    timed("batch_update/library", [](benchmark::State& state) {
        libraryBatch(state, [](CkelMemoryDB& database) { return database.updateDatas(rows()); });
    });
    timed("batch_update/limit", [](benchmark::State& state) { bareBatch(state, bareUpdate); });

    for (const std::size_t changes : {std::size_t{1}, batchSize}) {
        const auto counted = [&](const std::string& who, auto function) {
            const std::string name = "written_" + std::to_string(changes) + "/" + who;
            addRow(name, world, [=](benchmark::State& state, World& shared) { function(state, shared, changes); })
                ->Iterations(1)
                ->Repetitions(1);
        };
        counted("library", libraryBytes);
        counted("limit", bareBytes);
    }
}

} // namespace KelBench
