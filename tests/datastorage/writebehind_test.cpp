#include "datastorage/kelmeorydbworkthread.h"
#include "tests/datastorage/drivenstorage.h"
#include "tests/datastorage/sqlfile.h"
#include "tests/datastorage/storagefixture.h"

#include <atomic>
#include <fstream>
#include <thread>

using namespace Ombrin;
using namespace KelTest;

// Collection and writing, driven by hand: the timers are stopped.

namespace {

using Storage = CkelAbstractDataStorage;

/// Explicit instantiation may name a private member.
template <auto Member>
struct ReachThread
{
    friend auto& workThreadOf(CkelMemoryDB& database) { return database.*Member; }
};
auto& workThreadOf(CkelMemoryDB& database);
template struct ReachThread<&CkelMemoryDB::m_thread>;

/// A hundred items of the IDs 1 to 100, "item1" to "item100", value type 9, value 1.0; saved in the local table.
class HundredItems : public DrivenStorage
{
public:
    void load()
    {
        std::ofstream file("dictionary.json");
        file << R"({"kel":[)";
        for (int id = 1; id <= 100; ++id)
            file << (id > 1 ? "," : "") << R"({"ID":)" << id << R"(,"NameID":"item)" << id
                 << R"(","RW":1,"Block":2,"ValueT":9,"Value":1.0,"DefValue":0.0,"Max":9,"Min":0})";
        file << "]}";
        file.close();
        readConfigFile("dictionary.json", false);
    }
};

class Collection : public StorageTest
{
protected:
    Collection() { storage.load(); }

    std::uint8_t markOf(unsigned int id) const { return storage.queryData(id).Dirty; }
    std::string saved(unsigned int id)
    {
        return SqlFile().row("SELECT NameID, Value FROM kel WHERE ID = " + std::to_string(id));
    }

    HundredItems storage;
};

tagDBBlock blockOf(int kind, unsigned int id, double value = 0)
{
    return {kind, {makeItem(id, "item" + std::to_string(id), value)}};
}

class BlockQueue : public StorageTest
{
protected:
    BlockQueue() { timerOf(database)->stop(); }

    CkelMemoryDB database;
};

} // namespace

// The queue

TEST_F(BlockQueue, IsFirstInFirstOut)
{
    EXPECT_TRUE(database.isEmpty());
    database.push(blockOf(tagDBBlock::Update, 1));
    database.push(blockOf(tagDBBlock::Insert, 2));
    EXPECT_FALSE(database.isEmpty());
    EXPECT_EQ(database.pop().records.at(0).ID, 1U);
    const tagDBBlock second = database.pop();
    EXPECT_EQ(second.kind, tagDBBlock::Insert);
    EXPECT_EQ(second.records.at(0).ID, 2U);
    EXPECT_TRUE(database.isEmpty());
}

TEST_F(BlockQueue, KeepsACopyOfTheBlock)
{
    tagDBBlock block = blockOf(tagDBBlock::Update, 1);
    database.push(block);
    block.records.clear();
    EXPECT_EQ(database.pop().records.size(), 1U);
}

TEST_F(BlockQueue, HoldsAHundredBlocksAndDropsTheNext)
{
    for (unsigned int id = 1; id <= 105; ++id)
        database.push(blockOf(tagDBBlock::Update, id));
    unsigned int last = 0;
    int count = 0;
    for (; !database.isEmpty(); ++count)
        last = database.pop().records.at(0).ID;
    EXPECT_EQ(count, 100);
    EXPECT_EQ(last, 100U);
}

TEST_F(BlockQueue, TakesABlockByReferenceThroughTheExportedOperation)
{
    void (CkelMemoryDB::*const push)(const tagDBBlock&) = &CkelMemoryDB::push;
    const tagDBBlock block = blockOf(tagDBBlock::Insert, 1);
    (database.*push)(block);
    EXPECT_EQ(block.records.size(), 1U);
    EXPECT_EQ(database.pop().records.size(), 1U);
}

TEST_F(BlockQueue, WhenFullLeavesABlockThatIsMovedToItWithItsOwner)
{
    for (unsigned int id = 1; id <= 100; ++id)
        database.push(blockOf(tagDBBlock::Insert, id));
    tagDBBlock block = blockOf(tagDBBlock::Insert, 101);
    const tagStorageData* const record = block.records.data();
    database.push(std::move(block));
    EXPECT_EQ(block.records.data(), record); // NOLINT(bugprone-use-after-move): not taken, nor copied
}

