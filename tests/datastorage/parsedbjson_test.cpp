#undef NDEBUG // RapidJSON's functions are shared with the parser, whose checks hold in every build

#include "datastorage/kelparsedbjson.h"

#include "tests/datastorage/filefixture.h"
#include "tests/datastorage/storagefixture.h"

#include <rapidjson/document.h>

#include <array>
#include <clocale>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using Ombrin::CkelParseDBJson;
using Ombrin::CkelVariant;
using Ombrin::tagStorageData;

namespace {

constexpr const char* openError = "CkelParseDBJson::Parse： open error\n";

/// A JSON value.
rapidjson::Document json(const std::string& text)
{
    rapidjson::Document document;
    document.Parse(text.c_str());
    EXPECT_FALSE(document.HasParseError()) << text;
    return document;
}

class DictionaryParser : public KelTest::FolderTest
{
protected:
    /// The items of a dictionary that holds these item objects.
    const std::vector<tagStorageData>& parse(const std::string& items)
    {
        KelTest::writeDictionary("dictionary.json", items);
        return parser.parse("dictionary.json");
    }

    /// The items of a file that holds this text.
    const std::vector<tagStorageData>& parseText(const std::string& text)
    {
        KelTest::writeFile("dictionary.json", text);
        return parser.parse("dictionary.json");
    }

    /// The one item of a dictionary that holds an item with an ID and these members; an empty record on failure.
    tagStorageData item(const std::string& members)
    {
        const std::vector<tagStorageData>& items = parse("{\"ID\":1," + members + "}");
        EXPECT_EQ(items.size(), 1U) << members;
        return items.empty() ? tagStorageData{} : items.front();
    }

    CkelParseDBJson parser;
};

} // namespace

// --- items and their fields ---

TEST_F(DictionaryParser, StartsWithAnEmptyList)
{
    EXPECT_TRUE(parser.dataList().empty());
}

TEST_F(DictionaryParser, FillsEveryFieldFromItsKey)
{
    const tagStorageData record = item(
        R"("NameID":"Item_A","CommSource":2,"DBSource":3,"RW":4,"Block":5,"ValueT":9,
           "Value":35.5,"DefValue":30.25,"Max":100,"Min":-7)");
    EXPECT_EQ(record.ID, 1U);
    EXPECT_EQ(record.NameID, "Item_A");
    EXPECT_EQ(record.CommSource, 2);
    EXPECT_EQ(record.DBSource, 3);
    EXPECT_EQ(record.RW, 4);
    EXPECT_EQ(record.Block, 5);
    EXPECT_EQ(record.ValueT, 9);
    EXPECT_VARIANT(record.Value, 35.5);
    EXPECT_VARIANT(record.DefValue, 30.25);
    EXPECT_VARIANT(record.Max, 100);
    EXPECT_VARIANT(record.Min, -7);
}

TEST_F(DictionaryParser, AFirstItemOfAnIDAloneIsZeroAndNull)
{
    const tagStorageData record = item("\"other\":1");
    EXPECT_EQ(record.ID, 1U);
    EXPECT_EQ(record.NameID, "");
    EXPECT_EQ(record.CommSource, 0);
    EXPECT_EQ(record.DBSource, 0);
    EXPECT_EQ(record.RW, 0);
    EXPECT_EQ(record.Block, 0);
    EXPECT_EQ(record.ValueT, 0);
    EXPECT_EQ(record.Dirty, 0);
    EXPECT_TRUE(record.Value.isNull());
    EXPECT_TRUE(record.DefValue.isNull());
    EXPECT_TRUE(record.Max.isNull());
    EXPECT_TRUE(record.Min.isNull());
    for (const CkelVariant& spare : record.Reserved)
        EXPECT_TRUE(spare.isNull());
}

TEST_F(DictionaryParser, KeepsTheOrderOfTheArrayWithEqualIDsAndNamesSideBySide)
{
    const auto& items =
        parse(R"({"ID":7,"NameID":"a","Value":1},{"ID":3,"NameID":"a","Value":2},{"ID":7,"NameID":"b","Value":3})");
    ASSERT_EQ(items.size(), 3U);
    EXPECT_EQ(items[0].ID, 7U);
    EXPECT_EQ(items[1].ID, 3U);
    EXPECT_EQ(items[2].ID, 7U);
    EXPECT_EQ(items[0].NameID, "a");
    EXPECT_EQ(items[1].NameID, "a");
    EXPECT_EQ(items[2].NameID, "b");
    EXPECT_VARIANT(items[0].Value, 1);
    EXPECT_VARIANT(items[2].Value, 3);
}

TEST_F(DictionaryParser, AnEmptyArrayGivesAnEmptyListAndNoOutput)
{
    KelTest::CapturedOutput output;
    EXPECT_TRUE(parse("").empty());
    EXPECT_EQ(output.standardOutput(), "");
    EXPECT_EQ(output.standardError(), "");
}

TEST_F(DictionaryParser, AnEmptyDictionaryIsUnlikeAnUnreadOne)
{
    const auto& items = parse("");
    EXPECT_NE(&items, &CkelParseDBJson::unread());
    EXPECT_EQ(&items, &parser.dataList());
}

TEST_F(DictionaryParser, ParsingPrintsNothing)
{
    KelTest::CapturedOutput output;
    parse(R"({"ID":1,"NameID":"a","Value":1,"other":{}},{"ID":-1,"RW":"x"})");
    EXPECT_EQ(output.standardOutput(), "");
    EXPECT_EQ(output.standardError(), "");
}

TEST_F(DictionaryParser, DropsItemsWithoutAUsableID)
{
    for (const char* id : {"0", "-1", "1.5", "\"7\"", "4294967296", "-4294967295", "5.0", "1e3", "true", "null", "[7]",
                           "{\"ID\":7}", "18446744073709551616"}) {
        SCOPED_TRACE(id);
        EXPECT_TRUE(parse(std::string("{\"ID\":") + id + "}").empty());
    }
    EXPECT_TRUE(parse("{}").empty());
    EXPECT_TRUE(parse("{\"NameID\":\"a\"}").empty());
}

