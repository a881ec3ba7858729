#include "datastorage/kelmemorydatastorage.h"

#include "database/kelsqlitedb.h"
#include "datastorage/kelitemindex.h"
#include "datastorage/kelmemorydb.h"
#include "datastorage/kelparsedbjson.h"
#include "datastorage/kelrowvalues.h"
#include "datastorage/kelstoredform.h"
#include "kernel/kelapplicationplus.h"
#include "kernel/keldatasensor.h"
#include "kernel/kelevent.h"
#include "kernel/kelfile.h"
#include "kernel/kelreport.h"

#include <array>
#include <functional>
#include <mutex>
#include <utility>

namespace Ombrin {

namespace {

constexpr int collectionInterval = 1000; // milliseconds
constexpr int configurationColumns = 11;

/// One result for each element of `keys`, in their order.
template <typename Result, typename Key, typename Lookup>
std::vector<Result> forEach(const std::vector<Key>& keys, Lookup lookup)
{
    std::vector<Result> results;
    results.reserve(keys.size());
    for (const Key& key : keys)
        results.push_back(lookup(key));
    return results;
}

/// Calls `update` for each pair, or not at all when the lists do not pair up.
template <typename Key, typename Update>
void forEachPair(const std::vector<Key>& keys, const std::vector<CkelVariant>& values, Update update)
{
    if (keys.size() != values.size())
        return;
    for (std::size_t i = 0; i < keys.size(); ++i)
        update(keys[i], values[i]);
}

/// Calls `walk` with the comparison that `op` stands for; any other number selects nothing.
template <typename Walk>
auto withComparison(CkelAbstractDataStorage::Operator op, Walk walk) -> decltype(walk(std::equal_to<>()))
{
    switch (op) {
    case CkelAbstractDataStorage::Equal:
        return walk([](unsigned int a, unsigned int b) { return a == b; });
    case CkelAbstractDataStorage::NotEqual:
        return walk([](unsigned int a, unsigned int b) { return a != b; });
    case CkelAbstractDataStorage::Less:
        return walk([](unsigned int a, unsigned int b) { return a < b; });
    case CkelAbstractDataStorage::Greater:
        return walk([](unsigned int a, unsigned int b) { return a > b; });
    case CkelAbstractDataStorage::LessEqual:
        return walk([](unsigned int a, unsigned int b) { return a <= b; });
    case CkelAbstractDataStorage::GreaterEqual:
        return walk([](unsigned int a, unsigned int b) { return a >= b; });
    default:
        return {};
    }
}

CkelVariant fieldOf(const tagStorageData& record, const std::string& field)
{
    if (record.ID == 0)
        return {};
    if (field == "Value")
        return record.Value;
    if (field == "ID")
        return record.ID;
    if (field == "NameID")
        return record.NameID;
    if (field == "CommSource")
        return int{record.CommSource};
    if (field == "RW")
        return int{record.RW};
    if (field == "Block")
        return int{record.Block};
    if (field == "ValueT")
        return int{record.ValueT};
    if (field == "DefValue")
        return record.DefValue;
    if (field == "Max")
        return record.Max;
    if (field == "Min")
        return record.Min;
    return {}; // "Dirty" can be written by name, not read
}

std::uint8_t lowByte(const CkelVariant& value)
{
    return static_cast<std::uint8_t>(value.toUInt());
}

} // namespace

CkelMemoryDataStorage::CkelMemoryDataStorage(CkelObject* parent) : CkelAbstractDataStorage(parent)
{
    storeherits("CkelMemoryDataStorage");
    m_memoryDB = std::make_unique<CkelMemoryDB>(nullptr);
    m_timerId = startTimer(collectionInterval);
}

CkelMemoryDataStorage::~CkelMemoryDataStorage()
{
    killTimer(m_timerId);
}

CkelMutex* CkelMemoryDataStorage::mutex()
{
    return &m_mutex;
}

// Indexes

struct CkelMemoryDataStorage::Indexes
{
    explicit Indexes(std::vector<std::unique_ptr<tagStorageData>> items);

