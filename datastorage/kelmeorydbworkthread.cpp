#include "datastorage/kelmeorydbworkthread.h"

namespace Ombrin {

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
    exec();
}

} // namespace Ombrin
