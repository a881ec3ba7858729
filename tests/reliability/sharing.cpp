#include "datastorage/kelsafememorystorage.h"
#include "tests/datastorage/drivenstorage.h"
#include "tests/reliability/faultyvfs.h"
#include "tests/reliability/outside.h"
#include "tests/reliability/savedrows.h"
#include "tests/reliability/sharedmemory.h"

#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <thread>

using namespace Ombrin;

namespace KelTest {

namespace {

constexpr std::size_t writers = 3;
constexpr unsigned int rowsOfOne = 100;
constexpr std::size_t enoughFailures = 5;
constexpr const char* dictionary = "dictionary.json";

/// What a writer has done. Each has rows of its own, and sets all of them to one number, higher than those before.
struct Progress
{
    std::atomic<long long> begun{0};
    std::atomic<long long> done{0};    // the newest that a reader has seen in the file
    std::atomic<long long> refused{0}; // for another process had locked the file
};

struct AllProgress
{
    std::array<Progress, writers> of;
    std::atomic<bool> torn{false}; // the foreign reader has seen a block that is not whole
};

unsigned int firstOf(std::size_t writer)
{
    return 1 + static_cast<unsigned int>(writer) * rowsOfOne;
}

/// A program's own connection, without the library.
class Foreign
{
public:
    Foreign()
    {
        sqlite3_open("kelmem.db", &m_connection);
        sqlite3_busy_timeout(m_connection, 10000);
    }
    ~Foreign() { sqlite3_close(m_connection); }
    Foreign(const Foreign&) = delete;
    Foreign& operator=(const Foreign&) = delete;

