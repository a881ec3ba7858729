#include "datastorage/kelsafememorystorage.h"

#include "datastorage/kelmemorydatastorage.h"
#include "kernel/kelmutex.h"
#include "kernel/kelreport.h"

#include <mutex>
#include <utility>

namespace Ombrin {

CkelSafeMemoryStorage::CkelSafeMemoryStorage(CkelObject* parent)
    : CkelAbstractDataStorage(parent), m_storage(std::make_unique<CkelMemoryDataStorage>(nullptr))
{
    storeherits("CkelSafeMemoryStorage");
}

CkelSafeMemoryStorage::~CkelSafeMemoryStorage() = default;

/// Calls the inner storage under its lock.
template <typename Call>
auto CkelSafeMemoryStorage::locked(Call call) const
{
    CkelMutex* const mutex = m_storage->mutex();
    const auto lock = mutex ? std::unique_lock<CkelMutex>(*mutex) : std::unique_lock<CkelMutex>();
    return call(*m_storage);
}

/// The same for operations that report on standard output. They print when the lock is free again: an output that
/// nobody reads must not stop the other threads.
template <typename Call>
auto CkelSafeMemoryStorage::lockedWithReports(Call call) const
{
    const CkelReport::Hold reports;
    return locked(call);
}

std::string CkelSafeMemoryStorage::nameID(unsigned int id) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.nameID(id); });
}

unsigned int CkelSafeMemoryStorage::ID(const std::string& nameID) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.ID(nameID); });
}

unsigned int CkelSafeMemoryStorage::commSource(unsigned int id) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.commSource(id); });
}

unsigned int CkelSafeMemoryStorage::commSource(const std::string& nameID) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.commSource(nameID); });
}

std::vector<std::string> CkelSafeMemoryStorage::nameIDList(const std::vector<unsigned int>& ids) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.nameIDList(ids); });
}

std::vector<unsigned int> CkelSafeMemoryStorage::IDList(const std::vector<std::string>& names) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.IDList(names); });
}

std::vector<unsigned int> CkelSafeMemoryStorage::commSourceList(const std::vector<unsigned int>& ids) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.commSourceList(ids); });
}

void CkelSafeMemoryStorage::insertData(const tagStorageData& record)
{
    lockedWithReports([&](CkelAbstractDataStorage& storage) { return storage.insertData(record); });
}

void CkelSafeMemoryStorage::insertDataList(const std::vector<tagStorageData>& records)
{
    lockedWithReports([&](CkelAbstractDataStorage& storage) { return storage.insertDataList(records); });
}

void CkelSafeMemoryStorage::deleteData(unsigned int id)
{
    locked([&](CkelAbstractDataStorage& storage) { return storage.deleteData(id); });
}

void CkelSafeMemoryStorage::deleteData(const std::string& nameID)
{
    locked([&](CkelAbstractDataStorage& storage) { return storage.deleteData(nameID); });
}

void CkelSafeMemoryStorage::deleteDataList(const std::vector<unsigned int>& ids)
{
    locked([&](CkelAbstractDataStorage& storage) { return storage.deleteDataList(ids); });
}

void CkelSafeMemoryStorage::deleteDataList(const std::vector<std::string>& names)
{
    locked([&](CkelAbstractDataStorage& storage) { return storage.deleteDataList(names); });
}

void CkelSafeMemoryStorage::deleteDataList(unsigned int id, Operator op)
{
    locked([&](CkelAbstractDataStorage& storage) { return storage.deleteDataList(id, op); });
}

void CkelSafeMemoryStorage::deleteDataListBetween(unsigned int from, unsigned int to)
{
    locked([&](CkelAbstractDataStorage& storage) { return storage.deleteDataListBetween(from, to); });
}

void CkelSafeMemoryStorage::deleteDataListByField(std::string field, FieldType type, const CkelVariant& value,
                                                  Operator op)
{
    lockedWithReports([&](CkelAbstractDataStorage& storage) {
        return storage.deleteDataListByField(std::move(field), type, value, op);
    });
}

CkelVariant CkelSafeMemoryStorage::queryValue(unsigned int id) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.queryValue(id); });
}

CkelVariant CkelSafeMemoryStorage::queryValue(const std::string& nameID) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.queryValue(nameID); });
}

std::vector<CkelVariant> CkelSafeMemoryStorage::queryValueList(const std::vector<unsigned int>& ids) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.queryValueList(ids); });
}

std::vector<CkelVariant> CkelSafeMemoryStorage::queryValueList(const std::vector<std::string>& names)
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.queryValueList(names); });
}

tagStorageData CkelSafeMemoryStorage::queryData(unsigned int id) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.queryData(id); });
}

tagStorageData CkelSafeMemoryStorage::queryData(const std::string& nameID) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.queryData(nameID); });
}

std::vector<tagStorageData> CkelSafeMemoryStorage::queryDataList(const std::vector<unsigned int>& ids) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.queryDataList(ids); });
}

std::vector<tagStorageData> CkelSafeMemoryStorage::queryDataList(const std::vector<std::string>& names) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.queryDataList(names); });
}

CkelVariant CkelSafeMemoryStorage::queryField(unsigned int id, const std::string& field, FieldType type) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.queryField(id, field, type); });
}

CkelVariant CkelSafeMemoryStorage::queryField(const std::string& nameID, const std::string& field, FieldType type) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.queryField(nameID, field, type); });
}

