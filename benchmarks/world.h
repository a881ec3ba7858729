#pragma once

#include "benchmarks/dictionary.h"
#include "datastorage/kelabstractdatastorage.h"

#include <string>
#include <unordered_map>
#include <vector>

namespace KelBench {

using Ombrin::CkelAbstractDataStorage;

/// One change to come: which item, and what it becomes.
struct Change
{
    unsigned int id;
    CkelVariant value;
};

/// What all rows share: a dictionary in files, in the factory's storages and in bare maps, and the keys in the order in
/// which everybody looks them up.
class World
{
public:
    /// Writes the files into the working directory and loads the storages.
    explicit World(std::size_t size);

    std::size_t size() const { return items.size(); }

    /// Checks look at 5,000 items spread over the dictionary: all of the smallest.
    std::size_t checkStep() const { return size() / 5000; }

    const tagStorageData& item(std::size_t position) const { return items[order[position]]; }

    /// An item that holds no text.
    unsigned int numberID() const;

    const std::vector<tagStorageData> items;
    const std::vector<std::size_t> order;
    std::vector<unsigned int> ids; // in that order, like the following
    std::vector<std::string> names;
    std::vector<Change> same;    // the values as they are
    std::vector<Change> changed; // other values
    std::vector<std::vector<unsigned int>> idBatches;
    std::vector<std::vector<std::string>> nameBatches;

    const std::string jsonPath = "dictionary.json";
    const std::string databasePath = "dictionary.db";

    CkelAbstractDataStorage* storage; // the factory's
    CkelAbstractDataStorage* safe;

    std::unordered_map<unsigned int, tagStorageData> bareItems;
    std::unordered_map<std::string, unsigned int> bareNames;

    /// Gives every item its first value and a clean mark.
    void restore();

    /// Marks every item clean, and then `count` of them, spread over the dictionary, modified, here and in the bare
    /// map.
    void markModified(std::size_t count);
};

/// While it lives, kelmem.db has its table, so that changes are collected.
class LocalTable
{
public:
    LocalTable();
    ~LocalTable();
    LocalTable(const LocalTable&) = delete;
    LocalTable& operator=(const LocalTable&) = delete;
};

} // namespace KelBench
