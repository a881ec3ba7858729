#include "datastorage/kelmemorydb.h"

#include "tests/datastorage/storagefixture.h"

#include <gtest/gtest.h>

#include <sqlite3.h>

#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <climits>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <limits>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

using KelTest::makeItem;
using Ombrin::CkelMemoryDB;
using Ombrin::CkelVariant;
using Ombrin::tagStorageData;

namespace {

using Texts = std::vector<std::string>;

const char* const createText =
    "CREATE TABLE IF NOT EXISTS kel( ID INTEGER  PRIMARY KEY  NOT NULL , NameID TEXT , "
    "CommSource INTEGER , RW INTEGER , Block INTEGER , ValueT INTEGER , Value NUMERIC , "
    "DefValue NUMERIC , Max NUMERIC , Min NUMERIC , Unit INTEGER , CUnit INTEGER  );";
const char* const replaceText = "REPLACE INTO kel VALUES( ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ? );";
const char* const batchReplaceText =
    "REPLACE INTO kel ( ID, NameID, CommSource, RW, Block, ValueT, Value, DefValue, "
    "Max, Min, Unit, CUnit )  VALUES ( ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ? );";
const char* const batchUpdateText =
    "UPDATE kel SET CommSource=?, RW=?, Block=?, ValueT=?, Value=?, DefValue=?, "
    "Max=?, Min=?, Unit=?, CUnit=?  WHERE ID = ?  ;";
const char* const batchValueText = "UPDATE kel SET Value=?  WHERE ID = ?  ;";
const char* const deleteText = "DELETE FROM kel WHERE ID=?;";
const char* const selectText = "SELECT * FROM kel ;";

constexpr unsigned long long aboveSigned = 0xFFFFFFFFFFFFFFFEULL; // the bits of -2
constexpr unsigned int largeID = 3000000000U;                     // the bits of -1294967296

/// The errors that SQLite reports, texts that it cannot read among them. SQLite takes such a receiver before its first
/// use only.
class ErrorLog
{
public:
    ErrorLog() : m_installed(sqlite3_config(SQLITE_CONFIG_LOG, &receive, this) == SQLITE_OK) {}

    bool isInstalled() const { return m_installed; }

    /// The messages since the last call.
    Texts take()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        Texts taken;
        taken.swap(m_messages);
        return taken;
    }

private:
    static void receive(void* log, int /*code*/, const char* message)
    {
        auto& self = *static_cast<ErrorLog*>(log);
        const std::lock_guard<std::mutex> lock(self.m_mutex);
        self.m_messages.emplace_back(message);
    }

    std::mutex m_mutex;
    Texts m_messages;
    const bool m_installed;
};

ErrorLog errorLog; // lives as long as SQLite may report

/// A real number as dumps show it.
std::string real(double value)
{
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "real %.17g", value);
    return text.data();
}

std::string integer(long long value)
{
    return "integer " + std::to_string(value);
}

/// What a column declared NUMERIC makes of a double: an integer where that says the same.
std::string numeric(double value)
{
    const double limit = std::ldexp(1.0, 63);
    if (value > -limit && value < limit && std::trunc(value) == value)
        return integer(static_cast<long long>(value));
    return real(value);
}

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

/// A second connection to the file, which waits for nobody.
class Outsider
{
public:
    explicit Outsider(const char* fileName = "kelmem.db")
    {
        EXPECT_EQ(sqlite3_open(fileName, &m_connection), SQLITE_OK);
    }
    ~Outsider() { sqlite3_close(m_connection); }
    Outsider(const Outsider&) = delete;
    Outsider& operator=(const Outsider&) = delete;

    int run(const std::string& text) const
    {
        return sqlite3_exec(m_connection, text.c_str(), nullptr, nullptr, nullptr);
    }

    /// One text per row: each column as its class and content, joined by "|".
    Texts rows(const std::string& text) const
    {
        Texts result;
        sqlite3_stmt* statement = nullptr;
        EXPECT_EQ(sqlite3_prepare_v2(m_connection, text.c_str(), -1, &statement, nullptr), SQLITE_OK) << text;
        while (sqlite3_step(statement) == SQLITE_ROW) {
            std::string row;
            for (int i = 0; i < sqlite3_column_count(statement); ++i)
                row += (i > 0 ? "|" : "") + cell(statement, i);
            result.push_back(row);
        }
        EXPECT_EQ(sqlite3_finalize(statement), SQLITE_OK) << text;
        return result;
    }

    std::string only(const std::string& text) const
    {
        const Texts result = rows(text);
        EXPECT_EQ(result.size(), 1U) << text;
        return result.empty() ? std::string() : result.front();
    }

    /// Whether another connection could write at once.
    bool isFree() const { return run("BEGIN IMMEDIATE; COMMIT") == SQLITE_OK; }

    sqlite3* handle() const { return m_connection; }

private:
    static std::string cell(sqlite3_stmt* statement, int column)
    {
        switch (sqlite3_column_type(statement, column)) {
        case SQLITE_INTEGER:
            return integer(sqlite3_column_int64(statement, column));
        case SQLITE_FLOAT:
            return real(sqlite3_column_double(statement, column));
        case SQLITE_TEXT: {
            const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
            return "text " + std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(statement, column)));
        }
        case SQLITE_BLOB:
            return "blob";
        default:
            return "null";
        }
    }

    sqlite3* m_connection = nullptr;
};

/// Explicit instantiation may name a private member.
template <auto Member>
struct ReachDatabase
{
    friend auto& databaseOf(CkelMemoryDB& database) { return database.*Member; }
};
auto& databaseOf(CkelMemoryDB& database);
template struct ReachDatabase<&CkelMemoryDB::m_database>;

/// While it lives, counts SQLite's waits for a lock, calls `onWait` at each and lets them pass at once.
class CountedWaits
{
public:
    explicit CountedWaits(
        int& count, std::function<void()> onWait = [] {})
        : m_fileSystem(*sqlite3_vfs_find(nullptr)),
          m_sleep(m_fileSystem.xSleep),
          m_count(count),
          m_onWait(std::move(onWait))
    {
        current() = this;
        m_fileSystem.xSleep = &CountedWaits::sleep;
    }
    ~CountedWaits() { m_fileSystem.xSleep = m_sleep; }
    CountedWaits(const CountedWaits&) = delete;
    CountedWaits& operator=(const CountedWaits&) = delete;

private:
    static CountedWaits*& current()
    {
        static CountedWaits* instance = nullptr;
        return instance;
    }

    static int sleep(sqlite3_vfs* /*fileSystem*/, int microseconds)
    {
        ++current()->m_count;
        current()->m_onWait();
        return microseconds;
    }

    sqlite3_vfs& m_fileSystem;
    int (*const m_sleep)(sqlite3_vfs*, int);
    int& m_count;
    const std::function<void()> m_onWait;
};

/// An item whose four values are given.
tagStorageData itemOf(unsigned int id, std::uint8_t valueType, const CkelVariant& value, const CkelVariant& defValue,
                      const CkelVariant& max, const CkelVariant& min)
{
    tagStorageData item = makeItem(id, "item");
    item.ValueT = valueType;
    item.Value = value;
    item.DefValue = defValue;
    item.Max = max;
    item.Min = min;
    return item;
}

tagStorageData itemWith(unsigned int id, std::uint8_t valueType, const CkelVariant& value)
{
    return itemOf(id, valueType, value, value, value, value);
}

/// Watches the connection of a CkelMemoryDB: every statement that SQLite starts to run is noted.
class MemoryDBTest : public KelTest::FolderTest
{
protected:
    ~MemoryDBTest() override
    {
        sqlite3_cancel_auto_extension(entryPoint());
        database.reset();
    }

    /// Opens the database under watch.
    void open()
    {
        watcher() = this;
        ASSERT_EQ(sqlite3_auto_extension(entryPoint()), SQLITE_OK);
        database = std::make_unique<CkelMemoryDB>();
        sqlite3_cancel_auto_extension(entryPoint());
        ASSERT_NE(connection, nullptr);
    }

    /// Triggers make single statements fail; the library itself has them switched off.
    void fireTriggers()
    {
        EXPECT_EQ(sqlite3_db_config(connection, SQLITE_DBCONFIG_ENABLE_TRIGGER, 1, nullptr), SQLITE_OK);
    }

    /// Opens it with an empty table and forgets what that took.
    void openTable(const std::vector<tagStorageData>& records = {})
    {
        open();
        ASSERT_TRUE(database->createMemoryDBTable());
        ASSERT_TRUE(database->insertDatas(records));
        statements();
    }

    /// The statements since the last call, without those that look at the schema or belong to a trigger.
    Texts statements()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        Texts taken;
        taken.swap(m_statements);
        const auto isAside = [](const std::string& text) {
            return text.find("sqlite_master") != std::string::npos || text.rfind("PRAGMA table_xinfo", 0) == 0 ||
                   text.rfind("--", 0) == 0;
        };
        taken.erase(std::remove_if(taken.begin(), taken.end(), isAside), taken.end());
        return taken;
    }

    static std::string all() { return "SELECT * FROM kel ORDER BY ID"; }
    static Texts allRows() { return Outsider().rows(all()); }
    static Texts allIDs() { return Outsider().rows("SELECT ID FROM kel ORDER BY ID"); }
    static std::string valueOf(long long id)
    {
        return Outsider().only("SELECT Value FROM kel WHERE ID=" + std::to_string(id));
    }
    static std::string valuesOf(long long id)
    {
        return Outsider().only("SELECT Value, DefValue, Max, Min FROM kel WHERE ID=" + std::to_string(id));
    }

    /// What loads back for the only row.
    tagStorageData loaded()
    {
        const auto& list = database->loadMemoryDB();
        EXPECT_EQ(list.size(), 1U);
        return list.empty() ? tagStorageData{} : list.front();
    }

    /// What loading prints.
    std::string printedByLoading()
    {
        testing::internal::CaptureStdout();
        database->loadMemoryDB();
        return testing::internal::GetCapturedStdout();
    }

    /// No transaction is left open, here or in the file.
    void expectNoTransaction()
    {
        EXPECT_EQ(sqlite3_get_autocommit(connection), 1);
        EXPECT_TRUE(Outsider().isFree());
    }

    std::unique_ptr<CkelMemoryDB> database;
    sqlite3* connection = nullptr;
    std::function<void(const std::string&)> onStatement; ///< called as the statement starts to run

private:
    static MemoryDBTest*& watcher()
    {
        static MemoryDBTest* test = nullptr;
        return test;
    }

    static void (*entryPoint())() { return reinterpret_cast<void (*)()>(&watch); }

    static int watch(sqlite3* opened, char** /*message*/, const void* /*routines*/)
    {
        watcher()->connection = opened;
        return sqlite3_trace_v2(opened, SQLITE_TRACE_STMT, &note, watcher());
    }

    static int note(unsigned int /*event*/, void* test, void* /*statement*/, void* text)
    {
        auto& self = *static_cast<MemoryDBTest*>(test);
        const std::string statement = static_cast<const char*>(text);
        {
            const std::lock_guard<std::mutex> lock(self.m_mutex);
            self.m_statements.push_back(statement);
        }
        if (self.onStatement)
            self.onStatement(statement);
        return 0;
    }

    std::mutex m_mutex;
    Texts m_statements;
};

using MemoryDBDeathTest = MemoryDBTest;

