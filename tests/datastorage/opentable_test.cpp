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
