#pragma once

#include <vector>

namespace KelTest {

/// While it lives, SQLite's default file system: the system's own, with faults on demand.
///
/// Connections opened meanwhile must be closed before it goes. Nothing is synced to the disk, and while a fault is
/// armed nobody sleeps: a lock that is waited for in vain costs no seconds.
class FaultyVfs
{
public:
    enum Operation
    {
        Open,
        Delete,
        Access,
        Read,
        Write,
        Truncate,
        Sync,
        FileSize,
        Lock,
        Unlock
    };

    struct Fault
    {
        const char* name;
        Operation operation;
        int result;          ///< what SQLite is told
        bool partly = false; ///< of a write: the first half is done
    };

    /// Every fault there is.
    static const std::vector<Fault>& faults();

    FaultyVfs();
    ~FaultyVfs();
    FaultyVfs(const FaultyVfs&) = delete;
    FaultyVfs& operator=(const FaultyVfs&) = delete;

    /// Lets the n-th operation of the fault's kind fail, counted from now and from 1; once, or every one from then on.
    void arm(const Fault& fault, long nth, bool lasting);
    void disarm();

    /// Whether anything has failed since arm().
    bool hit() const;

    /// The calls of all operations since the first file system was made.
    static long calls();
};

} // namespace KelTest
