#pragma once

#include "finding.h"

#include <cstddef>
#include <iosfwd>
#include <vector>

namespace Keldict {

enum class Format
{
    Text,
    Json,
    Sarif
};

/// The findings for people to read, up to `limit` of each code in a file, and a line that sums all of them up.
void reportText(const std::vector<FileFindings>& files, bool inColour, std::size_t limit, std::ostream& out);

/// All findings as one JSON object.
void reportJson(const std::vector<FileFindings>& files, std::ostream& out);

/// All findings in SARIF 2.1.0, which code hosts and editors show.
void reportSarif(const std::vector<FileFindings>& files, std::ostream& out);

} // namespace Keldict
