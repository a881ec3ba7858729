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

/// What one process runs: a case, or all chosen instances of one, which have its code in common.
using Group = std::vector<std::string>;

/// Instances are called after their case, with a "/" and what tells them apart.
std::string caseOf(const std::string& name)
{
    const std::size_t dot = name.find('.');
    return name.substr(0, name.find('/', dot));
}

std::vector<Group> chosenCases()
{
    std::map<std::string, Group> groups;
    const testing::UnitTest& program = *testing::UnitTest::GetInstance();
    for (int i = 0; i < program.total_test_suite_count(); ++i) {
        const testing::TestSuite& suite = *program.GetTestSuite(i);
        for (int j = 0; j < suite.total_test_count(); ++j) {
            const testing::TestInfo& info = *suite.GetTestInfo(j);
            const std::string name = std::string(suite.name()) + "." + info.name();
            if (info.should_run())
                groups[caseOf(name)].push_back(name);
        }
    }
    std::vector<Group> result;
    for (auto& [name, group] : groups)
        result.push_back(std::move(group));
    return result;
}

std::string joined(const Group& group)
{
    std::string filter;
    for (const std::string& name : group)
        filter += (filter.empty() ? "" : ":") + name;
    return filter;
}

[[noreturn]] void runCases(const Group& group, int output)
{
    setpgid(0, 0);
    alarm(caseTimeout);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    testing::GTEST_FLAG(filter) = joined(group);
    const bool isWell = RUN_ALL_TESTS() == 0;
    // A case that was left out, or skipped itself, has not passed.
    const auto passed = static_cast<std::size_t>(testing::UnitTest::GetInstance()->successful_test_count());
    std::exit(isWell && passed == group.size() ? EXIT_SUCCESS : EXIT_FAILURE);
}

class Run
{
public:
    void start(const Group& group)
    {
        std::FILE* const output = std::tmpfile();
        std::fflush(nullptr);
        const pid_t process = output ? fork() : -1;
        if (process == 0)
            runCases(group, fileno(output));
        if (process < 0) {
            std::perror(group.front().c_str());
            std::exit(EXIT_FAILURE);
        }
        m_running[process] = {group, output};
    }

    /// Waits until one of the running groups has ended.
    void finishOne()
    {
        int status = 0;
        const pid_t process = waitpid(-1, &status, 0);
        const auto found = m_running.find(process);
        if (found == m_running.end())
            return;
        kill(-process, SIGKILL); // whatever it left running
        const Child ended = std::move(found->second);
        m_running.erase(found);
        if (status == 0)
            m_passed += ended.group.size();
        else
            fail(ended, status);
        std::fclose(ended.output);
    }

    std::size_t running() const { return m_running.size(); }

    int report() const
    {
        for (const std::string& name : m_failed)
            std::printf("FAILED: %s\n", name.c_str());
        std::printf("%zu passed, %zu failed\n", m_passed, m_failedCases);
        return m_failed.empty() && m_passed > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    }

private:
    struct Child
    {
        Group group;
        std::FILE* output;
    };

    /// Of several instances the output tells which it was.
    void fail(const Child& failed, int status)
    {
        std::rewind(failed.output);
        std::array<char, 4096> text{};
        for (std::size_t size = 0; (size = std::fread(text.data(), 1, text.size(), failed.output)) > 0;)
            std::fwrite(text.data(), 1, size, stdout);
        std::string name = failed.group.front();
        if (failed.group.size() > 1)
            name += ", or another of its " + std::to_string(failed.group.size()) + " instances";
        if (WIFSIGNALED(status))
            name += " (signal " + std::to_string(WTERMSIG(status)) + ")";
        m_failed.push_back(std::move(name));
        m_failedCases += failed.group.size();
    }

    std::map<pid_t, Child> m_running;
    std::vector<std::string> m_failed;
    std::size_t m_passed = 0;
    std::size_t m_failedCases = 0;
};

} // namespace

int runCasesApart()
{
    chooseCases();
    std::vector<Group> waiting = chosenCases();
    if (waiting.empty())
        return noneChosen;
    const std::size_t cores = std::max(1U, std::thread::hardware_concurrency());
    Run run;
    while (!waiting.empty() || run.running() > 0) {
        if (waiting.empty() || run.running() == cores) {
            run.finishOne();
        } else {
            const Group group = std::move(waiting.back());
            waiting.pop_back();
            run.start(group);
        }
    }
    return run.report();
}

} // namespace KelTest
