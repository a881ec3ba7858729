#include "kernel/keltimer.h"

#include "kernel/kelapplicationplus.h"
#include "kernel/keldatasensor.h"
#include "kernel/kelevent.h"
#include "kernel/kelthread.h"

#include <gtest/gtest.h>

#include <asio/error.hpp>

#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

using namespace Ombrin;
using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;

/// Notes its time-outs and does what a case asks for.
class Ticker : public CkelObject
{
public:
    explicit Ticker(CkelObject* parent = nullptr) : CkelObject(parent) {}

    void timerEvent(CkelTimerEvent* event) override
    {
        times.push_back(Clock::now());
        ids.push_back(event->timerId());
        thread = std::this_thread::get_id();
        if (onTimeOut)
            onTimeOut(event->timerId()); // may destroy this object
    }

    int count() const { return static_cast<int>(times.size()); }
    int count(int id) const { return static_cast<int>(std::count(ids.begin(), ids.end(), id)); }

    std::vector<Clock::time_point> times;
    std::vector<int> ids;
    std::thread::id thread;
    std::function<void(int)> onTimeOut;
};

/// An application on the case's own thread.
class TimerTest : public testing::Test
{
protected:
    void pass() { m_app.processEvents(); }

    /// Turns the loop until `done` holds. False when it did not in good time.
    bool turnUntil(const std::function<bool()>& done)
    {
        for (const auto limit = Clock::now() + 10s; !done(); std::this_thread::sleep_for(100us)) {
            if (Clock::now() > limit)
                return false;
            pass();
        }
        return true;
    }

    /// Turns the loop for a while, for what must not happen.
    void turnFor(std::chrono::milliseconds time)
    {
        for (const auto end = Clock::now() + time; Clock::now() < end; std::this_thread::sleep_for(100us))
            pass();
        pass();
    }

private:
    int m_argc = 0;
    CkelApplicationPlus m_app{m_argc, nullptr};
};

using ObjectTimer = TimerTest;
using Timer = TimerTest;

/// Runs `work` with an application of its own on a thread of its own: what it does to its loop harms no other case.
void onFreshLoop(const std::function<void(CkelApplicationPlus&)>& work)
{
    std::thread([&work] {
        int argc = 0;
        CkelApplicationPlus app(argc, nullptr);
        work(app);
    }).join();
}

bool turnUntil(CkelApplicationPlus& app, const std::function<bool()>& done)
{
    for (const auto limit = Clock::now() + 10s; !done(); std::this_thread::sleep_for(100us)) {
        if (Clock::now() > limit)
            return false;
        app.processEvents();
    }
    return true;
}

void stall(std::chrono::milliseconds time)
{
    const auto end = Clock::now() + time;
    while (Clock::now() < end)
        std::this_thread::sleep_until(end);
}

/// Posts an event in a handler, which then runs the loop itself; `turn` is what runs the handler. True when the event
/// was delivered inside.
bool hearsInInnerExec(CkelApplicationPlus& app, const std::function<bool(const std::function<bool()>&)>& turn)
{
    struct Listener : CkelObject
    {
        void dataSensorEvent(CkelDataSensorEvent*) override { heard = true; }
        bool heard = false;
    } listener;
    CkelApplicationPlus::dataSensor()->attach(&listener);
    Ticker guard; // ends the inner loop
    const auto limit = Clock::now() + 10s;
    guard.onTimeOut = [&](int) {
        if (listener.heard || Clock::now() > limit)
            app.quit();
    };
    Ticker object;
    bool finished = false;
    bool heardInside = false;
    object.onTimeOut = [&](int id) {
        object.killTimer(id);
        CkelApplicationPlus::dataSensor()->post(
            new CkelAnyDataSensorEvent(1, CkelVariant(1), CkelDataSensorEvent::AnyData, CkelDataSensorEvent::NoMerge));
        guard.startTimer(1);
        app.exec();
        heardInside = listener.heard;
        finished = true;
        app.quit(); // for the outer loop
    };
    object.startTimer(1);
    return turn([&] { return finished; }) && heardInside;
}

} // namespace

TEST_F(ObjectTimer, FirstTimeOutComesNotBeforeTheInterval)
{
    Ticker object;
    const auto start = Clock::now();
    ASSERT_GT(object.startTimer(5), 0);
    ASSERT_TRUE(turnUntil([&] { return object.count() > 0; }));
    EXPECT_GE(object.times[0] - start, 5ms);
}

