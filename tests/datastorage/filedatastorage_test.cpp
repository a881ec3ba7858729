#include "datastorage/kelfiledatastorage.h"
#include "tests/datastorage/storagefixture.h"

#include <filesystem>

using namespace Ombrin;
using namespace KelTest;

namespace {

using Storage = CkelAbstractDataStorage;

class FileStorage : public StorageTest
{
protected:
    std::vector<unsigned int> ids{7, 8};
    std::vector<std::string> names{"seven", "eight"};
    const std::vector<CkelVariant> values{1, 2};
    CkelFileDataStorage storage;
    Storage& interface = storage;
};

} // namespace

TEST_F(FileStorage, ClassNameIsInTheChain)
{
    EXPECT_EQ(storage.className(), "CkelFileDataStorage");
    EXPECT_TRUE(storage.inherits("CkelAbstractDataStorage"));
}

TEST_F(FileStorage, InsertedItemIsNotThere)
{
    interface.insertData(makeItem(7, "seven", 1));
    interface.insertDataList({makeItem(8, "eight", 1)});
    EXPECT_EQ(interface.queryData(7).ID, 0U);
    EXPECT_EQ(interface.queryData("seven").ID, 0U);
    EXPECT_TRUE(interface.queryValue(7).isNull());
    EXPECT_TRUE(interface.queryValue("seven").isNull());
    EXPECT_TRUE(interface.queryField(7, "Value", anyType).isNull());
    EXPECT_TRUE(interface.queryField("seven", "Value", anyType).isNull());
}

TEST_F(FileStorage, LookupsFindNothing)
{
    EXPECT_EQ(interface.nameID(7), "");
    EXPECT_EQ(interface.ID("seven"), 0U);
    EXPECT_EQ(interface.commSource(7), 0U);
    EXPECT_EQ(interface.commSource("seven"), 0U);
}

TEST_F(FileStorage, ListsAreEmpty)
{
    EXPECT_TRUE(interface.nameIDList(ids).empty());
    EXPECT_TRUE(interface.IDList(names).empty());
    EXPECT_TRUE(interface.queryValueList(ids).empty());
    EXPECT_TRUE(interface.queryValueList(names).empty());
    EXPECT_TRUE(interface.queryDataList(ids).empty());
    EXPECT_TRUE(interface.queryDataList(names).empty());
    EXPECT_TRUE(interface.queryFieldList(ids, "Value", anyType).empty());
    EXPECT_TRUE(interface.queryFieldList(names, "Value", anyType).empty());
}

TEST_F(FileStorage, SelectionsAreEmptyAndPrintNothing)
{
    testing::internal::CaptureStdout();
    EXPECT_TRUE(interface.queryValueList(7, Storage::Equal).empty());
    EXPECT_TRUE(interface.queryDataList(7, Storage::Equal).empty());
    EXPECT_TRUE(interface.queryFieldList(7, "Value", anyType, Storage::Equal).empty());
    EXPECT_TRUE(interface.queryValueListBetween(1, 9).empty());
    EXPECT_TRUE(interface.queryDataListBetween(1, 9).empty());
    EXPECT_TRUE(interface.queryFieldListBetween(1, 9, "Value", anyType).empty());
    EXPECT_TRUE(interface.queryValueListByField("nothing", anyType, 1, Storage::Equal).empty());
    EXPECT_TRUE(interface.queryDataListByField("nothing", anyType, 1, Storage::Equal).empty());
    interface.deleteDataListByField("nothing", anyType, 1, Storage::Equal);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(FileStorage, ChangesAreAcceptedAndDropped)
{
    interface.deleteData(7);
    interface.deleteData("seven");
    interface.deleteDataList(ids);
    interface.deleteDataList(names);
    interface.deleteDataList(7, Storage::Equal);
    interface.deleteDataListBetween(1, 9);
    interface.reset();
    EXPECT_TRUE(interface.updateValue(7, 1, false).isNull());
    interface.updateData(makeItem(7, "seven", 1), false);
    EXPECT_TRUE(listener.take().empty());
}

TEST_F(FileStorage, OwnUpdatesWithoutAFlagDoNothing)
{
    EXPECT_TRUE(storage.updateValue(7, CkelVariant(1)).isNull());
    EXPECT_TRUE(storage.updateValue("seven", CkelVariant(1)).isNull());
    storage.updateField(7, "Value", CkelVariant(1));
    storage.updateField("seven", "Value", CkelVariant(1));
    storage.updateData(makeItem(7, "seven", 1));
    storage.updateValueList(ids, values);
    storage.updateValueList(names, values);
    storage.updateFieldList(ids, "Value", values);
    storage.updateFieldList(names, "Value", values);
    storage.updateDataList({makeItem(7, "seven", 1)});
    EXPECT_TRUE(interface.queryValue(7).isNull());
    EXPECT_TRUE(listener.take().empty());
}

TEST_F(FileStorage, InterfaceUpdatesAreStillReachable)
{
    EXPECT_TRUE(storage.updateValue(7, 1, false).isNull());
    storage.updateField(7, "Value", 1, false);
    storage.updateDataList({}, false);
    EXPECT_FALSE(storage.loadLocalDB(true));
}

TEST_F(FileStorage, BothListsOfChannelsAreEmpty)
{
    EXPECT_TRUE(interface.commSourceList(ids).empty());
    EXPECT_TRUE(interface.commSourceList(names).empty());
    EXPECT_TRUE(storage.comSourceList(ids).empty());
    EXPECT_TRUE(storage.comSourceList(names).empty());
}

TEST_F(FileStorage, LoadingReportsSuccessWithoutReading)
{
    EXPECT_TRUE(storage.readDBFile("there is no such file.db"));
    EXPECT_TRUE(storage.loadLocalDB());
    EXPECT_FALSE(interface.loadLocalDB(false));
    EXPECT_FALSE(interface.hasLocalDB());
    interface.readConfigFile("there is no such file.json", true);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST_F(FileStorage, ConversionReturnsTheValueUnchanged)
{
    EXPECT_VARIANT(interface.toStoreValue(9, "text"), "text");
}

TEST_F(FileStorage, OffersOneUnlockedMutex)
{
    CkelMutex* const mutex = interface.mutex();
    ASSERT_NE(mutex, nullptr);
    EXPECT_EQ(interface.mutex(), mutex);
    const bool locked = mutex->tryLock();
    if (locked)
        mutex->unlock();
    EXPECT_TRUE(locked);
}
