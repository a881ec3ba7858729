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
        SixteenBytes bytes{}; // a number, or as much of a text
        std::memcpy(&bytes, value.mv_data, std::min(value.mv_size, sizeof(bytes)));
        benchmark::DoNotOptimize(bytes);
        return true;
    }

private:
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

void queryByID(benchmark::State& state, const World& world)
{
    static Lmdb lmdb(world.items);
    bool found = true;
    measureCalls(state, world.ids, [&](unsigned int id) { found = lmdb.read(id) && found; });
    check(state, found, "LMDB misses an item");
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
}

} // namespace KelBench
