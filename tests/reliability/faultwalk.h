#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace KelTest {

/// Where faults are planted, and in which ways.
class FaultLayer
{
public:
    struct Fault
    {
        std::string name;
        bool mayLast = true; ///< false when whoever meets it tries again until it is gone
    };

    FaultLayer() = default;
    virtual ~FaultLayer() = default;
    FaultLayer(const FaultLayer&) = delete;
    FaultLayer& operator=(const FaultLayer&) = delete;

    virtual std::vector<Fault> faults() const = 0;

    /// Lets the n-th call of the fault's kind fail, counted from now and from 1; once, or every one from then on.
    virtual void arm(std::size_t fault, long nth, bool lasting) = 0;
    virtual void disarm() = 0;

    /// Whether anything has failed since arm().
    virtual bool hit() const = 0;
};

/// What came of walking through the fault points of one operation.
struct FaultReport
{
    std::string operation;
    long points = 0;                   ///< at which something failed
    long successes = 0;                ///< in spite of it
    std::vector<std::string> failures; ///< of the library; the walk ends after some
};

/// Lets every call into the file system fail, one after the other, in every way and in each of the operations that
/// work on a file: writing, rebuilding, loading, restoring, recovering from a crash. Needs an empty working directory;
/// the tables have `rows` rows.
std::vector<FaultReport> walkFaults(int rows, FaultLayer& layer);

/// The same with faults in a file system of SQLite's.
std::vector<FaultReport> walkFaults(int rows);

/// One line for each operation, and what went wrong.
void print(const std::vector<FaultReport>& reports, std::ostream& out);

} // namespace KelTest
