#include "datastorage/kelmemorydb.h"
#include "tests/datastorage/surroundings.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>

using namespace Ombrin;
using namespace KelTest;

// Database files that somebody else has made, or put in the place of ours: opening, reading and writing them runs
// nothing of what is in them.

namespace {

std::atomic<int> calls;

void count(sqlite3_context* context, int /*argumentCount*/, sqlite3_value** /*arguments*/)
{
    ++calls;
    sqlite3_result_int(context, 1);
}

int connectModule(sqlite3* connection, void*, int, const char* const*, sqlite3_vtab** table, char**)
{
    ++calls;
    *table = new sqlite3_vtab{};
    return sqlite3_declare_vtab(connection, "CREATE TABLE x(a, b, c, d, e, f, g, h, i, j, k, l)");
}

int disconnectModule(sqlite3_vtab* table)
{
    delete table;
    return SQLITE_OK;
}

int findBestIndex(sqlite3_vtab*, sqlite3_index_info*)
{
    return SQLITE_OK;
}

int openCursor(sqlite3_vtab*, sqlite3_vtab_cursor** cursor)
{
    ++calls;
    *cursor = new sqlite3_vtab_cursor{};
    return SQLITE_OK;
}

int closeCursor(sqlite3_vtab_cursor* cursor)
{
    delete cursor;
    return SQLITE_OK;
}

int filter(sqlite3_vtab_cursor*, int, const char*, int, sqlite3_value**)
{
    return SQLITE_OK;
}

int next(sqlite3_vtab_cursor*)
{
    return SQLITE_OK;
}

int isAtEnd(sqlite3_vtab_cursor*)
{
    return 1;
}

int column(sqlite3_vtab_cursor*, sqlite3_context*, int)
{
    return SQLITE_OK;
}

int rowid(sqlite3_vtab_cursor*, sqlite3_int64* id)
{
    *id = 0;
    return SQLITE_OK;
}

const sqlite3_module& countingModule()
{
    static const sqlite3_module module = [] {
        sqlite3_module made = {};
        made.xCreate = made.xConnect = connectModule;
        made.xDisconnect = made.xDestroy = disconnectModule;
        made.xBestIndex = findBestIndex;
        made.xOpen = openCursor;
        made.xClose = closeCursor;
        made.xFilter = filter;
        made.xNext = next;
        made.xEof = isAtEnd;
        made.xColumn = column;
        made.xRowid = rowid;
        return made;
    }();
    return module;
}

/// Gives every connection of the process functions and a kind of virtual table that count their calls: "rogue" stands
/// for a function with effects, "harmless" for one that SQLite lets any schema use.
int addCountingCode(sqlite3* connection, char** /*error*/, const sqlite3_api_routines* /*unused*/)
{
    constexpr int kind = SQLITE_UTF8 | SQLITE_DETERMINISTIC;
    sqlite3_create_function(connection, "rogue", -1, kind, nullptr, count, nullptr, nullptr);
    sqlite3_create_function(connection, "harmless", -1, kind | SQLITE_INNOCUOUS, nullptr, count, nullptr, nullptr);
    return sqlite3_create_module(connection, "counting", &countingModule(), nullptr);
}

class RogueFile : public Surroundings
{
protected:
    RogueFile() { sqlite3_auto_extension(entryPoint()); }
    ~RogueFile() override { sqlite3_cancel_auto_extension(entryPoint()); }

    static void (*entryPoint())() { return reinterpret_cast<void (*)()>(&addCountingCode); }

    /// Makes the local file with the table of saved rows, then runs `text` on it.
    void makeSaved(const std::string& text)
    {
        writeLocalTable(savedRows);
        make(localFile, text);
    }

    /// Runs `text` on a file; what it calls does not count.
    void make(const std::string& path, const std::string& text)
    {
        Database(path).run(text);
        calls = 0;
    }

