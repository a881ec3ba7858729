// The examples of the reference. The text between two marks is shown at the class of that name.
#include "database/kelsqlitedb.h"
#include "database/kelsqlitestatement.h"
#include "datastorage/keldatastoragefactory.h"
#include "datastorage/kelparsedbjson.h"
#include "kernel/kelapplicationplus.h"
#include "kernel/keldatasensor.h"
#include "kernel/kelevent.h"
#include "kernel/kelfile.h"
#include "kernel/kelmutex.h"
#include "kernel/kelthread.h"
#include "kernel/keltimer.h"

#include <atomic>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

using namespace Ombrin;

namespace {

//! [CkelObject]
class Pump : public CkelObject
{
public:
    explicit Pump(CkelObject* parent) : CkelObject(parent), m_timer(startTimer(10)) {} // milliseconds

    void timerEvent(CkelTimerEvent* /*event*/) override
    {
        std::cout << "pump checked\n";
        killTimer(m_timer); // without this, it is called every 10 milliseconds
        CkelApplicationPlus::instance()->quit();
    }

private:
    const int m_timer;
};

void checkPump()
{
    CkelObject machine;
    new Pump(&machine); // the machine deletes it
    CkelApplicationPlus::instance()->exec();
}
//! [CkelObject]

void blinkLamp()
{
    //! [CkelTimer]
    CkelTimer lamp;
    lamp.connectTimeOut("lamp", [&lamp] {
        std::cout << "lamp\n";
        lamp.stop(); // without this, it is called every 10 milliseconds
        CkelApplicationPlus::instance()->quit();
    });
    lamp.start(10);
    //! [CkelTimer]
    CkelApplicationPlus::instance()->exec();
}

//! [CkelDataSensor]
class Display : public CkelObject
{
public:
    Display() { CkelApplicationPlus::dataSensor()->attach(this, {1001, 1002}); } // without a list: all items

