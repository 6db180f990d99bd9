#pragma once

#include <QByteArray>
#include <QDebug>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVector>

#include <functional>

/// What one call of a device's read() yields: bytes (at most 100 are asked for, the rest comes with the next call), or
/// nothing and the result 0 or -1.
struct ReceiveRead
{
    QByteArray bytes;
    int result = 0; ///< when there are no bytes
};

/// One thing that happens to one of several Communicators, each with a device of its own.
struct ReceiveStep
{
    enum Action {
        Deliver, ///< the device announces these reads
        DeliverInside, ///< the same, from within the next readyRead(uint) of any line; or before the next step
        Take ///< the application reads the payload with this id, 0 for the lowest
    };
    Action action = Deliver;
    int line = 0;
    QVector<ReceiveRead> reads;
    uint id = 0;
};

struct ReceiveStream
{
    /// What the application does within the signals.
    enum Receiver { Idle, TakesById, TakesLowest, ClosesNowAndThen };

    int lines = 1;
    Receiver receiver = Idle;
    QVector<ReceiveStep> steps;

    /// As text for people, one step a line.
    QString toString() const
    {
        static const char *const receivers[] = {"idle", "takes by id", "takes the lowest", "closes now and then"};
        static const char *const actions[] = {"deliver", "deliver inside", "take"};
        QString text = QStringLiteral("%1 line(s), receiver %2\n").arg(lines).arg(QLatin1String(receivers[receiver]));
        for (const ReceiveStep &step : steps) {
            text += QStringLiteral("  line %1: %2").arg(step.line).arg(QLatin1String(actions[step.action]));
            if (step.action == ReceiveStep::Take)
                text += QStringLiteral(" %1").arg(step.id);
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

/// Some Communicators with their devices: the real ones, or the model of them.
class ReceiveLines
{
public:
    virtual ~ReceiveLines() = default;

    virtual void queue(int line, const ReceiveRead &read) = 0;
    virtual void announce(int line) = 0;
    /// Of the line's device. Closed, it keeps what it has, and still says that it is there.
    virtual void setOpen(int line, bool open) = 0;
    virtual bool take(int line, uint id, QString &payload) = 0;
    virtual QMap<uint, QString> store(int line) const = 0;
    /// The log lines since the last call.
    virtual QStringList takeLogLines() = 0;

    std::function<void(int line, uint id)> payloadReceived; ///< readyRead(uint)
    std::function<void(int line)> anythingReceived; ///< readyRead()
};

/// Plays a stream to some lines and notes all that can be seen of them: emissions, log lines, payloads and, after each
/// step, the stores that changed.
class ReceivePlay
{
public:
    ReceivePlay(const ReceiveStream &stream, ReceiveLines &lines)
        : m_stream(stream)
        , m_lines(lines)
        , m_stores(stream.lines)
    {
        lines.payloadReceived = [this](int line, uint id) { takePayloadReceived(line, id); };
        lines.anythingReceived = [this](int line) {
            note(line, QStringLiteral("readyRead()"));
            if (m_stream.receiver == ReceiveStream::TakesLowest)
                take(line, 0);
        };
        for (const ReceiveStep &step : stream.steps) {
            while (!m_inside.isEmpty())
                deliver(m_inside.takeFirst());
            if (step.action == ReceiveStep::Take)
                take(step.line, step.id);
            else if (step.action == ReceiveStep::Deliver)
                deliver(step);
            else
                m_inside.append(step);
            noteStores();
        }
        while (!m_inside.isEmpty())
            deliver(m_inside.takeFirst());
        noteStores();
    }
    ReceivePlay(const ReceivePlay &) = delete;
    ReceivePlay &operator=(const ReceivePlay &) = delete;

    const QStringList &trace() const { return m_trace; }

private:
    void takePayloadReceived(int line, uint id)
    {
        note(line, QStringLiteral("readyRead(%1)").arg(id));
        if (!m_inside.isEmpty())
            deliver(m_inside.takeFirst());
        if (m_stream.receiver == ReceiveStream::TakesById)
            take(line, id);
        else if (m_stream.receiver == ReceiveStream::ClosesNowAndThen && id % 3 == 0)
            m_lines.setOpen(line, false);
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

    void noteStores()
    {
        m_trace += m_lines.takeLogLines();
        for (int line = 0; line < m_stream.lines; ++line) {
            const QMap<uint, QString> store = m_lines.store(line);
            if (store == m_stores[line])
                continue;
            m_stores[line] = store;
            m_trace += QStringLiteral("line %1 holds %2").arg(line).arg(store.size());
            for (auto payload = store.cbegin(); payload != store.cend(); ++payload)
                m_trace += QStringLiteral("line %1 holds %2: %3").arg(line).arg(payload.key()).arg(*payload);
        }
    }

    const ReceiveStream &m_stream;
    ReceiveLines &m_lines;
    QVector<QMap<uint, QString>> m_stores; // as last noted
    QVector<ReceiveStep> m_inside;
    QStringList m_trace;
};
