#pragma once
// Private to this project: not installed.

#include <chrono>

namespace Ombrin {

/// The clock by which waits for a locked file end. A test may put its own in the place, before any wait begins.
extern std::chrono::steady_clock::time_point (*kelSqliteNow)();

} // namespace Ombrin
