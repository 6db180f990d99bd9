// Random streams through real Communicators and through the model of them, compared in all that can be seen.
//
// JWDEVICE_MODEL_STREAMS=<n>  how many streams (the default suits a test run)
// JWDEVICE_MODEL_SEED=<n>     seed of the first one (default 1); each stream has the next seed
//
// The long run, above the five minutes that Qt allows a function:
//   QTEST_FUNCTION_TIMEOUT=86400000 JWDEVICE_MODEL_STREAMS=200000 build/release/tests/tst_receive_model
//
// A stream on which the two differ is shrunk and printed with its seed.
#include "support/corpus.h"
#include "support/environmentnumber.h"
#include "support/receivemodel.h"
#include "support/receivesubject.h"
#include "support/runningseed.h"
#include "support/shrink.h"

#include <QRandomGenerator>
#include <QTest>

#include <algorithm>

namespace {

constexpr int streamsInTestRun = 4000;

/// What the two traces differ in first; empty when they are the same.
QString difference(const ReceiveStream &stream)
{
    ReceiveModel model(stream.lines);
    ReceiveSubject subject(stream.lines);
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

/// One round of leaving out and simplifying whatever the stream fails without.
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
        if (step.action == ReceiveStep::DeliverInside)
            replaceIfItFails(step.action, ReceiveStep::Deliver);
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
    if (std::all_of(stream.steps.cbegin(), stream.steps.cend(), [](const ReceiveStep &step) { return step.line == 0; }))
        replaceIfItFails(stream.lines, 1);
    return stream;
}

/// The shortest and plainest stream that still fails.
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
        , m_twin(1)
    {
        m_twin.payloadReceived = [](int, uint) {};
        m_twin.anythingReceived = [](int) {};
    }

    ReceiveStream stream()
    {
        ReceiveStream stream;
        stream.lines = chance(50) ? 1 : between(2, 4);
        if (chance(50))
            stream.receiver = static_cast<ReceiveStream::Receiver>(between(1, ReceiveStream::ClosesNowAndThen));
        for (int steps = between(1, 40); steps > 0; --steps)
            stream.steps.append(step(stream.lines));
        return stream;
    }

private:
    bool chance(int percent) { return m_random.bounded(100) < percent; }
    int between(int lowest, int highest) { return m_random.bounded(lowest, highest + 1); }
    char oneOf(const QByteArray &characters) { return characters[m_random.bounded(characters.size())]; }

    ReceiveStep step(int lines)
    {
        ReceiveStep step;
        step.line = m_random.bounded(lines);
        if (chance(10)) {
            step.action = ReceiveStep::Take;
            step.id = chance(50) ? 0 : static_cast<uint>(between(1, 30));
            return step;
        }
        if (chance(10))
            step.action = ReceiveStep::DeliverInside;
        for (int reads = chance(60) ? 1 : between(1, 4); reads > 0; --reads)
            step.reads.append(read());
        return step;
    }

    ReceiveRead read()
    {
        if (chance(4))
            return {QByteArray(), -m_random.bounded(2)};
        if (m_text.isEmpty())
            m_text = piece();
        // Mostly all of the piece, otherwise cut anywhere; devices hand out the rest of a long one slice by slice.
        const int size = chance(50) ? m_text.size() : between(1, m_text.size());
        const ReceiveRead read = {m_text.left(size), 0};
        m_text.remove(0, size);
        m_twin.queue(0, read);
        m_twin.announce(0);
        return read;
    }

    QByteArray piece()
    {
        static const QVector<CorpusSentence> sentences = corpus(QStringLiteral("valid.nmea"))
            + corpus(QStringLiteral("tolerated.nmea")) + corpus(QStringLiteral("invalid.nmea"));
        switch (m_random.bounded(11)) {
        case 0:
            return sentences[m_random.bounded(sentences.size())].text.toLatin1();
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
        default: // just below, at and above the longest that the buffer holds
            return text(qMax(1, between(499, 502) - m_twin.buffered()), "AB");
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
    ReceiveModel m_twin; // tells how full the shared buffer is
    QByteArray m_text; // what is left of the piece that is being delivered
};

} // namespace

class TestReceiveModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void corporaArePartOfTheStreams()
    {
        QVERIFY(!corpus(QStringLiteral("valid.nmea")).isEmpty());
        QVERIFY(!corpus(QStringLiteral("tolerated.nmea")).isEmpty());
        QVERIFY(!corpus(QStringLiteral("invalid.nmea")).isEmpty());
    }

    void shrinksAFailingStreamToItsShortestForm()
    {
        const ReceiveStream stream = StreamGenerator(1).stream();
        const auto hasTwoDollars = [](const ReceiveStream &candidate) {
            int dollars = 0;
            for (const ReceiveStep &step : candidate.steps) {
                for (const ReceiveRead &read : step.reads)
                    dollars += read.bytes.count('$');
            }
            return dollars >= 2;
        };
        QVERIFY(hasTwoDollars(stream));
        const ReceiveStream shortestStream = shortest(stream, hasTwoDollars);
        int bytes = 0;
        for (const ReceiveStep &step : shortestStream.steps) {
            for (const ReceiveRead &read : step.reads)
                bytes += read.bytes.size();
        }
        QCOMPARE(bytes, 2);
    }

    void randomStreamsGiveWhatTheModelGives()
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
};

QTEST_GUILESS_MAIN(TestReceiveModel)
#include "tst_receive_model.moc"