TEST_F(DictionaryParser, AnIDIsNotCarriedOver)
{
    const auto& items = parse(R"({"ID":5,"NameID":"a"},{"NameID":"b"},{"ID":"x","NameID":"c"})");
    ASSERT_EQ(items.size(), 1U);
    EXPECT_EQ(items[0].NameID, "a");
}

TEST_F(DictionaryParser, KeepsIDsOf32Bits)
{
    const auto& items = parse("{\"ID\":1},{\"ID\":2147483647},{\"ID\":2147483648},{\"ID\":4294967295}");
    ASSERT_EQ(items.size(), 4U);
    EXPECT_EQ(items[1].ID, 2147483647U);
    EXPECT_EQ(items[2].ID, 2147483648U);
    EXPECT_EQ(items[3].ID, 4294967295U);
}

TEST_F(DictionaryParser, AnUnusableIDAfterAUsableOneLeavesIt)
{
    const auto& items = parse("{\"ID\":5,\"ID\":-1}");
    ASSERT_EQ(items.size(), 1U);
    EXPECT_EQ(items[0].ID, 5U);
}

TEST_F(DictionaryParser, AnIDOfZeroAfterAUsableOneDropsTheItem)
{
    EXPECT_TRUE(parse("{\"ID\":5,\"ID\":0}").empty());
}

TEST_F(DictionaryParser, TheLastOfEqualKeysCounts)
{
    const auto& items =
        parse(R"({"ID":1,"NameID":"a","RW":1,"Value":1,"ID":2,"NameID":"b","RW":2,"Value":"two","Value":null})");
    ASSERT_EQ(items.size(), 1U);
    EXPECT_EQ(items[0].ID, 2U);
    EXPECT_EQ(items[0].NameID, "b");
    EXPECT_EQ(items[0].RW, 2);
    EXPECT_VARIANT(items[0].Value, "two");
}

TEST_F(DictionaryParser, WhatIsInsideOfAMemberIsNoMember)
{
    const auto& items =
        parse(R"({"a":[{"ID":9,"NameID":"n"},[{"RW":9}]],"ID":1,"b":{"ID":8,"kel":[{"ID":7}]},"RW":2})");
    ASSERT_EQ(items.size(), 1U);
    EXPECT_EQ(items[0].ID, 1U);
    EXPECT_EQ(items[0].NameID, "");
    EXPECT_EQ(items[0].RW, 2);
}

TEST_F(DictionaryParser, ManyObjectsBesideTheItemsTakeNoRoom)
{
    std::string text = R"({"kel":[{"ID":1}],"other":[{})";
    for (int i = 0; i < 10000; ++i)
        text += ",{                               }";
    EXPECT_LE(parseText(text + "]}").capacity(), 2U);
}

TEST_F(DictionaryParser, KeysAreComparedExactly)
{
    const tagStorageData record = item(
        R"("id":9,"nameid":"a","NAMEID":"a","commSource":1,"dbsource":1,"rw":1,"block":1,"valueT":1,"value":1,
           "Value ":1," Value":1,"defValue":1,"max":1,"MIN":1,"":1,"Val":1,"Values":1)");
    EXPECT_EQ(record.ID, 1U);
    EXPECT_EQ(record.NameID, "");
    EXPECT_EQ(record.CommSource, 0);
    EXPECT_EQ(record.DBSource, 0);
    EXPECT_EQ(record.RW, 0);
    EXPECT_EQ(record.Block, 0);
    EXPECT_EQ(record.ValueT, 0);
    EXPECT_TRUE(record.Value.isNull());
    EXPECT_TRUE(record.DefValue.isNull());
    EXPECT_TRUE(record.Max.isNull());
    EXPECT_TRUE(record.Min.isNull());
}

TEST_F(DictionaryParser, AKeyThatGoesOnBehindANulIsAnother)
{
    const tagStorageData record = item(R"("ID\u0000":9,"Value\u0000":1,"NameID\u0000x":"a")");
    EXPECT_EQ(record.ID, 1U);
    EXPECT_TRUE(record.Value.isNull());
    EXPECT_EQ(record.NameID, "");
}

TEST_F(DictionaryParser, KeysMayBeWrittenWithEscapes)
{
    const tagStorageData record = item(R"("\u0056alue":5)");
    EXPECT_VARIANT(record.Value, 5);
}

TEST_F(DictionaryParser, DirtyAndReservedAreNotFilled)
{
    const tagStorageData record = item(R"("Dirty":2,"Reserved":[1,2],"Unit":1,"CUnit":1)");
    EXPECT_EQ(record.Dirty, 0);
    for (const CkelVariant& spare : record.Reserved)
        EXPECT_TRUE(spare.isNull());
}

// --- byte fields ---

namespace {

struct ByteField
{
    const char* key;
    std::uint8_t tagStorageData::*field;
};

constexpr std::array<ByteField, 5> byteFields{{
    {"CommSource", &tagStorageData::CommSource},
    {"DBSource", &tagStorageData::DBSource},
    {"RW", &tagStorageData::RW},
    {"Block", &tagStorageData::Block},
    {"ValueT", &tagStorageData::ValueT},
}};

std::string member(const char* key, const std::string& value)
{
    return "\"" + std::string(key) + "\":" + value;
}

} // namespace

TEST_F(DictionaryParser, ByteFieldsKeepTheLowEightBits)
{
    const std::vector<std::pair<const char*, int>> numbers{{"0", 0},       {"255", 255},        {"256", 0}, {"300", 44},
                                                           {"65791", 255}, {"4294967295", 255}, {"-0", 0}};
    for (const ByteField& byte : byteFields) {
        for (const auto& [text, expected] : numbers) {
            SCOPED_TRACE(member(byte.key, text));
            EXPECT_EQ(item(member(byte.key, "7") + "," + member(byte.key, text)).*byte.field, expected);
        }
    }
}

