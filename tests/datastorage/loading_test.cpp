#include "datastorage/kelmemorydatastorage.h"
#include "datastorage/kelmemorydb.h"
#include "datastorage/kelparsedbjson.h"
#include "tests/datastorage/filefixture.h"
#include "tests/datastorage/storagefixture.h"

#include <rapidjson/document.h>

#include <array>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <locale>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <vector>

using KelTest::hasLocalTable;
using KelTest::localRows;
using KelTest::writeConfiguration;
using KelTest::writeDictionary;
using KelTest::writeLocalTable;
using Ombrin::CkelMemoryDataStorage;
using Ombrin::CkelMemoryDB;
using Ombrin::CkelParseDBJson;
using Ombrin::CkelVariant;
using Ombrin::tagStorageData;

namespace {

using Rows = std::vector<std::string>;

// Three items, in each of the forms in which a storage meets them

constexpr const char* dictionaryItems =
    R"({"ID":1,"NameID":"one","CommSource":2,"DBSource":3,"RW":4,"Block":5,"ValueT":9,"Value":1.5,"DefValue":1.25,
        "Max":100.5,"Min":-100.5},
       {"ID":2,"NameID":"two","ValueT":3,"Value":20,"DefValue":21,"Max":22,"Min":23},
       {"ID":3,"NameID":"three","Value":30})";

constexpr const char* configurationRows =
    "(1,'one',2,3,4,5,9,1.5,1.25,100.5,-100.5),"
    "(2,'two',2,3,4,5,3,20,21,22,23),"
    "(3,'three',2,3,4,5,3,30,21,22,23)";

const Rows configuredRows{"1 'one' 2 4 5 9 1.5 1.25 100.5 -100.5 0 0", "2 'two' 2 4 5 3 20 21 22 23 0 0",
                          "3 'three' 2 4 5 3 30 21 22 23 0 0"};

// Other values for the same three, and for a fourth; all of them with marks that only a rebuilt table is without

constexpr const char* savedThree =
    "(1,'saved one',12,14,15,9,1001.5,1,2,3,7,8),"
    "(2,'saved two',12,14,15,3,1020,1,2,3,7,8),"
    "(3,'saved three',12,14,15,3,1030,1,2,3,7,8)";

const Rows savedThreeRows{"1 'saved one' 12 14 15 9 1001.5 1 2 3 7 8", "2 'saved two' 12 14 15 3 1020 1 2 3 7 8",
                          "3 'saved three' 12 14 15 3 1030 1 2 3 7 8"};

const Rows savedThreeRebuilt{"1 'saved one' 12 14 15 9 1001.5 1 2 3 0 0", "2 'saved two' 12 14 15 3 1020 1 2 3 0 0",
                             "3 'saved three' 12 14 15 3 1030 1 2 3 0 0"};

constexpr const char* savedFourth = "(4,'saved four',12,14,15,3,1040,1,2,3,7,8)";
constexpr const char* savedFourthRebuilt = "4 'saved four' 12 14 15 3 1040 1 2 3 0 0";

class Loading : public KelTest::StorageTest
{
protected:
    /// The storage is made when first asked for, behind what the case has put into the folder.
    CkelMemoryDataStorage& storage()
    {
        if (!m_storage)
            m_storage = std::make_unique<CkelMemoryDataStorage>();
        return *m_storage;
    }

    /// As at the end and the next start of the program.
    void restart() { m_storage.reset(); }

    /// Whether the storage has indexes: without, it takes no items.
    bool takesItems()
    {
        constexpr unsigned int otherID = 987654321;
        storage().insertData(KelTest::makeItem(otherID, "taken"));
        return storage().ID("taken") == otherID;
    }

    /// What `step` prints.
    template <typename Step>
    static std::string printedBy(Step step)
    {
        KelTest::CapturedOutput output;
        step();
        EXPECT_EQ(output.standardError(), "");
        return output.standardOutput();
    }

    void expectConfiguredValues()
    {
        EXPECT_VARIANT(storage().queryValue(1), 1.5);
        EXPECT_VARIANT(storage().toStoreValue(3, storage().queryValue(2)), 20LL);
        EXPECT_VARIANT(storage().toStoreValue(3, storage().queryValue(3)), 30LL);
    }

    void expectSavedValues()
    {
        EXPECT_VARIANT(storage().queryValue(1), 1001.5);
        EXPECT_VARIANT(storage().queryValue(2), 1020LL);
        EXPECT_VARIANT(storage().queryValue(3), 1030LL);
    }

    /// Everything but the value is as configured.
    void expectConfiguredAttributes()
    {
        const tagStorageData one = storage().queryData("one");
        EXPECT_EQ(one.ID, 1U);
        EXPECT_EQ(one.CommSource, 2);
        EXPECT_EQ(one.DBSource, 3);
        EXPECT_EQ(one.RW, 4);
        EXPECT_EQ(one.Block, 5);
        EXPECT_EQ(one.ValueT, 9);
        EXPECT_VARIANT(one.DefValue, 1.25);
        EXPECT_VARIANT(one.Max, 100.5);
        EXPECT_VARIANT(one.Min, -100.5);
        EXPECT_EQ(storage().ID("two"), 2U);
        EXPECT_EQ(storage().ID("three"), 3U);
        EXPECT_EQ(storage().ID("saved one"), 0U);
        EXPECT_EQ(storage().queryData(3).ValueT, 3);
    }

    /// Nothing was announced and no item is marked as changed.
    void expectNoTraces()
    {
        for (unsigned int id = 1; id <= 4; ++id)
            EXPECT_EQ(storage().queryData(id).Dirty, 0) << id;
        EXPECT_TRUE(listener.take().empty());
    }

private:
    std::unique_ptr<CkelMemoryDataStorage> m_storage;
};

/// With one of the two kinds of configuration, of the same three items.
class LoadingEitherKind : public Loading, public testing::WithParamInterface<const char*>
{
protected:
    std::string configuration() const { return GetParam(); }
    bool isDictionary() const { return configuration() == "configuration.json"; }

    void SetUp() override
    {
        if (isDictionary())
            writeDictionary(configuration(), dictionaryItems);
        else
            writeConfiguration(configuration(), configurationRows);
    }
};

const char* kindName(const testing::TestParamInfo<const char*>& kind)
{
    return kind.index == 0 ? "Dictionary" : "Database";
}

INSTANTIATE_TEST_SUITE_P(Configuration, LoadingEitherKind, testing::Values("configuration.json", "configuration.db"),
                         kindName);

} // namespace

// --- starting up with a configuration ---

TEST_P(LoadingEitherKind, SavedValuesReplaceConfiguredOnesAndNothingElse)
{
    writeLocalTable(savedThree);
    EXPECT_EQ(printedBy([&] { storage().readConfigFile(configuration(), true); }), "");
    expectSavedValues();
    expectConfiguredAttributes();
    expectNoTraces();
}

TEST_P(LoadingEitherKind, ATableOfAsManyItemsIsLeftAlone)
{
    writeLocalTable(savedThree);
    storage().readConfigFile(configuration(), true);
    EXPECT_EQ(localRows(), savedThreeRows);
}

TEST_P(LoadingEitherKind, ATableOfMoreItemsIsRebuiltFromItsOwnRows)
{
    writeLocalTable(std::string(savedThree) + "," + savedFourth);
    storage().readConfigFile(configuration(), true);
    Rows expected = savedThreeRebuilt;
    expected.emplace_back(savedFourthRebuilt);
    EXPECT_EQ(localRows(), expected);
    expectSavedValues();
    EXPECT_EQ(storage().queryData(4).ID, 0U);
    EXPECT_EQ(storage().ID("saved four"), 0U);
    expectNoTraces();
}

TEST_P(LoadingEitherKind, ATableOfFewerItemsIsRebuiltFromItsOwnRows)
{
    writeLocalTable("(2,'saved two',12,14,15,3,1020,1,2,3,7,8)");
    storage().readConfigFile(configuration(), true);
    EXPECT_EQ(localRows(), Rows{"2 'saved two' 12 14 15 3 1020 1 2 3 0 0"});
    EXPECT_VARIANT(storage().queryValue(1), 1.5);
    EXPECT_VARIANT(storage().queryValue(2), 1020LL);
    expectConfiguredAttributes();
}

