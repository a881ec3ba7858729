#pragma once

#include <string>

namespace KelFuzz {

/// Makes SQLite keep its files in memory, from the first call on. Locks are granted always: for one connection to a
/// file at a time.
void keepFilesInMemory();

/// Makes or replaces a file. Its content is read at the next opening.
void setFile(const std::string& name, const std::string& bytes);

void removeFiles();

} // namespace KelFuzz
