#pragma once

#include "support/common/portname.h"

#include <jwmonitor/find/boardfinder.h>
#include <simulator/board.h>
#include <simulator/testbed.h>

#include <QTest>

/// Simulated boards, and the BoardFinder that looks for them.
struct FinderFixture
{
    using Stage = JwMonitor::BoardFinder::BoardState::Stage;

    JwSimulator::Testbed testbed;
    JwMonitor::BoardFinder finder;

    /// Adds a board on a port that no other test program uses. `board` is in the form of jwsim's option --board, for
    /// example "BoardA,delay=20".
    JwSimulator::Board *attach(const char *board)
    {
        QString error;
        auto config = JwSimulator::BoardConfig::fromText(QString::fromLatin1(board), &error);
        if (!config)
            qFatal("%s", qPrintable(error));
        config->port = uniquePortName();
        JwSimulator::Board *added = testbed.add(*config, &error);
        if (!added)
            qFatal("%s", qPrintable(error));
        return added;
    }

    void start(const QList<JwDevice::Type> &types, int retries = 3)
    {
        JwTools::SearchSettings settings;
        settings.types = types;
        settings.retries = retries;
        finder.start(settings);
    }

    Stage stage(JwDevice::Type type) const { return finder.boards().value(type).stage; }

    JwMonitor::PortEntry entry(const JwSimulator::Board *board) const
    {
        const auto ports = finder.ports();
        for (const JwMonitor::PortEntry &entry : ports) {
            if (entry.port.name == board->portName())
                return entry;
        }
        return {};
    }
};
