#pragma once

#include "kernel/kelglobal.h"
#include "kernel/kelstring.h"

#include <string>
#include <type_traits>

namespace Ombrin {

/// A value of one of a few types: nothing, bool, an integer of 32 or 64 bits, double or UTF-8 text.
///
/// 16 bytes on every target. Copying a number costs as much as copying two words; copies of a text share it. Distinct
/// variants may be used on different threads even when they share a text; one variant is not synchronised.
///
/// Conversions (`toX`) never fail loudly: what cannot be converted gives 0 or an empty text, and sets `*ok` to false
/// when `ok` is given. They do not depend on the locale:
/// - between integers as a C++ cast does, keeping the two's complement bits;
/// - double to integer rounds to nearest, halves away from zero; out of range gives the nearest limit and NaN gives 0,
///   both with `ok` false;
/// - text to number takes the whole text, blanks around it allowed; a fraction or an exponent is read as a double and
///   rounded as above; a number out of range gives the nearest limit with `ok` false; anything else gives 0 with `ok`
///   false;
/// - number to text gives the shortest text that reads back to the same number; bool gives "true" and "false", and
///   these two texts read as a bool.
///
/// @snippet classes.cpp CkelVariant
///
/// @ingroup kernel
class KEL_EXPORT CkelVariant
{
public:
    /// Type codes. Char, List, Map and ByteArray are codes only: no variant has such a type and nothing converts to
    /// them.
    enum Type : int
    {
        Invalid = 0,   ///< nothing
        Bool = 1,      ///< true or false
        Int = 2,       ///< signed, 32 bits
        UInt = 3,      ///< unsigned, 32 bits
        LongLong = 4,  ///< signed, 64 bits
        ULongLong = 5, ///< unsigned, 64 bits
        Double = 6,    ///< IEEE 754, 64 bits
        Char = 7,      ///< a code only
        String = 8,    ///< UTF-8 text
        List = 9,      ///< a code only
        Map = 10,      ///< a code only
        ByteArray = 11 ///< a code only
    };

    // The conversions to a variant are implicit on purpose: `storage.updateValue(id, 35.5, false)`.
    // NOLINTBEGIN(google-explicit-constructor)
    /// Nothing.
    CkelVariant() noexcept = default;

    /// @name Variants of values
    /// A variant takes the type that fits the value.
    /// @{

    /// A Bool.
    CkelVariant(bool value) noexcept : m_type(Bool) { m_data.integer = value ? 1 : 0; }
    /// An Int.
    CkelVariant(int value) noexcept : m_type(Int) { m_data.integer = value; }
    /// A UInt.
    CkelVariant(unsigned int value) noexcept : m_type(UInt) { m_data.natural = value; }
    /// An Int where a long has 32 bits, a LongLong where it has 64.
    CkelVariant(long value) noexcept : m_type(sizeof(long) == sizeof(int) ? Int : LongLong) { m_data.integer = value; }
    /// A UInt where a long has 32 bits, a ULongLong where it has 64.
    CkelVariant(unsigned long value) noexcept : m_type(sizeof(long) == sizeof(int) ? UInt : ULongLong)
    {
        m_data.natural = value;
    }
    /// A LongLong.
    CkelVariant(long long value) noexcept : m_type(LongLong) { m_data.integer = value; }
    /// A ULongLong.
    CkelVariant(unsigned long long value) noexcept : m_type(ULongLong) { m_data.natural = value; }
    /// A Double.
    CkelVariant(double value) noexcept : m_type(Double) { m_data.real = value; }
    CkelVariant(const char* utf8);        ///< a String, up to the NUL; a null pointer gives an invalid variant
    CkelVariant(const std::string& utf8); ///< a String, NULs included
    CkelVariant(std::string&& utf8);      ///< a String, NULs included
    CkelVariant(const CkelString& text);  ///< a String, NULs included
    // NOLINTEND(google-explicit-constructor)

    /// @}

    /// A pointer to anything but text is no value; without this it would turn into a bool.
    template <typename T, typename = std::enable_if_t<!std::is_same_v<std::remove_const_t<T>, char>>>
    CkelVariant(T*) = delete;
    template <typename T, typename Class>
    CkelVariant(T Class::*) = delete;

    /// A text is shared, not copied.
    CkelVariant(const CkelVariant& other) noexcept : m_data(other.m_data), m_type(other.m_type)
    {
        if (m_type == String)
            shareText();
    }

    /// Leaves `other` invalid.
    CkelVariant(CkelVariant&& other) noexcept : m_data(other.m_data), m_type(other.m_type) { other.m_type = Invalid; }