TEST_F(ObjectTimer, RepeatsWithItsIdUntilItIsKilled)
{
    Ticker object;
    const int id = object.startTimer(1);
    ASSERT_TRUE(turnUntil([&] { return object.count() >= 5; }));
    EXPECT_EQ(object.count(id), object.count());
    object.killTimer(id);
    const int before = object.count();
    turnFor(10ms);
    EXPECT_EQ(object.count(), before);
}

TEST_F(ObjectTimer, IntervalBelowOneIsRefused)
{
    Ticker object;
    for (const int interval : {0, -1, INT_MIN})
        EXPECT_EQ(object.startTimer(interval), 0) << interval;
    turnFor(5ms);
    EXPECT_EQ(object.count(), 0);
}

TEST_F(ObjectTimer, LongestIntervalIsAcceptedAndDoesNotTimeOut)
{
    Ticker object;
    EXPECT_GT(object.startTimer(INT_MAX), 0);
    turnFor(5ms);
    EXPECT_EQ(object.count(), 0);
}

TEST_F(ObjectTimer, IdsAreNeverGivenTwice)
{
    CkelObject first;
    CkelObject second;
    std::set<int> ids;
    for (int i = 0; i < 100; ++i) {
        CkelObject& object = i % 2 ? first : second;
        const int id = object.startTimer(1000);
        EXPECT_GT(id, 0);
        EXPECT_TRUE(ids.insert(id).second) << id;
        object.killTimer(id); // even now the ID stays used
    }
}

TEST_F(ObjectTimer, FiresOnlyWhileTheLoopTurns)
{
    Ticker object;
    object.startTimer(1);
    stall(10ms);
    EXPECT_EQ(object.count(), 0);
    EXPECT_TRUE(turnUntil([&] { return object.count() > 0; }));
}

TEST_F(ObjectTimer, IsNeverEarlyOverAHundredPeriods)
{
    constexpr auto interval = 2ms;
    Ticker object;
    const auto start = Clock::now();
    object.startTimer(2);
    ASSERT_TRUE(turnUntil([&] { return object.count() >= 100; }));
    for (int n = 1; n <= 100; ++n)
        ASSERT_GE(object.times[static_cast<std::size_t>(n) - 1] - start, n * interval) << n;
}

TEST_F(ObjectTimer, KeepsToItsGridOverAHundredPeriods)
{
    // A timer that counts its interval from the last time-out, however late that was, drifts; no two of its time-outs
    // are ever closer than the interval. On a grid the one after a late one is closer.
    constexpr auto interval = 10ms;
    Ticker object;
    object.startTimer(10);
    Clock::duration shortest = 1h;
    int seen = 0;
    ASSERT_TRUE(turnUntil([&] {
        for (; seen + 1 < object.count(); ++seen) {
            const auto at = static_cast<std::size_t>(seen);
            shortest = std::min(shortest, object.times[at + 1] - object.times[at]);
        }
        if (object.count() % 4 == 0)
            stall(15ms); // the next time-out is late by half an interval
        return seen >= 100 && shortest < interval;
    })) << "closest: "
        << std::chrono::duration<double, std::milli>(shortest).count() << " ms";
}

TEST_F(ObjectTimer, StalledLoopGetsOneTimeOutAndNoBurst)
{
    constexpr auto interval = 5ms;
    Ticker object;
    object.startTimer(5);
    stall(100ms);
    const auto end = Clock::now();
    ASSERT_TRUE(turnUntil([&] { return object.count() >= 3; }));
    // One for the stall, and one for each point of the grid since.
    const auto points = (object.times[2] - end) / interval + 1;
    EXPECT_LE(object.count(), 1 + points);
}

TEST_F(ObjectTimer, HandlerSlowerThanTheIntervalSkipsWhatItMissed)
{
    constexpr auto interval = 4ms;
    Ticker object;
    std::vector<Clock::time_point> ends;
    object.onTimeOut = [&](int) {
        stall(10ms);
        ends.push_back(Clock::now());
    };
    const auto before = Clock::now();
    object.startTimer(4);
    const auto after = Clock::now();
    ASSERT_TRUE(turnUntil([&] { return object.count() >= 6; }));
    for (std::size_t i = 0; i + 1 < object.times.size(); ++i) {
        // The first point of the grid behind the handler's end; the grid begins between `before` and `after`.
        const auto points = (ends[i] - after) / interval + 1;
        EXPECT_GE(object.times[i + 1] - before, points * interval) << i;
    }
}

