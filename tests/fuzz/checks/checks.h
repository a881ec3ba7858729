#pragma once
// Included before everything else in the fuzz build.

#include <cstdlib>

namespace KelFuzz {

/// Thrown where the product would end the process on purpose.
struct CaseEnd
{
    const char* check; ///< the expression that failed
};

[[noreturn]] inline void failCheck(const char* expression)
{
    throw CaseEnd{expression};
}

[[noreturn]] inline void endCase()
{
    failCheck("abort()");
}

} // namespace KelFuzz

namespace std { // NOLINT(cert-dcl58-cpp): for calls of std::abort
using KelFuzz::endCase;
} // namespace std

#define abort endCase
#define KEL_CHECKS_END_THE_CASE
