#include "benchmarks/check.h"
#include "benchmarks/measure.h"
#include "benchmarks/rows.h"
#include "benchmarks/saving.h"
#include "benchmarks/world.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>

namespace KelBench {

namespace {

/// Starts the program with its output in a pipe, and waits for its first line.
class Child
{
public:
    Child(std::string path, std::string id)
    {
        std::array<int, 2> ends{};
        require(pipe(ends.data()) == 0, "a pipe is made");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        std::string program = KEL_FIRST_VALUE;
        char* const arguments[] = {program.data(), path.data(), id.data(), nullptr};
        require(posix_spawn(&m_pid, program.c_str(), &actions, nullptr, arguments, environ) == 0, "a program starts");
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
        m_output = ends[0];
    }
    ~Child()
    {
        close(m_output);
        waitpid(m_pid, nullptr, 0);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    std::string firstLine() const
    {
        std::string line;
        for (char c = 0; read(m_output, &c, 1) == 1 && c != '\n';)
            line += c;
        return line;
    }

private:
    pid_t m_pid = 0;
    int m_output = -1;
};

void firstValue(benchmark::State& state, World& world, const std::string& dictionary, bool again)
{
    const AnotherFolder folder;
    const unsigned int id = world.numberID(); // a text would come back from kelmem.db as a number
    for (auto _ : state) {
        if (!again)
            std::filesystem::remove("kelmem.db");
        std::string line;
        const double begin = WallClock::now();
        const Child child(dictionary, std::to_string(id));
        line = child.firstLine();
        state.SetIterationTime(WallClock::now() - begin);
        check(state, line == world.storage->queryValue(id).toStdString(), "the first value is wrong");
    }
}

} // namespace

void registerStartup(World& world)
{
    const std::string dictionary = std::filesystem::absolute(world.jsonPath);
    addRow("start_first/library", world, [=](benchmark::State& state, World& shared) {
        firstValue(state, shared, dictionary, false);
    })->UseManualTime();
    addRow("start_again/library", world, [=](benchmark::State& state, World& shared) {
        firstValue(state, shared, dictionary, true);
    })->UseManualTime();
}

} // namespace KelBench
