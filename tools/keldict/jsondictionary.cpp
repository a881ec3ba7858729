#include "jsondictionary.h"

#include "jsoncursor.h"
#include "jsonerror.h"
#include "jsontype.h"
#include "words.h"

#include "datastorage/keljsondictionary.h"
#include "datastorage/kelrapidjson.h"

#include <rapidjson/reader.h>

#include <algorithm>
#include <utility>

namespace Keldict {

namespace {

constexpr const char* rootName = "kel";
constexpr const char* stops = "The device stops when it reads this file.";

Finding fatal(const Rule& rule, Place place, std::string what, std::string meant = {})
{
    return {&rule, Severity::Error, place, {}, {}, std::move(what), stops, std::move(meant), {}, {}};
}

bool begins(const std::string& bytes, std::string_view with)
{
    return bytes.compare(0, with.size(), with) == 0;
}

/// The text behind a byte order mark, so that the rest can be looked at all the same. Of UTF-16 nothing is left.
std::string checkedStart(std::string bytes, std::vector<Finding>& findings)
{
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    const Place start{{1, 1}, 0};
    if (begins(bytes, "\xFF\xFE") || begins(bytes, "\xFE\xFF")) {
        findings.push_back(fatal(Rules::byteOrderMark, start, "a byte order mark of UTF-16", "save the file as UTF-8"));
        return {};
    }
    if (!begins(bytes, mark))
        return bytes;
    findings.push_back(
        fatal(Rules::byteOrderMark, start, "a byte order mark", "save the file as UTF-8 without a byte order mark"));
    return bytes.substr(mark.size());
}

/// What the loader takes of an item to tell it from others.
struct Named
{
    unsigned int id = 0;
    std::optional<std::string_view> name; ///< nothing: the item inherits it
};

Named named(const rapidjson::Value& item)
{
    Named result;
    for (const auto& member : item.GetObject()) {
        const std::string_view key(member.name.GetString(), member.name.GetStringLength());
        if (key == "ID" && member.value.IsUint())
            result.id = member.value.GetUint();
        else if (key == "NameID" && member.value.IsString())
            result.name = member.value.GetString();
    }
    return result;
}

} // namespace

JsonDictionary::JsonDictionary(std::string bytes, std::vector<Finding>& findings)
    : m_bytes(checkedStart(std::move(bytes), findings)),
      m_text(m_bytes.c_str()),
      m_isUtf8(Keldict::isUtf8(m_text)),
      m_lines(m_text)
{
    if (m_text.size() < m_bytes.size())
        findings.push_back({&Rules::nulByte,
                            Severity::Warning,
                            placeAt(m_text.size()),
                            {},
                            {},
                            "a NUL byte",
                            "The device reads the text up to here.",
                            "take it out",
                            {},
                            {}});
    const bool isForeign = m_bytes.empty() && !findings.empty();
    if (!isForeign && parse(findings))
        findItems(findings);
}

bool JsonDictionary::parse(std::vector<Finding>& findings)
{
    std::string text(m_text);
    Ombrin::JsonExponents::bound(text.data());
    m_document.Parse<rapidjson::kParseIterativeFlag>(text.c_str()); // as the library does
    if (m_document.HasParseError())
        reportParseError(findings);
    return !m_document.HasParseError();
}

void JsonDictionary::reportParseError(std::vector<Finding>& findings) const
{
    if (m_document.GetParseError() == rapidjson::kParseErrorDocumentEmpty) {
        findings.push_back(
            fatal(Rules::emptyFile, placeAt(0), "nothing but blanks", "{\"kel\": [...]} with the items"));
        return;
    }
    JsonError error = explain(m_text, m_document.GetParseError(), m_document.GetErrorOffset());
    findings.push_back(
        fatal(Rules::malformedJson, placeAt(error.offset), std::move(error.what), std::move(error.meant)));
    if (error.opened)
        findings.back().other = placeAt(*error.opened);
}

void JsonDictionary::findItems(std::vector<Finding>& findings)
{
    const std::size_t start = JsonCursor(m_text).next();
    if (!m_document.IsObject()) {
        findings.push_back(fatal(Rules::rootNotObject, placeAt(start),
                                 "the outermost value is " + std::string(typeOf(m_document)),
                                 m_document.IsArray() ? "{\"kel\": [...]} around the items" : ""));
        return;
    }
    const auto member = m_document.FindMember(rootName);
    if (member == m_document.MemberEnd()) {
        reportMissingRoot(findings);
        return;
    }
    checkSecondRoot(findings);
    if (!member->value.IsArray()) {
        const auto index = static_cast<std::size_t>(member - m_document.MemberBegin());
        findings.push_back(fatal(Rules::rootNotArray, placeAt(offsetOfRootMember(index)),
                                 "\"kel\" is " + std::string(typeOf(member->value)),
                                 "an array of items: \"kel\": [...]"));
        return;
    }
    m_items = &member->value;
    locateItems();
    if (!checkInheritedNames(findings))
        m_items = nullptr;
}

void JsonDictionary::reportMissingRoot(std::vector<Finding>& findings) const
{
    std::string meant;
    for (const auto& member : m_document.GetObject()) {
        const std::string name(member.name.GetString(), member.name.GetStringLength());
        if (name == "keldict")
            continue; // this tool's own
        if (nearest(name, {rootName}) || (m_document.MemberCount() == 1 && member.value.IsArray()))
            meant = "\"kel\" in place of " + inQuotes(name);
    }
    findings.push_back(fatal(Rules::missingRoot, placeAt(JsonCursor(m_text).next()),
                             "the outermost object has no member \"kel\"", meant));
}

void JsonDictionary::checkSecondRoot(std::vector<Finding>& findings) const
{
    const auto isRoot = [](const auto& member) { return member.name == rootName; };
    if (std::count_if(m_document.MemberBegin(), m_document.MemberEnd(), isRoot) > 1)
        reportSecondRoots(findings);
}

void JsonDictionary::reportSecondRoots(std::vector<Finding>& findings) const
{
    std::optional<std::size_t> first;
    JsonCursor cursor(m_text);
    cursor.enter();
    for (const auto& member : m_document.GetObject()) {
        cursor.skipValue(); // the key
        const std::size_t offset = cursor.next();
        if (member.name == rootName && first)
            findings.push_back({&Rules::duplicateRoot,
                                Severity::Error,
                                placeAt(offset),
                                {},
                                {},
                                "a second member \"kel\"",
                                "The device reads the first one only; all items in this one are lost.",
                                "one array with the items of both",
                                placeAt(*first),
                                {}});
        else if (member.name == rootName)
            first = offset;
        cursor.skipValue();
    }
}

/// Whether the device reads the items, with the names that they inherit.
bool JsonDictionary::checkInheritedNames(std::vector<Finding>& findings) const
{
    Ombrin::JsonInheritedNames inherited;
    std::string_view name;
    for (rapidjson::SizeType n = 0; n < m_items->Size(); ++n) {
        if (!(*m_items)[n].IsObject())
            continue;
        const Named item = named((*m_items)[n]);
        name = item.name.value_or(name);
        if (item.id != 0 && !item.name)
            inherited.add(name);
        if (inherited.isTooMuch()) {
            findings.push_back({&Rules::inheritedNames,
                                Severity::Error,
                                placeAt(offsetOfItem(n)),
                                {},
                                {},
                                "the items up to this one inherit names of more than 16 MiB in all",
                                "The device reads nothing from this file.",
                                "a NameID for every item",
                                {},
                                {}});
            return false;
        }
    }
    return true;
}

std::size_t JsonDictionary::offsetOfRootMember(std::size_t index) const
{
    JsonCursor cursor(m_text);
    cursor.enter();
    for (std::size_t passed = 0; passed < index; ++passed) {
        cursor.skipValue();
        cursor.skipValue();
    }
    cursor.skipValue();
    return cursor.next();
}

void JsonDictionary::locateItems()
{
    const auto index = static_cast<std::size_t>(m_document.FindMember(rootName) - m_document.MemberBegin());
    JsonCursor cursor(m_text, offsetOfRootMember(index));
    cursor.enter();
    m_offsets.reserve(m_items->Size());
    for (rapidjson::SizeType i = 0; i < m_items->Size(); ++i) {
        m_offsets.push_back(cursor.next());
        cursor.skipValue();
    }
}

std::string_view JsonDictionary::valueAt(std::size_t offset) const
{
    JsonCursor cursor(m_text, offset);
    cursor.skipValue();
    return m_text.substr(offset, cursor.offset() - offset);
}

std::vector<JsonDictionary::Member> JsonDictionary::membersOf(std::size_t index) const
{
    const rapidjson::Value& item = (*m_items)[static_cast<rapidjson::SizeType>(index)];
    JsonCursor cursor(m_text, m_offsets[index]);
    cursor.enter();
    std::vector<Member> members;
    members.reserve(item.MemberCount());
    for (rapidjson::SizeType i = 0; i < item.MemberCount(); ++i) {
        Member member{cursor.next(), 0};
        cursor.skipValue();
        member.value = cursor.next();
        cursor.skipValue();
        members.push_back(member);
    }
    return members;
}

} // namespace Keldict
