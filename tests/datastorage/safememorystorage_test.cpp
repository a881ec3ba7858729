#include "datastorage/keldatastoragefactory.h"
#include "datastorage/kelitemindex.h"
#include "datastorage/kelsafememorystorage.h"
#include "tests/datastorage/storagefixture.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iostream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <thread>

using namespace Ombrin;
using namespace KelTest;

namespace {

using Storage = CkelAbstractDataStorage;
using IDs = std::vector<unsigned int>;
using Names = std::vector<std::string>;

/// Explicit instantiation may name private members: the one way to make an inner call throw.
template <auto Member>
struct ReachInner
{
    friend auto& innerStorageOf(CkelSafeMemoryStorage& storage) { return storage.*Member; }
};
auto& innerStorageOf(CkelSafeMemoryStorage& storage);
template struct ReachInner<&CkelSafeMemoryStorage::m_storage>;

template <auto Member>
struct ReachIndex
{
    friend auto& idIndexOf(CkelMemoryDataStorage& storage) { return storage.*Member; }
};
auto& idIndexOf(CkelMemoryDataStorage& storage);
template struct ReachIndex<&CkelMemoryDataStorage::m_idMap>;

constexpr const char* dictionary = R"({"kel":[
    {"ID":1,"NameID":"one","CommSource":2,"RW":3,"Block":4,"ValueT":9,"Value":1.0,"DefValue":10.0,"Max":9,"Min":0},
    {"ID":2,"NameID":"two","CommSource":5,"Value":2.0},
    {"ID":42,"NameID":"answer","ValueT":4,"Value":42}]})";

void writeDictionary()
{
    std::ofstream("dictionary.json") << dictionary;
}

class SafeStorage : public StorageTest
{
protected:
    SafeStorage()
    {
        writeDictionary();
        storage.readConfigFile("dictionary.json", false);
    }

    CkelSafeMemoryStorage storage;
    Storage& interface = storage;
};

} // namespace

TEST_F(SafeStorage, ClassNameIsInTheChain)
{
    EXPECT_EQ(storage.className(), "CkelSafeMemoryStorage");
    EXPECT_TRUE(storage.inherits("CkelAbstractDataStorage"));
    EXPECT_FALSE(storage.inherits("CkelMemoryDataStorage"));
}

TEST_F(SafeStorage, SharesNoItemsWithTheMemoryStorage)
{
    LoadedStorage plain({makeItem(7, "seven", 7)});
    storage.insertData(makeItem(8, "eight", 8));
    EXPECT_TRUE(storage.queryValue(7).isNull());
    EXPECT_TRUE(plain.queryValue(8).isNull());
    EXPECT_VARIANT(storage.queryValue(8), 8.0);
}

TEST_F(SafeStorage, ChannelsByNameAreAlwaysAnEmptyList)
{
    EXPECT_TRUE(storage.commSourceList(Names{"one", "two"}).empty());
    EXPECT_TRUE(interface.commSourceList(Names{"one", "two"}).empty());
    EXPECT_EQ(storage.commSourceList(IDs{1, 2, 3}), (IDs{2, 5, 0}));
}

TEST_F(SafeStorage, LoadingTheLocalDatabaseDoesNothing)
{
    EXPECT_TRUE(storage.hasLocalDB());
    storage.updateValue(1, 77, false);
    EXPECT_FALSE(storage.loadLocalDB());
    EXPECT_FALSE(interface.loadLocalDB(true));
    EXPECT_VARIANT(storage.queryValue(1), 77.0);
}

TEST_F(SafeStorage, ReportsTheInnerStoragesLocalDatabase)
{
    const TestFolder fresh;
    const CkelSafeMemoryStorage other;
    EXPECT_FALSE(other.hasLocalDB());
}

TEST_F(SafeStorage, OffersNoMutex)
{
    EXPECT_EQ(interface.mutex(), nullptr);
}

TEST_F(SafeStorage, ConversionIsTheInterfacesOwn)
{
    EXPECT_VARIANT(interface.toStoreValue(9, "text"), "text");
}

