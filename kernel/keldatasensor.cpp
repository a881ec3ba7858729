#include "kernel/keldatasensor.h"

#include "kernel/kelobjectprivate.h"

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iterator>
#include <optional>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace Ombrin {

namespace {

using EventPtr = std::unique_ptr<CkelDataSensorEvent>;

/// The events that wait for the next pass, and where the newest of each item stands among them.
class EventQueue
{
public:
    /// Leaves in `event` what it replaced: nothing is destroyed under the sensor's lock. Queues it or throws.
    void push(EventPtr& event)
    {
        if (event->dataMerge() != CkelDataSensorEvent::Merge) {
            m_events.push_back(std::move(event));
            return;
        }
        if (m_events.size() == m_events.capacity()) // an entry of the index must lead to an event
            m_events.reserve(2 * m_events.size() + 1);
        indexNewEvents();
        const auto [newest, first] = m_newest.try_emplace(keyOf(*event), m_events.size());
        if (!first && m_events[newest->second]->dataMerge() == CkelDataSensorEvent::Merge) {
            m_events[newest->second].swap(event);
            return;
        }
        newest->second = m_events.size();
        m_events.push_back(std::move(event));
        m_indexed = m_events.size();
    }

    bool isEmpty() const { return m_events.empty(); }

    /// Moves the waiting events behind those of `batch`; the memory of an empty one serves the next ones, unless it is
    /// what a loop that stood still has left.
    void take(std::vector<EventPtr>& batch)
    {
        if (batch.empty()) {
            if (batch.capacity() > std::max(keptCapacity, 8 * m_events.size()))
                std::vector<EventPtr>().swap(batch);
            m_events.swap(batch);
        } else {
            batch.insert(batch.end(), std::make_move_iterator(m_events.begin()),
                         std::make_move_iterator(m_events.end()));
        }
        m_events.clear();
        if (m_newest.bucket_count() > keptCapacity)
            std::unordered_map<std::uint64_t, std::size_t>().swap(m_newest);
        else
            m_newest.clear();
        m_indexed = 0;
    }

private:
    static constexpr std::size_t keptCapacity = 1024;

    static std::uint64_t keyOf(const CkelDataSensorEvent& event)
    {
        return std::uint64_t{event.id()} << 32U | static_cast<std::uint32_t>(event.sensorType());
    }

    // Only merging needs the index, so events without the flag are entered when the first one with it comes.
    void indexNewEvents()
    {
        for (; m_indexed < m_events.size(); ++m_indexed)
            m_newest[keyOf(*m_events[m_indexed])] = m_indexed;
    }

    std::vector<EventPtr> m_events;
    std::unordered_map<std::uint64_t, std::size_t> m_newest;
    std::size_t m_indexed = 0;
};

struct Listener
{
    CkelObject* object;
    bool all;
    std::unordered_set<unsigned int> ids;

    bool wants(unsigned int id) const { return all || ids.count(id) != 0; }
};

/// An event on its way through the listeners.
struct Delivery
{
    explicit Delivery(EventPtr delivered) : event(std::move(delivered)) {}

    EventPtr event;
    std::size_t next = 0;           // of the listeners
    std::optional<std::size_t> end; // set by the first step: who attaches later waits for the next event
};

/// A handler that runs now; one that runs the loop itself has others inside.
struct RunningHandler
{
    const CkelObject* receiver;
    RunningHandler* outer;
};

} // namespace

/// One lock guards everything that other threads reach; it is released while a handler runs. The batch in delivery
/// belongs to the application's thread.
struct CkelDataSensor::Private
{
    void attach(CkelObject& object, bool all, const std::vector<unsigned int>& ids);
    void wakeLoop() KEL_REQUIRES(mutex);
    void deliverPending();
    void deliverBatch();
    void deliver(Delivery& delivery, std::vector<EventPtr>& finished) KEL_REQUIRES(mutex);
    CkelObject* nextListener(Delivery& delivery) KEL_REQUIRES(mutex);
    bool isActive(const CkelObject* object) const KEL_REQUIRES(mutex);
    void removeDetached() KEL_REQUIRES(mutex);

