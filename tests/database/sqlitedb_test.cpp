#include "database/kelsqlitedb.h"

#include "database/kelsqliteclock.h"
#include "database/kelsqlitestatement.h"
#include "kernel/kelstring.h"
#include "tests/support/testfolder.h"

#include <gtest/gtest.h>

#include <sqlite3.h>

#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

using Ombrin::CkelSqliteDB;
using Ombrin::CkelSqliteVariantVector;

namespace {

class SqliteDB : public KelTest::FolderTest
{
protected:
    static int run(const CkelSqliteDB& connection, const std::string& text)
    {
        return sqlite3_exec(connection.handle(), text.c_str(), nullptr, nullptr, nullptr);
    }

    static std::vector<long long> numbers(CkelSqliteDB& connection, const std::string& text)
    {
        std::vector<long long> result;
        const auto rows = connection.query(text);
        for (const CkelSqliteVariantVector& row : *rows)
            result.push_back(row.toValue<long long>(0));
        return result;
    }

    CkelSqliteDB database;
};

/// While it lives, the calling thread must heed the permissions of files even when it runs for root.
class HeedPermissions
{
public:
    HeedPermissions()
    {
        syscall(SYS_capget, &m_header, m_before.data());
        auto without = m_before;
        without[0].effective &= ~((1U << CAP_DAC_OVERRIDE) | (1U << CAP_DAC_READ_SEARCH));
        syscall(SYS_capset, &m_header, without.data());
    }
    ~HeedPermissions() { syscall(SYS_capset, &m_header, m_before.data()); }
    HeedPermissions(const HeedPermissions&) = delete;
    HeedPermissions& operator=(const HeedPermissions&) = delete;

private:
    __user_cap_header_struct m_header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, 2> m_before{};
};

// Opening and closing

TEST_F(SqliteDB, IsClosedAtFirst)
{
    EXPECT_FALSE(database.isOpen());
    EXPECT_EQ(database.handle(), nullptr);
    EXPECT_EQ(database.lastResult(), SQLITE_OK);
}

TEST_F(SqliteDB, OpenMakesAMissingFile)
{
    EXPECT_TRUE(database.open("new.db"));
    EXPECT_TRUE(database.isOpen());
    EXPECT_NE(database.handle(), nullptr);
    EXPECT_TRUE(std::filesystem::exists("new.db"));
}

TEST_F(SqliteDB, OpenKeepsWhatIsInTheFile)
{
    ASSERT_TRUE(database.open("a.db"));
    ASSERT_EQ(run(database, "CREATE TABLE t(a); INSERT INTO t VALUES(7);"), SQLITE_OK);
    ASSERT_TRUE(database.open("a.db"));
    EXPECT_EQ(numbers(database, "SELECT a FROM t"), std::vector<long long>{7});
}

TEST_F(SqliteDB, OpenClosesWhatWasOpenBefore)
{
    ASSERT_TRUE(database.open("a.db"));
    ASSERT_EQ(run(database, "CREATE TABLE t(a); BEGIN IMMEDIATE;"), SQLITE_OK);
    ASSERT_TRUE(database.open("b.db"));
    EXPECT_TRUE(numbers(database, "SELECT name FROM sqlite_master").empty());
    CkelSqliteDB other;
    ASSERT_TRUE(other.open("a.db"));
    sqlite3_busy_timeout(other.handle(), 0);
    EXPECT_EQ(run(other, "BEGIN IMMEDIATE"), SQLITE_OK);
}

TEST_F(SqliteDB, OpenReportsAFileThatCannotBeOpened)
{
    std::filesystem::create_directory("folder.db");
    EXPECT_FALSE(database.open("folder.db"));
    EXPECT_EQ(database.lastResult(), SQLITE_CANTOPEN);
    EXPECT_FALSE(database.isOpen());
    EXPECT_EQ(database.handle(), nullptr);
}

TEST_F(SqliteDB, OpenReportsAMissingFolder)
{
    EXPECT_FALSE(database.open("missing/a.db"));
    EXPECT_EQ(database.lastResult(), SQLITE_CANTOPEN);
}

TEST_F(SqliteDB, FailedOpenClosesWhatWasOpenBefore)
{
    ASSERT_TRUE(database.open("a.db"));
    EXPECT_FALSE(database.open("missing/a.db"));
    EXPECT_FALSE(database.isOpen());
}

TEST_F(SqliteDB, OpensAgainAfterAFailure)
{
    ASSERT_FALSE(database.open("missing/a.db"));
    EXPECT_TRUE(database.open("a.db"));
    EXPECT_EQ(numbers(database, "SELECT 1"), std::vector<long long>{1});
}

TEST_F(SqliteDB, OpenDoesNotLookIntoTheFile)
{
    std::ofstream("garbage.db") << std::string(5000, 'x');
    EXPECT_TRUE(database.open("garbage.db"));
    EXPECT_EQ(database.query("SELECT * FROM t")->count(), 0);
    EXPECT_EQ(database.lastResult(), SQLITE_NOTADB);
}

TEST_F(SqliteDB, FileThatCannotBeWrittenIsOpenedForReading)
{
    ASSERT_TRUE(database.open("a.db"));
    ASSERT_EQ(run(database, "CREATE TABLE t(a); INSERT INTO t VALUES(7);"), SQLITE_OK);
    database.close();
    std::filesystem::permissions("a.db", std::filesystem::perms::owner_read);
    const HeedPermissions heed;
    ASSERT_TRUE(database.open("a.db"));
    EXPECT_EQ(numbers(database, "SELECT a FROM t"), std::vector<long long>{7});
    EXPECT_EQ(run(database, "INSERT INTO t VALUES(8)"), SQLITE_READONLY);
}

TEST_F(SqliteDB, FileThatCannotBeWrittenOpensNoTransaction)
{
    ASSERT_TRUE(database.open("a.db"));
    ASSERT_EQ(run(database, "CREATE TABLE t(a);"), SQLITE_OK);
    database.close();
    std::filesystem::permissions("a.db", std::filesystem::perms::owner_read);
    const HeedPermissions heed;
    ASSERT_TRUE(database.open("a.db"));
    Ombrin::CkelSqliteTransaction transaction(database.handle());
    EXPECT_FALSE(transaction.isOpen());
    EXPECT_FALSE(transaction.commit());
}

TEST_F(SqliteDB, ClosesOnceAndForAll)
{
    ASSERT_TRUE(database.open("a.db"));
    database.close();
    EXPECT_FALSE(database.isOpen());
    EXPECT_EQ(database.handle(), nullptr);
    database.close();
    EXPECT_FALSE(database.isOpen());
}

TEST_F(SqliteDB, DestructorClosesTheConnection)
{
    ASSERT_TRUE(database.open("a.db"));
    sqlite3_busy_timeout(database.handle(), 0);
    {
        CkelSqliteDB other;
        ASSERT_TRUE(other.open("a.db"));
        ASSERT_EQ(run(other, "BEGIN EXCLUSIVE"), SQLITE_OK);
        EXPECT_EQ(run(database, "CREATE TABLE t(a)"), SQLITE_BUSY);
    }
    EXPECT_EQ(run(database, "CREATE TABLE t(a)"), SQLITE_OK);
}

// Queries

TEST_F(SqliteDB, QueryReturnsTheRowsInOrder)
{
    ASSERT_TRUE(database.open("a.db"));
    EXPECT_EQ(numbers(database, "SELECT 3 UNION ALL SELECT 1 UNION ALL SELECT 2"), (std::vector<long long>{3, 1, 2}));
    EXPECT_EQ(database.lastResult(), SQLITE_DONE);
}

TEST_F(SqliteDB, QueryWithoutRowsIsNoFailure)
{
    ASSERT_TRUE(database.open("a.db"));
    EXPECT_EQ(database.query("SELECT 1 WHERE 0")->count(), 0);
    EXPECT_EQ(database.lastResult(), SQLITE_DONE);
    EXPECT_TRUE(database.forEachRow("SELECT 1 WHERE 0", [](const CkelSqliteVariantVector&) { FAIL(); }));
}

TEST_F(SqliteDB, QueryOfAMissingTableIsEmptyAndAnError)
{
    ASSERT_TRUE(database.open("a.db"));
    EXPECT_EQ(database.query("SELECT * FROM kel")->count(), 0);
    EXPECT_EQ(database.lastResult(), SQLITE_ERROR);
}

TEST_F(SqliteDB, QueryOnAClosedDatabaseIsEmptyAndAnError)
{
    EXPECT_EQ(database.query("SELECT 1")->count(), 0);
    EXPECT_NE(database.lastResult(), SQLITE_OK);
    EXPECT_NE(database.lastResult(), SQLITE_DONE);
    EXPECT_FALSE(database.forEachRow("SELECT 1", [](const CkelSqliteVariantVector&) { FAIL(); }));
}

TEST_F(SqliteDB, QueryWithoutAStatementIsAnError)
{
    ASSERT_TRUE(database.open("a.db"));
    for (const char* const text : {"", "  ", "-- nothing"}) {
        database.setLastResult(SQLITE_OK);
        EXPECT_FALSE(database.forEachRow(text, [](const CkelSqliteVariantVector&) { FAIL(); }));
        EXPECT_NE(database.lastResult(), SQLITE_OK) << '"' << text << '"';
        EXPECT_NE(database.lastResult(), SQLITE_DONE) << '"' << text << '"';
    }
}

TEST_F(SqliteDB, QueryThatFailsOnTheWayReturnsNoRows)
{
    ASSERT_TRUE(database.open("a.db"));
    ASSERT_EQ(run(database, "CREATE TABLE t(a); INSERT INTO t VALUES(1),(2),(-9223372036854775808);"), SQLITE_OK);
    EXPECT_EQ(database.query("SELECT abs(a) FROM t")->count(), 0); // the third has no positive counterpart
    EXPECT_EQ(database.lastResult(), SQLITE_ERROR);
}

TEST_F(SqliteDB, ForEachRowVisitsTheRowsBeforeAFailure)
{
    ASSERT_TRUE(database.open("a.db"));
    ASSERT_EQ(run(database, "CREATE TABLE t(a); INSERT INTO t VALUES(1),(2),(-9223372036854775808);"), SQLITE_OK);
    std::vector<long long> visited;
    EXPECT_FALSE(database.forEachRow("SELECT abs(a) FROM t", [&visited](const CkelSqliteVariantVector& row) {
        visited.push_back(row.toValue<long long>(0));
    }));
    EXPECT_EQ(visited, (std::vector<long long>{1, 2}));
}

TEST_F(SqliteDB, FailedQueryLeavesNoStatementBehind)
{
    ASSERT_TRUE(database.open("a.db"));
    database.query("SELECT abs(-9223372036854775808)");
    database.query("SELECT FROM");
    EXPECT_EQ(sqlite3_next_stmt(database.handle(), nullptr), nullptr);
}

TEST_F(SqliteDB, VisitorThatThrowsLeavesNoStatementBehind)
{
    ASSERT_TRUE(database.open("a.db"));
    EXPECT_THROW(database.forEachRow("SELECT 1", [](const CkelSqliteVariantVector&) { throw 5; }), int);
    EXPECT_EQ(sqlite3_next_stmt(database.handle(), nullptr), nullptr);
}

TEST_F(SqliteDB, VisitorMayQueryTheSameConnection)
{
    ASSERT_TRUE(database.open("a.db"));
    std::vector<long long> inner;
    EXPECT_TRUE(database.forEachRow("SELECT 1 UNION ALL SELECT 2", [&](const CkelSqliteVariantVector& row) {
        inner.push_back(numbers(database, "SELECT 10 * " + row.toValue<std::string>(0)).at(0));
    }));
    EXPECT_EQ(inner, (std::vector<long long>{10, 20}));
}

TEST_F(SqliteDB, LastResultCanBeSet)
{
    database.setLastResult(SQLITE_BUSY);
    EXPECT_EQ(database.lastResult(), SQLITE_BUSY);
}

// Sharing

TEST_F(SqliteDB, WriterWaitsForTheTransactionOfAnotherConnection)
{
    ASSERT_TRUE(database.open("a.db"));
    ASSERT_EQ(run(database, "CREATE TABLE t(a)"), SQLITE_OK);
    std::atomic<bool> holding{false};
    std::thread holder([&holding] {
        CkelSqliteDB other;
        EXPECT_TRUE(other.open("a.db"));
        EXPECT_EQ(run(other, "BEGIN EXCLUSIVE; INSERT INTO t VALUES(1)"), SQLITE_OK);
        holding = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        EXPECT_EQ(run(other, "COMMIT"), SQLITE_OK);
    });
    while (!holding)
        std::this_thread::yield();
    EXPECT_EQ(run(database, "INSERT INTO t VALUES(2)"), SQLITE_OK);
    holder.join();
    EXPECT_EQ(numbers(database, "SELECT a FROM t ORDER BY a"), (std::vector<long long>{1, 2}));
}

TEST_F(SqliteDB, ThreadsMayShareAConnection)
{
    ASSERT_TRUE(database.open("a.db"));
    ASSERT_EQ(run(database, "CREATE TABLE t(a)"), SQLITE_OK);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this, i] {
            for (int k = 0; k < 20; ++k)
                EXPECT_EQ(run(database, "INSERT INTO t VALUES(" + std::to_string(i) + ")"), SQLITE_OK);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(numbers(database, "SELECT count(*) FROM t"), std::vector<long long>{80});
}

} // namespace

