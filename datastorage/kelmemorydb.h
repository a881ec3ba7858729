#pragma once

#include "database/kelsqlitedb.h"
#include "database/kelsqlitedboperator.h"
#include "datastorage/kelstoragedata.h"
#include "kernel/kelglobal.h"
#include "kernel/kelmutex.h"
#include "kernel/kelobject.h"
#include "kernel/kelvariant.h"

#include <atomic>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace Ombrin {

class CkelMeoryDBWorkThread;
class CkelTimer;

/// Changes that wait to be written.
/// @ingroup datastorage_parts
struct tagDBBlock
{
    /// What is to be done with the records.
    enum Kind : int
    {
        Insert = 0, ///< insert or replace the records
        Update = 1, ///< write everything but the name into the rows of the records' IDs
        Delete = 2  ///< the records carry their ID only
    };

    int kind;                            ///< a Kind; a block of any other is discarded
    std::vector<tagStorageData> records; ///< written in this order, in one transaction
};

/// The saved mirror of a memory storage: the table "kel" in the SQLite file "kelmem.db" of the working directory.
///
/// **The connection** is opened anew before a block is written, and before loading, where it is read-only or was never
/// opened, and where the file has been deleted or replaced. A table that is missing then is made by
/// createMemoryDBTable() and rebuildMemoryDBTable() only.
///
/// Of each item it keeps everything but DBSource, Dirty and Reserved. The four value columns hold numbers only: a text
/// is written as the number that it reads as, 0 for most. IDs above 2147483647 stand in the file as negative numbers of
/// the same 32 bits.
///
/// Every operation but the loading one reports success by its result and prints nothing.
///
/// **Writing behind.** Blocks of changes wait in a queue; a worker thread takes one a second and writes it in one
/// transaction. Destruction lets a block that is being written finish and drops those that wait.
///
/// **Threads.** Every operation is safe from any thread, but one thread at a time may load and use the list. One
/// operation works on the file at a time; it waits up to five seconds for a file that another program holds locked.
/// hasMemoryDBTable() and the queue never wait for the file.
/// @ingroup datastorage_parts
class KEL_EXPORT CkelMemoryDB : public CkelObject
{
public:
    /// Opens "kelmem.db", and makes it if it is missing. Where that fails, operations fail until it can be opened.
    /// Looks for the table as lookForTable() does. Starts the worker thread.
    explicit CkelMemoryDB(CkelObject* parent = nullptr);
    ~CkelMemoryDB() override;

    /// Whether the file holds the table. Never waits: while another thread works on the file, or another program holds
    /// it locked, the answer is what was last seen.
    bool hasMemoryDBTable() const KEL_NO_LOCK_ANALYSIS; // the lock is tried

    /// Looks for the table, and waits for a locked file. False when the file could not be read: hasMemoryDBTable() may
    /// then be out of date.
    bool lookForTable();

    /// True also when something of the table's name is there already, whatever its columns.
    bool createMemoryDBTable();

    /// False also when there is no table.
    bool dropMemoryDBTable();

    /// Drops the table, creates it and fills it with `records`, or leaves it as it was.
    bool rebuildMemoryDBTable(const std::vector<tagStorageData>& records);

    /// Writes the record's row, and replaces one of the same ID.
    bool insertData(const tagStorageData& record);

    /// The same for several, in one transaction. A record that SQLite refuses is left out, and the result still true;
    /// false means that nothing was written, or that the file could not be unlocked after the commit.
    bool insertDatas(const std::vector<tagStorageData>& records);

    /// Sets the value of one row and nothing else. True also when there is no such row. A null variant becomes 0, NaN
    /// becomes NULL.
    bool updateValue(unsigned int id, const CkelVariant& value);

    /// Sets the values of several rows in one transaction, bit by bit. Null values are skipped; of lists of different
    /// lengths, the elements that pair up count.
    bool updateValues(const std::vector<unsigned int>& ids, const std::vector<CkelVariant>& values);

