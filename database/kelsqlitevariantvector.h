#pragma once

#include "kernel/kelglobal.h"
#include "kernel/kelvariant.h"

#include <limits>
#include <string>
#include <vector>

struct sqlite3_stmt;

namespace Ombrin {

/// The columns of one row, by position from 0.
/// @ingroup database
class KEL_EXPORT CkelSqliteVariantVector
{
public:
    /// No columns.
    CkelSqliteVariantVector() = default;

    /// How many columns the row has.
    int count() const { return static_cast<int>(m_columns.size()); }

    /// The column as a T, which is one of unsigned int, long long, unsigned long long, double and std::string.
    ///
    /// NULL, and a text read as a number, give 0 or an empty text. A real number read as an integer loses its fraction,
    /// and out of range gives the nearest limit; an integer read as a narrower one, or with another sign, keeps its low
    /// bits. A number read as a text is the shortest one that reads back. A blob has no counterpart: it is
    /// reported on standard output and gives 0 or an empty text. An `index` out of range ends the process.
    template <typename T>
    T toValue(int index) const;

    /// Takes the columns of the row on which `row` stands, the first `most` of them. Returns the size of their texts
    /// and blobs in bytes.
    long long read(sqlite3_stmt* row, int most = std::numeric_limits<int>::max());

private:
    struct Column
    {
        CkelVariant value; // LongLong, Double or String; Invalid for NULL and blobs
        bool isBlob;
    };

    const CkelVariant& column(int index) const;

    std::vector<Column> m_columns;
};

extern template KEL_EXPORT unsigned int CkelSqliteVariantVector::toValue(int index) const;
extern template KEL_EXPORT long long CkelSqliteVariantVector::toValue(int index) const;
extern template KEL_EXPORT unsigned long long CkelSqliteVariantVector::toValue(int index) const;
extern template KEL_EXPORT double CkelSqliteVariantVector::toValue(int index) const;
extern template KEL_EXPORT std::string CkelSqliteVariantVector::toValue(int index) const;

} // namespace Ombrin
