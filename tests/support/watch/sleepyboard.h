#pragma once

#include "watchfixture.h"

#include <simulator/wire.h>

/// A BoardA that answers only while it is awake.
class SleepyBoard
{
public:
    explicit SleepyBoard(WatchFixture &fixture, const char *config = "silent", const QString &serial = QString())
        : board(fixture.attach(config, serial))
    {
        QObject::connect(board, &JwSimulator::Board::sentenceReceived, board, [this](const QByteArray &sentence) {
            if (sentence + "\r\n" != versionQuery)
                return;
            ++queries;
            if (isAwake)
                board->send(JwSimulator::frameSentence("PJWVER,7300022,1,4,0"));
        });
    }

    JwSimulator::Board *const board;
    bool isAwake = true;
    int queries = 0;
};
