#include "perform.h"

#include <device/initializer.h>

using JwDevice::Initializer;

namespace {

void portReports(benchmark::State &state)
{
    QList<QString> names;
    for (int i = 0; i < state.range(0); ++i)
        names << QStringLiteral("no-such-port-%1").arg(i);
    Initializer initializer;
    initializer.probe({JwDevice::BoardA}, 0, names);
    if (initializer.portReports().size() != names.size())
        state.SkipWithError("there is not one report for each port");
    perform(state, [&] { benchmark::DoNotOptimize(initializer.portReports()); });
}

BENCHMARK(portReports)->Name("port reports")->Arg(1)->Arg(8)->Arg(48);

} // namespace
