#include "fields.h"

#include "words.h"

#include <cmath>

namespace Keldict {

using Ombrin::CkelVariant;
using Ombrin::tagStorageData;

std::optional<Field> fieldNamed(std::string_view name)
{
    for (const Field field : allFields) {
        if (nameOf(field) == name)
            return field;
    }
    return std::nullopt;
}

bool isByteField(Field field)
{
    return field >= Field::CommSource && field <= Field::ValueT;
}

bool isValueField(Field field)
{
    return field >= Field::Value;
}

CkelVariant contentOf(const tagStorageData& item, Field field)
{
    switch (field) {
    case Field::ID:
        return item.ID;
    case Field::NameID:
        return item.NameID;
    case Field::CommSource:
        return int{item.CommSource};
    case Field::DBSource:
        return int{item.DBSource};
    case Field::RW:
        return int{item.RW};
    case Field::Block:
        return int{item.Block};
    case Field::ValueT:
        return int{item.ValueT};
    default:
        return valueOf(item, field);
    }
}

const CkelVariant& valueOf(const tagStorageData& item, Field field)
{
    switch (field) {
    case Field::DefValue:
        return item.DefValue;
    case Field::Max:
        return item.Max;
    case Field::Min:
        return item.Min;
    default:
        return item.Value;
    }
}

bool isFinite(const CkelVariant& value)
{
    return value.type() != CkelVariant::Double || std::isfinite(value.toDouble());
}

std::string shown(const CkelVariant& value)
{
    if (value.isNull())
        return "nothing";
    return value.type() == CkelVariant::String ? inQuotes(value.toStdString()) : value.toStdString();
}

std::string_view formOf(unsigned int valueType)
{
    switch (valueType) {
    case Ombrin::ValueTypeReal8:
    case Ombrin::ValueTypeReal9:
        return "a floating-point number";
    case Ombrin::ValueTypeText:
        return "a text";
    case Ombrin::ValueTypeUnsigned13:
    case Ombrin::ValueTypeUnsigned16:
        return "an unsigned 64-bit integer";
    default:
        return "a signed 64-bit integer";
    }
}

} // namespace Keldict
