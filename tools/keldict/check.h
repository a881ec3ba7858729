#pragma once

#include "finding.h"

namespace Keldict {

/// Checks a dictionary or a configuration database of any kind. Warnings of the `accepted` codes, and of those that
/// the dictionary itself accepts, are marked so.
FileFindings checkFile(const std::string& name, Acceptances accepted);

/// Text is read and warnings counted: 0, 1 (with `strict`) 2 or 3.
int statusOf(const FileFindings& findings, bool strict);

} // namespace Keldict