TEST_F(ObjectTimer, OnePassRunsATimerOnceHoweverSlowTheHandlersAre)
{
    Ticker objects[4];
    for (Ticker& object : objects) {
        object.onTimeOut = [](int) { stall(3ms); };
        object.startTimer(1);
    }
    for (int i = 0; i < 20; ++i) {
        std::vector<int> before;
        for (const Ticker& object : objects)
            before.push_back(object.count());
        pass();
        for (std::size_t n = 0; n < before.size(); ++n)
            ASSERT_LE(objects[n].count() - before[n], 1) << "pass " << i << ", timer " << n;
    }
    EXPECT_TRUE(turnUntil([&] {
        return std::all_of(std::begin(objects), std::end(objects), [](const Ticker& each) { return each.count() > 1; });
    }));
}

TEST_F(ObjectTimer, TwoOfOneObjectRunOnTheirOwn)
{
    Ticker object;
    const int first = object.startTimer(1);
    const int second = object.startTimer(2);
    EXPECT_NE(first, second);
    ASSERT_TRUE(turnUntil([&] { return object.count(first) >= 3 && object.count(second) >= 3; }));
    object.killTimer(first);
    const int before = object.count(first);
    const int others = object.count(second);
    ASSERT_TRUE(turnUntil([&] { return object.count(second) >= others + 3; }));
    EXPECT_EQ(object.count(first), before);
}

TEST_F(ObjectTimer, KilledWhenItIsDueDoesNotFire)
{
    Ticker object;
    const int id = object.startTimer(1);
    stall(5ms);
    object.killTimer(id);
    turnFor(5ms);
    EXPECT_EQ(object.count(), 0);
}

TEST_F(ObjectTimer, KilledInsideItsHandlerFiresNoMore)
{
    Ticker object;
    object.onTimeOut = [&](int id) { object.killTimer(id); };
    object.startTimer(1);
    ASSERT_TRUE(turnUntil([&] { return object.count() > 0; }));
    turnFor(10ms);
    EXPECT_EQ(object.count(), 1);
}

TEST_F(ObjectTimer, KilledInsideAnotherHandlerDoesNotFireThoughItIsDue)
{
    Ticker object;
    std::vector<int> timers;
    for (int i = 0; i < 10; ++i)
        timers.push_back(object.startTimer(1));
    object.onTimeOut = [&](int) {
        for (const int id : timers)
            object.killTimer(id);
    };
    stall(5ms); // all are due
    turnFor(10ms);
    EXPECT_EQ(object.count(), 1);
}

TEST_F(ObjectTimer, DestroyedInsideItsHandlerFiresNoMore)
{
    int count = 0;
    auto* const object = new Ticker;
    object->onTimeOut = [&count, object](int) {
        int& counter = count;
        delete object; // and the captures with it
        ++counter;
    };
    object->startTimer(1);
    object->startTimer(1);
    stall(3ms);
    turnFor(10ms);
    EXPECT_EQ(count, 1);
}

TEST_F(ObjectTimer, ObjectDestroyedInsideAnotherHandlerIsNotCalledThoughItIsDue)
{
    CkelObject parent;
    std::vector<Ticker*> objects;
    int count = 0;
    for (int i = 0; i < 10; ++i) {
        objects.push_back(new Ticker(&parent));
        objects.back()->startTimer(1);
    }
    for (Ticker* const object : objects) {
        object->onTimeOut = [&, object](int) {
            ++count;
            for (Ticker*& other : objects) {
                if (other != object)
                    delete std::exchange(other, nullptr);
            }
        };
    }
    stall(5ms); // all are due
    pass();
    EXPECT_EQ(count, 1);
    EXPECT_EQ(parent.children().size(), 1U);
}

TEST_F(ObjectTimer, DestroyedObjectsTimersFireNoMore)
{
    Ticker witness;
    int count = 0;
    {
        Ticker object;
        object.onTimeOut = [&count](int) { ++count; };
        object.startTimer(1);
        object.startTimer(1);
        ASSERT_TRUE(turnUntil([&] { return count >= 2; }));
    }
    const int before = count;
    witness.startTimer(1);
    ASSERT_TRUE(turnUntil([&] { return witness.count() >= 5; }));
    EXPECT_EQ(count, before);
}

TEST_F(ObjectTimer, IdOfAnotherObjectOrOfNoTimerKillsNothing)
{
    Ticker object;
    Ticker stranger;
    const int id = object.startTimer(1);
    stranger.killTimer(id);
    for (const int none : {0, -1, INT_MIN, INT_MAX})
        object.killTimer(none);
    EXPECT_TRUE(turnUntil([&] { return object.count() >= 3; }));
    object.killTimer(id);
    object.killTimer(id);
    EXPECT_EQ(stranger.count(), 0);
}