bool startsWith(const std::string& text, const std::string& start)
{
    return text.rfind(start, 0) == 0;
}

// The file and its table

TEST_F(MemoryDBTest, KnowsItsClass)
{
    open();
    EXPECT_TRUE(database->inherits("CkelMemoryDB"));
    EXPECT_TRUE(database->inherits("CkelObject"));
}

TEST_F(MemoryDBTest, OpensItsFileInTheWorkingDirectory)
{
    open();
    EXPECT_TRUE(std::filesystem::exists(folder.path() / "kelmem.db"));
}

TEST_F(MemoryDBTest, NewFileHasNoTable)
{
    open();
    EXPECT_FALSE(database->hasMemoryDBTable());
}

TEST_F(MemoryDBTest, TableIsThereFromCreatingToDropping)
{
    open();
    EXPECT_TRUE(database->createMemoryDBTable());
    EXPECT_TRUE(database->hasMemoryDBTable());
    EXPECT_TRUE(database->dropMemoryDBTable());
    EXPECT_FALSE(database->hasMemoryDBTable());
}

TEST_F(MemoryDBTest, TableOfAnotherNameDoesNotCount)
{
    open();
    ASSERT_EQ(Outsider().run("CREATE TABLE kel2(a); CREATE TABLE ke(a); CREATE VIEW kel AS SELECT * FROM ke;"),
              SQLITE_OK);
    EXPECT_FALSE(database->hasMemoryDBTable());
}

TEST_F(MemoryDBTest, TableSurvivesTheObject)
{
    openTable({makeItem(1, "a")});
    database.reset();
    open();
    EXPECT_TRUE(database->hasMemoryDBTable());
    EXPECT_EQ(database->loadMemoryDB().size(), 1U);
}

TEST_F(MemoryDBTest, CreatesTheTableWithItsExactText)
{
    open();
    statements();
    EXPECT_TRUE(database->createMemoryDBTable());
    EXPECT_EQ(statements(), Texts{createText});
}

TEST_F(MemoryDBTest, TableHasItsColumnsInOrder)
{
    openTable();
    EXPECT_EQ(
        Outsider().rows("SELECT name || ' ' || type || ' ' || \"notnull\" || pk FROM pragma_table_info('kel')"),
        (Texts{"text ID INTEGER 11", "text NameID TEXT 00", "text CommSource INTEGER 00", "text RW INTEGER 00",
               "text Block INTEGER 00", "text ValueT INTEGER 00", "text Value NUMERIC 00", "text DefValue NUMERIC 00",
               "text Max NUMERIC 00", "text Min NUMERIC 00", "text Unit INTEGER 00", "text CUnit INTEGER 00"}));
}

TEST_F(MemoryDBTest, CreatingATableThatIsThereKeepsItsRows)
{
    openTable({makeItem(1, "a"), makeItem(2, "b")});
    const Texts before = allRows();
    EXPECT_TRUE(database->createMemoryDBTable());
    EXPECT_EQ(allRows(), before);
}

TEST_F(MemoryDBTest, DropsTheTableWithItsExactText)
{
    openTable();
    EXPECT_TRUE(database->dropMemoryDBTable());
    EXPECT_EQ(statements(), Texts{"DROP TABLE kel"});
}

TEST_F(MemoryDBTest, DroppingAMissingTableFails)
{
    open();
    EXPECT_FALSE(database->dropMemoryDBTable());
}

// Inserting

TEST_F(MemoryDBTest, InsertDataRunsOneReplace)
{
    openTable();
    EXPECT_TRUE(database->insertData(makeItem(5, "five", 2.5)));
    EXPECT_EQ(statements(), Texts{replaceText});
    EXPECT_EQ(allRows(), Texts{"integer 5|text five|integer 2|integer 3|integer 4|integer 9|real 2.5|integer 10|"
                               "integer 100|integer -100|integer 0|integer 0"});
}

TEST_F(MemoryDBTest, InsertDatasRunsOneTransaction)
{
    openTable();
    EXPECT_TRUE(database->insertDatas({makeItem(5, "five", 2.5), makeItem(7, "seven", 3)}));
    EXPECT_EQ(statements(), (Texts{"BEGIN IMMEDIATE", batchReplaceText, batchReplaceText, "COMMIT"}));
    EXPECT_EQ(allRows(), (Texts{"integer 5|text five|integer 2|integer 3|integer 4|integer 9|real 2.5|integer 10|"
                                "integer 100|integer -100|integer 0|integer 0",
                                "integer 7|text seven|integer 2|integer 3|integer 4|integer 9|integer 3|integer 10|"
                                "integer 100|integer -100|integer 0|integer 0"}));
    expectNoTransaction();
}

TEST_F(MemoryDBTest, InsertDatasWithoutRecordsIsAnEmptyTransaction)
{
    openTable();
    EXPECT_TRUE(database->insertDatas({}));
    EXPECT_EQ(statements(), (Texts{"BEGIN IMMEDIATE", "COMMIT"}));
}

TEST_F(MemoryDBTest, InsertDataReplacesTheWholeRowOfItsID)
{
    openTable({makeItem(5, "old", 1)});
    tagStorageData item = makeItem(5, "new", 2);
    item.CommSource = 12;
    item.RW = 13;
    item.Block = 14;
    EXPECT_TRUE(database->insertData(item));
    EXPECT_EQ(allRows(), Texts{"integer 5|text new|integer 12|integer 13|integer 14|integer 9|integer 2|integer 10|"
                               "integer 100|integer -100|integer 0|integer 0"});
}

TEST_F(MemoryDBTest, InsertDatasReplacesTheWholeRowOfEachID)
{
    openTable({makeItem(5, "old", 1), makeItem(6, "stays", 1)});
    EXPECT_TRUE(database->insertDatas({makeItem(5, "new", 2)}));
    EXPECT_EQ(Outsider().rows("SELECT ID, NameID, Value FROM kel ORDER BY ID"),
              (Texts{"integer 5|text new|integer 2", "integer 6|text stays|integer 1"}));
}

TEST_F(MemoryDBTest, InsertDatasOfOneIDTwiceKeepsTheLast)
{
    openTable();
    EXPECT_TRUE(database->insertDatas({makeItem(5, "first"), makeItem(5, "second")}));
    EXPECT_EQ(Outsider().rows("SELECT ID, NameID FROM kel"), Texts{"integer 5|text second"});
}

TEST_F(MemoryDBTest, EightBitFieldsKeepTheirWholeRange)
{
    openTable();
    tagStorageData item = makeItem(1, "a");
    item.CommSource = 255;
    item.RW = 254;
    item.Block = 253;
    EXPECT_TRUE(database->insertData(item));
    const tagStorageData back = loaded();
    EXPECT_EQ(back.CommSource, 255);
    EXPECT_EQ(back.RW, 254);
    EXPECT_EQ(back.Block, 253);
}

TEST_F(MemoryDBTest, RecordsOfOneNameAreDifferentRows)
{
    openTable();
    EXPECT_TRUE(database->insertDatas({makeItem(1, "same"), makeItem(2, "same")}));
    EXPECT_EQ(allIDs().size(), 2U);
}

TEST_F(MemoryDBTest, NamesOfAnyBytesComeBack)
{
    const Texts names{"",
                      "it's",
                      "'; DROP TABLE kel; --",
                      "a;b",
                      "\"x\"",
                      "?1",
                      "100%",
                      " blank ",
                      "new\nline",
                      "\u6e29\u5ea6",
                      std::string("a\0b", 3),
                      std::string("\0", 1),
                      "\xff\xfe\xc3",
                      "\xc0\x80",
                      std::string(1U << 20U, 'n')};
    std::vector<tagStorageData> records;
    for (const std::string& name : names)
        records.push_back(makeItem(static_cast<unsigned int>(records.size() + 1), name));
    openTable(records);
    const auto expectNames = [&] {
        const auto& list = database->loadMemoryDB();
        ASSERT_EQ(list.size(), names.size());
        for (std::size_t i = 0; i < names.size(); ++i)
            EXPECT_TRUE(list[i].NameID == names[i]) << "name " << i;
    };
    expectNames();
    ASSERT_TRUE(database->rebuildMemoryDBTable({}));
    for (const tagStorageData& record : records)
        EXPECT_TRUE(database->insertData(record));
    expectNames();
    EXPECT_TRUE(database->rebuildMemoryDBTable(records));
    expectNames();
}

// Updating

TEST_F(MemoryDBTest, UpdateValueCarriesTheValueInItsText)
{
    openTable({makeItem(5, "five", 1)});
    EXPECT_TRUE(database->updateValue(5, 2.5));
    EXPECT_TRUE(database->updateValue(5, -7));
    EXPECT_EQ(statements(),
              (Texts{"UPDATE kel SET Value = 5 / 2.0 WHERE ID = 5 ;", "UPDATE kel SET Value = -7 WHERE ID = 5 ;"}));
    EXPECT_EQ(allRows(), Texts{"integer 5|text five|integer 2|integer 3|integer 4|integer 9|integer -7|integer 10|"
                               "integer 100|integer -100|integer 0|integer 0"});
}

TEST_F(MemoryDBTest, UpdateValueOfAMissingRowChangesNothing)
{
    openTable({makeItem(5, "five", 1)});
    const Texts before = allRows();
    EXPECT_TRUE(database->updateValue(6, 2.5));
    EXPECT_EQ(allRows(), before);
}

TEST_F(MemoryDBTest, UpdateValuesRunsOneTransaction)
{
    openTable({makeItem(5, "five", 1), makeItem(7, "seven", 1), makeItem(9, "nine", 1)});
    EXPECT_TRUE(database->updateValues({5, 7}, {2.5, 3}));
    EXPECT_EQ(statements(), (Texts{"BEGIN IMMEDIATE", batchValueText, batchValueText, "COMMIT"}));
    EXPECT_EQ(
        Outsider().rows("SELECT ID, Value, DefValue FROM kel ORDER BY ID"),
        (Texts{"integer 5|real 2.5|integer 10", "integer 7|integer 3|integer 10", "integer 9|integer 1|integer 10"}));
    expectNoTransaction();
}

TEST_F(MemoryDBTest, UpdateValuesSkipsNullValuesAndCommitsTheOthers)
{
    openTable({makeItem(1, "a", 1), makeItem(2, "b", 2), makeItem(3, "c", 3)});
    EXPECT_TRUE(database->updateValues({1, 2, 3}, {11, CkelVariant(), 33}));
    EXPECT_EQ(statements(), (Texts{"BEGIN IMMEDIATE", batchValueText, batchValueText, "COMMIT"}));
    EXPECT_EQ(Outsider().rows("SELECT Value FROM kel ORDER BY ID"), (Texts{"integer 11", "integer 2", "integer 33"}));
}

TEST_F(MemoryDBTest, UpdateValuesWithoutIDsIsAnEmptyTransaction)
{
    openTable();
    EXPECT_TRUE(database->updateValues({}, {}));
    EXPECT_EQ(statements(), (Texts{"BEGIN IMMEDIATE", "COMMIT"}));
}

