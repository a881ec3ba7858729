#include "tests/datastorage/surroundings.h"
#include "database/kelsqliteclock.h"
#include "datastorage/kelmemorydatastorage.h"
#include "tests/datastorage/filefixture.h"
#include "tests/datastorage/storagefixture.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using KelTest::dictionary;
using KelTest::dictionaryItems;
using KelTest::localFile;
using KelTest::localRows;
using KelTest::openError;
using KelTest::Rows;
using KelTest::savedRows;
using KelTest::savedTable;
using KelTest::Surroundings;
using KelTest::writeDictionary;
using KelTest::writeLocalTable;
using Ombrin::CkelMemoryDataStorage;
using std::chrono::milliseconds;

// --- the local file ---

TEST_F(Surroundings, AMissingLocalFileIsMade)
{
    expectNewTable();
}

TEST_F(Surroundings, AnEmptyLocalFileGetsATable)
{
    KelTest::writeFile(localFile, "");
    expectNewTable();
}

TEST_F(Surroundings, ALocalFileOfZerosIsDoneWithout)
{
    const std::string zeros(16384, '\0');
    KelTest::writeFile(localFile, zeros);
    expectConfiguredItemsAlone();
    EXPECT_TRUE(KelTest::readFile(localFile) == zeros);
}

TEST_F(Surroundings, ATextAsLocalFileIsDoneWithout)
{
    for (const std::string& text : {std::string("text"), std::string(5000, 'x'), std::string("SQLite format 3")}) {
        KelTest::writeFile(localFile, text);
        expectConfiguredItemsAlone();
        EXPECT_TRUE(KelTest::readFile(localFile) == text);
    }
}

TEST_F(Surroundings, AFolderAsLocalFileIsDoneWithout)
{
    std::filesystem::create_directory(localFile);
    expectConfiguredItemsAlone();
    EXPECT_TRUE(std::filesystem::is_directory(localFile));
}

TEST_F(Surroundings, ALocalFileOfOtherTablesGetsATable)
{
    KelTest::Database(localFile).run("CREATE TABLE other(a); INSERT INTO other VALUES(5);");
    expectNewTable();
}

namespace {

constexpr unsigned int manyItems = 2000;

/// A local table of many rows, of the values 1000001 and up.
void writeManySavedRows()
{
    writeLocalTable("");
    KelTest::Database(localFile).run("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
                                     std::to_string(manyItems) +
                                     ") INSERT INTO kel SELECT i, 'Item_' || i, 0, 0, 0, 9, 1000000 + i, 0, 0, 0, 7, 8 "
                                     "FROM n;");
}

/// The same items with values of 1 and up.
void writeManyConfiguredItems()
{
    std::string items;
    for (unsigned int id = 1; id <= manyItems; ++id)
        items += (id == 1 ? "" : ",") + std::string("{\"ID\":") + std::to_string(id) + ",\"NameID\":\"Item_" +
                 std::to_string(id) + "\",\"ValueT\":9,\"Value\":" + std::to_string(id) + ".0}";
    writeDictionary(dictionary, items);
}

/// How many of the items have a saved value; every other has its configured one.
unsigned int restoredItems(const CkelMemoryDataStorage& storage)
{
    unsigned int restored = 0;
    for (unsigned int id = 1; id <= manyItems; ++id) {
        const double value = storage.queryValue(id).toDouble();
        if (value == 1000000.0 + id)
            ++restored;
        else
            EXPECT_EQ(value, id);
    }
    return restored;
}

} // namespace

TEST_F(Surroundings, ATruncatedLocalFileIsDoneWithout)
{
    writeManySavedRows();
    writeManyConfiguredItems();
    const std::string whole = KelTest::readFile(localFile);
    ASSERT_GT(whole.size(), 65536U);
    for (const std::size_t size : {whole.size() / 2, whole.size() - 1, whole.size() - 4096, std::size_t{12288},
                                   std::size_t{4096}, std::size_t{100}, std::size_t{16}, std::size_t{2}}) {
        SCOPED_TRACE(size);
        const std::string truncated = whole.substr(0, size);
        for (const char* configuration : {dictionary, ""}) {
            KelTest::writeFile(localFile, truncated);
            start(configuration, true, [&](Storage& storage) {
                if (configuration != dictionary)
                    return;
                restoredItems(storage);
                storage.updateField(1, "Block", 7, false);
                EXPECT_EQ(storage.queryData("Item_1").Block, 7);
                storage.insertData(KelTest::makeItem(manyItems + 1, "more"));
                EXPECT_EQ(storage.ID("more"), manyItems + 1);
            });
            EXPECT_TRUE(KelTest::readFile(localFile) == truncated);
        }
    }
}

