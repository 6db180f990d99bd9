#pragma once

#include <QByteArray>
#include <QDebug>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVector>

#include <functional>

/// The kind of device of a line. A line is a Communicator with its own device.
enum class ReceiveDevice {
    Plain, ///< the stream sets the result of every read; a closed device keeps its bytes and reports them as available
    WholeLines ///< a buffered device that holds back bytes until a CR LF arrives; closing it drops its bytes
};

/// For a plain device, the result of one read(): either bytes, or no bytes and the result 0 or -1. A read asks for at
/// most 100 bytes, so if there are more, later reads get the rest. For a WholeLines device, the bytes that arrive;
/// `result` is unused.
struct ReceiveRead
{
    QByteArray bytes;
    int result = 0; ///< result of read() if `bytes` is empty
};

/// One event at one line.
struct ReceiveStep
{
    enum Action {
        Deliver, ///< opens the device if it is closed, and announces the bytes in `reads`
        Take, ///< the application takes payload `id` out of the store; if `id` is 0, the payload with the lowest id
        Close, ///< the application closes the device
        // The following actions are for WholeLines devices only: the application calls the device itself, not the
        // Communicator.
        SetWholeLines, ///< calls setWholeLines(number), 0 or 1
        Read, ///< calls read(number)
        ReadAll,
        ReadLine, ///< calls readLine() for at most `number` bytes
        Peek ///< calls peek(number)
    };
    Action action = Deliver;
    /// If true, this step waits and happens inside a readyRead(uint) of the next step whose `inside` is false. If that
    /// step emits no such signal for this step, this step happens after it.
    bool inside = false;
    int line = 0;
    QVector<ReceiveRead> reads;
    uint id = 0;
    int number = 0;
};

struct ReceiveStream
{
    /// What the application does in the signals: TakesById takes each payload in readyRead(uint). TakesLowest takes the
    /// payload with the lowest id in readyRead(). ClosesNowAndThen closes the device at every third id.
    enum Receiver { Idle, TakesById, TakesLowest, ClosesNowAndThen };

    QVector<ReceiveDevice> devices = {ReceiveDevice::Plain}; ///< the kind of device of each line
    Receiver receiver = Idle;
    QVector<ReceiveStep> steps;

    auto lines() const { return devices.size(); }

    /// Returns the stream as readable text. Each step has its own row of text.
    QString toString() const
    {
        static const char *const receivers[] = {"idle", "takes by id", "takes the lowest", "closes now and then"};
        static const char *const actions[] = {"deliver", "take",     "close",     "set whole lines",
                                              "read",    "read all", "read line", "peek"};
        QString text = QStringLiteral("%1 line(s), receiver %2\n").arg(lines()).arg(QLatin1String(receivers[receiver]));
        for (int line = 0; line < lines(); ++line) {
            if (devices[line] == ReceiveDevice::WholeLines)
                text += QStringLiteral("  line %1 holds back unfinished lines\n").arg(line);
        }
        for (const ReceiveStep &step : steps) {
            text += QStringLiteral("  line %1: %2%3")
                        .arg(QString::number(step.line), QLatin1String(actions[step.action]),
                             QLatin1String(step.inside ? " inside" : ""));
            if (step.action == ReceiveStep::Take)
                text += QStringLiteral(" %1").arg(step.id);
            else if (step.action != ReceiveStep::Deliver)
                text += QStringLiteral(" %1").arg(step.number);
            for (const ReceiveRead &read : step.reads) {
                text += read.bytes.isEmpty() ? QStringLiteral(" result %1").arg(read.result) : quoted(read.bytes);
            }
            text += QLatin1Char('\n');
        }
        return text;
    }

private:
    static QString quoted(const QByteArray &bytes)
    {
        QString text;
        QDebug(&text) << bytes;
        return QStringLiteral(" %1 byte(s) %2").arg(bytes.size()).arg(text.trimmed());
    }
};

/// Several lines. One subclass has real Communicators, the other subclass is the model.
class ReceiveLines
{
public:
    virtual ~ReceiveLines() = default;

    virtual void queue(int line, const ReceiveRead &read) = 0;
    virtual void announce(int line) = 0;
    /// Opens or closes the line's device.
    virtual void setOpen(int line, bool open) = 0;
    virtual bool take(int line, uint id, QString &payload) = 0;
    virtual QMap<uint, QString> store(int line) const = 0;

    // These functions are for WholeLines devices only.
    virtual void setWholeLines(int line, bool wholeLines) = 0;
    /// Performs Read, ReadAll, ReadLine or Peek, and returns the bytes. Null if the device is closed.
    virtual QByteArray read(int line, ReceiveStep::Action how, int size) = 0;
    virtual qint64 bytesAvailable(int line) const = 0;
    virtual qint64 bytesReceived(int line) const = 0;

    /// Returns the log records since the last call, as texts.
    virtual QStringList takeLogLines() = 0;

