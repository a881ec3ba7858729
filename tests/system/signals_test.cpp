#include "datastorage/keldatastoragefactory.h"
#include "datastorage/kelmeorydbworkthread.h"
#include "kernel/keltimer.h"
#include "tests/support/testfolder.h"

#include <signal.h> // NOLINT(modernize-deprecated-headers): sigtimedwait is POSIX
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <future>
#include <set>

using namespace Ombrin;
using namespace KelTest;

namespace {

/// The signals that the calling thread blocks.
std::set<int> blockedSignals()
{
    sigset_t mask{};
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    std::set<int> blocked;
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        if (sigismember(&mask, signal) == 1)
            blocked.insert(signal);
    }
    return blocked;
}

std::set<int> blockedSignalsOf(CkelMeoryDBWorkThread& thread)
{
    std::promise<std::set<int>> blocked;
    bool told = false;
    CkelTimer probe;
    probe.connectTimeOut("probe", [&] {
        if (!told)
            blocked.set_value(blockedSignals());
        told = true;
    });
    probe.start(1);
    probe.moveToThread(&thread);
    EXPECT_TRUE(thread.start());
    auto found = blocked.get_future().get();
    thread.terminate();
    return found;
}

/// Makes the storages, with their workers, and only then blocks SIGTERM and waits for it.
[[noreturn]] void waitForTermination()
{
    for (const int kind : {1, 2})
        CkelDBStorageFactory::instance()->get(kind);
    sigset_t termination{};
    sigemptyset(&termination);
    sigaddset(&termination, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &termination, nullptr);
    kill(getpid(), SIGTERM);
    const timespec limit{10, 0};
    std::_Exit(sigtimedwait(&termination, nullptr, &limit) == SIGTERM ? 0 : 1);
}

class Signals : public FolderTest
{};

} // namespace

TEST_F(Signals, ProgramThatWaitsForOneAfterItHasMadeItsStoragesReceivesIt)
{
    EXPECT_EXIT(waitForTermination(), testing::ExitedWithCode(0), "");
}

TEST(WorkThread, BlocksTheApplicationsSignals)
{
    CkelMeoryDBWorkThread thread;
    const std::set<int> blocked = blockedSignalsOf(thread);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2, SIGALRM, SIGCHLD, SIGPIPE, SIGRTMIN})
        EXPECT_EQ(blocked.count(signal), 1U) << strsignal(signal);
}

TEST(WorkThread, BlocksNoSignalThatReportsItsOwnError)
{
    CkelMeoryDBWorkThread thread;
    const std::set<int> blocked = blockedSignalsOf(thread);
    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS})
        EXPECT_EQ(blocked.count(signal), 0U) << strsignal(signal);
}

TEST(WorkThread, StartLeavesTheSignalsOfItsCallerAsTheyWere)
{
    const std::set<int> before = blockedSignals();
    CkelMeoryDBWorkThread thread;
    ASSERT_TRUE(thread.start());
    EXPECT_EQ(blockedSignals(), before);
    EXPECT_FALSE(thread.start());
    EXPECT_EQ(blockedSignals(), before);
}
