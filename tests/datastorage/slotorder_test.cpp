#include "datastorage/kelabstractdatastorage.h"
#include "datastorage/kelfiledatastorage.h"
#include "datastorage/kelmemorydatastorage.h"
#include "datastorage/kelmemorydb.h"
#include "datastorage/kelmeorydbworkthread.h"
#include "datastorage/kelsafememorystorage.h"
#include "tests/datastorage/storagefixture.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <set>
#include <type_traits>

using namespace Ombrin;
using namespace KelTest;

// Other libraries are compiled against these virtual tables. The numbers here come from the compiler: a pointer to a
// virtual member function holds the place of its entry in the table.

namespace {

using Storage = CkelAbstractDataStorage;
using IDs = std::vector<unsigned int>;
using Names = std::vector<std::string>;
using Values = std::vector<CkelVariant>;
using Records = std::vector<tagStorageData>;
using Text = const std::string&;
using Value = const CkelVariant&;
using Field = Storage::FieldType;
using Op = Storage::Operator;

template <typename Signature, typename Class>
std::size_t slotOf(Signature Class::*function)
{
    struct
    {
        std::ptrdiff_t place;
        std::ptrdiff_t adjustment;
    } raw;
    static_assert(sizeof(raw) == sizeof(function));
    std::memcpy(&raw, &function, sizeof(raw));
#if defined(__arm__) || defined(__aarch64__)
    EXPECT_TRUE(raw.adjustment & 1) << "not virtual";
    return static_cast<std::size_t>(raw.place) / sizeof(void*);
#else
    EXPECT_TRUE(raw.place & 1) << "not virtual";
    return static_cast<std::size_t>(raw.place - 1) / sizeof(void*);
#endif
}

const void* entryOf(const CkelObject& object, std::size_t slot)
{
    const void* const* table = nullptr;
    std::memcpy(&table, static_cast<const void*>(&object), sizeof(table));
    return table[slot];
}

// The destructor takes the first two places.
/// Explicit instantiation may name a private member.
template <int Position, auto Member>
struct ReachMember
{
    friend const void* addressOfMember(const CkelMemoryDataStorage& storage, std::integral_constant<int, Position>)
    {
        return &(storage.*Member);
    }
};
const void* addressOfMember(const CkelMemoryDataStorage& storage, std::integral_constant<int, 0>);
const void* addressOfMember(const CkelMemoryDataStorage& storage, std::integral_constant<int, 1>);
const void* addressOfMember(const CkelMemoryDataStorage& storage, std::integral_constant<int, 2>);
const void* addressOfMember(const CkelMemoryDataStorage& storage, std::integral_constant<int, 3>);
const void* addressOfMember(const CkelMemoryDataStorage& storage, std::integral_constant<int, 4>);
const void* addressOfMember(const CkelMemoryDataStorage& storage, std::integral_constant<int, 5>);
template struct ReachMember<0, &CkelMemoryDataStorage::m_idMap>;
template struct ReachMember<1, &CkelMemoryDataStorage::m_nameMap>;
template struct ReachMember<2, &CkelMemoryDataStorage::m_loadedData>;
template struct ReachMember<3, &CkelMemoryDataStorage::m_mutex>;
template struct ReachMember<4, &CkelMemoryDataStorage::m_memoryDB>;
template struct ReachMember<5, &CkelMemoryDataStorage::m_timerId>;

constexpr std::size_t firstObjectSlot = 2;
constexpr std::size_t firstStorageSlot = 11;
constexpr std::size_t storageSlotCount = 53;
constexpr std::size_t firstOwnSlot = firstStorageSlot + storageSlotCount;

std::vector<std::size_t> storageSlots()
{
    return {
        slotOf<std::string(unsigned int) const, Storage>(&Storage::nameID),
        slotOf<unsigned int(Text) const, Storage>(&Storage::ID),
        slotOf<unsigned int(unsigned int) const, Storage>(&Storage::commSource),
        slotOf<unsigned int(Text) const, Storage>(&Storage::commSource),
        slotOf<CkelVariant(unsigned int, Value) const, Storage>(&Storage::toStoreValue),
        slotOf<Names(const IDs&) const, Storage>(&Storage::nameIDList),
        slotOf<IDs(const Names&) const, Storage>(&Storage::IDList),
        slotOf<IDs(const IDs&) const, Storage>(&Storage::commSourceList),
        slotOf<IDs(const Names&) const, Storage>(&Storage::commSourceList),
        slotOf<void(const tagStorageData&), Storage>(&Storage::insertData),
        slotOf<void(const Records&), Storage>(&Storage::insertDataList),
        slotOf<void(unsigned int), Storage>(&Storage::deleteData),
        slotOf<void(Text), Storage>(&Storage::deleteData),
        slotOf<void(const IDs&), Storage>(&Storage::deleteDataList),
        slotOf<void(const Names&), Storage>(&Storage::deleteDataList),
        slotOf<void(unsigned int, Op), Storage>(&Storage::deleteDataList),
        slotOf<void(unsigned int, unsigned int), Storage>(&Storage::deleteDataListBetween),
        slotOf<void(std::string, Field, Value, Op), Storage>(&Storage::deleteDataListByField),
        slotOf<CkelVariant(unsigned int) const, Storage>(&Storage::queryValue),
        slotOf<CkelVariant(Text) const, Storage>(&Storage::queryValue),
        slotOf<Values(const IDs&) const, Storage>(&Storage::queryValueList),
        slotOf<Values(const Names&), Storage>(&Storage::queryValueList),
        slotOf<tagStorageData(unsigned int) const, Storage>(&Storage::queryData),
        slotOf<tagStorageData(Text) const, Storage>(&Storage::queryData),
        slotOf<Records(const IDs&) const, Storage>(&Storage::queryDataList),
        slotOf<Records(const Names&) const, Storage>(&Storage::queryDataList),
        slotOf<CkelVariant(unsigned int, Text, Field) const, Storage>(&Storage::queryField),
        slotOf<CkelVariant(Text, Text, Field) const, Storage>(&Storage::queryField),
        slotOf<Values(const IDs&, Text, Field) const, Storage>(&Storage::queryFieldList),
        slotOf<Values(const Names&, Text, Field) const, Storage>(&Storage::queryFieldList),
        slotOf<Values(unsigned int, Op) const, Storage>(&Storage::queryValueList),
        slotOf<Records(unsigned int, Op) const, Storage>(&Storage::queryDataList),
        slotOf<Values(unsigned int, unsigned int) const, Storage>(&Storage::queryValueListBetween),
        slotOf<Records(unsigned int, unsigned int) const, Storage>(&Storage::queryDataListBetween),
        slotOf<Values(unsigned int, Text, Field, Op) const, Storage>(&Storage::queryFieldList),
        slotOf<Values(unsigned int, unsigned int, Text, Field) const, Storage>(&Storage::queryFieldListBetween),
        slotOf<CkelVariant(unsigned int, Value, bool), Storage>(&Storage::updateValue),
        slotOf<CkelVariant(Text, Value, bool), Storage>(&Storage::updateValue),
        slotOf<void(unsigned int, Text, Value, bool), Storage>(&Storage::updateField),
        slotOf<void(Text, Text, Value, bool), Storage>(&Storage::updateField),
        slotOf<void(const tagStorageData&, bool), Storage>(&Storage::updateData),
        slotOf<void(const IDs&, const Values&, bool), Storage>(&Storage::updateValueList),
        slotOf<void(const IDs&, Text, const Values&, bool), Storage>(&Storage::updateFieldList),
        slotOf<void(const Names&, const Values&, bool), Storage>(&Storage::updateValueList),
        slotOf<void(const Names&, Text, const Values&, bool), Storage>(&Storage::updateFieldList),
        slotOf<void(const Records&, bool), Storage>(&Storage::updateDataList),
        slotOf<Values(Text, Field, Value, Op) const, Storage>(&Storage::queryValueListByField),
        slotOf<Records(Text, Field, Value, Op) const, Storage>(&Storage::queryDataListByField),
        slotOf<void(), Storage>(&Storage::reset),
        slotOf<void(Text, bool), Storage>(&Storage::readConfigFile),
        slotOf<bool(bool), Storage>(&Storage::loadLocalDB),
        slotOf<bool() const, Storage>(&Storage::hasLocalDB),
        slotOf<CkelMutex*(), Storage>(&Storage::mutex),
    };
}

/// The numbers (1 to 53, in the order of storageSlots) of the interface operations that `storage` does not override.
std::set<std::size_t> keptDefaults(const CkelObject& storage)
{
    const Storage interface(nullptr);
    std::set<std::size_t> kept;
    for (std::size_t number = 1; number <= storageSlotCount; ++number) {
        const std::size_t slot = firstStorageSlot + number - 1;
        if (entryOf(storage, slot) == entryOf(interface, slot))
            kept.insert(number);
    }
    return kept;
}

class SlotOrder : public FolderTest
{};

} // namespace