// Waiting

namespace {

/// Time that passes in SQLite's pauses only: the twentieth part of each, as with a signal in each of them.
class InterruptedPauses
{
public:
    InterruptedPauses() : m_fileSystem(*sqlite3_vfs_find(nullptr)), m_sleep(m_fileSystem.xSleep)
    {
        passed() = std::chrono::microseconds(0);
        m_fileSystem.xSleep = [](sqlite3_vfs* /*fileSystem*/, int microseconds) {
            passed() += std::chrono::microseconds(microseconds / 20);
            return microseconds;
        };
        Ombrin::kelSqliteNow = [] { return std::chrono::steady_clock::time_point() + passed(); };
    }
    ~InterruptedPauses()
    {
        m_fileSystem.xSleep = m_sleep;
        Ombrin::kelSqliteNow = &std::chrono::steady_clock::now;
    }
    InterruptedPauses(const InterruptedPauses&) = delete;
    InterruptedPauses& operator=(const InterruptedPauses&) = delete;

    static std::chrono::microseconds& passed()
    {
        static std::chrono::microseconds instance;
        return instance;
    }

private:
    sqlite3_vfs& m_fileSystem;
    int (*const m_sleep)(sqlite3_vfs*, int);
};

} // namespace

TEST_F(SqliteDB, PausesThatSignalsCutShortDoNotShortenTheWaitForALockedFile)
{
    CkelSqliteDB other;
    ASSERT_TRUE(database.open("a.db"));
    ASSERT_TRUE(other.open("a.db"));
    ASSERT_EQ(run(other, "BEGIN EXCLUSIVE"), SQLITE_OK);
    const InterruptedPauses pauses;
    EXPECT_EQ(run(database, "CREATE TABLE t(a)"), SQLITE_BUSY);
    EXPECT_GE(pauses.passed(), CkelSqliteDB::defaultBusyTimeOut);
    EXPECT_LT(pauses.passed(), CkelSqliteDB::defaultBusyTimeOut + std::chrono::milliseconds(100));
}

