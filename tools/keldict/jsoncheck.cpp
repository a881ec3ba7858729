#include "jsoncheck.h"

#include "itemregistry.h"
#include "itemrules.h"
#include "jsondictionary.h"
#include "jsontype.h"
#include "progress.h"
#include "words.h"

#include "datastorage/kelparsedbjson.h"

#include <array>
#include <bitset>
#include <cstring>
#include <utility>

namespace Keldict {

using Ombrin::tagStorageData;

namespace {

using Members = std::bitset<allFields.size()>;

std::size_t indexOf(Field field)
{
    return static_cast<std::size_t>(field);
}

std::string_view textOf(const rapidjson::Value& value)
{
    return {value.GetString(), value.GetStringLength()};
}

const rapidjson::Value& valueOf(const rapidjson::Value& item, std::size_t position)
{
    return (item.MemberBegin() + static_cast<std::ptrdiff_t>(position))->value;
}

/// Whether the loader takes a value of that type for the field.
bool takes(Field field, const rapidjson::Value& value)
{
    if (isValueField(field))
        return value.IsBool() || value.IsNumber() || value.IsString();
    return field == Field::NameID ? value.IsString() : value.IsUint();
}

/// The positions of the members that give the fields: of each, the last one that the loader takes.
using Positions = std::array<std::optional<std::size_t>, allFields.size()>;

Positions positionsThatCount(const rapidjson::Value& item)
{
    Positions found;
    std::size_t position = 0;
    for (const auto& member : item.GetObject()) {
        const auto field = fieldNamed(textOf(member.name));
        if (field && (!found[indexOf(*field)] || takes(*field, member.value)))
            found[indexOf(*field)] = position;
        ++position;
    }
    return found;
}

std::string_view wanted(Field field)
{
    if (isValueField(field))
        return "a bool, a number or a text";
    if (field == Field::NameID)
        return "a text";
    return isByteField(field) ? "an integer from 0 to 255" : "an integer from 1 to 4294967295";
}

/// What a value that is no integer from 0 would be as one.
std::string meantInteger(Field field, const rapidjson::Value& value)
{
    Ombrin::CkelVariant variant;
    Ombrin::CkelParseDBJson().setValue(value, variant);
    bool ok = false;
    const double number = variant.toDouble(&ok);
    const unsigned int integer = variant.toUInt();
    const bool isInteger = ok && number == integer && (field != Field::ID || integer > 0);
    if (isByteField(field) && integer > 0xFF)
        return "0 to 255";
    return isInteger ? std::to_string(integer) : std::string();
}

class JsonCheck
{
public:
    JsonCheck(const JsonDictionary& dictionary, FileFindings& result)
        : m_dictionary(dictionary),
          m_findings(result.findings),
          m_registry([&](std::size_t n) { return m_dictionary.placeAt(m_dictionary.offsetOfItem(n)); },
                     dictionary.items().Size(), result.findings)
    {}

    /// How many items the device would hold.
    std::size_t run(const std::string& file);

private:
    /// One item on its way through the checks.
    struct Item
    {
        std::size_t n;
        const rapidjson::Value& json;
        const CheckedItem& checked;
        Members given; // keys that are there
        Members taken; // and have a value that the loader takes
        std::vector<std::string_view> unknown;
    };

    /// Where the members of one item are.
    struct Located
    {
        std::size_t n;
        std::vector<JsonDictionary::Member> members;
        Positions counting;
    };

    const Located& located(std::size_t n) const;
    std::optional<std::size_t> positionOf(std::size_t n, Field field) const
    {
        return located(n).counting[indexOf(field)];
    }
    void checkElement(std::size_t n, const rapidjson::Value& json);
    void checkObject(std::size_t n, const rapidjson::Value& json);
    void checkMembers(Item& item);
    void checkMember(Item& item, std::size_t position, Field field, const rapidjson::Value& value);
    void checkText(const Item& item, Field field, std::string_view text);
    void reportWrongType(const Item& item, std::size_t position, Field field);
    void reportUnknownKey(const Item& item, std::size_t position, std::string_view key);
    void checkId(const Item& item);
    void checkInherited(const Item& item);
    std::string inheritedFrom() const;
    std::string written(std::size_t n, std::size_t position) const;
    std::string written(std::size_t n, Field field) const;
    std::string meantBy(const Item& item, std::size_t position, Field field) const;
    Place placeOf(std::size_t n, Field field) const;
    Place placeOfKey(std::size_t n, std::size_t position) const;
    Finding warningAt(const Item& item, Place place, const Rule& rule, std::string what, std::string effect,
                      std::string meant = {}) const;

