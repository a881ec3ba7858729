#include "datastorage/kelmemorydb.h"
#include "datastorage/kelsafememorystorage.h"
#include "kernel/kelthread.h"
#include "kernel/keltimer.h"
#include "tests/datastorage/sqlfile.h"
#include "tests/datastorage/storagefixture.h"
#include "tests/reliability/failingallocation.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <new>
#include <set>
#include <thread>
#include <vector>

using namespace Ombrin;
using namespace KelTest;

// The n-th allocation fails, for every n.

namespace {

using Storage = CkelAbstractDataStorage;

const bool sqliteWatched = FailingAllocation::watchSqlite();

constexpr const char* longText = "a text that is too long to be kept inside of a string object";

std::vector<tagStorageData> someItems()
{
    std::vector<tagStorageData> items;
    for (unsigned int id = 1; id <= 6; ++id)
        items.push_back(makeItem(id, "an item with a rather long name, number " + std::to_string(id), id));
    items[4].ValueT = ValueTypeText;
    items[4].Value = longText;
    items[5].Dirty = DirtyInserted;
    return items;
}

const std::string nameOfTwo = someItems()[1].NameID;

std::string textOf(const tagStorageData& item)
{
    std::string text = std::to_string(item.ID) + '|' + item.NameID;
    for (const int byte : {item.CommSource, item.DBSource, item.RW, item.Block, item.ValueT, item.Dirty})
        text += '|' + std::to_string(byte);
    for (const CkelVariant* value : {&item.Value, &item.DefValue, &item.Max, &item.Min})
        text += '|' + value->toStdString();
    return text;
}

/// Everything that a storage holds, in the order of the IDs.
std::vector<std::string> contentOf(const CkelMemoryDataStorage& storage)
{
    std::vector<std::string> content;
    for (const tagStorageData& item : storage.queryDataList(storage.validID(0, ~0U)))
        content.push_back(textOf(item));
    for (const unsigned int id : storage.validIDByDirty(DirtyDeleted, Storage::Equal))
        content.push_back(std::to_string(id) + "|deleted");
    std::sort(content.begin(), content.end());
    return content;
}

/// Every item is found by its name, and a name that leads nowhere would throw.
void expectIndexesAgree(const CkelMemoryDataStorage& storage)
{
    for (const unsigned int id : storage.validID(0, ~0U))
        EXPECT_EQ(storage.ID(storage.nameID(id)), id);
}

/// What came of one attempt.
struct Attempt
{
    bool hit;   ///< an allocation failed
    bool threw; ///< the caller heard of it
};

Attempt attempt(long n, const std::function<void()>& run, FailingAllocation::Extent extent = FailingAllocation::Once)
{
    Attempt result{false, false};
    const FailingAllocation failing(n, extent);
    try {
        run();
    } catch (const std::bad_alloc&) {
        result.threw = true;
    }
    result.hit = failing.hit();
    return result;
}

/// Tries for every n until nothing fails any more, which has to be a success; returns the number of fault points.
long walk(const std::function<Attempt(long)>& tryOne)
{
    constexpr long endless = 100000;
    for (long n = 1; n < endless; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        const Attempt result = tryOne(n);
        if (!result.hit) {
            EXPECT_FALSE(result.threw);
            return n - 1;
        }
        if (testing::Test::HasFailure())
            return n;
    }
    ADD_FAILURE() << "no end";
    return endless;
}

class OutOfMemory : public StorageTest
{
protected:
    OutOfMemory() { EXPECT_TRUE(sqliteWatched); }

    using Operation = std::function<void(CkelMemoryDataStorage&)>;

    /// `operation` either throws and leaves the storage as it was, without an event, or does all that it does
    /// otherwise. Returns the number of fault points.
    long allOrNothing(const Operation& operation)
    {
        return walk([&](long n) {
            LoadedStorage reference(someItems());
            const auto before = contentOf(reference);
            operation(reference);
            const auto after = contentOf(reference);
            const auto eventsOfSuccess = listener.take().size();

            LoadedStorage storage(someItems());
            const Attempt result = attempt(n, [&] { operation(storage); });
            EXPECT_EQ(contentOf(storage), result.threw ? before : after);
            EXPECT_EQ(listener.take().size(), result.threw ? 0U : eventsOfSuccess);
            expectIndexesAgree(storage);
            return result;
        });
    }

    /// A list operation may have done its first elements.
    long consistent(const Operation& operation)
    {
        return walk([&](long n) {
            LoadedStorage storage(someItems());
            const Attempt result = attempt(n, [&] { operation(storage); });
            expectIndexesAgree(storage);
            operation(storage); // works again
            return result;
        });
    }
};

} // namespace

