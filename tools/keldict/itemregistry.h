#pragma once

#include "finding.h"
#include "itemrules.h"

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
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
    std::size_t count() const { return m_ids.size(); }

private:
    struct Entry
    {
        std::size_t n;
        std::uint32_t id;
        const std::string* name; ///< as spelled there
    };

    using Names = std::unordered_map<std::string, Entry>;

    void reportDuplicateId(const CheckedItem& item, std::size_t first, const Entry& named);
    void reportDuplicateName(const CheckedItem& item, const Entry& first);
    void checkSimilarName(const CheckedItem& item, const Entry& entry);

    const PlaceOfItem m_placeOf;
    std::vector<Finding>& m_findings;
    std::unordered_map<std::uint32_t, std::size_t> m_ids;
    Names m_names;
    Names m_foldedNames;
};

} // namespace Keldict
