// Runs random streams on real Communicators and on a model: a second, simple implementation. The Communicators and the
// model must give the same trace (record of what happened).
//
// JWDEVICE_MODEL_STREAMS=<n>  number of streams (the default is for a normal test run)
// JWDEVICE_MODEL_SEED=<n>     seed of the first stream (default 1); each next stream has the next seed
//
// A long run. QTEST_FUNCTION_TIMEOUT is set because Qt's default limit is five minutes:
//   QTEST_FUNCTION_TIMEOUT=86400000 JWDEVICE_MODEL_STREAMS=200000 build/release/tests/tst_receive_model
//
// A stream is a list of events at one to four lines; a line is a Communicator with its own device. A device is a plain
// device or a WholeLines<BufferedDevice>. The stream sets the result of every read of a plain device. At a WholeLines
// device, bytes of any value arrive in pieces. The pieces of all lines arrive in random order. The application takes
// payloads, closes devices, calls setWholeLines(), and reads from WholeLines devices without the Communicator. All this
// also happens inside signals, and more bytes arrive inside signals.
//
// A stream that gives different traces is shrunk (parts are removed while it still fails) and printed with its seed.
// tst_communicator_hostile tests applications that bind another device or delete a Communicator.
#include "support/nmea/corpus.h"
#include "support/common/environmentnumber.h"
#include "support/model/receivemodel.h"
#include "support/model/receivesubject.h"
#include "support/model/runningseed.h"
#include "support/model/shrink.h"

#include <QRandomGenerator>
#include <QTest>

#include <algorithm>
#include <memory>

namespace {

constexpr int streamsInTestRun = 4000;

/// Returns the first difference of the two traces. Empty if the traces are the same.
QString difference(const ReceiveStream &stream)
{
    ReceiveModel model(stream.devices);
    ReceiveSubject subject(stream.devices);
    const ReceivePlay expected(stream, model);
    const ReceivePlay seen(stream, subject);
    if (expected.trace() == seen.trace())
        return QString();
    int at = 0;
    while (expected.trace().value(at) == seen.trace().value(at) && at < seen.trace().size())
        ++at;
    QString text;
    QDebug(&text).nospace() << "expected: " << expected.trace().value(at) << "\n but was: " << seen.trace().value(at);
    return text;
}

/// Performs one round of shrinking: removes and simplifies parts while the stream still fails.
ReceiveStream shorter(ReceiveStream stream, const std::function<bool(const ReceiveStream &)> &fails)
{
    using Steps = QVector<ReceiveStep>;
    const auto replaceIfItFails = [&](auto &part, const auto &plainer) {
        const auto before = part;
        part = plainer;
        if (!fails(stream))
            part = before;
    };
    stream.steps = shrunk<Steps>(stream.steps, [&](const Steps &steps) {
        ReceiveStream candidate = stream;
        candidate.steps = steps;
        return fails(candidate);
    });
    replaceIfItFails(stream.receiver, ReceiveStream::Idle);
    for (ReceiveStep &step : stream.steps) {
        replaceIfItFails(step.line, 0);
        replaceIfItFails(step.inside, false);
        replaceIfItFails(step.number, std::min(step.number, 1));
        step.reads =
            shrunk<QVector<ReceiveRead>>(step.reads, [&, all = &step.reads](const QVector<ReceiveRead> &reads) {
                const QVector<ReceiveRead> before = *all;
                *all = reads;
                const bool stillFails = fails(stream);
                *all = before;
                return stillFails;
            });
        for (ReceiveRead &read : step.reads) {
            if (read.bytes.isEmpty())
                continue;
            read.bytes = shrunk<QByteArray>(read.bytes, [&](const QByteArray &bytes) {
                const QByteArray before = read.bytes;
                read.bytes = bytes;
                const bool stillFails = !bytes.isEmpty() && fails(stream);
                read.bytes = before;
                return stillFails;
            });
            for (int i = 0; i < read.bytes.size(); ++i) {
                QByteArray plainer = read.bytes;
                plainer[i] = 'x';
                replaceIfItFails(read.bytes, plainer);
            }
        }
    }
    for (ReceiveDevice &device : stream.devices)
        replaceIfItFails(device, ReceiveDevice::Plain);
    if (std::all_of(stream.steps.cbegin(), stream.steps.cend(), [](const ReceiveStep &step) { return step.line == 0; }))
        replaceIfItFails(stream.devices, stream.devices.mid(0, 1));
    return stream;
}

/// Shrinks the stream until nothing can be removed or simplified.
ReceiveStream shortest(ReceiveStream stream, const std::function<bool(const ReceiveStream &)> &fails)
{
    for (QString before; before != stream.toString();) {
        before = stream.toString();
        stream = shorter(stream, fails);
    }
    return stream;
}

class StreamGenerator
{
public:
    explicit StreamGenerator(quint32 seed)
        : m_random(seed)
    {
    }