TEST_F(DictionaryParser, ByteFieldsSkipEverythingButUnsigned32BitIntegers)
{
    for (const ByteField& byte : byteFields) {
        for (const char* value : {"-1", "1.0", "1e0", "2.5", "4294967296", "18446744073709551615", "\"5\"", "\"\"",
                                  "true", "false", "null", "[5]", "{}"}) {
            SCOPED_TRACE(member(byte.key, value));
            EXPECT_EQ(item(member(byte.key, "7") + "," + member(byte.key, value)).*byte.field, 7);
        }
    }
}

// --- names ---

TEST_F(DictionaryParser, NamesSkipEverythingButText)
{
    for (const char* value : {"5", "-1", "1.5", "true", "null", "[\"b\"]", "{}"}) {
        SCOPED_TRACE(value);
        EXPECT_EQ(item("\"NameID\":\"a\"," + member("NameID", value)).NameID, "a");
    }
}

TEST_F(DictionaryParser, AnEmptyNameReplacesTheOneBefore)
{
    const auto& items = parse(R"({"ID":1,"NameID":"a"},{"ID":2,"NameID":""})");
    ASSERT_EQ(items.size(), 2U);
    EXPECT_EQ(items[1].NameID, "");
}

TEST_F(DictionaryParser, TextsEndAtTheirFirstNul)
{
    const tagStorageData record = item(R"("NameID":"ab\u0000cd","Value":"x\u0000y","DefValue":"\u0000z")");
    EXPECT_EQ(record.NameID, "ab");
    EXPECT_VARIANT(record.Value, "x");
    EXPECT_VARIANT(record.DefValue, "");
}

TEST_F(DictionaryParser, EscapesAreUTF8)
{
    const tagStorageData record = item(R"("NameID":"\u00e4\u20ac\ud83d\ude00\/\"\\\n","Value":"ä€😀")");
    EXPECT_EQ(record.NameID, "ä€😀/\"\\\n");
    EXPECT_VARIANT(record.Value, "ä€😀");
}

TEST_F(DictionaryParser, TextsAreTakenWithoutValidation)
{
    const tagStorageData record = item("\"NameID\":\"a\xff\xc0\x80\",\"Value\":\"\xed\xa0\x80\"");
    EXPECT_EQ(record.NameID, "a\xff\xc0\x80");
    EXPECT_VARIANT(record.Value, "\xed\xa0\x80");
}

// --- values ---

namespace {

struct ScalarCase
{
    const char* text;
    CkelVariant expected;
};

const std::vector<ScalarCase>& scalars()
{
    static const std::vector<ScalarCase> cases{
        {"false", false},
        {"true", true},
        {"0", 0},
        {"-0", 0},
        {"5", 5},
        {"2147483647", 2147483647},
        {"-2147483648", -2147483647 - 1},
        {"2147483648", 2147483648U},
        {"4294967295", 4294967295U},
        {"4294967296", 4294967296LL},
        {"-2147483649", -2147483649LL},
        {"-5000000000", -5000000000LL},
        {"9223372036854775807", 9223372036854775807LL},
        {"-9223372036854775808", -9223372036854775807LL - 1},
        {"9223372036854775808", 9223372036854775808ULL},
        {"18446744073709551615", 18446744073709551615ULL},
        {"18446744073709551616", 18446744073709551616.0},
        {"-9223372036854775809", -9223372036854775808.0},
        {"5.0", 5.0},
        {"-0.0", -0.0},
        {"5e0", 5.0},
        {"1E2", 100.0},
        {"35.5", 35.5},
        {"-0.25", -0.25},
        {"12345678901234567890123", 12345678901234567890123.0},
        {"\"12\"", "12"},
        {"\"abc\"", "abc"},
        {"\"\"", ""},
    };
    return cases;
}

} // namespace

TEST_F(DictionaryParser, AScalarsTypeFollowsItsMagnitudeAndNotation)
{
    for (const ScalarCase& scalar : scalars()) {
        SCOPED_TRACE(scalar.text);
        CkelVariant target;
        parser.setValue(json(scalar.text), target);
        EXPECT_VARIANT(target, scalar.expected);
    }
}

TEST_F(DictionaryParser, EveryValueKeyTakesEveryScalar)
{
    for (const ScalarCase& scalar : scalars()) {
        SCOPED_TRACE(scalar.text);
        EXPECT_VARIANT(item(member("Value", scalar.text)).Value, scalar.expected);
        EXPECT_VARIANT(item(member("DefValue", scalar.text)).DefValue, scalar.expected);
        EXPECT_VARIANT(item(member("Max", scalar.text)).Max, scalar.expected);
        EXPECT_VARIANT(item(member("Min", scalar.text)).Min, scalar.expected);
    }
}

TEST_F(DictionaryParser, WhatIsNoScalarLeavesTheTarget)
{
    for (const char* text : {"null", "[]", "[5]", "{}", "{\"Value\":5}"}) {
        SCOPED_TRACE(text);
        CkelVariant target("kept");
        parser.setValue(json(text), target);
        EXPECT_VARIANT(target, "kept");
        CkelVariant none;
        parser.setValue(json(text), none);
        EXPECT_TRUE(none.isNull());
    }
}

TEST_F(DictionaryParser, TheValueTypeDoesNotConvertValues)
{
    EXPECT_VARIANT(item("\"ValueT\":9,\"Value\":5").Value, 5);
    EXPECT_VARIANT(item("\"ValueT\":3,\"Value\":5.5").Value, 5.5);
    EXPECT_VARIANT(item("\"ValueT\":10,\"Value\":true").Value, true);
    EXPECT_VARIANT(item("\"ValueT\":15,\"Value\":\"text\"").Value, "text");
}

// --- exponents ---

