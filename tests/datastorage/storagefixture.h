#pragma once

#include "datastorage/kelmemorydatastorage.h"
#include "kernel/kelapplicationplus.h"
#include "kernel/keldatasensor.h"
#include "kernel/kelevent.h"
#include "tests/datastorage/storagemodel.h"
#include "tests/support/testfolder.h"

#include <ostream>
#include <string>
#include <vector>

namespace Ombrin {

inline std::ostream& operator<<(std::ostream& out, const CkelVariant& value)
{
    return out << "variant of type " << value.type() << ": \"" << value.toStdString() << '"';
}

} // namespace Ombrin

namespace KelTest {

inline testing::AssertionResult isIdentical(const char* aText, const char* bText, const Ombrin::CkelVariant& a,
                                            const Ombrin::CkelVariant& b)
{
    if (identical(a, b))
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << aText << " is " << a << ", " << bText << " is " << b;
}

#define EXPECT_VARIANT(actual, expected) \
    EXPECT_PRED_FORMAT2(KelTest::isIdentical, (actual), Ombrin::CkelVariant(expected))

/// An item of value type 9 (double), clean.
inline Ombrin::tagStorageData makeItem(unsigned int id, const std::string& name, double value = 0)
{
    Ombrin::tagStorageData item{};
    item.ID = id;
    item.NameID = name;
    item.CommSource = 2;
    item.DBSource = 1;
    item.RW = 3;
    item.Block = 4;
    item.ValueT = 9;
    item.Value = value;
    item.DefValue = 10.0;
    item.Max = 100.0;
    item.Min = -100.0;
    return item;
}

/// A memory storage as it stands after loading `items`.
class LoadedStorage : public Ombrin::CkelMemoryDataStorage
{
public:
    explicit LoadedStorage(const std::vector<Ombrin::tagStorageData>& items) { indexRecords(items); }
};

/// Collects every event of the data sensor.
class Listener : public Ombrin::CkelObject
{
public:
    Listener() { Ombrin::CkelApplicationPlus::dataSensor()->attach(this); }

    void dataSensorEvent(Ombrin::CkelDataSensorEvent* event) override
    {
        const auto& change = dynamic_cast<const Ombrin::CkelAnyDataSensorEvent&>(*event);
        m_received.push_back({change.id(), change.value(), change.sensorType(), change.dataMerge()});
    }

    /// Delivers what is queued; returns what came since the last call.
    std::vector<Announcement> take()
    {
        Ombrin::CkelApplicationPlus::instance()->processEvents();
        std::vector<Announcement> taken;
        taken.swap(m_received);
        return taken;
    }

private:
    std::vector<Announcement> m_received;
};

class StorageTest : public FolderTest
{
protected:
    static constexpr auto anyType = Ombrin::CkelAbstractDataStorage::AnyFieldType;

    int argc = 0;
    Ombrin::CkelApplicationPlus application{argc, nullptr};
    Listener listener;
};

} // namespace KelTest
