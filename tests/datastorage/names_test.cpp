#include "datastorage/kelmemorydb.h"
#include "datastorage/kelsafememorystorage.h"
#include "tests/datastorage/filefixture.h"
#include "tests/datastorage/storagefixture.h"

#include <memory>

using namespace Ombrin;
using namespace KelTest;

// Names and texts of any bytes, on every road that they take.

namespace {

struct Text
{
    const char* name;
    std::string bytes;
};

void PrintTo(const Text& text, std::ostream* out)
{
    *out << text.name;
}

std::string everyByte()
{
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte)
        bytes += static_cast<char>(byte);
    return bytes;
}

std::vector<Text> texts()
{
    return {{"Quotes", R"('it''s' "quoted" `too` \ )"},
            {"Statement", "'); DROP TABLE kel; --"},
            {"Empty", ""},
            {"Blanks", "  \t\r\n "},
            {"Format", "%s%n%1000d{}"},
            {"ANul", std::string("before\0behind", 13)},
            {"NoUtf8", "\xff\xfe\xc3(\xed\xa0\x80\xf8"},
            {"EveryByte", everyByte()},
            {"Emoji", "\xF0\x9F\x98\x80"},
            {"AMegabyte", std::string(std::size_t{1} << 20U, 'n') + "'"}};
}

/// The text as a JSON string that stands for the same bytes.
std::string jsonOf(const std::string& text)
{
    std::string json = "\"";
    for (const char c : text) {
        char escaped[8];
        if (c == '"' || c == '\\')
            json += std::string("\\") + c;
        else if (static_cast<unsigned char>(c) < ' ')
            json.append(escaped, static_cast<std::size_t>(std::snprintf(escaped, sizeof escaped, "\\u%04x", c)));
        else
            json += c;
    }
    return json + "\"";
}

std::string untilNul(const std::string& text)
{
    return text.substr(0, text.find('\0'));
}

class AnyText : public StorageTest, public testing::WithParamInterface<Text>
{
protected:
    AnyText() : text(GetParam().bytes) {}

    /// A text of another item, which no road may take for the first one.
    std::string longer() const { return text + "x"; }

    /// What stands in the file: each row's ID and its name's bytes.
    static std::vector<std::pair<int, std::string>> savedNames()
    {
        std::vector<std::pair<int, std::string>> names;
        sqlite3* connection = nullptr;
        sqlite3_stmt* statement = nullptr;
        EXPECT_EQ(sqlite3_open(localFile, &connection), SQLITE_OK);
        sqlite3_prepare_v2(connection, "SELECT ID, NameID FROM kel ORDER BY ID", -1, &statement, nullptr);
        while (sqlite3_step(statement) == SQLITE_ROW) {
            const auto* const bytes = static_cast<const char*>(sqlite3_column_blob(statement, 1));
            const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, 1));
            names.emplace_back(sqlite3_column_int(statement, 0), size > 0 ? std::string(bytes, size) : "");
        }
        sqlite3_finalize(statement);
        sqlite3_close(connection);
        return names;
    }

    void writeConfigurationRow()
    {
        writeConfiguration("configuration.db", "");
        sqlite3* connection = nullptr;
        sqlite3_stmt* statement = nullptr;
        ASSERT_EQ(sqlite3_open("configuration.db", &connection), SQLITE_OK);
        sqlite3_prepare_v2(connection, "INSERT INTO kel VALUES(1, ?1, 0, 0, 0, 0, 10, ?1, ?1, '', '')", -1, &statement,
                           nullptr);
        sqlite3_bind_text(statement, 1, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
        EXPECT_EQ(sqlite3_step(statement), SQLITE_DONE);
        sqlite3_finalize(statement);
        sqlite3_close(connection);
    }

    static void expectItem(const CkelAbstractDataStorage& storage, const std::string& name, const std::string& value)
    {
        EXPECT_TRUE(storage.nameID(1) == name);
        EXPECT_EQ(storage.ID(name), 1U);
        EXPECT_TRUE(storage.queryData(name).NameID == name);
        EXPECT_EQ(storage.queryValue(name).type(), CkelVariant::String);
        EXPECT_TRUE(storage.queryValue(name).toStdString() == value);
        EXPECT_TRUE(storage.queryField(1, "NameID", anyType).toStdString() == name);
    }

    const std::string text;
};

std::string nameOf(const testing::TestParamInfo<Text>& info)
{
    return info.param.name;
}

} // namespace

TEST_P(AnyText, LoadsFromADictionaryUpToItsNul)
{
    writeDictionary("configuration.json", "{\"ID\":1,\"NameID\":" + jsonOf(text) + ",\"ValueT\":10,\"Value\":" +
                                              jsonOf(text) + ",\"DefValue\":" + jsonOf(text) + "}");
    CkelMemoryDataStorage storage;
    storage.readConfigFile("configuration.json", false);
    expectItem(storage, untilNul(text), untilNul(text));
    ASSERT_EQ(savedNames().size(), 1U);
    EXPECT_TRUE(savedNames()[0].second == untilNul(text));
}

TEST_P(AnyText, LoadsFromAConfigurationDatabase)
{
    writeConfigurationRow();
    CkelMemoryDataStorage storage;
    storage.readConfigFile("configuration.db", false);
    expectItem(storage, text, text);
}