    /// Everything that the library does with the local file, with and without success.
    void useLocalFile()
    {
        const std::vector<tagStorageData> records{makeItem(1, "one", 11), makeItem(3, "three", 33)};
        CkelMemoryDB database;
        database.hasMemoryDBTable();
        database.loadMemoryDB();
        database.insertDatas(records);
        database.insertData(records[0]);
        database.updateDatas(records);
        database.updateValue(1, 5);
        database.updateValues({1}, {6});
        database.deleteData(3);
        database.createMemoryDBTable();
    }

    void expectNothingRun()
    {
        useLocalFile();
        EXPECT_EQ(calls, 0);
    }

    static std::string table(const std::string& column9 = "Min NUMERIC", const std::string& behind = "")
    {
        return "CREATE TABLE kel(ID INTEGER PRIMARY KEY NOT NULL, NameID TEXT, CommSource INTEGER, RW INTEGER, Block "
               "INTEGER, ValueT INTEGER, Value NUMERIC, DefValue NUMERIC, Max NUMERIC, " +
               column9 + ", Unit INTEGER, CUnit INTEGER" + behind + ");";
    }
};

} // namespace

// --- what would run ---

TEST_F(RogueFile, TriggersDoNotFire)
{
    makeSaved(
        "CREATE TABLE log(a);"
        "CREATE TRIGGER i BEFORE INSERT ON kel BEGIN INSERT INTO log VALUES(harmless()); END;"
        "CREATE TRIGGER u AFTER UPDATE ON kel BEGIN INSERT INTO log VALUES(harmless()); DELETE FROM kel; END;"
        "CREATE TRIGGER d AFTER DELETE ON kel BEGIN INSERT INTO log VALUES(rogue()); END;");
    expectSavedValues();
    expectNothingRun();
    EXPECT_EQ(Database(localFile).rows("SELECT * FROM log"), Rows{});
    EXPECT_EQ(Database(localFile).rows("SELECT ID, Value FROM kel"), (Rows{"1 6", "2 102.5"}));
}

TEST_F(RogueFile, ATableWithTriggersIsRebuiltWithoutThem)
{
    makeSaved("CREATE TRIGGER i BEFORE INSERT ON kel BEGIN SELECT harmless(); END;");
    start(dictionary, false, [this](Storage& storage) { expectUsable(storage); });
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(Database(localFile).rows("SELECT count(*) FROM sqlite_master WHERE type='trigger'"), Rows{"0"});
    EXPECT_EQ(localRows(), (Rows{"1 'one' 0 0 0 9 1.5 0.5 9 -9 0 0", "2 'two' 0 0 0 9 1.5 0.5 9 -9 0 0"}));
}

TEST_F(RogueFile, AViewInThePlaceOfTheTableIsNeitherReadNorWrittenThrough)
{
    make(localFile,
         "CREATE TABLE t(a, b, c, d, e, f, g, h, i, j); INSERT INTO t VALUES(1,'one',0,0,0,9,5,0,0,0);"
         "CREATE VIEW kel AS SELECT *, 0 AS k, harmless() AS l FROM t;"
         "CREATE TRIGGER i INSTEAD OF INSERT ON kel BEGIN DELETE FROM t; SELECT harmless(); END;"
         "CREATE TRIGGER u INSTEAD OF UPDATE ON kel BEGIN DELETE FROM t; SELECT harmless(); END;"
         "CREATE TRIGGER d INSTEAD OF DELETE ON kel BEGIN DELETE FROM t; SELECT harmless(); END;");
    expectConfiguredItemsAlone();
    expectNothingRun();
    EXPECT_EQ(Database(localFile).rows("SELECT g FROM t"), Rows{"5"});
}

TEST_F(RogueFile, AViewDoesNotPassForATableThatWasMade)
{
    make(localFile, "CREATE VIEW kel AS SELECT 1;");
    CkelMemoryDB database;
    EXPECT_TRUE(database.createMemoryDBTable()) << "what the statement says";
    EXPECT_FALSE(database.hasMemoryDBTable());
    EXPECT_FALSE(database.dropMemoryDBTable());
    EXPECT_FALSE(database.rebuildMemoryDBTable({makeItem(1, "one")}));
    EXPECT_FALSE(database.insertDatas({makeItem(1, "one")}));
    EXPECT_FALSE(database.insertData(makeItem(1, "one")));
    EXPECT_FALSE(database.updateValue(1, 5));
}

