#include "datastorage/kelsafememorystorage.h"
#include "tests/reliability/attacked.h"
#include "tests/reliability/childprocess.h"
#include "tests/reliability/outside.h"
#include "tests/reliability/savedrows.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <stdexcept>
#include <thread>

using namespace Ombrin;

namespace KelTest {

namespace {

using namespace std::chrono_literals;

constexpr int itemCount = 100;
constexpr int wantedLookups = 1000;
constexpr const char* dictionary = "dictionary.json";

/// While it lives, a pipe that nobody reads is the standard output. Then nobody waits for it any more.
class UnreadOutput
{
public:
    UnreadOutput()
    {
        if (pipe(m_ends.data()) != 0 || dup2(m_ends[1], STDOUT_FILENO) < 0)
            throw std::runtime_error("no pipe");
        constexpr int page = 4096;
        fcntl(m_ends[1], F_SETPIPE_SZ, page);
        std::signal(SIGPIPE, SIG_IGN);
    }
    ~UnreadOutput() { close(m_ends[0]); }
    UnreadOutput(const UnreadOutput&) = delete;
    UnreadOutput& operator=(const UnreadOutput&) = delete;

private:
    std::array<int, 2> m_ends{};
};

/// Waits until the counter stands still: the writer waits for the pipe.
void waitForStandstill(const std::atomic<long long>& counter)
{
    for (long long before = -1; before != counter || before == 0; std::this_thread::sleep_for(200ms))
        before = counter;
}

/// Whether so many lookups are done before the time is over.
bool goOn(const std::atomic<long long>& lookups)
{
    const long long wanted = lookups + wantedLookups;
    const auto until = std::chrono::steady_clock::now() + 20s;
    while (lookups < wanted && std::chrono::steady_clock::now() < until)
        std::this_thread::sleep_for(1ms);
    return lookups >= wanted;
}

} // namespace

OutsideReport leaveOutputUnread()
{
    OutsideReport report;
    report.attack = "an output that nobody reads";
    writeDictionary(dictionary, integerItems(1, itemCount, 0));
    const Ending ending = ChildProcess(attackedCommand({"output"})).wait();
    if (ending.status != 0)
        report.failures.push_back(ending.status == 1 ? "lookups wait for the output"
                                                     : "the attacked process " + ending.text());
    return report;
}

int fillOutput()
{
    CkelSafeMemoryStorage storage;
    storage.readConfigFile(dictionary, true);
    std::atomic<long long> insertions{0};
    std::atomic<long long> lookups{0};
    bool haveGoneOn = false;
    {
        const UnreadOutput output;
        // Both run until the process ends.
        std::thread([&] {
            for (;; ++insertions)
                storage.insertData(integerItem(1, 1)); // it is there already, and reported
        }).detach();
        waitForStandstill(insertions);
        std::thread([&] {
            for (;; ++lookups)
                storage.queryValue(1);
        }).detach();
        haveGoneOn = goOn(lookups);
    }
    _exit(haveGoneOn ? 0 : 1); // a sanitizer flushes the output first
}

} // namespace KelTest
