#include "benchmarks/dictionary.h"

#include "benchmarks/check.h"
#include "benchmarks/sqlitepeer.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <numeric>
#include <random>

namespace KelBench {

namespace {

constexpr unsigned int seed = 20250101;

class Random
{
public:
    /// From 0 to `limit` - 1. Not a distribution of the standard library, whose numbers differ from one to the other.
    std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(m_engine() % limit); }

    std::string letters(std::size_t count)
    {
        std::string text(count, '\0');
        std::generate(text.begin(), text.end(), [this] { return static_cast<char>('a' + below(26)); });
        return text;
    }

private:
    std::mt19937 m_engine{seed};
};

/// 8 to 40 bytes: letters, and the item's position in 4 digits of base 36, which makes the name unique.
std::string nameOf(std::size_t position, Random& random)
{
    static constexpr char digits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    std::string name = random.letters(4 + random.below(33));
    name.front() = static_cast<char>(name.front() - 'a' + 'A');
    for (int digit = 0; digit < 4; ++digit, position /= 36)
        name += digits[position % 36];
    return name;
}

/// 9 items of 20 hold an integer, 6 a real number, 3 an unsigned integer, 2 a text.
std::uint8_t valueTypeOf(std::uint32_t number)
{
    if (number < 9)
        return Ombrin::ValueTypeInteger4;
    if (number < 15)
        return Ombrin::ValueTypeReal9;
    return number < 18 ? Ombrin::ValueTypeUnsigned13 : Ombrin::ValueTypeText;
}

CkelVariant randomValue(std::uint8_t valueType, Random& random)
{
    switch (valueType) {
    case Ombrin::ValueTypeInteger4:
        return static_cast<int>(random.below(200000)) - 100000;
    case Ombrin::ValueTypeReal9:
        return random.below(1000000) / 16.0 + 0.03125; // exact in decimal, and never a whole number
    case Ombrin::ValueTypeUnsigned13:
        return 5000000000ULL + random.below(1000000000);
    default:
        return random.letters(4 + random.below(21));
    }
}

std::string jsonText(const CkelVariant& value)
{
    return value.type() == CkelVariant::String ? '"' + value.toStdString() + '"' : value.toStdString();
}

} // namespace

std::uint32_t scattered(std::uint32_t x)
{
    x ^= x >> 16U;
    x *= 0x7feb352dU;
    x ^= x >> 15U;
    x *= 0x846ca68bU;
    x ^= x >> 16U;
    return x;
}

std::vector<tagStorageData> makeItems(std::size_t size)
{
    Random random;
    std::vector<tagStorageData> items(size);
    for (std::size_t i = 0; i < size; ++i) {
        tagStorageData& item = items[i];
        item.ID = scattered(static_cast<std::uint32_t>(i + 1));
        item.NameID = nameOf(i, random);
        item.CommSource = static_cast<std::uint8_t>(random.below(4));
        item.DBSource = 1;
        item.RW = static_cast<std::uint8_t>(random.below(3));
        item.Block = static_cast<std::uint8_t>(random.below(20));
        item.ValueT = valueTypeOf(random.below(20));
        item.Value = randomValue(item.ValueT, random);
        item.DefValue = randomValue(item.ValueT, random);
        item.Max = randomValue(item.ValueT, random);
        item.Min = randomValue(item.ValueT, random);
    }
    return items;
}

CkelVariant otherValue(const tagStorageData& item)
{
    switch (item.Value.type()) {
    case CkelVariant::Double:
        return item.Value.toDouble() + 0.25;
    case CkelVariant::String:
        return item.Value.toStdString() + '+';
    case CkelVariant::Int:
        return item.Value.toInt() + 1;
    default:
        return item.Value.toULongLong() + 1;
    }
}

std::vector<std::size_t> shuffledPositions(std::size_t size)
{
    Random random;
    std::vector<std::size_t> positions(size);
    std::iota(positions.begin(), positions.end(), std::size_t{0});
    for (std::size_t i = size - 1; i > 0; --i)
        std::swap(positions[i], positions[random.below(static_cast<std::uint32_t>(i + 1))]);
    return positions;
}

void writeJson(const std::vector<tagStorageData>& items, const std::string& path)
{
    std::ofstream file(path);
    const char* separator = "{ \"kel\": [\n";
    for (const tagStorageData& item : items) {
        file << separator << "{ \"ID\": " << item.ID << ", \"NameID\": \"" << item.NameID
             << "\", \"CommSource\": " << int{item.CommSource} << ", \"DBSource\": " << int{item.DBSource}
             << ", \"RW\": " << int{item.RW} << ", \"Block\": " << int{item.Block}
             << ", \"ValueT\": " << int{item.ValueT} << ", \"Value\": " << jsonText(item.Value)
             << ", \"DefValue\": " << jsonText(item.DefValue) << ", \"Max\": " << jsonText(item.Max)
             << ", \"Min\": " << jsonText(item.Min) << " }";
        separator = ",\n";
    }
    file << "\n] }\n";
    require(file.flush().good(), "the dictionary is written");
}

void writeConfigDatabase(const std::vector<tagStorageData>& items, const std::string& path)
{
    ItemTable table(path, "ID INTEGER");
    for (const tagStorageData& item : items)
        table.insert(item);
    table.commit();
}

} // namespace KelBench