TEST_P(LoadingEitherKind, AsManyOtherItemsLeaveTheTableAlone)
{
    writeLocalTable("(11,'one',12,14,15,3,5,1,2,3,7,8),(12,'b',12,14,15,3,5,1,2,3,7,8),(13,'c',1,1,1,3,5,1,2,3,7,8)");
    const Rows before = localRows();
    storage().readConfigFile(configuration(), true);
    EXPECT_EQ(localRows(), before);
    expectConfiguredValues();
    expectConfiguredAttributes();
    EXPECT_EQ(storage().queryData(11).ID, 0U);
}

TEST_P(LoadingEitherKind, AnEmptyTableStaysEmpty)
{
    writeLocalTable("");
    storage().readConfigFile(configuration(), true);
    EXPECT_TRUE(hasLocalTable());
    EXPECT_EQ(localRows(), Rows{});
    expectConfiguredValues();
}

TEST_P(LoadingEitherKind, WithoutSavedValuesTheyAreLost)
{
    writeLocalTable(std::string(savedThree) + "," + savedFourth);
    EXPECT_EQ(printedBy([&] { storage().readConfigFile(configuration(), false); }), "");
    expectConfiguredValues();
    expectConfiguredAttributes();
    expectNoTraces();
    EXPECT_EQ(localRows(), isDictionary() ? configuredRows : Rows{});
}

TEST_P(LoadingEitherKind, WithoutATableOneIsMadeWhetherSavedValuesAreWantedOrNot)
{
    for (const bool useLocalDB : {true, false}) {
        restart();
        std::filesystem::remove(KelTest::localFile);
        EXPECT_EQ(printedBy([&] { storage().readConfigFile(configuration(), useLocalDB); }), "");
        expectConfiguredValues();
        expectConfiguredAttributes();
        expectNoTraces();
        EXPECT_TRUE(storage().hasLocalDB());
        EXPECT_EQ(localRows(), isDictionary() ? configuredRows : Rows{});
    }
}

TEST_P(LoadingEitherKind, TheNewTableHasTheColumnsOfTheFormat)
{
    storage().readConfigFile(configuration(), true);
    EXPECT_EQ(
        KelTest::Database(KelTest::localFile).rows("SELECT name, type, \"notnull\", pk FROM pragma_table_info('kel')"),
        (Rows{"'ID' 'INTEGER' 1 1", "'NameID' 'TEXT' 0 0", "'CommSource' 'INTEGER' 0 0", "'RW' 'INTEGER' 0 0",
              "'Block' 'INTEGER' 0 0", "'ValueT' 'INTEGER' 0 0", "'Value' 'NUMERIC' 0 0", "'DefValue' 'NUMERIC' 0 0",
              "'Max' 'NUMERIC' 0 0", "'Min' 'NUMERIC' 0 0", "'Unit' 'INTEGER' 0 0", "'CUnit' 'INTEGER' 0 0"}));
}

TEST_P(LoadingEitherKind, OtherTablesOfTheLocalFileStay)
{
    KelTest::Database(KelTest::localFile).run("CREATE TABLE other(a); INSERT INTO other VALUES(5);");
    storage().readConfigFile(configuration(), false);
    EXPECT_EQ(KelTest::Database(KelTest::localFile).rows("SELECT * FROM other"), Rows{"5"});
    EXPECT_TRUE(hasLocalTable());
}

TEST_P(LoadingEitherKind, LoadedItemsCanBeWorkedWith)
{
    storage().readConfigFile(configuration(), true);
    EXPECT_VARIANT(storage().updateValue("one", 7, false), 1.5);
    EXPECT_VARIANT(storage().queryValue(1), 7.0);
    storage().insertData(KelTest::makeItem(5, "five"));
    EXPECT_EQ(storage().ID("five"), 5U);
    storage().deleteData("two");
    EXPECT_EQ(storage().ID("two"), 0U);
    EXPECT_EQ(listener.take().size(), 1U);
}

TEST_P(LoadingEitherKind, AFolderInThePathIsNoMatter)
{
    std::filesystem::create_directory("öther");
    std::filesystem::rename(configuration(), "öther/" + configuration());
    storage().readConfigFile("öther/" + configuration(), true);
    EXPECT_EQ(storage().ID("three"), 3U);
    restart();
    storage().readConfigFile((folder.path() / "öther" / configuration()).string(), true);
    EXPECT_EQ(storage().ID("three"), 3U);
}

TEST_P(LoadingEitherKind, TheConfigurationIsClosedAndLeftAsItWas)
{
    const auto openFiles = [] {
        const std::filesystem::directory_iterator files("/proc/self/fd");
        return std::distance(begin(files), end(files));
    };
    storage().readConfigFile(configuration(), true);
    const auto opened = openFiles();
    const std::string before = KelTest::readFile(configuration());
    for (int i = 0; i < 10; ++i)
        storage().readConfigFile(configuration(), true);
    EXPECT_EQ(openFiles(), opened);
    EXPECT_EQ(KelTest::readFile(configuration()), before);
}

// --- starting up with nothing to read ---

namespace {

/// Names from which nothing is read, each once with and once without saved values wanted.
class LoadingNothing : public Loading, public testing::WithParamInterface<std::tuple<const char*, bool>>
{
protected:
    void SetUp() override
    {
        writeDictionary("empty.json", "");
        writeDictionary("noids.json", R"({"ID":0,"NameID":"zero"},{"NameID":"none"})");
        writeDictionary("items.JSON", dictionaryItems);
        writeDictionary("items.Json", dictionaryItems);
        writeDictionary("items.json5", dictionaryItems);
        writeDictionary("json", dictionaryItems);
        writeDictionary("items.json ", dictionaryItems);
        writeConfiguration("items.DB", configurationRows);
        writeConfiguration("items.Db", configurationRows);
        writeConfiguration("items.sqlite", configurationRows);
        writeConfiguration("db", configurationRows);
        writeConfiguration("norows.db", "");
        KelTest::Database("notable.db").run("CREATE TABLE other(a); INSERT INTO other VALUES(5);");
        KelTest::writeFile("nodatabase.db", std::string(5000, 'x'));
    }

    void read()
    {
        const auto& [name, useLocalDB] = GetParam();
        EXPECT_EQ(printedBy([&, n = name, use = useLocalDB] { storage().readConfigFile(n, use); }), "") << name;
    }
};

INSTANTIATE_TEST_SUITE_P(
    Configuration, LoadingNothing,
    testing::Combine(testing::Values("", "items", "empty.json", "noids.json", "items.JSON", "items.Json", "items.json5",
                                     "json", "items.json ", "items.DB", "items.Db", "items.sqlite", "db", "norows.db",
                                     "notable.db", "nodatabase.db", "missing.db", "missing.txt", "kelmem.db"),
                     testing::Bool()));

} // namespace

TEST_P(LoadingNothing, TheSavedItemsAreLoaded)
{
    writeLocalTable(savedThree);
    read();
    expectSavedValues();
    const tagStorageData one = storage().queryData("saved one");
    EXPECT_EQ(one.ID, 1U);
    EXPECT_EQ(one.CommSource, 12);
    EXPECT_EQ(one.DBSource, 0);
    EXPECT_EQ(one.RW, 14);
    EXPECT_EQ(one.Block, 15);
    EXPECT_EQ(one.ValueT, 9);
    EXPECT_VARIANT(one.DefValue, 1.0);
    EXPECT_VARIANT(one.Max, 2.0);
    EXPECT_VARIANT(one.Min, 3.0);
    expectNoTraces();
    EXPECT_EQ(localRows(), savedThreeRows);
}

TEST_P(LoadingNothing, WithoutATableAnEmptyOneIsMadeAndTheStorageTakesNoItems)
{
    EXPECT_FALSE(storage().hasLocalDB());
    read();
    EXPECT_TRUE(storage().hasLocalDB());
    EXPECT_EQ(localRows(), Rows{});
    EXPECT_FALSE(takesItems());
}

TEST_F(Loading, AnEmptyTableWithoutConfigurationGivesEmptyIndexes)
{
    writeLocalTable("");
    storage().readConfigFile("", true);
    EXPECT_TRUE(takesItems());
}

TEST_F(Loading, AMissingDictionaryIsReportedAndLeavesTheSavedItems)
{
    writeLocalTable(savedThree);
    EXPECT_EQ(printedBy([&] { storage().readConfigFile("missing.json", true); }),
              "CkelParseDBJson::Parse： open error\n");
    expectSavedValues();
    EXPECT_EQ(localRows(), savedThreeRows);
}

