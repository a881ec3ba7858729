#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace KelTest {

/// What came of walking through the fault points of one operation.
struct FaultReport
{
    std::string operation;
    long points = 0;                   ///< at which something failed
    long successes = 0;                ///< in spite of it
    std::vector<std::string> failures; ///< of the library; the walk ends after some
};

/// Lets every call into the file system fail, one after the other, in every way and in each of the operations that
/// work on a file: writing, rebuilding, loading, restoring, recovering from a crash. Needs an empty working directory;
/// the tables have `rows` rows.
std::vector<FaultReport> walkFaults(int rows);

/// One line for each operation, and what went wrong.
void print(const std::vector<FaultReport>& reports, std::ostream& out);

} // namespace KelTest