TEST_F(MemoryDBTest, UpdateValuesOfUnequalListsUpdatesThePairs)
{
    openTable({makeItem(1, "a", 1), makeItem(2, "b", 2)});
    EXPECT_TRUE(database->updateValues({1, 2}, {11}));
    EXPECT_EQ(Outsider().rows("SELECT Value FROM kel ORDER BY ID"), (Texts{"integer 11", "integer 2"}));
    EXPECT_TRUE(database->updateValues({1}, {12, 22}));
    EXPECT_EQ(Outsider().rows("SELECT Value FROM kel ORDER BY ID"), (Texts{"integer 12", "integer 2"}));
}

TEST_F(MemoryDBTest, UpdateValuesOfOneIDTwiceKeepsTheLast)
{
    openTable({makeItem(1, "a", 1)});
    EXPECT_TRUE(database->updateValues({1, 1}, {5, 6}));
    EXPECT_EQ(valueOf(1), "integer 6");
}

TEST_F(MemoryDBTest, UpdateDatasRunsOneTransaction)
{
    openTable({makeItem(5, "five", 1), makeItem(7, "seven", 1)});
    EXPECT_TRUE(database->updateDatas({makeItem(5, "five", 2), makeItem(7, "seven", 3)}));
    EXPECT_EQ(statements(), (Texts{"BEGIN IMMEDIATE", batchUpdateText, batchUpdateText, "COMMIT"}));
    EXPECT_EQ(Outsider().rows("SELECT Value FROM kel ORDER BY ID"), (Texts{"integer 2", "integer 3"}));
    expectNoTransaction();
}

TEST_F(MemoryDBTest, WholeRowUpdateLeavesTheName)
{
    openTable({makeItem(5, "old name", 1)});
    tagStorageData item = itemOf(5, 2, 21, 22, 23, 24);
    item.NameID = "new name";
    item.CommSource = 12;
    item.RW = 13;
    item.Block = 14;
    EXPECT_TRUE(database->updateDatas({item}));
    EXPECT_EQ(allRows(), Texts{"integer 5|text old name|integer 12|integer 13|integer 14|integer 2|integer 21|"
                               "integer 22|integer 23|integer 24|integer 0|integer 0"});
}

TEST_F(MemoryDBTest, WholeRowUpdateClearsTheUnits)
{
    openTable({makeItem(5, "five")});
    ASSERT_EQ(Outsider().run("UPDATE kel SET Unit=3, CUnit=4"), SQLITE_OK);
    EXPECT_TRUE(database->updateDatas({makeItem(5, "five")}));
    EXPECT_EQ(Outsider().only("SELECT Unit, CUnit FROM kel"), "integer 0|integer 0");
}

TEST_F(MemoryDBTest, UpdatesMakeNoRows)
{
    openTable();
    EXPECT_TRUE(database->updateDatas({makeItem(5, "five")}));
    EXPECT_TRUE(database->updateValues({5}, {1}));
    EXPECT_TRUE(database->updateValue(5, 1));
    EXPECT_TRUE(allRows().empty());
}

TEST_F(MemoryDBTest, UpdateDatasWithoutRecordsIsAnEmptyTransaction)
{
    openTable();
    EXPECT_TRUE(database->updateDatas({}));
    EXPECT_EQ(statements(), (Texts{"BEGIN IMMEDIATE", "COMMIT"}));
}

// Deleting

TEST_F(MemoryDBTest, DeleteDataRemovesItsRowAlone)
{
    openTable({makeItem(5, "five"), makeItem(7, "seven")});
    EXPECT_TRUE(database->deleteData(5));
    EXPECT_EQ(statements(), Texts{deleteText});
    EXPECT_EQ(allIDs(), Texts{"integer 7"});
}

TEST_F(MemoryDBTest, DeleteDataOfAMissingRowChangesNothing)
{
    openTable({makeItem(5, "five")});
    EXPECT_TRUE(database->deleteData(6));
    EXPECT_EQ(allIDs(), Texts{"integer 5"});
}

TEST_F(MemoryDBTest, SeveralRowDeleteIsATextThatSqliteRefuses)
{
    ASSERT_TRUE(errorLog.isInstalled());
    openTable({makeItem(5, "five"), makeItem(7, "seven")});
    errorLog.take();
    database->deleteDatas(std::vector<unsigned int>{5, 7});
    EXPECT_EQ(errorLog.take(), Texts{"near \")\": syntax error in \"DELETE FROM kel WHERE ID in ( 5 ,7 , );\""});
    EXPECT_TRUE(statements().empty());
}

TEST_F(MemoryDBTest, SeveralRowDeleteLeavesEveryRow)
{
    openTable({makeItem(5, "five"), makeItem(7, "seven"), makeItem(9, "nine")});
    const Texts before = allRows();
    database->deleteDatas(std::vector<unsigned int>{5, 7, 9});
    EXPECT_EQ(allRows(), before);
    database->deleteDatas(std::vector<unsigned int>{5});
    EXPECT_EQ(allRows(), before);
    expectNoTransaction();
}

TEST_F(MemoryDBTest, SeveralRowDeleteOfRecordsTakesTheirIDs)
{
    openTable({makeItem(5, "five"), makeItem(7, "seven")});
    const Texts before = allRows();
    errorLog.take();
    database->deleteDatas(std::vector<tagStorageData>{makeItem(7, ""), makeItem(5, "")});
    EXPECT_EQ(errorLog.take(), Texts{"near \")\": syntax error in \"DELETE FROM kel WHERE ID in ( 7 ,5 , );\""});
    EXPECT_EQ(allRows(), before);
}

TEST_F(MemoryDBTest, SeveralRowDeleteWritesLargeIDsUnsigned)
{
    openTable();
    errorLog.take();
    database->deleteDatas(std::vector<unsigned int>{largeID});
    EXPECT_EQ(errorLog.take(), Texts{"near \")\": syntax error in \"DELETE FROM kel WHERE ID in ( 3000000000 , );\""});
}

TEST_F(MemoryDBTest, SeveralRowDeleteOfNothingIssuesNoStatement)
{
    openTable({makeItem(5, "five")});
    errorLog.take();
    database->deleteDatas(std::vector<unsigned int>{});
    database->deleteDatas(std::vector<tagStorageData>{});
    EXPECT_TRUE(errorLog.take().empty());
    EXPECT_TRUE(statements().empty());
    EXPECT_EQ(sqlite3_errcode(connection), SQLITE_OK);
}

TEST_F(MemoryDBTest, DatabaseStaysUsableAfterARefusedDelete)
{
    openTable({makeItem(5, "five")});
    database->deleteDatas(std::vector<unsigned int>{5});
    EXPECT_TRUE(database->insertDatas({makeItem(6, "six")}));
    EXPECT_TRUE(database->deleteData(5));
    EXPECT_EQ(allIDs(), Texts{"integer 6"});
}

// Conversion table

TEST_F(MemoryDBTest, ConversionTableHoldsForEveryPairOfCodes)
{
    open();
    const std::vector<std::vector<int>> sources{
        {},                                                                             // 0
        {},                                                                             // 1
        {1, 7},                                                                         // 2
        {1},                                                                            // 3
        {1, 2, 3, 7},                                                                   // 4
        {1, 3},                                                                         // 5
        {-100, -2, -1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 100, INT_MAX}, // 6
        {1},                                                                            // 7
        {8},                                                                            // 8
        {},                                                                             // 9
        {},                                                                             // 10
        {8},                                                                            // 11
    };
    for (const int to : {-100, -1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 100, INT_MAX}) {
        for (const int from : {-100, -2, -1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 100, INT_MAX}) {
            bool expected = from == to;
            if (to >= 0 && to <= 11) {
                const auto& known = sources[static_cast<std::size_t>(to)];
                expected = expected || std::find(known.begin(), known.end(), from) != known.end();
            }
            EXPECT_EQ(database->canConvert(static_cast<CkelVariant::Type>(from), static_cast<CkelVariant::Type>(to)),
                      expected)
                << "from " << from << " to " << to;
        }
    }
}

// The form of values in the file

struct WrittenValue
{
    const char* name;
    CkelVariant value;
    std::string stored;
};

void PrintTo(const WrittenValue& written, std::ostream* out)
{
    *out << written.name;
}

class WrittenValueTest : public MemoryDBTest, public testing::WithParamInterface<WrittenValue>
{
protected:
    std::string four() const
    {
        const std::string& stored = GetParam().stored;
        return stored + "|" + stored + "|" + stored + "|" + stored;
    }
};

const double infinity = std::numeric_limits<double>::infinity();

INSTANTIATE_TEST_SUITE_P(
    MemoryDB, WrittenValueTest,
    testing::Values(
        WrittenValue{"True", true, integer(1)}, WrittenValue{"False", false, integer(0)},
        WrittenValue{"Int", -42, integer(-42)}, WrittenValue{"IntMin", INT_MIN, integer(INT_MIN)},
        WrittenValue{"UInt", 4000000000U, integer(4000000000LL)},
        WrittenValue{"UIntMax", UINT_MAX, integer(4294967295LL)},
        WrittenValue{"LongLong", 1LL << 40U, integer(1LL << 40U)},
        WrittenValue{"LongLongMax", LLONG_MAX, integer(LLONG_MAX)},
        WrittenValue{"LongLongMin", LLONG_MIN, integer(LLONG_MIN)},
        WrittenValue{"LongLongBeyondDoubles", 9007199254740993LL, integer(9007199254740993LL)},
        WrittenValue{"ULongLong", 7ULL, integer(7)},
        WrittenValue{"ULongLongOfSignedMax", static_cast<unsigned long long>(LLONG_MAX), integer(LLONG_MAX)},
        WrittenValue{"ULongLongAboveSignedMaxAsNegative", aboveSigned, integer(-2)},
        WrittenValue{"ULongLongMaxAsMinusOne", ULLONG_MAX, integer(-1)}, WrittenValue{"Double", 2.5, real(2.5)},
        WrittenValue{"NegativeDouble", -0.1, real(-0.1)}, WrittenValue{"WholeDouble", 5.0, integer(5)},
        WrittenValue{"Zero", 0.0, integer(0)}, WrittenValue{"NegativeZero", -0.0, integer(0)},
        WrittenValue{"NotANumberAsNull", std::nan(""), "null"}, WrittenValue{"Infinity", infinity, real(infinity)},
        WrittenValue{"NegativeInfinity", -infinity, real(-infinity)}, WrittenValue{"TinyDouble", 1e-7, real(1e-7)},
        WrittenValue{"LargeDouble", 1e300, real(1e300)},
        WrittenValue{"DoubleMax", 1.7976931348623157e308, real(1.7976931348623157e308)},
        WrittenValue{"DoubleMin", 5e-324, real(5e-324)},
        WrittenValue{"LargeWholeDouble", std::ldexp(1.0, 62), integer(1LL << 62U)},
        WrittenValue{"DoubleAboveIntegers", std::ldexp(1.0, 63), real(std::ldexp(1.0, 63))},
        WrittenValue{"LongWholeDouble", 123456789012345680000.0, real(123456789012345680000.0)},
        WrittenValue{"TextAsZeroNeverAsText", "abc", integer(0)}, WrittenValue{"EmptyTextAsZero", "", integer(0)},
        WrittenValue{"TextOfARealAsReal", " 2.5 ", real(2.5)},
        WrittenValue{"TextOfAnIntegerAsInteger", "42", integer(42)},
        WrittenValue{"TextWithAQuoteAsZero", "1'; DROP TABLE kel; --", integer(0)}),
    [](const testing::TestParamInfo<WrittenValue>& written) { return written.param.name; });

