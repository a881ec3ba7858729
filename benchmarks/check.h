#pragma once

#include <benchmark/benchmark.h>

namespace KelBench {

/// Ends a benchmark that gives wrong results, and makes the program fail in the end.
void check(benchmark::State& state, bool right, const char* what);

/// For set-up outside any benchmark: ends the program.
void require(bool right, const char* what);

} // namespace KelBench
