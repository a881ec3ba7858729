#include "savedform.h"

#include "datastorage/kelstoredform.h"

#include <cmath>
#include <limits>

namespace Keldict {

using Ombrin::CkelVariant;
using Ombrin::tagStorageData;

namespace {

/// A column as the file keeps it: its type makes a number without a fraction an integer, where that loses nothing.
CkelVariant numericColumn(double real)
{
    const double limit = std::ldexp(1.0, std::numeric_limits<long long>::digits);
    if (std::isnan(real))
        return {};
    if (real > -limit && real < limit && real == std::trunc(real))
        return static_cast<long long>(real);
    return real;
}

/// A value in the form in which the storages write it; the type of the item's Value decides for all four.
CkelVariant column(const CkelVariant& value, CkelVariant::Type form)
{
    switch (form) {
    case CkelVariant::Bool:
    case CkelVariant::Int:
    case CkelVariant::UInt:
    case CkelVariant::LongLong:
        return value.toLongLong();
    case CkelVariant::ULongLong:
        return static_cast<long long>(value.toULongLong());
    default:
        return numericColumn(value.toDouble());
    }
}

long long truncated(const CkelVariant& column)
{
    if (column.type() != CkelVariant::Double)
        return column.toLongLong();
    return CkelVariant(std::trunc(column.toDouble())).toLongLong();
}

unsigned long long truncatedUnsigned(const CkelVariant& column)
{
    if (column.type() != CkelVariant::Double)
        return static_cast<unsigned long long>(column.toLongLong());
    return CkelVariant(std::trunc(column.toDouble())).toULongLong();
}

} // namespace

std::optional<CkelVariant> savedAndRead(const tagStorageData& item, Field field)
{
    const CkelVariant written = column(valueOf(item, field), item.Value.type());
    switch (item.ValueT) {
    case Ombrin::ValueTypeReal8:
    case Ombrin::ValueTypeReal9:
        return CkelVariant(written.toDouble());
    case Ombrin::ValueTypeText:
        return CkelVariant(written.toStdString());
    case Ombrin::ValueTypeInteger11:
    case Ombrin::ValueTypeUnsigned13:
        return CkelVariant(truncatedUnsigned(written));
    case Ombrin::ValueTypeUnsigned16:
        return std::nullopt;
    default:
        break;
    }
    if (item.ValueT == 0 || item.ValueT > Ombrin::ValueTypeInteger14)
        return std::nullopt;
    return CkelVariant(truncated(written));
}

std::optional<CkelVariant> afterRestart(const tagStorageData& item)
{
    const auto read = savedAndRead(item, Field::Value);
    return read ? std::optional(Ombrin::storedForm(item.ValueT, *read)) : std::nullopt;
}

} // namespace Keldict
