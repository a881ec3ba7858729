#include "tests/datastorage/storagefixture.h"

#include <cmath>
#include <limits>

using namespace Ombrin;
using namespace KelTest;

namespace {

constexpr std::uint8_t clean = DirtyClean;
constexpr std::uint8_t inserted = DirtyInserted;
constexpr std::uint8_t modified = DirtyModified;

class FieldAccess : public StorageTest
{
protected:
    LoadedStorage storage{{makeItem(1, "one", 1.5), makeItem(2, "two", 2.5)}};

    CkelVariant field(const std::string& name) const { return storage.queryField(1, name, anyType); }
    std::uint8_t mark() const { return storage.queryData(1).Dirty; }
    void setMark(int value) { storage.updateField(1, "Dirty", value, false); }
    void write(const std::string& name, const CkelVariant& value) { storage.updateField(1, name, value, false); }
};

const char* const attributes[] = {"RW", "Block", "CommSource", "DefValue", "Max", "Min"};

constexpr unsigned int signedCodes[] = {1, 2, 3, 4, 5, 6, 7, 11, 12, 14};
constexpr unsigned int realCodes[] = {8, 9};
constexpr unsigned int unsignedCodes[] = {13, 16};
constexpr unsigned int codesWithoutForm[] = {0, 15, 17, 255, 256 + 9, 4294967295U};

} // namespace

// Reading

TEST_F(FieldAccess, ReadsEveryReadableField)
{
    EXPECT_VARIANT(field("ID"), 1U);
    EXPECT_VARIANT(field("NameID"), "one");
    EXPECT_VARIANT(field("CommSource"), 2);
    EXPECT_VARIANT(field("RW"), 3);
    EXPECT_VARIANT(field("Block"), 4);
    EXPECT_VARIANT(field("ValueT"), 9);
    EXPECT_VARIANT(field("Value"), 1.5);
    EXPECT_VARIANT(field("DefValue"), 10.0);
    EXPECT_VARIANT(field("Max"), 100.0);
    EXPECT_VARIANT(field("Min"), -100.0);
}

TEST_F(FieldAccess, MarkAndSourceAreNotReadable)
{
    EXPECT_TRUE(field("Dirty").isNull());
    EXPECT_TRUE(field("DBSource").isNull());
}

TEST_F(FieldAccess, NamesAreExactAndCaseSensitive)
{
    for (const char* const name : {"", "value", "VALUE", "Value ", " Value", "Reserved", "Unit", "CUnit"})
        EXPECT_TRUE(field(name).isNull()) << name;
    EXPECT_TRUE(field(std::string("Value\0", 6)).isNull());
}

TEST_F(FieldAccess, FieldTypeIsNotConsulted)
{
    for (const int type : {0, 1, 2, 3, 99, -1})
        EXPECT_VARIANT(storage.queryField(1, "Value", static_cast<CkelAbstractDataStorage::FieldType>(type)), 1.5);
}

TEST_F(FieldAccess, ReadsByName)
{
    EXPECT_VARIANT(storage.queryField("two", "Value", anyType), 2.5);
    EXPECT_TRUE(storage.queryField("nobody", "Value", anyType).isNull());
}

TEST_F(FieldAccess, AbsentAndDeletedItemsReadAsNull)
{
    storage.deleteData(2);
    for (const char* const name : {"ID", "NameID", "CommSource", "Value"}) {
        EXPECT_TRUE(storage.queryField(99, name, anyType).isNull()) << name;
        EXPECT_TRUE(storage.queryField(2, name, anyType).isNull()) << name;
        EXPECT_TRUE(storage.queryField("two", name, anyType).isNull()) << name;
    }
}

TEST_F(FieldAccess, ListsReadOneResultForEachElement)
{
    const auto byID = storage.queryFieldList(std::vector<unsigned int>{2, 99, 1}, "Value", anyType);
    const auto byName = storage.queryFieldList(std::vector<std::string>{"two", "nobody", "one"}, "Value", anyType);
    for (const auto& values : {byID, byName}) {
        ASSERT_EQ(values.size(), 3U);
        EXPECT_VARIANT(values[0], 2.5);
        EXPECT_TRUE(values[1].isNull());
        EXPECT_VARIANT(values[2], 1.5);
    }
}

