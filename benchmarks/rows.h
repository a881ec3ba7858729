#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <string>

namespace KelBench {

class World;

// Each registers the benchmarks of one topic, named "row/who": the library, the limit, or a peer.
void registerLookups(World& world);
void registerUpdates(World& world);
void registerLists(World& world);
void registerSelections(World& world);
void registerTicks(World& world);
void registerLoading(World& world);
void registerSaving(World& world);
void registerMemory(World& world);
void registerStartup(World& world);
void registerQt(World& world);
void registerLmdb(World& world);

/// Lookups by every pattern of IDs and of names, in dictionaries of their own.
void registerPatterns(std::size_t size);

/// Registers `function(state, world)`.
template <typename Function>
benchmark::internal::Benchmark* addRow(const std::string& name, World& world, Function function)
{
    return benchmark::RegisterBenchmark(name.c_str(),
                                        [&world, function](benchmark::State& state) { function(state, world); });
}

} // namespace KelBench