    void dataSensorEvent(CkelDataSensorEvent* event) override
    {
        const auto* change = static_cast<CkelAnyDataSensorEvent*>(event);
        std::cout << "item " << change->id() << " is " << change->value().toDouble() << '\n';
    }
};
//! [CkelDataSensor]

CkelAbstractDataStorage& load()
{
    //! [CkelDBStorageFactory]
    CkelAbstractDataStorage* storage = CkelDBStorageFactory::instance()->get(CkelAbstractDataStorage::MemoryStorage);
    storage->readConfigFile("dictionary.json", true); // true: with the values saved in kelmem.db
    //! [CkelDBStorageFactory]
    return *storage;
}

void readAndWrite(CkelAbstractDataStorage& storage)
{
    //! [CkelAbstractDataStorage]
    // Read by name or by ID: a value, one field, the whole item.
    const double set = storage.queryValue("Barrel_Zone1_SetTemperature").toDouble();
    const double max = storage.queryField(1001, "Max", CkelAbstractDataStorage::AnyFieldType).toDouble();
    const bool missing = storage.queryData(4711).ID == 0;

    // Read several items: one result for each ID, in the same order.
    const std::vector<unsigned int> ids = {1001, 1002};
    const std::vector<CkelVariant> values = storage.queryValueList(ids);

    // Select items by a field.
    const std::vector<tagStorageData> block = storage.queryDataListByField(
        "Block", CkelAbstractDataStorage::IntegerFieldType, 2, CkelAbstractDataStorage::Equal);

    // Write. The value is converted to the item's type, announced by the data sensor and saved in the background.
    storage.updateValue("Barrel_Zone1_SetTemperature", set + 5, false);
    storage.updateValue(1002, "187.25", true); // true: a newer value may take its place while it waits
    //! [CkelAbstractDataStorage]
    std::cout << set << " of " << max << ", missing: " << missing << ", " << values.size() << " values, "
              << block.size() << " items\n";
}

void shareWithLock(CkelAbstractDataStorage& storage)
{
    //! [CkelMemoryDataStorage]
    // Threads that share a memory storage hold its lock around each call.
    std::thread counter([&storage] {
        const CkelMutexLocker lock(*storage.mutex());
        storage.updateValue(3001, storage.queryValue(3001).toLongLong() + 1, false);
    });
    counter.join();
    //! [CkelMemoryDataStorage]
    std::cout << storage.queryValue(3001).toLongLong() << " cycle\n";
}

void shareSafely()
{
    //! [CkelSafeMemoryStorage]
    CkelAbstractDataStorage* storage =
        CkelDBStorageFactory::instance()->get(CkelAbstractDataStorage::SafeMemoryStorage);
    storage->readConfigFile("dictionary.json", false);
    std::thread sampler([storage] { storage->updateValue(1002, 190.5, true); }); // no lock
    sampler.join();
    //! [CkelSafeMemoryStorage]
    std::cout << storage->queryValue(1002).toDouble() << " degrees\n";
}

void insert(CkelAbstractDataStorage& storage)
{
    //! [tagStorageData]
    tagStorageData item{}; // zeros and null variants
    item.ID = 4001;
    item.NameID = "Conveyor_Speed";
    item.ValueT = ValueTypeReal9;
    item.Value = 1.5;
    item.DefValue = 1.0;
    storage.insertData(item);
    //! [tagStorageData]
    std::cout << storage.nameID(4001) << '\n';
}

void convert()
{
    //! [CkelVariant]
    bool ok = false;
    const CkelVariant temperature = 215.5;
    const int rounded = temperature.toInt(&ok);                 // 216; ok is true
    const double mistyped = CkelVariant("215,5").toDouble(&ok); // 0; ok is false
    const bool same = CkelVariant(3).cmp(3.0);                  // true: numerically equal
    const bool null = CkelVariant().isNull();                   // true: no value
    const std::string text = temperature.toStdString();         // "215.5"
    //! [CkelVariant]
    std::cout << rounded << ' ' << mistyped << ' ' << same << ' ' << null << ' ' << text << '\n';
}

void sample()
{
    //! [CkelThread]
    std::atomic<bool> sampled{false};
    CkelThread thread;
    CkelTimer sampler;
    sampler.connectTimeOut("sample", [&sampled] {
        sampled = true;
        CkelApplicationPlus::instance()->quit(); // safe from any thread
    });
    sampler.start(10);
    sampler.moveToThread(&thread); // its functions run there from now on
    thread.start();
    CkelApplicationPlus::instance()->exec();
    thread.terminate(); // returns when the thread has ended
    //! [CkelThread]
    std::cout << "sampled: " << sampled << '\n';
}

void count()
{
    //! [CkelMutex]
    CkelMutex mutex;
    int parts = 0;
    std::thread other([&] {
        const CkelMutexLocker lock(mutex); // until the end of the block
        ++parts;
    });
    {
        const CkelMutexLocker lock(mutex);
        ++parts;
    }
    other.join();
    //! [CkelMutex]
    std::cout << parts << " parts\n";
}

void writeNote()
{
    //! [CkelFile]
    CkelFile file("note.txt");
    if (file.open(CkelDevice::WriteOnly)) {
        file.write(CkelByteArray(std::string("changed the mould")));
        file.close();
    }
    if (file.open(CkelDevice::ReadOnly))
        std::cout << file.readAll().toStdString() << '\n';
    //! [CkelFile]
}

void keepRecipes()
{
    //! [CkelSqliteDB]
    CkelSqliteDB database;
    database.open("recipes.db");
    CkelSqliteStatement(database.handle(), "CREATE TABLE recipe (name, temperature)").execute();

    CkelSqliteTransaction transaction(database.handle()); // rolled back unless committed
    CkelSqliteStatement insert(database.handle(), "INSERT INTO recipe VALUES (?, ?)");
    insert.bind(1, std::string("Cap 28 mm"));
    insert.bind(2, 215.5);
    if (insert.execute())
        transaction.commit();

    const auto rows = database.query("SELECT name, temperature FROM recipe");
    for (const CkelSqliteVariantVector& row : *rows)
        std::cout << row.toValue<std::string>(0) << ": " << row.toValue<double>(1) << '\n';
    //! [CkelSqliteDB]
}

void listDictionary()
{
    //! [CkelParseDBJson]
    CkelParseDBJson parser;
    for (const tagStorageData& item : parser.parse("dictionary.json"))
        std::cout << item.ID << ' ' << item.NameID << '\n';
    //! [CkelParseDBJson]
}

void runExamples()
{
    checkPump();
    blinkLamp();
    CkelAbstractDataStorage& storage = load();
    const Display display;
    readAndWrite(storage);
    CkelApplicationPlus::instance()->processEvents();
    shareWithLock(storage);
    insert(storage);
    shareSafely();
    convert();
    sample();
    count();
    writeNote();
    keepRecipes();
    listDictionary();
}

} // namespace

//! [CkelApplicationPlus]
int main(int argc, char** argv)
{
    CkelApplicationPlus application(argc, argv); // first of all
    runExamples();                               // what has timers or events is made after it

    CkelTimer end;
    end.connectTimeOut("end", [&application] { application.quit(0); });
    end.start(10);
    return application.exec(); // runs timers and delivers events until quit(); returns 0 here
}
//! [CkelApplicationPlus]
