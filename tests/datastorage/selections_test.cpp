#include "tests/datastorage/storagefixture.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>
#include <set>

using namespace Ombrin;
using namespace KelTest;

namespace {

using Storage = CkelAbstractDataStorage;
using IDs = std::vector<unsigned int>;

constexpr Storage::Operator allOperators[] = {Storage::Equal,   Storage::NotEqual,  Storage::Less,
                                              Storage::Greater, Storage::LessEqual, Storage::GreaterEqual};

Storage::Operator operatorOf(int number)
{
    return static_cast<Storage::Operator>(number);
}

IDs sorted(IDs ids)
{
    std::sort(ids.begin(), ids.end());
    return ids;
}

IDs idsOf(const std::vector<tagStorageData>& records)
{
    IDs ids;
    for (const tagStorageData& record : records)
        ids.push_back(record.ID);
    return sorted(ids);
}

/// Items 1 to 6 of the values 1.0 to 6.0, two each in the blocks 3, 4 and 5; item 6 is deleted.
class Selections : public StorageTest
{
protected:
    Selections()
    {
        std::vector<tagStorageData> items;
        for (unsigned int id = 1; id <= 6; ++id) {
            items.push_back(makeItem(id, "item" + std::to_string(id), id));
            items.back().Block = static_cast<std::uint8_t>(3 + (id - 1) / 2);
        }
        storage = std::make_unique<LoadedStorage>(items);
        storage->deleteData(6);
    }

    std::unique_ptr<LoadedStorage> storage;
};

} // namespace

// Ranges

TEST_F(Selections, RangeExcludesItsUpperEnd)
{
    EXPECT_EQ(sorted(storage->validID(1, 4)), (IDs{1, 2, 3}));
    EXPECT_EQ(storage->queryValueListBetween(1, 4).size(), 3U);
    EXPECT_EQ(idsOf(storage->queryDataListBetween(1, 4)), (IDs{1, 2, 3}));
    EXPECT_EQ(storage->queryFieldListBetween(1, 4, "NameID", anyType).size(), 3U);
}

TEST_F(Selections, EmptyAndReversedRangesSelectNothing)
{
    EXPECT_TRUE(storage->queryValueListBetween(5, 5).empty());
    EXPECT_TRUE(storage->queryValueListBetween(9, 3).empty());
    EXPECT_TRUE(storage->queryDataListBetween(5, 5).empty());
    EXPECT_TRUE(storage->queryFieldListBetween(9, 3, "Value", anyType).empty());
}

TEST_F(Selections, RangeSkipsDeletedItems)
{
    EXPECT_EQ(sorted(storage->validID(5, 100)), (IDs{5}));
}

TEST_F(Selections, RangeReachesIDsAbove31Bits)
{
    storage->insertData(makeItem(4294967294U, "last", 1));
    EXPECT_EQ(storage->validID(2147483648U, 4294967295U), (IDs{4294967294U}));
}

TEST_F(Selections, RangeDeletionIsVisibleAtOnce)
{
    storage->deleteDataListBetween(2, 4);
    EXPECT_TRUE(storage->queryValueListBetween(2, 4).empty());
    EXPECT_EQ(sorted(storage->validID(0, 100)), (IDs{1, 4, 5}));
    EXPECT_TRUE(listener.take().empty());
}

// Comparison of the ID

TEST_F(Selections, ComparisonTakesTheItemsIDAsLeftOperand)
{
    EXPECT_EQ(sorted(storage->validID(3, Storage::Less)), (IDs{1, 2}));
    EXPECT_EQ(sorted(storage->validID(3, Storage::LessEqual)), (IDs{1, 2, 3}));
    EXPECT_EQ(sorted(storage->validID(3, Storage::Greater)), (IDs{4, 5}));
    EXPECT_EQ(sorted(storage->validID(3, Storage::GreaterEqual)), (IDs{3, 4, 5}));
    EXPECT_EQ(sorted(storage->validID(3, Storage::NotEqual)), (IDs{1, 2, 4, 5}));
    EXPECT_EQ(storage->validID(3, Storage::Equal), (IDs{3}));
}