// Connections that have become useless

TEST_F(SqliteDB, IsCurrentWhileItsFileCanBeWrittenUnderItsName)
{
    EXPECT_FALSE(database.isCurrent());
    ASSERT_TRUE(database.open("a.db"));
    ASSERT_EQ(run(database, "CREATE TABLE t(a)"), SQLITE_OK);
    EXPECT_TRUE(database.isCurrent());
    std::filesystem::rename("a.db", "b.db");
    EXPECT_FALSE(database.isCurrent());
}

TEST_F(SqliteDB, RefreshOpensTheFileOfItsName)
{
    ASSERT_TRUE(database.open("a.db"));
    ASSERT_EQ(run(database, "CREATE TABLE t(a)"), SQLITE_OK);
    std::filesystem::rename("a.db", "b.db");
    database.refresh();
    EXPECT_TRUE(database.isCurrent());
    EXPECT_EQ(run(database, "SELECT * FROM t"), SQLITE_ERROR) << "a new file";
}

TEST_F(SqliteDB, RefreshKeepsAConnectionThatItCannotReplace)
{
    ASSERT_TRUE(database.open("a.db"));
    ASSERT_EQ(run(database, "CREATE TABLE t(a)"), SQLITE_OK);
    std::filesystem::rename("a.db", "b.db");
    std::filesystem::create_directory("a.db");
    database.refresh();
    EXPECT_EQ(run(database, "SELECT * FROM t"), SQLITE_OK);
}

TEST_F(SqliteDB, OpensRegularFilesOnly)
{
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    EXPECT_FALSE(database.open("pipe"));
    EXPECT_EQ(database.lastResult(), SQLITE_CANTOPEN);
    EXPECT_FALSE(database.open("/dev/null"));
}
