#include "benchmarks/check.h"
#include "benchmarks/measure.h"
#include "benchmarks/rows.h"
#include "benchmarks/world.h"

namespace KelBench {

namespace {

constexpr auto anyType = static_cast<CkelAbstractDataStorage::FieldType>(0);

/// What a caller without the list operation writes.
template <typename Result, typename Key, typename Single>
std::vector<Result> byHand(const std::vector<Key>& keys, Single single)
{
    std::vector<Result> results;
    results.reserve(keys.size());
    for (const Key& key : keys)
        results.push_back(single(key));
    return results;
}

bool equal(const CkelVariant& a, const CkelVariant& b)
{
    return a.cmp(b);
}

bool equal(const tagStorageData& a, const tagStorageData& b)
{
    return a.ID == b.ID && a.NameID == b.NameID && a.Value.cmp(b.Value);
}

template <typename T>
bool equal(const T& a, const T& b)
{
    return a == b;
}

/// Registers a list operation and the loop by hand, for which `single` is called through the interface.
template <typename Key, typename List, typename Single>
void addList(const std::string& name, World& world, std::vector<std::vector<Key>> World::*keys, List list,
             Single single)
{
    const auto loop = [single](const CkelAbstractDataStorage& storage, const std::vector<Key>& batch) {
        using Result = decltype(single(storage, batch.front()));
        return byHand<Result>(batch, [&](const Key& key) { return single(storage, key); });
    };
    addRow(name + "/library", world, [=](benchmark::State& state, World& shared) {
        const auto& first = (shared.*keys).front();
        const auto results = list(*shared.storage, first);
        const auto expected = loop(*shared.storage, first);
        bool same = results.size() == expected.size();
        for (std::size_t i = 0; same && i < results.size(); ++i)
            same = equal(results[i], expected[i]);
        check(state, same, "a list operation differs from the loop");
        measureBatches(state, shared.*keys, [&](const std::vector<Key>& batch) {
            benchmark::DoNotOptimize(list(*shared.storage, batch).data());
        });
    });
    addRow(name + "/limit", world, [=](benchmark::State& state, World& shared) {
        measureBatches(state, shared.*keys, [&](const std::vector<Key>& batch) {
            benchmark::DoNotOptimize(loop(*shared.storage, batch).data());
        });
    });
}

/// The values of each batch of IDs, as they are.
std::vector<std::vector<CkelVariant>> valueBatches(const World& world)
{
    std::vector<std::vector<CkelVariant>> batches;
    std::size_t next = 0;
    for (const auto& ids : world.idBatches) {
        std::vector<CkelVariant>& values = batches.emplace_back();
        for (std::size_t i = 0; i < ids.size(); ++i)
            values.push_back(world.same[next++].value);
    }
    return batches;
}

void addUpdates(World& world)
{
    static const std::vector<std::vector<CkelVariant>> values = valueBatches(world);
    addRow("list_updateValue/library", world, [](benchmark::State& state, World& shared) {
        std::size_t next = 0;
        measureBatches(state, shared.idBatches, [&](const std::vector<unsigned int>& ids) {
            shared.storage->updateValueList(ids, values[next], false);
            next = (next + 1) % values.size();
        });
    });
    addRow("list_updateValue/limit", world, [](benchmark::State& state, World& shared) {
        std::size_t next = 0;
        measureBatches(state, shared.idBatches, [&](const std::vector<unsigned int>& ids) {
            for (std::size_t i = 0; i < ids.size(); ++i)
                shared.storage->updateValue(ids[i], values[next][i], false);
            next = (next + 1) % values.size();
        });
    });
}

} // namespace

void registerLists(World& world)
{
    using Storage = CkelAbstractDataStorage;
    using IDs = std::vector<unsigned int>;
    using Names = std::vector<std::string>;
    addList(
        "list_queryValue", world, &World::idBatches,
        [](const Storage& storage, const IDs& ids) { return storage.queryValueList(ids); },
        [](const Storage& storage, unsigned int id) { return storage.queryValue(id); });
    addList(
        "list_queryData", world, &World::idBatches,
        [](const Storage& storage, const IDs& ids) { return storage.queryDataList(ids); },
        [](const Storage& storage, unsigned int id) { return storage.queryData(id); });
    addList(
        "list_queryField", world, &World::idBatches,
        [](const Storage& storage, const IDs& ids) { return storage.queryFieldList(ids, "Max", anyType); },
        [](const Storage& storage, unsigned int id) { return storage.queryField(id, "Max", anyType); });
    addList(
        "list_ID", world, &World::nameBatches,
        [](const Storage& storage, const Names& names) { return storage.IDList(names); },
        [](const Storage& storage, const std::string& name) { return storage.ID(name); });
    addUpdates(world);
}

} // namespace KelBench
