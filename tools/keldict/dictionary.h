#pragma once

#include "datastorage/kelstoragedata.h"

#include <string>
#include <vector>

namespace Keldict {

/// The items that a file gives a device, in the file's order.
struct Dictionary
{
    std::vector<Ombrin::tagStorageData> items;
    bool isSaved = false;           ///< a file of saved values, which has no DBSource
    std::vector<std::string> notes; ///< what the file holds besides, and the device does not take
};

/// Reads a JSON dictionary, a configuration database or a file of saved values as the library does; of items with one
/// ID, the first. Ends with `Wrong` where the device would stop or find no table, with `Unreadable` where the file
/// cannot be read.
Dictionary loadDictionary(const std::string& name);

} // namespace Keldict