TEST_P(WrittenValueTest, InsertData)
{
    openTable();
    EXPECT_TRUE(database->insertData(itemWith(1, 9, GetParam().value)));
    EXPECT_EQ(valuesOf(1), four());
}

TEST_P(WrittenValueTest, InsertDatas)
{
    openTable();
    EXPECT_TRUE(database->insertDatas({itemWith(1, 9, GetParam().value)}));
    EXPECT_EQ(valuesOf(1), four());
}

TEST_P(WrittenValueTest, RebuildMemoryDBTable)
{
    open();
    EXPECT_TRUE(database->rebuildMemoryDBTable({itemWith(1, 9, GetParam().value)}));
    EXPECT_EQ(valuesOf(1), four());
}

TEST_P(WrittenValueTest, UpdateDatas)
{
    openTable({itemWith(1, 9, 77)});
    EXPECT_TRUE(database->updateDatas({itemWith(1, 9, GetParam().value)}));
    EXPECT_EQ(valuesOf(1), four());
}

TEST_P(WrittenValueTest, UpdateValue)
{
    openTable({itemWith(1, 9, 77)});
    EXPECT_TRUE(database->updateValue(1, GetParam().value));
    EXPECT_EQ(valuesOf(1), GetParam().stored + "|integer 77|integer 77|integer 77");
}

TEST_P(WrittenValueTest, UpdateValues)
{
    openTable({itemWith(1, 9, 77)});
    EXPECT_TRUE(database->updateValues({1}, {GetParam().value}));
    EXPECT_EQ(valuesOf(1), GetParam().stored + "|integer 77|integer 77|integer 77");
}

TEST_F(MemoryDBTest, NullValueIsWrittenAsZeroExceptInTheListUpdate)
{
    openTable({itemWith(1, 9, 77), itemWith(2, 9, 77), itemWith(3, 9, 77), itemWith(4, 9, 77)});
    EXPECT_TRUE(database->insertData(itemWith(1, 9, CkelVariant())));
    EXPECT_TRUE(database->insertDatas({itemWith(2, 9, CkelVariant())}));
    EXPECT_TRUE(database->updateDatas({itemWith(3, 9, CkelVariant())}));
    EXPECT_TRUE(database->updateValue(4, CkelVariant()));
    for (const long long id : {1, 2, 3, 4})
        EXPECT_EQ(valueOf(id), "integer 0");
    EXPECT_TRUE(database->updateValue(4, 77));
    EXPECT_TRUE(database->updateValues({4}, {CkelVariant()}));
    EXPECT_EQ(valueOf(4), "integer 77");
}

TEST_F(MemoryDBTest, TypeOfTheValueDecidesForAllFourColumns)
{
    openTable();
    const auto written = [this](const tagStorageData& item) {
        EXPECT_TRUE(database->insertData(item));
        const std::string single = valuesOf(item.ID);
        EXPECT_TRUE(database->insertDatas({item}));
        EXPECT_EQ(valuesOf(item.ID), single);
        EXPECT_TRUE(database->updateDatas({item}));
        EXPECT_EQ(valuesOf(item.ID), single);
        return single;
    };
    EXPECT_EQ(written(itemOf(1, 2, 5LL, 2.5, "7.4", CkelVariant())), "integer 5|integer 3|integer 7|integer 0");
    EXPECT_EQ(written(itemOf(2, 9, 2.5, 7LL, "1.5", true)), real(2.5) + "|integer 7|" + real(1.5) + "|integer 1");
    EXPECT_EQ(written(itemOf(3, 13, 5ULL, -1LL, 2.5, aboveSigned)), "integer 5|integer -1|integer 3|integer -2");
    EXPECT_EQ(written(itemOf(4, 10, "text", 7LL, aboveSigned, 2.5)),
              "integer 0|integer 7|" + real(static_cast<double>(aboveSigned)) + "|" + real(2.5));
    EXPECT_EQ(written(itemOf(5, 9, CkelVariant(), 7LL, 2.5, "3")), "integer 0|integer 7|" + real(2.5) + "|integer 3");
    EXPECT_EQ(written(itemOf(6, 2, true, 2.5, 1e300, -1e300)),
              "integer 1|integer 3|" + integer(LLONG_MAX) + "|" + integer(LLONG_MIN));
}

/// Writes doubles directly and bound.
class WrittenDoubleTest : public MemoryDBTest
{
protected:
    void SetUp() override
    {
        openTable({makeItem(1, "direct"), makeItem(2, "bound")});
        ASSERT_EQ(sqlite3_exec(connection, "PRAGMA synchronous=OFF", nullptr, nullptr, nullptr), SQLITE_OK);
        outsider = std::make_unique<Outsider>();
    }

    void expectSame(double value)
    {
        ASSERT_TRUE(database->updateValue(1, value));
        ASSERT_TRUE(database->updateValues({2}, {value}));
        ASSERT_EQ(outsider->rows("SELECT Value FROM kel WHERE ID=2"), Texts{numeric(value)});
        EXPECT_EQ(outsider->rows("SELECT Value FROM kel WHERE ID=1"), Texts{numeric(value)});
    }

    std::unique_ptr<Outsider> outsider;
};

TEST_F(WrittenDoubleTest, IsTheSameInTheFileEitherWay)
{
    using Limits = std::numeric_limits<double>;
    const double twoTo53 = std::ldexp(1.0, 53);
    for (const double value : {0.1,
                               3.125,
                               1e15,
                               123456.789,
                               1e22,
                               1e23,
                               2.2250738585072011e-308,
                               Limits::min(),
                               Limits::denorm_min(),
                               std::nextafter(Limits::min(), 0.0),
                               Limits::max(),
                               Limits::epsilon(),
                               twoTo53 - 1,
                               twoTo53,
                               twoTo53 + 2,
                               std::ldexp(1.0, 62),
                               std::ldexp(1.0, 63),
                               std::nextafter(std::ldexp(1.0, 63), 0.0),
                               std::nextafter(1.0, 2.0),
                               infinity,
                               0.0}) {
        expectSame(value);
        expectSame(-value);
    }
}

TEST_F(WrittenDoubleTest, OfAnyBitsIsTheSameInTheFileEitherWay)
{
    constexpr unsigned int seed = 20240501;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937_64 random(seed);
    for (int i = 0; i < 300; ++i) {
        std::uint64_t bits = random();
        if (i % 10 == 0)
            bits &= 0x800FFFFFFFFFFFFFU; // denormal
        double value = 0;
        std::memcpy(&value, &bits, sizeof(value));
        if (std::isfinite(value))
            expectSame(value);
    }
}

// Loading

class LoadedTypeTest : public MemoryDBTest, public testing::WithParamInterface<int>
{
protected:
    /// Loads a row of the parameter's value type with these SQL values.
    tagStorageData loadRow(const std::string& values)
    {
        openTable();
        EXPECT_EQ(Outsider().run("INSERT INTO kel VALUES(5,'five',2,3,4," + std::to_string(GetParam()) + "," + values +
                                 ",0,0)"),
                  SQLITE_OK);
        const tagStorageData item = loaded();
        EXPECT_EQ(item.ID, 5U);
        EXPECT_EQ(item.NameID, "five");
        EXPECT_EQ(item.ValueT, GetParam());
        return item;
    }
};

std::string codeName(const testing::TestParamInfo<int>& info)
{
    return "Code" + std::to_string(info.param);
}

using LoadedSignedTest = LoadedTypeTest;
INSTANTIATE_TEST_SUITE_P(MemoryDB, LoadedSignedTest, testing::Values(1, 2, 3, 4, 5, 6, 7, 12, 14), codeName);

TEST_P(LoadedSignedTest, ReadsSigned64BitIntegers)
{
    const tagStorageData item = loadRow("-9223372036854775808, 9223372036854775807, -2.9, NULL");
    EXPECT_VARIANT(item.Value, LLONG_MIN);
    EXPECT_VARIANT(item.DefValue, LLONG_MAX);
    EXPECT_VARIANT(item.Max, -2LL);
    EXPECT_VARIANT(item.Min, 0LL);
}

using LoadedRealTest = LoadedTypeTest;
INSTANTIATE_TEST_SUITE_P(MemoryDB, LoadedRealTest, testing::Values(8, 9), codeName);

TEST_P(LoadedRealTest, ReadsDoubles)
{
    const tagStorageData item = loadRow("2.5, -7, 4294967296.5, NULL");
    EXPECT_VARIANT(item.Value, 2.5);
    EXPECT_VARIANT(item.DefValue, -7.0);
    EXPECT_VARIANT(item.Max, 4294967296.5);
    EXPECT_VARIANT(item.Min, 0.0);
}

using LoadedTextTest = LoadedTypeTest;
INSTANTIATE_TEST_SUITE_P(MemoryDB, LoadedTextTest, testing::Values(10), codeName);

TEST_P(LoadedTextTest, ReadsTexts)
{
    const tagStorageData item = loadRow("'abc', 42, 2.5, NULL");
    EXPECT_VARIANT(item.Value, "abc");
    EXPECT_VARIANT(item.DefValue, "42");
    EXPECT_VARIANT(item.Max, "2.5");
    EXPECT_VARIANT(item.Min, "");
}

using LoadedUnsignedTest = LoadedTypeTest;
INSTANTIATE_TEST_SUITE_P(MemoryDB, LoadedUnsignedTest, testing::Values(11, 13), codeName);

TEST_P(LoadedUnsignedTest, ReadsUnsigned64BitIntegers)
{
    const tagStorageData item = loadRow("-2, 9223372036854775807, 2.9, NULL");
    EXPECT_VARIANT(item.Value, aboveSigned);
    EXPECT_VARIANT(item.DefValue, static_cast<unsigned long long>(LLONG_MAX));
    EXPECT_VARIANT(item.Max, 2ULL);
    EXPECT_VARIANT(item.Min, 0ULL);
}

TEST_F(MemoryDBTest, EveryOtherValueTypeIsUnknownToLoading)
{
    openTable();
    ASSERT_EQ(Outsider().run("WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i+1 FROM n WHERE i<255) "
                             "INSERT INTO kel SELECT i,'n',0,0,0,i,1,1,1,1,0,0 FROM n"),
              SQLITE_OK);
    std::string expected;
    for (int code = 0; code <= 255; ++code) {
        if (code == 0 || code > 14)
            expected += "CkelMemoryDB::loadMemoryDB( id= " + std::to_string(code) + " ) : Unknown Type " +
                        std::to_string(code) + "\n";
    }
    EXPECT_EQ(printedByLoading(), expected);
    testing::internal::CaptureStdout();
    const std::vector<tagStorageData> list = database->loadMemoryDB();
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(list.size(), 14U);
    for (unsigned int i = 0; i < 14; ++i)
        EXPECT_EQ(list[i].ID, i + 1);
}

TEST_F(MemoryDBTest, Code15IsReportedAndLeftOutAndLoadingGoesOn)
{
    tagStorageData none = makeItem(5, "none");
    none.ValueT = 15;
    openTable({makeItem(4, "before"), none, makeItem(6, "behind")});
    EXPECT_EQ(printedByLoading(), "CkelMemoryDB::loadMemoryDB( id= 5 ) : Unknown Type 15\n");
    testing::internal::CaptureStdout();
    const auto& list = database->loadMemoryDB();
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0].NameID, "before");
    EXPECT_EQ(list[1].NameID, "behind");
    EXPECT_TRUE(database->isLoadComplete());
}

