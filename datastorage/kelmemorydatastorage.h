#pragma once

#include "datastorage/kelabstractdatastorage.h"
#include "kernel/kelglobal.h"
#include "kernel/kelmutex.h"

#include <memory>
#include <string>
#include <vector>

namespace Ombrin {

class CkelMemoryDB;

/// The data dictionary in memory.
///
/// Lookups by ID take one hash probe, lookups by name two. Every change of a value is announced through the data
/// sensor at once.
///
/// **Threads.** No operation locks. Use the storage on the thread that constructed it, which runs its timer; threads
/// that share it hold mutex() around every call, or use CkelSafeMemoryStorage.
///
/// **Saving.** The items are mirrored in the file "kelmem.db" of the working directory at construction; see
/// CkelMemoryDB for what survives there.
///
/// **Before loading** the storage holds no items and takes none: lookups miss, updates and insertions do nothing.
///
/// @snippet classes.cpp CkelMemoryDataStorage
///
/// @ingroup datastorage
class KEL_EXPORT CkelMemoryDataStorage : public CkelAbstractDataStorage
{
public:
    /// Opens "kelmem.db", and makes it if it is missing; starts the storage's timer of one second on the constructing
    /// thread. `parent` owns the storage. Waits up to five seconds for a file that another program holds locked. Throws
    /// std::system_error when the system has no file descriptors for the thread's first timer.
    explicit CkelMemoryDataStorage(CkelObject* parent = nullptr);

    /// Changes that have not reached the file are lost: they take one to two seconds, longer when blocks wait.
    ~CkelMemoryDataStorage() override;

    /// @name Saving
    /// @{

    /// Hands changes over to be saved, when there is a local table. Every timer event of the object does so, whatever
    /// its ID.
    void timerEvent(CkelTimerEvent* event) override;

    /// Queues modified, inserted and deleted items, in this order, as up to three blocks, clears their marks and
    /// removes deleted items for good. Holds mutex() all the while.
    void syncToMemoryDB();

    /// @}

    /// @name Lookups
    /// @{

    std::string nameID(unsigned int id) const override;

    /// Throws std::out_of_range when the name leads to an ID that is not there, which no operation leaves behind.
    unsigned int ID(const std::string& nameID) const override;
    unsigned int commSource(unsigned int id) const override;
    unsigned int commSource(const std::string& nameID) const override;

    /// Reads no state of the storage. Null for value-type codes without a stored form, and when `value` cannot be
    /// converted. Neither bound is applied.
    CkelVariant toStoreValue(unsigned int valueType, const CkelVariant& value) const override;

    /// @}

    /// @name Lists of lookups
    /// @{

    std::vector<std::string> nameIDList(const std::vector<unsigned int>& ids) const override;
    std::vector<unsigned int> IDList(const std::vector<std::string>& names) const override;
    std::vector<unsigned int> commSourceList(const std::vector<unsigned int>& ids) const override;

    /// @}

    /// @name Insertion and deletion
    /// An insertion reports an ID that is present on standard output and leaves it as it is. An ID that was deleted
    /// since the last collection comes back with its old contents.
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
    /// Another field than "Block" and "Dirty" is reported on standard output and selects nothing. A selection by mark
    /// sees deleted items too, whose values and records are empty.
    /// @{

    std::vector<CkelVariant> queryValueListByField(const std::string& field, FieldType type, const CkelVariant& value,
                                                   Operator op) const override;
    std::vector<tagStorageData> queryDataListByField(const std::string& field, FieldType type, const CkelVariant& value,
                                                     Operator op) const override;

    /// @}

    /// @name Selected IDs
    /// In no particular order. A selection by ID or block is one pass over all items. One by mark looks only at items
    /// that are not clean, unless clean ones are wanted, and takes constant time when no item has the mark.
    /// @{

    /// The items with first <= ID < last.
    std::vector<unsigned int> validID(unsigned int first, unsigned int last) const;
    /// The items whose ID compares so with `id`; with Equal, `id` itself without a look at the items.
    std::vector<unsigned int> validID(unsigned int id, Operator op) const;
    /// The items whose block compares so with `block`.
    std::vector<unsigned int> validIDByBlock(unsigned int block, Operator op) const;
    /// The items, deleted ones included, whose change mark compares so with `mark`.
    std::vector<unsigned int> validIDByDirty(unsigned int mark, Operator op) const;