    std::function<void(int line, uint id)> payloadReceived; ///< called when readyRead(uint) is emitted
    std::function<void(int line)> anythingReceived; ///< called when readyRead() is emitted
};

/// Runs a stream on some lines and writes a trace (a record of the run). The trace contains signals, log records,
/// payloads, and bytes that were read from the devices. After each step it also contains what the step changed: the
/// stored payloads, and how many bytes each WholeLines device offers and holds.
class ReceivePlay
{
public:
    ReceivePlay(const ReceiveStream &stream, ReceiveLines &lines)
        : m_stream(stream)
        , m_lines(lines)
        , m_stores(stream.lines())
        , m_counts(stream.lines())
    {
        lines.payloadReceived = [this](int line, uint id) { onPayloadReceived(line, id); };
        lines.anythingReceived = [this](int line) {
            note(line, QStringLiteral("readyRead()"));
            if (m_stream.receiver == ReceiveStream::TakesLowest)
                take(line, 0);
        };
        for (const ReceiveStep &step : stream.steps) {
            m_inside.append(step);
            if (step.inside)
                continue;
            perform(m_inside.takeLast());
            performAll();
        }
        performAll();
    }
    ReceivePlay(const ReceivePlay &) = delete;
    ReceivePlay &operator=(const ReceivePlay &) = delete;

    const QStringList &trace() const { return m_trace; }

private:
    void onPayloadReceived(int line, uint id)
    {
        note(line, QStringLiteral("readyRead(%1)").arg(id));
        noteCounts();
        if (!m_inside.isEmpty())
            perform(m_inside.takeFirst());
        if (m_stream.receiver == ReceiveStream::TakesById)
            take(line, id);
        else if (m_stream.receiver == ReceiveStream::ClosesNowAndThen && id % 3 == 0)
            m_lines.setOpen(line, false);
    }

    void performAll()
    {
        while (!m_inside.isEmpty())
            perform(m_inside.takeFirst());
        noteLines();
    }

    void perform(const ReceiveStep &step)
    {
        const bool wholeLines = m_stream.devices[step.line] == ReceiveDevice::WholeLines;
        switch (step.action) {
        case ReceiveStep::Deliver:
            deliver(step);
            break;
        case ReceiveStep::Take:
            take(step.line, step.id);
            break;
        case ReceiveStep::Close:
            m_lines.setOpen(step.line, false);
            break;
        case ReceiveStep::SetWholeLines:
            if (wholeLines)
                m_lines.setWholeLines(step.line, step.number != 0);
            break;
        default:
            if (wholeLines) {
                const QByteArray bytes = m_lines.read(step.line, step.action, step.number);
                note(step.line, QStringLiteral("gives %1").arg(QString::fromLatin1(bytes.toPercentEncoding("$!*,"))));
            }
        }
    }

    void deliver(const ReceiveStep &step)
    {
        m_lines.setOpen(step.line, true);
        for (const ReceiveRead &read : step.reads)
            m_lines.queue(step.line, read);
        m_lines.announce(step.line);
    }

    void take(int line, uint id)
    {
        QString payload = QStringLiteral("untouched");
        const bool taken = m_lines.take(line, id, payload);
        note(line, QStringLiteral("take %1: %2 %3").arg(id).arg(taken).arg(payload));
    }

    void note(int line, const QString &what)
    {
        m_trace += m_lines.takeLogLines();
        m_trace += QStringLiteral("line %1: %2").arg(line).arg(what);
    }

    void noteLines()
    {
        m_trace += m_lines.takeLogLines();
        for (int line = 0; line < m_stream.lines(); ++line) {
            const QMap<uint, QString> store = m_lines.store(line);
            if (store == m_stores[line])
                continue;
            m_stores[line] = store;
            m_trace += QStringLiteral("line %1 holds %2").arg(line).arg(store.size());
            for (auto payload = store.cbegin(); payload != store.cend(); ++payload)
                m_trace += QStringLiteral("line %1 holds %2: %3").arg(line).arg(payload.key()).arg(*payload);
        }
        noteCounts();
    }

    void noteCounts()
    {
        for (int line = 0; line < m_stream.lines(); ++line) {
            if (m_stream.devices[line] != ReceiveDevice::WholeLines)
                continue;
            const QPair<qint64, qint64> counts(m_lines.bytesAvailable(line), m_lines.bytesReceived(line));
            if (counts == m_counts[line])
                continue;
            m_counts[line] = counts;
            m_trace += QStringLiteral("line %1 offers %2 of %3").arg(line).arg(counts.first).arg(counts.second);
        }
    }

    const ReceiveStream &m_stream;
    ReceiveLines &m_lines;
    QVector<QMap<uint, QString>> m_stores; // for each line, the stored payloads that the trace showed last
    // For each line, what the trace showed last: how many bytes the device offers, and how many it holds.
    QVector<QPair<qint64, qint64>> m_counts;
    QVector<ReceiveStep> m_inside; // steps that wait until readyRead(uint) is emitted
    QStringList m_trace;
};
