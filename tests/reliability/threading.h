#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace KelTest {

struct ThreadsReport
{
    unsigned int seed = 0;
    int storages = 0;  ///< started and destroyed
    int moves = 0;     ///< of timers between threads
    int processes = 0; ///< ended at a random instant
    std::vector<std::string> failures;
};

/// Starts and destroys storages while threads use them, at random instants. Needs an empty working directory and the
/// application's thread.
ThreadsReport restartStorages(int rounds, unsigned int seed);

/// Timers that move themselves from thread to thread at each time-out.
ThreadsReport moveTimers(int moves);

/// Processes that end while threads change values and workers write: by return from main, by exit and by quick_exit.
/// Needs an empty working directory and a process without threads.
ThreadsReport endProcesses(int rounds, unsigned int seed);

void print(const ThreadsReport& report, std::ostream& out);

} // namespace KelTest