std::vector<CkelVariant> CkelSafeMemoryStorage::queryFieldList(const std::vector<unsigned int>& ids,
                                                               const std::string& field, FieldType type) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.queryFieldList(ids, field, type); });
}

std::vector<CkelVariant> CkelSafeMemoryStorage::queryFieldList(const std::vector<std::string>& names,
                                                               const std::string& field, FieldType type) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.queryFieldList(names, field, type); });
}

std::vector<CkelVariant> CkelSafeMemoryStorage::queryValueList(unsigned int id, Operator op) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.queryValueList(id, op); });
}

std::vector<tagStorageData> CkelSafeMemoryStorage::queryDataList(unsigned int id, Operator op) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.queryDataList(id, op); });
}

std::vector<CkelVariant> CkelSafeMemoryStorage::queryValueListBetween(unsigned int from, unsigned int to) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.queryValueListBetween(from, to); });
}

std::vector<tagStorageData> CkelSafeMemoryStorage::queryDataListBetween(unsigned int from, unsigned int to) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.queryDataListBetween(from, to); });
}

std::vector<CkelVariant> CkelSafeMemoryStorage::queryFieldList(unsigned int id, const std::string& field,
                                                               FieldType type, Operator op) const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.queryFieldList(id, field, type, op); });
}

std::vector<CkelVariant> CkelSafeMemoryStorage::queryFieldListBetween(unsigned int from, unsigned int to,
                                                                      const std::string& field, FieldType type) const
{
    return locked(
        [&](CkelAbstractDataStorage& storage) { return storage.queryFieldListBetween(from, to, field, type); });
}

CkelVariant CkelSafeMemoryStorage::updateValue(unsigned int id, const CkelVariant& value, bool merge)
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.updateValue(id, value, merge); });
}

CkelVariant CkelSafeMemoryStorage::updateValue(const std::string& nameID, const CkelVariant& value, bool merge)
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.updateValue(nameID, value, merge); });
}

void CkelSafeMemoryStorage::updateField(unsigned int id, const std::string& field, const CkelVariant& value, bool merge)
{
    locked([&](CkelAbstractDataStorage& storage) { return storage.updateField(id, field, value, merge); });
}

void CkelSafeMemoryStorage::updateField(const std::string& nameID, const std::string& field, const CkelVariant& value,
                                        bool merge)
{
    locked([&](CkelAbstractDataStorage& storage) { return storage.updateField(nameID, field, value, merge); });
}

void CkelSafeMemoryStorage::updateData(const tagStorageData& record, bool merge)
{
    locked([&](CkelAbstractDataStorage& storage) { return storage.updateData(record, merge); });
}

void CkelSafeMemoryStorage::updateValueList(const std::vector<unsigned int>& ids,
                                            const std::vector<CkelVariant>& values, bool merge)
{
    locked([&](CkelAbstractDataStorage& storage) { return storage.updateValueList(ids, values, merge); });
}

void CkelSafeMemoryStorage::updateFieldList(const std::vector<unsigned int>& ids, const std::string& field,
                                            const std::vector<CkelVariant>& values, bool merge)
{
    locked([&](CkelAbstractDataStorage& storage) { return storage.updateFieldList(ids, field, values, merge); });
}

void CkelSafeMemoryStorage::updateValueList(const std::vector<std::string>& names,
                                            const std::vector<CkelVariant>& values, bool merge)
{
    locked([&](CkelAbstractDataStorage& storage) { return storage.updateValueList(names, values, merge); });
}

void CkelSafeMemoryStorage::updateFieldList(const std::vector<std::string>& names, const std::string& field,
                                            const std::vector<CkelVariant>& values, bool merge)
{
    locked([&](CkelAbstractDataStorage& storage) { return storage.updateFieldList(names, field, values, merge); });
}

void CkelSafeMemoryStorage::updateDataList(const std::vector<tagStorageData>& records, bool merge)
{
    locked([&](CkelAbstractDataStorage& storage) { return storage.updateDataList(records, merge); });
}

std::vector<CkelVariant> CkelSafeMemoryStorage::queryValueListByField(const std::string& field, FieldType type,
                                                                      const CkelVariant& value, Operator op) const
{
    return lockedWithReports(
        [&](CkelAbstractDataStorage& storage) { return storage.queryValueListByField(field, type, value, op); });
}

std::vector<tagStorageData> CkelSafeMemoryStorage::queryDataListByField(const std::string& field, FieldType type,
                                                                        const CkelVariant& value, Operator op) const
{
    return lockedWithReports(
        [&](CkelAbstractDataStorage& storage) { return storage.queryDataListByField(field, type, value, op); });
}

void CkelSafeMemoryStorage::reset()
{
    locked([&](CkelAbstractDataStorage& storage) { return storage.reset(); });
}

void CkelSafeMemoryStorage::readConfigFile(const std::string& path, bool useLocalDB)
{
    lockedWithReports([&](CkelAbstractDataStorage& storage) { return storage.readConfigFile(path, useLocalDB); });
}

bool CkelSafeMemoryStorage::hasLocalDB() const
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.hasLocalDB(); });
}

std::vector<unsigned int> CkelSafeMemoryStorage::commSourceList(const std::vector<std::string>& names)
{
    return locked([&](CkelAbstractDataStorage& storage) { return storage.commSourceList(names); });
}

bool CkelSafeMemoryStorage::loadLocalDB()
{
    return locked([](CkelAbstractDataStorage& storage) { return storage.loadLocalDB(false); });
}

} // namespace Ombrin
