#include <datastorage/keldatastoragefactory.h>
#include <kernel/kelapplicationplus.h>
#include <kernel/keldatasensor.h>
#include <kernel/kelevent.h>
#include <kernel/kelversion.h>

#include <fstream>
#include <iostream>

#if KEL_VERSION_MAJOR != 1
#error "this program is made for version 1"
#endif

using namespace Ombrin;

namespace {

struct Screen : CkelObject
{
    void dataSensorEvent(CkelDataSensorEvent* event) override
    {
        shown = static_cast<CkelAnyDataSensorEvent*>(event)->value();
    }
    CkelVariant shown;
};

} // namespace

int main(int argc, char** argv)
{
    std::ofstream("dictionary.json") << R"({"kel":[{"ID":7,"NameID":"Cooling_Time_Set","ValueT":9,"Value":1.5}]})";
    CkelApplicationPlus application(argc, argv);
    CkelAbstractDataStorage* storage = CkelDBStorageFactory::instance()->get(CkelAbstractDataStorage::MemoryStorage);
    storage->readConfigFile("dictionary.json", false);
    Screen screen;
    CkelApplicationPlus::dataSensor()->attach(&screen);
    storage->updateValue("Cooling_Time_Set", 2.5, false);
    application.processEvents();
    const bool right = screen.shown.toDouble() == 2.5 && storage->queryValue(7).toDouble() == 2.5;
    std::cout << (right ? "works\n" : "does not work\n");
    return right ? 0 : 1;
}
