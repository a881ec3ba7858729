#include "kernel/keldatasensor.h"

#include "kernel/kelapplicationplus.h"
#include "kernel/kelevent.h"
#include "kernel/kelmutex.h"
#include "kernel/kelobject.h"
#include "kernel/kelthread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

using namespace Ombrin;
using namespace std::chrono_literals;

constexpr auto limit = 10s; // what a wait that should succeed may take on a slow machine
constexpr int gaveUp = -4711;

using MergeFlag = CkelDataSensorEvent::DataMerge;
using SensorType = CkelDataSensorEvent::SensorType;
constexpr auto flagged = CkelDataSensorEvent::Merge;
constexpr auto unflagged = CkelDataSensorEvent::NoMerge;
constexpr auto otherSensor = static_cast<SensorType>(77);

using Log = std::vector<std::pair<unsigned int, int>>; // IDs and values

/// An event that shows how many of its kind live, and tells of its end.
class CountedEvent : public CkelAnyDataSensorEvent
{
public:
    CountedEvent(unsigned int id, int value, MergeFlag merge = unflagged, SensorType type = AnyData)
        : CkelAnyDataSensorEvent(static_cast<int>(id), value, type, merge)
    {
        ++live;
    }
    ~CountedEvent() override
    {
        --live;
        if (onEnd)
            onEnd();
    }

    static std::atomic<int> live;
    std::function<void()> onEnd;
};

std::atomic<int> CountedEvent::live{0};

class Listener : public CkelObject
{
public:
    using CkelObject::CkelObject;

    void dataSensorEvent(CkelDataSensorEvent* event) override
    {
        log.emplace_back(event->id(), static_cast<CkelAnyDataSensorEvent*>(event)->value().toInt());
        const auto handler = onEvent; // outlives the listener when that is destroyed by it
        if (handler)
            handler(*event);
    }

    Log log;
    std::function<void(CkelDataSensorEvent&)> onEvent;
};

/// Ends exec() with `gaveUp` when nothing else does.
class Watchdog
{
public:
    explicit Watchdog(CkelApplicationPlus& app)
        : m_thread([this, &app] {
              std::unique_lock lock(m_mutex);
              if (!m_done.wait_for(lock, limit, [this] { return m_called; }))
                  app.quit(gaveUp);
          })
    {}
    ~Watchdog()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_called = true;
        }
        m_done.notify_one();
        m_thread.join();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_done;
    bool m_called = false;
    std::thread m_thread;
};

void post(unsigned int id, int value, MergeFlag merge = unflagged, SensorType type = CkelDataSensorEvent::AnyData)
{
    CkelApplicationPlus::dataSensor()->post(new CountedEvent(id, value, merge, type));
}

/// Whether events meet nobody before long: they are deleted at once then.
bool noneIsAttachedSoon()
{
    const auto end = std::chrono::steady_clock::now() + limit;
    bool deleted = false;
    while (!deleted && std::chrono::steady_clock::now() < end) {
        const int before = CountedEvent::live;
        post(0, 0);
        deleted = CountedEvent::live == before;
        std::this_thread::yield();
    }
    return deleted;
}

bool isReady(std::future<void>& future)
{
    return future.wait_for(limit) == std::future_status::ready;
}

class WithoutApplication : public testing::Test
{
protected:
    // What an earlier case has left in the queue reaches nobody.
    WithoutApplication() { CkelApplicationPlus(argc, nullptr).processEvents(); }

    int argc = 0;
    CkelDataSensor& sensor = *CkelApplicationPlus::dataSensor();
};

class DataSensor : public WithoutApplication
{
protected:
    void turn() { app.processEvents(); }

    template <typename Condition>
    bool turnUntil(Condition condition)
    {
        for (const auto end = std::chrono::steady_clock::now() + limit; !condition(); std::this_thread::yield()) {
            if (std::chrono::steady_clock::now() > end)
                return false;
            turn();
        }
        return true;
    }

    int execBounded()
    {
        const Watchdog watchdog(app);
        return app.exec();
    }

    CkelApplicationPlus app{argc, nullptr};
    Listener listener;
    Listener second;
};

using DataSensorWithoutApplication = WithoutApplication;

// Delivery

TEST_F(DataSensor, DeliversInPostingOrder)
{
    sensor.attach(&listener);
    post(3, 1);
    post(1, 2);
    post(3, 3);
    post(2, 4);
    turn();
    EXPECT_EQ(listener.log, (Log{{3, 1}, {1, 2}, {3, 3}, {2, 4}}));
}

TEST_F(DataSensor, PostNeverRunsAHandler)
{
    sensor.attach(&listener);
    post(1, 1);
    EXPECT_TRUE(listener.log.empty());
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}}));
}

TEST_F(DataSensor, DeliversOnce)
{
    sensor.attach(&listener);
    post(1, 1);
    turn();
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}}));
}

TEST_F(DataSensor, ExecDelivers)
{
    sensor.attach(&listener);
    listener.onEvent = [this](const CkelDataSensorEvent&) { app.quit(5); };
    post(1, 1);
    EXPECT_EQ(execBounded(), 5);
    EXPECT_EQ(listener.log, (Log{{1, 1}}));
}

TEST_F(DataSensor, PostFromAnotherThreadWakesExec)
{
    sensor.attach(&listener);
    listener.onEvent = [this](const CkelDataSensorEvent&) { app.quit(5); };
    std::thread poster([] { post(1, 1); });
    EXPECT_EQ(execBounded(), 5);
    poster.join();
    EXPECT_EQ(listener.log, (Log{{1, 1}}));
}

TEST_F(DataSensor, HandlerReceivesThePostedObject)
{
    auto* const posted = new CountedEvent(4000000000U, 7, flagged, otherSensor);
    sensor.attach(&listener);
    int calls = 0;
    listener.onEvent = [&](CkelDataSensorEvent& event) {
        ++calls;
        EXPECT_EQ(&event, posted);
        EXPECT_EQ(event.type(), CkelEvent::DataSensor);
        EXPECT_EQ(event.id(), 4000000000U);
        EXPECT_EQ(event.sensorType(), otherSensor);
        EXPECT_EQ(event.dataMerge(), flagged);
    };
    sensor.post(posted);
    turn();
    EXPECT_EQ(calls, 1);
}

TEST_F(DataSensor, EventLivesUntilTheLastListenerHadIt)
{
    sensor.attach(&listener);
    sensor.attach(&second);
    int liveDuringLast = 0;
    second.onEvent = [&](const CkelDataSensorEvent&) { liveDuringLast = CountedEvent::live; };
    post(1, 1);
    EXPECT_EQ(CountedEvent::live, 1);
    turn();
    EXPECT_EQ(liveDuringLast, 1);
    EXPECT_EQ(CountedEvent::live, 0);
}

TEST_F(DataSensor, EventThatNoListenerWantsIsDeletedInItsPass)
{
    sensor.attach(&listener, {1});
    post(2, 1);
    turn();
    EXPECT_TRUE(listener.log.empty());
    EXPECT_EQ(CountedEvent::live, 0);
}