namespace {

std::uint64_t bitsOf(const CkelVariant& value)
{
    const double number = value.toDouble();
    std::uint64_t bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    return bits;
}

void expectSameBits(const CkelVariant& actual, const CkelVariant& expected)
{
    EXPECT_VARIANT(actual, expected);
    EXPECT_EQ(bitsOf(actual), bitsOf(expected));
}

/// Texts of random numbers and of names that look like them.
class RandomTexts
{
public:
    explicit RandomTexts(unsigned int seed) : m_engine(seed) {}

    /// A JSON number that RapidJSON's reader reads without an overflow, or refuses.
    std::string number()
    {
        const bool hasLongExponent = below(20) == 0;
        std::string text = below(3) == 0 ? "-" : "";
        text += below(3) == 0 ? "0" : anyOf("123456789") + digits(below(20));
        if (below(4) != 0)
            text += "." + std::string(below(3) == 0 ? below(5) : 0, '0') + digits(1 + below(hasLongExponent ? 5 : 25));
        if (hasLongExponent || below(2) == 0)
            text += anyOf("eE") + sign() + std::string(below(3) == 0 ? below(15) : 0, '0') +
                    digits(hasLongExponent ? 4 + below(20) : 1 + below(3));
        return text;
    }

    /// The inside of a JSON string.
    std::string name()
    {
        std::string text;
        for (unsigned int parts = below(4); parts > 0; --parts)
            text += below(2) == 0 ? number() : std::array{R"(\")", R"(\\)", ",", ":"}.at(below(4));
        return text;
    }

private:
    unsigned int below(unsigned int limit) { return static_cast<unsigned int>(m_engine() % limit); }
    std::string anyOf(std::string_view characters)
    {
        return std::string(1, characters[below(static_cast<unsigned int>(characters.size()))]);
    }
    std::string sign() { return std::array{"", "+", "-", "-"}.at(below(4)); }

    std::string digits(unsigned int count)
    {
        std::string text;
        for (; count > 0; --count)
            text += anyOf("0123456789");
        return text;
    }

    std::mt19937 m_engine;
};

bool isReadable(const std::string& number)
{
    rapidjson::Document document;
    return !document.Parse(number.c_str()).HasParseError();
}

} // namespace

TEST_F(DictionaryParser, ExponentsThatOverflowInRapidJsonMeanZero)
{
    const std::string zeros(1000, '0');
    for (const std::string& number : {std::string("0.00000000001e-2147483639"), std::string("0.0000000001e-2147483639"),
                                      std::string("0.0000000000E-2147483639"), std::string("1.0000000000e-2147483640"),
                                      std::string("12345678.12345678901e-99999999999999999999"),
                                      "0." + zeros + "1e-2147483000", "0.00000000001e-" + zeros + "2147483639"}) {
        SCOPED_TRACE(number);
        expectSameBits(item(member("Value", number)).Value, 0.0);
        expectSameBits(item(member("Max", "-" + number)).Max, -0.0);
    }
}

TEST_F(DictionaryParser, LongExponentsOfSmallMagnitudeCount)
{
    EXPECT_VARIANT(item(R"("Value":25e-00000000000002)").Value, 0.25);
    EXPECT_VARIANT(item(R"("Value":25E+00000000000002)").Value, 2500.0);
    EXPECT_VARIANT(item(R"("Value":25e0000000000)").Value, 25.0);
}

TEST_F(DictionaryParser, TextsThatLookLikeExponentsAreKept)
{
    const tagStorageData record =
        item(R"("NameID":"\"1e-2147483639\\","Value":"e-12345678901","1e-2147483639":0,"Min":1e-2147483639)");
    EXPECT_EQ(record.NameID, R"("1e-2147483639\)");
    EXPECT_VARIANT(record.Value, "e-12345678901");
    EXPECT_VARIANT(record.Min, 0.0);
}

TEST_F(DictionaryParser, NumbersAreThoseOfRapidJsonToTheLastBit)
{
    const unsigned int seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    RandomTexts random(seed);
    std::vector<std::string> numbers;
    std::vector<std::string> names;
    std::string objects;
    while (numbers.size() < 20000) {
        const std::string number = random.number();
        if (!isReadable(number))
            continue;
        numbers.push_back(number);
        names.push_back("\"" + random.name() + "\"");
        objects += (objects.empty() ? R"({"ID":1,"NameID":)" : R"(,{"ID":1,"NameID":)") + names.back() + "," +
                   member("Value", number) + "}";
    }
    const auto& items = parse(objects);
    ASSERT_EQ(items.size(), numbers.size());
    for (std::size_t i = 0; i < numbers.size() && !HasFailure(); ++i) {
        SCOPED_TRACE(numbers[i]);
        CkelVariant expected;
        parser.setValue(json(numbers[i]), expected);
        expectSameBits(items[i].Value, expected);
        EXPECT_EQ(items[i].NameID, json(names[i]).GetString());
    }
}

// --- carrying over ---

TEST_F(DictionaryParser, OmittedFieldsKeepThoseOfTheItemBefore)
{
    const auto& items = parse(
        R"({"ID":1001,"NameID":"Item_A","CommSource":1,"DBSource":6,"RW":1,"Block":2,"ValueT":9,"Value":35.5,
            "DefValue":30.0,"Min":0,"Max":100},
           {"ID":1002,"NameID":"Item_B","ValueT":10,"Value":"abc","DefValue":""},
           {"ID":1003})");
    ASSERT_EQ(items.size(), 3U);
    EXPECT_EQ(items[1].CommSource, 1);
    EXPECT_EQ(items[1].DBSource, 6);
    EXPECT_EQ(items[1].RW, 1);
    EXPECT_EQ(items[1].Block, 2);
    EXPECT_VARIANT(items[1].Min, 0);
    EXPECT_VARIANT(items[1].Max, 100);
    EXPECT_EQ(items[2].NameID, "Item_B");
    EXPECT_EQ(items[2].ValueT, 10);
    EXPECT_EQ(items[2].Block, 2);
    EXPECT_VARIANT(items[2].Value, "abc");
    EXPECT_VARIANT(items[2].DefValue, "");
    EXPECT_VARIANT(items[2].Max, 100);
    EXPECT_VARIANT(items[0].Value, 35.5);
}

