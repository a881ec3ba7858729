#include "kernel/kelapplicationplus.h"
#include "kernel/kelevent.h"
#include "kernel/kelmetaproperty.h"
#include "kernel/kelobject.h"

#include <iostream>

using namespace Ombrin;

/// An event of the application's own, with something in it.
class AlarmEvent : public CkelCustomEvent
{
public:
    static constexpr int alarmType = Custom + 1;

    explicit AlarmEvent(int number) : CkelCustomEvent(alarmType), m_number(number) {}
    int number() const { return m_number; }

private:
    const int m_number;
};

class Panel : public CkelObject
{
public:
    explicit Panel(CkelObject* parent = nullptr) : CkelObject(parent) { storeherits("Panel"); }
    ~Panel() override { std::cout << name() << " is gone\n"; }

    void customEvent(CkelCustomEvent* event) override
    {
        if (event->type() == AlarmEvent::alarmType)
            std::cout << name() << ": alarm " << static_cast<AlarmEvent*>(event)->number() << '\n';
    }
};

/// Keeps alarms below 100 from the object that it is installed on.
class Quiet : public CkelObject
{
public:
    bool eventFilter(CkelObject* /*watched*/, CkelEvent* event) override
    {
        return event->type() == AlarmEvent::alarmType && static_cast<AlarmEvent*>(event)->number() < 100;
    }
};

int main(int argc, char** argv)
{
    CkelApplicationPlus application(argc, argv);

    Panel screen;
    screen.setName("screen");
    auto* const line = new Panel(&screen); // the screen deletes it
    line->setName("line");
    std::cout << line->className() << ", a CkelObject: " << line->inherits("CkelObject") << '\n';
    std::cout << "name of the parent: " << CkelMetaProperty("name").read(*line->parent()).toStdString() << '\n';

    Quiet quiet;
    line->installEventFilter(&quiet);
    AlarmEvent minor(7);
    AlarmEvent major(300);
    CkelApplicationPlus::sendEvent(line, &minor); // kept by the filter
    CkelApplicationPlus::sendEvent(line, &major);
    return 0;
}
