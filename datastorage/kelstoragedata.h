#pragma once

#include "kernel/kelvariant.h"

#include <array>
#include <cstdint>
#include <string>

namespace Ombrin {

/// Change marks, held in tagStorageData::Dirty.
enum DirtyMark : std::uint8_t
{
    DirtyClean = 0,    ///< agrees with the local database, as far as the storage has handed changes over
    DirtyInserted = 1, ///< new, or revived after deletion, since the last collection
    DirtyModified = 2, ///< changed since the last collection
    DirtyDeleted = 3   ///< deleted: invisible to every lookup, removed by the next collection
};

/// Value-type codes, held in tagStorageData::ValueT. The library knows a code only by the form in which values of that
/// type are stored; the names say that form.
enum ValueTypeCode : std::uint8_t
{
    // signed 64-bit integer
    ValueTypeInteger1 = 1,
    ValueTypeInteger2 = 2,
    ValueTypeInteger3 = 3,
    ValueTypeInteger4 = 4,
    ValueTypeInteger5 = 5,
    ValueTypeInteger6 = 6,
    ValueTypeInteger7 = 7,
    // double
    ValueTypeReal8 = 8,
    ValueTypeReal9 = 9,
    // UTF-8 text
    ValueTypeText = 10,
    // signed 64-bit integer; files hand it over as unsigned
    ValueTypeInteger11 = 11,
    ValueTypeInteger12 = 12,
    // unsigned 64-bit integer
    ValueTypeUnsigned13 = 13,
    ValueTypeInteger14 = 14,
    /// no stored form: every conversion yields a null variant
    ValueTypeNone = 15,
    /// unsigned 64-bit integer; unknown to the file readers
    ValueTypeUnsigned16 = 16
};

/// One data item: a parameter or process value of the machine.
///
/// A plain record with value semantics. It declares no initialisers: write `tagStorageData record{};` to start from
/// zeros and null variants. The order of the members is part of the binary interface.
struct tagStorageData
{
    std::uint32_t ID;        ///< unique in a storage; 0 means no item
    std::string NameID;      ///< unique in a storage, UTF-8
    std::uint8_t CommSource; ///< the channel that supplies the item
    std::uint8_t DBSource;   ///< from the dictionary; neither saved nor reachable by field name
    std::uint8_t RW;         ///< read/write class
    std::uint8_t Block;      ///< the block that the item belongs to
    std::uint8_t ValueT;     ///< a ValueTypeCode; decides how incoming values are converted
    CkelVariant Value;
    CkelVariant DefValue;                ///< what a reset makes the value
    CkelVariant Max;                     ///< reported, never applied
    CkelVariant Min;                     ///< reported, never applied
    std::uint8_t Dirty;                  ///< a DirtyMark; never saved
    std::array<CkelVariant, 8> Reserved; ///< carried with the record; no operation gives them a value
};

static_assert(sizeof(void*) > 8 || sizeof(tagStorageData) <= 248, "a dictionary of a million items has to fit");

} // namespace Ombrin
