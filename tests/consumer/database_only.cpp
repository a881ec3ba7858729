#include <database/kelsqlitedb.h>
#include <database/kelsqlitestatement.h>

#include <iostream>

using namespace Ombrin;

int main()
{
    CkelSqliteDB database;
    database.open(":memory:");
    CkelSqliteStatement statement(database.handle(), "CREATE TABLE item (value)");
    const auto rows = statement.execute() ? database.query("SELECT 2.5") : nullptr;
    const bool right = rows && rows->count() == 1 && rows->value(0).toValue<double>(0) == 2.5;
    std::cout << (right ? "works\n" : "does not work\n");
    return right ? 0 : 1;
}
