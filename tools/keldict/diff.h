#pragma once

#include "dictionary.h"

#include <string>
#include <vector>

namespace Keldict {

/// What became of one item.
struct Difference
{
    enum class Kind
    {
        Removed,
        Added,
        Changed
    };

    struct Change
    {
        std::string_view field;
        std::string before;
        std::string after;
    };

    Kind kind;
    std::uint32_t id;
    std::string name;
    std::vector<Change> changes; ///< of a changed item
};

/// What differs, by ID: in the order of the first dictionary, then what the second one adds. Numbers are compared as
/// numbers, whatever their type. DBSource counts only where both have it.
std::vector<Difference> differencesOf(const Dictionary& before, const Dictionary& after);

/// Prints what differs between two files. 0: nothing; 1: something.
int diff(const std::string& before, const std::string& after);

} // namespace Keldict
