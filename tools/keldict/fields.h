#pragma once

#include "datastorage/kelstoragedata.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace Keldict {

/// The fields of an item that files know, in the order in which a configuration database has them.
enum class Field
{
    ID,
    NameID,
    CommSource,
    DBSource,
    RW,
    Block,
    ValueT,
    Value,
    DefValue,
    Max,
    Min
};

inline constexpr std::array allFields{Field::ID,       Field::NameID, Field::CommSource, Field::DBSource,
                                      Field::RW,       Field::Block,  Field::ValueT,     Field::Value,
                                      Field::DefValue, Field::Max,    Field::Min};

inline constexpr std::array valueFields{Field::Value, Field::DefValue, Field::Max, Field::Min};

/// The fields' names, in that order.
inline constexpr std::array<std::string_view, allFields.size()> fieldNames{
    "ID", "NameID", "CommSource", "DBSource", "RW", "Block", "ValueT", "Value", "DefValue", "Max", "Min"};

constexpr std::string_view nameOf(Field field)
{
    return fieldNames[static_cast<std::size_t>(field)];
}

/// The field of that very name.
std::optional<Field> fieldNamed(std::string_view name);

bool isByteField(Field field);
bool isValueField(Field field);

/// The content of any field.
Ombrin::CkelVariant contentOf(const Ombrin::tagStorageData& item, Field field);

/// One of the four values.
const Ombrin::CkelVariant& valueOf(const Ombrin::tagStorageData& item, Field field);

/// False for NaN and the infinities, which JSON has no numbers for.
bool isFinite(const Ombrin::CkelVariant& value);

/// A value as a person writes it: texts in quotes, nothing as "nothing".
std::string shown(const Ombrin::CkelVariant& value);

/// What an item of that type holds, in words: "a signed integer".
std::string_view formOf(unsigned int valueType);

} // namespace Keldict
