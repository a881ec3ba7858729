#include "tests/datastorage/drivenstorage.h"
#include "tests/reliability/attacked.h"
#include "tests/reliability/childprocess.h"
#include "tests/reliability/hostilefiles.h"
#include "tests/reliability/outside.h"
#include "tests/reliability/savedrows.h"

#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

using namespace Ombrin;

namespace KelTest {

namespace {

constexpr const char* localFile = "kelmem.db";
constexpr const char* journal = "kelmem.db-journal";
constexpr const char* dictionary = "dictionary.json";
constexpr const char* hostileDictionary = "hostile.json";
constexpr const char* hostileDatabase = "hostile.db";

constexpr std::uint64_t mebibyte = std::uint64_t{1} << 20U;
constexpr std::uint64_t peakMemory = 256 * mebibyte;
constexpr std::uint64_t sanitizedMemory = 4 * peakMemory; // freed memory is kept back there
constexpr int signalBase = 128;
constexpr int readWhole = 10; // the attacked process's exit status; 0: it has refused the file

ProcessLimits hostileLimits()
{
    ProcessLimits limits;
    limits.time = std::chrono::seconds(30);
    limits.processorTime = std::chrono::seconds(5);
    limits.memory = 2 * peakMemory; // more than is allowed: that an allocation fails must not pass for a refusal
    return limits;
}

void writeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

bool holds(const std::string& path, const std::string& bytes)
{
    std::error_code missing;
    if (std::filesystem::file_size(path, missing) != bytes.size())
        return false;
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {}) == bytes;
}

class Hostility
{
public:
    explicit Hostility(std::string keldict) : m_keldict(std::move(keldict))
    {
        report.attack = "hostile files";
        writeDictionary(dictionary, integerItems(1, 2, 0));
    }

    void readLocalFiles()
    {
        for (const HostileFile& file : hostileDatabases(Columns::Saved)) {
            const auto place = [&] {
                removeLocalFile();
                writeFile(localFile, file.bytes);
                if (!file.journal.empty())
                    writeFile(journal, file.journal);
            };
            place();
            const Ending start = attack(file.name + " as the local file", attackedCommand({"start"}));
            expectOutcome(file, start, "as the local file");
            if (start.status == 0 && !holds(localFile, file.bytes))
                fail(file.name, "as the local file: a start has changed it");
            place();
            attack(file.name + " as the local file, written", attackedCommand({"use"}));
            place();
            askKeldict(file.name, localFile, {"show", "convert"});
        }
        removeLocalFile();
    }

    void readConfigurations()
    {
        for (const HostileFile& file : hostileDatabases(Columns::Configuration)) {
            writeFile(hostileDatabase, file.bytes);
            const Ending ending = attack(file.name + " as a configuration",
                                         attackedCommand({"configuration", hostileDatabase}), file.outcome);
            expectOutcome(file, ending, "as a configuration");
            askKeldict(file.name, hostileDatabase, {"check", "show", "convert"});
        }
        std::filesystem::remove(hostileDatabase);
    }

    void readDictionaries()
    {
        for (const HostileFile& file : hostileDictionaries()) {
            writeFile(hostileDictionary, file.bytes);
            attack(file.name, attackedCommand({"dictionary", hostileDictionary}));
            askKeldict(file.name, hostileDictionary, {"check", "show", "convert"});
        }
        std::filesystem::remove(hostileDictionary);
    }

    /// Files that are no regular ones: nobody writes to these pipes, and a device does not end.
    void readPipes()
    {
        for (const char* const path : {localFile, journal, "kelmem.db-wal"}) {
            removeLocalFile();
            if (path != std::string(localFile))
                writeFile(localFile, hostileDatabases(Columns::Saved).back().bytes);
            makePipe(path);
            attack(std::string("a pipe as ") + path, attackedCommand({"use"}));
        }
        removeLocalFile();
        for (const char* const path : {hostileDictionary, hostileDatabase}) {
            makePipe(path);
            readNoFile(path, "a pipe as ");
            std::filesystem::create_symlink("/dev/zero", path);
            readNoFile(path, "an endless device as ");
        }
        attack("pipes that appear while a storage runs", attackedCommand({"pipes"}));
    }

    OutsideReport report;

    void finish()
    {
        report.figures.push_back(std::to_string(m_attacks) + " processes, of at most " + std::to_string(m_mostTime) +
                                 " s of processor time and " + std::to_string(m_mostMemory / mebibyte) + " MiB");
        if (m_keldict.empty())
            report.figures.emplace_back("keldict is not built and was not attacked");
    }

private:
    static void removeLocalFile()
    {
        for (const char* const path : {localFile, journal, "kelmem.db-wal", "kelmem.db-shm"})
            std::filesystem::remove(path);
    }

    static void makePipe(const char* path)
    {
        constexpr mode_t mode = 0600;
        mkfifo(path, mode);
    }

