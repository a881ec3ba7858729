#include "tests/reliability/failingallocation.h"

#include <malloc.h>
#include <sqlite3.h>

#include <atomic>
#include <cstdlib>
#include <new>

// The linker leads these two C allocations of the program's own objects here (see CMakeLists.txt). Asio takes its
// memory by the one, the stack of RapidJSON by the other.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the linker's names
void* __real_realloc(void* memory, std::size_t size);
void* __real_aligned_alloc(std::size_t alignment, std::size_t size);
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
}

namespace KelTest {

namespace {

enum class Armed : int
{
    No,
    ForOwner,
    ForOthers
};

std::atomic<Armed> armed{Armed::No};
std::atomic<const char*> owner{nullptr}; // an address that only the owning thread has
std::atomic<long> left{0};
std::atomic<bool> lasting{false};
std::atomic<bool> anyFailed{false};
std::atomic<long long> heldBlocks{0};
std::atomic<long long> heldBytes{0};

const char* thisThread()
{
    thread_local const char mark = 0;
    return &mark;
}

bool mustFail()
{
    const Armed scope = armed.load(std::memory_order_acquire);
    if (scope == Armed::No || (thisThread() == owner) != (scope == Armed::ForOwner))
        return false;
    const long number = --left;
    if (number > 0 || (number < 0 && !lasting))
        return false;
    anyFailed = true;
    return true;
}

void* held(void* memory)
{
    if (memory) {
        heldBlocks.fetch_add(1, std::memory_order_relaxed);
        heldBytes.fetch_add(static_cast<long long>(malloc_usable_size(memory)), std::memory_order_relaxed);
    }
    return memory;
}

void* allocate(std::size_t size) noexcept
{
    return mustFail() ? nullptr : held(std::malloc(size == 0 ? 1 : size));
}

void* allocateOrThrow(std::size_t size)
{
    if (void* const memory = allocate(size))
        return memory;
    throw std::bad_alloc();
}

void release(void* memory) noexcept
{
    if (!memory)
        return;
    heldBlocks.fetch_sub(1, std::memory_order_relaxed);
    heldBytes.fetch_sub(static_cast<long long>(malloc_usable_size(memory)), std::memory_order_relaxed);
    std::free(memory);
}

sqlite3_mem_methods& sqliteMethods()
{
    static sqlite3_mem_methods methods = {};
    return methods;
}

void* sqliteMalloc(int size)
{
    return mustFail() ? nullptr : sqliteMethods().xMalloc(size);
}

void* sqliteRealloc(void* memory, int size)
{
    return mustFail() ? nullptr : sqliteMethods().xRealloc(memory, size);
}

} // namespace

FailingAllocation::FailingAllocation(long nth, Extent extent, Scope scope)
{
    owner = thisThread();
    left = nth;
    lasting = extent == FromThenOn;
    anyFailed = false;
    armed.store(scope == ThisThread ? Armed::ForOwner : Armed::ForOthers, std::memory_order_release);
}

FailingAllocation::~FailingAllocation()
{
    armed = Armed::No;
}

bool FailingAllocation::hit() const
{
    return anyFailed;
}

bool FailingAllocation::watchSqlite()
{
    sqlite3_mem_methods& original = sqliteMethods();
    if (sqlite3_config(SQLITE_CONFIG_GETMALLOC, &original) != SQLITE_OK)
        return false;
    sqlite3_mem_methods watched = original;
    watched.xMalloc = sqliteMalloc;
    watched.xRealloc = sqliteRealloc;
    // Without small memory of the connection's own, each of its allocations can fail.
    return sqlite3_config(SQLITE_CONFIG_MALLOC, &watched) == SQLITE_OK &&
           sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0) == SQLITE_OK;
}

HeldMemory heldMemory()
{
    return {heldBlocks, heldBytes};
}

} // namespace KelTest

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the linker's names
extern "C" void* __wrap_realloc(void* memory, std::size_t size)
{
    return KelTest::mustFail() ? nullptr : __real_realloc(memory, size);
}

extern "C" void* __wrap_aligned_alloc(std::size_t alignment, std::size_t size)
{
    return KelTest::mustFail() ? nullptr : __real_aligned_alloc(alignment, size);
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

// All forms without an alignment: an address sanitizer has forms of its own, which must not meet these halfway.

void* operator new(std::size_t size)
{
    return KelTest::allocateOrThrow(size);
}

void* operator new[](std::size_t size)
{
    return KelTest::allocateOrThrow(size);
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    return KelTest::allocate(size);
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    return KelTest::allocate(size);
}

void operator delete(void* memory) noexcept
{
    KelTest::release(memory);
}

void operator delete[](void* memory) noexcept
{
    KelTest::release(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    KelTest::release(memory);
}

void operator delete[](void* memory, std::size_t /*size*/) noexcept
{
    KelTest::release(memory);
}

void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept
{
    KelTest::release(memory);
}

void operator delete[](void* memory, const std::nothrow_t& /*tag*/) noexcept
{
    KelTest::release(memory);
}
