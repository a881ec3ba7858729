#include "tests/reliability/faultwalk.h"
#include "tests/support/testfolder.h"

#include <gtest/gtest.h>

#include <iostream>

using namespace KelTest;

namespace {

class FailingStorage : public FolderTest
{};

} // namespace

TEST_F(FailingStorage, EveryFaultAtEveryCallLeavesTheFileWholeAndTheObjectUsable)
{
    const auto reports = walkFaults(3);
    print(reports, std::cout);
    long points = 0;
    for (const FaultReport& report : reports) {
        EXPECT_GT(report.points, 20) << report.operation;
        EXPECT_TRUE(report.failures.empty()) << report.failures.front();
        points += report.points;
    }
    EXPECT_GT(points, 1000);
}