TEST_F(DictionaryParser, FieldsOfAnotherTypeKeepThoseOfTheItemBefore)
{
    const auto& items = parse(
        R"({"ID":1,"NameID":"a","CommSource":9,"Block":8,"Value":7},
           {"ID":2,"NameID":5,"CommSource":-1,"Block":"x","Value":null})");
    ASSERT_EQ(items.size(), 2U);
    EXPECT_EQ(items[1].NameID, "a");
    EXPECT_EQ(items[1].CommSource, 9);
    EXPECT_EQ(items[1].Block, 8);
    EXPECT_VARIANT(items[1].Value, 7);
}

TEST_F(DictionaryParser, ANullValueInTheFirstItemLeavesItInvalid)
{
    EXPECT_TRUE(item("\"Value\":null").Value.isNull());
}

TEST_F(DictionaryParser, ADroppedItemHandsItsFieldsOn)
{
    const auto& items = parse(
        R"({"ID":1,"NameID":"a","RW":1,"Value":1},{"ID":0,"NameID":"b","RW":2,"Value":2},{"RW":3,"Max":9},{"ID":4})");
    ASSERT_EQ(items.size(), 2U);
    EXPECT_EQ(items[1].ID, 4U);
    EXPECT_EQ(items[1].NameID, "b");
    EXPECT_EQ(items[1].RW, 3);
    EXPECT_VARIANT(items[1].Value, 2);
    EXPECT_VARIANT(items[1].Max, 9);
}

TEST_F(DictionaryParser, FieldsAreCarriedFromOneFileToTheNext)
{
    parse(R"({"ID":1,"NameID":"a","RW":5,"Value":1.5,"Min":-3})");
    const auto& items = parse("{\"ID\":2}");
    ASSERT_EQ(items.size(), 1U);
    EXPECT_EQ(items[0].ID, 2U);
    EXPECT_EQ(items[0].NameID, "a");
    EXPECT_EQ(items[0].RW, 5);
    EXPECT_VARIANT(items[0].Value, 1.5);
    EXPECT_VARIANT(items[0].Min, -3);
}

TEST_F(DictionaryParser, ParsersCarryNothingToEachOther)
{
    parse(R"({"ID":1,"NameID":"a","RW":5,"Value":1.5})");
    CkelParseDBJson other;
    KelTest::writeDictionary("other.json", "{\"ID\":2}");
    const auto& items = other.parse("other.json");
    ASSERT_EQ(items.size(), 1U);
    EXPECT_EQ(items[0].NameID, "");
    EXPECT_EQ(items[0].RW, 0);
    EXPECT_TRUE(items[0].Value.isNull());
}

TEST_F(DictionaryParser, DeepParseStartsTheIDAloneAnew)
{
    tagStorageData& first = parser.deepParse(json(R"({"ID":5,"NameID":"a","RW":2,"Value":true})"), 4, "file");
    EXPECT_EQ(first.ID, 5U);
    tagStorageData& second = parser.deepParse(json(R"({"Block":3})"), 1, "file");
    EXPECT_EQ(&first, &second);
    EXPECT_EQ(second.ID, 0U);
    EXPECT_EQ(second.NameID, "a");
    EXPECT_EQ(second.RW, 2);
    EXPECT_EQ(second.Block, 3);
    EXPECT_VARIANT(second.Value, true);
    EXPECT_TRUE(parser.dataList().empty());
}

TEST_F(DictionaryParser, DeepParseGoesByTheObjectNotByCountOrFileName)
{
    const rapidjson::Document object = json(R"({"ID":5,"NameID":"a","RW":2})");
    EXPECT_EQ(parser.deepParse(object, 0, "").RW, 2);
    EXPECT_EQ(parser.deepParse(object, 4294967295U, "missing").ID, 5U);
}

// --- files ---

TEST_F(DictionaryParser, AMissingFileIsReportedAndKeepsTheList)
{
    parse("{\"ID\":1},{\"ID\":2}");
    KelTest::CapturedOutput output;
    const auto& items = parser.parse("missing.json");
    EXPECT_EQ(output.standardOutput(), openError);
    EXPECT_EQ(output.standardError(), "");
    EXPECT_EQ(&items, &CkelParseDBJson::unread());
    EXPECT_TRUE(items.empty());
    ASSERT_EQ(parser.dataList().size(), 2U);
    EXPECT_EQ(parser.dataList()[1].ID, 2U);
}

TEST_F(DictionaryParser, AFolderIsReportedAsAMissingFileIs)
{
    std::filesystem::create_directory("folder.json");
    KelTest::CapturedOutput output;
    EXPECT_EQ(&parser.parse("folder.json"), &CkelParseDBJson::unread());
    EXPECT_EQ(output.standardOutput(), openError);
}

TEST_F(DictionaryParser, AnEmptyFileNameIsReportedAsAMissingFileIs)
{
    KelTest::CapturedOutput output;
    EXPECT_EQ(&parser.parse(""), &CkelParseDBJson::unread());
    EXPECT_EQ(output.standardOutput(), openError);
}

TEST_F(DictionaryParser, ReadsOnAfterAMissingFile)
{
    KelTest::CapturedOutput output;
    parser.parse("missing.json");
    EXPECT_EQ(parse("{\"ID\":1}").size(), 1U);
}

TEST_F(DictionaryParser, AFileThatOpensReplacesTheList)
{
    parse("{\"ID\":1},{\"ID\":2}");
    const auto& items = parse("{\"ID\":3}");
    EXPECT_EQ(&items, &parser.dataList());
    ASSERT_EQ(items.size(), 1U);
    EXPECT_EQ(items[0].ID, 3U);
    EXPECT_TRUE(parse("").empty());
}

TEST_F(DictionaryParser, AnExpiringParserGivesItsListAway)
{
    parse(R"({"ID":1,"NameID":"a"})");
    const std::vector<tagStorageData> items = std::move(parser).dataList();
    ASSERT_EQ(items.size(), 1U);
    EXPECT_EQ(items[0].NameID, "a");
}

