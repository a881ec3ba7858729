#include "kernel/kelobject.h"

#include "kernel/kelapplicationplus.h"
#include "kernel/keldatasensor.h"
#include "kernel/kelevent.h"
#include "kernel/kelthread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace Ombrin;

namespace application {

// Names of functions, types and variables that an application may well use itself.
using Private = int;
constexpr Private m_d = 1;

int deliver(int letters)
{
    return letters;
}

int moveAll(int pieces)
{
    return pieces;
}

int loop()
{
    return 8;
}

int markAttached()
{
    return 16;
}

class Office : public CkelObject
{
public:
    static int callAll()
    {
        const Private own = m_d;
        return own + deliver(2) + moveAll(4) + loop() + markAttached();
    }
};

} // namespace application

namespace {

using Log = std::vector<std::string>;
using Objects = std::vector<CkelObject*>;

/// An event of a type that no handler knows.
struct UnknownEvent : CkelEvent
{
    explicit UnknownEvent(int type) : CkelEvent(type) {}
};

/// Writes down what reaches its handlers, and does on top what a case asks for.
class Recorder : public CkelObject
{
public:
    explicit Recorder(CkelObject* parent = nullptr) : CkelObject(parent) { storeherits("Recorder"); }

    void timerEvent(CkelTimerEvent* event) override { log.push_back("timer " + std::to_string(event->timerId())); }

    void childEvent(CkelChildEvent* event) override
    {
        log.push_back((event->added() ? "added " : "removed ") + event->child()->name());
        if (onChild)
            onChild(*event);
    }

    void customEvent(CkelCustomEvent* event) override
    {
        log.push_back("custom " + std::to_string(event->type()));
        if (onCustom)
            onCustom(); // may destroy this object
    }

    void dataSensorEvent(CkelDataSensorEvent* event) override
    {
        log.push_back("sensor " + std::to_string(event->id()));
    }

    Log log;
    std::function<void(CkelChildEvent&)> onChild;
    std::function<void()> onCustom;
};

/// Writes its name into a log that outlives it.
class Mortal : public CkelObject
{
public:
    Mortal(Log& deaths, const std::string& name, CkelObject* parent = nullptr)
        : CkelObject(parent), m_deaths(deaths), m_name(name)
    {
        setName(name);
    }
    ~Mortal() override { m_deaths.push_back(m_name); }

private:
    Log& m_deaths;
    const std::string m_name;
};

/// A filter that writes its letter into a log, and does what a case asks for.
class Filter : public CkelObject
{
public:
    Filter(Log& seen, const std::string& letter) : m_seen(seen), m_letter(letter) {}

    bool eventFilter(CkelObject* watched, CkelEvent* event) override
    {
        m_seen.push_back(m_letter);
        lastWatched = watched;
        lastType = event->type();
        const bool keep = keeps;
        if (onEvent)
            onEvent(); // may destroy this filter
        return keep;
    }

    bool keeps = false;
    CkelObject* lastWatched = nullptr;
    int lastType = 0;
    std::function<void()> onEvent;

private:
    Log& m_seen;
    const std::string m_letter;
};

bool sendCustom(CkelObject& receiver, int type = CkelEvent::Custom)
{
    CkelCustomEvent event(type);
    return CkelApplicationPlus::sendEvent(&receiver, &event);
}

/// Three classes deep.
class Base : public CkelObject
{
public:
    Base() { storeherits("Base"); }
};
class Derived : public Base
{
public:
    Derived() { storeherits("Derived"); }
};

} // namespace

TEST(Object, StartsWithoutNameParentAndChildren)
{
    const CkelObject object;
    EXPECT_EQ(object.name(), "");
    EXPECT_EQ(object.parent(), nullptr);
    EXPECT_TRUE(object.children().empty());
}

TEST(Object, NameIsTheOneSetLast)
{
    CkelObject object;
    object.setName("first");
    EXPECT_EQ(object.name(), "first");
    object.setName("second");
    EXPECT_EQ(object.name(), "second");
    object.setName("");
    EXPECT_EQ(object.name(), "");
}

TEST(Object, ClassNameOfAPlainObjectIsCkelObject)
{
    EXPECT_EQ(CkelObject().className(), "CkelObject");
}

TEST(Object, ClassNameIsTheNewestOfTheChain)
{
    EXPECT_EQ(Base().className(), "Base");
    EXPECT_EQ(Derived().className(), "Derived");
}

