#include "tests/datastorage/drivenstorage.h"
#include "tests/datastorage/storagefixture.h"

#include <algorithm>
#include <cstdlib>
#include <random>

using namespace Ombrin;
using namespace KelTest;

// Random operations on the storage and on a model that is slow and obviously right, compared after each.

namespace {

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

/// A storage with indexes that are empty.
class EmptyStorage : public DrivenStorage
{
public:
    EmptyStorage() { indexRecords({}); }
};

bool compares(unsigned int left, CkelAbstractDataStorage::Operator op, unsigned int right)
{
    switch (op) {
    case CkelAbstractDataStorage::Equal:
        return left == right;
    case CkelAbstractDataStorage::NotEqual:
        return left != right;
    case CkelAbstractDataStorage::Less:
        return left < right;
    case CkelAbstractDataStorage::Greater:
        return left > right;
    case CkelAbstractDataStorage::LessEqual:
        return left <= right;
    default:
        return left >= right;
    }
}

class StorageModel : public StorageTest
{
protected:
    EmptyStorage storage;
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
            const CkelVariant mark = dice.below(dice.coin() ? 4 : 256);
            storage.updateField(id, "Dirty", mark, merge);
            model.updateField(id, "Dirty", mark, merge);
            break;
        }
        default:
            if (dice.below(20) == 0) {
                storage.reset();
                model.reset();
            } else if (dice.coin()) {
                collect();
            }
        }
    }

    void collect()
    {
        storage.syncToMemoryDB();
        const auto blocks = storage.takeBlocks();
        const auto expected = model.collect();
        ASSERT_EQ(blocks.size(), expected.size());
        for (std::size_t i = 0; i < blocks.size(); ++i) {
            EXPECT_EQ(blocks[i].kind, expected[i].first);
            EXPECT_EQ(blocks[i].records.size(), expected[i].second.size());
        }
    }

    /// The items that each comparison with the mark selects.
    void compareMarks(unsigned int mark)
    {
        for (int op = CkelAbstractDataStorage::Equal; op <= CkelAbstractDataStorage::GreaterEqual; ++op) {
            const auto comparison = static_cast<CkelAbstractDataStorage::Operator>(op);
            std::vector<unsigned int> expected;
            for (const auto& [id, item] : model.items) {
                if (compares(item.Dirty, comparison, mark))
                    expected.push_back(id);
            }
            std::vector<unsigned int> selected = storage.validIDByDirty(mark, comparison);
            std::sort(selected.begin(), selected.end());
            EXPECT_EQ(selected, expected) << "operator " << op << ", mark " << mark;
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
        compareMarks(dice.below(dice.coin() ? 5 : 300));
    }
    testing::internal::GetCapturedStdout();
}
