#include "benchmarks/check.h"
#include "benchmarks/rows.h"
#include "benchmarks/world.h"
#include "kernel/kelapplicationplus.h"

#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>

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

struct Arguments
{
    std::size_t size = 5000;
    bool patterns = false;

    bool areValid() const { return size != 0 && size % (patterns ? 500 : 5000) == 0; }
};

/// Takes "--size=N" and "--patterns" out of the arguments.
Arguments ownArguments(int& argc, char** argv)
{
    Arguments own;
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--size=", 7) == 0)
            own.size = std::strtoul(argv[i] + 7, nullptr, 10);
        else if (std::strcmp(argv[i], "--patterns") == 0)
            own.patterns = true;
        else
            argv[kept++] = argv[i];
    }
    argc = kept;
    return own;
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
    const Arguments own = ownArguments(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (!own.areValid() || benchmark::ReportUnrecognizedArguments(argc, argv)) {
        std::fprintf(stderr,
                     "Usage: kel_benchmarks [--size=N] [--patterns] [--benchmark_...]\n"
                     "N is a multiple of 5000, of 500 with --patterns\n");
        return 2;
    }
    benchmark::AddCustomContext("items", std::to_string(own.size));
    benchmark::AddCustomContext("compiler", __VERSION__);
    benchmark::AddCustomContext("sqlite", sqlite3_libversion());

    const Folder folder;
    Ombrin::CkelApplicationPlus application(argc, argv);
    std::optional<World> world;
    if (own.patterns)
        registerPatterns(own.size);
    else
        registerAll(world.emplace(own.size));
    benchmark::RunSpecifiedBenchmarks();
    return failed ? EXIT_FAILURE : EXIT_SUCCESS;
}
