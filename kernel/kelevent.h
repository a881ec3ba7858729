#pragma once

#include "kernel/kelglobal.h"
#include "kernel/kelvariant.h"

namespace Ombrin {

class CkelObject;

/// Something that happened, on its way to the `event()` of an object.
/// @ingroup kernel
class KEL_EXPORT CkelEvent
{
public:
    /// The kinds of events. Numbers between DataSensor and Custom are free for the kernel.
    enum Type : int
    {
        Timer = 1,        ///< CkelTimerEvent
        ChildAdded = 2,   ///< CkelChildEvent, sent to the new parent
        ChildRemoved = 3, ///< CkelChildEvent, sent to the old parent
        DataSensor = 4,   ///< CkelDataSensorEvent
        Custom = 1000     ///< the first of the types that an application may define
    };

    virtual ~CkelEvent();

    CkelEvent(const CkelEvent&) = delete;
    CkelEvent& operator=(const CkelEvent&) = delete;

    /// Says which class the event is of: one of Type, or Custom and above for a CkelCustomEvent.
    int type() const { return m_type; }

protected:
    /// For the derived classes; `type` as in type().
    explicit CkelEvent(int type) : m_type(type) {}

private:
    const int m_type;
};

/// A time-out of one of the receiver's timers.
/// @ingroup kernel
class KEL_EXPORT CkelTimerEvent : public CkelEvent
{
public:
    /// `timerId` is what CkelObject::startTimer returned.
    explicit CkelTimerEvent(int timerId) : CkelEvent(Timer), m_timerId(timerId) {}
    ~CkelTimerEvent() override;

    /// The timer that timed out, as CkelObject::startTimer returned it.
    int timerId() const { return m_timerId; }

private:
    const int m_timerId;
};

/// A child came to the receiver or left it.
/// @ingroup kernel
class KEL_EXPORT CkelChildEvent : public CkelEvent
{
public:
    /// `type` is ChildAdded or ChildRemoved.
    CkelChildEvent(Type type, CkelObject* child) : CkelEvent(type), m_child(child) {}
    ~CkelChildEvent() override;

    /// True when the child came, false when it left.
    bool added() const { return type() == ChildAdded; }

    /// The child. While it is being constructed or destroyed it is no more than a CkelObject.
    CkelObject* child() const { return m_child; }

private:
    CkelObject* const m_child;
};

/// Base of the events that an application defines. CkelApplicationPlus::sendEvent passes one to
/// CkelObject::customEvent.
///
/// @dontinclude objects.cpp
/// @skip class AlarmEvent
/// @until };
///
/// @ingroup kernel
class KEL_EXPORT CkelCustomEvent : public CkelEvent
{
public:
    /// A `type` below Custom counts as Custom.
    explicit CkelCustomEvent(int type = Custom) : CkelEvent(type < Custom ? Custom : type) {}
    ~CkelCustomEvent() override;
};

/// A changed value on its way through the data sensor.
/// @ingroup kernel
class KEL_EXPORT CkelDataSensorEvent : public CkelEvent
{
public:
    /// Which part of the system speaks. Applications may use numbers of their own.
    enum SensorType : int
    {
        AnyData = 10 ///< a value of a data storage
    };

    /// Whether a later event may take this one's place while it waits.
    enum DataMerge : int
    {
        NoMerge = 0, ///< delivered on its own, always
        Merge = 1    ///< may be replaced by a newer event of the same ID and type that also says Merge
    };

    ~CkelDataSensorEvent() override;

    /// The item's ID. It crosses the constructor as an `int`; IDs above 2147483647 come back unharmed.
    unsigned int id() const { return m_id; }

    /// Which part of the system speaks.
    SensorType sensorType() const { return m_sensorType; }

    /// The merge flag that the poster gave.
    DataMerge dataMerge() const { return m_merge; }

protected:
    /// For the derived classes; an ID above 2147483647 is given as the `int` of the same 32 bits.
    CkelDataSensorEvent(int id, SensorType type, DataMerge merge)
        : CkelEvent(DataSensor), m_id(static_cast<unsigned int>(id)), m_sensorType(type), m_merge(merge)
    {}

private:
    const unsigned int m_id;
    const SensorType m_sensorType;
    const DataMerge m_merge;
};

/// A changed value of any type.
/// @ingroup kernel
class KEL_EXPORT CkelAnyDataSensorEvent : public CkelDataSensorEvent
{
public:
    /// `value` is copied; `id` as for CkelDataSensorEvent.
    CkelAnyDataSensorEvent(int id, const CkelVariant& value, SensorType type, DataMerge merge)
        : CkelDataSensorEvent(id, type, merge), m_value(value)
    {}
    ~CkelAnyDataSensorEvent() override;

    /// The new value. It may be older than the item's: the event may have waited. Null for a value that could not be
    /// converted.
    const CkelVariant& value() const { return m_value; }

private:
    const CkelVariant m_value;
};

} // namespace Ombrin