TEST_F(MemoryDBTest, Code16IsUnknownToLoadingThoughStoragesKnowIt)
{
    openTable({itemWith(5, 16, 7ULL)});
    EXPECT_EQ(printedByLoading(), "CkelMemoryDB::loadMemoryDB( id= 5 ) : Unknown Type 16\n");
}

TEST_F(MemoryDBTest, UnknownTypeOfALargeIDIsReportedUnsigned)
{
    openTable({itemWith(largeID, 15, 7)});
    EXPECT_EQ(printedByLoading(), "CkelMemoryDB::loadMemoryDB( id= 3000000000 ) : Unknown Type 15\n");
}

TEST_F(MemoryDBTest, Code11ComesBackUnsigned)
{
    openTable({itemWith(5, 11, -2LL)});
    EXPECT_VARIANT(loaded().Value, aboveSigned);
}

TEST_F(MemoryDBTest, TextItemDoesNotGetItsTextBack)
{
    openTable({itemOf(5, 10, "machine 7", "2.5", "", "12")});
    const tagStorageData item = loaded();
    EXPECT_VARIANT(item.Value, "0");
    EXPECT_VARIANT(item.DefValue, "2.5");
    EXPECT_VARIANT(item.Max, "0");
    EXPECT_VARIANT(item.Min, "12");
}

TEST_F(MemoryDBTest, LoadedItemsAreCleanAndCarryNothingElse)
{
    tagStorageData item = makeItem(5, "five", 2.5);
    item.DBSource = 9;
    item.Dirty = Ombrin::DirtyModified;
    for (CkelVariant& spare : item.Reserved)
        spare = 7;
    openTable({item});
    ASSERT_EQ(Outsider().run("UPDATE kel SET Unit=8, CUnit=9"), SQLITE_OK);
    const tagStorageData back = loaded();
    EXPECT_EQ(back.CommSource, 2);
    EXPECT_EQ(back.RW, 3);
    EXPECT_EQ(back.Block, 4);
    EXPECT_EQ(back.ValueT, 9);
    EXPECT_VARIANT(back.Value, 2.5);
    EXPECT_VARIANT(back.DefValue, 10.0);
    EXPECT_VARIANT(back.Max, 100.0);
    EXPECT_VARIANT(back.Min, -100.0);
    EXPECT_EQ(back.DBSource, 0);
    EXPECT_EQ(back.Dirty, Ombrin::DirtyClean);
    for (const CkelVariant& spare : back.Reserved)
        EXPECT_TRUE(spare.isNull());
}

TEST_F(MemoryDBTest, SmallFieldsAreCutToEightBits)
{
    openTable();
    ASSERT_EQ(Outsider().run("INSERT INTO kel VALUES(5,'five',300,-1,256,521,2.5,0,0,0,0,0)"), SQLITE_OK);
    const tagStorageData item = loaded();
    EXPECT_EQ(item.CommSource, 44);
    EXPECT_EQ(item.RW, 255);
    EXPECT_EQ(item.Block, 0);
    EXPECT_EQ(item.ValueT, 9);
    EXPECT_VARIANT(item.Value, 2.5);
}

TEST_F(MemoryDBTest, NullColumnsLoadAsZero)
{
    openTable();
    ASSERT_EQ(Outsider().run("INSERT INTO kel(ID, ValueT) VALUES(5, 2)"), SQLITE_OK);
    const tagStorageData item = loaded();
    EXPECT_EQ(item.NameID, "");
    EXPECT_EQ(item.CommSource, 0);
    EXPECT_VARIANT(item.Value, 0LL);
    EXPECT_VARIANT(item.Min, 0LL);
}

TEST_F(MemoryDBTest, BlobsAreReportedAndLoadAsZero)
{
    openTable();
    ASSERT_EQ(Outsider().run("INSERT INTO kel VALUES(5,'five',0,0,0,2,x'07',1,x'08',2,x'09',x'0a')"), SQLITE_OK);
    EXPECT_EQ(printedByLoading(), "current type is 4 is not defined. \ncurrent type is 4 is not defined. \n");
    testing::internal::CaptureStdout();
    EXPECT_VARIANT(loaded().Value, 0LL);
    testing::internal::GetCapturedStdout();
}

TEST_F(MemoryDBTest, ColumnsAreReadByPositionNotByName)
{
    open();
    ASSERT_EQ(
        Outsider().run("CREATE TABLE kel(a,b,c,d,e,f,Min,Max,g,h); INSERT INTO kel VALUES(5,'n',1,2,3,2,6,7,8,9)"),
        SQLITE_OK);
    const tagStorageData item = loaded();
    EXPECT_VARIANT(item.Value, 6LL);
    EXPECT_VARIANT(item.DefValue, 7LL);
    EXPECT_VARIANT(item.Max, 8LL);
    EXPECT_VARIANT(item.Min, 9LL);
}

TEST_F(MemoryDBTest, TableWithTooFewColumnsIsNotRead)
{
    open();
    ASSERT_EQ(Outsider().run("CREATE TABLE kel(a,b,c,d,e,f,g,h,i); INSERT INTO kel VALUES(5,'n',1,2,3,2,6,7,8)"),
              SQLITE_OK);
    EXPECT_TRUE(database->loadMemoryDB().empty());
    EXPECT_FALSE(database->isLoadComplete());
}

TEST_F(MemoryDBTest, LoadsWithItsExactText)
{
    openTable({makeItem(1, "a")});
    database->loadMemoryDB();
    EXPECT_EQ(statements(), Texts{selectText});
}

TEST_F(MemoryDBTest, LoadedListIsFilledAnewEachTime)
{
    openTable({makeItem(1, "a"), makeItem(2, "b")});
    const auto& first = database->loadMemoryDB();
    EXPECT_EQ(first.size(), 2U);
    ASSERT_TRUE(database->deleteData(1));
    const auto& second = database->loadMemoryDB();
    EXPECT_EQ(&first, &second);
    ASSERT_EQ(second.size(), 1U);
    EXPECT_EQ(second[0].ID, 2U);
}

TEST_F(MemoryDBTest, LoadedListIsEmptyWithoutATable)
{
    openTable({makeItem(1, "a")});
    ASSERT_EQ(database->loadMemoryDB().size(), 1U);
    ASSERT_TRUE(database->dropMemoryDBTable());
    EXPECT_TRUE(database->loadMemoryDB().empty());
    EXPECT_FALSE(database->isLoadComplete());
}

TEST_F(MemoryDBTest, LoadOfAnEmptyTableIsComplete)
{
    openTable();
    EXPECT_TRUE(database->loadMemoryDB().empty());
    EXPECT_TRUE(database->isLoadComplete());
}

TEST_F(MemoryDBTest, LoadIsNotCompleteBeforeTheFirst)
{
    openTable();
    EXPECT_FALSE(database->isLoadComplete());
}

TEST_F(MemoryDBTest, LoadThatIsBrokenOffIsNotComplete)
{
    openTable({makeItem(1, "a"), makeItem(2, "b")});
    onStatement = [this](const std::string&) { sqlite3_interrupt(connection); };
    database->loadMemoryDB();
    EXPECT_FALSE(database->isLoadComplete());
    onStatement = nullptr;
    EXPECT_EQ(database->loadMemoryDB().size(), 2U);
    EXPECT_TRUE(database->isLoadComplete());
}

TEST_F(MemoryDBTest, NumbersComeBackToTheLastBit)
{
    std::vector<tagStorageData> records{itemWith(1, 2, LLONG_MIN),   itemWith(2, 2, LLONG_MAX),
                                        itemWith(3, 13, ULLONG_MAX), itemWith(4, 13, 1ULL << 63U),
                                        itemWith(5, 9, 5e-324),      itemWith(6, 9, 0.1 + 0.2),
                                        itemWith(7, 9, infinity),    itemWith(8, 9, -infinity),
                                        itemWith(9, 9, 5.0),         itemWith(10, 9, 1.7976931348623157e308),
                                        itemWith(11, 8, -2.5)};
    openTable(records);
    const auto& list = database->loadMemoryDB();
    ASSERT_EQ(list.size(), records.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        EXPECT_VARIANT(list[i].Value, records[i].Value);
        EXPECT_VARIANT(list[i].DefValue, records[i].Value);
        EXPECT_VARIANT(list[i].Max, records[i].Value);
        EXPECT_VARIANT(list[i].Min, records[i].Value);
    }
}

TEST_F(MemoryDBTest, NotANumberComesBackAsZero)
{
    openTable({itemWith(1, 9, std::nan(""))});
    EXPECT_VARIANT(loaded().Value, 0.0);
}

TEST_F(MemoryDBTest, UnsignedAboveSignedMaximumIsNegativeToASignedType)
{
    openTable({itemWith(1, 2, aboveSigned)});
    EXPECT_VARIANT(loaded().Value, -2LL);
}

// IDs above 2147483647

TEST_F(MemoryDBTest, LargeIDStandsInTheFileAsNegativeNumber)
{
    openTable();
    EXPECT_TRUE(database->insertData(makeItem(largeID, "a")));
    EXPECT_TRUE(
        database->insertDatas({makeItem(UINT_MAX, "b"), makeItem(2147483648U, "c"), makeItem(2147483647U, "d")}));
    EXPECT_EQ(allIDs(), (Texts{"integer -2147483648", "integer -1294967296", "integer -1", "integer 2147483647"}));
}

TEST_F(MemoryDBTest, LargeIDLoadsUnsigned)
{
    openTable({makeItem(largeID, "a")});
    EXPECT_EQ(loaded().ID, largeID);
}

TEST_F(MemoryDBTest, LargeIDIsReplacedNotDoubled)
{
    openTable({makeItem(largeID, "a")});
    EXPECT_TRUE(database->insertData(makeItem(largeID, "b")));
    EXPECT_TRUE(database->insertDatas({makeItem(largeID, "c")}));
    EXPECT_EQ(Outsider().rows("SELECT ID, NameID FROM kel"), Texts{"integer -1294967296|text c"});
}

TEST_F(MemoryDBTest, LargeIDIsFoundByEveryUpdate)
{
    openTable({makeItem(largeID, "a", 1)});
    EXPECT_TRUE(database->updateValue(largeID, 2));
    EXPECT_EQ(statements(), Texts{"UPDATE kel SET Value = 2 WHERE ID = -1294967296 ;"});
    EXPECT_EQ(valueOf(-1294967296), "integer 2");
    EXPECT_TRUE(database->updateValues({largeID}, {3}));
    EXPECT_EQ(valueOf(-1294967296), "integer 3");
    EXPECT_TRUE(database->updateDatas({makeItem(largeID, "a", 4)}));
    EXPECT_EQ(valueOf(-1294967296), "integer 4");
}

TEST_F(MemoryDBTest, LargeIDIsFoundByTheDelete)
{
    openTable({makeItem(largeID, "a"), makeItem(1, "b")});
    EXPECT_TRUE(database->deleteData(largeID));
    EXPECT_EQ(allIDs(), Texts{"integer 1"});
}

// Failures

