#include "kernel/kellist.h"

#include "kernel/kelstring.h"
#include "kernel/kelvariant.h"

#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

using Ombrin::CkelList;
using Ombrin::CkelString;
using Ombrin::CkelVariant;

TEST(List, IsEmptyAtFirst)
{
    const CkelList<int> list;
    EXPECT_EQ(list.count(), 0);
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(list.begin(), list.end());
}

TEST(List, KeepsTheOrderOfAppending)
{
    CkelList<int> list;
    for (int i = 0; i < 1000; ++i)
        list.append(i);
    EXPECT_EQ(list.count(), 1000);
    EXPECT_FALSE(list.isEmpty());
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(list.value(i), i);
}

TEST(List, PositionThatDoesNotExistGivesADefaultItem)
{
    CkelList<int> numbers;
    CkelList<CkelVariant> variants;
    CkelList<CkelString> texts;
    EXPECT_EQ(numbers.value(0), 0);
    numbers.append(7);
    variants.append(7);
    texts.append("seven");
    for (const int index : {INT_MIN, -1, 1, 2, INT_MAX}) {
        EXPECT_EQ(numbers.value(index), 0) << index;
        EXPECT_TRUE(variants.value(index).isNull()) << index;
        EXPECT_TRUE(texts.value(index).isEmpty()) << index;
    }
}

TEST(List, PointersThatDoNotExistAreNull)
{
    const CkelList<int*> list;
    EXPECT_EQ(list.value(0), nullptr);
}

TEST(List, ValueIsTheItemItselfAndNoCopy)
{
    CkelList<std::string> list;
    list.append("one");
    EXPECT_EQ(&list.value(0), &*list.begin());
    EXPECT_EQ(&list.value(5), &list.value(-5));
}

TEST(List, ItemMayBeAppendedToItsOwnList)
{
    CkelList<std::string> list;
    list.append(std::string(100, 'x'));
    for (int i = 0; i < 20; ++i) // grows on the way
        list.append(list.value(0));
    for (const std::string& item : list)
        EXPECT_EQ(item, std::string(100, 'x'));
    EXPECT_EQ(list.count(), 21);
}

TEST(List, TakesItemsThatCanOnlyBeMoved)
{
    CkelList<std::unique_ptr<int>> list;
    list.append(std::make_unique<int>(5));
    EXPECT_EQ(*list.value(0), 5);
    EXPECT_EQ(list.value(1), nullptr);
}

TEST(List, ClearRemovesEverything)
{
    CkelList<int> list;
    list.append(1);
    list.append(2);
    list.clear();
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(list.count(), 0);
    EXPECT_EQ(list.value(0), 0);
    list.append(3);
    EXPECT_EQ(list.value(0), 3);
}

TEST(List, ClearDestroysTheItems)
{
    const auto item = std::make_shared<int>(1);
    CkelList<std::shared_ptr<int>> list;
    list.append(item);
    EXPECT_EQ(item.use_count(), 2);
    list.clear();
    EXPECT_EQ(item.use_count(), 1);
}

TEST(List, ReserveChangesNoContent)
{
    CkelList<int> list;
    list.append(1);
    list.reserve(1000);
    EXPECT_EQ(list.count(), 1);
    const int* const before = &list.value(0);
    for (int i = 0; i < 999; ++i)
        list.append(i);
    EXPECT_EQ(&list.value(0), before) << "there was room enough";
}

TEST(List, ReservingLessThanNothingIsHarmless)
{
    CkelList<int> list;
    list.append(1);
    list.reserve(-1);
    list.reserve(INT_MIN);
    list.reserve(0);
    EXPECT_EQ(list.count(), 1);
    EXPECT_EQ(list.value(0), 1);
}

TEST(List, CanBeIterated)
{
    CkelList<int> list;
    for (const int i : {1, 2, 3})
        list.append(i);
    EXPECT_EQ(std::accumulate(list.begin(), list.end(), 0), 6);
    EXPECT_EQ(std::vector<int>(list.begin(), list.end()), (std::vector<int>{1, 2, 3}));
}

TEST(List, CopiesAreIndependent)
{
    CkelList<int> list;
    list.append(1);
    CkelList<int> copy(list);
    copy.append(2);
    EXPECT_EQ(list.count(), 1);
    EXPECT_EQ(copy.count(), 2);
    list = copy;
    copy.clear();
    EXPECT_EQ(list.count(), 2);
}
