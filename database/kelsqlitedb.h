#pragma once

#include "database/kelsqlitevariantvector.h"
#include "kernel/kelglobal.h"
#include "kernel/kellist.h"
#include "kernel/kelstring.h"

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

struct sqlite3;

namespace Ombrin {

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
    static constexpr std::chrono::milliseconds defaultBusyTimeOut{5000};

    /// Closed at first.
    CkelSqliteDB() = default;
    ~CkelSqliteDB();

    CkelSqliteDB(const CkelSqliteDB&) = delete;
    CkelSqliteDB& operator=(const CkelSqliteDB&) = delete;

    /// Opens the file for reading and writing, or for reading where it cannot be written; makes it if it is missing.
    /// Closes what was open before. SQLite looks into the file at its first use only: true says nothing about what is
    /// in it.
    bool open(const CkelString& fileName);

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

    /// The same for the first `columns` columns of each row, until `visit` returns false; the result is false then too.
    bool forEachRow(const CkelString& text, int columns,
                    const std::function<bool(const CkelSqliteVariantVector&)>& visit);

    /// How long a statement waits for a file that another connection holds locked; defaultBusyTimeOut after open().
    void setBusyTimeOut(std::chrono::milliseconds timeOut);

    /// The SQLite result code of the newest query or executed text.
    int lastResult() const { return m_lastResult; }

    /// For those who run statements on handle() themselves.
    void setLastResult(int result) { m_lastResult = result; }

private:
    sqlite3* m_connection = nullptr;
    int m_lastResult = 0;
};

} // namespace Ombrin
