#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace Keldict {

/// A line on the terminal behind standard error that tells how far long work is; nothing elsewhere, and nothing for
/// work that is done within a second.
class Progress
{
public:
    explicit Progress(std::string what);
    ~Progress();

    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// So many of `all` are done. Cheap enough for every item.
    void at(std::size_t done, std::size_t all)
    {
        if (m_onTerminal && done % step == 0)
            show(done, all);
    }

private:
    static constexpr std::size_t step = 1024;

    void show(std::size_t done, std::size_t all);

    const std::string m_what;
    const bool m_onTerminal;
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point m_next;
    bool m_shown = false;
};

} // namespace Keldict