TEST_F(FieldAccess, ReadsTheRecordThroughTheInterface)
{
    class Renamed : public LoadedStorage
    {
    public:
        Renamed() : LoadedStorage({makeItem(1, "one")}) {}
        using LoadedStorage::queryData;
        tagStorageData queryData(unsigned int id) const override
        {
            tagStorageData record = LoadedStorage::queryData(id);
            record.NameID = "renamed";
            return record;
        }
    };
    EXPECT_VARIANT(Renamed().queryField(1, "NameID", anyType), "renamed");
}

// Writing

TEST_F(FieldAccess, WritesByteFieldsAndMarksModified)
{
    write("RW", 11);
    write("Block", "12");
    write("CommSource", 13.4);
    const tagStorageData item = storage.queryData(1);
    EXPECT_EQ(item.RW, 11);
    EXPECT_EQ(item.Block, 12);
    EXPECT_EQ(item.CommSource, 13);
    EXPECT_EQ(item.Dirty, modified);
    EXPECT_TRUE(listener.take().empty());
}

TEST_F(FieldAccess, ByteFieldsAreCutToEightBits)
{
    write("RW", 300);
    EXPECT_VARIANT(field("RW"), 44);
    write("Block", -1);
    EXPECT_VARIANT(field("Block"), 255);
    write("CommSource", "no number");
    EXPECT_VARIANT(field("CommSource"), 0);
}

TEST_F(FieldAccess, WritesBoundsAndDefaultConverted)
{
    write("DefValue", 5);
    write("Max", "6.5");
    write("Min", true);
    EXPECT_VARIANT(field("DefValue"), 5.0);
    EXPECT_VARIANT(field("Max"), 6.5);
    EXPECT_VARIANT(field("Min"), 1.0);
    EXPECT_EQ(mark(), modified);
    EXPECT_TRUE(listener.take().empty());
}

TEST_F(FieldAccess, EveryAttributeWriteMarksEvenWithoutADifference)
{
    for (const char* const name : attributes) {
        setMark(clean);
        write(name, field(name));
        EXPECT_EQ(mark(), modified) << name;
    }
}

TEST_F(FieldAccess, RefusedConversionStoresNullAndMarks)
{
    for (const char* const name : {"DefValue", "Max", "Min"}) {
        setMark(clean);
        write(name, "no number");
        EXPECT_TRUE(field(name).isNull()) << name;
        EXPECT_EQ(mark(), modified) << name;
    }
}

TEST_F(FieldAccess, NullValueChangesNothing)
{
    const tagStorageData before = storage.queryData(1);
    for (const char* const name : attributes) {
        const CkelVariant old = field(name);
        write(name, CkelVariant());
        EXPECT_VARIANT(field(name), old);
    }
    write("Dirty", CkelVariant());
    write("Value", CkelVariant());
    EXPECT_EQ(mark(), clean);
    EXPECT_VARIANT(field("Value"), before.Value);
}

TEST_F(FieldAccess, AttributesOfAnInsertedItemAreClosed)
{
    setMark(inserted);
    for (const char* const name : attributes) {
        const CkelVariant old = field(name);
        write(name, 77);
        EXPECT_VARIANT(field(name), old);
        EXPECT_EQ(mark(), inserted) << name;
    }
}

TEST_F(FieldAccess, AttributesOfADeletedItemAreClosed)
{
    storage.deleteData(1);
    for (const char* const name : attributes)
        write(name, 77);
    setMark(clean);
    EXPECT_VARIANT(field("RW"), 3);
    EXPECT_VARIANT(field("Block"), 4);
    EXPECT_VARIANT(field("CommSource"), 2);
    EXPECT_VARIANT(field("DefValue"), 10.0);
    EXPECT_VARIANT(field("Max"), 100.0);
    EXPECT_VARIANT(field("Min"), -100.0);
}