TEST_F(BlockQueue, EmptyYieldsABlockThatWritesNothing)
{
    const tagDBBlock block = database.pop();
    EXPECT_TRUE(block.records.empty());
    EXPECT_TRUE(block.kind != tagDBBlock::Insert && block.kind != tagDBBlock::Update &&
                block.kind != tagDBBlock::Delete);
}

TEST_F(BlockQueue, SyncAndPopOnSeveralThreadsShareTheBlocks)
{
    database.createMemoryDBTable();
    constexpr unsigned int rounds = 300;
    std::atomic<bool> done{false};
    std::atomic<unsigned int> popped{0};
    std::thread taker([&] {
        while (!done) {
            if (database.pop().kind == tagDBBlock::Delete)
                ++popped;
        }
    });
    std::thread writer([&] {
        while (!done)
            database.sync();
    });
    for (unsigned int id = 1; id <= rounds; ++id) {
        database.push(blockOf(tagDBBlock::Delete, id));
        while (!database.isEmpty())
            std::this_thread::yield();
    }
    done = true;
    taker.join();
    writer.join();
    EXPECT_TRUE(database.isEmpty());
    EXPECT_LE(popped, rounds);
}

TEST_F(BlockQueue, SyncWritesOneBlock)
{
    database.createMemoryDBTable();
    database.push(blockOf(tagDBBlock::Insert, 1, 5));
    database.push(blockOf(tagDBBlock::Insert, 2, 6));
    database.sync();
    EXPECT_EQ(SqlFile().row("SELECT count(*) FROM kel"), "1");
    database.sync();
    EXPECT_EQ(SqlFile().row("SELECT count(*) FROM kel"), "2");
    EXPECT_TRUE(database.isEmpty());
    database.sync();
}

TEST_F(BlockQueue, SyncDispatchesByKind)
{
    database.createMemoryDBTable();
    database.insertDatas({makeItem(1, "one", 1), makeItem(2, "two", 2)});
    database.push(blockOf(tagDBBlock::Insert, 1, 10));
    database.push(blockOf(tagDBBlock::Update, 2, 20));
    database.push(blockOf(tagDBBlock::Update, 3, 30));
    database.push(blockOf(tagDBBlock::Delete, 1));
    for (int i = 0; i < 4; ++i)
        database.sync();
    EXPECT_EQ(SqlFile().rows("SELECT ID, NameID, Value FROM kel ORDER BY ID"),
              (std::vector<std::string>{"1|item1|10", "2|two|20"}));
}

TEST_F(BlockQueue, BlockOfAnUnknownKindIsDiscarded)
{
    database.createMemoryDBTable();
    database.push(blockOf(3, 1));
    database.push(blockOf(-1, 1));
    database.sync();
    database.sync();
    EXPECT_TRUE(database.isEmpty());
    EXPECT_EQ(SqlFile().row("SELECT count(*) FROM kel"), "0");
}

TEST_F(BlockQueue, SyncFromManyThreadsWritesEveryBlockOnce)
{
    database.createMemoryDBTable();
    for (unsigned int id = 1; id <= 40; ++id)
        database.push(blockOf(tagDBBlock::Insert, id, id));
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this] {
            while (!database.isEmpty())
                database.sync();
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(SqlFile().row("SELECT count(*), sum(Value) FROM kel"), "40|820");
}

TEST_F(BlockQueue, AskingForTheTableDoesNotWaitForABlock)
{
    database.createMemoryDBTable();
    EXPECT_TRUE(database.hasMemoryDBTable());
    database.push(blockOf(tagDBBlock::Insert, 1, 5));

    SqlFile other;
    ASSERT_TRUE(other.run("BEGIN IMMEDIATE"));
    std::atomic<bool> written{false};
    std::thread writer([&] {
        database.sync(); // waits for the other connection
        written = true;
    });
    while (!database.isEmpty())
        std::this_thread::yield();
    EXPECT_TRUE(database.hasMemoryDBTable());
    EXPECT_FALSE(written);
    ASSERT_TRUE(other.run("COMMIT"));
    writer.join();
    EXPECT_EQ(other.row("SELECT Value FROM kel"), "5");
}