TEST_F(DataSensor, PostingNullIsIgnored)
{
    sensor.attach(&listener);
    sensor.post(nullptr);
    turn();
    EXPECT_TRUE(listener.log.empty());
    post(1, 1);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}}));
}

// Merging

TEST_F(DataSensor, FlaggedEventReplacesTheQueuedOneOfItsItem)
{
    sensor.attach(&listener);
    post(1, 1, flagged);
    post(1, 2, flagged);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 2}}));
}

TEST_F(DataSensor, MergedEventKeepsThePositionOfTheOlder)
{
    sensor.attach(&listener);
    post(1, 1, flagged);
    post(2, 2, flagged);
    post(3, 3);
    post(1, 4, flagged);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 4}, {2, 2}, {3, 3}}));
}

TEST_F(DataSensor, ReplacedEventIsDeletedAtOnce)
{
    sensor.attach(&listener);
    post(1, 1, flagged);
    post(1, 2, flagged);
    EXPECT_EQ(CountedEvent::live, 1);
    turn();
}

TEST_F(DataSensor, UnflaggedEventIsNotReplaced)
{
    sensor.attach(&listener);
    post(1, 1);
    post(1, 2, flagged);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {1, 2}}));
}

TEST_F(DataSensor, UnflaggedEventReplacesNothing)
{
    sensor.attach(&listener);
    post(1, 1, flagged);
    post(1, 2);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {1, 2}}));
}

TEST_F(DataSensor, OlderFlaggedEventBehindAnUnflaggedOneIsNotReplaced)
{
    sensor.attach(&listener);
    post(1, 1, flagged);
    post(1, 2);
    post(1, 3, flagged);
    post(1, 4, flagged);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {1, 2}, {1, 4}}));
}

TEST_F(DataSensor, UnflaggedEventOfAnotherItemDoesNotHinderMerging)
{
    sensor.attach(&listener);
    post(1, 1, flagged);
    post(2, 2);
    post(1, 3, flagged);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 3}, {2, 2}}));
}

TEST_F(DataSensor, OtherIdIsNotMerged)
{
    sensor.attach(&listener);
    post(1, 1, flagged);
    post(0x80000001U, 2, flagged);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {0x80000001U, 2}}));
}

TEST_F(DataSensor, OtherSensorTypeIsNotMerged)
{
    sensor.attach(&listener);
    post(1, 1, flagged);
    post(1, 2, flagged, otherSensor);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {1, 2}}));
}

TEST_F(DataSensor, NegativeSensorTypesAreKeptApart)
{
    sensor.attach(&listener);
    post(1, 1, flagged, static_cast<SensorType>(-1));
    post(0, 2, flagged, static_cast<SensorType>(-1));
    post(1, 3, flagged, static_cast<SensorType>(-2));
    post(1, 4, flagged, static_cast<SensorType>(-1));
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 4}, {0, 2}, {1, 3}}));
}

TEST_F(DataSensor, ManyMergesCostOneDelivery)
{
    sensor.attach(&listener);
    for (int value = 1; value <= 10000; ++value)
        post(1, value, flagged);
    EXPECT_EQ(CountedEvent::live, 1);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 10000}}));
}

TEST_F(DataSensor, MergingStartsAnewInEveryPass)
{
    sensor.attach(&listener);
    post(2, 1);
    post(1, 2, flagged);
    turn();
    post(1, 3, flagged);
    turn();
    post(3, 4);
    post(1, 5, flagged);
    post(1, 6, flagged);
    turn();
    EXPECT_EQ(listener.log, (Log{{2, 1}, {1, 2}, {1, 3}, {3, 4}, {1, 6}}));
}

TEST_F(DataSensor, EventOfAnEarlierPassIsNeverReplaced)
{
    sensor.attach(&listener);
    listener.onEvent = [](const CkelDataSensorEvent& event) {
        if (event.id() == 1)
            post(2, 3, flagged); // (2, 2) belongs to the pass that runs
    };
    post(1, 1);
    post(2, 2, flagged);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}}));
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}, {2, 3}}));
}

TEST_F(DataSensor, EventInDeliveryIsNeverReplaced)
{
    sensor.attach(&listener);
    sensor.attach(&second);
    listener.onEvent = [this](const CkelDataSensorEvent&) {
        if (listener.log.size() == 1)
            post(1, 2, flagged);
    };
    post(1, 1, flagged);
    turn();
    EXPECT_EQ(second.log, (Log{{1, 1}}));
    turn();
    EXPECT_EQ(second.log, (Log{{1, 1}, {1, 2}}));
}

TEST_F(DataSensor, RandomPostsMatchASimpleModel)
{
    constexpr unsigned int seed = 20240711;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto below = [&random](unsigned int end) { return static_cast<unsigned int>(random() % end); };

    struct Queued
    {
        unsigned int id;
        SensorType type;
        MergeFlag merge;
        int value;
    };
    sensor.attach(&listener);
    int value = 0;
    for (int pass = 0; pass < 500; ++pass) {
        std::vector<Queued> model;
        for (auto count = below(30); count != 0; --count) {
            const Queued event{below(4), below(4) != 0 ? CkelDataSensorEvent::AnyData : otherSensor,
                               below(3) != 0 ? flagged : unflagged, ++value};
            post(event.id, event.value, event.merge, event.type);
            auto newest = model.rbegin();
            while (newest != model.rend() && (newest->id != event.id || newest->type != event.type))
                ++newest;
            if (newest != model.rend() && newest->merge == flagged && event.merge == flagged)
                *newest = event;
            else
                model.push_back(event);
        }
        Log expected;
        for (const Queued& event : model)
            expected.emplace_back(event.id, event.value);
        listener.log.clear();
        turn();
        ASSERT_EQ(listener.log, expected) << "pass " << pass;
    }
    EXPECT_EQ(CountedEvent::live, 0);
}

// Attaching

TEST_F(DataSensor, AttachForAllReceivesEveryItem)
{
    sensor.attach(&listener);
    post(0, 1);
    post(0xFFFFFFFFU, 2);
    turn();
    EXPECT_EQ(listener.log, (Log{{0, 1}, {0xFFFFFFFFU, 2}}));
}

TEST_F(DataSensor, AttachForIdsReceivesThoseItemsOnly)
{
    sensor.attach(&listener, {2, 4});
    for (int id = 0; id < 6; ++id)
        post(static_cast<unsigned int>(id), id);
    turn();
    EXPECT_EQ(listener.log, (Log{{2, 2}, {4, 4}}));
}

TEST_F(DataSensor, AttachForIdsKnowsIdsAboveTheSignedRange)
{
    sensor.attach(&listener, {0x80000000U, 0xFFFFFFFFU});
    post(0, 1);
    post(0x80000000U, 2);
    post(0x7FFFFFFFU, 3);
    post(0xFFFFFFFFU, 4);
    turn();
    EXPECT_EQ(listener.log, (Log{{0x80000000U, 2}, {0xFFFFFFFFU, 4}}));
}

