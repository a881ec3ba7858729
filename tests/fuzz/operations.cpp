#include "datastorage/kelmemorydatastorage.h"
#include "datastorage/kelmemorydb.h"
#include "datastorage/kelsafememorystorage.h"
#include "kernel/kelapplicationplus.h"
#include "kernel/keldatasensor.h"
#include "kernel/kelevent.h"
#include "kernel/keltimer.h"
#include "tests/datastorage/storagemodel.h"
#include "tests/fuzz/harness.h"

#include <algorithm>
#include <filesystem>

using namespace Ombrin;
using KelFuzz::Bytes;
using KelFuzz::require;
using KelTest::Announcement;
using KelTest::identical;
using KelTest::Model;

// Bytes as operations on a memory storage or a safe one, beside the model. The storages are made once and emptied
// before each case; their file is a folder, so that nothing is written, and the blocks that a collection queues are
// taken from the queue and compared.

namespace {

using Storage = CkelAbstractDataStorage;
using Records = std::vector<tagStorageData>;
using Variants = std::vector<CkelVariant>;
constexpr auto anyType = Storage::AnyFieldType;

/// A way to a private member, which an explicit instantiation may name.
template <typename Tag, auto member>
struct Opened
{
    friend auto memberOf(Tag /*tag*/) { return member; }
};

struct Inner
{
    friend auto memberOf(Inner tag);
};
struct MemoryDB
{
    friend auto memberOf(MemoryDB tag);
};
struct Timer
{
    friend auto memberOf(Timer tag);
};
struct Index
{
    friend auto memberOf(Index tag);
};
template struct Opened<Inner, &CkelSafeMemoryStorage::m_storage>;
template struct Opened<MemoryDB, &CkelMemoryDataStorage::m_memoryDB>;
template struct Opened<Timer, &CkelMemoryDB::m_timer>;
template struct Opened<Index, &CkelMemoryDataStorage::indexRecords>;

class Listener : public CkelObject
{
public:
    Listener() { CkelApplicationPlus::dataSensor()->attach(this); }

    void dataSensorEvent(CkelDataSensorEvent* event) override
    {
        const auto& change = dynamic_cast<const CkelAnyDataSensorEvent&>(*event);
        received.push_back({change.id(), change.value(), change.sensorType(), change.dataMerge()});
    }

    std::vector<Announcement> received;
};

/// A storage and the memory storage in which it keeps its items: itself, or its own.
struct Pair
{
    Storage& outer;
    CkelMemoryDataStorage& inner;

    CkelMemoryDB& database() const { return *(inner.*memberOf(MemoryDB())); }
};

/// Made once, and never destroyed: worker threads run until the process ends.
struct Everything
{
    Everything()
    {
        KelFuzz::printed();
        for (const Pair& pair : {memory(), safe()})
            (pair.database().*memberOf(Timer()))->stop(); // the queue is the case's
    }

    Pair memory() { return {memoryStorage, memoryStorage}; }
    Pair safe() { return {safeStorage, dynamic_cast<CkelMemoryDataStorage&>(*(safeStorage.*memberOf(Inner())))}; }

