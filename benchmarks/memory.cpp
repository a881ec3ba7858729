#include "benchmarks/memory.h"

#include "benchmarks/check.h"
#include "benchmarks/rows.h"
#include "benchmarks/sqlitepeer.h"
#include "benchmarks/world.h"
#include "datastorage/kelmemorydatastorage.h"

#include <malloc.h>

namespace KelBench {

std::size_t bytesInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

namespace {

using Ombrin::CkelMemoryDataStorage;

template <typename Load>
void countLibrary(benchmark::State& state, const World& world, Load load)
{
    for (auto _ : state) {
        CkelMemoryDataStorage storage;
        const std::size_t before = bytesInUse();
        check(state, load(storage), "the storage is not loaded");
        state.counters["bytes_per_item"] =
            static_cast<double>(bytesInUse() - before) / static_cast<double>(world.size());
    }
}

/// The indexes alone: a configuration database leaves no record list behind.
void countIndexes(benchmark::State& state, World& world)
{
    countLibrary(state, world, [&](CkelMemoryDataStorage& storage) { return storage.readDBFile(world.databasePath); });
}

void countWithRecordList(benchmark::State& state, World& world)
{
    countLibrary(state, world, [&](CkelMemoryDataStorage& storage) { return storage.readJsonFile(world.jsonPath); });
}

/// Texts of its own, as a dictionary that was read has them.
CkelVariant unshared(const CkelVariant& value)
{
    return value.type() == CkelVariant::String ? CkelVariant(value.toStdString()) : value;
}

/// Record, name and the nodes of both indexes.
void countBareMaps(benchmark::State& state, World& world)
{
    for (auto _ : state) {
        const std::size_t before = bytesInUse();
        std::unordered_map<unsigned int, tagStorageData> items;
        std::unordered_map<std::string, unsigned int> names;
        items.reserve(world.size());
        names.reserve(world.size());
        for (const tagStorageData& item : world.items) {
            tagStorageData& record = items.try_emplace(item.ID, item).first->second;
            record.Value = unshared(item.Value);
            record.DefValue = unshared(item.DefValue);
            if (item.ValueT == Ombrin::ValueTypeText)
                record.Max = record.Min = CkelVariant(); // a configuration database has no bounds of texts
            names.try_emplace(item.NameID, item.ID);
        }
        state.counters["bytes_per_item"] =
            static_cast<double>(bytesInUse() - before) / static_cast<double>(world.size());
    }
}

/// The rows in SQLite's memory, found by ID and by name.
void countSqlite(benchmark::State& state, World& world)
{
    for (auto _ : state) {
        const std::size_t before = bytesInUse();
        ItemTable table(":memory:", "ID INTEGER PRIMARY KEY");
        for (const tagStorageData& item : world.items)
            table.insert(item);
        table.commit();
        table.indexNames();
        state.counters["bytes_per_item"] =
            static_cast<double>(bytesInUse() - before) / static_cast<double>(world.size());
    }
}

} // namespace

void registerMemory(World& world)
{
    const auto counted = [&](const std::string& name, auto function) {
        addRow(name, world, function)->Iterations(1)->Repetitions(1);
    };
    counted("memory/library", countIndexes);
    counted("memory/with record list", countWithRecordList);
    counted("memory/limit", countBareMaps);
    counted("memory/SQLite", countSqlite);
}

} // namespace KelBench