TEST_F(Surroundings, OfALocalFileDamagedInTheMiddleTheReadableValuesAreRestoredAndTheRestIsKept)
{
    writeManySavedRows();
    writeManyConfiguredItems();
    std::string damaged = KelTest::readFile(localFile);
    damaged.replace(damaged.size() / 2 / 4096 * 4096, 4096, std::string(4096, '\xff'));
    KelTest::writeFile(localFile, damaged);
    start(dictionary, true, [](Storage& storage) {
        const unsigned int restored = restoredItems(storage);
        EXPECT_GT(restored, 0U);
        EXPECT_LT(restored, manyItems);
        EXPECT_VARIANT(storage.queryValue(1), 1000001.0);
        EXPECT_VARIANT(storage.queryValue(manyItems), 2000.0);
        storage.insertData(KelTest::makeItem(manyItems + 1, "more"));
        EXPECT_EQ(storage.ID("more"), manyItems + 1);
    });
    EXPECT_TRUE(KelTest::readFile(localFile) == damaged);
}

TEST_F(Surroundings, ADiskThatIsFullKeepsTheSavedValues)
{
    writeManySavedRows();
    std::string items;
    for (unsigned int id = 1; id <= 50 * manyItems; ++id)
        items += (id == 1 ? "" : ",") + std::string("{\"ID\":") + std::to_string(id) + ",\"NameID\":\"Other_" +
                 std::to_string(id) + "\",\"ValueT\":9,\"Value\":1.5}";
    writeDictionary(dictionary, items);
    const Rows before = localRows();

    // A file that may not grow answers as a full disk does.
    struct rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    struct rlimit full = limit;
    full.rlim_cur = std::filesystem::file_size(localFile) + 4096;
    const auto signalBefore = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
    start(dictionary, false, [](Storage& storage) {
        EXPECT_EQ(storage.ID("Other_100000"), 100000U);
        EXPECT_VARIANT(storage.queryValue(100000), 1.5);
    });
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    std::signal(SIGXFSZ, signalBefore);
    EXPECT_EQ(localRows(), before);
}

// --- permissions ---

namespace {

/// Takes away the rights of the superuser, for whom permissions do not count, while it lives.
class Unprivileged
{
public:
    Unprivileged() : m_user(geteuid()), m_group(getegid())
    {
        constexpr uid_t nobody = 65534;
        if (m_user != 0)
            return;
        EXPECT_EQ(setegid(nobody), 0);
        EXPECT_EQ(seteuid(nobody), 0);
    }

    ~Unprivileged()
    {
        EXPECT_EQ(seteuid(m_user), 0);
        EXPECT_EQ(setegid(m_group), 0);
    }

    Unprivileged(const Unprivileged&) = delete;
    Unprivileged& operator=(const Unprivileged&) = delete;

private:
    const uid_t m_user;
    const gid_t m_group;
};

/// The error of opening the file so, or 0.
int openErrorOf(const std::string& path, int flags)
{
    const int descriptor = open(path.c_str(), flags | O_CLOEXEC, 0600);
    if (descriptor < 0)
        return errno;
    close(descriptor);
    return 0;
}

class RestrictedSurroundings : public Surroundings
{
protected:
    void allow(const std::string& path, mode_t mode) { ASSERT_EQ(chmod(path.c_str(), mode), 0) << path; }

    void TearDown() override { allow(folder.path(), 0700); }
};

} // namespace

TEST_F(RestrictedSurroundings, AReadOnlyLocalFileIsReadAndKept)
{
    writeLocalTable(savedRows);
    allow(localFile, 0444);
    allow(folder.path(), 0777);
    {
        const Unprivileged user;
        ASSERT_EQ(openErrorOf(localFile, O_RDWR), EACCES);
        ASSERT_EQ(openErrorOf(localFile, O_RDONLY), 0);
        expectSavedValues();
        start(dictionary, false, [this](Storage& storage) {
            EXPECT_VARIANT(storage.queryValue(1), 1.5);
            expectUsable(storage);
        });
    }
    EXPECT_EQ(localRows(), savedTable);
}

