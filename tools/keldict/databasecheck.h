#pragma once

#include "finding.h"
#include "source.h"

namespace Keldict {

/// Checks a configuration database.
void checkDatabase(const Source& source, FileFindings& result);

} // namespace Keldict
