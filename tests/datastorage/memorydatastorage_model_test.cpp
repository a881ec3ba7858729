#include "tests/datastorage/storagefixture.h"

#include <cstdlib>
#include <map>
#include <optional>
#include <random>

using namespace Ombrin;
using namespace KelTest;

// Random operations on the storage and on a model that is slow and obviously right, compared after each.

namespace {

/// Items in an ordered map, found by looking at all of them.
class Model
{
public:
    std::map<unsigned int, tagStorageData> items;
    std::map<std::string, unsigned int> names;
    std::vector<Announcement> events;

    tagStorageData* live(unsigned int id)
    {
        const auto item = items.find(id);
        return item != items.end() && item->second.Dirty != 3 ? &item->second : nullptr;
    }

    unsigned int idOf(const std::string& name)
    {
        const auto entry = names.find(name);
        return entry != names.end() && live(entry->second) ? entry->second : 0;
    }

    static CkelVariant convert(unsigned int type, const CkelVariant& value)
    {
        const bool integer = (type >= 1 && type <= 7) || type == 11 || type == 12 || type == 14;
        if (integer && value.canConvert(CkelVariant::LongLong))
            return value.toLongLong();
        if ((type == 8 || type == 9) && value.canConvert(CkelVariant::Double))
            return value.toDouble();
        if (type == 10 && value.canConvert(CkelVariant::String))
            return value.toStdString();
        if ((type == 13 || type == 16) && value.canConvert(CkelVariant::ULongLong))
            return value.toULongLong();
        return {};
    }

    void store(tagStorageData& item, const CkelVariant& value, bool merge)
    {
        item.Value = value;
        events.push_back({item.ID, value, 10, merge ? 1 : 0});
    }

    void insert(const tagStorageData& record)
    {
        if (record.ID == 0)
            return;
        if (items.count(record.ID) == 0) {
            items[record.ID] = record;
            items[record.ID].Dirty = 1;
            names.insert({record.NameID, record.ID});
        } else if (items[record.ID].Dirty == 3) {
            items[record.ID].Dirty = 1;
        }
    }

    void remove(unsigned int id)
    {
        if (items.count(id) != 0)
            items[id].Dirty = 3;
    }

    CkelVariant update(unsigned int id, const CkelVariant& value, bool merge)
    {
        tagStorageData* const item = live(id);
        if (!item)
            return {};
        const CkelVariant before = item->Value;
        if (value.isNull() || convert(item->ValueT, value).cmp(before))
            return before;
        item->Dirty = 2;
        store(*item, convert(item->ValueT, value), merge);
        return before;
    }

    void updateRecord(const tagStorageData& record, bool merge)
    {
        tagStorageData* const item = live(record.ID);
        if (!item)
            return;
        if (item->Dirty != 1)
            item->Dirty = 2;
        item->CommSource = record.CommSource;
        item->DBSource = record.DBSource;
        item->RW = record.RW;
        item->Block = record.Block;
        item->ValueT = record.ValueT;
        item->DefValue = convert(record.ValueT, record.DefValue);
        item->Max = convert(record.ValueT, record.Max);
        item->Min = convert(record.ValueT, record.Min);
        const CkelVariant value = convert(record.ValueT, record.Value);
        if (!value.cmp(item->Value))
            store(*item, value, merge);
    }

    void updateField(unsigned int id, const std::string& field, const CkelVariant& value, bool merge)
    {
        if (field == "Value") {
            update(id, value, merge);
            return;
        }
        if (value.isNull() || items.count(id) == 0)
            return;
        tagStorageData& item = items[id];
        const auto byte = static_cast<std::uint8_t>(value.toUInt() % 256);
        if (field == "Dirty") {
            item.Dirty = byte;
            return;
        }
        if (item.Dirty == 1 || item.Dirty == 3)
            return;
        if (field == "RW")
            item.RW = byte;
        else if (field == "Block")
            item.Block = byte;
        else if (field == "CommSource")
            item.CommSource = byte;
        else if (field == "DefValue")
            item.DefValue = convert(item.ValueT, value);
        else if (field == "Max")
            item.Max = convert(item.ValueT, value);
        else if (field == "Min")
            item.Min = convert(item.ValueT, value);
        else
            return;
        item.Dirty = 2;
    }

    void reset()
    {
        for (auto& [id, item] : items) {
            item.Value = item.DefValue;
            item.Dirty = 2;
        }
    }
};

/// Random arguments out of small sets, so that operations meet.
class Dice
{
public:
    explicit Dice(unsigned int seed) : m_engine(seed) {}

    unsigned int below(unsigned int limit)
    {
        return std::uniform_int_distribution<unsigned int>(0, limit - 1)(m_engine);
    }
    bool coin() { return below(2) == 0; }
    unsigned int id() { return below(12); }
    std::string name() { return "item" + std::to_string(below(14)); }
    std::uint8_t byte() { return static_cast<std::uint8_t>(below(256)); }

    std::string field()
    {
        static const char* const names[] = {"ID",    "NameID",   "CommSource", "RW",  "Block",   "ValueT",
                                            "Value", "DefValue", "Max",        "Min", "DBSource"};
        return names[below(std::size(names))];
    }