TEST_F(FieldAccess, AttributesOfAModifiedItemAreOpen)
{
    setMark(modified);
    write("RW", 1);
    EXPECT_VARIANT(field("RW"), 1);
}

TEST_F(FieldAccess, ValueOfAnInsertedItemIsOpen)
{
    setMark(inserted);
    write("Value", 7);
    EXPECT_VARIANT(field("Value"), 7.0);
    EXPECT_EQ(mark(), modified);
}

TEST_F(FieldAccess, OddMarksCloseAttributesByTheirBits)
{
    setMark(5); // 5 without its bit of value 2 is 5
    write("RW", 1);
    EXPECT_VARIANT(field("RW"), 1);
}

TEST_F(FieldAccess, ReadOnlyAndUnknownNamesAreIgnored)
{
    for (const char* const name : {"ID", "NameID", "ValueT", "DBSource", "Reserved", "rw", ""})
        write(name, 8);
    const tagStorageData item = storage.queryData(1);
    EXPECT_EQ(item.NameID, "one");
    EXPECT_EQ(item.ValueT, 9);
    EXPECT_EQ(item.DBSource, 1);
    EXPECT_EQ(item.RW, 3);
    EXPECT_EQ(item.Dirty, clean);
}

TEST_F(FieldAccess, WritingTheValueIsAnUpdateOfTheValue)
{
    storage.updateField(1, "Value", "7.5", true);
    EXPECT_VARIANT(field("Value"), 7.5);
    EXPECT_EQ(mark(), modified);
    const auto events = listener.take();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_VARIANT(events[0].value, 7.5);
    EXPECT_EQ(events[0].merge, 1);
}

TEST_F(FieldAccess, WritingTheMarkSetsItInAnyState)
{
    for (const int value : {1, 2, 0}) {
        setMark(value);
        EXPECT_EQ(mark(), value);
    }
    setMark(258);
    EXPECT_EQ(mark(), 2);
}

TEST_F(FieldAccess, WritingACleanMarkRevivesADeletedItem)
{
    storage.deleteData(1);
    setMark(clean);
    EXPECT_VARIANT(storage.queryValue(1), 1.5);
    EXPECT_EQ(mark(), clean);
}

TEST_F(FieldAccess, WritingTheDeletedMarkHidesTheItem)
{
    setMark(DirtyDeleted);
    EXPECT_TRUE(storage.queryValue(1).isNull());
}

TEST_F(FieldAccess, WritesByName)
{
    storage.updateField("two", "RW", 9, false);
    EXPECT_VARIANT(storage.queryField(2, "RW", anyType), 9);
    storage.updateField("two", "Value", 9, false);
    EXPECT_VARIANT(storage.queryValue(2), 9.0);
}

TEST_F(FieldAccess, WritingMissingItemsDoesNothing)
{
    for (const char* const name : {"RW", "Max", "Dirty", "Value"}) {
        storage.updateField(99, name, 1, false);
        storage.updateField("nobody", name, 1, false);
    }
    EXPECT_EQ(storage.queryData(99).ID, 0U);
    EXPECT_TRUE(listener.take().empty());
}

TEST_F(FieldAccess, DeletedItemIsNotReachedByName)
{
    storage.deleteData("one");
    storage.updateField("one", "Dirty", 0, false);
    EXPECT_TRUE(storage.queryValue(1).isNull());
}

TEST_F(FieldAccess, ListsWriteInOrder)
{
    storage.updateFieldList(std::vector<unsigned int>{1, 2, 1}, "RW", {5, 6, 7}, false);
    EXPECT_VARIANT(field("RW"), 7);
    EXPECT_VARIANT(storage.queryField(2, "RW", anyType), 6);
    storage.updateFieldList(std::vector<std::string>{"one", "two"}, "Block", {8, 9}, false);
    EXPECT_VARIANT(field("Block"), 8);
    EXPECT_VARIANT(storage.queryField(2, "Block", anyType), 9);
}

