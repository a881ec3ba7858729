#include "benchmarks/check.h"
#include "benchmarks/measure.h"
#include "benchmarks/rows.h"
#include "benchmarks/world.h"
#include "datastorage/kelmemorydatastorage.h"
#include "kernel/kelevent.h"

namespace KelBench {

namespace {

/// The storage's timer event: whether there is a local table, then the collection.
void tick(benchmark::State& state, World& world)
{
    world.markModified(0);
    const LocalTable table;
    check(state, world.storage->hasLocalDB(), "there is no table, so that nothing would be collected");
    Ombrin::CkelTimerEvent event(1);
    for (auto _ : state)
        world.storage->timerEvent(&event);
}

/// The collection alone.
void collect(benchmark::State& state, World& world)
{
    world.markModified(0);
    auto* const storage = dynamic_cast<Ombrin::CkelMemoryDataStorage*>(world.storage);
    check(state, storage != nullptr, "the factory's storage is of another class");
    for (auto _ : state)
        storage->syncToMemoryDB();
}

void threeBarePasses(benchmark::State& state, World& world)
{
    world.markModified(0);
    for (auto _ : state) {
        for (const unsigned int mark : {2U, 1U, 3U}) {
            std::vector<unsigned int> ids;
            for (const auto& [id, item] : world.bareItems) {
                if (item.Dirty == mark)
                    ids.push_back(item.ID);
            }
            benchmark::DoNotOptimize(ids.data());
        }
    }
}

} // namespace

void registerTicks(World& world)
{
    addRow("tick/library", world, tick);
    addRow("tick/limit", world, threeBarePasses);
    addRow("collection/library", world, collect);
}

} // namespace KelBench
