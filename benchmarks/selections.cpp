#include "benchmarks/check.h"
#include "benchmarks/measure.h"
#include "benchmarks/rows.h"
#include "benchmarks/sqlitepeer.h"
#include "benchmarks/world.h"

#include <string>
#include <vector>

namespace KelBench {

namespace {

constexpr auto anyType = static_cast<CkelAbstractDataStorage::FieldType>(0);

/// A hundredth of the items carries the mark that is selected.
void prepare(World& world)
{
    world.markModified(world.size() / 100);
}

template <typename Test>
std::vector<SixteenBytes> barePass(const World& world, Test test)
{
    std::vector<unsigned int> ids;
    for (const auto& [id, item] : world.bareItems) {
        if (item.Dirty != Ombrin::DirtyDeleted && test(item))
            ids.push_back(item.ID);
    }
    std::vector<SixteenBytes> values;
    values.reserve(ids.size());
    for (const unsigned int id : ids)
        values.push_back(bytesOf(world.bareItems.find(id)->second.Value));
    return values;
}

std::int64_t stepAll(sqlite3_stmt* select)
{
    std::int64_t rows = 0;
    while (sqlite3_step(select) == SQLITE_ROW) {
        readColumn(select, 0);
        ++rows;
    }
    sqlite3_reset(select);
    return rows;
}

std::vector<tagStorageData> markedItems(World& world)
{
    prepare(world);
    std::vector<tagStorageData> items = world.items;
    for (tagStorageData& item : items)
        item.Dirty = world.bareItems.find(item.ID)->second.Dirty;
    return items;
}

const MemoryTable& tableOf(World& world, MemoryTable::Index index)
{
    static const MemoryTable unindexed(markedItems(world), MemoryTable::Unindexed);
    static const MemoryTable indexed(markedItems(world), MemoryTable::ByAll);
    return index == MemoryTable::Unindexed ? unindexed : indexed;
}

void sqliteRows(benchmark::State& state, World& world, const char* sql, MemoryTable::Index index)
{
    const Statement select(tableOf(world, index), sql);
    for (auto _ : state)
        benchmark::DoNotOptimize(stepAll(select));
}

/// Registers a selection as the library (`query`), a bare pass (`test`) and SQLite make it.
template <typename Query, typename Test>
void addSelection(const std::string& name, World& world, const char* sql, Query query, Test test)
{
    addRow(name + "/library", world, [=](benchmark::State& state, World& shared) {
        prepare(shared);
        const auto found = query(*shared.storage).size();
        check(state, found > 0 && found == barePass(shared, test).size(), "a selection finds other items");
        for (auto _ : state)
            benchmark::DoNotOptimize(query(*shared.storage).data());
    });
    addRow(name + "/limit", world, [=](benchmark::State& state, World& shared) {
        prepare(shared);
        for (auto _ : state)
            benchmark::DoNotOptimize(barePass(shared, test).data());
    });
    addRow(name + "/SQLite with index", world,
           [=](benchmark::State& state, World& shared) { sqliteRows(state, shared, sql, MemoryTable::ByAll); });
    addRow(name + "/SQLite without index", world,
           [=](benchmark::State& state, World& shared) { sqliteRows(state, shared, sql, MemoryTable::Unindexed); });
}

} // namespace

void registerSelections(World& world)
{
    using Storage = CkelAbstractDataStorage;
    addSelection(
        "select_range", world, "SELECT Value FROM kel WHERE ID >= 1000000000 AND ID < 1429496730",
        [](Storage& storage) { return storage.queryValueListBetween(selectedFirst, selectedLast); },
        [](const tagStorageData& item) { return selectedFirst <= item.ID && item.ID < selectedLast; });
    addSelection(
        "select_block", world, "SELECT Value FROM kel WHERE Block = 7",
        [](Storage& storage) { return storage.queryValueListByField("Block", anyType, selectedBlock, Storage::Equal); },
        [](const tagStorageData& item) { return item.Block == selectedBlock; });
    addSelection(
        "select_mark", world, "SELECT Value FROM kel WHERE Dirty = 2",
        [](Storage& storage) {
            return storage.queryValueListByField("Dirty", anyType, int{Ombrin::DirtyModified}, Storage::Equal);
        },
        [](const tagStorageData& item) { return item.Dirty == Ombrin::DirtyModified; });
}

} // namespace KelBench
