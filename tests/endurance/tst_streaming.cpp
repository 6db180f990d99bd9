// Eight handed-over boards send payloads in pieces at the same time, each to its own Communicator. A normal test run
// sends few payloads. This command sends a million in about a minute:
//
// QTEST_FUNCTION_TIMEOUT=86400000 JWDEVICE_STREAMING_PAYLOADS=1000000 build/release/tests/tst_streaming
//
// JWDEVICE_STREAMING_PAYLOADS=<n>  number of payloads of all boards together
// JWDEVICE_STREAMING_SEED=<n>      seed for the sizes and the order of the pieces
#include "support/common/environmentnumber.h"
#include "support/common/eventloop.h"
#include "support/common/portname.h"
#include "support/common/simulatedportsmain.h"

#include <device/communicator.h>
#include <device/initializer.h>
#include <logger/logger.h>
#include <simulator/board.h>
#include <simulator/testbed.h>
#include <simulator/wire.h>

#include <QIODevice>
#include <QRandomGenerator>
#include <QTest>

#include <memory>
#include <vector>

using JwDevice::Communicator;
using JwDevice::Initializer;
using JwSimulator::BoardConfig;

namespace {

constexpr int boardCount = 8;
constexpr int longestPiece = 60;
constexpr int mostUnderWay = 2000; // limit for the bytes that a board has sent and its Communicator has not received

/// A board with its Communicator, and the numbers of received payloads and of wrong payloads.
class Stream
{
public:
    Stream(int number, JwSimulator::Testbed &testbed)
        : m_number(number)
    {
        BoardConfig config;
        config.kind = kinds[number % 3];
        config.port = uniquePortName();
        m_board = testbed.add(config);
        QObject::connect(&m_initializer, &Initializer::deviceInitialized, &m_initializer,
                         [this](JwDevice::Type, Communicator *communicator) {
                             m_port.reset(communicator->device());
                             m_communicator.reset(communicator);
                             QObject::connect(communicator, qOverload<uint>(&Communicator::readyRead), &m_initializer,
                                              [this](uint id) { onPayload(id); });
                         });
    }

    void probe()
    {
        m_initializer.setMaxRetries(20); // on a busy machine a reply may arrive too late, so allow retries
        m_initializer.probe({types[m_number % 3]}, 0, {m_board->portName()});
    }
    bool isFound() const { return m_communicator != nullptr; }

    /// Sends the next piece of the board's stream, which is `payloads` payloads long. Sends nothing while more than
    /// mostUnderWay sent bytes have not been received.
    void sendPiece(quint32 payloads, QRandomGenerator &random)
    {
        while (m_unsent.size() < longestPiece && m_built < payloads)
            m_unsent += payload(m_built++);
        if (m_sentBytes - m_receivedBytes > mostUnderWay)
            return;
        const QByteArray piece = m_unsent.left(random.bounded(1, longestPiece + 1));
        m_board->send(piece);
        m_sentBytes += piece.size();
        m_unsent.remove(0, piece.size());
    }
    bool isSent(quint32 payloads) const { return m_built == payloads && m_unsent.isEmpty(); }

    quint32 received = 0; ///< payloads that the Communicator received
    quint32 wrong = 0; ///< received payloads with a wrong text or id

private:
    static constexpr BoardConfig::Kind kinds[] = {BoardConfig::Kind::BoardA, BoardConfig::Kind::BoardB,
                                                  BoardConfig::Kind::BoardC};
    static constexpr JwDevice::Type types[] = {JwDevice::BoardA, JwDevice::BoardB, JwDevice::BoardC};

    /// Returns the text of the payload with this number: at most about 90 characters. Every tenth payload begins with
    /// "!".
    QByteArray payload(quint32 number) const
    {
        const QByteArray filler(static_cast<int>(number * 7 % 60), static_cast<char>('a' + m_number));
        QByteArray text = JwSimulator::frameSentence("STREAM," + QByteArray::number(m_number) + ','
                                                     + QByteArray::number(number) + ',' + filler);
        if (number % 10 == 0)
            text[0] = '!';
        return text;
    }

    void onPayload(uint id)
    {
        QString text;
        const bool isRead = m_communicator->readPayload(text, id);
        if (received == 0 && isRead && !text.contains(QLatin1String("STREAM,")))
            return; // the reply to a repeated query
        const QByteArray expected = payload(received);
        const bool isNext = m_firstId == 0 || id == m_firstId + received;
        if (received == 0)
            m_firstId = id; // not 1, because the probe has received some payloads before
        if (!isRead || text != QString::fromLatin1(expected) || !isNext)
            ++wrong;
        ++received;
        m_receivedBytes += expected.size();
    }

    const int m_number;
    JwSimulator::Board *m_board;
    Initializer m_initializer;
    std::unique_ptr<QIODevice> m_port;
    std::unique_ptr<Communicator> m_communicator;
    uint m_firstId = 0;
    quint32 m_built = 0;
    QByteArray m_unsent;
    qint64 m_sentBytes = 0;
    qint64 m_receivedBytes = 0;
};

} // namespace

class TestStreaming : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { loggerInstance()->setLevel(Logger::Fatal); }
    void everyPayloadComesWholeToItsCommunicator();
};

void TestStreaming::everyPayloadComesWholeToItsCommunicator()
{
    const quint32 payloads = environmentNumber("JWDEVICE_STREAMING_PAYLOADS", 20000) / boardCount;
    QRandomGenerator random(environmentNumber("JWDEVICE_STREAMING_SEED", 1));
    JwSimulator::Testbed testbed;
    std::vector<std::unique_ptr<Stream>> streams;
    for (int number = 0; number < boardCount; ++number)
        streams.push_back(std::make_unique<Stream>(number, testbed));
    for (const auto &stream : streams)
        stream->probe();
    const auto all = [&streams](auto condition) {
        return std::all_of(streams.cbegin(), streams.cend(),
                           [&condition](const auto &stream) { return condition(*stream); });
    };
    QVERIFY(runUntil([&] { return all([](const Stream &stream) { return stream.isFound(); }); }));
    settle(); // On a busy machine a query is repeated, and its reply must not come into the middle of a payload.

    while (!all([&](const Stream &stream) { return stream.isSent(payloads); })) {
        for (const auto &stream : streams) {
            if (random.bounded(4) != 0)
                stream->sendPiece(payloads, random);
        }
        QCoreApplication::processEvents();
        if (!all([](const Stream &stream) { return stream.wrong == 0; }))
            break;
    }
    static_cast<void>(runUntil([&] { return all([&](const Stream &stream) { return stream.received >= payloads; }); }));
    settle();

    for (const auto &stream : streams) {
        QCOMPARE(stream->wrong, 0u);
        QCOMPARE(stream->received, payloads);
    }
    qInfo("%u payloads from %d boards: none lost, none spoilt, none at another Communicator", payloads * boardCount,
          boardCount);
}

SIMULATED_PORTS_MAIN(TestStreaming)
#include "tst_streaming.moc"