    std::unique_ptr<IDMap> ids = std::make_unique<IDMap>();
    std::unique_ptr<NameMap> names = std::make_unique<NameMap>(*ids);
};

/// The first of equal IDs and the first of equal names counts. The loop does nothing else: its looks into the tables
/// then wait for memory together.
CkelMemoryDataStorage::Indexes::Indexes(std::vector<std::unique_ptr<tagStorageData>> items)
{
    ids->reserve(items.size());
    names->reserve(items.size());
    for (auto& item : items) {
        const tagStorageData& record = *item;
        if (!ids->find(record.ID))
            ids->insert(std::move(item));
        names->insert(record);
    }
    ids->optimize();
}

void CkelMemoryDataStorage::adopt(Indexes&& indexes)
{
    m_idMap.swap(indexes.ids);
    m_nameMap.swap(indexes.names);
}

void CkelMemoryDataStorage::indexRecords(const std::vector<tagStorageData>& records)
{
    std::vector<std::unique_ptr<tagStorageData>> items;
    items.reserve(records.size());
    for (const tagStorageData& record : records) {
        if (record.ID != 0)
            items.push_back(std::make_unique<tagStorageData>(record));
    }
    adopt(Indexes(std::move(items)));
}

inline tagStorageData* CkelMemoryDataStorage::find(unsigned int id) const
{
    return m_idMap ? m_idMap->find(id) : nullptr;
}

inline bool CkelMemoryDataStorage::isLive(const tagStorageData& item) const
{
    return !m_idMap->anyDeleted() || item.Dirty != DirtyDeleted;
}

inline tagStorageData* CkelMemoryDataStorage::findLive(unsigned int id) const
{
    tagStorageData* const item = find(id);
    return item && isLive(*item) ? item : nullptr;
}

// Loading

void CkelMemoryDataStorage::readConfigFile(const std::string& path, bool useLocalDB)
{
    const CkelString name = CkelString::fromAscii(path.c_str(), -1);
    if (name.endsWith(".json", CkelString::CaseSensitive))
        readJsonFile(path);
    else if (name.endsWith(".db", CkelString::CaseSensitive))
        readDBFile(path);

    const bool isReadable = m_memoryDB->lookForTable();
    if (hasLocalDB() && (useLocalDB || !m_idMap))
        loadLocalDB();
    else if (isReadable) // a table that cannot be read now may hold saved values
        createLocalDB();
}

bool CkelMemoryDataStorage::readJsonFile(const std::string& path)
{
    CkelParseDBJson parser;
    if (&parser.parse(path) == &CkelParseDBJson::unread())
        return false;
    std::vector<tagStorageData> records = std::move(parser).dataList();
    if (!records.empty())
        indexRecords(records);
    m_loadedData = std::move(records);
    return !m_loadedData.empty();
}

bool CkelMemoryDataStorage::readDBFile(const std::string& path)
{
    if (!CkelFile::exists(path) || path == "kelmem.db")
        return false;
    CkelSqliteDB database;
    database.open(path);
    CkelSqliteDBOperator table(&database);
    table.selectTable("kel");
    CkelReport::Hold reports;
    std::vector<std::unique_ptr<tagStorageData>> items; // indexed at the end: the indexes then need not grow
    tagStorageData record{}; // reused on purpose: a field that a row does not set keeps the previous row's value
    bool anyRow = false;
    const auto visit = [&](const CkelSqliteVariantVector& row) {
        anyRow = true;
        if (!readConfigurationRow(row, record))
            reportUnknownType(record);
        else if (record.ID != 0)
            items.push_back(std::make_unique<tagStorageData>(record));
        return true;
    };
    const bool complete = table.forEachRow("SELECT * FROM kel", configurationColumns, visit);
    if (!complete)
        reports.discard(); // a file that cannot be read to its end has no rows
    if (!complete || !anyRow)
        return false;
    adopt(Indexes(std::move(items)));
    return true;
}

bool CkelMemoryDataStorage::hasLocalDB() const
{
    return m_memoryDB->hasMemoryDBTable();
}

bool CkelMemoryDataStorage::createLocalDB()
{
    m_memoryDB->rebuildMemoryDBTable(m_loadedData);
    return true;
}

bool CkelMemoryDataStorage::loadLocalDB()
{
    m_loadedData = std::move(m_memoryDB->loadMemoryDB());
    if (m_idMap) {
        restoreValues();
        return true;
    }
    std::vector<std::unique_ptr<tagStorageData>> items;
    items.reserve(m_loadedData.size());
    for (const tagStorageData& record : m_loadedData)
        items.push_back(std::make_unique<tagStorageData>(record));
    adopt(Indexes(std::move(items)));
    return true;
}

void CkelMemoryDataStorage::restoreValues()
{
    for (const tagStorageData& saved : m_loadedData) {
        if (tagStorageData* const item = find(saved.ID))
            item->Value = toStoreValue(item->ValueT, saved.Value);
    }
    // A table that could not be read to its end is no ground to throw away what it holds.
    if (m_idMap->size() != m_loadedData.size() && m_memoryDB->isLoadComplete())
        createLocalDB();
}

// Lookups

std::string CkelMemoryDataStorage::nameID(unsigned int id) const
{
    const tagStorageData* const item = findLive(id);
    return item ? item->NameID : std::string();
}

unsigned int CkelMemoryDataStorage::ID(const std::string& nameID) const
{
    const tagStorageData* const item = m_nameMap ? m_nameMap->find(nameID) : nullptr;
    return item && isLive(*item) ? item->ID : 0;
}

unsigned int CkelMemoryDataStorage::commSource(unsigned int id) const
{
    const tagStorageData* const item = findLive(id);
    return item ? item->CommSource : 0;
}

unsigned int CkelMemoryDataStorage::commSource(const std::string& nameID) const
{
    const unsigned int id = ID(nameID);
    return id != 0 ? commSource(id) : 0;
}

CkelVariant CkelMemoryDataStorage::queryValue(unsigned int id) const
{
    const tagStorageData* const item = findLive(id);
    return item ? item->Value : CkelVariant();
}

CkelVariant CkelMemoryDataStorage::queryValue(const std::string& nameID) const
{
    return queryValue(ID(nameID));
}

tagStorageData CkelMemoryDataStorage::queryData(unsigned int id) const
{
    const tagStorageData* const item = findLive(id);
    return item ? *item : tagStorageData{};
}

tagStorageData CkelMemoryDataStorage::queryData(const std::string& nameID) const
{
    return queryData(ID(nameID));
}

CkelVariant CkelMemoryDataStorage::queryField(unsigned int id, const std::string& field, FieldType /*type*/) const
{
    return fieldOf(queryData(id), field);
}

CkelVariant CkelMemoryDataStorage::queryField(const std::string& nameID, const std::string& field,
                                              FieldType /*type*/) const
{
    return fieldOf(queryData(nameID), field);
}

// Lists of lookups

std::vector<std::string> CkelMemoryDataStorage::nameIDList(const std::vector<unsigned int>& ids) const
{
    return forEach<std::string>(ids, [this](unsigned int id) { return nameID(id); });
}

std::vector<unsigned int> CkelMemoryDataStorage::IDList(const std::vector<std::string>& names) const
{
    return forEach<unsigned int>(names, [this](const std::string& name) { return ID(name); });
}

std::vector<unsigned int> CkelMemoryDataStorage::commSourceList(const std::vector<unsigned int>& ids) const
{
    return forEach<unsigned int>(ids, [this](unsigned int id) { return commSource(id); });
}

std::vector<unsigned int> CkelMemoryDataStorage::commSourceList(const std::vector<std::string>& names)
{
    return forEach<unsigned int>(names, [this](const std::string& name) { return commSource(name); });
}

std::vector<CkelVariant> CkelMemoryDataStorage::queryValueList(const std::vector<unsigned int>& ids) const
{
    return forEach<CkelVariant>(ids, [this](unsigned int id) { return queryValue(id); });
}

std::vector<CkelVariant> CkelMemoryDataStorage::queryValueList(const std::vector<std::string>& names)
{
    return forEach<CkelVariant>(names, [this](const std::string& name) { return queryValue(name); });
}

std::vector<tagStorageData> CkelMemoryDataStorage::queryDataList(const std::vector<unsigned int>& ids) const
{
    return forEach<tagStorageData>(ids, [this](unsigned int id) { return queryData(id); });
}

std::vector<tagStorageData> CkelMemoryDataStorage::queryDataList(const std::vector<std::string>& names) const
{
    return forEach<tagStorageData>(names, [this](const std::string& name) { return queryData(name); });
}

std::vector<CkelVariant> CkelMemoryDataStorage::queryFieldList(const std::vector<unsigned int>& ids,
                                                               const std::string& field, FieldType type) const
{
    return forEach<CkelVariant>(ids, [&](unsigned int id) { return queryField(id, field, type); });
}

std::vector<CkelVariant> CkelMemoryDataStorage::queryFieldList(const std::vector<std::string>& names,
                                                               const std::string& field, FieldType type) const
{
    return forEach<CkelVariant>(names, [&](const std::string& name) { return queryField(name, field, type); });
}

// Insertion and deletion

void CkelMemoryDataStorage::insertData(const tagStorageData& record)
{
    if (record.ID == 0 || !m_idMap)
        return;
    if (tagStorageData* const item = find(record.ID)) {
        if (item->Dirty == DirtyDeleted)
            m_idMap->setMark(*item, DirtyInserted);
        else
            CkelReport::print("CkelMemoryDataStorage::insertData: ID= " + std::to_string(record.ID) +
                              " Already Exists");
        return;
    }
    auto item = std::make_unique<tagStorageData>(record);
    item->Dirty = DirtyInserted;
    m_nameMap->reserve(m_nameMap->size() + 1); // first: an item that its name does not find is none
    m_idMap->insert(std::move(item));
    m_nameMap->insert(record);
}

void CkelMemoryDataStorage::insertDataList(const std::vector<tagStorageData>& records)
{
    for (const tagStorageData& record : records)
        insertData(record);
}

void CkelMemoryDataStorage::deleteData(unsigned int id)
{
    if (id == 0)
        return;
    if (tagStorageData* const item = find(id))
        m_idMap->setMark(*item, DirtyDeleted);
}

void CkelMemoryDataStorage::deleteData(const std::string& nameID)
{
    deleteData(ID(nameID));
}

void CkelMemoryDataStorage::deleteDataList(const std::vector<unsigned int>& ids)
{
    for (const unsigned int id : ids)
        deleteData(id);
}

void CkelMemoryDataStorage::deleteDataList(const std::vector<std::string>& names)
{
    for (const std::string& name : names)
        deleteData(name);
}

// Selections

/// The IDs of the items that are not deleted and pass `test`.
template <typename Test>
std::vector<unsigned int> CkelMemoryDataStorage::select(Test test) const
{
    std::vector<unsigned int> ids;
    if (!m_idMap)
        return ids;
    const bool allLive = !m_idMap->anyDeleted();
    m_idMap->forEach([&](const tagStorageData& item) {
        if (test(item) && (allLive || item.Dirty != DirtyDeleted))
            ids.push_back(item.ID);
    });
    return ids;
}

std::vector<unsigned int> CkelMemoryDataStorage::validID(unsigned int first, unsigned int last) const
{
    const unsigned int width = first < last ? last - first : 0;
    return select([=](const tagStorageData& item) { return item.ID - first < width; }); // one branch, not two
}

std::vector<unsigned int> CkelMemoryDataStorage::validID(unsigned int id, Operator op) const
{
    if (op == Equal && m_idMap)
        return {id}; // not looked up: the list operation that follows has an answer for every ID
    return withComparison(
        op, [&](auto compare) { return select([=](const tagStorageData& item) { return compare(item.ID, id); }); });
}

std::vector<unsigned int> CkelMemoryDataStorage::validIDByBlock(unsigned int block, Operator op) const
{
    return withComparison(op, [&](auto compare) {
        return select([=](const tagStorageData& item) { return compare(item.Block, block); });
    });
}

std::vector<unsigned int> CkelMemoryDataStorage::validIDByDirty(unsigned int mark, Operator op) const
{
    if (!m_idMap)
        return {};
    // Whether the smaller marks, the mark itself and the larger ones are wanted.
    const auto parts = withComparison(op, [](auto compare) {
        return std::array<bool, 3>{compare(0U, 1U), compare(1U, 1U), compare(1U, 0U)};
    });
    IDMap::Marks wanted{};
    for (unsigned int i = 0; i < wanted.size(); ++i)
        wanted[i] = parts[i < mark ? 0 : i == mark ? 1 : 2];
    return m_idMap->withMarks(wanted);
}

std::vector<unsigned int> CkelMemoryDataStorage::selectByField(const std::string& field, const CkelVariant& value,
                                                               Operator op) const
{
    if (field == "Block")
        return validIDByBlock(value.toUInt(), op);
    if (field == "Dirty")
        return validIDByDirty(value.toUInt(), op);
    CkelReport::print("CkelMemoryDataStorage::deleteDataListByField: Not Support ByField" + field);
    return {};
}

void CkelMemoryDataStorage::deleteDataList(unsigned int id, Operator op)
{
    deleteDataList(validID(id, op));
}

void CkelMemoryDataStorage::deleteDataListBetween(unsigned int from, unsigned int to)
{
    deleteDataList(validID(from, to));
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the interface takes this one by value
void CkelMemoryDataStorage::deleteDataListByField(std::string field, FieldType /*type*/, const CkelVariant& value,
                                                  Operator op)
{
    const std::vector<unsigned int> ids = selectByField(field, value, op);
    if (!ids.empty())
        deleteDataList(ids);
}

std::vector<CkelVariant> CkelMemoryDataStorage::queryValueList(unsigned int id, Operator op) const
{
    return queryValueList(validID(id, op));
}

std::vector<tagStorageData> CkelMemoryDataStorage::queryDataList(unsigned int id, Operator op) const
{
    return queryDataList(validID(id, op));
}

std::vector<CkelVariant> CkelMemoryDataStorage::queryValueListBetween(unsigned int from, unsigned int to) const
{
    return queryValueList(validID(from, to));
}

std::vector<tagStorageData> CkelMemoryDataStorage::queryDataListBetween(unsigned int from, unsigned int to) const
{
    return queryDataList(validID(from, to));
}

std::vector<CkelVariant> CkelMemoryDataStorage::queryFieldList(unsigned int id, const std::string& field,
                                                               FieldType type, Operator op) const
{
    return queryFieldList(validID(id, op), field, type);
}

std::vector<CkelVariant> CkelMemoryDataStorage::queryFieldListBetween(unsigned int from, unsigned int to,
                                                                      const std::string& field, FieldType type) const
{
    return queryFieldList(validID(from, to), field, type);
}

std::vector<CkelVariant> CkelMemoryDataStorage::queryValueListByField(const std::string& field, FieldType /*type*/,
                                                                      const CkelVariant& value, Operator op) const
{
    const std::vector<unsigned int> ids = selectByField(field, value, op);
    return ids.empty() ? std::vector<CkelVariant>() : queryValueList(ids);
}

std::vector<tagStorageData> CkelMemoryDataStorage::queryDataListByField(const std::string& field, FieldType /*type*/,
                                                                        const CkelVariant& value, Operator op) const
{
    const std::vector<unsigned int> ids = selectByField(field, value, op);
    return ids.empty() ? std::vector<tagStorageData>() : queryDataList(ids);
}

// Saving

void CkelMemoryDataStorage::timerEvent(CkelTimerEvent* /*event*/)
{
    if (hasLocalDB())
        syncToMemoryDB();
}

void CkelMemoryDataStorage::syncToMemoryDB()
{
    CkelMutex* const shared = mutex();
    const auto lock = shared ? std::unique_lock<CkelMutex>(*shared) : std::unique_lock<CkelMutex>();
    pushMarked(DirtyModified, tagDBBlock::Update);
    pushMarked(DirtyInserted, tagDBBlock::Insert);
    pushDeleted();
}

void CkelMemoryDataStorage::pushMarked(DirtyMark mark, int blockKind)
{
    std::vector<tagStorageData> records = queryDataListByField("Dirty", AnyFieldType, int{mark}, Equal);
    if (records.empty())
        return;
    std::vector<unsigned int> ids;
    ids.reserve(records.size());
    for (const tagStorageData& record : records)
        ids.push_back(record.ID);
    m_memoryDB->push({blockKind, std::move(records)});
    for (const unsigned int id : ids)
        updateField(id, "Dirty", int{DirtyClean}, false);
}

void CkelMemoryDataStorage::pushDeleted()
{
    const std::vector<unsigned int> ids = validIDByDirty(DirtyDeleted, Equal);
    if (ids.empty())
        return;
    std::vector<tagStorageData> records(ids.size());
    for (std::size_t i = 0; i < ids.size(); ++i)
        records[i].ID = ids[i];
    m_memoryDB->push({tagDBBlock::Delete, std::move(records)}); // first: without memory for it, nothing is removed
    for (const unsigned int id : ids) {
        m_nameMap->erase(*find(id));
        m_idMap->erase(id);
    }
    m_nameMap->eraseOthers();
}

// Updates

CkelVariant CkelMemoryDataStorage::toStoreValue(unsigned int valueType, const CkelVariant& value) const
{
    return storedForm(valueType, value);
}

/// Stores and announces the value, or throws and does neither.
void CkelMemoryDataStorage::storeValue(tagStorageData& item, CkelVariant&& value, bool merge)
{
    auto event =
        std::make_unique<CkelAnyDataSensorEvent>(static_cast<int>(item.ID), value, CkelDataSensorEvent::AnyData,
                                                 merge ? CkelDataSensorEvent::Merge : CkelDataSensorEvent::NoMerge);
    item.Value.swap(value);
    try {
        CkelApplicationPlus::dataSensor()->post(event.release());
    } catch (...) {
        item.Value.swap(value);
        throw;
    }
}

CkelVariant CkelMemoryDataStorage::updateValue(unsigned int id, const CkelVariant& value, bool merge)
{
    tagStorageData* const item = findLive(id);
    if (!item)
        return {};
    CkelVariant before = item->Value;
    if (value.isNull())
        return before;
    CkelVariant converted = toStoreValue(item->ValueT, value);
    if (converted.cmp(before))
        return before;
    storeValue(*item, std::move(converted), merge);
    m_idMap->setMark(*item, DirtyModified);
    return before;
}

CkelVariant CkelMemoryDataStorage::updateValue(const std::string& nameID, const CkelVariant& value, bool merge)
{
    const unsigned int id = ID(nameID);
    return id != 0 ? updateValue(id, value, merge) : CkelVariant();
}

void CkelMemoryDataStorage::updateData(const tagStorageData& record, bool merge)
{
    tagStorageData* const item = record.ID != 0 ? findLive(record.ID) : nullptr;
    if (!item)
        return;
    // What can run out of memory comes first.
    CkelVariant value = toStoreValue(record.ValueT, record.Value);
    CkelVariant defValue = toStoreValue(record.ValueT, record.DefValue);
    CkelVariant max = toStoreValue(record.ValueT, record.Max);
    CkelVariant min = toStoreValue(record.ValueT, record.Min);
    if (!value.cmp(item->Value))
        storeValue(*item, std::move(value), merge);

    item->CommSource = record.CommSource;
    item->DBSource = record.DBSource;
    item->RW = record.RW;
    item->Block = record.Block;
    item->ValueT = record.ValueT;
    item->DefValue = std::move(defValue);
    item->Max = std::move(max);
    item->Min = std::move(min);
    if (item->Dirty != DirtyInserted)
        m_idMap->setMark(*item, DirtyModified);
}

void CkelMemoryDataStorage::updateDataList(const std::vector<tagStorageData>& records, bool merge)
{
    for (const tagStorageData& record : records)
        updateData(record, merge);
}

void CkelMemoryDataStorage::updateValueList(const std::vector<unsigned int>& ids,
                                            const std::vector<CkelVariant>& values, bool merge)
{
    forEachPair(ids, values, [&](unsigned int id, const CkelVariant& value) { updateValue(id, value, merge); });
}

void CkelMemoryDataStorage::updateValueList(const std::vector<std::string>& names,
                                            const std::vector<CkelVariant>& values, bool merge)
{
    forEachPair(names, values,
                [&](const std::string& name, const CkelVariant& value) { updateValue(name, value, merge); });
}

void CkelMemoryDataStorage::updateFieldList(const std::vector<unsigned int>& ids, const std::string& field,
                                            const std::vector<CkelVariant>& values, bool merge)
{
    forEachPair(ids, values, [&](unsigned int id, const CkelVariant& value) { updateField(id, field, value, merge); });
}

void CkelMemoryDataStorage::updateFieldList(const std::vector<std::string>& names, const std::string& field,
                                            const std::vector<CkelVariant>& values, bool merge)
{
    forEachPair(names, values,
                [&](const std::string& name, const CkelVariant& value) { updateField(name, field, value, merge); });
}

void CkelMemoryDataStorage::reset()
{
    if (!m_idMap)
        return;
    m_idMap->forEach([this](tagStorageData& item) {
        item.Value = item.DefValue;
        m_idMap->setMark(item, DirtyModified);
    });
}

// Updates of one field

void CkelMemoryDataStorage::updateField(unsigned int id, const std::string& field, const CkelVariant& value, bool merge)
{
    if (field == "Value")
        updateValue(id, value, merge);
    else if (field == "RW")
        updateRW(id, value);
    else if (field == "Block")
        updateBlock(id, value);
    else if (field == "CommSource")
        updateCommSource(id, value);
    else if (field == "DefValue")
        updateDefValue(id, value);
    else if (field == "Max")
        updateMaxValue(id, value);
    else if (field == "Min")
        updateMinValue(id, value);
    else if (field == "Dirty")
        updateDirty(id, value);
}

void CkelMemoryDataStorage::updateField(const std::string& nameID, const std::string& field, const CkelVariant& value,
                                        bool merge)
{
    const unsigned int id = ID(nameID);
    if (id != 0)
        updateField(id, field, value, merge);
}

/// The item whose attribute may be written. Unlike its value, the attributes of an item that is inserted but not yet
/// collected are closed.
tagStorageData* CkelMemoryDataStorage::attributeTarget(unsigned int id, const CkelVariant& value) const
{
    tagStorageData* const item = value.isNull() ? nullptr : find(id);
    constexpr unsigned int exceptBitOfTwo = 0xFD; // 1 and 3 become 1
    return item && (item->Dirty & exceptBitOfTwo) != DirtyInserted ? item : nullptr;
}

void CkelMemoryDataStorage::updateByte(unsigned int id, std::uint8_t tagStorageData::*field, const CkelVariant& value)
{
    tagStorageData* const item = attributeTarget(id, value);
    if (!item)
        return;
    item->*field = lowByte(value);
    m_idMap->setMark(*item, DirtyModified);
}

void CkelMemoryDataStorage::updateVariant(unsigned int id, CkelVariant tagStorageData::*field, const CkelVariant& value)
{
    tagStorageData* const item = attributeTarget(id, value);
    if (!item)
        return;
    item->*field = toStoreValue(item->ValueT, value);
    m_idMap->setMark(*item, DirtyModified);
}

void CkelMemoryDataStorage::updateRW(unsigned int id, const CkelVariant& value)
{
    updateByte(id, &tagStorageData::RW, value);
}

void CkelMemoryDataStorage::updateBlock(unsigned int id, const CkelVariant& value)
{
    updateByte(id, &tagStorageData::Block, value);
}

void CkelMemoryDataStorage::updateCommSource(unsigned int id, const CkelVariant& value)
{
    updateByte(id, &tagStorageData::CommSource, value);
}

void CkelMemoryDataStorage::updateDefValue(unsigned int id, const CkelVariant& value)
{
    updateVariant(id, &tagStorageData::DefValue, value);
}

void CkelMemoryDataStorage::updateMaxValue(unsigned int id, const CkelVariant& value)
{
    updateVariant(id, &tagStorageData::Max, value);
}

void CkelMemoryDataStorage::updateMinValue(unsigned int id, const CkelVariant& value)
{
    updateVariant(id, &tagStorageData::Min, value);
}

void CkelMemoryDataStorage::updateDirty(unsigned int id, const CkelVariant& value)
{
    tagStorageData* const item = value.isNull() ? nullptr : find(id);
    if (item)
        m_idMap->setMark(*item, lowByte(value));
}

} // namespace Ombrin
