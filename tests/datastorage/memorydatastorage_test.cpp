#include "datastorage/kelitemindex.h"
#include "tests/datastorage/storagefixture.h"

#include <stdexcept>

using namespace Ombrin;
using namespace KelTest;

namespace {

using Storage = CkelAbstractDataStorage;

constexpr std::uint8_t clean = DirtyClean;
constexpr std::uint8_t inserted = DirtyInserted;
constexpr std::uint8_t modified = DirtyModified;

/// A storage of three items: 1 "one", 2 "two" and 42 "answer" of the values 1.0, 2.0 and 42.0.
class MemoryStorage : public StorageTest
{
protected:
    LoadedStorage storage{{makeItem(1, "one", 1), makeItem(2, "two", 2), makeItem(42, "answer", 42)}};
    Storage& interface = storage;

    std::uint8_t markOf(unsigned int id) { return storage.queryData(id).Dirty; }
    void setMark(unsigned int id, int mark) { storage.updateField(id, "Dirty", mark, false); }
};

class UnloadedStorage : public StorageTest
{
protected:
    CkelMemoryDataStorage storage;
    const std::vector<unsigned int> ids{1, 2};
    const std::vector<std::string> names{"one", "two"};
};

/// Explicit instantiation may name a private member: the one way to make the two indexes disagree, which no operation
/// of the storage leaves behind.
template <auto Member>
struct Reach
{
    friend auto& idIndexOf(CkelMemoryDataStorage& storage) { return storage.*Member; }
};
auto& idIndexOf(CkelMemoryDataStorage& storage);
template struct Reach<&CkelMemoryDataStorage::m_idMap>;

} // namespace

// Construction

TEST_F(UnloadedStorage, ClassNameIsInTheChain)
{
    EXPECT_EQ(storage.className(), "CkelMemoryDataStorage");
    EXPECT_TRUE(storage.inherits("CkelAbstractDataStorage"));
}

TEST_F(UnloadedStorage, BelongsToItsParent)
{
    CkelObject parent;
    auto* const child = new CkelMemoryDataStorage(&parent);
    EXPECT_EQ(child->parent(), &parent);
}

TEST_F(UnloadedStorage, OffersAnUnlockedMutex)
{
    CkelMutex* const mutex = storage.mutex();
    ASSERT_NE(mutex, nullptr);
    EXPECT_EQ(storage.mutex(), mutex);
    const bool locked = mutex->tryLock();
    if (locked)
        mutex->unlock();
    EXPECT_TRUE(locked);
}

TEST_F(UnloadedStorage, LookupsMiss)
{
    EXPECT_EQ(storage.nameID(1), "");
    EXPECT_EQ(storage.ID("one"), 0U);
    EXPECT_EQ(storage.commSource(1), 0U);
    EXPECT_EQ(storage.commSource("one"), 0U);
    EXPECT_TRUE(storage.queryValue(1).isNull());
    EXPECT_TRUE(storage.queryValue("one").isNull());
    EXPECT_EQ(storage.queryData(1).ID, 0U);
    EXPECT_EQ(storage.queryData("one").ID, 0U);
    EXPECT_TRUE(storage.queryField(1, "Value", anyType).isNull());
    EXPECT_TRUE(storage.queryField("one", "Value", anyType).isNull());
}

TEST_F(UnloadedStorage, ListsHaveOneEmptyResultForEachElement)
{
    EXPECT_EQ(storage.nameIDList(ids), std::vector<std::string>(2));
    EXPECT_EQ(storage.IDList(names), std::vector<unsigned int>(2));
    EXPECT_EQ(storage.commSourceList(ids), std::vector<unsigned int>(2));
    EXPECT_EQ(storage.commSourceList(names), std::vector<unsigned int>(2));
    EXPECT_EQ(storage.queryValueList(ids).size(), 2U);
    EXPECT_EQ(storage.queryValueList(names).size(), 2U);
    EXPECT_EQ(storage.queryDataList(ids).size(), 2U);
    EXPECT_EQ(storage.queryDataList(names).size(), 2U);
    EXPECT_EQ(storage.queryFieldList(ids, "Value", anyType).size(), 2U);
    EXPECT_EQ(storage.queryFieldList(names, "Value", anyType).size(), 2U);
}

