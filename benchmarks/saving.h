#pragma once

#include "benchmarks/dictionary.h"
#include "benchmarks/sqlitepeer.h"

#include <filesystem>

namespace KelBench {

/// A folder inside the working directory that takes its place for a while; what is in it stays for the next time.
class AnotherFolder
{
public:
    AnotherFolder();
    ~AnotherFolder();
    AnotherFolder(const AnotherFolder&) = delete;
    AnotherFolder& operator=(const AnotherFolder&) = delete;

private:
    const std::filesystem::path m_before;
};

// What the library does to its table, with the same texts, by SQLite alone.
void bareRebuild(const Connection& database, const std::vector<tagStorageData>& records);
void bareInsert(const Connection& database, const std::vector<tagStorageData>& records);
void bareUpdate(const Connection& database, const std::vector<tagStorageData>& records);

} // namespace KelBench
