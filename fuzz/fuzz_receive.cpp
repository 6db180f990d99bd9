// Sends bytes to several Communicators, and compares their signals and payloads with ReceiveModel, the simple model
// that the tests also use.
//
// The first byte of an input chooses the number of Communicators, their devices and the actions of their receivers. The
// other bytes are steps. The first byte of a step chooses the Communicator and the kind of step. If bytes arrive at the
// device, the second byte says how many, and the bytes follow. If the application reads a payload, the second byte is
// the id of the payload. If the application does something else, the second byte contains the action and its argument.
#include "fuzzinput.h"

#include "support/model/receivemodel.h"
#include "support/model/receivesubject.h"

namespace {

/// Reads an input piece by piece. After the end of the input, returns zeros and empty pieces.
class Input
{
public:
    Input(const uint8_t *data, std::size_t size)
        : m_data(data)
        , m_size(size)
    {
    }

    bool isAtEnd() const { return m_at == m_size; }
    uint8_t byte() { return isAtEnd() ? uint8_t(0) : m_data[m_at++]; }
    QByteArray bytes(std::size_t count)
    {
        count = std::min(count, m_size - m_at);
        const QByteArray taken(reinterpret_cast<const char *>(m_data) + m_at, static_cast<int>(count));
        m_at += count;
        return taken;
    }

private:
    const uint8_t *m_data;
    std::size_t m_size;
    std::size_t m_at = 0;
};

ReceiveStep stepFromInput(Input &input, int lines)
{
    const int choice = input.byte();
    const int length = input.byte();
    ReceiveStep step;
    step.line = choice % 4 % lines;
    switch (choice / 4 % 8) {
    case 0:
        step.action = ReceiveStep::Take;
        step.id = static_cast<uint>(length);
        return step;
    case 1:
        step.inside = true;
        break;
    case 2: // the first read fails: it returns 0 or -1
        step.reads.append({QByteArray(), choice / 32 % 2 - 1});
        break;
    case 7:
        step.action = static_cast<ReceiveStep::Action>(ReceiveStep::Close + length % 6);
        step.number = step.action == ReceiveStep::SetWholeLines ? length / 6 % 2 : 1 + length / 6;
        step.inside = choice / 32 % 2 == 1;
        return step;
    default:
        break;
    }
    const QByteArray bytes = input.bytes(static_cast<std::size_t>(length));
    if (!bytes.isEmpty())
        step.reads.append({bytes, 0});
    return step;
}

ReceiveStream streamFromInput(Input &input)
{
    const int choice = input.byte();
    ReceiveStream stream;
    stream.devices.clear();
    for (int line = 0; line <= choice % 4; ++line)
        stream.devices.append(choice / 16 >> line & 1 ? ReceiveDevice::WholeLines : ReceiveDevice::Plain);
    stream.receiver = static_cast<ReceiveStream::Receiver>(choice / 4 % 3);
    while (!input.isAtEnd())
        stream.steps.append(stepFromInput(input, static_cast<int>(stream.lines())));
    return stream;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static FuzzedBytes fuzzed;
    fuzzed.add(size);
    Input input(data, size);
    const ReceiveStream stream = streamFromInput(input);

    // Compare log records only from level Warning on, because the Trace records of all received bytes would take most
    // of the time. The tests in tests/model also compare the Trace records.
    ReceiveModel model(stream.devices, Logger::Warning);
    ReceiveSubject subject(stream.devices, Logger::Warning);
    const ReceivePlay expected(stream, model);
    const ReceivePlay seen(stream, subject);
    if (expected.trace() != seen.trace()) {
        reportFinding(stream.toString() + QStringLiteral("expected:\n") + expected.trace().join(QLatin1Char('\n'))
                      + QStringLiteral("\nbut was:\n") + seen.trace().join(QLatin1Char('\n')));
    }
    return 0;
}
