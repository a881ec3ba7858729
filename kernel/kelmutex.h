#pragma once

#include "kernel/kelglobal.h"

#include <mutex>

namespace Ombrin {

/// A non-recursive lock. Locking it twice on one thread is a programming error and blocks for ever.
///
/// Works with `std::lock_guard` and `std::unique_lock`; CkelMutexLocker is the one that clang's lock analysis follows.
///
/// @snippet classes.cpp CkelMutex
///
/// @ingroup kernel
class KEL_CAPABILITY("mutex") CkelMutex
{
public:
    CkelMutex() = default;
    CkelMutex(const CkelMutex&) = delete;
    CkelMutex& operator=(const CkelMutex&) = delete;

    /// Waits until the lock is free, and takes it.
    void lock() KEL_ACQUIRE() { m_mutex.lock(); }

    /// Gives the lock back, on the thread that took it.
    void unlock() KEL_RELEASE() { m_mutex.unlock(); }

    /// Takes the lock if nobody holds it. Returns at once; true when the caller now holds it.
    bool tryLock() KEL_TRY_ACQUIRE(true) { return m_mutex.try_lock(); }

private:
    std::mutex m_mutex;
};

/// A lock that the thread holding it may take again; it is free after as many unlocks.
/// @ingroup kernel
class KEL_CAPABILITY("mutex") CkelRecursiveMutex
{
public:
    CkelRecursiveMutex() = default;
    CkelRecursiveMutex(const CkelRecursiveMutex&) = delete;
    CkelRecursiveMutex& operator=(const CkelRecursiveMutex&) = delete;

    /// Waits until no other thread holds the lock, and takes it.
    void lock() KEL_ACQUIRE() { m_mutex.lock(); }

    /// Undoes one lock() or tryLock(), on the thread that called it.
    void unlock() KEL_RELEASE() { m_mutex.unlock(); }

    /// Takes the lock unless another thread holds it. Returns at once; true when the caller now holds it.
    bool tryLock() KEL_TRY_ACQUIRE(true) { return m_mutex.try_lock(); }

private:
    std::recursive_mutex m_mutex;
};

/// Holds a CkelMutex from construction to destruction.
/// @ingroup kernel
class KEL_SCOPED_CAPABILITY CkelMutexLocker
{
public:
    /// Waits until `mutex` is free. It has to outlive the locker.
    explicit CkelMutexLocker(CkelMutex& mutex) KEL_ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.lock(); }
    ~CkelMutexLocker() KEL_RELEASE() { m_mutex.unlock(); }

    CkelMutexLocker(const CkelMutexLocker&) = delete;
    CkelMutexLocker& operator=(const CkelMutexLocker&) = delete;

private:
    CkelMutex& m_mutex;
};

} // namespace Ombrin
