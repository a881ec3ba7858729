#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace KelTest {

// Attacks on a storage from outside its process: a C library whose calls fail, signals, other processes, hostile files,
// an output that nobody reads. Each needs an empty working directory, and a process without threads.

struct OutsideReport
{
    std::string attack;
    std::vector<std::string> figures;
    std::vector<std::string> failures;
};

/// Lets calls fail below SQLite: each call of each operation once, and `rounds` lives of a storage with calls that fail
/// at random.
OutsideReport failBelowSqlite(int rounds, unsigned int seed);

/// Starts a storage that a signal interrupts every millisecond, on a file that is locked for `seconds`; ends processes
/// by SIGTERM, which main waits for, `rounds` times.
OutsideReport interrupt(int seconds, int rounds, unsigned int seed);

/// Three processes write one file, a memory storage, a safe storage and a program without the library, and are killed
/// at random instants, `rounds` times.
OutsideReport shareFile(int rounds, unsigned int seed);

/// Lets the library, and the program `keldict` unless its path is empty, read files that take all memory or for ever,
/// or that are no files.
OutsideReport readHostileFiles(const std::string& keldict);

/// Fills the standard output of a process; its lookups go on.
OutsideReport leaveOutputUnread();

/// The attacked process's part: what kel_torture does when it is started with "attacked" and these arguments. Gives its
/// exit status.
int runAttacked(const std::vector<std::string>& arguments);

void print(const OutsideReport& report, std::ostream& out);

} // namespace KelTest