    int argc = 0;
    const bool folder = std::filesystem::create_directory("kelmem.db");
    CkelApplicationPlus application{argc, nullptr};
    Listener listener;
    CkelMemoryDataStorage memoryStorage;
    CkelSafeMemoryStorage safeStorage{nullptr};
};

// Arguments out of small sets, so that operations meet

unsigned int idFrom(Bytes& bytes)
{
    constexpr unsigned int rare[] = {0x7fffffff, 0x80000000, 0xffffffff, 12};
    const unsigned int choice = bytes.below(16);
    return choice < 12 ? choice : rare[choice - 12];
}

std::string nameFrom(Bytes& bytes)
{
    static const std::string rare[] = {"", std::string("item1\0", 6), "\xff\xfe", "'; DROP TABLE kel; --"};
    const unsigned int choice = bytes.below(18);
    return choice < 14 ? "item" + std::to_string(choice) : rare[choice - 14];
}

std::string fieldFrom(Bytes& bytes)
{
    static const char* const names[] = {"ID",    "NameID",   "CommSource", "RW",  "Block",    "ValueT", "Dirty",
                                        "Value", "DefValue", "Max",        "Min", "DBSource", "value"};
    return names[bytes.below(std::size(names))];
}

CkelVariant valueFrom(Bytes& bytes)
{
    switch (bytes.below(11)) {
    case 0:
        return {};
    case 1:
        return bytes.coin();
    case 2:
        return static_cast<int>(bytes.below(7)) - 3;
    case 3:
        return bytes.below(5);
    case 4:
        return (bytes.below(9) - 4.0) / 2;
    case 5:
        return std::to_string(bytes.below(5));
    case 6:
        return bytes.number<int>();
    case 7:
        return bytes.number<long long>();
    case 8:
        return bytes.number<unsigned long long>();
    case 9:
        return bytes.number<double>();
    default:
        return bytes.text(bytes.below(12));
    }
}

tagStorageData recordFrom(Bytes& bytes)
{
    tagStorageData record{};
    record.ID = idFrom(bytes);
    record.NameID = nameFrom(bytes);
    record.CommSource = bytes.byte();
    record.DBSource = bytes.byte();
    record.RW = bytes.byte();
    record.Block = static_cast<std::uint8_t>(bytes.below(6));
    record.ValueT = static_cast<std::uint8_t>(bytes.below(18));
    record.Dirty = static_cast<std::uint8_t>(bytes.below(5));
    record.Value = valueFrom(bytes);
    record.DefValue = valueFrom(bytes);
    record.Max = valueFrom(bytes);
    record.Min = valueFrom(bytes);
    return record;
}

template <typename T, typename Make>
std::vector<T> listFrom(Bytes& bytes, Make make)
{
    std::vector<T> list(bytes.below(5));
    for (T& element : list)
        element = make(bytes);
    return list;
}

Storage::Operator operatorFrom(Bytes& bytes)
{
    return static_cast<Storage::Operator>(bytes.below(8));
}

bool compares(unsigned int a, Storage::Operator op, unsigned int b)
{
    switch (static_cast<int>(op)) {
    case 1:
        return a == b;
    case 2:
        return a != b;
    case 3:
        return a < b;
    case 4:
        return a > b;
    case 5:
        return a <= b;
    case 6:
        return a >= b;
    default:
        return false;
    }
}

bool sameRecord(const tagStorageData& a, const tagStorageData& b)
{
    const auto nothing = [](const CkelVariant& variant) { return variant.isNull(); };
    return a.ID == b.ID && a.NameID == b.NameID && a.CommSource == b.CommSource && a.DBSource == b.DBSource &&
           a.RW == b.RW && a.Block == b.Block && a.ValueT == b.ValueT && a.Dirty == b.Dirty &&
           identical(a.Value, b.Value) && identical(a.DefValue, b.DefValue) && identical(a.Max, b.Max) &&
           identical(a.Min, b.Min) && std::all_of(a.Reserved.begin(), a.Reserved.end(), nothing);
}

template <typename T, typename Same>
bool sameLists(const std::vector<T>& a, const std::vector<T>& b, Same same)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), same);
}

/// One case: what is done to the storage is done to the model, and every answer compared.
class Case
{
public:
    Case(Pair pair, Listener& listener) : m_pair(pair), m_storage(pair.outer), m_listener(listener)
    {
        (m_pair.inner.*memberOf(Index()))({});
        compareEvents();
        KelFuzz::takePrinted();
    }

    void run(Bytes& bytes)
    {
        while (!bytes.atEnd())
            step(bytes);
        compareEverything();
        collect();
        compareEverything();
    }

private:
    void step(Bytes& bytes)
    {
        switch (bytes.below(20)) {
        case 0:
        case 1:
        case 2:
            insert(listFrom<tagStorageData>(bytes, recordFrom));
            break;
        case 3:
            removeByID(listFrom<unsigned int>(bytes, idFrom));
            break;
        case 4:
            removeByName(listFrom<std::string>(bytes, nameFrom));
            break;
        case 5:
            removeSelected(bytes);
            break;
        case 6:
        case 7:
            updateValue(bytes);
            break;
        case 8:
            updateValues(bytes);
            break;
        case 9:
            updateRecords(listFrom<tagStorageData>(bytes, recordFrom), bytes.coin());
            break;
        case 10:
        case 11:
            updateField(bytes);
            break;
        case 12:
            updateFields(bytes);
            break;
        case 13:
            queryByID(listFrom<unsigned int>(bytes, idFrom), fieldFrom(bytes));
            break;
        case 14:
            queryByName(listFrom<std::string>(bytes, nameFrom), fieldFrom(bytes));
            break;
        case 15:
            querySelected(bytes);
            break;
        case 16:
            m_storage.reset();
            m_model.reset();
            break;
        case 17:
            compareEvents();
            break;
        case 18:
            compareEverything();
            break;
        default:
            collect();
        }
    }

