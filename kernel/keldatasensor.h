#pragma once

#include "kernel/kelevent.h"
#include "kernel/kelglobal.h"

#include <memory>
#include <vector>

namespace Ombrin {

class CkelEventLoop;
class CkelObject;

/// Brings changed values to whoever wants to know. One per process: CkelApplicationPlus::dataSensor().
///
/// Events are queued by post() and delivered by the application's event loop through CkelObject::dataSensorEvent of
/// every attached object, in the order in which they were posted. What a handler posts is delivered in the next turn of
/// the loop. Every operation is safe from any thread, before an application object exists and until the process ends.
///
/// A handler may throw. The other objects still receive the event; then the exception leaves exec() or processEvents().
/// When several handlers throw on one event, the first exception leaves and the others are dropped. The remaining
/// events are delivered by the next exec() or processEvents().
///
/// While nobody is attached, posted events are deleted at once, and so are those that wait when the last one
/// leaves. While somebody is attached and the application's loop
/// does not turn, events wait and take memory; with the merge flag at most one waits for each item.
///
/// @snippet classes.cpp CkelDataSensor
///
/// @ingroup kernel
class KEL_EXPORT CkelDataSensor
{
public:
    CkelDataSensor(const CkelDataSensor&) = delete;
    CkelDataSensor& operator=(const CkelDataSensor&) = delete;

    /// Queues `event` and takes ownership. Never runs a handler and never waits for one. Without memory for it, throws
    /// std::bad_alloc; the event is deleted then.
    ///
    /// With the merge flag, the event takes the place of the newest queued event of the same ID and sensor type,
    /// provided that one carries the flag too.
    void post(CkelDataSensorEvent* event);

    /// Lets `object` receive the events of all items, from the next event on.
    void attach(CkelObject* object);

    /// Lets `object` receive the events of the items `ids`, besides those it receives already.
    void attach(CkelObject* object, const std::vector<unsigned int>& ids);

    /// When it returns, no handler of `object` runs or will run, except the one that calls it. Destroying an object
    /// detaches it; one that is destroyed on another thread than the application's must be detached before its
    /// destructor begins. Do not hold a lock that the object's handler waits for.
    void detach(CkelObject* object);

private:
    friend class CkelApplicationPlus;
    struct Private;

    CkelDataSensor();
    ~CkelDataSensor();

    /// The loop that delivers from now on; none while there is no application.
    void setLoop(std::shared_ptr<CkelEventLoop> loop);

    /// Lets a loop that a handler is about to run deliver what the handler's pass has left.
    void continuePass();

    const std::unique_ptr<Private> m_d;
};

} // namespace Ombrin
