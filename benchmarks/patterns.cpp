#include "benchmarks/check.h"
#include "benchmarks/dictionary.h"
#include "benchmarks/measure.h"
#include "benchmarks/rows.h"
#include "datastorage/kelmemorydatastorage.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace KelBench {

namespace {

using Ombrin::CkelAbstractDataStorage;

using IDOf = unsigned int (*)(unsigned int position);
using NameOf = std::string (*)(unsigned int position);

struct Pattern
{
    const char* name;
    IDOf id;
    NameOf nameID;
};

/// `Step` apart from each other, and once around 32 bits between those.
template <unsigned int Step>
unsigned int steps(unsigned int position)
{
    constexpr std::uint64_t around = (std::uint64_t{1} << 32U) / (Step & -Step);
    return position * Step + static_cast<unsigned int>(position / around) + 1;
}

/// `Used` consecutive IDs of each `Size`.
template <unsigned int Used, unsigned int Size>
unsigned int blocks(unsigned int position)
{
    return position / Used * Size + position % Used + 1;
}

/// Indexes of 16 bits, with 8 subindexes each. Adds one for each time that the index would be 0 or used again.
unsigned int indexAndSubindex(unsigned int position)
{
    return 0x60000000U + position / 8 * 0x10000U + position % 8 * 0x100U + position / 0x50000U;
}

unsigned int scatteredID(unsigned int position)
{
    return scattered(position + 1);
}

std::string shortName(unsigned int position)
{
    return 'N' + std::to_string(position);
}

std::string numberedName(unsigned int position)
{
    return "Actual_Value_" + std::to_string(position + 1000);
}

std::string longName(unsigned int position)
{
    return "Machine.InjectionUnit.Heating." + std::to_string(position);
}

std::string randomName(unsigned int position)
{
    std::string name;
    for (unsigned int i = 0; i < 16; ++i)
        name += static_cast<char>('a' + scattered(position * 16 + i + 1) % 26);
    return name + std::to_string(position);
}

constexpr Pattern idPatterns[] = {
    {"ids_consecutive", steps<1>, shortName},
    {"ids_100_of_1000", blocks<100, 1000>, shortName},
    {"ids_256_of_4096", blocks<256, 4096>, shortName},
    {"ids_step_10", steps<10>, shortName},
    {"ids_step_1250", steps<1250>, shortName},
    {"ids_step_4096", steps<4096>, shortName},
    {"ids_step_49100", steps<49100>, shortName},
    {"ids_step_61495", steps<61495>, shortName},
    {"ids_step_65536", steps<65536>, shortName},
    {"ids_step_0x0E8B2F51", steps<0x0E8B2F51>, shortName},
    {"ids_index_subindex", indexAndSubindex, shortName},
    {"ids_scattered", scatteredID, shortName},
};

constexpr Pattern namePatterns[] = {
    {"names_numbered", scatteredID, numberedName},
    {"names_30_in_common", scatteredID, longName},
    {"names_random", scatteredID, randomName},
};

/// A storage that holds `items`, without a file.
class LoadedStorage : public Ombrin::CkelMemoryDataStorage
{
public:
    explicit LoadedStorage(const std::vector<tagStorageData>& items) { indexRecords(items); }
};

std::vector<tagStorageData> itemsOf(const Pattern& pattern, std::size_t size)
{
    std::vector<tagStorageData> items(size);
    for (std::size_t i = 0; i < size; ++i) {
        items[i].ID = pattern.id(static_cast<unsigned int>(i));
        items[i].NameID = pattern.nameID(static_cast<unsigned int>(i));
        items[i].ValueT = Ombrin::ValueTypeReal9;
        items[i].Value = static_cast<double>(i);
    }
    return items;
}

/// A dictionary of one pattern, in a storage and in bare maps.
class Dictionary
{
public:
    Dictionary(const Pattern& pattern, std::size_t size) : Dictionary(itemsOf(pattern, size)) {}

