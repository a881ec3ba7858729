#include "benchmarks/world.h"

#include "benchmarks/check.h"
#include "benchmarks/measure.h"
#include "benchmarks/sqlitepeer.h"
#include "datastorage/keldatastoragefactory.h"

#include <algorithm>

namespace KelBench {

namespace {

using Ombrin::CkelDBStorageFactory;

template <typename T>
std::vector<std::vector<T>> batchesOf(const std::vector<T>& list)
{
    std::vector<std::vector<T>> batches;
    for (auto first = list.begin(); first != list.end(); first += batchSize)
        batches.emplace_back(first, first + batchSize);
    return batches;
}

CkelAbstractDataStorage* loadedStorage(CkelAbstractDataStorage::DataOperatorType type, const std::string& path)
{
    CkelAbstractDataStorage* const storage = CkelDBStorageFactory::instance()->get(type);
    storage->readConfigFile(path, false);
    return storage;
}

} // namespace

World::World(std::size_t size) : items(makeItems(size)), order(shuffledPositions(size))
{
    for (const std::size_t position : order) {
        const tagStorageData& item = items[position];
        ids.push_back(item.ID);
        names.push_back(item.NameID);
        same.push_back({item.ID, item.Value});
        changed.push_back({item.ID, otherValue(item)});
    }
    idBatches = batchesOf(ids);
    nameBatches = batchesOf(names);

    writeJson(items, jsonPath);
    writeConfigDatabase(items, databasePath);
    storage = loadedStorage(CkelAbstractDataStorage::MemoryStorage, jsonPath);
    safe = loadedStorage(CkelAbstractDataStorage::SafeMemoryStorage, jsonPath);
    Connection("kelmem.db").execute("DROP TABLE kel"); // nothing is collected but where a row asks for it

    bareItems.reserve(size);
    bareNames.reserve(size);
    for (const tagStorageData& item : items) {
        bareItems.try_emplace(item.ID, item);
        bareNames.try_emplace(item.NameID, item.ID);
    }
}

unsigned int World::numberID() const
{
    const auto isNumber = [](const tagStorageData& item) { return item.Value.type() != CkelVariant::String; };
    return std::find_if(items.begin(), items.end(), isNumber)->ID;
}

void World::restore()
{
    for (const Change& change : same)
        storage->updateValue(change.id, change.value, false);
}

void World::markModified(std::size_t count)
{
    for (std::size_t i = 0; i < ids.size(); ++i) {
        const int mark = i < count ? Ombrin::DirtyModified : Ombrin::DirtyClean;
        storage->updateField(ids[i], "Dirty", mark, false);
        bareItems.find(ids[i])->second.Dirty = static_cast<std::uint8_t>(mark);
    }
}

LocalTable::LocalTable()
{
    Connection("kelmem.db").execute("CREATE TABLE kel(ID INTEGER PRIMARY KEY)");
}

LocalTable::~LocalTable()
{
    Connection("kelmem.db").execute("DROP TABLE kel");
}

} // namespace KelBench
