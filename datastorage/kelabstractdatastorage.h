#pragma once

#include "datastorage/kelstoragedata.h"
#include "kernel/kelglobal.h"
#include "kernel/kelmutex.h"
#include "kernel/kelobject.h"
#include "kernel/kelvariant.h"

#include <string>
#include <vector>

namespace Ombrin {

/// The interface through which applications read and write data items, whatever keeps them.
///
/// Storages come from CkelDBStorageFactory. Every operation here does nothing and returns an empty result (an empty
/// text, 0, a null variant, a record with ID 0, an empty list, false); a storage overrides what it supports. No
/// operation reports failure in any other way.
class KEL_EXPORT CkelAbstractDataStorage : public CkelObject
{
public:
    /// Kinds of storage that the factory hands out.
    enum DataOperatorType : int
    {
        FileStorage = 0,      ///< answers everything with an empty result
        MemoryStorage = 1,    ///< for the thread that runs its timer
        SafeMemoryStorage = 2 ///< for any number of threads
    };

    /// Comparisons of the selections. Any other number selects nothing.
    enum Operator : int
    {
        Equal = 1,
        NotEqual = 2,
        Less = 3,
        Greater = 4,
        LessEqual = 5,
        GreaterEqual = 6
    };

    /// A hint about the field that goes with its name; the storages here go by the name alone.
    enum FieldType : int
    {
        AnyFieldType = 0,
        IntegerFieldType = 1,
        RealFieldType = 2,
        TextFieldType = 3
    };

    explicit CkelAbstractDataStorage(CkelObject* parent);
    ~CkelAbstractDataStorage() override;

    /// The mould-set IDs: one list for the process, empty at first. The library only keeps it. Not synchronised.
    static std::vector<unsigned int>& moldSetIDList();
    static void setMoldSetIDList(const std::vector<unsigned int>& ids);

    // The virtual operations, in an order that other libraries are built against: never reorder, never insert.

    // Lookups

    /// The item's name; empty when there is no such item.
    virtual std::string nameID(unsigned int id) const;
    /// The item's ID; 0 when there is no such item.
    virtual unsigned int ID(const std::string& nameID) const;
    /// The channel that supplies the item; 0 when there is no such item.
    virtual unsigned int commSource(unsigned int id) const;
    virtual unsigned int commSource(const std::string& nameID) const;
    /// `value` in the form in which a storage keeps values of the value-type code `valueType`.
    virtual CkelVariant toStoreValue(unsigned int valueType, const CkelVariant& value) const;

    // Lists: one result for each element, in the order of the input, misses included.

    virtual std::vector<std::string> nameIDList(const std::vector<unsigned int>& ids) const;
    virtual std::vector<unsigned int> IDList(const std::vector<std::string>& names) const;
    virtual std::vector<unsigned int> commSourceList(const std::vector<unsigned int>& ids) const;
    virtual std::vector<unsigned int> commSourceList(const std::vector<std::string>& names) const;

    // Insertion and deletion

    /// Adds the item. An ID that is there already is left as it is.
    virtual void insertData(const tagStorageData& record);
    virtual void insertDataList(const std::vector<tagStorageData>& records);
    /// Takes the item out of sight at once. Nothing happens when there is no such item.
    virtual void deleteData(unsigned int id);
    virtual void deleteData(const std::string& nameID);
    virtual void deleteDataList(const std::vector<unsigned int>& ids);
    virtual void deleteDataList(const std::vector<std::string>& names);
    /// Deletes the items whose ID compares so with `id` (the item's ID is the left operand).
    virtual void deleteDataList(unsigned int id, Operator op);
    /// Deletes the items with from <= ID < to.
    virtual void deleteDataListBetween(unsigned int from, unsigned int to);
    /// Deletes the items whose field compares so with `value` (the item's field is the left operand).
    virtual void deleteDataListByField(std::string field, FieldType type, const CkelVariant& value, Operator op);

    // Queries

