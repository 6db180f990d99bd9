#pragma once

#include <support/common/allocationcount.h>

#include <benchmark/benchmark.h>

/// Runs `work` in each iteration of the benchmark. Reports the number of heap blocks that one measured operation
/// allocates. `items` is the number of measured operations in one run of `work`.
template <typename Work>
void perform(benchmark::State &state, Work work, double items = 1)
{
    const long before = allocationCount();
    for (auto _ : state)
        work();
    const double runs = static_cast<double>(state.iterations());
    state.counters["allocations"] = static_cast<double>(allocationCount() - before) / runs / items;
    state.counters["items"] = items;
}
