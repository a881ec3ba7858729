#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <memory>
#include <string>
#include <vector>

namespace KelTest {

/// A connection of the test's own, beside those of the library.
class SqlFile
{
public:
    explicit SqlFile(const std::string& name = "kelmem.db")
    {
        EXPECT_EQ(sqlite3_open(name.c_str(), &m_connection), SQLITE_OK);
        sqlite3_busy_timeout(m_connection, 10000);
    }
    ~SqlFile() { sqlite3_close(m_connection); }
    SqlFile(const SqlFile&) = delete;
    SqlFile& operator=(const SqlFile&) = delete;

    sqlite3* handle() const { return m_connection; }

    bool run(const std::string& text)
    {
        return sqlite3_exec(m_connection, text.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
    }

    /// The rows of a query, columns joined by '|'.
    std::vector<std::string> rows(const std::string& text)
    {
        std::vector<std::string> result;
        sqlite3_exec(
            m_connection, text.c_str(),
            [](void* list, int count, char** values, char** /*names*/) {
                std::string row;
                for (int i = 0; i < count; ++i)
                    row += (i > 0 ? "|" : "") + std::string(values[i] ? values[i] : "NULL");
                static_cast<std::vector<std::string>*>(list)->push_back(row);
                return 0;
            },
            &result, nullptr);
        return result;
    }

    /// The first row of a query; empty when there is none.
    std::string row(const std::string& text)
    {
        const auto all = rows(text);
        return all.empty() ? std::string() : all.front();
    }

private:
    sqlite3* m_connection = nullptr;
};

} // namespace KelTest
