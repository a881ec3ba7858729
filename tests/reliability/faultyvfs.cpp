#include "tests/reliability/faultyvfs.h"

#include "database/kelsqliteclock.h"

#include <sqlite3.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <new>

namespace KelTest {

namespace {

struct State
{
    std::mutex mutex;
    bool armed = false;
    FaultyVfs::Fault fault{};
    long left = 0;
    bool lasting = false;
    bool hit = false;
    std::atomic<long> calls{0};
    std::chrono::microseconds skipped{0}; // of pauses, which take no time while armed
};

State& state()
{
    static auto& instance = *new State;
    return instance;
}

/// SQLITE_OK, or what has to fail the operation that is about to begin. `partly` may be null.
int nextResult(FaultyVfs::Operation operation, bool* partly = nullptr)
{
    State& s = state();
    ++s.calls;
    const std::lock_guard<std::mutex> lock(s.mutex);
    if (!s.armed || s.fault.operation != operation)
        return SQLITE_OK;
    const long number = --s.left;
    if (number > 0 || (number < 0 && !s.lasting))
        return SQLITE_OK;
    s.hit = true;
    if (partly)
        *partly = s.fault.partly;
    return s.fault.result;
}

sqlite3_vfs*& original()
{
    static sqlite3_vfs* instance = nullptr;
    return instance;
}

/// The system's file lies behind it in memory.
struct File
{
    sqlite3_file base;

