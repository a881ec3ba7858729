#include "kernel/kelevent.h"

#include "kernel/kelobject.h"

#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <string>
#include <type_traits>

using namespace Ombrin; // NOLINT(google-build-using-namespace)

TEST(Event, TypeCodesAreFixed)
{
    EXPECT_EQ(CkelEvent::Timer, 1);
    EXPECT_EQ(CkelEvent::ChildAdded, 2);
    EXPECT_EQ(CkelEvent::ChildRemoved, 3);
    EXPECT_EQ(CkelEvent::DataSensor, 4);
    EXPECT_EQ(CkelEvent::Custom, 1000);
    EXPECT_EQ(CkelDataSensorEvent::AnyData, 10);
    EXPECT_EQ(CkelDataSensorEvent::NoMerge, 0);
    EXPECT_EQ(CkelDataSensorEvent::Merge, 1);
}

TEST(Event, CannotBeCopied)
{
    EXPECT_FALSE(std::is_copy_constructible_v<CkelTimerEvent>);
    EXPECT_FALSE(std::is_copy_assignable_v<CkelTimerEvent>);
    EXPECT_FALSE(std::is_copy_constructible_v<CkelAnyDataSensorEvent>);
    EXPECT_FALSE(std::is_copy_assignable_v<CkelAnyDataSensorEvent>);
}

TEST(Event, BasesCannotBeMadeAlone)
{
    EXPECT_FALSE((std::is_constructible_v<CkelEvent, int>));
    EXPECT_FALSE((std::is_constructible_v<CkelDataSensorEvent, int, CkelDataSensorEvent::SensorType,
                                          CkelDataSensorEvent::DataMerge>));
}

TEST(Event, TimerEventCarriesTheTimer)
{
    const CkelTimerEvent event(42);
    EXPECT_EQ(event.type(), CkelEvent::Timer);
    EXPECT_EQ(event.timerId(), 42);
}

TEST(Event, ChildEventTellsWhichChildCame)
{
    CkelObject child;
    const CkelChildEvent event(CkelEvent::ChildAdded, &child);
    EXPECT_EQ(event.type(), CkelEvent::ChildAdded);
    EXPECT_TRUE(event.added());
    EXPECT_EQ(event.child(), &child);
}

TEST(Event, ChildEventTellsWhichChildLeft)
{
    CkelObject child;
    const CkelChildEvent event(CkelEvent::ChildRemoved, &child);
    EXPECT_EQ(event.type(), CkelEvent::ChildRemoved);
    EXPECT_FALSE(event.added());
    EXPECT_EQ(event.child(), &child);
}

TEST(Event, CustomEventKeepsItsType)
{
    EXPECT_EQ(CkelCustomEvent().type(), CkelEvent::Custom);
    EXPECT_EQ(CkelCustomEvent(CkelEvent::Custom).type(), 1000);
    EXPECT_EQ(CkelCustomEvent(1001).type(), 1001);
    EXPECT_EQ(CkelCustomEvent(INT_MAX).type(), INT_MAX);
}

TEST(Event, CustomEventNeverPassesForAnotherClass)
{
    for (const int type : {INT_MIN, -1, 0, 1, 2, 3, 4, 999})
        EXPECT_EQ(CkelCustomEvent(type).type(), CkelEvent::Custom) << type;
}

TEST(Event, DataSensorEventCarriesItsContent)
{
    const CkelAnyDataSensorEvent event(7, CkelVariant(35.5), CkelDataSensorEvent::AnyData, CkelDataSensorEvent::Merge);
    EXPECT_EQ(event.type(), CkelEvent::DataSensor);
    EXPECT_EQ(event.id(), 7U);
    EXPECT_EQ(event.value().type(), CkelVariant::Double);
    EXPECT_EQ(event.value().toDouble(), 35.5);
    EXPECT_EQ(event.sensorType(), CkelDataSensorEvent::AnyData);
    EXPECT_EQ(event.dataMerge(), CkelDataSensorEvent::Merge);
}

TEST(Event, DataSensorEventMayForbidMerging)
{
    const CkelAnyDataSensorEvent event(7, 1, CkelDataSensorEvent::AnyData, CkelDataSensorEvent::NoMerge);
    EXPECT_EQ(event.dataMerge(), CkelDataSensorEvent::NoMerge);
}

TEST(Event, DataSensorEventKeepsIdsAboveTheLargestInt)
{
    for (const unsigned int id : {0U, 1U, 2147483647U, 2147483648U, 4000000000U, UINT_MAX}) {
        const CkelAnyDataSensorEvent event(static_cast<int>(id), CkelVariant(), CkelDataSensorEvent::AnyData,
                                           CkelDataSensorEvent::NoMerge);
        EXPECT_EQ(event.id(), id);
    }
}

TEST(Event, DataSensorEventKeepsSensorTypesOfTheApplication)
{
    for (const int type : {INT_MIN, 0, 11, 5000, INT_MAX}) {
        const CkelAnyDataSensorEvent event(1, CkelVariant(), static_cast<CkelDataSensorEvent::SensorType>(type),
                                           CkelDataSensorEvent::Merge);
        EXPECT_EQ(static_cast<int>(event.sensorType()), type);
    }
}

TEST(Event, DataSensorEventHoldsItsOwnValue)
{
    CkelVariant value("a text that outlives the variant it came from");
    const CkelAnyDataSensorEvent event(1, value, CkelDataSensorEvent::AnyData, CkelDataSensorEvent::Merge);
    value = 5;
    EXPECT_EQ(event.value().toStdString(), "a text that outlives the variant it came from");
}

TEST(Event, MayBeDeletedThroughItsBase)
{
    // The content goes too: a leak checker tells.
    const std::unique_ptr<CkelEvent> event = std::make_unique<CkelAnyDataSensorEvent>(
        1, CkelVariant(std::string(1000, 'x')), CkelDataSensorEvent::AnyData, CkelDataSensorEvent::Merge);
    EXPECT_EQ(event->type(), CkelEvent::DataSensor);
    EXPECT_TRUE(std::has_virtual_destructor_v<CkelEvent>);
}
