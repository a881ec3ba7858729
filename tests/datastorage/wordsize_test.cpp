#include "datastorage/kelsafememorystorage.h"
#include "tests/datastorage/drivenstorage.h"
#include "tests/datastorage/filefixture.h"
#include "tests/datastorage/storagefixture.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

using namespace Ombrin;
using namespace KelTest;

// What a target could cut short where `long`, `std::size_t` and pointers have 32 bits, or put where its processor does
// not reach it.

namespace {

using Storage = CkelAbstractDataStorage;
using IDs = std::vector<unsigned int>;

class WordSize : public StorageTest
{
protected:
    /// The storage is made when first asked for, behind what the case has put into the folder.
    DrivenStorage& storage()
    {
        if (!m_storage)
            m_storage = std::make_unique<DrivenStorage>();
        return *m_storage;
    }

    /// Saves what has changed, as the timers would, and starts again.
    void restart(const std::string& configuration)
    {
        storage().tick();
        storage().write();
        m_storage.reset();
        storage().readConfigFile(configuration, true);
    }

    IDs announced()
    {
        IDs ids;
        for (const Announcement& change : listener.take())
            ids.push_back(change.id);
        return ids;
    }

private:
    std::unique_ptr<DrivenStorage> m_storage;
};

std::string text(unsigned int number)
{
    return std::to_string(number);
}

} // namespace

// --- IDs that an `int` holds as negative numbers only ---

class WideID : public WordSize, public testing::WithParamInterface<unsigned int>
{
protected:
    static unsigned int id() { return GetParam(); }

    /// What remains of the ID without its highest bit, or one that is as small.
    static unsigned int narrowID() { return std::max(id() & 0x7FFFFFFFU, 1U); }

    static void writeJson()
    {
        writeDictionary("items.json", R"({"ID":)" + text(narrowID()) +
                                          R"(,"NameID":"narrow","ValueT":9,"Value":1.5},)" + R"({"ID":)" + text(id()) +
                                          R"(,"NameID":"wide","ValueT":9,"Value":2.5})");
    }

    void expectBoth(const CkelVariant& narrow, const CkelVariant& wide)
    {
        EXPECT_EQ(storage().ID("narrow"), narrowID());
        EXPECT_EQ(storage().ID("wide"), id());
        EXPECT_EQ(storage().nameID(id()), "wide");
        EXPECT_EQ(storage().queryData(id()).ID, id());
        EXPECT_VARIANT(storage().queryValue(narrowID()), narrow);
        EXPECT_VARIANT(storage().queryValue(id()), wide);
    }
};

INSTANTIATE_TEST_SUITE_P(WordSize, WideID, testing::Values(2147483648U, 2147483649U, 3000000000U, 4294967295U));

TEST_P(WideID, IsLoadedFromJson)
{
    writeJson();
    storage().readConfigFile("items.json", false);
    expectBoth(1.5, 2.5);
}

TEST_P(WideID, IsLoadedFromAConfigurationDatabase)
{
    writeConfiguration("items.db", "(" + text(narrowID()) + ",'narrow',0,0,0,0,9,1.5,0,0,0),(" + text(id()) +
                                       ",'wide',0,0,0,0,9,2.5,0,0,0)");
    storage().readConfigFile("items.db", false);
    expectBoth(1.5, 2.5);
}

TEST_P(WideID, IsAnnouncedByEveryUpdate)
{
    writeJson();
    storage().readConfigFile("items.json", false);
    storage().updateValue(id(), 10, false);
    storage().updateValue("wide", 11, true);
    storage().updateField(id(), "Value", 12, false);
    tagStorageData record = storage().queryData(id());
    record.Value = 13;
    storage().updateData(record, false);
    storage().updateValueList(IDs{narrowID(), id()}, {14, 15}, false);
    EXPECT_EQ(announced(), (IDs{id(), id(), id(), id(), narrowID(), id()}));
}

TEST_P(WideID, IsAnnouncedByTheSafeStorage)
{
    writeJson();
    CkelSafeMemoryStorage safe;
    safe.readConfigFile("items.json", false);
    safe.updateValue(id(), 10, false);
    EXPECT_EQ(announced(), IDs{id()});
    EXPECT_VARIANT(safe.queryValue(id()), 10.0);
    EXPECT_VARIANT(safe.queryValue(narrowID()), 1.5);
}

TEST_P(WideID, ChangedValueIsSavedAndRestored)
{
    writeJson();
    storage().readConfigFile("items.json", true);
    storage().updateValue(id(), -7.25, false);
    restart("items.json");
    expectBoth(1.5, -7.25);
}

TEST_P(WideID, InsertedItemIsSavedAndRestored)
{
    writeDictionary("items.json", R"({"ID":5,"NameID":"other","ValueT":9,"Value":0})");
    storage().readConfigFile("items.json", true);
    storage().insertDataList({makeItem(narrowID(), "narrow", 1.5), makeItem(id(), "wide", 2.5)});
    restart("");
    expectBoth(1.5, 2.5);
}