TEST_F(DataSensor, SecondAttachAddsIds)
{
    sensor.attach(&listener, {1});
    sensor.attach(&listener, {2, 1});
    post(1, 1);
    post(2, 2);
    post(3, 3);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}}));
}

TEST_F(DataSensor, SecondAttachWidensToAll)
{
    sensor.attach(&listener, {1});
    sensor.attach(&listener);
    post(1, 1);
    post(3, 3);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {3, 3}}));
}

TEST_F(DataSensor, AttachForIdsDoesNotNarrowAttachForAll)
{
    sensor.attach(&listener);
    sensor.attach(&listener, {1});
    post(1, 1);
    post(3, 3);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {3, 3}}));
}

TEST_F(DataSensor, AttachingTwiceDeliversOnce)
{
    sensor.attach(&listener);
    sensor.attach(&listener);
    sensor.attach(&second, {1, 1});
    sensor.attach(&second, {1});
    post(1, 1);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}}));
    EXPECT_EQ(second.log, (Log{{1, 1}}));
}

TEST_F(DataSensor, OneDetachUndoesEveryAttach)
{
    sensor.attach(&listener);
    sensor.attach(&listener);
    sensor.attach(&listener, {1});
    sensor.detach(&listener);
    post(1, 1);
    EXPECT_EQ(CountedEvent::live, 0);
    turn();
    EXPECT_TRUE(listener.log.empty());
}

TEST_F(DataSensor, DetachForgetsTheIds)
{
    sensor.attach(&listener);
    sensor.attach(&listener, {1});
    sensor.detach(&listener);
    sensor.attach(&listener, {2});
    post(1, 1);
    post(2, 2);
    turn();
    EXPECT_EQ(listener.log, (Log{{2, 2}}));
}

TEST_F(DataSensor, AttachingNullIsIgnored)
{
    sensor.attach(nullptr);
    sensor.attach(nullptr, {1});
    post(1, 1);
    EXPECT_EQ(CountedEvent::live, 0); // nobody is attached
    turn();
}

TEST_F(DataSensor, AttachingForNoIdsIsIgnored)
{
    sensor.attach(&listener, {});
    post(1, 1);
    EXPECT_EQ(CountedEvent::live, 0); // nobody is attached
    turn();
    EXPECT_TRUE(listener.log.empty());
}

TEST_F(DataSensor, EmptyIdListLeavesAnEarlierAttachAlone)
{
    sensor.attach(&listener, {1});
    sensor.attach(&listener, {});
    post(1, 1);
    post(2, 2);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}}));
}

TEST_F(DataSensor, EveryListenerReceivesWhatItAttachedFor)
{
    Listener third;
    sensor.attach(&listener);
    sensor.attach(&second, {1, 3});
    sensor.attach(&third, {2});
    post(1, 1);
    post(2, 2);
    post(3, 3);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}, {3, 3}}));
    EXPECT_EQ(second.log, (Log{{1, 1}, {3, 3}}));
    EXPECT_EQ(third.log, (Log{{2, 2}}));
}

TEST_F(DataSensor, DetachingTheUnknownIsIgnored)
{
    sensor.attach(&listener);
    sensor.detach(nullptr);
    sensor.detach(&second);
    post(1, 1);
    turn();
    sensor.detach(&listener);
    sensor.detach(&listener);
    sensor.attach(&second);
    post(2, 2);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}}));
    EXPECT_EQ(second.log, (Log{{2, 2}}));
}

TEST_F(DataSensor, QueuedEventsDoNotReachADetachedListener)
{
    sensor.attach(&listener);
    sensor.attach(&second);
    post(1, 1);
    sensor.detach(&listener);
    turn();
    EXPECT_TRUE(listener.log.empty());
    EXPECT_EQ(second.log, (Log{{1, 1}}));
}

TEST_F(DataSensor, WithNobodyAttachedEventsAreDeletedAtOnce)
{
    post(1, 1);
    post(1, 2, flagged);
    EXPECT_EQ(CountedEvent::live, 0);
}

TEST_F(DataSensor, AfterTheLastDetachEventsAreDeletedAtOnce)
{
    sensor.attach(&listener);
    sensor.attach(&second, {1});
    sensor.detach(&listener);
    post(1, 1);
    EXPECT_EQ(CountedEvent::live, 1);
    turn();
    sensor.detach(&second);
    post(1, 2);
    EXPECT_EQ(CountedEvent::live, 0);
}

TEST_F(DataSensor, LastDetachDeletesWhatWaits)
{
    sensor.attach(&listener);
    post(1, 1);
    post(1, 2, flagged);
    sensor.detach(&listener);
    EXPECT_EQ(CountedEvent::live, 0);
    sensor.attach(&second);
    turn();
    EXPECT_TRUE(second.log.empty());
    post(1, 3, flagged); // nothing of the old queue is left to merge with
    turn();
    EXPECT_EQ(second.log, (Log{{1, 3}}));
}

TEST_F(DataSensor, EventsDeletedByTheLastDetachMayPostInTheirDestructors)
{
    sensor.attach(&listener);
    auto* const event = new CountedEvent(1, 1);
    event->onEnd = [] { post(2, 2); };
    sensor.post(event);
    // A lock held meanwhile would block for ever; a second thread tells the difference.
    std::promise<void> detached;
    auto done = detached.get_future();
    std::thread detacher([&] {
        sensor.detach(&listener);
        detached.set_value();
    });
    ASSERT_TRUE(isReady(done));
    detacher.join();
    EXPECT_EQ(CountedEvent::live, 0);
}

TEST_F(DataSensor, DestroyingAListenerDetachesIt)
{
    auto brief = std::make_unique<Listener>();
    sensor.attach(brief.get());
    post(1, 1);
    brief.reset();
    turn();
    post(1, 2);
    EXPECT_EQ(CountedEvent::live, 0); // nobody is attached
}

TEST_F(DataSensor, DestroyingAParentDetachesItsChildren)
{
    auto parent = std::make_unique<CkelObject>();
    sensor.attach(new Listener(parent.get()));
    post(1, 1);
    parent.reset();
    turn();
    post(1, 2);
    EXPECT_EQ(CountedEvent::live, 0);
}

// Inside handlers

TEST_F(DataSensor, HandlerMayDetachItsOwnObject)
{
    sensor.attach(&listener);
    sensor.attach(&second);
    listener.onEvent = [this](const CkelDataSensorEvent&) { sensor.detach(&listener); };
    post(1, 1);
    post(2, 2);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}}));
    EXPECT_EQ(second.log, (Log{{1, 1}, {2, 2}}));
}

TEST_F(DataSensor, ObjectDetachedByAnotherHandlerDoesNotReceiveTheEvent)
{
    Listener third;
    sensor.attach(&listener);
    sensor.attach(&second);
    sensor.attach(&third);
    listener.onEvent = [this](const CkelDataSensorEvent&) { sensor.detach(&second); };
    second.onEvent = [this](const CkelDataSensorEvent&) { sensor.detach(&listener); };
    post(1, 1);
    turn();
    EXPECT_EQ(listener.log.size() + second.log.size(), 1U); // whoever is asked first
    EXPECT_EQ(third.log, (Log{{1, 1}}));
}