TEST_F(UnloadedStorage, ChangesDoNothingAndPrintNothing)
{
    testing::internal::CaptureStdout();
    storage.insertData(makeItem(1, "one"));
    storage.insertDataList({makeItem(1, "one"), makeItem(1, "one")});
    storage.deleteData(1);
    storage.deleteData("one");
    EXPECT_TRUE(storage.updateValue(1, 5, false).isNull());
    EXPECT_TRUE(storage.updateValue("one", 5, false).isNull());
    storage.updateField(1, "RW", 1, false);
    storage.updateField(1, "Dirty", 2, false);
    storage.updateField("one", "RW", 1, false);
    storage.updateData(makeItem(1, "one", 5), false);
    storage.reset();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(storage.queryData(1).ID, 0U);
    EXPECT_TRUE(listener.take().empty());
}

// Lookups

TEST_F(MemoryStorage, FindsByIDAndByName)
{
    EXPECT_EQ(storage.nameID(42), "answer");
    EXPECT_EQ(storage.ID("answer"), 42U);
    EXPECT_EQ(storage.commSource(42), 2U);
    EXPECT_EQ(storage.commSource("answer"), 2U);
    EXPECT_VARIANT(storage.queryValue(42), 42.0);
    EXPECT_VARIANT(storage.queryValue("answer"), 42.0);
    EXPECT_EQ(storage.queryData(42).NameID, "answer");
    EXPECT_EQ(storage.queryData("answer").ID, 42U);
}

TEST_F(MemoryStorage, MissesGiveEmptyResults)
{
    EXPECT_EQ(storage.nameID(3), "");
    EXPECT_EQ(storage.ID("three"), 0U);
    EXPECT_EQ(storage.commSource(3), 0U);
    EXPECT_EQ(storage.commSource("three"), 0U);
    EXPECT_TRUE(storage.queryValue(3).isNull());
    EXPECT_TRUE(storage.queryValue("three").isNull());
    EXPECT_EQ(storage.queryData(3).ID, 0U);
    EXPECT_EQ(storage.queryData("three").ID, 0U);
}

TEST_F(MemoryStorage, DeletedItemIsInvisibleToEveryLookup)
{
    storage.deleteData(42);
    EXPECT_EQ(storage.nameID(42), "");
    EXPECT_EQ(storage.ID("answer"), 0U);
    EXPECT_EQ(storage.commSource(42), 0U);
    EXPECT_EQ(storage.commSource("answer"), 0U);
    EXPECT_TRUE(storage.queryValue(42).isNull());
    EXPECT_TRUE(storage.queryValue("answer").isNull());
    EXPECT_EQ(storage.queryData(42).ID, 0U);
    EXPECT_EQ(storage.queryData("answer").ID, 0U);
}

TEST_F(MemoryStorage, QueriedRecordIsAWholeCopy)
{
    tagStorageData item = makeItem(7, "seven", 7);
    item.Reserved[3] = "spare";
    LoadedStorage other({item});
    other.updateValue(7, 8, false);
    const tagStorageData copy = other.queryData(7);
    EXPECT_EQ(copy.DBSource, 1);
    EXPECT_EQ(copy.Dirty, modified);
    EXPECT_VARIANT(copy.Value, 8.0);
    EXPECT_VARIANT(copy.Reserved[3], "spare");
}

TEST_F(MemoryStorage, NameThatLeadsToAMissingIDThrows)
{
    idIndexOf(storage)->erase(42);
    try {
        storage.ID("answer");
        FAIL() << "nothing was thrown";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "_Map_base::at");
    }
    EXPECT_THROW(storage.queryValue("answer"), std::out_of_range);
    EXPECT_THROW(storage.updateValue("answer", 1, false), std::out_of_range);
    EXPECT_VARIANT(storage.queryValue("one"), 1.0);
}

