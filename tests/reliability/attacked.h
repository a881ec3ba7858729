#pragma once

#include <string>
#include <vector>

namespace KelTest {

/// The command that starts the attacked process.
std::vector<std::string> attackedCommand(const std::vector<std::string>& arguments);

/// The library for LD_PRELOAD; see preloadedfaults.h.
std::string libraryOfFaults();

// What the attacked process does, one function for each kind. Each gives the exit status: 0 when all that is promised
// has held.

int walkBelowSqlite(int rows);
int liveWithFaults(int rounds, unsigned int seed);
int startUnderSignals();
int waitForTermination();
int startOnFile();
int useFile();
int readConfiguration(const std::string& path);
int readDictionary(const std::string& path);
int meetPipes();
int fillOutput();

} // namespace KelTest
