#include "swingingnumbers.h"

#include <algorithm>
#include <cmath>
#include <functional>

namespace Demo {

namespace {

constexpr std::size_t mostNumbers = 8;
constexpr double farthest = 50;         // from where a number starts
constexpr double stridesPerSwing = 100; // from the lowest to the highest value

} // namespace

SwingingNumbers::SwingingNumbers(Storage& storage) : m_storage(storage)
{
    std::vector<Item> items = allItems(storage);
    const auto isMovable = [](const Item& item) { return isNumber(item) && isWritable(item); };
    items.erase(std::remove_if(items.begin(), items.end(), std::not_fn(isMovable)), items.end());
    const std::size_t count = std::min(mostNumbers, (items.size() + 1) / 2);
    for (std::size_t i = 0; i < count; ++i)
        m_numbers.push_back(numberOf(items[i]));
}

SwingingNumbers::Number SwingingNumbers::numberOf(const Item& item)
{
    const double start = item.Value.toDouble();
    const double min = item.Min.toDouble();
    const double max = item.Max.toDouble();
    Number number{item, start - farthest, start + farthest, 0};
    if (min < max) {
        number.lowest = std::max(number.lowest, min);
        number.highest = std::min(number.highest, max);
    }
    number.stride = (number.highest - number.lowest) / stridesPerSwing;
    if (!isReal(item))
        number.stride = std::max(1.0, std::round(number.stride));
    return number;
}

std::string SwingingNumbers::description() const
{
    if (m_numbers.empty())
        return "This dictionary holds no writable numbers, so nothing moves.";
    std::string text = "This is no dictionary of a moulding machine. These writable numbers go up and down:";
    for (const Number& number : m_numbers)
        text += ' ' + number.item.NameID;
    return text;
}

std::vector<Row> SwingingNumbers::rows() const
{
    std::vector<Row> rows;
    for (const Number& number : m_numbers)
        rows.push_back({number.item, Item{}, {}});
    return rows;
}

void SwingingNumbers::step()
{
    for (Number& number : m_numbers)
        move(number);
}

void SwingingNumbers::move(Number& number)
{
    const double value = m_storage.queryValue(number.item.ID).toDouble();
    if (value + number.stride > number.highest || value + number.stride < number.lowest)
        number.stride = -number.stride;
    const double next = value + number.stride;
    if (next >= number.lowest && next <= number.highest)
        m_storage.updateValue(number.item.ID, next, true);
}

} // namespace Demo
