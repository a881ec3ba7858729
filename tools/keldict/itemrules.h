#pragma once

#include "fields.h"
#include "finding.h"

#include <functional>
#include <vector>

namespace Keldict {

/// An item as the device would hold it, and where the file gives it.
struct CheckedItem
{
    const Ombrin::tagStorageData& record;
    std::function<bool(Field)> gives;          ///< whether the file gives the field for this item itself
    std::function<Place(Field)> placeOf;       ///< of the field, or of the item where it does not give it
    std::function<std::string(Field)> written; ///< a value that the file gives, as it stands there
};

/// A warning about one field of an item.
Finding warning(const Rule& rule, const CheckedItem& item, Field field, std::string what, std::string effect,
                std::string meant = {});

/// Checks what does not depend on the kind of file or on other items: the number, the name, the type and the values.
void checkItem(const CheckedItem& item, std::vector<Finding>& findings);

} // namespace Keldict