TEST_F(ObjectTimer, StartedInsideAHandlerFiresAnIntervalLater)
{
    Ticker object;
    Ticker started;
    Clock::time_point start;
    object.onTimeOut = [&](int id) {
        object.killTimer(id);
        start = Clock::now();
        started.startTimer(3);
    };
    object.startTimer(1);
    ASSERT_TRUE(turnUntil([&] { return started.count() >= 2; }));
    EXPECT_GE(started.times[0] - start, 3ms);
    EXPECT_EQ(object.count(), 1);
}

TEST_F(ObjectTimer, AThousandOnOneLoopAllFire)
{
    std::vector<std::unique_ptr<Ticker>> objects;
    for (int i = 0; i < 1000; ++i) {
        objects.push_back(std::make_unique<Ticker>());
        ASSERT_GT(objects.back()->startTimer(1 + i % 7), 0);
    }
    ASSERT_TRUE(turnUntil([&] {
        return std::all_of(objects.begin(), objects.end(), [](const auto& object) { return object->count() >= 2; });
    }));
}

TEST_F(ObjectTimer, StartedOnAnotherThreadFiresOnTheObjectsThread)
{
    Ticker object;
    int id = 0;
    std::thread([&] { id = object.startTimer(1); }).join();
    EXPECT_GT(id, 0);
    ASSERT_TRUE(turnUntil([&] { return object.count(id) > 0; }));
    EXPECT_EQ(object.thread, std::this_thread::get_id());
}

TEST_F(ObjectTimer, KilledOnAnotherThreadFiresNoMore)
{
    Ticker object;
    const int id = object.startTimer(1);
    ASSERT_TRUE(turnUntil([&] { return object.count() > 0; }));
    std::thread([&] { object.killTimer(id); }).join();
    const int before = object.count();
    turnFor(10ms);
    EXPECT_EQ(object.count(), before);
}

TEST_F(ObjectTimer, StartedAndKilledOnAnotherThreadWhileTheLoopTurns)
{
    Ticker object;
    std::atomic<bool> done{false};
    std::thread other([&] {
        for (int i = 0; i < 500; ++i) {
            const int id = object.startTimer(1);
            if (i % 2)
                std::this_thread::yield();
            object.killTimer(id);
        }
        done = true;
    });
    EXPECT_TRUE(turnUntil([&] { return done.load(); }));
    other.join();
    const int before = object.count();
    turnFor(5ms);
    EXPECT_EQ(object.count(), before);
}

TEST_F(ObjectTimer, FilterKeepsTimeOutsAndTheTimerGoesOn)
{
    struct Filter : CkelObject
    {
        bool eventFilter(CkelObject*, CkelEvent* event) override
        {
            count += event->type() == CkelEvent::Timer;
            return keeps;
        }
        int count = 0;
        bool keeps = true;
    } filter;
    Ticker object;
    object.installEventFilter(&filter);
    object.startTimer(1);
    ASSERT_TRUE(turnUntil([&] { return filter.count >= 3; }));
    EXPECT_EQ(object.count(), 0);
    filter.keeps = false;
    EXPECT_TRUE(turnUntil([&] { return object.count() >= 3; }));
}

TEST_F(ObjectTimer, FilterMayDestroyTheObjectThatTimesOut)
{
    struct Filter : CkelObject
    {
        bool eventFilter(CkelObject* watched, CkelEvent*) override
        {
            ++count;
            delete watched;
            return false;
        }
        int count = 0;
    } filter;
    auto* const object = new Ticker;
    object->installEventFilter(&filter);
    object->startTimer(1);
    ASSERT_TRUE(turnUntil([&] { return filter.count > 0; }));
    turnFor(5ms);
    EXPECT_EQ(filter.count, 1);
}

TEST_F(ObjectTimer, TimeOutGoesThroughEvent)
{
    struct Watcher : CkelObject
    {
        bool event(CkelEvent* event) override
        {
            types.push_back(event->type());
            return true; // never calls timerEvent
        }
        void timerEvent(CkelTimerEvent*) override { ADD_FAILURE(); }
        std::vector<int> types;
    } object;
    object.startTimer(1);
    ASSERT_TRUE(turnUntil([&] { return object.types.size() >= 2; }));
    EXPECT_EQ(object.types[0], CkelEvent::Timer);
}

// Processes without file descriptors

/// Lets the process open no further file descriptors, unless it rehearses.
class NoDescriptors
{
public:
    NoDescriptors()
    {
        getrlimit(RLIMIT_NOFILE, &m_before);
        rlimit none = m_before;
        none.rlim_cur = rehearsal ? m_before.rlim_cur : 0;
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &m_before); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

    static bool rehearsal;

private:
    rlimit m_before{};
};

