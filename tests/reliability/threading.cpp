#include "tests/reliability/threading.h"

#include "datastorage/keldatastoragefactory.h"
#include "datastorage/kelmemorydatastorage.h"
#include "datastorage/kelsafememorystorage.h"
#include "kernel/kelapplicationplus.h"
#include "kernel/keldatasensor.h"
#include "kernel/kelevent.h"
#include "kernel/kelthread.h"
#include "kernel/keltimer.h"
#include "tests/reliability/savedrows.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <random>
#include <thread>

using namespace Ombrin;

namespace KelTest {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr unsigned int itemCount = 200;
constexpr std::size_t enoughFailures = 5;

class Counter : public CkelObject
{
public:
    Counter() { CkelApplicationPlus::dataSensor()->attach(this); }
    void dataSensorEvent(CkelDataSensorEvent* /*event*/) override { ++count; }
    long long count = 0;
};

void use(CkelSafeMemoryStorage& storage, const std::atomic<bool>& stop)
{
    for (int i = 1; !stop; ++i) {
        const unsigned int id = 1 + static_cast<unsigned int>(i) % itemCount;
        storage.updateValue(id, i, i % 2 == 0);
        storage.queryValue("item number " + std::to_string(id));
        storage.insertData(integerItem(itemCount + static_cast<unsigned int>(i), i));
        storage.deleteData(itemCount + static_cast<unsigned int>(i));
        if (i % 50 == 0)
            storage.hasLocalDB();
        if (i % 200 == 0)
            storage.reset();
    }
}

std::chrono::microseconds someTime(std::mt19937& random, int most)
{
    return std::chrono::microseconds(std::uniform_int_distribution<int>(0, most)(random));
}

/// In a process that is about to end; never destroyed, as threads outlive main.
void useForEver(CkelAbstractDataStorage* storage)
{
    for (int i = 0;; ++i)
        storage->updateValue(1 + static_cast<unsigned int>(i) % itemCount, i, i % 2 == 0);
}

enum class End
{
    Return,
    Exit,
    QuickExit
};

/// What main would be.
int busyMain(End end, std::chrono::microseconds instant)
{
    int argc = 0;
    const CkelApplicationPlus application(argc, nullptr);
    const Counter counter;
    auto* const factory = CkelDBStorageFactory::instance();
    for (const int kind : {1, 2})
        factory->get(kind)->readConfigFile("dictionary.json", true);
    for (int number = 0; number < 2; ++number)
        std::thread(useForEver, factory->get(2)).detach();
    const auto until = Clock::now() + instant;
    do {
        CkelApplicationPlus::instance()->processEvents();
    } while (Clock::now() < until);
    if (end == End::Exit)
        std::exit(0);
    if (end == End::QuickExit)
        std::quick_exit(0);
    return 0;
}

/// Empty, or how the process ended otherwise than it should.
std::string waitForEnd(pid_t child)
{
    int status = 0;
    const auto until = Clock::now() + 60s;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (Clock::now() > until) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            return "hangs";
        }
        std::this_thread::sleep_for(1ms);
    }
    if (WIFSIGNALED(status))
        return "ends by signal " + std::to_string(WTERMSIG(status));
    return WEXITSTATUS(status) == 0 ? "" : "ends with status " + std::to_string(WEXITSTATUS(status));
}

} // namespace

ThreadsReport restartStorages(int rounds, unsigned int seed)
{
    ThreadsReport report;
    report.seed = seed;
    std::mt19937 random(seed);
    writeDictionary("dictionary.json", integerItems(1, static_cast<int>(itemCount), 0));
    const Counter counter;
    for (; report.storages < rounds; ++report.storages) {
        auto storage = std::make_unique<CkelSafeMemoryStorage>();
        storage->readConfigFile("dictionary.json", report.storages % 2 == 0);
        std::atomic<bool> stop{false};
        std::thread user([&] { use(*storage, stop); });
        const auto until = Clock::now() + someTime(random, 5000);
        do {
            CkelApplicationPlus::instance()->processEvents();
        } while (Clock::now() < until);
        stop = true;
        user.join();
        storage.reset();
    }
    CkelApplicationPlus::instance()->processEvents();
    if (counter.count == 0)
        report.failures.emplace_back("no event was delivered");
    if (!readSavedFile().whole)
        report.failures.emplace_back("the file is damaged");
    return report;
}

ThreadsReport moveTimers(int moves)
{
    ThreadsReport report;
    std::array<CkelThread, 3> threads;
    for (CkelThread& thread : threads)
        thread.start();
    std::atomic<int> count{0};
    std::atomic<int> stray{0};
    std::vector<std::unique_ptr<CkelTimer>> timers;
    std::vector<std::size_t> places(4, 0); // each touched by its timer alone
    for (std::size_t i = 0; i < places.size(); ++i) {
        CkelTimer* const timer = timers.emplace_back(std::make_unique<CkelTimer>()).get();
        auto inside = std::make_shared<std::atomic<int>>(0);
        timer->connectTimeOut("move", [&, i, timer, inside] {
            stray += inside->exchange(1);
            ++count;
            places[i] = (places[i] + 1) % threads.size();
            *inside = 0;
            timer->moveToThread(&threads.at(places[i]));
        });
        timer->start(1);
        timer->moveToThread(&threads[0]);
    }
    const auto until = Clock::now() + 300s;
    while (count < moves && Clock::now() < until)
        std::this_thread::sleep_for(1ms);
    for (CkelThread& thread : threads)
        thread.terminate();
    timers.clear();
    report.moves = count;
    if (count < moves)
        report.failures.emplace_back("a timer has got lost");
    if (stray != 0)
        report.failures.emplace_back("a timer ran on two threads at once");
    return report;
}

ThreadsReport endProcesses(int rounds, unsigned int seed)
{
    ThreadsReport report;
    report.seed = seed;
    std::mt19937 random(seed);
    writeDictionary("dictionary.json", integerItems(1, static_cast<int>(itemCount), 0));
    while (report.processes < rounds && report.failures.size() < enoughFailures) {
        const auto end = static_cast<End>(report.processes % 3);
        // Most end early; some after the workers' first tick.
        const auto instant = someTime(random, report.processes % 4 == 3 ? 1200000 : 50000);
        std::cout.flush();
        const pid_t child = fork();
        if (child == 0)
            std::exit(busyMain(end, instant));
        ++report.processes;
        std::string wrong = child < 0 ? "cannot start" : waitForEnd(child);
        if (wrong.empty() && !readSavedFile().whole)
            wrong = "leaves a damaged file";
        if (!wrong.empty())
            report.failures.push_back("process " + std::to_string(report.processes) + ' ' + wrong);
    }
    return report;
}

void print(const ThreadsReport& report, std::ostream& out)
{
    out << report.storages << " storages started and destroyed, " << report.moves << " timers moved, "
        << report.processes << " processes ended (seed " << report.seed << ")\n";
    for (const std::string& failure : report.failures)
        out << "  FAILED " << failure << '\n';
}

} // namespace KelTest
