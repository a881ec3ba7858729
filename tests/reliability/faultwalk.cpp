#include "tests/reliability/faultwalk.h"

#include "datastorage/kelmemorydatastorage.h"
#include "datastorage/kelmemorydb.h"
#include "tests/datastorage/drivenstorage.h"
#include "tests/reliability/faultyvfs.h"
#include "tests/reliability/savedrows.h"

#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>

using namespace Ombrin;

namespace KelTest {

namespace {

using Items = std::vector<tagStorageData>;

constexpr const char* localFile = "kelmem.db";
constexpr const char* journal = "kelmem.db-journal";
constexpr std::size_t enoughFailures = 5;

constexpr long long savedValue = 10;
constexpr long long newValue = 20;
constexpr long long configuredValue = 30;

/// The files as they stand before an operation, kept aside.
class Template
{
public:
    explicit Template(std::string folder) : m_folder(std::move(folder)) {}

    void keep() const
    {
        std::filesystem::create_directory(m_folder);
        copy(".", m_folder);
    }
    void restore() const
    {
        std::filesystem::remove(journal);
        copy(m_folder, ".");
    }

private:
    static void copy(const std::string& from, const std::string& to)
    {
        for (const char* name : {localFile, journal}) {
            if (!std::filesystem::exists(from + '/' + name))
                continue;
            std::filesystem::remove(to + '/' + name); // some file systems sync a file that is overwritten
            std::filesystem::copy_file(from + '/' + name, to + '/' + name);
        }
    }

    const std::string m_folder;
};

/// One operation, and what has to hold after it.
struct Operation
{
    std::string name;
    const Template& before;

    /// Does it under faults: makes what it needs without, calls `arm`, and returns what is to be done with it later.
    /// `succeeded` says what the operation said of itself.
    std::function<std::shared_ptr<void>(const std::function<void()>& arm, bool& succeeded)> run;

    /// Empty, or what is wrong. `file` is what the next start would find.
    std::function<std::string(bool succeeded, const SavedFile& file)> check;

    /// The same object, now without faults: empty, or what is wrong.
    std::function<std::string(void* object)> again;
};

class Walk
{
public:
    explicit Walk(FaultLayer& layer) : m_layer(layer) {}

    FaultReport through(const Operation& operation)
    {
        FaultReport report;
        report.operation = operation.name;
        const std::vector<FaultLayer::Fault> faults = m_layer.faults();
        for (std::size_t fault = 0; fault < faults.size(); ++fault) {
            tryEach(operation, {fault, faults[fault].name, false}, report);
            if (faults[fault].mayLast)
                tryEach(operation, {fault, faults[fault].name, true}, report);
        }
        return report;
    }

private:
    struct Planted
    {
        std::size_t fault;
        std::string name;
        bool lasting;
    };

    void tryEach(const Operation& operation, const Planted& planted, FaultReport& report)
    {
        long n = 1;
        while (report.failures.size() < enoughFailures && tryOne(operation, planted, n, report))
            ++n;
    }

    /// False when the operation makes fewer than `n` such calls.
    bool tryOne(const Operation& operation, const Planted& planted, long n, FaultReport& report)
    {
        const auto fail = [&](const std::string& what) {
            report.failures.push_back(operation.name + ": " + planted.name + ' ' + std::to_string(n) +
                                      (planted.lasting ? " and on: " : ": ") + what);
        };
        operation.before.restore();
        bool succeeded = false;
        const std::shared_ptr<void> object =
            operation.run([&] { m_layer.arm(planted.fault, n, planted.lasting); }, succeeded);
        m_layer.disarm();
        const bool hit = m_layer.hit();
        report.points += hit ? 1 : 0;
        report.successes += hit && succeeded ? 1 : 0;

        const SavedFile file = readSavedFile();
        std::string wrong = !file.whole          ? "the file is damaged or locked"
                            : !hit && !succeeded ? "failed without a fault"
                                                 : operation.check(succeeded, file);
        if (wrong.empty())
            wrong = operation.again(object.get());
        if (!wrong.empty())
            fail(wrong);
        return hit;
    }