TEST_F(MemoryStorage, ListsKeepOrderAndMisses)
{
    const std::vector<unsigned int> ids{42, 3, 1, 42};
    const std::vector<std::string> names{"answer", "three", "one", "answer"};
    EXPECT_EQ(storage.nameIDList(ids), (std::vector<std::string>{"answer", "", "one", "answer"}));
    EXPECT_EQ(storage.IDList(names), (std::vector<unsigned int>{42, 0, 1, 42}));
    EXPECT_EQ(storage.commSourceList(ids), (std::vector<unsigned int>{2, 0, 2, 2}));
    EXPECT_EQ(storage.commSourceList(names), (std::vector<unsigned int>{2, 0, 2, 2}));
    for (const auto& values : {storage.queryValueList(ids), storage.queryValueList(names)}) {
        ASSERT_EQ(values.size(), 4U);
        EXPECT_VARIANT(values[0], 42.0);
        EXPECT_TRUE(values[1].isNull());
        EXPECT_VARIANT(values[2], 1.0);
        EXPECT_VARIANT(values[3], 42.0);
    }
    for (const auto& records : {storage.queryDataList(ids), storage.queryDataList(names)}) {
        ASSERT_EQ(records.size(), 4U);
        EXPECT_EQ(records[0].NameID, "answer");
        EXPECT_EQ(records[1].ID, 0U);
        EXPECT_EQ(records[2].NameID, "one");
    }
}

TEST_F(MemoryStorage, EmptyListsGiveEmptyLists)
{
    const std::vector<unsigned int> noIDs;
    const std::vector<std::string> noNames;
    EXPECT_TRUE(storage.nameIDList(noIDs).empty());
    EXPECT_TRUE(storage.IDList(noNames).empty());
    EXPECT_TRUE(storage.commSourceList(noIDs).empty());
    EXPECT_TRUE(storage.commSourceList(noNames).empty());
    EXPECT_TRUE(storage.queryValueList(noIDs).empty());
    EXPECT_TRUE(storage.queryValueList(noNames).empty());
    EXPECT_TRUE(storage.queryDataList(noIDs).empty());
    EXPECT_TRUE(storage.queryDataList(noNames).empty());
}

TEST_F(MemoryStorage, ChannelsByNameThroughTheInterfaceAreAnEmptyList)
{
    const std::vector<std::string> names{"one"};
    const CkelMemoryDataStorage& constant = storage;
    EXPECT_TRUE(interface.commSourceList(names).empty());
    EXPECT_TRUE(constant.commSourceList(names).empty());
    EXPECT_EQ(storage.commSourceList(names), (std::vector<unsigned int>{2}));
}

TEST_F(MemoryStorage, ListsCallTheSingleOperationThroughTheInterface)
{
    class Doubling : public LoadedStorage
    {
    public:
        Doubling() : LoadedStorage({makeItem(1, "one", 1)}) {}
        using LoadedStorage::queryValue;
        CkelVariant queryValue(unsigned int id) const override { return 2 * LoadedStorage::queryValue(id).toDouble(); }
    };
    const Doubling doubling;
    EXPECT_VARIANT(doubling.queryValueList(std::vector<unsigned int>{1}).at(0), 2.0);
}

TEST_F(MemoryStorage, FirstOfEqualIDsAndNamesIsIndexed)
{
    LoadedStorage other({makeItem(1, "a", 1), makeItem(1, "b", 2), makeItem(2, "a", 3)});
    EXPECT_VARIANT(other.queryValue(1), 1.0);
    EXPECT_EQ(other.nameID(1), "a");
    EXPECT_EQ(other.ID("a"), 1U);
    EXPECT_EQ(other.ID("b"), 1U);
    EXPECT_EQ(other.nameID(2), "a");
}