TEST_F(OutOfMemory, ALookupThrowsOrAnswers)
{
    const auto lookups = [](CkelMemoryDataStorage& storage) {
        storage.queryValue(5);
        storage.queryValue(nameOfTwo);
        storage.queryData(nameOfTwo);
        storage.nameID(2);
        storage.ID(nameOfTwo);
        storage.queryField(2, "NameID", Storage::AnyFieldType);
        storage.queryValueList(std::vector<unsigned int>{1, 2, 5});
        storage.queryDataList(std::vector<std::string>{nameOfTwo});
        storage.queryDataListBetween(1, 4);
        storage.queryDataListByField("Dirty", Storage::AnyFieldType, 0, Storage::Equal);
        storage.queryFieldListBetween(1, 6, "Value", Storage::AnyFieldType);
    };
    EXPECT_GT(allOrNothing(lookups), 10);
}

TEST_F(OutOfMemory, AnUpdateWithItsEventIsDoneOrNot)
{
    EXPECT_GT(allOrNothing([](auto& storage) { storage.updateValue(1, 77.5, false); }), 0);
    EXPECT_GT(allOrNothing([](auto& storage) { storage.updateValue(nameOfTwo, 77.5, true); }), 0);
    EXPECT_GT(allOrNothing([](auto& storage) { storage.updateValue(5, std::string(longText) + "!", false); }), 2);
    EXPECT_GT(allOrNothing([](auto& storage) { storage.updateField(5, "Value", std::string(longText) + "!", true); }),
              2);
    EXPECT_GT(allOrNothing([](auto& storage) { storage.updateField(5, "Max", std::string(longText), true); }), 1);
}

TEST_F(OutOfMemory, AMergedUpdateWithItsEventIsDoneOrNot)
{
    // Events enough to make every part of the queue grow.
    for (int waiting = 0; waiting < 20; ++waiting) {
        SCOPED_TRACE(std::to_string(waiting) + " events wait");
        walk([&](long n) {
            LoadedStorage storage(someItems());
            for (int i = 0; i < waiting; ++i)
                storage.updateValue(1 + i % 2, 1000 + i, i % 3 == 0);
            const auto before = contentOf(storage);
            const Attempt result = attempt(n, [&] { storage.updateValue(3, 5000, true); });
            EXPECT_EQ(contentOf(storage) == before, result.threw);
            storage.updateValue(3, 5001, true);
            std::vector<double> ofThree;
            for (const Announcement& event : listener.take()) {
                if (event.id == 3)
                    ofThree.push_back(event.value.toDouble());
            }
            EXPECT_EQ(ofThree, std::vector<double>{5001}) << "merged, or the first of them never came to be";
            return result;
        });
    }
}

TEST_F(OutOfMemory, AWholeRecordIsUpdatedOrNot)
{
    tagStorageData text = someItems()[4];
    text.RW = 9;
    text.Value = std::string(longText) + "?";
    text.DefValue = std::string(longText) + "def";
    text.Max = std::string(longText) + "max";
    text.Min = std::string(longText) + "min";
    EXPECT_GT(allOrNothing([&](auto& storage) { storage.updateData(text, false); }), 5);
}

TEST_F(OutOfMemory, AnItemIsInsertedOrNot)
{
    const tagStorageData item = makeItem(77, "yet another item with a rather long name", 7);
    EXPECT_GT(allOrNothing([&](auto& storage) { storage.insertData(item); }), 3);
}

TEST_F(OutOfMemory, DeletionAndResetAreDoneOrNot)
{
    allOrNothing([](auto& storage) { storage.deleteData(nameOfTwo); });
    EXPECT_GT(allOrNothing([](auto& storage) { storage.deleteDataListBetween(2, 5); }), 0);
    EXPECT_GT(allOrNothing([](auto& storage) { storage.deleteDataList(3, Storage::Greater); }), 0);
    EXPECT_GT(
        allOrNothing([](auto& storage) { storage.deleteDataListByField("Block", {}, 4, Storage::Equal); }), 0);
    allOrNothing([](auto& storage) { storage.reset(); });
}

TEST_F(OutOfMemory, AListOperationLeavesWholeItems)
{
    EXPECT_GT(consistent([](auto& storage) {
                  storage.updateValueList(std::vector<unsigned int>{1, 2, 5}, {7.5, 8.5, longText}, false);
              }),
              0);
    EXPECT_GT(consistent([](auto& storage) { storage.updateFieldList({1, 2, 3}, "Value", {1.5, 2.5, 3.5}, true); }),
              0);
    EXPECT_GT(consistent([](auto& storage) { storage.updateDataList(someItems(), false); }), 0);
    EXPECT_GT(consistent([](auto& storage) {
                  if (storage.ID("number 78 of the items with long names") == 0)
                      storage.insertDataList({makeItem(77, "number 77 of the items with long names"),
                                              makeItem(78, "number 78 of the items with long names")});
              }),
              5);
}
