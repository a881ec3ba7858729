#include "datastorage/keldatastoragefactory.h"

#include <cstdlib>
#include <iostream>

/// Loads the dictionary, prints the value of one item and ends. Arguments: the dictionary and the item's ID.
int main(int argc, char** argv)
{
    using namespace Ombrin;
    if (argc != 3)
        return 2;
    CkelAbstractDataStorage* const storage =
        CkelDBStorageFactory::instance()->get(CkelAbstractDataStorage::MemoryStorage);
    storage->readConfigFile(argv[1], true);
    const auto id = static_cast<unsigned int>(std::strtoul(argv[2], nullptr, 10));
    std::cout << storage->queryValue(id).toStdString() << std::endl;
}
