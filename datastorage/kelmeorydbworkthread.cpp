#include "datastorage/kelmeorydbworkthread.h"

#include <signal.h> // NOLINT(modernize-deprecated-headers): pthread_sigmask is POSIX

#include <chrono>
#include <new>
#include <thread>

namespace Ombrin {

namespace {

constexpr std::chrono::milliseconds shortage{10};

/// Blocks signals on the calling thread for a while; a thread that it starts meanwhile inherits that.
class BlockedSignals
{
public:
    BlockedSignals()
    {
        sigset_t signals{};
        sigfillset(&signals);
        for (const int error : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS})
            sigdelset(&signals, error);
        pthread_sigmask(SIG_BLOCK, &signals, &m_before);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t m_before{};
};

} // namespace

CkelMeoryDBWorkThread::CkelMeoryDBWorkThread(CkelObject* parent) : CkelThread(parent)
{
    storeherits("CkelMeoryDBWorkThread");
}

CkelMeoryDBWorkThread::~CkelMeoryDBWorkThread()
{
    terminate();
}

bool CkelMeoryDBWorkThread::start(Priority priority)
{
    const BlockedSignals blocked; // before the thread exists: it never takes one
    return CkelThread::start(priority);
}

void CkelMeoryDBWorkThread::run()
{
    for (;;) {
        try {
            exec();
            return;
        } catch (const std::bad_alloc&) {
            // The process goes on without what could not be written; memory may be there again at the next tick.
            std::this_thread::sleep_for(shortage);
        }
    }
}

} // namespace Ombrin
