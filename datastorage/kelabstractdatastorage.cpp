#include "datastorage/kelabstractdatastorage.h"

namespace Ombrin {

std::vector<unsigned int> CkelAbstractDataStorage::m_moldSetIDList;

CkelAbstractDataStorage::CkelAbstractDataStorage(CkelObject* parent) : CkelObject(parent)
{
    storeherits("CkelAbstractDataStorage");
}

CkelAbstractDataStorage::~CkelAbstractDataStorage() = default;

std::vector<unsigned int>& CkelAbstractDataStorage::moldSetIDList()
{
    return m_moldSetIDList;
}

void CkelAbstractDataStorage::setMoldSetIDList(const std::vector<unsigned int>& ids)
{
    m_moldSetIDList = ids;
}

std::string CkelAbstractDataStorage::nameID(unsigned int /*id*/) const
{
    return {};
}

unsigned int CkelAbstractDataStorage::ID(const std::string& /*nameID*/) const
{
    return 0;
}

unsigned int CkelAbstractDataStorage::commSource(unsigned int /*id*/) const
{
    return 0;
}

unsigned int CkelAbstractDataStorage::commSource(const std::string& /*nameID*/) const
{
    return 0;
}

CkelVariant CkelAbstractDataStorage::toStoreValue(unsigned int /*valueType*/, const CkelVariant& value) const
{
    return value;
}

std::vector<std::string> CkelAbstractDataStorage::nameIDList(const std::vector<unsigned int>& /*ids*/) const
{
    return {};
}

std::vector<unsigned int> CkelAbstractDataStorage::IDList(const std::vector<std::string>& /*names*/) const
{
    return {};
}

std::vector<unsigned int> CkelAbstractDataStorage::commSourceList(const std::vector<unsigned int>& /*ids*/) const
{
    return {};
}

std::vector<unsigned int> CkelAbstractDataStorage::commSourceList(const std::vector<std::string>& /*names*/) const
{
    return {};
}

void CkelAbstractDataStorage::insertData(const tagStorageData& /*record*/) {}

void CkelAbstractDataStorage::insertDataList(const std::vector<tagStorageData>& /*records*/) {}

void CkelAbstractDataStorage::deleteData(unsigned int /*id*/) {}

void CkelAbstractDataStorage::deleteData(const std::string& /*nameID*/) {}

void CkelAbstractDataStorage::deleteDataList(const std::vector<unsigned int>& /*ids*/) {}

void CkelAbstractDataStorage::deleteDataList(const std::vector<std::string>& /*names*/) {}

void CkelAbstractDataStorage::deleteDataList(unsigned int /*id*/, Operator /*op*/) {}

void CkelAbstractDataStorage::deleteDataListBetween(unsigned int /*from*/, unsigned int /*to*/) {}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the interface takes this one by value
void CkelAbstractDataStorage::deleteDataListByField(std::string /*field*/, FieldType /*type*/,
                                                    const CkelVariant& /*value*/, Operator /*op*/)
{}

CkelVariant CkelAbstractDataStorage::queryValue(unsigned int /*id*/) const
{
    return {};
}

CkelVariant CkelAbstractDataStorage::queryValue(const std::string& /*nameID*/) const
{
    return {};
}

std::vector<CkelVariant> CkelAbstractDataStorage::queryValueList(const std::vector<unsigned int>& /*ids*/) const
{
    return {};
}

std::vector<CkelVariant> CkelAbstractDataStorage::queryValueList(const std::vector<std::string>& /*names*/)
{
    return {};
}

tagStorageData CkelAbstractDataStorage::queryData(unsigned int /*id*/) const
{
    return {};
}

tagStorageData CkelAbstractDataStorage::queryData(const std::string& /*nameID*/) const
{
    return {};
}

std::vector<tagStorageData> CkelAbstractDataStorage::queryDataList(const std::vector<unsigned int>& /*ids*/) const
{
    return {};
}

std::vector<tagStorageData> CkelAbstractDataStorage::queryDataList(const std::vector<std::string>& /*names*/) const
{
    return {};
}

CkelVariant CkelAbstractDataStorage::queryField(unsigned int /*id*/, const std::string& /*field*/,
                                                FieldType /*type*/) const
{
    return {};
}

CkelVariant CkelAbstractDataStorage::queryField(const std::string& /*nameID*/, const std::string& /*field*/,
                                                FieldType /*type*/) const
{
    return {};
}

std::vector<CkelVariant> CkelAbstractDataStorage::queryFieldList(const std::vector<unsigned int>& /*ids*/,
                                                                 const std::string& /*field*/, FieldType /*type*/) const
{
    return {};
}

std::vector<CkelVariant> CkelAbstractDataStorage::queryFieldList(const std::vector<std::string>& /*names*/,
                                                                 const std::string& /*field*/, FieldType /*type*/) const
{
    return {};
}

std::vector<CkelVariant> CkelAbstractDataStorage::queryValueList(unsigned int /*id*/, Operator /*op*/) const
{
    return {};
}

std::vector<tagStorageData> CkelAbstractDataStorage::queryDataList(unsigned int /*id*/, Operator /*op*/) const
{
    return {};
}

std::vector<CkelVariant> CkelAbstractDataStorage::queryValueListBetween(unsigned int /*from*/,
                                                                        unsigned int /*to*/) const
{
    return {};
}

std::vector<tagStorageData> CkelAbstractDataStorage::queryDataListBetween(unsigned int /*from*/,
                                                                          unsigned int /*to*/) const
{
    return {};
}

std::vector<CkelVariant> CkelAbstractDataStorage::queryFieldList(unsigned int /*id*/, const std::string& /*field*/,
                                                                 FieldType /*type*/, Operator /*op*/) const
{
    return {};
}

std::vector<CkelVariant> CkelAbstractDataStorage::queryFieldListBetween(unsigned int /*from*/, unsigned int /*to*/,
                                                                        const std::string& /*field*/,
                                                                        FieldType /*type*/) const
{
    return {};
}

CkelVariant CkelAbstractDataStorage::updateValue(unsigned int /*id*/, const CkelVariant& /*value*/, bool /*merge*/)
{
    return {};
}

CkelVariant CkelAbstractDataStorage::updateValue(const std::string& /*nameID*/, const CkelVariant& /*value*/,
                                                 bool /*merge*/)
{
    return {};
}

void CkelAbstractDataStorage::updateField(unsigned int /*id*/, const std::string& /*field*/,
                                          const CkelVariant& /*value*/, bool /*merge*/)
{}

void CkelAbstractDataStorage::updateField(const std::string& /*nameID*/, const std::string& /*field*/,
                                          const CkelVariant& /*value*/, bool /*merge*/)
{}

void CkelAbstractDataStorage::updateData(const tagStorageData& /*record*/, bool /*merge*/) {}

void CkelAbstractDataStorage::updateValueList(const std::vector<unsigned int>& /*ids*/,
                                              const std::vector<CkelVariant>& /*values*/, bool /*merge*/)
{}

void CkelAbstractDataStorage::updateFieldList(const std::vector<unsigned int>& /*ids*/, const std::string& /*field*/,
                                              const std::vector<CkelVariant>& /*values*/, bool /*merge*/)
{}

void CkelAbstractDataStorage::updateValueList(const std::vector<std::string>& /*names*/,
                                              const std::vector<CkelVariant>& /*values*/, bool /*merge*/)
{}

void CkelAbstractDataStorage::updateFieldList(const std::vector<std::string>& /*names*/, const std::string& /*field*/,
                                              const std::vector<CkelVariant>& /*values*/, bool /*merge*/)
{}

void CkelAbstractDataStorage::updateDataList(const std::vector<tagStorageData>& /*records*/, bool /*merge*/) {}

std::vector<CkelVariant> CkelAbstractDataStorage::queryValueListByField(const std::string& /*field*/,
                                                                        FieldType /*type*/,
                                                                        const CkelVariant& /*value*/,
                                                                        Operator /*op*/) const
{
    return {};
}

std::vector<tagStorageData> CkelAbstractDataStorage::queryDataListByField(const std::string& /*field*/,
                                                                          FieldType /*type*/,
                                                                          const CkelVariant& /*value*/,
                                                                          Operator /*op*/) const
{
    return {};
}

void CkelAbstractDataStorage::reset() {}

void CkelAbstractDataStorage::readConfigFile(const std::string& /*path*/, bool /*useLocalDB*/) {}

bool CkelAbstractDataStorage::loadLocalDB(bool /*reload*/)
{
    return false;
}

bool CkelAbstractDataStorage::hasLocalDB() const
{
    return false;
}

CkelMutex* CkelAbstractDataStorage::mutex()
{
    return nullptr;
}

} // namespace Ombrin