bool NoDescriptors::rehearsal = true;

template <typename Operation>
bool throwsSystemError(Operation operation)
{
    try {
        operation();
    } catch (const std::system_error&) {
        return true;
    }
    return false;
}

/// Ends the process with status 0 when `work` returns true on a thread that has no loop yet. The rehearsal is for
/// UBSan, which opens descriptors itself where it sees a type for the first time.
template <typename Work>
[[noreturn]] void endWith(Work work)
{
    bool good = !std::error_code(EMFILE, asio::error::get_system_category()).message().empty();
    const auto run = [&] { good = work(); };
    std::thread(run).join();
    NoDescriptors::rehearsal = false;
    std::thread(run).join();
    std::_Exit(good ? 0 : 1);
}

bool runsItsTimer(Ticker& object)
{
    bool ran = false;
    int argc = 0;
    CkelApplicationPlus app(argc, nullptr);
    for (const auto limit = Clock::now() + 10s; !ran && Clock::now() < limit; ran = object.count() > 0)
        app.processEvents();
    return ran;
}

TEST(DescriptorsDeathTest, AreNotNeededForObjectsWithoutTimers)
{
    const auto work = [] {
        const NoDescriptors none;
        int argc = 0;
        CkelApplicationPlus app(argc, nullptr);
        const CkelObject object;
        CkelThread thread;
        const bool started = thread.start();
        app.processEvents();
        thread.terminate();
        return started;
    };
    EXPECT_EXIT(endWith(work), testing::ExitedWithCode(0), "");
}

TEST(DescriptorsDeathTest, FirstTimerThrowsWithoutThemAndStartsLater)
{
    const auto work = [] {
        Ticker object;
        bool threw = false;
        {
            const NoDescriptors none;
            threw = throwsSystemError([&] { object.startTimer(1); });
        }
        return threw && object.startTimer(1) != 0 && runsItsTimer(object) &&
               object.count(object.ids[0]) == object.count();
    };
    EXPECT_EXIT(endWith(work), testing::ExitedWithCode(0), "");
}

TEST(DescriptorsDeathTest, FurtherTimersOfAThreadNeedNone)
{
    const auto work = [] {
        Ticker object;
        object.killTimer(object.startTimer(3600 * 1000));
        const NoDescriptors none;
        return object.startTimer(1) != 0 && runsItsTimer(object);
    };
    EXPECT_EXIT(endWith(work), testing::ExitedWithCode(0), "");
}

TEST(DescriptorsDeathTest, ObjectsThatCannotMoveWithoutThemKeepTheirTimers)
{
    const auto work = [] {
        CkelThread thread;
        CkelObject parent;
        auto* const object = new Ticker(&parent);
        object->startTimer(1);
        bool threw = false;
        {
            const NoDescriptors none;
            threw = throwsSystemError([&] { parent.moveToThread(&thread); });
        }
        if (!threw)
            return false;
        const bool ranHere = runsItsTimer(*object);
        const bool moved = parent.moveToThread(&thread);
        std::atomic<bool> ranThere{false};
        object->onTimeOut = [&](int) { ranThere = true; };
        thread.start();
        for (const auto limit = Clock::now() + 10s; !ranThere && Clock::now() < limit;)
            std::this_thread::sleep_for(100us);
        thread.terminate();
        return ranHere && moved && ranThere;
    };
    EXPECT_EXIT(endWith(work), testing::ExitedWithCode(0), "");
}

TEST(NestedLoop, HandlerThatTurnsTheLoopIsNotEnteredAgain)
{
    onFreshLoop([](CkelApplicationPlus& app) {
        Ticker slow;
        Ticker other;
        int depth = 0;
        int deepest = 0;
        bool otherRan = false;
        slow.onTimeOut = [&](int id) {
            deepest = std::max(deepest, ++depth);
            const int before = other.count();
            otherRan = turnUntil(app, [&] { return other.count() >= before + 3; });
            --depth;
            slow.killTimer(id);
        };
        slow.startTimer(1);
        other.startTimer(1);
        ASSERT_TRUE(turnUntil(app, [&] { return slow.count() > 0; }));
        EXPECT_TRUE(otherRan);
        EXPECT_EQ(deepest, 1);
    });
}

TEST(NestedLoop, EveryHandlerMayTurnTheLoopHoweverManyTimersAreDue)
{
    onFreshLoop([](CkelApplicationPlus& app) {
        constexpr int many = 50000;
        Ticker object;
        object.onTimeOut = [&](int id) {
            object.killTimer(id);
            app.processEvents();
        };
        for (int i = 0; i < many; ++i)
            object.startTimer(1);
        EXPECT_TRUE(turnUntil(app, [&] { return object.count() >= many; }));
        EXPECT_EQ(object.count(), many);
    });
}