TEST_F(DataSensor, HandlerMayDestroyItsOwnObject)
{
    auto* const brief = new Listener;
    sensor.attach(brief);
    sensor.attach(&second);
    int calls = 0;
    brief->onEvent = [&calls, brief](const CkelDataSensorEvent&) {
        ++calls;
        delete brief;
    };
    post(1, 1);
    post(2, 2);
    turn();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(second.log, (Log{{1, 1}, {2, 2}}));
}

TEST_F(DataSensor, ObjectDestroyedByAnotherHandlerDoesNotReceiveTheEvent)
{
    std::unique_ptr<Listener> pair[] = {std::make_unique<Listener>(), std::make_unique<Listener>()};
    int calls = 0;
    for (int i = 0; i < 2; ++i) {
        sensor.attach(pair[i].get());
        pair[i]->onEvent = [&calls, other = &pair[1 - i]](const CkelDataSensorEvent&) {
            ++calls;
            other->reset();
        };
    }
    sensor.attach(&listener);
    post(1, 1);
    turn();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(listener.log, (Log{{1, 1}}));
}

TEST_F(DataSensor, EveryListenerMayBeDestroyedInOneHandler)
{
    std::vector<std::unique_ptr<Listener>> all(5);
    int calls = 0;
    for (auto& one : all) {
        one = std::make_unique<Listener>();
        sensor.attach(one.get());
        one->onEvent = [&](const CkelDataSensorEvent&) {
            ++calls;
            all.clear();
        };
    }
    post(1, 1);
    post(2, 2);
    turn();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(CountedEvent::live, 0);
    post(3, 3);
    EXPECT_EQ(CountedEvent::live, 0);
}

TEST_F(DataSensor, ObjectAttachedInAHandlerReceivesTheFollowingEvents)
{
    sensor.attach(&listener);
    listener.onEvent = [this](const CkelDataSensorEvent&) { sensor.attach(&second, {2, 3}); };
    post(1, 1);
    post(2, 2);
    turn();
    post(3, 3);
    turn();
    ASSERT_GE(second.log.size(), 2U);
    EXPECT_EQ(second.log, (Log{{2, 2}, {3, 3}}));
}

TEST_F(DataSensor, ManyObjectsMayBeAttachedInAHandler)
{
    std::vector<std::unique_ptr<Listener>> added;
    sensor.attach(&listener);
    sensor.attach(&second);
    listener.onEvent = [&](const CkelDataSensorEvent& event) {
        if (event.id() != 1)
            return;
        for (int i = 0; i < 100; ++i) {
            added.push_back(std::make_unique<Listener>());
            sensor.attach(added.back().get(), {2});
        }
    };
    post(1, 1);
    post(2, 2);
    turn();
    EXPECT_EQ(second.log, (Log{{1, 1}, {2, 2}}));
    ASSERT_EQ(added.size(), 100U);
    for (const auto& one : added)
        EXPECT_EQ(one->log, (Log{{2, 2}}));
}

TEST_F(DataSensor, HandlerThatAttachesItsOwnObjectAgainReceivesTheEventOnce)
{
    sensor.attach(&listener);
    listener.onEvent = [this](const CkelDataSensorEvent&) {
        if (listener.log.size() > 10)
            return; // no end otherwise
        sensor.detach(&listener);
        sensor.attach(&listener, {1, 2});
    };
    post(1, 1);
    post(2, 2);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}}));
}

TEST_F(DataSensor, HandlerMayWidenItsOwnAttachment)
{
    sensor.attach(&listener, {1});
    listener.onEvent = [this](const CkelDataSensorEvent&) { sensor.attach(&listener); };
    post(2, 1);
    post(1, 2);
    post(2, 3);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 2}, {2, 3}}));
}

TEST_F(DataSensor, WhatAHandlerPostsIsDeliveredInTheNextPass)
{
    sensor.attach(&listener);
    listener.onEvent = [this](const CkelDataSensorEvent& event) {
        post(event.id() + 1, static_cast<int>(listener.log.size()));
    };
    for (unsigned int passes = 1; passes <= 5; ++passes) {
        if (passes == 1)
            post(0, 0);
        turn();
        ASSERT_EQ(listener.log.size(), passes);
        EXPECT_EQ(listener.log.back().first, passes - 1);
    }
    sensor.detach(&listener);
    turn();
}

TEST_F(DataSensor, EndlesslyPostingHandlerDoesNotStarveTimers)
{
    class Quitter : public CkelObject
    {
    public:
        explicit Quitter(CkelApplicationPlus& application) : m_app(application) {}
        void timerEvent(CkelTimerEvent* event) override
        {
            killTimer(event->timerId()); // a second time-out would end a later exec()
            m_app.quit(5);
        }

    private:
        CkelApplicationPlus& m_app;
    };
    sensor.attach(&listener);
    listener.onEvent = [this](const CkelDataSensorEvent&) {
        listener.log.clear();
        post(1, 1);
    };
    post(1, 1);
    Quitter quitter(app);
    quitter.startTimer(5);
    EXPECT_EQ(execBounded(), 5);
    EXPECT_EQ(CountedEvent::live, 1); // it goes on posting
    sensor.detach(&listener);
    turn();
}

// A handler that runs the loop itself

TEST_F(DataSensor, NestedProcessEventsKeepsTheOrder)
{
    sensor.attach(&listener);
    listener.onEvent = [this](const CkelDataSensorEvent& event) {
        if (event.id() != 1)
            return;
        post(4, 4);
        turn();
        EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}, {3, 3}, {4, 4}}));
    };
    post(1, 1);
    post(2, 2);
    post(3, 3);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}, {3, 3}, {4, 4}}));
    EXPECT_EQ(CountedEvent::live, 0);
}

TEST_F(DataSensor, NestedProcessEventsKeepsTheOrderForEveryListener)
{
    sensor.attach(&listener);
    sensor.attach(&second);
    listener.onEvent = second.onEvent = [this](const CkelDataSensorEvent& event) {
        if (event.id() != 1)
            return;
        post(3, 3);
        turn();
    };
    post(1, 1);
    post(2, 2);
    turn();
    turn();
    // Otherwise the older of two values of one item is what a listener is left with.
    const Log order{{1, 1}, {2, 2}, {3, 3}, {3, 3}};
    EXPECT_EQ(listener.log, order);
    EXPECT_EQ(second.log, order);
}

TEST_F(DataSensor, NestedProcessEventsDeliversTheRestOfThePass)
{
    sensor.attach(&listener);
    listener.onEvent = [this](const CkelDataSensorEvent& event) {
        if (event.id() != 1)
            return;
        turn();
        EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}}));
    };
    post(1, 1);
    post(2, 2);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}}));
}

TEST_F(DataSensor, WhatIsPostedInANestedPassWaitsForTheNext)
{
    sensor.attach(&listener);
    listener.onEvent = [this](const CkelDataSensorEvent& event) {
        if (event.id() == 1) {
            post(3, 3);
            turn();
            EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}, {3, 3}}));
        }
        if (event.id() == 2)
            post(4, 4);
    };
    post(1, 1);
    post(2, 2);
    turn();
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}, {3, 3}, {4, 4}}));
}

