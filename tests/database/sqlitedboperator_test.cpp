#include "database/kelsqlitedboperator.h"

#include "database/kelsqlitedb.h"
#include "tests/support/testfolder.h"

#include <gtest/gtest.h>

#include <sqlite3.h>

#include <algorithm>
#include <climits>
#include <string>
#include <vector>

using Ombrin::CkelSqliteDB;
using Ombrin::CkelSqliteDBOperator;
using Column = CkelSqliteDBOperator::Column;

namespace {

/// The columns that a record is kept in.
const std::vector<Column>& kelColumns()
{
    static const std::vector<Column> columns{
        {"ID", 4, 3},    {"NameID", 7, 0},   {"CommSource", 4, 0}, {"RW", 4, 0},  {"Block", 4, 0}, {"ValueT", 4, 0},
        {"Value", 5, 0}, {"DefValue", 5, 0}, {"Max", 5, 0},        {"Min", 5, 0}, {"Unit", 4, 0},  {"CUnit", 4, 0},
    };
    return columns;
}

std::vector<std::string> kelNames(std::size_t first)
{
    std::vector<std::string> names;
    for (std::size_t i = first; i < kelColumns().size(); ++i)
        names.push_back(kelColumns()[i].name);
    return names;
}

class SqliteDBOperator : public KelTest::FolderTest
{
protected:
    SqliteDBOperator()
    {
        EXPECT_TRUE(database.open("test.db"));
        table.selectTable("kel");
    }

    std::string createTextOf(int type, int constraints) { return table.createText({{"A", type, constraints}}); }

    std::vector<std::string> sortedTables()
    {
        std::vector<std::string> names = table.tables();
        std::sort(names.begin(), names.end());
        return names;
    }