TEST(NestedLoop, HandlerMayDestroyItsObjectAndTurnTheLoop)
{
    onFreshLoop([](CkelApplicationPlus& app) {
        Ticker other;
        int count = 0;
        bool otherRan = false;
        auto* const object = new Ticker;
        object->onTimeOut = [&, object](int) {
            const auto after = [&app, &other, &count, &otherRan] {
                ++count;
                otherRan = turnUntil(app, [&other] { return other.count() >= 3; });
            };
            delete object; // and the captures with it
            after();
        };
        other.startTimer(1);
        object->startTimer(1);
        ASSERT_TRUE(turnUntil(app, [&] { return count > 0; }));
        EXPECT_TRUE(otherRan);
        EXPECT_EQ(count, 1);
    });
}

TEST(NestedLoop, GoesOnAfterAHandlerHasTurnedItManyTimes)
{
    onFreshLoop([](CkelApplicationPlus& app) {
        Ticker object;
        object.onTimeOut = [&](int) {
            if (object.count() > 1)
                return;
            for (int i = 0; i < 20; ++i)
                app.processEvents();
        };
        object.startTimer(1);
        EXPECT_TRUE(turnUntil(app, [&] { return object.count() >= 5; }));
    });
}

TEST(NestedLoop, ExecInAHandlerThatExecRunsDeliversWhatWasPostedBefore)
{
    onFreshLoop([](CkelApplicationPlus& app) {
        EXPECT_TRUE(hearsInInnerExec(app, [&](const auto&) {
            app.exec();
            return true;
        }));
    });
}

TEST(NestedLoop, ExecInAHandlerThatProcessEventsRunsDeliversWhatWasPostedBefore)
{
    onFreshLoop([](CkelApplicationPlus& app) {
        EXPECT_TRUE(hearsInInnerExec(app, [&](const auto& done) { return turnUntil(app, done); }));
    });
}

TEST(NestedLoop, QuitEndsTheInnerExecAndThenTheOuter)
{
    onFreshLoop([](CkelApplicationPlus& app) {
        int inner = 0;
        Ticker object;
        object.onTimeOut = [&](int) {
            if (object.count() == 1)
                inner = app.exec();
            else
                app.quit(object.count());
        };
        // The first time-out is not over while its handler is in the inner loop, so another timer goes on there.
        object.startTimer(1);
        object.startTimer(2);
        const int outer = app.exec();
        EXPECT_GE(inner, 2);
        EXPECT_GT(outer, inner);
    });
}

TEST(NestedLoop, TurnsOnAfterAHandlerThrew)
{
    onFreshLoop([](CkelApplicationPlus& app) {
        Ticker object;
        object.onTimeOut = [&](int id) {
            object.killTimer(id);
            throw std::runtime_error("from a handler");
        };
        object.startTimer(1);
        const auto turn = [&] { return turnUntil(app, [&] { return object.count() > 1; }); };
        EXPECT_THROW(turn(), std::runtime_error);
        Ticker other;
        other.startTimer(1);
        EXPECT_TRUE(turnUntil(app, [&] { return other.count() >= 3; }));
    });
}

TEST(NestedLoop, PassAfterAHandlerThrewRunsAllThatIsDue)
{
    onFreshLoop([](CkelApplicationPlus& app) {
        Ticker object;
        object.onTimeOut = [&](int id) {
            object.killTimer(id);
            throw std::runtime_error("from a handler");
        };
        object.startTimer(1);
        stall(3ms);
        EXPECT_THROW(app.processEvents(), std::runtime_error);
        Ticker other;
        other.startTimer(1);
        stall(3ms);
        app.processEvents();
        EXPECT_GE(other.count(), 1);
    });
}

TEST(NestedLoop, TimerGoesOnAfterItsHandlerThrew)
{
    onFreshLoop([](CkelApplicationPlus& app) {
        Ticker object;
        object.onTimeOut = [&](int) {
            if (object.count() == 1)
                throw std::runtime_error("from a handler");
        };
        object.startTimer(1);
        const auto turn = [&] { return turnUntil(app, [&] { return object.count() >= 3; }); };
        EXPECT_THROW(turn(), std::runtime_error);
        EXPECT_TRUE(turn());
    });
}

TEST_F(Timer, BelongsToItsClass)
{
    const CkelTimer timer;
    EXPECT_EQ(timer.className(), "CkelTimer");
    EXPECT_TRUE(timer.inherits("CkelObject"));
}

