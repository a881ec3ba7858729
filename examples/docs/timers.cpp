#include "kernel/kelapplicationplus.h"
#include "kernel/keldatasensor.h"
#include "kernel/kelevent.h"
#include "kernel/keltimer.h"

#include <iostream>

using namespace Ombrin;

/// Counts its own time-outs, and ends the application at the third.
class Clock : public CkelObject
{
public:
    Clock() : m_timer(startTimer(20)) {} // milliseconds

    void timerEvent(CkelTimerEvent* event) override
    {
        if (event->timerId() != m_timer)
            return;
        std::cout << "tick " << ++m_ticks << '\n';
        if (m_ticks == 3)
            CkelApplicationPlus::instance()->quit(5);
    }

private:
    const int m_timer;
    int m_ticks = 0;
};

class Display : public CkelObject
{
public:
    void dataSensorEvent(CkelDataSensorEvent* event) override
    {
        const auto* change = static_cast<CkelAnyDataSensorEvent*>(event);
        std::cout << "item " << change->id() << " is " << change->value().toInt() << '\n';
    }
};

void post(int id, int value, CkelDataSensorEvent::DataMerge merge)
{
    CkelApplicationPlus::dataSensor()->post(
        new CkelAnyDataSensorEvent(id, value, CkelDataSensorEvent::AnyData, merge)); // the sensor owns it now
}

int main(int argc, char** argv)
{
    CkelApplicationPlus application(argc, argv);

    Display display;
    CkelApplicationPlus::dataSensor()->attach(&display, {1, 2}); // these items only
    for (int value = 1; value <= 3; ++value) {
        post(1, value, CkelDataSensorEvent::NoMerge); // each of them arrives
        post(2, value, CkelDataSensorEvent::Merge);   // the newest alone arrives
        post(3, value, CkelDataSensorEvent::NoMerge); // nobody listens
    }
    application.processEvents(); // what is due now, without waiting

    CkelTimer lamp; // calls functions; no class needed
    lamp.connectTimeOut("lamp", [&lamp] {
        std::cout << "lamp\n";
        lamp.stop();
    });
    lamp.start(10);
    Clock clock;
    const int code = application.exec(); // until quit()
    std::cout << "ended with " << code << '\n';
    return 0;
}
