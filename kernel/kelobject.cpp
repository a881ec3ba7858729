#include "kernel/kelobject.h"

#include "kernel/kelapplicationplus.h"
#include "kernel/keldatasensor.h"
#include "kernel/kelevent.h"
#include "kernel/keleventloop.h"
#include "kernel/kelmutex.h"
#include "kernel/kelthread.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <utility>

namespace Ombrin {

struct CkelObject::Private
{
    std::string name;
    std::vector<std::string> classNames{"CkelObject"};
    CkelObject* parent = nullptr;
    std::vector<CkelObject*> children;

    std::vector<CkelObject*> filters; // newest last
    std::vector<CkelObject*> watched; // the objects that this one filters

    // Timers may be started and killed from any thread while the object moves.
    mutable CkelMutex loopMutex;
    std::shared_ptr<CkelEventLoop> loop KEL_GUARDED_BY(loopMutex);

    std::atomic<bool> attached{false}; // to the data sensor, now or at some time
    std::shared_ptr<const bool> alive; // made when somebody needs to see the object's end

    std::weak_ptr<const bool> watchLife()
    {
        if (!alive)
            alive = std::make_shared<const bool>(true);
        return alive;
    }
};

namespace {

void removeFrom(std::vector<CkelObject*>& objects, const CkelObject* object)
{
    objects.erase(std::remove(objects.begin(), objects.end(), object), objects.end());
}

void removeFirst(std::vector<CkelObject*>& objects, const CkelObject* object)
{
    const auto found = std::find(objects.begin(), objects.end(), object);
    if (found != objects.end())
        objects.erase(found);
}

bool contains(const std::vector<CkelObject*>& objects, const CkelObject* object)
{
    return std::find(objects.begin(), objects.end(), object) != objects.end();
}

} // namespace

CkelObject::CkelObject(CkelObject* parent) : m_d(std::make_unique<Private>())
{
    {
        const CkelMutexLocker lock(m_d->loopMutex);
        m_d->loop = CkelEventLoop::current();
    }
    if (!parent)
        return;
    try {
        setParent(parent);
    } catch (...) {
        if (m_d->parent)
            removeFrom(m_d->parent->m_d->children, this);
        throw;
    }
}

CkelObject::~CkelObject()
{
    if (m_d->attached)
        CkelApplicationPlus::dataSensor()->detach(this);
    for (CkelObject* const watched : m_d->watched)
        removeFrom(watched->m_d->filters, this);
    for (CkelObject* const filter : m_d->filters)
        removeFrom(filter->m_d->watched, this);

    try {
        setParent(nullptr);
    } catch (const std::bad_alloc&) { // NOLINT(bugprone-empty-catch): the parent's filters do not hear of it
    }
    while (!m_d->children.empty()) {
        CkelObject* const child = m_d->children.back();
        m_d->children.pop_back();
        child->m_d->parent = nullptr;
        delete child;
    }
    loop()->killTimers(*this); // last: the parent's handler may have started one
}

void CkelObject::setName(const std::string& name)
{
    m_d->name = name;
}

std::string CkelObject::name() const
{
    return m_d->name;
}

std::string CkelObject::className() const
{
    return m_d->classNames.back();
}

bool CkelObject::inherits(const std::string& className) const
{
    return std::find(m_d->classNames.begin(), m_d->classNames.end(), className) != m_d->classNames.end();
}

void CkelObject::storeherits(const std::string& className)
{
    m_d->classNames.push_back(className);
}

bool CkelObject::event(CkelEvent* event)
{
    switch (event->type()) {
    case CkelEvent::Timer:
        timerEvent(static_cast<CkelTimerEvent*>(event));
        return true;
    case CkelEvent::ChildAdded:
    case CkelEvent::ChildRemoved:
        childEvent(static_cast<CkelChildEvent*>(event));
        return true;
    case CkelEvent::DataSensor:
        dataSensorEvent(static_cast<CkelDataSensorEvent*>(event));
        return true;
    default:
        if (event->type() < CkelEvent::Custom)
            return false;
        customEvent(static_cast<CkelCustomEvent*>(event));
        return true;
    }
}

bool CkelObject::eventFilter(CkelObject* /*watched*/, CkelEvent* /*event*/)
{
    return false;
}

void CkelObject::timerEvent(CkelTimerEvent* /*event*/) {}

void CkelObject::childEvent(CkelChildEvent* /*event*/) {}

void CkelObject::customEvent(CkelCustomEvent* /*event*/) {}

void CkelObject::dataSensorEvent(CkelDataSensorEvent* /*event*/) {}

bool CkelObject::winProc(unsigned int /*message*/, unsigned short /*parameter*/, unsigned int /*data*/)
{
    return false;
}

bool CkelObject::kel_metacall(CkelMetaProperty::Call call, const char* name, void** args)
{
    if (!name || !args || !args[0])
        return false;
    const std::string property = name;
    auto* const value = static_cast<CkelVariant*>(args[0]);
    if (call == CkelMetaProperty::ReadProperty && property == "name") {
        *value = this->name();
        return true;
    }
    if (call == CkelMetaProperty::ReadProperty && property == "className") {
        *value = className();
        return true;
    }
    if (call == CkelMetaProperty::WriteProperty && property == "name") {
        setName(value->toStdString());
        return true;
    }
    return false;
}

CkelObject* CkelObject::parent() const
{
    return m_d->parent;
}

const std::vector<CkelObject*>& CkelObject::children() const
{
    return m_d->children;
}

bool CkelObject::setParent(CkelObject* parent)
{
    if (parent && parent->loop() != loop())
        return false;
    for (const CkelObject* above = parent; above; above = above->m_d->parent) {
        if (above == this)
            return false;
    }

    // A handler may destroy any of the three, or give the object away again.
    const std::weak_ptr<const bool> alive = parent ? m_d->watchLife() : std::weak_ptr<const bool>();
    if (parent)
        parent->m_d->children.push_back(this);
    CkelObject* const old = std::exchange(m_d->parent, parent);
    if (old)
        removeFirst(old->m_d->children, this); // its older place, when the parent stays

    if (old) {
        CkelChildEvent removed(CkelEvent::ChildRemoved, this);
        deliver(*old, removed);
    }
    if (parent && !alive.expired() && m_d->parent == parent) {
        CkelChildEvent added(CkelEvent::ChildAdded, this);
        deliver(*parent, added);
    }
    return true;
}

int CkelObject::startTimer(int interval)
{
    if (interval < 1)
        return 0;
    const CkelMutexLocker lock(m_d->loopMutex);
    return m_d->loop->startTimer(*this, std::chrono::milliseconds(interval));
}

void CkelObject::killTimer(int timerId)
{
    const CkelMutexLocker lock(m_d->loopMutex);
    m_d->loop->killTimer(*this, timerId);
}

bool CkelObject::moveToThread(CkelThread* thread)
{
    if (!thread || m_d->parent)
        return false;
    std::vector<CkelObject*> moving{this};
    for (std::size_t i = 0; i < moving.size(); ++i)
        moving.insert(moving.end(), moving[i]->m_d->children.begin(), moving[i]->m_d->children.end());
    moveAll(moving, thread->m_loop);
    return true;
}

void CkelObject::moveAll(const std::vector<CkelObject*>& objects, const std::shared_ptr<CkelEventLoop>& target)
{
    std::vector<int> timers;
    try {
        for (CkelObject* const object : objects) {
            const CkelMutexLocker lock(object->m_d->loopMutex);
            object->m_d->loop->moveTimers(*object, *target, timers);
            object->m_d->loop = target;
        }
    } catch (...) {
        target->resumeTimers(timers);
        throw;
    }
    target->resumeTimers(timers); // not before all have moved: handlers may reach their object's children
}

void CkelObject::installEventFilter(CkelObject* filter)
{
    if (!filter)
        return;
    m_d->filters.reserve(m_d->filters.size() + 1); // both or none
    filter->m_d->watched.reserve(filter->m_d->watched.size() + 1);
    removeEventFilter(filter);
    m_d->filters.push_back(filter);
    filter->m_d->watched.push_back(this);
}

void CkelObject::removeEventFilter(CkelObject* filter)
{
    if (!filter)
        return;
    removeFrom(m_d->filters, filter);
    removeFrom(filter->m_d->watched, this);
}

std::shared_ptr<CkelEventLoop> CkelObject::loop() const
{
    const CkelMutexLocker lock(m_d->loopMutex);
    return m_d->loop;
}

void CkelObject::markAttached()
{
    m_d->attached = true;
}

bool CkelObject::deliver(CkelObject& receiver, CkelEvent& event)
{
    if (receiver.m_d->filters.empty())
        return receiver.event(&event);

    // A filter may remove filters and destroy objects, the receiver among them.
    const std::weak_ptr<const bool> alive = receiver.m_d->watchLife();
    const std::vector<CkelObject*> filters = receiver.m_d->filters;
    for (auto filter = filters.rbegin(); filter != filters.rend(); ++filter) {
        if (contains(receiver.m_d->filters, *filter) && (*filter)->eventFilter(&receiver, &event))
            return true;
        if (alive.expired())
            return true;
    }
    return receiver.event(&event);
}

} // namespace Ombrin
