#undef NDEBUG // the checks of the dictionary hold in every build, RapidJSON's among them

#include "datastorage/kelparsedbjson.h"

#include "datastorage/keljsondictionary.h"
#include "datastorage/kelrapidjson.h"
#include "kernel/kelfile.h"
#include "kernel/kelreport.h"
#include "kernel/kelstring.h"

#include <rapidjson/document.h>
#include <sys/stat.h>

#include <algorithm>
#include <cassert>
#include <cstring>
#include <locale>
#include <sstream>

namespace Ombrin {

namespace {

// Ends the process unless the text is a dictionary. Service staff find its assertion in logs: it must stay on its line.
void checkRoot(const JsonDictionaryShape& shape)
{
    CkelReport::printHeld();
    shape.root.MemberCount();
    if (!shape.hasItems) {
        CkelReport::print("kel not be found!");
        CkelReport::printHeld();
        assert(false);
    }
    shape.items.GetArray();
    shape.item.MemberCount();
}

std::uint8_t lowByte(const rapidjson::Value& number)
{
    return static_cast<std::uint8_t>(number.GetUint());
}

/// The size of a regular file, below 0 for any other: a FIFO would block the reader, a device need not end.
long long sizeOfFile(const char* name)
{
    struct stat status = {};
    return stat(name, &status) == 0 && S_ISREG(status.st_mode) ? status.st_size : -1;
}

/// False when the file cannot be read to its end.
bool readFile(const std::string& name, CkelByteArray& bytes)
{
    const long long size = sizeOfFile(name.c_str());
    CkelFile file(CkelString::fromAscii(name.c_str(), -1));
    if (size < 0 || !file.open(CkelDevice::ReadOnly))
        return false;
    bytes = file.readAll();
    return static_cast<long long>(bytes.size()) >= size;
}

/// The size is known where this is called, so that most keys are told apart by their lengths alone.
template <std::size_t size>
bool is(std::string_view key, const char (&name)[size])
{
    return key.size() == size - 1 && std::char_traits<char>::compare(key.data(), name, size - 1) == 0;
}

/// An upper bound of the items, but no more than there is room for in the text at 32 bytes each.
std::size_t likelyItems(const char* text, std::size_t size)
{
    constexpr std::size_t shortest = 32;
    std::size_t braces = 0;
    for (const char* at = text; (at = std::strchr(at, '{')) != nullptr; ++at)
        ++braces;
    return std::min(braces, size / shortest);
}

} // namespace

/// Makes the records while the text is read.
struct CkelParseDBJson::Items
{
    void begin()
    {
        parser.m_data.ID = 0;
        hasName = false;
    }
    void setField(std::string_view key, const rapidjson::Value& value)
    {
        hasName = hasName || (is(key, "NameID") && value.IsString());
        parser.setField(key, value);
    }
    /// False when the items inherit more than is read.
    bool end()
    {
        if (parser.m_data.ID == 0)
            return true;
        if (!hasName)
            inherited.add(parser.m_data.NameID);
        if (inherited.isTooMuch())
            return false;
        parser.m_dataList.push_back(parser.m_data);
        return true;
    }

