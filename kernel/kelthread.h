#pragma once

#include "kernel/kelobject.h"

#include <atomic>
#include <memory>
#include <thread>

namespace Ombrin {

class CkelEventLoop;

/// A thread with an event loop.
///
/// Objects are moved to it with CkelObject::moveToThread, before it starts or while it runs; their timers then fire on
/// it. The CkelThread object itself belongs to the thread that constructed it.
///
/// A thread runs once. It is never killed in the middle of a handler: what a handler holds (locks, a database
/// transaction) is always given back.
///
/// @snippet classes.cpp CkelThread
///
/// @ingroup kernel
class KEL_EXPORT CkelThread : public CkelObject
{
public:
    /// A hint to the system's scheduler; what the process is not allowed to have is left as it is.
    enum Priority : int
    {
        IdlePriority = 0,         ///< only when nothing else wants the processor
        LowestPriority = 1,       ///< far behind others
        LowPriority = 2,          ///< behind others
        NormalPriority = 3,       ///< like others
        HighPriority = 4,         ///< before others
        HighestPriority = 5,      ///< far before others
        TimeCriticalPriority = 6, ///< before everything else
        InheritPriority = 7       ///< that of the thread that calls start()
    };

    /// Starts nothing yet, and opens no file descriptors. `parent` owns the CkelThread object.
    explicit CkelThread(CkelObject* parent = nullptr);

    /// Terminates the thread. A class that overrides run() must call terminate() in its own destructor.
    ~CkelThread() override;

    /// Starts the thread. False when it was started or terminated before, or the system has no thread to give. The
    /// thread inherits the signals that the caller blocks.
    bool start(Priority priority = InheritPriority);

    /// Ends exec() with `code` after the handler that is running. Called before exec(), it makes exec() return at
    /// once. Safe from any thread.
    void quit(int code = 0);

    /// Waits until the thread has ended; at once when it never started. Not to be called on the thread itself.
    void wait();

    /// Lets nothing further start on the thread: a handler in progress runs to its end, everything that waits is
    /// dropped. Returns when the thread is gone; called on the thread itself, it returns at once. A run() that does
    /// not use exec() has to return by itself. Safe at any time, and more than once, but start(), wait() and
    /// terminate() are to be called by one thread at a time.
    void terminate();

    /// True from a successful start() until run() has returned. Safe from any thread.
    bool isRunning() const { return *m_running; }

    /// What the thread does: exec(), unless a derived class has other plans.
    virtual void run();

protected:
    /// Runs the thread's event loop until quit() or terminate(), and returns the code given to quit(). To be called
    /// from run().
    int exec();

private:
    friend class CkelObject;

    const std::shared_ptr<CkelEventLoop> m_loop;
    std::thread m_thread;
    const std::shared_ptr<std::atomic<bool>> m_running; // outlives an object that is destroyed on its own thread
    bool m_started = false;
};

} // namespace Ombrin
