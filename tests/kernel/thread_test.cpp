#include "kernel/kelthread.h"

#include "kernel/kelevent.h"
#include "kernel/keltimer.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

using namespace Ombrin;
using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;

/// Waits until `done` holds. False when it did not in good time.
bool waitUntil(const std::function<bool()>& done)
{
    for (const auto limit = Clock::now() + 10s; !done(); std::this_thread::sleep_for(100us)) {
        if (Clock::now() > limit)
            return false;
    }
    return true;
}

/// Counts its time-outs and notes the thread of the last one.
class Probe : public CkelObject
{
public:
    explicit Probe(CkelObject* parent = nullptr) : CkelObject(parent) {}

    void timerEvent(CkelTimerEvent* /*event*/) override
    {
        thread = std::this_thread::get_id();
        ++count;
        if (onTimeOut)
            onTimeOut();
    }

    std::atomic<int> count{0};
    std::atomic<std::thread::id> thread{};
    std::function<void()> onTimeOut;
};

/// A thread that says which one it is, and does without exec() what a case asks for.
class Worker : public CkelThread
{
public:
    ~Worker() override { terminate(); }

    void run() override
    {
        id = std::this_thread::get_id();
        if (work)
            work();
        else
            code = exec();
        finished = true;
    }

    using CkelThread::exec;

    std::function<void()> work;
    std::atomic<std::thread::id> id{};
    std::atomic<int> code{-1};
    std::atomic<bool> finished{false};
};

/// A thread whose loop runs a probe, and thereby turns.
bool isTurning(CkelThread& thread)
{
    Probe probe;
    std::atomic<bool> ran{false};
    probe.onTimeOut = [&] { ran = true; };
    probe.startTimer(1);
    probe.moveToThread(&thread);
    const bool turning = waitUntil([&] { return ran.load(); });
    thread.quit();
    thread.wait(); // before the probe goes
    return turning;
}

/// Destroys a thread in a handler that runs on it. True when the thread has ended in good time.
bool destroyThreadOnItself()
{
    static std::atomic<bool> gone{false};
    struct Witness
    {
        ~Witness() { gone = true; }
    };
    auto* const thread = new CkelThread;
    auto* const probe = new Probe;
    probe->onTimeOut = [probe, thread] {
        thread_local const Witness witness; // dies with the thread
        static_cast<void>(witness);
        CkelThread* const self = thread; // the captures go with the probe
        delete probe;
        delete self;
    };
    thread->moveToThread(thread);
    thread->start();
    probe->startTimer(1);
    probe->moveToThread(thread);
    return waitUntil([] { return gone.load(); });
}

} // namespace

TEST(Thread, BelongsToItsClass)
{
    CkelObject parent;
    auto* const thread = new CkelThread(&parent);
    EXPECT_EQ(thread->className(), "CkelThread");
    EXPECT_TRUE(thread->inherits("CkelObject"));
    EXPECT_EQ(thread->parent(), &parent);
}

TEST(Thread, DoesNotRunBeforeItIsStarted)
{
    CkelThread thread;
    EXPECT_FALSE(thread.isRunning());
    thread.wait(); // at once
    EXPECT_FALSE(thread.isRunning());
}

TEST(Thread, RunsItsLoopOnAThreadOfItsOwn)
{
    Worker thread;
    ASSERT_TRUE(thread.start());
    EXPECT_TRUE(thread.isRunning());
    EXPECT_TRUE(isTurning(thread));
    EXPECT_NE(thread.id.load(), std::this_thread::get_id());
    EXPECT_NE(thread.id.load(), std::thread::id());
}

TEST(Thread, PlainThreadRunsExec)
{
    CkelThread thread;
    ASSERT_TRUE(thread.start());
    EXPECT_TRUE(isTurning(thread));
    EXPECT_FALSE(thread.isRunning());
}

TEST(Thread, RunsOnlyOnce)
{
    Worker thread;
    ASSERT_TRUE(thread.start());
    EXPECT_FALSE(thread.start());
    thread.quit();
    thread.wait();
    EXPECT_FALSE(thread.start());
    EXPECT_FALSE(thread.isRunning());
}

