#pragma once

#include "tests/support/testfolder.h"

#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

namespace KelTest {

inline void writeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream file(path, std::ios::binary);
    file << bytes;
    file.close();
    ASSERT_TRUE(file.good()) << path;
}

inline std::string readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// A dictionary with these item objects, separated by commas.
inline void writeDictionary(const std::string& path, const std::string& items)
{
    writeFile(path, "{\"kel\":[" + items + "]}");
}

/// A connection of the test's own, that goes past the library.
class Database
{
public:
    explicit Database(const std::string& path)
    {
        EXPECT_EQ(sqlite3_open(path.c_str(), &m_connection), SQLITE_OK) << path;
        // The file has to outlive this connection, not the machine.
        sqlite3_exec(m_connection, "PRAGMA synchronous=OFF;", nullptr, nullptr, nullptr);
    }

    ~Database() { sqlite3_close(m_connection); }

    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    void run(const std::string& text)
    {
        ASSERT_EQ(sqlite3_exec(m_connection, text.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
            << text.substr(0, 300) << ": " << sqlite3_errmsg(m_connection);
    }

    /// Each row in one text: its columns as SQL writes them, separated by blanks. Fails the case on an error.
    std::vector<std::string> rows(const std::string& text)
    {
        std::vector<std::string> result;
        sqlite3_stmt* statement = nullptr;
        EXPECT_EQ(sqlite3_prepare_v2(m_connection, text.c_str(), -1, &statement, nullptr), SQLITE_OK)
            << text << ": " << sqlite3_errmsg(m_connection);
        int step = SQLITE_DONE;
        while (statement && (step = sqlite3_step(statement)) == SQLITE_ROW) {
            std::string row;
            for (int column = 0; column < sqlite3_column_count(statement); ++column)
                row += (column == 0 ? "" : " ") + columnText(statement, column);
            result.push_back(row);
        }
        EXPECT_EQ(step, SQLITE_DONE) << sqlite3_errmsg(m_connection);
        sqlite3_finalize(statement);
        return result;
    }

private:
    static std::string columnText(sqlite3_stmt* statement, int column)
    {
        const int type = sqlite3_column_type(statement, column);
        if (type == SQLITE_NULL)
            return "NULL";
        if (type == SQLITE_BLOB)
            return "BLOB";
        const std::string text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
        return type == SQLITE_TEXT ? "'" + text + "'" : text;
    }

    sqlite3* m_connection = nullptr;
};

// The file in which a storage keeps its items

inline constexpr const char* localFile = "kelmem.db";

inline constexpr const char* localTableText =
    "CREATE TABLE kel(ID INTEGER PRIMARY KEY NOT NULL, NameID TEXT, CommSource INTEGER, RW INTEGER, Block INTEGER, "
    "ValueT INTEGER, Value NUMERIC, DefValue NUMERIC, Max NUMERIC, Min NUMERIC, Unit INTEGER, CUnit INTEGER);";

/// A local table that holds `rows`, each in parentheses and in the order of its columns. The library itself writes 0 in
/// the last two: other numbers there tell that it has left a row alone.
inline void writeLocalTable(const std::string& rows)
{
    Database database(localFile);
    database.run(localTableText);
    if (!rows.empty())
        database.run("INSERT INTO kel VALUES " + rows + ";");
}

inline std::vector<std::string> localRows()
{
    return Database(localFile).rows("SELECT * FROM kel ORDER BY ID");
}

inline bool hasLocalTable()
{
    return !Database(localFile).rows("SELECT name FROM sqlite_master WHERE name='kel'").empty();
}

/// A configuration database. Its columns keep what is put into them, whatever it is.
inline void writeConfiguration(const std::string& path, const std::string& rows)
{
    Database database(path);
    database.run("CREATE TABLE kel(ID, NameID, CommSource, DBSource, RW, Block, ValueT, Value, DefValue, Max, Min);");
    if (!rows.empty())
        database.run("INSERT INTO kel VALUES " + rows + ";");
}

/// Keeps what the program prints while it lives.
class CapturedOutput
{
public:
    CapturedOutput()
    {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
    }

    ~CapturedOutput() { finish(); }

    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    /// Ends the capture.
    const std::string& standardOutput()
    {
        finish();
        return m_output;
    }

    const std::string& standardError()
    {
        finish();
        return m_error;
    }

private:
    void finish()
    {
        if (!m_running)
            return;
        m_running = false;
        m_output = testing::internal::GetCapturedStdout();
        m_error = testing::internal::GetCapturedStderr();
    }

    bool m_running = true;
    std::string m_output;
    std::string m_error;
};

/// The processes of the cases' death tests end without removing their folders. With this they make them in the case's
/// own, which goes with it.
class FoldersWithin
{
public:
    explicit FoldersWithin(const std::filesystem::path& folder)
    {
        if (const char* before = std::getenv(variable))
            m_before = before;
        setenv(variable, folder.c_str(), 1);
    }

    ~FoldersWithin()
    {
        if (m_before.empty())
            unsetenv(variable);
        else
            setenv(variable, m_before.c_str(), 1);
    }

    FoldersWithin(const FoldersWithin&) = delete;
    FoldersWithin& operator=(const FoldersWithin&) = delete;

private:
    static constexpr const char* variable = "TMPDIR";
    std::string m_before;
};

/// For a death test's process, of which only the standard error is looked at: everything is printed there.
inline void printToStandardError()
{
    std::cout.flush();
    std::fflush(stdout);
    dup2(STDERR_FILENO, STDOUT_FILENO);
}

/// `statement` prints nothing but what the matcher or pattern `output` wants, and ends the process as a failed check
/// does.
#define EXPECT_PROCESS_ENDS(statement, output) \
    EXPECT_EXIT(                               \
        {                                      \
            KelTest::printToStandardError();   \
            statement;                         \
        },                                     \
        testing::KilledBySignal(SIGABRT), output)

/// How the line of a failed check ends what a process prints. An emulator adds a line of its own.
inline constexpr const char* failedCheckEnd = "' failed\\.\n(qemu: uncaught target signal [^\n]*\n)?$";

/// The line that a failed check prints, and no other; `file` and `expression` are patterns.
inline std::string failedCheck(const std::string& file, const std::string& expression)
{
    return "^[^\n]*" + file + ":[0-9]+: [^\n]*Assertion `" + expression + failedCheckEnd;
}

} // namespace KelTest