TEST(Object, InheritsEveryNameOfTheChainAndNoOther)
{
    const Derived object;
    EXPECT_TRUE(object.inherits("CkelObject"));
    EXPECT_TRUE(object.inherits("Base"));
    EXPECT_TRUE(object.inherits("Derived"));
    EXPECT_FALSE(object.inherits("Deriv"));
    EXPECT_FALSE(object.inherits("derived"));
    EXPECT_FALSE(object.inherits(""));
    EXPECT_FALSE(Base().inherits("Derived"));
}

TEST(Object, ConstructorTakesItsPlaceUnderTheParent)
{
    CkelObject parent;
    auto* const child = new CkelObject(&parent);
    EXPECT_EQ(child->parent(), &parent);
    EXPECT_EQ(parent.children(), Objects{child});
}

TEST(Object, ChildrenStandOldestFirst)
{
    CkelObject parent;
    auto* const first = new CkelObject(&parent);
    auto* const second = new CkelObject(&parent);
    auto* const third = new CkelObject(&parent);
    EXPECT_EQ(parent.children(), (Objects{first, second, third}));
    delete second;
    EXPECT_EQ(parent.children(), (Objects{first, third}));
}

TEST(Object, ParentDeletesAllBelowItNewestFirst)
{
    Log deaths;
    {
        CkelObject parent;
        auto* const first = new Mortal(deaths, "first", &parent);
        new Mortal(deaths, "second", &parent);
        new Mortal(deaths, "below first", first);
    }
    EXPECT_EQ(deaths, (Log{"second", "first", "below first"}));
}

TEST(Object, ParentIsStillWholeForNoneOfItsChildrenWhenItDies)
{
    struct Child : CkelObject
    {
        Child(CkelObject* above, bool& orphan) : CkelObject(above), m_orphan(orphan) {}
        ~Child() override { m_orphan = parent() == nullptr; }
        bool& m_orphan;
    };
    bool orphan = false;
    {
        CkelObject parent;
        new Child(&parent, orphan);
    }
    EXPECT_TRUE(orphan);
}

TEST(Object, DestroyedChildLeavesItsParent)
{
    Log deaths;
    {
        CkelObject parent;
        delete new Mortal(deaths, "child", &parent);
        EXPECT_TRUE(parent.children().empty());
    }
    EXPECT_EQ(deaths, Log{"child"}); // once
}

TEST(Object, ChildThatDeletesItsSiblingWhileTheParentDiesIsNoHarm)
{
    Log deaths;
    struct Killer : CkelObject
    {
        using CkelObject::CkelObject;
        ~Killer() override { delete victim; }
        CkelObject* victim = nullptr;
    };
    {
        CkelObject parent;
        auto* const victim = new Mortal(deaths, "victim", &parent);
        (new Killer(&parent))->victim = victim;
    }
    EXPECT_EQ(deaths, Log{"victim"});
}

TEST(Object, SetParentMovesTheChildToTheEndOfTheNewParent)
{
    CkelObject from;
    CkelObject to;
    auto* const resident = new CkelObject(&to);
    auto* const child = new CkelObject(&from);
    EXPECT_TRUE(child->setParent(&to));
    EXPECT_EQ(child->parent(), &to);
    EXPECT_TRUE(from.children().empty());
    EXPECT_EQ(to.children(), (Objects{resident, child}));
}

TEST(Object, SetParentNullGivesTheChildToTheCaller)
{
    Log deaths;
    std::unique_ptr<CkelObject> child;
    {
        CkelObject parent;
        child = std::make_unique<Mortal>(deaths, "child", &parent);
        EXPECT_TRUE(child->setParent(nullptr));
        EXPECT_TRUE(child->setParent(nullptr)); // has none already
    }
    EXPECT_EQ(child->parent(), nullptr);
    EXPECT_TRUE(deaths.empty());
}

TEST(Object, SetParentRefusesTheObjectItself)
{
    CkelObject object;
    EXPECT_FALSE(object.setParent(&object));
    EXPECT_EQ(object.parent(), nullptr);
    EXPECT_TRUE(object.children().empty());
}

