#include "connection.h"
#include "perform.h"
#include "sentences.h"

#include <device/sessioninit.h>

using JwDevice::Communicator;

namespace {

// Few, because each iteration makes the history of written payloads longer, and so changes what is measured.
constexpr int fixedIterations = 2000;

void writeHistory(Communicator &communicator, std::int64_t payloads)
{
    const QString payload = QString::fromLatin1(versionQuery);
    for (std::int64_t i = 0; i < payloads; ++i)
        communicator.writePayload(payload);
}

void writeText(benchmark::State &state)
{
    Connection connection;
    writeHistory(connection.communicator, state.range(0));
    const QString payload = QString::fromLatin1(versionQuery);
    perform(state, [&] { benchmark::DoNotOptimize(connection.communicator.writePayload(payload)); });
}

void writeSession(benchmark::State &state)
{
    Connection connection;
    writeHistory(connection.communicator, state.range(0));
    JwDevice::SessionInit session;
    session.sentenceId = 1;
    perform(state, [&] { benchmark::DoNotOptimize(connection.communicator.writePayload(&session)); });
}

void reportWritten(benchmark::State &state)
{
    Connection connection;
    writeHistory(connection.communicator, state.range(0));
    uint last = 0;
    QObject::connect(&connection.communicator, &Communicator::transferred, [&last](uint id) { last = id; });
    perform(state, [&] { connection.device.reportWritten(sizeof versionQuery - 1); });
    if (last != 1)
        state.SkipWithError("the report was not charged to the first payload");
}

void histories(benchmark::internal::Benchmark *benchmark)
{
    benchmark->Arg(1)->Arg(1000)->Arg(1000000);
}

BENCHMARK(writeText)->Name("transmit/writePayload, text")->Apply(histories)->Iterations(fixedIterations);
BENCHMARK(writeSession)->Name("transmit/writePayload, session")->Apply(histories)->Iterations(fixedIterations);
BENCHMARK(reportWritten)->Name("transmit/bytesWritten")->Apply(histories)->Iterations(100 * fixedIterations);

} // namespace
