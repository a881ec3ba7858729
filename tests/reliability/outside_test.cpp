#include "tests/reliability/outside.h"
#include "tests/support/testfolder.h"

#include <gtest/gtest.h>

#include <iostream>
#include <random>

using namespace KelTest;

namespace {

class Outside : public FolderTest
{
protected:
    static void expectGood(const OutsideReport& report)
    {
        print(report, std::cout);
        for (const std::string& failure : report.failures)
            ADD_FAILURE() << failure;
    }
};

} // namespace

TEST_F(Outside, CallsThatFailBelowSqliteLeaveTheFileWholeAndTheStorageUsable)
{
    expectGood(failBelowSqlite(100, std::random_device()()));
}

TEST_F(Outside, SignalsShortenNoWaitForALockedFileAndReachTheirReceiver)
{
    expectGood(interrupt(1, 5, std::random_device()()));
}

TEST_F(Outside, ProcessesThatShareTheFileAndAreKilledLeaveEveryBlockWhole)
{
    expectGood(shareFile(10, std::random_device()()));
}

TEST_F(Outside, HostileFilesAreReadWithinLimitsOfTimeAndMemory)
{
    expectGood(readHostileFiles(KEL_KELDICT));
}

TEST_F(Outside, OutputThatNobodyReadsStopsNoLookup)
{
    expectGood(leaveOutputUnread());
}
