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

/// The IDs of the items whose values have this form, in the order of all IDs.
std::vector<unsigned int> idsOfType(const World& world, Ombrin::ValueTypeCode type)
{
    std::vector<unsigned int> ids;
    for (std::size_t i = 0; i < world.size(); ++i) {
        if (world.item(i).ValueT == type)
            ids.push_back(world.item(i).ID);
    }
    fillUpBatch(ids);
    return ids;
}

/// Registers the reading of values by `read`, from the library and from the bare map.
template <typename Read>
void addReading(const std::string& name, World& world, Ombrin::ValueTypeCode type, Read read)
{
    addRow(name + "/library", world, [=](benchmark::State& state, const World& shared) {
        const std::vector<unsigned int> ids = idsOfType(shared, type);
        for (std::size_t i = 0; i < ids.size(); i += shared.checkStep()) {
            if (read(shared.storage->queryValue(ids[i])) != read(shared.bareItems.at(ids[i]).Value))
                return check(state, false, "a value that is read is not the item's");
        }
        measureCalls(state, ids,
                     [&](unsigned int id) { benchmark::DoNotOptimize(read(shared.storage->queryValue(id))); });
    });
    addRow(name + "/limit", world, [=](benchmark::State& state, const World& shared) {
        measureCalls(state, idsOfType(shared, type),
                     [&](unsigned int id) { benchmark::DoNotOptimize(read(shared.bareItems.find(id)->second.Value)); });
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
    addReading("read_double", world, Ombrin::ValueTypeReal9, [](const CkelVariant& value) { return value.toDouble(); });
    addReading("read_longlong", world, Ombrin::ValueTypeInteger4,
               [](const CkelVariant& value) { return value.toLongLong(); });
    addReading("read_int", world, Ombrin::ValueTypeInteger4, [](const CkelVariant& value) { return value.toInt(); });
    addRow("query_name/library", world, queryByName);
    addRow("query_name/limit", world, bareByName);
    for (const int threads : {1, 2}) {
        const std::string name = "safe_" + std::to_string(threads);
        addRow(name + "/library", world, querySafe)->Threads(threads)->UseRealTime();
        addRow(name + "/limit", world, queryUnderMutex)->Threads(threads)->UseRealTime();
    }
}

} // namespace KelBench
