#include "database/kelsqlitestatement.h"

#include "database/kelsqlitedb.h"
#include "tests/support/testfolder.h"

#include <gtest/gtest.h>

#include <sqlite3.h>

#include <climits>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <vector>

using Ombrin::CkelSqliteDB;
using Ombrin::CkelSqliteStatement;
using Ombrin::CkelSqliteTransaction;

namespace {

/// A connection to "test.db", and a second one that shows what others see of the file.
class TwoConnections : public KelTest::FolderTest
{
protected:
    TwoConnections()
    {
        EXPECT_TRUE(database.open("test.db"));
        EXPECT_TRUE(other.open("test.db"));
        sqlite3_busy_timeout(other.handle(), 0);
        run(database, "CREATE TABLE t(a);");
    }

    static void run(const CkelSqliteDB& connection, const std::string& text)
    {
        ASSERT_EQ(sqlite3_exec(connection.handle(), text.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << text;
    }

    static int rowCount(CkelSqliteDB& connection) { return connection.query("SELECT a FROM t")->count(); }

    /// Whether another connection could write at once.
    bool isFree() const
    {
        return sqlite3_exec(other.handle(), "BEGIN IMMEDIATE; COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK;
    }

    CkelSqliteDB database;
    CkelSqliteDB other;
};

// Statements

class SqliteStatement : public TwoConnections
{
protected:
    /// Binds `value` and returns the class of what is stored.
    template <typename T>
    std::string storedClass(const T& value)
    {
        store(value);
        return database.query("SELECT typeof(a) FROM t")->value(0).toValue<std::string>(0);
    }

    template <typename T>
    void store(const T& value)
    {
        run(database, "DELETE FROM t");
        CkelSqliteStatement statement(database.handle(), "INSERT INTO t VALUES(?)");
        EXPECT_TRUE(statement.bind(1, value));
        EXPECT_TRUE(statement.execute());
    }

    template <typename T>
    T stored()
    {
        const auto rows = database.query("SELECT a FROM t");
        EXPECT_EQ(rows->count(), 1);
        return rows->value(0).toValue<T>(0);
    }
};

void expectRefusal(CkelSqliteStatement& statement)
{
    EXPECT_FALSE(statement.isValid());
    EXPECT_EQ(statement.handle(), nullptr);
    EXPECT_FALSE(statement.bind(1, 1));
    EXPECT_FALSE(statement.bind(1, 1LL));
    EXPECT_FALSE(statement.bind(1, 1.0));
    EXPECT_FALSE(statement.bind(1, std::string("a")));
    EXPECT_FALSE(statement.execute());
}

TEST_F(SqliteStatement, IsValidWhenPrepared)
{
    const CkelSqliteStatement statement(database.handle(), "SELECT 1");
    EXPECT_TRUE(statement.isValid());
    EXPECT_NE(statement.handle(), nullptr);
}

TEST_F(SqliteStatement, EmptyTextPreparesNothing)
{
    CkelSqliteStatement statement(database.handle(), "");
    expectRefusal(statement);
}

TEST_F(SqliteStatement, NullConnectionPreparesNothing)
{
    CkelSqliteStatement statement(nullptr, "SELECT 1");
    expectRefusal(statement);
}

TEST_F(SqliteStatement, MalformedTextPreparesNothing)
{
    CkelSqliteStatement statement(database.handle(), "SELECT FROM WHERE");
    expectRefusal(statement);
}

TEST_F(SqliteStatement, TextWithoutAStatementPreparesNothing)
{
    CkelSqliteStatement statement(database.handle(), " -- nothing to do");
    expectRefusal(statement);
}

TEST_F(SqliteStatement, MissingTablePreparesNothing)
{
    CkelSqliteStatement statement(database.handle(), "INSERT INTO missing VALUES(?)");
    expectRefusal(statement);
}

TEST_F(SqliteStatement, DestructorFinalises)
{
    {
        const CkelSqliteStatement statement(database.handle(), "SELECT 1");
        EXPECT_EQ(sqlite3_next_stmt(database.handle(), nullptr), statement.handle());
    }
    EXPECT_EQ(sqlite3_next_stmt(database.handle(), nullptr), nullptr);
}

TEST_F(SqliteStatement, BindsIntegersAsIntegers)
{
    for (const int value : {0, 1, -1, INT_MIN, INT_MAX}) {
        EXPECT_EQ(storedClass(value), "integer");
        EXPECT_EQ(stored<long long>(), value);
    }
}

TEST_F(SqliteStatement, Binds64BitIntegersToTheLimits)
{
    for (const long long value : {0LL, 1LL << 32U, LLONG_MIN, LLONG_MAX}) {
        EXPECT_EQ(storedClass(value), "integer");
        EXPECT_EQ(stored<long long>(), value);
    }
}

TEST_F(SqliteStatement, BindsDoublesAsReal)
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    for (const double value : {0.0, 2.5, 5.0, 5e-324, 1.7976931348623157e308, infinity, -infinity}) {
        EXPECT_EQ(storedClass(value), "real");
        EXPECT_EQ(stored<double>(), value);
    }
}

TEST_F(SqliteStatement, BindsNotANumberAsNull)
{
    EXPECT_EQ(storedClass(std::nan("")), "null");
}

TEST_F(SqliteStatement, BindsAnEmptyTextAsTextNotAsNull)
{
    EXPECT_EQ(storedClass(std::string()), "text");
    EXPECT_EQ(stored<std::string>(), "");
}

TEST_F(SqliteStatement, BindsTextsWithAllTheirBytes)
{
    const std::vector<std::string> texts{
        "it's", "a;b -- c", std::string("a\0b", 3), std::string("\0", 1), "\xff\xc3", std::string(1U << 20U, 'x')};
    for (const std::string& text : texts) {
        EXPECT_EQ(storedClass(text), "text");
        EXPECT_EQ(stored<std::string>(), text);
    }
}

TEST_F(SqliteStatement, CopiesTheText)
{
    CkelSqliteStatement statement(database.handle(), "INSERT INTO t VALUES(?)");
    auto text = std::make_unique<std::string>(100, 'x');
    ASSERT_TRUE(statement.bind(1, *text));
    text->assign(100, 'y');
    text.reset();
    ASSERT_TRUE(statement.execute());
    EXPECT_EQ(stored<std::string>(), std::string(100, 'x'));
}

TEST_F(SqliteStatement, RefusesPositionsThatAreNotThere)
{
    CkelSqliteStatement statement(database.handle(), "INSERT INTO t VALUES(?)");
    for (const int position : {0, 2, -1, INT_MAX}) {
        EXPECT_FALSE(statement.bind(position, 1)) << position;
        EXPECT_FALSE(statement.bind(position, 1LL)) << position;
        EXPECT_FALSE(statement.bind(position, 1.0)) << position;
        EXPECT_FALSE(statement.bind(position, std::string("a"))) << position;
    }
    EXPECT_TRUE(statement.bind(1, 1));
}

TEST_F(SqliteStatement, RefusesATextThatIsTooLong)
{
    sqlite3_limit(database.handle(), SQLITE_LIMIT_LENGTH, 1000);
    CkelSqliteStatement statement(database.handle(), "INSERT INTO t VALUES(?)");
    EXPECT_FALSE(statement.bind(1, std::string(1001, 'x')));
    EXPECT_TRUE(statement.bind(1, std::string(900, 'x')));
    EXPECT_TRUE(statement.execute());
}

TEST_F(SqliteStatement, ExecuteMakesItReadyForTheNextValues)
{
    CkelSqliteStatement statement(database.handle(), "INSERT INTO t VALUES(?)");
    for (const int value : {1, 2, 3}) {
        EXPECT_TRUE(statement.bind(1, value));
        EXPECT_TRUE(statement.execute());
    }
    const auto rows = database.query("SELECT a FROM t ORDER BY a");
    ASSERT_EQ(rows->count(), 3);
    EXPECT_EQ(rows->value(0).toValue<long long>(0), 1);
    EXPECT_EQ(rows->value(2).toValue<long long>(0), 3);
}

TEST_F(SqliteStatement, ExecuteReportsAFailureAndStaysUsable)
{
    run(database, "CREATE UNIQUE INDEX u ON t(a)");
    CkelSqliteStatement statement(database.handle(), "INSERT INTO t VALUES(?)");
    ASSERT_TRUE(statement.bind(1, 1));
    EXPECT_TRUE(statement.execute());
    EXPECT_FALSE(statement.execute());
    EXPECT_TRUE(statement.bind(1, 2));
    EXPECT_TRUE(statement.execute());
    EXPECT_EQ(rowCount(database), 2);
}

TEST_F(SqliteStatement, ExecuteLeavesNoLockBehind)
{
    run(database, "CREATE UNIQUE INDEX u ON t(a)");
    CkelSqliteStatement statement(database.handle(), "INSERT INTO t VALUES(?)");
    ASSERT_TRUE(statement.bind(1, 1));
    ASSERT_TRUE(statement.execute());
    EXPECT_TRUE(isFree());
    ASSERT_FALSE(statement.execute());
    EXPECT_TRUE(isFree());
}

// Transactions

class SqliteTransaction : public TwoConnections
{
protected:
    SqliteTransaction()
    {
        sqlite3_trace_v2(
            database.handle(), SQLITE_TRACE_STMT,
            [](unsigned int, void* texts, void*, void* text) {
                static_cast<std::vector<std::string>*>(texts)->emplace_back(static_cast<const char*>(text));
                return 0;
            },
            &traced);
    }
    ~SqliteTransaction() override { sqlite3_trace_v2(database.handle(), 0, nullptr, nullptr); }

    std::vector<std::string> traced;
};

TEST_F(SqliteTransaction, RunsFromBeginImmediateToCommit)
{
    {
        CkelSqliteTransaction transaction(database.handle());
        EXPECT_TRUE(transaction.isOpen());
        EXPECT_TRUE(transaction.commit());
    }
    EXPECT_EQ(traced, (std::vector<std::string>{"BEGIN IMMEDIATE", "COMMIT"}));
}

TEST_F(SqliteTransaction, TakesTheWriteLockAtOnce)
{
    CkelSqliteTransaction transaction(database.handle());
    EXPECT_FALSE(isFree());
    EXPECT_TRUE(transaction.commit());
    EXPECT_TRUE(isFree());
}

TEST_F(SqliteTransaction, CommitShowsTheChangesToOthers)
{
    CkelSqliteTransaction transaction(database.handle());
    run(database, "INSERT INTO t VALUES(1)");
    EXPECT_EQ(rowCount(other), 0);
    EXPECT_TRUE(transaction.commit());
    EXPECT_EQ(rowCount(other), 1);
}

TEST_F(SqliteTransaction, DestructorRollsBackWhatWasNotCommitted)
{
    {
        const CkelSqliteTransaction transaction(database.handle());
        run(database, "INSERT INTO t VALUES(1)");
    }
    EXPECT_EQ(traced, (std::vector<std::string>{"BEGIN IMMEDIATE", "INSERT INTO t VALUES(1)", "ROLLBACK"}));
    EXPECT_EQ(rowCount(database), 0);
    EXPECT_TRUE(isFree());
}

TEST_F(SqliteTransaction, CommitsOnce)
{
    CkelSqliteTransaction transaction(database.handle());
    EXPECT_TRUE(transaction.commit());
    EXPECT_FALSE(transaction.isOpen());
    EXPECT_FALSE(transaction.commit());
    EXPECT_EQ(traced, (std::vector<std::string>{"BEGIN IMMEDIATE", "COMMIT"}));
}

TEST_F(SqliteTransaction, NullConnectionOpensNothing)
{
    CkelSqliteTransaction transaction(nullptr);
    EXPECT_FALSE(transaction.isOpen());
    EXPECT_FALSE(transaction.commit());
}

TEST_F(SqliteTransaction, LockedFileOpensNothing)
{
    sqlite3_busy_timeout(database.handle(), 0);
    run(other, "BEGIN IMMEDIATE");
    {
        CkelSqliteTransaction transaction(database.handle());
        EXPECT_FALSE(transaction.isOpen());
        EXPECT_FALSE(transaction.commit());
    }
    EXPECT_EQ(traced, std::vector<std::string>{"BEGIN IMMEDIATE"});
    run(other, "COMMIT");
    EXPECT_TRUE(CkelSqliteTransaction(database.handle()).isOpen());
}

TEST_F(SqliteTransaction, InnerTransactionIsRefusedAndLeavesTheOuterOneAlone)
{
    CkelSqliteTransaction outer(database.handle());
    run(database, "INSERT INTO t VALUES(1)");
    {
        CkelSqliteTransaction inner(database.handle());
        EXPECT_FALSE(inner.isOpen());
        EXPECT_FALSE(inner.commit());
    }
    EXPECT_EQ(sqlite3_get_autocommit(database.handle()), 0);
    EXPECT_TRUE(outer.commit());
    EXPECT_EQ(rowCount(other), 1);
}

TEST_F(SqliteTransaction, CommitThatAReaderHoldsUpFailsAndIsRolledBack)
{
    run(database, "INSERT INTO t VALUES(1)");
    sqlite3_busy_timeout(database.handle(), 0);
    CkelSqliteStatement reader(other.handle(), "SELECT a FROM t");
    ASSERT_EQ(sqlite3_step(reader.handle()), SQLITE_ROW);
    {
        CkelSqliteTransaction transaction(database.handle());
        ASSERT_TRUE(transaction.isOpen());
        run(database, "INSERT INTO t VALUES(2)");
        EXPECT_FALSE(transaction.commit());
    }
    EXPECT_EQ(sqlite3_get_autocommit(database.handle()), 1);
    sqlite3_reset(reader.handle());
    EXPECT_TRUE(isFree());
    EXPECT_EQ(rowCount(database), 1);
}

TEST_F(SqliteTransaction, CommitThatAHookTurnsDownFailsAndIsRolledBack)
{
    sqlite3_commit_hook(
        database.handle(), [](void*) { return 1; }, nullptr);
    {
        CkelSqliteTransaction transaction(database.handle());
        run(database, "INSERT INTO t VALUES(1)");
        EXPECT_FALSE(transaction.commit());
    }
    sqlite3_commit_hook(database.handle(), nullptr, nullptr);
    EXPECT_EQ(rowCount(database), 0);
    EXPECT_TRUE(isFree());
}

TEST_F(SqliteTransaction, TransactionThatSqliteEndedItselfIsNotEndedTwice)
{
    {
        CkelSqliteTransaction transaction(database.handle());
        run(database, "ROLLBACK");
        EXPECT_FALSE(transaction.commit());
        run(database, "INSERT INTO t VALUES(1)");
    }
    EXPECT_EQ(traced, (std::vector<std::string>{"BEGIN IMMEDIATE", "ROLLBACK", "COMMIT", "INSERT INTO t VALUES(1)"}));
    EXPECT_EQ(rowCount(other), 1);
}

} // namespace