TEST_F(DictionaryParser, FileNamesAreBytes)
{
    KelTest::writeDictionary("wörterbuch \xff.json", "{\"ID\":1}");
    EXPECT_EQ(parser.parse("wörterbuch \xff.json").size(), 1U);
}

TEST_F(DictionaryParser, OtherRootMembersAreIgnored)
{
    const auto& items = parseText(R"({"KEL":5,"a":{"kel":[{"ID":9}]},"kel":[{"ID":1}],"b":[null],"kel ":[]})");
    ASSERT_EQ(items.size(), 1U);
    EXPECT_EQ(items[0].ID, 1U);
}

TEST_F(DictionaryParser, TheFirstOfTwoRootMembersCounts)
{
    const auto& items = parseText(R"({"kel":[{"ID":1}],"kel":[{"ID":2},{"ID":3}]})");
    ASSERT_EQ(items.size(), 1U);
    EXPECT_EQ(items[0].ID, 1U);
    EXPECT_EQ(parseText(R"({"kel":[{"ID":4}],"kel":5})").size(), 1U);
}

TEST_F(DictionaryParser, WhiteSpaceAroundTheRootIsSkipped)
{
    EXPECT_EQ(parseText(" \r\n\t{ \"kel\" : [ { \"ID\" : 1 } ] } \n\t\r ").size(), 1U);
}

TEST_F(DictionaryParser, ANulEndsTheText)
{
    EXPECT_EQ(parseText(std::string("{\"kel\":[{\"ID\":1}]}\0{garbage", 28)).size(), 1U);
}

TEST_F(DictionaryParser, NestingOfAnyDepthIsRead)
{
    constexpr std::size_t depth = 1000000;
    const std::string arrays = std::string(depth, '[') + std::string(depth, ']');
    std::string objects;
    for (std::size_t i = 0; i < depth; ++i)
        objects += "{\"a\":";
    objects += "0" + std::string(depth, '}');
    const auto& items =
        parseText(R"({"other":)" + arrays + R"(,"kel":[{"Value":)" + arrays + R"(,"Max":)" + objects + R"(,"ID":7}]})");
    ASSERT_EQ(items.size(), 1U);
    EXPECT_EQ(items[0].ID, 7U);
    EXPECT_TRUE(items[0].Value.isNull());
}

TEST_F(DictionaryParser, TheFileIsClosedAfterwards)
{
    const auto openFiles = [] {
        const std::filesystem::directory_iterator files("/proc/self/fd");
        return std::distance(begin(files), end(files));
    };
    parse("{\"ID\":1}"); // whatever is opened once
    const auto before = openFiles();
    for (int i = 0; i < 10; ++i)
        parse("{\"ID\":1}");
    EXPECT_EQ(openFiles(), before);
}

// --- what ends the process ---

namespace {

class MalformedDictionary : public DictionaryParser
{
protected:
    const KelTest::FoldersWithin folders{folder.path()};
};

const std::string noObject = KelTest::failedCheck("rapidjson/document\\.h", "IsObject\\(\\)");
const std::string noArray = KelTest::failedCheck("rapidjson/document\\.h", "IsArray\\(\\)");
const std::string noText = KelTest::failedCheck("rapidjson/document\\.h", "IsString\\(\\)");
const std::string noUnsigned = KelTest::failedCheck("rapidjson/document\\.h", "data_\\.f\\.flags & kUintFlag");

class NoStrictJson : public MalformedDictionary, public testing::WithParamInterface<const char*>
{};

class RootThatIsNoObject : public MalformedDictionary, public testing::WithParamInterface<const char*>
{};

class KelThatIsNoArray : public MalformedDictionary, public testing::WithParamInterface<const char*>
{};

class ElementThatIsNoObject : public MalformedDictionary, public testing::WithParamInterface<const char*>
{};

class RootWithoutKel : public MalformedDictionary, public testing::WithParamInterface<const char*>
{};

class PrintedUnsigned : public MalformedDictionary, public testing::WithParamInterface<const char*>
{};

} // namespace

TEST_P(NoStrictJson, EndsTheProcess)
{
    EXPECT_PROCESS_ENDS(parseText(GetParam()), noObject);
}

INSTANTIATE_TEST_SUITE_P(
    Dictionary, NoStrictJson,
    testing::Values("", " ", "{", R"({"kel":[{"ID":1}])", R"({"kel":[{"ID":1},]})", R"({"kel":[{"ID":1,}]})",
                    R"({"kel":[]} {})", R"({"kel":[]}x)", "{\"kel\":[]} // comment", R"({"kel":[/* comment */]})",
                    "{'kel':[]}", "{kel:[]}", R"({"kel":[{"ID":1,"Value":NaN}]})",
                    R"({"kel":[{"ID":1,"Value":Infinity}]})", R"({"kel":[{"ID":1,"Value":-Inf}]})",
                    R"({"kel":[{"ID":01}]})", R"({"kel":[{"ID":+1}]})", R"({"kel":[{"ID":0x1}]})",
                    R"({"kel":[{"ID":1,"Value":1e400}]})", R"({"kel":[{"ID":1,"Value":0e99999999999}]})",
                    R"({"kel":[{"ID":1,"Value":0.00000000001E+2147483648}]})", R"({"kel":[{"ID":1,"Value":.5}]})",
                    "{\"kel\":[{\"ID\":1,\"NameID\":\"a\nb\"}]}", R"({"kel":[{"ID":1,"NameID":"\ud800"}]})",
                    "\xef\xbb\xbf{\"kel\":[]}"));

TEST_P(RootThatIsNoObject, EndsTheProcessWithoutAMessage)
{
    EXPECT_PROCESS_ENDS(parseText(GetParam()), noObject);
}

INSTANTIATE_TEST_SUITE_P(Dictionary, RootThatIsNoObject,
                         testing::Values("[]", R"([{"kel":[]}])", "\"kel\"", "5", "null", "true"));

