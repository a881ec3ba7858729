#include "datastorage/keldatastoragefactory.h"
#include "datastorage/kelmemorydatastorage.h"
#include "datastorage/kelmemorydb.h"
#include "tests/reliability/attacked.h"
#include "tests/reliability/childprocess.h"
#include "tests/reliability/outside.h"
#include "tests/reliability/savedrows.h"

#include <signal.h> // NOLINT(modernize-deprecated-headers): sigtimedwait is POSIX
#include <sqlite3.h>
#include <sys/time.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <thread>

using namespace Ombrin;

namespace KelTest {

namespace {

using namespace std::chrono_literals;

constexpr int rowCount = 100;
constexpr long long savedValue = 10;
constexpr const char* dictionary = "dictionary.json";
constexpr const char* readyMark = "ready"; // a file that the attacked process makes
constexpr int termination = 20;            // seconds until a process that waits for SIGTERM gives up

/// Holds "kelmem.db" locked while it lives.
class LockedFile
{
public:
    LockedFile()
    {
        sqlite3_open("kelmem.db", &m_connection);
        sqlite3_exec(m_connection, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr);
    }
    ~LockedFile() { sqlite3_close(m_connection); }
    LockedFile(const LockedFile&) = delete;
    LockedFile& operator=(const LockedFile&) = delete;

    bool isLocked() const { return sqlite3_get_autocommit(m_connection) == 0; }

private:
    sqlite3* m_connection = nullptr;
};

void startLocked(int seconds, OutsideReport& report)
{
    Ending ending;
    ChildProcess process(attackedCommand({"signals"}));
    {
        const LockedFile lock;
        if (!lock.isLocked())
            report.failures.emplace_back("the file cannot be locked");
        std::this_thread::sleep_for(std::chrono::seconds(seconds));
    }
    ending = process.wait();
    report.figures.push_back("file locked for " + std::to_string(seconds) + " s: " + ending.output);
    if (ending.status != 0)
        report.failures.push_back("a start under signals on a locked file " + ending.text());
}

bool waitUntilReady()
{
    const auto until = std::chrono::steady_clock::now() + 60s;
    while (!std::filesystem::exists(readyMark)) {
        if (std::chrono::steady_clock::now() > until)
            return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

void terminateOne(std::mt19937& random, OutsideReport& report)
{
    std::filesystem::remove(readyMark);
    ChildProcess process(attackedCommand({"termination"}));
    const bool isReady = waitUntilReady();
    std::this_thread::sleep_for(std::chrono::microseconds(std::uniform_int_distribution<int>(0, 30000)(random)));
    process.send(SIGTERM);
    const Ending ending = process.wait();
    if (!isReady || ending.status != 0)
        report.failures.push_back("a process that waits for SIGTERM " + ending.text());
}

/// Without SA_RESTART: every call that waits is interrupted.
void interruptEveryMillisecond()
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    constexpr itimerval millisecond{{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &millisecond, nullptr);
}

} // namespace

OutsideReport interrupt(int seconds, int rounds, unsigned int seed)
{
    OutsideReport report;
    report.attack = "signals (seed " + std::to_string(seed) + ")";
    std::mt19937 random(seed);
    writeDictionary(dictionary, integerItems(1, rowCount, 0));
    CkelMemoryDB().rebuildMemoryDBTable(integerItems(1, rowCount, savedValue));
    startLocked(seconds, report);
    for (int round = 0; round < rounds; ++round)
        terminateOne(random, report);
    report.figures.push_back(std::to_string(rounds) + " processes ended by SIGTERM");
    if (!readSavedFile().whole)
        report.failures.emplace_back("the file is damaged");
    return report;
}

int startUnderSignals()
{
    interruptEveryMillisecond();
    const auto start = std::chrono::steady_clock::now();
    CkelMemoryDataStorage storage;
    storage.readConfigFile(dictionary, true);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    int restored = 0;
    for (unsigned int id = 1; id <= rowCount; ++id)
        restored += storage.queryValue(id).toLongLong() == savedValue ? 1 : 0;
    std::cout << restored << " of " << rowCount << " values restored in " << time.count() << " s";
    return restored == rowCount ? 0 : 1;
}

int waitForTermination()
{
    auto* const storage = CkelDBStorageFactory::instance()->get(2);
    storage->readConfigFile(dictionary, true);
    sigset_t signals{};
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr); // after the storage has started its thread
    storage->updateValue(1, savedValue + 1, false);
    std::ofstream{readyMark};
    const timespec limit{termination, 0};
    return sigtimedwait(&signals, nullptr, &limit) == SIGTERM ? 0 : 1;
}

} // namespace KelTest
