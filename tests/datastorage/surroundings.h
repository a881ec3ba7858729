#pragma once

#include "datastorage/kelmemorydatastorage.h"
#include "tests/datastorage/filefixture.h"
#include "tests/datastorage/storagefixture.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace KelTest {

using Rows = std::vector<std::string>;

inline constexpr const char* dictionary = "configuration.json";
inline constexpr const char* dictionaryItems =
    R"({"ID":1,"NameID":"one","ValueT":9,"Value":1.5,"DefValue":0.5,"Max":9,"Min":-9},{"ID":2,"NameID":"two"})";

// As many rows as the dictionary has items, with marks that only a rebuilt table is without

inline constexpr const char* savedRows = "(1,'one',0,0,0,9,101.5,0,0,0,7,8),(2,'two',0,0,0,9,102.5,0,0,0,7,8)";
inline const Rows savedTable{"1 'one' 0 0 0 9 101.5 0 0 0 7 8", "2 'two' 0 0 0 9 102.5 0 0 0 7 8"};

inline constexpr const char* openError = "CkelParseDBJson::Parse： open error\n";

/// A storage that starts in the surroundings that the case has made.
class Surroundings : public StorageTest
{
protected:
    using Storage = Ombrin::CkelMemoryDataStorage;

    void SetUp() override { writeDictionary(dictionary, dictionaryItems); }

    /// The storage works in memory, on items 1 and 2.
    void expectUsable(Storage& storage)
    {
        EXPECT_EQ(storage.IDList({"one", "two"}), (std::vector<unsigned int>{1, 2}));
        EXPECT_EQ(storage.nameID(2), "two");
        storage.updateValue(1, 7, false);
        EXPECT_VARIANT(storage.queryValue("one"), 7.0);
        storage.insertData(makeItem(5, "five", 55));
        EXPECT_VARIANT(storage.queryValue("five"), 55.0);
        storage.deleteData(2);
        EXPECT_EQ(storage.ID("two"), 0U);
        ++m_changes;
    }

    /// Starts with `configuration`, calls `examine` and ends; prints what `expectedOutput` says and no errors.
    void start(const std::string& configuration, bool useLocalDB, const std::function<void(Storage&)>& examine,
               const std::string& expectedOutput = "")
    {
        CapturedOutput output;
        {
            Storage storage;
            storage.readConfigFile(configuration, useLocalDB);
            examine(storage);
        }
        // With the storage gone, turning the loop saves nothing.
        EXPECT_EQ(listener.take().size(), std::exchange(m_changes, 0));
        EXPECT_EQ(output.standardOutput(), expectedOutput);
        EXPECT_EQ(output.standardError(), "");
    }

    /// Starts with the dictionary: no value can be restored, everything else works, nothing is printed. The same once
    /// more without saved values wanted, and without a configuration, where there are no items then.
    void expectConfiguredItemsAlone()
    {
        for (const bool useLocalDB : {true, false}) {
            start(dictionary, useLocalDB, [this](Storage& storage) {
                EXPECT_FALSE(storage.hasLocalDB());
                EXPECT_VARIANT(storage.queryValue(1), 1.5);
                EXPECT_VARIANT(storage.queryValue(2), 1.5);
                expectUsable(storage);
            });
        }
        start("", true, [](Storage& storage) {
            storage.insertData(makeItem(5, "five"));
            EXPECT_EQ(storage.ID("five"), 0U);
        });
    }

    /// Starts with the dictionary on a file in which a new table can be made.
    void expectNewTable()
    {
        start(dictionary, true, [this](Storage& storage) {
            EXPECT_TRUE(storage.hasLocalDB());
            EXPECT_VARIANT(storage.queryValue(1), 1.5);
            expectUsable(storage);
        });
        EXPECT_EQ(localRows(), (Rows{"1 'one' 0 0 0 9 1.5 0.5 9 -9 0 0", "2 'two' 0 0 0 9 1.5 0.5 9 -9 0 0"}));
    }

    /// Starts with the dictionary; the saved values are restored.
    void expectSavedValues()
    {
        start(dictionary, true, [this](Storage& storage) {
            EXPECT_TRUE(storage.hasLocalDB());
            EXPECT_VARIANT(storage.queryValue(1), 101.5);
            EXPECT_VARIANT(storage.queryValue(2), 102.5);
            expectUsable(storage);
        });
    }

private:
    std::size_t m_changes = 0;
};

} // namespace KelTest
