#pragma once
// Private to kernel/: not installed.

#include "kernel/keleventloop.h"
#include "kernel/kelmutex.h"
#include "kernel/kelobject.h"

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace Ombrin {

/// The data of a CkelObject and the operations that the kernel alone calls. CkelObject declares none of them as a
/// member: a member would hide functions of the same name in every class that an application derives.
struct CkelObjectPrivate
{
    static CkelObjectPrivate& of(const CkelObject& object) { return *object.m_kel; }

    /// Passes `event` through the receiver's filters and on to its `event()`.
    static bool deliver(CkelObject& receiver, CkelEvent& event);

    static void moveAll(const std::vector<CkelObject*>& objects, const std::shared_ptr<CkelEventLoop>& target);

    /// The loop of the object's thread.
    std::shared_ptr<CkelEventLoop> currentLoop() const
    {
        const CkelMutexLocker lock(loopMutex);
        return loop;
    }

    std::weak_ptr<const bool> watchLife()
    {
        if (!alive)
            alive = std::make_shared<const bool>(true);
        return alive;
    }

    std::string name;
    std::vector<std::string> classNames{"CkelObject"};
    CkelObject* parent = nullptr;
    std::vector<CkelObject*> children;

    std::vector<CkelObject*> filters; // newest last
    std::vector<CkelObject*> watched; // the objects that this one filters

    // Timers may be started and killed from any thread while the object moves.
    mutable CkelMutex loopMutex;
    std::shared_ptr<CkelEventLoop> loop KEL_GUARDED_BY(loopMutex);

    std::atomic<bool> attached{false}; // to the data sensor, now or at some time: the destructor has to detach
    std::shared_ptr<const bool> alive; // made when somebody needs to see the object's end
};

} // namespace Ombrin