    void insert(const Records& records)
    {
        if (records.size() == 1)
            m_storage.insertData(records[0]);
        else
            m_storage.insertDataList(records);
        for (const tagStorageData& record : records)
            m_model.insert(record);
    }

    void removeByID(const std::vector<unsigned int>& ids)
    {
        if (ids.size() == 1)
            m_storage.deleteData(ids[0]);
        else
            m_storage.deleteDataList(ids);
        for (const unsigned int id : ids)
            m_model.remove(id);
    }

    void removeByName(const std::vector<std::string>& names)
    {
        if (names.size() == 1)
            m_storage.deleteData(names[0]);
        else
            m_storage.deleteDataList(names);
        for (const std::string& name : names)
            m_model.remove(m_model.idOf(name));
    }

    void updateValue(Bytes& bytes)
    {
        const bool byName = bytes.coin();
        const unsigned int id = idFrom(bytes);
        const std::string name = nameFrom(bytes);
        const CkelVariant value = valueFrom(bytes);
        const bool merge = bytes.coin();
        const CkelVariant before =
            byName ? m_storage.updateValue(name, value, merge) : m_storage.updateValue(id, value, merge);
        require(identical(before, m_model.update(byName ? m_model.idOf(name) : id, value, merge)),
                "an update returns the value before it");
    }

    void updateValues(Bytes& bytes)
    {
        const auto ids = listFrom<unsigned int>(bytes, idFrom);
        const auto names = listFrom<std::string>(bytes, nameFrom);
        const auto values = listFrom<CkelVariant>(bytes, valueFrom);
        const bool merge = bytes.coin();
        m_storage.updateValueList(ids, values, merge);
        for (std::size_t i = 0; i < ids.size() && ids.size() == values.size(); ++i)
            m_model.update(ids[i], values[i], merge);
        m_storage.updateValueList(names, values, merge);
        for (std::size_t i = 0; i < names.size() && names.size() == values.size(); ++i)
            m_model.update(m_model.idOf(names[i]), values[i], merge);
    }

    void updateRecords(const Records& records, bool merge)
    {
        if (records.size() == 1)
            m_storage.updateData(records[0], merge);
        else
            m_storage.updateDataList(records, merge);
        for (const tagStorageData& record : records)
            m_model.updateRecord(record, merge);
    }

    void updateField(Bytes& bytes)
    {
        const bool byName = bytes.coin();
        const unsigned int id = idFrom(bytes);
        const std::string name = nameFrom(bytes);
        const std::string field = fieldFrom(bytes);
        const CkelVariant value = valueFrom(bytes);
        const bool merge = bytes.coin();
        if (byName)
            m_storage.updateField(name, field, value, merge);
        else
            m_storage.updateField(id, field, value, merge);
        m_model.updateField(byName ? m_model.idOf(name) : id, field, value, merge);
    }

    void updateFields(Bytes& bytes)
    {
        const auto ids = listFrom<unsigned int>(bytes, idFrom);
        const auto names = listFrom<std::string>(bytes, nameFrom);
        const auto values = listFrom<CkelVariant>(bytes, valueFrom);
        const std::string field = fieldFrom(bytes);
        const bool merge = bytes.coin();
        m_storage.updateFieldList(ids, field, values, merge);
        for (std::size_t i = 0; i < ids.size() && ids.size() == values.size(); ++i)
            m_model.updateField(ids[i], field, values[i], merge);
        m_storage.updateFieldList(names, field, values, merge);
        for (std::size_t i = 0; i < names.size() && names.size() == values.size(); ++i)
            m_model.updateField(m_model.idOf(names[i]), field, values[i], merge);
    }

    // Lookups

    tagStorageData expectedRecord(unsigned int id)
    {
        const tagStorageData* const item = m_model.live(id);
        return item ? *item : tagStorageData{};
    }

    CkelVariant expectedField(unsigned int id, const std::string& field)
    {
        const tagStorageData* const item = m_model.live(id);
        if (!item || id == 0)
            return {};
        const std::map<std::string, CkelVariant> fields{
            {"ID", item->ID},       {"NameID", item->NameID},     {"CommSource", int{item->CommSource}},
            {"RW", int{item->RW}},  {"Block", int{item->Block}},  {"ValueT", int{item->ValueT}},
            {"Value", item->Value}, {"DefValue", item->DefValue}, {"Max", item->Max},
            {"Min", item->Min}};
        const auto found = fields.find(field);
        return found != fields.end() ? found->second : CkelVariant();
    }