TEST_F(MemoryStorage, NamesMayHoldAnyBytes)
{
    const std::string odd("a\0'\";\xff", 6);
    storage.insertData(makeItem(5, odd, 5));
    storage.insertData(makeItem(6, "", 6));
    EXPECT_EQ(storage.ID(odd), 5U);
    EXPECT_EQ(storage.ID("a"), 0U);
    EXPECT_EQ(storage.ID(""), 6U);
}

// Insertion

TEST_F(MemoryStorage, InsertedItemIsMarkedInsertedWhateverItsMarkWas)
{
    tagStorageData item = makeItem(5, "five", 5);
    item.Dirty = DirtyDeleted;
    storage.insertData(item);
    EXPECT_EQ(storage.queryData("five").ID, 5U);
    EXPECT_EQ(markOf(5), inserted);
}

TEST_F(MemoryStorage, InsertedValuesAreKeptUnconverted)
{
    tagStorageData item = makeItem(5, "five");
    item.Value = "text";
    storage.insertData(item);
    EXPECT_VARIANT(storage.queryValue(5), "text");
}

TEST_F(MemoryStorage, InsertingIDZeroDoesNothing)
{
    storage.insertData(makeItem(0, "zero"));
    EXPECT_EQ(storage.ID("zero"), 0U);
    EXPECT_EQ(storage.queryData("zero").ID, 0U);
}

TEST_F(MemoryStorage, InsertingAPresentIDIsReportedAndChangesNothing)
{
    testing::internal::CaptureStdout();
    storage.insertData(makeItem(42, "other", 5));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "CkelMemoryDataStorage::insertData: ID= 42 Already Exists\n");
    EXPECT_EQ(storage.nameID(42), "answer");
    EXPECT_VARIANT(storage.queryValue(42), 42.0);
    EXPECT_EQ(markOf(42), clean);
    EXPECT_EQ(storage.ID("other"), 0U);
}

TEST_F(MemoryStorage, InsertedIDAbove31BitsIsReportedUnsigned)
{
    storage.insertData(makeItem(4294967295U, "last"));
    testing::internal::CaptureStdout();
    storage.insertData(makeItem(4294967295U, "last"));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "CkelMemoryDataStorage::insertData: ID= 4294967295 Already Exists\n");
}

TEST_F(MemoryStorage, InsertingADeletedIDRevivesTheOldItem)
{
    storage.deleteData(42);
    testing::internal::CaptureStdout();
    storage.insertData(makeItem(42, "other", 5));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(storage.nameID(42), "answer");
    EXPECT_VARIANT(storage.queryValue(42), 42.0);
    EXPECT_EQ(markOf(42), inserted);
    EXPECT_EQ(storage.ID("other"), 0U);
}

TEST_F(MemoryStorage, InsertingAKnownNameKeepsTheNamesEntry)
{
    storage.insertData(makeItem(5, "one", 5));
    EXPECT_EQ(storage.ID("one"), 1U);
    EXPECT_EQ(storage.nameID(5), "one");
    EXPECT_VARIANT(storage.queryValue(5), 5.0);
}

TEST_F(MemoryStorage, InsertsListsInOrder)
{
    testing::internal::CaptureStdout();
    storage.insertDataList({makeItem(5, "five", 5), makeItem(0, "zero"), makeItem(5, "again", 6), makeItem(6, "six")});
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "CkelMemoryDataStorage::insertData: ID= 5 Already Exists\n");
    EXPECT_VARIANT(storage.queryValue(5), 5.0);
    EXPECT_EQ(storage.ID("six"), 6U);
}

TEST_F(MemoryStorage, InsertionAnnouncesNothing)
{
    storage.insertData(makeItem(5, "five", 5));
    EXPECT_TRUE(listener.take().empty());
}

// Deletion