    /// The item's value; a null variant when there is no such item.
    virtual CkelVariant queryValue(unsigned int id) const;
    virtual CkelVariant queryValue(const std::string& nameID) const;
    virtual std::vector<CkelVariant> queryValueList(const std::vector<unsigned int>& ids) const;
    virtual std::vector<CkelVariant> queryValueList(const std::vector<std::string>& names);
    /// A copy of the item; a record with ID 0 when there is no such item.
    virtual tagStorageData queryData(unsigned int id) const;
    virtual tagStorageData queryData(const std::string& nameID) const;
    virtual std::vector<tagStorageData> queryDataList(const std::vector<unsigned int>& ids) const;
    virtual std::vector<tagStorageData> queryDataList(const std::vector<std::string>& names) const;
    /// One field of the item, by its name: "ID", "NameID", "CommSource", "RW", "Block", "ValueT", "Value",
    /// "DefValue", "Max" or "Min". A null variant when there is no such item or field.
    virtual CkelVariant queryField(unsigned int id, const std::string& field, FieldType type) const;
    virtual CkelVariant queryField(const std::string& nameID, const std::string& field, FieldType type) const;
    virtual std::vector<CkelVariant> queryFieldList(const std::vector<unsigned int>& ids, const std::string& field,
                                                    FieldType type) const;
    virtual std::vector<CkelVariant> queryFieldList(const std::vector<std::string>& names, const std::string& field,
                                                    FieldType type) const;

    // Selections by comparison of the ID (the item's ID is the left operand), or by range, from <= ID < to. Results
    // come in no particular order.

    virtual std::vector<CkelVariant> queryValueList(unsigned int id, Operator op) const;
    virtual std::vector<tagStorageData> queryDataList(unsigned int id, Operator op) const;
    virtual std::vector<CkelVariant> queryValueListBetween(unsigned int from, unsigned int to) const;
    virtual std::vector<tagStorageData> queryDataListBetween(unsigned int from, unsigned int to) const;
    virtual std::vector<CkelVariant> queryFieldList(unsigned int id, const std::string& field, FieldType type,
                                                    Operator op) const;
    virtual std::vector<CkelVariant> queryFieldListBetween(unsigned int from, unsigned int to, const std::string& field,
                                                           FieldType type) const;

    // Updates. `merge` is handed on as the merge flag of the change event: a queued event of the same item that also
    // carries it is replaced instead of followed.

    /// Converts `value` to the item's value type and stores it. A value that differs is announced through the data
    /// sensor. Returns the value before the update; a null variant when there is no such item. A null `value` changes
    /// nothing; one that cannot be converted makes the item's value null.
    virtual CkelVariant updateValue(unsigned int id, const CkelVariant& value, bool merge);
    virtual CkelVariant updateValue(const std::string& nameID, const CkelVariant& value, bool merge);
    /// Writes one field by its name: "Value" as updateValue does; "CommSource", "RW", "Block", "DefValue", "Max",
    /// "Min" and "Dirty" without an event. Other names are ignored.
    virtual void updateField(unsigned int id, const std::string& field, const CkelVariant& value, bool merge);
    virtual void updateField(const std::string& nameID, const std::string& field, const CkelVariant& value, bool merge);
    /// Writes every field of the item but its name.
    virtual void updateData(const tagStorageData& record, bool merge);

    // Paired lists: nothing happens unless both have the same length, other than 0.

    virtual void updateValueList(const std::vector<unsigned int>& ids, const std::vector<CkelVariant>& values,
                                 bool merge);
    virtual void updateFieldList(const std::vector<unsigned int>& ids, const std::string& field,
                                 const std::vector<CkelVariant>& values, bool merge);
    virtual void updateValueList(const std::vector<std::string>& names, const std::vector<CkelVariant>& values,
                                 bool merge);
    virtual void updateFieldList(const std::vector<std::string>& names, const std::string& field,
                                 const std::vector<CkelVariant>& values, bool merge);
    virtual void updateDataList(const std::vector<tagStorageData>& records, bool merge);

    // Selections by field, "Block" or "Dirty" (the item's field is the left operand).

    virtual std::vector<CkelVariant> queryValueListByField(const std::string& field, FieldType type,
                                                           const CkelVariant& value, Operator op) const;
    virtual std::vector<tagStorageData> queryDataListByField(const std::string& field, FieldType type,
                                                             const CkelVariant& value, Operator op) const;

    // The whole storage

    /// Makes every value the item's default. Posts no events.
    virtual void reset();
    /// Fills the storage from a configuration file: a name that ends in ".json" is read as a JSON dictionary, one
    /// that ends in ".db" as a configuration database. With `useLocalDB`, saved values take the place of the
    /// configured ones; without, they are thrown away.
    virtual void readConfigFile(const std::string& path, bool useLocalDB);
    /// Fills the storage from the local database, where a storage offers it through this interface.
    virtual bool loadLocalDB(bool reload);
    /// Whether the local database holds a table of saved items.
    virtual bool hasLocalDB() const;
    /// The lock that threads sharing this storage hold around its operations; null when it has none to offer.
    virtual CkelMutex* mutex();

private:
    static std::vector<unsigned int> m_moldSetIDList;
};

} // namespace Ombrin