TEST_F(SafeStorage, HandlerMayCallTheStorage)
{
    struct Reader : CkelObject
    {
        explicit Reader(Storage& source) : storage(source) { CkelApplicationPlus::dataSensor()->attach(this); }
        void dataSensorEvent(CkelDataSensorEvent* event) override { seen = storage.queryValue(event->id()); }
        Storage& storage;
        CkelVariant seen;
    };
    Reader reader(storage);
    storage.updateValue(1, 5, false);
    application.processEvents();
    EXPECT_VARIANT(reader.seen, 5.0);
}

TEST_F(SafeStorage, StaysUsableAfterAnInnerException)
{
    auto& inner = dynamic_cast<CkelMemoryDataStorage&>(*innerStorageOf(storage));
    idIndexOf(inner)->erase(42);
    EXPECT_THROW(storage.queryValue("answer"), std::out_of_range);
    EXPECT_VARIANT(storage.queryValue("one"), 1.0);
}

TEST_F(SafeStorage, TwoThreadsUpdateDifferentItems)
{
    constexpr int updates = 2000;
    const auto count = [this](unsigned int id) {
        for (int i = 1; i <= updates; ++i)
            storage.updateValue(id, 1000 + i, false);
    };
    std::thread first(count, 1);
    std::thread second(count, 2);
    first.join();
    second.join();
    EXPECT_VARIANT(storage.queryValue(1), 1000.0 + updates);
    EXPECT_VARIANT(storage.queryValue(2), 1000.0 + updates);
    EXPECT_EQ(listener.take().size(), 2U * updates);
}

// The same operations on a safe and a plain storage give the same results.

namespace {

std::string textOf(const CkelVariant& value)
{
    return std::to_string(value.type()) + ":" + value.toStdString() + " ";
}

std::string textOf(const tagStorageData& r)
{
    return std::to_string(r.ID) + "|" + r.NameID + "|" + std::to_string(r.CommSource) + "|" +
           std::to_string(r.DBSource) + "|" + std::to_string(r.RW) + "|" + std::to_string(r.Block) + "|" +
           std::to_string(r.ValueT) + "|" + textOf(r.Value) + textOf(r.DefValue) + textOf(r.Max) + textOf(r.Min) +
           std::to_string(r.Dirty) + " ";
}

std::string textOf(const std::string& text)
{
    return text + " ";
}

std::string textOf(unsigned int number)
{
    return std::to_string(number) + " ";
}

template <typename T>
std::string textOf(const std::vector<T>& list)
{
    std::string text = "[";
    for (const T& element : list)
        text += textOf(element);
    return text + "]";
}

/// The same for storages whose maps iterate in different orders.
template <typename T>
std::string sortedTextOf(const std::vector<T>& list)
{
    std::vector<std::string> texts;
    for (const T& element : list)
        texts.push_back(textOf(element));
    std::sort(texts.begin(), texts.end());
    return textOf(texts);
}

class Arguments
{
public:
    explicit Arguments(unsigned int seed) : m_engine(seed) {}