TEST_F(RestrictedSurroundings, AnUnreadableLocalFileIsDoneWithoutAndKept)
{
    writeLocalTable(savedRows);
    allow(localFile, 0000);
    allow(folder.path(), 0777);
    {
        const Unprivileged user;
        ASSERT_EQ(openErrorOf(localFile, O_RDONLY), EACCES);
        expectConfiguredItemsAlone();
    }
    allow(localFile, 0600);
    EXPECT_EQ(localRows(), savedTable);
}

TEST_F(RestrictedSurroundings, ALocalFileInAReadOnlyFolderIsReadAndKept)
{
    writeLocalTable(savedRows);
    allow(localFile, 0666);
    allow(folder.path(), 0555);
    {
        const Unprivileged user;
        ASSERT_EQ(openErrorOf(localFile, O_RDWR), 0);
        ASSERT_EQ(openErrorOf("another", O_RDWR | O_CREAT), EACCES);
        expectSavedValues();
        start(dictionary, false, [this](Storage& storage) {
            EXPECT_VARIANT(storage.queryValue(1), 1.5);
            expectUsable(storage);
        });
    }
    allow(folder.path(), 0700);
    EXPECT_EQ(localRows(), savedTable);
}

TEST_F(RestrictedSurroundings, AReadOnlyFolderWithoutALocalFileIsDoneWithout)
{
    allow(folder.path(), 0555);
    {
        const Unprivileged user;
        ASSERT_EQ(openErrorOf(localFile, O_RDWR | O_CREAT), EACCES);
        expectConfiguredItemsAlone();
    }
    EXPECT_FALSE(std::filesystem::exists(localFile));
}

TEST_F(RestrictedSurroundings, AnUnreadableDictionaryIsReportedAndDoneWithout)
{
    writeLocalTable(savedRows);
    allow(dictionary, 0000);
    allow(localFile, 0666);
    allow(folder.path(), 0777);
    const Unprivileged user;
    ASSERT_EQ(openErrorOf(dictionary, O_RDONLY), EACCES);
    start(
        dictionary, true,
        [this](Storage& storage) {
            EXPECT_VARIANT(storage.queryValue(1), 101.5);
            expectUsable(storage);
        },
        openError);
}

TEST_F(RestrictedSurroundings, AnUnreadableConfigurationDatabaseIsDoneWithout)
{
    KelTest::writeConfiguration("configuration.db", "(1,'uno',0,0,0,0,9,5,0,0,0)");
    writeLocalTable(savedRows);
    allow("configuration.db", 0000);
    allow(localFile, 0666);
    allow(folder.path(), 0777);
    const Unprivileged user;
    ASSERT_EQ(openErrorOf("configuration.db", O_RDONLY), EACCES);
    start("configuration.db", true, [this](Storage& storage) {
        EXPECT_VARIANT(storage.queryValue(1), 101.5);
        expectUsable(storage);
    });
}

TEST_F(RestrictedSurroundings, AReadOnlyConfigurationInAReadOnlyFolderIsRead)
{
    KelTest::writeConfiguration("configuration.db", "(1,'one',0,0,0,0,9,5,0,0,0),(2,'two',0,0,0,0,9,6,0,0,0)");
    allow("configuration.db", 0444);
    allow(dictionary, 0444);
    allow(folder.path(), 0555);
    const Unprivileged user;
    ASSERT_EQ(openErrorOf("configuration.db", O_RDWR), EACCES);
    start("configuration.db", true, [this](Storage& storage) {
        EXPECT_VARIANT(storage.queryValue(1), 5.0);
        expectUsable(storage);
    });
    start(dictionary, true, [this](Storage& storage) {
        EXPECT_VARIANT(storage.queryValue(1), 1.5);
        expectUsable(storage);
    });
}

// --- locks ---

