#pragma once

#include "finding.h"

#include <iosfwd>
#include <vector>

namespace Keldict {

enum class Format
{
    Text,
    Json,
    Sarif
};

/// The findings for people to read, and a line that sums them up.
void reportText(const std::vector<FileFindings>& files, bool inColour, std::ostream& out);

/// The findings as one JSON object.
void reportJson(const std::vector<FileFindings>& files, std::ostream& out);

/// The findings in SARIF 2.1.0, which code hosts and editors show.
void reportSarif(const std::vector<FileFindings>& files, std::ostream& out);

} // namespace Keldict
