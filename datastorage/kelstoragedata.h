#pragma once

#include "kernel/kelvariant.h"

#include <array>
#include <cstdint>
#include <string>

namespace Ombrin {

/// Change marks, held in tagStorageData::Dirty.
/// @ingroup datastorage
enum DirtyMark : std::uint8_t
{
    DirtyClean = 0,    ///< agrees with the local database, as far as the storage has handed changes over
    DirtyInserted = 1, ///< new, or revived after deletion, since the last collection
    DirtyModified = 2, ///< changed since the last collection
    DirtyDeleted = 3   ///< deleted: invisible to every lookup, removed by the next collection
};

/// Value-type codes, held in tagStorageData::ValueT. The library knows a code only by the form in which values of that
/// type are stored; the names say that form.
/// @ingroup datastorage
enum ValueTypeCode : std::uint8_t
{
    ValueTypeInteger1 = 1,    ///< signed 64-bit integer
    ValueTypeInteger2 = 2,    ///< signed 64-bit integer
    ValueTypeInteger3 = 3,    ///< signed 64-bit integer
    ValueTypeInteger4 = 4,    ///< signed 64-bit integer
    ValueTypeInteger5 = 5,    ///< signed 64-bit integer
    ValueTypeInteger6 = 6,    ///< signed 64-bit integer
    ValueTypeInteger7 = 7,    ///< signed 64-bit integer
    ValueTypeReal8 = 8,       ///< double
    ValueTypeReal9 = 9,       ///< double
    ValueTypeText = 10,       ///< UTF-8 text; saved as the number that it reads as
    ValueTypeInteger11 = 11,  ///< signed 64-bit integer; files hand it over as unsigned
    ValueTypeInteger12 = 12,  ///< signed 64-bit integer
    ValueTypeUnsigned13 = 13, ///< unsigned 64-bit integer
    ValueTypeInteger14 = 14,  ///< signed 64-bit integer
    ValueTypeNone = 15,       ///< no stored form: every conversion yields a null variant
    ValueTypeUnsigned16 = 16  ///< unsigned 64-bit integer; unknown to the readers of database files
};

/// One data item: a parameter or process value of the machine.
///
/// A plain record with value semantics. It declares no initialisers: write `tagStorageData record{};` to start from
/// zeros and null variants. The order of the members is part of the binary interface.
///
/// @snippet classes.cpp tagStorageData
///
/// @ingroup datastorage
struct tagStorageData
{
    std::uint32_t ID;        ///< unique in a storage; 0 means no item
    std::string NameID;      ///< unique in a storage, UTF-8
    std::uint8_t CommSource; ///< the channel that supplies the item
    std::uint8_t DBSource;   ///< from the dictionary; neither saved nor reachable by field name
    std::uint8_t RW;         ///< read/write class
    std::uint8_t Block;      ///< the block that the item belongs to
    std::uint8_t ValueT;     ///< a ValueTypeCode; decides how incoming values are converted
    CkelVariant Value;       ///< in the form of the value type once it was updated; from a JSON file as it stood there
    CkelVariant DefValue;    ///< what a reset makes the value
    CkelVariant Max;         ///< reported, never applied
    CkelVariant Min;         ///< reported, never applied
    std::uint8_t Dirty;      ///< a DirtyMark; never saved
    std::array<CkelVariant, 8> Reserved; ///< carried with the record; no operation gives them a value
};

static_assert(sizeof(tagStorageData) <= 248, "a dictionary of a million items has to fit");

} // namespace Ombrin