TEST_F(DataSensor, NestedExecDeliversWhatItsHandlerPosted)
{
    sensor.attach(&listener);
    int code = 0;
    listener.onEvent = [&](const CkelDataSensorEvent& event) {
        if (event.id() == 1) {
            post(2, 2);
            code = execBounded();
            app.quit(6);
        } else {
            app.quit(5);
        }
    };
    post(1, 1);
    EXPECT_EQ(app.exec(), 6);
    EXPECT_EQ(code, 5);
    EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}}));
}

TEST_F(DataSensor, ExecNestedInProcessEventsDelivers)
{
    sensor.attach(&listener);
    int code = 0;
    listener.onEvent = [&](const CkelDataSensorEvent& event) {
        if (event.id() == 1) {
            post(2, 2);
            code = execBounded();
        } else {
            app.quit(5);
        }
    };
    post(1, 1);
    turn();
    EXPECT_EQ(code, 5);
    EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}}));
}

/// Counts how deep the handlers are nested that turn the loop.
class Depth
{
public:
    template <typename Turn>
    void turn(Turn turnLoop)
    {
        m_deepest = std::max(m_deepest, ++m_depth);
        turnLoop();
        --m_depth;
    }
    int deepest() const { return m_deepest; }

private:
    int m_depth = 0;
    int m_deepest = 0;
};

constexpr int manyEvents = 30000;   // more than the stack has room for when each is delivered inside the one before
constexpr int deepestTurn = 64 + 1; // the last one calls a processEvents() that returns at once

TEST_F(DataSensor, EveryHandlerMayCallProcessEventsHoweverManyEventsWait)
{
    Depth depth;
    sensor.attach(&listener);
    sensor.attach(&second);
    Log expected;
    for (int value = 0; value < manyEvents; ++value) {
        post(1, value);
        expected.emplace_back(1, value);
    }
    listener.onEvent = second.onEvent = [&](const CkelDataSensorEvent&) { depth.turn([this] { turn(); }); };
    turn();
    EXPECT_EQ(listener.log, expected);
    EXPECT_EQ(second.log, expected);
    EXPECT_EQ(depth.deepest(), deepestTurn - 1); // the test's own call is one of them
    EXPECT_EQ(CountedEvent::live, 0);
}

TEST_F(DataSensor, EveryHandlerThatExecRunsMayCallProcessEvents)
{
    Depth depth;
    sensor.attach(&listener);
    Log expected;
    for (int value = 0; value < manyEvents; ++value) {
        post(1, value);
        expected.emplace_back(1, value);
    }
    listener.onEvent = [&](const CkelDataSensorEvent&) {
        depth.turn([this] { turn(); });
        if (listener.log.size() == expected.size())
            app.quit(5);
    };
    EXPECT_EQ(execBounded(), 5);
    EXPECT_EQ(listener.log, expected);
    EXPECT_EQ(depth.deepest(), deepestTurn);
}

TEST_F(DataSensor, EveryHandlerMayPostAndCallProcessEvents)
{
    Depth depth;
    sensor.attach(&listener);
    Log expected;
    for (int value = 0; value < manyEvents; ++value)
        expected.emplace_back(1, value);
    listener.onEvent = [&](const CkelDataSensorEvent&) {
        const auto delivered = static_cast<int>(listener.log.size());
        if (delivered < manyEvents)
            post(1, delivered);
        depth.turn([this] { turn(); });
    };
    post(1, 0);
    EXPECT_TRUE(turnUntil([this] { return listener.log.size() >= manyEvents; }));
    EXPECT_EQ(listener.log, expected);
    EXPECT_LE(depth.deepest(), deepestTurn);
}

TEST_F(DataSensor, WhatADeepHandlerPostsIsDeliveredLater)
{
    Depth depth;
    sensor.attach(&listener);
    listener.onEvent = [&](const CkelDataSensorEvent& event) {
        if (event.id() != 1)
            return;
        if (listener.log.size() == 100)
            post(2, 0);
        depth.turn([this] { turn(); });
    };
    for (int value = 0; value < 100; ++value)
        post(1, value);
    turn();
    turn();
    EXPECT_EQ(listener.log.size(), 101U);
    EXPECT_EQ(listener.log.back(), std::make_pair(2U, 0));
}

// Handlers that throw

TEST_F(DataSensor, ExceptionLeavesProcessEventsAndTheOtherEventsFollow)
{
    sensor.attach(&listener);
    listener.onEvent = [](const CkelDataSensorEvent& event) {
        if (event.id() == 2)
            throw std::runtime_error("expected");
    };
    post(1, 1);
    post(2, 2);
    post(3, 3);
    EXPECT_THROW(turn(), std::runtime_error);
    EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}}));
    post(4, 4);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}, {3, 3}, {4, 4}}));
    EXPECT_EQ(CountedEvent::live, 0);
}

TEST_F(DataSensor, ListenersBehindOneThatThrowsReceiveTheEventOnce)
{
    Listener third;
    sensor.attach(&listener);
    sensor.attach(&second);
    sensor.attach(&third);
    listener.onEvent = [](const CkelDataSensorEvent& event) {
        if (event.id() == 1)
            throw std::runtime_error("expected");
    };
    post(1, 1);
    post(2, 2);
    EXPECT_THROW(turn(), std::runtime_error);
    EXPECT_EQ(second.log, (Log{{1, 1}}));
    EXPECT_EQ(third.log, (Log{{1, 1}}));
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}}));
    EXPECT_EQ(second.log, (Log{{1, 1}, {2, 2}}));
    EXPECT_EQ(third.log, (Log{{1, 1}, {2, 2}}));
    EXPECT_EQ(CountedEvent::live, 0);
}

TEST_F(DataSensor, FirstOfSeveralExceptionsOfOneEventLeaves)
{
    Listener third;
    sensor.attach(&listener);
    sensor.attach(&second);
    sensor.attach(&third);
    listener.onEvent = [](const CkelDataSensorEvent&) { throw std::runtime_error("first"); };
    second.onEvent = [](const CkelDataSensorEvent&) { throw std::logic_error("second"); };
    post(1, 1);
    try {
        turn();
        ADD_FAILURE();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "first");
    }
    EXPECT_EQ(second.log, (Log{{1, 1}}));
    EXPECT_EQ(third.log, (Log{{1, 1}}));
    turn(); // the second exception is gone
}

TEST_F(DataSensor, ListenersBehindOneThatDestroysItselfAndThrowsReceiveTheEvent)
{
    auto brief = std::make_unique<Listener>();
    sensor.attach(brief.get());
    sensor.attach(&second);
    brief->onEvent = [&brief](const CkelDataSensorEvent&) {
        brief.reset();
        throw std::runtime_error("expected");
    };
    post(1, 1);
    EXPECT_THROW(turn(), std::runtime_error);
    EXPECT_EQ(second.log, (Log{{1, 1}}));
}