namespace {

/// Another process that holds the local file locked until told to let go.
class LockingProcess
{
public:
    /// Make it before this process has the file open: SQLite must not be taken from one process into another.
    explicit LockingProcess(const char* lockText)
    {
        std::array<int, 2> ready{};
        std::array<int, 2> letGo{};
        EXPECT_EQ(pipe(ready.data()), 0);
        EXPECT_EQ(pipe(letGo.data()), 0);
        m_process = fork();
        if (m_process == 0) {
            close(letGo[1]);
            holdLock(lockText, ready[1], letGo[0]);
        }
        close(ready[1]);
        close(letGo[0]);
        m_letGo = letGo[1];
        char locked = 0;
        EXPECT_EQ(read(ready[0], &locked, 1), 1);
        EXPECT_EQ(locked, 'y');
        close(ready[0]);
    }

    ~LockingProcess() { release(); }

    LockingProcess(const LockingProcess&) = delete;
    LockingProcess& operator=(const LockingProcess&) = delete;

    /// Returns when the lock is gone.
    void release()
    {
        if (m_process <= 0)
            return;
        close(m_letGo);
        EXPECT_EQ(waitpid(m_process, nullptr, 0), m_process);
        m_process = 0;
    }

private:
    [[noreturn]] static void holdLock(const char* lockText, int ready, int letGo)
    {
        sqlite3* connection = nullptr;
        const bool locked = sqlite3_open(localFile, &connection) == SQLITE_OK &&
                            sqlite3_exec(connection, lockText, nullptr, nullptr, nullptr) == SQLITE_OK;
        char byte = locked ? 'y' : 'n';
        if (write(ready, &byte, 1) == 1)
            while (read(letGo, &byte, 1) > 0) {
            }
        sqlite3_close(connection);
        _exit(0);
    }

    pid_t m_process = -1;
    int m_letGo = -1;
};

/// While it lives, SQLite's waits for a lock pass at once, and `onWait` learns how long they would have been in all.
class PassingTime
{
public:
    explicit PassingTime(std::function<void(milliseconds waited)> onWait) : m_onWait(std::move(onWait))
    {
        original() = sqlite3_vfs_find(nullptr);
        fileSystem() = *original();
        fileSystem().zName = "passing time";
        fileSystem().pNext = nullptr;
        fileSystem().xSleep = &PassingTime::sleep;
        current() = this;
        Ombrin::kelSqliteNow = &PassingTime::now;
        EXPECT_EQ(sqlite3_vfs_register(&fileSystem(), 1), SQLITE_OK);
    }

    ~PassingTime()
    {
        sqlite3_vfs_unregister(&fileSystem());
        sqlite3_vfs_register(original(), 1);
        const std::lock_guard<std::mutex> guard(lock());
        current() = nullptr;
        Ombrin::kelSqliteNow = &std::chrono::steady_clock::now;
    }

    PassingTime(const PassingTime&) = delete;
    PassingTime& operator=(const PassingTime&) = delete;

    milliseconds waited() const { return std::chrono::duration_cast<milliseconds>(m_waited); }

private:
    // Connections keep the file system that they were opened with: it outlives them.
    static sqlite3_vfs& fileSystem()
    {
        static sqlite3_vfs instance = {};
        return instance;
    }

    static sqlite3_vfs*& original()
    {
        static sqlite3_vfs* instance = nullptr;
        return instance;
    }

    static PassingTime*& current()
    {
        static PassingTime* instance = nullptr;
        return instance;
    }

    static std::mutex& lock()
    {
        static std::mutex instance;
        return instance;
    }

    static std::chrono::steady_clock::time_point now()
    {
        const std::lock_guard<std::mutex> guard(lock());
        if (!current())
            return std::chrono::steady_clock::now();
        return std::chrono::steady_clock::time_point() + current()->m_waited; // it passes in the waits alone
    }

    static int sleep(sqlite3_vfs* /*fileSystem*/, int microseconds)
    {
        const std::lock_guard<std::mutex> guard(lock());
        if (current()) {
            current()->m_waited += std::chrono::microseconds(microseconds);
            current()->m_onWait(current()->waited());
        }
        return microseconds;
    }

    const std::function<void(milliseconds waited)> m_onWait;
    std::chrono::microseconds m_waited{0};
};

constexpr const char* lockAll = "BEGIN EXCLUSIVE";
constexpr const char* lockWriting = "BEGIN IMMEDIATE";

class LockedSurroundings : public Surroundings
{
protected:
    void SetUp() override
    {
        Surroundings::SetUp();
        writeLocalTable(savedRows);
    }
};

} // namespace