TEST_F(BlockQueue, DestructionDropsWhatWaits)
{
    {
        CkelMemoryDB other;
        timerOf(other)->stop();
        other.createMemoryDBTable();
        other.push(blockOf(tagDBBlock::Insert, 1, 5));
    }
    EXPECT_EQ(SqlFile().row("SELECT count(*) FROM kel"), "0");
}

// Collection

TEST_F(Collection, CleanStorageQueuesNothing)
{
    storage.tick();
    EXPECT_TRUE(storage.database().isEmpty());
}

TEST_F(Collection, ModifiedItemsBecomeAnUpdateBlock)
{
    storage.updateValue(7, 5, false);
    storage.updateField(8, "RW", 3, false);
    storage.tick();
    const auto blocks = storage.takeBlocks();
    ASSERT_EQ(blocks.size(), 1U);
    EXPECT_EQ(blocks[0].kind, tagDBBlock::Update);
    EXPECT_EQ(blocks[0].records.size(), 2U);
    EXPECT_EQ(markOf(7), DirtyClean);
    EXPECT_EQ(markOf(8), DirtyClean);
}

TEST_F(Collection, InsertedItemsBecomeAnInsertBlock)
{
    storage.insertData(makeItem(200, "new", 5));
    storage.tick();
    const auto blocks = storage.takeBlocks();
    ASSERT_EQ(blocks.size(), 1U);
    EXPECT_EQ(blocks[0].kind, tagDBBlock::Insert);
    EXPECT_EQ(blocks[0].records.at(0).NameID, "new");
    EXPECT_EQ(markOf(200), DirtyClean);
}

TEST_F(Collection, DeletedItemsBecomeADeleteBlockOfBareIDs)
{
    storage.deleteData(7);
    storage.tick();
    const auto blocks = storage.takeBlocks();
    ASSERT_EQ(blocks.size(), 1U);
    EXPECT_EQ(blocks[0].kind, tagDBBlock::Delete);
    const tagStorageData& record = blocks[0].records.at(0);
    EXPECT_EQ(record.ID, 7U);
    EXPECT_TRUE(record.NameID.empty());
    EXPECT_TRUE(record.Value.isNull());
    EXPECT_EQ(record.Dirty, DirtyClean);
}

TEST_F(Collection, BlocksAreQueuedUpdateInsertDelete)
{
    storage.deleteData(1);
    storage.insertData(makeItem(200, "new", 5));
    storage.updateValue(2, 5, false);
    storage.tick();
    const auto blocks = storage.takeBlocks();
    ASSERT_EQ(blocks.size(), 3U);
    EXPECT_EQ(blocks[0].kind, 1);
    EXPECT_EQ(blocks[1].kind, 0);
    EXPECT_EQ(blocks[2].kind, 2);
}

TEST_F(Collection, EveryTimerEventCollectsWhateverItsID)
{
    storage.updateValue(7, 5, false);
    CkelTimerEvent event(123456);
    storage.timerEvent(&event);
    EXPECT_FALSE(storage.database().isEmpty());
}

TEST_F(Collection, ManyChangesOfAnItemAreOneRecordWithTheLatestValue)
{
    for (int i = 0; i < 100; ++i)
        storage.updateValue(7, 100 + i, false);
    storage.tick();
    const auto blocks = storage.takeBlocks();
    ASSERT_EQ(blocks.size(), 1U);
    ASSERT_EQ(blocks[0].records.size(), 1U);
    EXPECT_VARIANT(blocks[0].records[0].Value, 199.0);
}

TEST_F(Collection, WrittenValuesAreInTheFile)
{
    storage.updateValue(7, 5.5, false);
    storage.insertData(makeItem(200, "new", 6.5));
    storage.tick();
    storage.write();
    EXPECT_EQ(saved(7), "item7|5.5");
    EXPECT_EQ(saved(200), "new|6.5");
}

TEST_F(Collection, ChangeAfterATickIsCollectedByTheNext)
{
    storage.updateValue(7, 5, false);
    storage.tick();
    storage.updateValue(7, 6, false);
    storage.tick();
    const auto blocks = storage.takeBlocks();
    ASSERT_EQ(blocks.size(), 2U);
    EXPECT_VARIANT(blocks[0].records.at(0).Value, 5.0);
    EXPECT_VARIANT(blocks[1].records.at(0).Value, 6.0);
}

TEST_F(Collection, ItemInsertedAndUpdatedWithinOneTickIsUpdatedInAFileThatLacksIt)
{
    storage.insertData(makeItem(200, "new", 5));
    storage.updateValue(200, 6, false);
    storage.tick();
    storage.write();
    EXPECT_EQ(saved(200), "") << "the update's mark took the place of the insertion's";
    EXPECT_VARIANT(storage.queryValue(200), 6.0);
}

