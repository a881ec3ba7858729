#include "tests/support/casesapart.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace KelTest {

namespace {

constexpr unsigned int caseTimeout = 240; // seconds
constexpr int noneChosen = 77;            // what ctest is told to take for "skipped"

/// Lets the filter of the command line, or of the environment, choose among the cases.
void chooseCases()
{
    // Disabled ones too: they are not run, and so counted as failed.
    testing::GTEST_FLAG(also_run_disabled_tests) = true;
    testing::GTEST_FLAG(list_tests) = true;
    testing::internal::CaptureStdout();
    const bool isListed = RUN_ALL_TESTS() == 0;
    const std::string list = testing::internal::GetCapturedStdout();
    if (!isListed)
        throw std::runtime_error("cannot list the cases: " + list);
    testing::GTEST_FLAG(list_tests) = false;
    testing::GTEST_FLAG(also_run_disabled_tests) = false;
}

std::vector<std::string> namesOfChosenCases()
{
    std::vector<std::string> names;
    const testing::UnitTest& program = *testing::UnitTest::GetInstance();
    for (int i = 0; i < program.total_test_suite_count(); ++i) {
        const testing::TestSuite& suite = *program.GetTestSuite(i);
        for (int j = 0; j < suite.total_test_count(); ++j) {
            const testing::TestInfo& info = *suite.GetTestInfo(j);
            if (info.should_run())
                names.push_back(std::string(suite.name()) + "." + info.name());
        }
    }
    return names;
}

[[noreturn]] void runCase(const std::string& name, int output)
{
    setpgid(0, 0);
    alarm(caseTimeout);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    testing::GTEST_FLAG(filter) = name;
    const bool isWell = RUN_ALL_TESTS() == 0;
    // A case that was left out, or skipped itself, has not passed.
    std::exit(isWell && testing::UnitTest::GetInstance()->successful_test_count() == 1 ? EXIT_SUCCESS : EXIT_FAILURE);
}

class Run
{
public:
    void start(const std::string& name)
    {
        std::FILE* const output = std::tmpfile();
        std::fflush(nullptr);
        const pid_t process = output ? fork() : -1;
        if (process == 0)
            runCase(name, fileno(output));
        if (process < 0) {
            std::perror(name.c_str());
            std::exit(EXIT_FAILURE);
        }
        m_running[process] = {name, output};
    }

    /// Waits until one of the running cases has ended.
    void finishOne()
    {
        int status = 0;
        const pid_t process = waitpid(-1, &status, 0);
        const auto found = m_running.find(process);
        if (found == m_running.end())
            return;
        kill(-process, SIGKILL); // whatever it left running
        if (status == 0)
            ++m_passed;
        else
            fail(found->second, status);
        std::fclose(found->second.output);
        m_running.erase(found);
    }

    std::size_t running() const { return m_running.size(); }

    int report() const
    {
        for (const std::string& name : m_failed)
            std::printf("FAILED: %s\n", name.c_str());
        std::printf("%zu passed, %zu failed\n", m_passed, m_failed.size());
        return m_failed.empty() && m_passed > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    }

private:
    struct Case
    {
        std::string name;
        std::FILE* output;
    };

    void fail(const Case& failed, int status)
    {
        std::rewind(failed.output);
        std::array<char, 4096> text{};
        for (std::size_t size = 0; (size = std::fread(text.data(), 1, text.size(), failed.output)) > 0;)
            std::fwrite(text.data(), 1, size, stdout);
        std::string name = failed.name;
        if (WIFSIGNALED(status))
            name += " (signal " + std::to_string(WTERMSIG(status)) + ")";
        m_failed.push_back(std::move(name));
    }

    std::map<pid_t, Case> m_running;
    std::vector<std::string> m_failed;
    std::size_t m_passed = 0;
};

} // namespace

int runCasesApart()
{
    chooseCases();
    const std::vector<std::string> names = namesOfChosenCases();
    if (names.empty())
        return noneChosen;
    const std::size_t cores = std::max(1U, std::thread::hardware_concurrency());
    Run run;
    for (const std::string& name : names) {
        if (run.running() == cores)
            run.finishOne();
        run.start(name);
    }
    while (run.running() > 0)
        run.finishOne();
    return run.report();
}

} // namespace KelTest