TEST_F(LockedSurroundings, ALockOfOneSecondIsWaitedFor)
{
    LockingProcess process(lockAll);
    std::thread other([&process] {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        process.release();
    });
    expectSavedValues();
    other.join();
    EXPECT_EQ(localRows(), savedTable);
}

TEST_F(LockedSurroundings, ALockOfTwoSecondsIsWaitedFor)
{
    LockingProcess process(lockAll);
    const PassingTime time([&process](milliseconds waited) {
        if (waited >= milliseconds(2000))
            process.release();
    });
    expectSavedValues();
    EXPECT_GE(time.waited(), milliseconds(2000));
    EXPECT_EQ(localRows(), savedTable);
}

TEST_F(LockedSurroundings, ALockThatOutlastsTheStartLeavesTheSavedValues)
{
    for (const bool useLocalDB : {true, false}) {
        LockingProcess process(lockAll);
        const PassingTime time([](milliseconds) {});
        start(dictionary, useLocalDB, [this](Storage& storage) {
            EXPECT_VARIANT(storage.queryValue(1), 1.5);
            expectUsable(storage);
        });
        EXPECT_GE(time.waited(), milliseconds(5000));
        process.release();
        EXPECT_EQ(localRows(), savedTable);
    }
}

TEST_F(LockedSurroundings, ALockThatOutlastsTheStartWithoutAConfigurationLeavesTheSavedValues)
{
    LockingProcess process(lockAll);
    const PassingTime time([](milliseconds) {});
    start("", true, [](Storage&) {});
    process.release();
    EXPECT_EQ(localRows(), savedTable);
}

TEST_F(LockedSurroundings, ALockThatEndsSoonAfterItWasGivenUpLeavesTheSavedValues)
{
    for (const milliseconds end : {milliseconds(5001), milliseconds(7000), milliseconds(9900)}) {
        SCOPED_TRACE(end.count());
        LockingProcess process(lockAll);
        const PassingTime time([&process, end](milliseconds waited) {
            if (waited >= end)
                process.release();
        });
        start(dictionary, true, [this](Storage& storage) { expectUsable(storage); });
        process.release();
        EXPECT_EQ(localRows(), savedTable);
    }
}

TEST_F(LockedSurroundings, ALockThatEndsSoonAfterItWasGivenUpWithoutAConfigurationLeavesTheSavedValues)
{
    LockingProcess process(lockAll);
    const PassingTime time([&process](milliseconds waited) {
        if (waited >= milliseconds(7000))
            process.release();
    });
    start("", true, [](Storage&) {});
    process.release();
    EXPECT_EQ(localRows(), savedTable);
}

TEST_F(LockedSurroundings, AnotherWritersLockDoesNotKeepValuesFromBeingRestored)
{
    LockingProcess process(lockWriting);
    expectSavedValues();
    process.release();
    EXPECT_EQ(localRows(), savedTable);
}

TEST_F(LockedSurroundings, AnotherWritersLockKeepsTheTableFromBeingRebuilt)
{
    LockingProcess process(lockWriting);
    const PassingTime time([](milliseconds) {});
    start(dictionary, false, [this](Storage& storage) {
        EXPECT_VARIANT(storage.queryValue(1), 1.5);
        expectUsable(storage);
    });
    EXPECT_GE(time.waited(), milliseconds(5000));
    process.release();
    EXPECT_EQ(localRows(), savedTable);
}

TEST_F(LockedSurroundings, AReadersLockKeepsTheTableFromBeingRebuilt)
{
    LockingProcess process("BEGIN; SELECT * FROM kel;");
    const PassingTime time([](milliseconds) {});
    start(dictionary, false, [this](Storage& storage) { expectUsable(storage); });
    EXPECT_GE(time.waited(), milliseconds(5000));
    process.release();
    EXPECT_EQ(localRows(), savedTable);
}

TEST_F(LockedSurroundings, ALockedConfigurationDatabaseIsDoneWithout)
{
    std::filesystem::rename(localFile, "saved");
    KelTest::writeConfiguration(localFile, "(1,'uno',0,0,0,0,9,5,0,0,0)");
    LockingProcess process(lockAll);
    std::filesystem::rename(localFile, "configuration.db");
    std::filesystem::rename("saved", localFile);
    const PassingTime time([](milliseconds) {});
    start("configuration.db", true, [this](Storage& storage) {
        EXPECT_VARIANT(storage.queryValue(1), 101.5);
        expectUsable(storage);
    });
    EXPECT_GE(time.waited(), milliseconds(5000));
}

