#include "kernel/kelapplicationplus.h"

#include "kernel/keldatasensor.h"
#include "kernel/keleventloop.h"

#include <atomic>

namespace Ombrin {

namespace {

std::atomic<CkelApplicationPlus*> theApplication{nullptr};

} // namespace

CkelApplicationPlus::CkelApplicationPlus(int& /*argc*/, char** /*argv*/)
{
    storeherits("CkelApplicationPlus");
    dataSensor()->setLoop(loop());
    theApplication = this;
}

CkelApplicationPlus::~CkelApplicationPlus()
{
    dataSensor()->setLoop(nullptr);
    theApplication = nullptr;
}

CkelApplicationPlus* CkelApplicationPlus::instance()
{
    return theApplication;
}

int CkelApplicationPlus::exec()
{
    dataSensor()->continuePass();
    return loop()->exec();
}

void CkelApplicationPlus::quit(int code)
{
    loop()->quit(code);
}

void CkelApplicationPlus::processEvents()
{
    dataSensor()->continuePass();
    loop()->processEvents();
}

bool CkelApplicationPlus::sendEvent(CkelObject* receiver, CkelEvent* event)
{
    return receiver && event && deliver(*receiver, *event);
}

CkelDataSensor* CkelApplicationPlus::dataSensor()
{
    // Never destroyed: worker threads and static destructors may still post.
    static auto* const sensor = new CkelDataSensor;
    return sensor;
}

} // namespace Ombrin
