#include "benchmarks/countingvfs.h"

#include "benchmarks/check.h"

#include <sqlite3.h>

#include <filesystem>
#include <map>
#include <mutex>

namespace KelBench {

namespace {

/// SQLite's own file functions, one set for each kind of file, with another write function.
struct Methods
{
    sqlite3_io_methods own;
    sqlite3_io_methods counting;
};

std::mutex mutex;
sqlite3_vfs* systemVfs = nullptr;
sqlite3_vfs countingVfs;
std::map<const sqlite3_io_methods*, Methods> methods; // by SQLite's own
std::map<const sqlite3_file*, std::string> names;     // of the open files
std::map<std::string, std::uint64_t> written;

const Methods& methodsOf(const sqlite3_file* file)
{
    for (const auto& [own, pair] : methods) {
        if (file->pMethods == &pair.counting)
            return pair;
    }
    require(false, "the file is one that is counted");
    std::abort();
}

int writeCounted(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 offset)
{
    const std::lock_guard<std::mutex> lock(mutex);
    written[names[file]] += static_cast<std::uint64_t>(count);
    return methodsOf(file).own.xWrite(file, bytes, count, offset);
}

int openCounted(sqlite3_vfs* /*vfs*/, const char* name, sqlite3_file* file, int flags, int* outFlags)
{
    const int result = systemVfs->xOpen(systemVfs, name, file, flags, outFlags);
    if (!file->pMethods)
        return result;
    const std::lock_guard<std::mutex> lock(mutex);
    Methods& pair = methods[file->pMethods];
    pair.own = *file->pMethods;
    pair.counting = pair.own;
    pair.counting.xWrite = writeCounted;
    file->pMethods = &pair.counting;
    names[file] = std::filesystem::path(name ? name : "").filename().string();
    return result;
}

} // namespace

CountingVfs::CountingVfs()
{
    systemVfs = sqlite3_vfs_find(nullptr);
    countingVfs = *systemVfs;
    countingVfs.zName = "counting";
    countingVfs.pNext = nullptr;
    countingVfs.xOpen = openCounted;
    sqlite3_vfs_register(&countingVfs, 1);
}

CountingVfs::~CountingVfs()
{
    sqlite3_vfs_unregister(&countingVfs);
    sqlite3_vfs_register(systemVfs, 1);
}

std::uint64_t bytesWritten(const std::string& name)
{
    const std::lock_guard<std::mutex> lock(mutex);
    std::uint64_t sum = 0;
    for (const auto& [file, bytes] : written) {
        if (file.compare(0, name.size(), name) == 0)
            sum += bytes;
    }
    return sum;
}

} // namespace KelBench
