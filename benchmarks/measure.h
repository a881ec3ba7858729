#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <vector>

namespace KelBench {

/// Every number of keys is a multiple of it.
constexpr std::size_t batchSize = 1000;

/// Appends the first keys again, up to a whole number of batches.
template <typename Key>
void fillUpBatch(std::vector<Key>& keys)
{
    for (std::size_t i = 0; keys.size() % batchSize != 0; ++i)
        keys.push_back(keys[i]);
}

/// Calls `call` with one key after the other, over and over; the time reported is that of one call.
template <typename Key, typename Call>
void measureCalls(benchmark::State& state, const std::vector<Key>& keys, Call call)
{
    std::size_t next = static_cast<std::size_t>(state.thread_index()) * batchSize;
    while (state.KeepRunningBatch(batchSize)) {
        for (std::size_t i = 0; i < batchSize; ++i)
            call(keys[next + i]);
        next = (next + batchSize) % keys.size();
    }
}

/// The same with a whole batch of keys in one call.
template <typename Key, typename Call>
void measureBatches(benchmark::State& state, const std::vector<std::vector<Key>>& batches, Call call)
{
    std::size_t next = 0;
    while (state.KeepRunningBatch(batchSize)) {
        call(batches[next]);
        next = (next + 1) % batches.size();
    }
}

/// What a variant is at the least: two words, taken without regard to what they mean.
struct SixteenBytes
{
    std::uint64_t words[2];
};

template <typename T>
SixteenBytes bytesOf(const T& value)
{
    static_assert(sizeof(T) == sizeof(SixteenBytes));
    SixteenBytes bytes;
    std::memcpy(&bytes, static_cast<const void*>(&value), sizeof(bytes));
    return bytes;
}

/// Seconds of this thread's processor time: what other processes do meanwhile does not count.
struct ThreadClock
{
    static double now()
    {
        timespec time = {};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
    }
};

/// Seconds as they pass: for work that waits for the disk.
struct WallClock
{
    static double now()
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    }
};

/// Reports the time of `work` alone, for a benchmark that uses manual time.
template <typename Clock, typename Work>
void measureOnce(benchmark::State& state, Work work)
{
    const double begin = Clock::now();
    work();
    state.SetIterationTime(Clock::now() - begin);
}

} // namespace KelBench
