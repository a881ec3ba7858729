#pragma once

#include <iostream>
#include <sstream>

namespace Keldict {

/// Drops what the library prints on standard output while it lives, which has no place among what this program prints.
class QuietOutput
{
public:
    QuietOutput() : m_before(std::cout.rdbuf(m_dropped.rdbuf())) {}
    ~QuietOutput() { std::cout.rdbuf(m_before); }
    QuietOutput(const QuietOutput&) = delete;
    QuietOutput& operator=(const QuietOutput&) = delete;

private:
    std::ostringstream m_dropped;
    std::streambuf* const m_before;
};

} // namespace Keldict
