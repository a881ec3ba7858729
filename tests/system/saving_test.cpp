#include "datastorage/keldatastoragefactory.h"
#include "datastorage/kelmemorydatastorage.h"
#include "datastorage/kelmemorydb.h"
#include "datastorage/kelsafememorystorage.h"
#include "tests/datastorage/sqlfile.h"
#include "tests/datastorage/storagefixture.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <mutex>
#include <thread>

using namespace Ombrin;
using namespace KelTest;

// Whole storages on their real timers: the few cases that wait for seconds.

namespace {

using Storage = CkelAbstractDataStorage;

void writeDictionary(const std::string& name, int count)
{
    std::ofstream file(name);
    file << R"({"kel":[)";
    for (int id = 1; id <= count; ++id)
        file << (id > 1 ? "," : "") << R"({"ID":)" << id << R"(,"NameID":"item)" << id
             << R"(","RW":1,"Block":2,"ValueT":9,"Value":1.0,"DefValue":0.0,"Max":9,"Min":0})";
    file << "]}";
}

/// Every statement that any connection of the process runs, as SQLite receives it; those that it refuses come by its
/// error log, which has to be set before SQLite's first use.
class Trace
{
public:
    Trace()
    {
        statements().clear();
        sqlite3_auto_extension(reinterpret_cast<void (*)()>(&Trace::connected));
    }
    ~Trace() { sqlite3_reset_auto_extension(); }
    Trace(const Trace&) = delete;
    Trace& operator=(const Trace&) = delete;

    static std::size_t count(const std::string& start)
    {
        const std::lock_guard<std::mutex> lock(mutex());
        std::size_t found = 0;
        for (const std::string& statement : statements())
            found += statement.compare(0, start.size(), start) == 0 ? 1U : 0U;
        return found;
    }

    /// The first words of the statements that change rows, in order.
    static std::vector<std::string> changes()
    {
        const std::lock_guard<std::mutex> lock(mutex());
        std::vector<std::string> words;
        for (const std::string& statement : statements()) {
            const std::string word = statement.substr(0, statement.find(' '));
            if (word == "UPDATE" || word == "REPLACE" || word == "DELETE")
                words.push_back(word);
        }
        return words;
    }

    static void clear()
    {
        const std::lock_guard<std::mutex> lock(mutex());
        statements().clear();
    }

    static int installLog() { return sqlite3_config(SQLITE_CONFIG_LOG, &Trace::logged, nullptr); }

private:
    static std::mutex& mutex()
    {
        static std::mutex instance;
        return instance;
    }
    static std::vector<std::string>& statements()
    {
        static std::vector<std::string> list;
        return list;
    }
    static int connected(sqlite3* connection, const char** /*error*/, const void* /*routines*/)
    {
        return sqlite3_trace_v2(connection, SQLITE_TRACE_STMT, &Trace::traced, nullptr);
    }
    static void logged(void* /*context*/, int /*code*/, const char* message)
    {
        const std::string text = message;
        const auto statement = text.find("DELETE ");
        if (statement == std::string::npos)
            return;
        const std::lock_guard<std::mutex> lock(mutex());
        statements().push_back(text.substr(statement, text.rfind('"') - statement));
    }
    static int traced(unsigned int /*kind*/, void* /*context*/, void* /*statement*/, void* text)
    {
        const std::lock_guard<std::mutex> lock(mutex());
        statements().emplace_back(static_cast<const char*>(text));
        return 0;
    }
};

const int logInstalled = Trace::installLog();

class Saving : public StorageTest
{
protected:
    /// Turns the application's loop until `done`, or for so long that something must be wrong.
    bool waitFor(const std::function<bool()>& done)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!done() && std::chrono::steady_clock::now() < end) {
            application.processEvents();
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return done();
    }

    static std::string saved(unsigned int id)
    {
        return SqlFile().row("SELECT Value FROM kel WHERE ID = " + std::to_string(id));
    }
};

} // namespace

