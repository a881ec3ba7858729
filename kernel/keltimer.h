#pragma once

#include "kernel/kelmutex.h"
#include "kernel/kelobject.h"

#include <atomic>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Ombrin {

/// A repeating timer that calls functions.
///
/// The functions run on the timer's thread, in the order in which they were connected; move the timer with
/// moveToThread to choose it. start() and stop() may be called from any thread; connect and disconnect only while the
/// timer is stopped or on its own thread. A function may stop, restart and delete the timer, connect and disconnect;
/// functions connected or disconnected meanwhile count from the next time-out on.
///
/// @snippet classes.cpp CkelTimer
///
/// @ingroup kernel
class KEL_EXPORT CkelTimer : public CkelObject
{
public:
    /// Stopped, with nothing connected. `parent` owns the timer.
    explicit CkelTimer(CkelObject* parent = nullptr);
    ~CkelTimer() override;

    /// Calls `slot` at every time-out. `slotName` says what is connected, and disconnects it again.
    void connectTimeOut(const std::string& slotName, std::function<void()> slot);

    /// Disconnects every function connected as `slotName`.
    void disconnectTimeOut(const std::string& slotName);

    /// Starts the timer, or starts it anew; `interval` is in milliseconds. An interval below 1 stops it. Throws what
    /// startTimer() throws; the timer then goes on as it was.
    void start(int interval);

    /// No time-out follows on the timer's own thread; from another thread one that has begun runs to its end.
    void stop();

    /// True between start() and stop(). Safe from any thread.
    bool isActive() const { return m_timerId != 0; }

    /// Calls the connected functions.
    void timerEvent(CkelTimerEvent* event) override;

private:
    std::vector<std::pair<std::string, std::function<void()>>> m_slots;
    CkelMutex m_startMutex;
    std::atomic<int> m_timerId{0};
};

} // namespace Ombrin
