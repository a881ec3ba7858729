#include "tests/datastorage/storagefixture.h"
#include "tests/reliability/failingallocation.h"

#include <iostream>

using namespace Ombrin;
using namespace KelTest;

// The application's loop stands still while changes pour in.

namespace {

constexpr unsigned int itemCount = 1000;
constexpr int changes = 50000; // what 5,000 a second make in ten seconds

class StalledApplication : public StorageTest
{
protected:
    StalledApplication()
    {
        std::vector<tagStorageData> items;
        for (unsigned int id = 1; id <= itemCount; ++id)
            items.push_back(makeItem(id, "item" + std::to_string(id)));
        m_storage = std::make_unique<LoadedStorage>(items);
    }

    /// Returns the memory that the waiting events take.
    long long pourIn(int count, bool merge)
    {
        const long long before = heldMemory().bytes;
        for (int i = 0; i < count; ++i)
            m_storage->updateValue(1 + static_cast<unsigned int>(i) % itemCount, ++m_number, merge);
        return heldMemory().bytes - before;
    }

private:
    std::unique_ptr<LoadedStorage> m_storage;
    int m_number = 0;
};

} // namespace

TEST_F(StalledApplication, WithTheMergeFlagAtMostOneEventOfEachItemWaits)
{
    const long long ofOneRound = pourIn(itemCount, true);
    const long long ofTheOthers = pourIn(changes, true);
    EXPECT_LT(ofTheOthers, 1024) << "every event takes the place of another";
    EXPECT_LT(ofOneRound / itemCount, 256);
    std::cout << ofOneRound / itemCount << " bytes for each item that waits\n";

    const auto events = listener.take();
    ASSERT_EQ(events.size(), itemCount);
    for (unsigned int i = 0; i < itemCount; ++i) {
        EXPECT_EQ(events[i].id, i + 1) << "in the order of the items' first changes";
        EXPECT_VARIANT(events[i].value, static_cast<double>(changes) + 1 + i);
    }
}

TEST_F(StalledApplication, WithoutTheMergeFlagEveryEventWaitsAtAKnownCost)
{
    const long long bytes = pourIn(changes, false);
    EXPECT_LT(bytes / changes, 128);
    std::cout << bytes / changes << " bytes for each event that waits\n";

    const auto events = listener.take();
    ASSERT_EQ(events.size(), static_cast<std::size_t>(changes));
    for (int i = 0; i < changes; ++i)
        ASSERT_TRUE(identical(events[static_cast<std::size_t>(i)].value, i + 1.0)) << i;
}

TEST_F(StalledApplication, TheMemoryOfTheQueueIsGivenBackAfterwards)
{
    pourIn(1, false);
    listener.take();
    const long long before = heldMemory().bytes;
    pourIn(3 * changes, false); // more than any other case
    listener.take();
    for (int i = 0; i < 2; ++i) { // each of the queue's two halves
        pourIn(1, false);
        listener.take();
    }
    EXPECT_LT(heldMemory().bytes - before, 1024);
}

TEST_F(StalledApplication, TheMemoryOfMergingIsGivenBackAfterwards)
{
    const auto pour = [this](int items) {
        for (int id = 1; id <= items; ++id)
            CkelApplicationPlus::dataSensor()->post(
                new CkelAnyDataSensorEvent(id, id, CkelDataSensorEvent::AnyData, CkelDataSensorEvent::Merge));
        EXPECT_EQ(listener.take().size(), static_cast<std::size_t>(items));
    };
    pour(1);
    const long long before = heldMemory().bytes;
    pour(20 * static_cast<int>(itemCount));
    for (int i = 0; i < 2; ++i) // each of the queue's two halves
        pour(1);
    EXPECT_LT(heldMemory().bytes - before, 1024);
}
