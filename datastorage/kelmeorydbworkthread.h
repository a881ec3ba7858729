#pragma once

#include "kernel/kelglobal.h"
#include "kernel/kelthread.h"

namespace Ombrin {

/// The thread on which a CkelMemoryDB writes: it does nothing but turn its event loop.
/// @ingroup datastorage_parts
class KEL_EXPORT CkelMeoryDBWorkThread : public CkelThread
{
public:
    /// Starts nothing yet; see CkelThread::start.
    explicit CkelMeoryDBWorkThread(CkelObject* parent = nullptr);
    ~CkelMeoryDBWorkThread() override;

    /// Starts the thread as CkelThread::start does, with all signals blocked on it except those that report an error of
    /// the thread itself (SIGSEGV, for example). Signals to the process are so left to the application's threads.
    bool start(Priority priority = InheritPriority);

    void run() override;
};

} // namespace Ombrin