TEST_F(Loading, AMissingDictionaryLeavesRecordListAndIndexes)
{
    writeDictionary("items.json", dictionaryItems);
    storage().readConfigFile("items.json", true);
    EXPECT_EQ(printedBy([&] { EXPECT_FALSE(storage().readJsonFile("missing.json")); }),
              "CkelParseDBJson::Parse： open error\n");
    expectConfiguredValues();
    KelTest::Database(KelTest::localFile).run("DELETE FROM kel;");
    storage().createLocalDB();
    EXPECT_EQ(localRows(), configuredRows);
}

// --- the steps by themselves ---

TEST_F(Loading, ReadJsonFileTellsWhetherThereWereRecords)
{
    writeDictionary("items.json", dictionaryItems);
    writeDictionary("empty.json", "");
    EXPECT_TRUE(storage().readJsonFile("items.json"));
    EXPECT_FALSE(storage().readJsonFile("empty.json"));
    expectConfiguredValues();
    EXPECT_FALSE(hasLocalTable());
}

TEST_F(Loading, ReadJsonFileGoesByTheContentNotTheName)
{
    writeDictionary("items", dictionaryItems);
    EXPECT_TRUE(storage().readJsonFile("items"));
    expectConfiguredValues();
}

TEST_F(Loading, ReadDBFileTellsWhetherThereWereRows)
{
    writeConfiguration("items", configurationRows);
    writeConfiguration("empty", "");
    EXPECT_TRUE(storage().readDBFile("items"));
    EXPECT_FALSE(storage().readDBFile("empty"));
    EXPECT_FALSE(storage().readDBFile("missing"));
    EXPECT_FALSE(storage().readDBFile(""));
    EXPECT_FALSE(std::filesystem::exists("missing"));
    expectConfiguredValues();
    EXPECT_FALSE(hasLocalTable());
}

TEST_F(Loading, ARowThatIsNotIndexedCountsAsARow)
{
    writeConfiguration("items.db", "(0,'zero',0,0,0,0,3,1,1,1,1)");
    EXPECT_TRUE(storage().readDBFile("items.db"));
    EXPECT_EQ(storage().ID("zero"), 0U);
    EXPECT_EQ(storage().queryData(0U).NameID, "");
    EXPECT_TRUE(takesItems());
}

TEST_F(Loading, TheStepsOnTheLocalTableAlwaysSucceed)
{
    EXPECT_FALSE(storage().hasLocalDB());
    EXPECT_TRUE(storage().loadLocalDB());
    EXPECT_TRUE(storage().createLocalDB());
    EXPECT_TRUE(storage().hasLocalDB());
    EXPECT_TRUE(storage().createLocalDB());
    EXPECT_TRUE(storage().loadLocalDB());
}

TEST_F(Loading, TheInterfacesLoadLocalDBDoesNothing)
{
    writeLocalTable(savedThree);
    EXPECT_FALSE(storage().loadLocalDB(true));
    EXPECT_FALSE(storage().loadLocalDB(false));
    EXPECT_FALSE(takesItems());
}

TEST_F(Loading, CreateLocalDBWritesTheRecordListOfTheLocalTable)
{
    writeLocalTable(savedThree);
    storage().loadLocalDB();
    storage().createLocalDB();
    EXPECT_EQ(localRows(), savedThreeRebuilt);
}

TEST_F(Loading, CreateLocalDBWritesWhatWasReadNotWhatHasChanged)
{
    writeDictionary("items.json", dictionaryItems);
    storage().readConfigFile("items.json", true);
    storage().updateValue(1, 77, false);
    storage().deleteData(2);
    storage().insertData(KelTest::makeItem(5, "five"));
    storage().createLocalDB();
    EXPECT_EQ(localRows(), configuredRows);
}

TEST_F(Loading, StepsThatADerivedStorageReplacesAreTheOnesTaken)
{
    class Derived : public CkelMemoryDataStorage
    {
    public:
        bool hasLocalDB() const override { return true; }
        bool loadLocalDB() override
        {
            ++loads;
            return true;
        }
        using CkelMemoryDataStorage::loadLocalDB;
        int loads = 0;
    };
    Derived derived;
    derived.readConfigFile("", false);
    EXPECT_EQ(derived.loads, 1);
    EXPECT_FALSE(hasLocalTable());
}

// --- equal IDs and names ---

TEST_F(Loading, TheFirstOfEqualIDsInADictionaryCountsAndTheLastIsWritten)
{
    writeDictionary("items.json",
                    R"({"ID":1,"NameID":"a","ValueT":3,"Value":10},{"ID":1,"NameID":"b","Value":20},
                       {"ID":2,"NameID":"c","Value":30})");
    storage().readConfigFile("items.json", true);
    EXPECT_EQ(storage().nameID(1), "a");
    EXPECT_VARIANT(storage().queryValue(1), 10);
    EXPECT_EQ(storage().ID("a"), 1U);
    EXPECT_EQ(storage().ID("b"), 1U);
    EXPECT_VARIANT(storage().queryValue("b"), 10);
    EXPECT_EQ(localRows(), (Rows{"1 'b' 0 0 0 3 20 0 0 0 0 0", "2 'c' 0 0 0 3 30 0 0 0 0 0"}));
}

TEST_F(Loading, TheFirstOfEqualNamesInADictionaryCounts)
{
    writeDictionary("items.json",
                    R"({"ID":7,"NameID":"a","ValueT":3,"Value":10},{"ID":5,"NameID":"a","ValueT":3,"Value":20})");
    storage().readConfigFile("items.json", true);
    EXPECT_EQ(storage().ID("a"), 7U);
    EXPECT_VARIANT(storage().queryValue(7), 10);
    EXPECT_VARIANT(storage().queryValue(5), 20);
    EXPECT_EQ(storage().nameID(5), "a");
    EXPECT_EQ(localRows().size(), 2U);
}

TEST_F(Loading, TheFirstOfEqualIDsAndNamesInADatabaseCounts)
{
    writeConfiguration("items.db", "(1,'a',0,0,0,0,3,10,0,0,0),(1,'b',0,0,0,0,3,20,0,0,0),(2,'a',0,0,0,0,3,30,0,0,0)");
    EXPECT_TRUE(storage().readDBFile("items.db"));
    EXPECT_VARIANT(storage().queryValue(1), 10LL);
    EXPECT_EQ(storage().nameID(1), "a");
    EXPECT_EQ(storage().ID("a"), 1U);
    EXPECT_EQ(storage().ID("b"), 1U);
    EXPECT_VARIANT(storage().queryValue(2), 30LL);
}

TEST_F(Loading, TheFirstOfEqualNamesInTheLocalTableCounts)
{
    writeLocalTable("(1,'a',0,0,0,3,10,0,0,0,0,0),(2,'a',0,0,0,3,20,0,0,0,0,0)");
    storage().readConfigFile("", true);
    EXPECT_EQ(storage().ID("a"), 1U);
    EXPECT_VARIANT(storage().queryValue(2), 20LL);
}

TEST_F(Loading, EqualIDsCountOnceAgainstTheTable)
{
    writeDictionary("items.json",
                    R"({"ID":1,"NameID":"a","ValueT":3,"Value":10},{"ID":1,"NameID":"b"},{"ID":2,"NameID":"c"})");
    writeLocalTable("(1,'a',0,0,0,3,11,0,0,0,7,8),(2,'c',0,0,0,3,12,0,0,0,7,8)");
    const Rows before = localRows();
    storage().readConfigFile("items.json", true);
    EXPECT_EQ(localRows(), before);
    EXPECT_VARIANT(storage().queryValue(1), 11LL);
}

// --- reading the configuration database ---

TEST_F(Loading, DatabaseColumnsAreTakenByPosition)
{
    {
        KelTest::Database database("items.db");
        database.run(
            "CREATE TABLE kel(Min, Max, a, b, c, d, e, f, g, h, i, ID, more);"
            "INSERT INTO kel VALUES(1,'one',2,3,4,5,9,1.5,1.25,100.5,-100.5,99,'more');");
    }
    EXPECT_TRUE(storage().readDBFile("items.db"));
    const tagStorageData one = storage().queryData("one");
    EXPECT_EQ(one.ID, 1U);
    EXPECT_EQ(one.CommSource, 2);
    EXPECT_EQ(one.DBSource, 3);
    EXPECT_EQ(one.RW, 4);
    EXPECT_EQ(one.Block, 5);
    EXPECT_EQ(one.ValueT, 9);
    EXPECT_VARIANT(one.Value, 1.5);
    EXPECT_VARIANT(one.DefValue, 1.25);
    EXPECT_VARIANT(one.Max, 100.5);
    EXPECT_VARIANT(one.Min, -100.5);
}

