#include "datastorage/kelmemorydb.h"
#include "datastorage/kelsafememorystorage.h"
#include "kernel/kelthread.h"
#include "kernel/keltimer.h"
#include "tests/datastorage/sqlfile.h"
#include "tests/datastorage/storagefixture.h"
#include "tests/reliability/failingallocation.h"
#include "tests/reliability/faultyvfs.h"

#include <algorithm>
#include <atomic>
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

/// As many as the indexes have room for: the next one needs more.
std::vector<tagStorageData> someItems()
{
    std::vector<tagStorageData> items;
    for (unsigned int id = 1; id <= 8; ++id)
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
    const FaultyVfs undisturbed; // no time is spent on the disk

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
                storage.updateValue(1U + static_cast<unsigned int>(i) % 2, 1000 + i, i % 3 == 0);
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
    text.Value = -1.2345678901234567e-100; // numbers, so that each has to become a text
    text.DefValue = -2.2345678901234567e-100;
    text.Max = -3.2345678901234567e-100;
    text.Min = -4.2345678901234567e-100;
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
    EXPECT_GT(allOrNothing([](auto& storage) { storage.deleteDataListByField("Block", {}, 4, Storage::Equal); }), 0);
    allOrNothing([](auto& storage) { storage.reset(); });
}

TEST_F(OutOfMemory, AListOperationLeavesWholeItems)
{
    EXPECT_GT(consistent([](auto& storage) {
                  storage.updateValueList(std::vector<unsigned int>{1, 2, 5}, {7.5, 8.5, longText}, false);
              }),
              0);
    EXPECT_GT(consistent([](auto& storage) { storage.updateFieldList({1, 2, 3}, "Value", {1.5, 2.5, 3.5}, true); }), 0);
    EXPECT_GT(consistent([](auto& storage) { storage.updateDataList(someItems(), false); }), 0);
    EXPECT_GT(consistent([](auto& storage) {
                  if (storage.ID("number 78 of the items with long names") == 0)
                      storage.insertDataList({makeItem(77, "number 77 of the items with long names"),
                                              makeItem(78, "number 78 of the items with long names")});
              }),
              5);
}

// Loading and saving

namespace {

void writeDictionary(const std::string& path, int count, const std::string& value)
{
    std::ofstream file(path);
    file << R"({"kel":[)";
    for (int id = 1; id <= count; ++id)
        file << (id > 1 ? "," : "") << R"({"ID":)" << id << R"(,"NameID":"an item with a rather long name, number )"
             << id << R"(","CommSource":1,"DBSource":1,"RW":1,"Block":2,"ValueT":)" << (id == 3 ? 10 : 9)
             << R"(,"Value":)" << value << R"(,"DefValue":0,"Max":9,"Min":0})";
    file << "]}";
}

/// Rows in a file of their own; the text is empty when the file cannot be read or is damaged.
std::string valuesIn(const std::string& file)
{
    SqlFile database(file);
    if (database.row("PRAGMA integrity_check") != "ok")
        return "damaged";
    std::string text;
    for (const std::string& row : database.rows("SELECT ID, Value FROM kel ORDER BY ID"))
        text += row + ' ';
    return text;
}

} // namespace

TEST_F(OutOfMemory, ADictionaryIsLoadedOrTheLastOneStays)
{
    writeDictionary("old.json", 3, "1.5");
    writeDictionary("new.json", 4, "2.5");
    const long points = walk([](long n) {
        CkelMemoryDataStorage storage;
        EXPECT_TRUE(storage.readJsonFile("old.json"));
        const Attempt result = attempt(n, [&] { EXPECT_TRUE(storage.readJsonFile("new.json")); });
        EXPECT_VARIANT(storage.queryValue(1), result.threw ? 1.5 : 2.5);
        EXPECT_EQ(storage.validID(0, ~0U).size(), result.threw ? 3U : 4U);
        expectIndexesAgree(storage);
        storage.createLocalDB(); // from the records last read, which belong to the indexes
        EXPECT_EQ(SqlFile().rows("SELECT ID FROM kel").size(), result.threw ? 3U : 4U);
        return result;
    });
    EXPECT_GT(points, 20);
}