    void readNoFile(const std::string& path, const std::string& what)
    {
        const char* const kind = path == hostileDatabase ? "configuration" : "dictionary";
        const Ending ending = attack(what + path, attackedCommand({kind, path}));
        if (ending.status == readWhole)
            fail(what + path, "is read");
        askKeldict(what + path, path, {"check", "show", "convert"});
        std::filesystem::remove(path);
    }

    void askKeldict(const std::string& name, const std::string& path, const std::vector<std::string>& commands)
    {
        if (m_keldict.empty())
            return;
        for (const std::string& command : commands) {
            std::vector<std::string> words{m_keldict, command, path};
            if (command == "convert")
                words.emplace_back("converted.json");
            attack("keldict " + command + ": " + name, words);
            std::filesystem::remove("converted.json");
        }
    }

    /// Whether the process has ended in one of the ways that it may.
    static bool endsWell(const Ending& ending, bool isKeldict, Outcome outcome)
    {
        constexpr int worstOfKeldict = 3;
        if (ending.hung)
            return false;
        if (isKeldict)
            return ending.status <= worstOfKeldict;
        return outcome == Outcome::Ends ? ending.status == signalBase + SIGABRT
                                        : ending.status == 0 || ending.status == readWhole;
    }

    Ending attack(const std::string& name, const std::vector<std::string>& command, Outcome outcome = Outcome::Either)
    {
        const Ending ending = ChildProcess(command, hostileLimits()).wait();
        ++m_attacks;
        m_mostTime = std::max(m_mostTime, ending.processorTime);
        m_mostMemory = std::max(m_mostMemory, ending.peakMemory);
        if (!endsWell(ending, command.front() == m_keldict, outcome))
            fail(name, ending.text() + " after " + std::to_string(ending.processorTime) + " s");
        else if (ending.peakMemory > (isSanitized() ? sanitizedMemory : peakMemory))
            fail(name, "takes " + std::to_string(ending.peakMemory / mebibyte) + " MiB");
        return ending;
    }

    void expectOutcome(const HostileFile& file, const Ending& ending, const std::string& where)
    {
        if (ending.status == 0 && file.outcome == Outcome::Read)
            fail(file.name, where + ": is refused");
        if (ending.status == readWhole && file.outcome == Outcome::Refused)
            fail(file.name, where + ": is read as if it were whole");
    }

    void fail(const std::string& name, const std::string& what) { report.failures.push_back(name + ": " + what); }

    const std::string m_keldict;
    int m_attacks = 0;
    double m_mostTime = 0;
    std::uint64_t m_mostMemory = 0;
};

} // namespace

OutsideReport readHostileFiles(const std::string& keldict)
{
    Hostility hostility(keldict);
    hostility.readLocalFiles();
    hostility.readConfigurations();
    hostility.readDictionaries();
    hostility.readPipes();
    hostility.finish();
    return hostility.report;
}

// In the attacked process.

int startOnFile()
{
    DrivenStorage storage;
    storage.readConfigFile(dictionary, true);
    storage.database().loadMemoryDB();
    return storage.database().isLoadComplete() ? readWhole : 0;
}

int useFile()
{
    DrivenStorage storage;
    storage.readConfigFile(dictionary, true);
    for (long long round = 1; round <= 2; ++round) {
        storage.updateValue(1, 10 * round, false);
        storage.insertData(integerItem(static_cast<unsigned int>(10 * round), 1));
        storage.tick();
        storage.write();
        storage.deleteData(2);
        storage.tick();
        storage.write();
        storage.readConfigFile(dictionary, false); // rebuilds the table
    }
    return storage.validID(0, ~0U).empty() ? 1 : 0;
}

int readConfiguration(const std::string& path)
{
    CkelMemoryDataStorage storage;
    return storage.readDBFile(path) ? readWhole : 0;
}

int readDictionary(const std::string& path)
{
    CkelMemoryDataStorage storage;
    return storage.readJsonFile(path) ? readWhole : 0;
}

/// Pipes take the place of the journal and of the file itself, between two blocks. When they are gone, the storage
/// writes again.
int meetPipes()
{
    constexpr mode_t mode = 0600;
    DrivenStorage storage;
    storage.readConfigFile(dictionary, true);
    long long number = 0;
    const auto save = [&] {
        storage.updateValue(1, ++number, false);
        storage.tick();
        storage.write();
        const SavedFile file = readSavedFile();
        return file.whole && !file.rows.empty() && file.rows.front().value == number;
    };
    if (!save())
        return 1;
    for (const char* const path : {journal, localFile}) {
        std::filesystem::rename(localFile, "kept.db");
        if (path == std::string(journal))
            std::filesystem::copy_file("kept.db", localFile);
        mkfifo(path, mode);
        storage.updateValue(1, ++number, false);
        storage.tick();
        storage.write();
        storage.hasLocalDB();
        std::filesystem::remove(path);
        std::filesystem::rename("kept.db", localFile);
        if (!save()) {
            std::cout << "nothing is saved after a pipe was in the place of " << path << '\n';
            return 1;
        }
    }
    return 0;
}

} // namespace KelTest