    ReceiveStream stream()
    {
        ReceiveStream stream;
        for (int lines = chance(50) ? 1 : between(2, 4); stream.devices.size() < lines;)
            stream.devices.append(ReceiveDevice::Plain);
        if (chance(70)) {
            for (ReceiveDevice &device : stream.devices)
                device = chance(80) ? ReceiveDevice::WholeLines : ReceiveDevice::Plain;
        }
        m_devices = stream.devices;
        m_twin = std::make_unique<ReceiveModel>(m_devices);
        m_twin->payloadReceived = [](int, uint) {};
        m_twin->anythingReceived = [](int) {};
        m_texts.resize(m_devices.size());
        m_oneText = chance(40);
        m_onlyPieces = chance(30);
        if (chance(50))
            stream.receiver = static_cast<ReceiveStream::Receiver>(between(1, ReceiveStream::ClosesNowAndThen));
        for (int steps = between(1, 40); steps > 0; --steps)
            stream.steps.append(step());
        return stream;
    }

private:
    bool chance(int percent) { return m_random.bounded(100) < percent; }
    int between(int lowest, qsizetype highest) { return m_random.bounded(lowest, static_cast<int>(highest) + 1); }
    char oneOf(const QByteArray &characters) { return characters[between(0, characters.size() - 1)]; }

    ReceiveStep step()
    {
        ReceiveStep step;
        step.line = between(0, m_devices.size() - 1);
        step.inside = chance(10);
        const bool wholeLines = m_devices[step.line] == ReceiveDevice::WholeLines;
        if (chance(10)) {
            step.action = ReceiveStep::Take;
            step.id = chance(50) ? 0 : static_cast<uint>(between(1, 30));
        } else if (chance(3)) {
            step.action = ReceiveStep::Close;
            m_twin->setOpen(step.line, false);
        } else if (wholeLines && chance(4)) {
            step.action = ReceiveStep::SetWholeLines;
            step.number = chance(60);
            m_twin->setWholeLines(step.line, step.number != 0);
        } else if (wholeLines && chance(6)) {
            step.action = static_cast<ReceiveStep::Action>(between(ReceiveStep::Read, ReceiveStep::Peek));
            step.number = chance(80) ? between(1, 20) : between(1, 600);
            m_twin->read(step.line, step.action, step.number);
        } else {
            m_twin->setOpen(step.line, true);
            for (int reads = chance(60) ? 1 : between(1, 4); reads > 0; --reads)
                step.reads.append(read(step.line));
            m_twin->announce(step.line);
        }
        return step;
    }

    ReceiveRead read(int line)
    {
        ReceiveRead read;
        if (m_devices[line] == ReceiveDevice::Plain && chance(4)) {
            read.result = -m_random.bounded(2);
        } else {
            QByteArray &text = m_texts[m_oneText ? 0 : line];
            if (text.isEmpty())
                text = piece(line);
            // Half of the reads return the whole text, the others a first part of random size, possibly all. With
            // m_onlyPieces every read returns such a part. Later reads return the rest.
            const auto size = !m_onlyPieces && chance(50) ? text.size() : between(1, text.size());
            read.bytes = text.left(size);
            text.remove(0, size);
        }
        m_twin->queue(line, read);
        return read;
    }