    unsigned int below(unsigned int limit)
    {
        return std::uniform_int_distribution<unsigned int>(0, limit - 1)(m_engine);
    }
    unsigned int id() { return below(10); }
    std::string name() { return below(3) == 0 ? "answer" : "item" + std::to_string(below(10)); }
    IDs ids() { return {id(), id(), id()}; }
    Names names() { return {name(), name(), name()}; }
    std::string field()
    {
        static const char* const fields[] = {"ID", "NameID", "RW", "Block", "Value", "Max", "Dirty", "CommSource"};
        return fields[below(std::size(fields))];
    }
    std::string selectionField() { return below(2) == 0 ? "Block" : "Dirty"; }
    CkelVariant value() { return below(8) == 0 ? CkelVariant() : CkelVariant(below(6)); }
    std::vector<CkelVariant> values() { return {value(), value(), value()}; }
    Storage::Operator op() { return static_cast<Storage::Operator>(below(8)); }
    bool flag() { return below(2) == 0; }
    tagStorageData record()
    {
        tagStorageData record = makeItem(id(), name(), below(10));
        record.Block = static_cast<std::uint8_t>(below(5));
        record.ValueT = static_cast<std::uint8_t>(below(12));
        return record;
    }
    std::vector<tagStorageData> records() { return {record(), record()}; }

private:
    std::mt19937 m_engine;
};

constexpr auto anyField = Storage::AnyFieldType;
using Operation = std::function<std::string(Storage&, Arguments&)>;

/// Every forwarded operation, each taking its arguments from the same dice on both sides.
const std::vector<Operation>& operations()
{
    static const std::vector<Operation> list{
        [](Storage& s, Arguments& a) { return textOf(s.nameID(a.id())); },
        [](Storage& s, Arguments& a) { return textOf(s.ID(a.name())); },
        [](Storage& s, Arguments& a) { return textOf(s.commSource(a.id())); },
        [](Storage& s, Arguments& a) { return textOf(s.commSource(a.name())); },
        [](Storage& s, Arguments& a) { return textOf(s.nameIDList(a.ids())); },
        [](Storage& s, Arguments& a) { return textOf(s.IDList(a.names())); },
        [](Storage& s, Arguments& a) { return textOf(s.commSourceList(a.ids())); },
        [](Storage& s, Arguments& a) { return s.insertData(a.record()), std::string(); },
        [](Storage& s, Arguments& a) { return s.insertDataList(a.records()), std::string(); },
        [](Storage& s, Arguments& a) { return s.deleteData(a.id()), std::string(); },
        [](Storage& s, Arguments& a) { return s.deleteData(a.name()), std::string(); },
        [](Storage& s, Arguments& a) { return s.deleteDataList(a.ids()), std::string(); },
        [](Storage& s, Arguments& a) { return s.deleteDataList(a.names()), std::string(); },
        [](Storage& s, Arguments& a) {
            const unsigned int id = a.id();
            return s.deleteDataList(id, a.op()), std::string();
        },
        [](Storage& s, Arguments& a) {
            const unsigned int from = a.id();
            return s.deleteDataListBetween(from, from + 2), std::string();
        },
        [](Storage& s, Arguments& a) {
            const std::string field = a.selectionField();
            return s.deleteDataListByField(field, anyField, a.value(), Storage::Equal), std::string();
        },
        [](Storage& s, Arguments& a) { return textOf(s.queryValue(a.id())); },
        [](Storage& s, Arguments& a) { return textOf(s.queryValue(a.name())); },
        [](Storage& s, Arguments& a) { return textOf(s.queryValueList(a.ids())); },
        [](Storage& s, Arguments& a) { return textOf(s.queryValueList(a.names())); },
        [](Storage& s, Arguments& a) { return textOf(s.queryData(a.id())); },
        [](Storage& s, Arguments& a) { return textOf(s.queryData(a.name())); },
        [](Storage& s, Arguments& a) { return textOf(s.queryDataList(a.ids())); },
        [](Storage& s, Arguments& a) { return textOf(s.queryDataList(a.names())); },
        [](Storage& s, Arguments& a) {
            const unsigned int id = a.id();
            return textOf(s.queryField(id, a.field(), anyField));
        },
        [](Storage& s, Arguments& a) {
            const std::string name = a.name();
            return textOf(s.queryField(name, a.field(), anyField));
        },
        [](Storage& s, Arguments& a) {
            const IDs ids = a.ids();
            return textOf(s.queryFieldList(ids, a.field(), anyField));
        },
        [](Storage& s, Arguments& a) {
            const Names names = a.names();
            return textOf(s.queryFieldList(names, a.field(), anyField));
        },
        [](Storage& s, Arguments& a) {
            const unsigned int id = a.id();
            return sortedTextOf(s.queryValueList(id, a.op()));
        },
        [](Storage& s, Arguments& a) {
            const unsigned int id = a.id();
            return sortedTextOf(s.queryDataList(id, a.op()));
        },
        [](Storage& s, Arguments& a) {
            const unsigned int from = a.id();
            return sortedTextOf(s.queryValueListBetween(from, from + 4));
        },
        [](Storage& s, Arguments& a) {
            const unsigned int from = a.id();
            return sortedTextOf(s.queryDataListBetween(from, from + 4));
        },
        [](Storage& s, Arguments& a) {
            const unsigned int id = a.id();
            const std::string field = a.field();
            return sortedTextOf(s.queryFieldList(id, field, anyField, a.op()));
        },
        [](Storage& s, Arguments& a) {
            const unsigned int from = a.id();
            return sortedTextOf(s.queryFieldListBetween(from, from + 4, a.field(), anyField));
        },
        [](Storage& s, Arguments& a) {
            const unsigned int id = a.id();
            const CkelVariant value = a.value();
            return textOf(s.updateValue(id, value, a.flag()));
        },
        [](Storage& s, Arguments& a) {
            const std::string name = a.name();
            const CkelVariant value = a.value();
            return textOf(s.updateValue(name, value, a.flag()));
        },
        [](Storage& s, Arguments& a) {
            const unsigned int id = a.id();
            const std::string field = a.field();
            const CkelVariant value = a.value();
            return s.updateField(id, field, value, a.flag()), std::string();
        },
        [](Storage& s, Arguments& a) {
            const std::string name = a.name();
            const std::string field = a.field();
            const CkelVariant value = a.value();
            return s.updateField(name, field, value, a.flag()), std::string();
        },
        [](Storage& s, Arguments& a) {
            const tagStorageData record = a.record();
            return s.updateData(record, a.flag()), std::string();
        },
        [](Storage& s, Arguments& a) {
            const IDs ids = a.ids();
            const auto values = a.values();
            return s.updateValueList(ids, values, a.flag()), std::string();
        },
        [](Storage& s, Arguments& a) {
            const IDs ids = a.ids();
            const std::string field = a.field();
            const auto values = a.values();
            return s.updateFieldList(ids, field, values, a.flag()), std::string();
        },
        [](Storage& s, Arguments& a) {
            const Names names = a.names();
            const auto values = a.values();
            return s.updateValueList(names, values, a.flag()), std::string();
        },
        [](Storage& s, Arguments& a) {
            const Names names = a.names();
            const std::string field = a.field();
            const auto values = a.values();
            return s.updateFieldList(names, field, values, a.flag()), std::string();
        },
        [](Storage& s, Arguments& a) {
            const auto records = a.records();
            return s.updateDataList(records, a.flag()), std::string();
        },
        [](Storage& s, Arguments& a) {
            const std::string field = a.selectionField();
            const CkelVariant value = a.value();
            return sortedTextOf(s.queryValueListByField(field, anyField, value, a.op()));
        },
        [](Storage& s, Arguments& a) {
            const std::string field = a.selectionField();
            const CkelVariant value = a.value();
            return sortedTextOf(s.queryDataListByField(field, anyField, value, a.op()));
        },
        [](Storage& s, Arguments& a) {
            if (a.below(10) == 0)
                s.reset();
            return std::string();
        },
        [](Storage& s, Arguments& a) {
            if (a.below(20) == 0)
                s.readConfigFile("dictionary.json", false);
            return std::string();
        },
        [](Storage& s, Arguments& /*a*/) { return std::to_string(static_cast<int>(s.hasLocalDB())); },
    };
    return list;
}

std::string textOf(const std::vector<Announcement>& events)
{
    std::string text;
    for (const Announcement& event : events)
        text += textOf(event.id) + textOf(event.value) + textOf(static_cast<unsigned int>(event.merge));
    return text;
}

/// Two storages without a local table: their timers, which fire when they like, collect nothing.
class SafeAndPlainStorage : public StorageTest
{
protected:
    SafeAndPlainStorage()
    {
        writeDictionary();
        std::filesystem::create_directory("kelmem.db");
        safe = std::make_unique<CkelSafeMemoryStorage>();
        plain = std::make_unique<CkelMemoryDataStorage>();
        safe->readConfigFile("dictionary.json", false);
        plain->readConfigFile("dictionary.json", false);
    }

