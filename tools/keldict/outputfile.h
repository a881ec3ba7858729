#pragma once

#include <filesystem>
#include <string>

namespace Keldict {

/// A file that appears whole or not at all: it is written beside its place, under a name of its own, and moved there.
class OutputFile
{
public:
    /// Makes the file to write into. Ends with `Unreadable` when there is a file already, unless `replace` is given, or
    /// when it cannot be made.
    OutputFile(const std::filesystem::path& path, bool replace);

    /// Removes what was not published.
    ~OutputFile();

    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Where to write.
    const std::string& temporaryName() const { return m_temporary; }

    /// Moves the file to its place, for good.
    void publish();

private:
    void refuseIfInUse() const;
    void copyMode() const;
    [[noreturn]] void fail(const std::string& what) const;

    const std::filesystem::path m_path;
    const bool m_replace;
    std::string m_temporary;
};

} // namespace Keldict
