#pragma once

#include "rules.h"
#include "textposition.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Keldict {

/// Where in a file something stands: line and column in a JSON text, row in a database. All 0: the file as a whole.
struct Place
{
    TextPosition position;
    std::size_t row = 0;
};

struct Finding
{
    const Rule* rule;
    Severity severity;
    Place place;
    std::optional<std::uint32_t> id;     ///< of the item, where it has one
    std::string name;                    ///< of the item; the beginning of a long one
    std::string what;                    ///< what stands there
    std::string effect;                  ///< what the device would do
    std::string meant;                   ///< what was probably meant; may be empty
    std::optional<Place> other;          ///< a second place; see roleOfOther()
    std::optional<std::string> accepted; ///< why the dictionary's author wants it so
};

/// Codes of accepted warnings, with the reasons.
using Acceptances = std::map<std::string, std::string, std::less<>>;

/// What was found in one file.
struct FileFindings
{
    std::string file;
    std::size_t items = 0; ///< that the device would hold
    std::vector<Finding> findings;
    std::string unreadable; ///< why the file could not be read; empty: it could

    std::size_t errors() const;
    std::size_t warnings() const; ///< those not accepted
    std::size_t accepted() const;
};

/// What the second place of a finding is: "opened", of what is not closed, or "first", with which this one collides.
std::string_view roleOfOther(const Finding& finding);

/// "12:5", "row 7" or nothing.
std::string shown(const Place& place);

} // namespace Keldict
