#include "kernel/kelthread.h"

#include "kernel/keleventloop.h"

#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <system_error>

namespace Ombrin {

namespace {

void applyPriority(CkelThread::Priority priority)
{
    if (priority == CkelThread::IdlePriority) {
        const sched_param none{};
        sched_setscheduler(0, SCHED_IDLE, &none);
        return;
    }
    constexpr int niceness[] = {19, 10, 5, 0, -5, -10, -15};
    if (priority > CkelThread::IdlePriority && priority < CkelThread::InheritPriority)
        setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), niceness[priority]); // of this thread only
}

} // namespace

CkelThread::CkelThread(CkelObject* parent)
    : CkelObject(parent),
      m_loop(std::make_shared<CkelEventLoop>()),
      m_running(std::make_shared<std::atomic<bool>>(false))
{
    storeherits("CkelThread");
}

CkelThread::~CkelThread()
{
    terminate();
    if (m_thread.joinable()) // deleted on itself
        m_thread.detach();
}

bool CkelThread::start(Priority priority)
{
    if (m_started)
        return false;
    *m_running = true;
    try {
        m_thread = std::thread([this, priority, loop = m_loop, running = m_running] {
            applyPriority(priority);
            CkelEventLoop::setCurrent(loop);
            run();
            *running = false;
        });
    } catch (const std::system_error&) {
        *m_running = false;
        return false;
    } catch (...) { // no memory
        *m_running = false;
        throw;
    }
    m_started = true;
    return true;
}

void CkelThread::run()
{
    exec();
}

int CkelThread::exec()
{
    return m_loop->exec();
}

void CkelThread::quit(int code)
{
    m_loop->quit(code);
}

void CkelThread::wait()
{
    if (m_thread.joinable())
        m_thread.join();
}

void CkelThread::terminate()
{
    m_loop->terminate();
    if (m_loop->isCurrent())
        return;       // on the thread itself
    m_started = true; // for good
    wait();
}

} // namespace Ombrin
