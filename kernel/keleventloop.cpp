#include "kernel/keleventloop.h"

#include "kernel/kelevent.h"
#include "kernel/kelobjectprivate.h"

#include <asio/post.hpp>

#include <algorithm>
#include <iterator>
#include <new>
#include <system_error>

namespace Ombrin {

namespace {

int nextTimerId()
{
    // Never reused while the process lives, so that a stale ID can meet no other timer.
    static std::atomic<int> last{0};
    return ++last;
}

/// Gives a variable another value for a while.
template <typename T>
class Restored
{
public:
    Restored(T& variable, T value) : m_variable(variable), m_before(variable) { m_variable = value; }
    ~Restored() { m_variable = m_before; }
    Restored(const Restored&) = delete;
    Restored& operator=(const Restored&) = delete;

private:
    T& m_variable;
    const T m_before;
};

} // namespace

CkelEventLoop::CkelEventLoop() : m_work(asio::make_work_guard(m_io))
{
    m_sigpipe.restore();
}

/// Each thread keeps its loop as the value of this key. A thread_local variable would be destroyed too early: other
/// variables of the thread and static objects may make objects in their destructors. The value of a key is destroyed
/// after all variables of its thread, and on the main thread never.
pthread_key_t CkelEventLoop::threadKey()
{
    static const pthread_key_t key = [] {
        pthread_key_t made = 0;
        const int error =
            pthread_key_create(&made, [](void* loop) { static_cast<CkelEventLoop*>(loop)->m_self.reset(); });
        if (error != 0)
            throw std::system_error(error, std::system_category(), "event loop");
        return made;
    }();
    return key;
}

std::shared_ptr<CkelEventLoop> CkelEventLoop::current()
{
    if (const auto* const loop = static_cast<CkelEventLoop*>(pthread_getspecific(threadKey())))
        return loop->m_self;
    auto loop = std::make_shared<CkelEventLoop>();
    setCurrent(loop);
    return loop;
}

void CkelEventLoop::setCurrent(const std::shared_ptr<CkelEventLoop>& loop)
{
    if (pthread_setspecific(threadKey(), loop.get()) != 0)
        throw std::bad_alloc();
    loop->m_self = loop;
}

bool CkelEventLoop::isCurrent() const
{
    return pthread_getspecific(threadKey()) == this;
}

int CkelEventLoop::exec()
{
    const Restored inPass(m_inPass, false);
    if (!m_terminated)
        armStranded();
    while (!m_terminated && !m_quit.exchange(false))
        m_io.run_one();
    return m_exitCode.exchange(0);
}

void CkelEventLoop::quit(int code)
{
    m_exitCode = code;
    m_quit = true;
    asio::post(m_io, [] {}); // wakes exec()
}

void CkelEventLoop::terminate()
{
    m_terminated = true;
    m_io.stop();
}

void CkelEventLoop::post(std::function<void()> task)
{
    asio::post(m_io, [this, task = std::move(task), pass = m_pass.load()]() mutable { runTask(task, pass); });
}

void CkelEventLoop::runTask(std::function<void()>& task, unsigned int pass)
{
    if (m_inPass && pass == m_pass) { // not due when this pass began
        try {
            post(task);
            return;
        } catch (const std::bad_alloc&) { // NOLINT(bugprone-empty-catch): better too early than never
        }
    }
    if (!m_terminated)
        task();
}

void CkelEventLoop::processEvents()
{
    if (m_passDepth == maxPassDepth)
        return; // the calls around this one run what is due
    const Restored depth(m_passDepth, m_passDepth + 1);
    const Restored inPass(m_inPass, true);
    const Restored began(m_passBegan, Clock::now());
    ++m_pass;
    armStranded();

    // Asio looks for due timers while it works through its queue, which is a system call, and puts them behind what is
    // there. So everything that is due now stands before a mark, or else before a second one, made when the first is
    // met.
    const auto done = std::make_shared<bool>(false); // outlives a pass that a handler leaves by an exception
    const auto mark = [done] { *done = true; };
    if (isTimerDue(m_passBegan))
        asio::post(m_io, [this, mark] { asio::post(m_io, mark); });
    else
        asio::post(m_io, mark);
    while (!*done && !m_terminated && m_io.poll_one() > 0) {
    }
}

/// True too for a timer that is already in Asio's queue.
bool CkelEventLoop::isTimerDue(Clock::time_point now)
{
    const CkelMutexLocker lock(m_mutex);
    if (now < m_earliest)
        return false;
    m_earliest = Clock::time_point::max();
    for (const auto& [id, timer] : m_timers)
        m_earliest = std::min(m_earliest, timer.next);
    return m_earliest <= now;
}

int CkelEventLoop::startTimer(CkelObject& receiver, std::chrono::milliseconds interval)
{
    const int id = nextTimerId();
    const CkelMutexLocker lock(m_mutex);
    const auto timer = m_timers.try_emplace(id, m_io, TimerState{&receiver, interval, Clock::now() + interval}).first;
    try {
        arm(id, timer->second);
    } catch (...) {
        m_timers.erase(timer);
        throw;
    }
    return id;
}

void CkelEventLoop::killTimer(const CkelObject& receiver, int id)
{
    const CkelMutexLocker lock(m_mutex);
    const auto found = m_timers.find(id);
    if (found != m_timers.end() && found->second.receiver == &receiver)
        m_timers.erase(found);
}

void CkelEventLoop::killTimers(const CkelObject& receiver)
{
    const CkelMutexLocker lock(m_mutex);
    for (auto timer = m_timers.begin(); timer != m_timers.end();)
        timer = timer->second.receiver == &receiver ? m_timers.erase(timer) : std::next(timer);
}

void CkelEventLoop::moveTimers(const CkelObject& receiver, CkelEventLoop& target, std::vector<int>& ids)
{
    if (&target == this)
        return;
    const auto timers = timersOf(receiver);
    ids.reserve(ids.size() + timers.size());
    target.adopt(timers, ids);
    killTimers(receiver);
}

std::vector<std::pair<int, CkelEventLoop::TimerState>> CkelEventLoop::timersOf(const CkelObject& receiver)
{
    std::vector<std::pair<int, TimerState>> found;
    const CkelMutexLocker lock(m_mutex);
    for (const auto& [id, timer] : m_timers) {
        if (timer.receiver == &receiver)
            found.emplace_back(id, timer);
    }
    return found;
}

void CkelEventLoop::adopt(const std::vector<std::pair<int, TimerState>>& timers, std::vector<int>& ids)
{
    const CkelMutexLocker lock(m_mutex);
    try {
        for (const auto& [id, state] : timers)
            m_timers.try_emplace(id, m_io, state);
    } catch (...) {
        for (const auto& [id, state] : timers)
            m_timers.erase(id);
        throw;
    }
    for (const auto& [id, state] : timers)
        ids.push_back(id);
}

void CkelEventLoop::resumeTimers(const std::vector<int>& ids)
{
    {
        const CkelMutexLocker lock(m_mutex);
        for (const int id : ids) {
            const auto found = m_timers.find(id); // another thread may have killed it meanwhile
            if (found != m_timers.end())
                m_anyStranded = found->second.stranded = true;
        }
    }
    armStranded();
}

void CkelEventLoop::armStranded()
{
    if (!m_anyStranded)
        return;
    const CkelMutexLocker lock(m_mutex);
    m_anyStranded = false;
    for (auto& [id, timer] : m_timers) {
        if (timer.stranded)
            arm(id, timer);
    }
}

void CkelEventLoop::arm(int id, Timer& timer)
{
    m_earliest = std::min(m_earliest, timer.next);
    timer.waiter.expires_at(timer.next);
    try {
        timer.waiter.async_wait([this, id](const asio::error_code& error) {
            if (!error)
                timeOut(id);
        });
        timer.stranded = false;
    } catch (...) {
        m_anyStranded = timer.stranded = true;
        throw;
    }
}

void CkelEventLoop::TimerState::skipPast(Clock::time_point now)
{
    if (next <= now)
        next += ((now - next) / interval + 1) * interval;
}

CkelObject* CkelEventLoop::takeDue(int id)
{
    const CkelMutexLocker lock(m_mutex);
    const auto found = m_timers.find(id);
    if (m_terminated || found == m_timers.end())
        return nullptr;
    Timer& timer = found->second;
    const auto now = Clock::now();
    // Not due: the wait that ended is one from before the timer was moved away and back, or this pass began before.
    if (timer.next > (m_inPass ? m_passBegan : now)) {
        arm(id, timer);
        return nullptr;
    }
    timer.skipPast(now);
    return timer.receiver;
}

void CkelEventLoop::rearm(int id)
{
    const CkelMutexLocker lock(m_mutex);
    const auto found = m_timers.find(id);
    if (found == m_timers.end())
        return; // killed, moved or destroyed by its own handler
    found->second.skipPast(Clock::now());
    arm(id, found->second);
}

void CkelEventLoop::timeOut(int id)
{
    CkelObject* const receiver = takeDue(id);
    if (!receiver)
        return;
    CkelTimerEvent event(id);
    try {
        CkelObjectPrivate::deliver(*receiver, event);
    } catch (...) {
        rearm(id);
        throw;
    }
    rearm(id); // not before: a handler that turns the loop is not entered again
}

} // namespace Ombrin