TEST_F(Selections, EqualAnswersForTheIDItselfKnownOrNot)
{
    EXPECT_EQ(storage->validID(99, Storage::Equal), (IDs{99}));
    const auto values = storage->queryValueList(99, Storage::Equal);
    ASSERT_EQ(values.size(), 1U);
    EXPECT_TRUE(values[0].isNull());
    const auto records = storage->queryDataList(99, Storage::Equal);
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].ID, 0U);
    EXPECT_EQ(storage->queryFieldList(99, "Value", anyType, Storage::Equal).size(), 1U);
}

TEST_F(Selections, EqualAnswersForADeletedItemWithNull)
{
    const auto values = storage->queryValueList(6, Storage::Equal);
    ASSERT_EQ(values.size(), 1U);
    EXPECT_TRUE(values[0].isNull());
}

TEST_F(Selections, NotEqualNeverContainsADeletedItem)
{
    for (const CkelVariant& value : storage->queryValueList(1, Storage::NotEqual))
        EXPECT_FALSE(value.isNull());
    EXPECT_EQ(storage->queryValueList(1, Storage::NotEqual).size(), 4U);
}

TEST_F(Selections, EachFormReturnsWhatItsListOperationReturns)
{
    EXPECT_VARIANT(storage->queryValueList(2, Storage::Less).at(0), 1.0);
    EXPECT_EQ(storage->queryDataList(2, Storage::Less).at(0).NameID, "item1");
    EXPECT_VARIANT(storage->queryFieldList(2, "NameID", anyType, Storage::Less).at(0), "item1");
    EXPECT_TRUE(storage->queryFieldList(2, "nothing", anyType, Storage::Less).at(0).isNull());
}

TEST_F(Selections, InvalidOperatorsSelectAndDeleteNothing)
{
    for (const int number : {0, 7, -1, 100}) {
        const Storage::Operator op = operatorOf(number);
        EXPECT_TRUE(storage->queryValueList(3, op).empty());
        EXPECT_TRUE(storage->queryDataList(3, op).empty());
        EXPECT_TRUE(storage->queryFieldList(3, "Value", anyType, op).empty());
        EXPECT_TRUE(storage->queryValueListByField("Block", anyType, 3, op).empty());
        EXPECT_TRUE(storage->queryDataListByField("Dirty", anyType, 0, op).empty());
        storage->deleteDataList(3, op);
        storage->deleteDataListByField("Block", anyType, 3, op);
    }
    EXPECT_EQ(storage->validID(0, 100).size(), 5U);
}

TEST_F(Selections, DeletionByComparison)
{
    storage->deleteDataList(99, Storage::Equal);
    EXPECT_EQ(storage->validID(0, 100).size(), 5U);
    storage->deleteDataList(2, Storage::LessEqual);
    EXPECT_EQ(sorted(storage->validID(0, 100)), (IDs{3, 4, 5}));
    storage->deleteDataList(0, Storage::Greater);
    EXPECT_TRUE(storage->validID(0, 100).empty());
}

// By field

TEST_F(Selections, BlockSelectsLiveItems)
{
    EXPECT_EQ(idsOf(storage->queryDataListByField("Block", anyType, 3, Storage::Equal)), (IDs{1, 2}));
    EXPECT_EQ(idsOf(storage->queryDataListByField("Block", anyType, 5, Storage::Equal)), (IDs{5}));
    EXPECT_EQ(idsOf(storage->queryDataListByField("Block", anyType, 4, Storage::GreaterEqual)), (IDs{3, 4, 5}));
    EXPECT_EQ(storage->queryValueListByField("Block", anyType, 3, Storage::Equal).size(), 2U);
}

TEST_F(Selections, FieldTypeIsNotConsulted)
{
    for (const int type : {0, 1, 2, 3, 77})
        EXPECT_EQ(
            storage->queryValueListByField("Block", static_cast<Storage::FieldType>(type), 3, Storage::Equal).size(),
            2U);
}

TEST_F(Selections, BlockAbove255EqualsNoneAndIsGreaterThanAll)
{
    EXPECT_TRUE(storage->queryValueListByField("Block", anyType, 259, Storage::Equal).empty());
    EXPECT_EQ(storage->queryValueListByField("Block", anyType, 259, Storage::Less).size(), 5U);
}

