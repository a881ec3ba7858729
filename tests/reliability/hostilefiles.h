#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace KelTest {

/// Whose rows a database has.
enum class Columns
{
    Saved,        ///< of "kelmem.db"
    Configuration ///< of a configuration database
};

/// What a reader does with a file.
enum class Outcome
{
    Refused,
    Read,
    Either, ///< within the limits
    Ends    ///< with the process: a configuration that cannot be what it says
};

/// A file that claims more than it holds.
struct HostileFile
{
    std::string name;
    std::string bytes;
    Outcome outcome = Outcome::Refused;
    std::string journal{}; ///< the bytes of a rollback journal beside it; empty for none
};

std::vector<HostileFile> hostileDatabases(Columns columns);

std::vector<HostileFile> hostileDictionaries();

} // namespace KelTest