TEST(Thread, IsRunningUntilRunReturns)
{
    Worker thread;
    std::atomic<bool> release{false};
    std::atomic<bool> inside{false};
    thread.work = [&] {
        inside = thread.isRunning();
        while (!release)
            std::this_thread::yield();
    };
    ASSERT_TRUE(thread.start());
    EXPECT_TRUE(waitUntil([&] { return inside.load(); }));
    EXPECT_TRUE(thread.isRunning());
    release = true;
    thread.wait();
    EXPECT_FALSE(thread.isRunning());
    EXPECT_TRUE(thread.finished);
}

TEST(Thread, QuitEndsExecWithItsCode)
{
    Worker thread;
    ASSERT_TRUE(thread.start());
    thread.quit(42);
    thread.wait();
    EXPECT_EQ(thread.code, 42);
}

TEST(Thread, QuitWithoutCodeEndsExecWithZero)
{
    Worker thread;
    ASSERT_TRUE(thread.start());
    thread.quit();
    thread.wait();
    EXPECT_EQ(thread.code, 0);
}

TEST(Thread, QuitBeforeStartEndsExecAtOnce)
{
    Worker thread;
    Probe probe;
    probe.startTimer(1);
    probe.moveToThread(&thread);
    thread.quit(7);
    std::this_thread::sleep_for(3ms); // the probe is due
    ASSERT_TRUE(thread.start());
    thread.wait();
    EXPECT_EQ(thread.code, 7);
    EXPECT_EQ(probe.count, 0);
}

TEST(Thread, QuitInAHandlerLetsItRunToItsEnd)
{
    Worker thread;
    Probe probe;
    bool ended = false;
    probe.onTimeOut = [&] {
        thread.quit(3);
        ended = true;
    };
    probe.startTimer(1);
    probe.moveToThread(&thread);
    ASSERT_TRUE(thread.start());
    thread.wait();
    EXPECT_TRUE(ended);
    EXPECT_EQ(probe.count, 1);
    EXPECT_EQ(thread.code, 3);
}

TEST(Thread, ExecMayRunAgainAfterQuit)
{
    Worker thread;
    std::vector<int> codes;
    Probe probe;
    probe.onTimeOut = [&] { thread.quit(probe.count); };
    probe.startTimer(1);
    probe.moveToThread(&thread);
    thread.work = [&] {
        codes.push_back(thread.exec());
        codes.push_back(thread.exec());
    };
    ASSERT_TRUE(thread.start());
    thread.wait();
    EXPECT_EQ(codes, (std::vector<int>{1, 2}));
}

TEST(Thread, RunWithoutExecEndsByItself)
{
    Worker thread;
    bool ran = false;
    thread.work = [&] { ran = true; };
    ASSERT_TRUE(thread.start());
    thread.wait();
    EXPECT_TRUE(ran);
    thread.wait(); // again
    thread.quit(); // too late, no harm
    EXPECT_FALSE(thread.isRunning());
}

TEST(Thread, EveryPriorityIsAccepted)
{
    for (int priority = CkelThread::IdlePriority; priority <= CkelThread::InheritPriority; ++priority) {
        CkelThread thread;
        EXPECT_TRUE(thread.start(static_cast<CkelThread::Priority>(priority))) << priority;
        EXPECT_TRUE(isTurning(thread)) << priority;
    }
}

TEST(Thread, PriorityOutsideTheListIsIgnored)
{
    for (const int priority : {-1, 8, 1000}) {
        CkelThread thread;
        EXPECT_TRUE(thread.start(static_cast<CkelThread::Priority>(priority))) << priority;
        EXPECT_TRUE(isTurning(thread)) << priority;
    }
}

TEST(Thread, LowPriorityIsThatOfTheThreadAlone)
{
    const auto niceness = [] { return getpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid))); };
    const int before = niceness();
    Worker thread;
    int inside = INT_MIN;
    thread.work = [&] { inside = niceness(); };
    ASSERT_TRUE(thread.start(CkelThread::LowestPriority));
    thread.wait();
    EXPECT_GE(inside, 10);
    EXPECT_EQ(niceness(), before);
}

TEST(Thread, StartsAndDestructionsInALoop)
{
    for (int i = 0; i < 200; ++i) {
        CkelThread thread;
        Probe probe;
        probe.startTimer(1);
        probe.moveToThread(&thread);
        ASSERT_TRUE(thread.start()) << i;
        if (i % 3 == 0)
            std::this_thread::yield();
        thread.terminate();
        ASSERT_FALSE(thread.isRunning()) << i;
    }
}