TEST_F(Loading, DatabaseItemsStartCleanWithEmptySpareValues)
{
    writeConfiguration("items.db", configurationRows);
    storage().readDBFile("items.db");
    const tagStorageData one = storage().queryData(1);
    EXPECT_EQ(one.Dirty, 0);
    for (const CkelVariant& spare : one.Reserved)
        EXPECT_TRUE(spare.isNull());
}

namespace {

/// The value columns of each case stand in both kinds of table, and read alike but for the bounds of a text item.
struct ValueForms
{
    int code;
    const char* columns;
    CkelVariant value, defValue, max, min;
};

std::vector<ValueForms> signedForms()
{
    std::vector<ValueForms> forms;
    for (const int code : {1, 2, 3, 4, 5, 6, 7, 12, 14}) {
        forms.push_back({code, "5,-6,0,8", 5LL, -6LL, 0LL, 8LL});
        forms.push_back({code, "9223372036854775807,-9223372036854775808,4294967296,-4294967297", 9223372036854775807LL,
                         -9223372036854775807LL - 1, 4294967296LL, -4294967297LL});
        forms.push_back({code, "2.9,-2.9,1e300,NULL", 2LL, -2LL, 9223372036854775807LL, 0LL});
        forms.push_back({code, "NULL,'text','','5 apples'", 0LL, 0LL, 0LL, 0LL});
    }
    return forms;
}

std::vector<ValueForms> realForms()
{
    std::vector<ValueForms> forms;
    for (const int code : {8, 9}) {
        // Decimals that SQLite reads exactly on every target.
        forms.push_back({code, "35.5,-0.25,1e22,-1.52587890625e-05", 35.5, -0.25, 1e22, -1.52587890625e-05});
        forms.push_back({code, "5,-6,0,4294967296", 5.0, -6.0, 0.0, 4294967296.0});
        forms.push_back({code, "NULL,'text','','5 apples'", 0.0, 0.0, 0.0, 0.0});
    }
    return forms;
}

std::vector<ValueForms> unsignedForms()
{
    std::vector<ValueForms> forms;
    for (const int code : {11, 13}) {
        forms.push_back(
            {code, "5,0,9223372036854775807,4294967296", 5ULL, 0ULL, 9223372036854775807ULL, 4294967296ULL});
        forms.push_back(
            {code, "-1,-9223372036854775808,2.9,NULL", 18446744073709551615ULL, 9223372036854775808ULL, 2ULL, 0ULL});
        forms.push_back({code, "NULL,'text','','5 apples'", 0ULL, 0ULL, 0ULL, 0ULL});
    }
    return forms;
}

std::vector<ValueForms> textForms()
{
    return {
        {10, "'text','','ä€😀','x'", "text", "", "ä€😀", "x"},
        {10, "5,-2.5,NULL,9223372036854775807", "5", "-2.5", "", "9223372036854775807"},
    };
}

class LoadedValues : public Loading, public testing::WithParamInterface<std::vector<ValueForms> (*)()>
{};

const char* formName(const testing::TestParamInfo<std::vector<ValueForms> (*)()>& form)
{
    constexpr std::array<const char*, 4> names{"Signed", "Real", "Unsigned", "Text"};
    return names.at(form.index);
}

INSTANTIATE_TEST_SUITE_P(Forms, LoadedValues, testing::Values(&signedForms, &realForms, &unsignedForms, &textForms),
                         formName);

} // namespace

TEST_P(LoadedValues, ComeFromAConfigurationDatabaseInTheirTypesForm)
{
    for (const ValueForms& form : GetParam()()) {
        SCOPED_TRACE(std::to_string(form.code) + ": " + form.columns);
        std::filesystem::remove("items.db");
        writeConfiguration("items.db", "(1,'a',0,0,0,0," + std::to_string(form.code) + "," + form.columns + ")");
        EXPECT_EQ(printedBy([&] { EXPECT_TRUE(storage().readDBFile("items.db")); }), "");
        const tagStorageData item = storage().queryData(1);
        EXPECT_EQ(item.ValueT, form.code);
        EXPECT_VARIANT(item.Value, form.value);
        EXPECT_VARIANT(item.DefValue, form.defValue);
        EXPECT_VARIANT(item.Max, form.code == 10 ? CkelVariant() : form.max);
        EXPECT_VARIANT(item.Min, form.code == 10 ? CkelVariant() : form.min);
    }
}

TEST_P(LoadedValues, ComeFromTheLocalTableInTheirTypesForm)
{
    for (const ValueForms& form : GetParam()()) {
        SCOPED_TRACE(std::to_string(form.code) + ": " + form.columns);
        restart();
        std::filesystem::remove(KelTest::localFile);
        writeLocalTable("(1,'a',0,0,0," + std::to_string(form.code) + "," + form.columns + ",0,0)");
        EXPECT_EQ(printedBy([&] { storage().readConfigFile("", true); }), "");
        const tagStorageData item = storage().queryData(1);
        EXPECT_EQ(item.ValueT, form.code);
        EXPECT_VARIANT(item.Value, form.value);
        EXPECT_VARIANT(item.DefValue, form.defValue);
        EXPECT_VARIANT(item.Max, form.max);
        EXPECT_VARIANT(item.Min, form.min);
    }
}

TEST_F(Loading, DatabaseNumbersKeepTheBitsThatTheirFieldsHold)
{
    writeConfiguration("items.db",
                       "(4294967303,'a',300,-1,256,65791,259,5,5,5,5),"
                       "(-1,'b',2.9,'text','7',NULL,3,5,5,5,5)");
    EXPECT_TRUE(storage().readDBFile("items.db"));
    const tagStorageData a = storage().queryData("a");
    EXPECT_EQ(a.ID, 7U);
    EXPECT_EQ(a.CommSource, 44);
    EXPECT_EQ(a.DBSource, 255);
    EXPECT_EQ(a.RW, 0);
    EXPECT_EQ(a.Block, 255);
    EXPECT_EQ(a.ValueT, 3);
    const tagStorageData b = storage().queryData("b");
    EXPECT_EQ(b.ID, 4294967295U);
    EXPECT_EQ(b.CommSource, 2);
    EXPECT_EQ(b.DBSource, 0);
    EXPECT_EQ(b.RW, 0);
    EXPECT_EQ(b.Block, 0);
}

TEST_F(Loading, DatabaseRowsWithoutANumberForAnIDAreNotIndexed)
{
    writeConfiguration("items.db",
                       "(NULL,'a',0,0,0,0,3,5,5,5,5),('x','b',0,0,0,0,3,5,5,5,5),(0.5,'c',0,0,0,0,3,5,5,5,5),"
                       "(2.5,'d',0,0,0,0,3,5,5,5,5)");
    EXPECT_EQ(printedBy([&] { EXPECT_TRUE(storage().readDBFile("items.db")); }), "");
    EXPECT_EQ(storage().IDList({"a", "b", "c", "d"}), (std::vector<unsigned int>{0, 0, 0, 2}));
}

TEST_F(Loading, DatabaseNamesMayBeNumbersOrMissing)
{
    writeConfiguration("items.db", "(1,42,0,0,0,0,3,5,5,5,5),(2,NULL,0,0,0,0,3,6,5,5,5)");
    EXPECT_TRUE(storage().readDBFile("items.db"));
    EXPECT_EQ(storage().ID("42"), 1U);
    EXPECT_EQ(storage().nameID(2), "");
    EXPECT_EQ(storage().ID(""), 2U);
}

TEST_F(Loading, BlobsAreReportedAndReadAsNothing)
{
    writeConfiguration("items.db", "(1,'a',0,0,0,0,3,x'05',6,7,8)");
    EXPECT_EQ(printedBy([&] { EXPECT_TRUE(storage().readDBFile("items.db")); }),
              "current type is 4 is not defined. \n");
    EXPECT_VARIANT(storage().queryValue(1), 0LL);
    EXPECT_VARIANT(storage().queryData(1).DefValue, 6LL);
}

