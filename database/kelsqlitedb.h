#pragma once

#include "database/kelsqlitevariantvector.h"
#include "kernel/kelglobal.h"
#include "kernel/kellist.h"
#include "kernel/kelstring.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace Ombrin {

class CkelForeignSteps;

/// One connection to an SQLite file; closed by its destructor.
///
/// A statement waits for a file that another connection holds locked; see setBusyTimeOut(). The connection may be used
/// from several threads, but a transaction belongs to whoever began it: keep threads apart while one is open.
///
/// The file need not be trusted. Triggers do not fire, views and virtual tables cannot be read, extensions cannot be
/// loaded, and a table's own expressions may use functions without side effects only. A text or a row of more than
/// 64 MiB is refused.
///
/// @snippet classes.cpp CkelSqliteDB
///
/// @ingroup database
class KEL_EXPORT CkelSqliteDB
{
public:
    /// How long statements wait for a locked file unless setBusyTimeOut() says otherwise.
    static constexpr std::chrono::milliseconds defaultBusyTimeOut{5000};

    /// Closed at first.
    CkelSqliteDB();
    ~CkelSqliteDB();

    CkelSqliteDB(const CkelSqliteDB&) = delete;
    CkelSqliteDB& operator=(const CkelSqliteDB&) = delete;

    /// Opens the file for reading and writing, or for reading where it cannot be written; makes it if it is missing.
    /// Refuses what is no regular file. Closes what was open before. SQLite looks into the file at its first use only:
    /// true says nothing about what is in it.
    bool open(const CkelString& fileName);

    /// Whether the connection is open for writing, and its file still the one of that name.
    bool isCurrent() const;

    /// Opens the file anew, unless the connection is current. Keeps the connection where that would not make it so.
    void refresh();

    /// Ends the connection, at the latest with the last of its statements; an open transaction is rolled back. Nothing
    /// happens when it is closed.
    void close();

    /// Whether the last open() succeeded and close() has not followed.
    bool isOpen() const { return m_connection != nullptr; }

    /// SQLite's handle; null when closed. The connection stays this object's.
    sqlite3* handle() const { return m_connection; }

    /// All rows that `text` returns; an empty list, and an error in lastResult(), when it fails.
    template <typename Row = CkelSqliteVariantVector>
    std::shared_ptr<CkelList<Row>> query(const CkelString& text)
    {
        auto rows = std::make_shared<CkelList<Row>>();
        if (!forEachRow(text, [&rows](const Row& row) { rows->append(row); }))
            rows->clear();
        return rows;
    }

    /// Calls `visit` with each row that `text` returns, one after the other. False when the statement fails; rows read
    /// before that have been visited.
    bool forEachRow(const CkelString& text, const std::function<void(const CkelSqliteVariantVector&)>& visit);

    /// Calls `visit` with the first `columns` columns of each row of a stored table, until it returns false; the result
    /// is false then too. A file whose rows are more than it can hold, or out of order although `isKeyed` says that the
    /// first column is the key, is damaged: reading stops and the result is false.
    bool forEachStoredRow(const CkelString& text, int columns, bool isKeyed,
                          const std::function<bool(const CkelSqliteVariantVector&)>& visit);

    /// How long a statement waits for a file that another connection holds locked; defaultBusyTimeOut at first. Signals
    /// do not shorten the wait.
    void setBusyTimeOut(std::chrono::milliseconds timeOut);

    /// The SQLite result code of the newest query or executed text.
    int lastResult() const { return m_lastResult; }

    /// For those who run statements on handle() themselves.
    void setLastResult(int result) { m_lastResult = result; }

    /// Lets the statements that follow on handle() take as many steps as the file's size justifies, in all.
    void restartSteps();

private:
    using Visit = std::function<bool(sqlite3_stmt* row)>;

    static int waitWhileBusy(void* database, int attempts);
    sqlite3* connect();
    bool step(const CkelString& text, const Visit& visit);

    sqlite3* m_connection = nullptr;
    std::string m_fileName;
    int m_lastResult = 0;
    std::unique_ptr<CkelForeignSteps> m_steps;
    std::chrono::milliseconds m_busyTimeOut = defaultBusyTimeOut;
    std::chrono::steady_clock::time_point m_waitEnd;
};

} // namespace Ombrin
