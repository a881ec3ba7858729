#pragma once

#include <cstdint>
#include <string>

namespace KelBench {

/// While one lives, files that SQLite opens are counted.
class CountingVfs
{
public:
    CountingVfs();
    ~CountingVfs();
    CountingVfs(const CountingVfs&) = delete;
    CountingVfs& operator=(const CountingVfs&) = delete;
};

/// What SQLite has written into the database of that name and its journals so far.
std::uint64_t bytesWritten(const std::string& name);

} // namespace KelBench