TEST(Thread, DestructionEndsARunningThread)
{
    Probe probe;
    probe.startTimer(1);
    {
        CkelThread thread;
        probe.moveToThread(&thread);
        ASSERT_TRUE(thread.start());
        ASSERT_TRUE(waitUntil([&] { return probe.count > 0; }));
    }
    const int before = probe.count;
    std::this_thread::sleep_for(5ms);
    EXPECT_EQ(probe.count, before);
}

TEST(Thread, DestructionRightAfterStartEndsIt)
{
    for (int i = 0; i < 50; ++i) {
        CkelThread thread;
        ASSERT_TRUE(thread.start());
    }
}

TEST(Thread, DestructionOfOneThatNeverStarted)
{
    Probe probe;
    probe.startTimer(1);
    {
        CkelThread thread;
        EXPECT_TRUE(probe.moveToThread(&thread));
    }
    probe.startTimer(1); // on a loop that nobody turns any more
    EXPECT_EQ(probe.count, 0);
}

TEST(Thread, MayBeDestroyedOnItself)
{
    EXPECT_EXIT(std::_Exit(destroyThreadOnItself() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(ThreadTermination, EndsAnIdleLoop)
{
    Worker thread;
    ASSERT_TRUE(thread.start());
    ASSERT_TRUE(waitUntil([&] { return thread.id.load() != std::thread::id(); }));
    std::this_thread::sleep_for(2ms); // most likely it waits in its loop by now
    thread.terminate();
    EXPECT_FALSE(thread.isRunning());
    EXPECT_TRUE(thread.finished);
}

TEST(ThreadTermination, ReturnsAfterTheHandlerInProgressHasEnded)
{
    CkelThread thread;
    Probe probe;
    std::atomic<bool> release{false};
    std::atomic<bool> ended{false};
    probe.onTimeOut = [&] {
        while (!release)
            std::this_thread::yield();
        std::this_thread::sleep_for(5ms);
        ended = true;
    };
    probe.startTimer(1);
    probe.moveToThread(&thread);
    ASSERT_TRUE(thread.start());
    ASSERT_TRUE(waitUntil([&] { return probe.count > 0; }));
    release = true;
    thread.terminate();
    EXPECT_TRUE(ended);
    const int before = probe.count;
    std::this_thread::sleep_for(5ms);
    EXPECT_EQ(probe.count, before);
}

TEST(ThreadTermination, DropsWhatWaitsWhileAHandlerRuns)
{
    // The handler itself terminates its thread, so that all the others wait for certain.
    Worker thread;
    std::vector<std::unique_ptr<Probe>> probes;
    std::atomic<int> ended{0};
    ASSERT_TRUE(thread.start());
    for (int i = 0; i < 10; ++i) {
        auto probe = std::make_unique<Probe>();
        probe->onTimeOut = [&] {
            std::this_thread::sleep_for(5ms); // everything else is due
            thread.terminate();
            ++ended;
        };
        probe->startTimer(1);
        probe->moveToThread(&thread);
        probes.push_back(std::move(probe));
    }
    thread.wait();
    EXPECT_EQ(ended, 1);
    int count = 0;
    for (const auto& probe : probes)
        count += probe->count;
    EXPECT_EQ(count, 1);
    EXPECT_TRUE(thread.finished);
}

TEST(ThreadTermination, BeforeStartForbidsIt)
{
    Worker thread;
    thread.terminate();
    EXPECT_FALSE(thread.start());
    EXPECT_FALSE(thread.isRunning());
    EXPECT_EQ(thread.id.load(), std::thread::id());
}

TEST(ThreadTermination, AfterRunningForbidsAnotherStart)
{
    Worker thread;
    ASSERT_TRUE(thread.start());
    thread.terminate();
    EXPECT_FALSE(thread.start());
}

TEST(ThreadTermination, BeforeExecIsReachedMakesItReturnAtOnce)
{
    Worker thread;
    Probe probe;
    probe.startTimer(1);
    probe.moveToThread(&thread);
    thread.work = [&] {
        thread.terminate();
        std::this_thread::sleep_for(3ms); // the probe is due
        thread.code = thread.exec();
    };
    ASSERT_TRUE(thread.start());
    thread.wait();
    EXPECT_EQ(thread.code, 0);
    EXPECT_EQ(probe.count, 0);
}

TEST(ThreadTermination, RightAfterStartWaitsForTheEnd)
{
    for (int i = 0; i < 50; ++i) {
        Worker thread;
        ASSERT_TRUE(thread.start());
        thread.terminate();
        ASSERT_TRUE(thread.finished);
    }
}

TEST(ThreadTermination, MayBeAskedForTwice)
{
    Worker thread;
    ASSERT_TRUE(thread.start());
    thread.terminate();
    thread.terminate();
    EXPECT_FALSE(thread.isRunning());
}

TEST(ThreadTermination, AfterTheEndChangesNothing)
{
    Worker thread;
    ASSERT_TRUE(thread.start());
    thread.quit(5);
    thread.wait();
    thread.terminate();
    EXPECT_EQ(thread.code, 5);
}

TEST(ThreadTermination, WaitsForARunWithoutExec)
{
    Worker thread;
    thread.work = [] { std::this_thread::sleep_for(5ms); };
    ASSERT_TRUE(thread.start());
    thread.terminate();
    EXPECT_TRUE(thread.finished);
    EXPECT_FALSE(thread.isRunning());
}

TEST(ThreadTermination, OnTheThreadItselfWhileItIsBeingStarted)
{
    for (int i = 0; i < 100; ++i) {
        Worker thread;
        thread.work = [&] { thread.terminate(); };
        ASSERT_TRUE(thread.start());
        thread.wait();
        ASSERT_TRUE(thread.finished);
        ASSERT_FALSE(thread.start());
    }
}

TEST(MoveToThread, IsRefusedForNull)
{
    CkelObject object;
    EXPECT_FALSE(object.moveToThread(nullptr));
}

TEST(MoveToThread, IsRefusedForAnObjectWithAParent)
{
    Worker thread;
    CkelObject parent;
    Probe child(&parent);
    child.startTimer(1);
    EXPECT_FALSE(child.moveToThread(&thread));
    ASSERT_TRUE(thread.start());
    std::this_thread::sleep_for(5ms);
    thread.terminate();
    EXPECT_EQ(child.count, 0);                                             // its timer stayed on this thread's loop
    EXPECT_TRUE(std::make_unique<CkelObject>(&child)->parent() == &child); // and so did the object
}

TEST(MoveToThread, BeforeStartLetsTimersFireThere)
{
    Worker thread;
    Probe probe;
    probe.startTimer(1);
    EXPECT_TRUE(probe.moveToThread(&thread));
    std::this_thread::sleep_for(5ms);
    EXPECT_EQ(probe.count, 0);
    ASSERT_TRUE(thread.start());
    ASSERT_TRUE(waitUntil([&] { return probe.count >= 3; }));
    thread.terminate();
    EXPECT_EQ(probe.thread.load(), thread.id.load());
}

TEST(MoveToThread, AfterStartLetsRunningTimersFireThere)
{
    Worker thread;
    ASSERT_TRUE(thread.start());
    Probe probe;
    const auto start = Clock::now();
    std::atomic<bool> early{false};
    probe.onTimeOut = [&] {
        if (Clock::now() - start < probe.count.load() * 3ms)
            early = true;
    };
    probe.startTimer(3);
    probe.startTimer(1000000);
    EXPECT_TRUE(probe.moveToThread(&thread));
    ASSERT_TRUE(waitUntil([&] { return probe.count >= 3; }));
    thread.terminate();
    EXPECT_EQ(probe.thread.load(), thread.id.load());
    EXPECT_FALSE(early);
}

TEST(MoveToThread, TimersStartedAndKilledAfterTheMoveAreThere)
{
    Worker thread;
    ASSERT_TRUE(thread.start());
    Probe probe;
    EXPECT_TRUE(probe.moveToThread(&thread));
    const int first = probe.startTimer(1);
    ASSERT_TRUE(waitUntil([&] { return probe.count >= 2; }));
    EXPECT_EQ(probe.thread.load(), thread.id.load());
    probe.killTimer(first);
    Probe witness; // what was in progress has ended when this one has come round
    witness.startTimer(1);
    witness.moveToThread(&thread);
    ASSERT_TRUE(waitUntil([&] { return witness.count >= 1; }));
    const int before = probe.count;
    ASSERT_TRUE(waitUntil([&] { return witness.count >= 5; }));
    thread.terminate();
    EXPECT_EQ(probe.count, before);
}

TEST(MoveToThread, TakesTheChildrenAndTheirTimersAlong)
{
    Worker thread;
    CkelObject parent;
    auto* const child = new Probe(&parent);
    auto* const grandchild = new Probe(child);
    child->startTimer(1);
    grandchild->startTimer(1);
    EXPECT_TRUE(parent.moveToThread(&thread));
    ASSERT_TRUE(thread.start());
    ASSERT_TRUE(waitUntil([&] { return child->count >= 2 && grandchild->count >= 2; }));
    thread.terminate();
    EXPECT_EQ(child->thread.load(), thread.id.load());
    EXPECT_EQ(grandchild->thread.load(), thread.id.load());
    CkelObject stranger;
    EXPECT_FALSE(stranger.setParent(grandchild)); // which is of the other thread now
}

TEST(MoveToThread, HasMovedAllChildrenBeforeAHandlerRunsThere)
{
    Worker thread;
    ASSERT_TRUE(thread.start());
    Probe parent;
    for (int i = 0; i < 5000; ++i)
        new CkelObject(&parent);
    CkelObject* const last = parent.children().back();
    std::atomic<bool> together{true};
    parent.onTimeOut = [&] {
        CkelObject visitor;
        if (!visitor.setParent(last))
            together = false;
    };
    parent.startTimer(1);
    std::this_thread::sleep_for(3ms); // due at once over there
    EXPECT_TRUE(parent.moveToThread(&thread));
    EXPECT_TRUE(waitUntil([&] { return parent.count >= 2; }));
    thread.terminate();
    EXPECT_TRUE(together);
}

TEST(MoveToThread, AwayAndBackBeforeEitherThreadRuns)
{
    Worker first;
    Worker second;
    Probe probe;
    const auto start = Clock::now();
    std::atomic<bool> early{false};
    probe.onTimeOut = [&] {
        if (Clock::now() - start < probe.count.load() * 2ms)
            early = true;
    };
    probe.startTimer(2);
    EXPECT_TRUE(probe.moveToThread(&first));
    EXPECT_TRUE(probe.moveToThread(&second));
    EXPECT_TRUE(probe.moveToThread(&first));
    EXPECT_TRUE(probe.moveToThread(&first)); // where it is
    ASSERT_TRUE(second.start());
    ASSERT_TRUE(first.start());
    ASSERT_TRUE(waitUntil([&] { return probe.count >= 5; }));
    first.terminate();
    second.terminate();
    EXPECT_EQ(probe.thread.load(), first.id.load());
    EXPECT_FALSE(early);
}

TEST(MoveToThread, InAHandlerTheTimerKeepsItsGridOnTheOtherThread)
{
    constexpr auto interval = 20ms;
    Worker first;
    Worker second;
    ASSERT_TRUE(first.start());
    ASSERT_TRUE(second.start());
    Probe probe;
    std::mutex mutex;
    std::vector<Clock::time_point> times;
    std::vector<std::thread::id> threads;
    probe.onTimeOut = [&] {
        const std::lock_guard<std::mutex> lock(mutex);
        times.push_back(Clock::now());
        threads.push_back(std::this_thread::get_id());
        if (times.size() < 6) // there and back
            probe.moveToThread(threads.back() == first.id ? &second : &first);
    };
    const auto start = Clock::now();
    probe.startTimer(20);
    probe.moveToThread(&first);
    ASSERT_TRUE(waitUntil([&] { return probe.count >= 6; }));
    first.terminate();
    second.terminate();
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(threads[i], i % 2 ? second.id.load() : first.id.load()) << i;
        EXPECT_GE(times[i] - start, static_cast<int>(i + 1) * interval) << i;
    }
}

TEST(MoveToThread, TimersStartedFromElsewhereFollowAnObjectThatMoves)
{
    Worker thread;
    ASSERT_TRUE(thread.start());
    Probe probe;
    std::atomic<bool> go{false};
    std::thread other([&] {
        while (!go)
            std::this_thread::yield();
        for (int i = 0; i < 200; ++i)
            probe.killTimer(probe.startTimer(1));
        probe.startTimer(1);
    });
    go = true;
    EXPECT_TRUE(probe.moveToThread(&thread));
    other.join();
    const int before = probe.count;
    EXPECT_TRUE(waitUntil([&] { return probe.count > before + 1; }));
    thread.terminate();
    EXPECT_EQ(probe.thread.load(), thread.id.load());
}

TEST(MoveToThread, TimerKilledFromElsewhereWhileItsObjectMovesStaysDead)
{
    Worker thread;
    ASSERT_TRUE(thread.start());
    std::vector<std::unique_ptr<Probe>> probes;
    for (int round = 0; round < 100; ++round) {
        auto probe = std::make_unique<Probe>();
        for (int i = 0; i < 300; ++i) // the move takes its time
            new CkelObject(probe.get());
        const int id = probe->startTimer(1);
        std::atomic<bool> go{false};
        std::thread killer([&] {
            while (!go)
                std::this_thread::yield();
            probe->killTimer(id);
        });
        go = true;
        EXPECT_TRUE(probe->moveToThread(&thread));
        killer.join();
        probes.push_back(std::move(probe));
    }
    Probe witness; // what was in progress has ended when this one has come round
    witness.startTimer(1);
    witness.moveToThread(&thread);
    EXPECT_TRUE(waitUntil([&] { return witness.count >= 1; }));
    std::vector<int> before;
    for (const auto& probe : probes)
        before.push_back(probe->count);
    const int seen = witness.count;
    EXPECT_TRUE(waitUntil([&] { return witness.count >= seen + 3; }));
    thread.terminate();
    for (std::size_t i = 0; i < probes.size(); ++i)
        EXPECT_EQ(probes[i]->count, before[i]) << i;
}

TEST(MoveToThread, LetsATimerRunItsSlotsThere)
{
    Worker thread;
    CkelTimer timer;
    std::atomic<int> count{0};
    std::atomic<std::thread::id> where{};
    timer.connectTimeOut("count", [&] {
        where = std::this_thread::get_id();
        ++count;
    });
    timer.start(1);
    EXPECT_TRUE(timer.moveToThread(&thread));
    ASSERT_TRUE(thread.start(CkelThread::InheritPriority));
    ASSERT_TRUE(waitUntil([&] { return count >= 3; }));
    EXPECT_EQ(where.load(), thread.id.load());
    timer.stop();
    EXPECT_FALSE(timer.isActive());
    thread.terminate();
    const int before = count;
    std::this_thread::sleep_for(3ms);
    EXPECT_EQ(count, before);
}

TEST(MoveToThread, TimerMayBeRestartedFromElsewhereWhileItRuns)
{
    Worker thread;
    CkelTimer timer;
    std::atomic<int> count{0};
    timer.connectTimeOut("count", [&] { ++count; });
    timer.moveToThread(&thread);
    ASSERT_TRUE(thread.start());
    for (int i = 0; i < 200; ++i) {
        timer.start(1);
        if (i % 2)
            timer.stop();
    }
    EXPECT_FALSE(timer.isActive());
    timer.start(1);
    const int before = count;
    EXPECT_TRUE(waitUntil([&] { return count >= before + 3; }));
    thread.terminate();
}

TEST(MoveToThread, ObjectMayBeDestroyedThereInItsHandler)
{
    Worker thread;
    ASSERT_TRUE(thread.start());
    std::atomic<int> count{0};
    auto* const timer = new CkelTimer;
    timer->connectTimeOut("delete", [&count, timer] {
        delete timer;
        ++count;
    });
    timer->start(1);
    timer->moveToThread(&thread);
    EXPECT_TRUE(waitUntil([&] { return count > 0; }));
    thread.terminate();
    EXPECT_EQ(count, 1);
}

TEST(MoveToThread, ToATerminatedThreadSilencesTheTimers)
{
    Worker thread;
    ASSERT_TRUE(thread.start());
    thread.terminate();
    Probe probe;
    probe.startTimer(1);
    EXPECT_TRUE(probe.moveToThread(&thread));
    std::this_thread::sleep_for(5ms);
    EXPECT_EQ(probe.count, 0);
}

TEST(MoveToThread, ObjectsMadeOnTheThreadBelongToIt)
{
    Worker thread;
    ASSERT_TRUE(thread.start());
    std::atomic<Probe*> made{nullptr};
    Probe maker;
    maker.onTimeOut = [&] {
        if (made)
            return;
        auto* const probe = new Probe;
        probe->startTimer(1);
        made = probe;
    };
    maker.startTimer(1);
    maker.moveToThread(&thread);
    ASSERT_TRUE(waitUntil([&] { return made.load() && made.load()->count >= 2; }));
    EXPECT_EQ(made.load()->thread.load(), thread.id.load());
    thread.terminate();
    delete made.load(); // after the thread has ended anyone may
}