    std::unique_ptr<Storage> safe;
    std::unique_ptr<Storage> plain;
};

} // namespace

TEST_F(SafeAndPlainStorage, RandomOperationsGiveTheSameResults)
{
    const char* const given = std::getenv("KEL_TEST_SEED");
    const auto seed = given ? static_cast<unsigned int>(std::strtoul(given, nullptr, 10)) : 5;
    SCOPED_TRACE("KEL_TEST_SEED=" + std::to_string(seed));
    ASSERT_EQ(operations().size(), 49U) << "every forwarded operation";

    Arguments forSafe(seed);
    Arguments forPlain(seed);
    std::mt19937 choice(seed);
    testing::internal::CaptureStdout(); // "Already Exists", many times
    for (int i = 0; i < 20000 && !HasFailure(); ++i) {
        SCOPED_TRACE("operation " + std::to_string(i));
        const std::size_t number = choice() % operations().size();
        const Operation& operation = operations()[number];
        testing::internal::GetCapturedStdout();
        testing::internal::CaptureStdout();
        const std::string safeResult = operation(*safe, forSafe);
        const std::string safeOutput = testing::internal::GetCapturedStdout();
        const std::string safeEvents = textOf(listener.take());
        testing::internal::CaptureStdout();
        const std::string plainResult = operation(*plain, forPlain);
        EXPECT_EQ(safeOutput, testing::internal::GetCapturedStdout());
        EXPECT_EQ(safeEvents, textOf(listener.take()));
        EXPECT_EQ(safeResult, plainResult) << "operation number " << number;
        testing::internal::CaptureStdout();
    }
    testing::internal::GetCapturedStdout();
}

