#include "tests/reliability/killing.h"
#include "tests/support/testfolder.h"

#include <gtest/gtest.h>

#include <iostream>
#include <random>

using namespace KelTest;

namespace {

class Kill : public FolderTest
{};

} // namespace

TEST_F(Kill, OfAWriterAtAnyInstantLeavesEveryBlockWholeOrNotAtAll)
{
    const KillReport report = killWriters(25, std::random_device()());
    print(report, std::cout);
    EXPECT_EQ(report.rounds, 25);
    EXPECT_GT(report.blocks, 25);
    EXPECT_TRUE(report.failures.empty()) << report.failures.front();
}
