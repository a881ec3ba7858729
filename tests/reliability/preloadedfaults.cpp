#include "tests/reliability/preloadedfaults.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <mutex>
#include <random>

// A library for LD_PRELOAD. The functions have names of their own; the assembler gives them those of the C library,
// once for each width of file offsets.

using KelTest::PreloadedFault;
using KelTest::PreloadedFaults;

namespace {

enum Call : int
{
    Open,
    Read,
    Write,
    Sync,
    Truncate,
    Unlink,
    Close,
    Lock,
    Unlock,
    Status,
    Access
};

constexpr std::array<PreloadedFault, 21> faultTable{{
    {"open: too many files", Open, EMFILE, true},
    {"open: no permission", Open, EACCES, true},
    {"open: interrupted", Open, EINTR, false},
    {"open: disk full", Open, ENOSPC, true},
    {"read: error", Read, EIO, true},
    {"read: interrupted", Read, EINTR, false},
    {"read: half", Read, 0, true},
    {"write: error", Write, EIO, true},
    {"write: disk full", Write, ENOSPC, true},
    {"write: interrupted", Write, EINTR, false},
    {"write: half", Write, 0, true},
    {"sync: error", Sync, EIO, true},
    {"truncate: error", Truncate, EIO, true},
    {"unlink: error", Unlink, EIO, true},
    {"close: error", Close, EIO, true},
    {"lock: error", Lock, EIO, true},
    {"lock: no locks", Lock, ENOLCK, false},
    {"lock: held by another", Lock, EAGAIN, false},
    {"unlock: error", Unlock, EIO, false},
    {"stat: error", Status, EIO, true},
    {"access: no permission", Access, EACCES, true},
}};

/// What is planned. Constant-initialised and never destroyed: other libraries call in before main and after it.
struct Plan
{
    std::mutex mutex;
    const PreloadedFault* fault = nullptr; // the one that is armed
    long left = 0;                         // calls of its kind until it strikes
    bool lasting = false;
    unsigned int oneIn = 0; // of calls that fail at random; 0: none
    std::minstd_rand random;
    std::atomic<bool> armed{false}; // spares the lock
    std::atomic<long> hits{0};
};

Plan& plan()
{
    static auto& instance = *new Plan;
    return instance;
}

constexpr int descriptors = 4096;
std::array<std::atomic<bool>, descriptors> isOurs; // by file descriptor

const PreloadedFault* atRandom(Call call, Plan& current)
{
    if (current.random() % current.oneIn != 0)
        return nullptr;
    const auto isOfKind = [call](const PreloadedFault& fault) { return fault.call == call; };
    const auto count = std::count_if(faultTable.begin(), faultTable.end(), isOfKind);
    auto chosen = static_cast<long>(current.random() % static_cast<unsigned long>(count));
    return std::find_if(faultTable.begin(), faultTable.end(),
                        [&](const PreloadedFault& fault) { return isOfKind(fault) && chosen-- == 0; });
}

const PreloadedFault* planned(Call call, Plan& current)
{
    if (current.oneIn != 0)
        return atRandom(call, current);
    if (!current.fault || current.fault->call != call || --current.left > 0)
        return nullptr;
    return current.lasting || current.left == 0 ? current.fault : nullptr;
}

/// The fault that this call meets; null for none. Leaves its error in errno.
const PreloadedFault* strike(Call call)
{
    Plan& current = plan();
    if (!current.armed)
        return nullptr;
    const std::lock_guard<std::mutex> lock(current.mutex);
    const PreloadedFault* const fault = planned(call, current);
    if (!fault)
        return nullptr;
    ++current.hits;
    errno = fault->error;
    return fault;
}

bool isStorageFile(const char* path)
{
    const char* const slash = std::strrchr(path, '/');
    return std::strncmp(slash ? slash + 1 : path, "kelmem.db", std::strlen("kelmem.db")) == 0;
}

bool isJournal(const char* path)
{
    return std::strstr(path, "-journal") != nullptr || std::strstr(path, "-wal") != nullptr;
}

bool isStorageFile(int descriptor)
{
    return descriptor >= 0 && descriptor < descriptors && isOurs[static_cast<std::size_t>(descriptor)];
}

void setStorageFile(int descriptor, bool ours)
{
    if (descriptor >= 0 && descriptor < descriptors)
        isOurs[static_cast<std::size_t>(descriptor)] = ours;
}

/// The C library's function of that name.
template <typename Function>
Function* next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::size_t halfOf(std::size_t size)
{
    return std::max<std::size_t>(1, size / 2);
}

int openFile(const char* name, const char* path, int flags, mode_t mode)
{
    const bool ours = isStorageFile(path);
    if (ours && strike(Open))
        return -1;
    const int descriptor = next<int(const char*, int, ...)>(name)(path, flags, mode);
    setStorageFile(descriptor, ours);
    return descriptor;
}

mode_t modeOf(int flags, std::va_list arguments)
{
    return (flags & O_CREAT) != 0 ? static_cast<mode_t>(va_arg(arguments, unsigned int)) : 0;
}

template <typename Transfer>
ssize_t transfer(Call call, int descriptor, std::size_t size, Transfer real)
{
    const PreloadedFault* const fault = isStorageFile(descriptor) ? strike(call) : nullptr;
    if (!fault)
        return real(size);
    return fault->error == 0 ? real(halfOf(size)) : -1;
}

/// Does nothing: a directory is synced too, and takes as long.
int syncFile(int descriptor)
{
    return isStorageFile(descriptor) && strike(Sync) ? -1 : 0;
}

int statFile(int (*real)(const char*, void*), const char* path, void* status)
{
    return isStorageFile(path) && !isJournal(path) && strike(Status) ? -1 : real(path, status);
}

int statOpenFile(int (*real)(int, void*), int descriptor, void* status)
{
    return isStorageFile(descriptor) && strike(Status) ? -1 : real(descriptor, status);
}

bool isLocking(int command)
{
    return command == F_SETLK || command == F_SETLKW;
}

/// `argument` is what the command takes, as wide as a pointer.
template <typename Real>
int control(Real* real, int descriptor, int command, void* argument)
{
    if (isStorageFile(descriptor) && isLocking(command)) {
        short type = 0; // of a lock: the first member, whatever the width of offsets
        std::memcpy(&type, argument, sizeof type);
        if (strike(type == F_UNLCK ? Unlock : Lock))
            return -1;
    }
    return real(descriptor, command, argument);
}

void arm(std::size_t fault, long nth, bool lasting)
{
    Plan& current = plan();
    const std::lock_guard<std::mutex> lock(current.mutex);
    current.fault = &faultTable.at(fault);
    current.left = nth;
    current.lasting = lasting;
    current.oneIn = 0;
    current.hits = 0;
    current.armed = true;
}

void armRandomly(unsigned int seed, unsigned int oneIn)
{
    Plan& current = plan();
    const std::lock_guard<std::mutex> lock(current.mutex);
    current.fault = nullptr;
    current.random.seed(seed);
    current.oneIn = oneIn;
    current.hits = 0;
    current.armed = true;
}

void disarm()
{
    Plan& current = plan();
    const std::lock_guard<std::mutex> lock(current.mutex);
    current.armed = false;
}

long hits()
{
    return plan().hits;
}

} // namespace

