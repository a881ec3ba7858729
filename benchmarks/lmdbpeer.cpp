#include "benchmarks/check.h"
#include "benchmarks/measure.h"
#include "benchmarks/rows.h"
#include "benchmarks/world.h"

#include <lmdb.h>

#include <filesystem>

namespace KelBench {

namespace {

/// Values under integer keys; one read transaction stays open.
class Lmdb
{
public:
    explicit Lmdb(const std::vector<tagStorageData>& items)
    {
        constexpr std::size_t mapSize = std::size_t{1} << 30U;
        std::filesystem::create_directory("lmdb");
        require(mdb_env_create(&m_environment) == 0, "LMDB is made");
        mdb_env_set_mapsize(m_environment, mapSize);
        require(mdb_env_open(m_environment, "lmdb", MDB_NOSYNC | MDB_NOTLS, 0600) == 0, "LMDB opens its folder");
        fill(items);
        require(mdb_txn_begin(m_environment, nullptr, MDB_RDONLY, &m_reader) == 0, "LMDB begins to read");
    }
    ~Lmdb()
    {
        mdb_txn_abort(m_reader);
        mdb_env_close(m_environment);
    }
    Lmdb(const Lmdb&) = delete;
    Lmdb& operator=(const Lmdb&) = delete;

    bool read(unsigned int id)
    {
        MDB_val key{sizeof(id), &id};
        MDB_val value{};
        if (mdb_get(m_reader, m_table, &key, &value) != 0)
            return false;
        use(value);
        return true;
    }

    /// How many of the IDs from `first` up to `last`, the latter not among them, have values; reads them all.
    std::size_t readRange(unsigned int first, unsigned int last)
    {
        MDB_cursor* cursor = nullptr;
        require(mdb_cursor_open(m_reader, m_table, &cursor) == 0, "LMDB has a cursor");
        MDB_val key{sizeof(first), &first};
        MDB_val value{};
        std::size_t count = 0;
        for (int status = mdb_cursor_get(cursor, &key, &value, MDB_SET_RANGE); status == 0;
             status = mdb_cursor_get(cursor, &key, &value, MDB_NEXT)) {
            unsigned int id = 0;
            std::memcpy(&id, key.mv_data, sizeof(id));
            if (id >= last)
                break;
            use(value);
            ++count;
        }
        mdb_cursor_close(cursor);
        return count;
    }

private:
    /// A number, or as much of a text.
    static void use(const MDB_val& value)
    {
        SixteenBytes bytes{};
        std::memcpy(&bytes, value.mv_data, std::min(value.mv_size, sizeof(bytes)));
        benchmark::DoNotOptimize(bytes);
    }

    void fill(const std::vector<tagStorageData>& items)
    {
        MDB_txn* writer = nullptr;
        require(mdb_txn_begin(m_environment, nullptr, 0, &writer) == 0, "LMDB begins to write");
        require(mdb_dbi_open(writer, nullptr, MDB_INTEGERKEY, &m_table) == 0, "LMDB has a table");
        for (const tagStorageData& item : items) {
            unsigned int id = item.ID;
            const std::string text = item.Value.toStdString();
            SixteenBytes number = bytesOf(item.Value);
            const bool isText = item.Value.type() == CkelVariant::String;
            MDB_val key{sizeof(id), &id};
            MDB_val value{isText ? text.size() : sizeof(number),
                          isText ? const_cast<char*>(text.data()) : static_cast<void*>(&number)};
            require(mdb_put(writer, m_table, &key, &value, 0) == 0, "LMDB takes an item");
        }
        require(mdb_txn_commit(writer) == 0, "LMDB commits");
    }

    MDB_env* m_environment = nullptr;
    MDB_dbi m_table = 0;
    MDB_txn* m_reader = nullptr;
};

Lmdb& lmdbOf(const World& world)
{
    static Lmdb lmdb(world.items);
    return lmdb;
}

void queryByID(benchmark::State& state, const World& world)
{
    Lmdb& lmdb = lmdbOf(world);
    bool found = true;
    measureCalls(state, world.ids, [&](unsigned int id) { found = lmdb.read(id) && found; });
    check(state, found, "LMDB misses an item");
}

void selectRange(benchmark::State& state, const World& world)
{
    Lmdb& lmdb = lmdbOf(world);
    std::size_t count = 0;
    for (auto _ : state)
        count = lmdb.readRange(selectedFirst, selectedLast);
    check(state, count == world.storage->queryValueListBetween(selectedFirst, selectedLast).size(),
          "LMDB selects other items");
}

std::string versionNumber()
{
    int major = 0;
    int minor = 0;
    int patch = 0;
    mdb_version(&major, &minor, &patch);
    return std::to_string(major) + '.' + std::to_string(minor) + '.' + std::to_string(patch);
}

} // namespace

void registerLmdb(World& world)
{
    benchmark::AddCustomContext("lmdb", versionNumber());
    addRow("query_id/LMDB", world, queryByID);
    addRow("select_range/LMDB", world, selectRange);
}

} // namespace KelBench
