#pragma once

#include <cstddef>

namespace KelTest {

/// While it lives, the n-th allocation fails: once, or every one from then on.
///
/// Counted are operator new, what Asio and the stack of RapidJSON allocate, and SQLite's memory. One at a time may
/// live.
class FailingAllocation
{
public:
    enum Scope
    {
        ThisThread,
        OtherThreads
    };

    enum Extent
    {
        Once,
        FromThenOn
    };

    explicit FailingAllocation(long nth, Extent extent = Once, Scope scope = ThisThread);
    ~FailingAllocation();

    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// Whether an allocation has failed.
    bool hit() const;

    /// Hands SQLite's memory to the counter. To be called before SQLite's first use; true when it was.
    static bool watchSqlite();
};

/// What the process holds by operator new.
struct HeldMemory
{
    long long blocks;
    long long bytes; ///< as the allocator rounds them
};

HeldMemory heldMemory();

} // namespace KelTest
