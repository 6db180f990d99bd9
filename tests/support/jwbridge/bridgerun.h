#pragma once

#include "brokerrun.h"
#include "support/programs/jwsimrun.h"

#include <QString>
#include <QStringList>

/// Returns a jwbridge that runs under jwsim with these boards, as the machine "here".
inline QStringList bridgeUnderJwsim(const QStringList &boards, const QString &broker, const QString &spool,
                                    const QStringList &options = {})
{
    return simulated(boards,
                     QStringList{QStringLiteral(JWBRIDGE_PROGRAM), QStringLiteral("--broker"), broker,
                                 QStringLiteral("--host"), QStringLiteral("here"), QStringLiteral("--spool"), spool}
                         + options);
}

/// One run of a jwbridge under jwsim. The destructor ends it.
class BridgeRun : public ProgramRun
{
public:
    BridgeRun(const QStringList &boards, const QString &broker, const QString &spool, const QStringList &options = {})
        : ProgramRun(jwsimProgram(), bridgeUnderJwsim(boards, broker, spool, options))
    {
        start();
    }
};

/// Returns the process of the jwbridge that has this spool, also if it runs under jwsim. 0 if there is none.
inline int bridgePid(const QString &spool)
{
    const Outcome pids = runProgram(
        QStringLiteral("pgrep"),
        {QStringLiteral("-f"), QStringLiteral("^") + QStringLiteral(JWBRIDGE_PROGRAM) + QStringLiteral(" .*") + spool});
    return pids.output.simplified().toInt();
}

/// Publishes a message with mosquitto_pub.
inline void publish(const BrokerRun &broker, const QString &topic, const QByteArray &payload)
{
    const Outcome outcome =
        runProgram(QStringLiteral("mosquitto_pub"),
                   {QStringLiteral("-V"), QStringLiteral("5"), QStringLiteral("-q"), QStringLiteral("1"),
                    QStringLiteral("-p"), QString::number(broker.port()), QStringLiteral("-t"), topic,
                    payload.isEmpty() ? QStringLiteral("-n") : QStringLiteral("-s")},
                   payload);
    QCOMPARE(outcome.error, QByteArray());
    QCOMPARE(outcome.status, 0);
}
