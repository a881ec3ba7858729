#include "kernel/kelapplicationplus.h"
#include "kernel/kelmutex.h"
#include "kernel/kelthread.h"
#include "kernel/keltimer.h"

#include <iostream>
#include <thread>

using namespace Ombrin;

int main(int argc, char** argv)
{
    CkelApplicationPlus application(argc, argv);
    const auto here = std::this_thread::get_id();

    CkelMutex mutex;
    int samples = 0;
    bool elsewhere = false;

    CkelThread worker;
    CkelTimer sampler;
    sampler.connectTimeOut("sample", [&] { // runs on the worker
        const CkelMutexLocker lock(mutex);
        elsewhere = std::this_thread::get_id() != here;
        if (++samples == 3)
            application.quit(); // safe from any thread
    });
    sampler.start(5);
    sampler.moveToThread(&worker); // before it starts, or while it runs
    worker.start();

    application.exec();
    worker.terminate(); // a handler in progress runs to its end; returns when the thread is gone
    std::cout << "at least 3 samples: " << (samples >= 3) << ", on another thread: " << elsewhere << '\n';
    return 0;
}