TEST_F(DataSensor, ExceptionOfAnEventThatANestedPassCompletesReachesTheHandlerThatTurnsTheLoop)
{
    Listener third;
    sensor.attach(&listener);
    sensor.attach(&second);
    sensor.attach(&third);
    bool caught = false;
    listener.onEvent = [&](const CkelDataSensorEvent& event) {
        if (event.id() != 1)
            return;
        try {
            turn();
        } catch (const std::runtime_error&) {
            caught = true;
        }
    };
    second.onEvent = [](const CkelDataSensorEvent& event) {
        if (event.id() == 1)
            throw std::runtime_error("expected");
    };
    post(1, 1);
    post(2, 2);
    turn();
    EXPECT_TRUE(caught);
    for (const Listener* const one : {&listener, &second, &third})
        EXPECT_EQ(one->log, (Log{{1, 1}, {2, 2}}));
    EXPECT_EQ(CountedEvent::live, 0);
}

TEST_F(DataSensor, ExceptionLeavesExecAndTheOtherEventsFollow)
{
    sensor.attach(&listener);
    listener.onEvent = [this](const CkelDataSensorEvent& event) {
        if (event.id() == 1)
            throw std::runtime_error("expected");
        app.quit(5);
    };
    post(1, 1);
    post(2, 2);
    EXPECT_THROW(execBounded(), std::runtime_error);
    EXPECT_EQ(execBounded(), 5);
    EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}}));
}

TEST_F(DataSensor, EveryHandlerOfAPassMayThrow)
{
    sensor.attach(&listener);
    listener.onEvent = [](const CkelDataSensorEvent& event) {
        if (event.id() != 4)
            throw std::runtime_error("expected");
    };
    post(1, 1);
    post(2, 2);
    post(3, 3);
    int thrown = 0;
    for (int i = 0; i < 6; ++i) {
        try {
            turn();
        } catch (const std::runtime_error&) {
            ++thrown;
        }
    }
    EXPECT_EQ(thrown, 3);
    post(4, 4);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}, {3, 3}, {4, 4}}));
    EXPECT_EQ(CountedEvent::live, 0);
}

TEST_F(DataSensor, WhatIsPostedWhileTheRestOfAThrowingPassIsDeliveredWaitsForTheNextCall)
{
    sensor.attach(&listener);
    listener.onEvent = [](const CkelDataSensorEvent& event) {
        if (event.id() == 1)
            throw std::runtime_error("expected");
        if (event.id() == 2)
            post(3, 3);
    };
    post(1, 1);
    post(2, 2);
    EXPECT_THROW(turn(), std::runtime_error);
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}}));
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}, {3, 3}}));
}

TEST_F(DataSensor, ObjectWhoseHandlerThrewCanBeDetachedOnAnotherThread)
{
    sensor.attach(&listener);
    listener.onEvent = [](const CkelDataSensorEvent&) { throw std::runtime_error("expected"); };
    post(1, 1);
    EXPECT_THROW(turn(), std::runtime_error);
    std::thread([this] { sensor.detach(&listener); }).join();
    post(2, 2);
    EXPECT_EQ(CountedEvent::live, 0);
}

// Threads

TEST_F(DataSensor, EveryEventOfEightThreadsArrivesOnceAndInOrder)
{
    constexpr unsigned int threads = 8;
    constexpr int each = 1000;
    sensor.attach(&listener);
    std::vector<std::thread> posters;
    for (unsigned int id = 0; id < threads; ++id) {
        posters.emplace_back([id] {
            for (int value = 0; value < each; ++value)
                post(id, value);
        });
    }
    EXPECT_TRUE(turnUntil([this] { return listener.log.size() >= threads * each; }));
    for (auto& poster : posters)
        poster.join();
    turn();

    EXPECT_EQ(listener.log.size(), threads * each);
    std::vector<int> next(threads, 0);
    for (const auto& [id, value] : listener.log) {
        ASSERT_LT(id, threads);
        ASSERT_EQ(value, next[id]++) << "of thread " << id;
    }
    EXPECT_EQ(CountedEvent::live, 0);
}

TEST_F(DataSensor, LastFlaggedValueOfEveryThreadArrivesLast)
{
    constexpr unsigned int threads = 8;
    constexpr int each = 1000;
    sensor.attach(&listener);
    std::vector<std::thread> posters;
    for (unsigned int id = 0; id < threads; ++id) {
        posters.emplace_back([id] {
            for (int value = 1; value <= each; ++value)
                post(id, value, flagged);
        });
    }
    std::unordered_map<unsigned int, int> newest;
    bool ascending = true;
    listener.onEvent = [&](const CkelDataSensorEvent&) {
        const auto [id, value] = listener.log.back();
        ascending = ascending && newest[id] < value;
        newest[id] = value;
    };
    const auto all = [&newest] {
        for (unsigned int id = 0; id < threads; ++id) {
            if (newest[id] != each)
                return false;
        }
        return true;
    };
    EXPECT_TRUE(turnUntil(all));
    for (auto& poster : posters)
        poster.join();
    EXPECT_TRUE(ascending);
    EXPECT_EQ(CountedEvent::live, 0);
}

TEST_F(DataSensor, HandlersRunOnTheApplicationsThreadForObjectsOfOtherThreads)
{
    CkelThread thread;
    Listener moved;
    ASSERT_TRUE(moved.moveToThread(&thread));
    ASSERT_TRUE(thread.start());
    std::unique_ptr<Listener> foreign;
    std::thread([&foreign] { foreign = std::make_unique<Listener>(); }).join();

    std::vector<std::thread::id> ran;
    for (Listener* const one : {&moved, foreign.get()}) {
        one->onEvent = [&ran](const CkelDataSensorEvent&) { ran.push_back(std::this_thread::get_id()); };
        sensor.attach(one);
    }
    std::thread([] { post(1, 1); }).join();
    turn();
    EXPECT_EQ(ran, std::vector<std::thread::id>(2, std::this_thread::get_id()));
    thread.terminate();
}

TEST_F(DataSensor, PostDoesNotWaitForAHandler)
{
    sensor.attach(&listener);
    CkelMutex held;
    std::promise<void> posted;
    auto done = posted.get_future();
    std::thread poster;
    listener.onEvent = [&](const CkelDataSensorEvent& event) {
        if (event.id() != 1)
            return;
        const CkelMutexLocker lock(held);
        poster = std::thread([&posted] {
            post(2, 2, flagged);
            post(2, 3, flagged);
            posted.set_value();
        });
        EXPECT_TRUE(isReady(done));
    };
    post(1, 1);
    turn();
    poster.join();
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 3}}));
}

TEST_F(DataSensor, PosterMayHoldALockThatTheHandlerTakes)
{
    constexpr int count = 1000;
    CkelMutex common;
    sensor.attach(&listener);
    listener.onEvent = [&common](const CkelDataSensorEvent&) { const CkelMutexLocker lock(common); };
    std::thread poster([&common] {
        for (int value = 0; value < count; ++value) {
            const CkelMutexLocker lock(common);
            post(1, value);
        }
    });
    EXPECT_TRUE(turnUntil([this] { return listener.log.size() == count; }));
    poster.join();
}