TEST_F(Timer, LivesUnderItsParent)
{
    CkelObject parent;
    auto* const timer = new CkelTimer(&parent);
    timer->start(1);
    EXPECT_EQ(timer->parent(), &parent);
}

TEST_F(Timer, IsActiveFromStartToStop)
{
    CkelTimer timer;
    EXPECT_FALSE(timer.isActive());
    timer.start(1000);
    EXPECT_TRUE(timer.isActive());
    timer.stop();
    EXPECT_FALSE(timer.isActive());
    timer.stop();
    EXPECT_FALSE(timer.isActive());
}

TEST_F(Timer, StaysActiveWhileItRepeats)
{
    CkelTimer timer;
    int count = 0;
    timer.connectTimeOut("count", [&] { ++count; });
    timer.start(1);
    ASSERT_TRUE(turnUntil([&] { return count >= 3; }));
    EXPECT_TRUE(timer.isActive());
    timer.stop();
    const int before = count;
    turnFor(10ms);
    EXPECT_EQ(count, before);
}

TEST_F(Timer, IntervalBelowOneStopsIt)
{
    for (const int interval : {0, -1, INT_MIN}) {
        CkelTimer timer;
        int count = 0;
        timer.connectTimeOut("count", [&] { ++count; });
        timer.start(1);
        timer.start(interval);
        EXPECT_FALSE(timer.isActive());
        turnFor(5ms);
        EXPECT_EQ(count, 0);
    }
}

TEST_F(Timer, CallsItsSlotsInTheOrderOfConnection)
{
    CkelTimer timer;
    std::string calls;
    for (const char* const name : {"b", "a", "d", "c"})
        timer.connectTimeOut(name, [&calls, name] { calls += name; });
    timer.start(1);
    ASSERT_TRUE(turnUntil([&] { return calls.size() >= 8; }));
    EXPECT_EQ(calls.substr(0, 8), "badcbadc");
}

TEST_F(Timer, WithoutSlotsTimesOutInSilence)
{
    CkelTimer timer;
    CkelTimer other;
    int count = 0;
    other.connectTimeOut("count", [&] { ++count; });
    timer.start(1);
    other.start(1);
    ASSERT_TRUE(turnUntil([&] { return count >= 3; }));
    EXPECT_TRUE(timer.isActive());
}

TEST_F(Timer, DisconnectRemovesEveryConnectionOfTheName)
{
    CkelTimer timer;
    std::string calls;
    timer.connectTimeOut("a", [&] { calls += "1"; });
    timer.connectTimeOut("b", [&] { calls += "2"; });
    timer.connectTimeOut("a", [&] { calls += "3"; });
    timer.start(1);
    ASSERT_TRUE(turnUntil([&] { return calls.size() >= 3; }));
    EXPECT_EQ(calls.substr(0, 3), "123");
    timer.disconnectTimeOut("a");
    timer.disconnectTimeOut("unknown");
    calls.clear();
    ASSERT_TRUE(turnUntil([&] { return calls.size() >= 2; }));
    EXPECT_EQ(calls.substr(0, 2), "22");
}

TEST_F(Timer, StartedAnewCountsFromThere)
{
    CkelTimer timer;
    Clock::time_point first;
    timer.connectTimeOut("note", [&] {
        if (first == Clock::time_point())
            first = Clock::now();
    });
    timer.start(4);
    stall(6ms); // due, but not seen
    const auto again = Clock::now();
    timer.start(8);
    ASSERT_TRUE(turnUntil([&] { return first != Clock::time_point(); }));
    EXPECT_GE(first - again, 8ms);
}

TEST_F(Timer, MayStopInItsSlot)
{
    CkelTimer timer;
    int count = 0;
    timer.connectTimeOut("stop", [&] {
        ++count;
        timer.stop();
        EXPECT_FALSE(timer.isActive());
    });
    timer.start(1);
    ASSERT_TRUE(turnUntil([&] { return count > 0; }));
    turnFor(10ms);
    EXPECT_EQ(count, 1);
}

TEST_F(Timer, MayRestartInItsSlot)
{
    CkelTimer timer;
    std::vector<Clock::time_point> times;
    std::vector<Clock::time_point> starts;
    timer.connectTimeOut("restart", [&] {
        times.push_back(Clock::now());
        starts.push_back(Clock::now());
        timer.start(3);
    });
    timer.start(1);
    ASSERT_TRUE(turnUntil([&] { return times.size() >= 5; }));
    EXPECT_TRUE(timer.isActive());
    for (std::size_t i = 1; i < times.size(); ++i)
        EXPECT_GE(times[i] - starts[i - 1], 3ms) << i;
}

