#include "writedatabase.h"

#include "failure.h"
#include "savedform.h"

#include "database/kelsqlitestatement.h"

#include <sqlite3.h>

#include <memory>

namespace Keldict {

using Ombrin::CkelSqliteStatement;
using Ombrin::CkelSqliteTransaction;
using Ombrin::CkelVariant;

namespace {

// The value columns keep what they are given: a declared type would turn the text "007" into a number.
constexpr const char* tableText =
    "CREATE TABLE kel(ID INTEGER PRIMARY KEY NOT NULL, NameID TEXT, CommSource INTEGER, DBSource INTEGER, RW INTEGER, "
    "Block INTEGER, ValueT INTEGER, Value, DefValue, Max, Min)";
constexpr const char* rowText = "INSERT INTO kel VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";

struct Closer
{
    void operator()(sqlite3* connection) const { sqlite3_close_v2(connection); }
};

bool bind(CkelSqliteStatement& row, int position, const CkelVariant& value)
{
    switch (value.type()) {
    case CkelVariant::Invalid:
        return sqlite3_bind_null(row.handle(), position) == SQLITE_OK;
    case CkelVariant::Double:
        return row.bind(position, value.toDouble());
    case CkelVariant::String:
        return row.bind(position, value.toStdString());
    case CkelVariant::ULongLong:
        return row.bind(position, static_cast<long long>(value.toULongLong())); // the reader takes the bits back
    default:
        return row.bind(position, value.toLongLong());
    }
}

bool insert(CkelSqliteStatement& row, const Ombrin::tagStorageData& item)
{
    bool done = true;
    for (const Field field : allFields)
        done = done && bind(row, static_cast<int>(field) + 1, contentOf(item, field));
    return done && row.execute();
}

bool fill(sqlite3* connection, const Dictionary& dictionary)
{
    CkelSqliteTransaction transaction(connection);
    if (!transaction.isOpen() || !CkelSqliteStatement(connection, tableText).execute())
        return false;
    CkelSqliteStatement row(connection, rowText);
    for (const auto& item : dictionary.items) {
        const bool isReadBack =
            savedAndRead(item, Field::Value).has_value(); // other rows would only be complained about
        if (isReadBack && !insert(row, item))
            return false;
    }
    return transaction.commit();
}

} // namespace

void writeDatabase(const Dictionary& dictionary, const std::string& path)
{
    sqlite3* opened = nullptr;
    const int result = sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE, nullptr);
    const std::unique_ptr<sqlite3, Closer> connection(opened);
    if (result != SQLITE_OK || !fill(opened, dictionary))
        throw Failure(Unreadable, path + ": " + sqlite3_errmsg(opened));
}

} // namespace Keldict