    /// The answers for `ids`, which are what the keys of the query lead to.
    void compareAnswers(const std::vector<unsigned int>& ids, const std::string& field, const Variants& values,
                        const Records& records, const Variants& fields)
    {
        require(values.size() == ids.size() && records.size() == ids.size() && fields.size() == ids.size(),
                "a list query gives one answer for each element");
        for (std::size_t i = 0; i < ids.size(); ++i) {
            const tagStorageData expected = expectedRecord(ids[i]);
            require(sameRecord(records[i], expected), "a query gives the record");
            require(identical(values[i], expected.Value), "a query gives the value");
            require(identical(fields[i], expectedField(ids[i], field)), "a query gives the field");
        }
    }

    void queryByID(const std::vector<unsigned int>& ids, const std::string& field)
    {
        compareAnswers(ids, field, m_storage.queryValueList(ids), m_storage.queryDataList(ids),
                       m_storage.queryFieldList(ids, field, anyType));
        const auto names = m_storage.nameIDList(ids);
        const auto sources = m_storage.commSourceList(ids);
        require(names.size() == ids.size() && sources.size() == ids.size(), "a list lookup answers each element");
        for (std::size_t i = 0; i < ids.size(); ++i) {
            const tagStorageData expected = expectedRecord(ids[i]);
            require(names[i] == expected.NameID && m_storage.nameID(ids[i]) == expected.NameID, "an ID has its name");
            require(sources[i] == expected.CommSource && m_storage.commSource(ids[i]) == expected.CommSource,
                    "an ID has its channel");
            require(identical(m_storage.queryValue(ids[i]), expected.Value), "an ID has its value");
        }
    }

    void queryByName(const std::vector<std::string>& names, const std::string& field)
    {
        std::vector<unsigned int> ids;
        for (const std::string& name : names) {
            ids.push_back(m_model.idOf(name));
            require(m_storage.ID(name) == ids.back(), "a name has its ID");
            require(m_storage.commSource(name) == expectedRecord(ids.back()).CommSource, "a name has its channel");
        }
        require(m_storage.IDList(names) == ids, "names have their IDs");
        require(m_storage.commSourceList(names).empty(), "channels by names are not told through the interface");
        compareAnswers(ids, field, m_storage.queryValueList(names), m_storage.queryDataList(names),
                       m_storage.queryFieldList(names, field, anyType));
    }

    // Selections

    template <typename Test>
    std::vector<unsigned int> expectedIDs(bool deletedToo, Test test) const
    {
        std::vector<unsigned int> ids;
        for (const auto& [id, item] : m_model.items) {
            if ((deletedToo || item.Dirty != 3) && test(item))
                ids.push_back(id);
        }
        return ids;
    }

    std::vector<unsigned int> expectedByField(const std::string& field, unsigned int value, Storage::Operator op) const
    {
        if (field == "Block")
            return expectedIDs(false, [&](const tagStorageData& item) { return compares(item.Block, op, value); });
        return expectedIDs(true, [&](const tagStorageData& item) { return compares(item.Dirty, op, value); });
    }

    std::vector<unsigned int> expectedByID(unsigned int id, Storage::Operator op) const
    {
        if (op == Storage::Equal)
            return {id};
        return expectedIDs(false, [&](const tagStorageData& item) { return compares(item.ID, op, id); });
    }

    void expectUnsupported(const std::string& field)
    {
        m_model.printed += "CkelMemoryDataStorage::deleteDataListByField: Not Support ByField" + field + "\n";
    }

    /// Selections promise no order: the IDs come as the storage walks them, deleted items without theirs.
    void compareSelection(std::vector<unsigned int> expected, const Variants& values, const Records& records)
    {
        require(values.size() == expected.size() && records.size() == expected.size(),
                "a selection gives one answer for each item");
        std::vector<unsigned int> found;
        std::vector<unsigned int> live;
        for (std::size_t i = 0; i < records.size(); ++i) {
            require(sameRecord(records[i], expectedRecord(records[i].ID)), "a selection gives the record");
            require(identical(values[i], records[i].Value), "a selection gives the value");
            if (records[i].ID != 0)
                found.push_back(records[i].ID);
        }
        std::copy_if(expected.begin(), expected.end(), std::back_inserter(live),
                     [this](unsigned int id) { return id != 0 && m_model.live(id); });
        std::sort(found.begin(), found.end());
        require(found == live, "a selection gives the items that pass its test");
    }

