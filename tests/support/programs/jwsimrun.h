#pragma once

#include "support/common/portname.h"
#include "programrun.h"

/// Returns the arguments with which jwsim runs this command with these boards.
inline QStringList simulated(const QStringList &boards, const QStringList &command)
{
    QStringList arguments;
    for (const QString &board : boards)
        arguments << QStringLiteral("--board") << board;
    return arguments << QStringLiteral("--") << command;
}

inline QString jwsimProgram()
{
    return QStringLiteral(JWSIM_PROGRAM);
}

inline QString jwprobeProgram()
{
    return QStringLiteral(JWPROBE_PROGRAM);
}

inline QStringList jwprobe(const QStringList &boards, const QStringList &arguments)
{
    return simulated(boards, QStringList{jwprobeProgram()} + arguments);
}

/// Runs jwprobe with these boards, and waits until jwprobe ends.
inline Outcome runJwprobe(const QStringList &boards, const QStringList &arguments)
{
    return runProgram(jwsimProgram(), jwprobe(boards, arguments));
}

/// Returns the value of jwsim's option --board for a board on this port, for example "BoardA,port=ttyACM0,delay=20".
inline QString boardOn(const char *kind, const QString &port, const char *keys = "")
{
    QString board = QStringLiteral("%1,port=%2").arg(QLatin1String(kind), port);
    if (*keys)
        board += QLatin1Char(',') + QLatin1String(keys);
    return board;
}