    CkelParseDBJson& parser;
    bool hasName = false;
    JsonInheritedNames inherited{};
};

CkelParseDBJson::CkelParseDBJson() = default;

CkelParseDBJson::~CkelParseDBJson() = default;

const std::vector<tagStorageData>& CkelParseDBJson::unread()
{
    static const auto& list = *new std::vector<tagStorageData>; // never destroyed: threads may outlive main
    return list;
}

const std::vector<tagStorageData>& CkelParseDBJson::parse(const std::string& fileName)
{
    CkelByteArray bytes;
    if (!readFile(fileName, bytes)) {
        CkelReport::print("CkelParseDBJson::Parse： open error");
        return unread();
    }
    JsonExponents::bound(bytes.data());
    m_dataList.clear();
    m_dataList.reserve(likelyItems(bytes.data(), bytes.size()));

    rapidjson::StringStream text(bytes.data());
    JsonDictionaryEvents<Items> events(Items{*this});
    const bool isJson = !JsonReader().Parse<rapidjson::kParseIterativeFlag>(text, events).IsError(); // spares the stack
    if (events.sink().inherited.isTooMuch()) {
        CkelReport::print("CkelParseDBJson::Parse: the items inherit names of more than 16 MiB");
        m_dataList = {};
        return unread();
    }
    const JsonDictionaryShape none;
    checkRoot(isJson ? events.shape() : none);
    if (m_dataList.capacity() > 2 * m_dataList.size()) // most of the braces were other objects'
        m_dataList.shrink_to_fit();
    return m_dataList;
}

// NOLINTBEGIN(performance-unnecessary-value-param): part of the interface as it is
tagStorageData& CkelParseDBJson::deepParse(const rapidjson::Value& item, unsigned int /*memberCount*/,
                                           std::string /*fileName*/)
// NOLINTEND(performance-unnecessary-value-param)
{
    m_data.ID = 0;
    for (const auto& member : item.GetObject())
        setField({member.name.GetString(), member.name.GetStringLength()}, member.value);
    return m_data;
}

void CkelParseDBJson::setField(std::string_view key, const rapidjson::Value& value)
{
    if (is(key, "Value"))
        setValue(value, m_data.Value);
    else if (is(key, "DefValue"))
        setValue(value, m_data.DefValue);
    else if (is(key, "Max"))
        setValue(value, m_data.Max);
    else if (is(key, "Min"))
        setValue(value, m_data.Min);
    else if (value.IsString() && is(key, "NameID"))
        m_data.NameID = value.GetString();
    else if (!value.IsUint())
        return;
    else if (is(key, "ID"))
        m_data.ID = value.GetUint();
    else if (is(key, "CommSource"))
        m_data.CommSource = lowByte(value);
    else if (is(key, "DBSource"))
        m_data.DBSource = lowByte(value);
    else if (is(key, "RW"))
        m_data.RW = lowByte(value);
    else if (is(key, "Block"))
        m_data.Block = lowByte(value);
    else if (is(key, "ValueT"))
        m_data.ValueT = lowByte(value);
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): part of the interface as it is
void CkelParseDBJson::setValue(const rapidjson::Value& value, CkelVariant& target)
{
    if (value.IsBool())
        target = CkelVariant(value.GetBool());
    else if (value.IsInt())
        target = CkelVariant(value.GetInt());
    else if (value.IsUint())
        target = CkelVariant(value.GetUint());
    else if (value.IsInt64())
        target = CkelVariant(static_cast<long long>(value.GetInt64()));
    else if (value.IsUint64())
        target = CkelVariant(static_cast<unsigned long long>(value.GetUint64()));
    else if (value.IsNumber())
        target = CkelVariant(value.GetDouble());
    else if (value.IsString())
        target = CkelVariant(value.GetString());
}

void CkelParseDBJson::printJson(const rapidjson::Value& item, unsigned int /*memberCount*/)
{
    for (const auto& member : item.GetObject()) {
        const std::string key(member.name.GetString(), member.name.GetStringLength());
        if (key == "ID")
            CkelReport::print(" id = " + std::to_string(member.value.GetUint()));
        else if (key == "NameID")
            CkelReport::print(std::string(" name = ") + member.value.GetString());
        else if (key == "CommSource")
            CkelReport::print(" CommSource = " + std::to_string(member.value.GetUint()));
        else if (key == "Block" || key == "RW" || key == "ValueT" || key == "Value" || key == "DefValue" ||
                 key == "Max" || key == "Min" || key == "DBSource")
            printDependType(key, member.value);
    }
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): part of the interface as it is
void CkelParseDBJson::printDependType(const std::string& key, const rapidjson::Value& value)
{
    std::ostringstream line;
    line.imbue(std::locale::classic()); // whatever the application has made the global one
    line << ' ' << key << " = ";
    if (value.IsBool())
        line << value.GetBool();
    else if (value.IsInt())
        line << value.GetInt();
    else if (value.IsUint())
        line << value.GetUint();
    else if (value.IsInt64())
        line << value.GetInt64();
    else if (value.IsUint64())
        line << value.GetUint64();
    else if (value.IsNumber())
        line << value.GetDouble();
    else if (value.IsString())
        line << value.GetString();
    CkelReport::print(line.str());
}

} // namespace Ombrin