TEST_F(Saving, ChangedValueReachesTheFile)
{
    writeDictionary("dictionary.json", 10);
    CkelMemoryDataStorage storage;
    storage.readConfigFile("dictionary.json", true);
    storage.updateValue(7, 7.5, false);
    EXPECT_EQ(saved(7), "1") << "nothing is written by the update itself";
    EXPECT_TRUE(waitFor([] { return saved(7) == "7.5"; }));
}

TEST_F(Saving, SavedValueComesBackInTheNextStorage)
{
    writeDictionary("dictionary.json", 10);
    {
        CkelMemoryDataStorage storage;
        storage.readConfigFile("dictionary.json", true);
        storage.updateValue(7, 7.5, false);
        EXPECT_TRUE(waitFor([] { return saved(7) == "7.5"; }));
    }
    CkelMemoryDataStorage storage;
    storage.readConfigFile("dictionary.json", true);
    EXPECT_VARIANT(storage.queryValue(7), 7.5);
    EXPECT_VARIANT(storage.queryValue(8), 1.0);
}

TEST_F(Saving, BlocksOfOneTickAreWrittenInTheirOrderAndRowsOfManyChangesOnce)
{
    writeDictionary("dictionary.json", 10);
    ASSERT_EQ(logInstalled, SQLITE_OK);
    const Trace trace;
    CkelMemoryDataStorage storage;
    storage.readConfigFile("dictionary.json", true);
    Trace::clear();
    storage.deleteData(1);
    storage.insertData(makeItem(200, "new", 5));
    for (int i = 0; i < 50; ++i)
        storage.updateValue(2, 100 + i, false);

    EXPECT_TRUE(waitFor([] { return Trace::count("DELETE") == 1; }));
    EXPECT_EQ(Trace::changes(), (std::vector<std::string>{"UPDATE", "REPLACE", "DELETE"}));
    EXPECT_EQ(Trace::count("DELETE FROM kel WHERE ID in ( 1 , );"), 1U);
    EXPECT_EQ(saved(2), "149");
    EXPECT_EQ(saved(200), "5");
    EXPECT_EQ(saved(1), "1") << "the row of the deleted item stays";
    EXPECT_TRUE(storage.validIDByDirty(DirtyDeleted, Storage::Equal).empty());
    EXPECT_EQ(storage.ID("item1"), 0U);
}

TEST_F(Saving, ThreeStoragesShareOneFolder)
{
    writeDictionary("dictionary.json", 20);
    auto* const factory = CkelDBStorageFactory::instance();
    Storage* const memory = factory->get(Storage::MemoryStorage);
    Storage* const safe = factory->get(Storage::SafeMemoryStorage);
    Storage* const file = factory->get(Storage::FileStorage);
    for (Storage* const storage : {memory, safe, file})
        storage->readConfigFile("dictionary.json", true);
    for (unsigned int id = 1; id <= 10; ++id) {
        memory->updateValue(id, 100 + id, false);
        safe->updateValue(10 + id, 200 + id, false);
        file->updateValue(id, 300 + id, false);
    }
    EXPECT_TRUE(waitFor(
        [] { return SqlFile().row("SELECT sum(Value) FROM kel") == std::to_string(10 * 100 + 55 + 10 * 200 + 55); }));
    EXPECT_VARIANT(memory->queryValue(11), 1.0) << "separate items";
    EXPECT_VARIANT(safe->queryValue(11), 201.0);
}

