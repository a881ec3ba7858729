#include "items.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <iomanip>
#include <sstream>

namespace Demo {

namespace {

constexpr double largestFixed = 1e12; // beyond, a fixed count of decimals says nothing

std::string blanks(const std::string& text, std::size_t width)
{
    constexpr unsigned int continuationMask = 0xC0;
    constexpr unsigned int continuation = 0x80;
    const auto length = static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
        return (static_cast<unsigned char>(byte) & continuationMask) != continuation;
    }));
    return std::string(width - std::min(width, length), ' ');
}

/// Without what would move the cursor.
std::string printable(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char byte) { return std::iscntrl(static_cast<unsigned char>(byte)) != 0; }, ' ');
    return text;
}

std::string hexadecimal(unsigned long long bits)
{
    std::ostringstream text;
    text << "0x" << std::hex << bits;
    return text.str();
}

} // namespace

std::vector<Item> allItems(const Storage& storage)
{
    std::vector<Item> items = storage.queryDataList(0U, Storage::Greater);
    std::sort(items.begin(), items.end(), [](const Item& a, const Item& b) { return a.ID < b.ID; });
    return items;
}

bool isText(const Item& item)
{
    return item.ValueT == Ombrin::ValueTypeText;
}

bool isBitField(const Item& item)
{
    return item.ValueT == Ombrin::ValueTypeUnsigned16;
}

bool isReal(const Item& item)
{
    return item.ValueT == Ombrin::ValueTypeReal8 || item.ValueT == Ombrin::ValueTypeReal9;
}

bool isNumber(const Item& item)
{
    constexpr std::uint8_t aSwitch = Ombrin::ValueTypeInteger1;
    return item.ValueT > aSwitch && item.ValueT < Ombrin::ValueTypeNone && !isText(item);
}

bool isWritable(const Item& item)
{
    return item.RW != 0;
}

Item pick(const std::vector<Item>& items, const std::string& name, const std::function<bool(const Item&)>& suits)
{
    auto found = std::find_if(items.begin(), items.end(), [&name](const Item& item) { return item.NameID == name; });
    if (found == items.end())
        found = std::find_if(items.begin(), items.end(), suits);
    return found != items.end() ? *found : Item{};
}

std::string shown(const Item& item, const CkelVariant& value)
{
    if (value.isNull())
        return "(empty)";
    if (isText(item))
        return '"' + printable(value.toStdString()) + '"';
    if (isBitField(item))
        return hexadecimal(value.toULongLong());
    if (isReal(item) && std::abs(value.toDouble()) < largestFixed)
        return fixed(value.toDouble(), 2);
    return value.toStdString();
}

std::string alignedLeft(const std::string& text, std::size_t width)
{
    return text + blanks(text, width);
}

std::string alignedRight(const std::string& text, std::size_t width)
{
    return blanks(text, width) + text;
}

std::string fixed(double number, int decimals)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(decimals) << number;
    return text.str();
}

} // namespace Demo
