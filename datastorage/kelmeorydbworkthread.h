#pragma once

#include "kernel/kelglobal.h"
#include "kernel/kelthread.h"

namespace Ombrin {

/// The thread on which a CkelMemoryDB writes: it does nothing but turn its event loop.
class KEL_EXPORT CkelMeoryDBWorkThread : public CkelThread
{
public:
    /// Starts nothing yet; see CkelThread::start.
    explicit CkelMeoryDBWorkThread(CkelObject* parent = nullptr);
    ~CkelMeoryDBWorkThread() override;

    void run() override;
};

} // namespace Ombrin
