#include "finding.h"

#include <algorithm>

namespace Keldict {

namespace {

template <typename Test>
std::size_t count(const std::vector<Finding>& findings, Test test)
{
    return static_cast<std::size_t>(std::count_if(findings.begin(), findings.end(), test));
}

} // namespace

std::size_t FileFindings::errors() const
{
    return count(findings, [](const Finding& finding) { return finding.severity == Severity::Error; });
}

std::size_t FileFindings::warnings() const
{
    return findings.size() - errors() - accepted();
}

std::size_t FileFindings::accepted() const
{
    return count(findings, [](const Finding& finding) { return finding.accepted.has_value(); });
}

std::string_view roleOfOther(const Finding& finding)
{
    return finding.rule == &Rules::malformedJson ? "opened" : "first";
}

std::string shown(const Place& place)
{
    if (place.row != 0)
        return "row " + std::to_string(place.row);
    if (place.position.line == 0)
        return {};
    return std::to_string(place.position.line) + ":" + std::to_string(place.position.column);
}

} // namespace Keldict
