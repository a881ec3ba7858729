#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace KelTest {

struct KillReport
{
    unsigned int seed = 0;
    int rounds = 0;
    long long blocks = 0;      ///< that the writers have handed to the file
    int withinTransaction = 0; ///< kills that left a journal to be taken back
    std::vector<std::string> failures;
};

/// In each round a child process writes blocks as fast as it can and is killed at a random instant; what it leaves has
/// to be whole, with everything that had been written before, and to be restored by a storage. Needs an empty working
/// directory, and a process without threads.
KillReport killWriters(int rounds, unsigned int seed);

void print(const KillReport& report, std::ostream& out);

} // namespace KelTest
