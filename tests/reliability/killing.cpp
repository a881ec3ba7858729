#include "tests/reliability/killing.h"

#include "datastorage/kelmemorydatastorage.h"
#include "datastorage/kelmemorydb.h"
#include "tests/reliability/faultyvfs.h"
#include "tests/reliability/savedrows.h"
#include "tests/reliability/sharedmemory.h"

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <stdexcept>
#include <thread>

using namespace Ombrin;

namespace KelTest {

namespace {

constexpr int updatedRows = 400;
constexpr int insertedRows = 300;
constexpr unsigned int firstInserted = 1000;
constexpr int insertionsPerTable = 10;
constexpr std::size_t enoughFailures = 5;

/// What the writer has done, in memory that outlives it. Every block carries one number in all of its rows, higher than
/// those before; a block of the next table has them all lower.
struct Progress
{
    std::atomic<long long> begun{0};
    std::atomic<long long> done{0};
    std::atomic<long long> table{0}; // the number with which the last one that is done was rebuilt
};

void write(CkelMemoryDB& database, Progress& progress, tagDBBlock::Kind kind, unsigned int first, int count)
{
    const long long number = ++progress.begun;
    database.push({kind, integerItems(first, count, number)});
    database.sync();
    progress.done = number;
}

/// Never returns. Without `synced`, the disk is left out: a kill does not need it, and more instants are met.
void writeUntilKilled(Progress& progress, bool synced)
{
    const auto unsynced = synced ? nullptr : std::make_unique<FaultyVfs>();
    CkelMemoryDB database;
    for (;;) {
        for (int i = 0; i < insertionsPerTable; ++i) {
            write(database, progress, tagDBBlock::Update, 1, updatedRows);
            write(database, progress, tagDBBlock::Insert, firstInserted * static_cast<unsigned int>(i + 1),
                  insertedRows);
        }
        const long long number = ++progress.begun;
        database.rebuildMemoryDBTable(integerItems(1, updatedRows, number));
        progress.table = number;
        progress.done = number;
    }
}

bool leftJournal()
{
    std::error_code missing;
    const auto size = std::filesystem::file_size("kelmem.db-journal", missing);
    return !missing && size > 0;
}

/// The numbers of each block that the file holds, and how many rows it has.
struct Block
{
    std::set<long long> numbers;
    int rows = 0;
};

std::map<unsigned int, Block> blocksOf(const SavedFile& file)
{
    std::map<unsigned int, Block> blocks;
    for (const SavedRow& row : file.rows) {
        Block& block = blocks[row.id / firstInserted];
        block.numbers.insert(row.value);
        ++block.rows;
    }
    return blocks;
}

/// Empty, or what is wrong. Notes the newest block that is there.
std::string checkFile(const SavedFile& file, Progress& progress)
{
    if (!file.whole)
        return "the file is damaged";
    long long newest = 0;
    for (const auto& [position, block] : blocksOf(file)) {
        if (block.rows != (position == 0 ? updatedRows : insertedRows) || block.numbers.size() != 1)
            return "block " + std::to_string(position) + " is not whole";
        newest = std::max(newest, *block.numbers.begin());
        if (*block.numbers.begin() < progress.table)
            return "block " + std::to_string(position) + " is from before the table was rebuilt";
    }
    const bool kept = newest == progress.done || newest == progress.begun;
    progress.done = newest;
    return kept ? "" : "a written block is missing";
}

std::string checkRestart(const SavedFile& file)
{
    CkelMemoryDataStorage storage;
    storage.readConfigFile("dictionary.json", true);
    for (const SavedRow& row : file.rows) {
        const long long wanted = row.id <= updatedRows ? row.value : 0;
        if (storage.queryValue(row.id).toLongLong() != wanted)
            return "item " + std::to_string(row.id) + " is not restored";
    }
    return storage.validID(0, ~0U).size() == updatedRows ? "" : "the dictionary is not loaded";
}

void killOneWriter(std::mt19937& random, Progress& progress, bool synced)
{
    const long long before = progress.begun;
    const pid_t child = fork();
    if (child < 0)
        throw std::runtime_error("no child process");
    if (child == 0) {
        writeUntilKilled(progress, synced);
        _exit(1);
    }
    // Some blocks have to be on their way, however slow the machine: what is to be tested is the writing.
    const long long wanted = before + std::uniform_int_distribution<int>(1, 8)(random);
    while (progress.begun < wanted && waitpid(child, nullptr, WNOHANG) == 0)
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    std::this_thread::sleep_for(std::chrono::microseconds(std::uniform_int_distribution<int>(0, 20000)(random)));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

} // namespace

KillReport killWriters(int rounds, unsigned int seed)
{
    KillReport report;
    report.seed = seed;
    std::mt19937 random(seed);
    const SharedMemory<Progress> progress;
    writeDictionary("dictionary.json", integerItems(1, updatedRows, 0));
    CkelMemoryDB().rebuildMemoryDBTable(integerItems(1, updatedRows, 0));

    while (report.rounds < rounds && report.failures.size() < enoughFailures) {
        ++report.rounds;
        killOneWriter(random, *progress, report.rounds % 2 == 0);
        report.withinTransaction += leftJournal() ? 1 : 0;
        const SavedFile file = readSavedFile();
        std::string wrong = checkFile(file, *progress);
        if (wrong.empty())
            wrong = checkRestart(file);
        if (!wrong.empty())
            report.failures.push_back("round " + std::to_string(report.rounds) + ": " + wrong);
    }
    report.blocks = progress->begun;
    return report;
}

void print(const KillReport& report, std::ostream& out)
{
    out << report.rounds << " writers killed (seed " << report.seed << "), " << report.withinTransaction
        << " of them within a transaction; " << report.blocks << " blocks begun\n";
    for (const std::string& failure : report.failures)
        out << "  FAILED " << failure << '\n';
}

} // namespace KelTest
