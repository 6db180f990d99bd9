#pragma once

#include "support/common/portname.h"
#include "programrun.h"

/// The arguments of jwsim for these boards and this command.
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

/// Runs jwprobe to its end where these boards are attached.
inline Outcome runJwprobe(const QStringList &boards, const QStringList &arguments)
{
    return runProgram(jwsimProgram(), jwprobe(boards, arguments));
}

/// "BoardA,port=ttyACM0" and what else is given.
inline QString boardOn(const char *kind, const QString &port, const char *keys = "")
{
    QString board = QStringLiteral("%1,port=%2").arg(QLatin1String(kind), port);
    if (*keys)
        board += QLatin1Char(',') + QLatin1String(keys);
    return board;
}
