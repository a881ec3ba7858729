#include "savedfile.h"

#include "loading.h"

#include <system_error>

namespace Demo {

namespace {

constexpr const char* journal = "kelmem.db-journal";

std::filesystem::file_time_type modified()
{
    std::error_code error;
    return std::filesystem::last_write_time(savedValuesFile, error);
}

} // namespace

SavedFile::SavedFile() : m_modified(modified()) {}

bool SavedFile::look()
{
    // SQLite removes its journal as the last deed of a transaction; one that ends earlier is undone.
    const auto now = modified();
    if (now == m_modified || std::filesystem::exists(journal))
        return false;
    m_modified = now;
    m_lastWrite = Clock::now();
    return true;
}

} // namespace Demo
