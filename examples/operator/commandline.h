#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Demo {

/// What the user asked for. Both paths are absolute.
struct Options
{
    std::filesystem::path dictionary;
    std::filesystem::path folder; ///< where the program keeps its files
    int seconds = 10;             ///< how long the simulated production runs
    bool plain = false;           ///< lines only, even on a terminal
    bool showRestored = false;    ///< internal: this is the process after the restart
};

/// Fills `options`. When there is nothing left to do (help, or a mistake, which has been reported), the exit status.
std::optional<int> parseCommandLine(int argc, const char* const* argv, Options& options);

/// The command line of the process after the restart, without the program's name.
std::vector<std::string> restartArguments(const Options& options);

} // namespace Demo