TEST_F(RogueFile, AnEndlessViewInThePlaceOfTheTableIsNotRun)
{
    make(localFile, "CREATE VIEW kel AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i FROM n) SELECT * FROM n;");
    expectConfiguredItemsAlone();
}

TEST_F(RogueFile, AVirtualTableInThePlaceOfTheTableIsNotConnected)
{
    make(localFile, "CREATE VIRTUAL TABLE kel USING counting;");
    expectConfiguredItemsAlone();
    expectNothingRun();
}

TEST_F(RogueFile, ATableWhoseNameDiffersInCapitalsGivesWayToTheTable)
{
    make(localFile, "CREATE TABLE KEL(a); INSERT INTO KEL VALUES(5);");
    expectNewTable();
}

TEST_F(RogueFile, AnIndexOfTheTablesNameIsDoneWithout)
{
    make(localFile, "CREATE TABLE t(a); CREATE INDEX kel ON t(a);");
    expectConfiguredItemsAlone();
}

TEST_F(RogueFile, GeneratedColumnsAreNotComputed)
{
    for (const char* column : {"Min AS (rogue(ID))", "Min AS (harmless(ID))", "Min AS (harmless(ID)) STORED"}) {
        SCOPED_TRACE(column);
        std::filesystem::remove(localFile);
        make(localFile, table(column) + "INSERT INTO kel VALUES(1,'one',0,0,0,9,101.5,0,0,7,8);");
        for (const char* configuration : {dictionary, ""})
            start(configuration, true, [](Storage& storage) { EXPECT_NE(storage.queryValue(1).toDouble(), 101.5); });
        EXPECT_EQ(calls, 0);
    }
}

TEST_F(RogueFile, ATableWithGeneratedColumnsIsReplacedWhenSavedValuesAreNotWanted)
{
    make(localFile, table("Min AS (harmless(ID))") + "INSERT INTO kel VALUES(1,'one',0,0,0,9,101.5,0,0,7,8);");
    start(dictionary, false, [this](Storage& storage) { expectUsable(storage); });
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(localRows().size(), 2U);
}

TEST_F(RogueFile, ExpressionsOfATableCannotCallFunctionsWithEffects)
{
    const std::string rows = "INSERT INTO kel VALUES " + std::string(savedRows) + ";";
    for (const std::string& text :
         {table("Min NUMERIC CHECK(rogue())") + rows, table("Min NUMERIC", ", More DEFAULT (rogue())"),
          table() + rows + "CREATE INDEX i ON kel(rogue(Value));",
          table() + rows + "CREATE INDEX i ON kel(ID) WHERE rogue(Value);"}) {
        SCOPED_TRACE(text);
        std::filesystem::remove(localFile);
        make(localFile, text);
        expectNothingRun();
    }
}

TEST_F(RogueFile, AConditionOfATableThatWouldTakeAllMemoryFails)
{
    make(localFile, table("Min NUMERIC CHECK(length(hex(zeroblob(100000000))) > 0)"));
    CkelMemoryDB database;
    EXPECT_FALSE(database.insertData(makeItem(1, "one")));
}

// --- the same in a configuration database ---