#define KEL_IN_PLACE_OF(name) __asm__(name) __attribute__((visibility("default")))

extern "C" {

const PreloadedFaults* preloaded() KEL_IN_PLACE_OF("kelPreloadedFaults");
int openNarrow(const char* path, int flags, ...) KEL_IN_PLACE_OF("open");
int openWide(const char* path, int flags, ...) KEL_IN_PLACE_OF("open64");
ssize_t readSome(int descriptor, void* buffer, std::size_t size) KEL_IN_PLACE_OF("read");
ssize_t readNarrow(int descriptor, void* buffer, std::size_t size, long at) KEL_IN_PLACE_OF("pread");
ssize_t readWide(int descriptor, void* buffer, std::size_t size, long long at) KEL_IN_PLACE_OF("pread64");
ssize_t writeSome(int descriptor, const void* buffer, std::size_t size) KEL_IN_PLACE_OF("write");
ssize_t writeNarrow(int descriptor, const void* buffer, std::size_t size, long at) KEL_IN_PLACE_OF("pwrite");
ssize_t writeWide(int descriptor, const void* buffer, std::size_t size, long long at) KEL_IN_PLACE_OF("pwrite64");
int syncAll(int descriptor) KEL_IN_PLACE_OF("fsync");
int syncData(int descriptor) KEL_IN_PLACE_OF("fdatasync");
int truncateNarrow(int descriptor, long size) KEL_IN_PLACE_OF("ftruncate");
int truncateWide(int descriptor, long long size) KEL_IN_PLACE_OF("ftruncate64");
int unlinkFile(const char* path) KEL_IN_PLACE_OF("unlink");
int closeFile(int descriptor) KEL_IN_PLACE_OF("close");
int controlNarrow(int descriptor, int command, ...) KEL_IN_PLACE_OF("fcntl");
int controlWide(int descriptor, int command, ...) KEL_IN_PLACE_OF("fcntl64");
int statNarrow(const char* path, void* status) KEL_IN_PLACE_OF("stat");
int statWide(const char* path, void* status) KEL_IN_PLACE_OF("stat64");
int statLinkNarrow(const char* path, void* status) KEL_IN_PLACE_OF("lstat");
int statLinkWide(const char* path, void* status) KEL_IN_PLACE_OF("lstat64");
int statOpenNarrow(int descriptor, void* status) KEL_IN_PLACE_OF("fstat");
int statOpenWide(int descriptor, void* status) KEL_IN_PLACE_OF("fstat64");
int accessFile(const char* path, int mode) KEL_IN_PLACE_OF("access");

const PreloadedFaults* preloaded()
{
    static const PreloadedFaults faults{faultTable.data(), faultTable.size(), arm, armRandomly, disarm, hits};
    return &faults;
}

int openNarrow(const char* path, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return openFile("open", path, flags, mode);
}

int openWide(const char* path, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return openFile("open64", path, flags, mode);
}

ssize_t readSome(int descriptor, void* buffer, std::size_t size)
{
    static auto* const real = next<ssize_t(int, void*, std::size_t)>("read");
    return transfer(Read, descriptor, size, [=](std::size_t count) { return real(descriptor, buffer, count); });
}

ssize_t readNarrow(int descriptor, void* buffer, std::size_t size, long at)
{
    static auto* const real = next<ssize_t(int, void*, std::size_t, long)>("pread");
    return transfer(Read, descriptor, size, [=](std::size_t count) { return real(descriptor, buffer, count, at); });
}

ssize_t readWide(int descriptor, void* buffer, std::size_t size, long long at)
{
    static auto* const real = next<ssize_t(int, void*, std::size_t, long long)>("pread64");
    return transfer(Read, descriptor, size, [=](std::size_t count) { return real(descriptor, buffer, count, at); });
}

ssize_t writeSome(int descriptor, const void* buffer, std::size_t size)
{
    static auto* const real = next<ssize_t(int, const void*, std::size_t)>("write");
    return transfer(Write, descriptor, size, [=](std::size_t count) { return real(descriptor, buffer, count); });
}

ssize_t writeNarrow(int descriptor, const void* buffer, std::size_t size, long at)
{
    static auto* const real = next<ssize_t(int, const void*, std::size_t, long)>("pwrite");
    return transfer(Write, descriptor, size, [=](std::size_t count) { return real(descriptor, buffer, count, at); });
}

ssize_t writeWide(int descriptor, const void* buffer, std::size_t size, long long at)
{
    static auto* const real = next<ssize_t(int, const void*, std::size_t, long long)>("pwrite64");
    return transfer(Write, descriptor, size, [=](std::size_t count) { return real(descriptor, buffer, count, at); });
}

int syncAll(int descriptor)
{
    return syncFile(descriptor);
}

int syncData(int descriptor)
{
    return syncFile(descriptor);
}

int truncateNarrow(int descriptor, long size)
{
    static auto* const real = next<int(int, long)>("ftruncate");
    return isStorageFile(descriptor) && strike(Truncate) ? -1 : real(descriptor, size);
}

int truncateWide(int descriptor, long long size)
{
    static auto* const real = next<int(int, long long)>("ftruncate64");
    return isStorageFile(descriptor) && strike(Truncate) ? -1 : real(descriptor, size);
}

int unlinkFile(const char* path)
{
    static auto* const real = next<int(const char*)>("unlink");
    return isStorageFile(path) && strike(Unlink) ? -1 : real(path);
}

int closeFile(int descriptor)
{
    static auto* const real = next<int(int)>("close");
    const bool ours = isStorageFile(descriptor);
    setStorageFile(descriptor, false);
    const int result = real(descriptor); // a failing close closes all the same
    return ours && strike(Close) ? -1 : result;
}

int controlNarrow(int descriptor, int command, ...)
{
    std::va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return control(next<int(int, int, ...)>("fcntl"), descriptor, command, argument);
}

int controlWide(int descriptor, int command, ...)
{
    std::va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return control(next<int(int, int, ...)>("fcntl64"), descriptor, command, argument);
}

int statNarrow(const char* path, void* status)
{
    return statFile(next<int(const char*, void*)>("stat"), path, status);
}

int statWide(const char* path, void* status)
{
    return statFile(next<int(const char*, void*)>("stat64"), path, status);
}

int statLinkNarrow(const char* path, void* status)
{
    return statFile(next<int(const char*, void*)>("lstat"), path, status);
}

int statLinkWide(const char* path, void* status)
{
    return statFile(next<int(const char*, void*)>("lstat64"), path, status);
}

int statOpenNarrow(int descriptor, void* status)
{
    return statOpenFile(next<int(int, void*)>("fstat"), descriptor, status);
}

int statOpenWide(int descriptor, void* status)
{
    return statOpenFile(next<int(int, void*)>("fstat64"), descriptor, status);
}

int accessFile(const char* path, int mode)
{
    static auto* const real = next<int(const char*, int)>("access");
    return isStorageFile(path) && !isJournal(path) && strike(Access) ? -1 : real(path, mode);
}

} // extern "C"
