#include "commandline.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdlib>
#include <iostream>

namespace Demo {

namespace {

namespace fs = std::filesystem;

constexpr int wrongUse = 2;
constexpr int longestRun = 3600;

fs::path fromEnvironment(const char* name)
{
    const char* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): no other thread runs yet
    return value ? value : "";
}

fs::path stateFolder()
{
    const fs::path state = fromEnvironment("XDG_STATE_HOME");
    if (state.is_absolute())
        return state / "kel-demo";
    const fs::path home = fromEnvironment("HOME");
    return home.is_absolute() ? home / ".local" / "state" / "kel-demo" : fs::absolute("kel-demo");
}

/// A folder for each dictionary, so that saved values never meet a dictionary that they do not belong to.
fs::path folderFor(const fs::path& dictionary)
{
    constexpr std::size_t longestName = 120;
    std::string name = dictionary.relative_path().string();
    std::replace(name.begin(), name.end(), '/', '-');
    return stateFolder() / name.substr(name.size() - std::min(name.size(), longestName));
}

void complete(Options& options)
{
    const bool shipped = options.dictionary.empty();
    if (shipped)
        options.dictionary = fs::read_symlink("/proc/self/exe").parent_path() / "dictionary.json";
    options.dictionary = fs::absolute(options.dictionary).lexically_normal();
    if (options.folder.empty())
        options.folder = shipped ? stateFolder() / "moulding-machine" : folderFor(options.dictionary);
    options.folder = fs::absolute(options.folder).lexically_normal();
}

} // namespace

std::optional<int> parseCommandLine(int argc, const char* const* argv, Options& options)
{
    CLI::App app(
        "Simulates some seconds of production on an injection moulding machine, whose items live\n"
        "in a data dictionary, and shows what a restart brings back.\n",
        "kel_operator");
    app.set_help_flag("-h,--help", "Show this text");
    app.add_option("--dictionary", options.dictionary,
                   "A data dictionary, JSON (.json) or a configuration\n"
                   "database (.db); default: that of the machine")
        ->type_name("FILE");
    app.add_option("--folder", options.folder,
                   "Where saved values are kept from run to run; default:\na folder for each dictionary in\n" +
                       stateFolder().string())
        ->type_name("DIR");
    app.add_option("--seconds", options.seconds,
                   "How long production runs, 1 to 3600; default: " + std::to_string(options.seconds))
        ->type_name("N")
        ->check(CLI::Range(1, longestRun).description(""));
    app.add_flag("--plain", options.plain, "Print plain lines, also on a terminal");
    app.add_flag("--show-restored", options.showRestored)->group("");
    app.footer("Exit status: 0 success, 1 a saved value did not come back, 2 wrong use, 130 interrupted.");

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
        return EXIT_SUCCESS;
    } catch (const CLI::ParseError& error) {
        std::cerr << "kel_operator: " << error.what() << "; see --help\n";
        return wrongUse;
    }
    complete(options);
    return std::nullopt;
}

std::vector<std::string> restartArguments(const Options& options)
{
    return {"--show-restored", "--dictionary", options.dictionary.string(), "--folder", options.folder.string()};
}

} // namespace Demo