    QByteArray piece(int line)
    {
        static const QVector<CorpusSentence> sentences = corpus(QStringLiteral("valid.nmea"))
            + corpus(QStringLiteral("tolerated.nmea")) + corpus(QStringLiteral("invalid.nmea"));
        switch (m_random.bounded(12)) {
        case 0:
            return sentences[between(0, sentences.size() - 1)].text.toLatin1();
        case 1:
            return "$" + text(between(0, 30), "AB,*19") + "\r\n";
        case 2:
            return "!" + text(between(0, 30), "AB,*19") + "\r\n";
        case 3:
            return text(between(1, 30), "$!$!A\r\n\r\n");
        case 4:
            return anyBytes(between(1, 60));
        case 5:
            return "$" + text(between(0, 8), "AB") + '\0' + text(between(0, 8), "$!AB\r\n") + "\r\n";
        case 6:
            return text(between(1, 3), "\r\n");
        case 7:
            return text(between(90, 700), chance(30) ? "$!A" : "AB ");
        case 8:
            return "$" + text(between(90, 600), chance(30) ? "!A" : "AB ") + "\r\n";
        case 9:
            return QByteArray("$A\r\n!B\r\n").repeated(between(2, 6));
        case 10: // fills the device to just below, at or above the longest line that it holds back
            return text(qMax(1, between(509, 514) - static_cast<int>(m_twin->bytesReceived(line))),
                        chance(30) ? "A$\n\r" : "AB");
        default: // fills the shared buffer to just below, at or above its limit
            return text(qMax(1, between(499, 502) - m_twin->buffered()), "AB");
        }
    }

    QByteArray text(int length, const QByteArray &characters)
    {
        QByteArray text;
        while (text.size() < length)
            text += oneOf(characters);
        return text;
    }

    QByteArray anyBytes(int length)
    {
        QByteArray bytes;
        while (bytes.size() < length)
            bytes += static_cast<char>(m_random.bounded(256));
        return bytes;
    }

    QRandomGenerator m_random;
    QVector<ReceiveDevice> m_devices;
    // A model that performs each step while the stream is made. It shows how full the shared buffer and the devices
    // are.
    std::unique_ptr<ReceiveModel> m_twin;
    QVector<QByteArray> m_texts; // for each line, the part of its text that is not delivered yet
    bool m_oneText = false; // all lines get pieces of one text
    bool m_onlyPieces = false;
};

} // namespace

class TestReceiveModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void corporaArePartOfTheStreams();
    void shrinksAFailingStreamToItsShortestForm();
    void randomStreamsGiveWhatTheModelGives();
};

void TestReceiveModel::corporaArePartOfTheStreams()
{
    QVERIFY(!corpus(QStringLiteral("valid.nmea")).isEmpty());
    QVERIFY(!corpus(QStringLiteral("tolerated.nmea")).isEmpty());
    QVERIFY(!corpus(QStringLiteral("invalid.nmea")).isEmpty());
}

void TestReceiveModel::shrinksAFailingStreamToItsShortestForm()
{
    const ReceiveStream stream = StreamGenerator(1).stream();
    const auto hasTwoDollars = [](const ReceiveStream &candidate) {
        QByteArray::size_type dollars = 0;
        for (const ReceiveStep &step : candidate.steps) {
            for (const ReceiveRead &read : step.reads)
                dollars += read.bytes.count('$');
        }
        return dollars >= 2;
    };
    QVERIFY(hasTwoDollars(stream));
    const ReceiveStream shortestStream = shortest(stream, hasTwoDollars);
    QByteArray::size_type bytes = 0;
    for (const ReceiveStep &step : shortestStream.steps) {
        for (const ReceiveRead &read : step.reads)
            bytes += read.bytes.size();
    }
    QCOMPARE(bytes, 2);
}

void TestReceiveModel::randomStreamsGiveWhatTheModelGives()
{
    const quint32 first = environmentNumber("JWDEVICE_MODEL_SEED", 1);
    const quint32 streams = environmentNumber("JWDEVICE_MODEL_STREAMS", streamsInTestRun);
    const auto differs = [](const ReceiveStream &stream) { return !difference(stream).isEmpty(); };
    reportSeedOnCrash();
    for (quint32 i = 0; i < streams; ++i) {
        runningSeed = first + i;
        const ReceiveStream stream = StreamGenerator(runningSeed).stream();
        if (differs(stream)) {
            const ReceiveStream shortestStream = shortest(stream, differs);
            const QString report = QStringLiteral("seed %1, in its shortest form:\n%2%3")
                                       .arg(runningSeed)
                                       .arg(shortestStream.toString(), difference(shortestStream));
            QFAIL(qPrintable(report));
        }
    }
    qInfo("%u streams from seed %u", streams, first);
}

QTEST_GUILESS_MAIN(TestReceiveModel)
#include "tst_receive_model.moc"