TEST_F(MemoryStorage, DeletesByNameAndInLists)
{
    storage.deleteData("one");
    EXPECT_EQ(storage.ID("one"), 0U);
    storage.deleteDataList(std::vector<unsigned int>{2, 99, 0});
    EXPECT_EQ(storage.nameID(2), "");
    storage.deleteDataList(std::vector<std::string>{"nobody", "answer"});
    EXPECT_EQ(storage.nameID(42), "");
    EXPECT_TRUE(listener.take().empty());
}

TEST_F(MemoryStorage, DeletingUnknownItemsDoesNothing)
{
    storage.deleteData(0U);
    storage.deleteData(99);
    storage.deleteData("nobody");
    EXPECT_EQ(storage.nameIDList({1, 2, 42}), (std::vector<std::string>{"one", "two", "answer"}));
}

TEST_F(MemoryStorage, DeletesInEveryState)
{
    for (const int mark : {0, 1, 2, 3}) {
        setMark(42, mark);
        storage.deleteData(42);
        EXPECT_EQ(storage.queryData(42).ID, 0U) << "mark " << mark;
        setMark(42, 0);
    }
}

// Updates of values

TEST_F(MemoryStorage, UpdateStoresMarksAnnouncesAndReturnsTheOldValue)
{
    EXPECT_VARIANT(storage.updateValue(42, 43.5, false), 42.0);
    EXPECT_VARIANT(storage.queryValue(42), 43.5);
    EXPECT_EQ(markOf(42), modified);
    const auto events = listener.take();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].id, 42U);
    EXPECT_VARIANT(events[0].value, 43.5);
    EXPECT_EQ(events[0].sensorType, 10);
    EXPECT_EQ(events[0].merge, 0);
}

TEST_F(MemoryStorage, UpdateHandsTheMergeFlagOn)
{
    storage.updateValue(42, 43, true);
    storage.updateValue(42, 44, true);
    const auto events = listener.take();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].merge, 1);
    EXPECT_VARIANT(events[0].value, 44.0);
}

TEST_F(MemoryStorage, IDAbove31BitsComesBackFromTheEvent)
{
    storage.insertData(makeItem(4294967295U, "last"));
    storage.updateValue(4294967295U, 1, false);
    const auto events = listener.take();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].id, 4294967295U);
}

TEST_F(MemoryStorage, UpdateConvertsToTheItemsType)
{
    storage.updateValue(42, "  7.25 ", false);
    EXPECT_VARIANT(storage.queryValue(42), 7.25);
    storage.updateValue(42, true, false);
    EXPECT_VARIANT(storage.queryValue(42), 1.0);
}

TEST_F(MemoryStorage, UpdateByNameDoesTheSame)
{
    EXPECT_VARIANT(storage.updateValue("answer", 43, true), 42.0);
    EXPECT_VARIANT(storage.queryValue(42), 43.0);
    EXPECT_EQ(listener.take().size(), 1U);
}

TEST_F(MemoryStorage, UpdateOfAMissingItemReturnsNull)
{
    storage.deleteData(1);
    EXPECT_TRUE(storage.updateValue(99, 5, false).isNull());
    EXPECT_TRUE(storage.updateValue("nobody", 5, false).isNull());
    EXPECT_TRUE(storage.updateValue(1, 5, false).isNull());
    EXPECT_TRUE(storage.updateValue("one", 5, false).isNull());
    EXPECT_TRUE(listener.take().empty());
}

TEST_F(MemoryStorage, UpdateOfADeletedItemLeavesItUntouched)
{
    storage.deleteData(1);
    storage.updateValue(1, 5, false);
    storage.updateData(makeItem(1, "one", 5), false);
    setMark(1, 0);
    EXPECT_VARIANT(storage.queryValue(1), 1.0);
}

TEST_F(MemoryStorage, UpdateWithANullVariantChangesNothing)
{
    EXPECT_VARIANT(storage.updateValue(42, CkelVariant(), false), 42.0);
    EXPECT_VARIANT(storage.queryValue(42), 42.0);
    EXPECT_EQ(markOf(42), clean);
    EXPECT_TRUE(listener.take().empty());
}

