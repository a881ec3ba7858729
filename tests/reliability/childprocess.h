#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace KelTest {

/// What a child process may use. A sanitizer needs much more, of memory without an end: it gets more time there, and
/// its memory is not limited.
struct ProcessLimits
{
    std::chrono::seconds time{60};         ///< until it counts as hanging and is killed
    std::chrono::seconds processorTime{0}; ///< 0: no limit
    std::uint64_t memory = 0;              ///< bytes of private memory; 0: no limit
};

/// How a child process has ended.
struct Ending
{
    int status = 0; ///< of its exit; 128 and the signal's number when a signal has ended it
    bool hung = false;
    double processorTime = 0;     ///< seconds
    std::uint64_t peakMemory = 0; ///< resident bytes
    std::string output;           ///< both standard outputs

    /// In words.
    std::string text() const;
};

/// Another program, started in the working directory of this process. Its output is kept in memory.
class ChildProcess
{
public:
    /// `environment` is added to that of this process: "NAME=value".
    explicit ChildProcess(const std::vector<std::string>& command, const ProcessLimits& limits = {},
                          const std::vector<std::string>& environment = {});
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void send(int signal) const;

    /// Waits for its end, and kills it when its time is over.
    Ending wait();

private:
    const ProcessLimits m_limits;
    const std::chrono::steady_clock::time_point m_start;
    int m_output;
    pid_t m_process;
};

/// Whether this program is built with a sanitizer.
constexpr bool isSanitized()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#elif defined(__has_feature)
    return __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
    return false;
#endif
}

} // namespace KelTest
