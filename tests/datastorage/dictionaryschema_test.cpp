#include "datastorage/kelparsedbjson.h"
#include "tests/datastorage/filefixture.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/pointer.h>
#include <rapidjson/schema.h>
#include <rapidjson/stringbuffer.h>

#include <set>
#include <string>

using namespace Ombrin;
using namespace KelTest;

namespace {

const std::string sourceFolder = KEL_SOURCE_FOLDER;

/// Judges dictionaries by docs/dictionary.schema.json.
class DictionarySchema : public testing::Test
{
protected:
    DictionarySchema() : schema(parsed(readFile(sourceFolder + "/docs/dictionary.schema.json"))) {}

    static rapidjson::Document parsed(const std::string& text)
    {
        rapidjson::Document document;
        document.Parse(text.c_str());
        EXPECT_FALSE(document.HasParseError()) << rapidjson::GetParseError_En(document.GetParseError());
        return document;
    }

    testing::AssertionResult accepts(const std::string& text) const
    {
        rapidjson::SchemaValidator validator(schema);
        if (parsed(text).Accept(validator))
            return testing::AssertionSuccess() << "accepted: " << text;
        rapidjson::StringBuffer place;
        validator.GetInvalidDocumentPointer().StringifyUriFragment(place);
        return testing::AssertionFailure() << place.GetString() << " fails by " << validator.GetInvalidSchemaKeyword();
    }

    /// A dictionary of one item of the value type 9 in which `key` is `value`, or missing when that is empty.
    static std::string dictionaryWith(const std::string& key, const std::string& value)
    {
        std::string members;
        std::string separator;
        const auto add = [&](const std::string& name, const std::string& text) {
            if (text.empty())
                return;
            members.append(separator).append("\"").append(name).append("\": ").append(text);
            separator = ", ";
        };
        bool known = false;
        for (const auto& [name, text] : item) {
            known = known || key == name;
            add(name, key == name ? value : text);
        }
        if (!known)
            add(key, value);
        return "{\"kel\": [{" + members + "}]}";
    }

    static inline const std::pair<std::string, std::string> item[] = {
        {"ID", "1"},     {"NameID", "\"A\""}, {"CommSource", "0"}, {"DBSource", "0"}, {"RW", "0"},   {"Block", "0"},
        {"ValueT", "9"}, {"Value", "1.5"},    {"DefValue", "1"},   {"Max", "2.5"},    {"Min", "-1"},
    };

    const rapidjson::SchemaDocument schema;
};

} // namespace

TEST_F(DictionarySchema, AcceptsTheShippedDictionary)
{
    EXPECT_TRUE(accepts(readFile(sourceFolder + "/examples/operator/dictionary.json")));
    EXPECT_TRUE(accepts(readFile(sourceFolder + "/examples/docs/dictionary.json")));
}

// What the schema cannot say.
TEST_F(DictionarySchema, IsCompletedByUniqueIDsAndNamesInTheShippedDictionary)
{
    CkelParseDBJson parser;
    std::set<unsigned int> ids;
    std::set<std::string> names;
    const auto& records = parser.parse(sourceFolder + "/examples/operator/dictionary.json");
    for (const tagStorageData& record : records) {
        ids.insert(record.ID);
        names.insert(record.NameID);
    }
    EXPECT_EQ(503U, records.size());
    EXPECT_EQ(records.size(), ids.size());
    EXPECT_EQ(records.size(), names.size());
}

TEST_F(DictionarySchema, AcceptsAnEmptyListAndOtherMembersOfTheRoot)
{
    EXPECT_TRUE(accepts(R"({"kel": [], "title": "empty"})"));
}

TEST_F(DictionarySchema, RefusesAnotherRoot)
{
    EXPECT_FALSE(accepts("[]"));
    EXPECT_FALSE(accepts("{}"));
    EXPECT_FALSE(accepts(R"({"KEL": []})"));
    EXPECT_FALSE(accepts(R"({"kel": {}})"));
    EXPECT_FALSE(accepts(R"({"kel": [1]})"));
}

TEST_F(DictionarySchema, DemandsEveryKeyAndNoOther)
{
    EXPECT_TRUE(accepts(dictionaryWith("ID", "1")));
    for (const auto& [key, value] : item)
        EXPECT_FALSE(accepts(dictionaryWith(key, ""))) << key;
    EXPECT_FALSE(accepts(dictionaryWith("Maximum", "3")));
}

TEST_F(DictionarySchema, RefusesAnIDThatTheLoaderDropsOrCuts)
{
    EXPECT_TRUE(accepts(dictionaryWith("ID", "4294967295")));
    for (const char* const id : {"0", "-1", "1.5", "\"7\"", "4294967296", "null"})
        EXPECT_FALSE(accepts(dictionaryWith("ID", id))) << id;
}

TEST_F(DictionarySchema, RefusesAnEmptyNameAndOneThatIsNoText)
{
    EXPECT_FALSE(accepts(dictionaryWith("NameID", "\"\"")));
    EXPECT_FALSE(accepts(dictionaryWith("NameID", "7")));
}

TEST_F(DictionarySchema, RefusesByteFieldsOutOfRange)
{
    for (const char* const key : {"CommSource", "DBSource", "RW", "Block"}) {
        EXPECT_TRUE(accepts(dictionaryWith(key, "255"))) << key;
        for (const char* const value : {"256", "-1", "0.5", "\"1\"", "true"})
            EXPECT_FALSE(accepts(dictionaryWith(key, value))) << key << ' ' << value;
    }
}

TEST_F(DictionarySchema, RefusesValueTypesWithoutAStoredForm)
{
    for (const char* const type : {"0", "15", "17", "255", "9.5", "\"9\""})
        EXPECT_FALSE(accepts(dictionaryWith("ValueT", type))) << type;
}

TEST_F(DictionarySchema, RefusesValuesThatTheValueTypeDoesNotHold)
{
    for (const char* const key : {"Value", "DefValue", "Max", "Min"}) {
        for (const char* const value : {"\"1.5\"", "true", "null", "[]"})
            EXPECT_FALSE(accepts(dictionaryWith(key, value))) << key << ' ' << value;
    }
    const auto itemOf = [](const std::string& type, const std::string& values) {
        return R"({"kel": [{"ID": 1, "NameID": "A", "CommSource": 0, "DBSource": 0, "RW": 0, "Block": 0, "ValueT": )" +
               type + R"(, "DefValue": )" + values + R"(, "Max": )" + values + R"(, "Min": )" + values +
               R"(, "Value": )" + values + "}]}";
    };
    EXPECT_TRUE(accepts(itemOf("1", "-9223372036854775808")));
    EXPECT_FALSE(accepts(itemOf("1", "9223372036854775808")));
    EXPECT_FALSE(accepts(itemOf("1", "1.5")));
    EXPECT_TRUE(accepts(itemOf("13", "18446744073709551615")));
    EXPECT_FALSE(accepts(itemOf("13", "-1")));
    EXPECT_TRUE(accepts(itemOf("10", "\"text\"")));
    EXPECT_FALSE(accepts(itemOf("10", "1")));
}
