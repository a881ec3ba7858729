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