TEST_F(Timer, MayBeDeletedInItsSlot)
{
    int count = 0;
    auto* const timer = new CkelTimer;
    timer->connectTimeOut("delete", [&count, timer] {
        delete timer;
        ++count; // the slot's own captures live until it returns
    });
    timer->start(1);
    ASSERT_TRUE(turnUntil([&] { return count > 0; }));
    turnFor(5ms);
    EXPECT_EQ(count, 1);
}

TEST_F(Timer, MayBeDestroyedWithItsParentInItsSlot)
{
    int count = 0;
    auto* const parent = new CkelObject;
    auto* const timer = new CkelTimer(parent);
    timer->connectTimeOut("delete", [&count, parent] {
        delete parent;
        ++count;
    });
    timer->start(1);
    ASSERT_TRUE(turnUntil([&] { return count > 0; }));
    turnFor(5ms);
    EXPECT_EQ(count, 1);
}

TEST_F(Timer, SlotConnectedInASlotIsCalledFromTheNextTimeOutOn)
{
    CkelTimer timer;
    std::string calls;
    timer.connectTimeOut("a", [&] {
        if (calls.empty())
            timer.connectTimeOut("b", [&] { calls += "b"; });
        calls += "a";
    });
    timer.start(1);
    ASSERT_TRUE(turnUntil([&] { return calls.size() >= 5; }));
    EXPECT_EQ(calls.substr(0, 5), "aabab");
}

TEST_F(Timer, SlotDisconnectedInASlotIsCalledForTheLastTime)
{
    CkelTimer timer;
    std::string calls;
    timer.connectTimeOut("a", [&] {
        timer.disconnectTimeOut("b");
        timer.disconnectTimeOut("a");
        calls += "a";
    });
    timer.connectTimeOut("b", [&] { calls += "b"; });
    timer.connectTimeOut("c", [&] { calls += "c"; });
    timer.start(1);
    ASSERT_TRUE(turnUntil([&] { return calls.size() >= 5; }));
    EXPECT_EQ(calls.substr(0, 5), "abccc");
}

TEST_F(Timer, TakesNoNoticeOfOtherTimersOfTheObject)
{
    CkelTimer timer;
    int count = 0;
    timer.connectTimeOut("count", [&] { ++count; });
    timer.startTimer(1);
    timer.start(1000000);
    turnFor(10ms);
    EXPECT_EQ(count, 0);
    EXPECT_TRUE(timer.isActive());
}

TEST_F(Timer, DestroyedWhileItRunsCallsNothingMore)
{
    int count = 0;
    {
        CkelTimer timer;
        timer.connectTimeOut("count", [&] { ++count; });
        timer.start(1);
        ASSERT_TRUE(turnUntil([&] { return count > 0; }));
    }
    const int before = count;
    turnFor(10ms);
    EXPECT_EQ(count, before);
}

TEST_F(Timer, MayBeStartedAndStoppedOnAnotherThread)
{
    CkelTimer timer;
    int count = 0;
    std::thread::id where;
    timer.connectTimeOut("count", [&] {
        ++count;
        where = std::this_thread::get_id();
    });
    std::thread([&] { timer.start(1); }).join();
    EXPECT_TRUE(timer.isActive());
    ASSERT_TRUE(turnUntil([&] { return count >= 2; }));
    EXPECT_EQ(where, std::this_thread::get_id());
    std::thread([&] { timer.stop(); }).join();
    EXPECT_FALSE(timer.isActive());
    const int before = count;
    turnFor(10ms);
    EXPECT_EQ(count, before);
}

TEST_F(Timer, StartedOnTwoThreadsAtOnceRunsOnce)
{
    struct Watcher : CkelTimer
    {
        bool event(CkelEvent* event) override
        {
            if (event->type() == CkelEvent::Timer)
                ids.insert(static_cast<CkelTimerEvent*>(event)->timerId());
            return CkelTimer::event(event);
        }
        std::set<int> ids;
    } timer;
    const auto startOften = [&timer] {
        for (int i = 0; i < 3000; ++i)
            timer.start(1);
    };
    std::thread first(startOften);
    std::thread second(startOften);
    first.join();
    second.join();

    int count = 0;
    timer.connectTimeOut("count", [&] { ++count; });
    ASSERT_TRUE(turnUntil([&] { return count >= 3; }));
    EXPECT_EQ(timer.ids.size(), 1U) << "timers that nobody can stop";
    timer.stop();
    timer.ids.clear();
    turnFor(5ms);
    EXPECT_TRUE(timer.ids.empty());
}
