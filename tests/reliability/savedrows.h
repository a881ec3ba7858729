#pragma once

#include "datastorage/kelstoragedata.h"

#include <string>
#include <vector>

namespace KelTest {

// What stands in "kelmem.db" of the working directory, seen by a connection of the test's own.

struct SavedRow
{
    unsigned int id;
    std::string name;
    long long value;

    bool operator==(const SavedRow& other) const
    {
        return id == other.id && name == other.name && value == other.value;
    }
};

struct SavedFile
{
    bool whole = false; ///< it can be read, and SQLite finds nothing wrong with it
    std::vector<SavedRow> rows;
};

SavedFile readSavedFile();

/// A clean item of value type 5 (integer).
Ombrin::tagStorageData integerItem(unsigned int id, long long value);
std::vector<Ombrin::tagStorageData> integerItems(unsigned int first, int count, long long value);

/// As they stand in the file.
std::vector<SavedRow> rowsOf(const std::vector<Ombrin::tagStorageData>& items);

/// The same items as a JSON dictionary.
void writeDictionary(const std::string& path, const std::vector<Ombrin::tagStorageData>& items);

} // namespace KelTest
