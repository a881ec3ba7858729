#pragma once
// Private to this project: not installed.

#include "datastorage/kelstoragedata.h"

namespace Ombrin {

/// The type in which items of a value type keep their values; Invalid for the codes that keep none.
inline CkelVariant::Type storedTypeOf(unsigned int valueType)
{
    switch (valueType) {
    case ValueTypeInteger1:
    case ValueTypeInteger2:
    case ValueTypeInteger3:
    case ValueTypeInteger4:
    case ValueTypeInteger5:
    case ValueTypeInteger6:
    case ValueTypeInteger7:
    case ValueTypeInteger11:
    case ValueTypeInteger12:
    case ValueTypeInteger14:
        return CkelVariant::LongLong;
    case ValueTypeReal8:
    case ValueTypeReal9:
        return CkelVariant::Double;
    case ValueTypeText:
        return CkelVariant::String;
    case ValueTypeUnsigned13:
    case ValueTypeUnsigned16:
        return CkelVariant::ULongLong;
    default:
        return CkelVariant::Invalid;
    }
}

/// The value in the form in which items of the type keep it; null when it has none.
inline CkelVariant storedForm(unsigned int valueType, const CkelVariant& value)
{
    const CkelVariant::Type type = storedTypeOf(valueType);
    if (value.type() == type)
        return value;
    if (!value.canConvert(type))
        return {};
    switch (type) {
    case CkelVariant::LongLong:
        return value.toLongLong();
    case CkelVariant::ULongLong:
        return value.toULongLong();
    case CkelVariant::Double:
        return value.toDouble();
    default:
        return value.toStdString();
    }
}

} // namespace Ombrin