TEST_P(AnyText, IsANameOfTheMemoryAndTheSafeStorage)
{
    writeDictionary("configuration.json", R"({"ID":9,"NameID":"nine","ValueT":9,"Value":1})");
    std::vector<std::unique_ptr<CkelAbstractDataStorage>> storages;
    storages.push_back(std::make_unique<CkelMemoryDataStorage>());
    storages.push_back(std::make_unique<CkelSafeMemoryStorage>(nullptr));
    for (const auto& storage : storages) {
        storage->readConfigFile("configuration.json", false);
        storage->insertDataList({makeItem(1, text, 1.5), makeItem(2, longer(), 2.5)});
        EXPECT_EQ(storage->IDList({text, longer(), "nine"}), (std::vector<unsigned int>{1, 2, 9}));
        EXPECT_TRUE(storage->nameIDList({1})[0] == text);
        EXPECT_VARIANT(storage->updateValue(text, 3, false), 1.5);
        EXPECT_VARIANT(storage->queryValueList(std::vector<std::string>{text, longer()})[0], 3.0);
        storage->updateField(text, "Value", 4, false);
        EXPECT_VARIANT(storage->queryValue(1), 4.0);
        EXPECT_EQ(storage->commSource(text), 2U);
        storage->deleteData(text);
        EXPECT_EQ(storage->ID(text), 0U);
        EXPECT_EQ(storage->ID(longer()), 2U);
    }
}

TEST_P(AnyText, IsAValueAndItsEvent)
{
    LoadedStorage storage({});
    tagStorageData item = makeItem(1, "one");
    item.ValueT = ValueTypeText;
    item.Value = "before";
    storage.insertData(item);
    storage.updateValue(1, text, false);
    EXPECT_TRUE(storage.queryValue(1).toStdString() == text);
    const auto events = listener.take();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].value.type(), CkelVariant::String);
    EXPECT_TRUE(events[0].value.toStdString() == text);
    storage.updateField(1, "DefValue", text, false);
    storage.reset();
    EXPECT_TRUE(storage.queryValue(1).toStdString() == text);
}

TEST_P(AnyText, IsAFieldThatIsReportedWholeAndSelectsNothing)
{
    LoadedStorage storage({makeItem(1, "one")});
    std::string printed;
    {
        CapturedOutput output;
        EXPECT_TRUE(storage.queryValueListByField(text, anyType, 4, CkelAbstractDataStorage::Equal).empty());
        printed = output.standardOutput();
    }
    EXPECT_TRUE(printed == "CkelMemoryDataStorage::deleteDataListByField: Not Support ByField" + text + "\n");
    EXPECT_TRUE(storage.queryField(1, text, anyType).isNull());
    storage.updateField(1, text, 5, false);
    EXPECT_EQ(storage.queryData(1).Dirty, DirtyClean);
}

TEST_P(AnyText, IsANameThatIsSavedAndLoaded)
{
    CkelMemoryDB database;
    ASSERT_TRUE(database.createMemoryDBTable());
    EXPECT_TRUE(database.insertDatas({makeItem(1, text), makeItem(2, longer())}));
    EXPECT_TRUE(database.insertData(makeItem(3, text)));
    EXPECT_TRUE(database.updateDatas({makeItem(1, text, 5)}));
    EXPECT_TRUE(database.updateValue(2, 7));
    EXPECT_TRUE(database.updateValues({3}, {8}));
    const auto saved = savedNames();
    ASSERT_EQ(saved.size(), 3U);
    EXPECT_TRUE(saved[0].second == text);
    EXPECT_TRUE(saved[1].second == longer());
    const auto& loaded = database.loadMemoryDB();
    ASSERT_EQ(loaded.size(), 3U);
    EXPECT_TRUE(loaded[0].NameID == text && loaded[1].NameID == longer() && loaded[2].NameID == text);
    EXPECT_TRUE(database.rebuildMemoryDBTable({makeItem(1, text)}));
    EXPECT_EQ(savedNames().size(), 1U);
}

TEST_P(AnyText, IsAValueThatIsSavedAsANumber)
{
    tagStorageData item = makeItem(1, "one");
    item.ValueT = ValueTypeText;
    item.Value = text;
    item.DefValue = text;
    CkelMemoryDB database;
    ASSERT_TRUE(database.createMemoryDBTable());
    EXPECT_TRUE(database.insertDatas({item}));
    EXPECT_TRUE(database.updateDatas({item}));
    EXPECT_TRUE(database.updateValue(1, text));
    EXPECT_TRUE(database.updateValues({1}, {text}));
    EXPECT_EQ(Database(localFile).rows("SELECT Value, DefValue FROM kel"), std::vector<std::string>{"0 0"});
}

TEST_P(AnyText, IsANameThatComesBackWithoutAConfiguration)
{
    {
        CkelMemoryDB database;
        ASSERT_TRUE(database.rebuildMemoryDBTable({makeItem(1, text, 1.5), makeItem(2, longer(), 2.5)}));
    }
    CkelMemoryDataStorage storage;
    storage.readConfigFile("", true);
    EXPECT_TRUE(storage.nameID(1) == text);
    EXPECT_EQ(storage.IDList({text, longer()}), (std::vector<unsigned int>{1, 2}));
    EXPECT_VARIANT(storage.queryValue(longer()), 2.5);
}

INSTANTIATE_TEST_SUITE_P(Texts, AnyText, testing::ValuesIn(texts()), nameOf);