    void querySelected(Bytes& bytes)
    {
        const unsigned int a = idFrom(bytes);
        const unsigned int b = idFrom(bytes);
        const Storage::Operator op = operatorFrom(bytes);
        const std::string field = fieldFrom(bytes);
        const CkelVariant value = bytes.below(6);
        const auto between =
            expectedIDs(false, [&](const tagStorageData& item) { return a <= item.ID && item.ID < b; });
        compareSelection(between, m_storage.queryValueListBetween(a, b), m_storage.queryDataListBetween(a, b));
        require(m_storage.queryFieldListBetween(a, b, field, anyType).size() == between.size(),
                "a selection gives one field for each item");
        compareSelection(expectedByID(a, op), m_storage.queryValueList(a, op), m_storage.queryDataList(a, op));
        require(m_storage.queryFieldList(a, field, anyType, op).size() == expectedByID(a, op).size(),
                "a comparison gives one field for each item");

        if (field == "Block" || field == "Dirty") {
            compareSelection(expectedByField(field, value.toUInt(), op),
                             m_storage.queryValueListByField(field, anyType, value, op),
                             m_storage.queryDataListByField(field, anyType, value, op));
        } else {
            require(m_storage.queryValueListByField(field, anyType, value, op).empty(), "other fields select nothing");
            expectUnsupported(field);
        }
    }

    void removeSelected(Bytes& bytes)
    {
        const unsigned int a = idFrom(bytes);
        const Storage::Operator op = operatorFrom(bytes);
        switch (bytes.below(3)) {
        case 0: {
            const unsigned int b = idFrom(bytes);
            m_storage.deleteDataListBetween(a, b);
            removeFromModel(
                expectedIDs(false, [&](const tagStorageData& item) { return a <= item.ID && item.ID < b; }));
            break;
        }
        case 1:
            m_storage.deleteDataList(a, op);
            removeFromModel(expectedByID(a, op));
            break;
        default:
            removeByField(fieldFrom(bytes), bytes.below(6), op);
        }
    }

    void removeByField(const std::string& field, unsigned int value, Storage::Operator op)
    {
        m_storage.deleteDataListByField(field, anyType, value, op);
        if (field == "Block" || field == "Dirty")
            removeFromModel(expectedByField(field, value, op));
        else
            expectUnsupported(field);
    }

    void removeFromModel(const std::vector<unsigned int>& ids)
    {
        for (const unsigned int id : ids)
            m_model.remove(id);
    }

    // What changes leave behind

    void collect()
    {
        m_pair.inner.syncToMemoryDB();
        for (const auto& [kind, records] : m_model.collect()) {
            require(!m_pair.database().isEmpty(), "every change is handed over");
            tagDBBlock block = m_pair.database().pop();
            std::sort(block.records.begin(), block.records.end(),
                      [](const tagStorageData& a, const tagStorageData& b) { return a.ID < b.ID; });
            require(block.kind == kind, "updates come first, then insertions, then deletions");
            require(sameLists(block.records, records, sameRecord), "the records are those of the change");
        }
        require(m_pair.database().isEmpty(), "nothing else is handed over");
    }

    void compareEvents()
    {
        m_listener.received.clear();
        CkelApplicationPlus::instance()->processEvents();
        const auto same = [](const Announcement& a, const Announcement& b) {
            return a.id == b.id && identical(a.value, b.value) && a.sensorType == b.sensorType && a.merge == b.merge;
        };
        require(sameLists(m_listener.received, m_model.events, same), "every change is announced, once and in order");
        m_model.events.clear();
    }

    void compareEverything()
    {
        compareEvents();
        const std::string printed = KelFuzz::takePrinted();
        require(printed == m_model.printed, "what is refused is printed");
        m_model.printed.clear();
        for (const auto& [id, item] : m_model.items)
            require(sameRecord(m_storage.queryData(id), expectedRecord(id)), "an item is as the model has it");
        for (const auto& [name, id] : m_model.names)
            require(m_storage.ID(name) == m_model.idOf(name), "a name leads where the model has it");
        require(m_storage.queryDataList(0, Storage::Greater).size() ==
                    expectedIDs(false, [](const tagStorageData&) { return true; }).size(),
                "there are no other items");
    }

    const Pair m_pair;
    Storage& m_storage;
    Listener& m_listener;
    Model m_model;
};

} // namespace

const std::vector<std::string> KelFuzz::endingChecks{};

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static auto& everything = *new Everything;
    Bytes bytes(data, size);
    Case(bytes.coin() ? everything.safe() : everything.memory(), everything.listener).run(bytes);
    return 0;
}
