#include "datastorage/kelmemorydb.h"

#include "database/kelsqlitestatement.h"
#include "datastorage/kelmeorydbworkthread.h"
#include "datastorage/kelrowvalues.h"
#include "kernel/kelreport.h"
#include "kernel/kelstring.h"
#include "kernel/keltimer.h"

#include <sqlite3.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <mutex>
#include <utility>

namespace Ombrin {

namespace {

constexpr const char* fileName = "kelmem.db";
constexpr const char* tableName = "kel";
constexpr int writeInterval = 1000; // milliseconds
constexpr std::size_t queueCapacity = 100;
constexpr int noKind = -1;
constexpr int columnsRead = 10; // Unit and CUnit are written only

const std::vector<CkelSqliteDBOperator::Column>& tableColumns()
{
    using Operator = CkelSqliteDBOperator;
    // Never destroyed: the worker thread may write until the process is gone.
    static const auto& columns = *new std::vector<Operator::Column>{
        {"ID", Operator::Integer, Operator::PrimaryKey | Operator::NotNull},
        {"NameID", Operator::Text, Operator::NoConstraint},
        {"CommSource", Operator::Integer, Operator::NoConstraint},
        {"RW", Operator::Integer, Operator::NoConstraint},
        {"Block", Operator::Integer, Operator::NoConstraint},
        {"ValueT", Operator::Integer, Operator::NoConstraint},
        {"Value", Operator::Numeric, Operator::NoConstraint},
        {"DefValue", Operator::Numeric, Operator::NoConstraint},
        {"Max", Operator::Numeric, Operator::NoConstraint},
        {"Min", Operator::Numeric, Operator::NoConstraint},
        {"Unit", Operator::Integer, Operator::NoConstraint},
        {"CUnit", Operator::Integer, Operator::NoConstraint},
    };
    return columns;
}

std::vector<std::string> columnNames(std::size_t first)
{
    std::vector<std::string> names;
    for (std::size_t i = first; i < tableColumns().size(); ++i)
        names.push_back(tableColumns()[i].name);
    return names;
}

/// An ID as it stands in the file: the same 32 bits, signed.
int rowID(unsigned int id)
{
    return static_cast<int>(id);
}

/// The form in which a value stands in the file; for a record, the type of its value decides for all four.
enum class StorageClass
{
    Signed,
    Unsigned,
    Real,
    Text,
    None
};

StorageClass storageClassOf(const CkelMemoryDB& database, CkelVariant::Type type)
{
    if (database.canConvert(type, CkelVariant::LongLong))
        return StorageClass::Signed;
    if (database.canConvert(type, CkelVariant::ULongLong))
        return StorageClass::Unsigned;
    if (database.canConvert(type, CkelVariant::Double)) // true for every type: texts become numbers
        return StorageClass::Real;
    if (database.canConvert(type, CkelVariant::String))
        return StorageClass::Text;
    return StorageClass::None;
}

bool bindValue(CkelSqliteStatement& statement, int position, const CkelVariant& value, StorageClass form)
{
    switch (form) {
    case StorageClass::Signed:
        return statement.bind(position, value.toLongLong());
    case StorageClass::Unsigned:
        return statement.bind(position, static_cast<long long>(value.toULongLong()));
    case StorageClass::Real:
        return statement.bind(position, value.toDouble());
    case StorageClass::Text:
        return statement.bind(position, value.toStdString());
    default:
        return false;
    }
}

/// CommSource, RW, Block, ValueT, the four values, Unit and CUnit, from `position` on.
bool bindFields(CkelSqliteStatement& statement, int position, const tagStorageData& record, StorageClass form)
{
    return statement.bind(position, int{record.CommSource}) && statement.bind(position + 1, int{record.RW}) &&
           statement.bind(position + 2, int{record.Block}) && statement.bind(position + 3, int{record.ValueT}) &&
           bindValue(statement, position + 4, record.Value, form) &&
           bindValue(statement, position + 5, record.DefValue, form) &&
           bindValue(statement, position + 6, record.Max, form) &&
           bindValue(statement, position + 7, record.Min, form) && statement.bind(position + 8, 0) &&
           statement.bind(position + 9, 0);
}

bool bindRow(CkelSqliteStatement& statement, const tagStorageData& record, StorageClass form)
{
    return statement.bind(1, rowID(record.ID)) && statement.bind(2, record.NameID) &&
           bindFields(statement, 3, record, form);
}

int basicCodeOf(int result)
{
    constexpr int basicCode = 0xFF; // extended codes say more above these bits
    return result & basicCode;
}

/// While it lives, no statement waits for a locked file.
class NoWaiting
{
public:
    explicit NoWaiting(CkelSqliteDB& database) : m_database(database)
    {
        database.setBusyTimeOut(std::chrono::milliseconds(0));
    }
    ~NoWaiting() { m_database.setBusyTimeOut(CkelSqliteDB::defaultBusyTimeOut); }
    NoWaiting(const NoWaiting&) = delete;
    NoWaiting& operator=(const NoWaiting&) = delete;

private:
    CkelSqliteDB& m_database;
};

std::vector<unsigned int> idsOf(const std::vector<tagStorageData>& records)
{
    std::vector<unsigned int> ids;
    ids.reserve(records.size());
    for (const tagStorageData& record : records)
        ids.push_back(record.ID);
    return ids;
}

/// A record that SQLite refuses is left out and the batch goes on. Not after an error of the file: SQLite may have
/// rolled the transaction back.
bool canGoOn(sqlite3* connection)
{
    if (sqlite3_get_autocommit(connection) != 0)
        return false;
    switch (basicCodeOf(sqlite3_errcode(connection))) {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
    case SQLITE_ERROR:
    case SQLITE_CONSTRAINT:
    case SQLITE_MISMATCH:
    case SQLITE_TOOBIG:
    case SQLITE_RANGE:
        return true;
    default:
        return false;
    }
}

/// A finite number as whole numbers and powers of two, which SQLite computes without rounding on every target; it reads
/// decimals of many digits less exactly. The result is a real also in a column without a type.
std::string exactLiteralOf(double real)
{
    if (real == 0)
        return std::signbit(real) ? "-0.0" : "0.0";
    constexpr int digits = std::numeric_limits<double>::digits;
    constexpr int widestStep = digits - 1;
    int exponent = 0;
    auto mantissa = static_cast<long long>(std::ldexp(std::frexp(real, &exponent), digits));
    exponent -= digits;
    for (; exponent < 0 && mantissa % 2 == 0; ++exponent)
        mantissa /= 2;
    std::string text = CkelString::number(mantissa).toStdString();
    int left = std::abs(exponent);
    do {
        const long long power = 1LL << std::min(left, widestStep);
        text += (exponent > 0 ? " * " : " / ") + CkelString::number(power).toStdString() + ".0";
        left -= widestStep;
    } while (left > 0);
    return text;
}

/// A number as SQL writes it.
std::string literalOf(const CkelVariant& value, StorageClass form)
{
    switch (form) {
    case StorageClass::Signed:
        return CkelString::number(value.toLongLong()).toStdString();
    case StorageClass::Unsigned:
        return CkelString::number(static_cast<long long>(value.toULongLong())).toStdString();
    default:
        break;
    }
    const double real = value.toDouble();
    if (std::isnan(real))
        return "NULL";
    if (std::isinf(real))
        return real > 0 ? "9e999" : "-9e999";
    return exactLiteralOf(real);
}

} // namespace

CkelMemoryDB::CkelMemoryDB(CkelObject* parent) : CkelObject(parent)
{
    storeherits("CkelMemoryDB");
    m_database.open(fileName);
    lookForTable();
    m_thread = std::make_unique<CkelMeoryDBWorkThread>();
    m_timer = std::make_unique<CkelTimer>();
    m_timer->connectTimeOut("CkelMemoryDB::sync()", [this] { sync(); });
    m_timer->start(writeInterval);
    m_timer->moveToThread(m_thread.get());
    startWorker();
}

CkelMemoryDB::~CkelMemoryDB()
{
    m_timer->stop();
    m_thread->terminate();
    m_database.close();
    m_timer.reset();
    m_thread.reset();
}

// The queue

void CkelMemoryDB::push(const tagDBBlock& block)
{
    const CkelMutexLocker lock(m_queueMutex);
    startWorker();
    if (m_queue.size() < queueCapacity)
        m_queue.push_back(block);
}

void CkelMemoryDB::push(tagDBBlock&& block)
{
    const CkelMutexLocker lock(m_queueMutex);
    startWorker();
    if (m_queue.size() < queueCapacity)
        m_queue.push_back(std::move(block));
}

/// Again where the system had no thread to give at first.
void CkelMemoryDB::startWorker()
{
    if (!m_thread->isRunning())
        m_thread->start(CkelThread::InheritPriority);
}

tagDBBlock CkelMemoryDB::pop()
{
    const CkelMutexLocker lock(m_queueMutex);
    if (m_queue.empty())
        return {noKind, {}};
    tagDBBlock block = std::move(m_queue.front());
    m_queue.pop_front();
    return block;
}

bool CkelMemoryDB::isEmpty() const
{
    const CkelMutexLocker lock(m_queueMutex);
    return m_queue.empty();
}

void CkelMemoryDB::sync()
{
    const CkelMutexLocker lock(m_fileMutex);
    const tagDBBlock block = pop(); // of no kind when the queue is empty
    switch (block.kind) {
    case tagDBBlock::Insert:
        insertRows(block.records);
        break;
    case tagDBBlock::Update:
        updateRows(block.records);
        break;
    case tagDBBlock::Delete:
        deleteRows(idsOf(block.records));
        break;
    default:
        break;
    }
}

// The table

CkelSqliteDBOperator CkelMemoryDB::tableOperator() const
{
    CkelSqliteDBOperator table(&m_database);
    table.selectTable(tableName);
    return table;
}

bool CkelMemoryDB::hasMemoryDBTable() const
{
    // A storage asks every second on the application's thread.
    if (m_fileMutex.tryLock()) {
        const std::unique_lock<CkelMutex> lock(m_fileMutex, std::adopt_lock);
        const NoWaiting noWaiting(m_database);
        if (!m_database.isOpen())
            m_database.refresh();
        look();
    }
    return m_table == TableState::Present;
}

bool CkelMemoryDB::lookForTable()
{
    const CkelMutexLocker lock(m_fileMutex);
    refreshConnection();
    return look();
}

/// False when the file gives no answer, which leaves what was known.
bool CkelMemoryDB::look() const
{
    const TableState seen = queryTable();
    if (seen != TableState::Unknown)
        m_table = seen;
    return seen != TableState::Unknown;
}

CkelMemoryDB::TableState CkelMemoryDB::queryTable() const
{
    const std::vector<std::string> tables = tableOperator().tables();
    if (m_database.lastResult() != SQLITE_DONE)
        return TableState::Unknown;
    const bool found = std::find(tables.begin(), tables.end(), tableName) != tables.end();
    return found ? TableState::Present : TableState::Missing;
}

bool CkelMemoryDB::createMemoryDBTable()
{
    const CkelMutexLocker lock(m_fileMutex);
    refreshConnection();
    return createTable();
}

bool CkelMemoryDB::createTable()
{
    const CkelSqliteDBOperator table = tableOperator();
    const TableState before = m_table;
    const bool done = table.execute_helper(table.createText(tableColumns()));
    if (done)
        m_table = queryTable(); // IF NOT EXISTS also succeeds for a view
    m_isTableSound = m_isTableSound || (done && before == TableState::Missing);
    return done;
}

bool CkelMemoryDB::dropMemoryDBTable()
{
    const CkelMutexLocker lock(m_fileMutex);
    return dropTable();
}

bool CkelMemoryDB::dropTable()
{
    const CkelSqliteDBOperator table = tableOperator();
    if (!table.execute_helper(table.dropText()))
        return false;
    m_table = TableState::Missing;
    m_isTableSound = false;
    return true;
}

bool CkelMemoryDB::rebuildMemoryDBTable(const std::vector<tagStorageData>& records)
{
    const CkelMutexLocker lock(m_fileMutex);
    const TableState before = m_table;
    bool done = false;
    try {
        done = inTransaction([&]() KEL_NO_LOCK_ANALYSIS { return replaceTable(records); });
    } catch (...) {
        m_table = before;
        throw;
    }
    if (!done)
        m_table = before; // rolled back
    return done;
}

/// In an open transaction. SQLite may roll it back on an error: check after each step.
bool CkelMemoryDB::replaceTable(const std::vector<tagStorageData>& records)
{
    sqlite3* const connection = m_database.handle();
    const TableState before = queryTable();
    if (before == TableState::Unknown || !canGoOn(connection))
        return false;
    if (before == TableState::Present && !isTableSound())
        return false;
    const bool dropped = dropTable(); // always: SQLite's names ignore case, and a table "KEL" would be in the way
    return (dropped || before == TableState::Missing) && canGoOn(connection) && createTable() && canGoOn(connection) &&
           replaceRows(records);
}

/// Whether the table can be walked to its end. Dropping one whose pages contain each other might never end.
bool CkelMemoryDB::isTableSound()
{
    const auto goOn = [](const CkelSqliteVariantVector& /*row*/) { return true; };
    m_isTableSound = m_isTableSound || m_database.forEachStoredRow("SELECT 1 FROM kel NOT INDEXED;", 1, false, goOn);
    return m_isTableSound;
}

/// Opens the file anew where the connection cannot write to the file of that name any more.
void CkelMemoryDB::refreshConnection()
{
    if (m_database.isCurrent())
        return;
    m_database.refresh();
    m_isTableSound = false;
    m_table = TableState::Unknown;
    look();
}

/// Calls `write`, which finalises its statements, in a transaction; rolls back unless both succeed.
template <typename Write>
bool CkelMemoryDB::inTransaction(Write write)
{
    refreshConnection();
    m_database.restartSteps();
    CkelSqliteTransaction transaction(m_database.handle());
    m_database.setLastResult(transaction.lastResult());
    if (!transaction.isOpen() || !write())
        return false;
    const bool done = transaction.commit();
    m_database.setLastResult(transaction.lastResult());
    return done;
}

bool CkelMemoryDB::insertData(const tagStorageData& record)
{
    const CkelMutexLocker lock(m_fileMutex);
    CkelSqliteStatement statement(m_database.handle(), tableOperator().replaceText(tableColumns().size()));
    return bindRow(statement, record, storageClassOf(*this, record.Value.type())) && statement.execute();
}

bool CkelMemoryDB::insertDatas(const std::vector<tagStorageData>& records)
{
    const CkelMutexLocker lock(m_fileMutex);
    return insertRows(records);
}

bool CkelMemoryDB::insertRows(const std::vector<tagStorageData>& records)
{
    return inTransaction([&]() KEL_NO_LOCK_ANALYSIS { return replaceRows(records); });
}

bool CkelMemoryDB::replaceRows(const std::vector<tagStorageData>& records)
{
    CkelSqliteStatement statement(m_database.handle(), tableOperator().insertText(columnNames(0), true));
    if (!statement.isValid())
        return false;
    for (const tagStorageData& record : records) {
        if (bindRow(statement, record, storageClassOf(*this, record.Value.type())))
            statement.execute();
        if (!canGoOn(m_database.handle()))
            return false;
    }
    return true;
}

bool CkelMemoryDB::updateValue(unsigned int id, const CkelVariant& value)
{
    const CkelMutexLocker lock(m_fileMutex);
    const CkelSqliteDBOperator table = tableOperator();
    return table.execute_helper(table.updateText("Value", literalOf(value, storageClassOf(*this, value.type())), "ID",
                                                 CkelString::number(rowID(id)).toStdString()));
}

bool CkelMemoryDB::updateValues(const std::vector<unsigned int>& ids, const std::vector<CkelVariant>& values)
{
    const CkelMutexLocker lock(m_fileMutex);
    return inTransaction([&]() KEL_NO_LOCK_ANALYSIS { return setValues(ids, values); });
}

bool CkelMemoryDB::setValues(const std::vector<unsigned int>& ids, const std::vector<CkelVariant>& values)
{
    CkelSqliteStatement statement(
        m_database.handle(),
        tableOperator().updateText({"Value"}, CkelSqliteDBOperator::whereText("ID", CkelSqliteDBOperator::Equal, "?")));
    if (!statement.isValid())
        return false;
    const std::size_t count = std::min(ids.size(), values.size());
    for (std::size_t i = 0; i < count; ++i) {
        if (!values[i].isNull() && bindValue(statement, 1, values[i], storageClassOf(*this, values[i].type())) &&
            statement.bind(2, rowID(ids[i])))
            statement.execute();
        if (!canGoOn(m_database.handle()))
            return false;
    }
    return true;
}

bool CkelMemoryDB::updateDatas(const std::vector<tagStorageData>& records)
{
    const CkelMutexLocker lock(m_fileMutex);
    return updateRows(records);
}

bool CkelMemoryDB::updateRows(const std::vector<tagStorageData>& records)
{
    return inTransaction([&]() KEL_NO_LOCK_ANALYSIS { return setFields(records); });
}

bool CkelMemoryDB::setFields(const std::vector<tagStorageData>& records)
{
    constexpr std::size_t firstField = 2; // behind ID and NameID, which never change
    constexpr int idPosition = 11;
    CkelSqliteStatement statement(
        m_database.handle(),
        tableOperator().updateText(columnNames(firstField),
                                   CkelSqliteDBOperator::whereText("ID", CkelSqliteDBOperator::Equal, "?")));
    if (!statement.isValid())
        return false;
    for (const tagStorageData& record : records) {
        if (bindFields(statement, 1, record, storageClassOf(*this, record.Value.type())) &&
            statement.bind(idPosition, rowID(record.ID)))
            statement.execute();
        if (!canGoOn(m_database.handle()))
            return false;
    }
    return true;
}

bool CkelMemoryDB::deleteData(unsigned int id)
{
    const CkelMutexLocker lock(m_fileMutex);
    CkelSqliteStatement statement(m_database.handle(), tableOperator().deleteText("ID"));
    return statement.bind(1, rowID(id)) && statement.execute();
}

void CkelMemoryDB::deleteDatas(const std::vector<unsigned int>& ids)
{
    const CkelMutexLocker lock(m_fileMutex);
    deleteRows(ids);
}

void CkelMemoryDB::deleteDatas(const std::vector<tagStorageData>& records)
{
    deleteDatas(idsOf(records));
}

void CkelMemoryDB::deleteRows(const std::vector<unsigned int>& ids)
{
    const CkelSqliteDBOperator table = tableOperator();
    table.execute_helper(table.deleteText("ID", ids));
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): part of the interface as it is
bool CkelMemoryDB::canConvert(CkelVariant::Type from, CkelVariant::Type to) const
{
    using Variant = CkelVariant;
    if (from == to)
        return true;
    switch (to) {
    case Variant::Int:
        return from == Variant::Bool || from == Variant::Char;
    case Variant::UInt:
    case Variant::Char:
        return from == Variant::Bool;
    case Variant::LongLong:
        return from == Variant::Bool || from == Variant::Int || from == Variant::UInt || from == Variant::Char;
    case Variant::ULongLong:
        return from == Variant::Bool || from == Variant::UInt;
    case Variant::Double:
        return true;
    case Variant::String:
    case Variant::ByteArray:
        return from == Variant::String;
    default:
        return false;
    }
}

std::vector<tagStorageData>& CkelMemoryDB::loadMemoryDB()
{
    const CkelReport::Hold reports; // printed when the lock is free again
    const CkelMutexLocker lock(m_fileMutex);
    m_loadedList.clear();
    m_loadComplete = false;
    const auto visit = [this](const CkelSqliteVariantVector& row) {
        if (row.count() < columnsRead)
            return false;
        tagStorageData record{};
        if (readSavedRow(row, record))
            m_loadedList.push_back(std::move(record));
        else
            reportUnknownType(record);
        return true;
    };
    const CkelSqliteDBOperator table = tableOperator();
    m_loadComplete = table.forEachRow(table.selectText(), columnsRead, visit);
    m_isTableSound = m_isTableSound || m_loadComplete;
    return m_loadedList;
}

} // namespace Ombrin