TEST_F(SlotOrder, ObjectOperationsComeFirst)
{
    const std::vector<std::size_t> slots{
        slotOf<void(Text), CkelObject>(&CkelObject::setName),
        slotOf<bool(CkelEvent*), CkelObject>(&CkelObject::event),
        slotOf<bool(CkelObject*, CkelEvent*), CkelObject>(&CkelObject::eventFilter),
        slotOf<void(CkelTimerEvent*), CkelObject>(&CkelObject::timerEvent),
        slotOf<void(CkelChildEvent*), CkelObject>(&CkelObject::childEvent),
        slotOf<void(CkelCustomEvent*), CkelObject>(&CkelObject::customEvent),
        slotOf<void(CkelDataSensorEvent*), CkelObject>(&CkelObject::dataSensorEvent),
        slotOf<bool(unsigned int, unsigned short, unsigned int), CkelObject>(&CkelObject::winProc),
        slotOf<bool(CkelMetaProperty::Call, const char*, void**), CkelObject>(&CkelObject::kel_metacall),
    };
    for (std::size_t i = 0; i < slots.size(); ++i)
        EXPECT_EQ(slots[i], firstObjectSlot + i);
    EXPECT_EQ(firstObjectSlot + slots.size(), firstStorageSlot);
}

TEST_F(SlotOrder, StorageOperationsFollowInTheirOrder)
{
    const std::vector<std::size_t> slots = storageSlots();
    ASSERT_EQ(slots.size(), storageSlotCount);
    for (std::size_t i = 0; i < slots.size(); ++i)
        EXPECT_EQ(slots[i], firstStorageSlot + i) << "operation " << i + 1;
}