TEST_F(Selections, ArgumentIsConvertedToAnUnsignedNumber)
{
    EXPECT_EQ(storage->queryValueListByField("Block", anyType, "3", Storage::Equal).size(), 2U);
    EXPECT_EQ(storage->queryValueListByField("Block", anyType, 3.4, Storage::Equal).size(), 2U);
    EXPECT_EQ(storage->queryValueListByField("Block", anyType, -1, Storage::Less).size(), 5U);
    EXPECT_EQ(storage->queryValueListByField("Block", anyType, "no number", Storage::Greater).size(), 5U);
    EXPECT_EQ(storage->queryValueListByField("Block", anyType, CkelVariant(), Storage::Greater).size(), 5U);
}

TEST_F(Selections, MarkSelectsDeletedItemsToo)
{
    EXPECT_EQ(storage->validIDByDirty(DirtyDeleted, Storage::Equal), (IDs{6}));
    const auto records = storage->queryDataListByField("Dirty", anyType, 3, Storage::Equal);
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].ID, 0U) << "the list operation no longer sees it";
}

TEST_F(Selections, MarkOtherThanCleanIsWhatAwaitsSaving)
{
    storage->updateValue(1, 100, false);
    storage->insertData(makeItem(9, "nine", 9));
    EXPECT_EQ(sorted(storage->validIDByDirty(DirtyClean, Storage::NotEqual)), (IDs{1, 6, 9}));
    EXPECT_EQ(storage->queryDataListByField("Dirty", anyType, 0, Storage::NotEqual).size(), 3U);
}

TEST_F(Selections, DeletionByMarkAndBlock)
{
    storage->updateValue(1, 100, false);
    storage->deleteDataListByField("Dirty", anyType, 2, Storage::Equal);
    EXPECT_EQ(sorted(storage->validID(0, 100)), (IDs{2, 3, 4, 5}));
    storage->deleteDataListByField("Block", anyType, 4, Storage::Equal);
    EXPECT_EQ(sorted(storage->validID(0, 100)), (IDs{2, 5}));
}

TEST_F(Selections, OtherFieldsAreReportedUnderTheDeletesName)
{
    const std::string text = "CkelMemoryDataStorage::deleteDataListByField: Not Support ByField";
    for (const std::string field : {"RW", "block", "Block ", "ID", "Value", ""}) {
        testing::internal::CaptureStdout();
        EXPECT_TRUE(storage->queryValueListByField(field, anyType, 3, Storage::Equal).empty());
        EXPECT_TRUE(storage->queryDataListByField(field, anyType, 3, Storage::Equal).empty());
        storage->deleteDataListByField(field, anyType, 3, Storage::Equal);
        const std::string line = text + field + "\n";
        EXPECT_EQ(testing::internal::GetCapturedStdout(), line + line + line);
    }
    EXPECT_EQ(storage->validID(0, 100).size(), 5U);
}

TEST_F(Selections, EmptySelectionByFieldCallsNoListOperation)
{
    class Counting : public LoadedStorage
    {
    public:
        Counting() : LoadedStorage({makeItem(1, "one")}) {}
        using LoadedStorage::deleteDataList;
        using LoadedStorage::queryValueList;
        std::vector<CkelVariant> queryValueList(const IDs& ids) const override
        {
            ++calls;
            return LoadedStorage::queryValueList(ids);
        }
        void deleteDataList(const IDs& ids) override
        {
            ++calls;
            LoadedStorage::deleteDataList(ids);
        }
        mutable int calls = 0;
    };
    Counting counting;
    counting.queryValueListByField("Block", anyType, 200, Storage::Equal);
    counting.deleteDataListByField("Block", anyType, 200, Storage::Equal);
    EXPECT_EQ(counting.calls, 0);
    counting.queryValueListByField("Block", anyType, 4, Storage::Equal);
    EXPECT_EQ(counting.calls, 1);
}

// Nothing loaded