    CkelMutex mutex;
    EventQueue queue KEL_GUARDED_BY(mutex);
    std::shared_ptr<CkelEventLoop> loop KEL_GUARDED_BY(mutex);
    bool wakePending KEL_GUARDED_BY(mutex) = false;

    std::vector<Listener> listeners KEL_GUARDED_BY(mutex); // a detached one keeps its place while handlers run
    std::size_t attachedCount KEL_GUARDED_BY(mutex) = 0;
    RunningHandler* active KEL_GUARDED_BY(mutex) = nullptr; // the innermost
    std::thread::id deliveringThread KEL_GUARDED_BY(mutex);
    std::size_t detaching KEL_GUARDED_BY(mutex) = 0; // calls that wait for a handler to end
    std::condition_variable_any handlerDone;

    std::vector<EventPtr> batch;
    std::size_t batchNext = 0;
    Delivery* current = nullptr; // the innermost when nested; the others are complete
};

CkelDataSensor::CkelDataSensor() : m_d(std::make_unique<Private>()) {}

CkelDataSensor::~CkelDataSensor() = default;

void CkelDataSensor::post(CkelDataSensorEvent* event)
{
    if (!event)
        return;
    EventPtr owned(event);
    const CkelMutexLocker lock(m_d->mutex);
    if (m_d->attachedCount == 0)
        return;
    m_d->wakeLoop(); // first: an event whose caller hears of a failure must not be delivered
    m_d->queue.push(owned);
}

void CkelDataSensor::attach(CkelObject* object)
{
    if (object)
        m_d->attach(*object, true, {});
}

void CkelDataSensor::attach(CkelObject* object, const std::vector<unsigned int>& ids)
{
    if (object && !ids.empty())
        m_d->attach(*object, false, ids);
}

void CkelDataSensor::detach(CkelObject* object)
{
    Private& d = *m_d;
    std::vector<EventPtr> unwanted; // destroyed without the lock
    const CkelMutexLocker lock(d.mutex);
    for (Listener& listener : d.listeners) {
        if (listener.object == object && object) {
            listener.object = nullptr;
            --d.attachedCount;
        }
    }
    ++d.detaching;
    while (d.isActive(object) && d.deliveringThread != std::this_thread::get_id())
        d.handlerDone.wait(d.mutex);
    --d.detaching;
    d.removeDetached();
    if (d.attachedCount == 0)
        d.queue.take(unwanted);
}

void CkelDataSensor::setLoop(std::shared_ptr<CkelEventLoop> loop)
{
    const CkelMutexLocker lock(m_d->mutex);
    m_d->loop.swap(loop);
    const bool wasPending = std::exchange(m_d->wakePending, false);
    try {
        m_d->wakeLoop(); // events may wait, also the rest of a pass that an exception ended
    } catch (...) {
        m_d->loop.swap(loop);
        m_d->wakePending = wasPending;
        throw;
    }
}

void CkelDataSensor::continuePass()
{
    const CkelMutexLocker lock(m_d->mutex);
    // Events wait without a wake-up when an exception ended a pass.
    if (m_d->current || m_d->batchNext < m_d->batch.size() || !m_d->queue.isEmpty())
        m_d->wakeLoop();
}

void CkelDataSensor::Private::attach(CkelObject& object, bool all, const std::vector<unsigned int>& ids)
{
    CkelObjectPrivate::of(object).attached = true;
    std::unordered_set<unsigned int> wanted(ids.begin(), ids.end());
    const CkelMutexLocker lock(mutex);
    const auto listener = std::find_if(listeners.begin(), listeners.end(),
                                       [&object](const Listener& known) { return known.object == &object; });
    if (listener == listeners.end()) {
        listeners.push_back({&object, all, std::move(wanted)});
        ++attachedCount;
        return;
    }
    wanted.insert(listener->ids.begin(), listener->ids.end());
    listener->ids.swap(wanted);
    listener->all = listener->all || all;
}