TEST_F(Collection, ResetIsSaved)
{
    storage.reset();
    storage.tick();
    storage.write();
    EXPECT_EQ(SqlFile().row("SELECT count(*) FROM kel WHERE Value = 0"), "100");
}

TEST_F(Collection, FullQueueLosesTheBlockAndClearsTheMarks)
{
    for (int i = 0; i < 100; ++i)
        storage.database().push(blockOf(tagDBBlock::Update, 1));
    storage.updateValue(7, 5, false);
    storage.tick();
    EXPECT_EQ(markOf(7), DirtyClean);
    EXPECT_EQ(storage.takeBlocks().size(), 100U);
}

// Deletion

TEST_F(Collection, DeletedItemLeavesMemoryButItsRowStays)
{
    storage.deleteData(7);
    EXPECT_EQ(storage.validIDByDirty(DirtyDeleted, Storage::Equal).size(), 1U);
    storage.tick();
    EXPECT_TRUE(storage.validIDByDirty(DirtyDeleted, Storage::Equal).empty());
    EXPECT_EQ(storage.ID("item7"), 0U);
    storage.write();
    EXPECT_EQ(saved(7), "item7|1");
}

TEST_F(Collection, DeletedIDAndNameAreFreeAgain)
{
    storage.deleteData(7);
    storage.tick();
    storage.insertData(makeItem(7, "other", 5));
    storage.insertData(makeItem(300, "item7", 6));
    EXPECT_EQ(storage.nameID(7), "other");
    EXPECT_VARIANT(storage.queryValue(7), 5.0);
    EXPECT_EQ(storage.ID("item7"), 300U);
}

TEST_F(Collection, EveryNameOfADeletedItemLeaves)
{
    std::ofstream("twice.json") << R"({"kel":[{"ID":1,"NameID":"a","ValueT":9,"Value":1},{"ID":1,"NameID":"b"}]})";
    storage.readConfigFile("twice.json", false);
    ASSERT_EQ(storage.ID("b"), 1U);
    storage.deleteData(1);
    storage.tick();
    EXPECT_EQ(storage.ID("a"), 0U);
    EXPECT_EQ(storage.ID("b"), 0U);
}

TEST_F(Collection, ASecondNameStaysItsItemsUntilThatLeaves)
{
    std::ofstream("twice.json") << R"({"kel":[{"ID":1,"NameID":"a","ValueT":9,"Value":1},{"ID":1,"NameID":"b"}]})";
    storage.readConfigFile("twice.json", false);
    storage.insertData(makeItem(2, "b", 5));
    EXPECT_EQ(storage.ID("b"), 1U);
    storage.deleteData(1);
    storage.tick();
    EXPECT_EQ(storage.ID("b"), 0U);
    storage.insertData(makeItem(3, "b", 6));
    EXPECT_EQ(storage.ID("b"), 3U);
}

TEST_F(Collection, NameThatLeadsToAnotherItemStays)
{
    storage.insertData(makeItem(200, "item1", 5)); // the name leads to item 1
    storage.deleteData(200);
    storage.tick();
    EXPECT_EQ(storage.ID("item1"), 1U);
}

TEST_F(Collection, MarkOfAnItemThatTakesTheListPositionOfADeletedOneIsKept)
{
    storage.updateField(100, "Dirty", 7, false); // the last item
    storage.deleteData(3);
    storage.tick();
    EXPECT_EQ(storage.validIDByDirty(7, Storage::Equal), std::vector<unsigned int>{100});
    storage.updateField(100, "Dirty", int{DirtyClean}, false);
    storage.insertData(makeItem(200, "new", 5));
    EXPECT_EQ(storage.validIDByDirty(DirtyClean, Storage::NotEqual), std::vector<unsigned int>{200});
}

TEST_F(Collection, DeletedItemWhoseMarkIsClearedIsVisibleAgain)
{
    storage.deleteData(3);
    storage.updateField(3, "Dirty", int{DirtyClean}, false);
    EXPECT_EQ(storage.nameID(3), "item3");
    storage.tick();
    EXPECT_TRUE(storage.takeBlocks().empty());
}

// Without a local table

