#include "benchmarks/check.h"
#include "benchmarks/measure.h"
#include "benchmarks/rows.h"
#include "benchmarks/world.h"
#include "datastorage/kelmemorydatastorage.h"
#include "datastorage/kelmemorydb.h"
#include "kernel/kelevent.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>

namespace KelBench {

namespace {

/// Explicit instantiation may name private members.
template <auto Member>
struct ReachDB
{
    friend auto& memoryDBOf(Ombrin::CkelMemoryDataStorage& storage) { return *(storage.*Member); }
};
auto& memoryDBOf(Ombrin::CkelMemoryDataStorage& storage);
template struct ReachDB<&Ombrin::CkelMemoryDataStorage::m_memoryDB>;

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

/// Marks `count` items changed. Drops what the last collection queued, so that nothing is written.
Ombrin::CkelMemoryDataStorage& changedStorage(World& world, std::size_t count)
{
    auto& storage = dynamic_cast<Ombrin::CkelMemoryDataStorage&>(*world.storage);
    while (!memoryDBOf(storage).isEmpty())
        memoryDBOf(storage).pop();
    for (std::size_t i = 0; i < count; ++i)
        storage.updateField(world.ids[i], "Dirty", int{Ombrin::DirtyModified}, false);
    return storage;
}

/// A collection of `count` changed items.
void collectChanges(benchmark::State& state, World& world, std::size_t count)
{
    world.markModified(0);
    for (auto _ : state) {
        auto& storage = changedStorage(world, count);
        measureOnce<ThreadClock>(state, [&] { storage.syncToMemoryDB(); });
        check(state, storage.validIDByDirty(Ombrin::DirtyClean, CkelAbstractDataStorage::NotEqual).empty(),
              "a change has not been collected");
    }
    changedStorage(world, 0);
}

/// The longest time that one lookup of another thread takes, its waiting for the lock included, while `count` changed
/// items are collected.
void waitForCollection(benchmark::State& state, World& world, std::size_t count)
{
    world.markModified(0);
    for (auto _ : state) {
        auto& storage = changedStorage(world, count);
        std::atomic<int> lookups{0};
        std::atomic<bool> done{false};
        double longest = 0;
        std::thread reader([&] {
            for (std::size_t i = 0; !done; i = (i + 1) % world.ids.size()) {
                const double begin = WallClock::now();
                {
                    const std::lock_guard<Ombrin::CkelMutex> lock(*storage.mutex());
                    benchmark::DoNotOptimize(storage.queryValue(world.ids[i]));
                }
                longest = std::max(longest, WallClock::now() - begin);
                ++lookups;
            }
        });
        while (lookups == 0)
            std::this_thread::yield();
        storage.syncToMemoryDB();
        done = true;
        reader.join();
        state.SetIterationTime(longest);
    }
    changedStorage(world, 0);
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
    for (const auto& [name, count] :
         {std::pair<const char*, std::size_t>("1", 1), {"100", 100}, {"all", world.size()}}) {
        const auto add = [&, changes = count](const std::string& row, auto function) {
            addRow(row, world, [=](benchmark::State& state, World& shared) {
                function(state, shared, changes);
            })->UseManualTime();
        };
        add(std::string("collect_") + name + "/library", collectChanges);
        add(std::string("wait_") + name + "/library", waitForCollection);
    }
}

} // namespace KelBench
