#pragma once

#include <chrono>
#include <ostream>
#include <string>
#include <vector>

namespace KelTest {

struct SoakSettings
{
    std::chrono::seconds duration{0};
    std::chrono::seconds leg{60}; ///< of load, before the next rest
    unsigned int items = 10000;
    int changesPerSecond = 5000; ///< of all threads together
    int threads = 4;
    bool judgeGrowth = true; ///< of the memory, which takes minutes to show
};

/// The process's memory at one moment, in KiB.
struct MemorySample
{
    double seconds;  ///< since the beginning
    double inUse;    ///< asked for and not given back, by the library, the test and SQLite
    double resident; ///< with what the allocator keeps of freed memory
};

/// MiB an hour, by a linear fit through `quantity` of the last two thirds; the first third is the warm-up.
double growthAfterWarmUp(const std::vector<MemorySample>& samples, double MemorySample::*quantity);

struct SoakReport
{
    long long changes = 0;
    long long delivered = 0;
    long long outOfOrder = 0;   ///< events lost, delivered twice or in the wrong order
    long long longestQueue = 0; ///< events that waited for the application's loop
    double longestDelay = 0;    ///< seconds from a change to its row in the file
    double longestDrain = 0; ///< seconds from the end of the changes to the last row, about one for each waiting block
    long long unsaved = 0;   ///< items whose last value did not reach the file
    std::vector<MemorySample> loads; ///< every second of load: events and blocks wait
    std::vector<MemorySample> rests; ///< neither waits, and the allocator has given back what it keeps
    long long lookups = 0;
    double p50 = 0, p99 = 0, p9999 = 0; ///< microseconds of one lookup through the safe storage
    std::vector<std::string> failures;
};

/// A safe storage under steady load, with its collector and its worker running and a listener attached. Needs an empty
/// working directory; turns the calling thread's loop, which has to be the application's.
SoakReport soak(const SoakSettings& settings);

void print(const SoakReport& report, std::ostream& out);

} // namespace KelTest
