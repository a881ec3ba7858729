#include "datastorage/keldatastoragefactory.h"
#include "kernel/kelapplicationplus.h"
#include "kernel/keldatasensor.h"
#include "kernel/kelevent.h"
#include "kernel/keltimer.h"

#include <iostream>

using namespace Ombrin;

/// Hears of every change.
class Screen : public CkelObject
{
public:
    explicit Screen(const CkelAbstractDataStorage& storage) : m_storage(storage)
    {
        CkelApplicationPlus::dataSensor()->attach(this);
    }

    void dataSensorEvent(CkelDataSensorEvent* event) override
    {
        const auto* change = static_cast<CkelAnyDataSensorEvent*>(event);
        std::cout << "event: " << m_storage.nameID(change->id()) << " = " << change->value().toStdString() << '\n';
    }

private:
    const CkelAbstractDataStorage& m_storage;
};

int main(int argc, char** argv)
{
    CkelApplicationPlus application(argc, argv); // the event loop of this thread

    // The factory hands out one storage of each kind; it lives until the process ends.
    CkelAbstractDataStorage* storage = CkelDBStorageFactory::instance()->get(CkelAbstractDataStorage::MemoryStorage);

    // Load: the values of the dictionary, and over them those saved in kelmem.db.
    storage->readConfigFile("dictionary.json", true);

    // Read: by name or by ID, a value, a field or whole records.
    const char* zone = "Barrel_Zone1_SetTemperature";
    const double before = storage->queryValue(zone).toDouble();
    const double maximum = storage->queryField(1001, "Max", CkelAbstractDataStorage::AnyFieldType).toDouble();
    const auto block = storage->queryDataListByField("Block", CkelAbstractDataStorage::IntegerFieldType, 2,
                                                     CkelAbstractDataStorage::Equal);
    std::cout << zone << " starts at " << before << ", its maximum is " << maximum << ", its block has " << block.size()
              << " items\n";

    // Write: the values change at once, the events wait for the loop to turn.
    Screen screen(*storage);
    storage->updateValue(zone, before + 0.5, false);
    storage->updateValue("Barrel_Zone1_ActualTemperature", "187.25",
                         true); // becomes a number: the item's type is double
    storage->updateValue(3001, storage->queryValue(3001).toLongLong() + 1, false);
    std::cout << zone << " is " << storage->queryValue(zone).toDouble() << '\n';

    // Run: deliver events, and save. A change is in the file after one to two seconds.
    CkelTimer end;
    end.connectTimeOut("end", [&application] { application.quit(); });
    end.start(4000);
    return application.exec();
}
