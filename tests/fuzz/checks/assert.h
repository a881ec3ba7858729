// Stands in front of the system's header in the fuzz build: a failed check ends the case, not the process.
// No include guard, as the standard has it.
#include "checks.h"

#undef assert
#define assert(expression) ((expression) ? void() : KelFuzz::failCheck(#expression))
