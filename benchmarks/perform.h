#pragma once

#include <support/common/allocationcount.h>

#include <benchmark/benchmark.h>

/// Runs `work` in each iteration of the benchmark. One run of `work` contains `items` measured operations. Reports how
/// many heap blocks one operation allocates.
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
