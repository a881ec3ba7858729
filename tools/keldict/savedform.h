#pragma once

#include "fields.h"

#include <optional>

namespace Keldict {

/// What the saved file gives back for a field once the device has written the item and read it again; nothing when it
/// does not read items of that type.
std::optional<Ombrin::CkelVariant> savedAndRead(const Ombrin::tagStorageData& item, Field field);

/// The item's value after a restart that finds it in the saved file; nothing when the file does not give it back.
std::optional<Ombrin::CkelVariant> afterRestart(const Ombrin::tagStorageData& item);

} // namespace Keldict
