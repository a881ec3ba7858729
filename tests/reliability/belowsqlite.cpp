#include "tests/reliability/attacked.h"
#include "tests/reliability/childprocess.h"
#include "tests/reliability/outside.h"

#include <sstream>

namespace KelTest {

namespace {

constexpr const char* failed = "  FAILED ";

/// Takes over what the attacked process says: its figures, and what it says is wrong.
void note(const Ending& ending, OutsideReport& report)
{
    std::istringstream lines(ending.output);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind(failed, 0) == 0)
            report.failures.push_back(line.substr(std::string(failed).size()));
        else
            report.figures.push_back(line);
    }
    if (report.failures.empty() && (ending.hung || ending.status != 0))
        report.failures.push_back("the attacked process " + ending.text());
}

} // namespace

OutsideReport failBelowSqlite(int rounds, unsigned int seed)
{
    constexpr int walkedRows = 3;
    ProcessLimits limits;
    limits.time = std::chrono::seconds(60 + rounds);
    OutsideReport report;
    report.attack = "calls that fail below SQLite (seed " + std::to_string(seed) + ")";
    const std::vector<std::string> preload{"LD_PRELOAD=" + libraryOfFaults()};
    note(ChildProcess(attackedCommand({"walk", std::to_string(walkedRows)}), limits, preload).wait(), report);
    note(ChildProcess(attackedCommand({"lives", std::to_string(rounds), std::to_string(seed)}), limits, preload).wait(),
         report);
    return report;
}

} // namespace KelTest
