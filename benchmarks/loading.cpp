#include "benchmarks/check.h"
#include "benchmarks/measure.h"
#include "benchmarks/rows.h"
#include "benchmarks/saving.h"
#include "benchmarks/sqlitepeer.h"
#include "benchmarks/world.h"
#include "datastorage/kelmemorydatastorage.h"

#include <malloc.h>
#include <rapidjson/document.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <unordered_map>

namespace KelBench {

namespace {

using Ombrin::CkelMemoryDataStorage;

/// Without the local database that an earlier run has left; the factory's storages keep theirs open.
void removeLocalDatabase()
{
    std::filesystem::remove("kelmem.db");
}

void checkLoaded(benchmark::State& state, const World& world, const CkelMemoryDataStorage& storage)
{
    for (std::size_t i = 0; i < world.size(); i += world.checkStep()) {
        const tagStorageData& item = world.items[i];
        if (!storage.queryValue(item.ID).cmp(item.Value) || storage.ID(item.NameID) != item.ID)
            return check(state, false, "an item was loaded wrongly");
    }
}

/// Measures `load` with a heap as a process finds it at its start: what was freed before is in nobody's way.
template <typename Clock, typename Load>
void measureFresh(benchmark::State& state, Load load)
{
    malloc_trim(0);
    measureOnce<Clock>(state, load);
}

/// Loads a new storage for each iteration; only `load` counts.
template <typename Clock, typename Load>
void measureLoad(benchmark::State& state, const World& world, Load load)
{
    for (auto _ : state) {
        CkelMemoryDataStorage storage;
        measureFresh<Clock>(state, [&] { load(storage); });
        checkLoaded(state, world, storage);
    }
}

void readJson(benchmark::State& state, World& world)
{
    measureLoad<ThreadClock>(state, world,
                             [&](CkelMemoryDataStorage& storage) { storage.readJsonFile(world.jsonPath); });
}

void readDatabase(benchmark::State& state, World& world)
{
    measureLoad<ThreadClock>(state, world,
                             [&](CkelMemoryDataStorage& storage) { storage.readDBFile(world.databasePath); });
}

/// The first start in a folder: there is no kelmem.db yet.
void firstStart(benchmark::State& state, World& world, const std::string& path)
{
    const AnotherFolder folder;
    for (auto _ : state) {
        removeLocalDatabase();
        CkelMemoryDataStorage storage;
        measureFresh<WallClock>(state, [&] { storage.readConfigFile(path, true); });
        checkLoaded(state, world, storage);
    }
}

/// Every later start: the saved values are restored.
void restart(benchmark::State& state, World& world, const std::string& path)
{
    const AnotherFolder folder;
    removeLocalDatabase();
    CkelMemoryDataStorage().readConfigFile(path, true);
    for (auto _ : state) {
        CkelMemoryDataStorage storage;
        measureFresh<WallClock>(state, [&] { storage.readConfigFile(path, true); });
        benchmark::DoNotOptimize(storage.queryValue(world.ids[0]));
    }
}

std::string bytesOfFile(const std::string& path)
{
    std::string bytes(std::filesystem::file_size(path), '\0');
    std::ifstream(path, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

void parse(const std::string& bytes)
{
    rapidjson::Document document;
    document.Parse(bytes.c_str());
    benchmark::DoNotOptimize(document.IsObject());
}

void bareParse(benchmark::State& state, World& world)
{
    const std::string bytes = bytesOfFile(world.jsonPath);
    for (auto _ : state) {
        rapidjson::Document document;
        measureFresh<ThreadClock>(state, [&] { document.Parse(bytes.c_str()); });
        check(state, document.IsObject() && document["kel"].Size() == world.size(), "RapidJSON reads something else");
    }
}

CkelVariant variantOf(const rapidjson::Value& value)
{
    if (value.IsString())
        return std::string(value.GetString(), value.GetStringLength());
    if (value.IsInt())
        return value.GetInt();
    return value.IsUint64() ? CkelVariant(static_cast<unsigned long long>(value.GetUint64())) : value.GetDouble();
}

/// Calls `take` with every item of a dictionary, as an application reads it with RapidJSON.
template <typename Take>
void readItems(const std::string& path, Take take)
{
    const std::string bytes = bytesOfFile(path);
    rapidjson::Document document;
    document.Parse(bytes.c_str());
    for (const rapidjson::Value& item : document["kel"].GetArray()) {
        const auto byte = [&](const char* key) { return static_cast<std::uint8_t>(item[key].GetUint()); };
        tagStorageData record;
        record.ID = item["ID"].GetUint();
        record.NameID.assign(item["NameID"].GetString(), item["NameID"].GetStringLength());
        record.CommSource = byte("CommSource");
        record.DBSource = byte("DBSource");
        record.RW = byte("RW");
        record.Block = byte("Block");
        record.ValueT = byte("ValueT");
        record.Value = variantOf(item["Value"]);
        record.DefValue = variantOf(item["DefValue"]);
        record.Max = variantOf(item["Max"]);
        record.Min = variantOf(item["Min"]);
        take(std::move(record));
    }
}

void readIntoBareMaps(benchmark::State& state, World& world)
{
    for (auto _ : state) {
        std::unordered_map<unsigned int, tagStorageData> items;
        std::unordered_map<std::string, unsigned int> names;
        measureFresh<ThreadClock>(state, [&] {
            readItems(world.jsonPath, [&](tagStorageData&& item) {
                names.try_emplace(item.NameID, item.ID);
                items.try_emplace(item.ID, std::move(item));
            });
        });
        const unsigned int id = world.ids[0];
        check(state, items.size() == world.size() && items.at(id).Value.cmp(world.bareItems.at(id).Value),
              "the bare maps hold something else");
    }
}

void readIntoSqlite(benchmark::State& state, World& world)
{
    for (auto _ : state) {
        std::optional<ItemTable> table;
        measureFresh<ThreadClock>(state, [&] {
            table.emplace(":memory:", "ID INTEGER PRIMARY KEY");
            readItems(world.jsonPath, [&](const tagStorageData& item) { table->insert(item); });
            table->commit();
            table->indexNames();
        });
        const Statement count(*table, "SELECT count(*) FROM kel");
        sqlite3_step(count);
        check(state, sqlite3_column_int64(count, 0) == static_cast<sqlite3_int64>(world.size()),
              "SQLite misses an item");
    }
}

/// The whole of the work done barely: the file read, a document, the record list, and a map for each index.
void bareJson(benchmark::State& state, World& world)
{
    for (auto _ : state) {
        std::vector<tagStorageData> records;
        std::unordered_map<unsigned int, tagStorageData> items;
        std::unordered_map<std::string, unsigned int> names;
        measureFresh<ThreadClock>(state, [&] {
            readItems(world.jsonPath, [&](tagStorageData&& item) { records.push_back(std::move(item)); });
            items.reserve(records.size());
            names.reserve(records.size());
            for (const tagStorageData& record : records) {
                items.emplace(record.ID, record);
                names.emplace(record.NameID, record.ID);
            }
        });
        check(state, items.size() == world.size() && names.size() == world.size(), "items are missing");
    }
}

void stepRows(const std::string& path, const char* sql)
{
    const Connection database(path);
    const Statement select(database, sql);
    const int columns = sqlite3_column_count(select);
    while (sqlite3_step(select) == SQLITE_ROW) {
        for (int column = 0; column < columns; ++column)
            readColumn(select, column);
    }
}

void bareRows(benchmark::State& state, World& world)
{
    for (auto _ : state)
        measureFresh<ThreadClock>(state, [&] { stepRows(world.databasePath, "SELECT * FROM kel"); });
}

/// Reads the same, then makes the same local database, both barely.
template <typename Read>
void bareFirstStart(benchmark::State& state, const std::vector<tagStorageData>& saved, Read read)
{
    const AnotherFolder folder;
    for (auto _ : state) {
        removeLocalDatabase();
        measureFresh<WallClock>(state, [&] {
            read();
            const Connection database("kelmem.db");
            bareRebuild(database, saved);
        });
    }
}

template <typename Read>
void bareRestart(benchmark::State& state, const std::vector<tagStorageData>& saved, Read read)
{
    const AnotherFolder folder;
    removeLocalDatabase();
    bareRebuild(Connection("kelmem.db"), saved);
    for (auto _ : state) {
        measureFresh<WallClock>(state, [&] {
            read();
            stepRows("kelmem.db", "SELECT * FROM kel ;");
        });
    }
}

} // namespace

void registerLoading(World& world)
{
    const std::string json = std::filesystem::absolute(world.jsonPath);
    const std::string database = std::filesystem::absolute(world.databasePath);
    const auto timed = [&](const std::string& name, auto function) {
        return addRow(name, world, function)->UseManualTime();
    };
    // Five starts with a million items would take minutes.
    const auto start = [&](const std::string& name, auto function) {
        auto* const row = timed(name, function);
        if (world.size() > 100000)
            row->Repetitions(3);
    };

    timed("read_json/library", readJson);
    if (world.size() <= 100000) { // the page shows the smallest size
        timed("read_json/bare maps", readIntoBareMaps);
        timed("read_json/SQLite", readIntoSqlite);
    }
    timed("read_json/limit", bareJson);
    timed("read_json/RapidJSON", bareParse);
    timed("read_database/library", readDatabase);
    timed("read_database/limit", bareRows);

    start("first_json/library", [=](benchmark::State& state, World& shared) { firstStart(state, shared, json); });
    start("first_json/limit", [=](benchmark::State& state, World& shared) {
        bareFirstStart(state, shared.items, [&] { parse(bytesOfFile(json)); });
    });
    start("restart_json/library", [=](benchmark::State& state, World& shared) { restart(state, shared, json); });
    start("restart_json/limit", [=](benchmark::State& state, World& shared) {
        bareRestart(state, shared.items, [&] { parse(bytesOfFile(json)); });
    });
    start("first_database/library",
          [=](benchmark::State& state, World& shared) { firstStart(state, shared, database); });
    start("first_database/limit", [=](benchmark::State& state, World&) {
        bareFirstStart(state, {}, [&] { stepRows(database, "SELECT * FROM kel"); });
    });
}

} // namespace KelBench
