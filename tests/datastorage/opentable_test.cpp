#include "datastorage/kelopentable.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <vector>

using Ombrin::OpenTable;

namespace {

struct Entry
{
    std::uint32_t key = 0;
    int value = 0; // 0 for none

    bool isEmpty() const { return value == 0; }
};

using Table = OpenTable<Entry>;

/// Adds one each time that the numbers have gone around 32 bits.
std::uint32_t steps(std::uint32_t step, std::uint32_t position)
{
    const std::uint64_t around = (std::uint64_t{1} << 32U) / (step & -step);
    return position * step + static_cast<std::uint32_t>(position / around) + 1;
}

std::uint32_t scattered(std::uint32_t x)
{
    x = (x ^ (x >> 16U)) * 0x7FEB352DU;
    x = (x ^ (x >> 15U)) * 0x846CA68BU;
    return x ^ (x >> 16U);
}

struct Pattern
{
    const char* name;
    std::uint32_t (*key)(std::uint32_t position);
};

constexpr Pattern patterns[] = {
    {"consecutive", [](std::uint32_t i) { return 1001 + i; }},
    {"blocks of 100 in 1,000", [](std::uint32_t i) { return i / 100 * 1000 + i % 100; }},
    {"blocks of 256 in 4,096", [](std::uint32_t i) { return i / 256 * 4096 + i % 256; }},
    {"steps of 10", [](std::uint32_t i) { return steps(10, i); }},
    {"steps of 1,250", [](std::uint32_t i) { return steps(1250, i); }},
    {"steps of 4,096", [](std::uint32_t i) { return steps(4096, i); }},
    {"steps of 49,100", [](std::uint32_t i) { return steps(49100, i); }},
    {"steps of 61,495", [](std::uint32_t i) { return steps(61495, i); }},
    {"steps of 65,536", [](std::uint32_t i) { return steps(65536, i); }},
    {"steps of the multiplier's inverse", [](std::uint32_t i) { return steps(0x0E8B2F51, i); }},
    {"steps of its square's inverse", [](std::uint32_t i) { return steps(0x0E8B2F51U * 0x0E8B2F51U, i); }},
    {"index and subindex", [](std::uint32_t i) { return 0x60000000 + i / 8 * 0x10000 + i % 8 * 0x100 + i / 0x50000; }},
    {"scattered", scattered},
};

/// An entry that counts the looks at it, one for each probe.
struct CountingEntry
{
    std::uint32_t key = 0;
    bool isUsed = false;

    CountingEntry() = default;
    CountingEntry(std::uint32_t usedKey) : key(usedKey), isUsed(true) {}

    bool isEmpty() const
    {
        ++looks;
        return !isUsed;
    }

    static inline std::size_t looks = 0;
};

using CountingTable = OpenTable<CountingEntry>;

/// Inserts the first `count` keys of a pattern.
void fill(CountingTable& table, const Pattern& pattern, std::uint32_t count)
{
    for (std::uint32_t i = 0; i < count; ++i) {
        table.insert({pattern.key(i)});
        if (table.isCrowded())
            table.reduceCollisions();
    }
}

std::size_t probes(const CountingTable& table, std::uint32_t key)
{
    CountingEntry::looks = 0;
    table.find(key, [](const CountingEntry& /*entry*/) { return true; });
    return CountingEntry::looks;
}

std::size_t probes(const CountingTable& table, const Pattern& pattern, std::uint32_t count)
{
    std::size_t sum = 0;
    for (std::uint32_t i = 0; i < count; ++i)
        sum += probes(table, pattern.key(i));
    return sum;
}

int valueOf(const Table& table, std::uint32_t key)
{
    return table.find(key, [](const Entry& /*entry*/) { return true; }).value;
}

void erase(Table& table, std::uint32_t key)
{
    table.erase(table.find(key, [](const Entry& /*entry*/) { return true; }));
}

/// Keys whose looks all begin in the last slots of a small table, and go on in its first ones.
std::vector<std::uint32_t> crowdedKeys(std::size_t count)
{
    constexpr std::uint32_t inverse = 0x0E8B2F51; // of the multiplier, modulo 2^32
    std::vector<std::uint32_t> keys;
    for (std::uint32_t i = 0; i < count; ++i)
        keys.push_back((0xFFFFFFFFU - i * 3) * inverse);
    return keys;
}

} // namespace

TEST(OpenTable, NewOneFindsNothing)
{
    const Table table;
    EXPECT_EQ(table.size(), 0U);
    EXPECT_EQ(valueOf(table, 0), 0);
    EXPECT_EQ(valueOf(table, 7), 0);
}

