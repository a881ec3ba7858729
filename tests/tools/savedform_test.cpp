#include "tools/keldict/savedform.h"

#include "datastorage/kelmemorydatastorage.h"
#include "tests/support/testfolder.h"

#include <fstream>
#include <string>

using namespace Ombrin;

namespace {

constexpr const char* dictionary = "dictionary.json";

/// Every value type with values of every kind: what is foretold of them is what the storage does.
std::string everyTypeAndValue()
{
    std::string items;
    unsigned int id = 0;
    for (int type = 0; type <= 17; ++type) {
        for (const char* value : {"0",
                                  "-1",
                                  "5",
                                  "2147483648",
                                  "4294967295",
                                  "-9223372036854775808",
                                  "9223372036854775807",
                                  "9223372036854775808",
                                  "18446744073709551615",
                                  "3.7",
                                  "-3.7",
                                  "-0.0",
                                  "1e300",
                                  "-1e300",
                                  "1e15",
                                  "0.1",
                                  "9007199254740993.0",
                                  "true",
                                  "false",
                                  R"("")",
                                  R"("text")",
                                  R"("12")",
                                  R"(" 3.5 ")",
                                  R"("007")",
                                  R"("1e3")",
                                  R"("nan")",
                                  R"("inf")"}) {
            ++id;
            items += (id == 1 ? "" : ",") + std::string("{\"ID\":") + std::to_string(id) + ",\"NameID\":\"N" +
                     std::to_string(id) + "\",\"ValueT\":" + std::to_string(type) + ",\"Value\":" + value + "}";
        }
    }
    return "{\"kel\":[" + items + "]}";
}

using SavedForm = KelTest::FolderTest;

TEST_F(SavedForm, IsWhatTheStorageReadsBackAfterARestart)
{
    std::ofstream(dictionary) << everyTypeAndValue();
    std::vector<tagStorageData> configured;
    {
        CkelMemoryDataStorage storage(nullptr);
        storage.readConfigFile(dictionary, true);
        configured = storage.queryDataList(0U, CkelAbstractDataStorage::NotEqual);
    }
    ASSERT_EQ(configured.size(), 18U * 27U);

    CkelMemoryDataStorage restarted(nullptr);
    testing::internal::CaptureStdout(); // it complains of the types that it does not read
    restarted.readConfigFile(dictionary, true);
    testing::internal::GetCapturedStdout();
    for (const tagStorageData& item : configured) {
        const auto foretold = Keldict::afterRestart(item);
        const CkelVariant found = restarted.queryValue(item.ID);
        const CkelVariant expected = foretold.value_or(item.Value);
        EXPECT_TRUE(found.cmp(expected)) << "type " << int{item.ValueT} << ", " << Keldict::shown(item.Value) << ": "
                                         << Keldict::shown(found) << " instead of " << Keldict::shown(expected);
    }
}

TEST_F(SavedForm, OfEveryFieldIsWhatAStorageWithoutConfigurationHolds)
{
    std::ofstream(dictionary) << R"({"kel":[)"
                                 R"({"ID":1,"NameID":"A","ValueT":9,"Value":5,"DefValue":0.5,"Max":10.7,"Min":-0.5},)"
                                 R"({"ID":2,"NameID":"B","ValueT":6,"Value":5.5,"DefValue":1.5,"Max":7,"Min":"x"},)"
                                 R"({"ID":3,"NameID":"C","ValueT":13,"Value":18446744073709551615,"DefValue":1,)"
                                 R"("Max":2.5,"Min":-1}]})";
    std::vector<tagStorageData> configured;
    {
        CkelMemoryDataStorage storage(nullptr);
        storage.readConfigFile(dictionary, true);
        configured = storage.queryDataList(0U, CkelAbstractDataStorage::NotEqual);
    }
    ASSERT_EQ(configured.size(), 3U);
    CkelMemoryDataStorage restarted(nullptr);
    restarted.readConfigFile("", true);
    for (const tagStorageData& item : configured) {
        const tagStorageData found = restarted.queryData(item.ID);
        for (const Keldict::Field field : Keldict::valueFields)
            EXPECT_TRUE(Keldict::valueOf(found, field).cmp(Keldict::savedAndRead(item, field).value_or(CkelVariant())))
                << item.ID << ' ' << Keldict::nameOf(field);
    }
}

} // namespace