TEST_F(FieldAccess, ListsThatDoNotPairUpWriteNothing)
{
    storage.updateFieldList(std::vector<unsigned int>{1, 2}, "RW", {5}, false);
    storage.updateFieldList(std::vector<std::string>{"one", "two"}, "RW", {5}, false);
    storage.updateFieldList(std::vector<unsigned int>(), "RW", {}, false);
    EXPECT_VARIANT(field("RW"), 3);
    EXPECT_EQ(mark(), clean);
}

// Conversion

TEST_F(FieldAccess, IntegerCodesStoreSigned64Bits)
{
    for (const unsigned int code : signedCodes) {
        EXPECT_VARIANT(storage.toStoreValue(code, 3), 3LL) << code;
        EXPECT_VARIANT(storage.toStoreValue(code, 3.7), 4LL);
        EXPECT_VARIANT(storage.toStoreValue(code, -2.5), -3LL);
        EXPECT_VARIANT(storage.toStoreValue(code, "-17"), -17LL);
        EXPECT_VARIANT(storage.toStoreValue(code, true), 1LL);
        EXPECT_VARIANT(storage.toStoreValue(code, std::numeric_limits<long long>::min()),
                       std::numeric_limits<long long>::min());
        EXPECT_TRUE(storage.toStoreValue(code, "no number").isNull());
        EXPECT_TRUE(storage.toStoreValue(code, std::nan("")).isNull());
        EXPECT_TRUE(storage.toStoreValue(code, CkelVariant()).isNull());
    }
}

TEST_F(FieldAccess, RealCodesStoreDoubles)
{
    for (const unsigned int code : realCodes) {
        EXPECT_VARIANT(storage.toStoreValue(code, 3), 3.0) << code;
        EXPECT_VARIANT(storage.toStoreValue(code, "3.5"), 3.5);
        EXPECT_VARIANT(storage.toStoreValue(code, std::nan("")), std::nan(""));
        EXPECT_TRUE(storage.toStoreValue(code, "3,5").isNull());
        EXPECT_TRUE(storage.toStoreValue(code, CkelVariant()).isNull());
    }
}

TEST_F(FieldAccess, TextCodeStoresText)
{
    EXPECT_VARIANT(storage.toStoreValue(10, "text"), "text");
    EXPECT_VARIANT(storage.toStoreValue(10, 3.5), "3.5");
    EXPECT_VARIANT(storage.toStoreValue(10, true), "true");
    EXPECT_TRUE(storage.toStoreValue(10, CkelVariant()).isNull());
}

TEST_F(FieldAccess, UnsignedCodesStoreUnsigned64Bits)
{
    for (const unsigned int code : unsignedCodes) {
        EXPECT_VARIANT(storage.toStoreValue(code, 3), 3ULL) << code;
        EXPECT_VARIANT(storage.toStoreValue(code, std::numeric_limits<unsigned long long>::max()),
                       std::numeric_limits<unsigned long long>::max());
        EXPECT_VARIANT(storage.toStoreValue(code, "18446744073709551615"),
                       std::numeric_limits<unsigned long long>::max());
        EXPECT_VARIANT(storage.toStoreValue(code, -1), std::numeric_limits<unsigned long long>::max());
        EXPECT_VARIANT(storage.toStoreValue(code, -1.0), 0ULL);
        EXPECT_TRUE(storage.toStoreValue(code, "").isNull());
        EXPECT_TRUE(storage.toStoreValue(code, CkelVariant()).isNull());
    }
}

TEST_F(FieldAccess, OtherCodesHaveNoStoredForm)
{
    for (const unsigned int code : codesWithoutForm) {
        EXPECT_TRUE(storage.toStoreValue(code, 3).isNull()) << code;
        EXPECT_TRUE(storage.toStoreValue(code, "text").isNull()) << code;
    }
}
