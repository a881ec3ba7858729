#include "kernel/keltimer.h"

#include "kernel/kelevent.h"

#include <algorithm>

namespace Ombrin {

CkelTimer::CkelTimer(CkelObject* parent) : CkelObject(parent)
{
    storeherits("CkelTimer");
}

CkelTimer::~CkelTimer()
{
    stop();
}

void CkelTimer::connectTimeOut(const std::string& slotName, std::function<void()> slot)
{
    m_slots.emplace_back(slotName, std::move(slot));
}

void CkelTimer::disconnectTimeOut(const std::string& slotName)
{
    m_slots.erase(std::remove_if(m_slots.begin(), m_slots.end(),
                                 [&slotName](const auto& slot) { return slot.first == slotName; }),
                  m_slots.end());
}

void CkelTimer::start(int interval)
{
    const CkelMutexLocker lock(m_startMutex);
    const int id = startTimer(interval); // may throw: the timer then goes on as it was
    killTimer(m_timerId.exchange(id));
}

void CkelTimer::stop()
{
    const CkelMutexLocker lock(m_startMutex);
    killTimer(m_timerId.exchange(0));
}

void CkelTimer::timerEvent(CkelTimerEvent* event)
{
    if (event->timerId() != m_timerId)
        return;
    const auto slots = m_slots; // a slot may connect and disconnect
    for (const auto& [name, slot] : slots)
        slot();
}

} // namespace Ombrin