TEST_P(RootWithoutKel, IsReportedAndEndsTheProcess)
{
    EXPECT_PROCESS_ENDS(parseText(GetParam()),
                        std::string("^kel not be found!\n[^\n]*kelparsedbjson\\.cpp:32: [^\n]*Assertion `false") +
                            KelTest::failedCheckEnd);
}

INSTANTIATE_TEST_SUITE_P(Dictionary, RootWithoutKel,
                         testing::Values("{}", R"({"KEL":[]})", R"({"Kel":[]})", R"({"kel ":[]})",
                                         R"({"kel\u0000":[]})", R"({"data":{"kel":[]}})"));

TEST_P(KelThatIsNoArray, EndsTheProcess)
{
    EXPECT_PROCESS_ENDS(parseText("{\"kel\":" + std::string(GetParam()) + "}"), noArray);
}

INSTANTIATE_TEST_SUITE_P(Dictionary, KelThatIsNoArray,
                         testing::Values("{}", "{\"ID\":1}", "\"[]\"", "5", "null", "false", R"(5,"kel":[])"));

TEST_P(ElementThatIsNoObject, EndsTheProcess)
{
    EXPECT_PROCESS_ENDS(parse("{\"ID\":1}," + std::string(GetParam()) + ",{\"ID\":2}"), noObject);
}

INSTANTIATE_TEST_SUITE_P(Dictionary, ElementThatIsNoObject,
                         testing::Values("5", "null", "\"ID\"", "[]", "[{\"ID\":2}]", "true"));

TEST_F(MalformedDictionary, DeepParseOfWhatIsNoObjectEndsTheProcess)
{
    EXPECT_PROCESS_ENDS(parser.deepParse(json("[5]"), 1, ""), noObject);
}

TEST_F(MalformedDictionary, PrintingWhatIsNoObjectEndsTheProcess)
{
    EXPECT_PROCESS_ENDS(parser.printJson(json("5"), 1), noObject);
}

TEST_P(PrintedUnsigned, MustBeUnsigned)
{
    EXPECT_PROCESS_ENDS(parser.printJson(json(GetParam()), 1), noUnsigned);
}

INSTANTIATE_TEST_SUITE_P(Dictionary, PrintedUnsigned,
                         testing::Values("{\"ID\":-1}", "{\"ID\":1.5}", "{\"ID\":\"1\"}", "{\"ID\":4294967296}",
                                         "{\"ID\":null}", "{\"CommSource\":-1}", "{\"CommSource\":true}",
                                         "{\"CommSource\":[]}"));

TEST_F(MalformedDictionary, APrintedNameMustBeText)
{
    EXPECT_PROCESS_ENDS(parser.printJson(json("{\"NameID\":5}"), 1), noText);
    EXPECT_PROCESS_ENDS(parser.printJson(json("{\"NameID\":null}"), 1), noText);
}

TEST_F(MalformedDictionary, WhatStandsBeforeIsPrintedFirst)
{
    EXPECT_PROCESS_ENDS(parser.printJson(json("{\"ID\":7,\"NameID\":5}"), 2),
                        std::string("^ id = 7\n[^\n]*Assertion `IsString\\(\\)") + KelTest::failedCheckEnd);
}

// --- printing ---

namespace {

class PrintedItem : public DictionaryParser
{
protected:
    std::string printed(const std::string& object)
    {
        const rapidjson::Document document = json(object);
        KelTest::CapturedOutput output;
        parser.printJson(document, document.MemberCount());
        EXPECT_EQ(output.standardError(), "");
        return output.standardOutput();
    }

    std::string printedValue(const std::string& key, const std::string& value)
    {
        const rapidjson::Document document = json(value);
        KelTest::CapturedOutput output;
        parser.printDependType(key, document);
        return output.standardOutput();
    }
};

} // namespace

TEST_F(PrintedItem, HasALineForEachKnownKeyInDocumentOrder)
{
    EXPECT_EQ(printed(R"({"ID":1001,"NameID":"Item_A","CommSource":1,"DBSource":0,"RW":1,"Block":2,"ValueT":9,
                          "Value":35.5,"DefValue":30.0,"Min":0,"Max":100})"),
              " id = 1001\n name = Item_A\n CommSource = 1\n DBSource = 0\n RW = 1\n Block = 2\n ValueT = 9\n"
              " Value = 35.5\n DefValue = 30\n Min = 0\n Max = 100\n");
    EXPECT_EQ(printed(R"({"Max":1,"NameID":"","ID":4294967295,"CommSource":300,"Max":2})"),
              " Max = 1\n name = \n id = 4294967295\n CommSource = 300\n Max = 2\n");
}

TEST_F(PrintedItem, HasNothingForOtherKeys)
{
    EXPECT_EQ(printed("{}"), "");
    EXPECT_EQ(printed(R"({"id":1,"Dirty":2,"Unit":3,"":4,"value":5,"Reserved":[]})"), "");
}

TEST_F(PrintedItem, HasNothingForAKeyThatGoesOnBehindANul)
{
    EXPECT_EQ(printed(R"({"ID\u0000":1,"Value\u0000x":5})"), "");
}

TEST_F(PrintedItem, ShowsAllMembersWhateverTheCount)
{
    const rapidjson::Document document = json(R"({"ID":1,"RW":2})");
    KelTest::CapturedOutput output;
    parser.printJson(document, 0);
    EXPECT_EQ(output.standardOutput(), " id = 1\n RW = 2\n");
}

TEST_F(PrintedItem, LeavesTheParserAsItIs)
{
    parse(R"({"ID":1,"NameID":"a","RW":2})");
    printed(R"({"ID":5,"NameID":"b","RW":7})");
    EXPECT_EQ(parser.dataList().size(), 1U);
    EXPECT_EQ(parser.deepParse(json("{}"), 0, "").NameID, "a");
}