TEST(Object, SetParentRefusesEveryObjectBelow)
{
    CkelObject top;
    auto* const middle = new CkelObject(&top);
    auto* const bottom = new CkelObject(middle);
    EXPECT_FALSE(top.setParent(middle));
    EXPECT_FALSE(top.setParent(bottom));
    EXPECT_FALSE(middle->setParent(bottom));
    EXPECT_EQ(top.parent(), nullptr);
    EXPECT_EQ(middle->parent(), &top);
    EXPECT_EQ(bottom->parent(), middle);
    EXPECT_TRUE(bottom->children().empty());
}

TEST(Object, RefusedSetParentChangesNothingAndTellsNobody)
{
    CkelObject grandparent;
    auto* const parent = new Recorder(&grandparent);
    auto* const child = new Recorder(parent);
    parent->log.clear();
    EXPECT_FALSE(parent->setParent(child));
    EXPECT_EQ(parent->parent(), &grandparent);
    EXPECT_EQ(parent->log, Log{});
    EXPECT_EQ(child->log, Log{});
}

TEST(Object, SetParentRefusesAParentOfAnotherThread)
{
    CkelThread thread;
    CkelObject far;
    ASSERT_TRUE(far.moveToThread(&thread));
    CkelObject near;
    auto* const child = new CkelObject(&near);
    EXPECT_FALSE(child->setParent(&far));
    EXPECT_EQ(child->parent(), &near);
    EXPECT_TRUE(far.children().empty());
}

TEST(Object, ConstructorWithAParentOfAnotherThreadLeavesTheObjectWithNone)
{
    CkelThread thread;
    CkelObject far;
    ASSERT_TRUE(far.moveToThread(&thread));
    const CkelObject object(&far);
    EXPECT_EQ(object.parent(), nullptr);
    EXPECT_TRUE(far.children().empty());
}

TEST(Object, ParentOfAnotherThreadIsRefusedWhileThatThreadRearrangesIt)
{
    std::atomic<CkelObject*> far{nullptr};
    std::atomic<bool> done{false};
    std::thread other([&] {
        CkelObject top;
        CkelObject object;
        far = &object;
        while (!done) {
            object.setParent(&top);
            object.setParent(nullptr);
        }
    });
    while (!far)
        std::this_thread::yield();
    CkelObject object;
    bool accepted = false;
    for (int i = 0; i < 2000; ++i)
        accepted = object.setParent(far) || accepted;
    done = true;
    other.join();
    EXPECT_FALSE(accepted);
}

TEST(Object, ParentHearsOfChildrenThatComeAndGo)
{
    Recorder from;
    Recorder to;
    CkelObject child;
    child.setName("child");
    child.setParent(&from);
    EXPECT_EQ(from.log, Log{"added child"});
    child.setParent(&to);
    EXPECT_EQ(from.log, (Log{"added child", "removed child"}));
    EXPECT_EQ(to.log, Log{"added child"});
    child.setParent(nullptr);
    EXPECT_EQ(to.log, (Log{"added child", "removed child"}));
}

TEST(Object, ParentHearsOfADestroyedChild)
{
    Recorder parent;
    auto* const child = new CkelObject(&parent);
    child->setName("child");
    parent.log.clear();
    delete child;
    EXPECT_EQ(parent.log, Log{"removed child"});
}

TEST(Object, ChildIsInPlaceWhenItsParentHearsOfIt)
{
    Recorder parent;
    Objects seen;
    parent.onChild = [&](CkelChildEvent& event) {
        seen = parent.children();
        EXPECT_EQ(event.child()->parent(), event.added() ? &parent : nullptr);
    };
    CkelObject child;
    child.setParent(&parent);
    EXPECT_EQ(seen, Objects{&child});
    child.setParent(nullptr);
    EXPECT_EQ(seen, Objects{});
}

TEST(Object, ChildUnderConstructionOrDestructionIsAPlainObject)
{
    Recorder parent;
    Log classes;
    parent.onChild = [&](CkelChildEvent& event) {
        classes.push_back(event.child()->className());
        sendCustom(*event.child()); // must not reach a handler of the derived class
    };
    auto* const child = new Recorder(&parent);
    EXPECT_EQ(child->log, Log{});
    delete child;
    ASSERT_EQ(classes.size(), 2U);
    EXPECT_EQ(classes[0], "CkelObject");
}

TEST(Object, ChildMayBeDestroyedInsideAHandlerOfItsParent)
{
    Log deaths;
    Recorder parent;
    auto* const child = new Mortal(deaths, "child", &parent);
    parent.onCustom = [child] { delete child; };
    EXPECT_TRUE(sendCustom(parent));
    EXPECT_EQ(deaths, Log{"child"});
    EXPECT_TRUE(parent.children().empty());
}