    std::vector<unsigned int> ids; // in random order, like the names
    std::vector<std::string> names;
    std::unordered_map<unsigned int, tagStorageData> bareItems;
    std::unordered_map<std::string, unsigned int> bareNames;

    const CkelAbstractDataStorage& storage() const { return m_storage; }

private:
    explicit Dictionary(const std::vector<tagStorageData>& items) : m_storage(items)
    {
        bareItems.reserve(items.size());
        bareNames.reserve(items.size());
        for (const tagStorageData& item : items) {
            require(item.ID != 0 && bareItems.try_emplace(item.ID, item).second, "no ID occurs twice");
            require(bareNames.try_emplace(item.NameID, item.ID).second, "no name occurs twice");
        }
        for (const std::size_t position : shuffledPositions(items.size())) {
            ids.push_back(items[position].ID);
            names.push_back(items[position].NameID);
        }
        fillUpBatch(ids);
        fillUpBatch(names);
        checkLookups(items);
    }

    /// 5,000 items spread over the dictionary are what the storage gives, by ID and by name.
    void checkLookups(const std::vector<tagStorageData>& items) const
    {
        for (std::size_t i = 0; i < items.size(); i += 1 + items.size() / 5000) {
            require(storage().queryValue(items[i].ID).cmp(items[i].Value), "an ID leads to its item");
            require(storage().queryValue(items[i].NameID).cmp(items[i].Value), "a name leads to its item");
        }
    }

    LoadedStorage m_storage;
};

/// The dictionaries of all patterns up to 100,000 items do not take much memory; of larger ones only one is kept.
const Dictionary& dictionaryOf(const Pattern& pattern, std::size_t size)
{
    static std::unordered_map<const Pattern*, std::unique_ptr<const Dictionary>> dictionaries;
    std::unique_ptr<const Dictionary>& found = dictionaries[&pattern];
    if (!found) {
        if (size > 100000) {
            for (auto& other : dictionaries)
                other.second.reset();
        }
        found = std::make_unique<const Dictionary>(pattern, size);
    }
    return *found;
}

void queryIDs(benchmark::State& state, const Dictionary& dictionary)
{
    measureCalls(state, dictionary.ids,
                 [&](unsigned int id) { benchmark::DoNotOptimize(dictionary.storage().queryValue(id)); });
}

void bareIDs(benchmark::State& state, const Dictionary& dictionary)
{
    measureCalls(state, dictionary.ids, [&](unsigned int id) {
        benchmark::DoNotOptimize(bytesOf(dictionary.bareItems.find(id)->second.Value));
    });
}

void queryNames(benchmark::State& state, const Dictionary& dictionary)
{
    measureCalls(state, dictionary.names,
                 [&](const std::string& name) { benchmark::DoNotOptimize(dictionary.storage().queryValue(name)); });
}

void bareNames(benchmark::State& state, const Dictionary& dictionary)
{
    measureCalls(state, dictionary.names, [&](const std::string& name) {
        const auto item = dictionary.bareItems.find(dictionary.bareNames.find(name)->second);
        benchmark::DoNotOptimize(bytesOf(item->second.Value));
    });
}

using Measure = void (*)(benchmark::State&, const Dictionary&);

void addPattern(const Pattern& pattern, std::size_t size, Measure library, Measure limit)
{
    const auto add = [&](const char* who, Measure measure) {
        benchmark::RegisterBenchmark((std::string(pattern.name) + who).c_str(), [=, &pattern](benchmark::State& state) {
            measure(state, dictionaryOf(pattern, size));
        });
    };
    add("/library", library);
    add("/limit", limit);
}

} // namespace

void registerPatterns(std::size_t size)
{
    for (const Pattern& pattern : idPatterns)
        addPattern(pattern, size, queryIDs, bareIDs);
    for (const Pattern& pattern : namePatterns)
        addPattern(pattern, size, queryNames, bareNames);
}

} // namespace KelBench
