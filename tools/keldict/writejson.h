#pragma once

#include "dictionary.h"

#include <iosfwd>

namespace Keldict {

/// Writes a JSON dictionary, an item on each line.
void writeJson(const Dictionary& dictionary, std::ostream& out);

} // namespace Keldict
