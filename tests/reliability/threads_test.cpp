#include "kernel/kelapplicationplus.h"
#include "kernel/keldatasensor.h"
#include "kernel/kelevent.h"
#include "tests/reliability/threading.h"
#include "tests/support/testfolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <iostream>
#include <random>
#include <thread>

using namespace Ombrin;
using namespace KelTest;

namespace {

class Threads : public FolderTest
{
protected:
    static void expectGood(const ThreadsReport& report)
    {
        print(report, std::cout);
        EXPECT_TRUE(report.failures.empty()) << report.failures.front();
    }
};

} // namespace

TEST_F(Threads, UseStoragesThatStartAndEnd)
{
    int argc = 0;
    const CkelApplicationPlus application(argc, nullptr);
    expectGood(restartStorages(40, std::random_device()()));
}

TEST_F(Threads, PassTimersFromOneToTheNext)
{
    expectGood(moveTimers(500));
}

TEST_F(Threads, AreCutOffByTheEndOfTheProcessAtAnyInstant)
{
    expectGood(endProcesses(12, std::random_device()()));
}

TEST_F(Threads, PostWhileOthersAttachAndDetach)
{
    int argc = 0;
    CkelApplicationPlus application(argc, nullptr);
    CkelDataSensor* const sensor = CkelApplicationPlus::dataSensor();
    class Listener : public CkelObject
    {
    public:
        void dataSensorEvent(CkelDataSensorEvent* /*event*/) override { ++count; }
        std::atomic<int> count{0};
    };
    Listener steady;
    sensor->attach(&steady);
    constexpr int perThread = 5000;
    std::atomic<int> running{3};
    std::vector<std::thread> threads;
    for (int number = 0; number < 2; ++number) {
        threads.emplace_back([&, number] {
            for (int i = 0; i < perThread; ++i)
                sensor->post(
                    new CkelAnyDataSensorEvent(number, i, CkelDataSensorEvent::AnyData, CkelDataSensorEvent::NoMerge));
            --running;
        });
    }
    threads.emplace_back([&] {
        for (int i = 0; i < 200; ++i) {
            Listener passing;
            sensor->attach(&passing, {1});
            std::this_thread::yield();
            sensor->detach(&passing);
        }
        --running;
    });
    while (running > 0)
        application.processEvents();
    for (std::thread& thread : threads)
        thread.join();
    application.processEvents();
    EXPECT_EQ(steady.count, 2 * perThread);
}
