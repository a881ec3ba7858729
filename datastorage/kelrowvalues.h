#pragma once
// Private to datastorage/: not installed.

#include "database/kelsqlitevariantvector.h"
#include "datastorage/kelstoragedata.h"

#include <cstdint>
#include <string>

namespace Ombrin {

/// The low 8 bits of an integer column.
inline std::uint8_t byteOf(const CkelSqliteVariantVector& row, int column)
{
    return static_cast<std::uint8_t>(row.toValue<unsigned int>(column));
}

/// Fills Value, DefValue and, unless told otherwise, Max and Min from four columns, in the form that the record's value
/// type has in files: unlike in memory, 11 is unsigned there and 16 is unknown. False for an unknown type.
inline bool readValues(const CkelSqliteVariantVector& row, int firstColumn, bool boundsOfTexts, tagStorageData& record)
{
    const auto read = [&](auto as) {
        using Form = decltype(as);
        record.Value = row.toValue<Form>(firstColumn);
        record.DefValue = row.toValue<Form>(firstColumn + 1);
        if (record.ValueT != ValueTypeText || boundsOfTexts) {
            record.Max = row.toValue<Form>(firstColumn + 2);
            record.Min = row.toValue<Form>(firstColumn + 3);
        }
        return true;
    };
    switch (record.ValueT) {
    case ValueTypeInteger1:
    case ValueTypeInteger2:
    case ValueTypeInteger3:
    case ValueTypeInteger4:
    case ValueTypeInteger5:
    case ValueTypeInteger6:
    case ValueTypeInteger7:
    case ValueTypeInteger12:
    case ValueTypeInteger14:
        return read(0LL);
    case ValueTypeReal8:
    case ValueTypeReal9:
        return read(0.0);
    case ValueTypeText:
        return read(std::string());
    case ValueTypeInteger11:
    case ValueTypeUnsigned13:
        return read(0ULL);
    default:
        return false;
    }
}

} // namespace Ombrin