TEST_F(Loading, UnknownTypesInADatabaseAreReportedAndSkipped)
{
    writeConfiguration("items.db",
                       "(1,'a',0,0,0,0,0,5,5,5,5),(2,'b',0,0,0,0,15,5,5,5,5),(3,'c',0,0,0,0,16,5,5,5,5),"
                       "(4,'d',0,0,0,0,255,5,5,5,5),(4294967295,'e',0,0,0,0,NULL,5,5,5,5),(6,'f',0,0,0,0,3,5,5,5,5)");
    EXPECT_EQ(printedBy([&] { EXPECT_TRUE(storage().readDBFile("items.db")); }),
              "CkelMemoryDB::loadMemoryDB( id= 1 ) : Unknown Type 0\n"
              "CkelMemoryDB::loadMemoryDB( id= 2 ) : Unknown Type 15\n"
              "CkelMemoryDB::loadMemoryDB( id= 3 ) : Unknown Type 16\n"
              "CkelMemoryDB::loadMemoryDB( id= 4 ) : Unknown Type 255\n"
              "CkelMemoryDB::loadMemoryDB( id= 4294967295 ) : Unknown Type 0\n");
    EXPECT_EQ(storage().IDList({"a", "b", "c", "d", "e", "f"}), (std::vector<unsigned int>{0, 0, 0, 0, 0, 6}));
    EXPECT_EQ(storage().queryData(1).ID, 0U);
}

TEST_F(Loading, ADatabaseOfUnknownTypesAloneEmptiesTheIndexes)
{
    writeDictionary("items.json", dictionaryItems);
    storage().readJsonFile("items.json");
    writeConfiguration("items.db", "(1,'a',0,0,0,0,15,5,5,5,5)");
    EXPECT_EQ(printedBy([&] { EXPECT_TRUE(storage().readDBFile("items.db")); }),
              "CkelMemoryDB::loadMemoryDB( id= 1 ) : Unknown Type 15\n");
    EXPECT_EQ(storage().queryData(1).ID, 0U);
    EXPECT_EQ(storage().ID("one"), 0U);
    EXPECT_TRUE(takesItems());
}

TEST_F(Loading, ATextRowKeepsTheBoundsOfTheRowBefore)
{
    writeConfiguration("items.db",
                       "(1,'a',0,0,0,0,9,1.5,2.5,100.5,-100.5),(2,'b',0,0,0,0,10,'x','y','max','min'),"
                       "(3,'c',0,0,0,0,3,1,2,30,-30),(4,'d',0,0,0,0,10,'x','y',1,2)");
    EXPECT_TRUE(storage().readDBFile("items.db"));
    const tagStorageData b = storage().queryData("b");
    EXPECT_VARIANT(b.Value, "x");
    EXPECT_VARIANT(b.DefValue, "y");
    EXPECT_VARIANT(b.Max, 100.5);
    EXPECT_VARIANT(b.Min, -100.5);
    EXPECT_VARIANT(storage().queryData("d").Max, 30LL);
    EXPECT_VARIANT(storage().queryData("d").Min, -30LL);
}

TEST_F(Loading, ARowThatIsSkippedOrNotIndexedHandsItsBoundsOn)
{
    writeConfiguration("items.db",
                       "(1,'a',0,0,0,0,9,1.5,2.5,100.5,-100.5),(2,'b',0,0,0,0,15,1,2,77,78),"
                       "(3,'c',0,0,0,0,10,'x','y',0,0),(0,'d',0,0,0,0,3,1,2,30,-30),(4,'e',0,0,0,0,10,'x','y',0,0)");
    EXPECT_EQ(printedBy([&] { storage().readDBFile("items.db"); }),
              "CkelMemoryDB::loadMemoryDB( id= 2 ) : Unknown Type 15\n");
    EXPECT_VARIANT(storage().queryData("c").Max, 100.5);
    EXPECT_VARIANT(storage().queryData("e").Max, 30LL);
    EXPECT_VARIANT(storage().queryData("e").Min, -30LL);
}

TEST_F(Loading, AFirstTextRowHasNoBounds)
{
    writeConfiguration("items.db", "(2,'b',0,0,0,0,10,'x','y','max','min')");
    storage().readDBFile("items.db");
    EXPECT_TRUE(storage().queryData(2).Max.isNull());
    EXPECT_TRUE(storage().queryData(2).Min.isNull());
}

TEST_F(Loading, BoundsAreNotCarriedFromOneDatabaseToTheNext)
{
    writeConfiguration("items.db", "(1,'a',0,0,0,0,9,1.5,2.5,100.5,-100.5)");
    writeConfiguration("more.db", "(2,'b',0,0,0,0,10,'x','y','max','min')");
    storage().readDBFile("items.db");
    storage().readDBFile("more.db");
    EXPECT_TRUE(storage().queryData(2).Max.isNull());
    EXPECT_EQ(storage().queryData(1).ID, 0U);
}

TEST_F(Loading, AnUnreadableDatabaseLeavesTheIndexes)
{
    writeDictionary("items.json", dictionaryItems);
    storage().readJsonFile("items.json");
    KelTest::writeFile("text.db",
                       "no database at all, but long enough to hold the head of one " + std::string(99, '.'));
    std::filesystem::create_directory("folder.db");
    KelTest::Database("notable.db").run("CREATE TABLE other(a); INSERT INTO other VALUES(1);");
    EXPECT_EQ(printedBy([&] {
                  for (const char* name : {"text.db", "folder.db", "notable.db", "missing.db"})
                      EXPECT_FALSE(storage().readDBFile(name)) << name;
              }),
              "");
    expectConfiguredValues();
    expectConfiguredAttributes();
}

TEST_F(Loading, ReadDBFileLeavesTheRecordListAlone)
{
    writeDictionary("items.json", dictionaryItems);
    writeConfiguration("items.db", "(8,'a',0,0,0,0,3,10,0,0,0)");
    storage().readJsonFile("items.json");
    storage().readConfigFile("items.db", false);
    EXPECT_EQ(storage().ID("one"), 0U);
    EXPECT_EQ(storage().ID("a"), 8U);
    EXPECT_EQ(localRows(), configuredRows);
}

// --- the local file as a configuration ---

TEST_F(Loading, TheLocalFileIsRefusedByItsName)
{
    writeLocalTable(savedThree);
    EXPECT_EQ(printedBy([&] { EXPECT_FALSE(storage().readDBFile("kelmem.db")); }), "");
    EXPECT_FALSE(takesItems());
}

TEST_F(Loading, TheLocalFileIsReadWhenNamedWithAFolder)
{
    // In its columns, those of a configuration are one ahead from the fourth on.
    writeLocalTable("(1,'one',2,3,4,5,9,1.5,100.5,-100.5,-7,0)");
    for (const std::string& name : {std::string("./kelmem.db"), (folder.path() / "kelmem.db").string()}) {
        restart();
        EXPECT_EQ(printedBy([&] { EXPECT_TRUE(storage().readDBFile(name)); }), "") << name;
        const tagStorageData one = storage().queryData("one");
        EXPECT_EQ(one.ID, 1U);
        EXPECT_EQ(one.CommSource, 2);
        EXPECT_EQ(one.DBSource, 3);
        EXPECT_EQ(one.RW, 4);
        EXPECT_EQ(one.Block, 5);
        EXPECT_EQ(one.ValueT, 9);
        EXPECT_VARIANT(one.Value, 1.5);
        EXPECT_VARIANT(one.DefValue, 100.5);
        EXPECT_VARIANT(one.Max, -100.5);
        EXPECT_VARIANT(one.Min, -7.0);
    }
}

TEST_F(Loading, ALocalFileOfAnotherFolderIsReadAsAConfiguration)
{
    std::filesystem::create_directory("other");
    writeConfiguration("other/kelmem.db", configurationRows);
    storage().readConfigFile("other/kelmem.db", true);
    expectConfiguredValues();
}

// --- saved values ---

TEST_F(Loading, SavedValuesAreConvertedToTheConfiguredType)
{
    writeDictionary("items.json",
                    R"({"ID":1,"NameID":"a","ValueT":9,"Value":5},{"ID":2,"NameID":"b","ValueT":3},
                       {"ID":3,"NameID":"c","ValueT":10},{"ID":4,"NameID":"d","ValueT":13},
                       {"ID":5,"NameID":"e","ValueT":16},{"ID":6,"NameID":"f","ValueT":11},
                       {"ID":7,"NameID":"g","ValueT":3},{"ID":8,"NameID":"h","ValueT":15,"Value":9},
                       {"ID":9,"NameID":"i","ValueT":3})");
    writeLocalTable(
        "(1,'a',0,0,0,3,7,0,0,0,0,0),(2,'b',0,0,0,9,2.5,0,0,0,0,0),(3,'c',0,0,0,9,2.5,0,0,0,0,0),"
        "(4,'d',0,0,0,3,7,0,0,0,0,0),(5,'e',0,0,0,13,-1,0,0,0,0,0),(6,'f',0,0,0,11,7,0,0,0,0,0),"
        "(7,'g',0,0,0,10,'12',0,0,0,0,0),(8,'h',0,0,0,3,7,0,0,0,0,0),(9,'i',0,0,0,10,'text',0,0,0,0,0)");
    storage().readConfigFile("items.json", true);
    EXPECT_VARIANT(storage().queryValue(1), 7.0);
    EXPECT_VARIANT(storage().queryValue(2), 3LL);
    EXPECT_VARIANT(storage().queryValue(3), "2.5");
    EXPECT_VARIANT(storage().queryValue(4), 7ULL);
    EXPECT_VARIANT(storage().queryValue(5), 18446744073709551615ULL);
    EXPECT_VARIANT(storage().queryValue(6), 7LL);
    EXPECT_VARIANT(storage().queryValue(7), 12LL);
    EXPECT_TRUE(storage().queryValue(8).isNull());
    EXPECT_TRUE(storage().queryValue(9).isNull());
    expectNoTraces();
}

