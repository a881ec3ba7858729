#pragma once

#include <stdexcept>
#include <string>

namespace Keldict {

/// How the program ends.
enum Status : int
{
    Clean = 0,
    Warned = 1,     ///< warnings; something that could not be kept; a difference
    Wrong = 2,      ///< the device would stop, or lose an item
    Unreadable = 3, ///< a file that could not be read or written
    Misused = 64    ///< a command line that makes no sense
};

/// Ends the work with a message and a status.
struct Failure : std::runtime_error
{
    Failure(Status endsWith, const std::string& message) : std::runtime_error(message), status(endsWith) {}

    Status status;
};

} // namespace Keldict
