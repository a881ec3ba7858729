#include "kernel/kelvariant.h"

#include <atomic>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include <locale.h> // newlocale: NOLINT(modernize-deprecated-headers) POSIX, not C++
#include <stdlib.h> // strtod_l: NOLINT(modernize-deprecated-headers)

namespace Ombrin {

struct CkelVariant::Text
{
    explicit Text(std::string utf8) : value(std::move(utf8)) {}

    std::atomic<unsigned int> users{1};
    const std::string value;
};

namespace {

template <typename T>
struct Conversion
{
    T value;
    bool ok;
};

std::string_view withoutBlanks(std::string_view text)
{
    constexpr std::string_view blanks = " \t\n\v\f\r";
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// The text of a number without blanks and plus sign; std::from_chars does the rest.
std::string_view numberText(std::string_view text)
{
    text = withoutBlanks(text);
    if (text.size() > 1 && text[0] == '+' && text[1] != '-')
        text.remove_prefix(1);
    return text;
}

/// A number too large or too small for a double: infinity or zero with the right sign.
double beyondDouble(std::string_view text)
{
    static const locale_t classic = newlocale(LC_ALL_MASK, "C", nullptr);
    return strtod_l(std::string(text).c_str(), nullptr, classic);
}

/// Nothing when `text` is no number.
std::optional<Conversion<double>> readDouble(std::string_view text)
{
    text = numberText(text);
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    // "nan(...)" is a C spelling that nobody means
    if (error == std::errc::invalid_argument || end != text.data() + text.size() || text.empty() || text.back() == ')')
        return std::nullopt;
    if (error == std::errc::result_out_of_range)
        return Conversion<double>{beyondDouble(text), false};
    return Conversion<double>{value, true};
}

template <typename Integer>
Conversion<Integer> roundTo(double value)
{
    using Limits = std::numeric_limits<Integer>;
    if (std::isnan(value))
        return {0, false};
    // One above the maximum is a power of two, exact in a double where the maximum itself may not be.
    const double tooLarge = std::ldexp(1.0, Limits::digits);
    const double rounded = std::round(value);
    if (rounded >= tooLarge)
        return {Limits::max(), false};
    if (rounded < static_cast<double>(Limits::min()))
        return {Limits::min(), false};
    return {static_cast<Integer>(rounded), true};
}

template <typename Integer>
Conversion<Integer> readInteger(std::string_view text)
{
    using Limits = std::numeric_limits<Integer>;
    const std::string_view digits = numberText(text);
    Integer value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    const bool whole = end == digits.data() + digits.size();
    if (error == std::errc() && whole)
        return {value, true};
    if (error == std::errc::result_out_of_range && whole)
        return {digits.front() == '-' ? Limits::min() : Limits::max(), false};
    const auto real = readDouble(text);
    if (!real)
        return {0, false};
    const auto rounded = roundTo<Integer>(real->value);
    return {rounded.value, rounded.ok}; // what is too small for a double still rounds to 0
}

/// Nothing when `text` is neither a bool nor a number.
std::optional<bool> readBool(std::string_view text)
{
    const auto word = withoutBlanks(text);
    if (word == "true" || word == "false")
        return word == "true";
    const auto number = readDouble(text);
    if (!number || std::isnan(number->value))
        return std::nullopt;
    return number->value != 0;
}

template <typename T>
T report(const Conversion<T>& conversion, bool* ok)
{
    if (ok)
        *ok = conversion.ok;
    return conversion.value;
}

template <typename Integer>
bool realEqualsInteger(double real, Integer integer)
{
    const auto rounded = roundTo<Integer>(real);
    return rounded.ok && static_cast<double>(rounded.value) == real && rounded.value == integer;
}

} // namespace

CkelVariant::CkelVariant(const char* utf8)
{
    if (!utf8)
        return;
    m_data.text = new Text(utf8);
    m_type = String;
}

CkelVariant::CkelVariant(const std::string& utf8) : m_type(String)
{
    m_data.text = new Text(utf8);
}

CkelVariant::CkelVariant(std::string&& utf8) : m_type(String)
{
    m_data.text = new Text(std::move(utf8));
}

CkelVariant::CkelVariant(const CkelString& text) : CkelVariant(text.toStdString()) {}

const std::string& CkelVariant::text() const noexcept
{
    return m_data.text->value;
}

void CkelVariant::shareText() const noexcept
{
    m_data.text->users.fetch_add(1, std::memory_order_relaxed);
}

void CkelVariant::dropText() const noexcept
{
    if (m_data.text->users.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete m_data.text;
}

bool CkelVariant::canConvert(Type type) const
{
    if (m_type == Invalid)
        return false;
    switch (type) {
    case String:
        return true;
    case Double:
        return m_type != String || readDouble(text()).has_value();
    case Bool:
        if (m_type == String)
            return readBool(text()).has_value();
        return m_type != Double || !std::isnan(m_data.real);
    case Int:
    case UInt:
    case LongLong:
    case ULongLong: {
        if (m_type != String)
            return m_type != Double || !std::isnan(m_data.real);
        const auto number = readDouble(text());
        return number && !std::isnan(number->value);
    }
    default:
        return false;
    }
}

template <typename Integer>
Integer CkelVariant::toInteger(bool* ok) const
{
    if (isSigned())
        return report<Integer>({static_cast<Integer>(m_data.integer), true}, ok);
    if (isUnsigned())
        return report<Integer>({static_cast<Integer>(m_data.natural), true}, ok);
    if (m_type == Double)
        return report(roundTo<Integer>(m_data.real), ok);
    if (m_type == String)
        return report(readInteger<Integer>(text()), ok);
    return report<Integer>({0, false}, ok);
}

bool CkelVariant::toBool(bool* ok) const
{
    if (isSigned() || isUnsigned())
        return report<bool>({m_data.natural != 0, true}, ok);
    if (m_type == Double)
        return report<bool>({m_data.real != 0 && !std::isnan(m_data.real), !std::isnan(m_data.real)}, ok);
    const auto read = m_type == String ? readBool(text()) : std::nullopt;
    return report<bool>({read.value_or(false), read.has_value()}, ok);
}

int CkelVariant::toInt(bool* ok) const
{
    return toInteger<int>(ok);
}

unsigned int CkelVariant::toUInt(bool* ok) const
{
    return toInteger<unsigned int>(ok);
}

long long CkelVariant::toLongLong(bool* ok) const
{
    return toInteger<long long>(ok);
}

unsigned long long CkelVariant::toULongLong(bool* ok) const
{
    return toInteger<unsigned long long>(ok);
}

double CkelVariant::toDouble(bool* ok) const
{
    if (m_type == Double)
        return report<double>({m_data.real, true}, ok);
    if (isSigned())
        return report<double>({static_cast<double>(m_data.integer), true}, ok);
    if (isUnsigned())
        return report<double>({static_cast<double>(m_data.natural), true}, ok);
    const auto read = m_type == String ? readDouble(text()) : std::nullopt;
    return report(read.value_or(Conversion<double>{0, false}), ok);
}

std::string CkelVariant::toStdString(bool* ok) const
{
    if (ok)
        *ok = m_type != Invalid;
    if (m_type == String)
        return text();
    if (m_type == Bool)
        return m_data.integer != 0 ? "true" : "false";
    if (isSigned())
        return CkelString::number(m_data.integer).toStdString();
    if (isUnsigned())
        return CkelString::number(m_data.natural).toStdString();
    if (m_type == Double)
        return CkelString::number(m_data.real).toStdString();
    return {};
}

/// This is a double.
bool CkelVariant::realEquals(const CkelVariant& number) const
{
    if (number.m_type == Double)
        return m_data.real == number.m_data.real || (std::isnan(m_data.real) && std::isnan(number.m_data.real));
    return number.isSigned() ? realEqualsInteger(m_data.real, number.m_data.integer)
                             : realEqualsInteger(m_data.real, number.m_data.natural);
}

/// One of the two at least is no integer.
bool CkelVariant::contentEquals(const CkelVariant& other) const
{
    if (m_type == Invalid || other.m_type == Invalid)
        return m_type == other.m_type;
    if (m_type == String || other.m_type == String)
        return m_type == other.m_type && (m_data.text == other.m_data.text || text() == other.text());
    return m_type == Double ? realEquals(other) : other.realEquals(*this);
}

} // namespace Ombrin