TEST_F(MemoryStorage, UpdateWithAnEqualValueChangesNothing)
{
    EXPECT_VARIANT(storage.updateValue(42, "42", false), 42.0);
    EXPECT_EQ(markOf(42), clean);
    EXPECT_TRUE(listener.take().empty());
}

TEST_F(MemoryStorage, UpdateThatEqualsTheStoredValueKeepsItsType)
{
    tagStorageData item = makeItem(5, "five");
    item.Value = 7; // as a dictionary writes it: an int for a double item
    LoadedStorage other({item});
    other.updateValue(5, 7.0, false);
    EXPECT_VARIANT(other.queryValue(5), 7);
    EXPECT_EQ(other.queryData(5).Dirty, clean);
}

TEST_F(MemoryStorage, UpdateWithAValueThatCannotBeConvertedMakesItNull)
{
    EXPECT_VARIANT(storage.updateValue(42, "12a", false), 42.0);
    EXPECT_TRUE(storage.queryValue(42).isNull());
    EXPECT_EQ(markOf(42), modified);
    const auto events = listener.take();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_TRUE(events[0].value.isNull());

    EXPECT_TRUE(storage.updateValue(42, "12b", false).isNull());
    EXPECT_TRUE(listener.take().empty()) << "null again is no change";
}

TEST_F(MemoryStorage, ItemWithoutAStoredFormBecomesNull)
{
    for (const std::uint8_t type : {std::uint8_t{0}, std::uint8_t{15}, std::uint8_t{17}}) {
        tagStorageData item = makeItem(5, "five", 5);
        item.ValueT = type;
        LoadedStorage other({item});
        other.updateValue(5, 6, false);
        EXPECT_TRUE(other.queryValue(5).isNull());
    }
}

TEST_F(MemoryStorage, RepeatedNaNIsNoChange)
{
    storage.updateValue(42, "nan", false);
    EXPECT_EQ(listener.take().size(), 1U);
    storage.updateValue(42, "nan", false);
    EXPECT_TRUE(listener.take().empty());
}

TEST_F(MemoryStorage, UpdateOfAnInsertedItemMarksItModified)
{
    setMark(42, inserted);
    storage.updateValue(42, 43, false);
    EXPECT_EQ(markOf(42), modified);
}

TEST_F(MemoryStorage, BoundsAreNotApplied)
{
    storage.updateValue(42, 1e9, false);
    EXPECT_VARIANT(storage.queryValue(42), 1e9);
}

TEST_F(MemoryStorage, UpdateConvertsThroughTheInterface)
{
    class Fixed : public LoadedStorage
    {
    public:
        Fixed() : LoadedStorage({makeItem(1, "one", 1)}) {}
        CkelVariant toStoreValue(unsigned int /*valueType*/, const CkelVariant& /*value*/) const override
        {
            return "fixed";
        }
    };
    Fixed fixed;
    fixed.updateValue(1, 5, false);
    EXPECT_VARIANT(fixed.queryValue(1), "fixed");
}

TEST_F(MemoryStorage, EventIsPostedAfterTheValueIsStored)
{
    struct Reader : CkelObject
    {
        explicit Reader(Storage& source) : storage(source) {}
        void dataSensorEvent(CkelDataSensorEvent* event) override { seen = storage.queryValue(event->id()); }
        Storage& storage;
        CkelVariant seen;
    };
    Reader reader(storage);
    CkelApplicationPlus::dataSensor()->attach(&reader);
    storage.updateValue(42, 43, false);
    EXPECT_TRUE(reader.seen.isNull()) << "no handler runs inside the update";
    application.processEvents();
    EXPECT_VARIANT(reader.seen, 43.0);
}