    /// @}

    /// @name Updates
    /// @{

    CkelVariant updateValue(unsigned int id, const CkelVariant& value, bool merge) override;
    CkelVariant updateValue(const std::string& nameID, const CkelVariant& value, bool merge) override;

    /// "Dirty" sets the change mark of an item in any state: 3 deletes it; 0 keeps its contents and saves nothing of
    /// what has changed so far. Of a deleted item, every other field is closed: writing it does nothing. Of an item
    /// that is inserted and not yet collected, every field but "Value" and "Dirty" is.
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

    /// @name The whole storage
    /// reset() also brings deleted items back.
    /// @{

    void reset() override;

    /// The storage's lock; see the class comment. Never null. It is not recursive, and collecting changes takes it.
    CkelMutex* mutex() override;

    /// @}

    /// Channels by name, on a non-const storage of this type. Through the interface, or on a const storage, the
    /// interface's own operation answers: an empty list.
    virtual std::vector<unsigned int> commSourceList(const std::vector<std::string>& names);

    using CkelAbstractDataStorage::commSourceList;

    /// @name Loading
    /// readConfigFile() and its steps. A step that finds no record returns false and leaves the indexes as they are.
    /// @{

    /// Reads a JSON dictionary, whatever the name's ending. False when there is no item in it or no file; a malformed
    /// one ends the process.
    bool readJsonFile(const std::string& path);

    /// Reads a configuration database, whatever the name's ending, wholly or not at all. False when there is no file,
    /// no table "kel" or no row in it. "kelmem.db" is no configuration: it is refused under this name.
    bool readDBFile(const std::string& path);

    /// Rebuilds the local table from the records last read. Always true.
    bool createLocalDB();

    void readConfigFile(const std::string& path, bool useLocalDB) override;
    bool hasLocalDB() const override;

    /// Gives indexed items their saved values; without indexes, makes them from the saved items. A table that does not
    /// hold as many items as the index is rebuilt from its own rows. Always true.
    virtual bool loadLocalDB();

    using CkelAbstractDataStorage::loadLocalDB;

    /// @}

protected:
    /// Replaces the contents of both indexes by `records`, but those of ID 0. The first of equal IDs and the first of
    /// equal names counts.
    void indexRecords(const std::vector<tagStorageData>& records);

private:
    class [[gnu::visibility("hidden")]] IDMap;
    class [[gnu::visibility("hidden")]] NameMap;
    struct Indexes;

    void adopt(Indexes&& indexes);
    void restoreValues();

    template <typename Test>
    std::vector<unsigned int> select(Test test) const;
    std::vector<unsigned int> selectByField(const std::string& field, const CkelVariant& value, Operator op) const;
    void pushMarked(DirtyMark mark, int blockKind);
    void pushDeleted();

    bool isLive(const tagStorageData& item) const;
    tagStorageData* find(unsigned int id) const;
    tagStorageData* findLive(unsigned int id) const;
    void storeValue(tagStorageData& item, CkelVariant&& value, bool merge);

    tagStorageData* attributeTarget(unsigned int id, const CkelVariant& value) const;
    void updateByte(unsigned int id, std::uint8_t tagStorageData::*field, const CkelVariant& value);
    void updateVariant(unsigned int id, CkelVariant tagStorageData::*field, const CkelVariant& value);
    void updateRW(unsigned int id, const CkelVariant& value);
    void updateBlock(unsigned int id, const CkelVariant& value);
    void updateCommSource(unsigned int id, const CkelVariant& value);
    void updateDefValue(unsigned int id, const CkelVariant& value);
    void updateMaxValue(unsigned int id, const CkelVariant& value);
    void updateMinValue(unsigned int id, const CkelVariant& value);
    void updateDirty(unsigned int id, const CkelVariant& value);

    // These six in this order; further members come after them.
    std::unique_ptr<IDMap> m_idMap;
    std::unique_ptr<NameMap> m_nameMap;
    std::vector<tagStorageData> m_loadedData;
    CkelMutex m_mutex;
    std::unique_ptr<CkelMemoryDB> m_memoryDB;
    int m_timerId;
};

} // namespace Ombrin