TEST_F(OutOfMemory, AFirstDictionaryIsLoadedOrNone)
{
    writeDictionary("new.json", 4, "2.5");
    walk([](long n) {
        CkelMemoryDataStorage storage;
        const Attempt result = attempt(n, [&] { storage.readJsonFile("new.json"); });
        EXPECT_EQ(storage.validID(0, ~0U).size(), result.threw ? 0U : 4U);
        storage.insertData(makeItem(77, "inserted"));
        EXPECT_EQ(storage.ID("inserted"), result.threw ? 0U : 77U);
        return result;
    });
}

TEST_F(OutOfMemory, AConfigurationDatabaseIsLoadedOrTheLastOneStays)
{
    for (const auto& [name, count] : {std::pair{"old.db", 3}, std::pair{"new.db", 4}}) {
        SqlFile file(name);
        ASSERT_TRUE(file.run("CREATE TABLE kel(ID, NameID, Comm, Src, RW, Block, ValueT, Value, Def, Max, Min)"));
        for (int id = 1; id <= count; ++id)
            ASSERT_TRUE(file.run("INSERT INTO kel VALUES(" + std::to_string(id) + ", '" + longText +
                                 std::to_string(id) + "', 1, 1, 1, 2, 10, '" + longText + "', '', '', '')"));
    }
    long refused = 0;
    const long points = walk([&](long n) {
        CkelMemoryDataStorage storage;
        EXPECT_TRUE(storage.readDBFile("old.db"));
        bool done = false;
        const Attempt result = attempt(n, [&] { done = storage.readDBFile("new.db"); });
        refused += result.hit && !result.threw && !done ? 1 : 0; // SQLite tells by its result
        EXPECT_EQ(storage.validID(0, ~0U).size(), done ? 4U : 3U);
        EXPECT_VARIANT(storage.queryValue(1), std::string(longText));
        EXPECT_VARIANT(storage.queryValue(3), std::string(longText));
        expectIndexesAgree(storage);
        EXPECT_TRUE(storage.readDBFile("new.db"));
        return result;
    });
    EXPECT_GT(points, 50);
    EXPECT_GT(refused, 10);
}

TEST_F(OutOfMemory, AnIndexThatAdaptsToCollidingIDsStaysWhole)
{
    std::vector<tagStorageData> items; // multiplied by the table's first multiplier they collide
    for (unsigned int i = 1; i <= 50; ++i)
        items.push_back(makeItem(i * 0x0E8B2F51U, "item" + std::to_string(i), i));
    walk([&](long n) {
        LoadedStorage storage({});
        const Attempt result = attempt(n, [&] { storage.insertDataList(items); });
        EXPECT_EQ(storage.validID(0, ~0U).size() == items.size(), !result.threw);
        expectIndexesAgree(storage);
        return result;
    });
    walk([&](long n) {
        std::unique_ptr<LoadedStorage> storage;
        const Attempt result = attempt(n, [&] { storage = std::make_unique<LoadedStorage>(items); });
        if (storage)
            expectIndexesAgree(*storage);
        return result;
    });
}

TEST_F(OutOfMemory, SavedValuesOutliveAStartThatFails)
{
    writeDictionary("dictionary.json", 4, "2.5");
    const std::string saved = "1|11.5 2|12.5 3|0 4|14.5 ";
    const auto save = [] {
        CkelMemoryDB database;
        std::vector<tagStorageData> rows;
        for (unsigned int id = 1; id <= 4; ++id)
            rows.push_back(makeItem(id, "saved", 10.5 + id));
        rows[2].ValueT = ValueTypeText;
        rows[2].Value = longText;
        EXPECT_TRUE(database.rebuildMemoryDBTable(rows));
    };
    save();
    ASSERT_EQ(valuesIn("kelmem.db"), saved);
    const long points = walk([&](long n) {
        std::unique_ptr<CkelMemoryDataStorage> storage;
        const Attempt result = attempt(n, [&] {
            storage = std::make_unique<CkelMemoryDataStorage>();
            storage->readConfigFile("dictionary.json", true);
        });
        EXPECT_EQ(valuesIn("kelmem.db"), saved);
        if (storage) {
            storage->readConfigFile("dictionary.json", true);
            EXPECT_VARIANT(storage->queryValue(2), storage->hasLocalDB() ? 12.5 : 2.5); // no file, if opening failed
            expectIndexesAgree(*storage);
        }
        return result;
    });
    EXPECT_GT(points, 200);
}