TEST_F(Saving, DestructionLetsTheBlockInProgressFinishAndDropsTheOthers)
{
    const std::vector<tagStorageData> first{makeItem(1, "one", 5), makeItem(2, "two", 6)};
    auto database = std::make_unique<CkelMemoryDB>();
    database->createMemoryDBTable();
    SqlFile other;
    ASSERT_TRUE(other.run("BEGIN IMMEDIATE")); // the worker's block has to wait here
    database->push({tagDBBlock::Insert, first});
    EXPECT_TRUE(waitFor([&] { return database->isEmpty(); })); // the worker has begun with it
    database->push({tagDBBlock::Insert, {makeItem(3, "three", 7)}});
    std::thread release([&other] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        other.run("COMMIT");
    });
    database.reset();
    release.join();
    EXPECT_EQ(other.rows("SELECT ID, Value FROM kel"), (std::vector<std::string>{"1|5", "2|6"}));
    EXPECT_EQ(other.row("PRAGMA integrity_check"), "ok");
}

// Threads

TEST_F(Saving, EightThreadsOnTheSafeStorageLoseNoEventWhileTicksRun)
{
    constexpr int threadCount = 8;
    constexpr int rounds = 2500; // of eleven operations each: 220,000 in all
    writeDictionary("dictionary.json", 200);
    CkelSafeMemoryStorage storage;
    storage.readConfigFile("dictionary.json", true);
    std::atomic<int> running{threadCount};

    std::vector<std::thread> threads;
    for (int number = 0; number < threadCount; ++number) {
        threads.emplace_back([&storage, &running, number] {
            const auto own = static_cast<unsigned int>(number + 1);      // updated by this thread alone
            const auto extra = static_cast<unsigned int>(1000 + number); // comes and goes
            for (int i = 1; i <= rounds; ++i) {
                storage.updateValue(own, 1000 + i, false); // always a change: one event
                storage.queryValue(own);
                storage.queryValue("item" + std::to_string(1 + i % 200));
                storage.insertData(makeItem(extra, "extra" + std::to_string(number), i));
                storage.updateField(own, "RW", i, false);
                storage.queryDataList(std::vector<unsigned int>{own, extra, 50});
                storage.deleteData(extra);
                storage.queryValueListBetween(1, 20);
                storage.IDList({"item1", "item2"});
                storage.updateValueList(std::vector<unsigned int>{own}, {CkelVariant()}, false);
                storage.hasLocalDB();
            }
            --running;
        });
    }
    std::vector<Announcement> events;
    const auto collect = [&] {
        for (Announcement& event : listener.take())
            events.push_back(event);
    };
    testing::internal::CaptureStdout(); // an insertion may meet an item that is still there
    while (running > 0) {
        collect();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    for (std::thread& thread : threads)
        thread.join();
    collect();
    testing::internal::GetCapturedStdout();

    std::vector<int> next(threadCount + 1, 1);
    for (const Announcement& event : events) {
        ASSERT_LE(event.id, static_cast<unsigned int>(threadCount));
        EXPECT_VARIANT(event.value, 1000.0 + next[event.id]++) << "each once and in order";
    }
    EXPECT_EQ(events.size(), static_cast<std::size_t>(threadCount) * rounds);
}

// The end of the process

namespace {

[[noreturn]] void endWithBusyWorkers()
{
    int argc = 0;
    const CkelApplicationPlus application(argc, nullptr);
    const Listener listener;
    writeDictionary("dictionary.json", 2000);
    auto* const factory = CkelDBStorageFactory::instance();
    for (const int kind : {0, 1, 2})
        factory->get(kind)->readConfigFile("dictionary.json", true);
    Storage* const safe = factory->get(Storage::SafeMemoryStorage);
    static std::atomic<bool> posting{false};
    std::thread([safe] {
        for (int i = 0;; ++i) {
            safe->updateValue(static_cast<unsigned int>(1 + i % 2000), i, false);
            posting = true;
        }
    }).detach();
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1100); // the workers write by then
    while (std::chrono::steady_clock::now() < end || !posting)
        CkelApplicationPlus::instance()->processEvents();
    std::exit(0);
}

class ProcessEnd : public FolderTest
{};

} // namespace

TEST_F(ProcessEnd, StoragesAliveAndWorkersBusyEndWithStatusZero)
{
    EXPECT_EXIT(endWithBusyWorkers(), testing::ExitedWithCode(0), "");
}