TEST_F(RogueFile, AConfigurationDatabaseRunsNothing)
{
    const std::string columns = "1, 'one', 0, 0, 0, 0, 9, 5, 0, 0";
    for (const std::string& text :
         {"CREATE VIEW kel AS SELECT " + columns + ", harmless();",
          "CREATE VIEW kel AS WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i FROM n) SELECT " + columns +
              ", i FROM n;",
          std::string("CREATE VIRTUAL TABLE kel USING counting;"),
          "CREATE TABLE kel(a, b, c, d, e, f, g, h, i, j, k AS (harmless(a))); INSERT INTO kel VALUES(" + columns +
              ");",
          "CREATE TABLE kel(a, b, c, d, e, f, g, h, i, j, k AS (harmless(a)) STORED); INSERT INTO kel VALUES(" +
              columns + ");"}) {
        SCOPED_TRACE(text);
        std::filesystem::remove("configuration.db");
        make("configuration.db", text);
        start("configuration.db", true, [](Storage& storage) { EXPECT_EQ(storage.ID("one"), 0U); });
        EXPECT_EQ(calls, 0);
    }
}

TEST_F(RogueFile, AConfigurationDatabaseWithTriggersAndConstraintsIsRead)
{
    make("configuration.db",
         "CREATE TABLE kel(a, b, c, d, e, f, g, h, i, j, k CHECK(harmless()), l DEFAULT (harmless()));"
         "CREATE INDEX i ON kel(harmless(a)) WHERE harmless(b);"
         "CREATE TRIGGER t AFTER INSERT ON kel BEGIN SELECT rogue(); END;"
         "INSERT INTO kel VALUES(1,'one',0,0,0,0,9,5,0,0,0,0);");
    start("configuration.db", true, [](Storage& storage) { EXPECT_VARIANT(storage.queryValue("one"), 5.0); });
    EXPECT_EQ(calls, 0);
}

// --- other forms of a file ---

TEST_F(RogueFile, TheLargestPagesAreReadAndWritten)
{
    make(localFile, "PRAGMA page_size=65536; VACUUM;");
    makeSaved("");
    expectSavedValues();
    useLocalFile();
    EXPECT_EQ(Database(localFile).rows("SELECT ID, Value FROM kel"), (Rows{"1 6", "2 102.5"}));
    EXPECT_EQ(Database(localFile).rows("PRAGMA page_size"), Rows{"65536"});
}

TEST_F(RogueFile, TextsInUTF16AreReadAndWritten)
{
    for (const char* encoding : {"UTF-16le", "UTF-16be"}) {
        std::filesystem::remove(localFile);
        make(localFile, std::string("PRAGMA encoding='") + encoding + "';" + localTableText +
                            "INSERT INTO kel VALUES " + savedRows + ";");
        expectSavedValues();
        {
            CkelMemoryDB database;
            EXPECT_TRUE(database.insertData(makeItem(3, "\xC3\xA9", 33)));
            const auto& loaded = database.loadMemoryDB();
            ASSERT_EQ(loaded.size(), 3U);
            EXPECT_EQ(loaded[2].NameID, "\xC3\xA9");
        }
        EXPECT_EQ(Database(localFile).rows("PRAGMA encoding"), Rows{std::string("'") + encoding + "'"});
    }
}

TEST_F(RogueFile, AWriteAheadLogIsReadAndWritten)
{
    make(localFile, "PRAGMA journal_mode=WAL;");
    makeSaved("");
    expectSavedValues();
    useLocalFile();
    EXPECT_EQ(Database(localFile).rows("SELECT ID, Value FROM kel"), (Rows{"1 6", "2 102.5"}));
}

TEST_F(RogueFile, APageWhoseRowsReachBeyondItsEndIsNotRead)
{
    makeSaved("");
    std::string damaged = readFile(localFile);
    ASSERT_EQ(damaged.size(), 8192U);
    damaged.replace(4096 + 10, 2, "\x0f\xff"); // where the second row begins
    writeFile(localFile, damaged);
    start(dictionary, true, [](Storage& storage) {
        EXPECT_VARIANT(storage.queryValue(1), 1.5);
        EXPECT_VARIANT(storage.queryValue(2), 1.5);
    });
    EXPECT_TRUE(readFile(localFile) == damaged);
}