TEST_F(OutOfMemory, ATableIsRebuiltOrTheOldOneStays)
{
    writeDictionary("dictionary.json", 4, "2.5");
    const std::string rebuilt = "1|2.5 2|2.5 3|2.5 4|2.5 ";
    const long points = walk([&](long n) {
        CkelMemoryDataStorage storage;
        CkelMemoryDB database;
        EXPECT_TRUE(database.rebuildMemoryDBTable({makeItem(1, "one", 7.5), makeItem(2, "two", 8.5)}));
        storage.hasLocalDB();
        const Attempt result = attempt(n, [&] { storage.readConfigFile("dictionary.json", false); });
        const std::string found = valuesIn("kelmem.db");
        // Without an exception too: SQLite's failures end the rebuilding only.
        EXPECT_TRUE(found == "1|7.5 2|8.5 " || (!result.threw && found == rebuilt)) << found;
        EXPECT_TRUE(storage.hasLocalDB());
        storage.readConfigFile("dictionary.json", false);
        EXPECT_EQ(valuesIn("kelmem.db"), rebuilt) << "the file is free again";
        return result;
    });
    EXPECT_GT(points, 200);
}

TEST_F(OutOfMemory, AWriteIsDoneAsItsResultSaysAndTheFileIsFreeAfterwards)
{
    const std::vector<tagStorageData> changed{makeItem(1, "one", 21.5), makeItem(2, "two", 22.5)};
    using Write = std::function<bool(CkelMemoryDB&)>;
    const std::vector<std::pair<const char*, Write>> writes{
        {"insertDatas", [&](CkelMemoryDB& file) { return file.insertDatas(changed); }},
        {"updateDatas", [&](CkelMemoryDB& file) { return file.updateDatas(changed); }},
        {"updateValues",
         [&](CkelMemoryDB& file) {
             return file.updateValues({1, 2}, {21.5, 22.5});
         }},
        {"insertData", [&](CkelMemoryDB& file) { return file.insertData(changed[0]) && file.insertData(changed[1]); }},
        {"updateValue", [&](CkelMemoryDB& file) { return file.updateValue(1, 21.5) && file.updateValue(2, 22.5); }},
        {"rebuild of rows", [&](CkelMemoryDB& file) { return file.rebuildMemoryDBTable(changed); }},
    };
    const std::string done = "1|21.5 2|22.5 ";
    for (const auto& [name, write] : writes) {
        SCOPED_TRACE(name);
        // Two calls for one row each may end between them.
        const bool oneByOne = std::string(name).back() != 's';
        const long points = walk([&, &write = write](long n) {
            CkelMemoryDB database;
            EXPECT_TRUE(database.rebuildMemoryDBTable({makeItem(1, "one", 1.5), makeItem(2, "two", 2.5)}));
            bool success = false;
            const Attempt result = attempt(n, [&] { success = write(database); });
            const std::string found = valuesIn("kelmem.db");
            std::set<std::string> whole{"1|1.5 2|2.5 ", done};
            if (oneByOne)
                whole.insert("1|21.5 2|2.5 ");
            EXPECT_EQ(whole.count(found), 1U) << found;
            EXPECT_TRUE(!success || found == done) << "false success";
            if (!result.hit) {
                EXPECT_TRUE(success);
                EXPECT_EQ(found, done);
            }
            EXPECT_TRUE(write(database));
            EXPECT_EQ(valuesIn("kelmem.db"), done);
            return result;
        });
        EXPECT_GT(points, 20);
    }
}

TEST_F(OutOfMemory, ATransactionIsTakenBackWithoutAnyMemory)
{
    const std::vector<tagStorageData> changed{makeItem(1, "one", 21.5), makeItem(2, "two", 22.5)};
    const long points = walk([&](long n) {
        CkelMemoryDB database;
        EXPECT_TRUE(database.rebuildMemoryDBTable({makeItem(1, "one", 1.5), makeItem(2, "two", 2.5)}));
        bool success = false;
        const Attempt result = attempt(
            n, [&] { success = database.insertDatas(changed); }, FailingAllocation::FromThenOn);
        EXPECT_EQ(success, !result.hit);
        {
            SqlFile other;
            sqlite3_busy_timeout(other.handle(), 0);
            EXPECT_TRUE(other.run("BEGIN IMMEDIATE")) << "the file is free";
        }
        EXPECT_EQ(valuesIn("kelmem.db"), success ? "1|21.5 2|22.5 " : "1|1.5 2|2.5 ");
        EXPECT_TRUE(database.insertDatas(changed));
        return result;
    });
    EXPECT_GT(points, 20);
}

// Collection and the queue