TEST(Object, SiblingMayBeDestroyedWhileTheParentHearsOfALeavingChild)
{
    Log deaths;
    Recorder parent;
    auto* const leaving = new Mortal(deaths, "leaving", &parent);
    auto* const sibling = new Mortal(deaths, "sibling", &parent);
    parent.onChild = [&](CkelChildEvent& event) {
        if (event.child() == leaving)
            delete sibling;
    };
    delete leaving;
    EXPECT_EQ(deaths, (Log{"leaving", "sibling"}));
    EXPECT_TRUE(parent.children().empty());
}

TEST(Object, ParentMayDestroyAChildThatIsGivenToIt)
{
    Log deaths;
    Recorder parent;
    auto* const child = new Mortal(deaths, "child");
    parent.onChild = [&](CkelChildEvent& event) {
        if (event.added())
            delete child;
    };
    EXPECT_TRUE(child->setParent(&parent));
    EXPECT_EQ(deaths, Log{"child"});
    EXPECT_TRUE(parent.children().empty());
}

TEST(Object, ChildThatIsGivenAwayByItsOldParentsHandlerHasOneParent)
{
    Recorder from;
    CkelObject to;
    CkelObject third;
    CkelObject child(&from);
    from.onChild = [&](CkelChildEvent& event) {
        if (!event.added())
            child.setParent(&third);
    };
    child.setParent(&to);
    for (const CkelObject* const parent :
         {static_cast<const CkelObject*>(&from), &std::as_const(to), &std::as_const(third)})
        EXPECT_EQ(parent->children(), parent == child.parent() ? Objects{&child} : Objects{});

    // Whatever came out, no list may keep the child.
    from.onChild = nullptr;
    child.setParent(&third);
    child.setParent(&to);
    child.setParent(nullptr);
}

