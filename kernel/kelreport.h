#pragma once
// Private to this project: not installed.

#include "kernel/kelglobal.h"

#include <string>

namespace Ombrin {

/// The lines that the libraries print on standard output.
///
/// The caller composes a line with std::to_string, which ignores what the application has set on std::cout. A line
/// reaches the output byte by byte, followed by a line end and a flush. Safe from any thread.
class KEL_EXPORT CkelReport
{
public:
    /// While it lives, the lines of this thread wait. The outermost one prints them in order when it ends. Made before
    /// a lock is taken, it keeps a reader of standard output that does not read from holding up the others.
    class KEL_EXPORT Hold
    {
    public:
        Hold();
        ~Hold();
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

        /// Drops the lines that were reported while this object lived.
        void discard();

    private:
        friend class CkelReport;

        Hold* const m_outer;
        std::string m_lines;
    };

    /// Prints `line`, now or when the outermost Hold of this thread ends.
    static void print(const std::string& line);

    /// Prints what waits on this thread now. For callers that end the process.
    static void printHeld();
};

} // namespace Ombrin
