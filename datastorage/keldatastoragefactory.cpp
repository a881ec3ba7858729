#include "datastorage/keldatastoragefactory.h"

#include "datastorage/kelfiledatastorage.h"
#include "datastorage/kelmemorydatastorage.h"
#include "datastorage/kelsafememorystorage.h"

namespace Ombrin {

CkelDBStorageFactory* CkelDBStorageFactory::m_factory = nullptr;
CkelAbstractDataStorage* CkelDBStorageFactory::f_dbstorage = nullptr;
CkelAbstractDataStorage* CkelDBStorageFactory::m_dbstorage = nullptr;
CkelAbstractDataStorage* CkelDBStorageFactory::sm_dbstorage = nullptr;

namespace {

template <typename Storage>
CkelAbstractDataStorage* madeOnce(CkelAbstractDataStorage*& storage)
{
    if (!storage)
        storage = new Storage(nullptr);
    return storage;
}

} // namespace

CkelDBStorageFactory* CkelDBStorageFactory::instance()
{
    if (!m_factory)
        m_factory = new CkelDBStorageFactory;
    return m_factory;
}

void CkelDBStorageFactory::ruinInstance()
{
    delete m_factory;
    m_factory = nullptr;
}

CkelAbstractDataStorage* CkelDBStorageFactory::get(CkelAbstractDataStorage::DataOperatorType type)
{
    switch (type) {
    case CkelAbstractDataStorage::FileStorage:
        return madeOnce<CkelFileDataStorage>(f_dbstorage);
    case CkelAbstractDataStorage::MemoryStorage:
        return madeOnce<CkelMemoryDataStorage>(m_dbstorage);
    case CkelAbstractDataStorage::SafeMemoryStorage:
        return madeOnce<CkelSafeMemoryStorage>(sm_dbstorage);
    default:
        return nullptr;
    }
}

CkelAbstractDataStorage* CkelDBStorageFactory::get(int type)
{
    return get(static_cast<CkelAbstractDataStorage::DataOperatorType>(type));
}

} // namespace Ombrin
