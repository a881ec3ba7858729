#include "kernel/kelobject.h"

#include "kernel/kelapplicationplus.h"
#include "kernel/keldatasensor.h"
#include "kernel/kelevent.h"
#include "kernel/kelobjectprivate.h"
#include "kernel/kelthread.h"

#include <algorithm>
#include <new>
#include <utility>

namespace Ombrin {

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

CkelObject::CkelObject(CkelObject* parent) : m_kel(std::make_unique<CkelObjectPrivate>())
{
    {
        const CkelMutexLocker lock(m_kel->loopMutex);
        m_kel->loop = CkelEventLoop::current();
    }
    if (!parent)
        return;
    try {
        setParent(parent);
    } catch (...) {
        if (m_kel->parent)
            removeFrom(m_kel->parent->m_kel->children, this);
        throw;
    }
}

CkelObject::~CkelObject()
{
    if (m_kel->attached)
        CkelApplicationPlus::dataSensor()->detach(this);
    for (CkelObject* const watched : m_kel->watched)
        removeFrom(watched->m_kel->filters, this);
    for (CkelObject* const filter : m_kel->filters)
        removeFrom(filter->m_kel->watched, this);

    try {
        setParent(nullptr);
    } catch (const std::bad_alloc&) { // NOLINT(bugprone-empty-catch): the parent's filters do not hear of it
    }
    while (!m_kel->children.empty()) {
        CkelObject* const child = m_kel->children.back();
        m_kel->children.pop_back();
        child->m_kel->parent = nullptr;
        delete child;
    }
    m_kel->currentLoop()->killTimers(*this); // last: the parent's handler may have started one
}

void CkelObject::setName(const std::string& name)
{
    m_kel->name = name;
}

std::string CkelObject::name() const
{
    return m_kel->name;
}

std::string CkelObject::className() const
{
    return m_kel->classNames.back();
}

bool CkelObject::inherits(const std::string& className) const
{
    return std::find(m_kel->classNames.begin(), m_kel->classNames.end(), className) != m_kel->classNames.end();
}

void CkelObject::storeherits(const std::string& className)
{
    m_kel->classNames.push_back(className);
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
    return m_kel->parent;
}

const std::vector<CkelObject*>& CkelObject::children() const
{
    return m_kel->children;
}

bool CkelObject::setParent(CkelObject* parent)
{
    if (parent && parent->m_kel->currentLoop() != m_kel->currentLoop())
        return false;
    for (const CkelObject* above = parent; above; above = above->m_kel->parent) {
        if (above == this)
            return false;
    }

    // A handler may destroy any of the three, or give the object away again.
    const std::weak_ptr<const bool> alive = parent ? m_kel->watchLife() : std::weak_ptr<const bool>();
    if (parent)
        parent->m_kel->children.push_back(this);
    CkelObject* const old = std::exchange(m_kel->parent, parent);
    if (old)
        removeFirst(old->m_kel->children, this); // its older place, when the parent stays

    if (old) {
        CkelChildEvent removed(CkelEvent::ChildRemoved, this);
        CkelObjectPrivate::deliver(*old, removed);
    }
    if (parent && !alive.expired() && m_kel->parent == parent) {
        CkelChildEvent added(CkelEvent::ChildAdded, this);
        CkelObjectPrivate::deliver(*parent, added);
    }
    return true;
}

int CkelObject::startTimer(int interval)
{
    if (interval < 1)
        return 0;
    const CkelMutexLocker lock(m_kel->loopMutex);
    return m_kel->loop->startTimer(*this, std::chrono::milliseconds(interval));
}

void CkelObject::killTimer(int timerId)
{
    const CkelMutexLocker lock(m_kel->loopMutex);
    m_kel->loop->killTimer(*this, timerId);
}

bool CkelObject::moveToThread(CkelThread* thread)
{
    if (!thread || m_kel->parent)
        return false;
    std::vector<CkelObject*> moving{this};
    for (std::size_t i = 0; i < moving.size(); ++i)
        moving.insert(moving.end(), moving[i]->m_kel->children.begin(), moving[i]->m_kel->children.end());
    CkelObjectPrivate::moveAll(moving, thread->m_loop);
    return true;
}

void CkelObject::installEventFilter(CkelObject* filter)
{
    if (!filter)
        return;
    m_kel->filters.reserve(m_kel->filters.size() + 1); // both or none
    filter->m_kel->watched.reserve(filter->m_kel->watched.size() + 1);
    removeEventFilter(filter);
    m_kel->filters.push_back(filter);
    filter->m_kel->watched.push_back(this);
}

void CkelObject::removeEventFilter(CkelObject* filter)
{
    if (!filter)
        return;
    removeFrom(m_kel->filters, filter);
    removeFrom(filter->m_kel->watched, this);
}

void CkelObjectPrivate::moveAll(const std::vector<CkelObject*>& objects, const std::shared_ptr<CkelEventLoop>& target)
{
    std::vector<int> timers;
    try {
        for (CkelObject* const object : objects) {
            CkelObjectPrivate& d = of(*object);
            const CkelMutexLocker lock(d.loopMutex);
            d.loop->moveTimers(*object, *target, timers);
            d.loop = target;
        }
    } catch (...) {
        target->resumeTimers(timers);
        throw;
    }
    target->resumeTimers(timers); // not before all have moved: handlers may reach their object's children
}

bool CkelObjectPrivate::deliver(CkelObject& receiver, CkelEvent& event)
{
    CkelObjectPrivate& d = of(receiver);
    if (d.filters.empty())
        return receiver.event(&event);

    // A filter may remove filters and destroy objects, the receiver among them.
    const std::weak_ptr<const bool> alive = d.watchLife();
    const std::vector<CkelObject*> filters = d.filters;
    for (auto filter = filters.rbegin(); filter != filters.rend(); ++filter) {
        if (contains(d.filters, *filter) && (*filter)->eventFilter(&receiver, &event))
            return true;
        if (alive.expired())
            return true;
    }
    return receiver.event(&event);
}

} // namespace Ombrin