TEST_F(Loading, UnknownTypesInTheLocalTableAreReportedAndLeftOut)
{
    writeDictionary("items.json", dictionaryItems);
    writeLocalTable("(1,'a',0,0,0,15,5,0,0,0,7,8),(2,'b',0,0,0,3,6,0,0,0,7,8),(3,'c',0,0,0,16,5,0,0,0,7,8)");
    EXPECT_EQ(printedBy([&] { storage().readConfigFile("items.json", true); }),
              "CkelMemoryDB::loadMemoryDB( id= 1 ) : Unknown Type 15\n"
              "CkelMemoryDB::loadMemoryDB( id= 3 ) : Unknown Type 16\n");
    EXPECT_VARIANT(storage().queryValue(1), 1.5);
    EXPECT_VARIANT(storage().queryValue(2), 6LL);
    EXPECT_VARIANT(storage().queryValue(3), 30);
    EXPECT_EQ(localRows(), Rows{"2 'b' 0 0 0 3 6 0 0 0 0 0"});
}

TEST_F(Loading, AnItemOfIDZeroWithoutConfigurationAnswersForUnknownNames)
{
    writeLocalTable("(0,'zero',0,0,0,3,77,0,0,0,0,0),(1,'one',0,0,0,3,11,0,0,0,0,0)");
    storage().readConfigFile("", true);
    EXPECT_VARIANT(storage().queryValue(0U), 77LL);
    EXPECT_VARIANT(storage().queryValue("zero"), 77LL);
    EXPECT_VARIANT(storage().queryValue("unknown"), 77LL);
    EXPECT_VARIANT(storage().queryValue("one"), 11LL);
    EXPECT_EQ(storage().ID("unknown"), 0U);
    EXPECT_TRUE(storage().queryValue(5).isNull());
}

TEST_F(Loading, AnItemOfIDZeroInTheTableIsIgnoredBesideAConfiguration)
{
    writeDictionary("items.json", dictionaryItems);
    writeLocalTable("(0,'zero',0,0,0,3,77,0,0,0,0,0)");
    storage().readConfigFile("items.json", true);
    EXPECT_TRUE(storage().queryValue("unknown").isNull());
    expectConfiguredValues();
}

TEST_F(Loading, IDsAbove31BitsAreRestored)
{
    writeDictionary("items.json",
                    R"({"ID":2147483648,"NameID":"a","ValueT":3,"Value":1},
                       {"ID":4294967295,"NameID":"b","Value":2},{"ID":2147483647,"NameID":"c","Value":3})");
    storage().readConfigFile("items.json", true);
    EXPECT_EQ(KelTest::Database(KelTest::localFile).rows("SELECT ID, NameID, Value FROM kel ORDER BY NameID"),
              (Rows{"-2147483648 'a' 1", "-1 'b' 2", "2147483647 'c' 3"}));
    restart();
    KelTest::Database(KelTest::localFile).run("UPDATE kel SET Value = Value + 10;");
    storage().readConfigFile("items.json", true);
    EXPECT_VARIANT(storage().queryValue(2147483648U), 11LL);
    EXPECT_VARIANT(storage().queryValue(4294967295U), 12LL);
    EXPECT_VARIANT(storage().queryValue(2147483647U), 13LL);
    restart();
    storage().readConfigFile("", true);
    EXPECT_VARIANT(storage().queryValue(4294967295U), 12LL);
    EXPECT_EQ(storage().ID("a"), 2147483648U);
}

// --- restarts ---

TEST_F(Loading, ChangedValuesSurviveARestart)
{
    writeDictionary("items.json", dictionaryItems);
    storage().readConfigFile("items.json", true);
    std::vector<tagStorageData> changed = storage().queryDataList(std::vector<unsigned int>{1, 2});
    changed[0].Value = -7.25;
    changed[1].Value = 4000000000000LL;
    {
        CkelMemoryDB database;
        ASSERT_TRUE(database.updateDatas(changed));
    }
    restart();
    storage().readConfigFile("items.json", true);
    EXPECT_VARIANT(storage().queryValue(1), -7.25);
    EXPECT_VARIANT(storage().queryValue(2), 4000000000000LL);
    EXPECT_VARIANT(storage().queryValue(3), 30LL);
    expectConfiguredAttributes();
    expectNoTraces();
}

TEST_F(Loading, ChangedValuesSurviveARestartWithoutConfiguration)
{
    writeDictionary("items.json", dictionaryItems);
    storage().readConfigFile("items.json", true);
    tagStorageData changed = storage().queryData(1);
    changed.Value = -7.25;
    changed.Block = 9;
    {
        CkelMemoryDB database;
        ASSERT_TRUE(database.updateDatas({changed}));
    }
    restart();
    std::filesystem::remove("items.json");
    storage().readConfigFile("", true);
    const tagStorageData one = storage().queryData("one");
    EXPECT_VARIANT(one.Value, -7.25);
    EXPECT_VARIANT(one.DefValue, 1.25);
    EXPECT_VARIANT(one.Max, 100.5);
    EXPECT_VARIANT(one.Min, -100.5);
    EXPECT_EQ(one.CommSource, 2);
    EXPECT_EQ(one.DBSource, 0);
    EXPECT_EQ(one.RW, 4);
    EXPECT_EQ(one.Block, 9);
    EXPECT_EQ(one.ValueT, 9);
    EXPECT_EQ(storage().ID("three"), 3U);
}

TEST_F(Loading, TheWholeRangeOfNumbersSurvivesARestart)
{
    writeDictionary("items.json",
                    R"({"ID":1,"NameID":"a","ValueT":12,"Value":-9223372036854775808},
                       {"ID":2,"NameID":"b","ValueT":12,"Value":9223372036854775807},
                       {"ID":3,"NameID":"c","ValueT":13,"Value":18446744073709551615},
                       {"ID":4,"NameID":"d","ValueT":9,"Value":-1.7976931348623157e308},
                       {"ID":5,"NameID":"e","ValueT":9,"Value":0.015625},
                       {"ID":6,"NameID":"f","ValueT":1,"Value":true},
                       {"ID":7,"NameID":"g","ValueT":7,"Value":4294967295})");
    storage().readConfigFile("items.json", true);
    const Rows before = localRows();
    restart();
    storage().readConfigFile("items.json", true);
    EXPECT_EQ(localRows(), before);
    EXPECT_VARIANT(storage().queryValue(1), -9223372036854775807LL - 1);
    EXPECT_VARIANT(storage().queryValue(2), 9223372036854775807LL);
    EXPECT_VARIANT(storage().queryValue(3), 18446744073709551615ULL);
    EXPECT_VARIANT(storage().queryValue(4), -1.7976931348623157e308);
    EXPECT_VARIANT(storage().queryValue(5), 0.015625);
    EXPECT_VARIANT(storage().queryValue(6), 1LL);
    EXPECT_VARIANT(storage().queryValue(7), 4294967295LL);
}

TEST_F(Loading, TextsDoNotSurviveARestart)
{
    writeDictionary("items.json",
                    R"({"ID":1,"NameID":"a","ValueT":10,"Value":"text"},{"ID":2,"NameID":"b","Value":"12.5"})");
    storage().readConfigFile("items.json", true);
    EXPECT_VARIANT(storage().queryValue(1), "text");
    restart();
    storage().readConfigFile("items.json", true);
    EXPECT_VARIANT(storage().queryValue(1), "0");
    EXPECT_VARIANT(storage().queryValue(2), "12.5");
}

