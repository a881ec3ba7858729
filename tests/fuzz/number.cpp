#include "kernel/kelvariant.h"
#include "tests/fuzz/harness.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>

using KelFuzz::require;
using Ombrin::CkelVariant;

// Texts to numbers beside the C library's conversions, whose locale here is "C", and numbers to texts and back. The
// differences that are meant:
// - a number is the whole text; blanks may follow it;
// - no hexadecimal numbers, and no "nan(...)";
// - a negative number does not wrap around to an unsigned one;
// - what is no integer but reads as a double is rounded, halves away from zero.

namespace {

constexpr const char* blanks = " \t\n\v\f\r";

std::string trimmed(const std::string& text)
{
    const auto first = text.find_first_not_of(blanks);
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

struct Expected
{
    std::string number; // without blanks around it
    bool isNumber = false;
    bool isInteger = false; // digits alone
    bool inRange = false;
    double value = 0;
};

Expected expectedOf(const std::string& text)
{
    Expected expected;
    expected.number = trimmed(text);
    const std::string& number = expected.number;
    if (number.empty() || number.find_first_of("xX(") != std::string::npos || number.find('\0') != std::string::npos)
        return expected;
    char* end = nullptr;
    expected.value = std::strtod(number.c_str(), &end);
    expected.isNumber = end == number.c_str() + number.size();
    if (!expected.isNumber)
        expected.value = 0;
    expected.inRange = expected.isNumber && (!std::isinf(expected.value) || number.find_first_of("iI") < number.size());
    const auto digits = number.find_first_not_of("+-");
    expected.isInteger = expected.isNumber && number.find_first_not_of("0123456789", digits) == std::string::npos;
    return expected;
}

bool sameBits(double a, double b)
{
    return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

/// The nearest integer within the limits; NaN gives 0.
template <typename Integer>
Integer rounded(double value, bool& ok)
{
    using Limits = std::numeric_limits<Integer>;
    const double whole = std::round(value);
    ok = whole >= static_cast<double>(Limits::min()) && whole < std::ldexp(1, Limits::digits);
    if (ok)
        return static_cast<Integer>(whole);
    if (std::isnan(value))
        return 0;
    return value > 0 ? Limits::max() : Limits::min();
}

template <typename Integer>
void checkInteger(const Expected& expected, const CkelVariant& variant, Integer (CkelVariant::*convert)(bool*) const)
{
    bool actualOk = false;
    const Integer actual = (variant.*convert)(&actualOk);
    bool ok = false;
    Integer value = expected.isNumber ? rounded<Integer>(expected.value, ok) : Integer{0};
    const std::string& number = expected.number;
    if (expected.isInteger && (number[0] != '-' || std::numeric_limits<Integer>::is_signed)) {
        using Limits = std::numeric_limits<Integer>;
        errno = 0;
        if constexpr (Limits::is_signed) {
            const long long exact = std::strtoll(number.c_str(), nullptr, 10);
            ok = errno == 0 && exact >= Limits::min() && exact <= Limits::max();
            value = ok ? static_cast<Integer>(exact) : exact < 0 ? Limits::min() : Limits::max();
        } else {
            const unsigned long long exact = std::strtoull(number.c_str(), nullptr, 10);
            ok = errno == 0 && exact <= Limits::max();
            value = ok ? static_cast<Integer>(exact) : Limits::max();
        }
    }
    require(actual == value, "a text is the integer that the C library reads");
    require(actualOk == ok, "a text is an integer when the C library says so");
}

void checkText(const std::string& text)
{
    const Expected expected = expectedOf(text);
    const CkelVariant variant(text);
    bool ok = false;
    const double real = variant.toDouble(&ok);
    require(sameBits(real, expected.value), "a text is the double that the C library reads");
    require(expected.value == 0 || ok == expected.inRange, "a text is a double when the C library says so");
    require(!ok || expected.isNumber, "what is no number is not read as zero");
    require(variant.canConvert(CkelVariant::Double) == expected.isNumber, "a number converts to a double");
    require(variant.canConvert(CkelVariant::LongLong) == (expected.isNumber && !std::isnan(expected.value)),
            "a number converts to an integer");
    checkInteger(expected, variant, &CkelVariant::toInt);
    checkInteger(expected, variant, &CkelVariant::toUInt);
    checkInteger(expected, variant, &CkelVariant::toLongLong);
    checkInteger(expected, variant, &CkelVariant::toULongLong);
    require(variant.toStdString() == text, "a text stays as it is");
}

/// Whether some text in scientific notation is shorter and reads back to the number.
bool hasShorterText(double value, std::size_t length)
{
    char text[40];
    const auto oneDigit = static_cast<std::size_t>(std::snprintf(text, sizeof text, "%.0e", value));
    if (length <= oneDigit)
        return false;
    // A point and more digits, as far as they fit.
    const int decimals = static_cast<int>(length - oneDigit) - 2;
    std::snprintf(text, sizeof text, "%.*e", decimals > 0 ? decimals : 0, value);
    return std::strlen(text) < length && std::strtod(text, nullptr) == value;
}

void checkReal(double value)
{
    const std::string text = CkelVariant(value).toStdString();
    require(sameBits(CkelVariant(text).toDouble(), value), "a double comes back from its text");
    require(sameBits(std::strtod(text.c_str(), nullptr), value), "the C library reads the same double");
    if (std::isfinite(value))
        require(!hasShorterText(value, text.size()), "the text of a double is the shortest");
    require(CkelVariant(value).cmp(value), "a double equals itself");
    bool ok = false;
    bool expectedOk = false;
    require(CkelVariant(value).toLongLong(&ok) == rounded<long long>(value, expectedOk),
            "a double is rounded to a signed integer");
    require(ok == expectedOk, "a double beyond the signed integers is none");
    require(CkelVariant(value).toULongLong(&ok) == rounded<unsigned long long>(value, expectedOk),
            "a double is rounded to an unsigned integer");
    require(ok == expectedOk, "a double beyond the unsigned integers is none");
}

template <typename Integer>
void checkInteger(Integer value)
{
    const std::string text = CkelVariant(value).toStdString();
    require(text == std::to_string(value), "an integer is written with its digits");
    bool ok = false;
    if constexpr (std::numeric_limits<Integer>::is_signed)
        require(CkelVariant(text).toLongLong(&ok) == value && ok, "an integer comes back from its text");
    else
        require(CkelVariant(text).toULongLong(&ok) == value && ok, "an integer comes back from its text");
}

/// Equality of numbers, in a type that holds both exactly.
void checkEquality(double real, long long integer)
{
    using Exact = long double;
    if constexpr (std::numeric_limits<Exact>::digits >= 64) {
        const auto natural = static_cast<unsigned long long>(integer);
        require(CkelVariant(real).cmp(integer) == (Exact{real} == static_cast<Exact>(integer)),
                "a double equals the signed integer of its value alone");
        require(CkelVariant(natural).cmp(real) == (Exact{real} == static_cast<Exact>(natural)),
                "a double equals the unsigned integer of its value alone");
        require(CkelVariant(natural).cmp(integer) == (integer >= 0),
                "integers are equal when their values are, not their bits");
    }
}

} // namespace

const std::vector<std::string> KelFuzz::endingChecks{};

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    checkText(std::string(reinterpret_cast<const char*>(data), size));
    KelFuzz::Bytes bytes(data, size);
    const auto bits = bytes.number<unsigned long long>();
    double real = 0;
    std::memcpy(&real, &bits, sizeof real);
    checkReal(real);
    checkInteger(bits);
    checkInteger(static_cast<long long>(bits));
    checkEquality(real, static_cast<long long>(bits));
    const double asDouble = static_cast<double>(static_cast<long long>(bits));
    checkEquality(asDouble, static_cast<long long>(bits));
    return 0;
}