// Reports

namespace {

/// Takes what is printed, and asks the storage from another thread meanwhile.
class AskingOutput : public std::stringbuf
{
public:
    explicit AskingOutput(const CkelAbstractDataStorage& storage) : m_storage(storage), m_before(std::cout.rdbuf(this))
    {}
    ~AskingOutput() override { std::cout.rdbuf(m_before); }
    AskingOutput(const AskingOutput&) = delete;
    AskingOutput& operator=(const AskingOutput&) = delete;

    int answered() const { return m_answered; }

protected:
    std::streamsize xsputn(const char* text, std::streamsize size) override
    {
        auto answer = std::async(std::launch::async, [this] { return m_storage.ID("nobody"); });
        const bool isAnswered = answer.wait_for(std::chrono::seconds(2)) == std::future_status::ready;
        m_answered += isAnswered ? 1 : 0;
        m_waiting.push_back(std::move(answer));
        return std::stringbuf::xsputn(text, size);
    }

private:
    const CkelAbstractDataStorage& m_storage;
    std::streambuf* const m_before;
    int m_answered = 0;
    std::vector<std::future<unsigned int>> m_waiting;
};

} // namespace

TEST_F(SafeStorage, OthersAreAnsweredWhileAReportIsPrinted)
{
    std::ofstream("dictionary.json") << R"({"kel":[{"ID":1,"NameID":"one"}]})";
    storage.readConfigFile("dictionary.json", true);
    AskingOutput output(storage);
    storage.insertData(makeItem(1, "again"));
    storage.queryValueListByField("RW", CkelAbstractDataStorage::AnyFieldType, 1, CkelAbstractDataStorage::Equal);
    storage.readConfigFile("missing.json", true);
    EXPECT_EQ(output.answered(), 3);
    EXPECT_EQ(output.str(),
              "CkelMemoryDataStorage::insertData: ID= 1 Already Exists\n"
              "CkelMemoryDataStorage::deleteDataListByField: Not Support ByFieldRW\n"
              "CkelParseDBJson::Parse： open error\n");
}
