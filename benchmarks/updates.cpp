#include "benchmarks/check.h"
#include "benchmarks/measure.h"
#include "benchmarks/rows.h"
#include "benchmarks/sqlitepeer.h"
#include "benchmarks/world.h"
#include "kernel/kelapplicationplus.h"
#include "kernel/keldatasensor.h"
#include "kernel/kelevent.h"

#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>

#include <chrono>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace KelBench {

namespace {

using Ombrin::CkelApplicationPlus;

/// Counts what it is told, from its construction to its end.
class Listener : public Ombrin::CkelObject
{
public:
    Listener() { CkelApplicationPlus::dataSensor()->attach(this); }
    ~Listener() override { CkelApplicationPlus::dataSensor()->detach(this); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    void dataSensorEvent(Ombrin::CkelDataSensorEvent* event) override
    {
        ++count;
        last = event->id();
    }

    std::int64_t count = 0;
    unsigned int last = 0;
};

void deliver()
{
    CkelApplicationPlus::instance()->processEvents();
}

void updateSame(benchmark::State& state, World& world)
{
    Listener listener;
    measureCalls(state, world.same, [&](const Change& change) {
        benchmark::DoNotOptimize(world.storage->updateValue(change.id, change.value, false));
    });
    deliver();
    check(state, listener.count == 0, "an equal value was announced");
}

void bareSame(benchmark::State& state, World& world)
{
    std::size_t different = 0;
    measureCalls(state, world.same, [&](const Change& change) {
        const SixteenBytes stored = bytesOf(world.bareItems.find(change.id)->second.Value);
        const SixteenBytes given = bytesOf(change.value);
        different += static_cast<std::size_t>(stored.words[0] != given.words[0] || stored.words[1] != given.words[1]);
        benchmark::DoNotOptimize(stored);
    });
    benchmark::DoNotOptimize(different);
}

/// Changes every item in turn, to the other value and back, and calls `turn` after each `perTurn` changes.
template <typename Apply, typename Turn>
void measureChanges(benchmark::State& state, const World& world, std::size_t perTurn, Apply apply, Turn turn)
{
    std::size_t next = 0;
    bool back = false;
    while (state.KeepRunningBatch(batchSize)) {
        const std::vector<Change>& changes = back ? world.same : world.changed;
        for (std::size_t i = 0; i < batchSize; i += perTurn) {
            for (std::size_t k = 0; k < perTurn; ++k)
                apply(changes[next + i + k]);
            turn();
        }
        next = (next + batchSize) % changes.size();
        back = back != (next == 0);
    }
}

void updateChanged(benchmark::State& state, World& world, std::size_t perTurn)
{
    world.restore();
    Listener listener;
    measureChanges(
        state, world, perTurn,
        [&](const Change& change) {
            benchmark::DoNotOptimize(world.storage->updateValue(change.id, change.value, false));
        },
        deliver);
    check(state, listener.count == state.iterations(), "not every change was announced once");
    Ombrin::CkelApplicationPlus::dataSensor()->detach(&listener);
    world.restore();
}

/// What a turn has to deliver, at the least.
struct Small
{
    unsigned int id;
    SixteenBytes value;
};

std::unique_ptr<Small> bareEvent(const Change& change)
{
    return std::make_unique<Small>(Small{change.id, bytesOf(change.value)});
}

void bareChanged(benchmark::State& state, World& world)
{
    std::vector<std::unique_ptr<Small>> posted;
    posted.reserve(batchSize);
    measureChanges(
        state, world, batchSize,
        [&](const Change& change) {
            world.bareItems.find(change.id)->second.Value = change.value;
            posted.push_back(bareEvent(change));
        },
        [&] {
            benchmark::DoNotOptimize(posted.data());
            posted.clear();
        });
    for (const Change& change : world.same)
        world.bareItems.find(change.id)->second.Value = change.value;
}

/// The same through a queue that other threads may reach, and a loop of Asio's that is woken for each turn and has a
/// timer.
void bareTurns(benchmark::State& state, World& world, std::size_t perTurn)
{
    std::mutex mutex;
    std::vector<std::unique_ptr<Small>> posted;
    std::vector<std::unique_ptr<Small>> batch;
    asio::io_context loop;
    asio::steady_timer timer(loop, std::chrono::hours(1));
    timer.async_wait([](const asio::error_code& /*error*/) {});
    std::int64_t count = 0;
    measureChanges(
        state, world, perTurn,
        [&](const Change& change) {
            world.bareItems.find(change.id)->second.Value = change.value;
            auto event = bareEvent(change);
            const std::lock_guard<std::mutex> lock(mutex);
            if (posted.empty()) {
                asio::post(loop, [&] {
                    const std::lock_guard<std::mutex> taken(mutex);
                    batch.swap(posted);
                });
            }
            posted.push_back(std::move(event));
        },
        [&] {
            loop.poll();
            for (const auto& event : batch) {
                benchmark::DoNotOptimize(event->value);
                ++count;
            }
            batch.clear();
        });
    check(state, count == state.iterations(), "not every change was delivered once");
    for (const Change& change : world.same)
        world.bareItems.find(change.id)->second.Value = change.value;
}

/// A thousand changes of one item for each turn; a change replaces the one that waits.
void bareMerged(benchmark::State& state, World& world)
{
    std::mutex mutex;
    std::vector<std::unique_ptr<Small>> posted;
    std::unordered_map<unsigned int, std::size_t> newest;
    const unsigned int id = world.numberID();
    long long value = 0;
    std::int64_t turns = 0;
    while (state.KeepRunningBatch(batchSize)) {
        for (std::size_t i = 0; i < batchSize; ++i) {
            const Change change{id, ++value};
            world.bareItems.find(id)->second.Value = change.value;
            auto event = bareEvent(change);
            const std::lock_guard<std::mutex> lock(mutex);
            const auto [waiting, isFirst] = newest.try_emplace(id, posted.size());
            if (isFirst)
                posted.push_back(std::move(event));
            else
                posted[waiting->second].swap(event);
        }
        turns += static_cast<std::int64_t>(posted.size());
        posted.clear();
        newest.clear();
    }
    check(state, turns * static_cast<std::int64_t>(batchSize) == state.iterations(), "merging went wrong");
    for (const Change& change : world.same)
        world.bareItems.find(change.id)->second.Value = change.value;
}

void sqliteChanged(benchmark::State& state, World& world)
{
    static MemoryTable table(world.items, MemoryTable::ByID);
    static Statement update(table, "UPDATE kel SET Value=? WHERE ID=?");
    std::int64_t told = 0;
    sqlite3_update_hook(
        table, [](void* count, int, const char*, const char*, sqlite3_int64) { ++*static_cast<std::int64_t*>(count); },
        &told);
    table.execute("BEGIN");
    measureChanges(
        state, world, batchSize,
        [&](const Change& change) {
            update.bindAll(change.value, change.id);
            update.run();
        },
        [&] { table.execute("COMMIT; BEGIN"); });
    table.execute("COMMIT");
    sqlite3_update_hook(table, nullptr, nullptr);
    check(state, told == state.iterations(), "SQLite's hook misses changes");
}

/// A thousand changes of one item for each turn of the loop; a turn's delivery alone when told so.
void updateOne(benchmark::State& state, World& world, bool merge)
{
    world.restore();
    Listener listener;
    const unsigned int id = world.numberID();
    long long value = 0;
    std::int64_t turns = 0;
    while (state.KeepRunningBatch(batchSize)) {
        for (std::size_t i = 0; i < batchSize; ++i)
            benchmark::DoNotOptimize(world.storage->updateValue(id, ++value, merge));
        deliver();
        ++turns;
    }
    check(state, listener.count == (merge ? turns : state.iterations()), "merging went wrong");
    check(state, listener.last == id, "the event is another item's");
    CkelApplicationPlus::dataSensor()->detach(&listener);
    world.restore();
}

/// What the application's loop has to do for them: the turn alone.
void deliverOne(benchmark::State& state, World& world, bool merge)
{
    Listener listener;
    const unsigned int id = world.numberID();
    long long value = 0;
    for (auto _ : state) {
        for (std::size_t i = 0; i < batchSize; ++i)
            world.storage->updateValue(id, ++value, merge);
        measureOnce<ThreadClock>(state, deliver);
    }
    check(state, listener.count == state.iterations() * (merge ? 1 : static_cast<std::int64_t>(batchSize)),
          "merging went wrong");
    CkelApplicationPlus::dataSensor()->detach(&listener);
    world.restore();
}

} // namespace

void registerUpdates(World& world)
{
    const auto with = [](auto function, auto argument) {
        return [=](benchmark::State& state, World& shared) { function(state, shared, argument); };
    };
    addRow("update_same/library", world, updateSame);
    addRow("update_same/limit", world, bareSame);
    addRow("update_changed/library", world, with(updateChanged, batchSize));
    addRow("update_changed/limit", world, bareChanged);
    addRow("update_changed/bare turns", world, with(bareTurns, batchSize));
    addRow("update_changed/SQLite", world, sqliteChanged);
    addRow("update_turn/library", world, with(updateChanged, std::size_t{1}));
    addRow("update_turn/limit", world, with(bareTurns, std::size_t{1}));
    addRow("update_merged/library", world, with(updateOne, true));
    addRow("update_merged/limit", world, bareMerged);
    addRow("update_merged/unmerged", world, with(updateOne, false));
    addRow("deliver_merged/library", world, with(deliverOne, true))->UseManualTime();
    addRow("deliver_merged/unmerged", world, with(deliverOne, false))->UseManualTime();
}

} // namespace KelBench