TEST_F(MemoryDBTest, BatchWithoutATableFailsAndLeavesNoTransaction)
{
    open();
    statements();
    EXPECT_FALSE(database->insertDatas({makeItem(1, "a")}));
    EXPECT_EQ(statements(), (Texts{"BEGIN IMMEDIATE", "ROLLBACK"}));
    expectNoTransaction();
    EXPECT_FALSE(database->updateDatas({makeItem(1, "a")}));
    EXPECT_EQ(statements(), (Texts{"BEGIN IMMEDIATE", "ROLLBACK"}));
    expectNoTransaction();
    EXPECT_FALSE(database->updateValues({1}, {2}));
    EXPECT_EQ(statements(), (Texts{"BEGIN IMMEDIATE", "ROLLBACK"}));
    expectNoTransaction();
}

TEST_F(MemoryDBTest, EmptyBatchWithoutATableFailsToo)
{
    open();
    EXPECT_FALSE(database->insertDatas({}));
    EXPECT_FALSE(database->updateDatas({}));
    EXPECT_FALSE(database->updateValues({}, {}));
    expectNoTransaction();
}

TEST_F(MemoryDBTest, SingleOperationsFailWithoutATable)
{
    open();
    EXPECT_FALSE(database->insertData(makeItem(1, "a")));
    EXPECT_FALSE(database->updateValue(1, 2));
    EXPECT_FALSE(database->deleteData(1));
    expectNoTransaction();
}

TEST_F(MemoryDBTest, DatabaseIsUsableAgainAfterAFailedBatch)
{
    open();
    EXPECT_FALSE(database->insertDatas({makeItem(1, "a")}));
    EXPECT_TRUE(database->createMemoryDBTable());
    EXPECT_TRUE(database->insertDatas({makeItem(1, "a")}));
    EXPECT_EQ(allIDs(), Texts{"integer 1"});
}

TEST_F(MemoryDBTest, TableOfAnotherShapeRefusesRows)
{
    open();
    ASSERT_EQ(Outsider().run("CREATE TABLE kel(ID INTEGER PRIMARY KEY, Other)"), SQLITE_OK);
    EXPECT_FALSE(database->insertData(makeItem(1, "a")));
    EXPECT_FALSE(database->insertDatas({makeItem(1, "a")}));
    EXPECT_FALSE(database->updateDatas({makeItem(1, "a")}));
    expectNoTransaction();
}

TEST_F(MemoryDBTest, RecordRefusedInInsertDatasDoesNotStopTheOthers)
{
    openTable();
    fireTriggers();
    ASSERT_EQ(Outsider().run("CREATE TRIGGER refuse BEFORE INSERT ON kel WHEN NEW.ID = 2 "
                             "BEGIN SELECT RAISE(ABORT, 'no'); END"),
              SQLITE_OK);
    EXPECT_TRUE(database->insertDatas({makeItem(1, "a"), makeItem(2, "b"), makeItem(3, "c")}));
    EXPECT_EQ(statements(), (Texts{"BEGIN IMMEDIATE", batchReplaceText, batchReplaceText, batchReplaceText, "COMMIT"}));
    EXPECT_EQ(allIDs(), (Texts{"integer 1", "integer 3"}));
}

TEST_F(MemoryDBTest, RecordRefusedByACheckDoesNotStopTheOthers)
{
    open();
    std::string checked = createText;
    checked.replace(checked.find("Value NUMERIC"), 13, "Value NUMERIC CHECK(Value < 10)");
    ASSERT_EQ(Outsider().run(checked), SQLITE_OK);
    EXPECT_TRUE(database->insertDatas({makeItem(1, "a", 1), makeItem(2, "b", 20), makeItem(3, "c", 3)}));
    EXPECT_EQ(allIDs(), (Texts{"integer 1", "integer 3"}));
    EXPECT_TRUE(database->updateDatas({makeItem(1, "a", 30), makeItem(3, "c", 4)}));
    EXPECT_EQ(Outsider().rows("SELECT Value FROM kel ORDER BY ID"), (Texts{"integer 1", "integer 4"}));
    EXPECT_TRUE(database->updateValues({1, 3}, {40, 5}));
    EXPECT_EQ(Outsider().rows("SELECT Value FROM kel ORDER BY ID"), (Texts{"integer 1", "integer 5"}));
    EXPECT_FALSE(database->insertData(makeItem(4, "d", 50)));
    EXPECT_FALSE(database->updateValue(1, 50));
    EXPECT_EQ(Outsider().rows("SELECT Value FROM kel ORDER BY ID"), (Texts{"integer 1", "integer 5"}));
    expectNoTransaction();
}

TEST_F(MemoryDBTest, RecordThatCannotBeBoundDoesNotStopTheOthers)
{
    openTable();
    sqlite3_limit(connection, SQLITE_LIMIT_LENGTH, 10000);
    const std::string tooLong(20000, 'n');
    EXPECT_TRUE(database->insertDatas({makeItem(1, "a"), makeItem(2, tooLong), makeItem(3, "c")}));
    EXPECT_EQ(Outsider().rows("SELECT ID, NameID FROM kel ORDER BY ID"),
              (Texts{"integer 1|text a", "integer 3|text c"}));
    EXPECT_FALSE(database->insertData(makeItem(4, tooLong)));
    EXPECT_EQ(allIDs().size(), 2U);
}

TEST_F(MemoryDBTest, FailedDeleteIsReported)
{
    openTable({makeItem(1, "a")});
    fireTriggers();
    ASSERT_EQ(Outsider().run("CREATE TRIGGER refuse BEFORE DELETE ON kel BEGIN SELECT RAISE(ABORT, 'no'); END"),
              SQLITE_OK);
    EXPECT_FALSE(database->deleteData(1));
    EXPECT_EQ(allIDs(), Texts{"integer 1"});
    expectNoTransaction();
}

/// A batch operation that writes the items 1, 2 and 3, which are there with the value 1.
struct Batch
{
    const char* name;
    std::function<bool(CkelMemoryDB&)> run;
};

void PrintTo(const Batch& batch, std::ostream* out)
{
    *out << batch.name;
}

class BatchTest : public MemoryDBTest, public testing::WithParamInterface<Batch>
{
protected:
    void openRows()
    {
        openTable({makeItem(1, "a", 1), makeItem(2, "b", 1), makeItem(3, "c", 1)});
        before = allRows();
    }

    bool runBatch() { return GetParam().run(*database); }

    void expectUnchanged()
    {
        EXPECT_EQ(allRows(), before);
        expectNoTransaction();
    }

    Texts before;
};

INSTANTIATE_TEST_SUITE_P(
    MemoryDB, BatchTest,
    testing::Values(
        Batch{"InsertDatas",
              [](CkelMemoryDB& db) {
                  return db.insertDatas({makeItem(1, "a", 2), makeItem(2, "b", 2), makeItem(3, "c", 2)});
              }},
        Batch{"UpdateDatas",
              [](CkelMemoryDB& db) {
                  return db.updateDatas({makeItem(1, "a", 2), makeItem(2, "b", 2), makeItem(3, "c", 2)});
              }},
        Batch{"UpdateValues",
              [](CkelMemoryDB& db) {
                  return db.updateValues({1, 2, 3}, {2.0, 2.0, 2.0});
              }},
        Batch{"RebuildMemoryDBTable",
              [](CkelMemoryDB& db) {
                  return db.rebuildMemoryDBTable({makeItem(1, "a", 2), makeItem(2, "b", 2), makeItem(3, "c", 2)});
              }}),
    [](const testing::TestParamInfo<Batch>& batch) { return batch.param.name; });

TEST_P(BatchTest, WritesEveryRecord)
{
    openRows();
    EXPECT_TRUE(runBatch());
    EXPECT_EQ(Outsider().rows("SELECT Value FROM kel"), (Texts{"integer 2", "integer 2", "integer 2"}));
    expectNoTransaction();
}

TEST_P(BatchTest, NothingIsSeenBeforeTheCommit)
{
    openRows();
    int looks = 0;
    onStatement = [&](const std::string& text) {
        if (text == "COMMIT") {
            EXPECT_EQ(allRows(), before);
            ++looks;
        }
    };
    EXPECT_TRUE(runBatch());
    EXPECT_EQ(looks, 1);
}

TEST_P(BatchTest, CommitTurnedDownChangesNothing)
{
    openRows();
    sqlite3_commit_hook(
        connection, [](void*) { return 1; }, nullptr);
    EXPECT_FALSE(runBatch());
    sqlite3_commit_hook(connection, nullptr, nullptr);
    expectUnchanged();
    EXPECT_TRUE(runBatch());
}

TEST_P(BatchTest, CommitHeldUpByAReaderChangesNothing)
{
    openRows();
    sqlite3_busy_timeout(connection, 0);
    {
        const Outsider reader;
        sqlite3_stmt* statement = nullptr;
        ASSERT_EQ(sqlite3_prepare_v2(reader.handle(), selectText, -1, &statement, nullptr), SQLITE_OK);
        ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
        EXPECT_FALSE(runBatch());
        EXPECT_EQ(statements().back(), "ROLLBACK");
        sqlite3_finalize(statement);
    }
    expectUnchanged();
    EXPECT_TRUE(runBatch());
}

TEST_P(BatchTest, LockedFileLetsNoStatementRun)
{
    openRows();
    sqlite3_busy_timeout(connection, 0);
    const Outsider writer;
    ASSERT_EQ(writer.run("BEGIN IMMEDIATE"), SQLITE_OK);
    EXPECT_FALSE(runBatch());
    EXPECT_EQ(statements(), Texts{"BEGIN IMMEDIATE"});
    ASSERT_EQ(writer.run("COMMIT"), SQLITE_OK);
    expectUnchanged();
}

TEST_P(BatchTest, WaitsForTheTransactionOfAnotherConnection)
{
    openRows();
    std::atomic<bool> holding{false};
    std::thread holder([&holding] {
        const Outsider writer;
        EXPECT_EQ(writer.run("BEGIN EXCLUSIVE"), SQLITE_OK);
        holding = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        EXPECT_EQ(writer.run("COMMIT"), SQLITE_OK);
    });
    while (!holding)
        std::this_thread::yield();
    EXPECT_TRUE(runBatch());
    holder.join();
    EXPECT_NE(allRows(), before);
}

TEST_P(BatchTest, TransactionThatSqliteEndsOnTheWayChangesNothing)
{
    // An interrupted write makes SQLite roll back the whole transaction, as it does when the disk fails.
    openRows();
    for (std::size_t broken = 1; broken <= 10; ++broken) {
        SCOPED_TRACE("at statement " + std::to_string(broken));
        std::size_t count = 0;
        std::string text;
        onStatement = [&](const std::string& statement) {
            if (statement.find("sqlite_master") != std::string::npos || ++count != broken)
                return;
            text = statement;
            if (statement != "COMMIT")
                sqlite3_interrupt(connection);
        };
        const bool done = runBatch();
        onStatement = nullptr;
        if (text == "COMMIT") {
            EXPECT_TRUE(done);
            EXPECT_GT(broken, 3U);
            return;
        }
        if (startsWith(text, "BEGIN")) // too short to be interrupted; the batch goes through
            ASSERT_TRUE(
                database->rebuildMemoryDBTable({makeItem(1, "a", 1), makeItem(2, "b", 1), makeItem(3, "c", 1)}));
        else
            EXPECT_FALSE(done) << text;
        expectUnchanged();
        if (HasFailure())
            return; // the rows are not what the next round starts from
    }
    FAIL() << "no commit";
}