    CkelVariant value()
    {
        switch (below(9)) {
        case 0:
            return {};
        case 1:
            return coin();
        case 2:
            return static_cast<int>(below(7)) - 3;
        case 3:
            return below(5);
        case 4:
            return (below(9) - 4.0) / 2;
        case 5:
            return std::to_string(below(5));
        case 6:
            return "text";
        case 7:
            return 1ULL << below(64);
        default:
            return -static_cast<long long>(1ULL << below(63));
        }
    }

    tagStorageData record()
    {
        tagStorageData record{};
        record.ID = id();
        record.NameID = name();
        record.CommSource = byte();
        record.DBSource = byte();
        record.RW = byte();
        record.Block = byte();
        record.ValueT = static_cast<std::uint8_t>(below(18));
        record.Value = value();
        record.DefValue = value();
        record.Max = value();
        record.Min = value();
        return record;
    }

private:
    std::mt19937 m_engine;
};

unsigned int seedOfThisRun()
{
    const char* const given = std::getenv("KEL_TEST_SEED");
    return given ? static_cast<unsigned int>(std::strtoul(given, nullptr, 10)) : 20;
}

class StorageModel : public StorageTest
{
protected:
    LoadedStorage storage{{}};
    Model model;

    void step(Dice& dice)
    {
        const bool merge = false; // merged events are few; the sensor's own cases hold them
        switch (dice.below(10)) {
        case 0:
        case 1: {
            const tagStorageData record = dice.record();
            storage.insertData(record);
            model.insert(record);
            break;
        }
        case 2: {
            const unsigned int id = dice.id();
            storage.deleteData(id);
            model.remove(id);
            break;
        }
        case 3: {
            const std::string name = dice.name();
            const unsigned int id = model.idOf(name);
            storage.deleteData(name);
            model.remove(id);
            break;
        }
        case 4: {
            const unsigned int id = dice.id();
            const CkelVariant value = dice.value();
            EXPECT_VARIANT(storage.updateValue(id, value, merge), model.update(id, value, merge));
            break;
        }
        case 5: {
            const std::string name = dice.name();
            const CkelVariant value = dice.value();
            EXPECT_VARIANT(storage.updateValue(name, value, merge), model.update(model.idOf(name), value, merge));
            break;
        }
        case 6: {
            const tagStorageData record = dice.record();
            storage.updateData(record, merge);
            model.updateRecord(record, merge);
            break;
        }
        case 7: {
            const unsigned int id = dice.id();
            const std::string field = dice.field();
            const CkelVariant value = dice.value();
            storage.updateField(id, field, value, merge);
            model.updateField(id, field, value, merge);
            break;
        }
        case 8: {
            const unsigned int id = dice.id();
            const CkelVariant mark = dice.below(4);
            storage.updateField(id, "Dirty", mark, merge);
            model.updateField(id, "Dirty", mark, merge);
            break;
        }
        default:
            if (dice.below(20) == 0) {
                storage.reset();
                model.reset();
            }
        }
    }

    void compareItem(unsigned int id)
    {
        const tagStorageData* const expected = model.live(id);
        const tagStorageData actual = storage.queryData(id);
        ASSERT_EQ(actual.ID, expected ? id : 0U);
        if (!expected)
            return;
        EXPECT_EQ(actual.Dirty, expected->Dirty);
        EXPECT_EQ(actual.NameID, expected->NameID);
        EXPECT_EQ(actual.CommSource, expected->CommSource);
        EXPECT_EQ(actual.DBSource, expected->DBSource);
        EXPECT_EQ(actual.RW, expected->RW);
        EXPECT_EQ(actual.Block, expected->Block);
        EXPECT_EQ(actual.ValueT, expected->ValueT);
        EXPECT_VARIANT(actual.Value, expected->Value);
        EXPECT_VARIANT(actual.DefValue, expected->DefValue);
        EXPECT_VARIANT(actual.Max, expected->Max);
        EXPECT_VARIANT(actual.Min, expected->Min);
        EXPECT_VARIANT(storage.queryValue(id), expected->Value);
    }

    void compare()
    {
        for (unsigned int id = 0; id < 12; ++id)
            compareItem(id);
        for (int i = 0; i < 14; ++i) {
            const std::string name = "item" + std::to_string(i);
            EXPECT_EQ(storage.ID(name), model.idOf(name));
        }
        const auto received = listener.take();
        ASSERT_EQ(received.size(), model.events.size());
        for (std::size_t i = 0; i < received.size(); ++i) {
            EXPECT_EQ(received[i].id, model.events[i].id);
            EXPECT_VARIANT(received[i].value, model.events[i].value);
        }
        model.events.clear();
    }
};

} // namespace

TEST_F(StorageModel, RandomOperationsGiveTheModelsResults)
{
    const unsigned int seed = seedOfThisRun();
    SCOPED_TRACE("KEL_TEST_SEED=" + std::to_string(seed));
    Dice dice(seed);
    testing::internal::CaptureStdout(); // "Already Exists", many times
    for (int i = 0; i < 5000 && !HasFailure(); ++i) {
        SCOPED_TRACE("operation " + std::to_string(i));
        step(dice);
        compare();
    }
    testing::internal::GetCapturedStdout();
}
