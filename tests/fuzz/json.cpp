#include "datastorage/kelparsedbjson.h"
#include "tests/fuzz/harness.h"

#include <rapidjson/document.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <string_view>

using KelFuzz::require;
using Ombrin::tagStorageData;

// Bytes as a JSON dictionary: a dictionary loads, and its records are what a plain walk over a document finds. Anything
// else ends the process by the check that belongs to it.

namespace {

/// A file in memory that has a name.
class MemoryFile
{
public:
    MemoryFile() : m_descriptor(memfd_create("dictionary", MFD_CLOEXEC))
    {
        require(m_descriptor >= 0, "a file in memory can be made");
    }

    std::string name() const { return "/proc/self/fd/" + std::to_string(m_descriptor); }

    void set(const std::string& bytes) const
    {
        const auto written = pwrite(m_descriptor, bytes.data(), bytes.size(), 0);
        require(written == static_cast<ssize_t>(bytes.size()), "the file can be written");
        require(ftruncate(m_descriptor, written) == 0, "the file can be cut");
    }

private:
    const int m_descriptor;
};

/// Reads each number by itself, since some exponents overflow inside RapidJSON's reader.
class Document : public rapidjson::Document
{
public:
    using rapidjson::Document::Document;

    /// Null if the text is not JSON. By recursion, which the library does without.
    void read(const char* text)
    {
        rapidjson::StringStream stream(text);
        const auto events = [&](rapidjson::Document& /*this*/) {
            return !rapidjson::Reader().Parse<rapidjson::kParseNumbersAsStringsFlag>(stream, *this).IsError();
        };
        Populate(events);
    }

    bool RawNumber(const char* text, rapidjson::SizeType /*size*/, bool /*copy*/) // RapidJSON's name
    {
        constexpr long long alwaysZero = -10000; // inputs have fewer digits
        const std::string_view number(text);
        const std::size_t mark = number.find_first_of("eE");
        if (mark != std::string_view::npos && std::strtoll(text + mark + 1, nullptr, 10) < alwaysZero)
            return Double(number.front() == '-' ? -0.0 : 0.0);
        rapidjson::StringStream stream(text);
        return !rapidjson::Reader().Parse(stream, *this).IsError();
    }
};

/// The last usable value of each key of an item, by the member's name.
struct Item
{
    explicit Item(const rapidjson::Value& object)
    {
        for (const auto& member : object.GetObject()) {
            const std::string key(member.name.GetString(), member.name.GetStringLength());
            if (key == "ID" && member.value.IsUint())
                id = member.value.GetUint();
            else if (key == "NameID" && member.value.IsString())
                name = member.value.GetString();
            else if (key == "CommSource" && member.value.IsUint())
                commSource = static_cast<std::uint8_t>(member.value.GetUint() % 256);
            else if (key == "Value" && (member.value.IsNumber() || member.value.IsString() || member.value.IsBool()))
                value = &member.value;
        }
    }

    unsigned int id = 0;
    const char* name = nullptr;
    int commSource = -1;
    const rapidjson::Value* value = nullptr;
};

std::uint64_t bitsOf(double number)
{
    std::uint64_t bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    return bits;
}

void checkValue(const Ombrin::CkelVariant& actual, const rapidjson::Value& json)
{
    using Ombrin::CkelVariant;
    if (json.IsString())
        require(actual.type() == CkelVariant::String && actual.toStdString() == json.GetString(), "a text is a text");
    else if (json.IsBool())
        require(actual.type() == CkelVariant::Bool && actual.toBool() == json.GetBool(), "a bool is a bool");
    else if (json.IsUint64())
        require(actual.type() != CkelVariant::Double && actual.toULongLong() == json.GetUint64(), "a natural number");
    else if (json.IsInt64())
        require(actual.type() != CkelVariant::Double && actual.toLongLong() == json.GetInt64(), "an integer");
    else
        require(actual.type() == CkelVariant::Double && bitsOf(actual.toDouble()) == bitsOf(json.GetDouble()),
                "a double");
}

void checkRecord(const tagStorageData& record, const Item& item)
{
    require(record.ID == item.id, "items come in their order, those without an ID dropped");
    require(!item.name || record.NameID == item.name, "an item has its name");
    require(item.commSource < 0 || record.CommSource == item.commSource, "an item has its channel");
    require(record.Dirty == 0, "a loaded item is clean");
    if (item.value)
        checkValue(record.Value, *item.value);
}

void checkRecords(const std::vector<tagStorageData>& records, const rapidjson::Document& document)
{
    std::size_t found = 0;
    for (const rapidjson::Value& element : document["kel"].GetArray()) {
        const Item item(element);
        if (item.id == 0)
            continue;
        require(found < records.size(), "every item with an ID is there");
        checkRecord(records[found++], item);
    }
    require(found == records.size(), "no item comes from nowhere");
}

/// The expression of the check that ends the process; null for a dictionary.
const char* checkThatFails(const rapidjson::Document& document)
{
    if (!document.IsObject())
        return "IsObject()";
    if (!document.HasMember("kel"))
        return "false";
    if (!document["kel"].IsArray())
        return "IsArray()";
    const auto items = document["kel"].GetArray();
    const bool areObjects =
        std::all_of(items.begin(), items.end(), [](const rapidjson::Value& item) { return item.IsObject(); });
    return areObjects ? nullptr : "IsObject()";
}

} // namespace

const std::vector<std::string> KelFuzz::endingChecks{"IsObject()", "IsArray()", "false"};

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const MemoryFile file;
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    file.set(bytes);
    alignas(std::max_align_t) static std::array<char, 262144> memory;
    rapidjson::MemoryPoolAllocator<> pool(memory.data(), memory.size());
    Document document(&pool);
    document.read(bytes.c_str());
    const char* const expected = checkThatFails(document);

    KelFuzz::printed();
    const char* const failed = KelFuzz::runToItsEnd([&] {
        Ombrin::CkelParseDBJson parser;
        const std::vector<tagStorageData>& records = parser.parse(file.name());
        require(!expected, "only dictionaries load");
        checkRecords(records, document);
    });
    KelFuzz::takePrinted();
    require(expected ? failed && std::strcmp(failed, expected) == 0 : !failed, "the check that belongs to it fails");
    return 0;
}