TEST_F(MemoryDBTest, BatchStopsWhenATriggerEndsTheTransaction)
{
    openTable();
    fireTriggers();
    ASSERT_EQ(Outsider().run("CREATE TRIGGER refuse BEFORE INSERT ON kel WHEN NEW.ID = 2 "
                             "BEGIN SELECT RAISE(ROLLBACK, 'no'); END"),
              SQLITE_OK);
    EXPECT_FALSE(database->insertDatas({makeItem(1, "a"), makeItem(2, "b"), makeItem(3, "c")}));
    EXPECT_EQ(statements(), (Texts{"BEGIN IMMEDIATE", batchReplaceText, batchReplaceText}));
    EXPECT_TRUE(allRows().empty());
    expectNoTransaction();
}

TEST_F(MemoryDBTest, BatchThatFillsTheFileIsLeftOutAltogether)
{
    openTable({makeItem(1, "old")});
    ASSERT_EQ(sqlite3_exec(connection, "PRAGMA max_page_count=3", nullptr, nullptr, nullptr), SQLITE_OK);
    std::vector<tagStorageData> records;
    for (unsigned int id = 1; id <= 50; ++id)
        records.push_back(makeItem(id, std::string(1000, 'n')));
    EXPECT_FALSE(database->insertDatas(records));
    EXPECT_EQ(Outsider().rows("SELECT ID, NameID FROM kel"), Texts{"integer 1|text old"});
    expectNoTransaction();
}

// Rebuilding

TEST_F(MemoryDBTest, RebuildIsOneTransaction)
{
    openTable({makeItem(1, "old"), makeItem(2, "gone")});
    EXPECT_TRUE(database->rebuildMemoryDBTable({makeItem(1, "new"), makeItem(3, "added")}));
    EXPECT_EQ(statements(),
              (Texts{"BEGIN IMMEDIATE", "DROP TABLE kel", createText, batchReplaceText, batchReplaceText, "COMMIT"}));
    EXPECT_EQ(Outsider().rows("SELECT ID, NameID FROM kel"), (Texts{"integer 1|text new", "integer 3|text added"}));
    expectNoTransaction();
}

TEST_F(MemoryDBTest, RebuildMakesAMissingTable)
{
    open();
    EXPECT_TRUE(database->rebuildMemoryDBTable({makeItem(1, "a")}));
    EXPECT_TRUE(database->hasMemoryDBTable());
    EXPECT_EQ(allIDs(), Texts{"integer 1"});
}

TEST_F(MemoryDBTest, RebuildWithoutRecordsLeavesAnEmptyTable)
{
    openTable({makeItem(1, "a")});
    EXPECT_TRUE(database->rebuildMemoryDBTable({}));
    EXPECT_TRUE(database->hasMemoryDBTable());
    EXPECT_TRUE(allRows().empty());
}

TEST_F(MemoryDBTest, RebuildReplacesATableOfAnotherShape)
{
    open();
    ASSERT_EQ(Outsider().run("CREATE TABLE kel(a); INSERT INTO kel VALUES(1)"), SQLITE_OK);
    EXPECT_TRUE(database->rebuildMemoryDBTable({makeItem(5, "five")}));
    EXPECT_EQ(loaded().ID, 5U);
}

TEST_F(MemoryDBTest, RebuildThatFillsTheFileKeepsTheOldRows)
{
    openTable({makeItem(1, "old"), makeItem(2, "old too")});
    const Texts before = allRows();
    ASSERT_EQ(sqlite3_exec(connection, "PRAGMA max_page_count=3", nullptr, nullptr, nullptr), SQLITE_OK);
    std::vector<tagStorageData> records;
    for (unsigned int id = 1; id <= 50; ++id)
        records.push_back(makeItem(id, std::string(1000, 'n')));
    EXPECT_FALSE(database->rebuildMemoryDBTable(records));
    EXPECT_EQ(allRows(), before);
    expectNoTransaction();
    ASSERT_EQ(sqlite3_exec(connection, "PRAGMA max_page_count=1000", nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_TRUE(database->rebuildMemoryDBTable(records));
    EXPECT_EQ(allIDs().size(), 50U);
}

TEST_F(MemoryDBTest, RebuildThatCannotDropTheTableKeepsTheOldRows)
{
    openTable({makeItem(1, "old"), makeItem(2, "old too")});
    const Texts before = allRows();
    sqlite3_set_authorizer(
        connection,
        [](void*, int action, const char*, const char*, const char*, const char*) {
            return action == SQLITE_DROP_TABLE ? SQLITE_DENY : SQLITE_OK;
        },
        nullptr);
    EXPECT_FALSE(database->rebuildMemoryDBTable({makeItem(3, "new")}));
    sqlite3_set_authorizer(connection, nullptr, nullptr);
    EXPECT_EQ(allRows(), before);
    expectNoTransaction();
}

// A database that is closed, or no database

void expectEveryOperationToFail(CkelMemoryDB& database)
{
    EXPECT_FALSE(database.hasMemoryDBTable());
    EXPECT_FALSE(database.createMemoryDBTable());
    EXPECT_FALSE(database.dropMemoryDBTable());
    EXPECT_FALSE(database.rebuildMemoryDBTable({makeItem(1, "a")}));
    EXPECT_FALSE(database.rebuildMemoryDBTable({}));
    EXPECT_FALSE(database.insertData(makeItem(1, "a")));
    EXPECT_FALSE(database.insertDatas({makeItem(1, "a")}));
    EXPECT_FALSE(database.insertDatas({}));
    EXPECT_FALSE(database.updateValue(1, 2));
    EXPECT_FALSE(database.updateValues({1}, {2}));
    EXPECT_FALSE(database.updateValues({}, {}));
    EXPECT_FALSE(database.updateDatas({makeItem(1, "a")}));
    EXPECT_FALSE(database.updateDatas({}));
    EXPECT_FALSE(database.deleteData(1));
    database.deleteDatas(std::vector<unsigned int>{1, 2});
    database.deleteDatas(std::vector<tagStorageData>{makeItem(1, "a")});
    EXPECT_TRUE(database.loadMemoryDB().empty());
    EXPECT_FALSE(database.isLoadComplete());
    EXPECT_FALSE(database.hasMemoryDBTable());
}

TEST_F(MemoryDBTest, EveryOperationFailsWhereTheFileCannotBeOpened)
{
    std::filesystem::create_directory("kelmem.db");
    CkelMemoryDB closed;
    expectEveryOperationToFail(closed);
    EXPECT_TRUE(std::filesystem::is_empty("kelmem.db"));
}

TEST_F(MemoryDBTest, EveryOperationFailsOnAFileThatIsNoDatabase)
{
    const std::string content(5000, 'x');
    std::ofstream("kelmem.db") << content;
    open();
    expectEveryOperationToFail(*database);
    EXPECT_EQ(sqlite3_get_autocommit(connection), 1);
    EXPECT_EQ(std::filesystem::file_size("kelmem.db"), content.size());
}

TEST_F(MemoryDBTest, FileThatCannotBeWrittenIsLoadedAndNotChanged)
{
    openTable({makeItem(1, "a", 2.5)});
    database.reset();
    const Texts before = allRows();
    std::filesystem::permissions("kelmem.db", std::filesystem::perms::owner_read);
    {
        const HeedPermissions heed;
        open();
        EXPECT_TRUE(database->hasMemoryDBTable());
        EXPECT_VARIANT(loaded().Value, 2.5);
        EXPECT_FALSE(database->insertData(makeItem(2, "b")));
        EXPECT_FALSE(database->insertDatas({makeItem(2, "b")}));
        EXPECT_FALSE(database->updateValue(1, 7));
        EXPECT_FALSE(database->updateValues({1}, {7}));
        EXPECT_FALSE(database->updateDatas({makeItem(1, "a", 7)}));
        EXPECT_FALSE(database->deleteData(1));
        EXPECT_FALSE(database->dropMemoryDBTable());
        EXPECT_FALSE(database->rebuildMemoryDBTable({}));
    }
    EXPECT_EQ(allRows(), before);
}

TEST_F(MemoryDBTest, OperationsPrintNothing)
{
    openTable({makeItem(1, "a")});
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    database->insertData(makeItem(2, "b"));
    database->insertDatas({makeItem(3, "c")});
    database->updateValue(1, "text");
    database->updateValues({1}, {2});
    database->updateDatas({makeItem(1, "a")});
    database->deleteDatas(std::vector<unsigned int>{1, 2});
    database->deleteData(2);
    database->rebuildMemoryDBTable({makeItem(1, "a")});
    database->loadMemoryDB();
    database->dropMemoryDBTable();
    database->dropMemoryDBTable();
    database->insertData(makeItem(2, "b"));
    database->insertDatas({makeItem(2, "b")});
    database->loadMemoryDB();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// Threads

/// Holds a thread at the first statement that starts with a text until it is let go.
class Gate
{
public:
    void hold()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_reached = true;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return m_open; });
    }

    /// Whether a thread arrived, within a generous time.
    bool waitUntilReached()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::seconds(10), [this] { return m_reached; });
    }

    void letGo()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_reached = false;
    bool m_open = false;
};

class MemoryDBThreadsTest : public MemoryDBTest
{
protected:
    struct Answer
    {
        bool hasTable;
        bool cameDuringTheWrite;
    };

    /// What hasMemoryDBTable says while another thread is in the middle of writing, which goes on after `patience`.
    Answer askDuringAWrite(std::chrono::milliseconds patience)
    {
        Gate gate;
        onStatement = [&gate](const std::string& text) {
            if (text == "BEGIN IMMEDIATE")
                gate.hold();
        };
        std::thread writer([this] { database->insertDatas({}); });
        EXPECT_TRUE(gate.waitUntilReached());
        auto asked = std::async(std::launch::async, [this] { return database->hasMemoryDBTable(); });
        const bool cameDuringTheWrite = asked.wait_for(patience) == std::future_status::ready;
        gate.letGo();
        writer.join();
        const bool hasTable = asked.get();
        onStatement = nullptr;
        return {hasTable, cameDuringTheWrite};
    }

    void expectAtOnce(bool hasTable)
    {
        const Answer answer = askDuringAWrite(std::chrono::seconds(10));
        EXPECT_EQ(answer.hasTable, hasTable);
        EXPECT_TRUE(answer.cameDuringTheWrite);
    }
};

TEST_F(MemoryDBThreadsTest, TableInTheFileIsNotMissedByAFirstQuestionDuringAWrite)
{
    openTable();
    database.reset();
    open();
    // Whether such a question waits is left open; a wrong answer would cost the saved values.
    EXPECT_TRUE(askDuringAWrite(std::chrono::milliseconds(50)).hasTable);
}

TEST_F(MemoryDBThreadsTest, TableFoundBeforeIsKnownDuringAWrite)
{
    openTable();
    database.reset();
    open();
    ASSERT_TRUE(database->hasMemoryDBTable());
    expectAtOnce(true);
}

TEST_F(MemoryDBThreadsTest, TableJustCreatedIsKnownDuringAWrite)
{
    open();
    ASSERT_FALSE(database->hasMemoryDBTable());
    ASSERT_TRUE(database->createMemoryDBTable());
    expectAtOnce(true);
}