    sqlite3_file* real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
    static sqlite3_file* real(sqlite3_file* file) { return reinterpret_cast<File*>(file)->real(); }
};

template <typename... Arguments, typename... Values>
int passOn(FaultyVfs::Operation operation, sqlite3_file* file, int (*sqlite3_io_methods::*method)(Arguments...),
           Values... values)
{
    const int result = nextResult(operation);
    sqlite3_file* const real = File::real(file);
    return result != SQLITE_OK ? result : (real->pMethods->*method)(real, values...);
}

int closeFile(sqlite3_file* file)
{
    sqlite3_file* const real = File::real(file);
    return real->pMethods->xClose(real);
}

int readFile(sqlite3_file* file, void* bytes, int count, sqlite3_int64 offset)
{
    return passOn(FaultyVfs::Read, file, &sqlite3_io_methods::xRead, bytes, count, offset);
}

int writeFile(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 offset)
{
    bool partly = false;
    const int result = nextResult(FaultyVfs::Write, &partly);
    sqlite3_file* const real = File::real(file);
    if (result == SQLITE_OK)
        return real->pMethods->xWrite(real, bytes, count, offset);
    if (partly)
        real->pMethods->xWrite(real, bytes, count / 2, offset);
    return result;
}

int truncateFile(sqlite3_file* file, sqlite3_int64 size)
{
    return passOn(FaultyVfs::Truncate, file, &sqlite3_io_methods::xTruncate, size);
}

int syncFile(sqlite3_file* /*file*/, int /*flags*/)
{
    return nextResult(FaultyVfs::Sync);
}

int sizeOfFile(sqlite3_file* file, sqlite3_int64* size)
{
    return passOn(FaultyVfs::FileSize, file, &sqlite3_io_methods::xFileSize, size);
}

int lockFile(sqlite3_file* file, int level)
{
    return passOn(FaultyVfs::Lock, file, &sqlite3_io_methods::xLock, level);
}

int unlockFile(sqlite3_file* file, int level)
{
    // The lock is given back even so: a system that keeps it cannot be told from another process that holds it.
    const int result = nextResult(FaultyVfs::Unlock);
    sqlite3_file* const real = File::real(file);
    const int done = real->pMethods->xUnlock(real, level);
    return result != SQLITE_OK ? result : done;
}

int checkReservedLock(sqlite3_file* file, int* reserved)
{
    return passOn(FaultyVfs::Lock, file, &sqlite3_io_methods::xCheckReservedLock, reserved);
}

int controlFile(sqlite3_file* file, int operation, void* argument)
{
    sqlite3_file* const real = File::real(file);
    return real->pMethods->xFileControl(real, operation, argument);
}

int sectorSize(sqlite3_file* file)
{
    sqlite3_file* const real = File::real(file);
    return real->pMethods->xSectorSize(real);
}

int deviceCharacteristics(sqlite3_file* file)
{
    sqlite3_file* const real = File::real(file);
    return real->pMethods->xDeviceCharacteristics(real);
}

const sqlite3_io_methods methods = {
    1, // no shared memory: the library's journal is a file
    closeFile, readFile,   writeFile,         truncateFile, syncFile,   sizeOfFile,
    lockFile,  unlockFile, checkReservedLock, controlFile,  sectorSize, deviceCharacteristics,
    nullptr,   nullptr,    nullptr,           nullptr,      nullptr,    nullptr,
};

int openFile(sqlite3_vfs* /*fileSystem*/, const char* name, sqlite3_file* file, int flags, int* outFlags)
{
    auto* const opened = new (file) File{};
    const int fault = nextResult(FaultyVfs::Open);
    if (fault != SQLITE_OK)
        return fault;
    const int result = original()->xOpen(original(), name, opened->real(), flags, outFlags);
    if (opened->real()->pMethods)
        opened->base.pMethods = &methods;
    return result;
}

int deleteFile(sqlite3_vfs* /*fileSystem*/, const char* name, int /*syncFolder*/)
{
    const int fault = nextResult(FaultyVfs::Delete);
    return fault != SQLITE_OK ? fault : original()->xDelete(original(), name, 0);
}

int accessFile(sqlite3_vfs* /*fileSystem*/, const char* name, int flags, int* result)
{
    const int fault = nextResult(FaultyVfs::Access);
    return fault != SQLITE_OK ? fault : original()->xAccess(original(), name, flags, result);
}

int sleepFor(sqlite3_vfs* /*fileSystem*/, int microseconds)
{
    {
        State& s = state();
        const std::lock_guard<std::mutex> lock(s.mutex);
        if (s.armed) {
            s.skipped += std::chrono::microseconds(microseconds);
            return microseconds;
        }
    }
    return original()->xSleep(original(), microseconds);
}

std::chrono::steady_clock::time_point now()
{
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    return std::chrono::steady_clock::now() + s.skipped;
}

sqlite3_vfs& fileSystem()
{
    static sqlite3_vfs instance = {};
    return instance;
}

} // namespace

const std::vector<FaultyVfs::Fault>& FaultyVfs::faults()
{
    static const std::vector<Fault> all{
        {"open", Open, SQLITE_CANTOPEN},           {"delete", Delete, SQLITE_IOERR_DELETE},
        {"access", Access, SQLITE_IOERR_ACCESS},   {"read", Read, SQLITE_IOERR_READ},
        {"write", Write, SQLITE_IOERR_WRITE},      {"write on a full disk", Write, SQLITE_FULL},
        {"short write", Write, SQLITE_FULL, true}, {"truncate", Truncate, SQLITE_IOERR_TRUNCATE},
        {"sync", Sync, SQLITE_IOERR_FSYNC},        {"file size", FileSize, SQLITE_IOERR_FSTAT},
        {"lock", Lock, SQLITE_IOERR_LOCK},         {"lock of another", Lock, SQLITE_BUSY},
        {"unlock", Unlock, SQLITE_IOERR_UNLOCK},
    };
    return all;
}

FaultyVfs::FaultyVfs()
{
    original() = sqlite3_vfs_find(nullptr);
    fileSystem() = *original();
    fileSystem().zName = "faulty";
    fileSystem().szOsFile += static_cast<int>(sizeof(File));
    fileSystem().xOpen = openFile;
    fileSystem().xDelete = deleteFile;
    fileSystem().xAccess = accessFile;
    fileSystem().xSleep = sleepFor;
    state(); // made before a call through SQLite could run out of memory for it
    Ombrin::kelSqliteNow = &now;
    sqlite3_vfs_register(&fileSystem(), 1);
}

FaultyVfs::~FaultyVfs()
{
    disarm();
    Ombrin::kelSqliteNow = &std::chrono::steady_clock::now;
    sqlite3_vfs_unregister(&fileSystem());
    sqlite3_vfs_register(original(), 1);
}

void FaultyVfs::arm(const Fault& fault, long nth, bool lasting)
{
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    s.armed = true;
    s.fault = fault;
    s.left = nth;
    s.lasting = lasting;
    s.hit = false;
}

void FaultyVfs::disarm()
{
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    s.armed = false;
}

bool FaultyVfs::hit() const
{
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    return s.hit;
}

long FaultyVfs::calls()
{
    return state().calls;
}

} // namespace KelTest
