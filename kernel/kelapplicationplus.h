#pragma once

#include "kernel/kelobject.h"

namespace Ombrin {

class CkelDataSensor;

/// The application: the event loop of the thread that constructs it, and the process-wide data sensor.
///
/// Construct one, on the main thread, before what needs the loop to turn, and let it live until the end of main.
///
/// @snippet classes.cpp CkelApplicationPlus
///
/// @ingroup kernel
class KEL_EXPORT CkelApplicationPlus : public CkelObject
{
public:
    /// `argc` and `argv` are those of main; nothing is read from them. Opens no file descriptors: the first timer does.
    CkelApplicationPlus(int& argc, char** argv);
    ~CkelApplicationPlus() override;

    /// The application, or null while there is none.
    static CkelApplicationPlus* instance();

    /// Runs the event loop until quit(), and returns the code given to it. To be called on the application's thread. A
    /// handler may call it; how deep such calls nest is not limited, and each needs a quit() of its own.
    int exec();

    /// Ends exec() after the handler, or the pass of data-sensor events, that is running. Called before exec(), it
    /// makes exec() return at once. Safe from any thread.
    void quit(int code = 0);

    /// Runs what is due now (timers, queued data-sensor events) without waiting, and returns. What handlers post
    /// meanwhile is left for the next call. To be called on the application's thread.
    ///
    /// A handler may call it. Up to 64 calls run inside each other; a deeper call returns at once and runs nothing, so
    /// that the stack does not overflow when the handler of each waiting event calls it. The outer calls then deliver
    /// what waits, in the same order. A handler that calls it until something happens must therefore be able to give
    /// up.
    void processEvents();

    /// Passes `event` to the receiver at once, through its event filters; true when it was handled or
    /// a filter kept it, false also for null pointers. The caller keeps the event and must be on the receiver's thread.
    static bool sendEvent(CkelObject* receiver, CkelEvent* event);

    /// The process's data sensor; never null, from any thread, until the process ends.
    static CkelDataSensor* dataSensor();
};

} // namespace Ombrin
