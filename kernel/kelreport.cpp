#include "kernel/kelreport.h"

#include <iostream>
#include <new>

namespace Ombrin {

namespace {

thread_local CkelReport::Hold* innermost = nullptr;

/// Unformatted output: flags, widths and locales of std::cout do not apply.
void write(const std::string& lines)
{
    std::cout.write(lines.data(), static_cast<std::streamsize>(lines.size()));
    std::cout.flush();
}

} // namespace

CkelReport::Hold::Hold() : m_outer(innermost)
{
    innermost = this;
}

CkelReport::Hold::~Hold()
{
    innermost = m_outer;
    if (m_lines.empty())
        return;
    try {
        if (m_outer)
            m_outer->m_lines += m_lines;
        else
            write(m_lines);
    } catch (...) { // NOLINT(bugprone-empty-catch): no memory, or an application that lets std::cout throw
    }
}

void CkelReport::Hold::discard()
{
    m_lines.clear();
}

void CkelReport::print(const std::string& line)
{
    if (innermost)
        innermost->m_lines += line + '\n';
    else
        write(line + '\n');
}

void CkelReport::printHeld()
{
    std::string lines;
    for (Hold* hold = innermost; hold; hold = hold->m_outer) {
        lines.insert(0, hold->m_lines);
        hold->m_lines.clear();
    }
    write(lines);
}

} // namespace Ombrin
