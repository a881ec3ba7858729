#pragma once

#include <chrono>
#include <filesystem>

namespace Demo {

/// Watches the file of saved values from outside: every transaction moves its time of modification, and is complete
/// once the journal beside it is gone.
class SavedFile
{
public:
    using Clock = std::chrono::steady_clock;

    SavedFile();

    /// Looks at the file; true when a transaction was completed since the last look.
    bool look();

    /// How long the file has not been written, as far as look() has seen.
    Clock::duration quiet() const { return Clock::now() - m_lastWrite; }

private:
    std::filesystem::file_time_type m_modified;
    Clock::time_point m_lastWrite = Clock::now();
};

} // namespace Demo