TEST_F(DataSensor, ReplacedEventIsDestroyedWithNoLockHeld)
{
    sensor.attach(&listener);
    std::promise<void> posted;
    auto done = posted.get_future();
    std::thread poster;
    auto* const replaced = new CountedEvent(1, 1, flagged);
    replaced->onEnd = [&] {
        poster = std::thread([&posted] {
            post(2, 2);
            posted.set_value();
        });
        EXPECT_TRUE(isReady(done));
    };
    sensor.post(replaced);
    post(1, 3, flagged);
    poster.join();
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 3}, {2, 2}}));
}

TEST_F(DataSensor, DeliveredOrUnwantedEventMayPostInItsDestructor)
{
    const auto poster = [] {
        auto* const event = new CountedEvent(1, 1);
        event->onEnd = [] { post(2, 2); };
        return event;
    };
    sensor.post(poster()); // nobody is attached
    sensor.attach(&listener);
    sensor.post(poster());
    turn();
    turn();
    EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}}));
}

TEST_F(DataSensor, DetachOnAnotherThreadWaitsForTheRunningHandler)
{
    sensor.attach(&listener);
    std::promise<void> begun;
    auto running = begun.get_future();
    std::promise<void> detached;
    auto done = detached.get_future();
    listener.onEvent = [&](const CkelDataSensorEvent&) {
        begun.set_value();
        EXPECT_TRUE(noneIsAttachedSoon()); // the other thread has begun to detach
        EXPECT_EQ(done.wait_for(20ms), std::future_status::timeout);
    };
    std::thread detacher([&] {
        running.wait();
        sensor.detach(&listener);
        detached.set_value();
    });
    post(1, 1);
    post(2, 2);
    turn();
    detacher.join();
    EXPECT_EQ(listener.log, (Log{{1, 1}}));
    EXPECT_EQ(CountedEvent::live, 0);
}

TEST_F(DataSensor, SeveralThreadsMayWaitForOneHandler)
{
    sensor.attach(&listener);
    std::promise<void> begun;
    const std::shared_future<void> running = begun.get_future().share();
    std::atomic<bool> ended{false};
    std::atomic<int> tooEarly{0};
    listener.onEvent = [&](const CkelDataSensorEvent&) {
        begun.set_value();
        std::this_thread::sleep_for(20ms);
        ended = true;
    };
    std::vector<std::thread> detachers;
    for (int i = 0; i < 4; ++i) {
        detachers.emplace_back([&] {
            running.wait();
            sensor.detach(&listener);
            if (!ended)
                ++tooEarly;
        });
    }
    post(1, 1);
    turn();
    for (auto& detacher : detachers)
        detacher.join();
    EXPECT_EQ(tooEarly, 0);
}

TEST_F(DataSensor, DetachDoesNotWaitForTheHandlerOfAnotherObject)
{
    sensor.attach(&listener);
    sensor.attach(&second, {99});
    std::promise<void> detached;
    auto done = detached.get_future();
    std::thread detacher;
    listener.onEvent = [&](const CkelDataSensorEvent&) {
        detacher = std::thread([&] {
            sensor.detach(&second);
            detached.set_value();
        });
        EXPECT_TRUE(isReady(done));
    };
    post(1, 1);
    turn();
    detacher.join();
}

TEST_F(DataSensor, DetachOnAnotherThreadWaitsForTheHandlerThatRunsTheLoop)
{
    sensor.attach(&listener);
    std::promise<void> begun;
    auto running = begun.get_future();
    std::atomic<bool> ended{false};
    bool endedBeforeDetached = false;
    listener.onEvent = [&](const CkelDataSensorEvent& event) {
        if (event.id() != 1)
            return;
        post(2, 2);
        turn(); // notes and forgets a second handler of the object meanwhile
        begun.set_value();
        std::this_thread::sleep_for(20ms);
        ended = true;
    };
    std::thread detacher([&] {
        running.wait();
        sensor.detach(&listener);
        endedBeforeDetached = ended;
    });
    post(1, 1);
    turn();
    detacher.join();
    EXPECT_TRUE(endedBeforeDetached);
    EXPECT_EQ(listener.log, (Log{{1, 1}, {2, 2}}));
}

TEST_F(DataSensor, ObjectsComeAndGoOnOtherThreadsWhileTheLoopTurns)
{
    constexpr int threads = 4;
    std::atomic<int> running{threads};
    std::atomic<int> late{0};
    std::vector<std::thread> owners;
    for (int i = 0; i < threads; ++i) {
        owners.emplace_back([&, i] {
            for (int round = 0; round < 200; ++round) {
                Listener own;
                bool attached = true; // not atomic: detach must synchronise with the handlers
                own.onEvent = [&](const CkelDataSensorEvent&) { late += attached ? 0 : 1; };
                if (round % 2 == 0)
                    sensor.attach(&own);
                else
                    sensor.attach(&own, {static_cast<unsigned int>(i)});
                post(static_cast<unsigned int>(i), round, round % 3 == 0 ? flagged : unflagged);
                if (round % 4 == 0)
                    std::this_thread::yield();
                sensor.detach(&own);
                attached = false;
            }
            --running;
        });
    }
    EXPECT_TRUE(turnUntil([&running] { return running == 0; }));
    for (auto& owner : owners)
        owner.join();
    turn();
    EXPECT_EQ(late, 0);
    EXPECT_EQ(CountedEvent::live, 0);
}

// Event filters

TEST_F(DataSensor, EventFilterSeesAndKeepsEvents)
{
    class Filter : public CkelObject
    {
    public:
        bool eventFilter(CkelObject* watched, CkelEvent* event) override
        {
            EXPECT_EQ(event->type(), CkelEvent::DataSensor);
            const auto* const change = static_cast<CkelAnyDataSensorEvent*>(event);
            seen.emplace_back(watched, change->id());
            return change->id() == 2;
        }
        std::vector<std::pair<CkelObject*, unsigned int>> seen;
    };
    Filter filter;
    listener.installEventFilter(&filter);
    sensor.attach(&listener);
    sensor.attach(&second);
    post(1, 1);
    post(2, 2);
    post(3, 3);
    turn();
    const std::vector<std::pair<CkelObject*, unsigned int>> expected{{&listener, 1}, {&listener, 2}, {&listener, 3}};
    EXPECT_EQ(filter.seen, expected);
    EXPECT_EQ(listener.log, (Log{{1, 1}, {3, 3}}));
    EXPECT_EQ(second.log, (Log{{1, 1}, {2, 2}, {3, 3}}));
}

TEST_F(DataSensor, EventFilterMayDestroyTheListener)
{
    class Filter : public CkelObject
    {
    public:
        bool eventFilter(CkelObject* watched, CkelEvent* /*event*/) override
        {
            ++calls;
            delete watched;
            return false;
        }
        int calls = 0;
    };
    Filter filter;
    auto* const brief = new Listener;
    brief->installEventFilter(&filter);
    sensor.attach(brief);
    sensor.attach(&second);
    post(1, 1);
    post(2, 2);
    turn();
    EXPECT_EQ(filter.calls, 1);
    EXPECT_EQ(second.log, (Log{{1, 1}, {2, 2}}));
}