    bool run(const std::string& text)
    {
        return sqlite3_exec(m_connection, text.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
    }

    /// A row's value; -1 when it cannot be read.
    long long number(const std::string& text)
    {
        long long result = -1;
        sqlite3_exec(
            m_connection, text.c_str(),
            [](void* target, int /*count*/, char** values, char** /*names*/) {
                *static_cast<long long*>(target) = values[0] ? std::stoll(values[0]) : -1;
                return 0;
            },
            &result, nullptr);
        return result;
    }

private:
    sqlite3* m_connection = nullptr;
};

std::string rowsOf(std::size_t writer)
{
    return " WHERE ID BETWEEN " + std::to_string(firstOf(writer)) + " AND " +
           std::to_string(firstOf(writer) + rowsOfOne - 1);
}

/// Never returns. `write` hands one block to the file.
[[noreturn]] void writeForEver(std::size_t writer, Progress& progress, const std::function<void(long long)>& write)
{
    Foreign reader;
    const std::string newest = "SELECT Value FROM kel WHERE ID=" + std::to_string(firstOf(writer));
    for (;;) {
        const long long number = ++progress.begun;
        write(number);
        if (reader.number(newest) == number)
            progress.done = number;
        else
            ++progress.refused;
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // the others' turn
    }
}

template <typename Storage>
void setRows(Storage& storage, std::size_t writer, long long number)
{
    for (unsigned int id = firstOf(writer); id < firstOf(writer) + rowsOfOne; ++id)
        storage.updateValue(id, number, false);
}

[[noreturn]] void writeThroughMemoryStorage(Progress& progress)
{
    DrivenStorage storage;
    storage.readConfigFile(dictionary, true);
    writeForEver(0, progress, [&](long long number) {
        setRows(storage, 0, number);
        storage.tick();
        storage.write();
    });
}

template <auto Member>
struct ReachInner
{
    friend auto& innerOf(CkelSafeMemoryStorage& storage) { return storage.*Member; }
};
auto& innerOf(CkelSafeMemoryStorage& storage);
template struct ReachInner<&CkelSafeMemoryStorage::m_storage>;

[[noreturn]] void writeThroughSafeStorage(Progress& progress)
{
    CkelSafeMemoryStorage storage;
    storage.readConfigFile(dictionary, true);
    auto& inner = static_cast<CkelMemoryDataStorage&>(*innerOf(storage));
    CkelTimerEvent event(0);
    writeForEver(1, progress, [&](long long number) {
        setRows(storage, 1, number);
        inner.timerEvent(&event);
        while (!memoryDBOf(inner)->isEmpty())
            memoryDBOf(inner)->sync();
    });
}

/// Also looks at all that the three have written.
[[noreturn]] void writeWithoutTheLibrary(Progress& progress, std::atomic<bool>& torn)
{
    Foreign file;
    writeForEver(2, progress, [&](long long number) {
        file.run("BEGIN IMMEDIATE; UPDATE kel SET Value=" + std::to_string(number) + rowsOf(2) + "; COMMIT");
        file.run("ROLLBACK"); // of what could not be committed
        file.run("BEGIN");
        for (std::size_t writer = 0; writer < writers; ++writer) {
            if (file.number("SELECT count(DISTINCT Value) FROM kel" + rowsOf(writer)) > 1)
                torn = true;
        }
        file.run("COMMIT");
    });
}

pid_t startWriter(std::size_t writer, AllProgress& progress, bool synced)
{
    const pid_t child = fork();
    if (child < 0)
        throw std::runtime_error("no child process");
    if (child > 0)
        return child;
    const auto unsynced = synced ? nullptr : std::make_unique<FaultyVfs>();
    if (writer == 0)
        writeThroughMemoryStorage(progress.of[0]);
    else if (writer == 1)
        writeThroughSafeStorage(progress.of[1]);
    else
        writeWithoutTheLibrary(progress.of[2], progress.torn);
}

/// Empty, or what is wrong with the writer's rows. Those of a writer that still runs may be newer at the next look.
std::string checkRows(const SavedFile& file, std::size_t writer, long long done)
{
    const auto first = file.rows.begin() + static_cast<std::ptrdiff_t>(writer * rowsOfOne);
    const auto last = first + rowsOfOne;
    if (std::any_of(first, last, [&](const SavedRow& row) { return row.value != first->value; }))
        return "a block of writer " + std::to_string(writer) + " is not whole";
    return first->value < done ? "a block of writer " + std::to_string(writer) + " is missing" : "";
}

std::string checkFile(AllProgress& progress)
{
    std::array<long long, writers> done{};
    for (std::size_t writer = 0; writer < writers; ++writer)
        done.at(writer) = progress.of.at(writer).done;
    const SavedFile file = readSavedFile();
    if (!file.whole)
        return "the file is damaged";
    if (file.rows.size() != writers * rowsOfOne)
        return "the file has " + std::to_string(file.rows.size()) + " rows";
    for (std::size_t writer = 0; writer < writers; ++writer) {
        const std::string wrong = checkRows(file, writer, done.at(writer));
        if (!wrong.empty())
            return wrong;
    }
    return progress.torn ? "the program without the library has read half a block" : "";
}

void end(pid_t process)
{
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
}

bool hasEnded(pid_t process)
{
    siginfo_t info{};
    waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOHANG | WNOWAIT);
    return info.si_pid != 0;
}

/// Waits until the writer has begun `wanted` blocks. False when it ends by itself, or does not get there.
bool waitForBlocks(const Progress& progress, long long wanted, pid_t process)
{
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (progress.begun < wanted) {
        if (hasEnded(process) || std::chrono::steady_clock::now() > until)
            return false;
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    return true;
}

std::string shareOnce(std::mt19937& random, AllProgress& progress, bool synced)
{
    std::array<pid_t, writers> processes{};
    std::array<long long, writers> wanted{};
    for (std::size_t writer = 0; writer < writers; ++writer) {
        wanted.at(writer) = progress.of.at(writer).begun + std::uniform_int_distribution<int>(1, 4)(random);
        processes.at(writer) = startWriter(writer, progress, synced);
    }
    std::string wrong;
    for (std::size_t writer = 0; writer < writers; ++writer) {
        if (!waitForBlocks(progress.of.at(writer), wanted.at(writer), processes.at(writer)))
            wrong = "writer " + std::to_string(writer) + " does not write";
    }
    std::this_thread::sleep_for(std::chrono::microseconds(std::uniform_int_distribution<int>(0, 20000)(random)));
    std::shuffle(processes.begin(), processes.end(), random);
    end(processes[0]);
    if (wrong.empty())
        wrong = checkFile(progress); // while two of them write
    end(processes[1]);
    end(processes[2]);
    return wrong.empty() ? checkFile(progress) : wrong;
}

} // namespace

OutsideReport shareFile(int rounds, unsigned int seed)
{
    OutsideReport report;
    std::mt19937 random(seed);
    const SharedMemory<AllProgress> progress;
    const auto items = integerItems(1, static_cast<int>(writers * rowsOfOne), 0);
    writeDictionary(dictionary, items);
    CkelMemoryDB().rebuildMemoryDBTable(items);
    int round = 0;
    while (round < rounds && report.failures.size() < enoughFailures) {
        ++round;
        const std::string wrong = shareOnce(random, *progress, round % 2 == 0);
        if (!wrong.empty())
            report.failures.push_back("round " + std::to_string(round) + ": " + wrong);
    }
    report.attack = "three processes on one file (seed " + std::to_string(seed) + ")";
    report.figures.push_back(std::to_string(3 * round) + " processes killed");
    for (std::size_t writer = 0; writer < writers; ++writer) {
        const Progress& one = progress->of.at(writer);
        report.figures.push_back("writer " + std::to_string(writer) + ": " + std::to_string(one.begun) +
                                 " blocks begun, " + std::to_string(one.refused) + " refused");
        if (one.done == 0)
            report.failures.push_back("writer " + std::to_string(writer) + " has written nothing");
    }
    return report;
}

} // namespace KelTest