TEST_F(Collection, StorageWithoutALocalTableNeverCollects)
{
    storage.database().dropMemoryDBTable();
    storage.updateValue(7, 5, false);
    storage.deleteData(8);
    storage.tick();
    EXPECT_TRUE(storage.database().isEmpty());
    EXPECT_EQ(markOf(7), DirtyModified);
    EXPECT_EQ(storage.validIDByDirty(DirtyDeleted, Storage::Equal).size(), 1U);
}

TEST_F(Collection, StorageWithoutItemsCollectsNothing)
{
    const TestFolder fresh;
    DrivenStorage empty;
    empty.database().createMemoryDBTable();
    empty.tick();
    EXPECT_TRUE(empty.database().isEmpty());
}

// The lock

TEST_F(Collection, HoldsTheLockFromTheFirstLookToTheLast)
{
    class Watched : public HundredItems
    {
    public:
        using HundredItems::updateField;
        std::vector<tagStorageData> queryDataListByField(const std::string& field, FieldType type,
                                                         const CkelVariant& value, Operator op) const override
        {
            look();
            return HundredItems::queryDataListByField(field, type, value, op);
        }
        void updateField(unsigned int id, const std::string& field, const CkelVariant& value, bool merge) override
        {
            look();
            HundredItems::updateField(id, field, value, merge);
        }

        mutable int looks = 0;
        mutable int unlocked = 0;

    private:
        void look() const
        {
            ++looks;
            auto& lock = *const_cast<Watched*>(this)->mutex();
            std::thread([&] {
                if (lock.tryLock()) {
                    ++unlocked;
                    lock.unlock();
                }
            }).join();
        }
    };
    Watched watched;
    watched.load();
    watched.updateValue(1, 5, false);
    watched.insertData(makeItem(200, "new", 5));
    watched.tick();
    EXPECT_EQ(watched.looks, 4) << "two queries and two cleared marks";
    EXPECT_EQ(watched.unlocked, 0);
}

TEST_F(Collection, ReleasesTheLock)
{
    storage.tick();
    const bool locked = storage.mutex()->tryLock();
    if (locked)
        storage.mutex()->unlock();
    EXPECT_TRUE(locked);
}

TEST_F(Collection, LocksWhatMutexReturns)
{
    class Shared : public HundredItems
    {
    public:
        CkelMutex* mutex() override { return &other; }
        std::vector<tagStorageData> queryDataListByField(const std::string& field, FieldType type,
                                                         const CkelVariant& value, Operator op) const override
        {
            std::thread([this] {
                if (other.tryLock()) {
                    ++unlocked;
                    other.unlock();
                }
            }).join();
            return HundredItems::queryDataListByField(field, type, value, op);
        }

        mutable CkelMutex other;
        mutable int unlocked = 0;
    };
    Shared shared;
    shared.load();
    shared.updateValue(1, 5, false);
    shared.tick();
    EXPECT_EQ(shared.unlocked, 0);
}

TEST_F(Collection, WorksWithoutALock)
{
    class Unlocked : public HundredItems
    {
    public:
        CkelMutex* mutex() override { return nullptr; }
    };
    Unlocked unlocked;
    unlocked.load();
    unlocked.updateValue(1, 5, false);
    unlocked.tick();
    EXPECT_EQ(unlocked.takeBlocks().size(), 1U);
}

TEST_F(Collection, ATickDoesNotWaitForALockedFileWhileBlocksWait)
{
    storage.updateValue(1, 5, false);
    storage.tick();
    SqlFile other;
    ASSERT_TRUE(other.run("BEGIN EXCLUSIVE"));
    std::atomic<bool> written{false};
    std::thread writer([&] {
        storage.database().sync(); // waits for the other connection
        written = true;
    });
    while (!storage.database().isEmpty())
        std::this_thread::yield();
    storage.updateValue(2, 6, false);
    storage.tick();
    EXPECT_FALSE(written) << "the tick came while the worker was waiting";
    EXPECT_EQ(storage.takeBlocks().size(), 1U) << "the table is known, so changes are collected";
    ASSERT_TRUE(other.run("COMMIT"));
    writer.join();
}

TEST_F(BlockQueue, StartsAWorkerThatCouldNotBeStartedBefore)
{
    auto& thread = workThreadOf(database);
    thread = std::make_unique<CkelMeoryDBWorkThread>();
    database.push(blockOf(tagDBBlock::Insert, 1));
    EXPECT_TRUE(thread->isRunning());
}