TEST_F(Loading, ItemsNewInTheDictionaryAreNotAddedToTheTable)
{
    writeDictionary("items.json", dictionaryItems);
    storage().readConfigFile("items.json", true);
    restart();
    writeDictionary("items.json", std::string(dictionaryItems) + R"(,{"ID":4,"NameID":"four"})");
    storage().readConfigFile("items.json", true);
    EXPECT_EQ(storage().ID("four"), 4U);
    EXPECT_EQ(localRows(), configuredRows);
}

// --- reading again on the same storage ---

TEST_P(LoadingEitherKind, AnotherConfigurationReplacesTheItems)
{
    storage().readConfigFile(configuration(), true);
    storage().insertData(KelTest::makeItem(5, "five"));
    writeDictionary("more.json", R"({"ID":1,"NameID":"uno","ValueT":3,"Value":7},{"ID":9,"NameID":"nine"})");
    storage().readConfigFile("more.json", false);
    EXPECT_EQ(storage().IDList({"one", "two", "five", "uno", "nine"}), (std::vector<unsigned int>{0, 0, 0, 1, 9}));
    EXPECT_VARIANT(storage().queryValue(1), 7);
    EXPECT_EQ(storage().queryData(3).ID, 0U);
    EXPECT_EQ(localRows(), (Rows{"1 'uno' 0 0 0 3 7 0 0 0 0 0", "9 'nine' 0 0 0 3 7 0 0 0 0 0"}));
    writeConfiguration("more.db", "(8,'eight',0,0,0,0,3,5,5,5,5)");
    storage().readConfigFile("more.db", true);
    EXPECT_EQ(storage().IDList({"uno", "nine", "eight"}), (std::vector<unsigned int>{0, 0, 8}));
}

// The loop does not turn between changes and the end of these: on a slow machine, it would save them.

TEST_P(LoadingEitherKind, ReadingAgainTakesBackUnsavedChanges)
{
    writeLocalTable(savedThree);
    storage().readConfigFile(configuration(), true);
    storage().updateValue(1, 5, false);
    storage().deleteData(2);
    storage().readConfigFile(configuration(), true);
    expectSavedValues();
    expectConfiguredAttributes();
    EXPECT_EQ(storage().queryData(1).Dirty, 0);
    EXPECT_EQ(storage().queryData(2).Dirty, 0);
    EXPECT_EQ(listener.take().size(), 1U);
}

TEST_P(LoadingEitherKind, ReadingNothingKeepsTheItemsAndRestoresTheirValues)
{
    writeLocalTable(savedThree);
    storage().readConfigFile(configuration(), true);
    storage().updateValue(1, 5, false);
    storage().updateField(2, "Block", 77, false);
    EXPECT_EQ(printedBy([&] { storage().readConfigFile("nothing", true); }), "");
    expectSavedValues();
    EXPECT_EQ(storage().queryData(2).Block, 77);
    EXPECT_EQ(localRows(), savedThreeRows);
    EXPECT_EQ(storage().queryData(1).Dirty, 2);
    EXPECT_EQ(storage().queryData(2).Dirty, 2);
    EXPECT_EQ(listener.take().size(), 1U);
}

TEST_F(Loading, ReadingNothingWithoutSavedValuesRebuildsFromTheRecordsReadBefore)
{
    writeDictionary("items.json", dictionaryItems);
    storage().readConfigFile("items.json", true);
    storage().updateValue(1, 5, false);
    KelTest::Database(KelTest::localFile).run("DELETE FROM kel;");
    storage().readConfigFile("nothing", false);
    EXPECT_VARIANT(storage().queryValue(1), 5.0);
    EXPECT_EQ(localRows(), configuredRows);
}

TEST_F(Loading, ADroppedTableIsMadeFromTheRecordsReadBefore)
{
    writeDictionary("items.json", dictionaryItems);
    storage().readConfigFile("items.json", true);
    KelTest::Database(KelTest::localFile).run("DROP TABLE kel;");
    storage().readConfigFile("nothing", true);
    EXPECT_EQ(localRows(), configuredRows);
    expectConfiguredValues();
}

TEST_F(Loading, RecordsOfTheLocalTableAreTheListFromThenOn)
{
    writeDictionary("items.json", dictionaryItems);
    writeLocalTable(savedThree);
    storage().readConfigFile("items.json", true);
    storage().readConfigFile("nothing", false);
    EXPECT_EQ(localRows(), savedThreeRebuilt);
}

TEST_F(Loading, AnEmptyDictionaryEmptiesTheRecordListButNotTheIndexes)
{
    writeDictionary("items.json", dictionaryItems);
    writeDictionary("empty.json", "");
    storage().readConfigFile("items.json", true);
    storage().readConfigFile("empty.json", false);
    expectConfiguredValues();
    EXPECT_EQ(localRows(), Rows{});
}

TEST_F(Loading, SavedItemsThatBecameTheIndexCountForTheNextLoad)
{
    writeLocalTable(savedThree);
    storage().readConfigFile("", true);
    KelTest::Database(KelTest::localFile).run("UPDATE kel SET Value = 5 WHERE ID = 1;");
    storage().readConfigFile("", true);
    EXPECT_VARIANT(storage().queryValue(1), 5.0);
    EXPECT_EQ(localRows().front(), "1 'saved one' 12 14 15 9 5 1 2 3 7 8");
    KelTest::Database(KelTest::localFile).run("DELETE FROM kel WHERE ID = 2;");
    storage().readConfigFile("", true);
    EXPECT_VARIANT(storage().queryValue(2), 1020LL);
    EXPECT_EQ(localRows().front(), "1 'saved one' 12 14 15 9 5 1 2 3 0 0");
}

// --- large configurations ---

namespace {

constexpr unsigned int manyItems = 100000;

std::string nameOf(unsigned int id)
{
    return "Item_" + std::to_string(id);
}

/// Items of the IDs 1 to manyItems; the value is half the ID.
std::string manyDictionaryItems()
{
    std::string items;
    for (unsigned int id = 1; id <= manyItems; ++id)
        items += (id == 1 ? "" : ",") + std::string("{\"ID\":") + std::to_string(id) + ",\"NameID\":\"" + nameOf(id) +
                 "\",\"ValueT\":9,\"Value\":" + std::to_string(id / 2) + (id % 2 == 0 ? ".0" : ".5") + "}";
    return items;
}

void writeManyRows(const std::string& path)
{
    KelTest::Database database(path);
    database.run(
        "CREATE TABLE kel(ID, NameID, CommSource, DBSource, RW, Block, ValueT, Value, DefValue, Max, Min);"
        "BEGIN; WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
        std::to_string(manyItems) +
        ") INSERT INTO kel SELECT i, 'Item_' || i, 1, 2, 3, 4, 9, i * 0.5, 0, 100, -100 FROM n; COMMIT;");
}

class LoadingMany : public Loading
{
protected:
    void expectManyItems()
    {
        unsigned int wrong = 0;
        for (unsigned int id = 1; id <= manyItems; ++id) {
            const bool right = storage().ID(nameOf(id)) == id && storage().queryValue(id).toDouble() == id * 0.5;
            wrong += right ? 0U : 1U;
        }
        EXPECT_EQ(wrong, 0U);
        EXPECT_EQ(storage().nameID(manyItems), nameOf(manyItems));
        EXPECT_VARIANT(storage().queryValue(77777), 38888.5);
        EXPECT_EQ(storage().queryData(manyItems + 1).ID, 0U);
    }
};

} // namespace

TEST_F(LoadingMany, ADictionaryLoadsAndRestores)
{
    writeDictionary("items.json", manyDictionaryItems());
    storage().readConfigFile("items.json", true);
    expectManyItems();
    EXPECT_EQ(KelTest::Database(KelTest::localFile).rows("SELECT count(*), sum(Value) FROM kel"),
              Rows{"100000 2500025000.0"});
    restart();
    KelTest::Database(KelTest::localFile).run("UPDATE kel SET Value = -1 WHERE ID = 77778;");
    storage().readConfigFile("items.json", true);
    EXPECT_VARIANT(storage().queryValue(77777), 38888.5);
    EXPECT_VARIANT(storage().queryValue(77778), -1.0);
    EXPECT_EQ(KelTest::Database(KelTest::localFile).rows("SELECT count(*) FROM kel"), Rows{"100000"});
}

TEST_F(LoadingMany, AConfigurationDatabaseLoads)
{
    writeManyRows("items.db");
    storage().readConfigFile("items.db", true);
    expectManyItems();
    EXPECT_EQ(storage().queryData(manyItems).DBSource, 2);
    EXPECT_VARIANT(storage().queryData(manyItems).Max, 100.0);
}

