#include "datastorage/keldatastoragefactory.h"
#include "tests/datastorage/storagefixture.h"

using namespace Ombrin;

namespace {

using Storage = CkelAbstractDataStorage;

class Factory : public KelTest::FolderTest
{};

} // namespace

TEST_F(Factory, InstanceIsTheSameAtEveryCall)
{
    EXPECT_NE(CkelDBStorageFactory::instance(), nullptr);
    EXPECT_EQ(CkelDBStorageFactory::instance(), CkelDBStorageFactory::instance());
}

TEST_F(Factory, HandsOutOneMemoryStorage)
{
    Storage* const storage = CkelDBStorageFactory::instance()->get(Storage::MemoryStorage);
    ASSERT_NE(storage, nullptr);
    EXPECT_EQ(storage->className(), "CkelMemoryDataStorage");
    EXPECT_EQ(storage->parent(), nullptr);
    EXPECT_EQ(CkelDBStorageFactory::instance()->get(Storage::MemoryStorage), storage);
}

TEST_F(Factory, HandsOutOneOfEachKind)
{
    Storage* const file = CkelDBStorageFactory::instance()->get(Storage::FileStorage);
    Storage* const safe = CkelDBStorageFactory::instance()->get(Storage::SafeMemoryStorage);
    ASSERT_NE(file, nullptr);
    ASSERT_NE(safe, nullptr);
    EXPECT_EQ(file->className(), "CkelFileDataStorage");
    EXPECT_EQ(safe->className(), "CkelSafeMemoryStorage");
    EXPECT_EQ(file->parent(), nullptr);
    EXPECT_EQ(safe->parent(), nullptr);
    EXPECT_EQ(CkelDBStorageFactory::instance()->get(0), file);
    EXPECT_EQ(CkelDBStorageFactory::instance()->get(2), safe);
}

TEST_F(Factory, TakesAPlainNumber)
{
    EXPECT_EQ(CkelDBStorageFactory::instance()->get(1), CkelDBStorageFactory::instance()->get(Storage::MemoryStorage));
}

TEST_F(Factory, UnknownKindGivesNull)
{
    EXPECT_EQ(CkelDBStorageFactory::instance()->get(3), nullptr);
    EXPECT_EQ(CkelDBStorageFactory::instance()->get(-1), nullptr);
    EXPECT_EQ(CkelDBStorageFactory::instance()->get(static_cast<Storage::DataOperatorType>(3)), nullptr);
}

TEST_F(Factory, RuiningTwiceIsHarmless)
{
    CkelDBStorageFactory::instance();
    CkelDBStorageFactory::ruinInstance();
    CkelDBStorageFactory::ruinInstance();
    EXPECT_NE(CkelDBStorageFactory::instance(), nullptr);
}

TEST_F(Factory, StoragesOutliveARuinedFactory)
{
    std::vector<Storage*> storages;
    for (const int kind : {0, 1, 2})
        storages.push_back(CkelDBStorageFactory::instance()->get(kind));
    CkelDBStorageFactory::ruinInstance();
    EXPECT_EQ(storages[1]->className(), "CkelMemoryDataStorage");
    for (const int kind : {0, 1, 2})
        EXPECT_EQ(CkelDBStorageFactory::instance()->get(kind), storages[static_cast<std::size_t>(kind)]);
}
