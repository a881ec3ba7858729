#include "datastorage/kelabstractdatastorage.h"
#include "tests/datastorage/storagefixture.h"

using namespace Ombrin;
using namespace KelTest;

namespace {

using Storage = CkelAbstractDataStorage;

/// A storage that overrides nothing.
class AbstractStorage : public FolderTest
{
protected:
    const std::vector<unsigned int> ids{1, 2};
    const std::vector<std::string> names{"a", "b"};
    const std::vector<CkelVariant> values{1, 2};
    Storage storage{nullptr};
    const Storage& constant = storage;
};

} // namespace

TEST_F(AbstractStorage, ClassNameIsInTheChain)
{
    EXPECT_EQ(storage.className(), "CkelAbstractDataStorage");
    EXPECT_TRUE(storage.inherits("CkelObject"));
}

TEST_F(AbstractStorage, TakesItsParent)
{
    CkelObject parent;
    auto* const child = new Storage(&parent);
    EXPECT_EQ(child->parent(), &parent);
}

TEST_F(AbstractStorage, LookupsAnswerEmpty)
{
    EXPECT_EQ(constant.nameID(1), "");
    EXPECT_EQ(constant.ID("a"), 0U);
    EXPECT_EQ(constant.commSource(1), 0U);
    EXPECT_EQ(constant.commSource("a"), 0U);
}

TEST_F(AbstractStorage, ConversionReturnsTheValueUnchanged)
{
    EXPECT_VARIANT(constant.toStoreValue(9, "text"), "text");
    EXPECT_VARIANT(constant.toStoreValue(0, 5), 5);
}

TEST_F(AbstractStorage, ListsOfLookupsAreEmpty)
{
    EXPECT_TRUE(constant.nameIDList(ids).empty());
    EXPECT_TRUE(constant.IDList(names).empty());
    EXPECT_TRUE(constant.commSourceList(ids).empty());
    EXPECT_TRUE(constant.commSourceList(names).empty());
}

TEST_F(AbstractStorage, QueriesAnswerNullAndDefaultRecords)
{
    EXPECT_TRUE(constant.queryValue(1).isNull());
    EXPECT_TRUE(constant.queryValue("a").isNull());
    EXPECT_TRUE(constant.queryField(1, "Value", Storage::AnyFieldType).isNull());
    EXPECT_TRUE(constant.queryField("a", "Value", Storage::AnyFieldType).isNull());
    for (const tagStorageData& record : {constant.queryData(1), constant.queryData("a")}) {
        EXPECT_EQ(record.ID, 0U);
        EXPECT_TRUE(record.NameID.empty());
        EXPECT_TRUE(record.Value.isNull());
    }
}

TEST_F(AbstractStorage, ListsOfQueriesAreEmpty)
{
    EXPECT_TRUE(constant.queryValueList(ids).empty());
    EXPECT_TRUE(storage.queryValueList(names).empty());
    EXPECT_TRUE(constant.queryDataList(ids).empty());
    EXPECT_TRUE(constant.queryDataList(names).empty());
    EXPECT_TRUE(constant.queryFieldList(ids, "Value", Storage::AnyFieldType).empty());
    EXPECT_TRUE(constant.queryFieldList(names, "Value", Storage::AnyFieldType).empty());
}

TEST_F(AbstractStorage, SelectionsAreEmpty)
{
    EXPECT_TRUE(constant.queryValueList(1, Storage::Equal).empty());
    EXPECT_TRUE(constant.queryDataList(1, Storage::Equal).empty());
    EXPECT_TRUE(constant.queryValueListBetween(1, 9).empty());
    EXPECT_TRUE(constant.queryDataListBetween(1, 9).empty());
    EXPECT_TRUE(constant.queryFieldList(1, "Value", Storage::AnyFieldType, Storage::Equal).empty());
    EXPECT_TRUE(constant.queryFieldListBetween(1, 9, "Value", Storage::AnyFieldType).empty());
    EXPECT_TRUE(constant.queryValueListByField("Block", Storage::AnyFieldType, 1, Storage::Equal).empty());
    EXPECT_TRUE(constant.queryDataListByField("Block", Storage::AnyFieldType, 1, Storage::Equal).empty());
}

TEST_F(AbstractStorage, UpdatesReturnNullOrNothing)
{
    EXPECT_TRUE(storage.updateValue(1, 5, false).isNull());
    EXPECT_TRUE(storage.updateValue("a", 5, false).isNull());
    storage.updateField(1, "Value", 5, false);
    storage.updateField("a", "Value", 5, false);
    storage.updateData(makeItem(1, "a"), false);
    storage.updateValueList(ids, values, false);
    storage.updateValueList(names, values, false);
    storage.updateFieldList(ids, "Value", values, false);
    storage.updateFieldList(names, "Value", values, false);
    storage.updateDataList({makeItem(1, "a")}, false);
    EXPECT_TRUE(storage.queryValue(1).isNull());
}

TEST_F(AbstractStorage, InsertionDeletionAndLoadingDoNothing)
{
    storage.insertData(makeItem(1, "a"));
    storage.insertDataList({makeItem(1, "a")});
    storage.deleteData(1);
    storage.deleteData("a");
    storage.deleteDataList(ids);
    storage.deleteDataList(names);
    storage.deleteDataList(1, Storage::Equal);
    storage.deleteDataListBetween(1, 9);
    storage.deleteDataListByField("Block", Storage::AnyFieldType, 1, Storage::Equal);
    storage.reset();
    storage.readConfigFile("dictionary.json", true);
    EXPECT_FALSE(storage.loadLocalDB(true));
    EXPECT_FALSE(constant.hasLocalDB());
    EXPECT_EQ(storage.mutex(), nullptr);
    EXPECT_EQ(storage.queryData(1).ID, 0U);
}

TEST_F(AbstractStorage, MoldSetListIsOneListThatIsReplacedByACopy)
{
    EXPECT_TRUE(Storage::moldSetIDList().empty());
    std::vector<unsigned int> list{3, 1, 4};
    Storage::setMoldSetIDList(list);
    list.clear();
    EXPECT_EQ(Storage::moldSetIDList(), (std::vector<unsigned int>{3, 1, 4}));
    Storage::moldSetIDList().push_back(5);
    EXPECT_EQ(Storage::moldSetIDList().size(), 4U);
    EXPECT_EQ(&Storage::moldSetIDList(), &CkelMemoryDataStorage::moldSetIDList());
    Storage::setMoldSetIDList({});
    EXPECT_TRUE(Storage::moldSetIDList().empty());
}
