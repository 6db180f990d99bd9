#include "connection.h"
#include "perform.h"
#include "sentences.h"

#include <device/sessioninit.h>

#include <QByteArray>

#include <algorithm>
#include <random>

using JwDevice::Communicator;

namespace {

constexpr int goodSentences = 640;

enum Dirt { None, Garbage, Truncated, WrongChecksum, Kinds };

/// Returns bad text of `kind`, empty for None. A Communicator must find the good sentence that follows this text.
QByteArray dirt(Dirt kind, std::mt19937 &random)
{
    QByteArray bytes;
    switch (kind) {
    case Garbage: // half a sentence long, without start characters and line ends
        while (bytes.size() < 13) {
            const auto byte = static_cast<char>(random());
            if (byte != '\0' && byte != '$' && byte != '!' && byte != '\r' && byte != '\n')
                bytes += byte;
        }
        break;
    case Truncated:
        bytes = QByteArray(versionReply, 1 + static_cast<int>(random() % (versionReplySize - 3)));
        break;
    case WrongChecksum:
        bytes = "$PJWVER,7300021,1,4,0*0f\r\n";
        break;
    case None:
    case Kinds:
        break;
    }
    return bytes;
}

/// Returns good sentences, each with dirt of `kind` before it. If `kind` is Kinds, the dirt alternates: None,
/// Garbage, Truncated, WrongChecksum, and again None.
QByteArray stream(Dirt kind)
{
    std::mt19937 random(1);
    QByteArray bytes;
    for (int i = 0; i < goodSentences; ++i) {
        bytes += dirt(kind == Kinds ? static_cast<Dirt>(i % Kinds) : kind, random);
        bytes += versionReply;
    }
    return bytes;
}

void feedInPieces(StreamDevice &device, const QByteArray &bytes, int size)
{
    for (int at = 0; at < bytes.size(); at += size)
        device.feed(bytes.constData() + at, std::min<qint64>(size, bytes.size() - at));
}

void receivePayloads(benchmark::State &state, Dirt kind)
{
    const QByteArray bytes = stream(kind);
    const auto size = static_cast<int>(state.range(0));
    Connection connection;
    int payloads = 0;
    QObject::connect(&connection.communicator, QOverload<>::of(&Communicator::readyRead), [&] { ++payloads; });
    feedInPieces(connection.device, bytes, size);
    if (payloads != goodSentences)
        state.SkipWithError("not every payload arrived");
    perform(
        state, [&] { feedInPieces(connection.device, bytes, size); }, goodSentences);
    state.counters["bytes"] = static_cast<double>(bytes.size());
}

void receiveSessions(benchmark::State &state, Dirt kind)
{
    const QByteArray bytes = stream(kind);
    const auto size = static_cast<int>(state.range(0));
    Connection connection;
    int sessions = 0;
    JwDevice::SessionInit session;
    QObject::connect(&connection.communicator, QOverload<>::of(&Communicator::readyRead), [&] {
        session.clear();
        connection.communicator.readPayload(&session);
        if (session.fields.size() == 4)
            ++sessions;
    });
    feedInPieces(connection.device, bytes, size);
    if (sessions != goodSentences)
        state.SkipWithError("not every good sentence was recovered");
    perform(
        state, [&] { feedInPieces(connection.device, bytes, size); }, goodSentences);
    state.counters["bytes"] = static_cast<double>(bytes.size());
}

void readSizes(benchmark::internal::Benchmark *benchmark)
{
    benchmark->Arg(1)->Arg(16)->Arg(64)->Arg(100)->Arg(4096);
}

BENCHMARK_CAPTURE(receivePayloads, clean, None)->Name("receive/payloads, clean")->Apply(readSizes);
BENCHMARK_CAPTURE(receiveSessions, clean, None)->Name("receive/sessions, clean")->Apply(readSizes);
BENCHMARK_CAPTURE(receiveSessions, garbage, Garbage)->Name("receive/sessions, garbage before each")->Arg(64);
BENCHMARK_CAPTURE(receiveSessions, truncated, Truncated)->Name("receive/sessions, one cut short before each")->Arg(64);
BENCHMARK_CAPTURE(receiveSessions, checksum, WrongChecksum)
    ->Name("receive/sessions, wrong checksum before each")
    ->Arg(64);
BENCHMARK_CAPTURE(receiveSessions, dirty, Kinds)->Name("receive/sessions, dirty")->Apply(readSizes);

} // namespace