    /// A text is shared, not copied.
    CkelVariant& operator=(const CkelVariant& other) noexcept
    {
        CkelVariant copy(other);
        swap(copy);
        return *this;
    }

    /// Leaves `other` invalid.
    CkelVariant& operator=(CkelVariant&& other) noexcept
    {
        CkelVariant taken(static_cast<CkelVariant&&>(other));
        swap(taken);
        return *this;
    }

    ~CkelVariant()
    {
        if (m_type == String)
            dropText();
    }

    /// Exchanges the contents and types of the two.
    void swap(CkelVariant& other) noexcept
    {
        const Data data = m_data;
        const Type type = m_type;
        m_data = other.m_data;
        m_type = other.m_type;
        other.m_data = data;
        other.m_type = type;
    }

    /// What the variant holds; never one of the codes that are codes only.
    Type type() const noexcept { return m_type; }

    /// True when the variant holds nothing.
    bool isNull() const noexcept { return m_type == Invalid; }

    /// Whether the content has a counterpart in `type`. A text converts to a number type only when it reads as a
    /// number, NaN (or a text that reads as NaN) converts to no integer and no bool, and nothing converts to nothing.
    bool canConvert(Type type) const;

    /// @name Conversions
    /// The content as another type, by the rules of the class comment. What cannot be converted gives 0 or an empty
    /// text and sets `*ok` to false. The forms without `ok` are inline for a content that has the type already: any
    /// integer or a bool for integers and bool, a double for a double.
    /// @{

    /// True for a number other than 0, for a text that reads as one, and for the text "true".
    bool toBool() const { return isInteger() ? m_data.natural != 0 : toBool(nullptr); }
    /// The same with `ok`; it may be null.
    bool toBool(bool* ok) const;

    /// 32 bits, signed.
    int toInt() const { return isInteger() ? static_cast<int>(m_data.integer) : toInt(nullptr); }
    /// The same with `ok`; it may be null.
    int toInt(bool* ok) const;

    /// 32 bits, unsigned.
    unsigned int toUInt() const { return isInteger() ? static_cast<unsigned int>(m_data.natural) : toUInt(nullptr); }
    /// The same with `ok`; it may be null.
    unsigned int toUInt(bool* ok) const;

    /// 64 bits, signed.
    long long toLongLong() const { return isInteger() ? m_data.integer : toLongLong(nullptr); }
    /// The same with `ok`; it may be null.
    long long toLongLong(bool* ok) const;

    /// 64 bits, unsigned.
    unsigned long long toULongLong() const { return isInteger() ? m_data.natural : toULongLong(nullptr); }
    /// The same with `ok`; it may be null.
    unsigned long long toULongLong(bool* ok) const;

    /// The texts "nan" and "inf" are numbers here.
    double toDouble() const { return m_type == Double ? m_data.real : toDouble(nullptr); }
    /// The same with `ok`; it may be null.
    double toDouble(bool* ok) const;

    /// UTF-8.
    std::string toStdString(bool* ok = nullptr) const;
    /// The same as a CkelString.
    CkelString toString(bool* ok = nullptr) const { return toStdString(ok); }

    /// @}

    /// True for equal contents: two numbers (bools, integers and doubles alike) that are numerically equal, to the last
    /// bit of 64; two texts with the same bytes; two invalid variants. NaN equals NaN. A text never equals a number.
    bool cmp(const CkelVariant& other) const
    {
        const bool sameBits = m_data.natural == other.m_data.natural;
        if (sameBits && m_type == other.m_type)
            return true;
        if (isInteger() && other.isInteger())
            return sameBits && (isSigned() == other.isSigned() || m_data.integer >= 0);
        return contentEquals(other);
    }

private:
    struct Text;

    union Data
    {
        long long integer;          // Bool, Int, LongLong
        unsigned long long natural; // UInt, ULongLong
        double real;
        Text* text;
    };

    bool isInteger() const noexcept { return m_type >= Bool && m_type <= ULongLong; }
    bool isUnsigned() const noexcept { return m_type == UInt || m_type == ULongLong; }
    bool isSigned() const noexcept { return isInteger() && !isUnsigned(); }
    const std::string& text() const noexcept;
    void shareText() const noexcept;
    void dropText() const noexcept;
    bool contentEquals(const CkelVariant& other) const;
    bool realEquals(const CkelVariant& number) const;
    template <typename Integer>
    Integer toInteger(bool* ok) const;

    alignas(8) Data m_data{0}; // 16 bytes in all, also where a long long needs less
    Type m_type = Invalid;
};

static_assert(sizeof(CkelVariant) == 16, "a record is sized for variants of 16 bytes");

} // namespace Ombrin
