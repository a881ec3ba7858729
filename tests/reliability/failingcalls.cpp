#include "tests/datastorage/drivenstorage.h"
#include "tests/reliability/attacked.h"
#include "tests/reliability/faultwalk.h"
#include "tests/reliability/preloadedfaults.h"
#include "tests/reliability/savedrows.h"

#include <dlfcn.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <random>
#include <stdexcept>

// In the attacked process: calls fail below SQLite.

using namespace Ombrin;

namespace KelTest {

const PreloadedFaults* preloadedFaults()
{
    auto* const get = reinterpret_cast<const PreloadedFaults* (*)()>(dlsym(RTLD_DEFAULT, "kelPreloadedFaults"));
    return get ? get() : nullptr;
}

namespace {

constexpr int rowCount = 40;
constexpr std::size_t enoughFailures = 5;
constexpr const char* dictionary = "dictionary.json";

const PreloadedFaults& faultsOfThisProcess()
{
    const PreloadedFaults* const faults = preloadedFaults();
    if (!faults)
        throw std::runtime_error("the library of faults is not preloaded");
    return *faults;
}

class PreloadedLayer : public FaultLayer
{
public:
    std::vector<Fault> faults() const override
    {
        std::vector<Fault> all;
        for (std::size_t i = 0; i < m_faults.count; ++i)
            all.push_back({m_faults.faults[i].name, m_faults.faults[i].mayLast});
        return all;
    }
    void arm(std::size_t fault, long nth, bool lasting) override { m_faults.arm(fault, nth, lasting); }
    void disarm() override { m_faults.disarm(); }
    bool hit() const override { return m_faults.hits() > 0; }

private:
    const PreloadedFaults& m_faults = faultsOfThisProcess();
};

/// The lives of a storage, one after the other on one file. Each block sets all rows to one number, higher than those
/// before.
class Lives
{
public:
    explicit Lives(unsigned int seed) : m_random(seed)
    {
        const auto items = integerItems(1, rowCount, 0);
        writeDictionary(dictionary, items);
        CkelMemoryDB().rebuildMemoryDBTable(items);
    }

    void live()
    {
        ++count;
        start();
        for (int steps = pick(1, 12); steps > 0; --steps)
            step();
        endFaults();
        m_storage->hasLocalDB(); // lets go of a lock whose release has failed
        check(m_saved, "under faults");
        save();
        check(m_number, "after the faults");
        if (pick(0, 1) == 0)
            armFaults();
        m_storage.reset();
        endFaults();
    }

    std::vector<std::string> failures;
    int count = 0;
    long long operations = 0;
    long long hits = 0;

private:
    int pick(int least, int most) { return std::uniform_int_distribution<int>(least, most)(m_random); }

    void armFaults()
    {
        m_faults.armRandomly(static_cast<unsigned int>(m_random()), static_cast<unsigned int>(pick(2, 200)));
    }

    void endFaults()
    {
        m_faults.disarm();
        hits += m_faults.hits();
    }

    /// A start without faults restores what is saved.
    void start()
    {
        const bool faulty = pick(0, 2) > 0;
        if (faulty)
            armFaults();
        m_storage = std::make_unique<DrivenStorage>();
        m_storage->readConfigFile(dictionary, true);
        if (faulty)
            return;
        for (unsigned int id = 1; id <= rowCount; ++id) {
            if (m_storage->queryValue(id).toLongLong() != m_saved)
                return fail("a start without faults does not restore item " + std::to_string(id));
        }
        armFaults();
    }

    void step()
    {
        ++operations;
        switch (pick(0, 5)) {
        case 0:
            m_storage->hasLocalDB();
            break;
        case 1:
            m_storage->readConfigFile(dictionary, true);
            break;
        default:
            save();
        }
    }

    void save()
    {
        ++m_number;
        for (unsigned int id = 1; id <= rowCount; ++id)
            m_storage->updateValue(id, m_number, false);
        m_storage->tick();
        m_storage->write();
    }

    void check(long long least, const std::string& when)
    {
        const SavedFile file = readSavedFile();
        if (!file.whole)
            return fail("the file is damaged or locked " + when);
        if (file.rows.size() != rowCount)
            return fail(std::to_string(file.rows.size()) + " rows are left " + when);
        const auto isOther = [&](const SavedRow& row) { return row.value != file.rows.front().value; };
        if (std::any_of(file.rows.begin(), file.rows.end(), isOther))
            return fail("a block is half written " + when);
        m_saved = file.rows.front().value;
        if (m_saved < least)
            fail("the file holds " + std::to_string(m_saved) + " instead of " + std::to_string(least) + ' ' + when);
    }

    void fail(const std::string& what) { failures.push_back("life " + std::to_string(count) + ": " + what); }

    const PreloadedFaults& m_faults = faultsOfThisProcess();
    std::mt19937 m_random;
    std::unique_ptr<DrivenStorage> m_storage;
    long long m_number = 0; // of the newest block
    long long m_saved = 0;  // as last seen in the file
};

} // namespace

int walkBelowSqlite(int rows)
{
    PreloadedLayer layer;
    const auto reports = walkFaults(rows, layer);
    long points = 0;
    bool isGood = true;
    for (const FaultReport& report : reports) {
        points += report.points;
        for (const std::string& failure : report.failures)
            std::cout << "  FAILED " << failure << '\n';
        isGood = isGood && report.failures.empty() && report.points > 0;
    }
    std::cout << reports.size() << " operations, " << points << " fault points\n";
    return isGood ? 0 : 1;
}

int liveWithFaults(int rounds, unsigned int seed)
{
    Lives lives(seed);
    while (lives.count < rounds && lives.failures.size() < enoughFailures)
        lives.live();
    for (const std::string& failure : lives.failures)
        std::cout << "  FAILED " << failure << '\n';
    std::cout << lives.count << " lives, " << lives.operations << " operations, " << lives.hits << " failing calls\n";
    return lives.failures.empty() && lives.hits > 0 ? 0 : 1;
}

} // namespace KelTest