TEST_F(MemoryDBThreadsTest, TableJustRebuiltIsKnownDuringAWrite)
{
    open();
    ASSERT_FALSE(database->hasMemoryDBTable());
    ASSERT_TRUE(database->rebuildMemoryDBTable({}));
    expectAtOnce(true);
}

TEST_F(MemoryDBThreadsTest, TableJustDroppedIsGoneDuringAWrite)
{
    openTable();
    ASSERT_TRUE(database->hasMemoryDBTable());
    ASSERT_TRUE(database->dropMemoryDBTable());
    expectAtOnce(false);
}

TEST_F(MemoryDBThreadsTest, TableSurvivesAFailedRebuildInTheAnswerToo)
{
    openTable();
    ASSERT_TRUE(database->hasMemoryDBTable());
    sqlite3_commit_hook(
        connection, [](void*) { return 1; }, nullptr);
    EXPECT_FALSE(database->rebuildMemoryDBTable({}));
    sqlite3_commit_hook(connection, nullptr, nullptr);
    EXPECT_TRUE(askDuringAWrite(std::chrono::milliseconds(50)).hasTable);
}

TEST_F(MemoryDBThreadsTest, TableThatAFailedRebuildWouldHaveMadeIsNotThere)
{
    open();
    ASSERT_FALSE(database->hasMemoryDBTable());
    sqlite3_commit_hook(
        connection, [](void*) { return 1; }, nullptr);
    EXPECT_FALSE(database->rebuildMemoryDBTable({}));
    sqlite3_commit_hook(connection, nullptr, nullptr);
    EXPECT_FALSE(askDuringAWrite(std::chrono::milliseconds(50)).hasTable);
}

TEST_F(MemoryDBThreadsTest, OperationsOfSeveralThreadsDoNotMeetInATransaction)
{
    openTable();
    ASSERT_EQ(sqlite3_exec(connection, "PRAGMA synchronous=OFF", nullptr, nullptr, nullptr), SQLITE_OK);
    constexpr unsigned int threadCount = 4;
    constexpr unsigned int rounds = 10;
    std::vector<std::thread> threads;
    for (unsigned int t = 0; t < threadCount; ++t) {
        threads.emplace_back([this, t] {
            for (unsigned int i = 0; i < rounds; ++i) {
                const unsigned int id = 100 * (t + 1) + i;
                EXPECT_TRUE(database->insertDatas({makeItem(id, "a", 1)}));
                EXPECT_TRUE(database->insertData(makeItem(id + 50, "b")));
                EXPECT_TRUE(database->updateValues({id}, {2}));
                EXPECT_TRUE(database->updateValue(id + 50, 3));
                EXPECT_TRUE(database->updateDatas({makeItem(id, "a", 4)}));
                EXPECT_TRUE(database->deleteData(id + 50));
                database->deleteDatas(std::vector<unsigned int>{id});
                EXPECT_TRUE(database->hasMemoryDBTable());
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(Outsider().only("SELECT count(*), sum(Value) FROM kel"),
              integer(threadCount * rounds) + "|" + integer(4 * threadCount * rounds));
    expectNoTransaction();
}

TEST_F(MemoryDBTest, TwoObjectsShareTheFile)
{
    openTable();
    CkelMemoryDB other;
    std::thread writer([&other] {
        for (unsigned int id = 1; id <= 5; ++id)
            EXPECT_TRUE(other.insertDatas({makeItem(id, "other")}));
    });
    for (unsigned int id = 101; id <= 105; ++id)
        EXPECT_TRUE(database->insertDatas({makeItem(id, "this")}));
    writer.join();
    EXPECT_EQ(allIDs().size(), 10U);
    EXPECT_EQ(other.loadMemoryDB().size(), 10U);
}

TEST_F(MemoryDBTest, BatchesFinaliseTheirStatementBeforeTheCommit)
{
    openTable({makeItem(1, "a")});
    int open = -1;
    onStatement = [this, &open](const std::string& text) {
        if (text != "COMMIT")
            return;
        open = 0;
        for (sqlite3_stmt* s = sqlite3_next_stmt(connection, nullptr); s; s = sqlite3_next_stmt(connection, s)) {
            const std::string waiting = sqlite3_sql(s);
            open += waiting != "COMMIT" && waiting != "ROLLBACK" ? 1 : 0;
        }
    };
    const auto openAtCommit = [&open](bool done) { return done ? std::exchange(open, -1) : -2; };
    EXPECT_EQ(openAtCommit(database->insertDatas({makeItem(1, "b")})), 0);
    EXPECT_EQ(openAtCommit(database->updateDatas({makeItem(1, "b")})), 0);
    EXPECT_EQ(openAtCommit(database->updateValues({1}, {5})), 0);
    EXPECT_EQ(openAtCommit(database->rebuildMemoryDBTable({makeItem(1, "b")})), 0);
}

TEST_F(MemoryDBTest, BatchesLeaveTheResultOfTheirTransaction)
{
    openTable({makeItem(1, "a")});
    EXPECT_TRUE(database->insertDatas({makeItem(1, "b")}));
    EXPECT_EQ(databaseOf(*database).lastResult(), SQLITE_OK);
    sqlite3_commit_hook(
        connection, [](void*) { return 1; }, nullptr);
    EXPECT_FALSE(database->updateValues({1}, {5}));
    EXPECT_EQ(databaseOf(*database).lastResult(), SQLITE_CONSTRAINT) << "of COMMIT";
    sqlite3_commit_hook(connection, nullptr, nullptr);

    const Outsider other;
    ASSERT_EQ(other.run("BEGIN IMMEDIATE"), SQLITE_OK);
    databaseOf(*database).setBusyTimeOut(std::chrono::milliseconds(0));
    EXPECT_FALSE(database->updateDatas({makeItem(1, "b")}));
    EXPECT_EQ(databaseOf(*database).lastResult(), SQLITE_BUSY) << "of BEGIN IMMEDIATE";
}

TEST_F(MemoryDBTest, BatchWithoutATableStopsAtOnce)
{
    open();
    std::vector<tagStorageData> records(3, makeItem(1, "a"));
    statements();
    EXPECT_FALSE(database->insertDatas(records));
    EXPECT_EQ(statements(), (Texts{"BEGIN IMMEDIATE", "ROLLBACK"}));
}

TEST_F(MemoryDBTest, DirectUpdateWritesARealIntoAColumnWithoutATypeToo)
{
    open();
    ASSERT_EQ(Outsider().run("CREATE TABLE kel(ID INTEGER PRIMARY KEY, NameID, CommSource, RW, Block, ValueT, Value,"
                             "                 DefValue, Max, Min, Unit, CUnit); INSERT INTO kel(ID) VALUES(1)"),
              SQLITE_OK);
    for (const double value : {5.0, -7.0, 0.0, -0.0, 0.5, 9007199254740991.0, -9007199254740991.0, 1e22}) {
        EXPECT_TRUE(database->updateValue(1, value));
        const std::string direct = valueOf(1);
        EXPECT_TRUE(database->updateValues({1}, {value}));
        EXPECT_EQ(direct, valueOf(1));
        EXPECT_EQ(direct, real(value));
    }
}

// A file that another connection holds

TEST_F(MemoryDBTest, ALockedFileLeavesWhatIsKnownOfTheTable)
{
    openTable();
    const Outsider other;
    ASSERT_EQ(other.run("BEGIN EXCLUSIVE"), SQLITE_OK);
    EXPECT_TRUE(database->hasMemoryDBTable());
    ASSERT_EQ(other.run("DROP TABLE kel; COMMIT"), SQLITE_OK);
    EXPECT_FALSE(database->hasMemoryDBTable());
    ASSERT_EQ(other.run("BEGIN EXCLUSIVE"), SQLITE_OK);
    EXPECT_FALSE(database->hasMemoryDBTable());
}

TEST_F(MemoryDBTest, TheQuestionForTheTableNeverWaitsForALockedFile)
{
    openTable();
    int waits = 0;
    const Outsider other;
    ASSERT_EQ(other.run("BEGIN EXCLUSIVE"), SQLITE_OK);
    const CountedWaits counted(waits);
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(database->hasMemoryDBTable());
    EXPECT_EQ(waits, 0);
}

TEST_F(MemoryDBTest, StatementsWaitForALockedFileAgainAfterTheQuestion)
{
    openTable();
    EXPECT_TRUE(database->hasMemoryDBTable());
    const Outsider other;
    ASSERT_EQ(other.run("BEGIN IMMEDIATE"), SQLITE_OK);
    int waits = 0;
    const CountedWaits counted(waits, [&] { EXPECT_EQ(other.run("COMMIT"), SQLITE_OK); });
    EXPECT_TRUE(database->insertDatas({makeItem(1, "a")}));
    EXPECT_EQ(waits, 1);
}

// A connection that has become useless

TEST_F(MemoryDBTest, AConnectionThatMayOnlyReadIsOpenedAnewBeforeItWrites)
{
    openTable({makeItem(1, "a", 1)});
    database.reset();
    ASSERT_EQ(chmod("kelmem.db", 0400), 0);
    {
        const HeedPermissions heed;
        open();
        EXPECT_FALSE(database->updateDatas({makeItem(1, "a", 2)}));
    }
    ASSERT_EQ(chmod("kelmem.db", 0600), 0);
    EXPECT_TRUE(database->updateDatas({makeItem(1, "a", 3)}));
    EXPECT_EQ(valueOf(1), integer(3));
}

TEST_F(MemoryDBTest, AFileThatCouldNotBeOpenedIsOpenedWhenItCan)
{
    std::filesystem::create_directory("kelmem.db");
    CkelMemoryDB early;
    EXPECT_FALSE(early.hasMemoryDBTable());
    std::filesystem::remove("kelmem.db");
    openTable({makeItem(1, "a", 1)});
    EXPECT_TRUE(early.hasMemoryDBTable());
    EXPECT_TRUE(early.updateDatas({makeItem(1, "a", 2)}));
    EXPECT_EQ(valueOf(1), integer(2));
}

TEST_F(MemoryDBTest, AFileThatTookThePlaceOfTheOpenOneIsWritten)
{
    openTable({makeItem(1, "old", 1)});
    {
        const Outsider other("other.db");
        ASSERT_EQ(other.run(std::string(createText) + "INSERT INTO kel(ID, NameID) VALUES(1, 'new')"), SQLITE_OK);
    }
    std::filesystem::rename("other.db", "kelmem.db");
    EXPECT_TRUE(database->updateDatas({makeItem(1, "a", 2)}));
    EXPECT_EQ(Outsider().only("SELECT NameID, Value FROM kel"), "text new|" + integer(2));
}

TEST_F(MemoryDBTest, ADeletedFileIsMadeAnewAndItsTableByNobodyButThoseWhoAskForIt)
{
    openTable({makeItem(1, "a", 1)});
    std::filesystem::remove("kelmem.db");
    EXPECT_FALSE(database->updateDatas({makeItem(1, "a", 2)}));
    EXPECT_FALSE(database->hasMemoryDBTable());
    EXPECT_FALSE(database->insertDatas({makeItem(1, "a", 2)}));
    EXPECT_TRUE(database->createMemoryDBTable());
    EXPECT_TRUE(database->insertDatas({makeItem(1, "a", 3)}));
    EXPECT_EQ(valueOf(1), integer(3));
}

} // namespace
