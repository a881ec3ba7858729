#pragma once

#include "finding.h"
#include "source.h"

namespace Keldict {

/// Checks a JSON dictionary. The warnings that the dictionary itself accepts are added to `accepted`.
void checkJson(Source source, Acceptances& accepted, FileFindings& result);

} // namespace Keldict