void CkelDataSensor::Private::wakeLoop()
{
    if (!loop || wakePending)
        return;
    loop->post([this] { deliverPending(); });
    wakePending = true;
}

void CkelDataSensor::Private::deliverPending()
{
    {
        std::vector<EventPtr> finished;
        const CkelMutexLocker lock(mutex);
        wakePending = false;
        deliveringThread = std::this_thread::get_id();
        // What an earlier pass has left comes first: a handler threw, or runs the loop itself.
        batch.erase(batch.begin(), batch.begin() + static_cast<std::ptrdiff_t>(batchNext));
        batchNext = 0;
        queue.take(batch);
        if (current)
            deliver(*current, finished);
    }
    deliverBatch();
}

void CkelDataSensor::Private::deliverBatch()
{
    Delivery* const outer = current;
    // Both outlive the lock: no event is destroyed under it.
    std::vector<EventPtr> finished;
    std::optional<Delivery> delivery;
    try {
        const CkelMutexLocker lock(mutex);
        while (batchNext < batch.size()) {
            delivery.emplace(std::move(batch[batchNext++]));
            current = &*delivery;
            deliver(*delivery, finished);
            current = outer;
            finished.push_back(std::move(delivery->event));
        }
    } catch (...) {
        current = outer;
        // A handler threw: its event is done with, the others are not.
        const CkelMutexLocker lock(mutex);
        wakeLoop();
        throw;
    }
}

/// Takes `delivery` through its listeners, then throws the first exception of their handlers. Destroys `finished` once
/// the lock is free.
void CkelDataSensor::Private::deliver(Delivery& delivery, std::vector<EventPtr>& finished)
{
    /// Notes whose handler runs, and lets go of the lock meanwhile.
    struct Handler
    {
        Handler(Private& sensor, const CkelObject& receiver) KEL_NO_LOCK_ANALYSIS : d(sensor),
                                                                                    running{&receiver, sensor.active}
        {
            d.active = &running;
            d.mutex.unlock();
        }
        ~Handler() KEL_NO_LOCK_ANALYSIS
        {
            d.mutex.lock();
            d.active = running.outer;
            if (d.detaching != 0)
                d.handlerDone.notify_all();
        }
        Private& d;
        RunningHandler running;
    };

    if (!delivery.end)
        delivery.end = listeners.size();
    std::exception_ptr failure;
    while (CkelObject* const receiver = nextListener(delivery)) {
        const Handler running(*this, *receiver);
        finished.clear();
        try {
            CkelObjectPrivate::deliver(*receiver, *delivery.event);
        } catch (...) {
            if (!failure) // the listeners behind this one still receive the event
                failure = std::current_exception();
        }
    }
    removeDetached();
    if (failure)
        std::rethrow_exception(failure);
}

CkelObject* CkelDataSensor::Private::nextListener(Delivery& delivery)
{
    while (delivery.next < *delivery.end) {
        const Listener& listener = listeners[delivery.next++];
        if (listener.object && listener.wants(delivery.event->id()))
            return listener.object;
    }
    return nullptr;
}

bool CkelDataSensor::Private::isActive(const CkelObject* object) const
{
    for (const RunningHandler* handler = active; handler; handler = handler->outer) {
        if (handler->receiver == object)
            return true;
    }
    return false;
}

void CkelDataSensor::Private::removeDetached()
{
    if (active || attachedCount == listeners.size())
        return;
    listeners.erase(
        std::remove_if(listeners.begin(), listeners.end(), [](const Listener& listener) { return !listener.object; }),
        listeners.end());
}

} // namespace Ombrin
