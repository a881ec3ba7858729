#include "tests/reliability/childprocess.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace KelTest {

namespace {

constexpr int signalBase = 128;
constexpr int slowdown = 10; // of a sanitizer, at most

std::chrono::seconds stretched(std::chrono::seconds time)
{
    return isSanitized() ? slowdown * time : time;
}

void limit(__rlimit_resource resource, std::uint64_t most)
{
    const rlimit both{most, most};
    if (setrlimit(resource, &both) != 0)
        _exit(signalBase - 1);
}

std::vector<char*> pointersTo(const std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (const std::string& text : texts)
        pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

[[noreturn]] void becomeProgram(const std::vector<std::string>& command, const ProcessLimits& limits,
                                const std::vector<std::string>& environment, int output)
{
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    limit(RLIMIT_CORE, 0);
    if (limits.processorTime.count() > 0)
        limit(RLIMIT_CPU, static_cast<std::uint64_t>(stretched(limits.processorTime).count()));
    if (limits.memory > 0 && !isSanitized())
        limit(RLIMIT_DATA, limits.memory);
    for (const std::string& variable : environment)
        putenv(const_cast<char*>(variable.c_str()));
    execv(command.front().c_str(), pointersTo(command).data());
    _exit(signalBase - 1);
}

std::string contentOf(int file)
{
    std::string content;
    std::array<char, 4096> part{};
    for (off_t at = 0;; at += static_cast<off_t>(part.size())) {
        const ssize_t count = pread(file, part.data(), part.size(), at);
        if (count <= 0)
            return content;
        content.append(part.data(), static_cast<std::size_t>(count));
    }
}

double secondsOf(const timeval& time)
{
    constexpr double microsecond = 1e-6;
    return static_cast<double>(time.tv_sec) + microsecond * static_cast<double>(time.tv_usec);
}

} // namespace

std::string Ending::text() const
{
    if (hung)
        return "hangs";
    if (status > signalBase)
        return "ends by signal " + std::to_string(status - signalBase);
    return "ends with status " + std::to_string(status);
}

ChildProcess::ChildProcess(const std::vector<std::string>& command, const ProcessLimits& limits,
                           const std::vector<std::string>& environment)
    : m_limits(limits),
      m_start(std::chrono::steady_clock::now()),
      m_output(memfd_create("output", MFD_CLOEXEC)),
      m_process(m_output < 0 ? -1 : fork())
{
    if (m_process == 0)
        becomeProgram(command, limits, environment, m_output);
    if (m_process < 0)
        throw std::runtime_error("no child process");
}

ChildProcess::~ChildProcess()
{
    if (m_process > 0) {
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
    }
    close(m_output);
}

void ChildProcess::send(int signal) const
{
    kill(m_process, signal);
}

Ending ChildProcess::wait()
{
    Ending ending;
    int status = 0;
    rusage usage{};
    while (wait4(m_process, &status, ending.hung ? 0 : WNOHANG, &usage) == 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ending.hung = std::chrono::steady_clock::now() - m_start > stretched(m_limits.time);
        if (ending.hung)
            send(SIGKILL);
    }
    m_process = -1;
    constexpr std::uint64_t kibibyte = 1024;
    ending.status = WIFSIGNALED(status) ? signalBase + WTERMSIG(status) : WEXITSTATUS(status);
    ending.processorTime = secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
    ending.peakMemory = kibibyte * static_cast<std::uint64_t>(usage.ru_maxrss);
    ending.output = contentOf(m_output);
    return ending;
}

} // namespace KelTest
