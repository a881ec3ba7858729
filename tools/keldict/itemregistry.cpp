#include "itemregistry.h"

#include "words.h"

#include <utility>

namespace Keldict {

ItemRegistry::ItemRegistry(PlaceOfItem placeOf, std::size_t expected, std::vector<Finding>& findings)
    : m_placeOf(std::move(placeOf)), m_findings(findings)
{
    m_ids.reserve(expected);
    m_names.reserve(expected);
    m_foldedNames.reserve(expected);
}

void ItemRegistry::add(const CheckedItem& item, std::size_t n)
{
    const std::uint32_t id = item.record.ID;
    const auto [idEntry, idIsNew] = m_ids.try_emplace(id, n);
    const auto [name, nameIsNew] = m_names.try_emplace(item.record.NameID, Entry{n, id, nullptr});
    name->second.name = &name->first;

    if (!idIsNew)
        reportDuplicateId(item, idEntry->second, name->second);
    if (!nameIsNew && name->second.id != id)
        reportDuplicateName(item, name->second);
    if (nameIsNew)
        checkSimilarName(item, name->second);
}

void ItemRegistry::reportDuplicateId(const CheckedItem& item, std::size_t first, const Entry& named)
{
    const Place other = m_placeOf(first);
    std::string effect = "The item is lost: the first one with this ID stays.";
    if (named.id == item.record.ID && named.n != first)
        effect += " The name " + inQuotes(item.record.NameID) + " leads to that one.";
    Finding finding = warning(Rules::duplicateId, item, Field::ID, "ID " + std::to_string(item.record.ID) + " is taken",
                              std::move(effect));
    finding.severity = Severity::Error;
    finding.other = other;
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

void ItemRegistry::checkSimilarName(const CheckedItem& item, const Entry& entry)
{
    const auto [first, isNew] = m_foldedNames.try_emplace(folded(item.record.NameID), entry);
    if (isNew)
        return;
    Finding finding = warning(Rules::similarName, item, Field::NameID,
                              inQuotes(item.record.NameID) + " beside " + inQuotes(*first->second.name) + " of item " +
                                  std::to_string(first->second.id),
                              "They are two names: who looks for one does not find the other.");
    finding.other = m_placeOf(first->second.n);
    m_findings.push_back(std::move(finding));
}

} // namespace Keldict
