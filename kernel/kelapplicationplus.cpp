#include "kernel/kelapplicationplus.h"

#include "kernel/keldatasensor.h"
#include "kernel/kelobjectprivate.h"

#include <atomic>

namespace Ombrin {

namespace {

std::atomic<CkelApplicationPlus*> theApplication{nullptr};

} // namespace

CkelApplicationPlus::CkelApplicationPlus(int& /*argc*/, char** /*argv*/)
{
    storeherits("CkelApplicationPlus");
    dataSensor()->setLoop(CkelObjectPrivate::of(*this).currentLoop());
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
    return CkelObjectPrivate::of(*this).currentLoop()->exec();
}

void CkelApplicationPlus::quit(int code)
{
    CkelObjectPrivate::of(*this).currentLoop()->quit(code);
}

void CkelApplicationPlus::processEvents()
{
    dataSensor()->continuePass();
    CkelObjectPrivate::of(*this).currentLoop()->processEvents();
}

bool CkelApplicationPlus::sendEvent(CkelObject* receiver, CkelEvent* event)
{
    return receiver && event && CkelObjectPrivate::deliver(*receiver, *event);
}

CkelDataSensor* CkelApplicationPlus::dataSensor()
{
    // Never destroyed: worker threads and static destructors may still post.
    static auto* const sensor = new CkelDataSensor;
    return sensor;
}

} // namespace Ombrin
