#pragma once

#include "support/common/recordsink.h"
#include "scripteddevice.h"

#include <device/communicator.h>

#include <QStringList>

#include <utility>

/// Records all signals of one Communicator in order, for example "readyRead(2)", "readyRead()". The record may outlive
/// the Communicator.
class SignalRecord
{
public:
    explicit SignalRecord(JwDevice::Communicator *communicator)
    {
        using JwDevice::Communicator;
        record(communicator, &Communicator::transferred, QStringLiteral("transferred(%1)"));
        record(communicator, &Communicator::transferFailed, QStringLiteral("transferFailed(%1)"));
        record(communicator, qOverload<uint>(&Communicator::readyRead), QStringLiteral("readyRead(%1)"));
        record(communicator, qOverload<>(&Communicator::readyRead), QStringLiteral("readyRead()"));
        record(communicator, &Communicator::readFailed, QStringLiteral("readFailed()"));
    }

    QStringList take()
    {
        const QStringList taken = m_emissions;
        m_emissions.clear();
        return taken;
    }

private:
    void record(JwDevice::Communicator *communicator, void (JwDevice::Communicator::*signal)(uint), const QString &text)
    {
        QObject::connect(communicator, signal, &m_context, [this, text](uint id) { m_emissions << text.arg(id); });
    }
    void record(JwDevice::Communicator *communicator, void (JwDevice::Communicator::*signal)(), const QString &text)
    {
        QObject::connect(communicator, signal, &m_context, [this, text] { m_emissions << text; });
    }

    QStringList m_emissions;
    QObject m_context;
};

/// Returns the content of a SignalRecord after the payloads with these ids were transferred.
inline QStringList transfers(const QList<uint> &ids)
{
    QStringList emissions;
    for (const uint id : ids)
        emissions << QStringLiteral("transferred(%1)").arg(id);
    return emissions;
}

/// Returns the content of a SignalRecord after `count` payloads were received. The first of these payloads has the id
/// `firstId`, which is 2 for a new Communicator.
inline QStringList arrivals(QStringList::size_type count, uint firstId = 2)
{
    QStringList emissions;
    for (uint id = firstId; count > 0; --count, ++id)
        emissions << QStringLiteral("readyRead(%1)").arg(id) << QStringLiteral("readyRead()");
    return emissions;
}

/// Reads all payloads that the Communicator stores, which removes them. Returns the payloads, the lowest id first.
inline QStringList takePayloads(JwDevice::Communicator &communicator)
{
    QStringList payloads;
    for (QString payload; communicator.readPayload(payload);)
        payloads << payload;
    return payloads;
}

/// Removes all records from the log. Returns each record as "<level> [<category>] <file> <text>".
inline QStringList takeLog(const LogCapture &log)
{
    QStringList lines;
    for (const LogRecord &record : std::as_const(log.sink->records)) {
        lines << QStringLiteral("%1 [%2] %3 %4")
                     .arg(QString::number(record.level), QString::fromLatin1(record.category),
                          QString::fromLatin1(record.file), record.text);
    }
    log.sink->records.clear();
    return lines;
}

/// Empties the receive buffer. All Communicators share this buffer, so it may contain bytes from an earlier test.
inline void drainReceiveBuffer()
{
    ScriptedDevice device;
    JwDevice::Communicator communicator;
    communicator.setIODevice(&device);
    device.deliver("$\r\n"); // old bytes leave the buffer together with this payload
}
