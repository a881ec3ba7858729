#pragma once

#include "items.h"

#include <set>
#include <vector>

namespace Demo {

/// Writes down what memory holds, for the process after the restart; `before` also lists items since deleted. False
/// when it cannot be written.
bool writeExpected(const Storage& storage, const std::vector<Item>& before, const std::set<unsigned int>& changed);

/// Compares the storage with what was written down, and prints which values came back, which did not, and why. False
/// when a value is missing without a reason.
bool reportRestored(const Storage& storage);

} // namespace Demo