TEST_F(RogueFile, TextsAboveTheLimitAreRefused)
{
    CkelMemoryDB database;
    ASSERT_TRUE(database.createMemoryDBTable());
    EXPECT_FALSE(database.insertData(makeItem(1, std::string((std::size_t{64} << 20U) + 1, 'n'))));
    EXPECT_TRUE(database.insertData(makeItem(1, std::string(std::size_t{8} << 20U, 'n'))));
    EXPECT_EQ(database.loadMemoryDB().at(0).NameID.size(), std::size_t{8} << 20U);
}

// --- what stands under the file's name ---

TEST_F(RogueFile, ALinkIsFollowed)
{
    makeSaved("");
    std::filesystem::create_directory("data");
    std::filesystem::rename(localFile, "data/saved.db");
    std::filesystem::create_symlink("data/saved.db", localFile);
    expectSavedValues();
    useLocalFile();
    EXPECT_TRUE(std::filesystem::is_symlink(localFile));
    EXPECT_EQ(Database("data/saved.db").rows("SELECT ID, Value FROM kel"), (Rows{"1 6", "2 102.5"}));
}

TEST_F(RogueFile, ALinkToNothingMakesItsTarget)
{
    std::filesystem::create_directory("data");
    std::filesystem::create_symlink("data/saved.db", localFile);
    expectNewTable();
    EXPECT_TRUE(std::filesystem::is_symlink(localFile));
    EXPECT_TRUE(std::filesystem::is_regular_file("data/saved.db"));
}

TEST_F(RogueFile, ALinkThatLeadsNowhereIsDoneWithout)
{
    for (const char* target : {localFile, "missing/saved.db", "."}) {
        SCOPED_TRACE(target);
        std::filesystem::remove(localFile);
        std::filesystem::create_symlink(target, localFile);
        expectConfiguredItemsAlone();
        EXPECT_TRUE(std::filesystem::is_symlink(localFile));
    }
}

TEST_F(RogueFile, APipeIsDoneWithout)
{
    ASSERT_EQ(mkfifo(localFile, 0600), 0);
    expectConfiguredItemsAlone();
}