namespace {

/// Tells when it has been asked for its table and has its answer.
class AskedStorage : public CkelMemoryDataStorage
{
public:
    bool hasLocalDB() const override
    {
        const bool has = CkelMemoryDataStorage::hasLocalDB();
        m_asked = true;
        return has;
    }

    bool wasAsked() const { return m_asked; }

private:
    mutable std::atomic<bool> m_asked{false};
};

/// Whether `condition` holds within a generous time.
template <typename Condition>
bool comesTrue(Condition condition, std::chrono::seconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
}

} // namespace

TEST_F(LockedSurroundings, SavedValuesAreRestoredWhileTheWorkerThreadWaitsForTheFile)
{
    std::atomic<bool> workerWaits{false};
    KelTest::Database other(localFile);
    AskedStorage* asked = nullptr;
    const PassingTime time([&](milliseconds) {
        if (workerWaits.exchange(true))
            return;
        // It holds the file until the storage has been asked, or stands still because it waits for the worker too.
        comesTrue([&asked] { return asked->wasAsked(); }, std::chrono::seconds(2));
        other.run("ROLLBACK;");
    });
    AskedStorage storage;
    asked = &storage;
    storage.readJsonFile(dictionary);
    storage.updateValue(1, 7, false);
    storage.syncToMemoryDB();
    other.run("BEGIN EXCLUSIVE;");
    ASSERT_TRUE(comesTrue([&workerWaits] { return workerWaits.load(); }, std::chrono::seconds(30)));
    storage.readConfigFile(dictionary, true);
    EXPECT_VARIANT(storage.queryValue(2), 102.5);
    EXPECT_EQ(localRows().back(), savedTable.back());
}

// --- tables of another making ---

namespace {

class ForeignTable : public Surroundings
{
protected:
    const KelTest::FoldersWithin folders{folder.path()};
    const std::string fewColumns =
        KelTest::failedCheck("kelsqlitevariantvector\\.cpp", "index>=0\\|\\|index<count\\(\\)");
};

} // namespace

TEST_F(ForeignTable, OfTooFewColumnsIsNotReadAndKeptWhenItHasRows)
{
    for (const std::string columns : {"ID, NameID, CommSource, RW, Block, ValueT, Value, DefValue, Max", "ID"}) {
        std::filesystem::remove(localFile);
        KelTest::Database(localFile).run("CREATE TABLE kel(" + columns + "); INSERT INTO kel(ID) VALUES(1);");
        start(dictionary, true, [this](Storage& storage) {
            EXPECT_TRUE(storage.hasLocalDB());
            EXPECT_VARIANT(storage.queryValue(1), 1.5);
            expectUsable(storage);
        });
        start("", true, [](Storage& storage) { EXPECT_EQ(storage.nameID(1), ""); });
        EXPECT_EQ(KelTest::Database(localFile).rows("SELECT ID FROM kel"), Rows{"1"});
    }
}

TEST_F(ForeignTable, OfTooFewColumnsAsConfigurationEndsTheProcessWhenItHasRows)
{
    KelTest::Database("configuration.db")
        .run(
            "CREATE TABLE kel(ID, NameID, CommSource, DBSource, RW, Block, ValueT, Value, DefValue, Max);"
            "INSERT INTO kel VALUES(1,'one',0,0,0,0,9,101.5,0,0);");
    EXPECT_PROCESS_ENDS(CkelMemoryDataStorage().readConfigFile("configuration.db", true), fewColumns);
}

TEST_F(ForeignTable, OfTooFewColumnsWithoutRowsIsReplaced)
{
    KelTest::Database(localFile).run("CREATE TABLE kel(ID, NameID);");
    start(dictionary, true, [this](Storage& storage) { expectUsable(storage); });
    EXPECT_EQ(KelTest::Database(localFile).rows("SELECT count(*) FROM pragma_table_info('kel')"), Rows{"12"});
}

