#include "spelling.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>

namespace Keldict {

using Ombrin::CkelVariant;

namespace {

bool readsAs(const std::string& spelling, double number)
{
    rapidjson::Document document;
    document.Parse(spelling.c_str());
    if (document.HasParseError() || !document.IsDouble())
        return false;
    const double read = document.GetDouble();
    return read == number && std::signbit(read) == std::signbit(number);
}

std::string withPoint(const std::string& digits)
{
    return digits.find_first_of(".e") == std::string::npos ? digits + ".0" : digits;
}

template <typename... Format>
std::string spelled(double number, Format... format)
{
    std::array<char, 400> text{}; // as many as the smallest number has digits
    const auto result = std::to_chars(text.data(), text.data() + text.size(), number, format...);
    return withPoint({text.data(), result.ptr});
}

/// A neighbour's spelling, which the loader rounds to this number.
std::optional<std::string> spelledAsNeighbour(double number)
{
    constexpr int furthest = 8;
    constexpr int allDigits = 16;
    for (const double limit : {HUGE_VAL, -HUGE_VAL}) {
        double neighbour = number;
        for (int step = 0; step < furthest; ++step) {
            neighbour = std::nextafter(neighbour, limit);
            for (int digits = allDigits; digits <= allDigits + 2; ++digits) {
                const std::string spelling = spelled(neighbour, std::chars_format::scientific, digits);
                if (readsAs(spelling, number))
                    return spelling;
            }
        }
    }
    return std::nullopt;
}

double finite(double number)
{
    if (std::isnan(number))
        return 0;
    return std::isinf(number) ? std::copysign(std::numeric_limits<double>::max(), number) : number;
}

} // namespace

std::string jsonOf(double number)
{
    number = finite(number);
    std::string shortest = spelled(number);
    if (readsAs(shortest, number))
        return shortest;
    constexpr int mostDigits = 19;
    for (int digits = std::numeric_limits<double>::digits10; digits <= mostDigits; ++digits) {
        std::string spelling = spelled(number, std::chars_format::scientific, digits);
        if (readsAs(spelling, number))
            return spelling;
    }
    return spelledAsNeighbour(number).value_or(shortest);
}

std::string jsonOf(const CkelVariant& value)
{
    switch (value.type()) {
    case CkelVariant::Invalid:
        return "null";
    case CkelVariant::Double:
        return jsonOf(value.toDouble());
    case CkelVariant::String:
        return jsonOf(std::string_view(value.toStdString()));
    default:
        return value.toStdString();
    }
}

std::string jsonOf(std::string_view text)
{
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
    return {buffer.GetString(), buffer.GetSize()};
}

} // namespace Keldict
