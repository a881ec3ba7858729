#include "datastorage/kelstoragedata.h"
#include "tests/datastorage/storagefixture.h"

#include <memory>
#include <type_traits>
#include <utility>

using namespace Ombrin;
using namespace KelTest;

namespace {

constexpr const char* longText = "a text too long to be stored inside a string object";

tagStorageData fullItem()
{
    tagStorageData item = makeItem(7, longText, 1.5);
    item.Dirty = DirtyModified;
    for (std::size_t i = 0; i < item.Reserved.size(); ++i)
        item.Reserved[i] = std::string(longText) + std::to_string(i);
    return item;
}

void expectSame(const tagStorageData& a, const tagStorageData& b)
{
    EXPECT_EQ(a.ID, b.ID);
    EXPECT_EQ(a.NameID, b.NameID);
    EXPECT_EQ(a.CommSource, b.CommSource);
    EXPECT_EQ(a.DBSource, b.DBSource);
    EXPECT_EQ(a.RW, b.RW);
    EXPECT_EQ(a.Block, b.Block);
    EXPECT_EQ(a.ValueT, b.ValueT);
    EXPECT_VARIANT(a.Value, b.Value);
    EXPECT_VARIANT(a.DefValue, b.DefValue);
    EXPECT_VARIANT(a.Max, b.Max);
    EXPECT_VARIANT(a.Min, b.Min);
    EXPECT_EQ(a.Dirty, b.Dirty);
    for (std::size_t i = 0; i < a.Reserved.size(); ++i)
        EXPECT_VARIANT(a.Reserved[i], b.Reserved[i]);
}

} // namespace

TEST(StorageData, ValueInitialisedRecordIsAllZeroAndNull)
{
    const tagStorageData item{};
    EXPECT_EQ(item.ID, 0U);
    EXPECT_EQ(item.NameID, "");
    EXPECT_EQ(item.CommSource + item.DBSource + item.RW + item.Block + item.ValueT + item.Dirty, 0);
    for (const CkelVariant& value : {item.Value, item.DefValue, item.Max, item.Min})
        EXPECT_TRUE(value.isNull());
    for (const CkelVariant& value : item.Reserved)
        EXPECT_TRUE(value.isNull());
}

TEST(StorageData, FieldsAreDeclaredInTheOrderOfTheBinaryInterface)
{
    const tagStorageData item{};
    const void* const members[] = {&item.ID,    &item.NameID, &item.CommSource, &item.DBSource, &item.RW,
                                   &item.Block, &item.ValueT, &item.Value,      &item.DefValue, &item.Max,
                                   &item.Min,   &item.Dirty,  &item.Reserved};
    for (std::size_t i = 1; i < std::size(members); ++i)
        EXPECT_LT(members[i - 1], members[i]) << "member " << i;
}

TEST(StorageData, RecordStaysWithinItsSizeBudget)
{
    EXPECT_LE(sizeof(tagStorageData), sizeof(void*) == 4 ? 240U : 248U);
}

TEST(StorageData, DeclaresNoInitialisers)
{
    EXPECT_TRUE(std::is_aggregate_v<tagStorageData>);
}

TEST(StorageData, CopyTakesEveryFieldAndAllReservedSlots)
{
    const tagStorageData item = fullItem();
    const tagStorageData copy(item);
    expectSame(copy, item);
    tagStorageData assigned{};
    assigned = item;
    expectSame(assigned, item);
}

TEST(StorageData, CopyOutlivesTheOriginal)
{
    auto item = std::make_unique<tagStorageData>(fullItem());
    const tagStorageData copy(*item);
    item.reset();
    expectSame(copy, fullItem());
}

TEST(StorageData, MovedFromRecordHasValidEmptyMembers)
{
    tagStorageData item = fullItem();
    const tagStorageData taken(std::move(item));
    expectSame(taken, fullItem());
    EXPECT_TRUE(item.NameID.empty()); // NOLINT(bugprone-use-after-move): this is what is looked at
    EXPECT_TRUE(item.Value.isNull());
    for (const CkelVariant& value : item.Reserved)
        EXPECT_TRUE(value.isNull());
    item = fullItem();
    expectSame(item, fullItem());
}

TEST(StorageData, ChangeMarksHaveTheirNumbers)
{
    EXPECT_EQ(DirtyClean, 0);
    EXPECT_EQ(DirtyInserted, 1);
    EXPECT_EQ(DirtyModified, 2);
    EXPECT_EQ(DirtyDeleted, 3);
}

TEST(StorageData, EnumerationsHaveTheirNumbers)
{
    using Storage = CkelAbstractDataStorage;
    EXPECT_EQ(Storage::FileStorage, 0);
    EXPECT_EQ(Storage::MemoryStorage, 1);
    EXPECT_EQ(Storage::SafeMemoryStorage, 2);
    EXPECT_EQ(Storage::Equal, 1);
    EXPECT_EQ(Storage::NotEqual, 2);
    EXPECT_EQ(Storage::Less, 3);
    EXPECT_EQ(Storage::Greater, 4);
    EXPECT_EQ(Storage::LessEqual, 5);
    EXPECT_EQ(Storage::GreaterEqual, 6);
    static_assert(std::is_same_v<std::underlying_type_t<Storage::Operator>, int>);
    static_assert(std::is_same_v<std::underlying_type_t<Storage::DataOperatorType>, int>);
    static_assert(std::is_same_v<std::underlying_type_t<Storage::FieldType>, int>);
}