TEST(Object, OldParentMayDestroyTheChildThatLeavesForAnotherParent)
{
    EXPECT_EXIT(
        {
            Recorder from;
            CkelObject to;
            auto* const child = new CkelObject(&from);
            bool destroyed = false;
            from.onChild = [&](CkelChildEvent& event) {
                if (!event.added() && !std::exchange(destroyed, true))
                    delete child;
            };
            child->setParent(&to);
            std::_Exit(to.children().empty() && destroyed ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(Object, OldParentMayDestroyTheNewParentOfTheChildThatLeaves)
{
    EXPECT_EXIT(
        {
            Recorder from;
            auto to = std::make_unique<CkelObject>();
            auto* const child = new CkelObject(&from);
            from.onChild = [&](CkelChildEvent& event) {
                if (!event.added())
                    to.reset();
            };
            child->setParent(to.get());
            std::_Exit(from.children().empty() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(Object, LeavesTheNamesOfAnApplicationToItsDerivedClasses)
{
    EXPECT_EQ(application::Office::callAll(), 31);
}

TEST(Object, EveryEventReachesTheHandlerThatFits)
{
    Recorder object;
    CkelTimerEvent timer(7);
    CkelObject child;
    child.setName("child");
    CkelChildEvent added(CkelEvent::ChildAdded, &child);
    CkelChildEvent removed(CkelEvent::ChildRemoved, &child);
    CkelCustomEvent custom(CkelEvent::Custom + 5);
    CkelAnyDataSensorEvent sensor(42, CkelVariant(1), CkelDataSensorEvent::AnyData, CkelDataSensorEvent::NoMerge);
    for (CkelEvent* const event : std::initializer_list<CkelEvent*>{&timer, &added, &removed, &custom, &sensor})
        EXPECT_TRUE(object.event(event));
    EXPECT_EQ(object.log, (Log{"timer 7", "added child", "removed child", "custom 1005", "sensor 42"}));
}

TEST(Object, EventsOfUnknownTypeReachNoHandler)
{
    Recorder object;
    for (const int type : {-1, 0, 5, CkelEvent::Custom - 1}) {
        UnknownEvent event(type);
        EXPECT_FALSE(object.event(&event)) << type;
    }
    EXPECT_EQ(object.log, Log{});
}

TEST(Object, PlainObjectTakesEveryKnownEventInSilence)
{
    CkelObject object;
    CkelTimerEvent timer(7);
    CkelChildEvent added(CkelEvent::ChildAdded, &object);
    CkelCustomEvent custom;
    CkelAnyDataSensorEvent sensor(42, CkelVariant(1), CkelDataSensorEvent::AnyData, CkelDataSensorEvent::NoMerge);
    for (CkelEvent* const event : std::initializer_list<CkelEvent*>{&timer, &added, &custom, &sensor})
        EXPECT_TRUE(object.event(event));
    EXPECT_TRUE(object.children().empty());
}

TEST(Object, PlainObjectKeepsNoEventAsAFilter)
{
    CkelObject filter;
    Recorder object;
    object.installEventFilter(&filter);
    EXPECT_TRUE(sendCustom(object));
    EXPECT_EQ(object.log, Log{"custom 1000"});
}

TEST(Object, WindowMessageIsNotHandled)
{
    CkelObject object;
    EXPECT_FALSE(object.winProc(0, 0, 0));
    EXPECT_FALSE(object.winProc(~0U, 0xffff, ~0U));
}

TEST(Object, MayDestroyItselfInsideItsHandler)
{
    Log deaths;
    auto* const object = new Recorder;
    new Mortal(deaths, "child", object);
    object->onCustom = [object] { delete object; };
    EXPECT_TRUE(sendCustom(*object));
    EXPECT_EQ(deaths, Log{"child"});
}

TEST(Object, WatchedObjectMayDestroyItselfInsideItsHandler)
{
    Log seen;
    Filter filter(seen, "a");
    auto* const object = new Recorder;
    object->installEventFilter(&filter);
    object->onCustom = [object] { delete object; };
    EXPECT_TRUE(sendCustom(*object));
    EXPECT_EQ(seen, Log{"a"});
}

TEST(Object, DestroyedObjectHearsNothingFromTheDataSensor)
{
    int argc = 0;
    CkelApplicationPlus app(argc, nullptr);
    Log deaths;
    {
        Mortal object(deaths, "object");
        CkelApplicationPlus::dataSensor()->attach(&object);
        CkelApplicationPlus::dataSensor()->post(
            new CkelAnyDataSensorEvent(1, CkelVariant(1), CkelDataSensorEvent::AnyData, CkelDataSensorEvent::NoMerge));
    }
    Recorder witness; // whose attachment lets the queued event go through the list of listeners
    CkelApplicationPlus::dataSensor()->attach(&witness);
    app.processEvents();
    EXPECT_EQ(deaths, Log{"object"});
}

TEST(EventFilter, NewestSeesTheEventFirst)
{
    Log seen;
    Filter a(seen, "a");
    Filter b(seen, "b");
    Filter c(seen, "c");
    Recorder object;
    for (Filter* const filter : {&a, &b, &c})
        object.installEventFilter(filter);
    EXPECT_TRUE(sendCustom(object));
    EXPECT_EQ(seen, (Log{"c", "b", "a"}));
    EXPECT_EQ(object.log, Log{"custom 1000"});
}

TEST(EventFilter, KeptEventReachesNeitherOlderFiltersNorTheReceiver)
{
    Log seen;
    Filter a(seen, "a");
    Filter b(seen, "b");
    Filter c(seen, "c");
    Recorder object;
    for (Filter* const filter : {&a, &b, &c})
        object.installEventFilter(filter);
    b.keeps = true;
    EXPECT_TRUE(sendCustom(object));
    EXPECT_EQ(seen, (Log{"c", "b"}));
    EXPECT_EQ(object.log, Log{});
}

TEST(EventFilter, SeesWhichObjectAndEventItIsAbout)
{
    Log seen;
    Filter filter(seen, "a");
    Recorder first;
    Recorder second;
    first.installEventFilter(&filter);
    second.installEventFilter(&filter);
    sendCustom(first, CkelEvent::Custom + 1);
    EXPECT_EQ(filter.lastWatched, &first);
    EXPECT_EQ(filter.lastType, CkelEvent::Custom + 1);
    sendCustom(second, CkelEvent::Custom + 2);
    EXPECT_EQ(filter.lastWatched, &second);
    EXPECT_EQ(filter.lastType, CkelEvent::Custom + 2);
}

TEST(EventFilter, UnknownEventIsSeenTooAndStaysUnhandled)
{
    Log seen;
    Filter filter(seen, "a");
    Recorder object;
    object.installEventFilter(&filter);
    UnknownEvent event(5);
    EXPECT_FALSE(CkelApplicationPlus::sendEvent(&object, &event));
    EXPECT_EQ(seen, Log{"a"});
}

TEST(EventFilter, SeesAndKeepsChildEvents)
{
    Log seen;
    Filter filter(seen, "a");
    Recorder parent;
    parent.installEventFilter(&filter);
    filter.keeps = true;
    CkelObject child(&parent);
    EXPECT_EQ(filter.lastType, CkelEvent::ChildAdded);
    child.setParent(nullptr);
    EXPECT_EQ(filter.lastType, CkelEvent::ChildRemoved);
    EXPECT_EQ(parent.log, Log{});
}

TEST(EventFilter, RemovedOneSeesNothingMore)
{
    Log seen;
    Filter a(seen, "a");
    Filter b(seen, "b");
    Recorder object;
    object.installEventFilter(&a);
    object.installEventFilter(&b);
    object.removeEventFilter(&b);
    sendCustom(object);
    object.removeEventFilter(&a);
    sendCustom(object);
    EXPECT_EQ(seen, Log{"a"});
    EXPECT_EQ(object.log.size(), 2U);
}

TEST(EventFilter, InstalledTwiceSeesTheEventOnceAndFirst)
{
    Log seen;
    Filter a(seen, "a");
    Filter b(seen, "b");
    Recorder object;
    object.installEventFilter(&a);
    object.installEventFilter(&b);
    object.installEventFilter(&a);
    sendCustom(object);
    EXPECT_EQ(seen, (Log{"a", "b"}));
    object.removeEventFilter(&a); // once is enough
    sendCustom(object);
    EXPECT_EQ(seen, (Log{"a", "b", "b"}));
}

TEST(EventFilter, NullAndUnknownOnesAreIgnored)
{
    CkelObject stranger;
    Recorder object;
    object.installEventFilter(nullptr);
    object.removeEventFilter(nullptr);
    object.removeEventFilter(&stranger);
    EXPECT_TRUE(sendCustom(object));
    EXPECT_EQ(object.log, Log{"custom 1000"});
}

TEST(EventFilter, DestroyedOneIsTakenOut)
{
    Log seen;
    Filter a(seen, "a");
    Recorder object;
    object.installEventFilter(&a);
    {
        Filter b(seen, "b");
        object.installEventFilter(&b);
    }
    EXPECT_TRUE(sendCustom(object));
    EXPECT_EQ(seen, Log{"a"});
}

TEST(EventFilter, OutlivesTheObjectItWatches)
{
    Log seen;
    Recorder other;
    {
        Filter filter(seen, "a");
        {
            Recorder object;
            object.installEventFilter(&filter);
        }
        other.installEventFilter(&filter);
        sendCustom(other);
    }
    sendCustom(other);
    EXPECT_EQ(seen, Log{"a"});
}

TEST(EventFilter, ObjectMayFilterItself)
{
    Log seen;
    {
        Filter object(seen, "self");
        object.installEventFilter(&object);
        EXPECT_TRUE(sendCustom(object));
    }
    EXPECT_EQ(seen, Log{"self"});
}

TEST(EventFilter, TwoObjectsMayFilterEachOther)
{
    Log seen;
    auto a = std::make_unique<Filter>(seen, "a");
    auto b = std::make_unique<Filter>(seen, "b");
    a->installEventFilter(b.get());
    b->installEventFilter(a.get());
    sendCustom(*a);
    sendCustom(*b);
    EXPECT_EQ(seen, (Log{"b", "a"}));
    a.reset();
    EXPECT_TRUE(sendCustom(*b));
    EXPECT_EQ(seen, (Log{"b", "a"}));
}

TEST(EventFilter, ParentMayFilterTheChildItDestroys)
{
    Log seen;
    {
        Filter parent(seen, "parent");
        auto* const child = new Recorder(&parent);
        child->installEventFilter(&parent);
        sendCustom(*child);
    }
    EXPECT_EQ(seen, Log{"parent"});
}

TEST(EventFilter, MayRemoveItselfWhileItFilters)
{
    Log seen;
    Filter a(seen, "a");
    Filter b(seen, "b");
    Recorder object;
    object.installEventFilter(&a);
    object.installEventFilter(&b);
    b.onEvent = [&] { object.removeEventFilter(&b); };
    sendCustom(object);
    EXPECT_EQ(seen, (Log{"b", "a"}));
    sendCustom(object);
    EXPECT_EQ(seen, (Log{"b", "a", "a"}));
    EXPECT_EQ(object.log.size(), 2U);
}

TEST(EventFilter, OnlyOneMayRemoveItselfWhileItFilters)
{
    Log seen;
    Filter filter(seen, "a");
    Recorder object;
    object.installEventFilter(&filter);
    filter.onEvent = [&] { object.removeEventFilter(&filter); };
    EXPECT_TRUE(sendCustom(object));
    EXPECT_EQ(object.log, Log{"custom 1000"});
}

TEST(EventFilter, RemovedByANewerOneDoesNotSeeTheSameEvent)
{
    Log seen;
    Filter a(seen, "a");
    Filter b(seen, "b");
    Filter c(seen, "c");
    Recorder object;
    for (Filter* const filter : {&a, &b, &c})
        object.installEventFilter(filter);
    c.onEvent = [&] { object.removeEventFilter(&b); };
    sendCustom(object);
    EXPECT_EQ(seen, (Log{"c", "a"}));
    EXPECT_EQ(object.log, Log{"custom 1000"});
}

TEST(EventFilter, DestroyedByANewerOneDoesNotSeeTheSameEvent)
{
    Log seen;
    Filter a(seen, "a");
    auto b = std::make_unique<Filter>(seen, "b");
    Filter c(seen, "c");
    Recorder object;
    for (Filter* const filter : {&a, b.get(), &c})
        object.installEventFilter(filter);
    c.onEvent = [&] { b.reset(); };
    sendCustom(object);
    EXPECT_EQ(seen, (Log{"c", "a"}));
    EXPECT_EQ(object.log, Log{"custom 1000"});
}

TEST(EventFilter, MayDestroyItselfWhileItFilters)
{
    Log seen;
    Filter a(seen, "a");
    auto* const b = new Filter(seen, "b");
    Recorder object;
    object.installEventFilter(&a);
    object.installEventFilter(b);
    b->onEvent = [b] { delete b; };
    EXPECT_TRUE(sendCustom(object));
    EXPECT_EQ(seen, (Log{"b", "a"}));
    EXPECT_EQ(object.log, Log{"custom 1000"});
}

TEST(EventFilter, MayDestroyTheReceiverWhileItFilters)
{
    for (const bool keeps : {false, true}) {
        Log seen;
        Filter a(seen, "a");
        Filter b(seen, "b");
        auto* const object = new Recorder;
        object->installEventFilter(&a);
        object->installEventFilter(&b);
        b.keeps = keeps;
        b.onEvent = [object] { delete object; };
        EXPECT_TRUE(sendCustom(*object));
        EXPECT_EQ(seen, Log{"b"});
    }
}

TEST(EventFilter, MayDestroyTheReceiverInsideANestedEvent)
{
    Log seen;
    Filter filter(seen, "a");
    auto* const object = new Recorder;
    object->installEventFilter(&filter);
    int depth = 0;
    filter.onEvent = [&] {
        if (++depth == 1)
            sendCustom(*object);
        else
            delete object;
    };
    EXPECT_TRUE(sendCustom(*object));
    EXPECT_EQ(seen, (Log{"a", "a"}));
}

TEST(EventFilter, InstalledWhileAnotherFiltersSeesTheNextEvent)
{
    Log seen;
    Filter a(seen, "a");
    Filter b(seen, "b");
    Recorder object;
    object.installEventFilter(&a);
    a.onEvent = [&] { object.installEventFilter(&b); };
    sendCustom(object);
    seen.clear();
    a.onEvent = nullptr;
    sendCustom(object);
    EXPECT_EQ(seen, (Log{"b", "a"}));
}

TEST(ObjectProperty, CallWithoutNameOrValueIsRefused)
{
    CkelObject object;
    CkelVariant value("text");
    void* args[] = {&value};
    void* none[] = {nullptr};
    EXPECT_FALSE(object.kel_metacall(CkelMetaProperty::ReadProperty, nullptr, args));
    EXPECT_FALSE(object.kel_metacall(CkelMetaProperty::WriteProperty, "name", nullptr));
    EXPECT_FALSE(object.kel_metacall(CkelMetaProperty::WriteProperty, "name", none));
    EXPECT_EQ(object.name(), "");
    EXPECT_EQ(value.toStdString(), "text");
}

TEST(ObjectProperty, NameIsReadAndWritten)
{
    CkelObject object;
    CkelVariant value("text");
    void* args[] = {&value};
    EXPECT_TRUE(object.kel_metacall(CkelMetaProperty::WriteProperty, "name", args));
    EXPECT_EQ(object.name(), "text");
    object.setName("other");
    EXPECT_TRUE(object.kel_metacall(CkelMetaProperty::ReadProperty, "name", args));
    EXPECT_EQ(value.toStdString(), "other");
}

TEST(ObjectProperty, ClassNameIsReadOnly)
{
    Recorder object;
    CkelVariant value("text");
    void* args[] = {&value};
    EXPECT_FALSE(object.kel_metacall(CkelMetaProperty::WriteProperty, "className", args));
    EXPECT_TRUE(object.kel_metacall(CkelMetaProperty::ReadProperty, "className", args));
    EXPECT_EQ(value.toStdString(), "Recorder");
}

TEST(ObjectProperty, UnknownOneIsNeitherReadNorWritten)
{
    CkelObject object;
    CkelVariant value("text");
    void* args[] = {&value};
    EXPECT_FALSE(object.kel_metacall(CkelMetaProperty::ReadProperty, "colour", args));
    EXPECT_FALSE(object.kel_metacall(CkelMetaProperty::WriteProperty, "colour", args));
    EXPECT_EQ(value.toStdString(), "text");
}

// The process

// Objects that are made while their thread or the process ends

/// Uses what an object has of its thread's loop: timers, children and the application.
void useLateObjects()
{
    Recorder parent;
    auto* const child = new Recorder(&parent);
    if (child->parent() != &parent)
        std::_Exit(1);
    child->startTimer(1);
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
    int argc = 0;
    CkelApplicationPlus(argc, nullptr).processEvents();
    if (child->log.size() != 1)
        std::_Exit(2);
}

/// Makes objects in its destructor.
struct UsesLateObjects
{
    ~UsesLateObjects() { useLateObjects(); }
};

/// The object is gone when the thread's loop ends: it must not keep the loop alive.
void makeTheFirstObject()
{
    const CkelObject object;
}

/// Runs on a thread whose loop ends before the objects that a destructor makes.
void endWithLateObjects()
{
    thread_local const UsesLateObjects late;
    static_cast<void>(late);
    makeTheFirstObject();
}

long openDescriptors()
{
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return std::distance(begin(open), end(open));
}

TEST(LateObjectDeathTest, MayBeMadeInAStaticDestructor)
{
    EXPECT_EXIT(
        {
            static const UsesLateObjects late;
            makeTheFirstObject();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(LateObjectDeathTest, MayBeMadeInAnExitHandler)
{
    EXPECT_EXIT(
        {
            std::atexit(useLateObjects);
            makeTheFirstObject();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(LateObjectDeathTest, MayBeMadeInTheDestructorOfAThreadsVariable)
{
    EXPECT_EXIT(
        {
            std::thread(endWithLateObjects).join();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(LateObjectDeathTest, MayBeMadeInTheDestructorOfAVariableOfTheMainThread)
{
    EXPECT_EXIT(
        {
            endWithLateObjects();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(LateObject, LeavesNoDescriptorOpenWhenItsThreadHasEnded)
{
    const long before = openDescriptors();
    for (int i = 0; i < 5; ++i)
        std::thread(endWithLateObjects).join();
    EXPECT_EQ(openDescriptors(), before);
}

TEST(Object, FirstOfAThreadLeavesTheProcesssSignalsAlone)
{
    const auto before = std::signal(SIGPIPE, SIG_DFL);
    std::thread([] { const CkelObject object; }).join();
    EXPECT_EQ(std::signal(SIGPIPE, before), SIG_DFL);
}

TEST(Object, TimerThatAParentStartsForADyingChildIsDead)
{
    struct Parent : CkelObject
    {
        void childEvent(CkelChildEvent* event) override
        {
            if (!event->added())
                event->child()->startTimer(1);
        }
    };
    int argc = 0;
    CkelApplicationPlus application(argc, nullptr);
    Parent parent;
    delete new CkelObject(&parent);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    application.processEvents(); // nothing to deliver to: the sanitizers would tell
    EXPECT_TRUE(parent.children().empty());
}
