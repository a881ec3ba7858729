#include "progress.h"

#include <unistd.h>

#include <iostream>
#include <utility>

namespace Keldict {

namespace {

constexpr std::chrono::seconds patience{1};
constexpr std::chrono::milliseconds interval{100};

} // namespace

Progress::Progress(std::string what)
    : m_what(std::move(what)), m_onTerminal(isatty(STDERR_FILENO) == 1), m_next(m_start + patience)
{}

Progress::~Progress()
{
    if (m_shown)
        std::cerr << "\r\x1b[K" << std::flush;
}

void Progress::show(std::size_t done, std::size_t all)
{
    const auto now = std::chrono::steady_clock::now();
    if (now < m_next)
        return;
    m_next = now + interval;
    m_shown = true;
    std::cerr << "\r\x1b[K" << m_what << ": " << done;
    if (all > 0)
        std::cerr << " of " << all << " items, " << done * 100 / all << " %";
    else
        std::cerr << " items";
    std::cerr << std::flush;
}

} // namespace Keldict
