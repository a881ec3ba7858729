#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>

namespace Keldict {

/// Which items to show.
struct Selection
{
    std::optional<unsigned int> block;
    std::uint32_t firstId = 0;
    std::uint32_t lastId = std::numeric_limits<std::uint32_t>::max();
    std::string nameGlob; ///< empty: any name
};

/// Prints the items of a file as a table, or as a JSON dictionary.
int show(const std::string& file, const Selection& selection, bool asJson);

} // namespace Keldict
