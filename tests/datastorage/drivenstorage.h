#pragma once

#include "datastorage/kelmemorydatastorage.h"
#include "datastorage/kelmemorydb.h"
#include "kernel/kelevent.h"
#include "kernel/keltimer.h"

#include <vector>

namespace KelTest {

/// Explicit instantiation may name private members. DrivenStorage stops the timers and looks into the queue.
template <auto Member>
struct ReachDB
{
    friend auto& memoryDBOf(Ombrin::CkelMemoryDataStorage& storage) { return storage.*Member; }
};
auto& memoryDBOf(Ombrin::CkelMemoryDataStorage& storage);
template struct ReachDB<&Ombrin::CkelMemoryDataStorage::m_memoryDB>;

template <auto Member>
struct ReachTimer
{
    friend auto& timerOf(Ombrin::CkelMemoryDB& database) { return database.*Member; }
};
auto& timerOf(Ombrin::CkelMemoryDB& database);
template struct ReachTimer<&Ombrin::CkelMemoryDB::m_timer>;

template <auto Member>
struct ReachTimerID
{
    friend auto& timerIDOf(Ombrin::CkelMemoryDataStorage& storage) { return storage.*Member; }
};
auto& timerIDOf(Ombrin::CkelMemoryDataStorage& storage);
template struct ReachTimerID<&Ombrin::CkelMemoryDataStorage::m_timerId>;

/// A storage whose changes are collected and written by hand only: its timers are stopped.
class DrivenStorage : public Ombrin::CkelMemoryDataStorage
{
public:
    DrivenStorage()
    {
        timerOf(database())->stop();
        killTimer(timerIDOf(*this));
    }

    Ombrin::CkelMemoryDB& database() { return *memoryDBOf(*this); }

    void tick()
    {
        Ombrin::CkelTimerEvent event(0);
        timerEvent(&event);
    }

    std::vector<Ombrin::tagDBBlock> takeBlocks()
    {
        std::vector<Ombrin::tagDBBlock> blocks;
        while (!database().isEmpty())
            blocks.push_back(database().pop());
        return blocks;
    }

    void write()
    {
        while (!database().isEmpty())
            database().sync();
    }
};

} // namespace KelTest
