#pragma once

#include "dictionary.h"

#include <string>

namespace Keldict {

/// Writes a configuration database into an empty file. Ends with `Unreadable` when it cannot be written.
void writeDatabase(const Dictionary& dictionary, const std::string& path);

} // namespace Keldict
