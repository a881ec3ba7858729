#include "kernel/kelapplicationplus.h"
#include "tests/reliability/soaking.h"
#include "tests/support/testfolder.h"

#include <gtest/gtest.h>

#include <iostream>

using namespace KelTest;

namespace {

class Soak : public FolderTest
{};

} // namespace

TEST_F(Soak, UnderSteadyLoadNoEventAndNoValueIsLost)
{
    int argc = 0;
    const Ombrin::CkelApplicationPlus application(argc, nullptr);
    SoakSettings settings;
    settings.duration = std::chrono::seconds(3);
    settings.items = 1000;
    settings.judgeGrowth = false;
    const SoakReport report = soak(settings);
    print(report, std::cout);
    EXPECT_GT(report.changes, 0);
    EXPECT_GT(report.lookups, 0);
    EXPECT_TRUE(report.failures.empty()) << report.failures.front();
}

TEST(SoakGrowth, IsOfTheLastTwoThirds)
{
    std::vector<MemorySample> rests;
    for (int minute = 0; minute < 30; ++minute) {
        const double warmUp = minute < 10 ? 1024.0 * minute : 10240.0;
        rests.push_back({60.0 * minute, warmUp, warmUp + 1024.0 / 60 * 1.5 * minute});
    }
    EXPECT_NEAR(growthAfterWarmUp(rests, &MemorySample::inUse), 0, 1e-6);
    EXPECT_NEAR(growthAfterWarmUp(rests, &MemorySample::resident), 1.5, 1e-6);
}

TEST(SoakGrowth, IsNoneWithoutTwoReadings)
{
    EXPECT_EQ(growthAfterWarmUp({}, &MemorySample::inUse), 0);
    EXPECT_EQ(growthAfterWarmUp({{60, 1024, 2048}}, &MemorySample::inUse), 0);
}