// --- the example ---

TEST_F(Loading, TheExampleDictionaryLoads)
{
    const std::string path = KEL_SOURCE_FOLDER "/examples/operator/dictionary.json";
    ASSERT_TRUE(std::filesystem::exists(path)) << path;

    CkelParseDBJson parser;
    const std::vector<tagStorageData>& items = parser.parse(path);
    EXPECT_GE(items.size(), 400U);
    std::set<unsigned int> ids;
    std::set<std::string> names;
    for (const tagStorageData& item : items) {
        EXPECT_TRUE(ids.insert(item.ID).second) << item.ID;
        EXPECT_TRUE(names.insert(item.NameID).second) << item.NameID;
        EXPECT_NE(item.NameID, "") << item.ID;
    }

    EXPECT_EQ(printedBy([&] { storage().readConfigFile(path, true); }), "");
    for (const tagStorageData& item : items) {
        EXPECT_EQ(storage().ID(item.NameID), item.ID);
        EXPECT_VARIANT(storage().queryValue(item.ID), item.Value);
    }
    EXPECT_EQ(localRows().size(), items.size());
}

// What a derived storage says of its table

namespace {

/// Denies that there is a table, and does not look.
class DenyingStorage : public CkelMemoryDataStorage
{
public:
    bool hasLocalDB() const override { return false; }
};

} // namespace

TEST_F(Loading, AStorageThatDeniesItsTableGetsANewOneInAFreshFolder)
{
    writeDictionary("dictionary.json", dictionaryItems);
    DenyingStorage denying;
    denying.readConfigFile("dictionary.json", true);
    EXPECT_EQ(localRows(), configuredRows);
}

TEST_F(Loading, AStorageThatDeniesItsTableGetsANewOneInPlaceOfTheOld)
{
    writeDictionary("dictionary.json", dictionaryItems);
    writeLocalTable(savedThree);
    DenyingStorage denying;
    denying.readConfigFile("dictionary.json", true);
    EXPECT_EQ(localRows(), configuredRows);
}

// Reports of a configuration database

namespace {

/// Prints hexadecimal numbers with their base, in groups and in wide fields, as an application may.
class OddStandardOutput
{
public:
    OddStandardOutput() : m_format(nullptr)
    {
        m_format.copyfmt(std::cout);
        std::cout.imbue(std::locale(std::locale::classic(), new Grouping));
        std::cout << std::hex << std::showbase << std::boolalpha << std::setfill('*') << std::setprecision(2);
        std::cout.width(30);
    }
    ~OddStandardOutput()
    {
        std::cout.copyfmt(m_format);
        std::cout.imbue(std::locale::classic());
    }
    OddStandardOutput(const OddStandardOutput&) = delete;
    OddStandardOutput& operator=(const OddStandardOutput&) = delete;

private:
    class Grouping : public std::numpunct<char>
    {
        std::string do_grouping() const override { return "\1"; }
        char do_thousands_sep() const override { return '_'; }
    };

    std::ios m_format;
};

} // namespace

TEST_F(Loading, ReportsOfBothReadersAreDecimalWhateverTheApplicationPrints)
{
    writeConfiguration("configuration.db", "(123456,'one',0,0,0,0,255,0,0,0,0),(123457,'two',0,0,0,0,9,x'00',0,0,0)");
    writeLocalTable("(654321,'saved',0,0,0,200,0,0,0,0,0,0)");
    KelTest::CapturedOutput output;
    {
        const OddStandardOutput odd;
        storage().readConfigFile("configuration.db", true);
    }
    EXPECT_EQ(output.standardOutput(),
              "CkelMemoryDB::loadMemoryDB( id= 123456 ) : Unknown Type 255\n"
              "current type is 4 is not defined. \n"
              "CkelMemoryDB::loadMemoryDB( id= 654321 ) : Unknown Type 200\n");
}

TEST_F(Loading, ReportsOfTheStorageAreDecimalWhateverTheApplicationPrints)
{
    writeDictionary("dictionary.json", R"({"ID":123456,"NameID":"one"})");
    storage().readConfigFile("dictionary.json", true);
    KelTest::CapturedOutput output;
    {
        const OddStandardOutput odd;
        storage().insertData(KelTest::makeItem(123456, "again"));
        storage().queryValueListByField("RW", anyType, 1, CkelMemoryDataStorage::Equal);
    }
    EXPECT_EQ(output.standardOutput(),
              "CkelMemoryDataStorage::insertData: ID= 123456 Already Exists\n"
              "CkelMemoryDataStorage::deleteDataListByField: Not Support ByFieldRW\n");
}

TEST_F(Loading, DiagnosisOfAnItemIsPrintedAsByAnUntouchedStream)
{
    rapidjson::Document item;
    item.Parse(R"({"ID":123456,"NameID":"n","CommSource":70000,"Block":255,"Value":1234567.25,"Max":true,"Min":-4096,
                   "DefValue":18446744073709551615})");
    KelTest::CapturedOutput output;
    {
        const OddStandardOutput odd;
        CkelParseDBJson().printJson(item, 0);
    }
    EXPECT_EQ(output.standardOutput(),
              " id = 123456\n name = n\n CommSource = 70000\n Block = 255\n"
              " Value = 1.23457e+06\n Max = 1\n Min = -4096\n"
              " DefValue = 18446744073709551615\n");
}

TEST_F(Loading, ReportsOfAConfigurationDatabaseComeInTheOrderOfItsRows)
{
    writeConfiguration("configuration.db",
                       "(1,'one',0,0,0,0,15,0,0,0,0),(2,'two',0,0,0,0,9,x'00',0,0,0),"
                       "(3,'three',0,0,0,0,16,0,0,0,0),(4,'four',0,0,0,0,9,0,x'00',0,0)");
    KelTest::CapturedOutput output;
    storage().readConfigFile("configuration.db", true);
    EXPECT_EQ(output.standardOutput(),
              "CkelMemoryDB::loadMemoryDB( id= 1 ) : Unknown Type 15\n"
              "current type is 4 is not defined. \n"
              "CkelMemoryDB::loadMemoryDB( id= 3 ) : Unknown Type 16\n"
              "current type is 4 is not defined. \n");
}

TEST_F(Loading, ARowIsReportedAlsoWhenALaterOneEndsTheProcess)
{
    const KelTest::FoldersWithin folders(folder.path());
    KelTest::Database("configuration.db")
        .run(
            "CREATE TABLE kel(ID, NameID, CommSource, DBSource, RW, Block, ValueT);"
            "INSERT INTO kel VALUES(1,'one',0,0,0,0,15),(2,'two',0,0,0,0,9);");
    EXPECT_PROCESS_ENDS(CkelMemoryDataStorage().readConfigFile("configuration.db", true),
                        "^CkelMemoryDB::loadMemoryDB\\( id= 1 \\) : Unknown Type 15\n[^\n]*Assertion `index>=0");
}

// Columns that are not read

TEST_F(Loading, ComputedColumnsBehindThoseOfAConfigurationAreIgnored)
{
    KelTest::Database("configuration.db")
        .run(
            "CREATE TABLE kel(ID, NameID, CommSource, DBSource, RW, Block, ValueT, Value, DefValue, Max, Min,"
            "                 Label AS (NameID || ' ' || ID), Twice AS (Value * 2) STORED);"
            "INSERT INTO kel VALUES(1,'one',0,0,0,0,9,1.5,0,0,0);");
    storage().readConfigFile("configuration.db", true);
    EXPECT_VARIANT(storage().queryValue("one"), 1.5);
}

TEST_F(Loading, ComputedColumnsBehindThoseOfTheLocalTableThatAreReadAreIgnored)
{
    writeDictionary("dictionary.json", R"({"ID":1,"NameID":"one","ValueT":9,"Value":1.5})");
    KelTest::Database("kelmem.db")
        .run(
            "CREATE TABLE kel(ID INTEGER PRIMARY KEY NOT NULL, NameID TEXT, CommSource INTEGER, RW INTEGER,"
            "                 Block INTEGER, ValueT INTEGER, Value NUMERIC, DefValue NUMERIC, Max NUMERIC,"
            "                 Min NUMERIC, Unit INTEGER, CUnit INTEGER, Label AS (NameID || ID));"
            "INSERT INTO kel VALUES(1,'one',0,0,0,9,101.5,0,0,0,0,0);");
    storage().readConfigFile("dictionary.json", true);
    EXPECT_VARIANT(storage().queryValue("one"), 101.5);
}