TEST_P(WideID, DeletedItemIsGoneAndItsNarrowFellowStays)
{
    writeJson();
    storage().readConfigFile("items.json", true);
    storage().deleteData(id());
    storage().tick();
    storage().write();
    EXPECT_TRUE(storage().queryValue(id()).isNull());
    EXPECT_EQ(storage().ID("wide"), 0U);
    EXPECT_VARIANT(storage().queryValue(narrowID()), 1.5);
}

TEST_P(WideID, IsSelectedAsALargeNumber)
{
    writeJson();
    storage().readConfigFile("items.json", false);
    const std::vector<CkelVariant> large = storage().queryValueList(0x7FFFFFFFU, Storage::Greater);
    ASSERT_EQ(large.size(), 1U);
    EXPECT_VARIANT(large[0], 2.5);
    const std::vector<CkelVariant> between = storage().queryValueListBetween(0x80000000U, UINT_MAX);
    ASSERT_EQ(between.size(), id() < UINT_MAX ? 1U : 0U) << "the upper end is not part of a range";
    for (const CkelVariant& value : between)
        EXPECT_VARIANT(value, 2.5);
    const std::vector<CkelVariant> small = storage().queryValueList(0x80000000U, Storage::Less);
    ASSERT_EQ(small.size(), 1U);
    EXPECT_VARIANT(small[0], 1.5);
}

// --- values of 64 bits ---

namespace {

struct WideNumber
{
    const char* name;
    std::uint8_t valueType;
    CkelVariant number; ///< in the form in which a storage keeps it
};

void PrintTo(const WideNumber& wide, std::ostream* out)
{
    *out << wide.name;
}

} // namespace

class WideValue : public WordSize, public testing::WithParamInterface<WideNumber>
{
protected:
    static CkelVariant number() { return GetParam().number; }
    static unsigned int valueType() { return GetParam().valueType; }

    /// As it stands in a file; a database holds the 64 bits of unsigned numbers as signed ones.
    static std::string inJson() { return number().toStdString(); }
    static std::string inDatabase()
    {
        return number().type() == CkelVariant::ULongLong ? std::to_string(number().toLongLong()) : inJson();
    }

    static void writeItem(const std::string& number)
    {
        writeDictionary("items.json", R"({"ID":1,"NameID":"a","ValueT":)" + text(valueType()) + R"(,"Value":)" +
                                          number + R"(,"DefValue":)" + number + R"(,"Max":)" + number + R"(,"Min":)" +
                                          number + "}");
    }

    /// The item's four values are the number; one just loaded may hold it in another type.
    void expectNumbers()
    {
        const tagStorageData item = storage().queryData(1);
        for (const CkelVariant& value : {item.Value, item.DefValue, item.Max, item.Min})
            EXPECT_VARIANT(storage().toStoreValue(valueType(), value), number());
    }
};

INSTANTIATE_TEST_SUITE_P(
    WordSize, WideValue,
    testing::Values(WideNumber{"LowestSigned", 3, LLONG_MIN}, WideNumber{"BelowMinus32Bits", 3, -4294967297LL},
                    WideNumber{"BelowInt", 12, -2147483649LL}, WideNumber{"AboveInt", 14, 2147483648LL},
                    WideNumber{"LowWordZero", 3, 4294967296LL}, WideNumber{"LowWordAllOnes", 3, 0x1FFFFFFFFLL},
                    WideNumber{"BeyondDoubles", 12, 9007199254740993LL}, WideNumber{"HighestSigned", 3, LLONG_MAX},
                    WideNumber{"UnsignedAbove32Bits", 13, 4294967297ULL},
                    WideNumber{"UnsignedAboveSigned", 13, 9223372036854775808ULL},
                    WideNumber{"HighestUnsigned", 13, ULLONG_MAX}, WideNumber{"RealAbove32Bits", 9, 4294967297.5}),
    [](const testing::TestParamInfo<WideNumber>& wide) { return wide.param.name; });

TEST_P(WideValue, IsLoadedFromJson)
{
    writeItem(inJson());
    storage().readConfigFile("items.json", false);
    expectNumbers();
}

TEST_P(WideValue, IsLoadedFromAConfigurationDatabase)
{
    const std::string number = "," + inDatabase();
    writeConfiguration("items.db", "(1,'a',0,0,0,0," + text(valueType()) + number + number + number + number + ")");
    storage().readConfigFile("items.db", false);
    expectNumbers();
}

TEST_P(WideValue, IsAnnouncedByEveryUpdate)
{
    writeItem("0");
    storage().readConfigFile("items.json", false);
    const auto expectAnnounced = [this] {
        const std::vector<Announcement> events = listener.take();
        ASSERT_EQ(events.size(), 1U);
        EXPECT_VARIANT(events[0].value, number());
        EXPECT_VARIANT(storage().queryValue(1), number());
        storage().updateValue(1, 0, false);
        listener.take();
    };
    storage().updateValue(1, number(), false);
    expectAnnounced();
    storage().updateField(1, "Value", number(), false);
    expectAnnounced();
    tagStorageData record = storage().queryData(1);
    record.Value = number();
    storage().updateData(record, false);
    expectAnnounced();
}