TEST(OpenTable, FindsEveryKeyWhileItGrows)
{
    Table table;
    for (std::uint32_t key = 0; key < 1000; ++key)
        table.insert({key << 20U, static_cast<int>(key) + 1});
    EXPECT_EQ(table.size(), 1000U);
    for (std::uint32_t key = 0; key < 1000; ++key)
        ASSERT_EQ(valueOf(table, key << 20U), static_cast<int>(key) + 1) << key;
    EXPECT_EQ(valueOf(table, 1000U << 20U), 0);
}

TEST(OpenTable, TellsEqualKeysApartByWhatTheCallerMatches)
{
    Table table;
    for (int value = 1; value <= 3; ++value)
        table.insert({42, value});
    for (int value = 1; value <= 3; ++value)
        EXPECT_EQ(table.find(42, [=](const Entry& entry) { return entry.value == value; }).value, value);
    EXPECT_TRUE(table.find(42, [](const Entry& entry) { return entry.value == 4; }).isEmpty());
}

TEST(OpenTable, StaysInReachWhereKeysCrowdAroundTheEnd)
{
    const auto keys = crowdedKeys(4);
    for (std::size_t first = 0; first < keys.size(); ++first) {
        Table table;
        for (std::size_t i = 0; i < keys.size(); ++i)
            table.insert({keys[i], static_cast<int>(i) + 1});
        erase(table, keys[first]);
        for (std::size_t i = 0; i < keys.size(); ++i)
            EXPECT_EQ(valueOf(table, keys[i]), i == first ? 0 : static_cast<int>(i) + 1) << first << ' ' << i;
    }
}

TEST(OpenTable, ReservedRoomIsKept)
{
    Table table;
    table.reserve(100);
    table.insert({1, 1});
    const Entry* const first = &table.find(1, [](const Entry& /*entry*/) { return true; });
    for (std::uint32_t key = 2; key <= 100; ++key)
        table.insert({key << 8U, 1});
    EXPECT_EQ(&table.find(1, [](const Entry& /*entry*/) { return true; }), first);
}

TEST(OpenTable, AgreesWithAMapOverManyChanges)
{
    const unsigned int seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::map<std::uint32_t, int> model;
    Table table;
    for (int step = 1; step <= 20000; ++step) {
        const std::uint32_t key = random() % 64 * 0x01000193U;
        const auto known = model.find(key);
        ASSERT_EQ(valueOf(table, key), known != model.end() ? known->second : 0);
        if (known == model.end()) {
            table.insert({key, step});
            model[key] = step;
        } else {
            erase(table, key);
            model.erase(known);
        }
        ASSERT_EQ(table.size(), model.size());
    }
}

// Probes

TEST(OpenTable, FindsKeysOfEveryPatternWithFewProbes)
{
    for (const Pattern& pattern : patterns) {
        for (const std::uint32_t count : {500U, 5000U, 20000U, 1000000U}) {
            SCOPED_TRACE(pattern.name + (": " + std::to_string(count)));
            CountingTable table;
            table.reserve(count);
            fill(table, pattern, count);
            table.reduceCollisions();
            // Random keys in a table that is half full take 1.5 probes.
            EXPECT_LE(probes(table, pattern, count), count + count * 5 / 8);
        }
    }
}

TEST(OpenTable, BoundsTheProbesForKeysThatAreInsertedOneByOne)
{
    for (const Pattern& pattern : patterns) {
        SCOPED_TRACE(pattern.name);
        CountingTable table;
        fill(table, pattern, 20000);
        EXPECT_LE(probes(table, pattern, 20000), 20000U * 32);
    }
}

TEST(OpenTable, CountsTheProbesBeyondTheFirstAsCollisions)
{
    CountingTable table;
    for (const std::uint32_t key : crowdedKeys(4))
        table.insert({key});
    std::size_t sum = 0;
    for (const std::uint32_t key : crowdedKeys(4))
        sum += probes(table, key);
    EXPECT_EQ(table.collisions(), sum - 4);
    EXPECT_EQ(table.collisions(), 1U + 2 + 3);
}

TEST(OpenTable, FindsEveryKeyAfterItsMultiplierHasChanged)
{
    for (const Pattern& pattern : patterns) {
        SCOPED_TRACE(pattern.name);
        Table table;
        for (std::uint32_t i = 0; i < 5000; ++i)
            table.insert({pattern.key(i), static_cast<int>(i) + 1});
        table.reduceCollisions();
        for (std::uint32_t i = 0; i < 5000; i += 2)
            erase(table, pattern.key(i));
        for (std::uint32_t i = 0; i < 5000; ++i)
            ASSERT_EQ(valueOf(table, pattern.key(i)), i % 2 == 0 ? 0 : static_cast<int>(i) + 1) << i;
    }
}
