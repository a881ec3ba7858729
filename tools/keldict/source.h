#pragma once

#include <string>

namespace Keldict {

/// A file that the user named, as far as it has been looked into.
struct Source
{
    enum class Kind
    {
        Json,
        Database
    };

    std::string name; ///< as given; "-" is standard input
    Kind kind;
    std::string bytes; ///< of a text, and of what came from standard input

    bool isStandardInput() const { return name == "-"; }
};

/// Looks into the file; reads it if it is no database. A database is known by its first bytes; a file without them is
/// one only by a name ending in ".db". Ends with `Unreadable` when it cannot be read.
Source openSource(const std::string& name);

/// Ends with `Unreadable` unless the name is that of a regular file, or of nothing: a FIFO would block its reader, a
/// device need not end.
void requireRegularFile(const std::string& name);

inline bool endsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

} // namespace Keldict