TEST_P(WideValue, IsSavedAndRestored)
{
    writeItem("0");
    storage().readConfigFile("items.json", true);
    storage().updateValue(1, number(), false);
    restart("items.json");
    EXPECT_VARIANT(storage().queryValue(1), number());
}

TEST_P(WideValue, IsSavedAndRestoredWithItsDefaultAndBounds)
{
    writeItem(inJson());
    storage().readConfigFile("items.json", true);
    restart("");
    expectNumbers();
}

TEST_P(WideValue, IsSavedByTheDirectUpdate)
{
    writeItem("0");
    storage().readConfigFile("items.json", true);
    EXPECT_TRUE(storage().database().updateValue(1, number()));
    restart("items.json");
    EXPECT_VARIANT(storage().queryValue(1), number());
}

TEST_P(WideValue, DiffersFromItsLowWord)
{
    writeItem("0");
    storage().readConfigFile("items.json", false);
    const auto lowWord = static_cast<unsigned int>(number().toULongLong());
    storage().updateValue(1, lowWord, false);
    storage().updateValue(1, number(), false);
    EXPECT_VARIANT(storage().queryValue(1), number());
}

// --- types whose width is the target's ---

TEST_F(WordSize, LongIsTakenInItsOwnWidth)
{
    writeDictionary("items.json", R"({"ID":1,"NameID":"signed","ValueT":3,"Value":0},)"
                                  R"({"ID":2,"NameID":"unsigned","ValueT":13,"Value":0})");
    storage().readConfigFile("items.json", false);
    for (const long value : {LONG_MIN, -1L, LONG_MAX}) {
        storage().updateValue(1, value, false);
        EXPECT_VARIANT(storage().queryValue(1), static_cast<long long>(value));
    }
    storage().updateValue(2, ULONG_MAX, false);
    EXPECT_VARIANT(storage().queryValue(2), static_cast<unsigned long long>(ULONG_MAX));
}

TEST_F(WordSize, FixedWidthIntegersAreTakenWhole)
{
    writeDictionary("items.json", R"({"ID":1,"NameID":"signed","ValueT":3,"Value":0},)"
                                  R"({"ID":2,"NameID":"unsigned","ValueT":13,"Value":0})");
    storage().readConfigFile("items.json", false);
    storage().updateValue(1, std::int64_t{INT64_MIN}, false);
    EXPECT_VARIANT(storage().queryValue(1), LLONG_MIN);
    storage().updateValue(2, std::uint64_t{UINT64_MAX}, false);
    EXPECT_VARIANT(storage().queryValue(2), ULLONG_MAX);
}

// --- alignment ---

namespace {

bool isAligned(const void* place)
{
    return reinterpret_cast<std::uintptr_t>(place) % alignof(long long) == 0;
}

void expectAligned(const tagStorageData& record)
{
    for (const CkelVariant* value : {&record.Value, &record.DefValue, &record.Max, &record.Min})
        EXPECT_TRUE(isAligned(value));
    for (const CkelVariant& value : record.Reserved)
        EXPECT_TRUE(isAligned(&value));
}

} // namespace

TEST_F(WordSize, VariantsStandWhere64BitsCanBeReached)
{
    static_assert(alignof(CkelVariant) >= alignof(long long) && alignof(CkelVariant) >= alignof(double));
    static_assert(sizeof(tagStorageData) % alignof(CkelVariant) == 0);
    writeDictionary("items.json", R"({"ID":1,"NameID":"a","ValueT":9,"Value":1.5},{"ID":2,"NameID":"b","Value":2.5},)"
                                  R"({"ID":3,"NameID":"c","Value":3.5})");
    storage().readConfigFile("items.json", true);
    for (const tagStorageData& record : storage().queryDataList(IDs{1, 2, 3}))
        expectAligned(record);
    for (const tagStorageData& record : storage().database().loadMemoryDB())
        expectAligned(record);
    storage().updateValueList(IDs{1, 2, 3}, {4, 5, 6}, false);
    storage().tick();
    for (const tagDBBlock& block : storage().takeBlocks())
        for (const tagStorageData& record : block.records)
            expectAligned(record);
    for (const CkelVariant& value : storage().queryValueList(IDs{1, 2, 3}))
        EXPECT_TRUE(isAligned(&value));
}

TEST_F(WordSize, ValueOfAnEventStandsWhere64BitsCanBeReached)
{
    for (int id = 0; id < 10; ++id) {
        const auto event = std::make_unique<CkelAnyDataSensorEvent>(
            id, CkelVariant(LLONG_MAX), CkelDataSensorEvent::AnyData, CkelDataSensorEvent::NoMerge);
        EXPECT_TRUE(isAligned(&event->value()));
    }
}
