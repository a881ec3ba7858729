#include "kernel/kelapplicationplus.h"

#include "kernel/keldatasensor.h"
#include "kernel/kelevent.h"
#include "kernel/kelobject.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace Ombrin;
using namespace std::chrono_literals;

constexpr auto limit = 10s; // what a wait that should succeed may take on a slow machine
constexpr int gaveUp = -4711;
constexpr int hour = 3600 * 1000;

/// Notes what comes and calls functions.
class Receiver : public CkelObject
{
public:
    void timerEvent(CkelTimerEvent* event) override
    {
        timeOuts.push_back(event->timerId());
        if (onTimeOut)
            onTimeOut(event->timerId());
    }
    void customEvent(CkelCustomEvent* event) override { custom.push_back(event); }
    void dataSensorEvent(CkelDataSensorEvent* event) override
    {
        ids.push_back(event->id());
        if (onData)
            onData(event->id());
    }

    std::vector<int> timeOuts;
    std::vector<CkelCustomEvent*> custom;
    std::vector<unsigned int> ids;
    std::function<void(int)> onTimeOut;
    std::function<void(unsigned int)> onData;
};

class Filter : public CkelObject
{
public:
    explicit Filter(bool keeps) : m_keeps(keeps) {}
    bool eventFilter(CkelObject* watched, CkelEvent* event) override
    {
        seen.emplace_back(watched, event);
        return m_keeps;
    }
    std::vector<std::pair<CkelObject*, CkelEvent*>> seen;

private:
    const bool m_keeps;
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

void post(unsigned int id)
{
    CkelApplicationPlus::dataSensor()->post(new CkelAnyDataSensorEvent(
        static_cast<int>(id), 0, CkelDataSensorEvent::AnyData, CkelDataSensorEvent::NoMerge));
}

class Application : public testing::Test
{
protected:
    int execBounded()
    {
        const Watchdog watchdog(app);
        return app.exec();
    }

    /// Turns the loop until `condition` holds.
    template <typename Condition>
    bool turnUntil(Condition condition)
    {
        for (const auto end = std::chrono::steady_clock::now() + limit; !condition(); std::this_thread::yield()) {
            if (std::chrono::steady_clock::now() > end)
                return false;
            app.processEvents();
        }
        return true;
    }

