#pragma once

#include "support/programs/programrun.h"

#include <QFile>
#include <QString>
#include <QStringList>

/// A jwbridge without simulated boards, as a machine named `host`.
class PlainBridge : public ProgramRun
{
public:
    PlainBridge(const QString &broker, const QString &spool, const QStringList &options = {},
                const QString &host = QStringLiteral("here"))
        : ProgramRun(QStringLiteral(JWBRIDGE_PROGRAM),
                     QStringList{QStringLiteral("--broker"), broker, QStringLiteral("--spool"), spool,
                                 QStringLiteral("--host"), host, QStringLiteral("--port"), QStringLiteral("none")}
                         + options)
    {
        start();
    }
};

/// The most memory that a process had so far, in KiB.
inline qint64 mostMemory(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/status").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray text = file.readAll();
    const auto start = text.indexOf("VmHWM:") + 6;
    return text.mid(start, text.indexOf(" kB", start) - start).trimmed().toLongLong();
}
