#include "database/kelsqlitevariantvector.h"

#include "database/kelsqliteconnectionlock.h"
#include "kernel/kelreport.h"

#include <sqlite3.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <type_traits>

namespace Ombrin {

namespace {

/// Ends the process as a failed assert does, in every build.
[[noreturn]] void failCheck(const char* expression, const char* file, int line, const char* function)
{
    CkelReport::printHeld();
    std::fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", file, line, function, expression);
    std::abort();
}

/// Without the fraction; the nearest limit when out of range.
template <typename Integer>
Integer truncated(double value)
{
    using Limits = std::numeric_limits<Integer>;
    if (value >= std::ldexp(1.0, Limits::digits))
        return Limits::max();
    if (value <= static_cast<double>(Limits::min()))
        return Limits::min();
    return static_cast<Integer>(value);
}

template <typename T>
T converted(const CkelVariant& column)
{
    if constexpr (std::is_same_v<T, std::string>) {
        return column.toStdString();
    } else {
        if (column.type() == CkelVariant::LongLong)
            return static_cast<T>(column.toLongLong());
        if (column.type() != CkelVariant::Double)
            return T{};
        if constexpr (std::is_same_v<T, double>)
            return column.toDouble();
        else
            return truncated<T>(column.toDouble());
    }
}

CkelVariant textOf(sqlite3_value* column)
{
    const auto* const text = reinterpret_cast<const char*>(sqlite3_value_text(column));
    if (!text)
        return {};
    return std::string(text, static_cast<std::size_t>(sqlite3_value_bytes(column)));
}

CkelVariant variantOf(sqlite3_value* column, int type)
{
    switch (type) {
    case SQLITE_INTEGER:
        return static_cast<long long>(sqlite3_value_int64(column));
    case SQLITE_FLOAT:
        return sqlite3_value_double(column);
    case SQLITE_TEXT:
        return textOf(column);
    default:
        return {};
    }
}

} // namespace

long long CkelSqliteVariantVector::read(sqlite3_stmt* row, int most)
{
    // Every sqlite3_column_* call takes the connection's lock; values may be read directly under it.
    const CkelSqliteConnectionLock lock(sqlite3_db_handle(row));
    const int columns = std::min(sqlite3_column_count(row), most);
    long long bytes = 0;
    m_columns.clear();
    for (int index = 0; index < columns; ++index) {
        sqlite3_value* const column = sqlite3_column_value(row, index);
        const int type = sqlite3_value_type(column);
        if (type == SQLITE_TEXT || type == SQLITE_BLOB)
            bytes += sqlite3_value_bytes(column);
        m_columns.push_back({variantOf(column, type), type == SQLITE_BLOB});
    }
    return bytes;
}

const CkelVariant& CkelSqliteVariantVector::column(int index) const
{
    // The text is the one that those who read logs of this check know; the range tested is the real one.
    if (index < 0 || index >= count())
        failCheck("index>=0||index<count()", __FILE__, __LINE__, static_cast<const char*>(__func__));
    const Column& column = m_columns[static_cast<std::size_t>(index)];
    if (column.isBlob)
        CkelReport::print("current type is " + std::to_string(SQLITE_BLOB) + " is not defined. ");
    return column.value;
}

template <typename T>
T CkelSqliteVariantVector::toValue(int index) const
{
    return converted<T>(column(index));
}

template unsigned int CkelSqliteVariantVector::toValue(int index) const;
template long long CkelSqliteVariantVector::toValue(int index) const;
template unsigned long long CkelSqliteVariantVector::toValue(int index) const;
template double CkelSqliteVariantVector::toValue(int index) const;
template std::string CkelSqliteVariantVector::toValue(int index) const;

} // namespace Ombrin
