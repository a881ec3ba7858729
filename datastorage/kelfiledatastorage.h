#pragma once

#include "datastorage/kelabstractdatastorage.h"
#include "kernel/kelglobal.h"
#include "kernel/kelmutex.h"

#include <string>
#include <vector>

namespace Ombrin {

/// A storage without data: lookups find nothing, queries are empty, changes are accepted and dropped.
///
/// It holds no items, posts no events, touches no file and inspects no argument. Every operation is safe from any
/// thread. The lock that mutex() offers is for its callers; the storage never takes it.
/// @ingroup datastorage
class KEL_EXPORT CkelFileDataStorage : public CkelAbstractDataStorage
{
public:
    /// `parent` owns the storage.
    explicit CkelFileDataStorage(CkelObject* parent = nullptr);
    ~CkelFileDataStorage() override;

    /// @name Lookups
    /// @{

    std::string nameID(unsigned int id) const override;
    unsigned int ID(const std::string& nameID) const override;
    unsigned int commSource(unsigned int id) const override;
    unsigned int commSource(const std::string& nameID) const override;

    /// @}

    /// @name Lists of lookups
    /// @{

    std::vector<std::string> nameIDList(const std::vector<unsigned int>& ids) const override;
    std::vector<unsigned int> IDList(const std::vector<std::string>& names) const override;

    /// @}

    /// @name Insertion and deletion
    /// @{

    void insertData(const tagStorageData& record) override;
    void insertDataList(const std::vector<tagStorageData>& records) override;
    void deleteData(unsigned int id) override;
    void deleteData(const std::string& nameID) override;
    void deleteDataList(const std::vector<unsigned int>& ids) override;
    void deleteDataList(const std::vector<std::string>& names) override;
    void deleteDataList(unsigned int id, Operator op) override;
    void deleteDataListBetween(unsigned int from, unsigned int to) override;
    void deleteDataListByField(std::string field, FieldType type, const CkelVariant& value, Operator op) override;

    /// @}

    /// @name Queries
    /// @{

    CkelVariant queryValue(unsigned int id) const override;
    CkelVariant queryValue(const std::string& nameID) const override;
    std::vector<CkelVariant> queryValueList(const std::vector<unsigned int>& ids) const override;
    std::vector<CkelVariant> queryValueList(const std::vector<std::string>& names) override;
    tagStorageData queryData(unsigned int id) const override;
    tagStorageData queryData(const std::string& nameID) const override;
    std::vector<tagStorageData> queryDataList(const std::vector<unsigned int>& ids) const override;
    std::vector<tagStorageData> queryDataList(const std::vector<std::string>& names) const override;
    CkelVariant queryField(unsigned int id, const std::string& field, FieldType type) const override;
    CkelVariant queryField(const std::string& nameID, const std::string& field, FieldType type) const override;
    std::vector<CkelVariant> queryFieldList(const std::vector<unsigned int>& ids, const std::string& field,
                                            FieldType type) const override;
    std::vector<CkelVariant> queryFieldList(const std::vector<std::string>& names, const std::string& field,
                                            FieldType type) const override;

    /// @}

    /// @name Selections by ID
    /// @{

    std::vector<CkelVariant> queryValueList(unsigned int id, Operator op) const override;
    std::vector<tagStorageData> queryDataList(unsigned int id, Operator op) const override;
    std::vector<CkelVariant> queryValueListBetween(unsigned int from, unsigned int to) const override;
    std::vector<tagStorageData> queryDataListBetween(unsigned int from, unsigned int to) const override;
    std::vector<CkelVariant> queryFieldList(unsigned int id, const std::string& field, FieldType type,
                                            Operator op) const override;
    std::vector<CkelVariant> queryFieldListBetween(unsigned int from, unsigned int to, const std::string& field,
                                                   FieldType type) const override;

    /// @}

    /// @name Selections by field
    /// @{

    std::vector<CkelVariant> queryValueListByField(const std::string& field, FieldType type, const CkelVariant& value,
                                                   Operator op) const override;
    std::vector<tagStorageData> queryDataListByField(const std::string& field, FieldType type, const CkelVariant& value,
                                                     Operator op) const override;

    /// @}

    /// @name The whole storage
    /// @{

    void reset() override;
    void readConfigFile(const std::string& path, bool useLocalDB) override;
    CkelMutex* mutex() override;

    /// @}

    /// @name Operations that the interface does not have
    /// Each resembles one of the interface: one "m" in the name, no merge flag in the updates.
    /// @{

    /// Returns an empty list.
    virtual std::vector<unsigned int> comSourceList(std::vector<unsigned int>& ids) const;
    /// Returns an empty list.
    virtual std::vector<unsigned int> comSourceList(std::vector<std::string>& names) const;
    /// Returns a null variant.
    virtual CkelVariant updateValue(unsigned int id, const CkelVariant& value);
    /// Returns a null variant.
    virtual CkelVariant updateValue(const std::string& nameID, const CkelVariant& value);
    /// Does nothing.
    virtual void updateField(unsigned int id, const std::string& field, const CkelVariant& value);
    /// Does nothing.
    virtual void updateField(const std::string& nameID, const std::string& field, const CkelVariant& value);
    /// Does nothing.
    virtual void updateData(const tagStorageData& record);
    /// Does nothing.
    virtual void updateValueList(const std::vector<unsigned int>& ids, const std::vector<CkelVariant>& values);
    /// Does nothing.
    virtual void updateFieldList(const std::vector<unsigned int>& ids, const std::string& field,
                                 const std::vector<CkelVariant>& values);
    /// Does nothing.
    virtual void updateValueList(const std::vector<std::string>& names, const std::vector<CkelVariant>& values);
    /// Does nothing.
    virtual void updateFieldList(const std::vector<std::string>& names, const std::string& field,
                                 const std::vector<CkelVariant>& values);
    /// Does nothing.
    virtual void updateDataList(const std::vector<tagStorageData>& records);

    /// @}

    /// Always true; nothing is loaded.
    virtual bool loadLocalDB();

    /// Always true; the file is not opened.
    bool readDBFile(const std::string& path);

    using CkelAbstractDataStorage::loadLocalDB;
    using CkelAbstractDataStorage::updateData;
    using CkelAbstractDataStorage::updateDataList;
    using CkelAbstractDataStorage::updateField;
    using CkelAbstractDataStorage::updateFieldList;
    using CkelAbstractDataStorage::updateValue;
    using CkelAbstractDataStorage::updateValueList;

private:
    CkelMutex m_mutex;
};

} // namespace Ombrin