TEST_F(OutOfMemory, ACollectionThatFailsLosesNoChange)
{
    // Each storage fails at another allocation; their workers then write at the same time.
    std::vector<std::unique_ptr<CkelMemoryDataStorage>> storages;
    const auto idsOf = [](long n) { return static_cast<unsigned int>(10 * n); }; // and the two that follow
    CkelMemoryDB table;
    ASSERT_TRUE(table.createMemoryDBTable());
    testing::internal::CaptureStdout();
    const long points = walk([&](long n) {
        const unsigned int id = idsOf(n);
        const std::string name = "the item with the rather long name and the number ";
        EXPECT_TRUE(table.insertDatas({makeItem(id, "modified", 1)}));
        auto storage = std::make_unique<LoadedStorage>(
            std::vector<tagStorageData>{makeItem(id, name + "one"), makeItem(id + 2, name)});
        storage->updateValue(id, 7.5, false);
        storage->insertData(makeItem(id + 1, name + "two", 8.5));
        storage->deleteData(id + 2);
        const Attempt result = attempt(n, [&] { storage->syncToMemoryDB(); });
        expectIndexesAgree(*storage);
        storage->syncToMemoryDB();
        EXPECT_TRUE(storage->validIDByDirty(DirtyClean, Storage::NotEqual).empty());
        EXPECT_EQ(storage->ID(name), 0U);
        storages.push_back(std::move(storage));
        return result;
    });
    testing::internal::GetCapturedStdout();
    EXPECT_GT(points, 5);
    const std::string wanted = std::to_string(storages.size());
    const auto saved = [](const char* condition) {
        return SqlFile().row(std::string("SELECT count(*) FROM kel WHERE ") + condition);
    };
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while ((saved("ID % 10 = 0 AND Value = 7.5") != wanted || saved("ID % 10 = 1 AND Value = 8.5") != wanted) &&
           std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(saved("ID % 10 = 0 AND Value = 7.5"), wanted) << "every modified item";
    EXPECT_EQ(saved("ID % 10 = 1 AND Value = 8.5"), wanted) << "every inserted item";
}

TEST_F(OutOfMemory, ABlockIsQueuedOrNot)
{
    for (int waiting = 0; waiting < 12; ++waiting) {
        walk([&](long n) {
            CkelMemoryDB database;
            for (int i = 0; i < waiting; ++i)
                database.push({tagDBBlock::Update, {}});
            tagDBBlock block{tagDBBlock::Insert, {makeItem(1, "one", 5)}};
            const Attempt result = attempt(n, [&] { database.push(std::move(block)); });
            int count = 0;
            for (; !database.isEmpty(); ++count)
                database.pop();
            EXPECT_EQ(count, result.threw ? waiting : waiting + 1);
            return result;
        });
    }
}

TEST_F(OutOfMemory, ABlockThatCannotBeWrittenLeavesTheFileFreeAndTheNextOneIsWritten)
{
    const long points = walk([](long n) {
        CkelMemoryDB database;
        EXPECT_TRUE(database.rebuildMemoryDBTable({makeItem(1, "one", 1), makeItem(2, "two", 2)}));
        database.push({tagDBBlock::Update, {makeItem(1, "one", 11)}});
        database.push({tagDBBlock::Update, {makeItem(2, "two", 12)}});
        const Attempt result = attempt(n, [&] { database.sync(); });
        while (!database.isEmpty())
            database.sync();
        const std::string found = valuesIn("kelmem.db");
        EXPECT_TRUE(found == "1|11 2|12 " || (result.hit && found == "1|1 2|12 ")) << found;
        return result;
    });
    EXPECT_GT(points, 20);
}

TEST_F(OutOfMemory, TheWorkerThreadOutlivesAShortage)
{
    CkelMemoryDB database;
    EXPECT_TRUE(database.rebuildMemoryDBTable({makeItem(1, "one", 1)}));
    {
        const FailingAllocation failing(1, FailingAllocation::FromThenOn, FailingAllocation::OtherThreads);
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!failing.hit() && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_TRUE(failing.hit());
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    database.push({tagDBBlock::Update, {makeItem(1, "one", 2)}});
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (valuesIn("kelmem.db") != "1|2 " && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(valuesIn("kelmem.db"), "1|2 ");
}

TEST_F(OutOfMemory, AStorageEndsWhileItsWorkerThreadIsShort)
{
    auto database = std::make_unique<CkelMemoryDB>();
    const FailingAllocation failing(1, FailingAllocation::FromThenOn, FailingAllocation::OtherThreads);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!failing.hit() && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_TRUE(failing.hit());
    database.reset(); // would wait for ever
}

// Objects

TEST_F(OutOfMemory, StoragesAreMadeOrNotAndEndWithoutAnyMemory)
{
    const auto points = walk([](long n) {
        std::unique_ptr<CkelSafeMemoryStorage> storage;
        const Attempt result = attempt(n, [&] { storage = std::make_unique<CkelSafeMemoryStorage>(); });
        EXPECT_EQ(storage == nullptr, result.threw);
        const FailingAllocation failing(1, FailingAllocation::FromThenOn);
        storage.reset();
        return result;
    });
    EXPECT_GT(points, 30);
}

TEST_F(OutOfMemory, AnObjectIsMadeOrNotAndItsParentKnowsOfThoseThatAre)
{
    CkelObject parent;
    CkelObject filter;
    walk([&](long n) {
        std::unique_ptr<CkelTimer> timer;
        const Attempt result = attempt(n, [&] { timer = std::make_unique<CkelTimer>(&parent); });
        EXPECT_EQ(parent.children().size(), result.threw ? 0U : 1U);
        return result;
    });
    parent.installEventFilter(&filter);
    walk([&](long n) {
        std::unique_ptr<CkelTimer> timer;
        const Attempt result = attempt(n, [&] { timer = std::make_unique<CkelTimer>(&parent); });
        EXPECT_EQ(parent.children().size(), result.threw ? 0U : 1U);
        const FailingAllocation failing(1, FailingAllocation::FromThenOn);
        timer.reset(); // the parent's filters cannot be told
        EXPECT_TRUE(parent.children().empty());
        return result;
    });
}

TEST_F(OutOfMemory, AChildChangesItsParentOrStaysAndAFilterIsInstalledOrNot)
{
    walk([](long n) {
        CkelObject first;
        CkelObject second;
        auto* const child = new CkelObject(&first);
        const Attempt result = attempt(n, [&] { child->setParent(&second); });
        EXPECT_EQ(child->parent(), result.threw ? &first : &second);
        EXPECT_EQ(first.children().size() + second.children().size(), 1U);
        return result;
    });
    walk([](long n) {
        CkelObject watched;
        Attempt result{};
        {
            CkelObject filter;
            result = attempt(n, [&] { watched.installEventFilter(&filter); });
        }
        CkelObject child(&watched); // would reach a filter that is gone
        child.setParent(nullptr);
        return result;
    });
}

TEST_F(OutOfMemory, ATimerStartsOrGoesOnAsItWas)
{
    class Ticks : public CkelObject
    {
    public:
        void timerEvent(CkelTimerEvent* /*event*/) override { ++count; }
        int count = 0;
    };
    walk([&](long n) {
        Ticks object;
        const Attempt result = attempt(n, [&] { object.startTimer(1); });
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
        application.processEvents();
        EXPECT_EQ(object.count, result.threw ? 0 : 1);
        return result;
    });
    walk([&](long n) {
        int ticks = 0;
        CkelTimer timer;
        timer.connectTimeOut("count", [&ticks] { ++ticks; });
        timer.start(1);
        const Attempt restart = attempt(n, [&] { timer.start(2); });
        EXPECT_TRUE(timer.isActive());
        std::this_thread::sleep_for(std::chrono::milliseconds(4));
        application.processEvents();
        EXPECT_GE(ticks, 1);
        return restart;
    });
}

TEST_F(OutOfMemory, ATimerWhoseLoopRanShortTicksAgainInTheNextRunOfTheLoop)
{
    int ticks = 0;
    CkelTimer timer;
    timer.connectTimeOut("count", [&ticks] { ++ticks; });
    timer.start(1);
    walk([&](long n) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        const Attempt result = attempt(
            n, [&] { application.processEvents(); }, FailingAllocation::FromThenOn);
        const int before = ticks;
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
        application.processEvents();
        EXPECT_GT(ticks, before);
        return result;
    });
}

TEST_F(OutOfMemory, TimersMoveToAThreadOrStay)
{
    walk([](long n) {
        CkelTimer timer;
        std::atomic<int> ticks{0};
        timer.connectTimeOut("count", [&ticks] { ++ticks; });
        timer.start(1);
        CkelThread thread;
        const Attempt result = attempt(n, [&] { timer.moveToThread(&thread); });
        EXPECT_TRUE(timer.moveToThread(&thread)); // again, if it had failed
        EXPECT_TRUE(thread.start());
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (ticks == 0 && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_GT(ticks, 0);
        const FailingAllocation failing(1, FailingAllocation::FromThenOn);
        thread.terminate();
        return result;
    });
}

TEST_F(OutOfMemory, AThreadStartsOrNot)
{
    walk([](long n) {
        CkelThread thread;
        bool started = false;
        const Attempt result = attempt(n, [&] { started = thread.start(); });
        EXPECT_EQ(started, !result.threw);
        EXPECT_EQ(thread.isRunning(), started);
        thread.terminate();
        return result;
    });
}

// The data sensor

TEST_F(OutOfMemory, AListenerIsAttachedOrNot)
{
    LoadedStorage storage(someItems());
    for (const bool known : {false, true}) {
        walk([&](long n) {
            class Counter : public CkelObject
            {
            public:
                void dataSensorEvent(CkelDataSensorEvent* event) override { ids.insert(event->id()); }
                std::set<unsigned int> ids;
            } counter;
            CkelDataSensor* const sensor = CkelApplicationPlus::dataSensor();
            if (known)
                sensor->attach(&counter, {4});
            const Attempt result = attempt(n, [&] { sensor->attach(&counter, {1, 2, 3}); });
            for (unsigned int id = 1; id <= 4; ++id)
                storage.updateValue(id, 1000.0 * static_cast<double>(n) + id + (known ? 500 : 0), false);
            listener.take();
            std::set<unsigned int> wanted;
            if (known)
                wanted.insert(4);
            if (!result.threw)
                wanted.insert({1, 2, 3});
            EXPECT_EQ(counter.ids, wanted);
            return result;
        });
    }
}

TEST_F(OutOfMemory, EventsWhoseDeliveryRanShortArriveInTheNextRunOfTheLoop)
{
    class Poster : public CkelObject
    {
    public:
        void dataSensorEvent(CkelDataSensorEvent* event) override
        {
            ++received;
            if (event->id() == 1)
                CkelApplicationPlus::dataSensor()->post(
                    new CkelAnyDataSensorEvent(2, 0, CkelDataSensorEvent::AnyData, CkelDataSensorEvent::NoMerge));
        }
        int received = 0;
    } poster;
    CkelDataSensor* const sensor = CkelApplicationPlus::dataSensor();
    sensor->attach(&poster);
    walk([&](long n) {
        for (int i = 0; i < 10; ++i)
            sensor->post(new CkelAnyDataSensorEvent(3, i, CkelDataSensorEvent::AnyData, CkelDataSensorEvent::NoMerge));
        poster.received = 0;
        sensor->post(new CkelAnyDataSensorEvent(1, 0, CkelDataSensorEvent::AnyData, CkelDataSensorEvent::NoMerge));
        const Attempt result = attempt(n, [&] { application.processEvents(); });
        application.processEvents();
        application.processEvents();
        EXPECT_GE(poster.received, 11);
        EXPECT_LE(poster.received, 12) << "an answer that could not be posted is the handler's to report";
        listener.take();
        return result;
    });
}

TEST_F(OutOfMemory, AFailedOperationHoldsNoMemory)
{
    const auto all = [this](long n) {
        Attempt result{};
        {
            LoadedStorage storage(someItems());
            result = attempt(n, [&] {
                storage.updateValue(1, 5, true);
                storage.updateData(makeItem(2, "two", 99), false);
                storage.insertData(makeItem(77, "yet another item with a rather long name"));
                storage.deleteData(3);
                storage.syncToMemoryDB();
                storage.createLocalDB();
                storage.loadLocalDB();
            });
        }
        application.processEvents();
        listener.take();
        return result;
    };
    listener.take().shrink_to_fit();
    for (long n = 1; n <= 3; ++n) // what is made at first use
        all(1000000);
    const long long sqliteBefore = sqlite3_memory_used();
    const long long before = heldMemory().blocks;
    long most = 0;
    const long points = walk([&](long n) {
        const Attempt result = all(n);
        most = std::max(most, static_cast<long>(heldMemory().blocks - before));
        return result;
    });
    EXPECT_GT(points, 100);
    EXPECT_LT(most, 20) << "blocks held for the next events, not one for each of " << points << " failures";
    EXPECT_EQ(sqlite3_memory_used(), sqliteBefore);
}
