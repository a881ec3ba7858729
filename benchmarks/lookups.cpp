#include "benchmarks/check.h"
#include "benchmarks/measure.h"
#include "benchmarks/rows.h"
#include "benchmarks/sqlitepeer.h"
#include "benchmarks/world.h"

#include <mutex>

namespace KelBench {

namespace {

void checkLookups(benchmark::State& state, const World& world, const CkelAbstractDataStorage& storage)
{
    for (std::size_t i = 0; i < world.size(); i += world.checkStep()) {
        const tagStorageData& item = world.items[i];
        if (!storage.queryValue(item.ID).cmp(item.Value) || !storage.queryValue(item.NameID).cmp(item.Value))
            return check(state, false, "a looked-up value is not the item's");
    }
    check(state, storage.queryValue(0U).isNull(), "a value without an item");
}

void queryByID(benchmark::State& state, const World& world)
{
    checkLookups(state, world, *world.storage);
    measureCalls(state, world.ids, [&](unsigned int id) { benchmark::DoNotOptimize(world.storage->queryValue(id)); });
}

void queryByName(benchmark::State& state, const World& world)
{
    checkLookups(state, world, *world.storage);
    measureCalls(state, world.names,
                 [&](const std::string& name) { benchmark::DoNotOptimize(world.storage->queryValue(name)); });
}

void bareByID(benchmark::State& state, const World& world)
{
    measureCalls(state, world.ids, [&](unsigned int id) {
        const auto item = world.bareItems.find(id);
        benchmark::DoNotOptimize(bytesOf(item->second.Value));
    });
}

void bareByName(benchmark::State& state, const World& world)
{
    measureCalls(state, world.names, [&](const std::string& name) {
        const auto item = world.bareItems.find(world.bareNames.find(name)->second);
        benchmark::DoNotOptimize(bytesOf(item->second.Value));
    });
}

void sqliteByID(benchmark::State& state, const World& world)
{
    static const MemoryTable table(world.items, MemoryTable::ByID);
    static const Statement select(table, "SELECT Value FROM kel WHERE ID=?");
    bool found = true;
    measureCalls(state, world.ids, [&](unsigned int id) {
        sqlite3_bind_int64(select, 1, id);
        found = found && sqlite3_step(select) == SQLITE_ROW;
        readColumn(select, 0);
        sqlite3_reset(select);
    });
    check(state, found, "SQLite misses an item");
}

void querySafe(benchmark::State& state, const World& world)
{
    if (state.thread_index() == 0)
        checkLookups(state, world, *world.safe);
    measureCalls(state, world.ids, [&](unsigned int id) { benchmark::DoNotOptimize(world.safe->queryValue(id)); });
}

void queryUnderMutex(benchmark::State& state, const World& world)
{
    static std::mutex mutex;
    measureCalls(state, world.ids, [&](unsigned int id) {
        const std::lock_guard<std::mutex> lock(mutex);
        benchmark::DoNotOptimize(world.storage->queryValue(id));
    });
}

} // namespace

void registerLookups(World& world)
{
    addRow("query_id/library", world, queryByID);
    addRow("query_id/limit", world, bareByID);
    addRow("query_id/SQLite", world, sqliteByID);
    addRow("query_name/library", world, queryByName);
    addRow("query_name/limit", world, bareByName);
    for (const int threads : {1, 2}) {
        const std::string name = "safe_" + std::to_string(threads);
        addRow(name + "/library", world, querySafe)->Threads(threads)->UseRealTime();
        addRow(name + "/limit", world, queryUnderMutex)->Threads(threads)->UseRealTime();
    }
}

} // namespace KelBench