TEST_F(ForeignTable, OfTooFewColumnsIsReplacedWhenSavedValuesAreNotWanted)
{
    KelTest::Database(localFile).run("CREATE TABLE kel(ID, NameID); INSERT INTO kel VALUES(1,'one');");
    start(dictionary, false, [this](Storage& storage) { expectUsable(storage); });
    EXPECT_EQ(localRows().size(), 2U);
}

TEST_F(ForeignTable, WithoutUnitsIsReadByPosition)
{
    KelTest::Database(localFile).run(
        "CREATE TABLE kel(a, b, c, d, e, f, g, h, i, j);"
        "INSERT INTO kel VALUES(1,'one',0,0,0,9,101.5,0,0,0),(2,'two',0,0,0,9,102.5,0,0,0);");
    expectSavedValues();
}

TEST_F(ForeignTable, OfMoreColumnsAndOtherNamesIsReadByPosition)
{
    KelTest::Database(localFile).run(
        "CREATE TABLE kel(Min, Max, a, b, c, d, Name, ID, Value, e, f, g, h, i);"
        "INSERT INTO kel VALUES(1,'one',0,0,0,9,101.5,0,0,0,1,2,3,4),(2,'two',0,0,0,9,102.5,0,0,0,1,2,3,4);");
    expectSavedValues();
    EXPECT_EQ(KelTest::Database(localFile).rows("SELECT count(*) FROM pragma_table_info('kel')"), Rows{"14"});
}

TEST_F(ForeignTable, WithoutAKeyMayHoldAnIDTwice)
{
    KelTest::Database(localFile).run(
        "CREATE TABLE kel(a, b, c, d, e, f, g, h, i, j);"
        "INSERT INTO kel VALUES(1,'one',0,0,0,9,5,0,0,0),(1,'one',0,0,0,9,6,0,0,0);");
    start(dictionary, true, [this](Storage& storage) {
        EXPECT_VARIANT(storage.queryValue(1), 6.0);
        expectUsable(storage);
    });
    start("", true, [](Storage& storage) { EXPECT_VARIANT(storage.queryValue("one"), 5.0); });
}

TEST_F(ForeignTable, ThatIsAViewIsNone)
{
    KelTest::Database(localFile).run(
        "CREATE TABLE t(a, b, c, d, e, f, g, h, i, j); INSERT INTO t VALUES(1,'one',0,0,0,9,5,0,0,0);"
        "CREATE VIEW kel AS SELECT * FROM t;");
    expectConfiguredItemsAlone();
    EXPECT_EQ(KelTest::Database(localFile).rows("SELECT g FROM kel"), Rows{"5"});
}

// --- the configuration file ---

namespace {

class ConfigurationFile : public Surroundings
{
protected:
    const KelTest::FoldersWithin folders{folder.path()};
    const std::string noObject = KelTest::failedCheck("rapidjson/document\\.h", "IsObject\\(\\)");

    /// The items are those of the local table.
    void expectSavedItems(const std::string& configuration, const std::string& expectedOutput = "")
    {
        writeLocalTable(savedRows);
        start(
            configuration, true,
            [this](Storage& storage) {
                EXPECT_VARIANT(storage.queryValue(1), 101.5);
                expectUsable(storage);
            },
            expectedOutput);
        EXPECT_EQ(localRows(), savedTable);
    }
};

} // namespace

TEST_F(ConfigurationFile, ThatIsAMissingDictionaryIsReportedAndDoneWithout)
{
    expectSavedItems("missing.json", openError);
}

TEST_F(ConfigurationFile, ThatIsAMissingDatabaseIsDoneWithoutAndNotMade)
{
    expectSavedItems("missing.db");
    EXPECT_FALSE(std::filesystem::exists("missing.db"));
}

TEST_F(ConfigurationFile, ThatIsAFolderNamedAsADictionaryIsReportedAndDoneWithout)
{
    std::filesystem::create_directory("folder.json");
    expectSavedItems("folder.json", openError);
}

TEST_F(ConfigurationFile, ThatIsAFolderNamedAsADatabaseIsDoneWithout)
{
    std::filesystem::create_directory("folder.db");
    expectSavedItems("folder.db");
}

TEST_F(ConfigurationFile, ThatIsAnEmptyDictionaryFileEndsTheProcess)
{
    KelTest::writeFile("empty.json", "");
    EXPECT_PROCESS_ENDS(CkelMemoryDataStorage().readConfigFile("empty.json", true), noObject);
}