TEST_F(RogueFile, AFileOfAnotherOwnerStaysTheirs)
{
    constexpr uid_t nobody = 65534;
    makeSaved("");
    if (geteuid() != 0) { // cannot give it away, and meets a foreign file as one that is closed
        ASSERT_EQ(chmod(localFile, 0), 0);
        expectConfiguredItemsAlone();
        ASSERT_EQ(chmod(localFile, 0600), 0);
        EXPECT_EQ(Database(localFile).rows("SELECT ID, Value FROM kel").size(), 2U);
        return;
    }
    ASSERT_EQ(chown(localFile, nobody, nobody), 0);
    ASSERT_EQ(chmod(localFile, 0600), 0);
    expectSavedValues();
    useLocalFile();
    EXPECT_EQ(Database(localFile).rows("SELECT ID, Value FROM kel"), (Rows{"1 6", "2 102.5"}));
    struct stat status = {};
    ASSERT_EQ(stat(localFile, &status), 0);
    EXPECT_EQ(status.st_uid, nobody);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(RogueFile, APipeInThePlaceOfTheJournalIsRefusedAtOnce)
{
    writeLocalTable(savedRows);
    ASSERT_EQ(mkfifo("kelmem.db-journal", 0600), 0);
    start(dictionary, true, [this](Storage& storage) { expectUsable(storage); });
    std::filesystem::remove("kelmem.db-journal");
    EXPECT_EQ(localRows(), savedTable);
}

TEST_F(RogueFile, APipeThatTakesThePlaceOfTheJournalLaterIsRefusedAtOnce)
{
    writeLocalTable(savedRows);
    CkelMemoryDB database;
    ASSERT_TRUE(database.hasMemoryDBTable());
    ASSERT_EQ(mkfifo("kelmem.db-journal", 0600), 0);
    database.hasMemoryDBTable();
    EXPECT_FALSE(database.insertDatas({makeItem(3, "three")}));
    std::filesystem::remove("kelmem.db-journal");
    EXPECT_TRUE(database.insertDatas({makeItem(3, "three")}));
}

// --- what a file claims to hold ---

namespace {

/// Lets the first two cells of the page change places.
void exchangeCells(const std::string& path, std::size_t page)
{
    constexpr std::size_t pageSize = 4096;
    constexpr std::size_t pointers = 8; // behind the header of a leaf
    std::string bytes = readFile(path);
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>((page - 1) * pageSize + pointers);
    std::swap_ranges(first, first + 2, first + 2);
    writeFile(path, bytes);
}

} // namespace

TEST_F(RogueFile, ALocalTableWhoseKeysDoNotRiseIsNotReadToItsEnd)
{
    writeLocalTable(savedRows);
    exchangeCells(localFile, 2);
    CkelMemoryDB database;
    database.loadMemoryDB();
    EXPECT_FALSE(database.isLoadComplete());
    start(dictionary, true, [this](Storage& storage) { expectUsable(storage); });
    EXPECT_EQ(Database(localFile).rows("SELECT count(*) FROM kel"), Rows{"2"}) << "not rebuilt";
}

TEST_F(RogueFile, AConfigurationWhoseKeysDoNotRiseIsNotRead)
{
    Database("configuration.db")
        .run(
            "CREATE TABLE kel(ID INTEGER PRIMARY KEY, NameID, CommSource, DBSource, RW, Block, ValueT, Value, DefValue,"
            "                 Max, Min); INSERT INTO kel "
            "VALUES(1,'uno',0,0,0,0,9,5,0,0,0),(2,'due',0,0,0,0,9,6,0,0,0);");
    exchangeCells("configuration.db", 2);
    CkelMemoryDataStorage storage;
    EXPECT_FALSE(storage.readDBFile("configuration.db"));
    EXPECT_EQ(storage.nameID(2), "");
}

TEST_F(RogueFile, AnotherOrderThanThatOfTheFirstColumnIsNoDamage)
{
    for (const char* key : {"ID INTEGER PRIMARY KEY DESC", "ID INTEGER", "ID INT PRIMARY KEY", "ID TEXT UNIQUE"}) {
        SCOPED_TRACE(key);
        std::filesystem::remove("configuration.db");
        Database("configuration.db")
            .run("CREATE TABLE kel(" + std::string(key) +
                 ", NameID, CommSource, DBSource, RW, Block, ValueT, Value, DefValue, Max, Min);"
                 "INSERT INTO kel VALUES(2,'due',0,0,0,0,9,6,0,0,0),(1,'uno',0,0,0,0,9,5,0,0,0);");
        CkelMemoryDataStorage storage;
        EXPECT_TRUE(storage.readDBFile("configuration.db"));
    }
}

TEST_F(RogueFile, ATableThatHoldsOneChildTwiceIsNotDropped)
{
    writeLocalTable("");
    {
        Database database(localFile);
        for (int id = 1; id <= 200; ++id)
            database.run("INSERT INTO kel(ID, NameID) VALUES(" + std::to_string(id) + ", '" + std::string(100, 'n') +
                         "');");
    }
    constexpr std::size_t root = 4096; // the second page
    constexpr std::size_t firstPointer = root + 12;
    std::string bytes = readFile(localFile);
    ASSERT_EQ(bytes[root], 5) << "an inner page";
    const auto cellAt = [&](std::size_t pointer) {
        return root + 256U * static_cast<unsigned char>(bytes[pointer]) +
               static_cast<unsigned char>(bytes[pointer + 1]);
    };
    bytes.replace(cellAt(firstPointer + 2), 4, bytes.substr(cellAt(firstPointer), 4));
    writeFile(localFile, bytes);

    CkelMemoryDB database;
    EXPECT_FALSE(database.rebuildMemoryDBTable({makeItem(1, "one")}));
    database.loadMemoryDB();
    EXPECT_FALSE(database.isLoadComplete());
    EXPECT_TRUE(readFile(localFile) == bytes);
}
