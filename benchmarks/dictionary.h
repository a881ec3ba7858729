#pragma once

#include "datastorage/kelstoragedata.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct sqlite3;

namespace KelBench {

using Ombrin::CkelVariant;
using Ombrin::tagStorageData;

/// Takes different numbers to different numbers, all over 32 bits.
std::uint32_t scattered(std::uint32_t x);

/// A dictionary of `size` items, the same in every run: IDs scattered over 32 bits, names of 8 to 40 bytes, values of
/// all four stored forms.
std::vector<tagStorageData> makeItems(std::size_t size);

/// Another value of the same form as the item's.
CkelVariant otherValue(const tagStorageData& item);

/// The positions 0 to `size` - 1 in an order that looks random.
std::vector<std::size_t> shuffledPositions(std::size_t size);

/// Every eighth of the 20 blocks and a tenth of the IDs: what the selections select.
constexpr unsigned int selectedBlock = 7;
constexpr unsigned int selectedFirst = 1000000000;
constexpr unsigned int selectedLast = 1429496730;

void writeJson(const std::vector<tagStorageData>& items, const std::string& path);
void writeConfigDatabase(const std::vector<tagStorageData>& items, const std::string& path);

} // namespace KelBench
