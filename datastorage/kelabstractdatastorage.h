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
/// Storages come from CkelDBStorageFactory. Which items there are is settled by readConfigFile(), to be called once at
/// the start.
///
/// **Results.** What is missing, refused or unsupported gives an empty result: an empty text, 0, a null variant, a
/// record with ID 0, an empty list, false. There is no other report of failure, apart from a line on standard output
/// here and there and from exceptions of the standard library (no memory; see CkelMemoryDataStorage::ID). Results are
/// copies: no later change reaches them.
///
/// **Own storages.** This class implements every operation: it does nothing and returns the empty result. A storage
/// overrides what it supports.
///
/// **Threads** are the matter of each storage: see its class.
///
/// @snippet classes.cpp CkelAbstractDataStorage
///
/// @ingroup datastorage
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
        Equal = 1,       ///< the item's ID or field == the argument
        NotEqual = 2,    ///< the item's ID or field != the argument
        Less = 3,        ///< the item's ID or field < the argument
        Greater = 4,     ///< the item's ID or field > the argument
        LessEqual = 5,   ///< the item's ID or field <= the argument
        GreaterEqual = 6 ///< the item's ID or field >= the argument
    };

    /// A hint about the field that goes with its name; the storages here go by the name alone.
    enum FieldType : int
    {
        AnyFieldType = 0,     ///< nothing is known; always right
        IntegerFieldType = 1, ///< whole numbers
        RealFieldType = 2,    ///< doubles
        TextFieldType = 3     ///< UTF-8 texts
    };

    /// `parent` owns the storage; with a null pointer the caller does.
    explicit CkelAbstractDataStorage(CkelObject* parent);
    ~CkelAbstractDataStorage() override;

    /// The mould-set IDs: one list for the process, empty at first. The library only keeps it. Not synchronised.
    static std::vector<unsigned int>& moldSetIDList();
    /// Replaces the list by a copy of `ids`.
    static void setMoldSetIDList(const std::vector<unsigned int>& ids);

    // The virtual operations, in an order that other libraries are built against: never reorder, never insert.

    /// @name Lookups
    /// @{

    /// The item's name; empty when there is no such item.
    virtual std::string nameID(unsigned int id) const;
    /// The item's ID; 0 when there is no such item.
    virtual unsigned int ID(const std::string& nameID) const;
    /// The channel that supplies the item, 0 to 255; 0 also when there is no such item.
    virtual unsigned int commSource(unsigned int id) const;
    /// The channel of the item called `nameID`.
    virtual unsigned int commSource(const std::string& nameID) const;
    /// `value` in the form in which the storage keeps values of the type `valueType`, a ValueTypeCode. Here, unlike
    /// all else, it is `value` itself.
    virtual CkelVariant toStoreValue(unsigned int valueType, const CkelVariant& value) const;

    /// @}

    /// @name Lists of lookups
    /// @{

    /// The items' names, one for each element of `ids` in its order; an empty text for a miss.
    virtual std::vector<std::string> nameIDList(const std::vector<unsigned int>& ids) const;
    /// The items' IDs, in the order of `names`; 0 for a miss.
    virtual std::vector<unsigned int> IDList(const std::vector<std::string>& names) const;
    /// The items' channels, in the order of `ids`; 0 for a miss.
    virtual std::vector<unsigned int> commSourceList(const std::vector<unsigned int>& ids) const;
    /// The same by names. No storage answers it through this interface: the list is empty.
    virtual std::vector<unsigned int> commSourceList(const std::vector<std::string>& names) const;

    /// @}

    /// @name Insertion and deletion
    /// @{

    /// Adds the item, as it is: nothing is converted to its value type, and no event is posted. A record with ID 0 is
    /// ignored; an ID that is there already is left as it is, and so is a name, which then leads to the older item.
    virtual void insertData(const tagStorageData& record);
    /// Adds the items one after the other.
    virtual void insertDataList(const std::vector<tagStorageData>& records);
    /// Takes the item out of sight at once. Nothing happens when there is no such item. No event is posted.
    virtual void deleteData(unsigned int id);
    /// Deletes the item called `nameID`.
    virtual void deleteData(const std::string& nameID);
    /// Deletes those of the items that are there.
    virtual void deleteDataList(const std::vector<unsigned int>& ids);
    /// Deletes those of the items that are there.
    virtual void deleteDataList(const std::vector<std::string>& names);
    /// Deletes the items whose ID compares so with `id` (the item's ID is the left operand).
    virtual void deleteDataList(unsigned int id, Operator op);
    /// Deletes the items with from <= ID < to.
    virtual void deleteDataListBetween(unsigned int from, unsigned int to);
    /// Deletes the items whose field compares so with `value` (the item's field is the left operand). `field` is one
    /// of those of queryValueListByField.
    virtual void deleteDataListByField(std::string field, FieldType type, const CkelVariant& value, Operator op);

    /// @}

    /// @name Queries
    /// @{

    /// The item's value; a null variant when there is no such item.
    virtual CkelVariant queryValue(unsigned int id) const;
    /// The value of the item called `nameID`.
    virtual CkelVariant queryValue(const std::string& nameID) const;
    /// The items' values, in the order of `ids`; a null variant for a miss.
    virtual std::vector<CkelVariant> queryValueList(const std::vector<unsigned int>& ids) const;
    /// The items' values, in the order of `names`; a null variant for a miss.
    virtual std::vector<CkelVariant> queryValueList(const std::vector<std::string>& names);
    /// A copy of the item; a record with ID 0 when there is no such item.
    virtual tagStorageData queryData(unsigned int id) const;
    /// A copy of the item called `nameID`.
    virtual tagStorageData queryData(const std::string& nameID) const;
    /// Copies of the items, in the order of `ids`; a record with ID 0 for a miss.
    virtual std::vector<tagStorageData> queryDataList(const std::vector<unsigned int>& ids) const;
    /// Copies of the items, in the order of `names`; a record with ID 0 for a miss.
    virtual std::vector<tagStorageData> queryDataList(const std::vector<std::string>& names) const;
    /// One field of the item, by its name: "ID", "NameID", "CommSource", "RW", "Block", "ValueT", "Value",
    /// "DefValue", "Max" or "Min". A null variant when there is no such item or field; the change mark "Dirty" and
    /// "DBSource" cannot be read so.
    virtual CkelVariant queryField(unsigned int id, const std::string& field, FieldType type) const;
    /// One field of the item called `nameID`.
    virtual CkelVariant queryField(const std::string& nameID, const std::string& field, FieldType type) const;
    /// One field of each item, in the order of `ids`; a null variant for a miss.
    virtual std::vector<CkelVariant> queryFieldList(const std::vector<unsigned int>& ids, const std::string& field,
                                                    FieldType type) const;
    /// One field of each item, in the order of `names`; a null variant for a miss.
    virtual std::vector<CkelVariant> queryFieldList(const std::vector<std::string>& names, const std::string& field,
                                                    FieldType type) const;

    /// @}

    /// @name Selections by ID
    /// @{

    /// The values of the items whose ID compares so with `id` (the item's ID is the left operand), in no particular
    /// order, here and below. With Equal, one result for `id` itself, whether there is such an item or not.
    virtual std::vector<CkelVariant> queryValueList(unsigned int id, Operator op) const;
    /// Copies of the items whose ID compares so with `id`; Equal as for queryValueList.
    virtual std::vector<tagStorageData> queryDataList(unsigned int id, Operator op) const;
    /// The values of the items with from <= ID < to.
    virtual std::vector<CkelVariant> queryValueListBetween(unsigned int from, unsigned int to) const;
    /// Copies of the items with from <= ID < to.
    virtual std::vector<tagStorageData> queryDataListBetween(unsigned int from, unsigned int to) const;
    /// One field, as named in queryField, of the items whose ID compares so with `id`; Equal as for queryValueList.
    virtual std::vector<CkelVariant> queryFieldList(unsigned int id, const std::string& field, FieldType type,
                                                    Operator op) const;
    /// One field, as named in queryField, of the items with from <= ID < to.
    virtual std::vector<CkelVariant> queryFieldListBetween(unsigned int from, unsigned int to, const std::string& field,
                                                           FieldType type) const;

    /// @}

    /// @name Updates
    /// @{

    /// Converts `value` to the item's value type and stores it. A value that differs is announced through the data
    /// sensor (CkelAnyDataSensorEvent) and marked to be saved; one that does not differ costs no more than the
    /// comparison. Returns the value before the update; a null variant when there is no such item. A null `value`
    /// changes nothing; one that cannot be converted makes the item's value null. The bounds are not applied.
    ///
    /// `merge`, here and below, is the merge flag of the event: the event then takes the place of a waiting one of the
    /// same item that carries the flag too, instead of following it.
    virtual CkelVariant updateValue(unsigned int id, const CkelVariant& value, bool merge);
    /// Updates the value of the item called `nameID`.
    virtual CkelVariant updateValue(const std::string& nameID, const CkelVariant& value, bool merge);
    /// Writes one field by its name: "Value" as updateValue does; "CommSource", "RW", "Block", "DefValue", "Max",
    /// "Min" and "Dirty" without an event. Bytes keep the low 8 bits of the number. Other names and a null `value`
    /// change nothing.
    virtual void updateField(unsigned int id, const std::string& field, const CkelVariant& value, bool merge);
    /// Writes one field of the item called `nameID`.
    virtual void updateField(const std::string& nameID, const std::string& field, const CkelVariant& value, bool merge);
    /// Writes every field but the name, the change mark and the reserved slots to the item with the record's ID, the
    /// four values converted to the record's value type. The value is announced if it differs; unlike in updateValue, a
    /// null value makes the item's value null. Nothing happens when there is no such item.
    virtual void updateData(const tagStorageData& record, bool merge);

    /// @}

    /// @name Lists of updates
    /// @{

    /// updateValue for each pair; nothing happens unless both lists have the same length.
    virtual void updateValueList(const std::vector<unsigned int>& ids, const std::vector<CkelVariant>& values,
                                 bool merge);
    /// updateField for each pair; nothing happens unless both lists have the same length.
    virtual void updateFieldList(const std::vector<unsigned int>& ids, const std::string& field,
                                 const std::vector<CkelVariant>& values, bool merge);
    /// updateValue for each pair; nothing happens unless both lists have the same length.
    virtual void updateValueList(const std::vector<std::string>& names, const std::vector<CkelVariant>& values,
                                 bool merge);
    /// updateField for each pair; nothing happens unless both lists have the same length.
    virtual void updateFieldList(const std::vector<std::string>& names, const std::string& field,
                                 const std::vector<CkelVariant>& values, bool merge);
    /// updateData for each record.
    virtual void updateDataList(const std::vector<tagStorageData>& records, bool merge);

    /// @}

    /// @name Selections by field
    /// @{

    /// The values of the items whose field compares so with `value` (the item's field is the left operand), in no
    /// particular order. `field` is "Block" or "Dirty"; others select nothing.
    virtual std::vector<CkelVariant> queryValueListByField(const std::string& field, FieldType type,
                                                           const CkelVariant& value, Operator op) const;
    /// Copies of the items that queryValueListByField selects.
    virtual std::vector<tagStorageData> queryDataListByField(const std::string& field, FieldType type,
                                                             const CkelVariant& value, Operator op) const;

    /// @}

    /// @name The whole storage
    /// @{

    /// Makes every value the item's default, and marks every item to be saved. Posts no events.
    virtual void reset();
    /// Fills the storage from a configuration file: a name that ends in ".json" is read as a JSON dictionary, one
    /// that ends in ".db" (small letters both) as a configuration database; any other name as if the file were missing.
    /// With `useLocalDB`, saved values take the place of the configured ones; without, they are thrown away. Posts no
    /// events. A malformed JSON dictionary ends the process: see CkelParseDBJson.
    virtual void readConfigFile(const std::string& path, bool useLocalDB);
    /// Fills the storage from the local database, where a storage offers it through this interface; true then. None
    /// here does: readConfigFile() is the way.
    virtual bool loadLocalDB(bool reload);
    /// Whether the local database holds a table of saved items.
    virtual bool hasLocalDB() const;
    /// The lock that threads sharing this storage hold around its operations; null when it has none to offer.
    virtual CkelMutex* mutex();

    /// @}

private:
    static std::vector<unsigned int> m_moldSetIDList;
};

} // namespace Ombrin
