// Lines of text arrive byte by byte at a QSerialPort, and at a WholeLines<QSerialPort>. The operating system takes most
// of the time, and this time differs from run to run. So docs/performance.md gives instructions, not times.
#include "perform.h"
#include "ptyline.h"

#include <device/communicator.h>
#include <device/wholelines.h>

#include <QByteArray>
#include <QCoreApplication>

using JwDevice::Communicator;
using JwDevice::WholeLines;

namespace {

/// Sends text of state.range(0) bytes in each iteration. Sends each byte only after the previous byte has arrived.
void feedByteByByte(benchmark::State &state, const PtyLine &line)
{
    const auto size = static_cast<int>(state.range(0));
    const QByteArray text = '$' + QByteArray(size - 3, 'x') + "\r\n";
    qint64 arrived = 0;
    QObject::connect(line.port.get(), &QSerialPort::readyRead, [&arrived] { ++arrived; });
    const auto feed = [&] {
        for (const char byte : text) {
            const qint64 before = arrived;
            line.send(&byte, 1);
            while (arrived == before)
                QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
    };
    perform(state, feed, size);
}

void drop(benchmark::State &state)
{
    const PtyLine line(std::make_unique<QSerialPort>());
    QObject::connect(line.port.get(), &QSerialPort::readyRead, [port = line.port.get()] { readAndDrop(port); });
    feedByteByByte(state, line);
}

template <typename Port>
void communicate(benchmark::State &state)
{
    const PtyLine line(std::make_unique<Port>());
    Communicator communicator;
    communicator.setIODevice(line.port.get());
    std::int64_t payloads = 0;
    QObject::connect(&communicator, QOverload<>::of(&Communicator::readyRead), [&] {
        QString payload;
        communicator.readPayload(payload);
        payloads += payload.size() == state.range(0);
    });
    feedByteByByte(state, line);
    if (payloads != state.iterations())
        state.SkipWithError("not every payload arrived");
}

void lengths(benchmark::internal::Benchmark *benchmark)
{
    benchmark->Arg(26)->Arg(500)->Iterations(40);
}

BENCHMARK(drop)->Name("port, a byte of a line/QSerialPort, read and dropped")->Apply(lengths);
BENCHMARK_TEMPLATE(communicate, QSerialPort)
    ->Name("port, a byte of a line/Communicator on QSerialPort")
    ->Apply(lengths);
BENCHMARK_TEMPLATE(communicate, WholeLines<QSerialPort>)
    ->Name("port, a byte of a line/Communicator on WholeLines")
    ->Apply(lengths);

} // namespace