    FaultLayer& m_layer;
};

/// Faults in SQLite's file system.
class VfsLayer : public FaultLayer
{
public:
    std::vector<Fault> faults() const override
    {
        std::vector<Fault> all;
        for (const FaultyVfs::Fault& fault : FaultyVfs::faults())
            all.push_back({fault.name});
        return all;
    }
    void arm(std::size_t fault, long nth, bool lasting) override
    {
        m_fileSystem.arm(FaultyVfs::faults().at(fault), nth, lasting);
    }
    void disarm() override { m_fileSystem.disarm(); }
    bool hit() const override { return m_fileSystem.hit(); }

private:
    FaultyVfs m_fileSystem;
};

/// A write operation of the persistence object: all or nothing, and all when it says so.
Operation writeOperation(const std::string& name, const Template& before, const Items& oldItems, const Items& newItems,
                         const std::function<bool(CkelMemoryDB&)>& write)
{
    const auto oldRows = rowsOf(oldItems);
    const auto newRows = rowsOf(newItems);
    return {name, before,
            [write](const std::function<void()>& arm, bool& succeeded) {
                auto database = std::make_shared<CkelMemoryDB>();
                arm();
                succeeded = write(*database);
                return database;
            },
            [oldRows, newRows](bool succeeded, const SavedFile& file) -> std::string {
                if (succeeded && !(file.rows == newRows))
                    return "false success";
                return file.rows == oldRows || file.rows == newRows ? "" : "half written";
            },
            [write, newRows](void* object) -> std::string {
                if (!write(*static_cast<CkelMemoryDB*>(object)))
                    return "does not work again";
                return readSavedFile().rows == newRows ? "" : "does not write again";
            }};
}

bool syncAll(CkelMemoryDB& database, const Items& items)
{
    database.push({tagDBBlock::Insert, items});
    database.sync();
    return readSavedFile().rows == rowsOf(items);
}

std::vector<Operation> writeOperations(const Template& table, const Items& oldItems, const Items& newItems)
{
    std::vector<unsigned int> ids;
    std::vector<CkelVariant> values;
    for (const tagStorageData& item : newItems) {
        ids.push_back(item.ID);
        values.push_back(item.Value);
    }
    Items oneNew = oldItems;
    oneNew.back().Value = newValue;
    Items oneLess = oldItems;
    oneLess.pop_back();
    const unsigned int last = oldItems.back().ID;
    const auto write = [&](const std::string& name, const Items& after, const std::function<bool(CkelMemoryDB&)>& run) {
        return writeOperation(name, table, oldItems, after, run);
    };
    return {
        write("insert batch", newItems, [=](CkelMemoryDB& file) { return file.insertDatas(newItems); }),
        write("update batch", newItems, [=](CkelMemoryDB& file) { return file.updateDatas(newItems); }),
        write("update of values", newItems, [=](CkelMemoryDB& file) { return file.updateValues(ids, values); }),
        write("rebuild", newItems, [=](CkelMemoryDB& file) { return file.rebuildMemoryDBTable(newItems); }),
        write("insert of one", oneNew, [=](CkelMemoryDB& file) { return file.insertData(oneNew.back()); }),
        write("update of one value", oneNew, [=](CkelMemoryDB& file) { return file.updateValue(last, newValue); }),
        write("delete of one", oneLess, [=](CkelMemoryDB& file) { return file.deleteData(last); }),
    };
}

/// A block from the queue tells nothing of its end; it is written whole or not at all.
Operation blockOperation(const Template& table, const Items& oldItems, const Items& newItems)
{
    const auto oldRows = rowsOf(oldItems);
    const auto newRows = rowsOf(newItems);
    return {"queued block", table,
            [newItems](const std::function<void()>& arm, bool& succeeded) {
                auto database = std::make_shared<CkelMemoryDB>();
                database->push({tagDBBlock::Update, newItems});
                arm();
                database->sync();
                succeeded = database->isEmpty();
                return database;
            },
            [oldRows, newRows](bool /*succeeded*/, const SavedFile& file) -> std::string {
                return file.rows == oldRows || file.rows == newRows ? "" : "half written";
            },
            [newItems](void* object) -> std::string {
                return syncAll(*static_cast<CkelMemoryDB*>(object), newItems) ? "" : "does not write the next block";
            }};
}

Operation loadOperation(const std::string& name, const Template& before, const Items& items)
{
    const auto rows = rowsOf(items);
    const auto load = [rows](CkelMemoryDB& database) {
        const auto loaded = rowsOf(database.loadMemoryDB());
        return database.isLoadComplete() && loaded == rows;
    };
    return {name, before,
            [rows, load](const std::function<void()>& arm, bool& succeeded) {
                auto database = std::make_shared<CkelMemoryDB>();
                arm();
                succeeded = load(*database);
                return database;
            },
            [rows](bool /*succeeded*/, const SavedFile& file) -> std::string {
                return file.rows == rows ? "" : "loading has changed the file";
            },
            [load](void* object) -> std::string {
                return load(*static_cast<CkelMemoryDB*>(object)) ? "" : "does not load again";
            }};
}

bool holds(const CkelMemoryDataStorage& storage, const Items& items)
{
    return std::all_of(items.begin(), items.end(), [&storage](const tagStorageData& item) {
        return storage.queryValue(item.ID).toLongLong() == item.Value.toLongLong();
    });
}

/// A start that restores saved values: they never leave the file.
Operation restoreOperation(const std::string& name, const Template& table, const std::string& dictionary,
                           const Items& items)
{
    const auto rows = rowsOf(items);
    return {name, table,
            [dictionary, items](const std::function<void()>& arm, bool& succeeded) {
                auto storage = std::make_shared<CkelMemoryDataStorage>();
                arm();
                storage->readConfigFile(dictionary, true);
                succeeded = holds(*storage, items);
                return storage;
            },
            [rows](bool /*succeeded*/, const SavedFile& file) -> std::string {
                return file.rows == rows ? "" : "saved values are lost";
            },
            [dictionary, items](void* object) -> std::string {
                auto& storage = *static_cast<CkelMemoryDataStorage*>(object);
                storage.readConfigFile(dictionary, true);
                return holds(storage, items) ? "" : "does not restore again";
            }};
}

/// The same with the opening of the file under faults too. A storage that could not open it works in memory.
Operation startOperation(const Template& table, const std::string& dictionary, const Items& items)
{
    Operation start = restoreOperation("start", table, dictionary, items);
    start.run = [dictionary, items](const std::function<void()>& arm, bool& succeeded) {
        arm();
        auto storage = std::make_shared<CkelMemoryDataStorage>();
        storage->readConfigFile(dictionary, true);
        succeeded = holds(*storage, items);
        return storage;
    };
    start.again = [dictionary, items](void* object) -> std::string {
        auto& storage = *static_cast<CkelMemoryDataStorage*>(object);
        storage.readConfigFile(dictionary, true);
        if (storage.hasLocalDB() && !holds(storage, items))
            return "does not restore again";
        CkelMemoryDataStorage next;
        next.readConfigFile(dictionary, true);
        return holds(next, items) ? "" : "the next start does not restore";
    };
    return start;
}

/// A start, and a change once the faults are gone: it is saved, whatever the start met.
Operation saveAfterStartOperation(const Template& table, const std::string& dictionary, const Items& items)
{
    Operation start = restoreOperation("save after a start", table, dictionary, items);
    start.run = [dictionary, items](const std::function<void()>& arm, bool& succeeded) {
        arm();
        auto storage = std::make_shared<DrivenStorage>();
        storage->readConfigFile(dictionary, true);
        succeeded = holds(*storage, items);
        return storage;
    };
    start.again = [items](void* object) -> std::string {
        auto& storage = *static_cast<DrivenStorage*>(object);
        Items changed = items;
        for (tagStorageData& item : changed) {
            item.Value = newValue;
            storage.updateValue(item.ID, item.Value, false);
        }
        storage.tick();
        storage.write();
        return readSavedFile().rows == rowsOf(changed) ? "" : "does not save";
    };
    return start;
}

Operation reconfigureOperation(const Template& table, const std::string& dictionary, const Items& oldItems,
                               const Items& newItems)
{
    const auto oldRows = rowsOf(oldItems);
    const auto newRows = rowsOf(newItems);
    return {"rebuild at the start", table,
            [dictionary, newRows](const std::function<void()>& arm, bool& succeeded) {
                auto storage = std::make_shared<CkelMemoryDataStorage>();
                arm();
                storage->readConfigFile(dictionary, false);
                succeeded = true; // it has no result
                return storage;
            },
            [oldRows, newRows](bool /*succeeded*/, const SavedFile& file) -> std::string {
                return file.rows == oldRows || file.rows == newRows ? "" : "half rebuilt";
            },
            [dictionary, newRows](void* object) -> std::string {
                static_cast<CkelMemoryDataStorage*>(object)->readConfigFile(dictionary, false);
                return readSavedFile().rows == newRows ? "" : "does not rebuild again";
            }};
}

/// The files of a process that was killed while it wrote: some pages new, and the journal to take them back.
void leaveHotJournal(const Template& table, const Template& crashed)
{
    table.restore();
    sqlite3* connection = nullptr;
    sqlite3_open(localFile, &connection);
    // Pages are written before the end of the transaction.
    sqlite3_exec(connection, "PRAGMA cache_size=1; BEGIN; UPDATE kel SET Value=99, NameID=NameID||'x'", nullptr,
                 nullptr, nullptr);
    sqlite3_db_cacheflush(connection);
    crashed.keep();
    sqlite3_close(connection);
}

} // namespace

std::vector<FaultReport> walkFaults(int rows)
{
    VfsLayer layer;
    return walkFaults(rows, layer);
}

std::vector<FaultReport> walkFaults(int rows, FaultLayer& layer)
{
    const Items saved = integerItems(1, rows, savedValue);
    const Items changed = integerItems(1, rows, newValue);
    const Items configured = integerItems(1, rows, configuredValue);
    writeDictionary("dictionary.json", configured);
    Items larger = configured;
    larger.push_back(integerItem(1000000, configuredValue));
    writeDictionary("larger.json", larger);

    const Template table("table");
    CkelMemoryDB().rebuildMemoryDBTable(saved);
    table.keep();
    const Template crashed("crashed");
    leaveHotJournal(table, crashed);

    std::vector<Operation> operations = writeOperations(table, saved, changed);
    operations.push_back(blockOperation(table, saved, changed));
    operations.push_back(loadOperation("load", table, saved));
    operations.push_back(loadOperation("load after a crash", crashed, saved));
    operations.push_back(restoreOperation("restore", table, "dictionary.json", saved));
    operations.push_back(restoreOperation("restore after a crash", crashed, "dictionary.json", saved));
    operations.push_back(restoreOperation("restore into a larger dictionary", table, "larger.json", saved));
    operations.push_back(startOperation(table, "dictionary.json", saved));
    operations.push_back(saveAfterStartOperation(table, "dictionary.json", saved));
    operations.push_back(reconfigureOperation(table, "dictionary.json", saved, configured));

    Walk walk(layer);
    std::vector<FaultReport> reports;
    reports.reserve(operations.size());
    for (const Operation& operation : operations)
        reports.push_back(walk.through(operation));
    return reports;
}

void print(const std::vector<FaultReport>& reports, std::ostream& out)
{
    long points = 0;
    for (const FaultReport& report : reports) {
        out << report.operation << ": " << report.points << " fault points, " << report.successes
            << " successes in spite of the fault\n";
        for (const std::string& failure : report.failures)
            out << "  FAILED " << failure << '\n';
        points += report.points;
    }
    out << points << " fault points in all\n";
}

} // namespace KelTest