TEST_F(SlotOrder, MemoryStorageAddsItsTwoOperationsBehindTheInterface)
{
    using Memory = CkelMemoryDataStorage;
    EXPECT_EQ((slotOf<IDs(const Names&), Memory>(&Memory::commSourceList)), firstOwnSlot);
    EXPECT_EQ((slotOf<bool(), Memory>(&Memory::loadLocalDB)), firstOwnSlot + 1);
}

TEST_F(SlotOrder, MemoryStorageKeepsTwoDefaults)
{
    const CkelMemoryDataStorage storage;
    EXPECT_EQ(keptDefaults(storage), (std::set<std::size_t>{9, 51}));
}

TEST_F(SlotOrder, SafeStorageAddsItsTwoOperationsBehindTheInterface)
{
    using Safe = CkelSafeMemoryStorage;
    EXPECT_EQ((slotOf<IDs(const Names&), Safe>(&Safe::commSourceList)), firstOwnSlot);
    EXPECT_EQ((slotOf<bool(), Safe>(&Safe::loadLocalDB)), firstOwnSlot + 1);
}

TEST_F(SlotOrder, SafeStorageKeepsFourDefaults)
{
    const CkelSafeMemoryStorage storage;
    EXPECT_EQ(keptDefaults(storage), (std::set<std::size_t>{5, 9, 51, 53}));
}