TEST_F(MemoryStorage, ValueListsUpdateInOrder)
{
    storage.updateValueList(std::vector<unsigned int>{1, 99, 2, 1}, {5, 6, 7, 8}, false);
    EXPECT_VARIANT(storage.queryValue(1), 8.0);
    EXPECT_VARIANT(storage.queryValue(2), 7.0);
    const auto events = listener.take();
    ASSERT_EQ(events.size(), 3U);
    EXPECT_VARIANT(events[0].value, 5.0);
    EXPECT_VARIANT(events[2].value, 8.0);

    storage.updateValueList(std::vector<std::string>{"one", "nobody"}, {9, 10}, true);
    EXPECT_VARIANT(storage.queryValue(1), 9.0);
    EXPECT_EQ(listener.take().at(0).merge, 1);
}

TEST_F(MemoryStorage, ListsThatDoNotPairUpUpdateNothing)
{
    const std::vector<unsigned int> ids{1, 2, 42};
    const std::vector<std::string> names{"one", "two", "answer"};
    storage.updateValueList(ids, {7, 8}, false);
    storage.updateValueList(names, {7, 8}, false);
    storage.updateValueList(std::vector<unsigned int>(), {7}, false);
    storage.updateValueList(std::vector<unsigned int>(), {}, false);
    storage.updateValueList(std::vector<std::string>(), {}, false);
    EXPECT_VARIANT(storage.queryValue(1), 1.0);
    EXPECT_TRUE(listener.take().empty());
}

// Updates of records

TEST_F(MemoryStorage, RecordUpdateTakesEverythingButNameAndReserved)
{
    tagStorageData record{};
    record.ID = 42;
    record.NameID = "renamed";
    record.CommSource = 11;
    record.DBSource = 12;
    record.RW = 13;
    record.Block = 14;
    record.ValueT = 2;
    record.Value = "17";
    record.DefValue = 1.6;
    record.Max = "99";
    record.Min = -1;
    record.Reserved[0] = 5;
    storage.updateData(record, true);

    const tagStorageData item = storage.queryData(42);
    EXPECT_EQ(item.NameID, "answer");
    EXPECT_EQ(item.CommSource, 11);
    EXPECT_EQ(item.DBSource, 12);
    EXPECT_EQ(item.RW, 13);
    EXPECT_EQ(item.Block, 14);
    EXPECT_EQ(item.ValueT, 2);
    EXPECT_VARIANT(item.Value, 17LL);
    EXPECT_VARIANT(item.DefValue, 2LL);
    EXPECT_VARIANT(item.Max, 99LL);
    EXPECT_VARIANT(item.Min, -1LL);
    EXPECT_TRUE(item.Reserved[0].isNull());
    EXPECT_EQ(item.Dirty, modified);
    const auto events = listener.take();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_VARIANT(events[0].value, 17LL);
    EXPECT_EQ(events[0].merge, 1);
}

TEST_F(MemoryStorage, RecordUpdateWithIdenticalContentsStillMarksModified)
{
    storage.updateData(storage.queryData(42), false);
    EXPECT_EQ(markOf(42), modified);
    EXPECT_TRUE(listener.take().empty());
}

TEST_F(MemoryStorage, RecordUpdateKeepsTheMarkOfAnInsertedItem)
{
    setMark(42, inserted);
    storage.updateData(makeItem(42, "answer", 5), false);
    EXPECT_EQ(markOf(42), inserted);
    EXPECT_VARIANT(storage.queryValue(42), 5.0);
    EXPECT_EQ(listener.take().size(), 1U);
}

TEST_F(MemoryStorage, RecordUpdateIgnoresTheMarkOfTheRecord)
{
    tagStorageData record = storage.queryData(42);
    record.Dirty = DirtyDeleted;
    storage.updateData(record, false);
    EXPECT_EQ(markOf(42), modified);
}

TEST_F(MemoryStorage, RecordUpdateWithANullValueMakesItNull)
{
    tagStorageData record = storage.queryData(42);
    record.Value = CkelVariant();
    storage.updateData(record, false);
    EXPECT_TRUE(storage.queryValue(42).isNull());
    EXPECT_EQ(listener.take().size(), 1U);
}

