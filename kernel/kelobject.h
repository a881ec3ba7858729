#pragma once

#include "kernel/kelglobal.h"
#include "kernel/kelmetaproperty.h"

#include <memory>
#include <string>
#include <vector>

namespace Ombrin {

class CkelChildEvent;
class CkelCustomEvent;
class CkelDataSensorEvent;
class CkelEvent;
class CkelThread;
class CkelTimerEvent;
struct CkelObjectPrivate;

/// Base of everything that has a parent, timers or events.
///
/// **Ownership.** A parent deletes its children. An object is never copied.
///
/// **Threads.** An object belongs to the thread that constructed it until it is moved; its timers fire there. Use and
/// destroy an object on its own thread, or after that thread has ended. Starting and killing timers is safe from any
/// thread. Objects may be made until the process ends: in static destructors, in exit handlers, and in the destructors
/// of a thread's variables.
///
/// **Destruction** kills the object's timers, deletes its children, detaches it from the data sensor and takes it out
/// of every event filter. It may happen inside one of the object's own handlers.
///
/// @snippet classes.cpp CkelObject
///
/// @ingroup kernel
class KEL_EXPORT CkelObject
{
public:
    /// A parent that lives on another thread is refused: the object then has none.
    explicit CkelObject(CkelObject* parent = nullptr);

    CkelObject(const CkelObject&) = delete;
    CkelObject& operator=(const CkelObject&) = delete;

    // The virtual operations, in an order that other libraries are built against: never reorder, never insert.

    virtual ~CkelObject();

    /// Gives the object a name, for its users alone; it need not be unique. Empty at first.
    virtual void setName(const std::string& name);

    /// Receives every event of this object that no filter kept, and hands it to the handler below that fits.
    /// True when the event was known and handled.
    virtual bool event(CkelEvent* event);

    /// Sees the events of every object that this one was installed on as a filter, before `watched` does. Return true
    /// to keep the event from `watched`.
    virtual bool eventFilter(CkelObject* watched, CkelEvent* event);

    /// A time-out of one of this object's timers. Runs on the object's thread. Does nothing here, as the next two do.
    virtual void timerEvent(CkelTimerEvent* event);
    /// A child came or left.
    virtual void childEvent(CkelChildEvent* event);
    /// An event of a type that the application defined, sent with CkelApplicationPlus::sendEvent.
    virtual void customEvent(CkelCustomEvent* event);

    /// A changed value, when this object is attached to the data sensor. Runs on the application's thread, whichever
    /// the object's own is. The event is the sensor's: copy what is to be kept. Does nothing here.
    virtual void dataSensorEvent(CkelDataSensorEvent* event);

    /// A message of the window system; true when handled. Nothing in the kernel sends one.
    virtual bool winProc(unsigned int message, unsigned short parameter, unsigned int data);

    /// Reads or writes the property `name`; see CkelMetaProperty, which is the convenient way to call it. False when
    /// there is no such property or it cannot be written.
    virtual bool kel_metacall(CkelMetaProperty::Call call, const char* name, void** args);

    /// The name given to setName().
    std::string name() const;

    /// The newest name given to storeherits; "CkelObject" for a plain object.
    std::string className() const;

    /// Whether `className` is this object's class or one of its bases, by the names given to storeherits.
    bool inherits(const std::string& className) const;

    /// The object that deletes this one; null when there is none.
    CkelObject* parent() const;

    /// Oldest first. The list is the object's own: it changes as children come and go.
    const std::vector<CkelObject*>& children() const;

    /// Gives the object to another parent, or to none, in which case the caller owns it. Refused, with false, when the
    /// new parent lives on another thread or is this object or one below it.
    bool setParent(CkelObject* parent);

    /// Starts a timer that calls `event()` with a CkelTimerEvent every `interval` milliseconds (1 or more), the first
    /// time after one interval, until it is killed. It keeps to its own grid: a late time-out does not shift the next
    /// ones, and periods that were missed are skipped. Returns the timer's ID, unique in the process, or 0 when
    /// `interval` is below 1.
    ///
    /// The first timer of a thread opens up to three file descriptors, which stay open as long as the thread's loop
    /// lives. Throws std::system_error when the process may not open as many, and starts no timer then; a later call
    /// may succeed. Objects without timers need no descriptors.
    int startTimer(int interval);

    /// Stops a timer of this object; other IDs are ignored. On the object's own thread no time-out follows; from
    /// another thread one that has begun runs to its end.
    void killTimer(int timerId);

    /// Makes the object, its children and all their timers belong to `thread`, running or not yet running. Call it on
    /// the object's current thread. Refused, with false, for an object that has a parent and for a null thread.
    ///
    /// Moving timers throws std::system_error where startTimer() on `thread` would. Some of the objects may have moved
    /// then; another call moves the others.
    bool moveToThread(CkelThread* thread);

    /// Lets `filter` see this object's events first; the filter installed last sees them first. Both must live on one
    /// thread. Installing a filter again moves it to the front.
    void installEventFilter(CkelObject* filter);

    /// Ends installEventFilter(); nothing happens when `filter` is not installed. Destroying either object does it too.
    void removeEventFilter(CkelObject* filter);

protected:
    /// Every class adds its own name to the chain, in its constructor.
    void storeherits(const std::string& className);

private:
    // The only private name: others would hide functions of the same name in derived classes.
    friend struct CkelObjectPrivate;
    const std::unique_ptr<CkelObjectPrivate> m_kel;
};

} // namespace Ombrin
