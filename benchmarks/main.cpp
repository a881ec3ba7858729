#include "benchmarks/check.h"
#include "benchmarks/rows.h"
#include "benchmarks/world.h"
#include "kernel/kelapplicationplus.h"

#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace KelBench {

namespace {

bool failed = false;

/// A new folder that is the working directory until the end.
class Folder
{
public:
    Folder()
    {
        std::string path = (std::filesystem::temp_directory_path() / "kel_benchmarks.XXXXXX").string();
        require(mkdtemp(path.data()) != nullptr, "a temporary folder is made");
        m_path = path;
        std::filesystem::current_path(m_path);
    }
    ~Folder()
    {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(m_path);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

private:
    std::filesystem::path m_path;
};

/// Takes "--size=N" out of the arguments; 5,000 without it.
std::size_t sizeArgument(int& argc, char** argv)
{
    std::size_t size = 5000;
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--size=", 7) == 0)
            size = std::strtoul(argv[i] + 7, nullptr, 10);
        else
            argv[kept++] = argv[i];
    }
    argc = kept;
    return size;
}

void registerAll(World& world)
{
    registerLookups(world);
    registerUpdates(world);
    registerLists(world);
    registerSelections(world);
    registerTicks(world);
    registerLoading(world);
    registerMemory(world);
    if (world.size() <= 100000) { // these rows are reported for smaller sizes only
        registerSaving(world);
        registerStartup(world);
    }
#ifdef KEL_WITH_QT
    registerQt(world);
#endif
#ifdef KEL_WITH_LMDB
    registerLmdb(world);
#endif
}

} // namespace

void check(benchmark::State& state, bool right, const char* what)
{
    if (right)
        return;
    failed = true;
    state.SkipWithError(what);
}

void require(bool right, const char* what)
{
    if (right)
        return;
    std::fprintf(stderr, "kel_benchmarks: failed: %s\n", what);
    std::exit(EXIT_FAILURE);
}

} // namespace KelBench

int main(int argc, char** argv)
{
    using namespace KelBench;
    const std::size_t size = sizeArgument(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (size == 0 || size % 5000 != 0 || benchmark::ReportUnrecognizedArguments(argc, argv)) {
        std::fprintf(stderr, "Usage: kel_benchmarks [--size=N] [--benchmark_...]; N is a multiple of 5000\n");
        return 2;
    }
    benchmark::AddCustomContext("items", std::to_string(size));
    benchmark::AddCustomContext("compiler", __VERSION__);
    benchmark::AddCustomContext("sqlite", sqlite3_libversion());

    const Folder folder;
    Ombrin::CkelApplicationPlus application(argc, argv);
    World world(size);
    registerAll(world);
    benchmark::RunSpecifiedBenchmarks();
    return failed ? EXIT_FAILURE : EXIT_SUCCESS;
}