    int argc = 0;
    CkelApplicationPlus app{argc, nullptr};
    CkelDataSensor& sensor = *CkelApplicationPlus::dataSensor();
    Receiver receiver;
};

using Ids = std::vector<unsigned int>;

TEST(ApplicationInstance, IsNullWithoutAnApplication)
{
    EXPECT_EQ(CkelApplicationPlus::instance(), nullptr);
}

TEST(ApplicationInstance, IsTheApplicationWhileItLives)
{
    int argc = 0;
    for (int i = 0; i < 2; ++i) {
        const CkelApplicationPlus app(argc, nullptr);
        EXPECT_EQ(CkelApplicationPlus::instance(), &app);
    }
    EXPECT_EQ(CkelApplicationPlus::instance(), nullptr);
}

TEST_F(Application, InstanceIsTheSameOnEveryThread)
{
    CkelApplicationPlus* seen = nullptr;
    std::thread([&seen] { seen = CkelApplicationPlus::instance(); }).join();
    EXPECT_EQ(seen, &app);
}

TEST(ApplicationInstance, LeavesTheArgumentsAlone)
{
    int argc = 2;
    char first[] = "program";
    char last[] = "--option";
    char* argv[] = {first, last, nullptr};
    const CkelApplicationPlus app(argc, argv);
    EXPECT_EQ(argc, 2);
    EXPECT_EQ(argv[0], first);
    EXPECT_EQ(argv[1], last);
    EXPECT_STREQ(last, "--option");
}

TEST(ApplicationInstance, DataSensorIsOneForTheProcess)
{
    CkelDataSensor* const before = CkelApplicationPlus::dataSensor();
    ASSERT_NE(before, nullptr);
    {
        int argc = 0;
        const CkelApplicationPlus app(argc, nullptr);
        EXPECT_EQ(CkelApplicationPlus::dataSensor(), before);
    }
    CkelDataSensor* elsewhere = nullptr;
    std::thread([&elsewhere] { elsewhere = CkelApplicationPlus::dataSensor(); }).join();
    EXPECT_EQ(elsewhere, before);
}

TEST_F(Application, KnowsItsClass)
{
    EXPECT_EQ(app.className(), "CkelApplicationPlus");
    EXPECT_TRUE(app.inherits("CkelApplicationPlus"));
    EXPECT_TRUE(app.inherits("CkelObject"));
}

TEST(ApplicationInstance, DeletesItsChildren)
{
    class Child : public CkelObject
    {
    public:
        Child(CkelObject* parent, int& live) : CkelObject(parent), m_live(live) { ++m_live; }
        ~Child() override { --m_live; }

    private:
        int& m_live;
    };
    int live = 0;
    {
        int argc = 0;
        CkelApplicationPlus app(argc, nullptr);
        new Child(&app, live);
        EXPECT_EQ(live, 1);
    }
    EXPECT_EQ(live, 0);
}

// exec() and quit()

TEST_F(Application, QuitBeforeExecMakesItReturnAtOnce)
{
    receiver.startTimer(1);
    std::this_thread::sleep_for(3ms);
    app.quit(7);
    EXPECT_EQ(execBounded(), 7);
    EXPECT_TRUE(receiver.timeOuts.empty());
}

TEST_F(Application, QuitWithoutACodeGivesZero)
{
    app.quit();
    EXPECT_EQ(execBounded(), 0);
}

TEST_F(Application, QuitPassesNegativeCodes)
{
    app.quit(-3);
    EXPECT_EQ(execBounded(), -3);
}

TEST_F(Application, TheLastOfSeveralQuitsCounts)
{
    app.quit(1);
    app.quit(2);
    EXPECT_EQ(execBounded(), 2);
}

TEST_F(Application, SeveralQuitsEndOneExec)
{
    app.quit(1);
    app.quit(2);
    EXPECT_EQ(execBounded(), 2);
    receiver.onTimeOut = [this](int /*id*/) { app.quit(3); };
    receiver.startTimer(1);
    EXPECT_EQ(execBounded(), 3);
}

TEST_F(Application, QuitInAHandlerEndsExecAfterIt)
{
    bool ended = false;
    receiver.onTimeOut = [&](int /*id*/) {
        app.quit(4);
        ended = true;
    };
    receiver.startTimer(1);
    EXPECT_EQ(execBounded(), 4);
    EXPECT_TRUE(ended);
    EXPECT_EQ(receiver.timeOuts.size(), 1U);
}

TEST_F(Application, QuitFromAnotherThreadEndsExec)
{
    std::thread other;
    receiver.onTimeOut = [&](int id) {
        receiver.killTimer(id);
        other = std::thread([this] { app.quit(5); }); // exec() runs by now
    };
    receiver.startTimer(1);
    EXPECT_EQ(execBounded(), 5);
    ASSERT_TRUE(other.joinable());
    other.join();
}

TEST_F(Application, ExecRunsTwiceInARow)
{
    receiver.onTimeOut = [this](int /*id*/) { app.quit(static_cast<int>(receiver.timeOuts.size())); };
    receiver.startTimer(1);
    EXPECT_EQ(execBounded(), 1);
    EXPECT_EQ(execBounded(), 2);
}

TEST_F(Application, CodeOfAnEarlierExecIsForgotten)
{
    app.quit(6);
    EXPECT_EQ(execBounded(), 6);
    app.quit();
    EXPECT_EQ(execBounded(), 0);
}

TEST_F(Application, ProcessEventsLeavesAQuitForExec)
{
    app.quit(8);
    app.processEvents();
    EXPECT_EQ(execBounded(), 8);
}

TEST_F(Application, QuitInAHandlerLetsThePassEnd)
{
    sensor.attach(&receiver);
    receiver.onData = [this](unsigned int id) {
        if (id == 1) {
            post(4);
            app.quit(9);
        }
    };
    post(1);
    post(2);
    post(3);
    EXPECT_EQ(execBounded(), 9);
    EXPECT_EQ(receiver.ids, (Ids{1, 2, 3}));
    app.processEvents(); // what the handler posted was not lost
    EXPECT_EQ(receiver.ids, (Ids{1, 2, 3, 4}));
}

TEST_F(Application, EventsThatWaitWhenExecReturnsAreDeliveredByTheNext)
{
    sensor.attach(&receiver);
    receiver.onData = [this](unsigned int /*id*/) { app.quit(2); };
    post(1);
    app.quit(1);
    EXPECT_EQ(execBounded(), 1);
    EXPECT_TRUE(receiver.ids.empty());
    EXPECT_EQ(execBounded(), 2);
    EXPECT_EQ(receiver.ids, (Ids{1}));
}

TEST_F(Application, NestedExecEndsOnItsOwn)
{
    int inner = 0;
    receiver.onTimeOut = [&](int id) {
        receiver.killTimer(id);
        if (receiver.timeOuts.size() == 1) {
            receiver.startTimer(1);
            inner = execBounded();
            app.quit(2);
        } else {
            app.quit(1);
        }
    };
    receiver.startTimer(1);
    EXPECT_EQ(execBounded(), 2);
    EXPECT_EQ(inner, 1);
}

// processEvents()

TEST_F(Application, ProcessEventsReturnsWhenNothingIsDue)
{
    app.processEvents();
    receiver.startTimer(hour);
    app.processEvents();
    EXPECT_TRUE(receiver.timeOuts.empty());
}

TEST_F(Application, ProcessEventsRunsEveryDueTimerOnce)
{
    const int first = receiver.startTimer(1);
    receiver.startTimer(hour);
    const int second = receiver.startTimer(2);
    // One that becomes due again while the call runs waits for the next call.
    receiver.onTimeOut = [](int /*id*/) { std::this_thread::sleep_for(5ms); };
    std::this_thread::sleep_for(20ms);
    app.processEvents();
    ASSERT_EQ(receiver.timeOuts.size(), 2U);
    EXPECT_EQ(receiver.timeOuts, (std::vector<int>{first, second}));
}

TEST_F(Application, ProcessEventsRunsTimersAndDataEvents)
{
    sensor.attach(&receiver);
    receiver.startTimer(1);
    std::this_thread::sleep_for(20ms);
    post(1);
    app.processEvents();
    EXPECT_EQ(receiver.timeOuts.size(), 1U);
    EXPECT_EQ(receiver.ids, (Ids{1}));
}

TEST_F(Application, WhatATimerHandlerPostsWaitsForTheNextProcessEvents)
{
    sensor.attach(&receiver);
    receiver.onTimeOut = [this](int id) {
        receiver.killTimer(id);
        post(1);
        post(2);
    };
    receiver.startTimer(1);
    ASSERT_TRUE(turnUntil([this] { return !receiver.timeOuts.empty(); }));
    EXPECT_TRUE(receiver.ids.empty());
    app.processEvents();
    EXPECT_EQ(receiver.ids, (Ids{1, 2}));
}

TEST_F(Application, NestedProcessEventsRunsWhatIsDue)
{
    sensor.attach(&receiver);
    receiver.onTimeOut = [this](int id) {
        receiver.killTimer(id);
        if (receiver.timeOuts.size() > 1)
            return;
        post(1);
        receiver.startTimer(1);
        EXPECT_TRUE(turnUntil([this] { return receiver.timeOuts.size() == 2 && !receiver.ids.empty(); }));
    };
    receiver.startTimer(1);
    EXPECT_TRUE(turnUntil([this] { return !receiver.timeOuts.empty(); }));
    EXPECT_EQ(receiver.timeOuts.size(), 2U);
    EXPECT_EQ(receiver.ids, (Ids{1}));
}

TEST_F(Application, LoopGoesOnAfterManyNestedPasses)
{
    int nested = 0;
    receiver.onTimeOut = [&](int id) {
        receiver.killTimer(id);
        if (receiver.timeOuts.size() > 1) {
            app.quit(5);
            return;
        }
        for (; nested < 1000; ++nested)
            app.processEvents();
    };
    receiver.startTimer(1);
    ASSERT_TRUE(turnUntil([this] { return !receiver.timeOuts.empty(); }));
    EXPECT_EQ(nested, 1000);
    receiver.startTimer(1);
    EXPECT_EQ(execBounded(), 5);
}

// Exceptions

TEST_F(Application, TimerGoesOnAfterItsHandlerThrew)
{
    receiver.onTimeOut = [this](int /*id*/) {
        if (receiver.timeOuts.size() == 1)
            throw std::runtime_error("expected");
        app.quit(5);
    };
    receiver.startTimer(1);
    EXPECT_THROW(execBounded(), std::runtime_error);
    EXPECT_EQ(execBounded(), 5);
    EXPECT_EQ(receiver.timeOuts.size(), 2U);
}

TEST_F(Application, OtherTimersGoOnAfterAHandlerThrew)
{
    Receiver other;
    receiver.onTimeOut = [](int /*id*/) { throw std::runtime_error("expected"); };
    other.onTimeOut = [this](int /*id*/) { app.quit(5); };
    const int id = receiver.startTimer(1);
    EXPECT_THROW(execBounded(), std::runtime_error);
    receiver.killTimer(id);
    other.startTimer(1);
    EXPECT_EQ(execBounded(), 5);
}

TEST_F(Application, QuitOfAHandlerThatThrowsEndsTheNextExec)
{
    receiver.onTimeOut = [this](int id) {
        receiver.killTimer(id);
        app.quit(5);
        throw std::runtime_error("expected");
    };
    receiver.startTimer(1);
    EXPECT_THROW(execBounded(), std::runtime_error);
    EXPECT_EQ(execBounded(), 5);
}

[[gnu::noinline]] void turnAndThrow(CkelApplicationPlus& app)
{
    EXPECT_THROW(app.processEvents(), std::runtime_error);
}

/// Turns the loop further down the stack, and tells whether what lies above stays as it is.
[[gnu::noinline]] bool turnBelowCleanStack(CkelApplicationPlus& app)
{
    volatile unsigned char area[16384];
    for (auto& byte : area)
        byte = 0;
    for (int i = 0; i < 3; ++i)
        app.processEvents();
    for (const auto& byte : area) {
        if (byte != 0)
            return false;
    }
    return true;
}

TEST_F(Application, ProcessEventsThatThrewLeavesNothingThatWritesToItsStack)
{
    sensor.attach(&receiver);
    receiver.onData = [](unsigned int id) {
        if (id == 1)
            throw std::runtime_error("expected");
    };
    post(1);
    turnAndThrow(app);
    EXPECT_TRUE(turnBelowCleanStack(app));
    post(2);
    app.processEvents();
    EXPECT_EQ(receiver.ids, (Ids{1, 2}));
}

// sendEvent()

TEST_F(Application, SendEventReachesTheReceiverAtOnce)
{
    CkelCustomEvent event;
    EXPECT_TRUE(CkelApplicationPlus::sendEvent(&receiver, &event));
    EXPECT_EQ(receiver.custom, (std::vector<CkelCustomEvent*>{&event}));
}

TEST(ApplicationInstance, SendEventWorksWithoutAnApplication)
{
    Receiver receiver;
    CkelCustomEvent event;
    EXPECT_TRUE(CkelApplicationPlus::sendEvent(&receiver, &event));
    EXPECT_EQ(receiver.custom.size(), 1U);
}

TEST_F(Application, SendEventOfAnUnknownTypeIsNotHandled)
{
    class UnknownEvent : public CkelEvent
    {
    public:
        UnknownEvent() : CkelEvent(99) {}
    };
    UnknownEvent event;
    EXPECT_FALSE(CkelApplicationPlus::sendEvent(&receiver, &event));
    EXPECT_TRUE(receiver.custom.empty());
}

TEST_F(Application, SendEventIgnoresNull)
{
    CkelCustomEvent event;
    EXPECT_FALSE(CkelApplicationPlus::sendEvent(nullptr, &event));
    EXPECT_FALSE(CkelApplicationPlus::sendEvent(&receiver, nullptr));
    EXPECT_FALSE(CkelApplicationPlus::sendEvent(nullptr, nullptr));
    EXPECT_TRUE(receiver.custom.empty());
}

TEST_F(Application, SendEventPassesTheFiltersNewestFirst)
{
    Filter older(false);
    Filter newer(false);
    receiver.installEventFilter(&older);
    receiver.installEventFilter(&newer);
    CkelCustomEvent event(2000);
    EXPECT_TRUE(CkelApplicationPlus::sendEvent(&receiver, &event));
    const std::vector<std::pair<CkelObject*, CkelEvent*>> seen{{&receiver, &event}};
    EXPECT_EQ(older.seen, seen);
    EXPECT_EQ(newer.seen, seen);
    EXPECT_EQ(receiver.custom.size(), 1U);
}

TEST_F(Application, SendEventThatAFilterKeepsCountsAsHandled)
{
    Filter older(false);
    Filter newer(true);
    receiver.installEventFilter(&older);
    receiver.installEventFilter(&newer);
    CkelCustomEvent event;
    EXPECT_TRUE(CkelApplicationPlus::sendEvent(&receiver, &event));
    EXPECT_EQ(newer.seen.size(), 1U);
    EXPECT_TRUE(older.seen.empty());
    EXPECT_TRUE(receiver.custom.empty());
}

TEST_F(Application, SendEventHandsOverTimerAndDataEvents)
{
    CkelTimerEvent timeOut(42);
    CkelAnyDataSensorEvent data(7, 1, CkelDataSensorEvent::AnyData, CkelDataSensorEvent::NoMerge);
    EXPECT_TRUE(CkelApplicationPlus::sendEvent(&receiver, &timeOut));
    EXPECT_TRUE(CkelApplicationPlus::sendEvent(&receiver, &data));
    EXPECT_EQ(receiver.timeOuts, (std::vector<int>{42}));
    EXPECT_EQ(receiver.ids, (Ids{7}));
}

TEST_F(Application, SendEventLetsAnExceptionThrough)
{
    receiver.onData = [](unsigned int /*id*/) { throw std::runtime_error("expected"); };
    CkelAnyDataSensorEvent data(7, 1, CkelDataSensorEvent::AnyData, CkelDataSensorEvent::NoMerge);
    EXPECT_THROW(CkelApplicationPlus::sendEvent(&receiver, &data), std::runtime_error);
}

} // namespace
