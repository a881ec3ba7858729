#include "tests/reliability/soaking.h"

#include "datastorage/kelsafememorystorage.h"
#include "kernel/kelapplicationplus.h"
#include "kernel/keldatasensor.h"
#include "kernel/kelevent.h"
#include "tests/reliability/failingallocation.h"
#include "tests/reliability/savedrows.h"

#include <malloc.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <deque>
#include <fstream>
#include <iomanip>
#include <thread>

using namespace Ombrin;

namespace KelTest {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr double growthPromised = 1.0; // MiB an hour
constexpr std::size_t leastRests = 8;  // for a line through the last two thirds

double secondsSince(Clock::time_point begin)
{
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

/// Every value of an item is one more than the one before, and so has to be every event.
class SequenceListener : public CkelObject
{
public:
    explicit SequenceListener(unsigned int items) : m_last(items + 1, 0)
    {
        CkelApplicationPlus::dataSensor()->attach(this);
    }

    void dataSensorEvent(CkelDataSensorEvent* event) override
    {
        const long long value = static_cast<const CkelAnyDataSensorEvent*>(event)->value().toLongLong();
        long long& last = m_last[event->id()];
        outOfOrder += value != last + 1 ? 1 : 0;
        last = value;
        ++delivered;
    }

    long long delivered = 0;
    long long outOfOrder = 0;

private:
    std::vector<long long> m_last;
};

/// Lookups by their time, in steps of an eighth of a power of two: of fixed size, whatever the soak lasts.
class Latencies
{
public:
    void add(std::chrono::nanoseconds time)
    {
        const auto nanoseconds = static_cast<unsigned long long>(std::max<long long>(time.count(), 8));
        const auto power = static_cast<unsigned int>(63 - __builtin_clzll(nanoseconds));
        ++m_counts[std::min<std::size_t>(power * 8 + ((nanoseconds >> (power - 3)) & 7U), m_counts.size() - 1)];
        ++count;
    }

    /// Microseconds that `part` of the lookups stayed below.
    double percentile(double part) const
    {
        const auto wanted = static_cast<long long>(part * static_cast<double>(count));
        long long seen = 0;
        for (std::size_t i = 0; i < m_counts.size(); ++i) {
            seen += m_counts[i];
            if (seen > wanted)
                return static_cast<double>((8ULL + i % 8 + 1) << (i / 8)) / 8 / 1000;
        }
        return 0;
    }

    long long count = 0;

private:
    std::vector<long long> m_counts = std::vector<long long>(8 * 48, 0);
};

double residentKibibytes()
{
    std::ifstream file("/proc/self/statm");
    long total = 0;
    long resident = 0;
    file >> total >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

/// What this program's objects and SQLite have asked for and not given back, whatever the allocator makes of it.
double kibibytesInUse()
{
    return static_cast<double>(heldMemory().bytes + sqlite3_memory_used()) / 1024;
}

class Soak
{
public:
    explicit Soak(const SoakSettings& settings) : m_settings(settings), m_listener(settings.items)
    {
        writeDictionary("dictionary.json", integerItems(1, static_cast<int>(settings.items), 0));
        m_storage.readConfigFile("dictionary.json", true);
        m_last.assign(settings.items + 1, 0);
        m_rests.reserve(1000);
        m_loads.reserve(static_cast<std::size_t>(settings.duration.count()) + 1000);
    }

    SoakReport run()
    {
        const auto end = m_begin + m_settings.duration;
        do {
            runLeg(std::min(Clock::now() + m_settings.leg, end));
            rest();
        } while (m_unsaved == 0 && Clock::now() < end);
        return judge();
    }

private:
    void runLeg(Clock::time_point end)
    {
        m_stop = false;
        std::vector<std::thread> threads;
        for (int number = 0; number < m_settings.threads; ++number)
            threads.emplace_back([this, number] { change(static_cast<unsigned int>(number)); });
        threads.emplace_back([this] { look(); });
        turnLoop(end);
        m_stop = true;
        for (std::thread& thread : threads)
            thread.join();
    }

    /// A thread of its own items, so that each item's values have an order.
    void change(unsigned int number)
    {
        const auto threads = static_cast<unsigned int>(m_settings.threads);
        const auto perTick = m_settings.changesPerSecond / m_settings.threads / 100;
        const unsigned int own = m_settings.items / threads;
        unsigned int step = 0;
        auto next = Clock::now();
        while (!m_stop) {
            for (int i = 0; i < perTick; ++i) {
                step = (step + 7919) % own; // scattered; every item has its turn
                const unsigned int id = 1 + number + step * threads;
                m_storage.updateValue(id, ++m_last[id], false);
                ++m_changes;
            }
            next += 10ms;
            std::this_thread::sleep_until(next);
        }
    }

    void look()
    {
        unsigned int id = 0;
        while (!m_stop) {
            for (int i = 0; i < 50; ++i) {
                id = (id + 7919) % m_settings.items;
                const auto begin = Clock::now();
                m_storage.queryValue(id + 1);
                m_latencies.add(Clock::now() - begin);
            }
            std::this_thread::sleep_for(5ms);
        }
    }

    void turnLoop(Clock::time_point end)
    {
        auto nextSample = Clock::now();
        while (Clock::now() < end) {
            m_longestQueue = std::max(m_longestQueue, m_changes - m_listener.delivered);
            CkelApplicationPlus::instance()->processEvents();
            if (Clock::now() >= nextSample) {
                nextSample += 1s;
                m_loads.push_back({secondsSince(m_begin), kibibytesInUse(), residentKibibytes()});
                watchSaving();
            }
            std::this_thread::sleep_for(1ms);
        }
    }

    /// How old the value is that the file has of one item.
    void watchSaving()
    {
        constexpr unsigned int watched = 1;
        const long long current = m_storage.queryValue(watched).toLongLong();
        if (m_watched.empty() || m_watched.back().value != current)
            m_watched.push_back({current, Clock::now()});
        const long long saved = savedValue(watched);
        while (!m_watched.empty() && m_watched.front().value <= saved)
            m_watched.pop_front();
        if (!m_watched.empty())
            m_longestDelay = std::max(m_longestDelay, secondsSince(m_watched.front().seen));
    }

    long long savedValue(unsigned int id) const
    {
        sqlite3* connection = nullptr;
        sqlite3_stmt* statement = nullptr;
        long long value = 0;
        sqlite3_open_v2("kelmem.db", &connection, SQLITE_OPEN_READONLY, nullptr);
        sqlite3_busy_timeout(connection, 1000);
        sqlite3_prepare_v2(connection, "SELECT Value FROM kel WHERE ID = ?", -1, &statement, nullptr);
        sqlite3_bind_int64(statement, 1, id);
        if (sqlite3_step(statement) == SQLITE_ROW)
            value = sqlite3_column_int64(statement, 0);
        sqlite3_finalize(statement);
        sqlite3_close(connection);
        return value;
    }

    /// What waits is delivered and saved. How many blocks wait, and how much freed memory the allocator keeps for the
    /// next ones, depends on how the ticks of the collector and the worker fall; what is left without either, on leaks.
    void rest()
    {
        const auto begin = Clock::now();
        drain();
        m_longestDrain = std::max(m_longestDrain, secondsSince(begin));
        m_watched.clear();
        std::this_thread::sleep_for(200ms); // the worker has committed its block, but may not have destroyed it yet
        malloc_trim(0);
        m_rests.push_back({secondsSince(m_begin), kibibytesInUse(), residentKibibytes()});
    }

    /// One block is saved in a second, and a hundred may wait.
    void drain()
    {
        const auto end = Clock::now() + 120s;
        do {
            CkelApplicationPlus::instance()->processEvents();
            std::this_thread::sleep_for(100ms);
            m_unsaved = countUnsaved();
        } while (m_unsaved > 0 && Clock::now() < end);
    }

    long long countUnsaved() const
    {
        const SavedFile file = readSavedFile();
        long long wrong = file.whole ? 0 : 1;
        for (const SavedRow& row : file.rows)
            wrong += row.id < m_last.size() && row.value == m_last[row.id] ? 0 : 1;
        return wrong + static_cast<long long>(m_settings.items) - static_cast<long long>(file.rows.size());
    }

    SoakReport judge() const
    {
        SoakReport report;
        report.changes = m_changes;
        report.delivered = m_listener.delivered;
        report.outOfOrder = m_listener.outOfOrder;
        report.longestQueue = m_longestQueue;
        report.longestDelay = m_longestDelay;
        report.longestDrain = m_longestDrain;
        report.unsaved = m_unsaved;
        report.loads = m_loads;
        report.rests = m_rests;
        report.lookups = m_latencies.count;
        report.p50 = m_latencies.percentile(0.5);
        report.p99 = m_latencies.percentile(0.99);
        report.p9999 = m_latencies.percentile(0.9999);
        if (report.delivered != report.changes)
            report.failures.emplace_back("events were lost or delivered twice");
        if (report.outOfOrder != 0)
            report.failures.emplace_back("events were out of order");
        if (report.unsaved != 0)
            report.failures.emplace_back("items were not saved");
        if (m_settings.judgeGrowth && m_rests.size() < leastRests)
            report.failures.emplace_back("the soak was too short to judge the memory");
        if (m_settings.judgeGrowth && growthAfterWarmUp(m_rests, &MemorySample::inUse) >= growthPromised)
            report.failures.emplace_back("the memory in use grows");
        if (m_settings.judgeGrowth && growthAfterWarmUp(m_rests, &MemorySample::resident) >= growthPromised)
            report.failures.emplace_back("the resident memory grows");
        return report;
    }

    struct Watched
    {
        long long value;
        Clock::time_point seen;
    };

    const SoakSettings m_settings;
    CkelSafeMemoryStorage m_storage;
    SequenceListener m_listener;
    const Clock::time_point m_begin = Clock::now();
    std::atomic<bool> m_stop{false};
    std::atomic<long long> m_changes{0};
    std::vector<long long> m_last; // each item's by its own thread
    std::vector<MemorySample> m_rests;
    std::vector<MemorySample> m_loads;
    std::deque<Watched> m_watched;
    Latencies m_latencies;
    long long m_longestQueue = 0;
    double m_longestDelay = 0;
    double m_longestDrain = 0;
    long long m_unsaved = 0;
};

} // namespace

double growthAfterWarmUp(const std::vector<MemorySample>& samples, double MemorySample::*quantity)
{
    const auto warm = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 3);
    const auto count = static_cast<double>(samples.end() - warm);
    double meanTime = 0;
    double meanSize = 0;
    for (auto sample = warm; sample != samples.end(); ++sample) {
        meanTime += sample->seconds / count;
        meanSize += (*sample).*quantity / count;
    }
    double covariance = 0;
    double variance = 0;
    for (auto sample = warm; sample != samples.end(); ++sample) {
        covariance += (sample->seconds - meanTime) * ((*sample).*quantity - meanSize);
        variance += (sample->seconds - meanTime) * (sample->seconds - meanTime);
    }
    return variance > 0 ? covariance / variance * 3600 / 1024 : 0;
}

SoakReport soak(const SoakSettings& settings)
{
    return Soak(settings).run();
}

namespace {

void printMemory(const char* when, const std::vector<MemorySample>& samples, std::ostream& out)
{
    if (samples.empty())
        return;
    const auto [least, most] = std::minmax_element(
        samples.begin(), samples.end(), [](const auto& a, const auto& b) { return a.resident < b.resident; });
    out << when << ' ' << samples.back().inUse / 1024 << " MiB in use, growing by "
        << growthAfterWarmUp(samples, &MemorySample::inUse) << " MiB an hour, and " << least->resident / 1024 << " to "
        << most->resident / 1024 << " MiB resident, growing by " << growthAfterWarmUp(samples, &MemorySample::resident)
        << " MiB an hour (" << samples.size() << " readings)\n";
}

} // namespace

void print(const SoakReport& report, std::ostream& out)
{
    out << std::fixed << std::setprecision(2) << report.changes << " changes, " << report.delivered
        << " events delivered, " << report.outOfOrder << " of them out of order\n"
        << "at most " << report.longestQueue << " events waited for the loop\n"
        << "at most " << report.longestDelay << " s from a change to the file, and " << report.longestDrain
        << " s until all is there once the changes stop; " << report.unsaved << " items unsaved at the end\n";
    printMemory("under load", report.loads, out);
    printMemory("at rest", report.rests, out);
    out << report.lookups << " lookups: 50 % below " << report.p50 << " us, 99 % below " << report.p99
        << " us, 99.99 % below " << report.p9999 << " us\n";
    for (const std::string& failure : report.failures)
        out << "  FAILED " << failure << '\n';
}

} // namespace KelTest
