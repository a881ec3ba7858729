#pragma once
// Private to kernel/: not installed.

#include "kernel/kelmutex.h"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>

#include <pthread.h>
#include <signal.h> // NOLINT(modernize-deprecated-headers): sigaction is POSIX

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Ombrin {

class CkelObject;

/// The event loop of one thread: its timers and the work posted to it.
///
/// Everything but exec() and processEvents() may be called from any thread. The lock guards the timers only and is
/// never held while a handler runs.
class CkelEventLoop
{
public:
    using Clock = std::chrono::steady_clock;

    /// What a timer needs to go on in another loop.
    struct TimerState
    {
        CkelObject* receiver;
        std::chrono::milliseconds interval;
        Clock::time_point next;

        /// On to the first period that is not over.
        void skipPast(Clock::time_point now);
    };

    CkelEventLoop();
    CkelEventLoop(const CkelEventLoop&) = delete;
    CkelEventLoop& operator=(const CkelEventLoop&) = delete;

    /// The calling thread's loop, made at the first call.
    static std::shared_ptr<CkelEventLoop> current();

    /// Makes `loop` the calling thread's loop, which has none yet.
    static void setCurrent(const std::shared_ptr<CkelEventLoop>& loop);

    /// Whether this is the calling thread's loop.
    bool isCurrent() const;

    /// Runs until quit() or terminate(). A quit() that came before makes it return at once. After an exception, a new
    /// call goes on where the last one stopped.
    int exec();
    void quit(int code);

    /// Runs what is due at the time of the call, without waiting. Calls in handlers nest to `maxPassDepth`, deeper ones
    /// return at once: otherwise the stack would overflow when every handler calls it.
    void processEvents();
    static constexpr int maxPassDepth = 64;

    /// For good: nothing further starts on this loop. Needs no memory.
    void terminate();

    /// Runs `task` on the loop's thread; in a later call when posted while processEvents() runs.
    void post(std::function<void()> task);

    int startTimer(CkelObject& receiver, std::chrono::milliseconds interval);
    void killTimer(const CkelObject& receiver, int id);
    void killTimers(const CkelObject& receiver); ///< needs no memory

    /// Hands every timer of `receiver` over to `target`, where they rest until resumeTimers(), and adds their IDs to
    /// `ids`.
    void moveTimers(const CkelObject& receiver, CkelEventLoop& target, std::vector<int>& ids);
    void resumeTimers(const std::vector<int>& ids);

private:
    struct Timer : TimerState
    {
        Timer(asio::io_context& io, const TimerState& state) : TimerState(state), waiter(io) {}
        asio::steady_timer waiter;
        bool stranded = false; // there was no memory to wait with
    };

    static pthread_key_t threadKey();
    void runTask(std::function<void()>& task, unsigned int pass);
    std::vector<std::pair<int, TimerState>> timersOf(const CkelObject& receiver);
    void adopt(const std::vector<std::pair<int, TimerState>>& timers, std::vector<int>& ids);
    void arm(int id, Timer& timer) KEL_REQUIRES(m_mutex);
    void armStranded();
    bool isTimerDue(Clock::time_point now);
    void timeOut(int id);
    CkelObject* takeDue(int id);
    void rearm(int id);

    /// What the process does on SIGPIPE, which Asio sets to nothing behind its back.
    class SigpipeAction
    {
    public:
        SigpipeAction() { sigaction(SIGPIPE, nullptr, &m_action); }
        void restore() const { sigaction(SIGPIPE, &m_action, nullptr); }

    private:
        struct sigaction m_action = {};
    };

    const SigpipeAction m_sigpipe;
    std::shared_ptr<CkelEventLoop> m_self; // the loop itself, from setCurrent() until its thread ends

    // Not told that one thread alone serves it: what a handler posts would then be out of reach of a loop that the
    // handler runs itself.
    asio::io_context m_io;
    asio::executor_work_guard<asio::io_context::executor_type> m_work;
    std::atomic<bool> m_quit{false};
    std::atomic<bool> m_terminated{false};
    std::atomic<int> m_exitCode{0};
    std::atomic<unsigned int> m_pass{0};    // counts the calls of processEvents()
    std::atomic<bool> m_anyStranded{false}; // of the timers
    // The loop's thread only: whether the innermost loop is processEvents(), when that began, and how many calls of it
    // are nested.
    bool m_inPass = false;
    Clock::time_point m_passBegan;
    int m_passDepth = 0;

    CkelMutex m_mutex;
    std::unordered_map<int, Timer> m_timers KEL_GUARDED_BY(m_mutex);
    Clock::time_point m_earliest KEL_GUARDED_BY(m_mutex) = Clock::time_point::max(); // none that waits is due before it
};

} // namespace Ombrin
