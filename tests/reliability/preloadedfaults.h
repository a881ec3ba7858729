#pragma once

#include <cstddef>

namespace KelTest {

/// A way in which a call of the C library fails on one of the storage's files.
struct PreloadedFault
{
    const char* name;
    int call;     ///< the library's own number of the call
    int error;    ///< what errno says; 0 when the call does one half of its work
    bool mayLast; ///< false where SQLite tries again until it is gone, or can do nothing without it
};

/// What the library of faults offers to the process that it is preloaded into: the symbol "kelPreloadedFaults". It
/// stands between SQLite and the C library and fails calls on files whose names begin with "kelmem.db". Nothing is
/// synced to the disk.
///
/// Not among the faults are a failing look for a journal, which SQLite takes for "there is none", and an unlocking that
/// fails for good: the file stays locked until the connection is used again.
struct PreloadedFaults
{
    const PreloadedFault* faults;
    std::size_t count;

    /// Lets the n-th call of the fault's kind fail, counted from now and from 1; once, or every one from then on.
    void (*arm)(std::size_t fault, long nth, bool lasting);

    /// Lets one call in `oneIn` fail, each in one of the ways of its kind.
    void (*armRandomly)(unsigned int seed, unsigned int oneIn);

    void (*disarm)();

    /// The calls that have failed since the last arming.
    long (*hits)();
};

/// Null in a process without that library.
const PreloadedFaults* preloadedFaults();

} // namespace KelTest