    /// Sets everything but the name in the rows of the records' IDs, in one transaction; records without a row are
    /// skipped. False as for insertDatas().
    bool updateDatas(const std::vector<tagStorageData>& records);

    /// True also when there is no such row.
    bool deleteData(unsigned int id);

    /// The statement for several rows is one that SQLite refuses: the rows stay in the file.
    void deleteDatas(const std::vector<unsigned int>& ids);

    /// The same for the IDs of `records`.
    void deleteDatas(const std::vector<tagStorageData>& records);

    /// Whether the table keeps a value of type `from` as one of type `to`. Goes by the types alone, unlike
    /// CkelVariant::canConvert.
    bool canConvert(CkelVariant::Type from, CkelVariant::Type to) const;

    /// All rows. The list is this object's, until the next load; a caller may move from it. A row of an unknown value
    /// type is reported on standard output and left out.
    std::vector<tagStorageData>& loadMemoryDB();

    /// Whether the last loadMemoryDB could read the table to its end.
    bool isLoadComplete() const { return m_loadComplete; }

    /// Queues a copy of the block behind the others. A hundred may wait; one more is dropped.
    void push(const tagDBBlock& block);
    /// The same without a copy.
    void push(tagDBBlock&& block);

    /// Takes the block at the front of the queue. An empty queue yields a block without records, of no Kind.
    tagDBBlock pop();
    /// True when no block waits. A block that is being written has left the queue.
    bool isEmpty() const;

    /// Writes the block at the front of the queue, if there is one. The worker thread calls it every second.
    void sync();

private:
    CkelSqliteDBOperator tableOperator() const;
    enum class TableState
    {
        Unknown,
        Missing,
        Present
    };

    TableState queryTable() const KEL_REQUIRES(m_fileMutex);
    bool look() const KEL_REQUIRES(m_fileMutex);
    bool isTableSound() KEL_REQUIRES(m_fileMutex);
    void refreshConnection() KEL_REQUIRES(m_fileMutex);
    template <typename Write>
    bool inTransaction(Write write) KEL_REQUIRES(m_fileMutex);
    bool createTable() KEL_REQUIRES(m_fileMutex);
    bool dropTable() KEL_REQUIRES(m_fileMutex);
    bool replaceTable(const std::vector<tagStorageData>& records) KEL_REQUIRES(m_fileMutex);
    bool insertRows(const std::vector<tagStorageData>& records) KEL_REQUIRES(m_fileMutex);
    bool replaceRows(const std::vector<tagStorageData>& records) KEL_REQUIRES(m_fileMutex);
    bool setValues(const std::vector<unsigned int>& ids, const std::vector<CkelVariant>& values)
        KEL_REQUIRES(m_fileMutex);
    bool setFields(const std::vector<tagStorageData>& records) KEL_REQUIRES(m_fileMutex);
    bool updateRows(const std::vector<tagStorageData>& records) KEL_REQUIRES(m_fileMutex);
    void deleteRows(const std::vector<unsigned int>& ids) KEL_REQUIRES(m_fileMutex);

    // Held by whoever works on the file, from the first statement of an operation to its last.
    mutable CkelMutex m_fileMutex;
    mutable CkelSqliteDB m_database;
    mutable std::atomic<TableState> m_table{TableState::Unknown}; // as last seen
    bool m_isTableSound KEL_GUARDED_BY(m_fileMutex) = false;      // made by this object, or read to its end
    std::unique_ptr<CkelMeoryDBWorkThread> m_thread;
    std::unique_ptr<CkelTimer> m_timer;

    void startWorker() KEL_REQUIRES(m_queueMutex);

    mutable CkelMutex m_queueMutex;
    std::deque<tagDBBlock> m_queue KEL_GUARDED_BY(m_queueMutex);

    std::vector<tagStorageData> m_loadedList;
    std::atomic<bool> m_loadComplete{false};
};

} // namespace Ombrin
