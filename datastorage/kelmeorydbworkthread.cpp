#include "datastorage/kelmeorydbworkthread.h"

#include <chrono>
#include <new>
#include <thread>

namespace Ombrin {

namespace {

constexpr std::chrono::milliseconds shortage{10};

} // namespace

CkelMeoryDBWorkThread::CkelMeoryDBWorkThread(CkelObject* parent) : CkelThread(parent)
{
    storeherits("CkelMeoryDBWorkThread");
}

CkelMeoryDBWorkThread::~CkelMeoryDBWorkThread()
{
    terminate();
}

void CkelMeoryDBWorkThread::run()
{
    for (;;) {
        try {
            exec();
            return;
        } catch (const std::bad_alloc&) {
            // The process goes on without what could not be written; memory may be there again at the next tick.
            std::this_thread::sleep_for(shortage);
        }
    }
}

} // namespace Ombrin