TEST_F(ConfigurationFile, ThatIsAnEmptyDatabaseFileIsDoneWithoutAndLeftEmpty)
{
    KelTest::writeFile("empty.db", "");
    expectSavedItems("empty.db");
    EXPECT_EQ(std::filesystem::file_size("empty.db"), 0U);
}

TEST_F(ConfigurationFile, ThatIsADictionaryWithAByteOrderMarkEndsTheProcess)
{
    KelTest::writeFile("marked.json", "\xef\xbb\xbf{\"kel\":[" + std::string(dictionaryItems) + "]}");
    EXPECT_PROCESS_ENDS(CkelMemoryDataStorage().readConfigFile("marked.json", true), noObject);
}

TEST_F(ConfigurationFile, ThatIsATruncatedDatabaseIsDoneWithout)
{
    {
        KelTest::Database database("configuration.db");
        database.run(
            "CREATE TABLE kel(ID, NameID, CommSource, DBSource, RW, Block, ValueT, Value, DefValue, Max, Min);"
            "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2000) "
            "INSERT INTO kel SELECT i, 'Item_' || i, 1, 2, 3, 4, 9, i, 0, 0, 0 FROM n;");
    }
    std::filesystem::resize_file("configuration.db", std::filesystem::file_size("configuration.db") / 2);
    expectSavedItems("configuration.db");
}

namespace {

/// Ten rows of value type `firstCode`, then many of type 9, some of which cannot be read.
void writeDamagedConfiguration(int firstCode)
{
    {
        KelTest::Database database("configuration.db");
        database.run(
            "CREATE TABLE kel(ID, NameID, CommSource, DBSource, RW, Block, ValueT, Value, DefValue, Max, Min);"
            "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2000) "
            "INSERT INTO kel SELECT i, 'Item_' || i, 1, 2, 3, 4, iif(i <= 10, " +
            std::to_string(firstCode) + ", 9), i, 0, 0, 0 FROM n;");
    }
    std::string damaged = KelTest::readFile("configuration.db");
    damaged.replace(damaged.size() / 2 / 4096 * 4096, 4096, std::string(4096, '\xff'));
    KelTest::writeFile("configuration.db", damaged);
}

} // namespace

TEST_F(ConfigurationFile, ThatIsADatabaseDamagedInTheMiddleIsDoneWithoutAltogether)
{
    writeDamagedConfiguration(9);
    expectSavedItems("configuration.db");
}

TEST_F(ConfigurationFile, ThatIsADatabaseDamagedInTheMiddleHasNoneOfItsRowsReported)
{
    writeDamagedConfiguration(15);
    expectSavedItems("configuration.db");
}

TEST_F(ConfigurationFile, ThatIsADictionaryOf200MegabytesLoads)
{
    const std::string blanks(1024 * 1024, ' ');
    {
        std::ofstream file("large.json", std::ios::binary);
        file << "{\"kel\":[";
        for (int i = 0; i < 200; ++i)
            file << blanks;
        file << dictionaryItems << "]}";
        ASSERT_TRUE(file.good());
    }
    ASSERT_GT(std::filesystem::file_size("large.json"), 200U * 1024 * 1024);
    start("large.json", true, [this](Storage& storage) {
        EXPECT_VARIANT(storage.queryValue(1), 1.5);
        expectUsable(storage);
    });
    std::filesystem::remove("large.json");
    EXPECT_EQ(localRows().size(), 2U);
}

TEST_F(ConfigurationFile, ThatIsADictionaryPipeIsReportedAtOnceAndDoneWithout)
{
    std::filesystem::remove(dictionary);
    ASSERT_EQ(mkfifo(dictionary, 0600), 0);
    writeLocalTable(savedRows);
    start(
        dictionary, true, [](Storage& storage) { EXPECT_VARIANT(storage.queryValue(1), 101.5); }, openError);
}

TEST_F(ConfigurationFile, ThatIsADatabasePipeIsDoneWithoutAtOnce)
{
    ASSERT_EQ(mkfifo("configuration.db", 0600), 0);
    writeLocalTable(savedRows);
    start("configuration.db", true, [](Storage& storage) { EXPECT_VARIANT(storage.queryValue(1), 101.5); });
}