// Applications that come and go

TEST_F(DataSensorWithoutApplication, EventsPostedBeforeTheApplicationExistsAreDeliveredByIt)
{
    Listener early;
    sensor.attach(&early);
    post(1, 1);
    post(2, 2, flagged);
    post(2, 3, flagged);
    EXPECT_TRUE(early.log.empty());
    CkelApplicationPlus app(argc, nullptr);
    EXPECT_TRUE(early.log.empty());
    app.processEvents();
    EXPECT_EQ(early.log, (Log{{1, 1}, {2, 3}}));
}

TEST_F(DataSensorWithoutApplication, WithNobodyAttachedEventsAreDeletedAtOnce)
{
    post(1, 1);
    EXPECT_EQ(CountedEvent::live, 0);
}

TEST_F(DataSensorWithoutApplication, NextApplicationDeliversWhatTheOldOneLeft)
{
    Listener lasting;
    sensor.attach(&lasting);
    {
        CkelApplicationPlus app(argc, nullptr);
        post(1, 1);
        app.processEvents();
        post(2, 2);
    }
    post(3, 3);
    EXPECT_EQ(lasting.log, (Log{{1, 1}}));
    CkelApplicationPlus app(argc, nullptr);
    post(4, 4);
    app.processEvents();
    EXPECT_EQ(lasting.log, (Log{{1, 1}, {2, 2}, {3, 3}, {4, 4}}));
    post(5, 5);
    app.processEvents();
    EXPECT_EQ(lasting.log.back(), std::make_pair(5U, 5));
}

TEST_F(DataSensorWithoutApplication, NextApplicationDeliversTheRestOfAThrowingPass)
{
    Listener lasting;
    sensor.attach(&lasting);
    lasting.onEvent = [](const CkelDataSensorEvent& event) {
        if (event.id() == 1)
            throw std::runtime_error("expected");
    };
    {
        CkelApplicationPlus app(argc, nullptr);
        post(1, 1);
        post(2, 2);
        EXPECT_THROW(app.processEvents(), std::runtime_error);
    }
    CkelApplicationPlus app(argc, nullptr);
    app.processEvents();
    EXPECT_EQ(lasting.log, (Log{{1, 1}, {2, 2}}));
    EXPECT_EQ(CountedEvent::live, 0);
}

TEST_F(DataSensorWithoutApplication, DeliversOnTheThreadOfTheApplication)
{
    Listener lasting;
    sensor.attach(&lasting);
    std::thread::id ran;
    lasting.onEvent = [&ran](const CkelDataSensorEvent&) { ran = std::this_thread::get_id(); };
    post(1, 1);
    std::thread other([&] {
        CkelApplicationPlus app(argc, nullptr);
        app.processEvents();
    });
    const std::thread::id expected = other.get_id();
    other.join();
    EXPECT_EQ(ran, expected);
    EXPECT_EQ(lasting.log, (Log{{1, 1}}));
}

// The end of the process. Workers are detached: they post until the process is gone.

void startPosting(std::atomic<int>& posted)
{
    for (unsigned int id = 0; id < 4; ++id) {
        std::thread([id, &posted] {
            for (;;) {
                post(id, 1, flagged);
                post(id + 10, 2, posted % 100 == 0 ? unflagged : flagged);
                ++posted;
                std::this_thread::sleep_for(20us);
            }
        }).detach();
    }
}

TEST(DataSensorDeathTest, ExitWithWorkersPostingAndTheApplicationAlive)
{
    EXPECT_EXIT(
        {
            static int argc = 0;
            static std::atomic<int> posted{0};
            auto* const app = new CkelApplicationPlus(argc, nullptr);
            auto* const listener = new Listener;
            CkelApplicationPlus::dataSensor()->attach(listener);
            startPosting(posted);
            while (posted < 500 || listener->log.empty())
                app->processEvents();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(DataSensorDeathTest, ExitWithWorkersPostingAfterTheApplicationIsGone)
{
    EXPECT_EXIT(
        {
            static int argc = 0;
            static std::atomic<int> posted{0};
            static Listener listener; // destroyed by exit(), still attached
            CkelApplicationPlus::dataSensor()->attach(&listener);
            startPosting(posted);
            {
                CkelApplicationPlus app(argc, nullptr);
                while (posted < 500 || listener.log.empty())
                    app.processEvents();
            }
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(DataSensorDeathTest, ExitInsideAHandlerWithWorkersPosting)
{
    EXPECT_EXIT(
        {
            static int argc = 0;
            static std::atomic<int> posted{0};
            static Listener listener;
            listener.onEvent = [](const CkelDataSensorEvent&) {
                if (posted >= 500)
                    std::exit(0);
            };
            CkelApplicationPlus::dataSensor()->attach(&listener);
            startPosting(posted);
            CkelApplicationPlus app(argc, nullptr);
            app.exec();
        },
        testing::ExitedWithCode(0), "");
}

TEST(DataSensorDeathTest, ExitOnAWorkerWhileTheLoopDelivers)
{
    EXPECT_EXIT(
        {
            static int argc = 0;
            static std::atomic<int> posted{0};
            auto* const listener = new Listener;
            CkelApplicationPlus::dataSensor()->attach(listener);
            startPosting(posted);
            std::thread([] {
                while (posted < 500)
                    std::this_thread::sleep_for(1ms);
                std::exit(0);
            }).detach();
            CkelApplicationPlus app(argc, nullptr);
            app.exec();
        },
        testing::ExitedWithCode(0), "");
}

TEST(DataSensorDeathTest, StaticDestructorMayPost)
{
    struct LatePoster
    {
        ~LatePoster()
        {
            post(1, 1); // attached: stays queued
            const int queued = CountedEvent::live;
            CkelApplicationPlus::dataSensor()->detach(listener);
            post(1, 2); // nobody is attached: deleted
            if (queued == 1 && CountedEvent::live == 0)
                std::fputs("posted late", stderr);
        }
        Listener* listener = nullptr;
    };
    EXPECT_EXIT(
        {
            static int argc = 0;
            static LatePoster poster;
            static Listener* const listener = new Listener;
            poster.listener = listener;
            CkelApplicationPlus::dataSensor()->attach(listener);
            {
                CkelApplicationPlus app(argc, nullptr);
                app.processEvents();
            }
            std::exit(0);
        },
        testing::ExitedWithCode(0), "posted late");
}

TEST(DataSensorDeathTest, StaticDestructorMayBeTheFirstToUseTheSensor)
{
    struct LatePoster
    {
        ~LatePoster()
        {
            post(1, 1);
            if (CountedEvent::live == 0)
                std::fputs("posted late", stderr);
        }
    };
    EXPECT_EXIT(
        {
            static const LatePoster poster;
            std::exit(0);
        },
        testing::ExitedWithCode(0), "posted late");
}

} // namespace
