#include <kernel/kelapplicationplus.h>
#include <kernel/kelevent.h>
#include <kernel/kelmutex.h>

#include <iostream>

using namespace Ombrin;

namespace {

struct Clock : CkelObject
{
    void timerEvent(CkelTimerEvent*) override
    {
        const CkelMutexLocker locker(mutex);
        CkelApplicationPlus::instance()->quit(7);
    }
    CkelMutex mutex;
};

} // namespace

int main(int argc, char** argv)
{
    CkelApplicationPlus application(argc, argv);
    Clock clock;
    clock.startTimer(1);
    const bool right = application.exec() == 7;
    std::cout << (right ? "works\n" : "does not work\n");
    return right ? 0 : 1;
}
