#pragma once

#include "commandline.h"
#include "items.h"

#include <string>

namespace Demo {

inline constexpr const char* savedValuesFile = "kelmem.db"; ///< the library's, in the working directory

/// Checks the dictionary's file, makes the folder and changes into it: the library opens its file in the working
/// directory. Returns what is wrong, or nothing.
std::string prepareFiles(const Options& options);

/// Fills the storage from the dictionary and from the values saved earlier, and says so. Returns what is wrong, or
/// nothing.
std::string load(Storage& storage, const Options& options);

/// Makes the storage save every item of a configuration database; see the explanation that it prints. The items are
/// on their way while `isRegistering`; until then none may change.
void registerItems(Storage& storage);
bool isRegistering(const Storage& storage);

bool isDatabase(const Options& options);

} // namespace Demo