TEST_F(Selections, AreEmptyBeforeLoading)
{
    CkelMemoryDataStorage empty;
    for (const Storage::Operator op : allOperators) {
        EXPECT_TRUE(empty.queryValueList(1, op).empty());
        EXPECT_TRUE(empty.queryDataList(1, op).empty());
        EXPECT_TRUE(empty.queryFieldList(1, "Value", anyType, op).empty());
        EXPECT_TRUE(empty.queryValueListByField("Block", anyType, 0, op).empty());
        EXPECT_TRUE(empty.queryDataListByField("Dirty", anyType, 0, op).empty());
        empty.deleteDataList(1, op);
    }
    EXPECT_TRUE(empty.queryValueListBetween(0, 100).empty());
    empty.deleteDataListBetween(0, 100);
    empty.deleteDataListByField("Block", anyType, 0, Storage::Equal);
}

// Against a model

namespace {

bool compare(unsigned int left, int op, unsigned int right)
{
    switch (op) {
    case 1:
        return left == right;
    case 2:
        return left != right;
    case 3:
        return left < right;
    case 4:
        return left > right;
    case 5:
        return left <= right;
    case 6:
        return left >= right;
    default:
        return false;
    }
}

/// A random dictionary with random marks, and what it should select, found by looking at everything.
class RandomDictionary
{
public:
    explicit RandomDictionary(unsigned int seed) : m_engine(seed)
    {
        const unsigned int count = below(200);
        for (unsigned int i = 0; i < count; ++i) {
            tagStorageData item = makeItem(1 + below(300), "item" + std::to_string(i));
            item.Block = static_cast<std::uint8_t>(below(6));
            item.Dirty = static_cast<std::uint8_t>(below(4));
            m_items.emplace(item.ID, item);
        }
    }

    unsigned int below(unsigned int limit)
    {
        return std::uniform_int_distribution<unsigned int>(0, limit - 1)(m_engine);
    }

    std::vector<tagStorageData> records() const
    {
        std::vector<tagStorageData> list;
        for (const auto& [id, item] : m_items)
            list.push_back(item);
        return list;
    }

    template <typename Test>
    IDs select(Test test) const
    {
        IDs ids;
        for (const auto& [id, item] : m_items) {
            if (test(item))
                ids.push_back(id);
        }
        return ids;
    }

private:
    std::mt19937 m_engine;
    std::map<unsigned int, tagStorageData> m_items;
};

} // namespace

TEST_F(Selections, RandomDictionariesSelectWhatAModelSelects)
{
    const char* const given = std::getenv("KEL_TEST_SEED");
    const auto firstSeed = given ? static_cast<unsigned int>(std::strtoul(given, nullptr, 10)) : 1;
    for (unsigned int seed = firstSeed; seed < firstSeed + 60; ++seed) {
        SCOPED_TRACE("KEL_TEST_SEED=" + std::to_string(seed));
        RandomDictionary dictionary(seed);
        const LoadedStorage random(dictionary.records());
        const auto live = [](const tagStorageData& item) { return item.Dirty != 3; };

        const unsigned int first = dictionary.below(310);
        const unsigned int last = dictionary.below(310);
        EXPECT_EQ(sorted(random.validID(first, last)), dictionary.select([&](const tagStorageData& item) {
            return live(item) && item.ID >= first && item.ID < last;
        }));

        for (int op = -1; op <= 8; ++op) {
            const unsigned int id = dictionary.below(310);
            const unsigned int block = dictionary.below(8);
            const unsigned int mark = dictionary.below(5);
            const auto byID =
                dictionary.select([&](const tagStorageData& item) { return live(item) && compare(item.ID, op, id); });
            EXPECT_EQ(sorted(random.validID(id, operatorOf(op))), op == 1 ? IDs{id} : byID);
            const auto byBlock = dictionary.select(
                [&](const tagStorageData& item) { return live(item) && compare(item.Block, op, block); });
            EXPECT_EQ(sorted(random.validIDByBlock(block, operatorOf(op))), byBlock);
            EXPECT_EQ(idsOf(random.queryDataListByField("Block", anyType, block, operatorOf(op))), byBlock);
            EXPECT_EQ(sorted(random.validIDByDirty(mark, operatorOf(op))),
                      dictionary.select([&](const tagStorageData& item) { return compare(item.Dirty, op, mark); }));
        }
    }
}
