#include "datastorage/kelfiledatastorage.h"

namespace Ombrin {

CkelFileDataStorage::CkelFileDataStorage(CkelObject* parent) : CkelAbstractDataStorage(parent)
{
    storeherits("CkelFileDataStorage");
}

CkelFileDataStorage::~CkelFileDataStorage() = default;

std::string CkelFileDataStorage::nameID(unsigned int /*id*/) const
{
    return {};
}

unsigned int CkelFileDataStorage::ID(const std::string& /*nameID*/) const
{
    return 0;
}

unsigned int CkelFileDataStorage::commSource(unsigned int /*id*/) const
{
    return 0;
}

unsigned int CkelFileDataStorage::commSource(const std::string& /*nameID*/) const
{
    return 0;
}

std::vector<std::string> CkelFileDataStorage::nameIDList(const std::vector<unsigned int>& /*ids*/) const
{
    return {};
}

std::vector<unsigned int> CkelFileDataStorage::IDList(const std::vector<std::string>& /*names*/) const
{
    return {};
}

void CkelFileDataStorage::insertData(const tagStorageData& /*record*/) {}

void CkelFileDataStorage::insertDataList(const std::vector<tagStorageData>& /*records*/) {}

void CkelFileDataStorage::deleteData(unsigned int /*id*/) {}

void CkelFileDataStorage::deleteData(const std::string& /*nameID*/) {}

void CkelFileDataStorage::deleteDataList(const std::vector<unsigned int>& /*ids*/) {}

void CkelFileDataStorage::deleteDataList(const std::vector<std::string>& /*names*/) {}

void CkelFileDataStorage::deleteDataList(unsigned int /*id*/, Operator /*op*/) {}

void CkelFileDataStorage::deleteDataListBetween(unsigned int /*from*/, unsigned int /*to*/) {}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the interface takes this one by value
void CkelFileDataStorage::deleteDataListByField(std::string /*field*/, FieldType /*type*/, const CkelVariant& /*value*/,
                                                Operator /*op*/)
{}

CkelVariant CkelFileDataStorage::queryValue(unsigned int /*id*/) const
{
    return {};
}

CkelVariant CkelFileDataStorage::queryValue(const std::string& /*nameID*/) const
{
    return {};
}

std::vector<CkelVariant> CkelFileDataStorage::queryValueList(const std::vector<unsigned int>& /*ids*/) const
{
    return {};
}

std::vector<CkelVariant> CkelFileDataStorage::queryValueList(const std::vector<std::string>& /*names*/)
{
    return {};
}

tagStorageData CkelFileDataStorage::queryData(unsigned int /*id*/) const
{
    return {};
}

tagStorageData CkelFileDataStorage::queryData(const std::string& /*nameID*/) const
{
    return {};
}

std::vector<tagStorageData> CkelFileDataStorage::queryDataList(const std::vector<unsigned int>& /*ids*/) const
{
    return {};
}

std::vector<tagStorageData> CkelFileDataStorage::queryDataList(const std::vector<std::string>& /*names*/) const
{
    return {};
}

CkelVariant CkelFileDataStorage::queryField(unsigned int /*id*/, const std::string& /*field*/, FieldType /*type*/) const
{
    return {};
}

CkelVariant CkelFileDataStorage::queryField(const std::string& /*nameID*/, const std::string& /*field*/,
                                            FieldType /*type*/) const
{
    return {};
}

std::vector<CkelVariant> CkelFileDataStorage::queryFieldList(const std::vector<unsigned int>& /*ids*/,
                                                             const std::string& /*field*/, FieldType /*type*/) const
{
    return {};
}

std::vector<CkelVariant> CkelFileDataStorage::queryFieldList(const std::vector<std::string>& /*names*/,
                                                             const std::string& /*field*/, FieldType /*type*/) const
{
    return {};
}

std::vector<CkelVariant> CkelFileDataStorage::queryValueList(unsigned int /*id*/, Operator /*op*/) const
{
    return {};
}

std::vector<tagStorageData> CkelFileDataStorage::queryDataList(unsigned int /*id*/, Operator /*op*/) const
{
    return {};
}

std::vector<CkelVariant> CkelFileDataStorage::queryValueListBetween(unsigned int /*from*/, unsigned int /*to*/) const
{
    return {};
}

std::vector<tagStorageData> CkelFileDataStorage::queryDataListBetween(unsigned int /*from*/, unsigned int /*to*/) const
{
    return {};
}

std::vector<CkelVariant> CkelFileDataStorage::queryFieldList(unsigned int /*id*/, const std::string& /*field*/,
                                                             FieldType /*type*/, Operator /*op*/) const
{
    return {};
}

std::vector<CkelVariant> CkelFileDataStorage::queryFieldListBetween(unsigned int /*from*/, unsigned int /*to*/,
                                                                    const std::string& /*field*/,
                                                                    FieldType /*type*/) const
{
    return {};
}

std::vector<CkelVariant> CkelFileDataStorage::queryValueListByField(const std::string& /*field*/, FieldType /*type*/,
                                                                    const CkelVariant& /*value*/, Operator /*op*/) const
{
    return {};
}

std::vector<tagStorageData> CkelFileDataStorage::queryDataListByField(const std::string& /*field*/, FieldType /*type*/,
                                                                      const CkelVariant& /*value*/,
                                                                      Operator /*op*/) const
{
    return {};
}

void CkelFileDataStorage::reset() {}

void CkelFileDataStorage::readConfigFile(const std::string& /*path*/, bool /*useLocalDB*/) {}

CkelMutex* CkelFileDataStorage::mutex()
{
    return &m_mutex;
}

std::vector<unsigned int> CkelFileDataStorage::comSourceList(std::vector<unsigned int>& /*ids*/) const
{
    return {};
}

std::vector<unsigned int> CkelFileDataStorage::comSourceList(std::vector<std::string>& /*names*/) const
{
    return {};
}

CkelVariant CkelFileDataStorage::updateValue(unsigned int /*id*/, const CkelVariant& /*value*/)
{
    return {};
}

CkelVariant CkelFileDataStorage::updateValue(const std::string& /*nameID*/, const CkelVariant& /*value*/)
{
    return {};
}

void CkelFileDataStorage::updateField(unsigned int /*id*/, const std::string& /*field*/, const CkelVariant& /*value*/)
{}

void CkelFileDataStorage::updateField(const std::string& /*nameID*/, const std::string& /*field*/,
                                      const CkelVariant& /*value*/)
{}

void CkelFileDataStorage::updateData(const tagStorageData& /*record*/) {}

void CkelFileDataStorage::updateValueList(const std::vector<unsigned int>& /*ids*/,
                                          const std::vector<CkelVariant>& /*values*/)
{}

void CkelFileDataStorage::updateFieldList(const std::vector<unsigned int>& /*ids*/, const std::string& /*field*/,
                                          const std::vector<CkelVariant>& /*values*/)
{}

void CkelFileDataStorage::updateValueList(const std::vector<std::string>& /*names*/,
                                          const std::vector<CkelVariant>& /*values*/)
{}

void CkelFileDataStorage::updateFieldList(const std::vector<std::string>& /*names*/, const std::string& /*field*/,
                                          const std::vector<CkelVariant>& /*values*/)
{}

void CkelFileDataStorage::updateDataList(const std::vector<tagStorageData>& /*records*/) {}

bool CkelFileDataStorage::loadLocalDB()
{
    return true;
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): called on an object, as its other operations
bool CkelFileDataStorage::readDBFile(const std::string& /*path*/)
{
    return true;
}

} // namespace Ombrin
