#include "tests/fuzz/memoryfiles.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

namespace KelFuzz {

namespace {

using Content = std::shared_ptr<std::string>;
constexpr std::size_t largestFile = std::size_t{16} << 20U;

struct Folder
{
    std::mutex mutex;
    std::map<std::string, Content> files;
};

Folder& folder()
{
    static auto& instance = *new Folder; // worker threads run until the process ends
    return instance;
}

/// SQLite's open file, and what it has of ours.
struct OpenFile
{
    sqlite3_file base;
    Content content;
};

OpenFile& openFile(sqlite3_file* file)
{
    return *reinterpret_cast<OpenFile*>(file);
}

int closeFile(sqlite3_file* file)
{
    openFile(file).content.~Content();
    return SQLITE_OK;
}

int readFile(sqlite3_file* file, void* buffer, int amount, sqlite3_int64 offset)
{
    const std::string& content = *openFile(file).content;
    const auto wanted = static_cast<std::size_t>(amount);
    const std::size_t begin = std::min(static_cast<std::size_t>(offset), content.size());
    const std::size_t count = std::min(wanted, content.size() - begin);
    std::memcpy(buffer, content.data() + begin, count);
    std::memset(static_cast<char*>(buffer) + count, 0, wanted - count);
    return count == wanted ? SQLITE_OK : SQLITE_IOERR_SHORT_READ;
}

int writeFile(sqlite3_file* file, const void* bytes, int amount, sqlite3_int64 offset)
{
    std::string& content = *openFile(file).content;
    const std::size_t end = static_cast<std::size_t>(offset) + static_cast<std::size_t>(amount);
    if (end > largestFile)
        return SQLITE_FULL;
    if (content.size() < end)
        content.resize(end);
    std::memcpy(content.data() + offset, bytes, static_cast<std::size_t>(amount));
    return SQLITE_OK;
}

int truncateFile(sqlite3_file* file, sqlite3_int64 size)
{
    openFile(file).content->resize(std::min(largestFile, static_cast<std::size_t>(size)));
    return SQLITE_OK;
}

int syncFile(sqlite3_file* /*file*/, int /*flags*/)
{
    return SQLITE_OK;
}

int sizeOfFile(sqlite3_file* file, sqlite3_int64* size)
{
    *size = static_cast<sqlite3_int64>(openFile(file).content->size());
    return SQLITE_OK;
}

int changeLock(sqlite3_file* /*file*/, int /*level*/)
{
    return SQLITE_OK;
}

int checkReservedLock(sqlite3_file* /*file*/, int* reserved)
{
    *reserved = 0;
    return SQLITE_OK;
}

int fileControl(sqlite3_file* /*file*/, int /*operation*/, void* /*argument*/)
{
    return SQLITE_NOTFOUND;
}

int sectorSize(sqlite3_file* /*file*/)
{
    return 512;
}

int deviceCharacteristics(sqlite3_file* /*file*/)
{
    return SQLITE_IOCAP_SAFE_APPEND | SQLITE_IOCAP_POWERSAFE_OVERWRITE;
}

sqlite3_io_methods fileMethods()
{
    sqlite3_io_methods methods = {};
    methods.iVersion = 1;
    methods.xClose = closeFile;
    methods.xRead = readFile;
    methods.xWrite = writeFile;
    methods.xTruncate = truncateFile;
    methods.xSync = syncFile;
    methods.xFileSize = sizeOfFile;
    methods.xLock = changeLock;
    methods.xUnlock = changeLock;
    methods.xCheckReservedLock = checkReservedLock;
    methods.xFileControl = fileControl;
    methods.xSectorSize = sectorSize;
    methods.xDeviceCharacteristics = deviceCharacteristics;
    return methods;
}

int open(sqlite3_vfs* /*system*/, const char* name, sqlite3_file* file, int flags, int* outFlags)
{
    static const sqlite3_io_methods methods = fileMethods();
    file->pMethods = nullptr;
    Content content = std::make_shared<std::string>();
    if (name) {
        const std::lock_guard<std::mutex> lock(folder().mutex);
        const auto found = folder().files.find(name);
        if (found == folder().files.end() && (flags & SQLITE_OPEN_CREATE) == 0)
            return SQLITE_CANTOPEN;
        content = folder().files.try_emplace(name, content).first->second;
    }
    new (&openFile(file).content) Content(std::move(content));
    file->pMethods = &methods;
    if (outFlags)
        *outFlags = flags;
    return SQLITE_OK;
}

int remove(sqlite3_vfs* /*system*/, const char* name, int /*syncFolder*/)
{
    const std::lock_guard<std::mutex> lock(folder().mutex);
    return folder().files.erase(name) != 0 ? SQLITE_OK : SQLITE_IOERR_DELETE_NOENT;
}

int access(sqlite3_vfs* /*system*/, const char* name, int /*flags*/, int* result)
{
    const std::lock_guard<std::mutex> lock(folder().mutex);
    *result = static_cast<int>(folder().files.count(name));
    return SQLITE_OK;
}

int fullPathname(sqlite3_vfs* /*system*/, const char* name, int size, char* full)
{
    sqlite3_snprintf(size, full, "%s", name);
    return SQLITE_OK;
}

/// The same at every run.
int randomness(sqlite3_vfs* /*system*/, int size, char* bytes)
{
    std::memset(bytes, 'r', static_cast<std::size_t>(size));
    return size;
}

int sleepNot(sqlite3_vfs* /*system*/, int microseconds)
{
    return microseconds;
}

int currentTime(sqlite3_vfs* /*system*/, double* day)
{
    *day = 2460000.5;
    return SQLITE_OK;
}

int lastError(sqlite3_vfs* /*system*/, int /*size*/, char* /*text*/)
{
    return 0;
}

sqlite3_vfs fileSystem()
{
    sqlite3_vfs system = {};
    system.iVersion = 1;
    system.szOsFile = sizeof(OpenFile);
    system.mxPathname = 512;
    system.zName = "memory of the harness";
    system.xOpen = open;
    system.xDelete = remove;
    system.xAccess = access;
    system.xFullPathname = fullPathname;
    system.xRandomness = randomness;
    system.xSleep = sleepNot;
    system.xCurrentTime = currentTime;
    system.xGetLastError = lastError;
    return system;
}

} // namespace

void keepFilesInMemory()
{
    static sqlite3_vfs system = fileSystem();
    static const int registered = sqlite3_vfs_register(&system, 1);
    (void)registered;
}

void setFile(const std::string& name, const std::string& bytes)
{
    const std::lock_guard<std::mutex> lock(folder().mutex);
    folder().files[name] = std::make_shared<std::string>(bytes);
}

void removeFiles()
{
    const std::lock_guard<std::mutex> lock(folder().mutex);
    folder().files.clear();
}

} // namespace KelFuzz
