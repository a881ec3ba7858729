#include "kernel/kelmutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <type_traits>
#include <vector>

using Ombrin::CkelMutex;
using Ombrin::CkelMutexLocker;
using Ombrin::CkelRecursiveMutex;

namespace {

/// Whether another thread could take the lock now. It gives it back.
template <typename Mutex>
bool isFreeForOthers(Mutex& mutex)
{
    bool taken = false;
    std::thread([&] {
        if (mutex.tryLock()) {
            taken = true;
            mutex.unlock();
        }
    }).join();
    return taken;
}

/// Counts without atomics, so that a lock that does not exclude loses some.
template <typename Locker, typename Mutex>
int countTogether(Mutex& mutex, int threadCount, int rounds)
{
    int count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                Locker lock(mutex);
                const int before = count;
                if (round % 100 == 0)
                    std::this_thread::yield();
                count = before + 1;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    return count;
}

/// Free at first, taken by lock() and tryLock(), free again after each unlock(). The analysis of clang knows no
/// recursive locks.
template <typename Mutex>
void lockAgain(Mutex& mutex) KEL_NO_LOCK_ANALYSIS
{
    mutex.lock();
}

template <typename Mutex>
bool tryLockAgain(Mutex& mutex) KEL_NO_LOCK_ANALYSIS
{
    return mutex.tryLock();
}

template <typename Mutex>
void unlockOnce(Mutex& mutex) KEL_NO_LOCK_ANALYSIS
{
    mutex.unlock();
}

} // namespace

TEST(Mutex, IsFreeAtFirst)
{
    CkelMutex mutex;
    EXPECT_TRUE(isFreeForOthers(mutex));
}

TEST(Mutex, IsTakenFromLockToUnlock)
{
    CkelMutex mutex;
    mutex.lock();
    EXPECT_FALSE(isFreeForOthers(mutex));
    mutex.unlock();
    EXPECT_TRUE(isFreeForOthers(mutex));
}

TEST(Mutex, TryLockTakesAFreeLock)
{
    CkelMutex mutex;
    const bool taken = mutex.tryLock();
    EXPECT_TRUE(taken);
    if (taken) {
        EXPECT_FALSE(isFreeForOthers(mutex));
        mutex.unlock();
    }
    EXPECT_TRUE(isFreeForOthers(mutex));
}

TEST(Mutex, FailedTryLockTakesNothing)
{
    CkelMutex mutex;
    mutex.lock();
    EXPECT_FALSE(isFreeForOthers(mutex));
    EXPECT_FALSE(isFreeForOthers(mutex));
    mutex.unlock(); // once is enough
    EXPECT_TRUE(isFreeForOthers(mutex));
}

TEST(Mutex, LockWaitsForTheHolder)
{
    CkelMutex mutex;
    int value = 0;
    int seen = 0;
    std::atomic<bool> waits{false};
    mutex.lock();
    std::thread thread([&] {
        waits = true;
        const CkelMutexLocker lock(mutex);
        seen = value;
    });
    while (!waits)
        std::this_thread::yield();
    for (int i = 0; i < 100; ++i) // a lock that does not wait would get past it here
        std::this_thread::yield();
    value = 1;
    mutex.unlock();
    thread.join();
    EXPECT_EQ(seen, 1);
}

TEST(Mutex, ExcludesOtherThreads)
{
    CkelMutex mutex;
    EXPECT_EQ((countTogether<CkelMutexLocker>(mutex, 4, 2000)), 8000);
}

TEST(Mutex, WorksWithTheLockersOfTheStandardLibrary)
{
    CkelMutex mutex;
    {
        const std::lock_guard<CkelMutex> lock(mutex);
        EXPECT_FALSE(isFreeForOthers(mutex));
    }
    {
        std::unique_lock<CkelMutex> lock(mutex, std::defer_lock);
        EXPECT_TRUE(isFreeForOthers(mutex));
        lock.lock();
        EXPECT_FALSE(isFreeForOthers(mutex));
    }
    EXPECT_TRUE(isFreeForOthers(mutex));
    EXPECT_EQ((countTogether<std::unique_lock<CkelMutex>>(mutex, 2, 500)), 1000);
}

TEST(Mutex, CannotBeCopied)
{
    EXPECT_FALSE(std::is_copy_constructible_v<CkelMutex>);
    EXPECT_FALSE(std::is_copy_assignable_v<CkelMutex>);
    EXPECT_FALSE(std::is_copy_constructible_v<CkelRecursiveMutex>);
    EXPECT_FALSE(std::is_copy_assignable_v<CkelRecursiveMutex>);
    EXPECT_FALSE(std::is_copy_constructible_v<CkelMutexLocker>);
    EXPECT_FALSE(std::is_copy_assignable_v<CkelMutexLocker>);
}

TEST(MutexLocker, HoldsTheLockForItsLife)
{
    CkelMutex mutex;
    {
        const CkelMutexLocker lock(mutex);
        EXPECT_FALSE(isFreeForOthers(mutex));
    }
    EXPECT_TRUE(isFreeForOthers(mutex));
}

TEST(MutexLocker, ReleasesTheLockWhenAnExceptionPasses)
{
    CkelMutex mutex;
    const auto throwLocked = [&] {
        const CkelMutexLocker lock(mutex);
        throw 1; // NOLINT(hicpp-exception-baseclass)
    };
    EXPECT_THROW(throwLocked(), int);
    EXPECT_TRUE(isFreeForOthers(mutex));
}

TEST(RecursiveMutex, IsFreeAfterAsManyUnlocksAsLocks)
{
    CkelRecursiveMutex mutex;
    EXPECT_TRUE(isFreeForOthers(mutex));
    lockAgain(mutex);
    lockAgain(mutex);
    lockAgain(mutex);
    EXPECT_FALSE(isFreeForOthers(mutex));
    unlockOnce(mutex);
    unlockOnce(mutex);
    EXPECT_FALSE(isFreeForOthers(mutex));
    unlockOnce(mutex);
    EXPECT_TRUE(isFreeForOthers(mutex));
}

TEST(RecursiveMutex, TryLockCountsLikeLock)
{
    CkelRecursiveMutex mutex;
    EXPECT_TRUE(tryLockAgain(mutex));
    EXPECT_TRUE(tryLockAgain(mutex));
    lockAgain(mutex);
    unlockOnce(mutex);
    unlockOnce(mutex);
    EXPECT_FALSE(isFreeForOthers(mutex));
    unlockOnce(mutex);
    EXPECT_TRUE(isFreeForOthers(mutex));
}

TEST(RecursiveMutex, ExcludesOtherThreads)
{
    CkelRecursiveMutex mutex;
    EXPECT_EQ((countTogether<std::unique_lock<CkelRecursiveMutex>>(mutex, 4, 2000)), 8000);
}

TEST(RecursiveMutex, MayBeNestedWithTheLockersOfTheStandardLibrary)
{
    CkelRecursiveMutex mutex;
    {
        const std::lock_guard<CkelRecursiveMutex> outer(mutex);
        {
            const std::lock_guard<CkelRecursiveMutex> inner(mutex);
            EXPECT_FALSE(isFreeForOthers(mutex));
        }
        EXPECT_FALSE(isFreeForOthers(mutex));
    }
    EXPECT_TRUE(isFreeForOthers(mutex));
}