    const JsonDictionary& m_dictionary;
    std::vector<Finding>& m_findings;
    ItemRegistry m_registry;
    Ombrin::CkelParseDBJson m_parser; // carries fields from one item to the next, as on the device
    std::optional<std::size_t> m_before;
    mutable std::optional<Located> m_located; // of the item with the last finding: one may have very many
};

std::size_t JsonCheck::run(const std::string& file)
{
    Progress progress(file);
    std::size_t n = 0;
    for (const rapidjson::Value& json : m_dictionary.items()) {
        progress.at(n, m_dictionary.items().Size());
        checkElement(n++, json);
    }
    if (n == 0)
        m_findings.push_back({&Rules::noItems,
                              Severity::Error,
                              {},
                              {},
                              {},
                              "the array \"kel\" is empty",
                              "The device holds no items of this file.",
                              {},
                              {},
                              {}});
    return m_registry.count();
}

void JsonCheck::checkElement(std::size_t n, const rapidjson::Value& json)
{
    if (json.IsObject()) {
        checkObject(n, json);
        m_before = n;
        return;
    }
    m_findings.push_back({&Rules::elementNotObject,
                          Severity::Error,
                          m_dictionary.placeAt(m_dictionary.offsetOfItem(n)),
                          {},
                          {},
                          "element " + std::to_string(n + 1) + " of \"kel\" is " + std::string(typeOf(json)),
                          "The device stops when it reads this element.",
                          "take it out",
                          {},
                          {}});
}

void JsonCheck::checkObject(std::size_t n, const rapidjson::Value& json)
{
    const tagStorageData& record = m_parser.deepParse(json, json.MemberCount(), {});
    Members taken;
    const CheckedItem checked{record, [&taken](Field field) { return taken.test(indexOf(field)); },
                              [this, n](Field field) { return placeOf(n, field); },
                              [this, n](Field field) { return written(n, field); }};
    Item item{n, json, checked, {}, {}, {}};
    checkMembers(item);
    checkId(item);
    if (record.ID == 0)
        return;
    m_registry.add(checked, n);
    checkInherited(item);
    taken = item.taken;
    checkItem(checked, m_findings);
}

// Members

void JsonCheck::checkMembers(Item& item)
{
    std::size_t position = 0;
    for (const auto& member : item.json.GetObject()) {
        const std::string_view key = textOf(member.name);
        const auto field = fieldNamed(key);
        if (field)
            checkMember(item, position, *field, member.value);
        else
            item.unknown.push_back(key);
        ++position;
    }
    if (item.unknown.empty())
        return;
    position = 0;
    for (const auto& member : item.json.GetObject()) {
        if (!fieldNamed(textOf(member.name)))
            reportUnknownKey(item, position, textOf(member.name));
        ++position;
    }
}

void JsonCheck::checkMember(Item& item, std::size_t position, Field field, const rapidjson::Value& value)
{
    const std::size_t bit = indexOf(field);
    if (item.given.test(bit))
        m_findings.push_back(warningAt(item, placeOfKey(item.n, position), Rules::duplicateKey,
                                       inQuotes(nameOf(field)) + " occurs again", "The last one counts."));
    item.given.set(bit);
    if (!takes(field, value)) {
        reportWrongType(item, position, field);
        return;
    }
    item.taken.set(bit);
    if (value.IsString())
        checkText(item, field, textOf(value));
    else if (isByteField(field) && value.GetUint() > 0xFF)
        m_findings.push_back(warning(
            Rules::byteOverflow, item.checked, field, std::string(nameOf(field)) + " is " + written(item.n, position),
            "Kept as " + std::to_string(value.GetUint() & 0xFFU) + ": only the low eight bits count.", "0 to 255"));
}

void JsonCheck::checkText(const Item& item, Field field, std::string_view text)
{
    if (const auto nul = text.find('\0'); nul != std::string_view::npos)
        m_findings.push_back(warning(Rules::nulInText, item.checked, field,
                                     std::string(nameOf(field)) + " holds a NUL character",
                                     "Cut to " + inQuotes(text.substr(0, nul)) + "."));
    if (!m_dictionary.isUtf8() && !isUtf8(text))
        m_findings.push_back(warning(Rules::invalidUtf8, item.checked, field,
                                     std::string(nameOf(field)) + " " + inQuotes(text) + " is not UTF-8",
                                     "The bytes are taken as they are; what shows them may not.",
                                     "save the file as UTF-8"));
}

void JsonCheck::reportWrongType(const Item& item, std::size_t position, Field field)
{
    if (field == Field::ID && item.checked.record.ID == 0)
        return; // an error of its own
    const Place place{m_dictionary.placeAt(located(item.n).members[position].value)};
    const bool isGivenAgain = takes(field, valueOf(item.json, *positionOf(item.n, field)));
    const std::string now = std::string(nameOf(field)) + " is " + shown(contentOf(item.checked.record, field));
    m_findings.push_back(warningAt(
        item, place, Rules::wrongType,
        std::string(nameOf(field)) + " is " + written(item.n, position) + " where " + std::string(wanted(field)) +
            " is taken",
        "It is passed over; " + now + (isGivenAgain ? ", as this item says elsewhere" : inheritedFrom()) + ".",
        meantBy(item, position, field)));
}

void JsonCheck::reportUnknownKey(const Item& item, std::size_t position, std::string_view key)
{
    std::vector<std::string_view> missing;
    for (const Field field : allFields) {
        if (!item.given.test(indexOf(field)))
            missing.push_back(nameOf(field));
    }
    auto meant = nearest(key, missing);
    if (!meant)
        meant = nearest(key, {fieldNames.begin(), fieldNames.end()});
    m_findings.push_back(warningAt(item, placeOfKey(item.n, position), Rules::unknownKey,
                                   inQuotes(key) + " is no key of an item", "It is ignored.",
                                   meant ? "did you mean " + inQuotes(*meant) + "?" : std::string()));
}

// Items

void JsonCheck::checkId(const Item& item)
{
    if (item.checked.record.ID != 0)
        return;
    const bool given = item.given.test(indexOf(Field::ID));
    std::string what = "the item has no ID";
    std::string meant;
    if (given) {
        const std::size_t position = *positionOf(item.n, Field::ID);
        what = "ID " + written(item.n, position) + " is no integer from 1 to 4294967295";
        meant = meantBy(item, position, Field::ID);
    } else {
        for (const std::string_view key : item.unknown) {
            if (nearest(key, {"ID"}))
                meant = "\"ID\" in place of " + inQuotes(key);
        }
    }
    m_findings.push_back(warning(given ? Rules::unusableId : Rules::missingId, item.checked, Field::ID, what,
                                 "The item is lost. What it gives is still inherited by the next one.", meant));
    m_findings.back().severity = Severity::Error;
}

void JsonCheck::checkInherited(const Item& item)
{
    std::string missing;
    std::string effect;
    for (const Field field : allFields) {
        if (item.given.test(indexOf(field)))
            continue;
        missing += (missing.empty() ? "" : ", ") + std::string(nameOf(field));
        effect += (effect.empty() ? "" : ", ") + std::string(nameOf(field)) + " " +
                  shown(contentOf(item.checked.record, field));
    }
    if (missing.empty())
        return;
    m_findings.push_back(
        warningAt(item, m_dictionary.placeAt(m_dictionary.offsetOfItem(item.n)), Rules::inheritedField,
                  missing + (item.given.count() + 1 == allFields.size() ? " is missing" : " are missing"),
                  "The item has " + effect + inheritedFrom() + ".", "give every key"));
}

std::string JsonCheck::inheritedFrom() const
{
    if (!m_before)
        return ", as a first item has without it";
    const std::size_t line = m_dictionary.placeAt(m_dictionary.offsetOfItem(*m_before)).position.line;
    return ", from the item before in line " + std::to_string(line);
}

// Values and places

const JsonCheck::Located& JsonCheck::located(std::size_t n) const
{
    if (!m_located || m_located->n != n)
        m_located = Located{n, m_dictionary.membersOf(n),
                            positionsThatCount(m_dictionary.items()[static_cast<rapidjson::SizeType>(n)])};
    return *m_located;
}

/// A value as it stands in the file, shortened.
std::string JsonCheck::written(std::size_t n, std::size_t position) const
{
    constexpr std::size_t longest = 40;
    const rapidjson::Value& value = valueOf(m_dictionary.items()[static_cast<rapidjson::SizeType>(n)], position);
    if (value.IsString())
        return inQuotes(textOf(value));
    if (!value.IsNumber() && !value.IsBool())
        return std::string(typeOf(value));
    const std::string_view text = m_dictionary.valueAt(located(n).members[position].value);
    return std::string(text.substr(0, longest)) + (text.size() > longest ? "..." : "");
}

std::string JsonCheck::written(std::size_t n, Field field) const
{
    return written(n, *positionOf(n, field));
}

/// What the value would be, had it the type that the field takes.
std::string JsonCheck::meantBy(const Item& item, std::size_t position, Field field) const
{
    const rapidjson::Value& value = valueOf(item.json, position);
    if (isValueField(field) || (field == Field::ID && value.IsUint()))
        return {};
    if (field != Field::NameID)
        return meantInteger(field, value);
    return value.IsNumber() ? "\"" + written(item.n, position) + "\", in quotes" : std::string();
}

Place JsonCheck::placeOf(std::size_t n, Field field) const
{
    std::size_t offset = m_dictionary.offsetOfItem(n);
    const auto found = positionOf(n, field);
    if (found)
        offset = located(n).members[*found].value;
    return m_dictionary.placeAt(offset);
}

Place JsonCheck::placeOfKey(std::size_t n, std::size_t position) const
{
    return m_dictionary.placeAt(located(n).members[position].key);
}

Finding JsonCheck::warningAt(const Item& item, Place place, const Rule& rule, std::string what, std::string effect,
                             std::string meant) const
{
    Finding finding = warning(rule, item.checked, Field::ID, std::move(what), std::move(effect), std::move(meant));
    finding.place = place;
    return finding;
}

// What the dictionary's author accepts

Finding wrongAcceptance(Place place, std::string what, std::string meant)
{
    return {&Rules::wrongAcceptance,
            Severity::Warning,
            place,
            {},
            {},
            std::move(what),
            "Nothing is accepted by it; the device does not read it.",
            std::move(meant),
            {},
            {}};
}

void readAcceptance(const std::string& code, const rapidjson::Value& reason, Place place, Acceptances& accepted,
                    std::vector<Finding>& findings)
{
    constexpr std::size_t longestReason = 500; // bytes: each finding has a copy
    const Rule* const rule = Rules::find(code);
    if (rule && rule->severity == Severity::Warning && reason.IsString()) {
        accepted.insert_or_assign(code, shortened(textOf(reason), longestReason));
        return;
    }
    std::vector<std::string_view> codes;
    for (const Rule* known : Rules::all()) {
        if (known->severity == Severity::Warning)
            codes.push_back(known->code);
    }
    const auto meant = nearest(code, codes);
    if (rule && rule->severity == Severity::Warning)
        findings.push_back(wrongAcceptance(place, inQuotes(code) + " without a reason", "the reason as a text"));
    else
        findings.push_back(wrongAcceptance(place, inQuotes(code) + " is no warning of this tool",
                                           meant ? "did you mean " + inQuotes(*meant) + "?" : std::string()));
}

/// The root's member "keldict": {"accept": {CODE: REASON, ...}}.
void readAcceptances(const JsonDictionary& dictionary, Acceptances& accepted, std::vector<Finding>& findings)
{
    const auto own = dictionary.root().FindMember("keldict");
    if (own == dictionary.root().MemberEnd())
        return;
    const auto index = static_cast<std::size_t>(own - dictionary.root().MemberBegin());
    const Place place = dictionary.placeAt(dictionary.offsetOfRootMember(index));
    const auto list = own->value.IsObject() ? own->value.FindMember("accept") : own;
    if (!own->value.IsObject() || list == own->value.MemberEnd() || !list->value.IsObject()) {
        findings.push_back(
            wrongAcceptance(place, R"("keldict" holds no object "accept")", R"({"accept": {"code": "reason"}})"));
        return;
    }
    for (const auto& entry : list->value.GetObject())
        readAcceptance(std::string(textOf(entry.name)), entry.value, place, accepted, findings);
}

} // namespace

void checkJson(Source source, Acceptances& accepted, FileFindings& result)
{
    const JsonDictionary dictionary(std::move(source.bytes), result.findings);
    if (!dictionary.hasItems())
        return;
    readAcceptances(dictionary, accepted, result.findings);
    result.items = JsonCheck(dictionary, result).run(source.name);
}

} // namespace Keldict