TEST_F(MemoryStorage, RecordUpdateOfAMissingItemDoesNothing)
{
    storage.updateData(makeItem(99, "nobody", 5), false);
    storage.updateData(makeItem(0, "one", 5), false);
    EXPECT_EQ(storage.queryData(99).ID, 0U);
    EXPECT_VARIANT(storage.queryValue("one"), 1.0);
    EXPECT_TRUE(listener.take().empty());
}

TEST_F(MemoryStorage, RecordListsUpdateInOrder)
{
    storage.updateDataList({makeItem(1, "", 5), makeItem(99, "", 6), makeItem(1, "", 7)}, false);
    EXPECT_VARIANT(storage.queryValue(1), 7.0);
    EXPECT_EQ(listener.take().size(), 2U);
}

// Reset

TEST_F(MemoryStorage, ResetCopiesDefaultsUnconvertedAndMarksEverything)
{
    tagStorageData item = makeItem(5, "five", 5);
    item.DefValue = "text";
    storage.insertData(item);
    storage.deleteData(1);
    storage.reset();
    EXPECT_VARIANT(storage.queryValue(5), "text");
    EXPECT_VARIANT(storage.queryValue(42), 10.0);
    EXPECT_VARIANT(storage.queryValue(1), 10.0) << "a deleted item comes back";
    for (const unsigned int id : {1U, 2U, 5U, 42U})
        EXPECT_EQ(markOf(id), modified) << id;
    EXPECT_TRUE(listener.take().empty());
}

// Derived storages

namespace {

/// Knows an alias of "answer", and answers for item 42 itself.
class AliasedStorage : public LoadedStorage
{
public:
    AliasedStorage() : LoadedStorage({makeItem(42, "answer", 42)}) {}

    using LoadedStorage::commSource;
    using LoadedStorage::ID;
    using LoadedStorage::queryData;
    using LoadedStorage::queryValue;

    unsigned int ID(const std::string& nameID) const override
    {
        return nameID == "alias" ? 42 : LoadedStorage::ID(nameID);
    }
    unsigned int commSource(unsigned int id) const override { return LoadedStorage::commSource(id) + 100; }
    CkelVariant queryValue(unsigned int id) const override { return LoadedStorage::queryValue(id).toDouble() + 100; }
    tagStorageData queryData(unsigned int id) const override
    {
        tagStorageData record = LoadedStorage::queryData(id);
        record.Block = 99;
        return record;
    }
};

class DerivedStorage : public StorageTest
{
protected:
    AliasedStorage storage;
    const std::vector<std::string> names{"alias", "answer"};
};

} // namespace

TEST_F(DerivedStorage, ChannelByNameIsTheChannelOfTheNamesID)
{
    EXPECT_EQ(storage.commSource("alias"), 102U);
    EXPECT_EQ(storage.commSourceList(names), (std::vector<unsigned int>{102, 102}));
    EXPECT_EQ(storage.commSource("nobody"), 0U) << "without an ID no channel is asked for";
}

TEST_F(DerivedStorage, ValueByNameIsTheValueOfTheNamesID)
{
    EXPECT_VARIANT(storage.queryValue("alias"), 142.0);
    EXPECT_VARIANT(storage.queryValueList(names)[1], 142.0);
}

TEST_F(DerivedStorage, RecordByNameIsTheRecordOfTheNamesID)
{
    EXPECT_EQ(storage.queryData("alias").Block, 99);
    EXPECT_EQ(storage.queryDataList(names)[1].Block, 99);
}

TEST_F(DerivedStorage, FieldByNameIsTheFieldOfTheNamesID)
{
    EXPECT_VARIANT(storage.queryField("alias", "Block", anyType), 99);
    EXPECT_VARIANT(storage.queryFieldList(names, "Block", anyType)[1], 99);
}
