#include "kernel/kelapplicationplus.h"
#include "tests/reliability/faultwalk.h"
#include "tests/reliability/killing.h"
#include "tests/reliability/outside.h"
#include "tests/reliability/soaking.h"
#include "tests/reliability/threading.h"

#include <chrono>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <random>
#include <stdexcept>
#include <string>

using namespace KelTest;

// The long forms of the reliability tests; scripts/torture starts them.

namespace {

constexpr const char* usage = R"(Usage: kel_torture kill ROUNDS [SEED]
       kel_torture faults ROWS
       kel_torture threads ROUNDS [SEED]
       kel_torture soak MINUTES
       kel_torture outside ROUNDS [SEED]
)";

/// A folder to work in, gone afterwards.
class WorkFolder
{
public:
    WorkFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "keltorture-XXXXXX").string();
        if (!mkdtemp(name.data()))
            throw std::runtime_error("no folder to work in");
        m_path = name;
        std::filesystem::current_path(m_path);
    }
    ~WorkFolder()
    {
        std::error_code ignored;
        std::filesystem::current_path("/", ignored);
        std::filesystem::remove_all(m_path, ignored);
    }
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;

private:
    std::filesystem::path m_path;
};

/// Prints the report; whether it is good.
template <typename Report>
bool good(const Report& report)
{
    print(report, std::cout);
    std::cout.flush(); // before the next process is forked off
    return report.failures.empty();
}

bool walk(int rows)
{
    const auto reports = walkFaults(rows);
    print(reports, std::cout);
    bool allGood = true;
    for (const FaultReport& report : reports)
        allGood = allGood && report.failures.empty();
    return allGood;
}

bool attack(int rounds, unsigned int seed)
{
    constexpr int locked = 3; // seconds
    bool allGood = good(failBelowSqlite(10 * rounds, seed));
    allGood = good(interrupt(locked, rounds, seed)) && allGood;
    allGood = good(shareFile(rounds, seed)) && allGood;
    allGood = good(readHostileFiles(KEL_KELDICT)) && allGood;
    return good(leaveOutputUnread()) && allGood;
}

bool torture(const std::string& kind, int amount, unsigned int seed)
{
    int argc = 0;
    if (kind == "outside")
        return attack(amount, seed);
    if (kind == "kill")
        return good(killWriters(amount, seed));
    if (kind == "faults")
        return walk(amount);
    if (kind == "threads") {
        const bool ended = good(endProcesses(amount, seed)); // first: it needs a process without threads
        const Ombrin::CkelApplicationPlus application(argc, nullptr);
        const bool restarted = good(restartStorages(amount, seed));
        return good(moveTimers(20 * amount)) && restarted && ended;
    }
    if (kind == "soak") {
        const Ombrin::CkelApplicationPlus application(argc, nullptr);
        SoakSettings settings;
        settings.duration = std::chrono::minutes(amount);
        return good(soak(settings));
    }
    throw std::invalid_argument(kind);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const std::string kind = argc > 1 ? argv[1] : "";
        if (kind == "attacked") // by another process of this program
            return runAttacked({argv + 2, argv + argc});
        const int amount = std::stoi(argc > 2 ? argv[2] : "");
        const auto seed = argc > 3 ? static_cast<unsigned int>(std::stoul(argv[3])) : std::random_device()();
        const WorkFolder folder;
        return torture(kind, amount, seed) ? 0 : 1;
    } catch (const std::logic_error&) { // no such kind, no such number
        std::cerr << usage;
        return 2;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 3;
    }
}
