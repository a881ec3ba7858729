#pragma once

#include "finding.h"
#include "hashindex.h"
#include "itemrules.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Keldict {

/// Keeps IDs and names as the storages index them, the first of each, and reports what comes too late.
class ItemRegistry
{
public:
    using PlaceOfItem = std::function<Place(std::size_t)>; ///< of the n-th item of the file

    ItemRegistry(PlaceOfItem placeOf, std::size_t expected, std::vector<Finding>& findings);

    /// Takes the n-th item of the file, which has an ID.
    void add(const CheckedItem& item, std::size_t n);

    /// How many items the device would hold.
    std::size_t count() const { return m_ids.count(); }

private:
    struct Entry
    {
        std::size_t n;
        std::size_t nameBegin;
        std::size_t nameSize;
        std::uint32_t id;
    };

    std::string_view nameOf(const Entry& entry) const { return {m_names.data() + entry.nameBegin, entry.nameSize}; }
    void reportDuplicateId(const CheckedItem& item, const Entry& first, const Entry& named);
    void reportDuplicateName(const CheckedItem& item, const Entry& first);
    void checkSimilarName(const CheckedItem& item, std::uint32_t entry);

    const PlaceOfItem m_placeOf;
    std::vector<Finding>& m_findings;
    std::vector<Entry> m_entries;
    std::string m_names; // one after the other
    HashIndex m_ids;
    HashIndex m_byName;
    HashIndex m_byFoldedName;
};

} // namespace Keldict
