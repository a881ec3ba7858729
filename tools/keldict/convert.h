#pragma once

#include <string>

namespace Keldict {

/// Writes what the library loads from one file as a file of the other kind, told by its name, and says what of it the
/// library will not read back from there. 0: everything is kept; 1: something is not.
int convert(const std::string& in, const std::string& out, bool force);

} // namespace Keldict
