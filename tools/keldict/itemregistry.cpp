#include "itemregistry.h"

#include "words.h"

#include <utility>

namespace Keldict {

ItemRegistry::ItemRegistry(PlaceOfItem placeOf, std::size_t expected, std::vector<Finding>& findings)
    : m_placeOf(std::move(placeOf)), m_findings(findings), m_ids(expected), m_byName(expected), m_byFoldedName(expected)
{
    m_entries.reserve(expected);
}

void ItemRegistry::add(const CheckedItem& item, std::size_t n)
{
    const std::uint32_t id = item.record.ID;
    const std::string_view name = item.record.NameID;
    const auto entry = static_cast<std::uint32_t>(m_entries.size());
    m_entries.push_back({n, m_names.size(), name.size(), id});
    m_names += name;

    const auto withId = m_ids.findOrAdd(id, entry, [&](std::uint32_t other) { return m_entries[other].id == id; });
    const auto named = m_byName.findOrAdd(std::hash<std::string_view>()(name), entry,
                                          [&](std::uint32_t other) { return nameOf(m_entries[other]) == name; });
    if (withId != entry)
        reportDuplicateId(item, m_entries[withId], m_entries[named]);
    if (named == entry)
        checkSimilarName(item, entry);
    else if (m_entries[named].id != id)
        reportDuplicateName(item, m_entries[named]);
}

void ItemRegistry::reportDuplicateId(const CheckedItem& item, const Entry& first, const Entry& named)
{
    std::string effect = "The item is lost: the first one with this ID stays.";
    if (named.id == item.record.ID && named.n != first.n)
        effect += " The name " + inQuotes(item.record.NameID) + " leads to that one.";
    Finding finding = warning(Rules::duplicateId, item, Field::ID, "ID " + std::to_string(item.record.ID) + " is taken",
                              std::move(effect));
    finding.severity = Severity::Error;
    finding.other = m_placeOf(first.n);
    m_findings.push_back(std::move(finding));
}

void ItemRegistry::reportDuplicateName(const CheckedItem& item, const Entry& first)
{
    Finding finding =
        warning(Rules::duplicateName, item, Field::NameID, "the name " + inQuotes(item.record.NameID) + " is taken",
                "The name leads to item " + std::to_string(first.id) + "; this one is found by its ID only.");
    finding.severity = Severity::Error;
    finding.other = m_placeOf(first.n);
    m_findings.push_back(std::move(finding));
}

void ItemRegistry::checkSimilarName(const CheckedItem& item, std::uint32_t entry)
{
    const std::string plain = folded(item.record.NameID);
    const auto found = m_byFoldedName.findOrAdd(std::hash<std::string>()(plain), entry, [&](std::uint32_t other) {
        return folded(nameOf(m_entries[other])) == plain;
    });
    if (found == entry)
        return;
    const Entry& first = m_entries[found];
    const std::string_view how =
        isSameComposed(item.record.NameID, nameOf(first)) ? ", with letters composed otherwise" : "";
    Finding finding = warning(Rules::similarName, item, Field::NameID,
                              inQuotes(item.record.NameID) + " beside " + inQuotes(nameOf(first)) + " of item " +
                                  std::to_string(first.id) + std::string(how),
                              "They are two names: who looks for one does not find the other.");
    finding.other = m_placeOf(first.n);
    m_findings.push_back(std::move(finding));
}

} // namespace Keldict
