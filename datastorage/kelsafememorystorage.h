#pragma once

#include "datastorage/kelabstractdatastorage.h"
#include "kernel/kelglobal.h"

#include <memory>
#include <string>
#include <vector>

namespace Ombrin {

/// A data dictionary in memory for any number of threads.
///
/// Owns a CkelMemoryDataStorage of its own and forwards every call to it under that storage's lock, which the
/// collection of changes takes too. It shares no items with the factory's memory storage, but both save to the same
/// file.
///
/// **Threads.** Every operation is safe from any thread. The storage's timer runs on the thread that constructed it,
/// whose event loop has to turn for changes to be saved. Handlers of the data sensor may call the storage. Destroy it
/// when no other thread is inside.
///
/// Four operations of the memory storage cannot be called through this storage:
/// - commSourceList by names returns an empty list;
/// - loadLocalDB loads nothing and returns false; readConfigFile does the loading;
/// - toStoreValue returns the value unchanged;
/// - mutex() returns null: the lock belongs to the storage inside.
///
/// @snippet classes.cpp CkelSafeMemoryStorage
///
/// @ingroup datastorage
class KEL_EXPORT CkelSafeMemoryStorage : public CkelAbstractDataStorage
{
public:
    /// Opens "kelmem.db" and starts a timer of one second on the constructing thread, as CkelMemoryDataStorage does,
    /// and throws what that throws. `parent` owns the storage.
    explicit CkelSafeMemoryStorage(CkelObject* parent = nullptr);
    ~CkelSafeMemoryStorage() override;

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
    std::vector<unsigned int> commSourceList(const std::vector<unsigned int>& ids) const override;

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

    /// @name Updates
    /// @{

    CkelVariant updateValue(unsigned int id, const CkelVariant& value, bool merge) override;
    CkelVariant updateValue(const std::string& nameID, const CkelVariant& value, bool merge) override;
    void updateField(unsigned int id, const std::string& field, const CkelVariant& value, bool merge) override;
    void updateField(const std::string& nameID, const std::string& field, const CkelVariant& value,
                     bool merge) override;
    void updateData(const tagStorageData& record, bool merge) override;

    /// @}

    /// @name Lists of updates
    /// @{

    void updateValueList(const std::vector<unsigned int>& ids, const std::vector<CkelVariant>& values,
                         bool merge) override;
    void updateFieldList(const std::vector<unsigned int>& ids, const std::string& field,
                         const std::vector<CkelVariant>& values, bool merge) override;
    void updateValueList(const std::vector<std::string>& names, const std::vector<CkelVariant>& values,
                         bool merge) override;
    void updateFieldList(const std::vector<std::string>& names, const std::string& field,
                         const std::vector<CkelVariant>& values, bool merge) override;
    void updateDataList(const std::vector<tagStorageData>& records, bool merge) override;

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
    bool hasLocalDB() const override;

    /// @}

    /// Always an empty list.
    virtual std::vector<unsigned int> commSourceList(const std::vector<std::string>& names);

    /// Loads nothing; always false.
    virtual bool loadLocalDB();

    using CkelAbstractDataStorage::commSourceList;
    using CkelAbstractDataStorage::loadLocalDB;

private:
    template <typename Call>
    auto locked(Call call) const;
    template <typename Call>
    auto lockedWithReports(Call call) const;

    // Typed as the interface on purpose: it decides the results of the two operations above.
    const std::unique_ptr<CkelAbstractDataStorage> m_storage;
};

} // namespace Ombrin
