#pragma once
// Private to this project: not installed.

#include "database/kelsqlitevariantvector.h"
#include "datastorage/kelstoragedata.h"
#include "kernel/kelreport.h"

#include <cstdint>
#include <string>

namespace Ombrin {

/// The low 8 bits of an integer column.
inline std::uint8_t byteOf(const CkelSqliteVariantVector& row, int column)
{
    return static_cast<std::uint8_t>(row.toValue<unsigned int>(column));
}

/// Reports a row of an unknown value type; both readers of database files use these words.
inline void reportUnknownType(const tagStorageData& record)
{
    CkelReport::print("CkelMemoryDB::loadMemoryDB( id= " + std::to_string(record.ID) + " ) : Unknown Type " +
                      std::to_string(record.ValueT));
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

/// Fills the record from a row of a configuration database, by position. What a row does not give (the bounds of texts,
/// the values of an unknown type) keeps what the record held. False for an unknown value type.
inline bool readConfigurationRow(const CkelSqliteVariantVector& row, tagStorageData& record)
{
    record.ID = row.toValue<unsigned int>(0);
    record.NameID = row.toValue<std::string>(1);
    record.CommSource = byteOf(row, 2);
    record.DBSource = byteOf(row, 3);
    record.RW = byteOf(row, 4);
    record.Block = byteOf(row, 5);
    record.ValueT = byteOf(row, 6);
    return readValues(row, 7, false, record);
}

/// Fills the record from a row of the local database, by position. False for an unknown value type.
inline bool readSavedRow(const CkelSqliteVariantVector& row, tagStorageData& record)
{
    record.ID = row.toValue<unsigned int>(0);
    record.NameID = row.toValue<std::string>(1);
    record.CommSource = byteOf(row, 2);
    record.RW = byteOf(row, 3);
    record.Block = byteOf(row, 4);
    record.ValueT = byteOf(row, 5);
    return readValues(row, 6, true, record);
}

} // namespace Ombrin