    CkelSqliteDB database;
    CkelSqliteDBOperator table{&database};
};

using SqliteDBOperatorDeathTest = SqliteDBOperator;

/// Every text that the builders write.
std::vector<std::string> allTexts(const CkelSqliteDBOperator& table)
{
    return {
        table.createText(kelColumns()),
        table.dropText(),
        table.selectText(),
        table.replaceText(12),
        table.insertText({"ID"}, true),
        table.insertText({"ID"}, false),
        table.updateText({"Value"}, " WHERE ID = ? "),
        table.updateText({"Value"}, ""),
        table.updateText("Value", "1", "ID", "2"),
        table.deleteText("ID"),
        table.deleteText("ID", {5, 7}),
    };
}

// State

TEST_F(SqliteDBOperator, IsValidWhileTheDatabaseIsOpen)
{
    EXPECT_TRUE(table.isValid());
    database.close();
    EXPECT_FALSE(table.isValid());
    ASSERT_TRUE(database.open("test.db"));
    EXPECT_TRUE(table.isValid());
}

TEST_F(SqliteDBOperator, IsNotValidWithoutADatabase)
{
    const CkelSqliteDBOperator none(nullptr);
    EXPECT_FALSE(none.isValid());
    EXPECT_EQ(none.sqliteDB(), nullptr);
}

TEST_F(SqliteDBOperator, KnowsItsDatabase)
{
    EXPECT_EQ(table.sqliteDB(), &database);
}

TEST_F(SqliteDBOperator, HasNoTableUntilOneIsSelected)
{
    CkelSqliteDBOperator fresh(&database);
    EXPECT_FALSE(fresh.hasSelectTable());
    EXPECT_EQ(fresh.currentTable(), "");
    fresh.selectTable("other");
    EXPECT_TRUE(fresh.hasSelectTable());
    EXPECT_EQ(fresh.currentTable(), "other");
}

TEST_F(SqliteDBOperator, WritesEveryTextWhenItIsReady)
{
    for (const std::string& text : allTexts(table))
        EXPECT_NE(text, "");
}

TEST_F(SqliteDBOperator, WritesNothingWhileTheDatabaseIsClosed)
{
    database.close();
    for (const std::string& text : allTexts(table))
        EXPECT_EQ(text, "");
}

TEST_F(SqliteDBOperator, WritesNothingWithoutADatabase)
{
    CkelSqliteDBOperator none(nullptr);
    none.selectTable("kel");
    for (const std::string& text : allTexts(none))
        EXPECT_EQ(text, "");
}

TEST_F(SqliteDBOperator, WritesNothingWhileNoTableIsSelected)
{
    for (const std::string& text : allTexts(CkelSqliteDBOperator(&database)))
        EXPECT_EQ(text, "");
}

TEST_F(SqliteDBOperator, WritesForTheTableSelectedLast)
{
    table.selectTable("other");
    for (const std::string& text : allTexts(table)) {
        EXPECT_NE(text.find("other"), std::string::npos) << text;
        EXPECT_EQ(text.find("kel"), std::string::npos) << text;
    }
}

// Create

TEST_F(SqliteDBOperator, CreateTextKeepsEveryBlank)
{
    EXPECT_EQ(table.createText(kelColumns()),
              "CREATE TABLE IF NOT EXISTS kel( ID INTEGER  PRIMARY KEY  NOT NULL , NameID TEXT , CommSource INTEGER , "
              "RW INTEGER , Block INTEGER , ValueT INTEGER , Value NUMERIC , DefValue NUMERIC , Max NUMERIC , "
              "Min NUMERIC , Unit INTEGER , CUnit INTEGER  );");
}

TEST_F(SqliteDBOperator, CreateTextIsAcceptedBySqlite)
{
    EXPECT_TRUE(table.execute_helper(table.createText(kelColumns())));
    EXPECT_EQ(table.tables(), std::vector<std::string>{"kel"});
}

TEST_F(SqliteDBOperator, EveryColumnTypeHasItsText)
{
    EXPECT_EQ(createTextOf(1, 0), "CREATE TABLE IF NOT EXISTS kel( A INT2  );");
    EXPECT_EQ(createTextOf(2, 0), "CREATE TABLE IF NOT EXISTS kel( A INT8  );");
    EXPECT_EQ(createTextOf(3, 0), "CREATE TABLE IF NOT EXISTS kel( A INT  );");
    EXPECT_EQ(createTextOf(4, 0), "CREATE TABLE IF NOT EXISTS kel( A INTEGER  );");
    EXPECT_EQ(createTextOf(5, 0), "CREATE TABLE IF NOT EXISTS kel( A NUMERIC  );");
    EXPECT_EQ(createTextOf(6, 0), "CREATE TABLE IF NOT EXISTS kel( A REAL  );");
    EXPECT_EQ(createTextOf(7, 0), "CREATE TABLE IF NOT EXISTS kel( A TEXT  );");
    EXPECT_EQ(createTextOf(8, 0), "CREATE TABLE IF NOT EXISTS kel( A BLOB  );");
}

TEST_F(SqliteDBOperator, EveryColumnTypeHasItsName)
{
    using Operator = CkelSqliteDBOperator;
    const std::vector<int> types{Operator::Int2,    Operator::Int8, Operator::Int,  Operator::Integer,
                                 Operator::Numeric, Operator::Real, Operator::Text, Operator::Blob};
    EXPECT_EQ(types, (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(Operator::NotNull, 1);
    EXPECT_EQ(Operator::PrimaryKey, 2);
}

TEST_F(SqliteDBOperator, ConstraintsAreBits)
{
    EXPECT_EQ(createTextOf(4, 1), "CREATE TABLE IF NOT EXISTS kel( A INTEGER  NOT NULL  );");
    EXPECT_EQ(createTextOf(4, 2), "CREATE TABLE IF NOT EXISTS kel( A INTEGER  PRIMARY KEY  );");
    EXPECT_EQ(createTextOf(4, 3), "CREATE TABLE IF NOT EXISTS kel( A INTEGER  PRIMARY KEY  NOT NULL  );");
}

TEST_F(SqliteDBOperator, OtherConstraintBitsSayNothing)
{
    EXPECT_EQ(createTextOf(4, 4), "CREATE TABLE IF NOT EXISTS kel( A INTEGER  );");
    EXPECT_EQ(createTextOf(4, -4), "CREATE TABLE IF NOT EXISTS kel( A INTEGER  );");
    EXPECT_EQ(createTextOf(4, -1), "CREATE TABLE IF NOT EXISTS kel( A INTEGER  PRIMARY KEY  NOT NULL  );");
}

TEST_F(SqliteDBOperatorDeathTest, ColumnTypeOutOfRangeEndsTheProcess)
{
    EXPECT_DEATH(createTextOf(0, 0), "kelsqlitedboperator.*Assertion `false' failed");
    EXPECT_DEATH(createTextOf(9, 0), "kelsqlitedboperator.*Assertion `false' failed");
    EXPECT_DEATH(createTextOf(-1, 0), "kelsqlitedboperator.*Assertion `false' failed");
    EXPECT_DEATH(createTextOf(INT_MAX, 3), "kelsqlitedboperator.*Assertion `false' failed");
}

TEST_F(SqliteDBOperatorDeathTest, ColumnTypeOutOfRangeEndsTheProcessBehindGoodColumns)
{
    EXPECT_DEATH(table.createText({{"A", 4, 0}, {"B", INT_MIN, 0}}), "Assertion `false' failed");
}

TEST_F(SqliteDBOperator, ColumnTypeOutOfRangeIsNotLookedAtWhileNothingIsWritten)
{
    database.close();
    EXPECT_EQ(createTextOf(9, 0), "");
}

// The other texts

TEST_F(SqliteDBOperator, DropTextHasNoSemicolon)
{
    EXPECT_EQ(table.dropText(), "DROP TABLE kel");
}

TEST_F(SqliteDBOperator, SelectTextReadsAllColumns)
{
    EXPECT_EQ(table.selectText(), "SELECT * FROM kel ;");
}

TEST_F(SqliteDBOperator, ReplaceTextNamesNoColumns)
{
    EXPECT_EQ(table.replaceText(12), "REPLACE INTO kel VALUES( ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ? );");
    EXPECT_EQ(table.replaceText(1), "REPLACE INTO kel VALUES( ? );");
}

TEST_F(SqliteDBOperator, BatchReplaceTextNamesTheColumns)
{
    EXPECT_EQ(table.insertText(kelNames(0), true),
              "REPLACE INTO kel ( ID, NameID, CommSource, RW, Block, ValueT, Value, DefValue, Max, Min, Unit, CUnit )  "
              "VALUES ( ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ? );");
}

TEST_F(SqliteDBOperator, BatchInsertTextDiffersInItsFirstWordOnly)
{
    EXPECT_EQ(table.insertText({"ID", "Value"}, false), "INSERT INTO kel ( ID, Value )  VALUES ( ?, ? );");
    EXPECT_EQ(table.insertText({"ID", "Value"}, true), "REPLACE INTO kel ( ID, Value )  VALUES ( ?, ? );");
}

TEST_F(SqliteDBOperator, UpdateTextOfOneColumn)
{
    EXPECT_EQ(table.updateText({"Value"}, " WHERE ID = ? "), "UPDATE kel SET Value=?  WHERE ID = ?  ;");
}

TEST_F(SqliteDBOperator, UpdateTextOfWholeRows)
{
    EXPECT_EQ(table.updateText(kelNames(2), CkelSqliteDBOperator::whereText("ID", 1, "?")),
              "UPDATE kel SET CommSource=?, RW=?, Block=?, ValueT=?, Value=?, DefValue=?, Max=?, Min=?, Unit=?, "
              "CUnit=?  WHERE ID = ?  ;");
}

TEST_F(SqliteDBOperator, UpdateTextWithoutWhereEndsAtOnce)
{
    EXPECT_EQ(table.updateText({"Value"}, ""), "UPDATE kel SET Value=? ;");
    EXPECT_EQ(table.updateText({"Value", "Max"}, ""), "UPDATE kel SET Value=?, Max=? ;");
}

TEST_F(SqliteDBOperator, DirectUpdateTextCarriesItsValues)
{
    EXPECT_EQ(table.updateText("Value", "35.5", "ID", "1001"), "UPDATE kel SET Value = 35.5 WHERE ID = 1001 ;");
}

TEST_F(SqliteDBOperator, DeleteTextOfOneRow)
{
    EXPECT_EQ(table.deleteText("ID"), "DELETE FROM kel WHERE ID=?;");
}

TEST_F(SqliteDBOperator, DeleteTextOfSeveralRowsKeepsTheSeparatorBehindTheLast)
{
    EXPECT_EQ(table.deleteText("ID", {5, 7}), "DELETE FROM kel WHERE ID in ( 5 ,7 , );");
    EXPECT_EQ(table.deleteText("ID", {5}), "DELETE FROM kel WHERE ID in ( 5 , );");
}

TEST_F(SqliteDBOperator, DeleteTextOfSeveralRowsWritesUnsignedIDs)
{
    EXPECT_EQ(table.deleteText("ID", {0, 2147483648U, 4294967295U}),
              "DELETE FROM kel WHERE ID in ( 0 ,2147483648 ,4294967295 , );");
}

TEST_F(SqliteDBOperator, DeleteTextOfNoRowsIsEmpty)
{
    EXPECT_EQ(table.deleteText("ID", {}), "");
}

TEST_F(SqliteDBOperator, SqliteRefusesTheDeleteTextOfSeveralRows)
{
    ASSERT_TRUE(table.execute_helper(table.createText(kelColumns())));
    ASSERT_TRUE(table.execute_helper("INSERT INTO kel(ID) VALUES(5),(7);"));
    EXPECT_FALSE(table.execute_helper(table.deleteText("ID", {5, 7})));
    EXPECT_EQ(database.lastResult(), SQLITE_ERROR);
    EXPECT_EQ(database.query("SELECT ID FROM kel")->count(), 2);
}

// Where

TEST_F(SqliteDBOperator, WhereTextOfEveryExpression)
{
    EXPECT_EQ(CkelSqliteDBOperator::whereText("ID", 1, "?"), " WHERE ID = ? ");
    EXPECT_EQ(CkelSqliteDBOperator::whereText("ID", 2, "?"), " WHERE ID != ? ");
    EXPECT_EQ(CkelSqliteDBOperator::whereText("ID", 3, "?"), " WHERE ID < ? ");
    EXPECT_EQ(CkelSqliteDBOperator::whereText("ID", 4, "?"), " WHERE ID > ? ");
    EXPECT_EQ(CkelSqliteDBOperator::whereText("ID", 5, "?"), " WHERE ID <= ? ");
    EXPECT_EQ(CkelSqliteDBOperator::whereText("ID", 6, "?"), " WHERE ID >= ? ");
}

TEST_F(SqliteDBOperator, WhereTextOfAnyOtherExpressionIsEquality)
{
    for (const int expression : {0, 7, 100, -1, INT_MIN, INT_MAX})
        EXPECT_EQ(CkelSqliteDBOperator::whereText("ID", expression, "?"), " WHERE ID = ? ") << expression;
}

TEST_F(SqliteDBOperator, WhereTextQuotesEveryValueButThePlaceholder)
{
    EXPECT_EQ(CkelSqliteDBOperator::whereText("NameID", 1, "Temp"), " WHERE NameID = 'Temp' ");
    EXPECT_EQ(CkelSqliteDBOperator::whereText("ID", 3, "5"), " WHERE ID < '5' ");
    EXPECT_EQ(CkelSqliteDBOperator::whereText("NameID", 1, ""), " WHERE NameID = '' ");
    EXPECT_EQ(CkelSqliteDBOperator::whereText("NameID", 1, "?1"), " WHERE NameID = '?1' ");
    EXPECT_EQ(CkelSqliteDBOperator::whereText("NameID", 1, " ?"), " WHERE NameID = ' ?' ");
}

TEST_F(SqliteDBOperator, WhereTextCannotBeBrokenOutOf)
{
    ASSERT_TRUE(table.execute_helper("CREATE TABLE kel(NameID TEXT);"));
    ASSERT_TRUE(table.execute_helper("INSERT INTO kel VALUES('it''s'),('other');"));
    EXPECT_EQ(database.query("SELECT * FROM kel" + CkelSqliteDBOperator::whereText("NameID", 1, "it's"))->count(), 1);
    EXPECT_EQ(
        database.query("SELECT * FROM kel" + CkelSqliteDBOperator::whereText("NameID", 1, "' OR '1'='1"))->count(), 0);
    EXPECT_EQ(database.lastResult(), SQLITE_DONE);
}

TEST_F(SqliteDBOperator, WhereTextNeedsNoDatabase)
{
    database.close();
    EXPECT_EQ(CkelSqliteDBOperator::whereText("ID", 1, "?"), " WHERE ID = ? ");
}

// Tables

TEST_F(SqliteDBOperator, NewFileHasNoTables)
{
    EXPECT_TRUE(table.tables().empty());
}

TEST_F(SqliteDBOperator, TablesNamesEveryTableAndNothingElse)
{
    ASSERT_TRUE(
        table.execute_helper("CREATE TABLE a(x); CREATE TABLE \"two words\"(x UNIQUE); CREATE INDEX i ON a(x);"
                             "CREATE VIEW v AS SELECT * FROM a;"
                             "CREATE TRIGGER t AFTER INSERT ON a BEGIN SELECT 1; END;"));
    EXPECT_EQ(sortedTables(), (std::vector<std::string>{"a", "two words"}));
}

TEST_F(SqliteDBOperator, TablesNeedsNoSelectedTable)
{
    ASSERT_TRUE(table.execute_helper("CREATE TABLE a(x);"));
    EXPECT_EQ(CkelSqliteDBOperator(&database).tables(), std::vector<std::string>{"a"});
}

TEST_F(SqliteDBOperator, TablesIsEmptyWithoutAnOpenDatabase)
{
    ASSERT_TRUE(table.execute_helper("CREATE TABLE a(x);"));
    database.close();
    EXPECT_TRUE(table.tables().empty());
    EXPECT_TRUE(CkelSqliteDBOperator(nullptr).tables().empty());
}

TEST_F(SqliteDBOperator, TablesIsEmptyWhenTheyCannotAllBeRead)
{
    ASSERT_TRUE(table.execute_helper("CREATE TABLE a(x); CREATE TABLE b(x); CREATE TABLE c(x);"));
    // Breaks the reading off after ever more steps, until it succeeds.
    for (int allowed = 1;; ++allowed) {
        ASSERT_LT(allowed, 1000);
        int left = allowed;
        sqlite3_progress_handler(
            database.handle(), 1, [](void* steps) { return --*static_cast<int*>(steps) < 0 ? 1 : 0; }, &left);
        const std::vector<std::string> names = sortedTables();
        sqlite3_progress_handler(database.handle(), 0, nullptr, nullptr);
        if (database.lastResult() == SQLITE_DONE) {
            EXPECT_EQ(names, (std::vector<std::string>{"a", "b", "c"}));
            EXPECT_GT(allowed, 1);
            break;
        }
        EXPECT_EQ(database.lastResult(), SQLITE_INTERRUPT);
        EXPECT_TRUE(names.empty()) << "after " << allowed << " steps: " << names.size();
    }
}

// Running a text

TEST_F(SqliteDBOperator, ExecuteLeavesTheResultInTheDatabase)
{
    database.setLastResult(SQLITE_BUSY);
    EXPECT_TRUE(table.execute_helper("CREATE TABLE a(x UNIQUE);"));
    EXPECT_EQ(database.lastResult(), SQLITE_OK);
    EXPECT_FALSE(table.execute_helper("no statement"));
    EXPECT_EQ(database.lastResult(), SQLITE_ERROR);
    EXPECT_TRUE(table.execute_helper("INSERT INTO a VALUES(1);"));
    EXPECT_EQ(database.lastResult(), SQLITE_OK);
    EXPECT_FALSE(table.execute_helper("INSERT INTO a VALUES(1);"));
    EXPECT_EQ(database.lastResult(), SQLITE_CONSTRAINT);
}

TEST_F(SqliteDBOperator, ExecuteRefusesAnEmptyText)
{
    EXPECT_FALSE(table.execute_helper(""));
}

TEST_F(SqliteDBOperator, ExecuteNeedsNoSelectedTable)
{
    EXPECT_TRUE(CkelSqliteDBOperator(&database).execute_helper("CREATE TABLE a(x);"));
}

TEST_F(SqliteDBOperator, ExecuteFailsWithoutAnOpenDatabase)
{
    database.close();
    EXPECT_FALSE(table.execute_helper("SELECT 1;"));
    EXPECT_FALSE(CkelSqliteDBOperator(nullptr).execute_helper("SELECT 1;"));
}

TEST_F(SqliteDBOperator, ExecuteAcceptsRows)
{
    EXPECT_TRUE(table.execute_helper("SELECT 1;"));
}

} // namespace
