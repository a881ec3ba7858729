#include "tests/reliability/attacked.h"

#include "tests/reliability/outside.h"

#include <functional>
#include <map>
#include <stdexcept>

namespace KelTest {

std::vector<std::string> attackedCommand(const std::vector<std::string>& arguments)
{
    std::vector<std::string> command{KEL_TORTURE, "attacked"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

std::string libraryOfFaults()
{
    return KEL_PRELOADED_FAULTS;
}

int runAttacked(const std::vector<std::string>& arguments)
{
    const auto number = [&](std::size_t position) { return std::stoi(arguments.at(position)); };
    const std::map<std::string, std::function<int()>> kinds{
        {"walk", [&] { return walkBelowSqlite(number(1)); }},
        {"lives", [&] { return liveWithFaults(number(1), static_cast<unsigned int>(std::stoul(arguments.at(2)))); }},
        {"signals", startUnderSignals},
        {"termination", waitForTermination},
        {"start", startOnFile},
        {"use", useFile},
        {"configuration", [&] { return readConfiguration(arguments.at(1)); }},
        {"dictionary", [&] { return readDictionary(arguments.at(1)); }},
        {"pipes", meetPipes},
        {"output", fillOutput},
    };
    return kinds.at(arguments.at(0))();
}

void print(const OutsideReport& report, std::ostream& out)
{
    out << report.attack << '\n';
    for (const std::string& figure : report.figures)
        out << "  " << figure << '\n';
    for (const std::string& failure : report.failures)
        out << "  FAILED " << failure << '\n';
}

} // namespace KelTest