TEST_F(SlotOrder, FileStorageAddsItsThirteenOperationsBehindTheInterface)
{
    using File = CkelFileDataStorage;
    const std::vector<std::size_t> slots{
        slotOf<IDs(IDs&) const, File>(&File::comSourceList),
        slotOf<IDs(Names&) const, File>(&File::comSourceList),
        slotOf<CkelVariant(unsigned int, Value), File>(&File::updateValue),
        slotOf<CkelVariant(Text, Value), File>(&File::updateValue),
        slotOf<void(unsigned int, Text, Value), File>(&File::updateField),
        slotOf<void(Text, Text, Value), File>(&File::updateField),
        slotOf<void(const tagStorageData&), File>(&File::updateData),
        slotOf<void(const IDs&, const Values&), File>(&File::updateValueList),
        slotOf<void(const IDs&, Text, const Values&), File>(&File::updateFieldList),
        slotOf<void(const Names&, const Values&), File>(&File::updateValueList),
        slotOf<void(const Names&, Text, const Values&), File>(&File::updateFieldList),
        slotOf<void(const Records&), File>(&File::updateDataList),
        slotOf<bool(), File>(&File::loadLocalDB),
    };
    ASSERT_EQ(slots.size(), 13U);
    for (std::size_t i = 0; i < slots.size(); ++i)
        EXPECT_EQ(slots[i], firstOwnSlot + i) << "own operation " << i + 1;
}

TEST_F(SlotOrder, FileStorageKeepsTheUpdatesAndFiveMoreDefaults)
{
    const CkelFileDataStorage storage;
    EXPECT_EQ(keptDefaults(storage), (std::set<std::size_t>{5, 8, 9, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 51, 52}));
}

TEST_F(SlotOrder, OnlyTheMemoryStorageOverridesAnObjectOperation)
{
    const std::size_t timerEvent = slotOf<void(CkelTimerEvent*), CkelObject>(&CkelObject::timerEvent);
    const CkelObject object;
    const CkelMemoryDataStorage memory;
    const CkelSafeMemoryStorage safe;
    const CkelFileDataStorage file;
    for (std::size_t slot = firstObjectSlot; slot < firstStorageSlot; ++slot) {
        EXPECT_EQ(entryOf(memory, slot) != entryOf(object, slot), slot == timerEvent) << slot;
        EXPECT_EQ(entryOf(safe, slot), entryOf(object, slot)) << slot;
        EXPECT_EQ(entryOf(file, slot), entryOf(object, slot)) << slot;
    }
}

TEST_F(SlotOrder, PersistenceObjectOverridesNothingButTheDestructor)
{
    const CkelObject object;
    const CkelMemoryDB database;
    for (std::size_t slot = firstObjectSlot; slot < firstStorageSlot; ++slot)
        EXPECT_EQ(entryOf(database, slot), entryOf(object, slot)) << slot;
}

TEST_F(SlotOrder, WorkThreadRunsBehindTheObjectOperations)
{
    EXPECT_EQ((slotOf<void(), CkelMeoryDBWorkThread>(&CkelMeoryDBWorkThread::run)), firstStorageSlot);
}

TEST_F(SlotOrder, MembersOfTheMemoryStorageStandInTheirOrderBeforeAllOthers)
{
    const CkelMemoryDataStorage storage;
    const void* const members[] = {
        reinterpret_cast<const char*>(&storage) + sizeof(CkelAbstractDataStorage),
        addressOfMember(storage, std::integral_constant<int, 0>()),
        addressOfMember(storage, std::integral_constant<int, 1>()),
        addressOfMember(storage, std::integral_constant<int, 2>()),
        addressOfMember(storage, std::integral_constant<int, 3>()),
        addressOfMember(storage, std::integral_constant<int, 4>()),
        addressOfMember(storage, std::integral_constant<int, 5>()),
    };
    EXPECT_EQ(members[0], members[1]) << "nothing stands before the first";
    EXPECT_TRUE(std::is_sorted(std::begin(members), std::end(members)));
    EXPECT_EQ(static_cast<const char*>(members[2]) - static_cast<const char*>(members[1]),
              static_cast<std::ptrdiff_t>(sizeof(void*)));
    EXPECT_EQ(static_cast<const char*>(members[3]) - static_cast<const char*>(members[2]),
              static_cast<std::ptrdiff_t>(sizeof(void*)))
        << "nothing stands between";
}