TEST_F(PrintedItem, WritesValuesInTheStreamsOwnFormat)
{
    const std::vector<std::pair<const char*, const char*>> values{
        {"false", "0"},
        {"true", "1"},
        {"5", "5"},
        {"-5", "-5"},
        {"2147483648", "2147483648"},
        {"4294967295", "4294967295"},
        {"-5000000000", "-5000000000"},
        {"9223372036854775807", "9223372036854775807"},
        {"18446744073709551615", "18446744073709551615"},
        {"3.14159265", "3.14159"},
        {"5.0", "5"},
        {"1234567.0", "1.23457e+06"},
        {"1e20", "1e+20"},
        {"0.00001", "1e-05"},
        {"18446744073709551616", "1.84467e+19"},
        {"\"text with blanks\"", "text with blanks"},
        {"\"\"", ""},
        {"null", ""},
        {"[1,2]", ""},
        {"{\"a\":1}", ""},
    };
    for (const auto& [value, expected] : values) {
        SCOPED_TRACE(value);
        EXPECT_EQ(printedValue("Block", value), " Block = " + std::string(expected) + "\n");
        for (const char* key : {"Block", "RW", "ValueT", "Value", "DefValue", "Max", "Min", "DBSource"})
            EXPECT_EQ(printed("{" + member(key, value) + "}"), " " + std::string(key) + " = " + expected + "\n");
    }
}

TEST_F(PrintedItem, WritesAnyKeyOfASingleValue)
{
    EXPECT_EQ(printedValue("Block", "2"), " Block = 2\n");
    EXPECT_EQ(printedValue("anything", "2"), " anything = 2\n");
    EXPECT_EQ(printedValue("", "2"), "  = 2\n");
}

// --- the locale ---

namespace {

/// Runs a case in a locale that writes 1.5 as "1,5", made in the case's own folder.
class DictionaryInCommaLocale : public DictionaryParser
{
protected:
    void SetUp() override
    {
        KelTest::writeFile("charmap",
                           "<code_set_name> ASCII\n<mb_cur_min> 1\n<mb_cur_max> 1\nCHARMAP\n"
                           "<U002C> \\x2c COMMA\n<U002E> \\x2e FULL STOP\nEND CHARMAP\n");
        KelTest::writeFile("definition",
                           "LC_NUMERIC\ndecimal_point \"<U002C>\"\nthousands_sep \"<U002E>\"\ngrouping 3;3\n"
                           "END LC_NUMERIC\n");
        // It complains of the parts that are missing, which nobody needs; whether it worked is seen below.
        const int ignored = std::system(
            "localedef --force --no-archive --quiet -f ./charmap -i ./definition ./comma "
            ">localedef.log 2>&1");
        static_cast<void>(ignored);
        setenv("LOCPATH", folder.path().c_str(), 1);
        ASSERT_NE(std::setlocale(LC_NUMERIC, "comma"), nullptr) << "localedef made no locale";
        std::array<char, 16> text{};
        std::snprintf(text.data(), text.size(), "%.1f", 1.5);
        ASSERT_STREQ(text.data(), "1,5");
    }

    void TearDown() override
    {
        std::setlocale(LC_NUMERIC, "C");
        unsetenv("LOCPATH");
    }
};

} // namespace

TEST_F(DictionaryInCommaLocale, NumbersAreReadWithAPoint)
{
    const tagStorageData record = item(R"("Value":35.5,"DefValue":-1.25e-3,"Max":1234567.5,"Min":"35,5")");
    EXPECT_VARIANT(record.Value, 35.5);
    EXPECT_VARIANT(record.DefValue, -1.25e-3);
    EXPECT_VARIANT(record.Max, 1234567.5);
    EXPECT_VARIANT(record.Min, "35,5");
}

TEST_F(DictionaryInCommaLocale, NumbersArePrintedWithAPoint)
{
    KelTest::CapturedOutput output;
    parser.printJson(json(R"({"ID":1234567,"Value":35.5})"), 2);
    EXPECT_EQ(output.standardOutput(), " id = 1234567\n Value = 35.5\n");
}

// What items may inherit

TEST_F(DictionaryParser, ItemsThatInheritNamesOfManyMegabytesAreReportedAndNotRead)
{
    const std::string name(1 << 20, 'n');
    std::string items = R"({"ID":1,"NameID":")" + name + R"("})";
    for (int id = 2; id <= 17; ++id)
        items += R"(,{"ID":)" + std::to_string(id) + "}";
    KelTest::writeDictionary("large.json", items);
    EXPECT_EQ(parser.parse("large.json").size(), 17U) << "16 MiB are read";

    KelTest::writeDictionary("large.json", items + R"(,{"ID":18})");
    KelTest::CapturedOutput output;
    EXPECT_EQ(&parser.parse("large.json"), &CkelParseDBJson::unread());
    EXPECT_EQ(output.standardOutput(), "CkelParseDBJson::Parse: the items inherit names of more than 16 MiB\n");
    EXPECT_TRUE(parser.dataList().empty());
}

TEST_F(DictionaryParser, NamesThatItemsHaveThemselvesAreNotCountedAsInherited)
{
    const std::string name(1 << 20, 'n');
    std::string items;
    for (int id = 1; id <= 20; ++id)
        items += (id > 1 ? "," : "") + (R"({"ID":)" + std::to_string(id) + R"(,"NameID":")") + name + R"("})";
    KelTest::writeDictionary("large.json", items);
    EXPECT_EQ(CkelParseDBJson().parse("large.json").size(), 20U);
}

TEST_F(DictionaryParser, AFileThatEndsBeforeItsSizeIsReportedAndNotRead)
{
    // The kernel gives such files a size of a page, as a disk that fails in the middle leaves a file its size.
    constexpr const char* file = "/sys/devices/system/cpu/online";
    ASSERT_GT(std::filesystem::file_size(file), KelTest::readFile(file).size());
    KelTest::CapturedOutput output;
    EXPECT_EQ(&parser.parse(file), &CkelParseDBJson::unread());
    EXPECT_EQ(output.standardOutput(), "CkelParseDBJson::Parse： open error\n");
}
