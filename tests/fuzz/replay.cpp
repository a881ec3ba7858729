#include "tests/fuzz/harness.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

// Feeds the files of the given folders to the target, each a regression case: it passes when the target returns, or
// when the process ends by one of the product's own checks.

namespace {

using Path = std::filesystem::path;

std::vector<Path> filesIn(int count, char** folders)
{
    std::vector<Path> files;
    for (int i = 0; i < count; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(folders[i]))
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::string contentOf(const Path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// Runs the files from `next` on and counts them there; with its standard error in `log`.
[[noreturn]] void runChild(const std::vector<Path>& files, std::size_t& next, const char* log)
{
    const int descriptor = open(log, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (descriptor < 0 || dup2(descriptor, STDERR_FILENO) < 0)
        std::exit(2);
    for (; next < files.size(); ++next) {
        const std::string bytes = contentOf(files[next]);
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    std::exit(0);
}

/// Whether the process ended by a check that is meant to end it.
bool endedByACheck(int status, const char* log)
{
    if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGABRT)
        return false;
    const std::string text = contentOf(log);
    const auto tells = [&text](const std::string& check) {
        return text.find("Assertion `" + check + "'") != std::string::npos;
    };
    return std::any_of(KelFuzz::endingChecks.begin(), KelFuzz::endingChecks.end(), tells);
}

} // namespace

int main(int argc, char** argv)
{
    constexpr const char* log = "stderr.txt";
    const std::vector<Path> files = filesIn(argc - 1, argv + 1);
    void* const shared = mmap(nullptr, sizeof(std::size_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED)
        return 2;
    auto& next = *new (shared) std::size_t(0);
    std::size_t ends = 0;
    while (next < files.size()) {
        const pid_t child = fork();
        if (child == 0)
            runChild(files, next, log);
        int status = 0;
        if (child < 0 || waitpid(child, &status, 0) != child)
            return 2;
        if (status == 0)
            break;
        if (!endedByACheck(status, log)) {
            std::cerr << contentOf(log) << "Failed at " << (next < files.size() ? files[next] : "the end") << '\n';
            return 1;
        }
        ++ends;
        ++next;
    }
    std::cout << files.size() << " cases passed, " << ends << " of them by a check that ends the process\n";
    return files.empty() ? 1 : 0;
}
