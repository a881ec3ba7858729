#include "datastorage/kelitemindex.h"
#include "tests/datastorage/storagefixture.h"

using namespace Ombrin;
using namespace KelTest;

namespace {

/// Explicit instantiation may name private members.
template <auto Member>
struct ReachIndex
{
    friend auto& indexOf(CkelMemoryDataStorage& storage) { return storage.*Member; }
};
auto& indexOf(CkelMemoryDataStorage& storage);
template struct ReachIndex<&CkelMemoryDataStorage::m_idMap>;

/// 5,000 items whose IDs collide when they are multiplied by the table's first multiplier.
std::vector<tagStorageData> collidingItems()
{
    std::vector<tagStorageData> items;
    for (unsigned int i = 1; i <= 5000; ++i)
        items.push_back(makeItem(i * 0x0E8B2F51U, "item" + std::to_string(i)));
    return items;
}

using ItemIndex = StorageTest;

} // namespace

TEST_F(ItemIndex, OfALoadedDictionaryFindsCollidingIDsWithFewProbes)
{
    LoadedStorage storage(collidingItems());
    EXPECT_LE(indexOf(storage)->collisions(), 2500U);
}

TEST_F(ItemIndex, FindsCollidingIDsThatAreInsertedOneByOneWithFewProbes)
{
    LoadedStorage storage({});
    storage.insertDataList(collidingItems());
    EXPECT_LE(indexOf(storage)->collisions(), 5000U * 32);
}
